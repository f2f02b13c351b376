#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <random>
#include <string>
#include <vector>

#include "corvel/codec.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Compress(const std::vector<int> &x, int expect = 0) {
  unsigned char *out = nullptr;
  int nout = 0, size = 0;
  EXPECT_EQ(cucsd(x.data(), static_cast<int>(x.size()), &out, &nout, &size), expect);
  EXPECT_EQ(size, static_cast<int>(x.size() + 2) * 4);
  Bytes bytes(out, out + nout);
  free(out);
  return bytes;
}

// The samples decoded into an array of exactly nsamp, the bytes taken (-1 on failure) and the
// complaint.
struct Decoded {
  std::vector<int> x;
  long used;
  std::string said;
};

Decoded Decompress(const Bytes &in, int nsamp) {
  Decoded d = {std::vector<int>(nsamp), -1, ""};  // the sanitizers see a write beyond it
  const unsigned char *p = in.data();
  testing::internal::CaptureStderr();
  if (uucsd(d.x.data(), &p, static_cast<int>(in.size()), nsamp) == 0) d.used = p - in.data();
  d.said = testing::internal::GetCapturedStderr();
  return d;
}

TEST(Ucsd, RunsOfOneWidth) {
  // Five differences of -1 in nibbles; the pad after the run's odd end is only read.
  Bytes ramp = Compress({0, 1, 2, 3, 4, 5});
  EXPECT_EQ(ramp, Bytes({0, 0, 0, 0, 0x10, 5, 0xFF, 0xFF, 0xF0}));
  EXPECT_EQ(Decompress(ramp, 6).x, std::vector<int>({0, 1, 2, 3, 4, 5}));

  // Wider differences open wider runs at once, each at an even offset: three of -1000 in
  // 12 bits, then a jump whose run holds the sample itself.
  std::vector<int> x = {0, 1, 2, 3, 4, 5, 1005, 2005, 3005, 43005};
  EXPECT_EQ(Compress(x), Bytes({0,    0,    0,    0,    0x10, 5, 0xFF, 0xFF, 0xF0, 0,    0x30, 3,
                                0xC1, 0x8C, 0x18, 0xC1, 0x80, 0, 0x50, 1,    0x00, 0xA7, 0xFD}));
  EXPECT_EQ(Decompress(Compress(x), 10).x, x);

  // Narrower differences wait for enough of their kind to pay for a new run: four nibbles stay
  // in a run of bytes, five open a run of their own.
  x = {0, 100, 101, 102, 103, 104, 204, 205, 206, 207, 208, 209, 309};
  EXPECT_EQ(Compress(x), Bytes({0,    0,    0, 0,    0x20, 6,    0x9C, 0xFF, 0xFF, 0xFF, 0xFF,
                                0x9C, 0x10, 5, 0xFF, 0xFF, 0xF0, 0,    0x20, 1,    0x9C}));
  EXPECT_EQ(Decompress(Compress(x), 13).x, x);

  // A run holds at most 255 values.
  Bytes flat = Compress(std::vector<int>(301, 7));
  ASSERT_EQ(flat.size(), 4u + 2 + 128 + 2 + 23);
  EXPECT_EQ(Bytes(flat.begin() + 4, flat.begin() + 6), Bytes({0x10, 255}));
  EXPECT_EQ(Bytes(flat.begin() + 134, flat.begin() + 136), Bytes({0x10, 45}));
}

TEST(Ucsd, RandomWalksComeBackWhole) {
  std::mt19937 rng(9);
  for (int step : {15, 250, 4000, 60000, 1 << 21}) {
    std::vector<int> x(1000);
    for (size_t i = 1; i < x.size(); i++) {
      x[i] = x[i - 1] + static_cast<int>(rng() % step) - step / 2;
      if (rng() % 10 == 0) x[i] = x[i - 1] + static_cast<int>(rng() % 70000) - 35000;
      if (x[i] > 0x7FFFFF || x[i] < -0x7FFFFF) x[i] = 0;
    }
    x.back() = x[998] + (x[998] > 0 ? -100000 : 100000);  // keeps the look-ahead in the series
    Bytes in = Compress(x);
    EXPECT_EQ(Decompress(in, 1000).x, x) << step;
    EXPECT_EQ(Decompress(in, 1000).used, static_cast<long>(in.size() + (in.size() & 1)));
  }
}

TEST(Ucsd, WhatNoLevelHoldsIsReported) {
  // A difference beyond 24 bits is coded through the sample; a sample beyond them is left out.
  EXPECT_EQ(
      Compress({0x7FFFFF, -0x7FFFFF, -0x7FFFFF + 70000, -0x7FFFFF + 140000}, -1),
      Bytes({0, 0x7F, 0xFF, 0xFF, 0x50, 3, 0x80, 0, 0x01, 0x81, 0x11, 0x71, 0x82, 0x22, 0xE1}));
  EXPECT_EQ(Compress({0, 1 << 24, 2 << 24, 3 << 24}, -1), Bytes({0, 0, 0, 0, 0x50, 0}));
}

TEST(Ucsd, BadInputIsComplainedAbout) {
  const Bytes ramp = {0, 0, 0, 0, 0x10, 5, 0xFF, 0xFF, 0xF0};
  EXPECT_EQ(Decompress(ramp, 5).said,
            "codec_test: uucsd bad input data: uncompresses to more than 5 samples\n");
  // Cut short, or asked for more than the runs hold.
  for (size_t keep : {3, 5, 7, 8, 9}) {
    EXPECT_EQ(Decompress(Bytes(ramp.begin(), ramp.begin() + keep), keep == 9 ? 7 : 6).said,
              "codec_test: uucsd bad input data: used more than entire buffer\n");
  }
  // The one byte past the end that the last run may use reads as zero.
  Decoded d = Decompress({0, 0, 0, 10, 0x40, 1, 0xFF}, 2);
  EXPECT_EQ(d.x, std::vector<int>({10, 266}));
  EXPECT_EQ(d.used, 8);
}

TEST(UcsdDeathTest, LookingAheadPastTheLastSampleEndsTheProcess) {
  EXPECT_EXIT((Compress({1, 2})), testing::ExitedWithCode(1), "shouldn't happen");
  // A step down at the last sample has nothing to look ahead at.
  EXPECT_EXIT((Compress({0, 1, 2, 3, 4, 5, 1005, 1006})), testing::ExitedWithCode(1),
              "shouldn't happen");
}

#ifndef __SANITIZE_ADDRESS__  // the sanitizers ignore address-space limits
TEST(UcsdDeathTest, OutOfMemoryEndsTheProcess) {
  std::vector<int> x(1);
  unsigned char *out = nullptr;
  int nout = 0, size = 0;
  const rlimit limit = {512 << 20, 512 << 20};
  EXPECT_EXIT(
      {
        setrlimit(RLIMIT_AS, &limit);
        cucsd(x.data(), 200000000, &out, &nout, &size);
      },
      testing::ExitedWithCode(1),
      "codec_test \\*fatal\\*: Out of memory in cucsd at line [0-9]+ of 'ucsd_compress.c'\n\t"
      "Can't malloc 800000008 bytes for \\*buf\n");
}
#endif

}  // namespace
