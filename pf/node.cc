// Parameter-file nodes: making, copying, comparing, describing and releasing them.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "elog/oom.h"
#include "pf/internal.h"

static constexpr char kSourceName[] = "pf.c";

namespace corvel {
namespace pf {

namespace {

const char *const kTypeNames[] = {"scalar",    "scalar",  "table",      "array",
                                  "undefined", "invalid", "pf-function"};

// The name of the file this thread reads; nodes made outside a read have none.
// Initial-exec: every node the reader makes reads it, and the general model would make each
// read a call.
__attribute__((tls_model("initial-exec"))) thread_local const char *t_read_filename = "";

// Every file name a node has ever carried: a set whose keys are the stable copies.
pthread_mutex_t g_filenames_lock = PTHREAD_MUTEX_INITIALIZER;
Arr *g_filenames = nullptr;

Arr *NewArrOrDie(const char *what) {
  Arr *arr = newarr(nullptr);
  if (arr == nullptr) DieOutOfMemory(__func__, __LINE__, kSourceName, sizeof(Arr), what);
  return arr;
}

void FreeNode(void *node) { pffree(static_cast<Pf *>(node)); }

// A string node's text, unless it lives in the node's own allocation, is freed on its own.
void FreeText(Pf *pf) {
  if (pf->value.s != reinterpret_cast<char *>(pf + 1)) free(pf->value.s);
}

bool IsStringType(int type) {
  return type == PFEXEC_ERROR || type == PFSTRING || type == PFINVALID;
}

int CompareStrings(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : 1;
  return strcmp(a, b) == 0 ? 0 : 1;
}

int CompareArrays(Arr *a, Arr *b) {
  if (cntarr(a) != cntarr(b)) return 1;
  // Both trees are ordered by key: walk them side by side.
  Tbl *keys_a = keysarr(a);
  Tbl *keys_b = keysarr(b);
  int result = 0;
  for (long i = 0; result == 0 && i < maxtbl(keys_a); i++) {
    const char *key_a = static_cast<const char *>(gettbl(keys_a, i));
    const char *key_b = static_cast<const char *>(gettbl(keys_b, i));
    if (strcmp(key_a, key_b) != 0) {
      result = 1;
    } else {
      result = pfcmp(static_cast<Pf *>(getarr(a, key_a)), static_cast<Pf *>(getarr(b, key_b)));
    }
  }
  freetbl(keys_a, nullptr);
  freetbl(keys_b, nullptr);
  return result;
}

int CompareLists(Tbl *a, Tbl *b) {
  if (maxtbl(a) != maxtbl(b)) return 1;
  for (long i = 0; i < maxtbl(a); i++) {
    int result = pfcmp(static_cast<Pf *>(gettbl(a, i)), static_cast<Pf *>(gettbl(b, i)));
    if (result != 0) return result;
  }
  return 0;
}

void CopyChild(char *key, void *value, void *copy) {
  Pf *child = pfdup(static_cast<Pf *>(value));
  child->parent = static_cast<Pf *>(copy);
  setarr(static_cast<Pf *>(copy)->value.arr, key, child);
}

const char *TypeDescription(int type) {
  switch (type) {
    case PFEXEC_ERROR:
      return "    PFEXEC_ERROR";
    case PFFILE:
      return "    Top level of Pf -- otherwise same as PFARR";
    case PFSTRING:
      return "    leaf of pf: simple string";
    case PFTBL:
      return "    ordered Tbl{ list";
    case PFARR:
      return "    Arr{ array";
    case PFINVALID:
      return "    invalid";
    case PFANY:
      return "    special value used internally in pfget";
    case PFFCT:
      return "    &function() : has to be evaluated";
    case PFPF:
      return "    argument to pfput to graft pf tree into another tree, sets PFFILE to PFARR";
    default:
      return nullptr;
  }
}

}  // namespace

const char *TypeName(int type) {
  if (type < 0 || type > PFANY) type = PFANY;
  return kTypeNames[type];
}

const char *InternFilename(const char *name) {
  if (name == nullptr) name = "";
  pthread_mutex_lock(&g_filenames_lock);
  if (g_filenames == nullptr) g_filenames = NewArrOrDie("filenames");
  const char *stored = static_cast<const char *>(rbfind(name, g_filenames));
  if (stored == nullptr) {
    setarr(g_filenames, name, nullptr);
    stored = static_cast<const char *>(rbfind(name, g_filenames));
  }
  pthread_mutex_unlock(&g_filenames_lock);
  return stored;
}

const char *CurrentReadFilename() { return t_read_filename; }

void SetCurrentReadFilename(const char *interned_name) {
  t_read_filename = interned_name != nullptr ? interned_name : "";
}

BusyScope::BusyScope() { __atomic_add_fetch(&Pf_busy, 1, __ATOMIC_RELAXED); }
BusyScope::~BusyScope() { __atomic_sub_fetch(&Pf_busy, 1, __ATOMIC_RELAXED); }

Pf *NewBareNode(int type, size_t extra) {
  Pf *pf = static_cast<Pf *>(CV_MALLOC(sizeof(Pf) + extra, "pf"));
  pf->type = type;
  pf->value.s = nullptr;
  pf->parent = nullptr;
  pf->filename = CurrentReadFilename();
  pf->expanded = nullptr;
  return pf;
}

Pf *NewInlineStringNode(const char *text, size_t length) {
  Pf *pf = NewBareNode(PFSTRING, length + 1);
  char *inline_text = reinterpret_cast<char *>(pf + 1);
  memcpy(inline_text, text, length);
  inline_text[length] = '\0';
  pf->value.s = inline_text;
  return pf;
}

void SetNodeText(Pf *pf, char *owned_text) {
  FreeText(pf);
  pf->value.s = owned_text;
}

Pf *NewStringNode(const char *text, Pf *parent) {
  Pf *node = pfnew(PFSTRING);
  if (text != nullptr) node->value.s = CV_STRDUP(text, "pf->value.s");
  node->parent = parent;
  return node;
}

}  // namespace pf
}  // namespace corvel

