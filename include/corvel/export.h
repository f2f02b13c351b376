/* Declaration helpers shared by every public header. */
#ifndef CORVEL_EXPORT_H
#define CORVEL_EXPORT_H

/* CORVEL_API marks the names the shared object exports; everything else stays hidden. */
#if defined(CORVEL_BUILDING)
#define CORVEL_API __attribute__((visibility("default")))
#else
#define CORVEL_API
#endif

#ifdef __cplusplus
#define CORVEL_BEGIN_DECLS extern "C" {
#define CORVEL_END_DECLS }
#else
#define CORVEL_BEGIN_DECLS
#define CORVEL_END_DECLS
#endif

/* Functions that end the process. */
#define CORVEL_NORETURN __attribute__((noreturn))
/* Functions taking a printf format at argument f, its arguments from a (0 for a va_list). */
#define CORVEL_PRINTF(f, a) __attribute__((format(printf, f, a)))

#endif
