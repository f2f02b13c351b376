#include "corvel/files.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "corvel/elog.h"

namespace {

std::string Take(char *s) {
  std::string text(s ? s : "(null)");
  free(s);
  return text;
}

std::string Register() { return Take(elog_string(0)); }

bool IsDirectory(const std::string &path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Each test works in a fresh directory of its own.
class FilesDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/files_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    elog_clear();
  }
  void TearDown() override {
    ASSERT_EQ(chdir("/"), 0);  // some tests work inside root_
    std::string command = "rm -rf '" + root_ + "'";
    ASSERT_EQ(system(command.c_str()), 0);
  }
  std::string Path(const std::string &name) const { return root_ + "/" + name; }
  void Touch(const std::string &name) const { fclose(fopen(Path(name).c_str(), "w")); }
  std::string root_;
};

// parsepath's parts joined as "dir|base|suffix".
std::string Parts(const char *path) {
  char dir[32], base[32], suffix[32];
  parsepath(path, dir, base, suffix);
  return std::string(dir) + "|" + base + "|" + suffix;
}

TEST(FilesPath, SplitsIntoDirectoryBaseAndSuffix) {
  EXPECT_EQ(Parts("name"), ".|name|");
  EXPECT_EQ(Parts("/etc"), "/|etc|");
  EXPECT_EQ(Parts("dir/"), "dir||");
  EXPECT_EQ(Parts("/d/x.tar.gz"), "/d|x.tar|gz");
  EXPECT_EQ(Parts("a.b/.profile"), "a.b|.profile|");
  char path[32] = "/usr/lib/libc.so", base[32];  // dir may be the path's own buffer
  dirbase(path, path, base);
  EXPECT_STREQ(path, "/usr/lib");
  EXPECT_STREQ(base, "libc.so");
}

TEST(FilesPath, JoinsWithExactlyOneSlash) {
  EXPECT_EQ(Take(concatpaths("a//", "b")), "a/b");
  EXPECT_EQ(Take(concatpaths("//", "b")), "/b");
  EXPECT_EQ(Take(concatpaths("a", "/abs")), "/abs");
  EXPECT_EQ(Take(concatpaths("", "b")), "b");
  EXPECT_EQ(Take(concatpaths("a/", "")), "a");
}

TEST_F(FilesDirTest, MakedirCreatesEveryMissingParent) {
  EXPECT_EQ(makedir(Path("a/b/c").c_str()), 0);
  EXPECT_TRUE(IsDirectory(Path("a/b/c")));
  EXPECT_EQ(makedir(Path("a/b/c").c_str()), 0);  // already there
  ASSERT_EQ(chdir(root_.c_str()), 0);            // relative paths start here
  EXPECT_EQ(make_pathdirs("file.txt"), 0);
  EXPECT_EQ(make_pathdirs("x/y/file.txt"), 0);
  EXPECT_TRUE(IsDirectory(Path("x/y")));
  EXPECT_FALSE(IsDirectory(Path("x/y/file.txt")));
  EXPECT_EQ(makedir("r/s/"), 0);
  EXPECT_TRUE(IsDirectory(Path("r/s")));
  EXPECT_EQ(make_pathdirs("/file"), 0);  // its directory is the root
  EXPECT_EQ(elog_mark(), 0);
}

TEST_F(FilesDirTest, MakedirWorksUpToThePathLimit) {
  std::string path = root_;
  while (path.size() + 16 < PATH_MAX) path += "/directory_level";
  path.append(PATH_MAX - 1 - path.size(), 'x');  // the longest path there can be
  ASSERT_EQ(chdir(root_.c_str()), 0);            // relative to root_, so the tree can be removed
  std::string relative = path.substr(root_.size() + 1);
  EXPECT_EQ(makedir(relative.c_str()), 0) << Register();
  EXPECT_EQ(makedir(path.c_str()), 0) << Register();
  std::string too_long = path + "/dd";
  EXPECT_EQ(makedir(too_long.c_str()), -1);
  EXPECT_NE(Register().find("Can't open or create directory " + too_long + "\n"),
            std::string::npos);
}

TEST_F(FilesDirTest, MakedirReportsPlainFilesWithoutDying) {
  Touch("plain");
  EXPECT_EQ(makedir(Path("plain").c_str()), -1);
  std::string expected = std::string(Program_Name) + ": " + Path("plain") + " is not a directory\n";
  EXPECT_NE(Register().find(expected), std::string::npos) << Register();
  elog_clear();
  EXPECT_EQ(makedir(Path("plain/sub/deeper").c_str()), -1);
  EXPECT_NE(Register().find("Can't open or create directory " + Path("plain/sub/deeper") + "\n"),
            std::string::npos)
      << Register();
  elog_clear();
  EXPECT_EQ(make_pathdirs(Path("plain/file").c_str()), -1);
  EXPECT_NE(Register().find(Path("plain") + " is not a directory\n"), std::string::npos);
}

TEST_F(FilesDirTest, UniqueFilenamesAreClaimedAtomically) {
  std::string prefix = Path("snoop");
  std::string first = Take(zqunique_filename(prefix.c_str()));
  ASSERT_EQ(first.compare(0, prefix.size(), prefix), 0) << first;
  EXPECT_EQ(is_filename(first.c_str()), 1);
  EXPECT_EQ(is_filename(root_.c_str()), 0);  // a directory is no file
  // Names already taken, as an earlier process with this id would have left them, are skipped.
  std::string stem = first.substr(0, first.rfind('_') + 1);
  long next = atol(first.c_str() + stem.size()) + 1;
  for (long n = next; n < next + 3; n++) Touch((stem + std::to_string(n)).substr(root_.size() + 1));
  std::string second = Take(zqunique_filename(prefix.c_str()));
  EXPECT_EQ(second, stem + std::to_string(next + 3));
  EXPECT_EQ(zqunique_filename(Path("missing/snoop").c_str()), nullptr);
  EXPECT_NE(Register().find("can't create a unique file"), std::string::npos);
}

TEST(FilesHome, FindsKnownUsersOnly) {
  EXPECT_EQ(homedir("no-such-user-cv"), nullptr);
  struct passwd *me = getpwuid(getuid());
  if (me == nullptr) GTEST_SKIP() << "this user is not in the password database";
  EXPECT_EQ(Take(homedir(nullptr)), me->pw_dir);
  EXPECT_EQ(Take(homedir(me->pw_name)), me->pw_dir);
}

}  // namespace
