// Conversion between terminated strings and the blank-padded fixed-length fields that
// Fortran callers pass.
#include <string.h>

#include "corvel/text.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "fstring.c";

char *newcs(const char *field, size_t length) {
  size_t n = 0;
  if (field != nullptr && field[0] != '\0') {
    // A field may hold a terminator before its declared length: stop there.
    const void *nul = memchr(field, '\0', length);
    n = nul ? static_cast<size_t>(static_cast<const char *>(nul) - field) : length;
    while (n > 0 && field[n - 1] == ' ') n--;
  }
  char *s = static_cast<char *>(CV_MALLOC(n + 1, "s"));
  if (n) memcpy(s, field, n);
  s[n] = '\0';
  return s;
}

int cs2fs(char *field, const char *text, size_t length) {
  if (field == nullptr) return 0;
  size_t n = text != nullptr ? strnlen(text, length) : 0;
  if (n) memcpy(field, text, n);
  memset(field + n, ' ', length - n);
  return 0;
}
