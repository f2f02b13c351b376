/* Parameter files: the Pf value tree, key paths, typed getters and putters, deferred
 * &functions, the text reader, the search path with its cache, and change detection.
 *
 * A parameter file is trusted input. Its &exec(...) values run their text in a shell, &file
 * and &glob read what the file names, and &ask prompts on the terminal. Read parameter files
 * only from places that the people running the program control.
 *
 * Keys: a function taking a key reads it as text for an array or a file node and as a list
 * index for a list node; pass an index as PF_INDEX(i). Strings that getters return belong to
 * the tree and stay valid until the node is changed or freed; new lists, arrays and strings
 * that the other functions return are the caller's, to free with freetbl, freearr or free. */
#ifndef CORVEL_PF_H
#define CORVEL_PF_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "corvel/arr.h"
#include "corvel/export.h"
#include "corvel/port.h"
#include "corvel/tbl.h"

CORVEL_BEGIN_DECLS

/* Node types. */
#define PFEXEC_ERROR (-1) /* string from an &exec(...) whose command failed */
#define PFFILE 0          /* top of a parameter file; otherwise an array */
#define PFSTRING 1        /* a simple string */
#define PFTBL 2           /* ordered list, written &Tbl{ */
#define PFARR 3           /* associative array, written &Arr{ */
#define PFUNDEFINED 4     /* made by no operation */
#define PFINVALID 5       /* an absent or invalid value, perhaps with an explanation */
#define PFANY 6           /* a node of still unknown kind; asks typed lookups for any type */
#define PFFCT 7           /* &function(...), evaluated when first read */
#define PFPF 8            /* pfput only: graft a whole tree */

/* Results of pfresolve that found nothing. */
#define PF_NO_CONTAINER (-1) /* the path named nothing and there was no container */
#define PF_NOT_FOUND (-31)   /* no such name, key or index */
#define PF_MISMATCH (-32)    /* a selector does not fit its container */

/* A list index where a function takes a key. */
#define PF_INDEX(i) ((const char *)(intptr_t)(i))

struct Pf;

/* A deferred &function(...): its text as written, the result of its last evaluation and a
 * slot for whoever evaluates it. */
typedef struct Pffunct {
  char *expression;
  struct Pf *result;
  Hook *hook;
} Pffunct;

typedef struct Pf {
  int32_t type;
  union {
    char *s;          /* PFSTRING, PFINVALID (may be null), PFEXEC_ERROR */
    Arr *arr;         /* PFFILE, PFARR: child nodes by key */
    Tbl *tbl;         /* PFTBL: child nodes in order */
    Pffunct *pffunct; /* PFFCT */
  } value;
  struct Pf *parent;    /* the containing node (not owned) */
  const char *filename; /* the file the entry was read from (not owned; lives with the process) */
  char *expanded;       /* the last &name substitution of the string (owned) */
} Pf;

/* The die handler: called when a typed getter finds nothing, or a node of another type than
 * the one it wants, as (container, key, wanted type, found type, address of the getter's
 * result). It may store a result there and return. */
typedef void (*Pf_die_fn)(Pf *pf, const char *key, int wanted, int found, void *result);
/* The prompt function of &ask: returns the answer to prompt, which the library copies. */
typedef char *(*Pf_ask_fn)(const char *prompt);
/* Any of the two, cast, for pfconfig. */
typedef void (*Pf_config_fn)(void);

/* Nodes. */
CORVEL_API Pf *pfnew(int type);
CORVEL_API void pffree(Pf *pf);
CORVEL_API Pf *pfdup(Pf *pf);
/* 0 when the trees are equal, 1 when they differ, -1 for a node of an unknown type. */
CORVEL_API int pfcmp(Pf *a, Pf *b);
/* A new list of the keys (the array's own texts: free with freetbl(t, 0)), or null. */
CORVEL_API Tbl *pfkeys(Pf *pf);
CORVEL_API long pfmaxtbl(Pf *pf);
/* Describes a node on the standard error stream, for debugging. */
CORVEL_API void showpf(const char *label, Pf *pf);

