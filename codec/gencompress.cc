// Block-packed integers. A segment is a big-endian sample count, then (for two samples or more)
// a block-size byte and blocks: each block a width byte w and its samples in w + 1 bits of
// two's complement, most significant bit first, the block padded with zero bits to a byte.
//
// Both directions work on whole blocks and on 64-bit words: the packer gathers samples in a
// 64-bit accumulator and stores 32 bits at a time; the unpacker loads the eight bytes holding a
// sample and lets one arithmetic shift both align it and extend its sign. The sizes the buffers
// grow to are those of a writer that checks its room at every byte or sample, worked out once
// per run of blocks instead.
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

constexpr int kDefaultBlock = 25;
constexpr int kLargestBlock = 256;  // its size byte reads 0, which the decoder takes for 256
constexpr int kHeader = 5;          // count and block size
constexpr int kLargestWidth = 31;
// Blocks packed between two checks of the output's room: a few thousand samples.
constexpr int kRunBlocks = 256;
// The largest buffer the int sizes can describe, kept to whole samples.
constexpr int64_t kLargestBuffer = INT_MAX & ~3;

// The eight bytes at p when fewer than eight may be left: the missing ones read as zeros.
uint64_t LoadBe64Near(const unsigned char *p, size_t left) {
  unsigned char b[8] = {0};
  memcpy(b, p, left < 8 ? left : 8);
  return LoadBe64(b);
}

// The block's width: the bit length of its largest magnitude, 31 from 2^30 up (the most
// negative integer included). The magnitudes are or'ed: their bit length is the largest one's.
int BlockWidth(const int *x, int k) {
  uint32_t bits = 0;
  for (int i = 0; i < k; i++) {
    const uint32_t u = static_cast<uint32_t>(x[i]);
    bits |= x[i] < 0 ? 0u - u : u;
  }
  if (bits == 0) return 0;
  const int length = 32 - __builtin_clz(bits);
  return length < kLargestWidth ? length : kLargestWidth;
}

int64_t PackedBytes(int64_t k, int w) { return (k * (w + 1) + 7) / 8; }

// Writes the width byte and k samples in w + 1 bits each; returns the end of the block.
unsigned char *PackBlock(unsigned char *p, const int *x, int k, int w) {
  *p++ = static_cast<unsigned char>(w);
  const int nb = w + 1;
  const uint64_t mask = (uint64_t{1} << nb) - 1;
  uint64_t acc = 0;  // its low `held` bits are not stored yet
  int held = 0;
  for (int i = 0; i < k; i++) {
    acc = (acc << nb) | (static_cast<uint32_t>(x[i]) & mask);
    held += nb;
    if (held >= 32) {
      held -= 32;
      StoreBe32(p, static_cast<uint32_t>(acc >> held));
      p += 4;
    }
  }
  if (held == 0) return p;
  for (uint64_t rest = acc << (64 - held); held > 0; held -= 8, rest <<= 8) {
    *p++ = static_cast<unsigned char>(rest >> 56);
  }
  return p;
}

// The size of the output once the writer has passed every position from `from` to `end`: when
// the position plus 8 reaches the size, the size becomes the position plus 1008.
int64_t EncoderRoom(int64_t size, int64_t from, int64_t end) {
  while (end + 8 >= size) {
    from = size - 8 > from ? size - 8 : from;
    size = from + 1008;
  }
  return size;
}

class Encoder {
 public:
  Encoder(unsigned char **out, int *size) : out_(out), size_(size) {}

  // Sets up the output with room for `least` bytes; false after the message.
  bool Start(int n, int least) {
    if (*out_ == nullptr) {
      const int64_t bytes = n < 1 ? 4 : (2 * int64_t{n} > 8 ? 2 * int64_t{n} : 8);
      if (bytes > kLargestBuffer ||
          (*out_ = static_cast<unsigned char *>(calloc(bytes, 1))) == nullptr) {
        elog_log(0, "gencompress: malloc() error.\n");
        return false;
      }
      *size_ = static_cast<int>(bytes);
      return true;
    }
    return *size_ >= least || Resize(least);
  }

  // Packs the blocks of n >= 2 samples behind the header; false after the message, with the
  // blocks written so far in place.
  bool Blocks(const int *data, int n, int block) {
    pos_ = kHeader;
    unsigned char widths[kRunBlocks];
    for (int64_t i = 0; i < n;) {
      int64_t end = pos_, j = i;
      int runs = 0;
      for (; runs < kRunBlocks && j < n; runs++, j += block) {
        const int k = static_cast<int>(n - j < block ? n - j : block);
        widths[runs] = static_cast<unsigned char>(BlockWidth(data + j, k));
        end += 1 + PackedBytes(k, widths[runs]);
      }
      const int64_t room = EncoderRoom(*size_, pos_, end);
      if (room != *size_ && !Resize(room)) return false;
      unsigned char *p = *out_ + pos_;
      for (int r = 0; r < runs; r++, i += block) {
        p = PackBlock(p, data + i, static_cast<int>(n - i < block ? n - i : block), widths[r]);
      }
      pos_ = end;
    }
    return true;
  }

  int64_t written() const { return pos_; }

 private:
  // Grows (or first gives room to a caller's short buffer) to `bytes`, the new part zeroed.
  bool Resize(int64_t bytes) {
    const int64_t old = *size_ > 0 ? *size_ : 0;
    void *p = bytes <= kLargestBuffer ? realloc(*out_, bytes) : nullptr;
    if (p == nullptr) {
      elog_log(0, "gencompress: realloc() error.\n");
      return false;
    }
    *out_ = static_cast<unsigned char *>(p);
    if (bytes > old) memset(*out_ + old, 0, bytes - old);
    *size_ = static_cast<int>(bytes);
    return true;
  }

