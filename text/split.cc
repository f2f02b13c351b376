// Cutting a text in place into the fields between separators.
#include <string.h>

#include "corvel/tbl.h"
#include "corvel/text.h"

Tbl *split(char *text, int c) {
  Tbl *fields = newtbl(5);
  if (text == nullptr) return fields;
  const char separator = static_cast<char>(c);
  char *p = text;
  for (;;) {
    while (*p == separator && *p != '\0') p++;
    if (*p == '\0') break;
    pushtbl(fields, p);
    p = strchrnul(p, separator);
    if (*p == '\0') break;
    *p++ = '\0';
  }
  return fields;
}
