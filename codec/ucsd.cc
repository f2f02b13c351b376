// UCSD compression: the first sample, then runs of first differences (previous minus current)
// that share one width. A run starts at an even offset with a mode byte and a count byte (1 to
// 255 values); the widest mode holds the samples themselves in 24 bits.
//
// The encoder keeps its open run (where its count byte is, how many values it holds and its
// level) in process-wide variables, as this format's encoder always has: only one encoding may
// run at a time in a process. Its choice of a narrower level looks ahead at the following
// differences; when it would need a sample beyond the last one it ends the process ("shouldn't
// happen"), which every series of exactly two samples meets. Files written by the encoder
// depend on that choice, so it stays as it is.
//
// The decoder tolerates data that end one byte beyond the buffer (the pad after an odd-length
// last run): that byte reads as zero and is never touched.
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/codec.h"
#include "corvel/elog.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "ucsd_compress.c";

namespace corvel {
namespace codec {
namespace {

constexpr int kMaxRun = 255;
constexpr int kNoRun = 5;  // the level while no run is open
constexpr int kWidth[6] = {4, 8, 12, 16, 24, 32};
constexpr unsigned char kMode[5] = {0x10, 0x20, 0x30, 0x40, 0x50};
constexpr int32_t kMax24 = 0x7FFFFF;

// The open run.
size_t g_count_at;
int g_count;
int g_level = kNoRun;

bool Fits24(int32_t v) { return v >= -kMax24 - 1 && v <= kMax24; }

// The narrowest level whose range holds d; 4 also for what no level holds.
int LevelOf(int32_t d) {
  if (d >= -8 && d <= 7) return 0;
  if (d >= -128 && d <= 127) return 1;
  if (d >= -2048 && d <= 2047) return 2;
  if (d >= -32768 && d <= 32767) return 3;
  return 4;
}

int32_t Difference(const int *x, int i) {
  return static_cast<int32_t>(static_cast<uint32_t>(x[i - 1]) - static_cast<uint32_t>(x[i]));
}

class RunWriter {
 public:
  explicit RunWriter(unsigned char *buf) : buf_(buf) {}

  void PutFirst(int32_t v) {
    for (int k = 0; k < 4; k++) buf_[pos_++] = static_cast<unsigned char>(v >> (24 - 8 * k));
  }

  // Closes the open run and opens one at level.
  void Open(int level) {
    if (g_level != kNoRun) buf_[g_count_at] = static_cast<unsigned char>(g_count);
    Complete();
    if (pos_ & 1) buf_[pos_++] = 0;
    buf_[pos_++] = kMode[level];
    g_count_at = pos_++;
    g_count = 0;
    g_level = level;
  }

  // Appends v (a difference, or the sample itself at level 4) to the open run.
  void Append(int32_t v) {
    if (g_count == kMaxRun) Open(g_level);
    const uint32_t u = static_cast<uint32_t>(v);
    switch (g_level) {
      case 0:
        if (half_) {
          buf_[pos_++] |= u & 0xF;
        } else {
          buf_[pos_] = static_cast<unsigned char>(u << 4);
        }
        half_ = !half_;
        break;
      case 1:
        buf_[pos_++] = static_cast<unsigned char>(u);
        break;
      case 2:
        if (half_) {
          buf_[pos_] |= (u >> 8) & 0xF;
          buf_[pos_ + 1] = static_cast<unsigned char>(u);
          pos_ += 2;
        } else {
          buf_[pos_] = static_cast<unsigned char>(u >> 4);
          buf_[pos_ + 1] = static_cast<unsigned char>(u << 4);
          pos_ += 1;
        }
        half_ = !half_;
        break;
      case 3:
        buf_[pos_++] = static_cast<unsigned char>(u >> 8);
        buf_[pos_++] = static_cast<unsigned char>(u);
        break;
      default:
        buf_[pos_++] = static_cast<unsigned char>(u >> 16);
        buf_[pos_++] = static_cast<unsigned char>(u >> 8);
        buf_[pos_++] = static_cast<unsigned char>(u);
        break;
    }
    g_count++;
  }

