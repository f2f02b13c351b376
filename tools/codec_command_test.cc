#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <random>
#include <string>

#include "pf/test_dir.h"
#include "tools/run_corvel.h"

namespace {

using corvel::tools::Result;
using corvel::tools::RunCorvel;

class CodecCommandTest : public corvel::pf::TempDirTest {
 protected:
  // Writes a file and gives its path.
  std::string Put(const char *name, const std::string &bytes) {
    Write(name, bytes);
    return Path(name);
  }
  std::string Read(const char *name) {
    FILE *file = fopen(Path(name).c_str(), "rb");
    std::string bytes = file ? corvel::tools::ReadAll(file) : "";
    if (file) fclose(file);
    return bytes;
  }
};

// Samples of every size class, a multiple of 20 plus one so that every format takes them.
std::string SampleText(int n) {
  std::mt19937 rng(3);
  std::string text;
  for (int i = 0; i < n; i++) {
    int shift = static_cast<int>(rng() % 23);
    text += std::to_string(static_cast<int>(rng() % (2u << shift)) - (1 << shift)) + "\n";
  }
  return text;
}

TEST_F(CodecCommandTest, EveryFormatRoundTripsThroughFilesAndPipes) {
  const std::string text = SampleText(201);
  const std::string in = Put("samples.txt", text);
  for (const char *format : {"gen", "canada", "cm6", "ucsd"}) {
    SCOPED_TRACE(format);
    Result r = RunCorvel(std::string("codec encode -f ") + format + " " + in + " " + Path("coded"));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(Read("coded"), "");
    r = RunCorvel(std::string("codec decode -f ") + format + " < " + Path("coded"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, text);
    // Binary samples in and out, through pipes.
    r = RunCorvel(std::string("codec encode -f ") + format + " " + in + " | " + CORVEL_BINARY_DIR +
                  "/corvel codec decode --binary -f " + format + " - " + Path("binary"));
    EXPECT_EQ(r.status, 0);
    r = RunCorvel(std::string("codec encode --binary -f ") + format + " " + Path("binary") + " | " +
                  CORVEL_BINARY_DIR + "/corvel codec decode -f " + format);
    EXPECT_EQ(r.out, text);
  }
  EXPECT_EQ(Read("binary").size(), 201u * 4);
  // Block sizes change the coding, not the samples.
  Result r = RunCorvel("codec encode -f gen -b 255 " + in + " | " + CORVEL_BINARY_DIR +
                       "/corvel codec decode -f gen");
  EXPECT_EQ(r.out, text);
}

TEST_F(CodecCommandTest, StatsOfACodedFile) {
  Put("samples.txt", "5\n-3\n\n  12\n0\n");
  Result r = RunCorvel("codec encode -f cm6 " + Path("samples.txt") + " " + Path("coded"));
  ASSERT_EQ(r.status, 0);
  const std::string coded = Read("coded");
  r = RunCorvel("codec stats -f cm6 " + Path("coded"));
  EXPECT_EQ(r.status, 0);
  char ratio[32];
  snprintf(ratio, sizeof ratio, "%.3f", 16.0 / coded.size());
  EXPECT_EQ(r.out, "samples 4\nminimum -3\nmaximum 12\nbytes " + std::to_string(coded.size()) +
                       "\nratio " + ratio + "\n");
}

TEST_F(CodecCommandTest, BadSamplesAndBadCodingAreReported) {
  Result r = RunCorvel("codec encode -f gen " + Put("bad.txt", "1\n2\n3x\n"), true);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "corvel codec: " + Path("bad.txt") + ": line 3: not a 32-bit integer: '3x'\n");
  r = RunCorvel("codec encode -f gen " + Put("big.txt", "2147483648\n"), true);
  EXPECT_EQ(r.status, 1);
  r = RunCorvel("codec encode -f canada " + Put("25.txt", SampleText(25)), true);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "corvel: ccanada: nsamp not a multiple of 20.\ncorvel codec: ccanada failed\n");
  r = RunCorvel("codec decode -f cm6 " + Put("nochk.txt", "+-+\n"), true);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "corvel codec: um6 failed\n");
  r = RunCorvel("codec encode --binary -f gen " + Put("odd.bin", "abcde"), true);
  EXPECT_EQ(r.err, "corvel codec: " + Path("odd.bin") +
                       ": 5 bytes is not a whole number of 32-bit samples\n");
  EXPECT_EQ(RunCorvel("codec encode -f steim2 " + Path("odd.bin")).status, 2);
  EXPECT_EQ(RunCorvel("codec stats -f gen").status, 2);
}

}  // namespace
