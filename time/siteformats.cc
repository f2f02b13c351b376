// The site's formats for times, year-day times and dates, and its choice between month-first
// and day-first dates: read once from "time_formats.pf", or the built-in defaults.
#include "time/siteformats.h"

#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "corvel/text.h"
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

constexpr char kSiteFile[] = "time_formats.pf";

// The text of a string entry, or null when the path names nothing or something other than a
// string. The kind is checked first so that the getters' die handler, which a program may have
// replaced, never answers for the site file: a missing or unusable format gets our own message.
const char *SiteString(Pf *pf, const char *key) {
  Pf *node;
  if (pfresolve(pf, key, 0, &node) != PFSTRING) return nullptr;
  return pfget_string(pf, key);
}

// The path of an entry: the name itself at the top level, "L{name}" in the table L.
char *EntryKey(const char *table, const char *name) {
  return table == nullptr ? CV_STRDUP(name, "key") : strconcat(table, "{", name, "}", nullptr);
}

// A format the file must give, copied: the settings outlive the tree.
const char *RequiredFormat(Pf *pf, const char *table, const char *name) {
  char *key = EntryKey(table, name);
  const char *text = SiteString(pf, key);
  if (text == nullptr) {
    // At the top level a missing "uydtime" is reported as 'ydtime': the messages are part of
    // the interface and stay exactly so.
    const char *shown = table != nullptr ? key : strcmp(name, "uydtime") == 0 ? "ydtime" : name;
    elog_die(0, "Could not read '%s' from %s", shown, kSiteFile);
  }
  free(key);
  return CV_STRDUP(text, "format");
}

// A missing or non-string "month_first" means day first, without a message.
int MonthFirst(Pf *pf, const char *table) {
  char *key = EntryKey(table, "month_first");
  int month_first = SiteString(pf, key) != nullptr && pfget_boolean(pf, key) != 0;
  free(key);
  return month_first;
}

}  // namespace

// "time_formats" is found along the parameter-file path like any other parameter file, so a
// site or a user can override the installed one. The string "location" names a table of the
// file ("european" whenever EUROPEAN_DATE is set, so that one switch gives day-first dates
// whatever the site chose); without one the entries come from the top level. A file that was
// read but lacks a format is fatal rather than a reason to fall back to the defaults, which
// would hide a broken site file.
int ReadTimeFormatsFile(bool european, SiteFormatEntries *entries) {
  Pf *pf = nullptr;
  if (pfread("time_formats", &pf) == -1) return kSiteFormatsNotFound;
  const char *table = european ? "european" : SiteString(pf, "location");
  if (table != nullptr && table[0] == '\0') table = nullptr;  // an empty location names none
  entries->time = RequiredFormat(pf, table, "time");
  entries->ydtime = RequiredFormat(pf, table, "ydtime");
  entries->uydtime = RequiredFormat(pf, table, "uydtime");
  entries->date = RequiredFormat(pf, table, "date");
  entries->month_first = MonthFirst(pf, table);
  pffree(pf);
  return kSiteFormatsFound;
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
