// Parameter files read, cached and refreshed from several threads at once.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "containers/run_together.h"
#include "corvel/elog.h"
#include "corvel/pf.h"
#include "pf/test_dir.h"

namespace {

using corvel::kTogether;
using corvel::RunTogether;

const char *const kNames[] = {"alpha", "beta", "gamma"};
constexpr int kNameCount = 3;

// Each name has a file in "a" and one in "b" along PFPATH, merged with b's keys winning.
class PfConcurrencyTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    mkdir(Path("a").c_str(), 0755);
    mkdir(Path("b").c_str(), 0755);
    for (const char *name : kNames) {
      std::string n = name;
      Write("a/" + n + ".pf", "name " + n + "\nwinner a\nonly_a kept\nhome /u/" + n +
                                  "\nlist &Tbl{\n  one\n  two\n}\n");
      Write("b/" + n + ".pf",
            "winner b\npath &home/data\nstations &Arr{\n  ANMO &Arr{\n    rate 40\n  }\n}\n");
    }
    setenv("PFPATH", (Path("a") + ":" + Path("b")).c_str(), 1);
    elog_clear();
    for (int i = 0; i < kNameCount; i++) ASSERT_EQ(pfread(kNames[i], &expected_[i]), 0);
  }
  void TearDown() override {
    for (Pf *&pf : expected_) pffree(pf);
    unsetenv("PFPATH");
    TempDirTest::TearDown();
  }
  Pf *expected_[kNameCount] = {};
};

std::string String(Pf *pf, const char *key) {
  const char *value = pfget_string(pf, key);
  return value != nullptr ? value : "(null)";
}

// What a merged tree of name must hold, read through the typed getters (which expand &home).
bool Holds(Pf *pf, const std::string &name) {
  if (pf == nullptr) return false;
  Tbl *list = pfget_tbl(pf, "list");
  bool good = String(pf, "name") == name && String(pf, "winner") == "b" &&
              String(pf, "only_a") == "kept" && String(pf, "path") == "/u/" + name + "/data" &&
              pfget_int(pf, "stations{ANMO}{rate}") == 40 && maxtbl(list) == 2;
  freetbl(list, nullptr);
  return good;
}

// Every thread reads every name into trees of its own; the reader is shared by all of them.
TEST_F(PfConcurrencyTest, PfreadOfSeveralNamesGivesEveryThreadTheMergedTrees) {
  std::vector<int> wrong(kTogether, 0);
  RunTogether(kTogether, [&](int t) {
    for (int round = 0; round < 10; round++) {
      const char *name = kNames[(t + round) % kNameCount];
      Pf *pf = nullptr;
      if (pfread(name, &pf) != 0 || !Holds(pf, name)) wrong[t]++;
      pffree(pf);
    }
  });
  for (int t = 0; t < kTogether; t++) EXPECT_EQ(wrong[t], 0) << "thread " << t;
  EXPECT_EQ(elog_mark(), 0);
}

// The first getPf of each name runs in eight threads at once. Two of them may both read the
// file, the later insertion winning; every tree handed out stays valid and equal to the file.
TEST_F(PfConcurrencyTest, GetPfOnFirstUseHandsOutEqualTrees) {
  std::vector<std::vector<Pf *>> got(kTogether, std::vector<Pf *>(kNameCount));
  RunTogether(kTogether, [&](int t) {
    for (int i = 0; i < kNameCount; i++) {
      int n = (i + t) % kNameCount;
      got[t][n] = getPf(kNames[n]);
    }
  });
  // Trees from the cache are shared: they are looked at once the threads are done.
  for (int n = 0; n < kNameCount; n++) {
    Pf *cached = existsPf(kNames[n]);
    ASSERT_NE(cached, nullptr);
    EXPECT_EQ(pfcmp(cached, expected_[n]), 0) << kNames[n];
    for (int t = 0; t < kTogether; t++) {
      ASSERT_NE(got[t][n], nullptr);
      EXPECT_EQ(pfcmp(got[t][n], expected_[n]), 0) << kNames[n] << " in thread " << t;
    }
    EXPECT_EQ(getPf(kNames[n]), cached) << "a name is read once it is cached";
  }
}

// updatePf from eight threads: of the first calls for a name exactly one reads the file again
// (1), the others find it unchanged (0), and the cache then holds that one new tree. (Two
// refreshes of one name once ran at the same time and both wrote the name's shared variable.)
TEST_F(PfConcurrencyTest, UpdatePfReadsEachNameAgainExactlyOnce) {
  std::vector<std::vector<int>> results(kTogether, std::vector<int>(kNameCount));
  RunTogether(kTogether, [&](int t) {
    for (int i = 0; i < kNameCount; i++) {
      int n = (i + t) % kNameCount;
      results[t][n] = updatePf(kNames[n]);
    }
  });
  for (int n = 0; n < kNameCount; n++) {
    int ones = 0;
    for (int t = 0; t < kTogether; t++) {
      EXPECT_TRUE(results[t][n] == 0 || results[t][n] == 1) << results[t][n];
      ones += results[t][n] == 1;
    }
    EXPECT_EQ(ones, 1) << kNames[n];
    EXPECT_EQ(pfcmp(existsPf(kNames[n]), expected_[n]), 0);
    EXPECT_EQ(updatePf(kNames[n]), 0);
  }
  EXPECT_EQ(elog_mark(), 0);
}

}  // namespace
