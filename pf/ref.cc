// &ref(pfname, path): a copy of an entry of another parameter file. The files referred to are
// kept in a cache of their own, refreshed whenever they change on disk.
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/arr.h"
#include "corvel/elog.h"
#include "corvel/text.h"
#include "elog/oom.h"
#include "pf/functions.h"
#include "pf/internal.h"

static constexpr char kSourceName[] = "pfinterpret.c";

namespace corvel {
namespace pf {
namespace {

// Recursive: evaluating the entry a reference names may meet another &ref on the same thread.
pthread_mutex_t g_referenced_lock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
// Name -> the slot holding that file's tree. pfupdate keeps its state by the slot's address,
// so slots never move or go away; the cache lives as long as the process.
Arr *g_referenced = nullptr;

Pf **ReferencedSlot(const char *name) {
  if (g_referenced == nullptr) {
    g_referenced = newarr(nullptr);
    if (g_referenced == nullptr) {
      DieOutOfMemory(__func__, __LINE__, kSourceName, sizeof(Arr *), "referenced files");
    }
  }
  Pf **slot = static_cast<Pf **>(getarr(g_referenced, name));
  if (slot == nullptr) {
    slot = static_cast<Pf **>(CV_CALLOC(1, sizeof(Pf *), "referenced file"));
    setarr(g_referenced, name, slot);
  }
  return slot;
}

// A copy of the entry at path in the tree of the file name, or an invalid node saying why
// there is none; text is the whole reference, which the explanations quote.
Pf *CopyReferenced(const char *name, const char *path, const char *text) {
  pthread_mutex_lock(&g_referenced_lock);
  Pf **slot = ReferencedSlot(name);
  Pf *result;
  if (pfupdate(name, slot) < 0 || *slot == nullptr) {
    result = NewInvalidNode("** referenced pf file not found: '%s' **", text);
  } else {
    Pf *entry = nullptr;
    if (pfresolve(*slot, path, 0, &entry) < 0 || entry == nullptr) {
      result = NewInvalidNode("** reference not resolved: '%s' **", text);
    } else {
      result = pfdup(entry);
      // A whole file becomes an array where it is put as a value.
      if (result->type == PFFILE) result->type = PFARR;
    }
  }
  pthread_mutex_unlock(&g_referenced_lock);
  return result;
}

}  // namespace

Pf *EvaluateRef(Pf *node, const char *text) {
  const char *open = strchr(text, '(');
  const char *close = strrchr(text, ')');
  if (open == nullptr || close == nullptr || close < open) {
    elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n",
             "&ref without closing parenthesis", kSourceName, __LINE__);
  }
  char *name = FunctionArgument(text);
  char *comma = strchr(name, ',');
  const char *path = "";
  if (comma != nullptr) {
    *comma = '\0';
    path = strtrim(comma + 1);
  }
  strtrim(name);
  Pf *result = name[0] == '\0' ? NewInvalidNode("** missing pf name in reference: '%s' **", text)
                               : CopyReferenced(name, path, text);
  free(name);
  return result;
}

}  // namespace pf
}  // namespace corvel
