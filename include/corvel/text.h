/* Text helpers: environment expansion, trimming, splitting, a string builder, compact numbers,
 * whole-text matching, dumps and conversion of blank-padded fields. Every new string returned
 * here is allocated with malloc and belongs to the caller. */
#ifndef CORVEL_TEXT_H
#define CORVEL_TEXT_H

#include <stddef.h>
#include <stdio.h>

#include "corvel/export.h"
#include "corvel/port.h"
#include "corvel/tbl.h"

CORVEL_BEGIN_DECLS

/* A new copy of text with every environment reference replaced by the variable's value:
 * "${NAME}" (a missing '}' takes the whole rest as the name) or "$NAME", where NAME is the
 * longest run of letters and digits, so an underscore ends it ("$A_B" looks up A). A reference
 * to an unset variable stays as it stood. Null gives null. */
CORVEL_API char *expand_env(const char *text);

/* Removes blanks, tabs and newlines at both ends of text, in place, moving the rest to the
 * front of the buffer; other control characters stop the trim. Returns text. */
CORVEL_API char *strtrim(char *text);

/* 1 when text holds nothing but blanks, tabs and newlines (or is empty or null), else 0. */
CORVEL_API int whitespace(const char *text);

/* Cuts text in place at every character c and returns a new list (free it with
 * freetbl(t, 0)) of pointers to the non-empty fields, which point into text: runs of c never
 * make empty fields, and an empty or null text gives an empty list. */
CORVEL_API Tbl *split(char *text, int c);

/* The string builder. *handle starts null; pushstr appends a copy of text (null appends
 * nothing) and returns the new length. popstr returns the text built so far: with release
 * nonzero the caller owns it and *handle becomes null; with release zero the builder keeps it
 * (the pointer stays valid until the next push). A null *handle pops a new empty string. */
CORVEL_API long pushstr(void **handle, const char *text);
CORVEL_API char *popstr(void **handle, int release);
/* A new string joining the arguments up to the first null pointer. */
CORVEL_API char *strconcat(const char *s1, ...);

/* Writes the compact text of value into buffer (at least 32 bytes) and returns buffer:
 * "Inf", "-Inf", "NaN"; up to 15 significant digits without a leading zero (".5"); values
 * above 1e10 or below 0.001 in magnitude with an engineering exponent ("150e9", "500e-6"). */
CORVEL_API char *strdbl(char *buffer, double value);

/* Reads a yes-or-no word, compared whole and without regard to case: -1 for "yes", "ok", "y",
 * "true", "1", "on", "t"; 0 for "no", "n", "false", "0", "off", "f"; 1 for anything else
 * (also null), which is no boolean at all. */
CORVEL_API int yesno(const char *text);

/* A number with an optional one-letter multiplier as its last character: "G" 1e9, "M" 1e6,
 * "k" 1e3, "m" 1e-3, "u" 1e-6 ("2k" is 2000, "5m" is 0.005). Case matters: "3K" is 3. The
 * decimal point is '.' whatever the locale. Null gives 0. */
CORVEL_API double sz2dbl(const char *text);

/* 1 when the extended regular expression pattern matches the whole of text, 0 when not, -2
 * when pattern does not compile (logged with elog_log). With a cache (a Hook * that starts
 * null, released with free_hook) the compiled pattern is kept and reused, and the pattern
 * argument of later calls is ignored; a cache whose pattern failed answers -1 without
 * logging again. */
CORVEL_API int strmatches(const char *text, const char *pattern, Hook **cache);

/* text, or "<null>" when text is null. */
CORVEL_API const char *okstr(const char *text);

/* A new terminated string from a blank-padded field of length characters, trailing blanks
 * dropped. */
CORVEL_API char *newcs(const char *field, size_t length);
/* Writes text into a blank-padded field of length characters (no terminator); returns 0. */
CORVEL_API int cs2fs(char *field, const char *text, size_t length);

/* Prints n bytes as lines of an offset, 16 bytes in hexadecimal and the same bytes as
 * characters ('.' for those that do not print):
 * "00000000  48 65 6c 6c 6f 0a                                 |Hello.|"
 * A null file means the standard error stream. Returns 0, or -1 when writing failed. */
CORVEL_API int hexdump(FILE *file, const void *bytes, long n);
/* The same dump as a new string ("" for no bytes). */
CORVEL_API char *hexdump_string(const void *bytes, long n);

/* Renders n bytes (n < 0: up to the terminator) into out, a buffer of outsize bytes, always
 * terminated, as C source would spell them: printing characters stand for themselves,
 * backslash and double quote are escaped, and the others are written as \n, \t, \r, \a, \b,
 * \f, \v or three octal digits (\000). A rendering that does not fit is cut before the first
 * escape or character that would not fit. A null pointer renders as "<null>". Returns out. */
CORVEL_API char *printable_string(char *out, long outsize, const void *bytes, long n);

CORVEL_END_DECLS

#endif
