#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/pf.h"
#include "pf/test_dir.h"

namespace {

std::string Take(char *s) {
  std::string text(s ? s : "(null)");
  free(s);
  return text;
}

std::vector<std::string> Strings(Tbl *t) {
  std::vector<std::string> out;
  for (long i = 0; i < maxtbl(t); i++) out.push_back(static_cast<char *>(gettbl(t, i)));
  freetbl(t, free);
  return out;
}

const char *Value(Pf *pf, const char *key) {
  Pf *node = pf ? static_cast<Pf *>(getarr(pf->value.arr, key)) : nullptr;
  return node != nullptr && node->type == PFSTRING ? node->value.s : nullptr;
}

// Each test works in fresh directories "a" and "b" of its own, with PFPATH unset.
class PfSearchTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    mkdir(Path("a").c_str(), 0755);
    mkdir(Path("b").c_str(), 0755);
    unsetenv("PFPATH");
    elog_clear();
  }
  // Sets a file's modification time to a whole second of our choosing.
  void SetTime(const std::string &name, long seconds) const {
    struct timeval times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimes(Path(name).c_str(), times), 0);
  }
  void UsePath(const std::string &path) const { setenv("PFPATH", path.c_str(), 1); }
};

TEST_F(PfSearchTest, MergesAlongThePathLaterFilesWinningWholeValues) {
  Write("a/x.pf", "only_a 1\nboth a\narr &Arr{\n  k1 v1\n  k2 v2\n}\ngone yes\n");
  Write("b/x.pf", "both b\narr &Arr{\n  k1 w1\n}\ngone &Undef{}\n");
  UsePath(Path("a") + ":" + Path("b"));
  Pf *pf = nullptr;
  ASSERT_EQ(pfread("x", &pf), 0);
  EXPECT_EQ(pf->type, PFFILE);
  EXPECT_STREQ(pf->filename, "x");
  EXPECT_STREQ(Value(pf, "only_a"), "1");
  EXPECT_STREQ(Value(pf, "both"), "b");
  EXPECT_FALSE(pfhas_key(pf, "gone"));
  // An array from a later file replaces the whole array: k2 is gone.
  Pf *arr = static_cast<Pf *>(getarr(pf->value.arr, "arr"));
  EXPECT_EQ(cntarr(arr->value.arr), 1);
  EXPECT_STREQ(Value(arr, "k1"), "w1");
  EXPECT_STREQ(static_cast<Pf *>(getarr(pf->value.arr, "both"))->filename,
               (Path("b") + "/x.pf").c_str());
  pffree(pf);
}

TEST_F(PfSearchTest, ListsCandidatesInPathOrder) {
  Write("b/x.pf", "k v\n");
  UsePath(Path("a") + ":" + Path("b") + ":" + Path("missing"));
  EXPECT_EQ(Strings(pffiles("x", 0)), std::vector<std::string>{Path("b/x.pf")});
  EXPECT_EQ(Strings(pffiles("x.pf", 1)),
            (std::vector<std::string>{Path("a/x.pf"), Path("b/x.pf")}));
  // A name with a directory is listed after the path's candidates, even when the path found
  // the same file.
  Write("a/y.pf", "k v\n");
  EXPECT_EQ(Strings(pffiles(Path("a/y").c_str(), 0)),
            (std::vector<std::string>{Path("a/y.pf"), Path("a/y.pf")}));
  EXPECT_EQ(Strings(pffiles(Path("a/z").c_str(), 1)),
            (std::vector<std::string>{Path("a/z.pf"), Path("b/z.pf"), Path("a/z.pf")}));
  ASSERT_EQ(chdir(Path("a").c_str()), 0);
  EXPECT_EQ(Strings(pffiles("./y", 0)), (std::vector<std::string>{Path("a/y.pf"), "./y.pf"}));
  // Only a name longer than two characters can end in the suffix already.
  EXPECT_EQ(Strings(pffiles("pf", 1)).front(), Path("a/pf.pf"));
  EXPECT_EQ(Strings(pffiles(".pf", 1)).front(), Path("a/.pf"));
}

TEST_F(PfSearchTest, DefaultPathIsTheInstalledDataThenTheCurrentDirectory) {
  mkdir(Path("root").c_str(), 0755);
  mkdir(Path("root/data").c_str(), 0755);
  mkdir(Path("root/data/pf").c_str(), 0755);
  Write("root/data/pf/site.pf", "installed yes\nlevel installed\n");
  Write("a/site.pf", "level local\n");
  putvelmora(Path("root").c_str());
  ASSERT_EQ(chdir(Path("a").c_str()), 0);
  Pf *pf = nullptr;
  ASSERT_EQ(pfread("site", &pf), 0);
  EXPECT_STREQ(Value(pf, "installed"), "yes");
  EXPECT_STREQ(Value(pf, "level"), "local");
  pffree(pf);
}

TEST_F(PfSearchTest, EmptyMissingAndBrokenFiles) {
  Write("a/empty.pf", "# nothing but a comment\n");
  Write("a/broken.pf", "kept 1\nopen &Arr{\n  inner 2\n");
  Write("b/broken.pf", "later 3\n");
  UsePath(Path("a") + ":" + Path("b"));
  Pf *pf = reinterpret_cast<Pf *>(1);
  EXPECT_EQ(pfread("empty", &pf), -1);
  EXPECT_EQ(pf, nullptr);
  EXPECT_EQ(pfread("absent", &pf), -1);
  mkdir(Path("a/dir.pf").c_str(), 0755);  // a directory of the name is passed over
  Write("b/dir.pf", "k v\n");
  ASSERT_EQ(pfread("dir", &pf), 0);
  EXPECT_STREQ(Value(pf, "k"), "v");
  pffree(pf);
  EXPECT_EQ(Take(elog_string(0)), "");
  // Each bad file counts -2; what was read stays.
  ASSERT_EQ(pfread("broken", &pf), -2);
  EXPECT_STREQ(Value(pf, "kept"), "1");
  EXPECT_STREQ(Value(pf, "later"), "3");
  pffree(pf);
  elog_clear();
}

