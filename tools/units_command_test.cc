#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "pf/test_dir.h"
#include "tools/run_corvel.h"

namespace {

using corvel::tools::Result;
using corvel::tools::RunCorvel;

class UnitsCommandTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    Write("units",
          "Primitive m\nPrimitive s\nkm = 1000 m\nhour = 3600 s\nknot = 1852 m/hour\nmeter = m\n");
    setenv("UNITS", root_.c_str(), 1);
  }
  void TearDown() override {
    unsetenv("UNITS");
    TempDirTest::TearDown();
  }
};

TEST_F(UnitsCommandTest, ConvertsAndNamesMissingDimensions) {
  Result r = RunCorvel("units km m");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "1000 m\n");
  r = RunCorvel("units 36 km/hour m/s");
  EXPECT_EQ(r.out, "10 m/s\n");
  r = RunCorvel("units -2 kilometers m");
  EXPECT_EQ(r.out, "-2000 m\n");
  r = RunCorvel("units 2 m s");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "2 s m s^-1 \n");
  r = RunCorvel("units 'm/' m", true);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "corvel: xunits : syntax error near line #-1\n");
}

TEST_F(UnitsCommandTest, ListsAndShows) {
  Result r = RunCorvel("units -l m/s");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "knot\n");
  r = RunCorvel("units -l furlong");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "corvel: xunits : can't find unit 'furlong' near line #-1\n");
  r = RunCorvel("units --all");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.substr(0, 21), "\n2 basis units\n  m   ");
  EXPECT_NE(r.out.find("\n6 total units\n  hour"), std::string::npos);
}

TEST_F(UnitsCommandTest, UsageAndMissingTable) {
  EXPECT_EQ(RunCorvel("units").status, 2);
  EXPECT_EQ(RunCorvel("units x m s").status, 2);
  EXPECT_EQ(RunCorvel("units 1 m s s").status, 2);
  Result r = RunCorvel("units --help");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("usage: corvel units", 0), 0u);
  setenv("UNITS", (root_ + "/nowhere").c_str(), 1);
  r = RunCorvel("units km m");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("Can't find units table"), std::string::npos);
}

}  // namespace
