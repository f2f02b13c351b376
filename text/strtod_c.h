// Reading numbers the same way whatever the locale: parameter files and other configuration
// always write the decimal point as '.', even when the program runs under LC_NUMERIC that
// would read ',' instead.
#ifndef CORVEL_TEXT_STRTOD_C_H_
#define CORVEL_TEXT_STRTOD_C_H_

namespace corvel {
namespace text {

// strtod under the "C" locale: same results, *end (when end is not null) set the same way.
double StrtodC(const char *text, char **end);

}  // namespace text
}  // namespace corvel

#endif  // CORVEL_TEXT_STRTOD_C_H_
