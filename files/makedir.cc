// Creating a directory together with every missing parent.
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/files.h"

namespace {

constexpr mode_t kDirectoryMode = 0775;

// makedir on path, a private copy that may be cut and restored while the parents are made.
// Each level needs only a few words of stack, so a path of PATH_MAX characters with a
// directory every two cannot exhaust it.
int MakeDirectoryIn(char *path) {
  struct stat status;
  if (restat(path, &status) != 0 && errno == ENOENT) {
    errno = 0;
    mkdir(path, kDirectoryMode);
    if (restat(path, &status) != 0 && errno == ENOENT) {
      char *slash = strrchr(path, '/');
      if (slash == path) {
        // The parent is the root, which exists: something else failed; try once more.
        mkdir(path, kDirectoryMode);
      } else if (slash != nullptr) {
        *slash = '\0';
        int parent = MakeDirectoryIn(path);
        *slash = '/';
        if (parent == 0) mkdir(path, kDirectoryMode);
      }
    }
  }
  if (restat(path, &status) != 0) {
    elog_log(0, "Can't open or create directory %s\n", path);
  } else if (!S_ISDIR(status.st_mode)) {
    elog_log(0, "%s is not a directory\n", path);
  } else if (access(path, W_OK) != 0) {
    elog_log(0, "can't write to directory %s\n", path);
  } else {
    return 0;
  }
  return -1;
}

// makedir on the first length characters of path. A path of PATH_MAX characters or more
// cannot be a directory's name: its status query would fail, and the message says so.
int MakeDirectoryPrefix(const char *path, size_t length) {
  char copy[PATH_MAX];
  if (length >= sizeof copy) {
    elog_log(0, "Can't open or create directory %.*s\n", static_cast<int>(length), path);
    return -1;
  }
  memcpy(copy, path, length);
  copy[length] = '\0';
  return MakeDirectoryIn(copy);
}

}  // namespace

int makedir(const char *path) {
  if (path == nullptr) path = "";
  return MakeDirectoryPrefix(path, strlen(path));
}

int make_pathdirs(const char *path) {
  if (path == nullptr) return 0;
  const char *slash = strrchr(path, '/');
  if (slash == nullptr) return 0;
  // "/name" lies in the root directory, which the path names by its leading '/'.
  return MakeDirectoryPrefix(path, slash == path ? 1 : static_cast<size_t>(slash - path));
}