/* Lookup. */
CORVEL_API int pfresolve(Pf *pf, const char *key, int create, Pf **result);
CORVEL_API int pfget(Pf *pf, const char *key, void **result);
CORVEL_API int pfvalue(Pf *pf, const char *key, Pf **result);
CORVEL_API int pfhas_key(Pf *pf, const char *key);
CORVEL_API int pfeval(Pf *pf, const char *key, char **string);
/* The &name substitution of a string node's text, or of a function's text. */
CORVEL_API char *pfexpand(Pf *pf);
/* Evaluates a &function node (the result is kept in its record and belongs to it); any other
 * node is its own result. Null when the function yields nothing (&undef). Functions the
 * library does not know go to the program's own: a function the program exports as
 * Pf *pfuser(Pf *node, const char *expression) (link the program with -rdynamic) is given the
 * function node and its expanded text and returns a new node, which the node's record then
 * owns, or null for a function it does not know, which then reads as an empty PFINVALID. */
CORVEL_API Pf *pfinterpret(Pf *pf);

/* Typed getters: a key path from pf. */
CORVEL_API char *pfget_string(Pf *pf, const char *key);
CORVEL_API long pfget_int(Pf *pf, const char *key);
CORVEL_API double pfget_double(Pf *pf, const char *key);
CORVEL_API int pfget_boolean(Pf *pf, const char *key);
CORVEL_API double pfget_time(Pf *pf, const char *key);
CORVEL_API double pfget_size(Pf *pf, const char *key);
/* A new list of the entries (strings as their expanded texts, other entries as nodes). */
CORVEL_API Tbl *pfget_tbl(Pf *pf, const char *key);
/* A new array of the string entries (their expanded texts). */
CORVEL_API Arr *pfget_arr(Pf *pf, const char *key);

/* Typed putters: one level down into an array, a file or a list. */
CORVEL_API void pfput_string(Pf *pf, const char *key, const char *value);
CORVEL_API void pfput_int(Pf *pf, const char *key, long value);
CORVEL_API void pfput_double(Pf *pf, const char *key, double value);
CORVEL_API void pfput_boolean(Pf *pf, const char *key, int value);
CORVEL_API void pfput_time(Pf *pf, const char *key, double value);
/* The strings of the list and array are copied. */
CORVEL_API void pfput_tbl(Pf *pf, const char *key, Tbl *value);
CORVEL_API void pfput_arr(Pf *pf, const char *key, Arr *value);
/* value by type: an Arr of nodes (PFFILE, PFARR) or a Tbl of nodes (PFTBL), taken over; a
 * string, copied (PFSTRING); a function text, copied (PFFCT); a node, grafted (PFPF). */
CORVEL_API void pfput(Pf *pf, const char *key, void *value, int type);
CORVEL_API int pfset(Pf *pf, const char *path, const char *string);
CORVEL_API Pf *pfdel(Pf *pf, const char *key);
CORVEL_API int pfadd_arr(Pf *pf, const char *key);
CORVEL_API int pfadd_tbl(Pf *pf, const char *key);

/* "ask" installs the &ask prompt function, "die" the die handler. */
CORVEL_API int pfconfig(const char *code, Pf_config_fn function);
/* Prints the expanded string at key in the parameter file name. */
CORVEL_API int pfprint(const char *name, const char *key);

/* The reader. Each adds to *pf (a new file node when *pf is null): 0, or -2 when the text
 * ended inside an open array or list or the reader stopped on an error. */
CORVEL_API int pfinfd(int fd, Pf **pf);
CORVEL_API int pfin(FILE *stream, Pf **pf);
CORVEL_API int pfcompile(const char *string, Pf **pf);
CORVEL_API int pfcompile_counted(const char *buffer, long count, Pf **pf);
/* The name pfinfd's messages give; the pointer is kept. */
CORVEL_API void setpffilename(const char *name);
/* Nonzero: every replaced key is reported on the standard error stream. */
CORVEL_API extern int Pf_show_replacements;

/* The writer: the tree as parameter-file text, each string in the plainest form that reads
 * back to the same value. pfout writes four blanks per level of nesting and returns 0, or -1 for
 * a null tree or value; pfwrite creates or truncates path and writes with pfout (-1 with a
 * logged message when path cannot be opened or closed); pf2string returns the compact form (no
 * indentation) as a new string. str2pf returns, as a new string, the form in which one string
 * value is written; pfescape_special_chars returns text with a backslash before each newline,
 * '#' and backslash, and before each '}' that closes no '{'. */
CORVEL_API int pfout(FILE *stream, Pf *pf);
CORVEL_API int pfwrite(const char *path, Pf *pf);
CORVEL_API char *pf2string(Pf *pf);
CORVEL_API char *str2pf(const char *string);
CORVEL_API char *pfescape_special_chars(const char *string);

