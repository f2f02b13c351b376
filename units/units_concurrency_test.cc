// Units converted from several threads at once, the loading of the table included.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "containers/run_together.h"
#include "corvel/elog.h"
#include "corvel/units.h"
#include "pf/test_dir.h"
#include "units/units_internal.h"

namespace {

using corvel::kTogether;
using corvel::RunTogether;

const char kTable[] =
    "Primitive m\nPrimitive kg\nPrimitive s\n"
    "meter = m\nkm = 1000 m\nminute = 60 s\nhour = 60 minute\ninch = .0254 m\n"
    "knot = 1852 m/hour\nhz = /s\nnewton = kg-m/s^2\n";

struct Case {
  const char *from, *to;
  double value;
};
const Case kCases[] = {
    {"km", "m", 1},       {"km/hour", "m/s", 36}, {"kilometers", "meters", 2.5},
    {"3 inches", "m", 1}, {"knots", "m/s", 10},   {"newton", "kg m s^-2", 7},
    {"m", "s", 2},        {"hz", "kg^2", 1},      {"10^3 m", "m", 1},
    {"2*3^2 m", "km", 1}, {"minute^2", "s^2", 1}, {"foo", "m", 1},
};
constexpr int kCount = sizeof kCases / sizeof kCases[0];

struct Answer {
  int status = -9;
  double result = 0;
  std::string toout;
  bool operator==(const Answer &other) const {
    return status == other.status && memcmp(&result, &other.result, sizeof result) == 0 &&
           toout == other.toout;
  }
};

Answer Convert(const Case &c) {
  char toout[64 + UNITS_TOOUT_EXTRA];
  Answer a;
  a.status = units_convert(c.from, c.to, &a.result, toout, c.value);
  a.toout = toout;
  return a;
}

class UnitsConcurrencyTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    corvel::units::ForgetTable();
    Write("units", kTable);
    setenv("UNITS", root_.c_str(), 1);
    int unlimited = 0;
    elog_set(ELOG_MAXMSG, 0, &unlimited);  // every thread logs the unknown unit
    elog_clear();
  }
  void TearDown() override {
    corvel::units::ForgetTable();
    unsetenv("UNITS");
    elog_clear();
    TempDirTest::TearDown();
  }
};

// The first conversions load the table, from eight threads at once; every answer then equals
// the one a single thread gets.
TEST_F(UnitsConcurrencyTest, EightThreadsConvertAsOneDoes) {
  constexpr int kRounds = 10;
  std::vector<std::vector<Answer>> seen(kTogether, std::vector<Answer>(kRounds * kCount));
  RunTogether(kTogether, [&](int t) {
    for (int round = 0; round < kRounds; round++) {
      for (int i = 0; i < kCount; i++) {
        int n = (i + t) % kCount;
        seen[t][round * kCount + n] = Convert(kCases[n]);
      }
    }
  });
  for (int i = 0; i < kCount; i++) {
    Answer alone = Convert(kCases[i]);
    for (int t = 0; t < kTogether; t++) {
      for (int round = 0; round < kRounds; round++) {
        ASSERT_TRUE(seen[t][round * kCount + i] == alone)
            << kCases[i].from << " -> " << kCases[i].to << " in thread " << t;
      }
    }
  }
  EXPECT_EQ(Convert(kCases[1]).result, 10);
  EXPECT_EQ(Convert(kCases[6]).toout, " s m s^-1 ");
  EXPECT_EQ(Convert(kCases[kCount - 1]).status, -1);
}

}  // namespace
