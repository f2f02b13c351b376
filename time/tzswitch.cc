// Switching the process's time zone by editing TZ, and putting it back as it was found.
#include "time/tzswitch.h"

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/port.h"
#include "corvel/time.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "str2epoch.c";

namespace {

// Longest zone name put into TZ; longer names are cut.
constexpr size_t kMaxZoneName = 61;

struct ZoneSwitch {
  bool changed;       // a switch is in force
  char *found_entry;  // the "TZ=..." environment entry found at the first switch, or null
  char *installed;    // our heap "TZ=..." entry, or null
};

ZoneSwitch g_switch = {false, nullptr, nullptr};
pthread_mutex_t g_switch_mutex = PTHREAD_MUTEX_INITIALIZER;

char *FindTzEntry() {
  for (char **entry = environ; entry != nullptr && *entry != nullptr; entry++) {
    if (strncmp(*entry, "TZ=", 3) == 0) return *entry;
  }
  return nullptr;
}

}  // namespace

namespace corvel {
namespace timecal {

void LockZoneSwitch() { pthread_mutex_lock(&g_switch_mutex); }
void UnlockZoneSwitch() { pthread_mutex_unlock(&g_switch_mutex); }

}  // namespace timecal
}  // namespace corvel

int switchTZ(const char *zone) {
  if (!g_switch.changed) {
    // The entry itself is kept, not a copy: putting the same pointer back restores TZ exactly
    // (an empty TZ, which means UTC, stays empty) and allocates nothing.
    g_switch.found_entry = FindTzEntry();
    g_switch.changed = true;
  }
  const char *name = "";
  if (zone != nullptr && zone[0] != '\0') {
    size_t length = strnlen(zone, kMaxZoneName);
    char *entry = static_cast<char *>(CV_MALLOC(length + 4, "TZ"));
    memcpy(entry, "TZ=", 3);
    memcpy(entry + 3, zone, length);
    entry[length + 3] = '\0';
    if (putenv(entry) != 0) {
      elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n", "switchTZ", kSourceName,
               __LINE__);
    }
    free(g_switch.installed);
    g_switch.installed = entry;
    name = entry + 3;
  }
  // An empty zone names the process's own zone: TZ stays as it is.
  errno = 0;
  tzset();
  // The C library falls back to UTC for a zone it cannot read without saying so; the zone
  // database decides whether the switch worked.
  if (name[0] != '\0' && !is_timezone(name)) {
    errno = EINVAL;
    return -1;
  }
  errno = 0;
  return 0;
}

void restoreTZ(void) {
  if (!g_switch.changed) return;
  if (g_switch.found_entry != nullptr) {
    putenv(g_switch.found_entry);
  } else {
    unsetenv("TZ");
  }
  errno = 0;
  tzset();
  free(g_switch.installed);
  g_switch.installed = nullptr;
  g_switch.found_entry = nullptr;
  g_switch.changed = false;
}
