// Durations: reading "hours:minutes:seconds" and writing a time difference for people.
#include <ctype.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/time.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "time.c";

namespace {

// Reads a run of digits as a number; doubles so that a long run cannot overflow.
double ReadDigits(const char **p) {
  double value = 0;
  while (isdigit(static_cast<unsigned char>(**p))) value = value * 10 + (*(*p)++ - '0');
  return value;
}

constexpr double kSecondsPerYear = 31536000.0;  // 365 days
constexpr size_t kMinDeltaWidth = 21;

}  // namespace

double timecon(const char *text) {
  if (text == nullptr) return 0;
  const char *p = text;
  double hours = ReadDigits(&p), minutes = 0, seconds = 0;
  if (*p != '\0') {
    p++;  // one separator
    minutes = ReadDigits(&p);
    if (*p != '\0') {
      p++;
      size_t n = strspn(p, "0123456789.");
      char run[64];
      if (n >= sizeof run) n = sizeof run - 1;
      memcpy(run, p, n);
      run[n] = '\0';
      seconds = strtod(run, nullptr);
    }
  }
  return hours * 3600 + minutes * 60 + seconds;
}

char *strtdelta(double x) {
  char text[128];
  bool negative = x < 0;
  if (negative) x = -x;
  text[0] = negative ? '-' : ' ';
  char *body = text + 1;
  const size_t room = sizeof text - 1;

  if (x >= kSecondsPerYear) {
    double years = floor(x / kSecondsPerYear);
    double days = floor((x - years * kSecondsPerYear) / 86400);
    if (days == 0) {
      snprintf(body, room, years < 1e6 ? "%.0f years" : "%.6g years", years);
    } else {
      snprintf(body, room, years > 1e6 ? "%.6g years %.0f days" : "%.0f years %.0f days", years,
               days);
    }
  } else if (x >= 86400) {
    double days = floor(x / 86400);
    double hours = floor(10 * (x - days * 86400) / 3600) / 10;
    if (hours == 0) {
      snprintf(body, room, "%.0f days", days);
    } else {
      snprintf(body, room, "%.0f days %.1f hours", days, hours);
    }
  } else if (x >= 3600) {
    double rounded = 60 * floor(x / 60 + 0.5);
    double hours = floor(rounded / 3600);
    snprintf(body, room, "%2.0f:%02.0f hours", hours, (rounded - hours * 3600) / 60);
  } else if (x >= 60) {
    double rounded = floor(x + 0.5);
    double minutes = floor(rounded / 60);
    snprintf(body, room, "%2.0f:%02.0f minutes", minutes, rounded - minutes * 60);
  } else if (x >= 1) {
    snprintf(body, room, "%6.3f seconds", x);
  } else if (x >= 0.001) {
    snprintf(body, room, "%7.3f milliseconds", x * 1e3);
  } else if (x >= 1e-6) {
    snprintf(body, room, "%7.3f microseconds", x * 1e6);
  } else if (x >= 1e-9) {
    snprintf(body, room, "%7.3f nanoseconds", x * 1e9);
  } else if (x == 0) {
    snprintf(body, room, "%2.0f seconds", x);
  } else {
    snprintf(body, room, "%.5g picoseconds", x * 1e12);
  }

  size_t length = strlen(text);
  while (length < kMinDeltaWidth) text[length++] = ' ';
  text[length] = '\0';
  if (negative) {
    // The sign stands just before the first digit: "- 1:01" becomes " -1:01".
    size_t i = 1;
    while (i < length && text[i] == ' ') i++;
    text[0] = ' ';
    text[i - 1] = '-';
  }
  char *result = static_cast<char *>(CV_MALLOC(length + 1, "delta"));
  memcpy(result, text, length + 1);
  return result;
}
