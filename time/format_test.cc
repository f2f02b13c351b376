#include <gtest/gtest.h>
#include <limits.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <random>
#include <string>

#include "corvel/time.h"

namespace {

std::string Take(char *text) {
  std::string s = text;
  free(text);
  return s;
}

std::string Utc(const char *format, double t) { return Take(epoch2str(format, t)); }

// 2024-02-01 07:05:09.0466 UTC, day 32.
constexpr double kExample = 1706771109.0466;

TEST(TimeFormat, EveryCode) {
  EXPECT_EQ(Utc("%A|%a|%B|%b|%D|%d|%e|%E|%G|%g|%H|%k|%I|%l|%j|%L|%m|%M|%n|%O|%o|%p|%S|%s|%u|%T|%t|"
                "%Y|%y|%Z|%z|%%|%Q|%",
                kExample),
            "Thursday|Thu|February|Feb| 2/01/24|01| 1| 1706771109.047|2024-02-01|2024-032|07| 7|"
            "07| 7|032| 2|02|05|\n|32nd|1st|AM|09|047|04660|07:05:09.047|\t|2024|24|UTC|UTC|%|Q|");
  EXPECT_EQ(Utc("%Y-%m-%d %H:%M:%S.%s", 0.0), "1970-01-01 00:00:00.000");
  EXPECT_EQ(Utc("%A", 0.0), "Thursday");
  // No rounding across fields here: %S truncates while %s rounds.
  EXPECT_EQ(Utc("%S.%s", 1.9996), "01.1000");
  EXPECT_EQ(Utc("%u", 0.999996), "99999");
}

TEST(TimeFormat, OrdinalsAndTwelveHourClock) {
  std::string suffixes;
  for (int n : {0, 1, 2, 3, 4, 11, 12, 13, 21, 22, 23, 101, 102, 103, 111, 121, 122}) {
    suffixes += ordinal(n);
  }
  EXPECT_EQ(suffixes, "thstndrdththththstndrdththththstnd");
  auto fields = [](const char *format, int doy, int day, int hour) {
    return Take(ztime2str(format, 2024, doy, 1, day, hour, 0, "UTC", 0, 0));
  };
  EXPECT_EQ(fields("%O %o", 101, 22, 0), "101th 22nd");
  EXPECT_EQ(fields("%O", 121, 1, 0), "121st");
  EXPECT_EQ(fields("%I %l %p", 1, 1, 0), "12 12 AM");
  EXPECT_EQ(fields("%I %l %p", 1, 1, 12), "12 12 PM");
  EXPECT_EQ(fields("%I %l %p", 1, 1, 13), "01  1 PM");
}

// The digit writer follows printf for any field value, negative and wide ones included.
TEST(TimeFormat, NumbersMatchPrintfForAnyField) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> small(-120, 420);
  const int wide[] = {0, -1, 9, 10, 99, 100, 999, 1000, -9999, 12345, INT_MAX, INT_MIN};
  for (int i = 0; i < 20000; i++) {
    int v[6];
    for (int &x : v) x = i < 12 ? wide[i] : small(rng);
    char expected[256];
    snprintf(expected, sizeof expected, "%4d %02d %02d %2d %02d %2d %03d %2d %02d %02d %04d-%03d",
             v[0], v[0] % 100, v[2], v[2], v[3], v[3], v[1], v[4], v[4], v[5], v[0], v[1]);
    std::string got = Take(ztime2str("%Y %y %d %e %H %k %j %L %m %M %g", v[0], v[1], v[4], v[2],
                                     v[3], v[5], "", 0, 0));
    ASSERT_EQ(got, expected) << i;
  }
}

// Output longer than the working buffer is cut, never written past it, whatever code ends it.
TEST(TimeFormat, LongOutputIsCutSafely) {
  const char *tails[] = {"%A", "%E", "%T", "%Z", "%G", "x"};
  for (size_t pad = 990; pad < 1030; pad++) {
    for (const char *tail : tails) {
      std::string format(pad, '-');
      for (int i = 0; i < 8; i++) format += tail;
      std::string text = Take(ztime2str(format.c_str(), 2024, 32, 2, 1, 7, 5,
                                        std::string(300, 'Z').c_str(), 1e300, 9.5));
      ASSERT_LE(text.size(), 1023u);
      ASSERT_EQ(text.compare(0, std::min(pad, size_t{1023}),
                             std::string(std::min(pad, size_t{1023}), '-')),
                0);
    }
  }
  std::string many;
  for (int i = 0; i < 600; i++) many += "%Y";
  EXPECT_EQ(Utc(many.c_str(), 0).size(), 1023u);
}

// Values that are no time still format, without undefined behaviour.
TEST(TimeFormat, NonsenseEpochsFormatWithoutFault) {
  const double values[] = {NAN, INFINITY, -INFINITY, 1e300, -1e300, 1.7e308, 9.3e18, -9.3e18};
  for (double t : values) {
    std::string text =
        Utc("%A %a %B %b %D %d %e %E %G %g %H %I %j %L %O %o %p %S %s %u %T %Y %y", t);
    EXPECT_FALSE(text.empty());
  }
  std::string text = Take(ztime2str("%B %b %S %s %u %T %A", 1, 1, 13, 1, 0, 0, nullptr, NAN, NAN));
  EXPECT_EQ(text.substr(0, 8), "??? ??? ");
}

TEST(TimeFormat, FortranEntryPoints) {
  char out[20];
  double t = kExample;
  epoch2str_(out, &t, "%G %H:%M  ", sizeof out, 10);
  EXPECT_EQ(std::string(out, sizeof out), "2024-02-01 07:05    ");
  strtime_(out, &t, 10);
  EXPECT_EQ(std::string(out, 10), "02/01/2024");
}

}  // namespace
