// Process-wide parameter-file state that every library loaded into the process shares: the
// cache of trees by name with its mutex, and the count of parameter-file operations under way.
#include <pthread.h>

#include "corvel/pf.h"

Arr *Pflist = nullptr;
pthread_mutex_t Pflist_mutex = PTHREAD_MUTEX_INITIALIZER;
int Pf_busy = 0;
