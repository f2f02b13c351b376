#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include "corvel/port.h"

namespace {

// Whether each of the blank-separated names is a zone.
void ExpectZones(const char *names, int expected) {
  std::istringstream in(names);
  std::string name;
  while (in >> name) EXPECT_EQ(is_timezone(name.c_str()), expected) << name;
}

TEST(PortTimezone, NamesAndRules) {
  ExpectZones(
      "UTC Asia/Kathmandu America/St_Johns :Europe/Paris EST5EDT UTC0 <+0545>-5:45 "
      "EST5EDT,M3.2.0/2,M11.1.0 NZST-12NZDT,M9.5.0,M4.1.0/3 AAA+24:00:00 "
      "XXX3YYY,J60/-1,300/167",
      1);
  ExpectZones(
      "Mars/Olympus_Mons today ../../etc/passwd /usr/share/zoneinfo/UTC Europe EST+ "
      "EST25 ES5 <AB>5 EST5EDT,M13.1.0,M11.1.0 EST5EDT,M3.6.0,M11.1.0 "
      "EST5EDT,M3.2.7,M11.1.0 EST5EDT,J0,J365 EST5EDT,366,1 EST5EDT,M3.2.0 EST5:60 EST5x",
      0);
  EXPECT_EQ(is_timezone(""), 0);
  EXPECT_EQ(is_timezone(nullptr), 0);
}

// TZDIR replaces the zone database; only files that begin as zone files count.
TEST(PortTimezone, ZoneDatabaseFromTzdir) {
  char dir[] = "/tmp/tzdirXXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string good = std::string(dir) + "/Good", bad = std::string(dir) + "/Bad";
  for (const auto &[path, text] : {std::pair{good, "TZif2..."}, std::pair{bad, "not a zone"}}) {
    FILE *f = fopen(path.c_str(), "w");
    fputs(text, f);
    fclose(f);
  }
  setenv("TZDIR", dir, 1);
  EXPECT_EQ(is_timezone("Good") * 100 + is_timezone("Bad") * 10 + is_timezone("Asia/Tokyo"), 100);
  EXPECT_EQ(is_timezone("UTC0"), 1);
  unlink(good.c_str());
  unlink(bad.c_str());
  rmdir(dir);
}

}  // namespace
