// Times and dates in the site's formats and in fmttime's numbered layouts, with fixed texts
// for epochs that cannot be shown as a time.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "corvel/time.h"
#include "elog/oom.h"
#include "time/format.h"

static constexpr char kSourceName[] = "epoch.c";

namespace {

// About the year 10000: beyond it an epoch is shown as a count of years.
constexpr double kFarOutEpoch = 253244534400.0;
// The longest fixed text, terminator included, is 40 bytes.
constexpr size_t kOutOfRangeSize = 48;

// Writes the fixed text for an epoch that cannot be shown as a time and returns true, or
// returns false for an epoch that can.
bool OutOfRangeText(double epoch, char *text) {
  if (isnan(epoch)) {
    snprintf(text, kOutOfRangeSize, "** Nan **");
  } else if (isinf(epoch)) {
    snprintf(text, kOutOfRangeSize,
             epoch > 0 ? "** The End of Time (+infinity) **"
                       : "** The Beginning of Time (-infinity) **");
  } else if (fabs(epoch) > kFarOutEpoch) {
    double years = floor(floor(epoch / 86400) / 365);
    snprintf(text, kOutOfRangeSize, epoch < 0 ? "** %6g years ago ** " : "** %6g years ahead ** ",
             years);
  } else {
    return false;
  }
  return true;
}

double RoundTo(double epoch, double units_per_second) {
  return floor(epoch * units_per_second + 0.5) / units_per_second;
}

char *Duplicate(const char *text, size_t length) {
  char *result = static_cast<char *>(CV_MALLOC(length + 1, "result"));
  memcpy(result, text, length + 1);
  return result;
}

// A site format (read after the formats are loaded) applied to epoch; times are rounded to
// milliseconds first so that %S and %s agree.
char *SiteFormatted(const char *const *setting, const char *zone, double epoch, bool round) {
  char text[corvel::timecal::kFormatBufferSize];
  if (OutOfRangeText(epoch, text)) return Duplicate(text, strlen(text));
  corvel::timecal::EnsureSiteFormats();
  if (round) epoch = RoundTo(epoch, 1000);
  size_t length = corvel::timecal::FormatEpochInto(text, *setting, zone, epoch);
  return Duplicate(text, length);
}

}  // namespace

char *strtime(double epoch) { return SiteFormatted(&Strtime_format, nullptr, epoch, true); }
char *strydtime(double epoch) { return SiteFormatted(&Strydtime_format, nullptr, epoch, true); }
char *strdate(double epoch) { return SiteFormatted(&Strdate_format, nullptr, epoch, false); }
char *strlocaltime(double epoch) { return SiteFormatted(&ZStrtime_format, "", epoch, true); }
char *strlocalydtime(double epoch) { return SiteFormatted(&ZStrydtime_format, "", epoch, true); }
char *strlocaldate(double epoch) { return SiteFormatted(&ZStrdate_format, "", epoch, false); }

int fmttime(char *buffer, int code, const char *zone, double epoch) {
  char text[corvel::timecal::kFormatBufferSize];
  if (OutOfRangeText(epoch, text)) {
    memcpy(buffer, text, strlen(text) + 1);
    return 0;
  }
  corvel::timecal::EnsureSiteFormats();
  bool utc = zone == nullptr || strcmp(zone, "UTC") == 0;
  const char *format;
  switch (code) {
    case 1:
      format = utc ? "%Y-%m-%d %T" : "%Y-%m-%d %T %z";
      break;
    case 3:
      format = utc ? "%Y-%m-%d" : "%Y-%m-%d %z";
      break;
    case 4:
      format = utc ? "%Y-%j" : "%Y-%j %z";
      break;
    case 5:
      format = utc ? Strtime_format : ZStrtime_format;
      break;
    case 6:
      format = utc ? Strdate_format : ZStrdate_format;
      break;
    case 7:
      format = utc ? Strydtime_format : ZStrydtime_format;
      break;
    case 8:
      format = utc ? UStrydtime_format : UZStrydtime_format;
      break;
    default:
      format = utc ? "%Y-%j %T" : "%Y-%j %T %z";
      break;
  }
  // Code 8 shows hundred-thousandths of a second and is rounded to them.
  epoch = RoundTo(epoch, code == 8 ? 100000 : 1000);
  size_t length = corvel::timecal::FormatEpochInto(text, format, utc ? nullptr : zone, epoch);
  memcpy(buffer, text, length + 1);
  return 0;
}
