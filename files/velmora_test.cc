#include "files/velmora.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "corvel/files.h"
#include "corvel/port.h"

namespace {

// Run as a copy installed in some <root>/bin with CORVEL_ROOT_PROBE set, this binary prints the
// root and the data file it finds there, then ends before any test runs.
const bool g_probe = [] {
  if (getenv("CORVEL_ROOT_PROBE") == nullptr) return false;
  char *found = datafile(nullptr, "probe.txt");
  printf("%s\n%s\n", getvelmora(), found ? found : "(null)");
  fflush(stdout);
  _exit(0);
}();

std::string Take(char *s) {
  std::string text(s ? s : "(null)");
  free(s);
  return text;
}

using Paths = std::vector<std::string>;

Paths Search(const std::string &path, const char *subdir, const char *name, int flags) {
  Tbl *t = datasearch(path.c_str(), subdir, name, flags);
  Paths strings;
  for (long i = 0; i < maxtbl(t); i++) strings.push_back(static_cast<char *>(gettbl(t, i)));
  freetbl(t, free);
  return strings;
}

bool Exists(const char *path) { return access(path, F_OK) == 0; }

// A fresh directory tree for each test; the root variables start unset.
class DataSearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/velmora_test.XXXXXX", resolved[PATH_MAX];
    ASSERT_NE(mkdtemp(pattern), nullptr);
    ASSERT_NE(realpath(pattern, resolved), nullptr);
    root_ = resolved;
    unsetenv("VELMORA");
    unsetenv("DATAPATH");
  }
  void TearDown() override {
    ASSERT_EQ(chdir("/"), 0);
    ASSERT_EQ(system(("rm -rf '" + root_ + "'").c_str()), 0);
  }
  std::string Path(const std::string &name) const { return root_ + "/" + name; }
  void Touch(const std::string &name) const {
    ASSERT_EQ(make_pathdirs(Path(name).c_str()), 0);
    fclose(fopen(Path(name).c_str(), "w"));
  }
  std::string root_;
};

TEST(Velmora, RootFromTheEnvironmentIsPassedOnOnlyOnce) {
  setenv("VELMORA", "/x", 1);
  EXPECT_STREQ(getvelmora(), "/x");
  EXPECT_STREQ(getenv("VELMORA"), "/x");
  putvelmora("/y");
  EXPECT_STREQ(getvelmora(), "/y");
  EXPECT_STREQ(getenv("VELMORA"), "/x");  // child processes keep seeing the first root
  std::string long_root(5000, 'r');
  putvelmora(long_root.c_str());
  EXPECT_EQ(std::string(getvelmora()), long_root.substr(0, 4095));
}

TEST(Velmora, AnEmptyRootIsSearchedForAgain) {
  if (Exists("/opt/velmora")) GTEST_SKIP() << "an installed release would be found";
  unsetenv("VELMORA");
  EXPECT_STREQ(getvelmora(), "");  // this test binary lives in no "bin"
  EXPECT_STREQ(getenv("VELMORA"), "");
  setenv("VELMORA", "/later", 1);
  EXPECT_STREQ(getvelmora(), "/later");
}

TEST_F(DataSearchTest, RootIsTheDirectoryAboveTheProgramsBin) {
  using corvel::files::RootFromProgramPath;
  EXPECT_EQ(Take(RootFromProgramPath("/no/such/bin/prog")), "/no/such");
  EXPECT_EQ(RootFromProgramPath("/no/such/sbin/prog"), nullptr);
  EXPECT_EQ(RootFromProgramPath("/bin/prog"), nullptr);  // the root would be empty
  Touch("release/bin/prog");
  ASSERT_EQ(symlink("release/bin/prog", Path("link").c_str()), 0);
  ASSERT_EQ(chdir(root_.c_str()), 0);
  EXPECT_EQ(Take(RootFromProgramPath("./link")), Path("release"));  // where the file really is
  setenv("PATH", ("/nonexistent:" + Path("release/bin")).c_str(), 1);
  EXPECT_EQ(Take(RootFromProgramPath("prog")), Path("release"));
  unsetenv("PATH");
  EXPECT_EQ(RootFromProgramPath("prog"), nullptr);
}

