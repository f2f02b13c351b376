// Home directories from the password database.
#include <errno.h>
#include <pwd.h>
#include <stdlib.h>

#include "corvel/files.h"
#include "corvel/port.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "homedir.c";

namespace {

// An entry that does not fit the working buffer is looked up again with a larger one, up to
// this size, before the user counts as unknown.
constexpr size_t kMaxEntryBuffer = 1 << 20;

}  // namespace

char *homedir(const char *user) {
  char name[1024];
  if (user == nullptr || user[0] == '\0') user = my_username(name, sizeof name);
  if (user[0] == '\0') return nullptr;
  char stack_buffer[1024];
  char *buffer = stack_buffer;
  size_t size = sizeof stack_buffer;
  char *home = nullptr;
  for (;;) {
    struct passwd entry;
    struct passwd *found = nullptr;
    int error = getpwnam_r(user, &entry, buffer, size, &found);
    if (error == ERANGE && size < kMaxEntryBuffer) {
      if (buffer != stack_buffer) free(buffer);
      size *= 4;
      buffer = static_cast<char *>(CV_MALLOC(size, "buffer"));
      continue;
    }
    if (error == 0 && found != nullptr && found->pw_dir != nullptr) {
      home = CV_STRDUP(found->pw_dir, "home");
    }
    break;
  }
  if (buffer != stack_buffer) free(buffer);
  return home;
}
