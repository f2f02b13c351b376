// The site's formats for times, year-day times and dates, and its choice between month-first
// and day-first dates: read once from "time_formats.pf", or the built-in defaults.
#include "time/siteformats.h"

#include <stdlib.h>
#include <string.h>

#include "corvel/time.h"
#include "elog/oom.h"
#include "time/format.h"

static constexpr char kSourceName[] = "epoch.c";

// Month-first defaults until the site formats are loaded. Note the two blanks between date and
// time: they are part of the output.
const char *Strtime_format = "%m/%d/%Y  %H:%M:%S.%s";
const char *Strydtime_format = "%m/%d/%Y  (%j) %H:%M:%S.%s";
const char *UStrydtime_format = "%m/%d/%Y  (%j) %H:%M:%S.%u";
const char *Strdate_format = "%m/%d/%Y";
const char *ZStrtime_format = "%m/%d/%Y  %H:%M:%S.%s %z";
const char *ZStrydtime_format = "%m/%d/%Y  (%j) %H:%M:%S.%s %z";
const char *UZStrydtime_format = "%m/%d/%Y  (%j) %H:%M:%S.%u %z";
const char *ZStrdate_format = "%m/%d/%Y %z";
int Month_first = 1;

namespace corvel {
namespace timecal {
namespace {

bool g_site_formats_unloaded = true;

struct SiteFormats {
  const char *time, *ydtime, *uydtime, *date;
  const char *ztime, *zydtime, *uzydtime, *zdate;
  int month_first;
};

constexpr SiteFormats kMonthFirst = {"%m/%d/%Y  %H:%M:%S.%s",
                                     "%m/%d/%Y  (%j) %H:%M:%S.%s",
                                     "%m/%d/%Y  (%j) %H:%M:%S.%u",
                                     "%m/%d/%Y",
                                     "%m/%d/%Y  %H:%M:%S.%s %z",
                                     "%m/%d/%Y  (%j) %H:%M:%S.%s %z",
                                     "%m/%d/%Y  (%j) %H:%M:%S.%u %z",
                                     "%m/%d/%Y %z",
                                     1};
constexpr SiteFormats kDayFirst = {"%d/%m/%Y  %H:%M:%S.%s",
                                   "%d/%m/%Y  (%j) %H:%M:%S.%s",
                                   "%d/%m/%Y  (%j) %H:%M:%S.%u",
                                   "%d/%m/%Y",
                                   "%d/%m/%Y  %H:%M:%S.%s %z",
                                   "%d/%m/%Y  (%j) %H:%M:%S.%s %z",
                                   "%d/%m/%Y  (%j) %H:%M:%S.%u %z",
                                   "%d/%m/%Y %z",
                                   0};

// The zone form of a site format: the format, a blank and the zone code. Kept for the rest
// of the process, as the settings may be read at any time.
const char *WithZone(const char *format) {
  size_t length = strlen(format);
  char *zoned = static_cast<char *>(CV_MALLOC(length + 4, "format"));
  memcpy(zoned, format, length);
  memcpy(zoned + length, " %z", 4);
  return zoned;
}

void Install(const SiteFormats &formats) {
  Strtime_format = formats.time;
  Strydtime_format = formats.ydtime;
  UStrydtime_format = formats.uydtime;
  Strdate_format = formats.date;
  ZStrtime_format = formats.ztime;
  ZStrydtime_format = formats.zydtime;
  UZStrydtime_format = formats.uzydtime;
  ZStrdate_format = formats.zdate;
  Month_first = formats.month_first;
}

}  // namespace

// The parameter-file reader is not part of the library yet, so no site file is ever found.
// When it is, this reads "time_formats.pf" through the parameter-file search: the string
// "location" names a table of the file ("european" whenever EUROPEAN_DATE is set); without a
// location the entries "time", "ydtime", "uydtime", "date" and the boolean "month_first" come
// from the top level, with one they come from "L{time}" and so on. A missing entry is fatal:
// "Could not read 'time' from %s" (likewise 'ydtime', also for a missing "uydtime", and
// 'date') at the top level, "Could not read '%s' from %s" with the composed key in a table.
int ReadTimeFormatsFile(bool european, SiteFormatEntries *entries) {
  (void)european;
  (void)entries;
  return kSiteFormatsNotFound;
}

void EnsureSiteFormats() {
  if (g_site_formats_unloaded) set_time_formats();
}

}  // namespace timecal
}  // namespace corvel

void set_time_formats(void) {
  using namespace corvel::timecal;
  bool european = getenv("EUROPEAN_DATE") != nullptr;
  SiteFormatEntries entries;
  if (ReadTimeFormatsFile(european, &entries) == kSiteFormatsFound) {
    SiteFormats formats = {entries.time,
                           entries.ydtime,
                           entries.uydtime,
                           entries.date,
                           WithZone(entries.time),
                           WithZone(entries.ydtime),
                           WithZone(entries.uydtime),
                           WithZone(entries.date),
                           entries.month_first};
    Install(formats);
  } else {
    Install(european ? kDayFirst : kMonthFirst);
  }
  g_site_formats_unloaded = false;
}

int is_month_first(void) {
  corvel::timecal::EnsureSiteFormats();
  return Month_first;
}
