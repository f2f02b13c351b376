#include <errno.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "corvel/elog.h"
#include "corvel/time.h"

namespace {

std::string Take(char *text) {
  std::string s = text;
  free(text);
  return s;
}

const char *kZones[] = {
    "Asia/Kathmandu",      "Australia/Lord_Howe", "America/St_Johns",         "Europe/London",
    "America/Los_Angeles", "Pacific/Chatham",     "EST5EDT,M3.2.0/2,M11.1.0", "<+0545>-5:45"};

// What the C library shows for t in the zone now in TZ.
std::string LocalReference(double t) {
  time_t whole = static_cast<time_t>(floor(t));
  struct tm tm;
  localtime_r(&whole, &tm);
  char text[128];
  strftime(text, sizeof text, "%Y-%m-%d %j %H:%M:%S %Z", &tm);
  char millis[8];
  snprintf(millis, sizeof millis, ".%03d", static_cast<int>((t - floor(t)) * 1000 + 0.5));
  return std::string(text) + millis;
}

std::string EnvTz() {
  const char *tz = getenv("TZ");
  return tz ? std::string("set:") + tz : "unset";
}

// Named zones with odd offsets and daylight saving against the C library, over 1811 to 2128
// (not only the 32-bit range), densely around each zone's clock changes in 2024.
TEST(TimeZone, AgreesWithCLibraryLocalTime) {
  std::mt19937_64 rng(3);
  std::uniform_real_distribution<double> any_time(-5e9, 5e9);  // 1811 to 2128
  std::vector<double> times;
  for (int i = 0; i < 3000; i++) times.push_back(floor(any_time(rng) * 1000) / 1000);
  // Every half hour through 2024, which crosses each zone's changes of that year.
  for (double t = 1704067200; t < 1735689600; t += 1800) times.push_back(t + 0.25);
  for (const char *zone : kZones) {
    setenv("TZ", zone, 1);
    tzset();
    std::vector<std::string> expected;
    for (double t : times) expected.push_back(LocalReference(t));
    setenv("TZ", "Asia/Tokyo", 1);
    tzset();
    for (size_t i = 0; i < times.size(); i++) {
      ASSERT_EQ(Take(zepoch2str("%Y-%m-%d %j %H:%M:%S %Z.%s", zone, times[i])), expected[i])
          << zone << " " << times[i];
    }
    ASSERT_STREQ(getenv("TZ"), "Asia/Tokyo");
  }
}

// The fields of e2hz as one text.
std::string BrokenDown(const char *zone, double t, int expected_result) {
  int year, doy, month, day, hour, minute;
  double second;
  char *name, text[128];
  EXPECT_EQ(e2hz(zone, &year, &doy, &month, &day, &hour, &minute, &second, &name, t),
            expected_result);
  snprintf(text, sizeof text, "%d %d %d %d %d:%d:%g %s", year, doy, month, day, hour, minute,
           second, name);
  free(name);
  return text;
}

TEST(TimeZone, BreakdownAndUnknownZone) {
  EXPECT_EQ(BrokenDown("Asia/Kathmandu", 1706771109.25, 0), "2024 32 2 1 12:50:9.25 +0545");
  EXPECT_EQ(BrokenDown(nullptr, -1e-20, 0), "1970 1 1 1 0:0:0 UTC");
  setenv("TZ", "UTC0", 1);
  elog_clear();
  // Unknown: logged, and broken down in the process's own zone.
  EXPECT_EQ(BrokenDown("Mars/Olympus_Mons", -0.5, -1), "1969 365 12 31 23:59:59.5 UTC");
  char *log = elog_string(0);
  EXPECT_NE(strstr(log, ": Unrecognized timezone 'Mars/Olympus_Mons'\n"), nullptr) << log;
  free(log);
  EXPECT_EQ(Take(zepoch2str("%H:%M %Z", "Nowhere", 0)), "00:00 UTC");
  EXPECT_STREQ(getenv("TZ"), "UTC0");
  // A known zone leaves the caller's errno alone.
  errno = EPIPE;
  free(zepoch2str("%H", "Asia/Kathmandu", 0));
  EXPECT_EQ(errno, EPIPE);
}

// TZ is left as it was found, whether set, empty (UTC) or unset, through good and bad zones.
TEST(TimeZone, TzIsLeftAsFound) {
  for (const char *initial : {"America/New_York", "", static_cast<const char *>(nullptr)}) {
    if (initial) {
      setenv("TZ", initial, 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
    std::string before = EnvTz();
    std::string local_before = Take(strlocaltime(1706771109));
    for (const char *zone : {"Asia/Kathmandu", "Bad/Zone", "", "LOCAL", "UTC"}) {
      free(zepoch2str("%H %Z", zone, 1706771109));
      char buffer[64];
      fmttime(buffer, 1, zone, 1706771109);
      ASSERT_EQ(EnvTz(), before) << zone;
      ASSERT_EQ(Take(strlocaltime(1706771109)), local_before) << zone;
    }
    EXPECT_EQ(switchTZ("Australia/Lord_Howe"), 0);
    EXPECT_EQ(switchTZ("No/Such_Zone"), -1);
    EXPECT_EQ(errno, EINVAL);
    restoreTZ();
    restoreTZ();  // nothing in force: no effect
    EXPECT_EQ(EnvTz(), before);
  }
  setenv("TZ", "", 1);
  EXPECT_EQ(Take(strlocaltime(1706771109)), "02/01/2024  07:05:09.000 UTC");
  // "LOCAL" and "" use the process's zone as TZ now has it, without switching.
  setenv("TZ", "Asia/Kathmandu", 1);
  const char *entry = getenv("TZ");
  EXPECT_EQ(Take(zepoch2str("%H:%M %Z", "LOCAL", 0)), "05:30 +0530");
  EXPECT_EQ(Take(strlocaltime(1706771109.0006)), "02/01/2024  12:50:09.001 +0545");
  // Names longer than TZ takes are cut to 61 characters.
  EXPECT_EQ(switchTZ(std::string(80, 'A').c_str()), -1);
  EXPECT_EQ(strlen(getenv("TZ")), 61u);
  restoreTZ();
  EXPECT_EQ(getenv("TZ"), entry);
}

// Threads formatting in different zones at once each get their own zone's time.
TEST(TimeZone, ConcurrentZoneFormatting) {
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  const char *zones[] = {"Asia/Kathmandu", "America/St_Johns", "Asia/Tokyo", "UTC"};
  const char *hours[] = {"12:50", "03:35", "16:05", "07:05"};
  for (int k = 0; k < 4; k++) {
    threads.emplace_back([&, k] {
      for (int i = 0; i < 300; i++) {
        failures[k] += Take(zepoch2str("%H:%M", zones[k], 1706771109)) != hours[k];
      }
    });
  }
  for (auto &t : threads) t.join();
  for (int f : failures) EXPECT_EQ(f, 0);
}

}  // namespace
