#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <random>
#include <string>
#include <vector>

#include "corvel/elog.h"
#include "corvel/port.h"
#include "corvel/time.h"

namespace {

// The epoch of a UTC calendar time, by the C library.
double Utc(int year, int month, int day, int hour = 0, int minute = 0, double second = 0) {
  struct tm t = {};
  t.tm_year = year - 1900;
  t.tm_mon = month - 1;
  t.tm_mday = day;
  t.tm_hour = hour;
  t.tm_min = minute;
  return static_cast<double>(timegm(&t)) + second;
}

struct Case {
  const char *text;
  double expected;
};

// Parses each text and expects its epoch and no error.
void ExpectClean(const std::vector<Case> &cases) {
  for (const Case &c : cases) {
    double value = -1;
    EXPECT_EQ(zstr2epoch(c.text, &value), 0) << c.text;
    EXPECT_NEAR(value, c.expected, 1e-6) << c.text;
  }
  EXPECT_EQ(elog_mark(), 0) << "a clean parse logged something";
}

std::string Register() {
  char *s = elog_string(0);
  std::string text(s);
  free(s);
  elog_clear();
  return text;
}

TEST(Str2epoch, Dates) {
  setenv("TZ", "UTC", 1);
  elog_init(0, nullptr);
  const double feb1 = Utc(2024, 2, 1);
  ExpectClean({
      {"2024-02-01 07:05:09.047", Utc(2024, 2, 1, 7, 5, 9.047)},
      {"2/1/2024 7:05 pm", Utc(2024, 2, 1, 19, 5)},
      {"2024/02/01", feb1},
      {"Feb 1, 2024 07:05", Utc(2024, 2, 1, 7, 5)},
      {"1 February 2024", feb1},
      {"Thursday Feb 1 2024 7:05:09", Utc(2024, 2, 1, 7, 5, 9)},
      {"02/01/2024  (032) 07:05:09.047", Utc(2024, 2, 1, 7, 5, 9.047)},
      {"Feb 2024", feb1},
      {"2024 Feb", feb1},
      {"FEBRUARY 1 2024", feb1},
      {"Feb 1 24", feb1},
      {"Feb 1 69", Utc(1969, 2, 1)},
      {"Feb 1 68", Utc(2068, 2, 1)},
      {"12:30 am", Utc(1970, 1, 1, 0, 30)},
      {"12:30 pm", Utc(1970, 1, 1, 12, 30)},
      {"1:30 pm", Utc(1970, 1, 1, 13, 30)},
      {"100:00", 360000.0},
      {"2-1-2024", Utc(1970, 2, 1)},  // only the first number of a dashed date is read
      {"2024-02-01 24:00", Utc(2024, 2, 2)},
  });
}

TEST(Str2epoch, DayFirstSite) {
  setenv("EUROPEAN_DATE", "1", 1);
  elog_init(0, nullptr);
  ExpectClean({
      {"1/2/2024", Utc(2024, 2, 1)},
      {"13/1/2024", Utc(2024, 1, 13)},
      {"2024/02/01", Utc(2024, 2, 1)},  // year first is never swapped
  });
}

TEST(Str2epoch, YearDaysAndStamps) {
  elog_init(0, nullptr);
  const double t = Utc(2024, 2, 1, 7, 5, 9.5);
  ExpectClean({
      {"2024-032 07:05:09.5", t},
      {"2024032", Utc(2024, 2, 1)},
      {"2024032:07:05:09.5", t},
      {"2024032:07:05", Utc(2024, 2, 1, 7, 5)},  // compact year-day, hour, minute
      {"2024:032:07:05:09.5", t},
      {"2024:032:07:05:09:500", t},
      {"2024:Feb:01:07:05:09.5", t},
      {"2024:feb:01:07:05:09", Utc(2024, 2, 1, 7, 5, 9)},
      {"07:05 :30", Utc(1970, 1, 1, 7, 30)},
      {"07:05 :10:20.25", Utc(1970, 1, 1, 7, 10, 20.25)},
      {"2024-366", Utc(2024, 12, 31)},
      {"10days", 864000.0},
  });
}

TEST(Str2epoch, BareNumbersAreEpochs) {
  elog_init(0, nullptr);
  ExpectClean({
      {"1706771109.047", 1706771109.047},
      {"1706771109", 1706771109.0},
      {"2024", 2024.0},
      {"-86400", -86400.0},
      {"-1.5", -1.5},
      {"1.5e3", 1500.0},
      {"0.0", 0.0},
  });
  double value = -1;
  EXPECT_EQ(is_epoch_string("0", &value), 0);  // a bare zero is no number at all
  EXPECT_EQ(value, 0.0);
  EXPECT_EQ(time_string2epoch("12", &value), 1);
  EXPECT_EQ(value, 12.0);
}

TEST(Str2epoch, RelativeToNow) {
  elog_init(0, nullptr);
  struct Relative {
    const char *text;
    double offset;
  } cases[] = {{"now", 0},    {"-1:30", -5400},    {"+0:00:30", 30}, {"-:10", -600},
               {"+:10", 600}, {"-1:00:01", -3601}, {"+2:00", 7200}};
  for (const Relative &c : cases) {
    double before = std_now();
    double value = str2epoch(c.text);
    double after = std_now();
    EXPECT_GE(value, before + c.offset - 1e-3) << c.text;
    EXPECT_LE(value, after + c.offset + 1e-3) << c.text;
  }
  double midnight = floor(std_now() / 86400) * 86400;
  double value = str2epoch("-2days 12:00");
  if (floor(std_now() / 86400) * 86400 == midnight) {
    EXPECT_EQ(value, midnight - 2 * 86400 + 12 * 3600);
  }
}

TEST(Str2epoch, Zones) {
  setenv("TZ", "America/New_York", 1);
  tzset();
  elog_init(0, nullptr);
  ExpectClean({
      {"2024-02-01 07:00 US/Mountain", Utc(2024, 2, 1, 14, 0)},
      {"2024-07-01 07:00 US/Mountain", Utc(2024, 7, 1, 13, 0)},  // daylight time
      {"2024-02-01 07:00 Asia/Kathmandu", Utc(2024, 2, 1, 1, 15)},
      {"2024-02-01 12:00 LOCAL", Utc(2024, 2, 1, 17, 0)},
      {"2024-02-01 12:00 UTC", Utc(2024, 2, 1, 12, 0)},
      {"2024-02-01 12:00:30.25 EST5EDT", Utc(2024, 2, 1, 17, 0, 30.25)},
      {"1706788800 Asia/Kathmandu", 1706788800.0 - 20700},  // a zone shifts a bare epoch
  });
  EXPECT_STREQ(getenv("TZ"), "America/New_York");
}

TEST(Str2epoch, ErrorsAreCountedAndOnlyTheFirstIsLogged) {
  elog_init(0, nullptr);
  struct Bad {
    const char *text;
    const char *message;  // the first error's message, as logged
  } cases[] = {
      {"2024-2-1", "str2epoch: Bad date format:'2024-2-1'"},
      {"13/1/2024", "str2epoch: Bad date format:'13/1/2024'"},
      {"2024-13-01", "str2epoch: Bad date format:'2024-13-01'"},
      {"2024-367", "str2epoch: Bad date format:'2024-367'"},
      {"2024367", "str2epoch: Bad jdate format:'2024367'"},
      {"2024-02-01 25:00", "str2epoch: Hour = 25 is too large"},
      {"200:00", "str2epoch: Hour = 200 is too large"},
      {"Feb 40,", "str2epoch: day = 40 is too large"},
      {"12:61", "str2epoch: Minute = 61 is too large"},
      {"today", "str2epoch: no timezone 'today'"},
      {"Sept 1 2024", "str2epoch: no timezone 'Sept'"},
      {"25:61:61", "str2epoch: bad input '25:61:61'"},
      {"Feb 1 2024 7", "str2epoch: extra number '7'"},
      {"Feb 3000", "str2epoch: number 3000.000000 not understood"},
      {"Feb 40 2024", "str2epoch: number 40 not understood"},
      {"2024-02-01 ?", "str2epoch: can't interpret '?'"},
      {"2024-02-01 \x01 junk", "str2epoch: can't interpret character 0x1"},
      {"2024:400:01:00:00", "str2epoch: Doy = 400 is too large"},
      {"1960-01-01 bad? 12:00", "str2epoch: no timezone 'bad'"},
  };
  for (const Bad &c : cases) {
    double value;
    EXPECT_LT(zstr2epoch(c.text, &value), 0) << c.text;
    EXPECT_EQ(Register(), std::string(Program_Name) + ": " + c.message + "\n") << c.text;
    EXPECT_EQ(is_epoch_string(c.text, &value), 0) << c.text;
    str2epoch(c.text);
    EXPECT_EQ(elog_mark(), 0) << "silent forms logged for " << c.text;
  }
  double value = -1;
  EXPECT_EQ(zstr2epoch("today tomorrow", &value), -3);  // and nothing recognised
  EXPECT_EQ(Register(), std::string(Program_Name) + ": str2epoch: no timezone 'today'\n");
  // A best-effort epoch is stored in every case.
  EXPECT_EQ(value, 0.0);
  EXPECT_EQ(zstr2epoch("2024-02-01 \x01 12:00", &value), -1);
  EXPECT_EQ(value, Utc(2024, 2, 1));  // scanning stopped at the control character
  Register();
}

TEST(Str2epoch, BadInputNeverCrashesAndLeavesNoState) {
  elog_init(0, nullptr);
  double value = -1;
  EXPECT_LE(zstr2epoch("", &value), -1);
  EXPECT_EQ(value, 0.0);
  EXPECT_LE(zstr2epoch(" \t\n", &value), -1);
  EXPECT_LE(zstr2epoch(nullptr, &value), -1);
  EXPECT_EQ(elog_mark(), 0);  // no message for a blank text

  std::string digits(100000, '7');
  std::string letters(100000, 'x');
  std::string mixed;
  std::mt19937 random(7);
  for (int i = 0; i < 100000; i++) mixed += static_cast<char>(1 + random() % 255);
  // A day number near the top of an int must not overflow the day-of-year sum.
  std::string huge_day = "Feb 3035003361, 2024";
  for (const std::string *text : {&digits, &letters, &mixed, &huge_day}) {
    zstr2epoch(text->c_str(), &value);
    Register();
    // The next parse starts afresh, whatever the last one left behind.
    EXPECT_EQ(zstr2epoch("2024-02-01", &value), 0);
    EXPECT_EQ(value, Utc(2024, 2, 1));
  }
  // A parse stopped by a control character leaves nothing for the next one.
  zstr2epoch("12:00 \x02 13:00 14:00", &value);
  Register();
  EXPECT_EQ(zstr2epoch("15:00", &value), 0);
  EXPECT_EQ(value, 15 * 3600.0);
}

// What the library writes, the library reads back to the printed precision.
TEST(Str2epoch, ReadsBackEverythingTheFormattersWrite) {
  for (const char *european : {(const char *)nullptr, "1"}) {
    if (european) setenv("EUROPEAN_DATE", european, 1);
    std::mt19937_64 random(42);
    std::uniform_real_distribution<double> range(Utc(1971, 1, 1), Utc(2199, 12, 31));
    for (int i = 0; i < 2000; i++) {
      double t = floor(range(random) * 1000) / 1000;
      struct Layout {
        char *text;
        double precision;
      } layouts[] = {
          {strtime(t), 1e-3},
          {strydtime(t), 1e-3},
          {epoch2str("%Y-%m-%d %T", t), 1e-3},
          {epoch2str("%b %e, %Y %H:%M:%S.%s", t), 1e-3},
          {epoch2str("%A %B %d %Y %I:%M:%S.%s %p", t), 1e-3},
          {epoch2str("%Y:%j:%H:%M:%S.%s", t), 1e-3},
          {epoch2str("%E", t), 1e-3},
      };
      for (const Layout &l : layouts) {
        double back = -1;
        EXPECT_EQ(zstr2epoch(l.text, &back), 0) << l.text;
        EXPECT_NEAR(back, t, l.precision) << l.text;
        free(l.text);
      }
      char buffer[128];
      for (int code = 0; code <= 8; code++) {
        fmttime(buffer, code, nullptr, t);
        double day = floor(t / 86400) * 86400;
        double expected = (code == 3 || code == 4 || code == 6) ? day : t;
        EXPECT_NEAR(str2epoch(buffer), expected, 1e-3) << buffer;
      }
    }
  }
}

}  // namespace
