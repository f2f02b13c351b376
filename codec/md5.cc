// MD5 digests, and their text of 32 lowercase hexadecimal digits.
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "corvel/checksum.h"

namespace corvel {
namespace codec {
namespace {

uint32_t Rotl(uint32_t x, int c) { return (x << c) | (x >> (32 - c)); }

// The rounds, written out so that every shift and constant is an immediate.
#define CORVEL_STEP(f, a, b, c, d, x, t, s) \
  a += f(b, c, d) + (x) + (t);              \
  a = Rotl(a, s) + b
// Selections written with XOR so that each needs no NOT.
#define CORVEL_F(x, y, z) ((z) ^ ((x) & ((y) ^ (z))))
#define CORVEL_G(x, y, z) ((y) ^ ((z) & ((x) ^ (y))))
#define CORVEL_H(x, y, z) ((x) ^ (y) ^ (z))
#define CORVEL_I(x, y, z) ((y) ^ ((x) | ~(z)))

void Blocks(uint32_t state[4], const unsigned char *p, size_t blocks) {
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (; blocks > 0; blocks--, p += 64) {
    uint32_t x[16];
    memcpy(x, p, 64);  // words are little-endian, as the host's
    const uint32_t a0 = a, b0 = b, c0 = c, d0 = d;
    CORVEL_STEP(CORVEL_F, a, b, c, d, x[0], 0xd76aa478, 7);
    CORVEL_STEP(CORVEL_F, d, a, b, c, x[1], 0xe8c7b756, 12);
    CORVEL_STEP(CORVEL_F, c, d, a, b, x[2], 0x242070db, 17);
    CORVEL_STEP(CORVEL_F, b, c, d, a, x[3], 0xc1bdceee, 22);
    CORVEL_STEP(CORVEL_F, a, b, c, d, x[4], 0xf57c0faf, 7);
    CORVEL_STEP(CORVEL_F, d, a, b, c, x[5], 0x4787c62a, 12);
    CORVEL_STEP(CORVEL_F, c, d, a, b, x[6], 0xa8304613, 17);
    CORVEL_STEP(CORVEL_F, b, c, d, a, x[7], 0xfd469501, 22);
    CORVEL_STEP(CORVEL_F, a, b, c, d, x[8], 0x698098d8, 7);
    CORVEL_STEP(CORVEL_F, d, a, b, c, x[9], 0x8b44f7af, 12);
    CORVEL_STEP(CORVEL_F, c, d, a, b, x[10], 0xffff5bb1, 17);
    CORVEL_STEP(CORVEL_F, b, c, d, a, x[11], 0x895cd7be, 22);
    CORVEL_STEP(CORVEL_F, a, b, c, d, x[12], 0x6b901122, 7);
    CORVEL_STEP(CORVEL_F, d, a, b, c, x[13], 0xfd987193, 12);
    CORVEL_STEP(CORVEL_F, c, d, a, b, x[14], 0xa679438e, 17);
    CORVEL_STEP(CORVEL_F, b, c, d, a, x[15], 0x49b40821, 22);

    CORVEL_STEP(CORVEL_G, a, b, c, d, x[1], 0xf61e2562, 5);
    CORVEL_STEP(CORVEL_G, d, a, b, c, x[6], 0xc040b340, 9);
    CORVEL_STEP(CORVEL_G, c, d, a, b, x[11], 0x265e5a51, 14);
    CORVEL_STEP(CORVEL_G, b, c, d, a, x[0], 0xe9b6c7aa, 20);
    CORVEL_STEP(CORVEL_G, a, b, c, d, x[5], 0xd62f105d, 5);
    CORVEL_STEP(CORVEL_G, d, a, b, c, x[10], 0x02441453, 9);
    CORVEL_STEP(CORVEL_G, c, d, a, b, x[15], 0xd8a1e681, 14);
    CORVEL_STEP(CORVEL_G, b, c, d, a, x[4], 0xe7d3fbc8, 20);
    CORVEL_STEP(CORVEL_G, a, b, c, d, x[9], 0x21e1cde6, 5);
    CORVEL_STEP(CORVEL_G, d, a, b, c, x[14], 0xc33707d6, 9);
    CORVEL_STEP(CORVEL_G, c, d, a, b, x[3], 0xf4d50d87, 14);
    CORVEL_STEP(CORVEL_G, b, c, d, a, x[8], 0x455a14ed, 20);
    CORVEL_STEP(CORVEL_G, a, b, c, d, x[13], 0xa9e3e905, 5);
    CORVEL_STEP(CORVEL_G, d, a, b, c, x[2], 0xfcefa3f8, 9);
    CORVEL_STEP(CORVEL_G, c, d, a, b, x[7], 0x676f02d9, 14);
    CORVEL_STEP(CORVEL_G, b, c, d, a, x[12], 0x8d2a4c8a, 20);

    CORVEL_STEP(CORVEL_H, a, b, c, d, x[5], 0xfffa3942, 4);
    CORVEL_STEP(CORVEL_H, d, a, b, c, x[8], 0x8771f681, 11);
    CORVEL_STEP(CORVEL_H, c, d, a, b, x[11], 0x6d9d6122, 16);
    CORVEL_STEP(CORVEL_H, b, c, d, a, x[14], 0xfde5380c, 23);
    CORVEL_STEP(CORVEL_H, a, b, c, d, x[1], 0xa4beea44, 4);
    CORVEL_STEP(CORVEL_H, d, a, b, c, x[4], 0x4bdecfa9, 11);
    CORVEL_STEP(CORVEL_H, c, d, a, b, x[7], 0xf6bb4b60, 16);
    CORVEL_STEP(CORVEL_H, b, c, d, a, x[10], 0xbebfbc70, 23);
    CORVEL_STEP(CORVEL_H, a, b, c, d, x[13], 0x289b7ec6, 4);
    CORVEL_STEP(CORVEL_H, d, a, b, c, x[0], 0xeaa127fa, 11);
    CORVEL_STEP(CORVEL_H, c, d, a, b, x[3], 0xd4ef3085, 16);
    CORVEL_STEP(CORVEL_H, b, c, d, a, x[6], 0x04881d05, 23);
    CORVEL_STEP(CORVEL_H, a, b, c, d, x[9], 0xd9d4d039, 4);
    CORVEL_STEP(CORVEL_H, d, a, b, c, x[12], 0xe6db99e5, 11);
    CORVEL_STEP(CORVEL_H, c, d, a, b, x[15], 0x1fa27cf8, 16);
    CORVEL_STEP(CORVEL_H, b, c, d, a, x[2], 0xc4ac5665, 23);

    CORVEL_STEP(CORVEL_I, a, b, c, d, x[0], 0xf4292244, 6);
    CORVEL_STEP(CORVEL_I, d, a, b, c, x[7], 0x432aff97, 10);
    CORVEL_STEP(CORVEL_I, c, d, a, b, x[14], 0xab9423a7, 15);
    CORVEL_STEP(CORVEL_I, b, c, d, a, x[5], 0xfc93a039, 21);
    CORVEL_STEP(CORVEL_I, a, b, c, d, x[12], 0x655b59c3, 6);
    CORVEL_STEP(CORVEL_I, d, a, b, c, x[3], 0x8f0ccc92, 10);
    CORVEL_STEP(CORVEL_I, c, d, a, b, x[10], 0xffeff47d, 15);
    CORVEL_STEP(CORVEL_I, b, c, d, a, x[1], 0x85845dd1, 21);
    CORVEL_STEP(CORVEL_I, a, b, c, d, x[8], 0x6fa87e4f, 6);
    CORVEL_STEP(CORVEL_I, d, a, b, c, x[15], 0xfe2ce6e0, 10);
    CORVEL_STEP(CORVEL_I, c, d, a, b, x[6], 0xa3014314, 15);
    CORVEL_STEP(CORVEL_I, b, c, d, a, x[13], 0x4e0811a1, 21);
    CORVEL_STEP(CORVEL_I, a, b, c, d, x[4], 0xf7537e82, 6);
    CORVEL_STEP(CORVEL_I, d, a, b, c, x[11], 0xbd3af235, 10);
    CORVEL_STEP(CORVEL_I, c, d, a, b, x[2], 0x2ad7d2bb, 15);
    CORVEL_STEP(CORVEL_I, b, c, d, a, x[9], 0xeb86d391, 21);
    a += a0, b += b0, c += c0, d += d0;
  }
  state[0] = a, state[1] = b, state[2] = c, state[3] = d;
}

#undef CORVEL_STEP
#undef CORVEL_F
#undef CORVEL_G
#undef CORVEL_H
#undef CORVEL_I

void Hex(char *out, const unsigned char digest[16]) {
  static const char kDigits[] = "0123456789abcdef";
  for (int i = 0; i < 16; i++) {
    out[2 * i] = kDigits[digest[i] >> 4];
    out[2 * i + 1] = kDigits[digest[i] & 0xF];
  }
  out[32] = '\0';
}

}  // namespace
}  // namespace codec
}  // namespace corvel

