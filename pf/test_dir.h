// For the tests that work with files: a fresh directory for each test, and files written into it.
#ifndef CORVEL_PF_TEST_DIR_H_
#define CORVEL_PF_TEST_DIR_H_

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

namespace corvel {
namespace pf {

class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/pf_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
  }
  void TearDown() override {
    ASSERT_EQ(chdir("/"), 0);  // some tests work inside root_
    ASSERT_EQ(system(("rm -rf '" + root_ + "'").c_str()), 0);
  }
  std::string Path(const std::string &name) const { return root_ + "/" + name; }
  // Writes the bytes as they are, NULs included.
  void Write(const std::string &name, const std::string &text) const {
    FILE *f = fopen(Path(name).c_str(), "wb");
    ASSERT_NE(f, nullptr);
    fwrite(text.data(), 1, text.size(), f);
    fclose(f);
  }
  std::string root_;
};

}  // namespace pf
}  // namespace corvel

#endif  // CORVEL_PF_TEST_DIR_H_
