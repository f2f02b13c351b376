// Cyclic redundancy checks and sums: CRC-16, CRC-32, CRC-64, the data loggers' CRC and sum,
// and Adler-32.
//
// Every CRC goes through tables built at compile time and read eight bytes at a time (each
// byte of a group has its own table, so the eight lookups do not wait on each other). Long
// buffers of CRC-32 and CRC-64 go through carry-less multiplication when the processor has it,
// checked once at run time: four 16-byte lanes are folded forward 64 bytes at a time and the
// last lane is finished by the tables. Adler-32 uses AVX2 sums of 32 bytes the same way.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <atomic>

#include "corvel/checksum.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the word loads are little-endian");

namespace corvel {
namespace codec {

// Set by the tests to check the portable loops on processors that have the instructions.
std::atomic<bool> g_force_portable_checksums{false};
void ForcePortableChecksums(bool force) { g_force_portable_checksums = force; }
bool PortableChecksumsForced() {
  return g_force_portable_checksums.load(std::memory_order_relaxed);
}
// Set by the tests to check the narrower folds on processors that have the wider ones.
std::atomic<int> g_crc_vector_bits{512};
void LimitCrcVectorBits(int bits) { g_crc_vector_bits = bits; }

namespace {

// Below this many bytes the multiplications do not pay for their set-up.
constexpr size_t kFoldMinimum = 128;
constexpr size_t kWideMinimum = 512;
constexpr size_t kWide512Minimum = 1024;

template <typename T>
struct Tables {
  T t[8][256];
};

// Tables for a CRC taken least significant bit first: t[k][b] is byte b followed by k zeros.
template <typename T>
constexpr Tables<T> ReflectedTables(T poly) {
  Tables<T> s{};
  for (int b = 0; b < 256; b++) {
    T c = static_cast<T>(b);
    for (int i = 0; i < 8; i++) c = (c & 1) ? static_cast<T>((c >> 1) ^ poly) : (c >> 1);
    s.t[0][b] = c;
  }
  for (int k = 1; k < 8; k++) {
    for (int b = 0; b < 256; b++) {
      T c = s.t[k - 1][b];
      s.t[k][b] = static_cast<T>((c >> 8) ^ s.t[0][c & 0xFF]);
    }
  }
  return s;
}

// Tables for a 32-bit CRC taken most significant bit first.
constexpr Tables<uint32_t> ForwardTables(uint32_t poly) {
  Tables<uint32_t> s{};
  for (uint32_t b = 0; b < 256; b++) {
    uint32_t c = b << 24;
    for (int i = 0; i < 8; i++) c = (c & 0x80000000u) ? (c << 1) ^ poly : c << 1;
    s.t[0][b] = c;
  }
  for (int k = 1; k < 8; k++) {
    for (int b = 0; b < 256; b++) {
      uint32_t c = s.t[k - 1][b];
      s.t[k][b] = (c << 8) ^ s.t[0][c >> 24];
    }
  }
  return s;
}

constexpr Tables<uint16_t> kCrc16 = ReflectedTables<uint16_t>(0xA001);
constexpr Tables<uint32_t> kCrc32 = ForwardTables(0x04C11DB7);
constexpr Tables<uint32_t> kQt = ForwardTables(0x56070368);
constexpr Tables<uint64_t> kCrc64 = ReflectedTables<uint64_t>(0xD800000000000000ull);
static_assert(kCrc16.t[0][1] == 0xC0C1, "CRC-16 table");
static_assert(kQt.t[0][1] == 0x56070368, "data-logger CRC table");

uint64_t Load64(const unsigned char *p) {
  uint64_t v;
  memcpy(&v, p, 8);
  return v;
}

template <typename T>
T ReflectedCrc(const Tables<T> &s, T crc, const unsigned char *p, size_t n) {
  for (; n >= 8; n -= 8, p += 8) {
    uint64_t v = Load64(p) ^ crc;  // the CRC lines up with the group's first bytes
    crc = s.t[7][v & 0xFF] ^ s.t[6][(v >> 8) & 0xFF] ^ s.t[5][(v >> 16) & 0xFF] ^
          s.t[4][(v >> 24) & 0xFF] ^ s.t[3][(v >> 32) & 0xFF] ^ s.t[2][(v >> 40) & 0xFF] ^
          s.t[1][(v >> 48) & 0xFF] ^ s.t[0][v >> 56];
  }
  for (; n > 0; n--, p++) crc = static_cast<T>((crc >> 8) ^ s.t[0][(crc ^ *p) & 0xFF]);
  return crc;
}

uint32_t ForwardCrc(const Tables<uint32_t> &s, uint32_t crc, const unsigned char *p, size_t n) {
  for (; n >= 8; n -= 8, p += 8) {
    uint32_t hi;
    memcpy(&hi, p, 4);
    hi = __builtin_bswap32(hi) ^ crc;
    crc = s.t[7][hi >> 24] ^ s.t[6][(hi >> 16) & 0xFF] ^ s.t[5][(hi >> 8) & 0xFF] ^
          s.t[4][hi & 0xFF] ^ s.t[3][p[4]] ^ s.t[2][p[5]] ^ s.t[1][p[6]] ^ s.t[0][p[7]];
  }
  for (; n > 0; n--, p++) crc = (crc << 8) ^ s.t[0][*p ^ (crc >> 24)];
  return crc;
}

// x^e modulo the CRC-32 polynomial, most significant bit first.
constexpr uint64_t XPow32(int e) {
  uint64_t r = 1;
  for (int i = 0; i < e; i++) {
    r <<= 1;
    if (r & (1ull << 32)) r ^= 0x104C11DB7ull;
  }
  return r;
}

// x^e modulo the CRC-64 polynomial, in the reflected form the CRC-64 lanes hold.
constexpr uint64_t XPow64Reflected(int e) {
  uint64_t r = 1;
  for (int i = 0; i < e; i++) r = (r << 1) ^ ((r >> 63) ? 0x1Bull : 0);
  uint64_t f = 0;
  for (int i = 0; i < 64; i++) f |= ((r >> i) & 1) << (63 - i);
  return f;
}

bool HavePclmul() {
  static const bool have = [] {
    __builtin_cpu_init();  // may run before the library's constructors
    return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
  }();
  return have && !PortableChecksumsForced() && g_crc_vector_bits >= 128;
}

bool HaveWideClmul() {
  static const bool have = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("avx2") &&
           __builtin_cpu_supports("pclmul");
  }();
  return have && !PortableChecksumsForced() && g_crc_vector_bits >= 256;
}

bool HaveWide512Clmul() {
  static const bool have = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("avx512f") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("pclmul");
  }();
  return have && !PortableChecksumsForced() && g_crc_vector_bits >= 512;
}

bool HaveAvx2() {
  static const bool have = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return have && !PortableChecksumsForced();
}

// A lane x moved d bits forward: each 64-bit half times its power of x, in k.
#define CORVEL_FOLD(x, k) \
  _mm_xor_si128(_mm_clmulepi64_si128((x), (k), 0x00), _mm_clmulepi64_si128((x), (k), 0x11))

// Folds whole 16-byte lanes of a most-significant-bit-first CRC-32; returns the bytes taken
// (a multiple of 16, n >= 64) and leaves in crc the CRC of those bytes.
__attribute__((target("pclmul,sse4.1"))) size_t FoldForward32(uint32_t *crc, const unsigned char *p,
                                                              size_t n) {
  // Bytes reversed, so that the first message bit is the lane's top bit, the polynomial's
  // highest power: the products then come out in the lanes' own order.
  const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  // Low half times x^d, high half times x^(d+64).
  const __m128i k512 = _mm_set_epi64x(XPow32(512 + 64), XPow32(512));
  const __m128i k128 = _mm_set_epi64x(XPow32(128 + 64), XPow32(128));
#define CORVEL_LOAD(at) \
  _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + (at))), reverse)
  __m128i x0 = CORVEL_LOAD(0), x1 = CORVEL_LOAD(16), x2 = CORVEL_LOAD(32), x3 = CORVEL_LOAD(48);
  // The start value is the same as its bits XORed into the first 32 message bits.
  x0 = _mm_xor_si128(x0, _mm_set_epi32(static_cast<int>(*crc), 0, 0, 0));
  size_t i = 64;
  for (; i + 64 <= n; i += 64) {
    x0 = _mm_xor_si128(CORVEL_FOLD(x0, k512), CORVEL_LOAD(i));
    x1 = _mm_xor_si128(CORVEL_FOLD(x1, k512), CORVEL_LOAD(i + 16));
    x2 = _mm_xor_si128(CORVEL_FOLD(x2, k512), CORVEL_LOAD(i + 32));
    x3 = _mm_xor_si128(CORVEL_FOLD(x3, k512), CORVEL_LOAD(i + 48));
  }
  x1 = _mm_xor_si128(CORVEL_FOLD(x0, k128), x1);
  x2 = _mm_xor_si128(CORVEL_FOLD(x1, k128), x2);
  x3 = _mm_xor_si128(CORVEL_FOLD(x2, k128), x3);
  for (; i + 16 <= n; i += 16) x3 = _mm_xor_si128(CORVEL_FOLD(x3, k128), CORVEL_LOAD(i));
  // The lane now has the CRC of everything taken: finish it as 16 bytes from 0.
  unsigned char last[16];
  _mm_storeu_si128(reinterpret_cast<__m128i *>(last), _mm_shuffle_epi8(x3, reverse));
