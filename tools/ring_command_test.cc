#include <gmock/gmock.h>
#include <stdlib.h>

#include <string>

#include "tools/run_corvel.h"

namespace {

using corvel::tools::Result;
using corvel::tools::RunCorvel;
using ::testing::HasSubstr;

class RingCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/corvel_ring.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    ring_ = dir_ + "/air";
  }
  void TearDown() override { ASSERT_EQ(system(("rm -rf " + dir_).c_str()), 0); }
  std::string dir_, ring_;
};

TEST_F(RingCommandTest, CreatePushAndShow) {
  ASSERT_EQ(RunCorvel("ring create " + ring_ + " 100 'ANMO air'").status, 0);
  EXPECT_EQ(RunCorvel("ring create " + ring_ + " 100").status, 1);  // kept as it is
  // Times in any layout the time parser reads, or epochs; a minute apart, so no gaps.
  for (const char *reading :
       {"'2024-02-01 00:00' 10", "'2024-032 00:01' 12", "1706745720 14", "'2/1/2024 00:03' 12"}) {
    ASSERT_EQ(RunCorvel("ring push " + ring_ + " " + reading).status, 0) << reading;
  }
  EXPECT_EQ(RunCorvel("ring push " + ring_ + " 1706745600 1").status, 1);  // older
  Result r = RunCorvel("ring show " + ring_, true);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "file        " + ring_ +
                       "\n"
                       "identifier  ANMO air\n"
                       "readings    4 of 100\n"
                       "newest      12 at 2024-02-01 00:03:00.000 (1706745780.000)\n"
                       "span        the whole ring, from 2024-02-01 00:00:00.000\n"
                       "maximum     14 at 2024-02-01 00:02:00.000\n"
                       "minimum     10 at 2024-02-01 00:00:00.000\n"
                       "mean        12, deviation 1.632993162, over 4 readings\n"
                       "slope       0.01333333333 per second, correlation 0.632456\n"
                       "tally       3\n");
  // 120 s back leaves the reading at 00:01 out of the minimum, not out of the mean.
  EXPECT_THAT(RunCorvel("ring show " + ring_ + " 120").out,
              HasSubstr("span        120 s, from 2024-02-01 00:01:00.000\n"
                        "maximum     14 at 2024-02-01 00:02:00.000\n"
                        "minimum     12 at 2024-02-01 00:03:00.000\n"
                        "mean        12.66666667, deviation 1.154700538, over 3 readings\n"));
}

TEST_F(RingCommandTest, FailuresAndBadCommandLines) {
  Result r = RunCorvel("ring show " + ring_);
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.out, HasSubstr("ring buffer file '" + ring_ + "' does not exist"));
  EXPECT_EQ(RunCorvel("ring push " + ring_ + " 10 1").status, 1);  // pushing makes no file
  ASSERT_EQ(RunCorvel("ring create " + ring_ + " 2").status, 0);
  EXPECT_EQ(RunCorvel("ring push " + ring_ + " 'not a time' 1").status, 1);
  ASSERT_EQ(RunCorvel("ring push " + ring_ + " 10 1").status, 0);
  EXPECT_THAT(RunCorvel("ring show " + ring_).out,
              HasSubstr("slope       none: fewer than two readings\n"));

  for (const char *line : {"", "create x 0", "create x 2.5", "push x 10", "push x 10 ten",
                           "show x -5", "show x 1 2", "grow x"}) {
    EXPECT_EQ(RunCorvel(std::string("ring ") + line).status, 2) << line;
  }
  EXPECT_THAT(RunCorvel("ring --help").out,
              HasSubstr("usage: corvel ring create FILE CAPACITY [ID]"));
}

}  // namespace
