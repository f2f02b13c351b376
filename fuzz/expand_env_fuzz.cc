// Texts with environment references as people write them: any bytes up to a terminator, with
// a few variables set, among them an empty one and one longer than the starting buffer.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "corvel/elog.h"
#include "corvel/text.h"

namespace {

void SetVariables() {
  static bool done = [] {
    setenv("HOME", "/home/corvel", 1);
    setenv("STA", "AAK", 1);
    setenv("EMPTY", "", 1);
    setenv("X1", "$HOME", 1);  // values are not expanded again
    setenv("LONG", std::string(3000, 'L').c_str(), 1);
    unsetenv("UNSET");
    return true;
  }();
  (void)done;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  SetVariables();
  char *text = static_cast<char *>(malloc(size + 1));
  memcpy(text, data, size);
  text[size] = '\0';
  char *expanded = expand_env(text);
  if (expanded == nullptr) abort();
  // A text without references comes back as it is.
  if (strchr(text, '$') == nullptr && strcmp(expanded, text) != 0) abort();
  free(expanded);
  free(text);
  elog_clear();
  return 0;
}
