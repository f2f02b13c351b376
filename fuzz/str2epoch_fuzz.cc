// Times typed by people, as the parser gets them: any bytes up to a terminator. Every text that
// the fixed forms take directly is also run through the general parser, which must give the
// same epoch to the bit and no complaint at all.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/time.h"
#include "time/epoch_parse.h"

namespace {

void CompareWithGeneralParser(const char *text) {
  double direct;
  if (!corvel::epoch_parse::ParseFixedForm(text, &direct)) return;
  elog_clear();
  double general;
  int code = corvel::epoch_parse::ParseGeneral(text, &general, 1);
  char *messages = elog_string(0);
  bool silent = messages == nullptr || messages[0] == '\0';
  if (code != 0 || !silent || memcmp(&direct, &general, sizeof direct) != 0) {
    fprintf(stderr, "'%s' read directly as %.17g, by the general parser as %.17g (%d) '%s'\n", text,
            direct, general, code, messages != nullptr ? messages : "");
    abort();
  }
  free(messages);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  char *text = static_cast<char *>(malloc(size + 1));
  memcpy(text, data, size);
  text[size] = '\0';
  double epoch;
  zstr2epoch(text, &epoch);
  elog_clear();
  CompareWithGeneralParser(text);
  free(text);
  elog_clear();
  return 0;
}
