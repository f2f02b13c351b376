#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <random>
#include <string>

#include "corvel/checksum.h"
#include "pf/test_dir.h"
#include "tools/run_corvel.h"

namespace {

using corvel::tools::Result;
using corvel::tools::RunCorvel;

class SumCommandTest : public corvel::pf::TempDirTest {
 protected:
  // Writes a file and gives its path.
  std::string Put(const char *name, const std::string &bytes) {
    Write(name, bytes);
    return Path(name);
  }
};

// The usual check values of the text 123456789, for every algorithm, from a file and from the
// standard input.
TEST_F(SumCommandTest, CheckValuesOfEveryAlgorithm) {
  const std::string path = Put("check", "123456789");
  const struct {
    const char *algorithm, *hex;
  } kCases[] = {
      {"crc16", "bb3d"},
      {"crc32", "0376e6e7"},
      {"crc64", "46a5a9388a5beffe"},
      {"qtcrc", "37c7ca30"},
      {"qtsum", "01dd"},
      {"adler32", "091e01de"},
      {"md4", "2ae523785d0caf4d2fb557c12016185c"},
      {"md5", "25f9e794323b453885f5181f1b624d0b"},
      {"sha1", "f7c3bc1d808e04732adf679965ccc34ca7ae3441"},
  };
  for (const auto &c : kCases) {
    Result r = RunCorvel(std::string("sum -a ") + c.algorithm + " " + path + " - < " + path);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, std::string(c.hex) + "  " + path + "\n" + c.hex + "  -\n") << c.algorithm;
  }
  Result r = RunCorvel("sum < " + path);
  EXPECT_EQ(r.out, "25f9e794323b453885f5181f1b624d0b  -\n");
}

// A file read in many pieces gives what the library gives for the whole at once: the pieces
// chain where the algorithm allows it, and are kept whole where it starts from 0.
TEST_F(SumCommandTest, LongFilesReadInPiecesSumAsAWhole) {
  std::string bytes(300001, '\0');
  std::mt19937 rng(5);
  for (char &b : bytes) b = static_cast<char>(rng());
  const std::string path = Put("long", bytes);
  uint64_t crc64 = 0;
  zq_crc64(&crc64, bytes.data(), bytes.size());
  uint32_t qt = 0;
  qtcrc(&qt, bytes.data(), bytes.size());
  uint16_t sum = 0;
  qtchecksum(&sum, bytes.data(), bytes.size());
  char md5[33];
  mdhex(md5, bytes.data(), bytes.size());
  char expected[64];
  snprintf(expected, sizeof expected, "%016llx", static_cast<unsigned long long>(crc64));
  EXPECT_EQ(RunCorvel("sum -a crc64 " + path).out, std::string(expected) + "  " + path + "\n");
  snprintf(expected, sizeof expected, "%08x", qt);
  EXPECT_EQ(RunCorvel("sum -a qtcrc " + path).out, std::string(expected) + "  " + path + "\n");
  snprintf(expected, sizeof expected, "%04x", sum);
  EXPECT_EQ(RunCorvel("sum -a qtsum " + path).out, std::string(expected) + "  " + path + "\n");
  EXPECT_EQ(RunCorvel("sum " + path).out, std::string(md5) + "  " + path + "\n");
}

TEST_F(SumCommandTest, MissingFilesAndUnknownAlgorithms) {
  const std::string path = Put("empty", "");
  Result r = RunCorvel("sum -a sha1 " + root_ + "/absent " + path, true);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "da39a3ee5e6b4b0d3255bfef95601890afd80709  " + path + "\n");
  EXPECT_EQ(r.err, "corvel sum: " + root_ + "/absent: No such file or directory\n");
  r = RunCorvel("sum -a crc8 " + path);
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out.rfind("corvel sum: unknown algorithm 'crc8'\n", 0), 0u);
}

}  // namespace
