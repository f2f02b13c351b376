// Whether a text names a time zone: a zone the zone database holds, or a POSIX zone rule such
// as "EST5EDT,M3.2.0/2,M11.1.0" or "<+0545>-5:45".
#include <ctype.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel/port.h"

namespace {

constexpr char kZoneDatabase[] = "/usr/share/zoneinfo";

bool IsInZoneDatabase(const char *name) {
  if (name[0] == '\0' || name[0] == '/' || strstr(name, "..") != nullptr) return false;
  const char *dir = getenv("TZDIR");
  if (dir == nullptr || dir[0] == '\0') dir = kZoneDatabase;
  char path[PATH_MAX];
  int n = snprintf(path, sizeof path, "%s/%s", dir, name);
  if (n < 0 || static_cast<size_t>(n) >= sizeof path) return false;
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st;
  char magic[4];
  bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
            read(fd, magic, sizeof magic) == static_cast<ssize_t>(sizeof magic) &&
            memcmp(magic, "TZif", 4) == 0;
  close(fd);
  return ok;
}

// A small recursive-descent reader of the POSIX TZ grammar:
//   std offset [dst [offset] [,rule,rule]]
// with names of three or more letters or "<...>" quoted names of three or more letters, digits
// and signs; offsets [+-]hh[:mm[:ss]]; rules Jn, n or Mm.w.d, each with an optional /time.
class RuleReader {
 public:
  explicit RuleReader(const char *text) : p_(text) {}

  bool ReadRule() {
    if (!Name() || !Offset(24)) return false;
    if (*p_ == '\0') return true;
    if (!Name()) return false;
    if (*p_ != '\0' && *p_ != ',' && !Offset(24)) return false;
    if (*p_ == '\0') return true;
    return *p_++ == ',' && Change() && *p_++ == ',' && Change() && *p_ == '\0';
  }

 private:
  bool Name() {
    const char *start;
    if (*p_ == '<') {
      start = ++p_;
      while (isalnum(static_cast<unsigned char>(*p_)) || *p_ == '+' || *p_ == '-') p_++;
      if (*p_ != '>' || p_ - start < 3) return false;
      p_++;
      return true;
    }
    start = p_;
    while (isalpha(static_cast<unsigned char>(*p_))) p_++;
    return p_ - start >= 3;
  }

  // Reads up to max_digits digits into *value; false when there are none.
  bool Number(int max_digits, long *value) {
    const char *start = p_;
    *value = 0;
    while (isdigit(static_cast<unsigned char>(*p_)) && p_ - start < max_digits) {
      *value = *value * 10 + (*p_++ - '0');
    }
    return p_ > start;
  }

  bool Offset(long max_hours) {
    if (*p_ == '+' || *p_ == '-') p_++;
    long hours, minutes, seconds;
    if (!Number(3, &hours) || hours > max_hours) return false;
    if (*p_ != ':') return true;
    p_++;
    if (!Number(2, &minutes) || minutes > 59) return false;
    if (*p_ != ':') return true;
    p_++;
    return Number(2, &seconds) && seconds <= 59;
  }

  bool Change() {
    long value;
    if (*p_ == 'J') {
      p_++;
      if (!Number(3, &value) || value < 1 || value > 365) return false;
    } else if (*p_ == 'M') {
      long month, week, day;
      p_++;
      if (!Number(2, &month) || month < 1 || month > 12 || *p_++ != '.') return false;
      if (!Number(1, &week) || week < 1 || week > 5 || *p_++ != '.') return false;
      if (!Number(1, &day) || day > 6) return false;
    } else if (!Number(3, &value) || value > 365) {
      return false;
    }
    // The time of the change may run past a day (up to a week) by the usual extension.
    if (*p_ == '/') {
      p_++;
      return Offset(167);
    }
    return true;
  }

  const char *p_;
};

}  // namespace

int is_timezone(const char *zone) {
  if (zone == nullptr || zone[0] == '\0') return 0;
  // A leading colon asks for the zone database explicitly.
  if (zone[0] == ':') return IsInZoneDatabase(zone + 1) ? 1 : 0;
  if (IsInZoneDatabase(zone)) return 1;
  return RuleReader(zone).ReadRule() ? 1 : 0;
}