#undef CORVEL_LOAD
  *crc = ForwardCrc(kCrc32, 0, last, 16);
  return i;
}

// As FoldForward32 for the reflected CRC-64. Lanes are loaded as they are, the first message
// bit lowest; a product of two reflected 64-bit halves comes out one place short of the
// 128-bit order, so the powers are taken one lower, x^(d-1) and x^(d+63).
__attribute__((target("pclmul,sse4.1"))) size_t FoldReflected64(uint64_t *crc,
                                                                const unsigned char *p, size_t n) {
  const __m128i k512 = _mm_set_epi64x(XPow64Reflected(512 - 1), XPow64Reflected(512 + 63));
  const __m128i k128 = _mm_set_epi64x(XPow64Reflected(128 - 1), XPow64Reflected(128 + 63));
#define CORVEL_LOAD(at) _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + (at)))
  __m128i x0 = CORVEL_LOAD(0), x1 = CORVEL_LOAD(16), x2 = CORVEL_LOAD(32), x3 = CORVEL_LOAD(48);
  x0 = _mm_xor_si128(x0, _mm_set_epi64x(0, static_cast<long long>(*crc)));
  size_t i = 64;
  for (; i + 64 <= n; i += 64) {
    x0 = _mm_xor_si128(CORVEL_FOLD(x0, k512), CORVEL_LOAD(i));
    x1 = _mm_xor_si128(CORVEL_FOLD(x1, k512), CORVEL_LOAD(i + 16));
    x2 = _mm_xor_si128(CORVEL_FOLD(x2, k512), CORVEL_LOAD(i + 32));
    x3 = _mm_xor_si128(CORVEL_FOLD(x3, k512), CORVEL_LOAD(i + 48));
  }
  x1 = _mm_xor_si128(CORVEL_FOLD(x0, k128), x1);
  x2 = _mm_xor_si128(CORVEL_FOLD(x1, k128), x2);
  x3 = _mm_xor_si128(CORVEL_FOLD(x2, k128), x3);
  for (; i + 16 <= n; i += 16) x3 = _mm_xor_si128(CORVEL_FOLD(x3, k128), CORVEL_LOAD(i));
  unsigned char last[16];
  _mm_storeu_si128(reinterpret_cast<__m128i *>(last), x3);
#undef CORVEL_LOAD
  *crc = ReflectedCrc<uint64_t>(kCrc64, 0, last, 16);
  return i;
}

