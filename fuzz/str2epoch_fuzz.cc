// Times typed by people, as the parser gets them: any bytes up to a terminator.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/time.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  char *text = static_cast<char *>(malloc(size + 1));
  memcpy(text, data, size);
  text[size] = '\0';
  double epoch;
  zstr2epoch(text, &epoch);
  free(text);
  elog_clear();
  return 0;
}