  // Completes a half-filled byte and the open run's count; the bytes written.
  size_t Finish() {
    Complete();
    if (g_level != kNoRun) buf_[g_count_at] = static_cast<unsigned char>(g_count);
    return pos_;
  }

 private:
  void Complete() {
    if (half_) pos_++;
    half_ = false;
  }

  unsigned char *buf_;
  size_t pos_ = 0;
  bool half_ = false;
};

// The level for sample i, whose difference needs only level lower than the open run's: the
// open level, unless enough of the following differences fit a narrower one too to pay for a
// new run; the narrower the level, the fewer of them it takes.
int LevelAfterLookAhead(const int *x, int nsamp, int i, int lower) {
  int m = lower;
  for (int k = 1;; k++) {
    if (k > 5 || i + k >= nsamp) elog_die(0, "shouldn't happen");
    const int ahead = LevelOf(Difference(x, i + k));
    if (ahead >= g_level) return g_level;
    if (ahead > m) m = ahead;
    if (k + 1 > 16 / (kWidth[g_level] - kWidth[m])) return m;
  }
}

// Codes nsamp (at least 1) samples into buf, which has room for the worst case.
int Compress(const int *data, int nsamp, unsigned char *buf, int *nout) {
  g_level = kNoRun;
  g_count = 0;
  int result = 0;
  RunWriter writer(buf);
  writer.PutFirst(data[0]);
  for (int i = 1; i < nsamp; i++) {
    const int32_t d = Difference(data, i);
    const int level = LevelOf(d);
    if (level == 4 && !Fits24(d)) result = -1;
    if (level > g_level) {
      writer.Open(level);
    } else if (level < g_level) {
      const int chosen = LevelAfterLookAhead(data, nsamp, i, level);
      if (chosen != g_level) writer.Open(chosen);
    }
    if (g_level < 4) {
      writer.Append(d);
    } else if (Fits24(data[i])) {
      writer.Append(data[i]);
    } else {
      result = -1;  // the sample cannot be coded: it is left out
    }
  }
  *nout = static_cast<int>(writer.Finish());
  return result;
}

// Bytes that count values take at a level.
size_t RunBytes(int level, int count) {
  switch (level) {
    case 0:
      return (count + 1) / 2;
    case 1:
      return count;
    case 2:
      return count / 2 * 3 + (count & 1) * 2;
    case 3:
      return 2 * count;
    default:
      return 3 * count;
  }
}

int32_t SignExtend(uint32_t v, int width) {
  return static_cast<int32_t>(v << (32 - width)) >> (32 - width);
}

// Decodes a run of count values at level from p (RunBytes long) into out, starting from the
// sample before them; the last sample decoded.
int32_t DecodeRun(int level, int count, const unsigned char *p, int32_t *out, int32_t x) {
  uint32_t prev = static_cast<uint32_t>(x);
  auto put = [&](int32_t d) { *out++ = static_cast<int32_t>(prev -= static_cast<uint32_t>(d)); };
  switch (level) {
    case 0:
      for (int j = 0; j + 1 < count; j += 2, p++) {
        put(static_cast<int8_t>(*p) >> 4);
        put(SignExtend(*p, 4));
      }
      if (count & 1) put(static_cast<int8_t>(*p) >> 4);
      break;
    case 1:
      for (int j = 0; j < count; j++) put(static_cast<int8_t>(p[j]));
      break;
    case 2:
      for (int j = 0; j + 1 < count; j += 2, p += 3) {
        put(SignExtend(static_cast<uint32_t>(p[0] << 4 | p[1] >> 4), 12));
        put(SignExtend(static_cast<uint32_t>((p[1] & 0xF) << 8 | p[2]), 12));
      }
      if (count & 1) put(SignExtend(static_cast<uint32_t>(p[0] << 4 | p[1] >> 4), 12));
      break;
    case 3:
      for (int j = 0; j < count; j++, p += 2) put(static_cast<int16_t>(p[0] << 8 | p[1]));
      break;
    default:
      for (int j = 0; j < count; j++, p += 3) {
        prev = static_cast<uint32_t>(SignExtend(p[0] << 16 | p[1] << 8 | p[2], 24));
        *out++ = static_cast<int32_t>(prev);
      }
      break;
  }
  return static_cast<int32_t>(prev);
}

int Decompress(int *out, const unsigned char **in, int nbytes, int nsamp) {
  if (nsamp <= 0) return 0;
  const unsigned char *p = *in;
  // Data may end one byte past the buffer; that byte is taken as zero.
  const size_t size = p != nullptr && nbytes > 0 ? static_cast<size_t>(nbytes) : 0;
  const size_t limit = size + 1;
  auto used_too_much = [] {
    elog_complain(0, "uucsd bad input data: used more than entire buffer");
    return -1;
  };
  if (limit < 4) return used_too_much();
  unsigned char first[4] = {0};
  if (size > 0) memcpy(first, p, size < 4 ? size : 4);
  int32_t x = static_cast<int32_t>(static_cast<uint32_t>(first[0]) << 24 | first[1] << 16 |
                                   first[2] << 8 | first[3]);
  out[0] = x;

  size_t pos = 4;
  int n = 1;
  while (n < nsamp) {
    if (pos + 2 > limit) return used_too_much();
    const int mode = p[pos] >> 4;
    const int count = pos + 1 < size ? p[pos + 1] : 0;
    pos += 2;
    if (count > nsamp - n) {
      elog_complain(0, "uucsd bad input data: uncompresses to more than %d samples", nsamp);
      return -1;
    }
    const int level = mode >= 1 && mode <= 4 ? mode - 1 : 4;
    const size_t bytes = RunBytes(level, count);
    if (pos + bytes > limit) return used_too_much();
    if (bytes == 0) {
      // an empty run: nothing to decode
    } else if (pos + bytes <= size) {
      x = DecodeRun(level, count, p + pos, out + n, x);
    } else {  // the run's last byte is the one past the buffer
      unsigned char copy[3 * kMaxRun] = {0};
      memcpy(copy, p + pos, bytes - 1);
      x = DecodeRun(level, count, copy, out + n, x);
    }
    pos += bytes;
    n += count;
    if (pos & 1) pos++;
  }
  if (pos > limit) return used_too_much();
  *in += pos;
  return 0;
}

}  // namespace
}  // namespace codec
}  // namespace corvel

int cucsd(const int *data, int nsamp, unsigned char **out, int *nout, int *outsize) {
  if (nsamp < 0) nsamp = 0;
  // Four bytes a sample and eight more: more than any mix of runs takes, since a short run of
  // wide values has to wait for the differences that allow the narrower run after it.
  const size_t need = (static_cast<size_t>(nsamp) + 2) * 4;
  if (*out == nullptr || static_cast<int64_t>(*outsize) < static_cast<int64_t>(need)) {
    free(*out);
    *out = nullptr;
    // A buffer whose size the caller cannot be told is as unobtainable as any other.
    if (need > INT_MAX) corvel::DieOutOfMemory(__func__, __LINE__, kSourceName, need, "*buf");
    *out = static_cast<unsigned char *>(CV_CALLOC(need, 1, "*buf"));
    *outsize = static_cast<int>(need);
  }
  *nout = 0;
  if (nsamp == 0) return 0;
  return corvel::codec::Compress(data, nsamp, *out, nout);
}

int uucsd(int *out, const unsigned char **in, int nbytes, int nsamp) {
  return corvel::codec::Decompress(out, in, nbytes, nsamp);
}
