// The percent-code formatter and the zone breakdown behind the exported formatting functions.
// Internal to the library.
#ifndef CORVEL_TIME_FORMAT_H_
#define CORVEL_TIME_FORMAT_H_

#include <stddef.h>

#include "time/civil.h"

namespace corvel {
namespace timecal {

// Size of the working buffer a formatted time is assembled in; longer output is cut.
constexpr size_t kFormatBufferSize = 1024;
// Room for a zone abbreviation.
constexpr size_t kZoneNameSize = 64;

// Writes format with fields into out (kFormatBufferSize bytes, always terminated); returns the
// length written.
size_t FormatFields(char *out, const char *format, const Fields &fields);

// Breaks epoch down in zone ("" or "LOCAL": the process's zone, no switch) with the
// abbreviation copied into zone_name (kZoneNameSize bytes) and fields->zone pointing at it.
// 0, or -1 when the zone is unknown (logged; the process's zone is used instead).
int BreakDownInZone(const char *zone, double epoch, Fields *fields, char *zone_name);

// Formats epoch into out (kFormatBufferSize bytes): UTC when zone is null. Returns the length.
size_t FormatEpochInto(char *out, const char *format, const char *zone, double epoch);

// The formatted text as a new string: UTC when zone is null.
char *FormatEpoch(const char *format, const char *zone, double epoch);

// Loads the site formats if no call has yet.
void EnsureSiteFormats();

}  // namespace timecal
}  // namespace corvel

#endif  // CORVEL_TIME_FORMAT_H_
