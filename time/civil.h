// Integer calendar arithmetic shared by the time functions: an epoch broken down into UTC
// fields, days counted from 1970-01-01, weekdays. Internal to the library.
#ifndef CORVEL_TIME_CIVIL_H_
#define CORVEL_TIME_CIVIL_H_

#include <limits.h>
#include <math.h>
#include <stdint.h>

namespace corvel {
namespace timecal {

// Broken-down time as the formatter consumes it.
struct Fields {
  int year;
  int doy;  // 1..366
  int month;
  int day;
  int hour;
  int minute;
  double second;     // 0 <= second < 60, fraction included
  const char *zone;  // abbreviation printed by %Z
  double epoch;      // printed by %E
};

// Converts with saturation: NaN gives 0, values beyond the int range its nearest end. Used
// wherever a double from arbitrary input becomes an int, so that no input is undefined.
inline int ToIntClamped(double v) {
  if (v >= static_cast<double>(INT_MIN) && v < 2147483648.0) return static_cast<int>(v);
  if (v != v) return 0;
  return v < 0 ? INT_MIN : INT_MAX;
}

// Splits epoch into whole seconds and a fraction in [0, 1). A tiny negative epoch such as
// -1e-20 would otherwise leave a fraction that rounds to 1 and show a 60th second.
inline void SplitSeconds(double epoch, double *whole, double *fraction) {
  double w = floor(epoch);
  double f = epoch - w;
  if (f >= 1) {
    w += 1;
    f = 0;
  }
  *whole = w;
  *fraction = f;
}

inline int64_t FloorDiv(int64_t a, int64_t b) {
  int64_t q = a / b;
  return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

inline bool IsLeapYear(int64_t year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Days from 1970-01-01 to 1 January of year.
inline int64_t DaysBeforeYear(int64_t year) {
  return (year - 1970) * 365 + FloorDiv(year - 1969, 4) - FloorDiv(year - 1901, 100) +
         FloorDiv(year - 1601, 400);
}

// Month (1..12) and day of month of a day of year; months past December stop at December.
void MonthAndDay(int year, int doy, int *month, int *day);

// Year and day of year of a day counted from 1970-01-01 (|days| < 1e10) by the defining
// rule: the year estimated as 1970 + days / 365, corrected by at most one year.
void YearAndDayByEstimate(int64_t days, int *year, int *doy);

// Breaks epoch down in UTC into every field but zone (left untouched).
void BreakDownUtc(double epoch, Fields *fields);

// 0 = Monday .. 6 = Sunday, of the calendar date year/doy.
inline int Weekday(int year, int doy) {
  int64_t days = DaysBeforeYear(year) + doy - 1;
  int64_t w = (days + 3) % 7;
  return static_cast<int>(w < 0 ? w + 7 : w);
}

}  // namespace timecal
}  // namespace corvel

#endif  // CORVEL_TIME_CIVIL_H_
