// SHA-1 digests.
//
// Whole blocks go through the processor's SHA instructions when it has them (checked once at
// run time), otherwise through the portable rounds; both give the same words.
#include <cpuid.h>
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "codec/big_endian.h"
#include "corvel/checksum.h"

namespace corvel {
namespace codec {

bool PortableChecksumsForced();

namespace {

uint32_t Rotl(uint32_t x, int c) { return (x << c) | (x >> (32 - c)); }

void BlocksPortable(uint32_t h[5], const unsigned char *p, size_t blocks) {
  for (; blocks > 0; blocks--, p += 64) {
    uint32_t w[16];
    for (int i = 0; i < 16; i++) w[i] = LoadBe32(p + 4 * i);
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
    // The schedule is kept as a ring of 16 words, each made when its round comes.
    auto round = [&](int t, uint32_t f, uint32_t k) {
      uint32_t x;
      if (t < 16) {
        x = w[t];
      } else {
        x = Rotl(w[(t + 13) & 15] ^ w[(t + 8) & 15] ^ w[(t + 2) & 15] ^ w[t & 15], 1);
        w[t & 15] = x;
      }
      uint32_t temp = Rotl(a, 5) + f + e + k + x;
      e = d, d = c, c = Rotl(b, 30), b = a, a = temp;
    };
    for (int t = 0; t < 20; t++) round(t, d ^ (b & (c ^ d)), 0x5A827999);
    for (int t = 20; t < 40; t++) round(t, b ^ c ^ d, 0x6ED9EBA1);
    for (int t = 40; t < 60; t++) round(t, (b & c) | (d & (b | c)), 0x8F1BBCDC);
    for (int t = 60; t < 80; t++) round(t, b ^ c ^ d, 0xCA62C1D6);
    h[0] += a, h[1] += b, h[2] += c, h[3] += d, h[4] += e;
  }
}

// Four rounds g (of 20): the message words of g are added to e, the next e is taken from the
// state before the rounds, and the schedule of the three groups ahead moves one step on, so
// that no round waits for its words.
#define CORVEL_SHA_GROUP(g, e_in, e_out)                                                          \
  e_in = _mm_sha1nexte_epu32(e_in, m[(g) % 4]);                                                   \
  e_out = abcd;                                                                                   \
  if ((g) >= 3 && (g) <= 18) m[((g) + 1) % 4] = _mm_sha1msg2_epu32(m[((g) + 1) % 4], m[(g) % 4]); \
  abcd = _mm_sha1rnds4_epu32(abcd, e_in, (g) / 5);                                                \
  if ((g) >= 1 && (g) <= 16) m[((g) + 3) % 4] = _mm_sha1msg1_epu32(m[((g) + 3) % 4], m[(g) % 4]); \
  if ((g) >= 2 && (g) <= 17) m[((g) + 2) % 4] = _mm_xor_si128(m[((g) + 2) % 4], m[(g) % 4])

// Compiled with the AVX encodings of the vector moves and shuffles: legacy SSE code that runs
// after wide vector code (CRC folds, other libraries) is slowed down by the registers' dirty
// upper halves, the VEX forms are not. A processor with the SHA instructions but without AVX
// takes the portable rounds.
__attribute__((target("sha,avx"))) void BlocksSha(uint32_t h[5], const unsigned char *p,
                                                  size_t blocks) {
  // Big-endian words with the first in the top lane, as the instructions take them.
  const __m128i reverse = _mm_set_epi64x(0x0001020304050607ll, 0x08090a0b0c0d0e0fll);
  __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(h)), 0x1B);
  __m128i e0 = _mm_set_epi32(static_cast<int>(h[4]), 0, 0, 0), e1;
  for (; blocks > 0; blocks--, p += 64) {
    const __m128i abcd_start = abcd, e_start = e0;
    __m128i m[4];
    for (int i = 0; i < 4; i++) {
      m[i] =
          _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16 * i)), reverse);
    }
    // The first group adds its words to e directly.
    e0 = _mm_add_epi32(e0, m[0]);
    e1 = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 0);
    CORVEL_SHA_GROUP(1, e1, e0);
    CORVEL_SHA_GROUP(2, e0, e1);
    CORVEL_SHA_GROUP(3, e1, e0);
    CORVEL_SHA_GROUP(4, e0, e1);
    CORVEL_SHA_GROUP(5, e1, e0);
    CORVEL_SHA_GROUP(6, e0, e1);
    CORVEL_SHA_GROUP(7, e1, e0);
    CORVEL_SHA_GROUP(8, e0, e1);
    CORVEL_SHA_GROUP(9, e1, e0);
    CORVEL_SHA_GROUP(10, e0, e1);
    CORVEL_SHA_GROUP(11, e1, e0);
    CORVEL_SHA_GROUP(12, e0, e1);
    CORVEL_SHA_GROUP(13, e1, e0);
    CORVEL_SHA_GROUP(14, e0, e1);
    CORVEL_SHA_GROUP(15, e1, e0);
    CORVEL_SHA_GROUP(16, e0, e1);
    CORVEL_SHA_GROUP(17, e1, e0);
    CORVEL_SHA_GROUP(18, e0, e1);
    CORVEL_SHA_GROUP(19, e1, e0);
    e0 = _mm_sha1nexte_epu32(e0, e_start);
    abcd = _mm_add_epi32(abcd, abcd_start);
  }
  _mm_storeu_si128(reinterpret_cast<__m128i *>(h), _mm_shuffle_epi32(abcd, 0x1B));
  h[4] = static_cast<uint32_t>(_mm_extract_epi32(e0, 3));
}

