// The CM6 text code of waveform samples, ended by the CHK2 checksum line.
//
// Each sample is coded by its second difference (the series is taken to start from two zeros)
// in one to seven characters of a 64-letter alphabet: the magnitude in 5-bit groups, most
// significant first, except that the first character keeps only 4 data bits, its bit 0x10
// being the sign; every character but the last has its continuation bit 0x20 set. Lines hold
// 80 characters, and a value may run across a line break.
//
// Decoding turns the text into letter indices 16 bytes at a time, then marks, 64 bytes at a
// time, the letters that end a value, so that finding a value does not wait on reading the one
// before. Each is taken whole from an 8-byte word, its groups gathered with three
// multiply-and-add steps. A value cut by a line break, and anything unusual, goes one at a time,
// down to the character reader, which applies the rules for any text.
#include <emmintrin.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/codec.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "cm6.c";

namespace corvel {
namespace codec {
namespace {

constexpr char kAlphabet[] = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr int kLineLength = 80;
constexpr char kChecksumTag[] = "\nCHK2 ";
constexpr size_t kChecksumTagLength = sizeof kChecksumTag - 1;
// The checksum is kept below this in magnitude, so it prints in at most 8 digits.
constexpr int64_t kChecksumModulus = 100000000;
constexpr size_t kChecksumDigits = 8;

// Letter indices by byte; every other byte has bit kNotLetter set, and a newline is told apart
// as kLineBreak. Built at compile time, so decoders in several threads share it without
// setting anything up.
constexpr uint8_t kNotLetter = 0x80;
constexpr uint8_t kLineBreak = 0xC0;
struct Decoding {
  uint8_t index[256];
};
constexpr Decoding MakeDecoding() {
  Decoding d{};
  for (int i = 0; i < 256; i++) d.index[i] = kNotLetter;
  for (int i = 0; i < 64; i++) d.index[static_cast<unsigned char>(kAlphabet[i])] = i;
  d.index[static_cast<unsigned char>('\n')] = kLineBreak;
  return d;
}
constexpr Decoding kDecoding = MakeDecoding();
static_assert(kDecoding.index[static_cast<unsigned char>('F')] == 17, "alphabet order");

// Reduces v modulo the checksum modulus, keeping its sign, once its magnitude reaches it.
inline int64_t ChecksumReduce(int64_t v) {
  // |v| >= M exactly when v + M - 1 falls outside [0, 2M - 2].
  if (static_cast<uint64_t>(v + kChecksumModulus - 1) > 2 * (kChecksumModulus - 1)) {
    v %= kChecksumModulus;
  }
  return v;
}

// The text length of `letters` value characters at most: their line breaks, the newline that
// ends the values, the checksum line and a terminating NUL.
size_t TextBound(size_t letters) {
  return letters + letters / kLineLength + 1 + (kChecksumTagLength - 1) + kChecksumDigits + 1 + 1;
}

// Characters that code v: (bits + 5) / 5 of them, bits being the magnitude's significant bits,
// so 16 takes 2, 512 takes 3 ... and every magnitude from 2^29 up takes 7.
inline int CodeLength(uint32_t magnitude) {
  int bits = magnitude ? 32 - __builtin_clz(magnitude) : 0;
  return (bits + 5) / 5;
}

inline uint32_t Magnitude(uint32_t v) { return (v >> 31) ? 0u - v : v; }

// Writes the characters of the 32-bit value v to out; returns how many.
inline int CodeValue(uint32_t v, char *out) {
  const uint32_t sign = (v >> 31) ? 0x10 : 0;
  const uint32_t m = Magnitude(v);
  const int n = CodeLength(m);
  int shift = 5 * (n - 1);
  out[0] = kAlphabet[((m >> shift) & 0xF) | sign | (n > 1 ? 0x20 : 0)];
  for (int k = 1; k < n; k++) {
    shift -= 5;
    out[k] = kAlphabet[((m >> shift) & 0x1F) | (k < n - 1 ? 0x20 : 0)];
  }
  return n;
}

// The second differences in coding order; all arithmetic wraps modulo 2^32.
class Differencer {
 public:
  uint32_t Next(int sample) {
    const uint32_t x = static_cast<uint32_t>(sample);
    const uint32_t d = x - 2 * x1_ + x2_;
    x2_ = x1_;
    x1_ = x;
    return d;
  }

