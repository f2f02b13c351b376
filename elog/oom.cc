#include "elog/oom.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "corvel/elog.h"

namespace corvel {

void DieOutOfMemory(const char *function, int line, const char *file, size_t bytes,
                    const char *what) {
  // Dying logs, and logging allocates: a second failure on the way out must not recurse.
  static std::atomic<bool> dying{false};
  if (dying.exchange(true)) {
    static const char kMsg[] = "Out of memory while reporting out of memory\n";
    ssize_t ignored = write(2, kMsg, sizeof kMsg - 1);
    (void)ignored;
    _exit(1);
  }
  elog_die(0, "Out of memory in %s at line %d of '%s'\n\tCan't malloc %lu bytes for %s\n", function,
           line, file, static_cast<unsigned long>(bytes), what);
}

void *CheckedMalloc(size_t bytes, const char *what, const char *function, int line,
                    const char *file) {
  void *p = malloc(bytes ? bytes : 1);
  if (p == nullptr) DieOutOfMemory(function, line, file, bytes, what);
  return p;
}

void *CheckedCalloc(size_t count, size_t size, const char *what, const char *function, int line,
                    const char *file) {
  void *p = calloc(count ? count : 1, size ? size : 1);
  if (p == nullptr) DieOutOfMemory(function, line, file, count * size, what);
  return p;
}

void *CheckedRealloc(void *p, size_t bytes, const char *what, const char *function, int line,
                     const char *file) {
  void *q = realloc(p, bytes ? bytes : 1);
  if (q == nullptr) DieOutOfMemory(function, line, file, bytes, what);
  return q;
}

char *CheckedStrdup(const char *s, const char *what, const char *function, int line,
                    const char *file) {
  size_t n = strlen(s) + 1;
  char *p = static_cast<char *>(CheckedMalloc(n, what, function, line, file));
  memcpy(p, s, n);
  return p;
}

}  // namespace corvel
