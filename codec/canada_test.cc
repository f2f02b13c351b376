#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "corvel/codec.h"
#include "corvel/elog.h"

namespace {

using Bytes = std::vector<unsigned char>;

std::string Register() {
  char *s = elog_string(0);
  std::string text(s);
  free(s);
  elog_clear();
  return text;
}

Bytes Compress(const std::vector<int> &x) {
  unsigned char *out = nullptr;
  int nout = 0, size = 0;
  EXPECT_EQ(ccanada(x.data(), static_cast<int>(x.size()), &out, &nout, &size), 0);
  Bytes bytes(out, out + nout);
  free(out);
  return bytes;
}

// The samples and the following one; *out may be a buffer of *size samples to enlarge.
std::vector<int> Decompress(const Bytes &in, int nsamp, int *out = nullptr, int size = 0) {
  EXPECT_EQ(ucanada(in.data(), static_cast<int>(in.size()), &out, &nsamp, &size), 0);
  std::vector<int> x(out, out + (nsamp > 0 ? nsamp + 1 : 0));
  free(out);
  return x;
}

// What the decoder says when it refuses the input.
std::string Refusal(const Bytes &in, int nsamp, int *out = nullptr, int size = 0) {
  EXPECT_EQ(ucanada(in.data(), static_cast<int>(in.size()), &out, &nsamp, &size), -1);
  return Register();
}

TEST(Canada, BlocksOfSecondDifferencesWithTheirKeys) {
  // A ramp: a first difference of 1 once, then nothing but zeros in four-bit groups; the 21st
  // sample only closes the last difference.
  std::vector<int> ramp(21);
  for (int i = 0; i < 21; i++) ramp[i] = i;
  EXPECT_EQ(Compress(ramp), Bytes({0, 0, 0, 0, 0, 0, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Decompress(Compress(ramp), 20), ramp);

  // A slope of 0x20000 from the ninth sample on: the third group needs 20 bits, so the block
  // is flagged and that group has code 4.
  std::vector<int> slope(21, 0);
  for (int i = 9; i < 21; i++) slope[i] = (i - 8) * 0x20000;
  EXPECT_EQ(Compress(slope), Bytes({0x81, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0x20, 0,
                                    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0,    0}));

  // Constant: two key bytes and ten data bytes per block, counted by the decoder.
  Bytes flat = Compress(std::vector<int>(41, -5));
  EXPECT_EQ(flat.size(), 2u * 2 + 4 + 2 * 10);
  EXPECT_EQ(Decompress(flat, 0), std::vector<int>(41, -5));
  // Without a following sample the last difference leads to the most negative value.
  std::vector<int> open(40, -5);
  open.push_back(INT32_MIN);
  EXPECT_EQ(Decompress(Compress(std::vector<int>(40, -5)), 40), open);
}

TEST(Canada, RandomSeriesComeBackWhole) {
  std::mt19937 rng(20);
  for (uint32_t range : {16u, 300u, 70000u, 1u << 24, 0u}) {
    for (int blocks : {1, 3, 50}) {
      std::vector<int> x(20 * blocks + 1);
      for (int &v : x) v = static_cast<int>(range ? rng() % range - range / 2 : rng());
      EXPECT_EQ(Decompress(Compress(x), 0), x) << range << " " << blocks;
      EXPECT_EQ(Decompress(Compress(x), 20 * blocks, static_cast<int *>(malloc(4)), 1), x);
    }
  }
}

TEST(CanadaDeathTest, RefusesWhatItCannotCodeOrDecode) {
  unsigned char *out = nullptr, small[4];
  int nout = 7, size = 0;
  std::vector<int> x(25);
  EXPECT_EQ(ccanada(x.data(), 25, &out, &nout, &size), -1);
  EXPECT_EQ(nout, 0);
  // Buffers beyond what a size in bytes can say are never asked for.
  EXPECT_EQ(ccanada(x.data(), 600000000, &out, &nout, &size), -1);
  out = small;
  EXPECT_EQ(ccanada(x.data(), 600000000, &out, &nout, &size), -1);
  EXPECT_EQ(Register(),
            "codec_test: ccanada: nsamp not a multiple of 20.\n"
            "codec_test: ccanada: malloc() error.\n"
            "codec_test: ccanada: realloc() error.\n");

  Bytes in = Compress(std::vector<int>(41, 3));
  EXPECT_EQ(Refusal(in, 30), "codec_test: ucanada: nsamp not a multiple of 20.\n");
  const std::string small_text = "codec_test: ucanada: Illegal input data: compressed buffer too";
  EXPECT_EQ(Refusal(Bytes(5), 20), small_text + " small\n");
  EXPECT_EQ(Refusal(Bytes(in.begin(), in.end() - 1), 40), small_text + " small.\n");
  EXPECT_EQ(Refusal(Bytes(in.begin(), in.begin() + 7), 40), small_text + " small.\n");
  in.resize(in.size() + 4);  // room for a following first sample is allowed, no more
  EXPECT_EQ(Decompress(in, 40).size(), 41u);
  in.push_back(0);
  EXPECT_EQ(Refusal(in, 40), small_text + " big.\n");
  EXPECT_TRUE(Decompress(Bytes(6), 0).empty());  // too short to hold a block: none counted

#ifndef __SANITIZE_ADDRESS__  // the sanitizers ignore address-space limits
  // 200 million constant samples in 120 MB; their 800 MB do not fit under the limit.
  const Bytes huge(20000000 + 4 + 100000000, 0);
  const rlimit limit = {512 << 20, 512 << 20};
  for (const char *what : {"malloc", "realloc"}) {
    EXPECT_EXIT(
        {
          setrlimit(RLIMIT_AS, &limit);
          int *given = what[0] == 'r' ? static_cast<int *>(malloc(4)) : nullptr;
          fputs(Refusal(huge, 200000000, given, 1).c_str(), stderr);
          _exit(0);
        },
        testing::ExitedWithCode(0),
        "^codec_test: ucanada: " + std::string(what) + "\\(\\) error.\n$");
  }
#endif
}

}  // namespace
