// Checksums and digests: known answers, and the fast paths against bit-at-a-time references.
#include "corvel/checksum.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

namespace corvel::codec {
void ForcePortableChecksums(bool force);
void LimitCrcVectorBits(int bits);
}  // namespace corvel::codec

namespace {

template <typename T>
T RefReflected(T poly, T crc, const unsigned char *p, size_t n) {
  for (size_t i = 0; i < n; i++) {
    crc ^= p[i];
    for (int b = 0; b < 8; b++) crc = (crc & 1) ? static_cast<T>((crc >> 1) ^ poly) : crc >> 1;
  }
  return crc;
}

uint32_t RefForward(uint32_t poly, uint32_t crc, const unsigned char *p, size_t n) {
  for (size_t i = 0; i < n; i++) {
    crc ^= static_cast<uint32_t>(p[i]) << 24;
    for (int b = 0; b < 8; b++) crc = (crc & 0x80000000u) ? (crc << 1) ^ poly : crc << 1;
  }
  return crc;
}

uint32_t RefAdler(uint32_t adler, const unsigned char *p, size_t n) {
  uint32_t a = adler & 0xFFFF, b = adler >> 16;
  for (size_t i = 0; i < n; i++) a = (a + p[i]) % 65521, b = (b + a) % 65521;
  return b << 16 | a;
}

std::string Hex(const unsigned char *p, size_t n) {
  std::string s;
  char two[3];
  for (size_t i = 0; i < n; i++) snprintf(two, sizeof two, "%02x", p[i]), s += two;
  return s;
}

const char k9[] = "123456789";

TEST(Crc, KnownAnswers) {
  uint32_t c32 = 0xFFFFFFFF;
  zq_crc32(&c32, k9, 9);
  EXPECT_EQ(c32, 0x0376E6E7u);
  c32 = 0;
  zq_crc32(&c32, k9, 9);
  EXPECT_EQ(c32, ~0x765E7680u);  // the POSIX cksum CRC before its final inversion
  uint16_t c16 = 0;
  zq_crc16(&c16, k9, 9);
  EXPECT_EQ(c16, 0xBB3D);
  uint16_t sum = 1;
  std::vector<unsigned char> ff(258, 0xFF);
  qtchecksum(&sum, ff.data(), ff.size());
  EXPECT_EQ(sum, 0x00FE);
  EXPECT_EQ(zq_adler32(1, "Wikipedia", 9), 0x11E60398u);
  EXPECT_EQ(zq_adler32(12345, nullptr, 7), 1u);
}

// Every length up to a few hundred bytes and a spread of long ones, around the 8-byte table
// groups, the 64-byte folds and the 5552-byte Adler runs, at odd offsets, on both paths; CRC-64
// and qtcrc must ignore what *crc held; the chaining ones must split anywhere.
TEST(Crc, BothPathsMatchTheReferencesAndChain) {
  std::mt19937 rng(7);
  std::vector<unsigned char> buf(70000 + 8);
  for (auto &b : buf) b = static_cast<unsigned char>(rng());
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 300; n++) lengths.push_back(n);
  for (size_t n : {511, 512, 513, 1023, 4096, 5535, 5536, 5551, 5552, 5553, 11137, 70000}) {
    lengths.push_back(n);
  }
  // Each width of the folds the processor has, then the tables alone (width 0).
  for (int width : {512, 256, 128, 0}) {
    const bool portable = width == 0;
    corvel::codec::ForcePortableChecksums(portable);
    corvel::codec::LimitCrcVectorBits(width);
    for (size_t n : lengths) {
      const unsigned char *p = buf.data() + n % 8;
      const uint32_t start = static_cast<uint32_t>(rng());
      const size_t cut = n ? rng() % n : 0;
      SCOPED_TRACE(testing::Message() << "n " << n << " width " << width);
      uint32_t c32 = start;
      zq_crc32(&c32, p, cut);
      zq_crc32(&c32, p + cut, n - cut);
      EXPECT_EQ(c32, RefForward(0x04C11DB7, start, p, n));
      uint16_t c16 = static_cast<uint16_t>(start);
      zq_crc16(&c16, p, cut);
      zq_crc16(&c16, p + cut, n - cut);
      EXPECT_EQ(c16, RefReflected<uint16_t>(0xA001, static_cast<uint16_t>(start), p, n));
      EXPECT_EQ(zq_adler32(zq_adler32(start % 65521, p, cut), p + cut, n - cut),
                RefAdler(start % 65521, p, n));
      uint64_t c64 = start;
      zq_crc64(&c64, p, n);
      EXPECT_EQ(c64, RefReflected<uint64_t>(0xD800000000000000ull, 0, p, n));
      uint32_t qt = start;
      qtcrc(&qt, p, n);
      EXPECT_EQ(qt, RefForward(0x56070368, 0, p, n));
    }
  }
  corvel::codec::ForcePortableChecksums(false);
  corvel::codec::LimitCrcVectorBits(512);
}

// Digest of text fed to MD4 as whole blocks and a last block of the rest.
std::string Md4(const std::string &text) {
  Zq_md4_ctx md;
  zq_mdbegin(&md);
  size_t i = 0;
  for (; i + 64 <= text.size(); i += 64) zq_mdupdate(&md, text.data() + i, 512);
  zq_mdupdate(&md, text.data() + i, static_cast<unsigned>(8 * (text.size() - i)));
  zq_mdupdate(&md, nullptr, 0);  // ignored once done
  unsigned char out[16];
  memcpy(out, md.buffer, 16);  // the words low byte first
  return Hex(out, 16);
}

