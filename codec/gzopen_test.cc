// Compressed files read through each opener, the temporary file's name gone while its data is
// read, and paths that must never reach the shell.
#include "corvel/gzopen.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "pf/test_dir.h"

namespace {

std::string ReadAll(FILE *f) {
  std::string text;
  char chunk[4096];
  for (size_t n; (n = fread(chunk, 1, sizeof chunk, f)) > 0;) text.append(chunk, n);
  return text;
}

std::string ReadAll(int fd) {
  std::string text;
  char chunk[4096];
  for (ssize_t n; (n = read(fd, chunk, sizeof chunk)) > 0;) text.append(chunk, n);
  return text;
}

// What the descriptor is open on, as the kernel names it.
std::string Target(int fd) {
  char link[PATH_MAX];
  const ssize_t n = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), link, sizeof link);
  return n > 0 ? std::string(link, n) : "";
}

// A compressed file's data comes from a temporary file of the given prefix whose name is
// already removed, so nothing is left in /var/tmp once it is closed.
void ExpectNamelessTemporary(int fd, const std::string &prefix) {
  EXPECT_TRUE(
      std::regex_match(Target(fd), std::regex("/var/tmp/" + prefix + "\\w{6} \\(deleted\\)")))
      << Target(fd);
  struct stat status;
  ASSERT_EQ(fstat(fd, &status), 0);
  EXPECT_EQ(status.st_nlink, 0u);
}

class GzOpenTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    for (int i = 0; i < 2000; i++) text_ += "line " + std::to_string(i * 7919 % 1000) + "\n";
    Write("data", text_);
    const std::string in = "'" + Path("data") + "'";
    ASSERT_EQ(system(("gzip -c " + in + " > " + in + ".gz").c_str()), 0);
    ASSERT_EQ(system(("bzip2 -c " + in + " > " + in + ".bz2").c_str()), 0);
    ASSERT_EQ(system(("compress -c " + in + " > " + in + ".Z").c_str()), 0);
  }
  std::string text_;
};

TEST_F(GzOpenTest, EveryOpenerReadsEveryFormat) {
  for (const char *name : {"data", "data.gz", "data.bz2", "data.Z"}) {
    SCOPED_TRACE(name);
    const std::string path = Path(name);
    const bool expanded = std::string(name) != "data";
    for (FILE *(*opener)(const char *) : {gz_open, zopen}) {
      FILE *f = opener(path.c_str());
      ASSERT_NE(f, nullptr);
      if (expanded) ExpectNamelessTemporary(fileno(f), "jstmp");
      EXPECT_EQ(ReadAll(f), text_);
      fclose(f);
    }
    const int fd = gz_openfd(path.c_str());
    ASSERT_GE(fd, 0);
    if (expanded) ExpectNamelessTemporary(fd, "gzO");
    EXPECT_EQ(ReadAll(fd), text_);
    close(fd);
    FILE *f = gz_cat(path.c_str());
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(ReadAll(f), text_);
    EXPECT_EQ(expanded ? pclose(f) : fclose(f), 0);
  }
}

TEST_F(GzOpenTest, OtherEndingsAreOpenedAsTheyAre) {
  ASSERT_EQ(rename(Path("data.gz").c_str(), Path("data.GZ").c_str()), 0);
  FILE *f = gz_open(Path("data.GZ").c_str());
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(Target(fileno(f)), Path("data.GZ"));
  EXPECT_EQ(ReadAll(f).compare(0, 2, "\x1f\x8b"), 0);  // the gzip header, not the text
  fclose(f);
  // A failed expansion still gives the empty stream; a missing plain file gives nothing.
  f = gz_open(Path("missing.gz").c_str());
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(ReadAll(f), "");
  fclose(f);
  EXPECT_EQ(zopen(Path("missing").c_str()), nullptr);
  EXPECT_EQ(gz_cat(Path("missing").c_str()), nullptr);
  EXPECT_EQ(gz_openfd(Path("missing").c_str()), -1);
  // A name the shell would misread is refused even where no shell would see it.
  Write("a b;c", "plain");
  EXPECT_EQ(gz_open(Path("a b;c").c_str()), nullptr);
  EXPECT_EQ(gz_cat(Path("a b;c").c_str()), nullptr);
}

TEST_F(GzOpenTest, PathsTheShellWouldReadAreRefusedAndRunNothing) {
  const std::string marker = Path("MARKER");
  std::vector<std::string> paths = {Path("x;touch ") + marker + ";.gz",
                                    Path("x.bz2;touch${IFS}") + marker + ";.bz2",
                                    Path("$(touch${IFS}") + marker + ").Z",
                                    Path("`touch${IFS}") + marker + "`.gz",
                                    Path("x|touch${IFS}") + marker + "|.gz",
                                    "-d.gz",
                                    ""};
  for (char c : std::string(" \t\n\"'\\$`;&|<>(){}[]*?!~#^\x7f")) {
    paths.push_back(Path("a") + c + "b.gz");
  }
  for (const std::string &path : paths) {
    SCOPED_TRACE(path);
    EXPECT_EQ(gz_open(path.c_str()), nullptr);
    EXPECT_EQ(zopen(path.c_str()), nullptr);
    EXPECT_EQ(gz_openfd(path.c_str()), -1);
    EXPECT_EQ(gz_cat(path.c_str()), nullptr);
  }
  EXPECT_NE(access(marker.c_str(), F_OK), 0);
}

}  // namespace
