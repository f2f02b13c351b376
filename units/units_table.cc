// The units table: the records, their lookup by name with plurals and prefixes, and loading the
// table file once per process under the units lock.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/text.h"
#include "elog/oom.h"
#include "units/units_internal.h"

static constexpr char kSourceName[] = "units_yacc.c";

Arr *Units_arr = nullptr;
Tbl *UnitsBasis_tbl = nullptr;

namespace corvel {
namespace units {
namespace {

struct Prefix {
  const char *text;
  int length;
  double factor;
};

// Tried in this order; the first that begins a name is the only one tried.
constexpr Prefix kPrefixes[] = {
    {"atto", 4, 1e-18}, {"femto", 5, 1e-15}, {"pico", 4, 1e-12}, {"nano", 4, 1e-9},
    {"micro", 5, 1e-6}, {"milli", 5, 1e-3},  {"centi", 5, 1e-2}, {"deci", 4, 1e-1},
    {"deka", 4, 1e1},   {"hecta", 5, 1e2},   {"hecto", 5, 1e2},  {"kilo", 4, 1e3},
    {"mega", 4, 1e6},   {"giga", 4, 1e9},    {"tera", 4, 1e12},
};

// No longer name can be found: a defined name, a prefix before it and a plural ending after.
constexpr size_t kLongestFound = UNITS_NAME_MAX + 5 + 2;

UnitsBasis g_no_such_unit = {"*NO*SUCH*UNIT*", 1.0, 0.0, {0}};

// Holds every conversion, match and the loading; never destroyed.
pthread_mutex_t g_units_lock = PTHREAD_MUTEX_INITIALIZER;
bool g_loaded = false;

UnitsBasis *Find(const char *name) {
  return Units_arr != nullptr ? static_cast<UnitsBasis *>(getarr(Units_arr, name)) : nullptr;
}

bool IsBasis(const UnitsBasis *record) {
  for (long k = 0; k < maxtbl(UnitsBasis_tbl); k++) {
    if (gettbl(UnitsBasis_tbl, k) == record) return true;
  }
  return false;
}

// Enters record under its name; a record it replaces is freed unless it names a dimension.
void Enter(UnitsBasis *record) {
  UnitsBasis *old = static_cast<UnitsBasis *>(setarr(Units_arr, record->name, record));
  if (old == nullptr) return;
  elog_complain(0, "replacing definition for %s", record->name);
  if (!IsBasis(old)) free(old);
}

// Names in the table are at most UNITS_NAME_MAX characters; a longer one would be cut and
// could then stand for a different unit, so its line is skipped.
bool NameFits(const char *name) {
  if (strlen(name) <= UNITS_NAME_MAX) return true;
  elog_complain(0, "unit name '%s' is longer than %d characters, ignoring it", name,
                UNITS_NAME_MAX);
  return false;
}

}  // namespace

void Lock() { pthread_mutex_lock(&g_units_lock); }
void Unlock() { pthread_mutex_unlock(&g_units_lock); }

ParseState &State() {
  static ParseState state;
  return state;
}

long StoreName(const char *text, size_t length) {
  ParseState &state = State();
  if (state.names_used + length + 1 > state.names_size) {
    size_t size = state.names_size > 0 ? state.names_size : 256;
    while (state.names_used + length + 1 > size) size *= 2;
    state.names = static_cast<char *>(CV_REALLOC(state.names, size, "units names"));
    state.names_size = size;
  }
  long offset = static_cast<long>(state.names_used);
  memcpy(state.names + state.names_used, text, length);
  state.names[state.names_used + length] = '\0';
  state.names_used += length + 1;
  return offset;
}

const char *Name(long offset) { return State().names + offset; }

void DefineUnit(const char *name, const Quantity &value) {
  if (!NameFits(name)) return;
  UnitsBasis *record = new_basis(name);
  record->factor = value.factor;
  memcpy(record->exponents, value.exponents, sizeof record->exponents);
  Enter(record);
}

void DeclarePrimitive(const char *name) {
  if (NameFits(name)) add_unit(name);
}

void BeginTable(FILE *table) {
  ParseState &state = State();
  state.kind = SourceKind::kTable;
  state.line_ended = true;
  state.line_pending = false;
  state.file = table;
  state.text = nullptr;
  state.text_left = 0;
  state.line = 1;
  ResetScanner();
}

void BeginExpression(const char *text, int line) {
  ParseState &state = State();
  state.kind = SourceKind::kExpression;
  state.line_ended = true;
  state.line_pending = false;
  state.file = nullptr;
  state.text = text != nullptr ? text : "";
  state.text_left = strlen(state.text);
  state.blank_pending = true;
  state.line = line;
  ResetScanner();
}

void LoadTable() {
  if (g_loaded) return;
  g_loaded = true;
  Units_arr = newarr(nullptr);
  if (Units_arr == nullptr) DieOutOfMemory(__func__, __LINE__, kSourceName, sizeof(Arr), "units");
  UnitsBasis_tbl = newtbl(UNITS_MAX_BASIS);
  char *path = datafile("UNITS", "units");
  FILE *table = path != nullptr ? fopen(path, "r") : nullptr;
  free(path);
  if (table == nullptr) elog_die(0, "Can't find units table\n");
  ParseState &state = State();
  state.errors = 0;
  BeginTable(table);
  while (UX_parse() == 1 && state.errors == 0) {
  }
  fclose(table);
  state.file = nullptr;
}

void ForgetTable() {
  Lock();
  if (g_loaded) {
    applyarr(
        Units_arr,
        [](char *, void *record, void *) {
          if (!IsBasis(static_cast<UnitsBasis *>(record))) free(record);
        },
        nullptr);
    freearr(Units_arr, nullptr);
    freetbl(UnitsBasis_tbl, free);
    Units_arr = nullptr;
    UnitsBasis_tbl = nullptr;
    g_loaded = false;
  }
  Unlock();
}

}  // namespace units
}  // namespace corvel

