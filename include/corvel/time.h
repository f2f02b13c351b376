/* Time: epochs (seconds since 1970-01-01 00:00:00 UTC, fraction included, proleptic Gregorian
 * calendar, no leap seconds), calendars, year-days (year * 1000 + day of year), time deltas,
 * axis tick times, BCD time codes and formatting with percent codes. */
#ifndef CORVEL_TIME_H
#define CORVEL_TIME_H

#include <stddef.h>

#include "corvel/export.h"

CORVEL_BEGIN_DECLS

/* A broken-down UTC time as the calendar functions exchange it. */
typedef struct DateTime {
  double epoch; /* seconds since 1970 */
  long date;    /* year * 1000 + day of year */
  int year;
  int month;     /* 1..12 */
  char mname[4]; /* "Jan".."Dec" */
  int day;       /* day of month */
  int doy;       /* day of year, 1..366 */
  int hour;
  int minute;
  double second; /* with fraction */
} DateTime;

/* ---- Calendar ---- */

/* 1 when year is a leap year of the Gregorian calendar. */
CORVEL_API int isleap(int year);
/* Days from 1970-01-01 to 1 January of year (negative before 1970). */
CORVEL_API double year2days(int year);
/* Epoch of 00:00:00 UTC on a year-day. */
CORVEL_API double dtoepoch(long yearday);
CORVEL_API double h2e(unsigned int year, unsigned int doy, int hour, int minute, double second);
CORVEL_API void e2h(double epoch, int *year, int *doy, int *hour, int *minute, double *second);
/* Fills every field of rec from rec->epoch. */
CORVEL_API void etoh(DateTime *rec);
/* Sets rec->epoch from date, hour, minute and second. */
CORVEL_API void htoe(DateTime *rec);
/* Sets doy and date from year, month and day. */
CORVEL_API void mdtodate(DateTime *rec);
/* Sets month, day and mname from year and doy. */
CORVEL_API void month_day(DateTime *rec);
CORVEL_API int mday2doy(int year, int month, int day);
CORVEL_API void doy2mday(int doy, int year, int *month, int *day);
/* The year-day of the current UTC date. */
CORVEL_API long todaysdate(void);
/* Fills rec for 00:00 UTC today. */
CORVEL_API void zh_today(DateTime *rec);
/* Prints rec on standard output. */
CORVEL_API void timeprint(DateTime *rec);
/* Seconds of a duration written "hours:minutes:seconds". */
CORVEL_API double timecon(const char *text);
/* A readable time difference, at least 21 characters; the caller frees it. */
CORVEL_API char *strtdelta(double seconds);
/* Chooses a calendar-aligned step for about count ticks over [t0, t1] and the first tick at
 * or after t0. Always 0; a zero range or a count below 1 leaves *step unwritten. */
CORVEL_API int get_nice_times(int count, double *first, double *step, double t0, double t1);
/* Six bytes of BCD digits: day of year, hour, minute, second, hundredths (three digits). */
CORVEL_API void epoch2bcd(unsigned char *bcd, double epoch);
/* Reads a BCD time code; the year is the current UTC year. */
CORVEL_API void bcdtime(const unsigned char *bcd, DateTime *rec);

/* Fortran entry points: every argument by reference. */
CORVEL_API double h2e_(int *year, int *doy, int *hour, int *minute, double *second);
CORVEL_API void e2h_(double *epoch, int *year, int *doy, int *hour, int *minute, double *second);
CORVEL_API void doy2mday_(int *doy, int *year, int *month, int *day);
CORVEL_API int mday2doy_(int *year, int *month, int *day);

/* ---- Formatting ---- */

/* Month names from January, weekday names from Monday. */
CORVEL_API extern const char *const Month[12];
CORVEL_API extern const char *const Week[7];