using corvel::pf::FreeNode;

Pf *pfnew(int type) {
  Pf *pf = corvel::pf::NewBareNode(type, 0);
  switch (type) {
    case PFFILE:
    case PFARR:
      pf->value.arr = corvel::pf::NewArrOrDie("pf");
      break;
    case PFTBL:
      pf->value.tbl = newtbl(0);
      break;
    case PFFCT:
      pf->value.pffunct =
          static_cast<Pffunct *>(CV_CALLOC(1, sizeof(Pffunct), "pf->value.pffunct"));
      break;
    default:
      break;
  }
  return pf;
}

void pffree(Pf *pf) {
  if (pf == nullptr) return;
  switch (pf->type) {
    case PFEXEC_ERROR:
    case PFSTRING:
    case PFINVALID:
      corvel::pf::FreeText(pf);
      break;
    case PFFILE:
    case PFARR:
      freearr(pf->value.arr, FreeNode);
      break;
    case PFTBL:
      freetbl(pf->value.tbl, FreeNode);
      break;
    case PFFCT:
      if (pf->value.pffunct != nullptr) {
        free(pf->value.pffunct->expression);
        pffree(pf->value.pffunct->result);
        free_hook(&pf->value.pffunct->hook);
        free(pf->value.pffunct);
      }
      break;
    default:
      elog_complain(0, "pffree: didn't free type %d", pf->type);
      break;
  }
  free(pf->expanded);
  free(pf);
}

