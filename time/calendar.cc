// Conversions between epochs and calendar fields in UTC on the proleptic Gregorian calendar.
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <atomic>

#include "corvel/time.h"
#include "time/civil.h"

namespace corvel {
namespace timecal {
namespace {

// The thirteenth entry lets a day of year past December end the month search in range.
constexpr int kDaysInMonth[13] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31, 31};
// Day of year before the first of each month, in common and in leap years.
constexpr short kDaysBeforeMonth[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};
constexpr char kMonthAbbrev[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Past this the whole seconds and the day count no longer fit the integer path; such epochs
// are nonsense as times but must still break down without undefined behaviour.
constexpr double kIntegerPathLimit = 1e15;

bool IsLeapYearDouble(double y) {
  if (!isfinite(y)) return false;
  return fmod(y, 4.0) == 0 && (fmod(y, 100.0) != 0 || fmod(y, 400.0) == 0);
}

double DaysBeforeYearDouble(double y) {
  return (y - 1970) * 365 + floor((y - 1969) / 4) - floor((y - 1901) / 100) +
         floor((y - 1601) / 400);
}

// The year is estimated as 1970 + days / 365 and corrected by at most one year, which holds
// from 1 January 462 to day 365 of 3476; outside that the estimate is off by more and
// the guards below define the result. They are part of the defined behaviour and must stay as
// they are. Works on int64_t or double alike.
template <typename Number, typename LeapFn>
void CorrectYearEstimate(Number *year, Number *rest, LeapFn is_leap) {
  Number y = *year, r = *rest;
  if (r < -366) r = 0;
  if (r < 0) {
    y = y - 1;
    r += is_leap(y) ? 366 : 365;
  } else if (r >= 730) {
    r = 0;
  } else if (is_leap(y) && r > 365) {
    y = y + 1;
    r -= 366;
  } else if (!is_leap(y) && r > 364) {
    y = y + 1;
    r -= 365;
  }
  *year = y;
  *rest = r;
}

void BreakDownHuge(double epoch, Fields *f) {
  double days = floor(epoch / 86400.0);
  double rest = epoch - 86400.0 * days;
  if (!(rest >= 0 && rest < 86400)) rest = 0;
  int hour = static_cast<int>(rest / 3600);
  int minute = static_cast<int>((rest - 3600.0 * hour) / 60);
  f->hour = hour;
  f->minute = minute;
  f->second = rest - 3600.0 * hour - 60.0 * minute;

  double y = 1970 + floor(days / 365);
  double r = days - DaysBeforeYearDouble(y);
  CorrectYearEstimate(&y, &r, IsLeapYearDouble);
  f->year = ToIntClamped(y);
  f->doy = (r >= -1 && r < 366) ? static_cast<int>(r) + 1 : 1;
}

}  // namespace

void MonthAndDay(int year, int doy, int *month, int *day) {
  bool leap = IsLeapYear(year);
  if (doy >= 1 && doy <= 365 + leap) {
    // No month has fewer than 28 days nor more than 31: start at the estimate and step on.
    const short *before = kDaysBeforeMonth[leap];
    int m = (doy - 1) / 31;
    while (doy > before[m + 1]) m++;
    *month = m + 1;
    *day = doy - before[m];
    return;
  }
  int m = 0;
  for (; m < 13; m++) {
    int length = kDaysInMonth[m] + (m == 1 && leap ? 1 : 0);
    if (length >= doy) break;
    doy -= length;
  }
  *month = m < 12 ? m + 1 : 12;
  *day = doy;
}

namespace {

// Days from 1970 of 462-01-01 and 3476-12-30 (day 365 of a leap year): between them the
// corrected year estimate gives the true calendar date, which CivilFromDays computes faster.
constexpr int64_t kFirstExactDay = -550785;
constexpr int64_t kLastExactDay = 550419;

// The date of a day counted from 1970-01-01, in years that start on 1 March so that the
// leap day comes last; valid for days >= -719468 (year 0).
void CivilFromDays(int32_t days, Fields *f) {
  uint32_t z = static_cast<uint32_t>(days + 719468);  // days from 0000-03-01
  uint32_t era = z / 146097;
  uint32_t day_of_era = z - era * 146097;
  uint32_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  uint32_t day_of_march_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  uint32_t march_month = (5 * day_of_march_year + 2) / 153;  // 0 = March
  int day = static_cast<int>(day_of_march_year - (153 * march_month + 2) / 5 + 1);
  int month = static_cast<int>(march_month < 10 ? march_month + 3 : march_month - 9);
  int year = static_cast<int>(year_of_era + era * 400) + (month <= 2 ? 1 : 0);
  f->year = year;
  f->month = month;
  f->day = day;
  f->doy = kDaysBeforeMonth[IsLeapYear(year)][month - 1] + day;
}

// The calendar date of the day last broken down: times come in order far more often than
// not, and most fall on the day before them. One 64-bit word, so that threads share it
// without a lock: the day number in the high half, then year (14 bits), day of year (9),
// month (4) and day of month (5). A year of 0 marks it empty.
std::atomic<uint64_t> g_last_day{0};

bool RecallDay(int64_t days, Fields *f) {
  uint64_t packed = g_last_day.load(std::memory_order_relaxed);
  if (static_cast<int32_t>(packed >> 32) != days || (packed >> 18 & 0x3fff) == 0) return false;
  f->year = static_cast<int>(packed >> 18 & 0x3fff);
  f->doy = static_cast<int>(packed >> 9 & 0x1ff);
  f->month = static_cast<int>(packed >> 5 & 0xf);
  f->day = static_cast<int>(packed & 0x1f);
  return true;
}

void RememberDay(int64_t days, const Fields &f) {
  if (f.year < 1 || f.year > 0x3fff || f.doy < 1 || f.doy > 366 || f.day < 1) return;
  uint64_t packed = static_cast<uint64_t>(static_cast<uint32_t>(days)) << 32 |
                    static_cast<uint64_t>(f.year) << 18 | static_cast<uint64_t>(f.doy) << 9 |
                    static_cast<uint64_t>(f.month) << 5 | static_cast<uint64_t>(f.day);
  g_last_day.store(packed, std::memory_order_relaxed);
}

}  // namespace

void YearAndDayByEstimate(int64_t days, int *year, int *doy) {
  int64_t y = 1970 + FloorDiv(days, 365);
  int64_t r = days - DaysBeforeYear(y);
  CorrectYearEstimate(&y, &r, [](int64_t candidate) { return IsLeapYear(candidate); });
  *year = static_cast<int>(y);
  *doy = static_cast<int>(r) + 1;
}

void BreakDownUtc(double epoch, Fields *f) {
  f->epoch = epoch;
  if (!(epoch > -kIntegerPathLimit && epoch < kIntegerPathLimit)) {
    BreakDownHuge(epoch, f);
  } else {
    // Whole seconds and fraction separately: the fraction stays exact and the day split
    // needs no floating-point division, so a time just before midnight stays on its day.
    double whole, fraction;
    SplitSeconds(epoch, &whole, &fraction);
    int64_t seconds = static_cast<int64_t>(whole);
    int64_t days = FloorDiv(seconds, 86400);
    int second_of_day = static_cast<int>(seconds - days * 86400);
    f->hour = second_of_day / 3600;
    f->minute = second_of_day % 3600 / 60;
    f->second = (second_of_day % 60) + fraction;

    bool day_fits = days >= INT32_MIN && days <= INT32_MAX;
    if (day_fits && RecallDay(days, f)) return;
    if (days >= kFirstExactDay && days <= kLastExactDay) {
      CivilFromDays(static_cast<int32_t>(days), f);
      RememberDay(days, *f);
      return;
    }
    YearAndDayByEstimate(days, &f->year, &f->doy);
    MonthAndDay(f->year, f->doy, &f->month, &f->day);
    if (day_fits) RememberDay(days, *f);
    return;
  }
  MonthAndDay(f->year, f->doy, &f->month, &f->day);
}

}  // namespace timecal
}  // namespace corvel

