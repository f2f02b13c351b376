/* Platform helpers: current time, the running program, the host, stack traces, hooks. */
#ifndef CORVEL_PORT_H
#define CORVEL_PORT_H

#include <stdio.h>

#include "corvel/export.h"

CORVEL_BEGIN_DECLS

/* The current time as an epoch with sub-second resolution. */
CORVEL_API double std_now(void);
/* The absolute path of the running program, or null when the platform cannot tell. */
CORVEL_API const char *getexecname(void);
/* Fills name (size bytes, always terminated) with this host's name; returns name. */
CORVEL_API char *my_hostname(char *name, int size);
/* Opens a loadable module by short name ("orb" opens "liborb.so"); null when it cannot. */
CORVEL_API void *std_dlopen(const char *name);
/* Fills name (size bytes, always terminated) with the name of the user running the process;
 * returns name. */
CORVEL_API char *my_username(char *name, int size);
/* 1 when zone is a name the platform's zone database knows or a valid POSIX zone rule. */
CORVEL_API int is_timezone(const char *zone);
/* Signals by name (with or without "SIG", in any case; RTMIN+n and RTMAX-n for the real-time
 * ones): the number, or -1 for no such name. By number: 0 with the name (without "SIG") and a
 * one-line description, both static (the name of a real-time signal lives until the thread's
 * next call), or -1 for a number no signal has. */
CORVEL_API int signal_byname(const char *name);
CORVEL_API int signal_bysig(int sig, const char **name, const char **description);
/* Calls handler from SIGALRM once, seconds from now: 0, or -1 when the timer cannot be set. */
CORVEL_API int std_set_timer(double seconds, void (*handler)(int));
/* 1 when path lies on an NFS file system, else 0. */
CORVEL_API int is_nfs(const char *path);
/* Prints the calling thread's stack to stream. */
CORVEL_API void show_stack_trace(FILE *stream);

/* Prints where a fault happened, from a signal's siginfo_t and ucontext_t. */
CORVEL_API void show_fault(void *info, void *context);

/* A holder of one pointer and the function that frees it. */
typedef struct Hook {
  void *p;
  void (*free_fn)(void *p);
} Hook;
CORVEL_API Hook *new_hook(void (*free_fn)(void *p));
/* Frees the held pointer with its function, then the hook, and sets *hook to null. */
CORVEL_API void free_hook(Hook **hook);

CORVEL_END_DECLS

#endif