// The powers that move a lane d bits forward, in the order the lanes hold their halves.
template <bool kForward>
__attribute__((target("pclmul,sse4.1"))) __m128i Power(int d) {
  return kForward ? _mm_set_epi64x(XPow32(d + 64), XPow32(d))
                  : _mm_set_epi64x(XPow64Reflected(d - 1), XPow64Reflected(d + 63));
}

// Folds the rest of a buffer into one 16-byte lane x, 16 bytes at a time from p + i, and
// finishes the lane by the tables. Returns the bytes taken.
template <bool kForward>
__attribute__((target("pclmul,sse4.1,ssse3"))) size_t FinishLane(__m128i x, uint64_t *crc,
                                                                 const unsigned char *p, size_t i,
                                                                 size_t n) {
  const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const __m128i k128 = Power<kForward>(128);
  for (; i + 16 <= n; i += 16) {
    __m128i m = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i));
    x = _mm_xor_si128(CORVEL_FOLD(x, k128), kForward ? _mm_shuffle_epi8(m, reverse) : m);
  }
  unsigned char last[16];
  _mm_storeu_si128(reinterpret_cast<__m128i *>(last), kForward ? _mm_shuffle_epi8(x, reverse) : x);
  *crc = kForward ? ForwardCrc(kCrc32, 0, last, 16) : ReflectedCrc<uint64_t>(kCrc64, 0, last, 16);
  return i;
}

