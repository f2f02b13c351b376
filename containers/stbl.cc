// The sorted table: caller items kept as the keys of a tree that never replaces, plus a list of
// them in order for index access. Adds and deletes only mark the list stale; the first read
// after a change rebuilds it in one in-order pass, so runs of changes cost no list work.
#include <stdlib.h>

#include "containers/rbtree.h"
#include "corvel/arr.h"
#include "corvel/tbl.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "stbl.c";

namespace {

// The item list, rebuilt first when the table changed since it was taken.
Tbl *Items(Stbl *stbl) {
  if (stbl->changed || stbl->list == nullptr) {
    freetbl(stbl->list, nullptr);
    stbl->list = keysarr(stbl->tree);
    stbl->changed = 0;
  }
  return stbl->list;
}

}  // namespace

Stbl *newstbl(Rbtree_compare_fn compare) {
  Stbl *stbl = static_cast<Stbl *>(CV_MALLOC(sizeof(Stbl), "stbl"));
  stbl->list = nullptr;
  stbl->tree = static_cast<Arr *>(CV_MALLOC(sizeof(Arr), "stbl"));
  corvel::RbInitHeader(stbl->tree, compare, 0);
  stbl->changed = 1;
  return stbl;
}

void *addstbl(Stbl *stbl, void *item) {
  if (stbl == nullptr) return nullptr;
  stbl->changed = 1;
  // Without replacing, the tree hands back the stored node when an equal item is there; when no
  // node can be had it hands back the sentinel, whose key is null.
  return rbinsert(item, item, stbl->tree)->key;
}

void *delstbl(Stbl *stbl, void *item) {
  if (stbl == nullptr) return nullptr;
  stbl->changed = 1;
  Rbnode *removed = rbdelete(item, stbl->tree);
  return removed != nullptr ? removed->key : nullptr;
}

void *tststbl(Stbl *stbl, void *item) {
  return stbl != nullptr ? rbfind(item, stbl->tree) : nullptr;
}

long maxstbl(Stbl *stbl) { return stbl != nullptr ? maxtbl(Items(stbl)) : 0; }

void *getstbl(Stbl *stbl, long i) { return stbl != nullptr ? gettbl(Items(stbl), i) : nullptr; }

Tbl *tblstbl(Stbl *stbl) { return stbl != nullptr ? Items(stbl) : nullptr; }

int applystbl(Stbl *stbl, Stbl_apply_fn fn, void *private_data) {
  if (stbl == nullptr || fn == nullptr) return 0;
  // The list is held here while fn runs: should fn change the table and read it again, that
  // read builds a list of its own instead of freeing this one.
  Tbl *items = Items(stbl);
  stbl->list = nullptr;
  int sum = 0;
  for (long i = 0, n = maxtbl(items); i < n; i++) sum += fn(gettbl(items, i), private_data);
  if (stbl->list == nullptr && !stbl->changed) {
    stbl->list = items;
  } else {
    freetbl(items, nullptr);
  }
  return sum;
}

int freestbl(Stbl *stbl, Stbl_free_fn free_item) {
  if (stbl == nullptr) return 0;
  freetbl(stbl->list, nullptr);
  if (free_item != nullptr) {
    corvel::RbFreeNodes(stbl->tree, [&](Rbnode *n) { free_item(n->key); });
  } else {
    corvel::RbFreeNodes(stbl->tree, [](Rbnode *) {});
  }
  free(stbl->tree);
  free(stbl);
  return 0;
}
