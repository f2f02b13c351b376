// The common fixed forms of a time text, read directly: "2024-02-01 07:05:09.047",
// "2024-032 07:05:09", "2024:032:07:05:09.5" and the like. Most times that programs read were
// written by programs in one of these forms, and reading them this way needs neither the
// scanner nor the parser's shared fields, so no lock either. A text is taken here only when the
// general parser would read it without a single complaint, and the epoch is computed with the
// same arithmetic, so the result is the one the general parser gives, to the last bit; every
// other text, and every doubt, is left to the general parser.
//
// No form read here depends on the site's month-first setting or on the process's zone: that
// setting only decides slashed and unevenly dashed dates, and a zone must be named in the text.
#include "corvel/time.h"
#include "time/epoch_parse.h"

namespace corvel {
namespace epoch_parse {
namespace {

inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads exactly n digits at *p into *value and moves past them. Stops at the first character
// that is not a digit, the terminator included, so it never reads past the text.
inline bool TakeDigits(const char **p, int n, int *value) {
  const char *s = *p;
  int v = 0;
  for (int i = 0; i < n; i++) {
    if (!IsDigit(s[i])) return false;
    v = v * 10 + (s[i] - '0');
  }
  *p = s + n;
  *value = v;
  return true;
}

inline bool Take(const char **p, char c) {
  if (**p != c) return false;
  ++*p;
  return true;
}

// Years of one or two digits are read as the general parser reads them: 69..99 are 1969..1999,
// 0..68 are 2000..2068.
inline int FullYear(int year) {
  if (year >= 69 && year <= 99) return year + 1900;
  if (year < 69) return year + 2000;
  return year;
}

// "SS" or "SS.f" ending the text, whole seconds 0..59 (60 and more draw a message or are read
// as another token) and at most the digits of fraction that the parser itself computes.
bool TakeSecondsToEnd(const char *p, double *second) {
  int whole;
  if (!TakeDigits(&p, 2, &whole) || whole > 59) return false;
  double fraction = 0;
  if (Take(&p, '.')) {
    long digits = 0;
    int count = 0;
    while (count <= kExactFractionDigits && IsDigit(p[count])) {
      digits = digits * 10 + (p[count] - '0');
      count++;
    }
    // A point without digits is a token of its own; longer fractions go through strtod.
    if (count == 0 || count > kExactFractionDigits) return false;
    fraction = FractionValue(digits, count);
    p += count;
  }
  if (*p != '\0') return false;
  *second = static_cast<double>(whole) + fraction;
  return true;
}

// What may follow a dashed date: the end of the text, or one blank and "HH:MM" or
// "HH:MM:SS[.f]" ending it. Hours up to 24 and minutes up to 60 pass the range checks; with
// seconds the time-of-day token wants minutes below 60.
bool TakeTimeOfDayToEnd(const char *p, int *hour, int *minute, double *second) {
  *hour = 0;
  *minute = 0;
  *second = 0;
  if (*p == '\0') return true;
  if (!Take(&p, ' ') || !TakeDigits(&p, 2, hour) || !Take(&p, ':') || !TakeDigits(&p, 2, minute) ||
      *hour > 24) {
    return false;
  }
  if (*p == '\0') return *minute <= 60;
  return *minute <= 59 && Take(&p, ':') && TakeSecondsToEnd(p, second);
}

}  // namespace

bool ParseFixedForm(const char *text, double *result) {
  const char *p = text;
  int year, doy, hour, minute;
  double second;
  if (!TakeDigits(&p, 4, &year)) return false;
  if (Take(&p, ':')) {
    // YYYY:DDD:HH:MM:SS[.f]; a day of year 0 would stand for the first of January, and
    // 1970:000:00:00:00 for nothing recognised at all: those go the long way.
    if (!TakeDigits(&p, 3, &doy) || !Take(&p, ':') || !TakeDigits(&p, 2, &hour) || !Take(&p, ':') ||
        !TakeDigits(&p, 2, &minute) || !Take(&p, ':') || !TakeSecondsToEnd(p, &second)) {
      return false;
    }
    if (doy < 1 || doy > 366 || hour > 24 || minute > 60) return false;
    year = FullYear(year);
  } else if (Take(&p, '-')) {
    int first;
    if (!TakeDigits(&p, 2, &first)) return false;
    if (Take(&p, '-')) {
      // YYYY-MM-DD: a month or day of 00 stands for the first; days past a month's end run
      // on into the next month, as the general parser counts them.
      int day;
      if (!TakeDigits(&p, 2, &day) || first > 12 || day > 31) return false;
      year = FullYear(year);
      doy = mday2doy(year, first > 0 ? first : 1, day > 0 ? day : 1);
    } else {
      // YYYY-DDD, with the same care for day 000 as above.
      int last;
      if (!TakeDigits(&p, 1, &last)) return false;
      doy = first * 10 + last;
      if (doy < 1 || doy > 366) return false;
      year = FullYear(year);
    }
    if (!TakeTimeOfDayToEnd(p, &hour, &minute, &second)) return false;
  } else {
    return false;
  }
  *result = h2e(static_cast<unsigned>(year), static_cast<unsigned>(doy), hour, minute, second);
  return true;
}

}  // namespace epoch_parse
}  // namespace corvel
