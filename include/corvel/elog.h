/* The message log: severities, the register of kept messages, delivery and the process frame. */
#ifndef CORVEL_ELOG_H
#define CORVEL_ELOG_H

#include <pthread.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "corvel/export.h"
#include "corvel/tbl.h"

CORVEL_BEGIN_DECLS

/* Severities; each is also the row of the per-severity tables. */
#define ELOG_LOG 0
#define ELOG_DEBUGGING 1
#define ELOG_NOTIFY 2
#define ELOG_ALERT 3
#define ELOG_COMPLAIN 4
#define ELOG_DIE 5
#define ELOG_FAULT 6
#define ELOG_NSEVERITY 7

/* Codes of elog_query and elog_set. */
#define ELOG_TBL 0
#define ELOG_TBLCP 1
#define ELOG_TBLCPCL 2
#define ELOG_ARGV 3
#define ELOG_ARGC 4
#define ELOG_COUNT 5
#define ELOG_VERSION 6
#define ELOG_MAXMSG 7
#define ELOG_TAG 8
#define ELOG_DELIVER 9
#define ELOG_DEBUG 10
#define ELOG_SIGNALS 11
#define ELOG_CALLBACK 12
#define ELOG_STRING 13
/* Codes 14 (Elog_reference_time) and 15 (Program_Name) have no symbolic name. */

/* Size of one slot of the tag, delivery and debugger tables. */
#define ELOG_SLOT_SIZE 48

/* One message as the register keeps it. */
typedef struct Elog_msg {
  char *tag;     /* expanded tag of its severity, or null */
  char *msg;     /* the message, always ending in a newline */
  char *sys;     /* strerror text of errno when the caller asked for it, or null */
  int32_t severity;
  int32_t count; /* times the message was logged in a row */
  pthread_t thread;
} Elog_msg;

/* Called with the severity, the text of the register and the new message, and the register.
 * A nonzero result consumes the messages: the register is cleared and nothing is delivered. */
typedef int (*Elog_callback_fn)(int severity, char *text, Tbl *register_tbl);

typedef struct Xlat {
  const char *name;
  int num;
} Xlat;

/* The process frame, set by elog_init. */
CORVEL_API extern char Program_Name[4096];
CORVEL_API extern char Program_Dir[4096];
CORVEL_API extern int Argc;
CORVEL_API extern char **Argv;
CORVEL_API extern double Elog_reference_time;
CORVEL_API extern int Max_msg;
CORVEL_API extern double Elog_wait;
CORVEL_API extern char *Elog_t_format;
CORVEL_API extern char *Elog_u_format;
CORVEL_API extern Elog_callback_fn elog_callback;
CORVEL_API extern char *Faults;
CORVEL_API extern int Elog_init;
CORVEL_API extern int Debugger_running;
/* The register: a direct Tbl of Elog_msg records not delivered yet. */
CORVEL_API extern Tbl *Elog_tbl;
CORVEL_API extern Xlat Elog_xlat[];
CORVEL_API extern int Elog_xlatn;

CORVEL_API int elog_init(int argc, char **argv);

/* Logging: flag nonzero appends the text of errno (when errno is set). errno is 0 afterwards. */
CORVEL_API void elog_log(int flag, const char *fmt, ...) CORVEL_PRINTF(2, 3);
CORVEL_API void elog_debug(int flag, const char *fmt, ...) CORVEL_PRINTF(2, 3);
CORVEL_API void elog_notify(int flag, const char *fmt, ...) CORVEL_PRINTF(2, 3);
CORVEL_API void elog_alert(int flag, const char *fmt, ...) CORVEL_PRINTF(2, 3);
CORVEL_API void elog_complain(int flag, const char *fmt, ...) CORVEL_PRINTF(2, 3);
CORVEL_API CORVEL_NORETURN void elog_die(int flag, const char *fmt, ...) CORVEL_PRINTF(2, 3);
CORVEL_API CORVEL_NORETURN void elog_fault(int flag, const char *fmt, ...) CORVEL_PRINTF(2, 3);
CORVEL_API void velog_log(int flag, const char *fmt, va_list ap) CORVEL_PRINTF(2, 0);
CORVEL_API void velog_debug(int flag, const char *fmt, va_list ap) CORVEL_PRINTF(2, 0);
CORVEL_API void velog_notify(int flag, const char *fmt, va_list ap) CORVEL_PRINTF(2, 0);
CORVEL_API void velog_alert(int flag, const char *fmt, va_list ap) CORVEL_PRINTF(2, 0);
CORVEL_API void velog_complain(int flag, const char *fmt, va_list ap) CORVEL_PRINTF(2, 0);
CORVEL_API CORVEL_NORETURN void velog_die(int flag, const char *fmt, va_list ap)
    CORVEL_PRINTF(2, 0);
CORVEL_API CORVEL_NORETURN void velog_fault(int flag, const char *fmt, va_list ap)
    CORVEL_PRINTF(2, 0);

/* The register. A mark is a register length. */
CORVEL_API int elog_mark(void);
CORVEL_API void elog_flush(int deliver, int mark);
CORVEL_API void elog_clear_register(int deliver);
CORVEL_API void elog_clear(void);
CORVEL_API void elog_truncate(int n);
CORVEL_API void elog_print(FILE *stream, int mark);
CORVEL_API char *elog_string(int mark);
CORVEL_API void elog_free_msg(Elog_msg *record);

