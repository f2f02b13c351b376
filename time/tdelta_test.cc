#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>

#include "corvel/time.h"

namespace {

std::string Delta(double x) {
  char *text = strtdelta(x);
  std::string s = text;
  free(text);
  return s;
}

// Padded on the right to 21 characters.
std::string Padded(const std::string &s) {
  return s + std::string(s.size() < 21 ? 21 - s.size() : 0, ' ');
}

TEST(TimeDelta, Layouts) {
  const struct {
    double x;
    const char *text;
  } cases[] = {
      {3661, "  1:01 hours"},
      {-3661, " -1:01 hours"},
      {0, "  0 seconds"},
      {31536000, " 1 years"},
      {31536000 + 86400 * 2.5, " 1 years 2 days"},
      {31536000e7 + 86400, " 1e+07 years 1 days"},
      {-31536000e6, "-1e+06 years"},
      {90000, " 1 days 1.0 hours"},
      {86400, " 1 days"},
      {-86400 * 3 - 3599, "-3 days 0.9 hours"},
      {3599.6, " 60:00 minutes"},
      {61.4, "  1:01 minutes"},
      {-61.6, " -1:02 minutes"},
      {-0.25, "-250.000 milliseconds"},
      {-2.5e-8, " -25.000 nanoseconds"},
      {2.5e-12, " 2.5 picoseconds"},
      {NAN, " nan picoseconds"},
  };
  for (const auto &c : cases) EXPECT_EQ(Delta(c.x), Padded(c.text)) << c.x;
}

TEST(TimeDelta, Timecon) {
  EXPECT_EQ(timecon("1:30:15.5"), 5415.5);
  EXPECT_EQ(timecon("2"), 7200);
  EXPECT_EQ(timecon("0:5"), 300);
  EXPECT_EQ(timecon("1h20m7.25"), 4807.25);
  EXPECT_EQ(timecon(":30:"), 1800);
  EXPECT_EQ(timecon(""), 0);
  EXPECT_TRUE(isinf(timecon(std::string(400, '9').c_str())));  // no overflow of an integer
}

TEST(TimeNiceTimes, StepsAndAlignment) {
  const struct {
    int count;
    double t0, t1, first, step;
  } cases[] = {
      {10, 100.5, 200.5, 110, 10},
      {10, 0.05, 1.05, 0.1, 0.1},
      {4, 0.01, 1.01, 0.5, 0.5},
      {5, 10, 11, 10, 0.2},                // already aligned: t0 itself
      {10, 3725, 3725 + 1800, 3900, 300},  // step 300 counted from the hour
      {10, 3600, 3600 + 600, 3600, 60},
      {10, 3600.5, 3600.5 + 600, 3660, 60},
      {10, 0, 36000, 0, 3600},
      {10, 7200 * 3 + 5, 7200 * 3 + 5 + 72000, 7200 * 4, 7200},
      {10, 5, 5 + 86400 * 30, 86400 * 4, 86400 * 5},  // from the day before 1 January
      {10, 5, 5 + 86400 * 150, 86400 * 19, 86400 * 20},
      {10, 100, 0, 100, 10},  // reversed range
  };
  for (const auto &c : cases) {
    double first = -1, step = -1;
    EXPECT_EQ(get_nice_times(c.count, &first, &step, c.t0, c.t1), 0);
    EXPECT_NEAR(first, c.first, 1e-9) << c.t0 << " " << c.t1;
    EXPECT_NEAR(step, c.step, 1e-12) << c.t0 << " " << c.t1;
  }
  double first = -1, step = -7;
  get_nice_times(0, &first, &step, 0, 100);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(step, -7);
  get_nice_times(10, &first, &step, 50, 50);
  EXPECT_EQ(step, -7);
}

TEST(TimeBcd, RoundTrip) {
  // Day 45 of this year at 12:34:56.789: the code has no year, the reader takes the clock's.
  long today = todaysdate();
  double t = dtoepoch(today / 1000 * 1000 + 45) + 12 * 3600 + 34 * 60 + 56.789;
  unsigned char bcd[6];
  epoch2bcd(bcd, t);
  const unsigned char expected[6] = {0x04, 0x51, 0x23, 0x45, 0x60, 0x78};
  EXPECT_EQ(memcmp(bcd, expected, 6), 0);
  DateTime rec;
  bcdtime(bcd, &rec);
  EXPECT_EQ(rec.date, today / 1000 * 1000 + 45);
  EXPECT_EQ(rec.hour * 100 + rec.minute, 1234);
  EXPECT_NEAR(rec.second, 56.78, 1e-5);
  EXPECT_NEAR(rec.epoch, t - 0.009, 1e-5);
  EXPECT_EQ(rec.month, 2);
  EXPECT_EQ(rec.day, 14);
  // Hundredths held just below their value by the double are not lost.
  epoch2bcd(bcd, 1706771109.29);
  EXPECT_EQ(bcd[5], 0x29);
}

}  // namespace