using corvel::timecal::DaysBeforeYear;
using corvel::timecal::Fields;
using corvel::timecal::kDaysInMonth;
using corvel::timecal::kMonthAbbrev;

int isleap(int year) { return corvel::timecal::IsLeapYear(year) ? 1 : 0; }

double year2days(int year) { return static_cast<double>(DaysBeforeYear(year)); }

double dtoepoch(long yearday) {
  long year = yearday / 1000, day = yearday % 1000;
  return 86400.0 * static_cast<double>(DaysBeforeYear(year) + (day - 1));
}

double h2e(unsigned int year, unsigned int doy, int hour, int minute, double second) {
  return dtoepoch(static_cast<long>(year) * 1000 + doy) + hour * 3600.0 + minute * 60.0 + second;
}

void e2h(double epoch, int *year, int *doy, int *hour, int *minute, double *second) {
  Fields f;
  corvel::timecal::BreakDownUtc(epoch, &f);
  *year = f.year;
  *doy = f.doy;
  *hour = f.hour;
  *minute = f.minute;
  *second = f.second;
}

void etoh(DateTime *rec) {
  Fields f;
  corvel::timecal::BreakDownUtc(rec->epoch, &f);
  rec->year = f.year;
  rec->doy = f.doy;
  rec->date = static_cast<long>(f.year) * 1000 + f.doy;
  rec->month = f.month;
  rec->day = f.day;
  memcpy(rec->mname, kMonthAbbrev[f.month - 1], 4);
  rec->hour = f.hour;
  rec->minute = f.minute;
  rec->second = f.second;
}

