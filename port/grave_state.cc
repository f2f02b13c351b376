// The graveyard's record and lock, and the halt settings: one of each per process, whichever
// library of the process digs the grave.
#include <pthread.h>

#include "corvel/grave.h"

Grave *grave = nullptr;
pthread_mutex_t grave_mutex = PTHREAD_MUTEX_INITIALIZER;
char *Gravesite = nullptr;
int *Halt_flag = nullptr;
int Halt_In_Seconds = 0;
Mortician_fn Halt_Mortician = nullptr;
