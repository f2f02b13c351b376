// Serialises the process-wide zone switch among the library's own users of it. Internal.
#ifndef CORVEL_TIME_TZSWITCH_H_
#define CORVEL_TIME_TZSWITCH_H_

namespace corvel {
namespace timecal {

// Held from a switchTZ to its restoreTZ, so that two threads formatting in named zones do not
// install and free each other's TZ entries.
void LockZoneSwitch();
void UnlockZoneSwitch();

}  // namespace timecal
}  // namespace corvel

#endif  // CORVEL_TIME_TZSWITCH_H_