TEST(Digest, Md4AndMd5KnownAnswers) {
  const std::string eighty = [] {
    std::string s;
    for (int i = 0; i < 8; i++) s += "1234567890";
    return s;
  }();
  const struct {
    std::string text;
    const char *md4, *md5;
  } kCases[] = {
      {"", "31d6cfe0d16ae931b73c59d7e0c089c0", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "bde52cb31de33e46245e05fbdbd6fb24", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "a448017aaf21d8525fc10ae87aa6729d", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "d9130a8164549fe818874806e1c7014b", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "d79e1c308aa5bbcdeea8ed63df412da9",
       "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "043f8582f241db351ce627e153e7f0e4", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {eighty, "e33b4ddc9c38f2199c3e7b164fcc0536", "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto &c : kCases) {
    EXPECT_EQ(Md4(c.text), c.md4) << c.text;
    char hex[33];
    mdhex(hex, c.text.data(), c.text.size());
    EXPECT_EQ(std::string(hex), c.md5) << c.text;
  }
  // The pieces of a list, and byte-at-a-time updates, give the digest of the whole.
  char hex[33];
  mdhexlist(hex, "1234567890", 10, "", 0, eighty.data() + 10, 70, static_cast<void *>(nullptr));
  EXPECT_STREQ(hex, "57edf4a22be3c955ac49da2e2107b67a");
  Zq_md5_ctx ctx;
  zq_md5init(&ctx);
  for (char ch : eighty) zq_md5update(&ctx, &ch, 1);
  unsigned char digest[16];
  zq_md5final(digest, &ctx);
  EXPECT_EQ(Hex(digest, 16), "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Digest, Md4LastBlockOfBits) {
  // One bit, a 1: the block is 0xC0 then zeros and a count of 1; as whole bytes, 0x80 with a
  // count of 8 bits differs.
  Zq_md4_ctx a, b;
  zq_mdbegin(&a);
  zq_mdbegin(&b);
  const unsigned char one = 0xFF;
  zq_mdupdate(&a, &one, 1);
  unsigned char block[64] = {0xC0};
  block[56] = 1;
  MDblock(&b, block);
  EXPECT_EQ(0, memcmp(a.buffer, b.buffer, 16));
  EXPECT_EQ(a.count, 1u);
}

TEST(DigestDeathTest, Md4Misuse) {
  Zq_md4_ctx md;
  zq_mdbegin(&md);
  unsigned char block[64] = {0};
  EXPECT_EXIT(zq_mdupdate(&md, block, 513), testing::ExitedWithCode(1),
              "Error: MDupdate called with illegal count value 513\\.");
  zq_mdupdate(&md, block, 8);
  EXPECT_EXIT(zq_mdupdate(&md, block, 8), testing::ExitedWithCode(1),
              "Error: MDupdate MD already done\\.");
}

std::string Sha(const void *p, size_t n) {
  Zq_sha_ctx ctx;
  unsigned char out[20];
  sha_init(&ctx);
  sha_update(&ctx, p, n);
  sha_final(&ctx);
  sha_digest(&ctx, out);
  return Hex(out, 20);
}

TEST(Digest, Sha1KnownAnswersAndBothPaths) {
  const std::string two = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
  const std::string million(1000000, 'a');
  std::mt19937 rng(11);
  std::vector<unsigned char> buf(1000);
  for (auto &b : buf) b = static_cast<unsigned char>(rng());
  std::vector<std::string> fast;
  for (bool portable : {false, true}) {
    corvel::codec::ForcePortableChecksums(portable);
    EXPECT_EQ(Sha("", 0), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(Sha("abc", 3), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(Sha(two.data(), two.size()), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(Sha(million.data(), million.size()), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
    for (size_t n = 0; n < buf.size(); n += 7) {
      std::string whole = Sha(buf.data(), n);
      if (!portable)
        fast.push_back(whole);
      else
        EXPECT_EQ(whole, fast[n / 7]) << n;
    }
  }
  corvel::codec::ForcePortableChecksums(false);
  // A copy taken mid-stream, with bytes buffered, finishes on its own as the original does.
  Zq_sha_ctx ctx, copy;
  sha_init(&ctx);
  sha_update(&ctx, buf.data(), 100);
  sha_copy(&copy, &ctx);
  sha_update(&ctx, buf.data() + 100, 900);
  sha_update(&copy, buf.data() + 100, 400);
  sha_update(&copy, buf.data() + 500, 500);
  sha_final(&ctx);
  sha_final(&copy);
  unsigned char a[20], b[20];
  sha_digest(&ctx, a);
  sha_digest(&copy, b);
  EXPECT_EQ(Hex(a, 20), Hex(b, 20));
  EXPECT_EQ(Hex(a, 20), Sha(buf.data(), 1000));
  // Whole blocks given directly count as input.
  sha_init(&ctx);
  sha_block(&ctx, buf.data());
  sha_update(&ctx, buf.data() + 64, 10);
  sha_final(&ctx);
  sha_digest(&ctx, a);
  EXPECT_EQ(Hex(a, 20), Sha(buf.data(), 74));
}

}  // namespace
