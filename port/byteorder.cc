// Byte-order converters: host values to their big-endian wire form and back.
//
// On this little-endian platform both directions reverse the bytes of each element. Long
// arrays go through 32-byte AVX2 byte shuffles when the processor has them (checked once, at
// run time, so that the library still runs on older processors); the rest, and every array on
// processors without AVX2, goes through a portable loop. Loads and stores are unaligned
// throughout, so neither side needs any alignment.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <atomic>

#include "corvel/port.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the converters reverse bytes");

namespace corvel {
namespace port {

// Set by the tests to check the portable loop on processors that have AVX2.
std::atomic<bool> g_force_portable_byte_order{false};
void ForcePortableByteOrder(bool force) { g_force_portable_byte_order = force; }

namespace {

// Below this many bytes the shuffles do not pay for the dispatch.
constexpr size_t kVectorMinimum = 32;

template <typename T>
void SwapEach(unsigned char *dst, const unsigned char *src, size_t n, T (*swap)(T)) {
  for (size_t i = 0; i < n; i++) {
    T v;
    memcpy(&v, src + i * sizeof(T), sizeof(T));
    v = swap(v);
    memcpy(dst + i * sizeof(T), &v, sizeof(T));
  }
}

uint16_t Swap16(uint16_t v) { return __builtin_bswap16(v); }
uint32_t Swap32(uint32_t v) { return __builtin_bswap32(v); }
uint64_t Swap64(uint64_t v) { return __builtin_bswap64(v); }

void SwapPortable(unsigned char *dst, const unsigned char *src, size_t n, int width) {
  switch (width) {
    case 2:
      return SwapEach(dst, src, n, Swap16);
    case 4:
      return SwapEach(dst, src, n, Swap32);
    default:
      return SwapEach(dst, src, n, Swap64);
  }
}

// Shuffle controls reversing each 2-, 4- or 8-byte group of a 16-byte lane.
alignas(32) const uint8_t kReverse2[32] = {1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14,
                                           1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14};
alignas(32) const uint8_t kReverse4[32] = {3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12,
                                           3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12};
alignas(32) const uint8_t kReverse8[32] = {7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8,
                                           7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8};

// Reverses whole 32-byte blocks of the bytes; returns how many bytes it did (a multiple of 32,
// hence of every width). Each block is loaded before it is stored, so dst may equal src.
__attribute__((target("avx2"))) size_t SwapAvx2(unsigned char *dst, const unsigned char *src,
                                                size_t bytes, int width) {
  const uint8_t *control = width == 2 ? kReverse2 : width == 4 ? kReverse4 : kReverse8;
  const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i *>(control));
  size_t i = 0;
  for (; i + 128 <= bytes; i += 128) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i));
    __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i + 32));
    __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i + 64));
    __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i + 96));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i), _mm256_shuffle_epi8(a, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i + 32), _mm256_shuffle_epi8(b, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i + 64), _mm256_shuffle_epi8(c, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i + 96), _mm256_shuffle_epi8(d, mask));
  }
  for (; i + 32 <= bytes; i += 32) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i), _mm256_shuffle_epi8(a, mask));
  }
  return i;
}

bool HaveAvx2() {
  static const bool have = [] {
    __builtin_cpu_init();  // may run before the library's constructors
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return have;
}

// Reverses the bytes of each of the n width-byte elements from src into dst.
void Swap(void *dst_bytes, const void *src_bytes, long n, int width) {
  if (n <= 0) return;
  auto *dst = static_cast<unsigned char *>(dst_bytes);
  auto *src = static_cast<const unsigned char *>(src_bytes);
  const size_t bytes = static_cast<size_t>(n) * width;
  size_t done = 0;
  if (bytes >= kVectorMinimum && HaveAvx2() &&
      !g_force_portable_byte_order.load(std::memory_order_relaxed)) {
    done = SwapAvx2(dst, src, bytes, width);
  }
  SwapPortable(dst + done, src + done, (bytes - done) / width, width);
}

void ToWire(char **wire, const void *host, long n, int width) {
  if (n <= 0) return;
  Swap(*wire, host, n, width);
  *wire += n * width;
}

void FromWire(char **wire, void *host, long n, int width) {
  if (n <= 0) return;
  Swap(host, *wire, n, width);
  *wire += n * width;
}

}  // namespace
}  // namespace port
}  // namespace corvel

using corvel::port::FromWire;
using corvel::port::ToWire;

void hs2ms(char **wire, const void *host, long n) { ToWire(wire, host, n, 2); }
void ms2hs(char **wire, void *host, long n) { FromWire(wire, host, n, 2); }
void hi2mi(char **wire, const void *host, long n) { ToWire(wire, host, n, 4); }
void mi2hi(char **wire, void *host, long n) { FromWire(wire, host, n, 4); }
void uhi2mi(char **wire, const void *host, long n) { ToWire(wire, host, n, 4); }
void umi2hi(char **wire, void *host, long n) { FromWire(wire, host, n, 4); }
void hl2ml(char **wire, const void *host, long n) { ToWire(wire, host, n, 8); }
void ml2hl(char **wire, void *host, long n) { FromWire(wire, host, n, 8); }
void hf2mf(char **wire, const void *host, long n) { ToWire(wire, host, n, 4); }
void mf2hf(char **wire, void *host, long n) { FromWire(wire, host, n, 4); }
void hd2md(char **wire, const void *host, long n) { ToWire(wire, host, n, 8); }
void md2hd(char **wire, void *host, long n) { FromWire(wire, host, n, 8); }
void H2N4(char **wire, const void *host, long n) { ToWire(wire, host, n, 4); }
void N2H4(char **wire, void *host, long n) { FromWire(wire, host, n, 4); }
