/* Platform helpers: current time, the running program, the host, stack traces, byte order,
 * hooks. */
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

/* Byte-order converters between host values and their big-endian wire form. Each takes the
 * address of the wire-side pointer, which it advances past the n elements converted, the
 * host-side pointer and the element count. Neither pointer needs any alignment; wire and host
 * may be the same memory, not otherwise overlapping. Host to wire: hs2ms (2-byte integers),
 * hi2mi and uhi2mi (4-byte integers), hl2ml (8-byte integers), hf2mf (floats), hd2md
 * (doubles), H2N4 (any 4-byte values); wire to host: the reverse names. */
CORVEL_API void hs2ms(char **wire, const void *host, long n);
CORVEL_API void ms2hs(char **wire, void *host, long n);
CORVEL_API void hi2mi(char **wire, const void *host, long n);
CORVEL_API void mi2hi(char **wire, void *host, long n);
CORVEL_API void uhi2mi(char **wire, const void *host, long n);
CORVEL_API void umi2hi(char **wire, void *host, long n);
CORVEL_API void hl2ml(char **wire, const void *host, long n);
CORVEL_API void ml2hl(char **wire, void *host, long n);
CORVEL_API void hf2mf(char **wire, const void *host, long n);
CORVEL_API void mf2hf(char **wire, void *host, long n);
CORVEL_API void hd2md(char **wire, const void *host, long n);
CORVEL_API void md2hd(char **wire, void *host, long n);
CORVEL_API void H2N4(char **wire, const void *host, long n);
CORVEL_API void N2H4(char **wire, void *host, long n);

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
