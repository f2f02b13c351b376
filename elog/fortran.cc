// The log's Fortran-callable twins: arguments by reference, blank-padded texts with their
// lengths passed last.
#include <errno.h>
#include <stdlib.h>

#include "corvel/elog.h"
#include "corvel/text.h"

namespace {

// Converting the text must not disturb the errno the caller may want reported.
char *FortranText(const char *text, size_t length) {
  int saved = errno;
  char *s = newcs(text, length);
  errno = saved;
  return s;
}

}  // namespace

void elog_init_(void) { elog_init(0, nullptr); }
void eloginit_(void) { elog_init(0, nullptr); }
void elog_init__(void) { elog_init(0, nullptr); }

void register_error_(int *flag, const char *text, size_t length) {
  char *s = FortranText(text, length);
  elog_log(*flag, "%s\n", s);
  free(s);
}

void complain_(int *flag, const char *text, size_t length) {
  char *s = FortranText(text, length);
  elog_complain(*flag, "%s\n", s);
  free(s);
}

void die_(int *flag, const char *text, size_t length) {
  char *s = FortranText(text, length);
  elog_die(*flag, "%s\n", s);
}

void clear_register_(int flag) { elog_clear_register(flag); }

void register_error__(int *flag, const char *text, size_t length) {
  register_error_(flag, text, length);
}
void complain__(int *flag, const char *text, size_t length) { complain_(flag, text, length); }
void die__(int *flag, const char *text, size_t length) { die_(flag, text, length); }
void clear_register__(int flag) { clear_register_(flag); }
