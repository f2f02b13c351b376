// Block-packed integers: exact encodings against a bit-at-a-time packer, round trips, streams
// cut short or forged, and the sizes the buffers grow to.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>

#include <random>
#include <vector>

#include "corvel/codec.h"
#include "corvel/elog.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Ints = std::vector<int>;

// The format packed one bit at a time, as plainly as it reads.
Bytes Reference(const Ints &x, int block) {
  std::vector<bool> bits;
  auto put = [&bits](uint32_t v, int n) {
    while (n-- > 0) bits.push_back((v >> n) & 1);
  };
  put(static_cast<uint32_t>(x.size()), 32), put(block & 255, 8);
  for (size_t i = 0; i < x.size(); i += block) {
    const size_t end = std::min(x.size(), i + block);
    int w = 0;
    for (size_t j = i; j < end; j++) {
      while (w < 31 && std::llabs(x[j]) >= (1LL << w)) w++;
    }
    put(w, 8);
    for (size_t j = i; j < end; j++) put(static_cast<uint32_t>(x[j]), w + 1);
    while (bits.size() % 8 != 0) bits.push_back(false);
  }
  Bytes out(bits.size() / 8);
  for (size_t k = 0; k < bits.size(); k++) out[k / 8] |= bits[k] << (7 - k % 8);
  return out;
}

Bytes Encode(const Ints &x, int block, int *size = nullptr) {
  unsigned char *out = nullptr;
  int nout = 0, room = 0;
  EXPECT_EQ(gencompress(&out, &nout, &room, x.data(), static_cast<int>(x.size()), block), 0);
  Bytes bytes(out, out + nout);
  free(out);
  if (size != nullptr) *size = room;
  return bytes;
}

Ints Decode(const Bytes &in, int *size = nullptr) {
  int *out = nullptr, nout = -1, room = 0;
  EXPECT_EQ(genuncompress(&out, &nout, &room, in.data(), static_cast<int>(in.size())), 0);
  Ints samples(out, out + nout);
  free(out);
  if (size != nullptr) *size = room;
  return samples;
}

// Runs of 200 samples, each run a bit narrower than the last, from 32 bits down to 1.
Ints EveryWidth() {
  std::mt19937 random(7);
  Ints x(6400);
  for (int i = 0; i < 6400; i++) x[i] = static_cast<int32_t>(random()) >> (i / 200);
  return x;
}

TEST(Gencompress, SeriesAndSegmentsHaveTheirExactBytesAndComeBack) {
  EXPECT_EQ(Encode({}, 25), Bytes({0, 0, 0, 0}));
  EXPECT_EQ(Encode({5}, 25), Bytes({0, 0, 0, 1, 0, 0, 0, 5}));
  EXPECT_EQ(Encode({1, -1, 0}, 25), Bytes({0, 0, 0, 3, 25, 1, 0x70}));
  EXPECT_EQ(Encode({0, INT_MIN}, 0), Bytes({0, 0, 0, 2, 25, 31, 0, 0, 0, 0, 0x80, 0, 0, 0}));
  EXPECT_EQ(Encode({0, 0}, 300), Bytes({0, 0, 0, 2, 0, 0, 0}));  // 256 is written as 0
  const Ints x = EveryWidth();
  for (int block : {1, 25, 255, 256}) {
    const Bytes bytes = Encode(x, block);
    EXPECT_EQ(bytes, Reference(x, block)) << block;
    EXPECT_EQ(Decode(bytes), x) << block;
  }
  Bytes both = Encode({3, -70000, 12}, 2), tail = Encode({INT_MAX, 0, -1, 5}, 25);
  both.insert(both.end(), tail.begin(), tail.end());
  EXPECT_EQ(Decode(both), Ints({3, -70000, 12, INT_MAX, 0, -1, 5}));
  // Only the first segment may be a lone sample; a later one of count 1 is still blocked.
  EXPECT_EQ(Decode({0, 0, 0, 1, 0, 0, 0, 9, 0, 0, 0, 1, 0, 0, 0, 8}), Ints({9}));
  EXPECT_EQ(Decode({0, 0, 0, 2, 1, 0, 0, 0, 0, 0, 0, 0, 1, 9, 2, 0x40}), Ints({0, 0, 2}));
}

// Every prefix of a stream decodes to samples of the series, more as it grows, into the
// caller's buffer grown from one sample; forged counts and widths end the decoding without a
// large allocation.
TEST(Genuncompress, CutAndForgedStreamsEndCleanly) {
  const Ints x = EveryWidth();
  const Bytes bytes = Encode(x, 25);
  int *out = static_cast<int *>(malloc(4)), room = 4, nout = 0, before = 0;
  for (size_t cut = 0; cut <= bytes.size(); cut++, before = nout) {
    ASSERT_EQ(genuncompress(&out, &nout, &room, bytes.data(), static_cast<int>(cut)), 0);
    ASSERT_GE(nout, before);
    ASSERT_TRUE(std::equal(out, out + nout, x.begin()));
  }
  free(out);

  Bytes huge = {0x7F, 0xFF, 0xFF, 0xFF, 0, 0};  // 2^31 - 1 samples claimed, 256 present
  huge.resize(6 + 32);
  EXPECT_EQ(Decode(huge, &room), Ints(256));
  EXPECT_LT(room, 2048);
  EXPECT_EQ(Decode({0, 0, 0, 3, 25, 32, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), Ints());
}

TEST(Gencompress, BuffersGrowByTheirRulesAndFailuresAreReported) {
  int size = 0;
  Encode(Ints(10, INT_MAX), 25, &size);  // 20 bytes, until byte 12 is reached
  EXPECT_EQ(size, 1020);
  EXPECT_EQ(Decode(Encode(Ints(100), 25), &size).size(), 100u);
  EXPECT_EQ(size, 432);  // 125 bytes for 25, then 1.5 times at samples 31, 47 and 71

  unsigned char *out = nullptr;
  int nout = 0, room = 0, sample = 0;
  elog_clear();
  EXPECT_EQ(gencompress(&out, &nout, &room, &sample, INT_MAX, 25), -1);  // 4 GB asked first
  char *text = elog_string(0);
  EXPECT_STREQ(text, "codec_test: gencompress: malloc() error.\n");
  free(text);
  elog_clear();
}

}  // namespace