// The same folds over 32-byte lanes, two 16-byte lanes each, where the processor multiplies
// 256-bit registers: four of them move 128 bytes forward at a time. The two halves of the last
// register are folded into one, and the 16-byte loop finishes.
#define CORVEL_FOLD256(x, k)                                 \
  _mm256_xor_si256(_mm256_clmulepi64_epi128((x), (k), 0x00), \
                   _mm256_clmulepi64_epi128((x), (k), 0x11))

template <bool kForward>
__attribute__((target("vpclmulqdq,pclmul,avx2"))) size_t FoldWide(uint64_t *crc,
                                                                  const unsigned char *p,
                                                                  size_t n) {
  const __m256i reverse = _mm256_broadcastsi128_si256(
      _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  const __m256i k1024 = _mm256_broadcastsi128_si256(Power<kForward>(1024));
  const __m256i k256 = _mm256_broadcastsi128_si256(Power<kForward>(256));
#define CORVEL_LOAD(at)                                                                            \
  (kForward ? _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + (at))), \
                                  reverse)                                                         \
            : _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + (at))))
  __m256i y0 = CORVEL_LOAD(0), y1 = CORVEL_LOAD(32), y2 = CORVEL_LOAD(64), y3 = CORVEL_LOAD(96);
  y0 = _mm256_xor_si256(y0, kForward ? _mm256_set_epi32(0, 0, 0, 0, static_cast<int>(*crc), 0, 0, 0)
                                     : _mm256_set_epi64x(0, 0, 0, static_cast<long long>(*crc)));
  size_t i = 128;
  for (; i + 128 <= n; i += 128) {
    y0 = _mm256_xor_si256(CORVEL_FOLD256(y0, k1024), CORVEL_LOAD(i));
    y1 = _mm256_xor_si256(CORVEL_FOLD256(y1, k1024), CORVEL_LOAD(i + 32));
    y2 = _mm256_xor_si256(CORVEL_FOLD256(y2, k1024), CORVEL_LOAD(i + 64));
    y3 = _mm256_xor_si256(CORVEL_FOLD256(y3, k1024), CORVEL_LOAD(i + 96));
  }
#undef CORVEL_LOAD
  y1 = _mm256_xor_si256(CORVEL_FOLD256(y0, k256), y1);
  y2 = _mm256_xor_si256(CORVEL_FOLD256(y1, k256), y2);
  y3 = _mm256_xor_si256(CORVEL_FOLD256(y2, k256), y3);
  __m128i x = _mm_xor_si128(CORVEL_FOLD(_mm256_castsi256_si128(y3), Power<kForward>(128)),
                            _mm256_extracti128_si256(y3, 1));
  return FinishLane<kForward>(x, crc, p, i, n);
}

// And over 64-byte lanes, four 16-byte lanes each, where the processor multiplies 512-bit
// registers: four of them move 256 bytes forward at a time.
#define CORVEL_FOLD512(x, k)                                 \
  _mm512_xor_si512(_mm512_clmulepi64_epi128((x), (k), 0x00), \
                   _mm512_clmulepi64_epi128((x), (k), 0x11))