void htoe(DateTime *rec) {
  rec->epoch = dtoepoch(rec->date) + rec->hour * 3600.0 + rec->minute * 60.0 + rec->second;
}

void month_day(DateTime *rec) {
  corvel::timecal::MonthAndDay(rec->year, rec->doy, &rec->month, &rec->day);
  memcpy(rec->mname, kMonthAbbrev[rec->month - 1], 4);
}

int mday2doy(int year, int month, int day) {
  bool leap = corvel::timecal::IsLeapYear(year);
  // Summed wide: a day read from a text may be as large as an int holds.
  long doy = day;
  for (int m = 0; m < month - 1 && m < 12; m++) doy += kDaysInMonth[m] + (m == 1 && leap);
  return doy > INT_MAX ? INT_MAX : static_cast<int>(doy);
}

void mdtodate(DateTime *rec) {
  rec->doy = mday2doy(rec->year, rec->month, rec->day);
  rec->date = static_cast<long>(rec->year) * 1000 + rec->doy;
}

void doy2mday(int doy, int year, int *month, int *day) {
  corvel::timecal::MonthAndDay(year, doy, month, day);
}

long todaysdate(void) {
  time_t now = time(nullptr);
  struct tm tm;
  gmtime_r(&now, &tm);
  return 1900000L + tm.tm_year * 1000L + tm.tm_yday + 1;
}

void zh_today(DateTime *rec) {
  rec->epoch = dtoepoch(todaysdate());
  etoh(rec);
}

void timeprint(DateTime *rec) {
  printf("%15.3f %8ld %s %2d,%4d %2d:%02d:%02.3f\n", rec->epoch, rec->date, rec->mname, rec->day,
         rec->year, rec->hour, rec->minute, rec->second);
}

int yearday(double epoch) {
  Fields f;
  corvel::timecal::BreakDownUtc(epoch, &f);
  return corvel::timecal::ToIntClamped(static_cast<double>(f.year) * 1000 + f.doy);
}

double epoch(int yearday) { return dtoepoch(yearday); }
