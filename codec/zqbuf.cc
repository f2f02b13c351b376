// Tagged zlib buffers: "zlib", the uncompressed length big-endian, then zlib's compress of the
// bytes. Short buffers are not worth compressing and are passed as they are; the tag tells a
// reader which kind it holds.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <zlib.h>

#include "corvel/codec.h"
#include "corvel/elog.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "zqcompress.c";

namespace corvel {
namespace codec {
namespace {

constexpr char kTag[4] = {'z', 'l', 'i', 'b'};
constexpr size_t kHeader = 8;
constexpr size_t kSmallest = 101;  // shorter inputs are left alone
// The room zqexpand gives beyond the length the header announces.
constexpr size_t kSpare = 10;
// No deflate stream expands more than this many times its length: a 258-byte copy costs at
// least two bits. A header that announces more cannot be right, and its length is not
// allocated: the buffer is cut to what the stream could make, and uncompress then tells what
// it really holds.
constexpr size_t kMostExpansion = 1032;

// Whether out must be given a new buffer of `bytes`; the old one is then freed.
bool Replace(Zqbuf *out, size_t bytes) {
  if (out->size >= bytes && out->data != nullptr) return false;
  free(out->data);
  out->size = bytes;
  return true;
}

}  // namespace
}  // namespace codec
}  // namespace corvel

using corvel::codec::kHeader;

int zqcompress(const Zqbuf *in, Zqbuf *out) {
  if (in->nbytes < corvel::codec::kSmallest) {
    out->nbytes = 0;
    return 1;
  }
  if (in->nbytes > UINT32_MAX) {
    out->nbytes = 0;
    elog_log(0, "zqcompress: %lu bytes are more than the header can tell",
             static_cast<unsigned long>(in->nbytes));
    return -1;
  }
  const size_t room = compressBound(in->nbytes) + kHeader;
  if (corvel::codec::Replace(out, room)) {
    out->data = static_cast<unsigned char *>(CV_CALLOC(room, 1, "out->data"));
  }
  memcpy(out->data, corvel::codec::kTag, 4);
  const uint32_t length = __builtin_bswap32(static_cast<uint32_t>(in->nbytes));
  memcpy(out->data + 4, &length, 4);
  uLongf packed = out->size - kHeader;
  const int z = compress(out->data + kHeader, &packed, in->data, in->nbytes);
  if (z != Z_OK) {
    out->nbytes = 0;
    elog_log(0, "zqcompress: zlib compress fails, returning %d", z);
    return -1;
  }
  out->nbytes = packed + kHeader;
  return out->nbytes > in->nbytes ? -2 : 0;
}

int zqexpand(const Zqbuf *in, Zqbuf *out) {
  if (in->nbytes < 4 || memcmp(in->data, corvel::codec::kTag, 4) != 0) return 1;
  // A header cut short announces nothing, and the empty stream behind it fails in zlib.
  uint32_t length = 0;
  if (in->nbytes >= kHeader) {
    memcpy(&length, in->data + 4, 4);
    length = __builtin_bswap32(length);
  }
  const unsigned char *stream = in->data + (in->nbytes < kHeader ? in->nbytes : kHeader);
  const size_t packed = in->nbytes - (stream - in->data);
  size_t room = length + corvel::codec::kSpare;
  if (room > packed * corvel::codec::kMostExpansion + corvel::codec::kSpare) {
    room = packed * corvel::codec::kMostExpansion + corvel::codec::kSpare;
  }
  if (corvel::codec::Replace(out, room)) {
    out->data = static_cast<unsigned char *>(CV_MALLOC(room, "out->data"));
  }
  uLongf made = room;
  const int z = uncompress(out->data, &made, stream, packed);
  if (z != Z_OK) {
    out->nbytes = 0;
    elog_log(0, "zqexpand: zlib uncompress fails, returning %d", z);
    return -1;
  }
  out->nbytes = made;
  if (made != length) {
    elog_log(0, "zqexpand: zlib uncompress fails, returning %lu bytes instead of %u",
             static_cast<unsigned long>(made), length);
    return -2;
  }
  return 0;
}