  unsigned char **out_;
  int *size_;
  int64_t pos_ = 0;
};

// Unpacks k samples of nb bits starting at p, `left` bytes being readable from p. Every sample
// is cut from the eight bytes that hold its first bit: shifted up to drop the bits before it,
// then arithmetically down to keep nb bits with the sign of the first.
template <bool kNearEnd>
void UnpackBlock(const unsigned char *p, size_t left, int nb, int k, int *dst) {
  const int drop = 64 - nb;
  uint64_t bit = 0;
  for (int i = 0; i < k; i++, bit += nb) {
    const size_t at = bit >> 3;
    const uint64_t word = kNearEnd ? LoadBe64Near(p + at, left - at) : LoadBe64(p + at);
    dst[i] = static_cast<int>(static_cast<int64_t>(word << (bit & 7)) >> drop);
  }
}

class Decoder {
 public:
  Decoder(int **out, int *size, const unsigned char *in, int64_t nin)
      : out_(out), size_(size), in_(in), nin_(nin) {}

  // Allocates the output when the caller gave none; false after the message.
  bool Start() {
    if (*out_ != nullptr) return true;
    int64_t bytes = 5 * nin_;
    if (bytes < 4) bytes = 4;  // room for one sample, and never a request for nothing
    if (bytes > kLargestBuffer) bytes = kLargestBuffer;
    if ((*out_ = static_cast<int *>(malloc(bytes))) == nullptr) {
      elog_log(0, "genuncompress: malloc() error.\n");
      return false;
    }
    *size_ = static_cast<int>(bytes);
    return true;
  }

  // Decodes every segment; false when the output could not grow.
  bool Segments() {
    if (nin_ < 4) return true;
    const int first = static_cast<int>(LoadBe32(in_));
    if (first < 1) return true;
    if (first == 1) {  // the sample stands alone and nothing after it is read
      if (nin_ < 8) return true;
      if (!Reserve(1)) return false;
      (*out_)[count_++] = static_cast<int>(LoadBe32(in_ + 4));
      return true;
    }
    // Later segments are read as blocked ones whatever their count.
    for (int64_t pos = 0; nin_ - pos >= kHeader;) {
      const int n = static_cast<int>(LoadBe32(in_ + pos));
      const int block = in_[pos + 4] != 0 ? in_[pos + 4] : kLargestBlock;
      pos += kHeader;
      for (int64_t remaining = n; remaining > 0;) {
        if (pos >= nin_ || in_[pos] > kLargestWidth) return true;  // used up, or not ours
        const int nb = in_[pos++] + 1;
        const int64_t left = nin_ - pos;
        int64_t k = remaining < block ? remaining : block;
        const bool cut = k * nb > 8 * left;
        if (cut) k = 8 * left / nb;  // what the input still holds of the block
        if (k == 0) return true;
        if (!Reserve(k)) return false;
        const int64_t bytes = PackedBytes(k, nb - 1);
        if (bytes + 8 <= left) {
          UnpackBlock<false>(in_ + pos, left, nb, static_cast<int>(k), *out_ + count_);
        } else {
          UnpackBlock<true>(in_ + pos, left, nb, static_cast<int>(k), *out_ + count_);
        }
        count_ += k;
        if (cut) return true;
        pos += bytes;
        remaining -= k;
      }
    }
    return true;
  }

  int count() const { return static_cast<int>(count_); }

 private:
  // Room for k more samples, grown as a decoder checking before every sample grows it: when the
  // count plus one, times 4, reaches the size, the size becomes 1.5 times that.
  bool Reserve(int64_t k) {
    const int64_t last = count_ + k - 1;
    int64_t size = *size_, at = count_;
    if (4 * (last + 1) < size) return true;
    while (4 * (last + 1) >= size) {
      const int64_t trigger = (size + 3) / 4 - 1;
      at = trigger > at ? trigger : at;
      size = 6 * (at + 1);
    }
    if (size > kLargestBuffer) size = kLargestBuffer;
    void *p = 4 * (last + 1) <= size ? realloc(*out_, size) : nullptr;
    if (p == nullptr) {
      elog_log(0, "genuncompress: realloc() error.\n");
      return false;
    }
    *out_ = static_cast<int *>(p);
    *size_ = static_cast<int>(size);
    return true;
  }

  int **out_;
  int *size_;
  const unsigned char *in_;
  int64_t nin_;
  int64_t count_ = 0;
};

}  // namespace
}  // namespace codec
}  // namespace corvel

int gencompress(unsigned char **out, int *nout, int *size, const int *data, int n, int blocksize) {
  corvel::codec::Encoder encoder(out, size);
  if (!encoder.Start(n, n < 1 ? 4 : 8)) return -1;
  corvel::codec::StoreBe32(*out, static_cast<uint32_t>(n));
  if (n < 1) {
    *nout = 4;
    return 0;
  }
  if (n == 1) {
    corvel::codec::StoreBe32(*out + 4, static_cast<uint32_t>(data[0]));
    *nout = 8;
    return 0;
  }
  int block = blocksize < 1 ? corvel::codec::kDefaultBlock : blocksize;
  if (block > corvel::codec::kLargestBlock) block = corvel::codec::kLargestBlock;
  (*out)[4] = static_cast<unsigned char>(block);  // 256 is written as 0
  const bool done = encoder.Blocks(data, n, block);
  *nout = static_cast<int>(encoder.written());
  return done ? 0 : -1;
}

int genuncompress(int **out, int *nout, int *size, const unsigned char *in, int nin) {
  corvel::codec::Decoder decoder(out, size, in, nin > 0 ? nin : 0);
  *nout = 0;
  if (!decoder.Start()) return -1;
  const bool done = decoder.Segments();
  *nout = decoder.count();
  return done ? 0 : -1;
}