void zq_md5init(Zq_md5_ctx *ctx) {
  ctx->state[0] = 0x67452301;
  ctx->state[1] = 0xefcdab89;
  ctx->state[2] = 0x98badcfe;
  ctx->state[3] = 0x10325476;
  ctx->bytes = 0;
}

void zq_md5update(Zq_md5_ctx *ctx, const void *bytes, size_t n) {
  auto *p = static_cast<const unsigned char *>(bytes);
  size_t have = ctx->bytes % 64;
  ctx->bytes += n;
  if (have > 0) {
    if (n == 0) return;
    size_t take = 64 - have < n ? 64 - have : n;
    memcpy(ctx->buffer + have, p, take);
    p += take, n -= take;
    if (have + take < 64) return;
    corvel::codec::Blocks(ctx->state, ctx->buffer, 1);
  }
  corvel::codec::Blocks(ctx->state, p, n / 64);
  if (n % 64) memcpy(ctx->buffer, p + n / 64 * 64, n % 64);
}

void zq_md5final(unsigned char digest[16], Zq_md5_ctx *ctx) {
  uint64_t bits = ctx->bytes * 8;
  unsigned char pad[72] = {0x80};
  size_t have = ctx->bytes % 64;
  size_t padding = (have < 56 ? 56 : 120) - have;
  memcpy(pad + padding, &bits, 8);  // the length is little-endian, as the host's
  zq_md5update(ctx, pad, padding + 8);
  memcpy(digest, ctx->state, 16);
  memset(ctx, 0, sizeof *ctx);  // nothing of the message stays behind
}

void mdhex(char *out, const void *bytes, size_t n) {
  Zq_md5_ctx ctx;
  unsigned char digest[16];
  zq_md5init(&ctx);
  zq_md5update(&ctx, bytes, n);
  zq_md5final(digest, &ctx);
  corvel::codec::Hex(out, digest);
}

void mdhexlist(char *out, ...) {
  Zq_md5_ctx ctx;
  unsigned char digest[16];
  zq_md5init(&ctx);
  va_list ap;
  va_start(ap, out);
  while (const void *piece = va_arg(ap, const void *)) {
    int length = va_arg(ap, int);
    if (length > 0) zq_md5update(&ctx, piece, static_cast<size_t>(length));
  }
  va_end(ap);
  zq_md5final(digest, &ctx);
  corvel::codec::Hex(out, digest);
}
