// The installation root: found once, kept for the process, and passed on to child processes.
#include "files/velmora.h"

#include <errno.h>
#include <glob.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel/files.h"
#include "corvel/port.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "velmora.c";

namespace corvel {
namespace files {
namespace {

constexpr size_t kRootSize = 4096;
constexpr char kDefaultRoot[] = "/opt/velmora/5.8";
// Release directories such as /opt/velmora/5.9 or /opt/velmora/6.0a; glob sorts them, so
// the last one that is a directory is the newest release.
constexpr char kReleasePattern[] = "/opt/velmora/[1-9].[0-9][a-z]*";
constexpr char kEnvironmentPrefix[] = "VELMORA=";

pthread_mutex_t g_root_lock = PTHREAD_MUTEX_INITIALIZER;
char g_root[kRootSize] = "";
// The environment entry made by the first recording. putenv keeps the pointer, so the entry
// stays allocated for the rest of the process; holding it here keeps it reachable after a
// later setenv has replaced it in the environment.
char *g_environment_entry = nullptr;

bool IsDirectory(const char *path) {
  struct stat status;
  return restat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// A new absolute form of a program's path, symbolic links resolved when the file exists; null
// when the working directory cannot be named.
char *AbsoluteProgramPath(const char *path) {
  char resolved[PATH_MAX];
  if (realpath(path, resolved) != nullptr) return CV_STRDUP(resolved, "path");
  if (path[0] == '/') return CV_STRDUP(path, "path");
  char cwd[PATH_MAX];
  if (getcwd(cwd, sizeof cwd) == nullptr) return nullptr;
  return concatpaths(cwd, path);
}

// A new string with the newest release directory under /opt/velmora, or null.
char *NewestReleaseDirectory() {
  glob_t matches;
  char *found = nullptr;
  if (glob(kReleasePattern, 0, nullptr, &matches) == 0) {
    for (size_t i = matches.gl_pathc; i > 0 && found == nullptr; i--) {
      if (IsDirectory(matches.gl_pathv[i - 1])) found = CV_STRDUP(matches.gl_pathv[i - 1], "root");
    }
  }
  globfree(&matches);
  return found;
}

// A new copy of VELMORA, or null when it is unset or empty. g_root_lock must be held: the
// first recording puts the variable into the environment under it, and another thread may be
// reading it at that moment.
char *RootFromEnvironmentLocked() {
  // An empty VELMORA counts as unset: the first recording of an empty root leaves exactly
  // that in the environment, and the next call must search again.
  const char *variable = getenv("VELMORA");
  return variable != nullptr && variable[0] != '\0' ? CV_STRDUP(variable, "root") : nullptr;
}

// Where the root is when nothing has recorded one and VELMORA does not tell: a new string,
// empty when nothing is found.
char *FindRoot() {
  if (IsDirectory(kDefaultRoot)) return CV_STRDUP(kDefaultRoot, "root");
  // The platform knows the program's own file; argv[0] is the next best thing without it.
  const char *program = getexecname();
  if (program == nullptr) program = program_invocation_name;
  char *root = RootFromProgramPath(program);
  if (root == nullptr) root = NewestReleaseDirectory();
  return root != nullptr ? root : CV_STRDUP("", "root");
}

// Records root as the installation root; g_root_lock must be held. The first recording also
// puts it into the environment. The same text is not written again: other threads may be
// reading it without the lock.
void RecordLocked(const char *root) {
  if (root == nullptr) root = "";
  size_t length = strnlen(root, kRootSize - 1);
  if (strncmp(g_root, root, length) != 0 || g_root[length] != '\0') {
    memcpy(g_root, root, length);
    g_root[length] = '\0';
  }
  if (g_environment_entry == nullptr) {
    size_t size = sizeof kEnvironmentPrefix - 1 + length + 1;
    char *entry = static_cast<char *>(CV_MALLOC(size, "Setenv"));
    memcpy(entry, kEnvironmentPrefix, sizeof kEnvironmentPrefix - 1);
    memcpy(entry + sizeof kEnvironmentPrefix - 1, g_root, length + 1);
    putenv(entry);
    g_environment_entry = entry;
  }
}

}  // namespace

char *RootFromProgramPath(const char *program) {
  if (program == nullptr || program[0] == '\0') return nullptr;
  char *path;
  if (strchr(program, '/') != nullptr) {
    path = AbsoluteProgramPath(program);
  } else {
    // Without PATH there is nothing to search: datapath would fall back to the root's data
    // directory, and the root is what is being found.
    const char *search = getenv("PATH");
    if (search == nullptr || search[0] == '\0') return nullptr;
    char *found = datapath("PATH", nullptr, program, nullptr);
    path = found != nullptr ? AbsoluteProgramPath(found) : nullptr;
    free(found);
  }
  if (path == nullptr) return nullptr;
  char *root = nullptr;
  char *slash = strrchr(path, '/');
  if (slash != nullptr) {
    *slash = '\0';  // the program's directory
    size_t length = static_cast<size_t>(slash - path);
    if (length > 4 && strcmp(path + length - 4, "/bin") == 0) {
      path[length - 4] = '\0';
      root = CV_STRDUP(path, "root");
    }
  }
  free(path);
  return root;
}

}  // namespace files
}  // namespace corvel

char *getvelmora(void) {
  using namespace corvel::files;
  int saved_errno = errno;
  pthread_mutex_lock(&g_root_lock);
  const bool recorded = g_root[0] != '\0';
  char *root = recorded ? nullptr : RootFromEnvironmentLocked();
  pthread_mutex_unlock(&g_root_lock);
  if (!recorded) {
    // Searched outside the lock: the search reads the environment and the file system only,
    // and two threads that both search find the same root. Only the first to finish records
    // it: the others may already be reading the recorded text through the pointer returned
    // here.
    if (root == nullptr) root = FindRoot();
    pthread_mutex_lock(&g_root_lock);
    if (g_root[0] == '\0') RecordLocked(root);
    pthread_mutex_unlock(&g_root_lock);
    free(root);
  }
  errno = saved_errno;
  return g_root;
}

void putvelmora(const char *root) {
  using namespace corvel::files;
  pthread_mutex_lock(&g_root_lock);
  RecordLocked(root);
  pthread_mutex_unlock(&g_root_lock);
}
