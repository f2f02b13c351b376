// Parameter-file texts read from a counted buffer, NUL bytes and all.
#include <stdint.h>
#include <stdlib.h>

#include "corvel/elog.h"
#include "corvel/pf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Pf *pf = nullptr;
  pfcompile_counted(reinterpret_cast<const char *>(data), static_cast<long>(size), &pf);
  pffree(pf);
  elog_clear();
  return 0;
}
