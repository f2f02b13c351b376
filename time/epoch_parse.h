// The two ways a time text becomes an epoch: the general parser (scanner, shared fields, one
// parse at a time) and the direct reading of the common fixed forms, which needs neither.
// Internal to the library.
#ifndef CORVEL_TIME_EPOCH_PARSE_H_
#define CORVEL_TIME_EPOCH_PARSE_H_

namespace corvel {
namespace epoch_parse {

// The longest fraction, in digits, that both readers compute as an integer divided by a power
// of ten; longer ones the general parser hands to strtod.
constexpr int kExactFractionDigits = 15;

// The value of ".ddd" with digits as the integer of its count (1..15) digits: exactly what
// strtod gives, since both operands are exact doubles and the division rounds once.
inline double FractionValue(long digits, int count) {
  static constexpr double kPowers[kExactFractionDigits + 1] = {
      1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  return static_cast<double>(digits) / kPowers[count];
}

// The general parser: every form, under the parser lock. Returns minus the number of errors,
// logs the first one when log is set, and always stores the epoch.
int ParseGeneral(const char *text, double *result, int log);

// The fixed forms "YYYY-MM-DD[ HH:MM[:SS[.f]]]", "YYYY-DDD[ HH:MM[:SS[.f]]]" and
// "YYYY:DDD:HH:MM:SS[.f]" with values that the general parser takes without complaint: stores
// the epoch the general parser would give and returns true. Anything else, including every
// text that would draw a message, returns false and stores nothing. Reads no shared state.
bool ParseFixedForm(const char *text, double *result);

// What every entry point runs: the fixed forms directly, everything else through the general
// parser.
inline int Parse(const char *text, double *result, int log) {
  if (text != nullptr && ParseFixedForm(text, result)) return 0;
  return ParseGeneral(text, result, log);
}

}  // namespace epoch_parse
}  // namespace corvel

#endif  // CORVEL_TIME_EPOCH_PARSE_H_
