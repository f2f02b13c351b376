#include "corvel/elog.h"

// Writing the graveyard's values needs a graveyard, and none has been dug: there is nothing
// to write.
int bury(void) { return -1; }
