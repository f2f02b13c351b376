// Putting values one level down into arrays, files and lists, and taking them out again.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "corvel/text.h"
#include "corvel/time.h"
#include "elog/oom.h"
#include "pf/internal.h"

static constexpr char kSourceName[] = "pfput.c";

namespace corvel {
namespace pf {
namespace {

void AdoptArrayChild(char *key, void *value, void *parent) {
  if (value != nullptr) static_cast<Pf *>(value)->parent = static_cast<Pf *>(parent);
}

void AdoptChildren(Pf *node) {
  if (node->type == PFFILE || node->type == PFARR) {
    applyarr(node->value.arr, AdoptArrayChild, node);
  } else if (node->type == PFTBL) {
    for (long i = 0; i < maxtbl(node->value.tbl); i++) {
      Pf *child = static_cast<Pf *>(gettbl(node->value.tbl, i));
      if (child != nullptr) child->parent = node;
    }
  }
}

// Puts child into a list at index, freeing what stood there. Slots skipped on the way to an
// index past the end hold empty invalid nodes: a list never holds a null entry. A negative
// index appends.
void StoreInList(Pf *list, long index, Pf *child) {
  Tbl *tbl = list->value.tbl;
  if (index < 0) index = maxtbl(tbl);
  while (maxtbl(tbl) < index) {
    Pf *gap = pfnew(PFINVALID);
    gap->parent = list;
    pushtbl(tbl, gap);
  }
  if (index < maxtbl(tbl)) pffree(static_cast<Pf *>(gettbl(tbl, index)));
  settbl(tbl, index, child);
}

// Puts child one level down into container; returns false when the container holds no
// children by key or index.
bool Store(Pf *container, const char *key, Pf *child) {
  child->parent = container;
  switch (container->type) {
    case PFFILE:
    case PFARR:
      pffree(static_cast<Pf *>(setarr(container->value.arr, key, child)));
      return true;
    case PFTBL:
      StoreInList(container, KeyIndex(key), child);
      return true;
    default:
      return false;
  }
}

bool IsContainer(const Pf *pf) {
  return pf != nullptr && (pf->type == PFFILE || pf->type == PFARR || pf->type == PFTBL);
}

}  // namespace
}  // namespace pf
}  // namespace corvel

using namespace corvel::pf;

void pfput(Pf *pf, const char *key, void *value, int type) {
  if (!IsContainer(pf)) elog_die(0, "Bad pf pointer in pfput.\n");
  Pf *node;
  switch (type) {
    case PFFILE:
    case PFARR:
      node = NewBareNode(type, 0);  // the value is the caller's, not a new one
      node->value.arr = static_cast<Arr *>(value);
      if (node->value.arr == nullptr) node->value.arr = newarr(nullptr);
      AdoptChildren(node);
      break;
    case PFTBL:
      node = NewBareNode(type, 0);  // the value is the caller's, not a new one
      node->value.tbl = value != nullptr ? static_cast<Tbl *>(value) : newtbl(0);
      AdoptChildren(node);
      break;
    case PFSTRING:
      node = NewStringNode(static_cast<const char *>(value), nullptr);
      break;
    case PFFCT:
      node = pfnew(PFFCT);
      if (value != nullptr) {
        node->value.pffunct->expression =
            CV_STRDUP(static_cast<const char *>(value), "pf->value.pffunct");
      }
      break;
    case PFPF:
      node = static_cast<Pf *>(value);
      if (node == nullptr) return;
      if (node->type == PFFILE) node->type = PFARR;
      break;
    default:
      elog_die(0, "Bad type in pfput : %d\n", type);
  }
  Store(pf, key, node);
}

void pfput_string(Pf *pf, const char *key, const char *value) {
  pfput(pf, key, const_cast<char *>(value), PFSTRING);
}

void pfput_int(Pf *pf, const char *key, long value) {
  char text[32];
  snprintf(text, sizeof text, "%ld", value);
  pfput(pf, key, text, PFSTRING);
}

void pfput_double(Pf *pf, const char *key, double value) {
  char text[64];
  pfput(pf, key, strdbl(text, value), PFSTRING);
}

void pfput_boolean(Pf *pf, const char *key, int value) {
  pfput(pf, key, const_cast<char *>(value ? "True" : "False"), PFSTRING);
}

void pfput_time(Pf *pf, const char *key, double value) {
  char *text = zepoch2str("%E (%j) %Y-%m-%d  %H:%M:%S.%s %z %A", nullptr, value);
  const char *start = text;
  while (*start == ' ') start++;
  pfput(pf, key, const_cast<char *>(start), PFSTRING);
  free(text);
}

void pfput_tbl(Pf *pf, const char *key, Tbl *value) {
  Pf *list = pfnew(PFTBL);
  for (long i = 0; i < maxtbl(value); i++) {
    pushtbl(list->value.tbl, NewStringNode(static_cast<const char *>(gettbl(value, i)), list));
  }
  pfput(pf, key, list, PFPF);
}

namespace {

void CopyStringEntry(char *key, void *value, void *array) {
  Pf *node = static_cast<Pf *>(array);
  setarr(node->value.arr, key, NewStringNode(static_cast<const char *>(value), node));
}

}  // namespace

void pfput_arr(Pf *pf, const char *key, Arr *value) {
  Pf *array = pfnew(PFARR);
  applyarr(value, CopyStringEntry, array);
  pfput(pf, key, array, PFPF);
}

Pf *pfdel(Pf *pf, const char *key) {
  if (pf == nullptr) return nullptr;
  Pf *removed = nullptr;
  if (pf->type == PFFILE || pf->type == PFARR) {
    removed = static_cast<Pf *>(delarr(pf->value.arr, key));
  } else if (pf->type == PFTBL) {
    long index = KeyIndex(key);
    if (index >= 0 && index < maxtbl(pf->value.tbl)) {
      removed = static_cast<Pf *>(deltbl(pf->value.tbl, index));
    }
  }
  if (removed != nullptr) removed->parent = nullptr;
  return removed;
}

int pfadd_arr(Pf *pf, const char *key) {
  if (pf == nullptr) return -1;
  if (pf->type == PFANY) {
    pf->type = PFARR;
    pf->value.arr = newarr(nullptr);
  }
  if (pf->type != PFFILE && pf->type != PFARR) return -1;
  Store(pf, key, pfnew(PFANY));
  return 0;
}

int pfadd_tbl(Pf *pf, const char *key) {
  if (pf == nullptr) return -1;
  if (pf->type == PFANY) {
    pf->type = PFTBL;
    pf->value.tbl = newtbl(0);
  }
  if (pf->type != PFTBL) return -1;
  Store(pf, key, pfnew(PFANY));
  return 0;
}
