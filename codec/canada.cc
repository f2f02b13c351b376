// Canadian compression: second differences in blocks of 20 samples. Each block has a 16-bit key
// (a flag, then five 3-bit width codes, one for each group of four values) in a key area of its
// own, and its values in the data area after the first sample. Every width is even, so each
// group fills whole bytes and starts on a byte boundary.
//
// The decoder checks the whole key area against the input length before it allocates or reads
// any value, so that the block loop runs without bounds checks: every value is taken from an
// eight-byte big-endian load at its byte, shifted into place, and the two integrations run in
// the same pass.
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "codec/big_endian.h"
#include "corvel/codec.h"
#include "corvel/elog.h"

namespace corvel {
namespace codec {
namespace {

constexpr int kBlock = 20;
constexpr int kGroups = 5;
constexpr int kGroup = 4;
constexpr uint32_t kNoNextSample = 0x80000000u;

// Width in bits of a group's values, by flag * 8 + code.
constexpr int kWidth[16] = {4, 6, 8, 10, 12, 14, 16, 18, 4, 8, 12, 16, 20, 24, 28, 32};

// The most bytes a block's data take (five groups of four 32-bit values), and how far past a
// block's first data byte the decoder's loads reach: the last value of the last group is read
// by eight bytes from 12 bytes into the group.
constexpr int kMaxBlockBytes = kGroups * kGroup * 4;
constexpr int kBlockReach = kMaxBlockBytes - 16 + 12 + 8;

unsigned Key(const unsigned char *keys, int64_t block) {
  return static_cast<unsigned>(keys[2 * block] << 8 | keys[2 * block + 1]);
}

int GroupWidth(unsigned key, int group) {
  return kWidth[(key >> 15) << 3 | ((key >> (12 - 3 * group)) & 7)];
}

// Bytes of data a block's key announces: four values of width w take w / 2 bytes.
int BlockBytes(unsigned key) {
  int bytes = 0;
  for (int g = 0; g < kGroups; g++) bytes += GroupWidth(key, g) / 2;
  return bytes;
}

// The narrowest width that holds a group of four values, before the block's flag is known:
// the bits of the largest magnitude (v, or -v - 1 for negative v) plus a sign bit, rounded up
// to an even count from 4 to 18, then to a multiple of 4.
int NarrowestWidth(const uint32_t *v) {
  uint32_t m = 0;
  for (int i = 0; i < kGroup; i++) m |= v[i] ^ (0u - (v[i] >> 31));
  const int bits = m == 0 ? 1 : 33 - __builtin_clz(m);
  if (bits <= 4) return 4;
  if (bits <= 18) return (bits + 1) & ~1;
  return (bits + 3) & ~3;
}

// Writes bits most significant first into bytes filled from bit 7 down.
class BitWriter {
 public:
  explicit BitWriter(unsigned char *p) : p_(p) {}
  void Put(uint32_t v, int width) {
    pending_ = pending_ << width | (v & (~0u >> (32 - width)));
    count_ += width;
    while (count_ >= 8) {
      count_ -= 8;
      *p_++ = static_cast<unsigned char>(pending_ >> count_);
    }
  }
  unsigned char *position() const { return p_; }