// What `make install` gives: a program in <prefix>/bin finds <prefix> with nothing set.
TEST_F(DataSearchTest, InstalledProgramFindsItsRootAndData) {
  if (Exists("/opt/velmora/5.8")) GTEST_SKIP() << "the default root wins";
  ASSERT_NE(getexecname(), nullptr);
  Touch("data/probe.txt");
  ASSERT_EQ(makedir(Path("bin").c_str()), 0);
  ASSERT_EQ(system(("cp '" + std::string(getexecname()) + "' '" + Path("bin/probe") + "'").c_str()),
            0);
  FILE *output =
      popen(("env -u VELMORA -u DATAPATH CORVEL_ROOT_PROBE=1 " + Path("bin/probe")).c_str(), "r");
  ASSERT_NE(output, nullptr);
  char text[2 * PATH_MAX] = "";
  size_t n = fread(text, 1, sizeof text - 1, output);
  text[n] = '\0';
  EXPECT_EQ(pclose(output), 0);
  EXPECT_EQ(text, root_ + "\n" + Path("data/probe.txt") + "\n");
}

TEST_F(DataSearchTest, SearchesEveryElementInOrder) {
  Touch("a/f");
  Touch("b/f");
  Touch("b/sub/g");
  Touch("a/x/f");
  std::string path = Path("a") + ":" + Path("missing") + "::" + Path("b");
  EXPECT_EQ(Search(path, nullptr, "f", 0), (Paths{Path("a/f"), Path("b/f")}));
  EXPECT_EQ(Search(path, "sub", "g", 0), (Paths{Path("b/sub/g")}));
  EXPECT_EQ(Search(path, nullptr, "x/f", 0), (Paths{Path("a/x/f"), Path("a/f"), Path("b/f")}));
  // Flag 2 lists where the file would be; elements that do not exist stay skipped.
  EXPECT_EQ(Search(path, nullptr, "h", 0), Paths{});
  EXPECT_EQ(Search(path, nullptr, "h", 2), (Paths{Path("a/h"), Path("b/h")}));
  // A file in the path stands for itself when its path is absolute.
  ASSERT_EQ(chdir(root_.c_str()), 0);
  EXPECT_EQ(Search("a/f:" + Path("b/f"), nullptr, "any", 0), Paths{Path("b/f")});
  EXPECT_EQ(Search("a/f:" + Path("b/f"), nullptr, "any", 2), (Paths{"a/f", Path("b/f")}));
  // Flag 1 expands the environment; errno stays as it was.
  setenv("DIRA", Path("a").c_str(), 1);
  setenv("DIR_B", Path("b").c_str(), 1);
  errno = ENOTDIR;
  EXPECT_EQ(Search("$DIRA:${DIR_B}", nullptr, "f", 1), (Paths{Path("a/f"), Path("b/f")}));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(Search("$DIRA:${DIR_B}", nullptr, "f", 0), Paths{});
}

TEST_F(DataSearchTest, TildeStartsAtAHomeDirectory) {
  struct passwd *me = getpwuid(getuid());
  if (me == nullptr || !Exists(me->pw_dir)) GTEST_SKIP() << "no home directory";
  const std::string home = me->pw_dir;
  EXPECT_EQ(Search("~", nullptr, "none", 2), Paths{home + "/none"});
  EXPECT_EQ(Search("~/.:~no-such-user-cv", nullptr, "none", 2), Paths{home + "/./none"});
  EXPECT_EQ(Search(std::string("~") + me->pw_name, nullptr, "none", 2), Paths{home + "/none"});
}

TEST_F(DataSearchTest, DatapathSearchesTheDataDirectoryOrTheNamedPath) {
  Touch("data/site.pf");
  Touch("data/tables/units");
  Touch("other/site.pf");
  setenv("VELMORA", root_.c_str(), 1);
  EXPECT_EQ(Take(datapath(nullptr, nullptr, "site", "pf")), Path("data/site.pf"));
  EXPECT_EQ(Take(datapath("UNSET_PATH_CV", "tables", "units", "")), Path("data/tables/units"));
  EXPECT_EQ(datafile(nullptr, "site"), nullptr);
  setenv("SITE_PATH_CV", (Path("missing") + ":" + Path("other")).c_str(), 1);
  EXPECT_EQ(Take(datapath("SITE_PATH_CV", nullptr, "site", "pf")), Path("other/site.pf"));
  setenv("DATAPATH", Path("other").c_str(), 1);
  EXPECT_EQ(Take(datafile(nullptr, "site.pf")), Path("other/site.pf"));
}

}  // namespace
