// Joining paths and asking what a path names.
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "corvel/files.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "paths.c";

char *concatpaths(const char *dir, const char *name) {
  if (dir == nullptr) dir = "";
  if (name == nullptr) name = "";
  if (dir[0] == '\0' || name[0] == '/') return CV_STRDUP(name, "path");
  size_t dir_length = strlen(dir);
  // Trailing slashes of dir go, except the one that is the root itself.
  while (dir_length > 1 && dir[dir_length - 1] == '/') dir_length--;
  size_t name_length = strlen(name);
  if (name_length == 0) {
    char *path = static_cast<char *>(CV_MALLOC(dir_length + 1, "path"));
    memcpy(path, dir, dir_length);
    path[dir_length] = '\0';
    return path;
  }
  const bool add_slash = dir[dir_length - 1] != '/';
  char *path = static_cast<char *>(CV_MALLOC(dir_length + add_slash + name_length + 1, "path"));
  memcpy(path, dir, dir_length);
  if (add_slash) path[dir_length] = '/';
  memcpy(path + dir_length + add_slash, name, name_length + 1);
  return path;
}

int restat(const char *path, struct stat *status) {
  int result;
  do {
    result = stat(path, status);
  } while (result != 0 && errno == EINTR);
  return result;
}

int is_filename(const char *path) {
  if (path == nullptr || path[0] == '\0') return 0;
  struct stat status;
  int saved = errno;  // a question, not a failure: errno stays as it was
  int result = restat(path, &status) == 0 && S_ISREG(status.st_mode);
  errno = saved;
  return result;
}