 private:
  uint32_t x1_ = 0, x2_ = 0;
};

size_t CountLetters(const int *data, int n) {
  Differencer diff;
  size_t letters = 0;
  for (int i = 0; i < n; i++) letters += CodeLength(Magnitude(diff.Next(data[i])));
  return letters;
}

// The output size: the traditional 7 * n * (1 + 1/81) + 21 bytes, unless the series' values
// are so long that their line breaks would not fit in it.
size_t EncodedSize(const int *data, int n) {
  size_t size = static_cast<size_t>(7.0 * n * (1.0 + 1.0 / 81.0) + 21.0);
  if (size > INT_MAX) {
    // The size could not be handed back through an int.
    DieOutOfMemory("cm6", __LINE__, kSourceName, size, "*compressedp");
  }
  if (TextBound(7 * static_cast<size_t>(n)) > size) {
    const size_t exact = TextBound(CountLetters(data, n));
    if (exact > size) size = exact;
  }
  return size;
}

// Integrates decoded second differences into samples and keeps their checksum.
class Integrator {
 public:
  explicit Integrator(int *out) : out_(out) {}
  inline void Add(uint32_t v) {
    const uint32_t x = v + 2 * x1_ - x2_;
    x2_ = x1_;
    x1_ = x;
    out_[n_++] = static_cast<int>(x);
    sum_ = ChecksumReduce(sum_ + ChecksumReduce(static_cast<int32_t>(x)));
  }
  int count() const { return n_; }
  int64_t checksum() const { return sum_ < 0 ? -sum_ : sum_; }

 private:
  int *out_;
  int n_ = 0;
  uint32_t x1_ = 0, x2_ = 0;
  int64_t sum_ = 0;
};

enum class Read { kValue, kEnd, kError };

inline bool IsLineSpace(char c) { return c == '\r' || c == '\t' || c == '\n'; }

// The character reader: one value from [*pos, end). Carriage returns, tabs and newlines before
// the first character are passed over, and a blank there is an error with the value 0; within
// the value blanks are passed over too. kEnd when nothing but those separators was left; a
// value the end cuts short is an error.
Read ReadValue(const char **pos, const char *end, uint32_t *value) {
  const char *p = *pos;
  *value = 0;
  while (p < end && IsLineSpace(*p)) p++;
  if (p == end) {
    *pos = p;
    return Read::kEnd;
  }
  uint8_t t = kDecoding.index[static_cast<unsigned char>(*p++)];
  if (t & kNotLetter) {  // a blank among them
    *pos = p;
    return Read::kError;
  }
  uint32_t m = t & 0xF;
  const bool negative = t & 0x10;
  while (t & 0x20) {
    while (p < end && (IsLineSpace(*p) || *p == ' ')) p++;
    if (p == end) {
      *pos = p;
      return Read::kError;
    }
    t = kDecoding.index[static_cast<unsigned char>(*p++)];
    if (t & kNotLetter) {
      *pos = p;
      return Read::kError;
    }
    m = (m << 5) | (t & 0x1F);
  }
  *value = negative ? 0u - m : m;
  *pos = p;
  return Read::kValue;
}

// Letter indices of n bytes into out, as kDecoding gives them.
void Translate(const char *text, size_t n, uint8_t *out) {
  size_t i = 0;
  const __m128i not_letter = _mm_set1_epi8(static_cast<char>(kNotLetter));
  for (; i + 16 <= n; i += 16) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + i));
    // Signed comparisons: bytes from 0x80 up are negative and fall in no range.
    auto in = [&c](char lo, char hi) {
      return _mm_andnot_si128(_mm_cmpgt_epi8(c, _mm_set1_epi8(hi)),
                              _mm_cmpgt_epi8(c, _mm_set1_epi8(static_cast<char>(lo - 1))));
    };
    const __m128i plus = _mm_cmpeq_epi8(c, _mm_set1_epi8('+'));
    const __m128i minus = _mm_cmpeq_epi8(c, _mm_set1_epi8('-'));
    const __m128i digit = in('0', '9'), upper = in('A', 'Z'), lower = in('a', 'z');
    // What each range subtracts from its characters to get their indices.
    __m128i offset = _mm_and_si128(plus, _mm_set1_epi8('+' - 0));
    offset = _mm_or_si128(offset, _mm_and_si128(minus, _mm_set1_epi8('-' - 1)));
    offset = _mm_or_si128(offset, _mm_and_si128(digit, _mm_set1_epi8('0' - 2)));
    offset = _mm_or_si128(offset, _mm_and_si128(upper, _mm_set1_epi8('A' - 12)));
    offset = _mm_or_si128(offset, _mm_and_si128(lower, _mm_set1_epi8('a' - 38)));
    const __m128i letter =
        _mm_or_si128(_mm_or_si128(_mm_or_si128(plus, minus), digit), _mm_or_si128(upper, lower));
    const __m128i index = _mm_and_si128(_mm_sub_epi8(c, offset), letter);
    const __m128i line_break = _mm_and_si128(_mm_cmpeq_epi8(c, _mm_set1_epi8('\n')),
                                             _mm_set1_epi8(kLineBreak & ~kNotLetter));
    _mm_storeu_si128(
        reinterpret_cast<__m128i *>(out + i),
        _mm_or_si128(_mm_or_si128(index, line_break), _mm_andnot_si128(letter, not_letter)));
  }
  for (; i < n; i++) out[i] = kDecoding.index[static_cast<unsigned char>(text[i])];
}

