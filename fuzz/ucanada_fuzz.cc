// Canadian records as any sender may make them. Byte 0 is the caller's side: its low six bits
// choose the sample count asked for (0: count the blocks; else that many blocks, or with bit 6
// that many samples, mostly not whole blocks), bit 7 hands over a small buffer to enlarge; the
// rest is the record. Whatever decodes must code back to a record that decodes the same.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/codec.h"
#include "corvel/elog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1 || size > (1 << 20)) return 0;
  const int choice = data[0] & 0x3F;
  int nsamp = data[0] & 0x40 ? choice : 20 * choice;
  int outsize = 0;
  int *out = nullptr;
  if (data[0] & 0x80) {
    outsize = 4;
    out = static_cast<int *>(malloc(outsize * sizeof(int)));
  }
  if (ucanada(data + 1, static_cast<int>(size - 1), &out, &nsamp, &outsize) == 0 && nsamp > 0) {
    unsigned char *coded = nullptr;
    int ncoded = 0, codedsize = 0, again = 0, againsize = 0;
    int *decoded = nullptr;
    if (ccanada(out, nsamp + 1, &coded, &ncoded, &codedsize) != 0) abort();
    if (ucanada(coded, ncoded, &decoded, &again, &againsize) != 0 || again != nsamp ||
        memcmp(out, decoded, (nsamp + 1) * sizeof(int)) != 0)
      abort();
    free(coded);
    free(decoded);
  }
  free(out);
  elog_clear();
  return 0;
}