Pf *pfdup(Pf *pf) {
  if (pf == nullptr) return nullptr;
  if (pf->type < PFEXEC_ERROR || pf->type > PFFCT || pf->type == PFUNDEFINED || pf->type == PFANY) {
    elog_die(0, "Bad type in pfdup : %d\n", pf->type);
  }
  // The copy keeps the original's file name; its value is made below.
  Pf *copy = static_cast<Pf *>(CV_MALLOC(sizeof(Pf), "pf"));
  *copy = *pf;
  copy->parent = nullptr;
  copy->expanded = nullptr;
  switch (pf->type) {
    case PFFILE:
    case PFARR:
      copy->value.arr = corvel::pf::NewArrOrDie("pf");
      applyarr(pf->value.arr, corvel::pf::CopyChild, copy);
      break;
    case PFTBL: {
      long n = maxtbl(pf->value.tbl);
      copy->value.tbl = newtbl(n);
      for (long i = 0; i < n; i++) {
        Pf *child = pfdup(static_cast<Pf *>(gettbl(pf->value.tbl, i)));
        if (child != nullptr) child->parent = copy;
        pushtbl(copy->value.tbl, child);
      }
      break;
    }
    case PFFCT:
      copy->value.pffunct =
          static_cast<Pffunct *>(CV_CALLOC(1, sizeof(Pffunct), "pf->value.pffunct"));
      if (pf->value.pffunct->expression != nullptr) {
        copy->value.pffunct->expression = CV_STRDUP(pf->value.pffunct->expression, "pf");
      }
      break;
    case PFINVALID:
      copy->value.s = nullptr;
      break;
    default:  // PFSTRING, PFEXEC_ERROR
      copy->value.s = pf->value.s != nullptr ? CV_STRDUP(pf->value.s, "pf") : nullptr;
      break;
  }
  return copy;
}

int pfcmp(Pf *a, Pf *b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : 1;
  if (a->type != b->type) return 1;
  switch (a->type) {
    case PFFILE:
    case PFARR:
      return corvel::pf::CompareArrays(a->value.arr, b->value.arr);
    case PFTBL:
      return corvel::pf::CompareLists(a->value.tbl, b->value.tbl);
    case PFFCT:
      return corvel::pf::CompareStrings(a->value.pffunct->expression, b->value.pffunct->expression);
    default:
      if (corvel::pf::IsStringType(a->type)) {
        return corvel::pf::CompareStrings(a->value.s, b->value.s);
      }
      elog_log(0, "unknown PF type=%d\n", a->type);
      return -1;
  }
}

Tbl *pfkeys(Pf *pf) {
  if (pf == nullptr || (pf->type != PFFILE && pf->type != PFARR)) return nullptr;
  return keysarr(pf->value.arr);
}

long pfmaxtbl(Pf *pf) {
  if (pf == nullptr || pf->type != PFTBL) return 0;
  return maxtbl(pf->value.tbl);
}

void showpf(const char *label, Pf *pf) {
  if (label == nullptr) label = "";
  fprintf(stderr, "%s pf=%p\n", label, static_cast<void *>(pf));
  if (pf == nullptr) {
    fprintf(stderr, "    pf=0\n\n");
    return;
  }
  const char *description = corvel::pf::TypeDescription(pf->type);
  if (description != nullptr) fprintf(stderr, "%s\n", description);
  if (pf->value.s != nullptr) {
    // A string shows its text; a container or a function shows its kind.
    const char *what = corvel::pf::IsStringType(pf->type) ? pf->value.s
                       : pf->type == PFFCT && pf->value.pffunct->expression != nullptr
                           ? pf->value.pffunct->expression
                           : corvel::pf::TypeName(pf->type);
    fprintf(stderr, "    value=%p (%s)\n", static_cast<void *>(pf->value.s), what);
  }
  if (pf->filename != nullptr && pf->filename[0] != '\0') {
    fprintf(stderr, "    filename=%s\n", pf->filename);
  }
  if (pf->expanded != nullptr) fprintf(stderr, "    filled_out=%s\n", pf->expanded);
  fprintf(stderr, "\n");
}
