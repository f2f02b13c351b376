// Reading the site's time formats from the parameter file "time_formats.pf". Internal.
#ifndef CORVEL_TIME_SITEFORMATS_H_
#define CORVEL_TIME_SITEFORMATS_H_

namespace corvel {
namespace timecal {

// The entries a site file gives; the zone formats are derived from them.
struct SiteFormatEntries {
  const char *time;
  const char *ydtime;
  const char *uydtime;
  const char *date;
  int month_first;
};

constexpr int kSiteFormatsFound = 0;
constexpr int kSiteFormatsNotFound = -1;

// Fills entries (strings that live for the rest of the process) from "time_formats.pf" and
// returns kSiteFormatsFound, or kSiteFormatsNotFound when no such file can be read; a file that
// lacks a format ends the process. european is true when EUROPEAN_DATE is set.
int ReadTimeFormatsFile(bool european, SiteFormatEntries *entries);

}  // namespace timecal
}  // namespace corvel

#endif  // CORVEL_TIME_SITEFORMATS_H_
