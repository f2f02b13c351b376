/* Units conversion: values between units of measure written as free-form expressions
 * ("km/hour", "kg m/s^2", "nm/s"), and the units compatible with an expression.
 *
 * The units are defined in the text table "units", read once per process from the first
 * directory of the search path in UNITS that holds it, or, when UNITS is unset, of the data path
 * (DATAPATH, else the installation root's "data"); a process without a table ends with "Can't
 * find units table". Every unit is a factor times a product of powers of at most
 * UNITS_MAX_BASIS basis units. After loading the table never changes.
 *
 * units_convert and units_match hold the units lock, one process-wide mutex, for their whole
 * run, the loading included; they may be called from any thread. */
#ifndef CORVEL_UNITS_H
#define CORVEL_UNITS_H

#include "corvel/arr.h"
#include "corvel/export.h"
#include "corvel/tbl.h"

CORVEL_BEGIN_DECLS

/* The most basis units (dimensions) a table may declare. */
#define UNITS_MAX_BASIS 16
/* The longest unit name; a table line defining a longer one is ignored with a complaint. */
#define UNITS_NAME_MAX 32
/* The room units_convert needs in toout beyond the length of to: the leading blank, the
 * terminator, and for every basis unit a blank, its name, "^", a signed exponent and a
 * blank. */
#define UNITS_TOOUT_EXTRA (2 + UNITS_MAX_BASIS * (UNITS_NAME_MAX + 14))

/* One unit: its size in basis units and the powers of the basis units, in the order the basis
 * units were declared. */
typedef struct UnitsBasis {
  char name[UNITS_NAME_MAX + 1];
  double factor;
  double offset; /* always 0: conversion is purely multiplicative */
  int exponents[UNITS_MAX_BASIS];
} UnitsBasis;

/* Every unit by name, basis units included; null until the table is loaded. */
CORVEL_API extern Arr *Units_arr;
/* The basis units' records in declaration order; its length is the number of dimensions. */
CORVEL_API extern Tbl *UnitsBasis_tbl;

/* Converts value from one unit expression to another: *result = value * factor(from) /
 * factor(to). Returns 0 when the two have the same dimensions, 1 when they differ (the result
 * is computed all the same), -1 when either fails to parse, after "xunits : MESSAGE near line
 * #-1" (from) or "#-2" (to) is logged with elog_log.
 * toout, when not null, must hold strlen(to) + UNITS_TOOUT_EXTRA bytes. It receives a blank and
 * to, then, for every basis unit whose exponent d (in from, less that in to) is not 0, a blank
 * and the unit's name, followed by "^d " when d is not 1: converting "m" to "s" gives " s m
 * s^-1 ". On failure it is left empty. */
CORVEL_API int units_convert(const char *from, const char *to, double *result, char *toout,
                             double value);

/* A new list of the units with the same dimensions as expr, in name order, leaving out every
 * unit whose name occurs anywhere in the text of expr; empty when expr does not parse (logged as
 * for units_convert, with line #-1). The names are new strings: free the list with
 * freetbl(t, free). */
CORVEL_API Tbl *units_match(const char *expr);

/* Prints a unit on stdout: "  %-20s %-20s" of its name and its factor (as strdbl writes it),
 * then " %3d" for each basis exponent in use and a newline; "unit=0\n" for null. */
CORVEL_API void show_unit(UnitsBasis *record);
/* Loads the table and prints "\n%ld basis units\n", each basis unit, "\n%ld total units\n",
 * every unit in name order and a final newline on stdout. It does not hold the units lock while
 * printing, which is safe since the loaded table never changes. */
CORVEL_API void show_all_units(void);

/* Loads the table unless it is loaded already, under the units lock. The functions below read
 * the loaded table without the lock. */
CORVEL_API void units_init(void);
/* A new record named name (cut to UNITS_NAME_MAX characters): factor 1, offset 0, no
 * dimensions. Free it with free. */
CORVEL_API UnitsBasis *new_basis(const char *name);
/* Looks a unit name up as the parser does: the name as given; without a final "s", then also
 * without an "e" before it (plurals); then, after the first prefix of the prefix table ("atto"
 * 1e-18 ... "tera" 1e12) that begins it, the rest, with the "e" and then the "s" put back.
 * Returns 1 with the record (owned by the table) in *record and the prefix's factor (1 without
 * one) in *prefix_factor; 0 with the sentinel record "*NO*SUCH*UNIT*" and 1. An empty or null
 * name is fatal ("unit_found: name = 0"). */
CORVEL_API int unit_found(const char *name, UnitsBasis **record, double *prefix_factor);
/* 1 when a and b have the same exponents over the basis units in use, else 0. */
CORVEL_API int match_unit(const UnitsBasis *a, const UnitsBasis *b);
/* Copies the exponents of src into dst. */
CORVEL_API void copy_basis(UnitsBasis *dst, const UnitsBasis *src);

CORVEL_END_DECLS

#endif
