// Streams as any peer may send them: the input's first bytes choose the reads, the rest is the
// traffic, handed to the stream in small pieces by its read routine until end of file.
//
// Layout: byte 0 sets the piece size (low 4 bits, 1 to 16 bytes), the initial buffer size
// (bits 4 to 6) and whether sync reports are silenced (bit 7); byte 1 the number of reads (1 to
// 16); then two bytes per read (what, and its argument); then the traffic.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "corvel/bns.h"
#include "corvel/elog.h"

namespace {

struct Traffic {
  const uint8_t *data;
  size_t size;
  size_t used;
  size_t piece;
};
Traffic g_traffic;

int64_t ReadTraffic(int, void *buffer, int64_t length, int) {
  size_t n = g_traffic.size - g_traffic.used;
  if (n > g_traffic.piece) n = g_traffic.piece;
  if (n > static_cast<size_t>(length)) n = static_cast<size_t>(length);
  memcpy(buffer, g_traffic.data + g_traffic.used, n);
  g_traffic.used += n;
  return static_cast<int64_t>(n);
}

// The stream waits on its descriptor before each read: a pipe with a byte nobody takes is
// always ready.
int ReadyDescriptor() {
  static int fd = [] {
    int p[2];
    if (pipe(p) != 0 || write(p[1], "x", 1) != 1) abort();
    return p[0];
  }();
  return fd;
}

const char *const kPeek[] = {"", "A", "HELLO", "\xff\xfe", "SYNCSYNC"};
const char *const kSync[] = {"S", "SYNC", "\xa5\x5a", "ABAB", "\0\0\0\1"};
const int kSyncLength[] = {1, 4, 2, 4, 4};
const char kDelimiter[] = {'\n', '\0', ';', '\xff'};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  const int reads = 1 + data[1] % 16;
  if (size < 2 + 2 * static_cast<size_t>(reads)) return 0;
  const uint8_t *ops = data + 2;
  g_traffic = {ops + 2 * reads, size - 2 - 2 * reads, 0, 1u + (data[0] & 15)};
  if (data[0] & 0x80) {
    setenv("BNS_SUPPRESS_SYNCERR", "1", 1);
  } else {
    unsetenv("BNS_SUPPRESS_SYNCERR");
  }

  Bns *bns = bnsnew(ReadyDescriptor(), 1 + ((data[0] >> 4) & 7) * 5);
  bns->read_routine = ReadTraffic;
  bns->timeout = 0;
  char dest[64 * 8 + 1];
  for (int i = 0; i < reads; i++) {
    const uint8_t what = ops[2 * i] % 10, arg = ops[2 * i + 1];
    switch (what) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
      case 5:
        bnsget(bns, dest, what, arg % 65);
        break;
      case 6:
        bnsgetc(bns, dest, arg >> 2, kDelimiter[arg & 3]);
        break;
      case 7:
        bnspeek(bns, kPeek[arg % 5]);
        break;
      case 8:
        gbnsSync(bns, kSync[(arg >> 1) % 5], kSyncLength[(arg >> 1) % 5], arg & 1);
        break;
      default:
        bns2buf(bns, dest, arg % 65);
        break;
    }
  }
  bnsfree(bns);
  elog_clear();
  return 0;
}
