// What pfconfig installs, for the files of the family that use it.
#ifndef CORVEL_PF_CONFIG_H_
#define CORVEL_PF_CONFIG_H_

#include "corvel/pf.h"

namespace corvel {
namespace pf {

// The prompt function installed for &ask, or null when none is: then the prompt goes to the
// terminal.
Pf_ask_fn CurrentAskFunction();

}  // namespace pf
}  // namespace corvel

#endif  // CORVEL_PF_CONFIG_H_
