// corvel time: times typed by people into epochs, and epochs into text.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "commands.h"
#include "corvel/elog.h"
#include "corvel/port.h"
#include "corvel/time.h"

namespace corvel {
namespace tools {
namespace {

const char kTimeUsage[] =
    "usage: corvel time TEXT...\n"
    "       corvel time -f FORMAT [-z ZONE] EPOCH|TEXT...\n"
    "\n"
    "Without -f, prints for each TEXT its epoch (seconds since 1970-01-01 00:00:00 UTC), the\n"
    "time in UTC and its year-day form, separated by tabs:\n"
    "  $ corvel time '2024-02-01 07:05:09.047'\n"
    "  1706771109.047\t2024-02-01 07:05:09.047\t2024-032 07:05:09.047\n"
    "A TEXT may be a date and time in many layouts (\"2024-02-01 07:05\", \"Feb 1, 2024\",\n"
    "\"2/1/2024 7:05 pm\", \"2024-032 07:05:09\", \"2024:032:07:05:09.5\"), an epoch, \"now\",\n"
    "an offset from now (\"-1:30\", \"+0:00:30\", \"-2days 12:00\"), followed by a zone name\n"
    "(\"US/Mountain\", \"LOCAL\") when it is not UTC.\n"
    "\n"
    "With -f, prints each time in FORMAT, whose percent codes are those of the library's\n"
    "formatter (%Y %m %d %j %H %M %S, %s milliseconds, %T, %A, %B, %Z ...), in UTC or in\n"
    "ZONE (a zone name, a POSIX zone rule, or LOCAL for this process's zone).\n"
    "\n"
    "A text that cannot be read is reported on stderr and makes the exit status 1.\n";

}  // namespace

// Reads one time: a number is an epoch (even 0, which the parser cannot tell from nothing),
// anything else goes to the parser, whose message goes to stderr on failure.
bool ReadTime(const char *text, double *epoch) {
  char *end;
  *epoch = strtod(text, &end);
  if (end != text && *end == '\0') return true;
  if (zstr2epoch(text, epoch) == 0) return true;
  elog_flush(1, 0);
  return false;
}

int TimeCommand(int argc, char **argv) {
  const char *format = nullptr;
  const char *zone = nullptr;
  int i = 0;
  // Only these words are options: "-1:30" and "-86400" are times.
  for (; i < argc; i++) {
    if (IsHelp(argv[i])) {
      fputs(kTimeUsage, stdout);
      return 0;
    } else if (strcmp(argv[i], "-f") == 0 && i + 1 < argc) {
      format = argv[++i];
    } else if (strcmp(argv[i], "-z") == 0 && i + 1 < argc) {
      zone = argv[++i];
    } else if (strcmp(argv[i], "--") == 0) {
      i++;
      break;
    } else {
      break;
    }
  }
  if (i == argc || (zone != nullptr && format == nullptr)) {
    fputs(kTimeUsage, stderr);
    return kUsageError;
  }
  if (zone != nullptr && strcmp(zone, "LOCAL") != 0 && !is_timezone(zone)) {
    fprintf(stderr, "corvel time: unknown zone '%s'\n", zone);
    return kUsageError;
  }

  int status = 0;
  for (; i < argc; i++) {
    double epoch;
    if (!ReadTime(argv[i], &epoch)) {
      status = 1;
      continue;
    }
    if (format != nullptr) {
      char *text = zepoch2str(format, zone, epoch);
      puts(text);
      free(text);
    } else {
      char utc[64], yearday[64];
      fmttime(utc, 1, nullptr, epoch);
      fmttime(yearday, 0, nullptr, epoch);
      printf("%.3f\t%s\t%s\n", epoch, utc, yearday);
    }
  }
  return status;
}

}  // namespace tools
}  // namespace corvel
