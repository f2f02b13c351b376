// The percent-code formatter: epochs and broken-down fields to text, in UTC or in a zone.
#include "time/format.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "corvel/elog.h"
#include "corvel/time.h"
#include "elog/oom.h"
#include "time/tzswitch.h"

static constexpr char kSourceName[] = "epoch.c";

const char *const Month[12] = {"January",   "February", "March",    "April",
                               "May",       "June",     "July",     "August",
                               "September", "October",  "November", "December"};
const char *const Week[7] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                             "Friday", "Saturday", "Sunday"};

const char *ordinal(int n) {
  // Exactly this rule: 101 to 103 get "th", 121 gets "st".
  if (n % 100 <= 20 && n >= 4) return "th";
  switch (n % 10) {
    case 1:
      return "st";
    case 2:
      return "nd";
    case 3:
      return "rd";
    default:
      return "th";
  }
}

namespace corvel {
namespace timecal {
namespace {

// Every code but %Z, %E and %T (which bound themselves) writes at most this much.
constexpr ptrdiff_t kMaxCodeOutput = 64;

// "00" to "99": two digits at a time.
constexpr char kDigitPairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

inline char *PutPair(char *p, unsigned int value) {
  memcpy(p, kDigitPairs + 2 * value, 2);
  return p + 2;
}

// Writes value as printf's "%0<width>d" (pad '0') or "%<width>d" (pad ' ') would.
__attribute__((noinline)) char *PutAnyInt(char *p, int value, int width, char pad) {
  bool negative = value < 0;
  unsigned int magnitude = negative ? 0u - static_cast<unsigned int>(value) : value;
  char digits[10];
  int count = 0;
  do {
    digits[count++] = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  int length = count + (negative ? 1 : 0);
  if (pad == ' ') {
    for (; length < width; length++) *p++ = ' ';
    if (negative) *p++ = '-';
  } else {
    if (negative) *p++ = '-';
    for (; length < width; length++) *p++ = '0';
  }
  while (count > 0) *p++ = digits[--count];
  return p;
}

// PutAnyInt with the widths and ranges of real times written inline, without a loop.
__attribute__((always_inline)) inline char *PutInt(char *p, int value, int width, char pad) {
  unsigned int u = static_cast<unsigned int>(value);  // a negative value is very large here
  if (width == 2 && u < 100) {
    p = PutPair(p, u);
    if (u < 10 && pad == ' ') p[-2] = ' ';
    return p;
  }
  if (width == 3 && u < 1000 && pad == '0') {
    unsigned int hundreds = u * 41 >> 12;  // u / 100 for u < 1000
    *p++ = static_cast<char>('0' + hundreds);
    return PutPair(p, u - hundreds * 100);
  }
  if (width == 4 && u - 1000 < 9000) {
    unsigned int hundreds = u * 5243 >> 19;  // u / 100 for u < 43699
    p = PutPair(p, hundreds);
    return PutPair(p, u - hundreds * 100);
  }
  return PutAnyInt(p, value, width, pad);
}

inline char *PutText(char *p, const char *text, size_t length) {
  memcpy(p, text, length);
  return p + length;
}

// Copies as much of text as fits before limit.
inline char *PutBounded(char *p, char *limit, const char *text) {
  size_t n = strnlen(text, static_cast<size_t>(limit - p));
  return PutText(p, text, n);
}

// printf into [p, limit), cut at limit.
template <typename... Args>
char *PrintBounded(char *p, char *limit, const char *format, Args... args) {
  size_t room = static_cast<size_t>(limit - p);
  int n = snprintf(p, room + 1, format, args...);
  if (n < 0) return p;
  return p + (static_cast<size_t>(n) < room ? static_cast<size_t>(n) : room);
}

inline int WholeSeconds(double second) { return ToIntClamped(second); }

// Integer part of (fraction * scale + 0.5); the fraction is what %S leaves.
inline int RoundedFraction(double second, double scale) {
  double fraction = second - trunc(second);
  return ToIntClamped(fraction * scale + 0.5);
}

inline int Hour12(int hour) {
  int h = hour % 12;
  return h == 0 ? 12 : h;
}

const char *MonthName(int month) { return month >= 1 && month <= 12 ? Month[month - 1] : "???"; }

// Writes one code. All but the bounded codes need kMaxCodeOutput bytes before limit. Inlined
// into the formatting loop, which keeps its pointers in registers across the codes.
__attribute__((always_inline)) inline char *PutCode(char *p, char *limit, char code,
                                                    const Fields &f) {
  switch (code) {
    case 'A': {
      const char *name = Week[Weekday(f.year, f.doy)];
      return PutText(p, name, strlen(name));
    }
    case 'a':
      return PutText(p, Week[Weekday(f.year, f.doy)], 3);
    case 'B': {
      const char *name = MonthName(f.month);
      return PutText(p, name, strlen(name));
    }
    case 'b':
      return PutText(p, MonthName(f.month), 3);
    case 'D': {
      bool month_first = is_month_first() != 0;
      p = PutInt(p, month_first ? f.month : f.day, 2, ' ');
      *p++ = '/';
      p = PutInt(p, month_first ? f.day : f.month, 2, '0');
      *p++ = '/';
      return PutInt(p, f.year % 100, 2, '0');
    }
    case 'd':
      return PutInt(p, f.day, 2, '0');
    case 'e':
      return PutInt(p, f.day, 2, ' ');
    case 'E':
      return PrintBounded(p, limit, "%15.3f", f.epoch);
    case 'G':
      p = PutInt(p, f.year, 4, '0');
      *p++ = '-';
      p = PutInt(p, f.month, 2, '0');
      *p++ = '-';
      return PutInt(p, f.day, 2, '0');
    case 'g':
      p = PutInt(p, f.year, 4, '0');
      *p++ = '-';
      return PutInt(p, f.doy, 3, '0');
    case 'H':
      return PutInt(p, f.hour, 2, '0');
    case 'k':
      return PutInt(p, f.hour, 2, ' ');
    case 'I':
      return PutInt(p, Hour12(f.hour), 2, '0');
    case 'l':
      return PutInt(p, Hour12(f.hour), 2, ' ');
    case 'j':
      return PutInt(p, f.doy, 3, '0');
    case 'L':
      return PutInt(p, f.month, 2, ' ');
    case 'm':
      return PutInt(p, f.month, 2, '0');
    case 'M':
      return PutInt(p, f.minute, 2, '0');
    case 'n':
      *p++ = '\n';
      return p;
    case 'O': {
      p = PutInt(p, f.doy, 0, ' ');
      return PutText(p, ordinal(f.doy), 2);
    }
    case 'o': {
      p = PutInt(p, f.day, 0, ' ');
      return PutText(p, ordinal(f.day), 2);
    }
    case 'p':
      return PutText(p, f.hour < 12 ? "AM" : "PM", 2);
    case 'S':
      return PutInt(p, WholeSeconds(f.second), 2, '0');
    case 's':
      return PutInt(p, RoundedFraction(f.second, 1000), 3, '0');
    case 'u': {
      int units = RoundedFraction(f.second, 100000);
      return PutInt(p, units > 99999 ? 99999 : units, 5, '0');
    }
    case 'T':
      return PrintBounded(p, limit, "%02d:%02d:%06.3f", f.hour, f.minute, f.second);
    case 't':
      *p++ = '\t';
      return p;
    case 'Y':
      return PutInt(p, f.year, 4, ' ');
    case 'y':
      return PutInt(p, f.year % 100, 2, '0');
    case 'Z':
    case 'z':
      return PutBounded(p, limit, f.zone != nullptr ? f.zone : "");
    default:
      // Any other character stands for itself ("%%" is "%").
      *p++ = code;
      return p;
  }
}

__attribute__((noinline)) char *PutCodeAside(char *p, char *limit, char code, const Fields &f) {
  return PutCode(p, limit, code, f);
}

// The fields of the local-time conversion of epoch in the zone now in force.
void BreakDownLocal(double epoch, Fields *f, char *zone_name) {
  double whole, fraction;
  SplitSeconds(epoch, &whole, &fraction);
  // Beyond this the platform's conversion cannot represent the year.
  constexpr double kLocalLimit = 6.7e16;
  struct tm tm;
  if (whole > -kLocalLimit && whole < kLocalLimit) {
    time_t seconds = static_cast<time_t>(whole);
    if (localtime_r(&seconds, &tm) != nullptr) {
      f->year = tm.tm_year + 1900;
      f->month = tm.tm_mon + 1;
      f->day = tm.tm_mday;
      f->doy = tm.tm_yday + 1;
      f->hour = tm.tm_hour;
      f->minute = tm.tm_min;
      f->second = tm.tm_sec + fraction;
      f->epoch = epoch;
      // The abbreviation in force at that time, which the zone's present names may not be.
      const char *name = tm.tm_zone != nullptr ? tm.tm_zone : tzname[tm.tm_isdst > 0 ? 1 : 0];
      snprintf(zone_name, kZoneNameSize, "%s", name != nullptr ? name : "");
      f->zone = zone_name;
      return;
    }
  }
  BreakDownUtc(epoch, f);
  snprintf(zone_name, kZoneNameSize, "UTC");
  f->zone = zone_name;
}

}  // namespace

size_t FormatFields(char *out, const char *format, const Fields &f) {
  char *p = out;
  char *limit = out + kFormatBufferSize - 1;  // the terminator's place
  const char *s = format != nullptr ? format : "";
  while (*s != '\0') {
    if (*s != '%') {
      if (p == limit) break;
      *p++ = *s++;
      continue;
    }
    char code = s[1];
    if (code == '\0') break;  // a lone '%' ends the output
    s += 2;
    if (limit - p >= kMaxCodeOutput) {
      p = PutCode(p, limit, code, f);
    } else {
      // Near the end of the buffer: format aside and keep what fits.
      char scratch[kMaxCodeOutput + 1];
      char *end = PutCodeAside(scratch, scratch + kMaxCodeOutput, code, f);
      size_t n = static_cast<size_t>(end - scratch);
      size_t room = static_cast<size_t>(limit - p);
      if (n > room) n = room;
      memcpy(p, scratch, n);
      p += n;
      if (p == limit) break;
    }
  }
  *p = '\0';
  return static_cast<size_t>(p - out);
}

int BreakDownInZone(const char *zone, double epoch, Fields *f, char *zone_name) {
  int saved_errno = errno;
  bool named = zone[0] != '\0' && strcmp(zone, "LOCAL") != 0;
  bool unknown = false;
  // Held in the process's own zone too, so that another thread's switch cannot show through.
  LockZoneSwitch();
  if (named) {
    if (switchTZ(zone) != 0 || errno != 0) {
      unknown = true;
      restoreTZ();
    }
  } else {
    tzset();  // follow TZ as the process has it now
  }
  BreakDownLocal(epoch, f, zone_name);
  if (named) restoreTZ();
  UnlockZoneSwitch();
  if (unknown) {
    elog_log(0, "Unrecognized timezone '%s'\n", zone);
    return -1;
  }
  errno = saved_errno;
  return 0;
}

size_t FormatEpochInto(char *out, const char *format, const char *zone, double epoch) {
  Fields f;
  char zone_name[kZoneNameSize];
  if (zone == nullptr) {
    BreakDownUtc(epoch, &f);
    f.zone = "UTC";
  } else {
    BreakDownInZone(zone, epoch, &f, zone_name);
  }
  return FormatFields(out, format, f);
}

char *FormatEpoch(const char *format, const char *zone, double epoch) {
  char text[kFormatBufferSize];
  size_t length = FormatEpochInto(text, format, zone, epoch);
  char *result = static_cast<char *>(CV_MALLOC(length + 1, "result"));
  memcpy(result, text, length + 1);
  return result;
}

}  // namespace timecal
}  // namespace corvel

char *ztime2str(const char *format, int year, int doy, int month, int day, int hour, int minute,
                const char *zonename, double epoch, double second) {
  corvel::timecal::Fields f = {year, doy, month, day, hour, minute, second, zonename, epoch};
  char text[corvel::timecal::kFormatBufferSize];
  size_t length = corvel::timecal::FormatFields(text, format, f);
  char *result = static_cast<char *>(CV_MALLOC(length + 1, "result"));
  memcpy(result, text, length + 1);
  return result;
}

char *epoch2str(const char *format, double epoch) {
  return corvel::timecal::FormatEpoch(format, nullptr, epoch);
}

char *zepoch2str(const char *format, const char *zone, double epoch) {
  return corvel::timecal::FormatEpoch(format, zone, epoch);
}

int e2hz(const char *zone, int *year, int *doy, int *month, int *day, int *hour, int *minute,
         double *second, char **zonename, double epoch) {
  corvel::timecal::Fields f;
  char zone_name[corvel::timecal::kZoneNameSize];
  int result = 0;
  if (zone == nullptr) {
    corvel::timecal::BreakDownUtc(epoch, &f);
    f.zone = "UTC";
  } else {
    result = corvel::timecal::BreakDownInZone(zone, epoch, &f, zone_name);
  }
  *year = f.year;
  *doy = f.doy;
  *month = f.month;
  *day = f.day;
  *hour = f.hour;
  *minute = f.minute;
  *second = f.second;
  *zonename = CV_STRDUP(f.zone, "zonename");
  return result;
}
