// corvel ring: make a ring file, push readings into it, and show its recent statistics.
#include <errno.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string>

#include "commands.h"
#include "corvel/elog.h"
#include "corvel/ring.h"
#include "corvel/time.h"

namespace corvel {
namespace tools {
namespace {

const char kRingUsage[] =
    "usage: corvel ring create FILE CAPACITY [ID]\n"
    "       corvel ring push FILE TIME VALUE\n"
    "       corvel ring show FILE [SPAN]\n"
    "\n"
    "A ring file keeps the latest CAPACITY readings (a time and a value) of one quantity.\n"
    "create makes a new one, with an identifier ID of up to 64 characters; an existing FILE is\n"
    "left alone. push adds one reading: TIME is an epoch or a time in any layout 'corvel time'\n"
    "reads (\"2024-02-01 07:05:09\", \"now\" ...), and must not be older than the newest\n"
    "reading. A reading more than 60 s after the newest is preceded by two gap markers\n"
    "(value -99999999), which the statistics leave out.\n"
    "\n"
    "show prints the ring's count and newest reading, and over the last SPAN seconds (by\n"
    "default the whole ring) the maximum and minimum with their times, the mean and standard\n"
    "deviation, the least-squares slope per second with its correlation, and the tally: the\n"
    "number of the oldest entry reached from the newest without a gap (0 is the newest).\n"
    "The maximum, minimum and tally leave out a reading exactly SPAN seconds old; the mean and\n"
    "the slope keep it.\n"
    "\n"
    "A failure is reported on stderr and makes the exit status 1.\n";

bool ReadNumber(const char *text, double *number) {
  char *end;
  errno = 0;
  *number = strtod(text, &end);
  return end != text && *end == '\0' && errno == 0 && !isnan(*number);
}

std::string TimeText(double epoch) {
  char text[64];
  fmttime(text, 1, nullptr, epoch);
  return text;
}

int Create(const char *path, const char *capacity_text, const char *id) {
  char *end;
  errno = 0;
  const long capacity = strtol(capacity_text, &end, 10);
  if (end == capacity_text || *end != '\0' || errno != 0 || capacity < 1 || capacity > INT_MAX) {
    fprintf(stderr, "corvel ring: CAPACITY must be a whole number from 1, not '%s'\n",
            capacity_text);
    return kUsageError;
  }
  struct stat status;
  if (stat(path, &status) == 0) {
    fprintf(stderr, "corvel ring: %s exists already\n", path);
    return 1;
  }
  if (newring(path, id, static_cast<int>(capacity), 0) != 0) {
    elog_flush(1, 0);
    return 1;
  }
  return 0;
}

int Push(const char *path, const char *time_text, const char *value_text) {
  double time, value;
  if (!ReadNumber(value_text, &value)) {
    fprintf(stderr, "corvel ring: VALUE must be a number, not '%s'\n", value_text);
    return kUsageError;
  }
  if (!ReadTime(time_text, &time)) return 1;
  struct stat status;
  if (stat(path, &status) != 0) {  // opening would create it
    fprintf(stderr, "corvel ring: %s: %s\n", path, strerror(errno));
    return 1;
  }
  Ring *ring = openring(path, nullptr, 1, 0);
  if (ring == nullptr) {
    elog_flush(1, 0);
    return 1;
  }
  const int result = pushring(ring, time, value);
  if (result == -2) {
    fprintf(stderr, "corvel ring: %s: a reading at %s is older than the newest or repeats it\n",
            path, TimeText(time).c_str());
  }
  closering(ring);
  return result == 0 ? 0 : 1;
}

void ShowStatistics(Ring *ring, double span) {
  int index, n;
  double t, v;
  const double maximum = maxring(ring, &index, span);
  if (index >= 0 && getring(ring, index, &t, &v) == 0) {
    printf("maximum     %.10g at %s\n", maximum, TimeText(t).c_str());
  } else {
    printf("maximum     none\n");
  }
  const double minimum = minring(ring, &index, span);
  if (index >= 0 && getring(ring, index, &t, &v) == 0) {
    printf("minimum     %.10g at %s\n", minimum, TimeText(t).c_str());
  } else {
    printf("minimum     none\n");
  }
  double mean, deviation;
  if (meanring(ring, &n, &mean, &deviation, span) == 0) {
    printf("mean        %.10g, deviation %.10g, over %d readings\n", mean, deviation, n);
  } else {
    printf("mean        none\n");
  }
  double slope, intercept, correlation;
  if (linearfitring(ring, &n, &slope, &intercept, &correlation, span) != 0) {
    printf("slope       none: fewer than two readings\n");
  } else if (isinf(slope)) {
    printf("slope       none: all readings at one time\n");
  } else {
    printf("slope       %.10g per second, correlation %.6f\n", slope, correlation);
  }
  const int tally = tallyring(ring, span);
  if (tally >= 0) {
    printf("tally       %d\n", tally);
  } else {
    printf("tally       none\n");
  }
}

int Show(const char *path, const char *span_text) {
  double span = 0;
  if (span_text != nullptr && (!ReadNumber(span_text, &span) || span < 0)) {
    fprintf(stderr, "corvel ring: SPAN must be a number of seconds, not '%s'\n", span_text);
    return kUsageError;
  }
  char id[64];
  Ring *ring = openring(path, id, 1, 1);
  if (ring == nullptr) {
    elog_flush(1, 0);
    return 1;
  }
  const int count = countring(ring);
  printf("file        %s\n", path);
  printf("identifier  %.64s\n", id);
  printf("readings    %d of %d\n", count, ring->header->capacity);
  double newest, value, oldest, oldest_value;
  if (getring(ring, 0, &newest, &value) == 0 &&
      getring(ring, count - 1, &oldest, &oldest_value) == 0) {
    printf("newest      %.10g at %s (%.3f)\n", value, TimeText(newest).c_str(), newest);
    if (span_text == nullptr) {
      // One second more than the ring covers keeps its oldest reading inside every span.
      span = newest - oldest + 1;
      printf("span        the whole ring, from %s\n", TimeText(oldest).c_str());
    } else {
      printf("span        %.10g s, from %s\n", span, TimeText(newest - span).c_str());
    }
    ShowStatistics(ring, span);
  }
  closering(ring);
  return 0;
}

}  // namespace

int RingCommand(int argc, char **argv) {
  for (int i = 0; i < argc; i++) {
    if (IsHelp(argv[i])) {
      fputs(kRingUsage, stdout);
      return 0;
    }
  }
  const char *action = argc > 0 ? argv[0] : "";
  if (strcmp(action, "create") == 0 && (argc == 3 || argc == 4)) {
    return Create(argv[1], argv[2], argc == 4 ? argv[3] : "");
  }
  if (strcmp(action, "push") == 0 && argc == 4) return Push(argv[1], argv[2], argv[3]);
  if (strcmp(action, "show") == 0 && (argc == 2 || argc == 3)) {
    return Show(argv[1], argc == 3 ? argv[2] : nullptr);
  }
  fputs(kRingUsage, stderr);
  return kUsageError;
}

}  // namespace tools
}  // namespace corvel
