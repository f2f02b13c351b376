// The tokens of the time scanner, in the order that decides between equally long matches.
#ifndef CORVEL_TIME_EPOCH_TOKENS_H_
#define CORVEL_TIME_EPOCH_TOKENS_H_

#include <stddef.h>

namespace corvel {
namespace epoch_parse {

enum Token {
  kEnd = 0,
  kSlashDate,       // D+/D+/D+
  kIsoDate,         // DDDD-DD-DD
  kYearDayDate,     // DDDD-DDD
  kDashDate,        // D+-D+-D+ of other widths
  kMonthName,       // jan .. december
  kNow,             // now
  kWeekday,         // mon .. sunday
  kDayComma,        // D+,
  kCompactYearDay,  // 19DDDDD or 20DDDDD
  kParenDoy,        // (D+)
  kMinuteSecond,    // :D+:D+[.D+]
  kTimeOfDay,       // D+:D+:D+[.D+]
  kYearDayStamp4,   // D+:D+:D+:D+[.D+]
  kYearDayStamp5,   // D+:D+:D+:D+:D+[.D+]
  kYearDayStamp6,   // D+:D+:D+:D+:D+:D+
  kMonthStamp,      // D+:mon:D+:D+:D+:D+[.D+]
  kMinute,          // :D+
  kHourMinute,      // D+:D+
  kMinutesAgo,      // -:D+
  kHoursAgo,        // -D+:D+
  kSecondsAgo,      // -D+:D+:D+
  kDaysAgo,         // -D+day(s)
  kDaysSince1970,   // D+day(s)
  kMinutesAhead,    // +:D+
  kHoursAhead,      // +D+:D+
  kSecondsAhead,    // +D+:D+:D+
  kDecimalEpoch,    // [-]D*.D*
  kNegativeEpoch,   // -D+
  kExponentEpoch,   // D*.D*e[+-]D+
  kInteger,         // D+
  kAm,
  kPm,
  kZoneName,  // a letter, then letters, digits, + - / _
  kOther,     // any other single character
};

}  // namespace epoch_parse
}  // namespace corvel

// The scanner: EP_lex returns the next token, whose text is EP_get_text(); the characters come
// from ReadSource. EP_reset prepares it for a new parse.
int EP_lex(void);
char *EP_get_text(void);
void EP_reset(void);

#endif  // CORVEL_TIME_EPOCH_TOKENS_H_
