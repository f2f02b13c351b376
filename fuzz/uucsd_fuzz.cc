// UCSD buffers as any sender may make them. Bytes 0 and 1 choose the sample count (big-endian,
// below 4096), decoded into an array of exactly that many; the rest is the buffer. The decoder
// may take one byte past the buffer, never more.
#include <stdint.h>
#include <stdlib.h>

#include "corvel/codec.h"
#include "corvel/elog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2 || size > (1 << 20)) return 0;
  const int nsamp = (data[0] << 8 | data[1]) % 4096;
  int *out = static_cast<int *>(malloc(nsamp > 0 ? nsamp * sizeof(int) : 1));
  const unsigned char *in = data + 2;
  const int nbytes = static_cast<int>(size - 2);
  if (uucsd(out, &in, nbytes, nsamp) == 0 && in > data + 2 + nbytes + 1) abort();
  free(out);
  elog_clear();
  return 0;
}
