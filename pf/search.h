// Reading one parameter file by path, shared by the search, the revision check and the update.
#ifndef CORVEL_PF_SEARCH_H_
#define CORVEL_PF_SEARCH_H_

#include "corvel/pf.h"

namespace corvel {
namespace pf {

// ReadFileInto's result when the file cannot be opened (errno tells why).
constexpr int kCannotOpen = -100;

// Reads the file at path into *pf (a new tree when null) with the path as the name in
// messages: pfinfd's result, or kCannotOpen.
int ReadFileInto(const char *path, Pf **pf);

}  // namespace pf
}  // namespace corvel

#endif  // CORVEL_PF_SEARCH_H_