constexpr uint64_t EveryByte(uint8_t b) { return 0x0101010101010101ull * b; }

// The value in the first idx + 1 of 8 translated letters u (the first in the low byte).
inline uint32_t Gather(uint64_t u, int idx) {
  // Groups in big-endian order, the value's last character in the low byte.
  const uint64_t g = __builtin_bswap64(u & EveryByte(0x1F)) >> (8 * (7 - idx));
  const uint64_t pairs =
      (g & 0x00FF00FF00FF00FFull) + ((g >> 8) & 0x00FF00FF00FF00FFull) * (1u << 5);
  const uint64_t quads =
      (pairs & 0x0000FFFF0000FFFFull) + ((pairs >> 16) & 0x0000FFFF0000FFFFull) * (1u << 10);
  const uint64_t all = (quads & 0xFFFFFFFFull) + (quads >> 32) * (1ull << 20);
  const int sign_bit = 5 * idx + 4;  // bit 0x10 of the first character
  const uint32_t negative = static_cast<uint32_t>(all >> sign_bit) & 1;
  const uint32_t m = static_cast<uint32_t>(all & ((1ull << sign_bit) - 1));
  return (m ^ (0u - negative)) + negative;
}

// One value from 8 translated bytes u whose first byte is a letter; false when the value is
// longer than the word or meets a byte that is not a letter, except for one line break, which
// is taken out as the character reader would pass over it.
inline bool WordValue(uint64_t u, uint32_t *value, int *length) {
  uint64_t last = ~u & EveryByte(0x20);  // bytes without the continuation bit
  if (last == 0) return false;
  // The value's bytes: all 8 when it ends in the last one.
  uint64_t within = ((last & (0 - last)) << 3) - 1;
  uint64_t foreign = u & EveryByte(kNotLetter) & within;
  int breaks = 0;
  if (foreign != 0) {
    const int at = __builtin_ctzll(foreign) >> 3;  // never 0: the first byte is a letter
    if ((foreign & (foreign - 1)) != 0 || ((u >> (8 * at)) & 0xFF) != kLineBreak) return false;
    const uint64_t before = (1ull << (8 * at)) - 1;
    // The bytes after the break move down; the emptied top byte is no letter.
    u = (u & before) | ((u >> 8) & ~before) | (uint64_t{kNotLetter} << 56);
    last = ~u & EveryByte(0x20);
    within = ((last & (0 - last)) << 3) - 1;
    if (u & EveryByte(kNotLetter) & within) return false;
    breaks = 1;
  }
  const int idx = __builtin_ctzll(last) >> 3;  // the value's last byte
  *value = Gather(u, idx);
  *length = idx + 1 + breaks;
  return true;
}

