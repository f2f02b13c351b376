// Finding a parameter file's copies along the search path and merging them into one tree.
#include "pf/search.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/pf.h"
#include "corvel/text.h"
#include "elog/oom.h"
#include "pf/internal.h"

static constexpr char kSourceName[] = "pfread.c";

namespace corvel {
namespace pf {

namespace {

// Restores errno when the scope ends: the search must not disturb the caller's.
class SavedErrno {
 public:
  SavedErrno() : saved_(errno) {}
  ~SavedErrno() { errno = saved_; }

 private:
  int saved_;
};

// name with ".pf" appended unless it is longer than two characters and ends so already.
char *WithSuffix(const char *name) {
  size_t length = strlen(name);
  if (length > 2 && strcmp(name + length - 3, ".pf") == 0) return CV_STRDUP(name, "pffiles");
  char *suffixed = static_cast<char *>(CV_MALLOC(length + 4, "pffiles"));
  memcpy(suffixed, name, length);
  memcpy(suffixed + length, ".pf", 4);
  return suffixed;
}

bool Readable(const char *path) { return access(path, R_OK) == 0; }

}  // namespace

int ReadFileInto(const char *path, Pf **pf) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return kCannotOpen;
  // A directory of the file's name opens, but holds no text: it is passed over like a file
  // that cannot be opened.
  struct stat status;
  if (fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) {
    close(fd);
    errno = EISDIR;
    return kCannotOpen;
  }
  setpffilename(InternFilename(path));
  int result = pfinfd(fd, pf);
  close(fd);
  return result;
}

}  // namespace pf
}  // namespace corvel

using namespace corvel::pf;

Tbl *pffiles(const char *name, int all) {
  SavedErrno saved;
  if (name == nullptr) name = "";
  size_t name_length = strlen(name);
  char *dir = static_cast<char *>(CV_MALLOC(name_length + 2, "pffiles"));
  char *base = static_cast<char *>(CV_MALLOC(name_length + 2, "pffiles"));
  dirbase(name, dir, base);
  char *base_pf = WithSuffix(base);

  const char *pfpath = getenv("PFPATH");
  char *default_path = nullptr;
  if (pfpath == nullptr) {
    // The installed defaults first, the current directory last, so that a file here
    // overrides them key by key.
    default_path = strconcat(getvelmora(), "/data/pf:.", nullptr);
    pfpath = default_path;
  }
  Tbl *candidates = datasearch(pfpath, nullptr, base_pf, all ? 3 : 1);

  bool plain_name = strncmp(name, "./", 2) != 0 && name[0] != '/' && strcmp(dir, ".") == 0;
  if (!plain_name) {
    bool listed = false;
    for (long i = 0; i < maxtbl(candidates) && !listed; i++) {
      listed = strcmp(static_cast<const char *>(gettbl(candidates, i)), dir) == 0;
    }
    char *named = WithSuffix(name);
    if (!listed && (all || Readable(named))) {
      pushtbl(candidates, named);
    } else {
      free(named);
    }
  }
  free(default_path);
  free(base_pf);
  free(base);
  free(dir);
  return candidates;
}

int pfread(const char *name, Pf **pf) {
  if (pf == nullptr) return -1;
  Tbl *files = pffiles(name, 0);
  Pf *tree = pfnew(PFFILE);
  tree->filename = InternFilename(name);
  int result = 0;
  bool opened = false;
  for (long i = 0; i < maxtbl(files); i++) {
    // A file that cannot be opened is skipped without a word: the path lists candidates.
    int file_result = ReadFileInto(static_cast<const char *>(gettbl(files, i)), &tree);
    if (file_result == kCannotOpen) continue;
    opened = true;
    result += file_result;
  }
  freetbl(files, free);
  tree->type = PFFILE;
  tree->filename = InternFilename(name);
  if (!opened || cntarr(tree->value.arr) == 0) {
    pffree(tree);
    *pf = nullptr;
    return -1;
  }
  *pf = tree;
  return result;
}

int pfload(const char *env, const char *dir, const char *name, Pf **pf) {
  if (pf == nullptr) return -1;
  char *path = datapath(env, dir, name, "pf");
  if (path == nullptr) {
    elog_log(0, "Can't find parameter file %s/%s\n", dir ? dir : "", name ? name : "");
    return -1;
  }
  Pf *tree = nullptr;
  int result = ReadFileInto(path, &tree);
  if (result == kCannotOpen) {
    if (errno == ENOENT) {
      elog_log(0, "Can't find parameter file %s/%s\n", dir ? dir : "", name ? name : "");
    } else {
      elog_log(1, "can't open '%s'", path);
    }
    free(path);
    return -1;
  }
  free(path);
  tree->filename = InternFilename(name);
  *pf = tree;
  return result;
}
