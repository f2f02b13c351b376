// Integer streams as any peer may send them. Each is decoded twice, into an output the decoder
// allocates and into a caller's buffer of three samples that must grow; both must agree. What
// was decoded must encode and decode back to itself, and encode to the same bytes into a
// caller's buffer full of junk, which the encoder does not clear.
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/codec.h"
#include "corvel/elog.h"

namespace {

void Check(bool ok) {
  if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size > INT_MAX) return 0;
  const int nin = static_cast<int>(size);
  int *fresh = nullptr, nfresh = -1, fresh_size = 0;
  Check(genuncompress(&fresh, &nfresh, &fresh_size, data, nin) == 0);
  Check(nfresh >= 0 && int64_t{nfresh} * 4 <= fresh_size);

  int *given = static_cast<int *>(malloc(12)), ngiven = -1, given_size = 12;
  Check(genuncompress(&given, &ngiven, &given_size, data, nin) == 0);
  Check(ngiven == nfresh && memcmp(given, fresh, 4 * static_cast<size_t>(nfresh)) == 0);

  unsigned char *packed = nullptr;
  int npacked = 0, packed_size = 0;
  const int block = size > 4 ? data[4] : 25;
  Check(gencompress(&packed, &npacked, &packed_size, fresh, nfresh, block) == 0);
  Check(npacked <= packed_size);
  unsigned char *junk = static_cast<unsigned char *>(malloc(npacked + 16));
  int njunk = 0, junk_size = npacked + 16;
  memset(junk, 0xA5, junk_size);
  Check(gencompress(&junk, &njunk, &junk_size, fresh, nfresh, block) == 0);
  Check(njunk == npacked && memcmp(junk, packed, npacked) == 0);
  int *back = nullptr, nback = -1, back_size = 0;
  Check(genuncompress(&back, &nback, &back_size, packed, npacked) == 0);
  Check(nback == nfresh && memcmp(back, fresh, 4 * static_cast<size_t>(nfresh)) == 0);

  free(fresh);
  free(given);
  free(packed);
  free(back);
  free(junk);
  elog_clear();
  return 0;
}
