// corvel units: values from one unit of measure to another, and the units compatible with one.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "commands.h"
#include "corvel/elog.h"
#include "corvel/units.h"

namespace corvel {
namespace tools {
namespace {

const char kUnitsUsage[] =
    "usage: corvel units [VALUE] FROM TO\n"
    "       corvel units -l EXPRESSION\n"
    "       corvel units --all\n"
    "\n"
    "Converts VALUE (1 when left out) from the units FROM to the units TO and prints the\n"
    "result followed by TO:\n"
    "  $ corvel units 36 km/hour m/s\n"
    "  10 m/s\n"
    "Units are written as in \"kg m/s^2\": names side by side (or joined by '-') multiply,\n"
    "'/' divides by everything up to the next '/', '^' raises a unit to a whole power, and a\n"
    "number may stand before or after the units. Plurals (\"meters\", \"inches\") and the\n"
    "prefixes atto femto pico nano micro milli centi deci deka hecta hecto kilo mega giga tera\n"
    "are understood.\n"
    "\n"
    "When FROM and TO differ in dimensions, the result is followed by the basis units that TO\n"
    "lacks, with their powers, and the exit status is 1:\n"
    "  $ corvel units 2 m s\n"
    "  2 s m s^-1\n"
    "\n"
    "-l lists the units with the same dimensions as EXPRESSION, one per line, leaving out those\n"
    "whose names appear in it. --all prints the whole units table: each unit's factor and its\n"
    "powers of the basis units.\n"
    "\n"
    "The table \"units\" is found along the directories in UNITS, else in DATAPATH, else in the\n"
    "installation's data directory. An expression that cannot be read is reported on stderr\n"
    "and makes the exit status 1.\n";

// The shortest text that reads back as the same double.
std::string Shortest(double value) {
  char text[64];
  for (int digits = 15; digits <= 17; digits++) {
    snprintf(text, sizeof text, "%.*g", digits, value);
    if (strtod(text, nullptr) == value) break;
  }
  return text;
}

int Convert(double value, const char *from, const char *to) {
  std::string toout(strlen(to) + UNITS_TOOUT_EXTRA, '\0');
  double result;
  int status = units_convert(from, to, &result, &toout[0], value);
  if (status < 0) {
    elog_flush(1, 0);
    return 1;
  }
  printf("%s%s\n", Shortest(result).c_str(), toout.c_str());
  return status;
}

int List(const char *expression) {
  int mark = elog_mark();
  Tbl *names = units_match(expression);
  for (long i = 0; i < maxtbl(names); i++) puts(static_cast<const char *>(gettbl(names, i)));
  freetbl(names, free);
  // An expression that does not parse gives an empty list, and a message.
  if (elog_mark() > mark) {
    elog_flush(1, 0);
    return 1;
  }
  return 0;
}

}  // namespace

int UnitsCommand(int argc, char **argv) {
  if (argc >= 1 && IsHelp(argv[0])) {
    fputs(kUnitsUsage, stdout);
    return 0;
  }
  if (argc == 1 && strcmp(argv[0], "--all") == 0) {
    show_all_units();
    return 0;
  }
  if (argc == 2 && strcmp(argv[0], "-l") == 0) return List(argv[1]);
  if (argc == 2) return Convert(1, argv[0], argv[1]);
  if (argc == 3) {
    char *end;
    double value = strtod(argv[0], &end);
    if (end != argv[0] && *end == '\0') return Convert(value, argv[1], argv[2]);
  }
  fputs(kUnitsUsage, stderr);
  return kUsageError;
}

}  // namespace tools
}  // namespace corvel
