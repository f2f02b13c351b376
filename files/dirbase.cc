// Splitting a path into its directory, its base name and the base name's suffix.
#include <string.h>

#include "corvel/files.h"

void dirbase(const char *path, char *dir, char *base) { parsepath(path, dir, base, nullptr); }

void parsepath(const char *path, char *dir, char *base, char *suffix) {
  if (path == nullptr) path = "";
  const char *slash = strrchr(path, '/');
  const char *name = slash != nullptr ? slash + 1 : path;
  size_t name_length = strlen(name);
  // Every part is measured before anything is written, so dir may be the path's own buffer.
  size_t dir_length = 0;
  if (slash != nullptr) {
    // A leading '/' is the root directory itself and stays.
    dir_length = slash == path ? 1 : static_cast<size_t>(slash - path);
  }
  if (suffix != nullptr) {
    const char *dot = static_cast<const char *>(memrchr(name, '.', name_length));
    // A dot that begins the name marks a hidden file, not a suffix.
    if (dot != nullptr && dot != name) {
      size_t suffix_length = name_length - static_cast<size_t>(dot + 1 - name);
      memmove(suffix, dot + 1, suffix_length);
      suffix[suffix_length] = '\0';
      name_length = static_cast<size_t>(dot - name);
    } else {
      suffix[0] = '\0';
    }
  }
  if (base != nullptr) {
    memmove(base, name, name_length);
    base[name_length] = '\0';
  }
  if (dir != nullptr) {
    if (slash == nullptr) {
      strcpy(dir, ".");
    } else {
      memmove(dir, path, dir_length);
      dir[dir_length] = '\0';
    }
  }
}