// Bits by byte of 64 translated bytes: letters that end a value, line breaks, and the other
// bytes that are not letters.
struct Window {
  uint64_t ends, breaks, foreign;
};

inline Window Classify(const uint8_t *index) {
  uint64_t high = 0, breaks = 0, more = 0;
  for (int k = 0; k < 4; k++) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(index + 16 * k));
    const auto bits = [k](__m128i x) {
      return static_cast<uint64_t>(static_cast<uint16_t>(_mm_movemask_epi8(x))) << (16 * k);
    };
    high |= bits(v);
    breaks |= bits(_mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(kLineBreak))));
    more |= bits(_mm_slli_epi16(v, 2));  // the continuation bit moved to the top
  }
  return {~(high | more), breaks, high & ~breaks};
}

// Text is translated in blocks of this many bytes; a block's last bytes are taken again at
// the start of the next unless the values ended there.
constexpr size_t kBlock = 4096;
// Values are found 64 bytes at a time while that many and the 8 of a last value's word remain.
constexpr size_t kWindow = 64 + 8;

// Decodes the values in [p, end) into *result; false when an error was met.
bool DecodeValues(const char *p, const char *end, Integrator *result) {
  // A local copy stays in registers: stores through the output cannot reach it.
  Integrator series = *result;
  bool failed = false, stop = false;
  // The first two values are taken whatever they hold: an error is only remembered.
  for (int k = 0; k < 2 && !stop; k++) {
    uint32_t v;
    const Read r = ReadValue(&p, end, &v);
    if (r == Read::kEnd) {
      stop = true;
    } else {
      failed |= r == Read::kError;
      series.Add(v);
    }
  }
  // From the third value on, a blank ends the values and the first error ends decoding.
  alignas(16) uint8_t index[kBlock];
  while (!stop && p < end) {
    const size_t left = static_cast<size_t>(end - p);
    const size_t avail = left < kBlock ? left : kBlock;
    Translate(p, avail, index);
    size_t q = 0;
    while (q < avail) {
      if (q + kWindow <= avail) {
        // Each value ends at the next ending letter; values that hold anything else (a line
        // break once a line), or run longer than a word, go one at a time below.
        const Window w = Classify(index + q);
        uint64_t ends = w.ends;
        unsigned start = 0;
        bool plain = true;
        while (ends != 0) {
          const unsigned e = __builtin_ctzll(ends);
          const uint64_t span = (~0ull >> (63 - e)) & (~0ull << start);
          if (((w.breaks | w.foreign) & span) != 0 || e - start >= 8) {
            plain = false;
            break;
          }
          uint64_t u;
          memcpy(&u, index + q + start, 8);
          series.Add(Gather(u, static_cast<int>(e - start)));
          start = e + 1;
          ends &= ends - 1;
        }
        q += start;
        if (plain && start > 0) continue;
      }
      uint32_t v;
      int length;
      if (q + 8 <= avail) {
        uint64_t u;
        memcpy(&u, index + q, 8);
        if (!(u & kNotLetter) && WordValue(u, &v, &length)) {
          series.Add(v);
          q += length;
          continue;
        }
      } else if (p + avail < end) {
        break;  // the next block starts here
      }
      const char *at = p + q;
      if (*at == '\n') {
        q++;
        continue;
      }
      const Read r = *at == ' ' ? Read::kEnd : ReadValue(&at, end, &v);
      if (r != Read::kValue) {
        failed |= r == Read::kError;
        stop = true;
        break;
      }
      series.Add(v);
      q = at - p;
    }
    p += q;
  }
  *result = series;
  return !failed;
}

