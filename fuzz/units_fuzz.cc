// Unit expressions, as people type them, on both sides of a conversion and in a match, against
// a small table of the fuzz target's own.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "corvel/elog.h"
#include "corvel/units.h"

namespace {

const char kTable[] =
    "Primitive m\nPrimitive kg\nPrimitive s\n"
    "meter = m\nkm = 1000 m\ninch = 2.54e-2 m\nhectare = 1e4 m^2\n"
    "minute = 60 s\nhour = 60 minute\nhz = /s\nsiemens = s^3/kg m^2\n"
    "newton = kg-m/s^2\nknot = 1852 m/hour\n";

char g_dir[] = "/tmp/units_fuzz.XXXXXX";

void RemoveTable() {
  unlink((std::string(g_dir) + "/units").c_str());
  rmdir(g_dir);
}

// The table is written once, where UNITS points.
void WriteTable() {
  if (mkdtemp(g_dir) == nullptr) abort();
  FILE *table = fopen((std::string(g_dir) + "/units").c_str(), "w");
  if (table == nullptr) abort();
  fputs(kTable, table);
  fclose(table);
  setenv("UNITS", g_dir, 1);
  atexit(RemoveTable);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool written = (WriteTable(), true);
  (void)written;
  // The library takes terminated text: what stands before a NUL.
  std::string text(reinterpret_cast<const char *>(data),
                   strnlen(reinterpret_cast<const char *>(data), size));
  char toout[64 + UNITS_TOOUT_EXTRA];
  double result;
  units_convert(text.c_str(), "m/s", &result, toout, 3);
  std::string to = text.substr(0, 64);
  units_convert("km", to.c_str(), &result, toout, 1);
  freetbl(units_match(text.c_str()), free);
  elog_clear();
  return 0;
}