template <bool kForward>
__attribute__((target("vpclmulqdq,pclmul,avx512f,avx512bw,avx512vl,avx2"))) size_t FoldWide512(
    uint64_t *crc, const unsigned char *p, size_t n) {
  const __m512i reverse = _mm512_maskz_broadcast_i32x4(
      0xFFFF, _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  const __m512i k2048 = _mm512_maskz_broadcast_i32x4(0xFFFF, Power<kForward>(2048));
  const __m512i k512 = _mm512_maskz_broadcast_i32x4(0xFFFF, Power<kForward>(512));
#define CORVEL_LOAD(at)                                                  \
  (kForward ? _mm512_shuffle_epi8(_mm512_loadu_si512(p + (at)), reverse) \
            : _mm512_loadu_si512(p + (at)))
  __m512i z0 = CORVEL_LOAD(0), z1 = CORVEL_LOAD(64), z2 = CORVEL_LOAD(128), z3 = CORVEL_LOAD(192);
  z0 = _mm512_xor_si512(
      z0, kForward ? _mm512_set_epi32(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<int>(*crc), 0,
                                      0, 0)
                   : _mm512_set_epi64(0, 0, 0, 0, 0, 0, 0, static_cast<long long>(*crc)));
  size_t i = 256;
  for (; i + 256 <= n; i += 256) {
    z0 = _mm512_xor_si512(CORVEL_FOLD512(z0, k2048), CORVEL_LOAD(i));
    z1 = _mm512_xor_si512(CORVEL_FOLD512(z1, k2048), CORVEL_LOAD(i + 64));
    z2 = _mm512_xor_si512(CORVEL_FOLD512(z2, k2048), CORVEL_LOAD(i + 128));
    z3 = _mm512_xor_si512(CORVEL_FOLD512(z3, k2048), CORVEL_LOAD(i + 192));
  }
#undef CORVEL_LOAD
  z1 = _mm512_xor_si512(CORVEL_FOLD512(z0, k512), z1);
  z2 = _mm512_xor_si512(CORVEL_FOLD512(z1, k512), z2);
  z3 = _mm512_xor_si512(CORVEL_FOLD512(z2, k512), z3);
  // The four lanes of the last register, 48, 32 and 16 bytes short of its end.
  __m128i x = _mm_xor_si128(
      _mm_xor_si128(CORVEL_FOLD(_mm512_maskz_extracti32x4_epi32(0xF, z3, 0), Power<kForward>(384)),
                    CORVEL_FOLD(_mm512_maskz_extracti32x4_epi32(0xF, z3, 1), Power<kForward>(256))),
      _mm_xor_si128(CORVEL_FOLD(_mm512_maskz_extracti32x4_epi32(0xF, z3, 2), Power<kForward>(128)),
                    _mm512_maskz_extracti32x4_epi32(0xF, z3, 3)));
  return FinishLane<kForward>(x, crc, p, i, n);
}

#undef CORVEL_FOLD512
#undef CORVEL_FOLD256
#undef CORVEL_FOLD

// Adler-32 sums are reduced at least every this many bytes, the most that cannot overflow 32
// bits from reduced sums.
constexpr size_t kAdlerMax = 5552;
constexpr uint32_t kAdlerBase = 65521;

void AdlerPortable(uint32_t *a, uint32_t *b, const unsigned char *p, size_t n) {
  uint32_t s1 = *a, s2 = *b;
  while (n > 0) {
    size_t run = n < kAdlerMax ? n : kAdlerMax;
    n -= run;
    for (; run >= 8; run -= 8, p += 8) {
      s1 += p[0], s2 += s1, s1 += p[1], s2 += s1, s1 += p[2], s2 += s1, s1 += p[3], s2 += s1;
      s1 += p[4], s2 += s1, s1 += p[5], s2 += s1, s1 += p[6], s2 += s1, s1 += p[7], s2 += s1;
    }
    for (; run > 0; run--) s1 += *p++, s2 += s1;
    s1 %= kAdlerBase;
    s2 %= kAdlerBase;
  }
  *a = s1, *b = s2;
}

// Whole 32-byte groups: per group, s2 gains 32 times s1 so far plus the bytes weighted 32 down
// to 1, and s1 gains the bytes. Returns the bytes taken.
__attribute__((target("avx2"))) size_t AdlerAvx2(uint32_t *a, uint32_t *b, const unsigned char *p,
                                                 size_t n) {
  const __m256i weights =
      _mm256_set_epi8(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22,
                      23, 24, 25, 26, 27, 28, 29, 30, 31, 32);
  const __m256i ones = _mm256_set1_epi16(1);
  const __m256i zero = _mm256_setzero_si256();
  uint32_t s1 = *a, s2 = *b;
  size_t done = 0;
  while (n - done >= 32) {
    size_t groups = (n - done) / 32;
    if (groups > kAdlerMax / 32) groups = kAdlerMax / 32;
    __m256i v1 = zero, v2 = zero, vp = zero;
    for (size_t g = 0; g < groups; g++, done += 32) {
      __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + done));
      vp = _mm256_add_epi32(vp, v1);
      v1 = _mm256_add_epi32(v1, _mm256_sad_epu8(d, zero));
      v2 = _mm256_add_epi32(v2, _mm256_madd_epi16(_mm256_maddubs_epi16(d, weights), ones));
    }
    alignas(32) uint32_t l1[8], l2[8], lp[8];
    _mm256_store_si256(reinterpret_cast<__m256i *>(l1), v1);
    _mm256_store_si256(reinterpret_cast<__m256i *>(l2), v2);
    _mm256_store_si256(reinterpret_cast<__m256i *>(lp), vp);
    uint64_t t1 = 0, t2 = 0, tp = 0;
    for (int i = 0; i < 8; i++) t1 += l1[i], t2 += l2[i], tp += lp[i];
    uint64_t bytes = groups * 32;
    uint64_t b2 = s2 + s1 * bytes + 32 * tp + t2;
    s1 = static_cast<uint32_t>((s1 + t1) % kAdlerBase);
    s2 = static_cast<uint32_t>(b2 % kAdlerBase);
  }
  *a = s1, *b = s2;
  return done;
}

}  // namespace
}  // namespace codec
}  // namespace corvel