// Whether line begins with one of the header tags of the exchange format.
bool IsHeaderLine(const char *line, const char *end) {
  static const char *const kTags[] = {"WID2 ", "STA2 ", "EID2 ", "BEA2 ", "DAT2"};
  for (const char *tag : kTags) {
    const size_t n = strlen(tag);
    if (static_cast<size_t>(end - line) >= n && memcmp(line, tag, n) == 0) return true;
  }
  return false;
}

// The number after the checksum tag, or -1 when there is none; values too long to be a
// checksum come out as a number no checksum equals.
int64_t ReadChecksum(const char *p, const char *end) {
  while (p < end && (*p == ' ' || *p == '\t')) p++;
  bool negative = false;
  if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
  if (p == end || *p < '0' || *p > '9') return -1;
  int64_t n = 0;
  for (; p < end && *p >= '0' && *p <= '9'; p++) {
    if (n < kChecksumModulus * 10) n = n * 10 + (*p - '0');
  }
  return negative && n != 0 ? kChecksumModulus * 100 : n;
}

}  // namespace
}  // namespace codec
}  // namespace corvel

namespace cc = corvel::codec;

int cm6(const int *data, int nsamp, char **out, int *nout, int *outsize) {
  if (nsamp < 0) nsamp = 0;
  const size_t size = cc::EncodedSize(data, nsamp);
  if (*out == nullptr || *outsize < 0 || static_cast<size_t>(*outsize) < size) {
    free(*out);
    *out = static_cast<char *>(CV_CALLOC(size, 1, "*compressedp"));
    *outsize = static_cast<int>(size);
  }
  char *p = *out;
  int column = 0;
  cc::Differencer diff;
  for (int i = 0; i < nsamp; i++) {
    const uint32_t v = diff.Next(data[i]);
    if (column + 7 < cc::kLineLength) {
      const int n = cc::CodeValue(v, p);
      p += n;
      column += n;
      continue;
    }
    char code[7];
    const int n = cc::CodeValue(v, code);
    for (int k = 0; k < n; k++) {
      *p++ = code[k];
      if (++column == cc::kLineLength) {
        *p++ = '\n';
        column = 0;
      }
    }
  }
  int sum = 0;
  gse_checksum(data, nsamp, &sum);
  p += snprintf(p, static_cast<size_t>(*out + size - p), "\nCHK2 %d\n", sum);
  *nout = static_cast<int>(p - *out);
  return 0;
}

int um6(const char *text, int nbytes, int **out, int *nsamp, int *outsize) {
  *nsamp = 0;
  if (text == nullptr || nbytes <= 0) return -1;
  const char *const end = text + nbytes;
  const char *start = text;
  while (start < end && cc::IsHeaderLine(start, end)) {
    const char *newline = static_cast<const char *>(memchr(start, '\n', end - start));
    start = newline != nullptr ? newline + 1 : end;
  }
  // The newline that ends the last header line may be the one before the checksum line.
  const char *from = start > text ? start - 1 : start;
  const char *tag =
      static_cast<const char *>(memmem(from, end - from, cc::kChecksumTag, cc::kChecksumTagLength));
  if (tag == nullptr) return -1;
  const char *values_end = tag < start ? start : tag;

  if (*out == nullptr || *outsize < nbytes) {
    free(*out);
    *out = static_cast<int *>(CV_MALLOC(static_cast<size_t>(nbytes) * sizeof(int), "*datap"));
    *outsize = nbytes;
  }
  cc::Integrator series(*out);
  const bool clean = cc::DecodeValues(start, values_end, &series);
  *nsamp = series.count();
  if (!clean) return -1;
  if (cc::ReadChecksum(tag + cc::kChecksumTagLength, end) != series.checksum()) return -1;
  return series.count();
}

void gse_checksum(const int *data, int n, int *sum) {
  int64_t s = *sum;
  for (int i = 0; i < n; i++) s = cc::ChecksumReduce(s + cc::ChecksumReduce(data[i]));
  *sum = static_cast<int>(s < 0 ? -s : s);
}