#undef CORVEL_SHA_GROUP

bool HaveSha() {
  static const bool have = [] {
    __builtin_cpu_init();  // may run before the library's constructors
    // Not every compiler knows "sha" as a feature name: the processor says it in leaf 7.
    unsigned int a, b, c, d;
    const bool sha = __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b & (1u << 29)) != 0;
    return sha && __builtin_cpu_supports("avx");
  }();
  return have && !PortableChecksumsForced();
}

// Compresses whole blocks and counts them.
void Blocks(Zq_sha_ctx *ctx, const unsigned char *p, size_t blocks) {
  if (blocks == 0) return;
  if (HaveSha()) {
    BlocksSha(ctx->digest, p, blocks);
  } else {
    BlocksPortable(ctx->digest, p, blocks);
  }
  uint64_t count = ((uint64_t)ctx->count_hi << 32 | ctx->count_lo) + blocks;
  ctx->count_lo = static_cast<uint32_t>(count);
  ctx->count_hi = static_cast<uint32_t>(count >> 32);
}

}  // namespace
}  // namespace codec
}  // namespace corvel

void sha_init(Zq_sha_ctx *ctx) {
  ctx->digest[0] = 0x67452301;
  ctx->digest[1] = 0xEFCDAB89;
  ctx->digest[2] = 0x98BADCFE;
  ctx->digest[3] = 0x10325476;
  ctx->digest[4] = 0xC3D2E1F0;
  ctx->count_lo = ctx->count_hi = 0;
  ctx->local = 0;
}

void sha_transform(Zq_sha_ctx *ctx) { corvel::codec::BlocksPortable(ctx->digest, ctx->data, 1); }

void sha_block(Zq_sha_ctx *ctx, const void *block) {
  corvel::codec::Blocks(ctx, static_cast<const unsigned char *>(block), 1);
}

void sha_update(Zq_sha_ctx *ctx, const void *bytes, size_t n) {
  auto *p = static_cast<const unsigned char *>(bytes);
  if (ctx->local > 0) {
    if (n == 0) return;
    size_t take = static_cast<size_t>(64 - ctx->local) < n ? 64 - ctx->local : n;
    memcpy(ctx->data + ctx->local, p, take);
    ctx->local += static_cast<int>(take);
    p += take, n -= take;
    if (ctx->local < 64) return;
    corvel::codec::Blocks(ctx, ctx->data, 1);
    ctx->local = 0;
  }
  corvel::codec::Blocks(ctx, p, n / 64);
  ctx->local = static_cast<int>(n % 64);
  if (n % 64) memcpy(ctx->data, p + n / 64 * 64, n % 64);
}

void sha_final(Zq_sha_ctx *ctx) {
  uint64_t bits = ((((uint64_t)ctx->count_hi << 32) | ctx->count_lo) * 64 + ctx->local) * 8;
  unsigned char pad[72] = {0x80};
  size_t padding = (ctx->local < 56 ? 56 : 120) - ctx->local;
  bits = __builtin_bswap64(bits);
  memcpy(pad + padding, &bits, 8);
  sha_update(ctx, pad, padding + 8);
}

void sha_digest(const Zq_sha_ctx *ctx, unsigned char out[20]) {
  for (int i = 0; i < 5; i++) {
    uint32_t v = __builtin_bswap32(ctx->digest[i]);
    memcpy(out + 4 * i, &v, 4);
  }
}

void sha_copy(Zq_sha_ctx *to, const Zq_sha_ctx *from) { *to = *from; }
