// Sizes and quantities written with a one-letter multiplier: "2k", "1.5G", "5m".
#include <string.h>

#include "corvel/text.h"
#include "text/strtod_c.h"

double sz2dbl(const char *text) {
  if (text == nullptr) return 0;
  size_t length = strlen(text);
  // The number reader stops at any of the letters, so reading the whole text gives the number
  // in front of the multiplier. Only a letter at the very end is a multiplier; case matters, so
  // "3K" is just 3.
  double value = corvel::text::StrtodC(text, nullptr);
  switch (length > 0 ? text[length - 1] : '\0') {
    case 'G':
      return value * 1e9;
    case 'M':
      return value * 1e6;
    case 'k':
      return value * 1e3;
    // Dividing by the exact power of ten rounds once; multiplying by the inexact 1e-3 would
    // round twice, and "5m" would not read as the same double as "0.005".
    case 'm':
      return value / 1e3;
    case 'u':
      return value / 1e6;
    default:
      return value;
  }
}
