// Reading times typed by people: dates in several layouts, year-days, times of day, stamps,
// bare epochs, "now" with offsets, and zone names, into epochs.
#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <math.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "corvel/elog.h"
#include "corvel/port.h"
#include "corvel/text.h"
#include "corvel/time.h"
#include "elog/oom.h"
#include "time/epoch_parse.h"
#include "time/epoch_source.h"
#include "time/epoch_tokens.h"
#include "time/tzswitch.h"

static constexpr char kSourceName[] = "str2epoch.c";

namespace corvel {
namespace epoch_parse {
namespace {

constexpr double kNoEpoch = 1e-9;  // Etime's marker for "no epoch given"
constexpr size_t kZoneSize = 256;

// The fields of one parse; reset at its start.
struct Fields {
  int year = 1970;
  int month = -1;
  int day = -1;
  int doy = 0;
  int hour = 0;
  int minute = 0;
  double second = 0;
  int dow = -1;
  int am = -1;
  double x1 = 0;
  double x2 = 0;
  double etime = kNoEpoch;
  char timezone[kZoneSize] = "";
  int using_timezone = 0;
  int retcode = 0;
  int elog_ok = 0;

  // Every field back to its initial value; the zone name is emptied, not cleared whole.
  // Keep in step with the initial values above.
  void Reset() {
    year = 1970;
    month = day = -1;
    doy = hour = minute = 0;
    second = 0;
    dow = am = -1;
    x1 = x2 = 0;
    etime = kNoEpoch;
    timezone[0] = '\0';
    using_timezone = retcode = elog_ok = 0;
  }
};

// One parse at a time: the scanner and these fields are process-wide.
pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
Fields g_fields;
const char *g_input = nullptr;
// Whether the newline that follows every text has been handed to the scanner.
bool g_final_newline_sent = false;

void Error(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void Error(const char *fmt, ...) {
  // Only the first error of a parse is worth reading; later ones usually follow from it.
  if (g_fields.retcode == 0 && g_fields.elog_ok) {
    va_list ap;
    va_start(ap, fmt);
    velog_log(0, fmt, ap);
    va_end(ap);
  }
  g_fields.retcode++;
}

int MonthFromName(const char *name) {
  static const char kMonths[] = "janfebmaraprmayjunjulaugsepoctnovdec";
  char abbreviation[4] = {0};
  for (int i = 0; i < 3 && name[i] != '\0'; i++) {
    abbreviation[i] = static_cast<char>(tolower(static_cast<unsigned char>(name[i])));
  }
  const char *found = strstr(kMonths, abbreviation);
  return found ? static_cast<int>(found - kMonths) / 3 + 1 : -1;
}

int WeekdayFromName(const char *name) {
  static const char kDays[] = "sunmontuewedthufrisat";
  char abbreviation[4] = {0};
  for (int i = 0; i < 3 && name[i] != '\0'; i++) {
    abbreviation[i] = static_cast<char>(tolower(static_cast<unsigned char>(name[i])));
  }
  const char *found = strstr(kDays, abbreviation);
  return found ? static_cast<int>(found - kDays) / 3 : -1;
}

// Tokens are made of digit runs the scanner has already checked: they are read directly, which
// costs a fraction of what sscanf and strtol do.
inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The value of the n digits at text, for the fixed-width fields of the dashed dates.
inline int Digits(const char *text, int n) {
  int value = 0;
  for (int i = 0; i < n; i++) value = value * 10 + (text[i] - '0');
  return value;
}

long ReadInt(const char **p) {
  constexpr long kLimit = (LONG_MAX - 9) / 10;  // beyond it, a digit more saturates
  long value = 0;
  const char *s = *p;
  while (IsDigit(*s)) {
    int digit = *s++ - '0';
    value = value > kLimit ? LONG_MAX : value * 10 + digit;
  }
  *p = s;
  return value;
}

// Reads ".ddd" at *p. Short fractions are computed exactly as strtod would round them (the
// fixed forms are read the same way); longer fractions go to strtod itself.
double ReadFraction(const char **p) {
  const char *s = *p;
  if (*s != '.') return 0;
  const char *digits = s + 1;
  long n = 0;
  int count = 0;
  while (IsDigit(digits[count]) && count <= kExactFractionDigits) {
    n = n * 10 + (digits[count] - '0');
    count++;
  }
  if (count > kExactFractionDigits || IsDigit(digits[count])) {
    char *end;
    double value = strtod(s, &end);
    *p = end;
    return value;
  }
  *p = digits + count;
  return FractionValue(n, count);
}

// Reads the integers of a token separated by other characters, the last one possibly with a
// fraction (into *fraction).
int ReadNumbers(const char *text, long *numbers, int max, double *fraction) {
  int n = 0;
  *fraction = 0;
  const char *p = text;
  while (*p != '\0' && n < max) {
    while (*p != '\0' && !IsDigit(*p)) p++;
    if (*p == '\0') break;
    numbers[n++] = ReadInt(&p);
    if (*p == '.') *fraction = ReadFraction(&p);
  }
  return n;
}

// The first integer of a token, held to the range of an int.
int IntAt(const char *text) {
  long value = ReadInt(&text);
  return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

// A bare integer as a number: exact up to 15 digits, as strtod reads it beyond.
double ReadNumber(const char *text) {
  return strlen(text) <= 15 ? static_cast<double>(atol(text)) : atof(text);
}

// The date of an epoch, as year and day of year (UTC).
void SetDateFrom(double epoch) {
  DateTime rec;
  rec.epoch = epoch;
  etoh(&rec);
  g_fields.year = rec.year;
  g_fields.doy = rec.doy;
}

// A slash date, and dashed dates that are not in the fixed-width form, read as month/day/year
// or, when the first number cannot be a month or a day, as year/month/day. A dashed date reads
// only its first number, so it is usually rejected: only the fixed-width form reads a dashed
// date.
void SlashDate(const char *text) {
  // Read as "%d/%d/%d" would: a dash ends the reading after the first number.
  long v[3] = {0, 0, 0};
  int n = 0;
  for (const char *p = text; n < 3; p++) {
    v[n++] = ReadInt(&p);
    if (*p != '/') break;
  }
  int a = static_cast<int>(v[0]), b = static_cast<int>(v[1]), c = static_cast<int>(v[2]);
  int month = -1, day = -1, year = g_fields.year;
  if (a > 31) {
    if (n < 3) {
      Error("str2epoch: Bad date format:'%s'", text);
      return;
    }
    year = a;
    month = b;
    day = c;
  } else {
    month = a;
    if (n >= 2) day = b;
    if (n >= 3) year = c;
    if (!is_month_first()) {
      int swap = month;
      month = day;
      day = swap;
    }
  }
  if (month > 12 || day > 31) {
    Error("str2epoch: Bad date format:'%s'", text);
    return;
  }
  g_fields.month = month;
  g_fields.day = day;
  g_fields.year = year;
}

void TimeOfDay(const char *text) {
  long v[3];
  double fraction;
  ReadNumbers(text, v, 3, &fraction);
  if (v[0] <= 24 && v[1] <= 59 && v[2] < 60) {
    g_fields.hour = static_cast<int>(v[0]);
    g_fields.minute = static_cast<int>(v[1]);
    g_fields.second = static_cast<double>(v[2]) + fraction;
  } else if (v[0] > 1970000 && v[0] <= 2099999 && v[1] <= 24 && v[2] < 60) {
    g_fields.year = static_cast<int>(v[0] / 1000);
    g_fields.doy = static_cast<int>(v[0] % 1000);
    g_fields.hour = static_cast<int>(v[1]);
    g_fields.minute = static_cast<int>(v[2]);
  } else {
    Error("str2epoch: bad input '%s'", text);
  }
}

// Offsets from now: hours, minutes and seconds in the order written, the first of them being
// the unit named by first_unit (3600 or 60).
void Offset(const char *text, double sign, double first_unit) {
  long v[3] = {0, 0, 0};
  double fraction;
  int n = ReadNumbers(text, v, 3, &fraction);
  double seconds = 0;
  double unit = first_unit;
  for (int i = 0; i < n; i++, unit /= 60) seconds += static_cast<double>(v[i]) * unit;
  g_fields.etime = std_now() + sign * seconds;
}

void ZoneName(const char *text) {
  if (strcmp(text, "LOCAL") == 0) {
    g_fields.timezone[0] = '\0';
    g_fields.using_timezone = 1;
    return;
  }
  snprintf(g_fields.timezone, kZoneSize, "%s", text);
  if (is_timezone(g_fields.timezone)) {
    g_fields.using_timezone = 1;
  } else {
    Error("str2epoch: no timezone '%s'", text);
    g_fields.timezone[0] = '\0';
    g_fields.using_timezone = 0;
  }
}

// The fields of a colon-separated stamp.
void SetStamp(long year, long doy, long hour, long minute, double second) {
  g_fields.year = static_cast<int>(year);
  g_fields.doy = static_cast<int>(doy);
  g_fields.hour = static_cast<int>(hour);
  g_fields.minute = static_cast<int>(minute);
  g_fields.second = second;
}

// Gives one token its meaning. Returns false when scanning must stop.
bool Apply(int token, const char *text) {
  Fields &f = g_fields;
  long v[6];
  double fraction;
  switch (token) {
    case kSlashDate:
    case kDashDate:
      SlashDate(text);
      break;
    case kIsoDate: {  // DDDD-DD-DD
      int year = Digits(text, 4), month = Digits(text + 5, 2), day = Digits(text + 8, 2);
      if (month > 12 || day > 31) {
        Error("str2epoch: Bad date format:'%s'", text);
      } else {
        f.year = year;
        f.month = month;
        f.day = day;
      }
      break;
    }
    case kYearDayDate: {  // DDDD-DDD
      int year = Digits(text, 4), doy = Digits(text + 5, 3);
      if (doy > 366) {
        Error("str2epoch: Bad date format:'%s'", text);
      } else {
        f.year = year;
        f.doy = doy;
      }
      break;
    }
    case kMonthName:
      f.month = MonthFromName(text);
      break;
    case kNow:
      f.etime = std_now();
      break;
    case kWeekday:
      f.dow = WeekdayFromName(text);
      break;
    case kDayComma:
      f.day = IntAt(text);
      break;
    case kCompactYearDay: {
      const char *digits = text;
      long value = ReadInt(&digits);
      if (value % 1000 > 366) {
        Error("str2epoch: Bad jdate format:'%s'", text);
      } else {
        f.year = static_cast<int>(value / 1000);
        f.doy = static_cast<int>(value % 1000);
      }
      break;
    }
    case kParenDoy:
      f.doy = IntAt(text + 1);
      break;
    case kMinuteSecond:
      ReadNumbers(text, v, 2, &fraction);
      f.minute = static_cast<int>(v[0]);
      f.second = static_cast<double>(v[1]) + fraction;
      break;
    case kTimeOfDay:
      TimeOfDay(text);
      break;
    case kYearDayStamp4:  // compact year-day, hour, minute, second
      ReadNumbers(text, v, 4, &fraction);
      SetStamp(v[0] / 1000, v[0] % 1000, v[1], v[2], static_cast<double>(v[3]) + fraction);
      break;
    case kYearDayStamp5:  // year, day of year, hour, minute, second
      ReadNumbers(text, v, 5, &fraction);
      SetStamp(v[0], v[1], v[2], v[3], static_cast<double>(v[4]) + fraction);
      break;
    case kYearDayStamp6:  // as above, then milliseconds
      ReadNumbers(text, v, 6, &fraction);
      SetStamp(v[0], v[1], v[2], v[3],
               static_cast<double>(v[4]) + static_cast<double>(v[5]) / 1000);
      break;
    case kMonthStamp: {  // year, month letters, day, hour, minute, second
      ReadNumbers(text, v, 5, &fraction);
      int doy = f.doy;  // a month stamp names no day of year
      SetStamp(v[0], doy, v[2], v[3], static_cast<double>(v[4]) + fraction);
      // The month's letters stand between the first two colons.
      f.month = MonthFromName(strchr(text, ':') + 1);
      f.day = static_cast<int>(v[1]);
      break;
    }
    case kMinute:
      f.minute = IntAt(text + 1);
      break;
    case kHourMinute:
      ReadNumbers(text, v, 2, &fraction);
      f.hour = static_cast<int>(v[0]);
      f.minute = static_cast<int>(v[1]);
      break;
    case kMinutesAgo:
      Offset(text, -1, 60);
      break;
    case kHoursAgo:
    case kSecondsAgo:
      Offset(text, -1, 3600);
      break;
    case kMinutesAhead:
      Offset(text, 1, 60);
      break;
    case kHoursAhead:
    case kSecondsAhead:
      Offset(text, 1, 3600);
      break;
    case kDaysAgo:
      SetDateFrom(floor(std_now() / 86400) * 86400 - atof(text + 1) * 86400);
      break;
    case kDaysSince1970:
      SetDateFrom(atof(text) * 86400);
      break;
    case kDecimalEpoch:
    case kNegativeEpoch:
    case kExponentEpoch:
      f.etime = atof(text);
      break;
    case kInteger: {
      double value = ReadNumber(text);
      if (f.x1 == 0) {
        f.x1 = value;
      } else if (f.x2 == 0) {
        f.x2 = value;
      } else {
        Error("str2epoch: extra number '%s'", text);
      }
      break;
    }
    case kAm:
      f.am = 1;
      break;
    case kPm:
      f.am = 0;
      break;
    case kZoneName:
      ZoneName(text);
      break;
    default: {
      unsigned char c = static_cast<unsigned char>(text[0]);
      if (!isprint(c)) {
        Error("str2epoch: can't interpret character 0x%x", c);
        return false;
      }
      Error("str2epoch: can't interpret '%s'", text);
      break;
    }
  }
  return true;
}

bool NothingRecognised() {
  static const Fields fresh;
  const Fields &f = g_fields;
  return f.year == fresh.year && f.month == fresh.month && f.day == fresh.day &&
         f.doy == fresh.doy && f.hour == fresh.hour && f.minute == fresh.minute &&
         f.second == fresh.second && f.dow == fresh.dow && f.am == fresh.am &&
         f.etime == kNoEpoch && f.x1 == 0 && f.x2 == 0 && !f.using_timezone;
}

// Bare numbers: a day, a compact year-day or a year; two of them a year and a day.
void ApplyBareNumbers() {
  Fields &f = g_fields;
  if (f.x1 == 0) return;
  if (f.x2 == 0) {
    if (f.x1 < 32) {
      f.day = static_cast<int>(f.x1);
    } else if (f.x1 > 1900000 && f.x1 < 2200001) {
      f.year = static_cast<int>(f.x1 / 1000);
      f.doy = static_cast<int>(f.x1 - f.year * 1000.0);
    } else if (f.x1 < 2200) {
      f.year = static_cast<int>(f.x1);
    } else {
      Error("str2epoch: number %f not understood", f.x1);
    }
    return;
  }
  double larger = f.x1 > f.x2 ? f.x1 : f.x2;
  double smaller = f.x1 > f.x2 ? f.x2 : f.x1;
  f.year = larger < 1e9 ? static_cast<int>(larger) : 1000000000;
  f.day = smaller < 1e9 ? static_cast<int>(smaller) : 1000000000;
  if (f.day >= 32) Error("str2epoch: number %d not understood", f.day);
}

// The first failing range check, if any, in the order that explains the most.
bool InRange() {
  const Fields &f = g_fields;
  bool no_date = f.doy == 0 && f.month == 1 && f.day == 1 && f.year == 1970;
  if (f.day >= 32) {
    Error("str2epoch: day = %d is too large", f.day);
  } else if (f.month >= 13) {
    Error("str2epoch: Month = %d is too large", f.month);
  } else if (f.minute >= 61) {
    Error("str2epoch: Minute = %d is too large", f.minute);
  } else if (f.second > 60) {
    Error("str2epoch: Second = %.5f is too large", f.second);
  } else if (f.hour >= 25 && !(no_date && f.hour <= 168)) {
    Error("str2epoch: Hour = %d is too large", f.hour);
  } else {
    return true;
  }
  return false;
}

void EpochFromFields() {
  Fields &f = g_fields;
  ApplyBareNumbers();
  if (f.year >= 69 && f.year <= 99) {
    f.year += 1900;
  } else if (f.year < 69) {
    f.year += 2000;
  }
  if (f.month <= 0) f.month = 1;
  if (f.day <= 0) f.day = 1;
  if (f.am == 1 && f.hour == 12) f.hour = 0;
  if (f.am == 0 && f.hour < 12) f.hour += 12;
  InRange();
  if (f.doy == 0) {
    // A month already reported as too large still gives a best-effort epoch.
    f.doy = mday2doy(f.year, f.month > 12 ? 12 : f.month, f.day);
  } else if (f.doy > 366) {
    Error("str2epoch: Doy = %d is too large", f.doy);
  }
  f.etime =
      h2e(static_cast<unsigned>(f.year), static_cast<unsigned>(f.doy), f.hour, f.minute, f.second);
}

// Reads the UTC reading of the fields again as wall-clock time in the named zone.
void ApplyZone() {
  Fields &f = g_fields;
  bool switched = f.timezone[0] != '\0';
  if (switched) {
    timecal::LockZoneSwitch();
    switchTZ(f.timezone);
  }
  double whole = floor(f.etime);
  double fraction = f.etime - whole;
  time_t seconds = static_cast<time_t>(whole);
  struct tm parts;
  time_t local = static_cast<time_t>(-1);
  if (gmtime_r(&seconds, &parts) != nullptr) {
    parts.tm_isdst = -1;
    local = mktime(&parts);
  }
  if (local == static_cast<time_t>(-1)) {
    Error("str2epoch: Can't convert to local timezone before 1970\n");
  } else {
    double difference = static_cast<double>(local) - f.etime;
    if (fabs(difference) > 86400) {
      char *text = strtdelta(difference);
      Error("str2epoch: invalid timezone difference = %s", text);
      free(text);
    } else {
      f.etime = static_cast<double>(local) + fraction;
    }
  }
  if (switched) {
    restoreTZ();
    timecal::UnlockZoneSwitch();
  }
}

}  // namespace

int ParseGeneral(const char *text, double *result, int log) {
  pthread_mutex_lock(&g_lock);
  g_fields.Reset();
  g_fields.elog_ok = log;
  if (text == nullptr) text = "";
  g_input = text;
  g_final_newline_sent = false;
  if (whitespace(text)) g_fields.retcode++;
  // A scanner that read the last text to its end starts the next one clean; one stopped early
  // still holds the rest of it.
  static bool scanner_at_end = false;
  if (!scanner_at_end) EP_reset();

  int token;
  scanner_at_end = false;
  while (true) {
    token = EP_lex();
    if (token == kEnd) {
      scanner_at_end = true;
      break;
    }
    if (!Apply(token, EP_get_text())) break;
  }
  g_input = nullptr;

  Fields &f = g_fields;
  if (NothingRecognised()) f.retcode++;
  if (f.x1 != 0 && f.x2 == 0 && f.month == -1 && f.hour == 0 && f.minute == 0 && f.second == 0 &&
      f.doy == 0) {
    f.etime = f.x1;
  }
  if (f.etime == kNoEpoch) EpochFromFields();
  // Epochs beyond what the platform's calendar can hold are not read in a zone.
  if (f.using_timezone) {
    if (fabs(f.etime) < 1e16) {
      ApplyZone();
    } else {
      Error("str2epoch: Can't convert to local timezone before 1970\n");
    }
  }

  *result = f.etime;
  int errors = f.retcode;
  pthread_mutex_unlock(&g_lock);
  return -errors;
}

int ReadSource(char *buf, size_t max_size) {
  if (g_input == nullptr || max_size == 0) return 0;
  size_t n = strnlen(g_input, max_size);
  memcpy(buf, g_input, n);
  g_input += n;
  // A newline after the text is a separator like any other, and it lets the last token end
  // before the end of the input, where the scanner would otherwise read that token twice.
  if (n < max_size && *g_input == '\0' && !g_final_newline_sent) {
    buf[n++] = '\n';
    g_final_newline_sent = true;
  }
  return static_cast<int>(n);
}

void *ScannerAlloc(size_t size) { return CV_MALLOC(size, "EP buffer"); }
void *ScannerRealloc(void *p, size_t size) { return CV_REALLOC(p, size, "EP buffer"); }

void ScannerFailed(const char *message) { elog_fault(0, "%s\n", message); }

}  // namespace epoch_parse
}  // namespace corvel

using corvel::epoch_parse::Parse;

int zstr2epoch(const char *text, double *epoch) {
  double value;
  int result = Parse(text, &value, 1);
  if (epoch != nullptr) *epoch = value;
  return result;
}

double str2epoch(const char *text) {
  double value;
  Parse(text, &value, 0);
  return value;
}

int is_epoch_string(const char *text, double *epoch) {
  double value;
  int result = Parse(text, &value, 0);
  if (epoch != nullptr) *epoch = value;
  return result == 0;
}

int time_string2epoch(const char *text, double *epoch) {
  double value = str2epoch(text);
  if (epoch != nullptr) *epoch = value;
  return 1;
}

double str2epoch_(const char *text, size_t length) {
  char *s = newcs(text, length);
  double value = str2epoch(s);
  free(s);
  return value;
}