/* Site formats, loaded on first use by set_time_formats; callers may read or replace them. */
CORVEL_API extern const char *Strtime_format;
CORVEL_API extern const char *Strydtime_format;
CORVEL_API extern const char *UStrydtime_format;
CORVEL_API extern const char *Strdate_format;
CORVEL_API extern const char *ZStrtime_format;
CORVEL_API extern const char *ZStrydtime_format;
CORVEL_API extern const char *UZStrydtime_format;
CORVEL_API extern const char *ZStrdate_format;
CORVEL_API extern int Month_first;

/* Formats epoch in UTC with percent codes; the caller frees the result. */
CORVEL_API char *epoch2str(const char *format, double epoch);
/* As epoch2str in a zone: null is UTC, "" or "LOCAL" the process's own zone, anything else a
 * zone name or POSIX zone rule. An unknown zone is logged and the process's zone is used. */
CORVEL_API char *zepoch2str(const char *format, const char *zone, double epoch);
/* Site formats in UTC (times rounded to milliseconds). */
CORVEL_API char *strtime(double epoch);
CORVEL_API char *strydtime(double epoch);
CORVEL_API char *strdate(double epoch);
/* Site formats in the process's own zone, followed by the zone's abbreviation. */
CORVEL_API char *strlocaltime(double epoch);
CORVEL_API char *strlocalydtime(double epoch);
CORVEL_API char *strlocaldate(double epoch);
/* Writes layout code (1..8, others as 0) of epoch into buffer; zone null or "UTC" is UTC.
 * The caller provides room for the layout and at least 40 bytes. Always 0. */
CORVEL_API int fmttime(char *buffer, int code, const char *zone, double epoch);
/* Year-day (UTC) of an epoch and epoch of 00:00 UTC of a year-day. */
CORVEL_API int yearday(double epoch);
CORVEL_API double epoch(int yearday);
/* 1 when dates are read and written month first, 0 when day first. */
CORVEL_API int is_month_first(void);
/* Loads the site formats from "time_formats.pf", or the built-in defaults. */
CORVEL_API void set_time_formats(void);
/* Breaks epoch down in zone (null: UTC); *zonename is a new copy of the zone's abbreviation.
 * 0, or -1 when the zone is unknown (the process's zone is then used). */
CORVEL_API int e2hz(const char *zone, int *year, int *doy, int *month, int *day, int *hour,
                    int *minute, double *second, char **zonename, double epoch);
/* Formats broken-down fields with percent codes; the caller frees the result. */
CORVEL_API char *ztime2str(const char *format, int year, int doy, int month, int day, int hour,
                           int minute, const char *zonename, double epoch, double second);
/* "st", "nd", "rd" or "th". */
CORVEL_API const char *ordinal(int n);
/* Switches the process's zone by editing TZ ("" keeps the process's own zone); returns 0, or
 * -1 with errno set when the zone is unknown. restoreTZ puts TZ back as it was found. */
CORVEL_API int switchTZ(const char *zone);
CORVEL_API void restoreTZ(void);

/* ---- Parsing ---- */

/* Reads a time typed by a person into *epoch (stored in every case); 0, or minus the number
 * of errors found, which are logged. */
CORVEL_API int zstr2epoch(const char *text, double *epoch);
/* As zstr2epoch, silent and without an error indication. */
CORVEL_API double str2epoch(const char *text);
/* 1 when text reads without error, else 0; silent; stores the epoch. */
CORVEL_API int is_epoch_string(const char *text, double *epoch);
/* Always 1; stores str2epoch(text). */
CORVEL_API int time_string2epoch(const char *text, double *epoch);

/* Fortran entry points: arguments by reference, text lengths last. */
CORVEL_API double str2epoch_(const char *text, size_t textlen);
CORVEL_API double epoch_(int *yearday);
CORVEL_API int yearday_(double *epoch);
CORVEL_API void strtime_(char *out, double *epoch, size_t outlen);
CORVEL_API void strdate_(char *out, double *epoch, size_t outlen);
CORVEL_API void epoch2str_(char *out, double *epoch, const char *format, size_t outlen,
                           size_t formatlen);

CORVEL_END_DECLS

#endif
