// Entry points for Fortran callers: every argument by reference, text as blank-padded fields
// whose lengths come after the other arguments.
#include <stdlib.h>

#include "corvel/text.h"
#include "corvel/time.h"

double h2e_(int *year, int *doy, int *hour, int *minute, double *second) {
  return h2e(static_cast<unsigned int>(*year), static_cast<unsigned int>(*doy), *hour, *minute,
             *second);
}

void e2h_(double *epoch, int *year, int *doy, int *hour, int *minute, double *second) {
  e2h(*epoch, year, doy, hour, minute, second);
}

void doy2mday_(int *doy, int *year, int *month, int *day) { doy2mday(*doy, *year, month, day); }

int mday2doy_(int *year, int *month, int *day) { return mday2doy(*year, *month, *day); }

double epoch_(int *yearday) { return epoch(*yearday); }

int yearday_(double *epoch) { return yearday(*epoch); }

namespace {

void Deliver(char *out, size_t outlen, char *text) {
  cs2fs(out, text, outlen);
  free(text);
}

}  // namespace

void strtime_(char *out, double *epoch, size_t outlen) { Deliver(out, outlen, strtime(*epoch)); }

void strdate_(char *out, double *epoch, size_t outlen) { Deliver(out, outlen, strdate(*epoch)); }

void epoch2str_(char *out, double *epoch, const char *format, size_t outlen, size_t formatlen) {
  char *c_format = newcs(format, formatlen);
  Deliver(out, outlen, epoch2str(c_format, *epoch));
  free(c_format);
}
