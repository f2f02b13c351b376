// The name of the user running the process.
#include <errno.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "corvel/port.h"

char *my_username(char *name, int size) {
  if (name == nullptr || size <= 0) return name;
  name[0] = '\0';
  const char *user = nullptr;
  struct passwd entry;
  struct passwd *found = nullptr;
  char buffer[4096];
  int saved = errno;
  if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr) {
    user = found->pw_name;
  }
  // A process may run under an id the password database does not know (containers often
  // do); the login environment is then the best witness left.
  if (user == nullptr || user[0] == '\0') user = getenv("LOGNAME");
  if (user == nullptr || user[0] == '\0') user = getenv("USER");
  if (user != nullptr) {
    strncpy(name, user, static_cast<size_t>(size) - 1);
    name[size - 1] = '\0';
  }
  errno = saved;
  return name;
}
