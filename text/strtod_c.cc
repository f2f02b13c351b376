// Numbers read under the "C" locale, whatever the process's own locale says.
#include "text/strtod_c.h"

#include <locale.h>
#include <stdlib.h>

namespace corvel {
namespace text {

namespace {

// Made once and kept for the life of the process: a locale object is cheap to keep and costly
// to make, and strtod_l only reads it, so every thread can share it.
locale_t CLocale() {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return c_locale;
}

}  // namespace

double StrtodC(const char *text, char **end) {
  locale_t c_locale = CLocale();
  // Without a locale object (no memory for it at the first call) the process's locale is the
  // best there is.
  if (c_locale == static_cast<locale_t>(0)) return strtod(text, end);
  return strtod_l(text, end, c_locale);
}

}  // namespace text
}  // namespace corvel