/* elog_query stores through result: a Tbl ** for ELOG_TBL, ELOG_TBLCP and ELOG_TBLCPCL, an
 * int * for ELOG_NSEVERITY, ELOG_ARGC, ELOG_COUNT and ELOG_MAXMSG, a char *** for ELOG_ARGV, a
 * char ** for the text codes, an Elog_callback_fn * for ELOG_CALLBACK and a double * for the
 * reference time. It answers 0, or (unsigned) -1 for an unknown code. elog_set takes numbers by
 * address (int *, double *) and everything else as the value itself. */
CORVEL_API unsigned int elog_query(int code, int severity, void *result);
CORVEL_API int elog_set(int code, int severity, void *value);
CORVEL_API const char *elog_severity(int severity);

/* A message laid out as the register would print it, without keeping or delivering it. */
CORVEL_API char *elogstr(int severity, int flag, const char *fmt, ...) CORVEL_PRINTF(3, 4);
CORVEL_API char *velogstr(int severity, int flag, const char *fmt, va_list ap)
    CORVEL_PRINTF(3, 0);
/* vfprintf under the log's lock, so that output does not interleave with the log's. */
CORVEL_API int elog_fprintf(FILE *stream, const char *fmt, ...) CORVEL_PRINTF(2, 3);
CORVEL_API void elog_commandline(void);
CORVEL_API char *elog_commandline_str(void);
CORVEL_API char *elog_cmdline(void);
CORVEL_API void elog2stderr(void);
/* Reports straight to stderr, bypassing the log, then dumps and clears the register. */
CORVEL_API void elog_fail(const char *fmt, ...) CORVEL_PRINTF(1, 2);
CORVEL_API CORVEL_NORETURN void elog_fatal(const char *fmt, ...) CORVEL_PRINTF(1, 2);

/* Tag expansion and delivery. elog_deliver expects the log's lock to be held. */
CORVEL_API int elog_expand(const char *tag_template, int severity, char *out, int size);
CORVEL_API void elog_deliver(const char *delivery_list, int mark, Elog_msg *record);
CORVEL_API void elog_debugger(void);
/* Passes a message to the remote log service named name (the "orb:" destinations). */
CORVEL_API void call_orbelog(const char *name, const char *program, const char *text);

/* Configuration. The built-in tags, delivery lists and debugger commands, by severity; the
 * debugger table itself starts empty, and its defaults are what a configuration that asks for
 * a debugger without naming one gets. */
CORVEL_API extern const char *const Tag_default[ELOG_NSEVERITY];
CORVEL_API extern const char *const Deliver_default[ELOG_NSEVERITY];
CORVEL_API extern const char *const Debug_default[ELOG_NSEVERITY];
/* Fills a table from the value of ELOG_DELIVER, ELOG_TAG or ELOG_DEBUG: "text@letters" gives
 * the text to the severities named by the letters (l D n a c d f), groups are separated by
 * blanks, a backslash takes the next character literally, and a value or trailing part without
 * '@' goes to every severity. A null value (the variable is unset) with fill_defaults nonzero
 * gives each empty slot its default. */
CORVEL_API void elog_fill_from_env(const char *value, char table[][ELOG_SLOT_SIZE],
                                   const char *const *defaults, int fill_defaults);
/* Fills a table from the array at key, keyed by severity name; a name the array lacks gets its
 * default. A key the tree lacks leaves the table alone; a value of another type is reported
 * on stderr and ignored. */
struct Pf;
CORVEL_API void elog_fill_from_pf(struct Pf *pf, const char *key, char table[][ELOG_SLOT_SIZE],
                                  const char *const *defaults);
/* Turns on stack traces after the messages of the severities whose letters the environment
 * variable holds: l D n c d, and a or f for faults. */
CORVEL_API void elog_setup_show_stack(const char *variable_name);

/* Crash-signal handlers: a handler receives the signal number, its siginfo_t and its
 * ucontext_t. The list names signals separated by colons, with or without "SIG"; "null"
 * intercepts nothing. Each handler runs once, then the signal's default action is restored. */
typedef void (*Fault_handler_fn)(int sig, void *info, void *context);
CORVEL_API void setup_fault_handlers(Fault_handler_fn handler, const char *list);
/* Intercepts the listed signals with the log's own fault report. */
CORVEL_API void elog_setup_fault_handler(const char *list);

/* Writes every relic of the graveyard (corvel/grave.h) to its state file: 0, or -1 on failure
 * or while there is no graveyard. */
CORVEL_API int bury(void);

/* Fortran twins: flags and texts by reference, text lengths last. */
CORVEL_API void elog_init_(void);
CORVEL_API void eloginit_(void);
CORVEL_API void elog_init__(void);
CORVEL_API void register_error_(int *flag, const char *text, size_t length);
CORVEL_API void register_error__(int *flag, const char *text, size_t length);
CORVEL_API void complain_(int *flag, const char *text, size_t length);
CORVEL_API void complain__(int *flag, const char *text, size_t length);
CORVEL_API CORVEL_NORETURN void die_(int *flag, const char *text, size_t length);
CORVEL_API CORVEL_NORETURN void die__(int *flag, const char *text, size_t length);
CORVEL_API void clear_register_(int flag);
CORVEL_API void clear_register__(int flag);

CORVEL_END_DECLS

#endif
