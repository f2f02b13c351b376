// Ring and ringlet files as any process may leave them: the input is a file that is opened,
// written to and read through every call, and may have its header rewritten while it is open,
// as another process could.
//
// Layout: byte 0 chooses a ringlet (bit 0) rather than a ring, and whether the header's
// indices are overwritten after the open (bit 1) with the file's last bytes; the rest is the
// file.
#include <fcntl.h>
#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "corvel/elog.h"
#include "corvel/ring.h"

namespace {

// The file every input is written to, removed with its directory when the process ends.
struct Scratch {
  std::string dir, file;
  Scratch() {
    char pattern[] = "/tmp/ring_fuzz.XXXXXX";
    if (mkdtemp(pattern) == nullptr) abort();
    dir = pattern;
    file = dir + "/file";
  }
  ~Scratch() {
    unlink(file.c_str());
    rmdir(dir.c_str());
  }
};

const std::string &ScratchFile() {
  static Scratch scratch;
  return scratch.file;
}

void WriteFile(const uint8_t *data, size_t size) {
  const int fd = open(ScratchFile().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0 || write(fd, data, size) != static_cast<ssize_t>(size)) abort();
  close(fd);
}

// Overwrites n header bytes from offset with the mapping's last n bytes.
void Rewrite(void *map, size_t length, size_t offset, size_t n) {
  if (length >= offset + n)
    memmove(static_cast<char *>(map) + offset, static_cast<char *>(map) + length - n, n);
}

volatile double g_sink;

void ReadRing(Ring *ring) {
  const double spans[] = {0, 1, 60, 1e9, -1, NAN, INFINITY};
  double t, v, a, b, c;
  int index, n;
  for (int i = 0; getring(ring, i, &t, &v) == 0; i++) g_sink = t + v;
  for (double span : spans) {
    g_sink = maxring(ring, &index, span) + minring(ring, &index, span);
    g_sink = tallyring(ring, span) + findring(ring, 0, span) + changedring(ring, span);
    t = 50;
    if (nearbymaxring(ring, &t, &v, span) == 0) g_sink = v;
    meanring(ring, &n, &a, &b, span);
    g_sink = a + b + avgring(ring, span);
    linearfitring(ring, &n, &a, &b, &c, span);
    g_sink = a + b + c;
  }
  t = 100;
  if (valring(ring, &t, &v) == 0) g_sink = v;
  g_sink = countring(ring) + idring(ring)[0];
}

void FuzzRing(bool rewrite) {
  char id[64];
  Ring *ring = openring(ScratchFile().c_str(), id, 1, 0);
  if (ring == nullptr) return;
  ReadRing(ring);
  if (rewrite) Rewrite(ring->header, ring->length, 72, 12);  // newest, count, capacity
  pushring(ring, 1e9, 1);
  cramring(ring, "collapse", 1e9 + 100, 1);
  cramring(ring, "collapse", 1e9 + 101, 1);
  ReadRing(ring);
  closering(ring);
}

void FuzzRinglet(bool rewrite, size_t size) {
  Ringlet *ringlet = openringlet(ScratchFile().c_str(), 1, 1);
  if (ringlet == nullptr) return;
  if (rewrite) Rewrite(ringlet->header, ringlet->length, 8, 32);
  std::vector<char> record(size, 'r');  // no record is longer than the file
  pushringlet(ringlet, record.data());
  void *p;
  for (int i = 0; getringlet(ringlet, i, &p) == 0; i++) g_sink = *static_cast<char *>(p);
  g_sink = countringlet(ringlet);
  closeringlet(ringlet);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  WriteFile(data + 1, size - 1);
  if (data[0] & 1) {
    FuzzRinglet((data[0] & 2) != 0, size);
  } else {
    FuzzRing((data[0] & 2) != 0);
  }
  elog_clear();
  return 0;
}
