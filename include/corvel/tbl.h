/* Tbl: the growable sequence of pointers (indirect) or of fixed-size elements (direct). */
#ifndef CORVEL_TBL_H
#define CORVEL_TBL_H

#include <stdint.h>

#include "corvel/export.h"

CORVEL_BEGIN_DECLS

typedef struct Tbl {
  char *base;          /* element 0; free slots may lie before it */
  char *mapbase;       /* base of a file-mapped table, else null */
  void *null_value;    /* direct: owned copy of one element or null (zeros); indirect: the pointer */
  void *deleted;       /* direct: owned copy of the element most recently removed by deltbl */
  int64_t first;       /* minus the number of free slots before element 0 */
  int64_t count;       /* number of elements */
  int64_t right_limit; /* slots allocated from element 0 rightwards */
  int32_t size;        /* element size in bytes (8 for an indirect table) */
  int32_t direct;      /* nonzero: elements stored by value */
  int64_t mapsize;     /* mapped size of a file-mapped table */
  int fd;              /* descriptor of a file-mapped table, -1 when none */
  int mode;            /* mode flags of a file-mapped table (bit 2: writable) */
  int64_t left_increment;  /* slots added by the next growth on the left; doubles after use */
  int64_t right_increment; /* slots added by the next growth on the right; doubles after use */
} Tbl;

typedef void (*Tbl_free_fn)(void *element);
typedef void *(*Tbl_dup_fn)(void *element);
typedef int (*Tbl_apply_fn)(void *element, void *private_data);
/* Compares two slots (or a key and a slot): pointers to the slots, as qsort passes them. */
typedef int (*Tbl_compare_fn)(void *a, void *b, void *private_data);

CORVEL_API Tbl *inittbl(long left_increment, long right_increment, int direct, void *null_value,
                        int element_size);
CORVEL_API Tbl *newtbl(long increment);
CORVEL_API long settbl(Tbl *t, long i, void *value);
CORVEL_API void *gettbl(Tbl *t, long i);
CORVEL_API void *addrtbl(Tbl *t, long i);
CORVEL_API long maxtbl(Tbl *t);
CORVEL_API long pushtbl(Tbl *t, void *value);
CORVEL_API void *poptbl(Tbl *t);
CORVEL_API long unshifttbl(Tbl *t, void *value);
CORVEL_API void *shifttbl(Tbl *t);
CORVEL_API long instbl(Tbl *t, long i, void *value);
CORVEL_API void *deltbl(Tbl *t, long i);
CORVEL_API void trunctbl(Tbl *t, long n, Tbl_free_fn free_fn);
CORVEL_API void clrtbl(Tbl *t, Tbl_free_fn free_fn);
CORVEL_API void freetbl(Tbl *t, Tbl_free_fn free_fn);
CORVEL_API long applytbl(Tbl *t, Tbl_apply_fn fn, void *private_data);
CORVEL_API int cattbl(Tbl *dst, Tbl *src);
CORVEL_API Tbl *duptbl(Tbl *t, Tbl_dup_fn dup_fn);
CORVEL_API int cmptbl(Tbl *a, Tbl *b);
/* A new indirect table of the given strings (not copied), up to the first null pointer. */
CORVEL_API Tbl *strtbl(const char *s, ...);
CORVEL_API char *jointbl(Tbl *t, const char *separator);
CORVEL_API Tbl *greptbl(const char *pattern, Tbl *t);
CORVEL_API Tbl *tblgrep(Tbl *t, const char *string);
CORVEL_API void sorttbl(Tbl *t, Tbl_compare_fn compare, void *private_data);
/* Binary search of a table sorted by compare, called as compare(key, slot, private_data).
 * *first and *last receive the range of equal elements and the result is its length; when
 * nothing matches the result is 0, *first is where key would be inserted and *last is
 * *first - 1. */
CORVEL_API long searchtbl(void *key, Tbl *t, Tbl_compare_fn compare, void *private_data,
                          long *first, long *last);

/* Appending to an indirect table that has room, and taking the first element of a non-empty
 * one, are the hot paths of stacks and queues. Compilers that inline take them from here (the
 * definitions are used only for inlining, like glibc's header inlines: no symbol is emitted and
 * the address of each function is the library's); every other case calls the library. An
 * indirect table is never file-mapped, so a store and a count update are all these cases do. */
#if defined(__GNUC__) && !defined(CORVEL_TBL_NO_INLINE)
#define CORVEL_TBL_INLINE extern __inline__ __attribute__((__gnu_inline__))
long corvel_tbl_call_pushtbl(Tbl *t, void *value) __asm__("pushtbl");
void *corvel_tbl_call_shifttbl(Tbl *t) __asm__("shifttbl");

CORVEL_TBL_INLINE long pushtbl(Tbl *t, void *value) {
  if (t != 0 && !t->direct && t->count < t->right_limit) {
    ((void **)t->base)[t->count] = value;
    return t->count++;
  }
  return corvel_tbl_call_pushtbl(t, value);
}

CORVEL_TBL_INLINE void *shifttbl(Tbl *t) {
  if (t != 0 && !t->direct && t->count > 0) {
    void **slot = (void **)t->base;
    void *value = *slot;
    int64_t first = t->first - 1, right_limit = t->right_limit - 1, count = t->count - 1;
    *slot = t->null_value;
    /* Kept opaque so that the three updates are not merged into one vector store, from which
     * the next read of the count could not be forwarded. */
    __asm__("" : "+r"(first), "+r"(right_limit), "+r"(count));
    t->base = (char *)(slot + 1);
    t->first = first;
    t->right_limit = right_limit;
    t->count = count;
    return value;
  }
  return corvel_tbl_call_shifttbl(t);
}
#endif

CORVEL_END_DECLS

#endif
