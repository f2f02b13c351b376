// Telling whether a parameter file changed since it was read, reading it anew when it did, and
// checking that a program's parameter file is recent enough.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "corvel/time.h"
#include "elog/oom.h"
#include "pf/internal.h"
#include "pf/search.h"

static constexpr char kSourceName[] = "pfupdate.c";

namespace corvel {
namespace pf {
namespace {

// What the last read of a name into one caller's variable found: the files with their times,
// and the tree then read.
struct UpdateState {
  Tbl *times;
  Pf *tree;
};

// Update states by "name-address of the caller's variable". Held for the whole of pfupdate,
// the read included, so that two threads never read into one state.
pthread_mutex_t g_update_lock = PTHREAD_MUTEX_INITIALIZER;
Arr *g_update_states = nullptr;

void FreeTime(void *record) {
  Pftime *time = static_cast<Pftime *>(record);
  free(time->path);
  free(time);
}

// Reads the name anew into the state. The tree the caller's variable holds is freed first:
// it is the state's previous tree, or one the caller handed in.
int ReadIntoState(const char *name, Pf **caller, UpdateState *state) {
  pffree(*caller);
  if (state->tree == *caller) state->tree = nullptr;
  *caller = nullptr;
  int result = pfread(name, &state->tree);
  return result < 0 ? result : 1;
}

}  // namespace
}  // namespace pf
}  // namespace corvel

using namespace corvel::pf;

Tbl *pftimes(const char *name) {
  Tbl *files = pffiles(name, 0);
  Tbl *times = newtbl(maxtbl(files));
  for (long i = 0; i < maxtbl(files); i++) {
    char *path = static_cast<char *>(gettbl(files, i));
    struct stat status;
    if (stat(path, &status) != 0) {
      free(path);
      continue;
    }
    Pftime *time = static_cast<Pftime *>(CV_MALLOC(sizeof(Pftime), "pftime"));
    time->mtime = static_cast<long>(status.st_mtime);
    time->path = path;  // the record takes the search result's string over
    pushtbl(times, time);
  }
  freetbl(files, nullptr);
  return times;
}

int cmppftimes(Tbl *a, Tbl *b) {
  if (maxtbl(a) != maxtbl(b)) return 1;
  for (long i = 0; i < maxtbl(a); i++) {
    const Pftime *x = static_cast<const Pftime *>(gettbl(a, i));
    const Pftime *y = static_cast<const Pftime *>(gettbl(b, i));
    if (x->mtime != y->mtime || strcmp(x->path, y->path) != 0) return 1;
  }
  return 0;
}

void freepftime(Tbl *times) { freetbl(times, FreeTime); }

int pfupdate(const char *name, Pf **pf) {
  if (name == nullptr || pf == nullptr) return -1;
  size_t key_size = strlen(name) + 32;
  char *key = static_cast<char *>(CV_MALLOC(key_size, "pfupdate"));
  snprintf(key, key_size, "%s-%p", name, static_cast<void *>(pf));

  pthread_mutex_lock(&g_update_lock);
  if (g_update_states == nullptr) g_update_states = newarr(nullptr);
  UpdateState *state = static_cast<UpdateState *>(getarr(g_update_states, key));
  Tbl *times = pftimes(name);
  int result;
  if (maxtbl(times) == 0) {
    freepftime(times);
    result = -1;
    *pf = state != nullptr ? state->tree : nullptr;
  } else if (state == nullptr) {
    state = static_cast<UpdateState *>(CV_MALLOC(sizeof(UpdateState), "pfupdate"));
    state->times = times;
    state->tree = nullptr;
    setarr(g_update_states, key, state);
    result = ReadIntoState(name, pf, state);
  } else if (cmppftimes(state->times, times) != 0) {
    freepftime(state->times);
    state->times = times;
    result = ReadIntoState(name, pf, state);
  } else {
    freepftime(times);
    result = 0;
  }
  if (state != nullptr) *pf = state->tree;
  pthread_mutex_unlock(&g_update_lock);
  free(key);
  return result;
}

int pfrequire(const char *name, const char *date) {
  double required = str2epoch(date);
  Tbl *files = pffiles(name, 0);
  if (maxtbl(files) == 0) {
    elog_log(0, "can't find parameter file %s", name ? name : "");
    freetbl(files, free);
    return -4;
  }
  // Only the file that takes precedence counts: the last one on the path.
  const char *path = static_cast<const char *>(gettbl(files, maxtbl(files) - 1));
  Pf *tree = nullptr;
  int result;
  if (ReadFileInto(path, &tree) != 0) {
    elog_log(0, "error in parameter file %s", path);
    result = -3;
  } else {
    Pf *entry = static_cast<Pf *>(getarr(tree->value.arr, "pf_revision_time"));
    char *required_text = strdate(required);
    if (entry == nullptr || entry->type != PFSTRING) {
      elog_log(0, "no pf_revision_time in the file '%s', \n\tbut program requires date after %s\n",
               path, required_text);
      result = -1;
    } else {
      double revision = str2epoch(entry->value.s);
      if (required > revision) {
        char *revision_text = strdate(revision);
        elog_log(0,
                 "pf_revision_time in the file '%s' has date %s, \n\tbut program requires date "
                 "after %s\n",
                 path, revision_text, required_text);
        free(revision_text);
        result = -2;
      } else {
        result = 0;
      }
    }
    free(required_text);
  }
  pffree(tree);
  freetbl(files, free);
  return result;
}
