#include <float.h>
#include <gtest/gtest.h>
#include <math.h>
#include <time.h>

#include <random>

#include "corvel/time.h"
#include "time/civil.h"

namespace {

// Epochs of 1700-01-01 and 2301-01-01.
constexpr double kYear1700 = -8520336000.0;
constexpr double kYear2301 = 10446134400.0;

void ExpectMatchesGmtime(double t, const DateTime &rec) {
  time_t whole = static_cast<time_t>(floor(t));
  struct tm tm;
  ASSERT_NE(gmtime_r(&whole, &tm), nullptr);
  ASSERT_EQ(rec.year, tm.tm_year + 1900) << t;
  ASSERT_EQ(rec.month, tm.tm_mon + 1) << t;
  ASSERT_EQ(rec.day, tm.tm_mday) << t;
  ASSERT_EQ(rec.doy, tm.tm_yday + 1) << t;
  ASSERT_EQ(rec.hour, tm.tm_hour) << t;
  ASSERT_EQ(rec.minute, tm.tm_min) << t;
  ASSERT_EQ(floor(rec.second), tm.tm_sec) << t;
  ASSERT_NEAR(rec.second - floor(rec.second), t - floor(t), 1e-6) << t;
  ASSERT_EQ(rec.date, rec.year * 1000L + rec.doy);
  char abbrev[8];
  strftime(abbrev, sizeof abbrev, "%b", &tm);
  ASSERT_STREQ(rec.mname, abbrev);
}

TEST(TimeCalendar, SpecifiedValues) {
  EXPECT_EQ(dtoepoch(1970001), 0.0);
  EXPECT_EQ(dtoepoch(2000060), 951782400.0);  // 2000-02-29
  EXPECT_EQ(isleap(1900) * 100 + isleap(2000) * 10 + isleap(2023), 10);
  EXPECT_EQ(year2days(1971) - year2days(1969), 730.0);
  DateTime rec;
  rec.epoch = -1;
  etoh(&rec);
  EXPECT_EQ(rec.date, 1969365);
  EXPECT_EQ(rec.hour * 10000 + rec.minute * 100 + rec.second, 235959);
  EXPECT_EQ(h2e(2024, 32, 7, 5, 9.5), 1706771109.5);
  EXPECT_EQ(yearday(1706771109.5), 2024032);
  EXPECT_EQ(epoch(2024032), 1706745600.0);
}

// Every field against the C library, every day from 1700 to 2300 at a random time and at its
// last instant, and back through every inverse.
TEST(TimeCalendar, AgreesWithCLibraryFrom1700To2300) {
  std::mt19937_64 rng(20240201);
  std::uniform_real_distribution<double> time_of_day(0, 86400);
  for (double day = kYear1700; day < kYear2301; day += 86400) {
    for (double t : {day + time_of_day(rng), day + floor(time_of_day(rng)), day + 86399.999}) {
      DateTime rec;
      rec.epoch = t;
      etoh(&rec);
      ExpectMatchesGmtime(t, rec);
      DateTime back = rec;
      htoe(&back);
      ASSERT_NEAR(back.epoch, t, 1e-5);
      back.doy = back.date = 0;
      mdtodate(&back);
      ASSERT_EQ(back.date, rec.date);
      ASSERT_EQ(dtoepoch(rec.date), day);
      int y, doy, h, m, month, mday;
      double s;
      e2h(t, &y, &doy, &h, &m, &s);
      ASSERT_EQ(h2e_(&y, &doy, &h, &m, &s), h2e(y, doy, h, m, s));
      ASSERT_NEAR(h2e(y, doy, h, m, s), t, 1e-5);
      ASSERT_EQ(y * 1000 + doy, yearday(t));
      doy2mday(rec.doy, rec.year, &month, &mday);
      ASSERT_EQ(month * 100 + mday, rec.month * 100 + rec.day);
      ASSERT_EQ(mday2doy_(&y, &month, &mday), rec.doy);
    }
  }
}

// The breakdown takes a faster road where the defining year estimate is exact; both must give
// the same day everywhere, and past the estimate's exact range the defining rule decides.
TEST(TimeCalendar, FastRoadAgreesWithDefiningRule) {
  for (int64_t days = -600000; days <= 600000; days++) {
    int year, doy;
    corvel::timecal::YearAndDayByEstimate(days, &year, &doy);
    DateTime rec;
    rec.epoch = days * 86400.0 + 43200.5;
    etoh(&rec);
    ASSERT_EQ(rec.date, year * 1000L + doy) << days;
  }
  DateTime rec;
  rec.epoch = dtoepoch(3476365) + 86400;  // day 366 of 3476
  etoh(&rec);
  EXPECT_EQ(rec.date, 3477000);
}

TEST(TimeCalendar, HelpersOnOddInput) {
  // Out-of-range input is computed without checks but never read outside the tables.
  EXPECT_EQ(mday2doy(2023, 40, 1), 366);
  int month, day, doy = 400, year = 2023;
  doy2mday_(&doy, &year, &month, &day);
  EXPECT_EQ(month, 12);
  DateTime rec;
  const double nonsense[] = {NAN, INFINITY, -INFINITY, 1e300, -DBL_MAX, 1e15, -9.3e18, -1e-300};
  for (double t : nonsense) {
    rec.epoch = t;
    etoh(&rec);
    EXPECT_TRUE(rec.month >= 1 && rec.month <= 12 && rec.hour >= 0 && rec.hour < 24) << t;
    EXPECT_TRUE(rec.minute >= 0 && rec.minute < 60 && rec.second >= 0 && rec.second < 60) << t;
  }

  DateTime shown;
  shown.epoch = 1706771109.0466;
  etoh(&shown);
  testing::internal::CaptureStdout();
  timeprint(&shown);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            " 1706771109.047  2024032 Feb  1,2024  7:05:9.047\n");

  long today = todaysdate();
  DateTime midnight;
  zh_today(&midnight);
  EXPECT_EQ(midnight.date, today);
  EXPECT_EQ(midnight.hour + midnight.minute + midnight.second, 0);
  EXPECT_NEAR(midnight.epoch, time(nullptr), 86400);
}

}  // namespace