TEST_F(PfSearchTest, LoadReadsOneFileFromTheDataPath) {
  mkdir(Path("a/sub").c_str(), 0755);
  Write("a/sub/table.pf", "k v\n");
  mkdir(Path("b/sub").c_str(), 0755);
  Write("b/sub/table.pf", "k other\n");
  setenv("TABLES", (Path("a") + ":" + Path("b")).c_str(), 1);
  Pf *pf = nullptr;
  ASSERT_EQ(pfload("TABLES", "sub", "table", &pf), 0);
  EXPECT_STREQ(Value(pf, "k"), "v");
  EXPECT_STREQ(pf->filename, "table");
  pffree(pf);
  EXPECT_EQ(pfload("TABLES", "sub", "nothing", &pf), -1);
  EXPECT_EQ(Take(elog_string(0)), "pf_test: Can't find parameter file sub/nothing\n");
  elog_clear();
}

TEST_F(PfSearchTest, UpdateReadsOnlyWhenFilesChange) {
  Write("a/u.pf", "k 1\n");
  SetTime("a/u.pf", 1700000000);
  UsePath(Path("a") + ":" + Path("b"));
  Pf *pf = nullptr;
  EXPECT_EQ(pfupdate("u", &pf), 1);
  ASSERT_NE(pf, nullptr);
  Pf *first = pf;
  EXPECT_EQ(pfupdate("u", &pf), 0);
  EXPECT_EQ(pf, first);
  Write("a/u.pf", "k 2\n");
  SetTime("a/u.pf", 1700000000);  // a change within the same second is not seen
  EXPECT_EQ(pfupdate("u", &pf), 0);
  SetTime("a/u.pf", 1700000001);
  EXPECT_EQ(pfupdate("u", &pf), 1);
  EXPECT_STREQ(Value(pf, "k"), "2");
  Write("b/u.pf", "k 3\n");  // a file appearing further along the path
  EXPECT_EQ(pfupdate("u", &pf), 1);
  EXPECT_STREQ(Value(pf, "k"), "3");
  // Another variable has a state of its own.
  Pf *other = nullptr;
  EXPECT_EQ(pfupdate("u", &other), 1);
  Pf *kept = pf;
  unlink(Path("a/u.pf").c_str());
  unlink(Path("b/u.pf").c_str());
  EXPECT_EQ(pfupdate("u", &pf), -1);
  EXPECT_EQ(pf, kept);
  pffree(pf);
  pffree(other);
}

TEST_F(PfSearchTest, RequireComparesTheRevisionOfTheLastFile) {
  Write("a/r.pf", "pf_revision_time 2020-01-01\n");
  Write("b/r.pf", "pf_revision_time 2024-02-01\n");
  Write("b/norev.pf", "k v\n");
  Write("b/bad.pf", "k &Arr{\n");
  UsePath(Path("a") + ":" + Path("b"));
  EXPECT_EQ(pfrequire("r", "2024-02-01"), 0);
  EXPECT_EQ(pfrequire("r", "2023-06-30"), 0);
  EXPECT_EQ(pfrequire("r", "2024-02-02"), -2);
  EXPECT_EQ(Take(elog_string(0)),
            "pf_test: pf_revision_time in the file '" + Path("b/r.pf") +
                "' has date 02/01/2024, \n\tbut program requires date after 02/02/2024\n");
  elog_clear();
  EXPECT_EQ(pfrequire("norev", "2024-02-02"), -1);
  EXPECT_EQ(Take(elog_string(0)), "pf_test: no pf_revision_time in the file '" +
                                      Path("b/norev.pf") +
                                      "', \n\tbut program requires date after 02/02/2024\n");
  elog_clear();
  EXPECT_EQ(pfrequire("bad", "2024-02-02"), -3);
  EXPECT_EQ(pfrequire("absent", "2024-02-02"), -4);
  EXPECT_NE(Take(elog_string(0)).find("can't find parameter file absent"), std::string::npos);
  elog_clear();
}

TEST_F(PfSearchTest, CacheReadsOnceAndRefreshes) {
  Write("a/c.pf", "k 1\n");
  SetTime("a/c.pf", 1700000000);
  UsePath(Path("a"));
  EXPECT_EQ(existsPf("c"), nullptr);
  Pf *pf = getPf("c");
  ASSERT_NE(pf, nullptr);
  EXPECT_EQ(existsPf("c"), pf);
  EXPECT_EQ(getPf("c"), pf);
  EXPECT_EQ(getPf("absent"), nullptr);
  EXPECT_EQ(existsPf("absent"), nullptr);

  // The first refresh of a name always reads again; then only changes do.
  EXPECT_EQ(updatePf("c"), 1);
  EXPECT_EQ(updatePf("c"), 0);
  Write("a/c.pf", "k 2\n");
  SetTime("a/c.pf", 1700000005);
  EXPECT_EQ(updatePf("c"), 1);
  EXPECT_STREQ(Value(getPf("c"), "k"), "2");

  Pf *mine = pfnew(PFFILE);
  putPf("c", mine);
  EXPECT_EQ(existsPf("c"), mine);
  putPf("c", mine);  // the same tree again is not freed
  EXPECT_EQ(freePf("c"), 0);
  EXPECT_EQ(freePf("c"), -1);
  EXPECT_EQ(updatePf("absent"), -1);
}

}  // namespace
