#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <string>

#include "corvel/time.h"

namespace {

std::string Take(char *text) {
  std::string s = text;
  free(text);
  return s;
}

std::string Fmt(int code, const char *zone, double t) {
  char buffer[128];
  EXPECT_EQ(fmttime(buffer, code, zone, t), 0);
  return buffer;
}

constexpr double kExample = 1706771109.0466;  // 2024-02-01 07:05:09.0466 UTC, day 32

TEST(TimeSiteFormats, MonthFirstDefaults) {
  unsetenv("EUROPEAN_DATE");
  EXPECT_EQ(is_month_first(), 1);
  EXPECT_EQ(Take(strtime(1.9996)), "01/01/1970  00:00:02.000");
  EXPECT_EQ(Take(strtime(kExample)), "02/01/2024  07:05:09.047");
  EXPECT_EQ(Take(strdate(kExample)), "02/01/2024");
  // Dates are not rounded: the last millisecond of a day stays on it.
  EXPECT_EQ(Take(strdate(86399.9999)), "01/01/1970");
  EXPECT_EQ(Take(strtime(86399.9999)), "01/02/1970  00:00:00.000");
}

TEST(TimeSiteFormats, DayFirstWhenEuropeanDateIsSet) {
  setenv("EUROPEAN_DATE", "", 1);
  EXPECT_EQ(is_month_first(), 0);
  EXPECT_EQ(Take(strdate(0)), "01/01/1970");
  EXPECT_EQ(Take(strtime(kExample)), "01/02/2024  07:05:09.047");
  EXPECT_EQ(Take(strydtime(kExample)), "01/02/2024  (032) 07:05:09.047");
  EXPECT_EQ(Take(epoch2str("%D", kExample)), " 1/02/24");
  setenv("TZ", "UTC0", 1);
  EXPECT_EQ(Take(strlocaldate(kExample)), "01/02/2024 UTC");
  EXPECT_EQ(Take(strlocalydtime(kExample)), "01/02/2024  (032) 07:05:09.047 UTC");
  EXPECT_EQ(Fmt(8, "UTC0", kExample), "01/02/2024  (032) 07:05:09.04660 UTC");
}

TEST(TimeSiteFormats, OutOfRangeTexts) {
  const struct {
    double t;
    const char *text;
  } cases[] = {
      {INFINITY, "** The End of Time (+infinity) **"},
      {-INFINITY, "** The Beginning of Time (-infinity) **"},
      {NAN, "** Nan **"},
      {1e12, "**  31709 years ahead ** "},
      {-1e12, "** -31710 years ago ** "},
      {253244534400.5, "**   8030 years ahead ** "},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(Take(strtime(c.t)), c.text);
    EXPECT_EQ(Take(strydtime(c.t)), c.text);
    EXPECT_EQ(Take(strdate(c.t)), c.text);
    EXPECT_EQ(Take(strlocaltime(c.t)), c.text);
    EXPECT_EQ(Take(strlocalydtime(c.t)), c.text);
    EXPECT_EQ(Take(strlocaldate(c.t)), c.text);
    for (int code = -1; code <= 9; code++) EXPECT_EQ(Fmt(code, "Asia/Tokyo", c.t), c.text);
  }
  // The limit itself is still a time.
  EXPECT_NE(Fmt(3, nullptr, 253244534400.0).substr(0, 2), "**");
}

TEST(TimeSiteFormats, FmttimeLayouts) {
  const struct {
    int code;
    const char *utc, *tokyo;
  } cases[] = {
      {0, "2024-032 07:05:09.047", "2024-032 16:05:09.047 JST"},
      {1, "2024-02-01 07:05:09.047", "2024-02-01 16:05:09.047 JST"},
      {3, "2024-02-01", "2024-02-01 JST"},
      {4, "2024-032", "2024-032 JST"},
      {5, "02/01/2024  07:05:09.047", "02/01/2024  16:05:09.047 JST"},
      {6, "02/01/2024", "02/01/2024 JST"},
      {7, "02/01/2024  (032) 07:05:09.047", "02/01/2024  (032) 16:05:09.047 JST"},
      {8, "02/01/2024  (032) 07:05:09.04660", "02/01/2024  (032) 16:05:09.04660 JST"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(Fmt(c.code, nullptr, kExample), c.utc) << c.code;
    EXPECT_EQ(Fmt(c.code, "UTC", kExample), c.utc) << c.code;
    EXPECT_EQ(Fmt(c.code, "Asia/Tokyo", kExample), c.tokyo) << c.code;
  }
  for (int code : {2, 9, -3}) EXPECT_EQ(Fmt(code, nullptr, kExample), Fmt(0, nullptr, kExample));
  // Rounded before formatting, so no field shows 1000 milliseconds or 60 seconds.
  EXPECT_EQ(Fmt(1, nullptr, 59.9996), "1970-01-01 00:01:00.000");
  EXPECT_EQ(Fmt(8, nullptr, 59.999996), "01/01/1970  (001) 00:01:00.00000");
  EXPECT_EQ(Fmt(8, nullptr, 59.999994), "01/01/1970  (001) 00:00:59.99999");
}

}  // namespace
