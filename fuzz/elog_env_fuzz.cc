// Values of ELOG_DELIVER, ELOG_TAG and ELOG_DEBUG as people set them: any bytes up to a
// terminator. Whatever the value, every slot of the table must stay terminated.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  char *value = static_cast<char *>(malloc(size + 1));
  memcpy(value, data, size);
  value[size] = '\0';
  char table[ELOG_NSEVERITY][ELOG_SLOT_SIZE];
  for (int s = 0; s < ELOG_NSEVERITY; s++) {
    snprintf(table[s], sizeof table[s], "%s", Deliver_default[s]);
  }
  elog_fill_from_env(value, table, Debug_default, 1);
  for (int s = 0; s < ELOG_NSEVERITY; s++) {
    if (memchr(table[s], '\0', ELOG_SLOT_SIZE) == nullptr) abort();
  }
  free(value);
  return 0;
}
