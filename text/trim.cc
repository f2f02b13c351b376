// Blank handling: trimming, blank tests and null-safe printing.
#include <string.h>

#include "corvel/text.h"

namespace {

// Only these count as blank; a carriage return or any other control character is content.
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

}  // namespace

char *strtrim(char *text) {
  if (text == nullptr) return nullptr;
  char *first = text;
  while (IsBlank(*first)) first++;
  size_t n = strlen(first);
  while (n > 0 && IsBlank(first[n - 1])) n--;
  if (first != text) memmove(text, first, n);
  text[n] = '\0';
  return text;
}

int whitespace(const char *text) {
  if (text == nullptr) return 1;
  while (IsBlank(*text)) text++;
  return *text == '\0';
}

const char *okstr(const char *text) { return text != nullptr ? text : "<null>"; }
