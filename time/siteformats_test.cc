#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "corvel/time.h"
#include "pf/test_dir.h"

namespace {

std::string Take(char *text) {
  std::string s = text;
  free(text);
  return s;
}

constexpr double kExample = 1706771109.0466;  // 2024-02-01 07:05:09.0466 UTC, day 32

// The shipped file parses without a word, and its formats, with or without EUROPEAN_DATE, are
// exactly the built-in ones that apply when no file is found.
void ExpectShippedFile(bool european) {
  setenv("PFPATH", CORVEL_SOURCE_DIR "/data/pf", 1);
  european ? setenv("EUROPEAN_DATE", "", 1) : unsetenv("EUROPEAN_DATE");
  Pf *pf = nullptr;
  ASSERT_EQ(pfread("time_formats", &pf), 0);
  pffree(pf);
  EXPECT_EQ(elog_mark(), 0);
  const std::string date = european ? "%d/%m/%Y" : "%m/%d/%Y";
  EXPECT_EQ(is_month_first(), european ? 0 : 1);
  EXPECT_EQ(Strtime_format, date + "  %H:%M:%S.%s");
  EXPECT_EQ(Strydtime_format, date + "  (%j) %H:%M:%S.%s");
  EXPECT_EQ(UStrydtime_format, date + "  (%j) %H:%M:%S.%u");
  EXPECT_EQ(Strdate_format, date);
  EXPECT_EQ(ZStrtime_format, date + "  %H:%M:%S.%s %z");
  EXPECT_EQ(ZStrydtime_format, date + "  (%j) %H:%M:%S.%s %z");
  EXPECT_EQ(UZStrydtime_format, date + "  (%j) %H:%M:%S.%u %z");
  EXPECT_EQ(ZStrdate_format, date + " %z");
  EXPECT_EQ(Take(strtime(kExample)),
            european ? "01/02/2024  07:05:09.047" : "02/01/2024  07:05:09.047");
}

TEST(TimeSiteFile, ShippedFileGivesTheMonthFirstDefaults) { ExpectShippedFile(false); }

TEST(TimeSiteFile, ShippedFileGivesTheDayFirstDefaultsWithEuropeanDate) { ExpectShippedFile(true); }

// A site's own file in a fresh directory on PFPATH; nothing is loaded before a test asks.
class TimeSiteFileTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    setenv("PFPATH", root_.c_str(), 1);
    setenv("TZ", "UTC0", 1);
    unsetenv("EUROPEAN_DATE");
  }
  void WriteSite(const std::string &text) const { Write("time_formats.pf", text); }
};

constexpr char kTopLevel[] =
    "time     %Y-%m-%d %H:%M:%S\n"
    "ydtime   %Y-%m-%d (%j) %H:%M\n"
    "uydtime  %Y-%j %H:%M:%S.%u\n"
    "date     %d.%m.%Y\n"
    "month_first  TRUE\n";

constexpr char kLabTable[] =
    "lab &Arr{\n"
    "  time     %j  %H:%M\n"
    "  ydtime   %Y/%j\n"
    "  uydtime  %u\n"
    "  date     %B %o\n"
    "}\n";

TEST_F(TimeSiteFileTest, TopLevelFormatsAreUsedAndTheirZoneFormsEndInTheZone) {
  WriteSite(kTopLevel + std::string(kLabTable));  // a table that no location names is unused
  EXPECT_EQ(Take(strtime(kExample)), "2024-02-01 07:05:09");
  EXPECT_EQ(Take(strlocaltime(kExample)), "2024-02-01 07:05:09 UTC");
  EXPECT_EQ(Take(strydtime(kExample)), "2024-02-01 (032) 07:05");
  EXPECT_EQ(Take(strlocaldate(kExample)), "01.02.2024 UTC");
  char buffer[64];
  fmttime(buffer, 8, "UTC0", kExample);
  EXPECT_STREQ(buffer, "2024-032 07:05:09.04660 UTC");
  EXPECT_EQ(is_month_first(), 1);  // a true boolean reads as 1
  EXPECT_EQ(elog_mark(), 0);
}

TEST_F(TimeSiteFileTest, LocationNamesTheTableAndMonthFirstMayBeLeftOut) {
  WriteSite(kTopLevel + std::string(kLabTable) + "location lab\n");
  EXPECT_EQ(Take(strtime(kExample)), "032  07:05");
  EXPECT_EQ(Take(strlocalydtime(kExample)), "2024/032 UTC");
  EXPECT_EQ(Take(strdate(kExample)), "February 1st");
  EXPECT_EQ(is_month_first(), 0);
  EXPECT_EQ(elog_mark(), 0);
}

TEST_F(TimeSiteFileTest, EuropeanDateOverridesTheLocation) {
  WriteSite(kTopLevel + std::string(kLabTable) + "location lab\n" +
            "european &Arr{\n time %d|%m\n ydtime x\n uydtime x\n date x\n month_first 1\n}\n");
  setenv("EUROPEAN_DATE", "1", 1);
  EXPECT_EQ(Take(strtime(kExample)), "01|02");
  EXPECT_EQ(is_month_first(), 1);
}

using TimeSiteFileDeathTest = TimeSiteFileTest;

TEST_F(TimeSiteFileDeathTest, MissingFormatEndsTheProgramNamingIt) {
  const std::string all(kTopLevel);
  WriteSite(all.substr(all.find("ydtime")));
  EXPECT_EXIT(set_time_formats(), ::testing::ExitedWithCode(1),
              "Could not read 'time' from time_formats.pf");
  WriteSite("time x\nydtime x\ndate x\n");
  EXPECT_EXIT(set_time_formats(), ::testing::ExitedWithCode(1),
              "Could not read 'ydtime' from time_formats.pf");
  WriteSite(all + "location lab\nlab &Arr{\n time x\n ydtime x\n uydtime x\n}\n");
  EXPECT_EXIT(set_time_formats(), ::testing::ExitedWithCode(1),
              "Could not read 'lab\\{date\\}' from time_formats.pf");
  // An entry of the wrong kind gets the same message, not the getters' complaint.
  WriteSite(all + "location lab\nlab &Arr{\n time &Tbl{\n }\n}\n");
  EXPECT_EXIT(set_time_formats(), ::testing::ExitedWithCode(1),
              "Could not read 'lab\\{time\\}' from time_formats.pf");
}

}  // namespace
