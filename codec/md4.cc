// MD4 digests fed by blocks of bits: whole 512-bit blocks, then one shorter last block.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "corvel/checksum.h"
#include "corvel/elog.h"

namespace corvel {
namespace codec {
namespace {

uint32_t Rotl(uint32_t x, int c) { return (x << c) | (x >> (32 - c)); }

#define CORVEL_F(x, y, z) ((z) ^ ((x) & ((y) ^ (z))))
#define CORVEL_G(x, y, z) (((x) & (y)) | ((z) & ((x) | (y))))
#define CORVEL_H(x, y, z) ((x) ^ (y) ^ (z))
#define CORVEL_R1(a, b, c, d, k, s) a = Rotl(a + CORVEL_F(b, c, d) + x[k], s)
#define CORVEL_R2(a, b, c, d, k, s) a = Rotl(a + CORVEL_G(b, c, d) + x[k] + 0x5A827999u, s)
#define CORVEL_R3(a, b, c, d, k, s) a = Rotl(a + CORVEL_H(b, c, d) + x[k] + 0x6ED9EBA1u, s)

void Block(uint32_t state[4], const unsigned char *p) {
  uint32_t x[16];
  memcpy(x, p, 64);  // words are little-endian, as the host's
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (int i = 0; i < 16; i += 4) {
    CORVEL_R1(a, b, c, d, i, 3);
    CORVEL_R1(d, a, b, c, i + 1, 7);
    CORVEL_R1(c, d, a, b, i + 2, 11);
    CORVEL_R1(b, c, d, a, i + 3, 19);
  }
  for (int i = 0; i < 4; i++) {
    CORVEL_R2(a, b, c, d, i, 3);
    CORVEL_R2(d, a, b, c, i + 4, 5);
    CORVEL_R2(c, d, a, b, i + 8, 9);
    CORVEL_R2(b, c, d, a, i + 12, 13);
  }
  static const int kOrder[4] = {0, 2, 1, 3};
  for (int i : kOrder) {
    CORVEL_R3(a, b, c, d, i, 3);
    CORVEL_R3(d, a, b, c, i + 8, 9);
    CORVEL_R3(c, d, a, b, i + 4, 11);
    CORVEL_R3(b, c, d, a, i + 12, 15);
  }
  state[0] += a, state[1] += b, state[2] += c, state[3] += d;
}

#undef CORVEL_F
#undef CORVEL_G
#undef CORVEL_H
#undef CORVEL_R1
#undef CORVEL_R2
#undef CORVEL_R3

}  // namespace
}  // namespace codec
}  // namespace corvel

void zq_mdbegin(Zq_md4_ctx *md) {
  md->buffer[0] = 0x67452301;
  md->buffer[1] = 0xEFCDAB89;
  md->buffer[2] = 0x98BADCFE;
  md->buffer[3] = 0x10325476;
  md->count = 0;
  md->done = 0;
}

void MDblock(Zq_md4_ctx *md, const void *block) {
  corvel::codec::Block(md->buffer, static_cast<const unsigned char *>(block));
}

void zq_mdupdate(Zq_md4_ctx *md, const void *bytes, unsigned int nbits) {
  if (nbits == 0 && md->done) return;
  if (md->done) elog_die(0, "\nError: MDupdate MD already done.");
  if (nbits > 512) {
    elog_die(0, "\nError: MDupdate called with illegal count value %d.", static_cast<int>(nbits));
  }
  md->count += nbits;
  if (nbits == 512) return MDblock(md, bytes);
  // The last block: its bits, a 1 bit, zeros, and the 64-bit bit count low byte first, over
  // one block or two.
  unsigned char last[128] = {0};
  const unsigned full = nbits / 8, extra = nbits % 8;
  memcpy(last, bytes, full + (extra ? 1 : 0));
  const unsigned char one = static_cast<unsigned char>(0x80 >> extra);
  last[full] = static_cast<unsigned char>((last[full] & -one) | one);  // bits after the 1 clear
  const size_t length = full < 56 ? 64 : 128;
  for (int i = 0; i < 8; i++)
    last[length - 8 + i] = static_cast<unsigned char>(md->count >> (8 * i));
  MDblock(md, last);
  if (length == 128) MDblock(md, last + 64);
  md->done = 1;
}
