// Unit expressions: the arithmetic of the grammar, and conversion and matching, each a whole
// run under the units lock.
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/text.h"
#include "elog/oom.h"
#include "units/units_internal.h"

static constexpr char kSourceName[] = "units_yacc.c";

namespace corvel {
namespace units {
namespace {

// The line numbers that messages give for the two sides of a conversion.
constexpr int kFromLine = -1;
constexpr int kToLine = -2;

// Beyond this many factors a number's power is taken by pow, which may differ from the
// product in the last bits but does not take seconds for "2^1e9".
constexpr double kMostFactors = 1024;

// Exponents stay within the int range whatever is multiplied or added, so that negating one
// is always defined.
int Clamped(long long exponent) {
  if (exponent > INT_MAX) return INT_MAX;
  if (exponent < -INT_MAX) return -INT_MAX;
  return static_cast<int>(exponent);
}

// The unit name stands for, or null after a message.
const UnitsBasis *Lookup(const char *name, double *prefix_factor) {
  UnitsBasis *record;
  if (unit_found(name, &record, prefix_factor)) return record;
  char *message = strconcat("can't find unit '", name, "'", nullptr);
  UX_error(message);
  free(message);
  return nullptr;
}

bool ParseExpression(const char *text, int line, Quantity *value) {
  BeginExpression(text, line);
  if (UX_parse() != 2 || State().errors > 0) return false;
  *value = State().result;
  return true;
}

}  // namespace

Quantity Dimensionless(double factor) {
  Quantity q;
  q.factor = factor;
  memset(q.exponents, 0, sizeof q.exponents);
  return q;
}

bool UnitNamed(const char *name, Quantity *value) {
  double prefix_factor;
  const UnitsBasis *record = Lookup(name, &prefix_factor);
  if (record == nullptr) return false;
  value->factor = prefix_factor * record->factor;
  memcpy(value->exponents, record->exponents, sizeof value->exponents);
  return true;
}

// Only the exponents take the sign of the power: the factor is raised to its absolute value.
bool UnitPower(const char *name, double power, Quantity *value) {
  double prefix_factor;
  const UnitsBasis *record = Lookup(name, &prefix_factor);
  if (record == nullptr) return false;
  double whole = isnan(power) ? 0.0 : trunc(fmax(-INT_MAX, fmin(INT_MAX, power)));
  long long n = static_cast<long long>(whole);
  value->factor = pow(prefix_factor * record->factor, fabs(whole));
  for (int k = 0; k < UNITS_MAX_BASIS; k++) {
    value->exponents[k] = Clamped(record->exponents[k] * n);
  }
  return true;
}

Quantity Product(const Quantity &a, const Quantity &b) {
  Quantity q;
  q.factor = a.factor * b.factor;
  for (int k = 0; k < UNITS_MAX_BASIS; k++) {
    q.exponents[k] = Clamped(static_cast<long long>(a.exponents[k]) + b.exponents[k]);
  }
  return q;
}

Quantity Quotient(const Quantity &a, const Quantity &b) {
  Quantity q;
  q.factor = a.factor / b.factor;
  for (int k = 0; k < UNITS_MAX_BASIS; k++) {
    q.exponents[k] = Clamped(static_cast<long long>(a.exponents[k]) - b.exponents[k]);
  }
  return q;
}

Quantity Reciprocal(const Quantity &a) {
  Quantity q;
  q.factor = 1.0 / a.factor;
  for (int k = 0; k < UNITS_MAX_BASIS; k++) q.exponents[k] = -a.exponents[k];
  return q;
}

Quantity Scaled(const Quantity &a, double factor) {
  Quantity q = a;
  q.factor *= factor;
  return q;
}

// One factor of base for every whole i >= 1 below the exponent: "10^3" is 100, and an
// exponent of 1 or less gives 1.
double NumberPower(double base, double exponent) {
  if (!(exponent > 1)) return 1.0;
  double factors = ceil(exponent) - 1;
  if (factors > kMostFactors) return pow(base, factors);
  double product = 1.0;
  for (double i = 0; i < factors; i++) product *= base;
  return product;
}

}  // namespace units
}  // namespace corvel

using namespace corvel::units;

int units_convert(const char *from, const char *to, double *result, char *toout, double value) {
  Lock();
  LoadTable();
  State().errors = 0;
  Quantity a, b;
  bool parsed = ParseExpression(from, kFromLine, &a);
  parsed = ParseExpression(to, kToLine, &b) && parsed;
  if (!parsed) {
    Unlock();
    if (toout != nullptr) toout[0] = '\0';
    return -1;
  }
  if (result != nullptr) *result = value * a.factor / b.factor;
  int status = 0;
  char *out = toout;
  if (out != nullptr) {
    *out++ = ' ';
    out = stpcpy(out, to);
  }
  long n = maxtbl(UnitsBasis_tbl);
  for (long k = 0; k < n; k++) {
    long long d = static_cast<long long>(a.exponents[k]) - b.exponents[k];
    if (d == 0) continue;
    status = 1;
    if (out == nullptr) break;
    const UnitsBasis *basis = static_cast<const UnitsBasis *>(gettbl(UnitsBasis_tbl, k));
    *out++ = ' ';
    out = stpcpy(out, basis->name);
    if (d != 1) out += sprintf(out, "^%lld ", d);
  }
  Unlock();
  return status;
}

Tbl *units_match(const char *expr) {
  Tbl *matches = newtbl(0);
  Lock();
  LoadTable();
  State().errors = 0;
  Quantity q;
  if (ParseExpression(expr, kFromLine, &q)) {
    UnitsBasis wanted;
    memcpy(wanted.exponents, q.exponents, sizeof wanted.exponents);
    Tbl *names = keysarr(Units_arr);
    for (long i = 0; i < maxtbl(names); i++) {
      const char *name = static_cast<const char *>(gettbl(names, i));
      const UnitsBasis *record = static_cast<const UnitsBasis *>(getarr(Units_arr, name));
      if (match_unit(record, &wanted) && strstr(expr, name) == nullptr) {
        pushtbl(matches, CV_STRDUP(name, "unit name"));
      }
    }
    freetbl(names, nullptr);
  }
  Unlock();
  return matches;
}