/* The search path, merging, change detection and the cache. */
CORVEL_API Tbl *pffiles(const char *name, int all);
CORVEL_API int pfread(const char *name, Pf **pf);
CORVEL_API int pfload(const char *env, const char *dir, const char *name, Pf **pf);
/* A file's modification time, as pftimes lists them. */
typedef struct Pftime {
  long mtime;
  char *path;
} Pftime;
CORVEL_API Tbl *pftimes(const char *name);
CORVEL_API int cmppftimes(Tbl *a, Tbl *b);
CORVEL_API void freepftime(Tbl *times);
CORVEL_API int pfupdate(const char *name, Pf **pf);
CORVEL_API int pfrequire(const char *name, const char *date);
CORVEL_API Pf *existsPf(const char *name);
CORVEL_API Pf *getPf(const char *name);
CORVEL_API void putPf(const char *name, Pf *pf);
CORVEL_API void putPf_nofree(const char *name, Pf *pf);
CORVEL_API int updatePf(const char *name);
CORVEL_API int freePf(const char *name);

/* Process-wide state that several loaded libraries share: the cache of trees by name and its
 * mutex, and the count of parameter-file operations under way. */
CORVEL_API extern Arr *Pflist;
CORVEL_API extern pthread_mutex_t Pflist_mutex;
CORVEL_API extern int Pf_busy;

/* Twins for Fortran: everything by reference, a tree as a reference to the tree pointer,
 * results through the last argument before the lengths of the character arguments. */
CORVEL_API void pffree_(Pf **pf);
CORVEL_API void pfget_(Pf **pf, const char *key, Pf **value, int *type, size_t keylen);
CORVEL_API void pfget_double_(Pf **pf, const char *key, double *value, size_t keylen);
CORVEL_API void pfget_int_(Pf **pf, const char *key, int *value, size_t keylen);
CORVEL_API void pfget_boolean_(Pf **pf, const char *key, int *value, size_t keylen);
CORVEL_API void pfget_string_(Pf **pf, const char *key, char *value, size_t keylen,
                              size_t valuelen);
CORVEL_API void pfget_tbl_(Pf **pf, const char *key, Tbl **value, size_t keylen);
CORVEL_API void pfget_arr_(Pf **pf, const char *key, Arr **value, size_t keylen);
CORVEL_API void pfread_(const char *name, Pf **pf, int *result, size_t namelen);
CORVEL_API void pfcompile_(const char *text, Pf **pf, int *result, size_t textlen);
CORVEL_API void pfnew_(int *type, Pf **pf);
CORVEL_API void pfput_(Pf **pf, const char *key, Pf **value, size_t keylen);
CORVEL_API void pfput_double_(Pf **pf, const char *key, double *value, size_t keylen);
CORVEL_API void pfput_int_(Pf **pf, const char *key, int *value, size_t keylen);
CORVEL_API void pfput_boolean_(Pf **pf, const char *key, int *value, size_t keylen);
CORVEL_API void pfput_string_(Pf **pf, const char *key, const char *value, size_t keylen,
                              size_t valuelen);
CORVEL_API void pfput_arr_(Pf **pf, const char *key, Arr **value, size_t keylen);
CORVEL_API void pfput_tbl_(Pf **pf, const char *key, Tbl **value, size_t keylen);
CORVEL_API void pfwrite_(Pf **pf, const char *path, int *result, size_t pathlen);
CORVEL_API void pfget_string__(Pf **pf, const char *key, char *value, size_t keylen,
                               size_t valuelen);
CORVEL_API void pfget_int__(Pf **pf, const char *key, int *value, size_t keylen);
CORVEL_API void pfget_double__(Pf **pf, const char *key, double *value, size_t keylen);
CORVEL_API void pfget_boolean__(Pf **pf, const char *key, int *value, size_t keylen);
CORVEL_API void pfget_tbl__(Pf **pf, const char *key, Tbl **value, size_t keylen);
CORVEL_API void pfput__(Pf **pf, const char *key, Pf **value, size_t keylen);
CORVEL_API void pfput_double__(Pf **pf, const char *key, double *value, size_t keylen);
CORVEL_API void pfput_int__(Pf **pf, const char *key, int *value, size_t keylen);
CORVEL_API void pfput_boolean__(Pf **pf, const char *key, int *value, size_t keylen);
CORVEL_API void pfput_string__(Pf **pf, const char *key, const char *value, size_t keylen,
                               size_t valuelen);

CORVEL_END_DECLS

#endif
