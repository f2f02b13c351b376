#include <gtest/gtest.h>

#include <string>

#include "tools/run_corvel.h"

namespace {

using corvel::tools::Result;
using corvel::tools::RunCorvel;

TEST(CorvelCommand, Time) {
  Result r = RunCorvel("time '2024-02-01 07:05:09.047' 2024:032:07:05:09.5 0");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "1706771109.047\t2024-02-01 07:05:09.047\t2024-032 07:05:09.047\n"
            "1706771109.500\t2024-02-01 07:05:09.500\t2024-032 07:05:09.500\n"
            "0.000\t1970-01-01 00:00:00.000\t1970-001 00:00:00.000\n");

  r = RunCorvel("time -f '%Y-%m-%d %H:%M %Z' -z Asia/Kathmandu 1706771109 'Feb 1, 2024 12:00'");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "2024-02-01 12:50 +0545\n2024-02-01 17:45 +0545\n");
  r = RunCorvel("time -f '%H:%M %Z' -z LOCAL 0");
  EXPECT_EQ(r.out, "19:00 EST\n");

  r = RunCorvel("time 2024-2-1 2024-02-01");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out,
            "corvel: str2epoch: Bad date format:'2024-2-1'\n"
            "1706745600.000\t2024-02-01 00:00:00.000\t2024-032 00:00:00.000\n");
}

TEST(CorvelCommand, UsageAndHelp) {
  Result r = RunCorvel("--help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("time "), std::string::npos);
  EXPECT_NE(r.out.find("pf "), std::string::npos);
  r = RunCorvel("time --help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("-z ZONE"), std::string::npos);
  EXPECT_EQ(RunCorvel("").status, 2);
  EXPECT_EQ(RunCorvel("frobnicate").status, 2);
  EXPECT_EQ(RunCorvel("time").status, 2);
  r = RunCorvel("time -f %Y -z Nowhere/Land 0");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "corvel time: unknown zone 'Nowhere/Land'\n");
}

}  // namespace