using namespace corvel::units;

void units_init(void) {
  Lock();
  LoadTable();
  Unlock();
}

UnitsBasis *new_basis(const char *name) {
  UnitsBasis *record = static_cast<UnitsBasis *>(CV_MALLOC(sizeof(UnitsBasis), "UnitsBasis"));
  memset(record, 0, sizeof *record);
  if (name != nullptr) strncpy(record->name, name, UNITS_NAME_MAX);
  record->factor = 1.0;
  return record;
}

int add_unit(const char *name) {
  long n = maxtbl(UnitsBasis_tbl);
  if (n >= UNITS_MAX_BASIS) {
    elog_complain(0, "too many basic units, ignoring new unit '%s'", name);
    return -1;
  }
  UnitsBasis *record = new_basis(name);
  record->exponents[n] = 1;
  pushtbl(UnitsBasis_tbl, record);
  Enter(record);
  return 0;
}

int prefixed(const char *name, double *factor) {
  for (const Prefix &prefix : kPrefixes) {
    if (strncmp(name, prefix.text, static_cast<size_t>(prefix.length)) == 0) {
      *factor = prefix.factor;
      return prefix.length;
    }
  }
  *factor = 1.0;
  return 0;
}

int unit_found(const char *name, UnitsBasis **record, double *prefix_factor) {
  if (name == nullptr || name[0] == '\0') elog_die(0, "unit_found: name = 0");
  *record = &g_no_such_unit;
  *prefix_factor = 1.0;
  size_t length = strlen(name);
  if (length > kLongestFound) return 0;
  char copy[kLongestFound + 1];
  memcpy(copy, name, length + 1);
  UnitsBasis *found = Find(copy);
  // Plurals: "meters", then "inches" without the "es".
  bool s_removed = false, e_removed = false;
  if (found == nullptr && copy[length - 1] == 's') {
    copy[--length] = '\0';
    s_removed = true;
    found = Find(copy);
    if (found == nullptr && length > 0 && copy[length - 1] == 'e') {
      copy[--length] = '\0';
      e_removed = true;
      found = Find(copy);
    }
  }
  double factor = 1.0;
  if (found == nullptr) {
    // A prefixed unit; the ending taken for a plural may belong to the unit ("millisiemens",
    // "kilohectare"), so it is put back, the "e" first.
    int skip = prefixed(copy, &factor);
    if (skip == 0) return 0;
    const char *rest = copy + skip;
    found = Find(rest);
    if (found == nullptr && e_removed) {
      copy[length++] = 'e';
      copy[length] = '\0';
      found = Find(rest);
    }
    if (found == nullptr && s_removed) {
      copy[length++] = 's';
      copy[length] = '\0';
      found = Find(rest);
    }
    if (found == nullptr) return 0;
  }
  *record = found;
  *prefix_factor = factor;
  return 1;
}

int match_unit(const UnitsBasis *a, const UnitsBasis *b) {
  long n = maxtbl(UnitsBasis_tbl);
  for (long k = 0; k < n; k++) {
    if (a->exponents[k] != b->exponents[k]) return 0;
  }
  return 1;
}

void copy_basis(UnitsBasis *dst, const UnitsBasis *src) {
  memcpy(dst->exponents, src->exponents, sizeof dst->exponents);
}

void UX_error(const char *message) {
  ParseState &state = State();
  elog_log(0, "%s : %s near line #%d\n", "xunits", message, state.line);
  state.errors++;
}

void show_unit(UnitsBasis *record) {
  if (record == nullptr) {
    fputs("unit=0\n", stdout);
    return;
  }
  char factor[32];
  printf("  %-20s %-20s", record->name, strdbl(factor, record->factor));
  long n = maxtbl(UnitsBasis_tbl);
  for (long k = 0; k < n; k++) printf(" %3d", record->exponents[k]);
  putchar('\n');
}

void show_all_units(void) {
  units_init();
  printf("\n%ld basis units\n", maxtbl(UnitsBasis_tbl));
  for (long k = 0; k < maxtbl(UnitsBasis_tbl); k++) {
    show_unit(static_cast<UnitsBasis *>(gettbl(UnitsBasis_tbl, k)));
  }
  printf("\n%ld total units\n", cntarr(Units_arr));
  applyarr(
      Units_arr, [](char *, void *record, void *) { show_unit(static_cast<UnitsBasis *>(record)); },
      nullptr);
  putchar('\n');
}
