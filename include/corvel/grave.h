/* The graveyard: values a program keeps across restarts in a small state file, and orderly
 * reactions to termination signals. */
#ifndef CORVEL_GRAVE_H
#define CORVEL_GRAVE_H

#include <pthread.h>

#include "corvel/export.h"
#include "corvel/pf.h"

CORVEL_BEGIN_DECLS

/* How a relic's variable is kept: an int, a double, a char * (restored to point into the
 * graveyard's own copy of the text) or an epoch time (a double). */
#define RELIC_INT 0
#define RELIC_DOUBLE 1
#define RELIC_STRING 2
#define RELIC_TIME 3

/* Given a new tree just before the values are written, to add entries of its own. */
typedef void (*Mortician_fn)(Pf *pf);

/* The graveyard of the process, shared by every library loaded into it. */
typedef struct Grave Grave;
CORVEL_API extern Grave *grave;
CORVEL_API extern pthread_mutex_t grave_mutex;
/* The state file name gravesite gives before there is a graveyard (custom_gravesite). */
CORVEL_API extern char *Gravesite;
/* What setup_signals installed. */
CORVEL_API extern int *Halt_flag;
CORVEL_API extern int Halt_In_Seconds;
CORVEL_API extern Mortician_fn Halt_Mortician;

/* Opens (or creates, with its directories) the state file and locks it for this process.
 * 1: an existing file was read; 2: it exists but is not a parameter file; 0: it was created
 * empty; -1: it cannot be opened or created; -2: there is a graveyard already. With quit_flag,
 * the termination signals store their number there: then with seconds 0 the values are written
 * and the process exits with status 1 at once; with seconds > 0 it does so that many seconds
 * later unless bury runs meanwhile; with seconds < 0 the program itself decides. */
CORVEL_API int exhume(const char *filename, int *quit_flag, int seconds, Mortician_fn mortician);
/* Registers variable (a RELIC_* type) under name and restores it from the state file: 0, or 1
 * when the file has no value for name (the variable is untouched), or -1 without a graveyard. */
CORVEL_API int resurrect(const char *name, void *variable, int type);
/* bury, which writes every relic to the state file, is declared with the log (it runs from
 * elog_die). */
CORVEL_API const char *gravesite(void);
CORVEL_API void custom_gravesite(const char *name);

/* Intercepts SIGHUP, SIGINT, SIGQUIT and SIGTERM with handler. */
CORVEL_API void setup_signal_handlers(void (*handler)(int sig));
/* The termination signals set *halt_flag to 1; with seconds > 0 the process then ends through
 * elog_die that many seconds later, after giving mortician a new tree. */
CORVEL_API void setup_signals(int *halt_flag, Mortician_fn mortician, int seconds);
/* Ends the process through elog_die seconds from now. */
CORVEL_API void die_soon(double seconds);
/* The log's fault report for a crash signal: the description, a stack trace, the fault
 * details, then elog_fault. */
CORVEL_API void _elog_fault(int sig, void *info, void *context);

CORVEL_END_DECLS

#endif
