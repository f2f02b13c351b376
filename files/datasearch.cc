// Searching lists of directories for data files by name.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel/files.h"
#include "corvel/text.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "datasearch.c";

namespace corvel {
namespace files {
namespace {

constexpr int kExpandEnvironment = 1;
constexpr int kListUnreadable = 2;

bool IsReadable(const char *path) { return access(path, R_OK) == 0; }

// A new copy of element with a leading "~" or "~user" replaced by that home directory; an
// unknown user leaves the element as it is, naming nothing that exists.
char *ExpandHome(const char *element) {
  if (element[0] != '~') return CV_STRDUP(element, "path");
  const char *rest = strchrnul(element, '/');
  size_t user_length = static_cast<size_t>(rest - element - 1);
  char *user = static_cast<char *>(CV_MALLOC(user_length + 1, "user"));
  memcpy(user, element + 1, user_length);
  user[user_length] = '\0';
  char *home = homedir(user);
  free(user);
  if (home == nullptr) return CV_STRDUP(element, "path");
  // "~/x" joins as "x": the rest must not read as an absolute path of its own.
  char *expanded = concatpaths(home, *rest == '/' ? rest + 1 : rest);
  free(home);
  return expanded;
}

// A new copy of the search path with an empty one replaced by the default. An empty DATAPATH
// counts as unset, as an empty VELMORA does: it would otherwise mean searching nowhere.
char *SearchPath(const char *path) {
  if (path != nullptr && path[0] != '\0') return CV_STRDUP(path, "path");
  const char *datapath_variable = getenv("DATAPATH");
  if (datapath_variable != nullptr && datapath_variable[0] != '\0') {
    return CV_STRDUP(datapath_variable, "path");
  }
  return concatpaths(getvelmora(), "data");
}

void ListIfReadable(Tbl *found, char *candidate, int flags) {
  if ((flags & kListUnreadable) || IsReadable(candidate)) {
    pushtbl(found, candidate);
  } else {
    free(candidate);
  }
}

void SearchElement(Tbl *found, const char *element, const char *subdir, const char *name,
                   const char *base, int flags) {
  char *directory = ExpandHome(element);
  if (subdir != nullptr && subdir[0] != '\0') {
    char *joined = concatpaths(directory, subdir);
    free(directory);
    directory = joined;
  }
  struct stat status;
  if (restat(directory, &status) == 0) {
    if (S_ISDIR(status.st_mode)) {
      ListIfReadable(found, concatpaths(directory, name), flags);
      if (base != name) ListIfReadable(found, concatpaths(directory, base), flags);
    } else if ((flags & kListUnreadable) || (directory[0] == '/' && IsReadable(directory))) {
      // A file named in the path stands for itself, whatever name is sought.
      pushtbl(found, directory);
      directory = nullptr;
    }
  }
  free(directory);
}

}  // namespace
}  // namespace files
}  // namespace corvel

Tbl *datasearch(const char *path, const char *subdir, const char *name, int flags) {
  using namespace corvel::files;
  const int saved_errno = errno;
  if (name == nullptr) name = "";
  char *search = SearchPath(path);
  if (flags & kExpandEnvironment) {
    char *expanded = expand_env(search);
    free(search);
    search = expanded;
  }
  const char *slash = strrchr(name, '/');
  const char *base = slash != nullptr ? slash + 1 : name;
  Tbl *found = newtbl(0);
  Tbl *elements = split(search, ':');
  for (long i = 0; i < maxtbl(elements); i++) {
    SearchElement(found, static_cast<const char *>(gettbl(elements, i)), subdir, name, base, flags);
  }
  freetbl(elements, nullptr);
  free(search);
  errno = saved_errno;
  return found;
}

char *datapath(const char *env, const char *subdir, const char *name, const char *suffix) {
  const char *path = env != nullptr && env[0] != '\0' ? getenv(env) : nullptr;
  char *filename;
  if (suffix != nullptr && suffix[0] != '\0') {
    filename = strconcat(name != nullptr ? name : "", ".", suffix, nullptr);
  } else {
    filename = CV_STRDUP(name != nullptr ? name : "", "name");
  }
  Tbl *found = datasearch(path, subdir, filename, 1);
  char *first = maxtbl(found) > 0 ? static_cast<char *>(shifttbl(found)) : nullptr;
  freetbl(found, free);
  free(filename);
  return first;
}

char *datafile(const char *env, const char *name) { return datapath(env, nullptr, name, nullptr); }
