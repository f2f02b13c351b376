// Allocation that never returns null: out of memory ends the process through elog_die with the
// library's message naming the function, the source line, the source file and what was being
// allocated. Each source file defines kSourceName, the file name the message shows.
#ifndef CORVEL_ELOG_OOM_H_
#define CORVEL_ELOG_OOM_H_

#include <stddef.h>

namespace corvel {

[[noreturn]] void DieOutOfMemory(const char *function, int line, const char *file, size_t bytes,
                                 const char *what);
void *CheckedMalloc(size_t bytes, const char *what, const char *function, int line,
                    const char *file);
void *CheckedCalloc(size_t count, size_t size, const char *what, const char *function, int line,
                    const char *file);
void *CheckedRealloc(void *p, size_t bytes, const char *what, const char *function, int line,
                     const char *file);
char *CheckedStrdup(const char *s, const char *what, const char *function, int line,
                    const char *file);

}  // namespace corvel

#define CV_MALLOC(bytes, what) \
  corvel::CheckedMalloc((bytes), (what), __func__, __LINE__, kSourceName)
#define CV_CALLOC(count, size, what) \
  corvel::CheckedCalloc((count), (size), (what), __func__, __LINE__, kSourceName)
#define CV_REALLOC(p, bytes, what) \
  corvel::CheckedRealloc((p), (bytes), (what), __func__, __LINE__, kSourceName)
#define CV_STRDUP(s, what) corvel::CheckedStrdup((s), (what), __func__, __LINE__, kSourceName)

#endif  // CORVEL_ELOG_OOM_H_