namespace cc = corvel::codec;

void zq_crc16(uint16_t *crc, const void *buf, size_t n) {
  *crc = cc::ReflectedCrc<uint16_t>(cc::kCrc16, *crc, static_cast<const unsigned char *>(buf), n);
}

void zq_crc32(uint32_t *crc, const void *buf, size_t n) {
  auto *p = static_cast<const unsigned char *>(buf);
  uint32_t c = *crc;
  size_t done = 0;
  if (n >= cc::kWide512Minimum && cc::HaveWide512Clmul()) {
    uint64_t wide = c;
    done = cc::FoldWide512<true>(&wide, p, n);
    c = static_cast<uint32_t>(wide);
  } else if (n >= cc::kWideMinimum && cc::HaveWideClmul()) {
    uint64_t wide = c;
    done = cc::FoldWide<true>(&wide, p, n);
    c = static_cast<uint32_t>(wide);
  } else if (n >= cc::kFoldMinimum && cc::HavePclmul()) {
    done = cc::FoldForward32(&c, p, n);
  }
  *crc = cc::ForwardCrc(cc::kCrc32, c, p + done, n - done);
}

void zq_crc64(uint64_t *crc, const void *buf, size_t n) {
  auto *p = static_cast<const unsigned char *>(buf);
  uint64_t c = 0;
  size_t done = 0;
  if (n >= cc::kWide512Minimum && cc::HaveWide512Clmul()) {
    done = cc::FoldWide512<false>(&c, p, n);
  } else if (n >= cc::kWideMinimum && cc::HaveWideClmul()) {
    done = cc::FoldWide<false>(&c, p, n);
  } else if (n >= cc::kFoldMinimum && cc::HavePclmul()) {
    done = cc::FoldReflected64(&c, p, n);
  }
  *crc = cc::ReflectedCrc<uint64_t>(cc::kCrc64, c, p + done, n - done);
}

void qtcrc(uint32_t *crc, const void *buf, size_t n) {
  *crc = cc::ForwardCrc(cc::kQt, 0, static_cast<const unsigned char *>(buf), n);
}

void qtchecksum(uint16_t *sum, const void *buf, size_t n) {
  auto *p = static_cast<const unsigned char *>(buf);
  uint32_t s = 0;  // wraps modulo 2^32, a multiple of 65536
  for (size_t i = 0; i < n; i++) s += p[i];
  *sum = static_cast<uint16_t>(s);
}

uint32_t zq_adler32(uint32_t adler, const void *buf, size_t n) {
  if (buf == nullptr) return 1;
  auto *p = static_cast<const unsigned char *>(buf);
  uint32_t a = adler & 0xFFFF, b = adler >> 16;
  // Sums handed in unreduced would overflow before the next reduction.
  a %= cc::kAdlerBase;
  b %= cc::kAdlerBase;
  size_t done = 0;
  if (n >= 64 && cc::HaveAvx2()) done = cc::AdlerAvx2(&a, &b, p, n);
  cc::AdlerPortable(&a, &b, p + done, n - done);
  return (b << 16) | a;
}
