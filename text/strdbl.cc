// The compact text of a double: no leading zero, and an engineering exponent (a multiple of
// three) for values far from one.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "corvel/text.h"

namespace {

// value * 10^exponent. Scaling up by a power of ten that is exact (or correctly rounded) is
// more accurate than dividing by the inexact negative power; the largest exponents are applied
// in two steps because 10^321 overflows.
double ScaleByPowerOfTen(double value, int exponent) {
  if (exponent < 0) return value / pow(10.0, -exponent);
  if (exponent > 300) {
    value *= 1e300;
    exponent -= 300;
  }
  return value * pow(10.0, exponent);
}

}  // namespace

char *strdbl(char *buffer, double value) {
  if (isnan(value)) return strcpy(buffer, "NaN");
  if (isinf(value)) return strcpy(buffer, value < 0 ? "-Inf" : "Inf");
  const double magnitude = fabs(value);
  int k = 0;
  if (magnitude != 0 && (magnitude > 1e10 || magnitude < 0.001)) {
    // Integer division truncates toward zero, as the exponent rule requires.
    k = static_cast<int>(99 + log10(magnitude)) / 3 - 33;
  }
  const double scaled = k != 0 ? ScaleByPowerOfTen(value, -3 * k) : value;
  int n = snprintf(buffer, 32, "%.15g", scaled);
  if (buffer[0] == '0' && n > 1) {
    memmove(buffer, buffer + 1, static_cast<size_t>(n));  // the terminator moves too
    n--;
  }
  if (k != 0) snprintf(buffer + n, static_cast<size_t>(32 - n), "e%d", 3 * k);
  return buffer;
}
