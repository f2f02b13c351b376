// Tagged zlib buffers: the header, zlib's own stream behind it, and every result code.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <zlib.h>

#include <random>
#include <vector>

#include "corvel/codec.h"
#include "corvel/elog.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Runs zqcompress or zqexpand on `bytes` into a fresh buffer: the code, and the output in *out.
int Code(int (*codec)(const Zqbuf *, Zqbuf *), Bytes bytes, Bytes *out) {
  Zqbuf in = {bytes.data(), bytes.size(), bytes.size()}, made = {nullptr, 0, 0};
  const int code = codec(&in, &made);
  out->assign(made.data, made.data + made.nbytes);
  free(made.data);
  return code;
}

TEST(Zqbuf, EveryCodeAndMessage) {
  Bytes packed = {1}, back, noise(1000), text(1000, 'a');
  EXPECT_EQ(Code(zqcompress, Bytes(100, 'a'), &packed), 1);
  EXPECT_TRUE(packed.empty());
  EXPECT_EQ(Code(zqexpand, Bytes(100, 'a'), &back), 1);  // no tag: the caller keeps its bytes

  std::mt19937 random(3);
  for (auto &b : noise) b = static_cast<unsigned char>(random());
  EXPECT_EQ(Code(zqcompress, noise, &packed), -2);  // longer, and still complete
  EXPECT_EQ(Code(zqexpand, packed, &back), 0);
  EXPECT_EQ(back, noise);

  EXPECT_EQ(Code(zqcompress, text, &packed), 0);
  Bytes expected = {'z', 'l', 'i', 'b', 0, 0, 3, 0xE8};  // zlib's own stream behind the header
  uLongf n = compressBound(1000);
  expected.resize(8 + n);
  ASSERT_EQ(compress(expected.data() + 8, &n, text.data(), 1000), Z_OK);
  expected.resize(8 + n);
  EXPECT_EQ(packed, expected);
  EXPECT_EQ(Code(zqexpand, packed, &back), 0);
  EXPECT_EQ(back, text);

  elog_clear();
  packed[7] = 0xE7;  // 999 announced
  EXPECT_EQ(Code(zqexpand, packed, &back), -2);
  packed[4] = 0xFF;  // more than the stream could ever make: not allocated, still told
  EXPECT_EQ(Code(zqexpand, packed, &back), -2);
  packed[11] ^= 0xFF;
  EXPECT_EQ(Code(zqexpand, packed, &back), -1);
  char *messages = elog_string(0);
  EXPECT_STREQ(messages,
               "codec_test: zqexpand: zlib uncompress fails, returning 1000 bytes instead of 999\n"
               "codec_test: zqexpand: zlib uncompress fails, returning 1000 bytes instead of "
               "4278191079\ncodec_test: zqexpand: zlib uncompress fails, returning -3\n");
  free(messages);
  elog_clear();
}

}  // namespace