 private:
  unsigned char *p_;
  uint64_t pending_ = 0;
  int count_ = 0;
};

// Codes one block of second differences: the key into keys[0..1], the values through data.
void EncodeBlock(const uint32_t *s, unsigned char *keys, BitWriter *data) {
  int widths[kGroups];
  bool wide = false;
  for (int g = 0; g < kGroups; g++) {
    widths[g] = NarrowestWidth(s + kGroup * g);
    wide |= widths[g] > 18;
  }
  unsigned key = wide ? 0x8000u : 0;
  for (int g = 0; g < kGroups; g++) {
    int &w = widths[g];
    if (wide) w = (w + 3) & ~3;  // 6 becomes 8, 10 becomes 12, ...
    const unsigned code = static_cast<unsigned>(wide ? w / 4 - 1 : (w - 4) / 2);
    key |= code << (12 - 3 * g);
    for (int i = 0; i < kGroup; i++) data->Put(s[kGroup * g + i], w);
  }
  keys[0] = static_cast<unsigned char>(key >> 8);
  keys[1] = static_cast<unsigned char>(key);
}

// The two integrations of a record: x is the sample about to be stored, d the first difference
// that leads from it to the next.
struct Integrator {
  uint32_t x;
  uint32_t d;
};

// Decodes the 20 values of a block whose data start at p, storing the block's samples at out.
// Reads up to kBlockReach bytes from p.
inline void DecodeBlock(unsigned key, const unsigned char *p, int32_t *out, Integrator *acc) {
  uint32_t x = acc->x, d = acc->d;
  for (int g = 0; g < kGroups; g++) {
    const int w = GroupWidth(key, g);
    for (int i = 0; i < kGroup; i++) {
      const int bit = i * w;
      const uint64_t field = LoadBe64(p + (bit >> 3)) << (bit & 7);
      const int64_t s = static_cast<int64_t>(field) >> (64 - w);
      *out++ = static_cast<int32_t>(x);
      d += static_cast<uint32_t>(s);
      x += d;
    }
    p += w / 2;
  }
  acc->x = x;
  acc->d = d;
}

// The number of blocks in nin bytes read from the keys alone: each block takes 16 key bits and
// its groups' data bits from what follows the first sample, and a block whose data run out
// part way still counts.
int64_t CountBlocks(const unsigned char *in, int nin) {
  int64_t bits = static_cast<int64_t>(nin - 4) * 8, blocks = 0;
  for (;;) {
    bits -= 16;
    if (bits < 1) break;  // keys end at least a byte before the first sample
    const unsigned key = Key(in, blocks);
    for (int g = 0; g < kGroups; g++) {
      bits -= kGroup * GroupWidth(key, g);
      if (bits < 0) break;
    }
    blocks++;
  }
  return blocks;
}

// Makes *out hold n samples: false after the message when it cannot.
bool Reserve(int **out, int *outsize, int n) {
  const size_t bytes = static_cast<size_t>(n) * sizeof(int);
  if (*out == nullptr) {
    int *p = static_cast<int *>(malloc(bytes));
    if (p == nullptr) {
      elog_log(0, "ucanada: malloc() error.\n");
      return false;
    }
    *out = p;
    *outsize = n;
  } else if (*outsize < n) {
    int *p = static_cast<int *>(realloc(*out, bytes));
    if (p == nullptr) {
      elog_log(0, "ucanada: realloc() error.\n");
      return false;
    }
    *out = p;
    *outsize = n;
  }
  return true;
}

int Compress(const int *data, int nsamp, unsigned char **out, int *nout, int *outsize) {
  *nout = 0;
  // One sample beyond whole blocks only closes the last difference; without it the last
  // difference leads to the most negative value.
  const uint32_t first = nsamp > 0 ? static_cast<uint32_t>(data[0]) : 0;
  uint32_t next = kNoNextSample;
  if (nsamp > 0 && (nsamp - 1) % kBlock == 0) next = static_cast<uint32_t>(data[--nsamp]);
  if (nsamp < 0 || nsamp % kBlock != 0) {
    elog_log(0, "ccanada: nsamp not a multiple of 20.\n");
    return -1;
  }
  const int key_bytes = nsamp / 10;
  const size_t need = static_cast<size_t>(nsamp) * 4 + key_bytes + 4;
  if (*out == nullptr || static_cast<int64_t>(need) > *outsize) {
    const bool fresh = *out == nullptr;
    unsigned char *p = need > INT_MAX ? nullptr
                       : fresh        ? static_cast<unsigned char *>(malloc(need))
                                      : static_cast<unsigned char *>(realloc(*out, need));
    if (p == nullptr) {
      elog_log(0, fresh ? "ccanada: malloc() error.\n" : "ccanada: realloc() error.\n");
      return -1;
    }
    *out = p;
    *outsize = static_cast<int>(need);
  }
  unsigned char *buf = *out;
  memset(buf, 0, need);
  StoreBe32(buf + key_bytes, first);

  BitWriter writer(buf + key_bytes + 4);
  uint32_t last_d = 0;  // the previous block's last first difference
  for (int b = 0; b < nsamp / kBlock; b++) {
    const int *x = data + b * kBlock;
    const uint32_t after = b + 1 < nsamp / kBlock ? static_cast<uint32_t>(x[kBlock]) : next;
    uint32_t s[kBlock];
    for (int i = 0; i < kBlock; i++) {
      const uint32_t following = i + 1 < kBlock ? static_cast<uint32_t>(x[i + 1]) : after;
      const uint32_t d = following - static_cast<uint32_t>(x[i]);
      s[i] = d - last_d;
      last_d = d;
    }
    EncodeBlock(s, buf + 2 * b, &writer);
  }
  *nout = static_cast<int>(writer.position() - buf);
  return 0;
}

int Decompress(const unsigned char *in, int nin, int **out, int *nsamp, int *outsize) {
  if (in == nullptr || nin < 6) {
    elog_log(0, "ucanada: Illegal input data: compressed buffer too small\n");
    return -1;
  }
  int64_t n = *nsamp;
  if (n <= 0) {
    n = CountBlocks(in, nin) * kBlock;
    if (n == 0) {
      *nsamp = 0;
      return 0;
    }
    if (n >= INT_MAX) {  // more samples than a count can hold: no buffer would do
      elog_log(0, "ucanada: malloc() error.\n");
      return -1;
    }
  } else if (n % kBlock != 0) {
    elog_log(0, "ucanada: nsamp not a multiple of 20.\n");
    return -1;
  }

  // The keys tell the data's length: check it all before allocating or decoding.
  const int64_t blocks = n / kBlock, data_start = 2 * blocks + 4;
  int64_t end = data_start;
  if (end <= nin) {
    for (int64_t b = 0; b < blocks; b++) end += BlockBytes(Key(in, b));
  }
  if (end > nin) {
    elog_log(0, "ucanada: Illegal input data: compressed buffer too small.\n");
    return -1;
  }
  if (nin - end > 4) {
    elog_log(0, "ucanada: Illegal input data: compressed buffer too big.\n");
    return -1;
  }
  if (!Reserve(out, outsize, static_cast<int>(n) + 1)) return -1;
  *nsamp = static_cast<int>(n);

  int32_t *samples = *out;
  Integrator acc = {LoadBe32(in + 2 * blocks), 0};
  const unsigned char *p = in + data_start, *const stop = in + nin;
  for (int64_t b = 0; b < blocks; b++, samples += kBlock) {
    const unsigned key = Key(in, b);
    if (stop - p >= kBlockReach) {
      DecodeBlock(key, p, samples, &acc);
    } else {  // the last blocks of the input: decode from a copy with room for the loads
      unsigned char copy[kBlockReach] = {0};
      memcpy(copy, p, static_cast<size_t>(BlockBytes(key)));
      DecodeBlock(key, copy, samples, &acc);
    }
    p += BlockBytes(key);
  }
  *samples = static_cast<int32_t>(acc.x);  // the first sample of the following record
  return 0;
}

}  // namespace
}  // namespace codec
}  // namespace corvel

int ccanada(const int *data, int nsamp, unsigned char **out, int *nout, int *outsize) {
  return corvel::codec::Compress(data, nsamp, out, nout, outsize);
}

int ucanada(const unsigned char *in, int nin, int **out, int *nsamp, int *outsize) {
  return corvel::codec::Decompress(in, nin, out, nsamp, outsize);
}
