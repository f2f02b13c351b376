// Arr: the red-black tree with text keys. Each node and its key copy are one allocation, the
// text right after the node, so a lookup touches one block per level and a delete is one free.
// Setting a stored key keeps the node and its first spelling; only the value changes.
#include "corvel/arr.h"

#include <regex.h>
#include <stdlib.h>
#include <string.h>

#include "containers/rbtree.h"
#include "corvel/tbl.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "arr.c";

using corvel::RbNil;

namespace {

Rbnode *NewKeyedNode(const char *key, void *value) {
  size_t length = strlen(key) + 1;
  Rbnode *n = static_cast<Rbnode *>(CV_MALLOC(sizeof(Rbnode) + length, "arr node"));
  char *text = reinterpret_cast<char *>(n + 1);
  memcpy(text, key, length);
  n->key = text;
  n->value = value;
  return n;
}

// Searches of an array under strcmp read each key text where setarr put it.
Rbnode *FindKey(const Arr *arr, const char *key) {
  if (corvel::UsesStrcmp(arr)) return corvel::FindWith(arr->root, key, corvel::ByInlineText());
  return corvel::RbFindNode(arr, key);
}

Rbnode *FindSlot(const Arr *arr, const char *key, Rbnode **parent, int *last_compare) {
  if (corvel::UsesStrcmp(arr)) {
    return corvel::FindSlotWith(arr->root, key, corvel::ByInlineText(), parent, last_compare);
  }
  return corvel::RbFindSlot(arr, key, parent, last_compare);
}

// Visits every node in key order; the next node is taken before visit runs, so visit may delete
// the node it is given.
template <typename Visit>
void InOrder(const Arr *arr, Visit visit) {
  Rbnode *nil = RbNil();
  for (Rbnode *n = corvel::RbFirst(arr); n != nil;) {
    Rbnode *next = corvel::RbNext(n);
    visit(n);
    n = next;
  }
}

// Whether the regular expression matches all of text: its first match must start at the first
// character and end at the last.
bool MatchesWhole(const regex_t *re, const char *text) {
  regmatch_t m;
  if (regexec(re, text, 1, &m, 0) != 0) return false;
  return m.rm_so == 0 && static_cast<size_t>(m.rm_eo) == strlen(text);
}

}  // namespace

Arr *newarr(Arr_compare_fn compare) {
  Arr *arr = static_cast<Arr *>(malloc(sizeof(Arr)));
  if (arr == nullptr) return nullptr;
  corvel::RbInitHeader(arr, reinterpret_cast<Rbtree_compare_fn>(compare), 1);
  return arr;
}

void *setarr(Arr *arr, const char *key, void *value) {
  if (arr == nullptr || key == nullptr) return nullptr;
  Rbnode *parent;
  int last_compare;
  Rbnode *n = FindSlot(arr, key, &parent, &last_compare);
  if (n != nullptr) {
    // The stored key stays; the spare records what was displaced, as for any replacing insert.
    void *previous = n->value;
    arr->spare.key = n->key;
    arr->spare.value = previous;
    n->value = value;
    return previous;
  }
  corvel::RbLink(arr, NewKeyedNode(key, value), parent, last_compare);
  return nullptr;
}

void *getarr(Arr *arr, const char *key) {
  if (arr == nullptr || key == nullptr) return nullptr;
  Rbnode *n = FindKey(arr, key);
  return n != nullptr ? n->value : nullptr;
}

void *delarr(Arr *arr, const char *key) {
  if (arr == nullptr || key == nullptr) return nullptr;
  Rbnode *n = FindKey(arr, key);
  if (n == nullptr) return nullptr;
  void *value = n->value;
  corvel::RbUnlink(arr, n);
  // The key text goes with the node; the spare keeps only the value.
  arr->spare.key = nullptr;
  arr->spare.value = value;
  free(n);
  return value;
}

long cntarr(Arr *arr) {
  if (arr == nullptr) return 0;
  long count = 0;
  InOrder(arr, [&](Rbnode *) { count++; });
  return count;
}

Tbl *keysarr(Arr *arr) {
  Tbl *keys = newtbl(0);
  if (arr != nullptr) InOrder(arr, [&](Rbnode *n) { pushtbl(keys, n->key); });
  return keys;
}

Tbl *valsarr(Arr *arr) {
  Tbl *values = newtbl(0);
  if (arr != nullptr) InOrder(arr, [&](Rbnode *n) { pushtbl(values, n->value); });
  return values;
}

int applyarr(Arr *arr, Arr_apply_fn fn, void *private_data) {
  if (arr == nullptr || fn == nullptr) return 0;
  InOrder(arr, [&](Rbnode *n) { fn(static_cast<char *>(n->key), n->value, private_data); });
  return 0;
}

Arr *duparr(Arr *arr, Arr_copy_fn copy) {
  if (arr == nullptr) return nullptr;
  Arr *dup = static_cast<Arr *>(malloc(sizeof(Arr)));
  if (dup == nullptr) return nullptr;
  corvel::RbInitHeader(dup, arr->compare, arr->replace);
  InOrder(arr, [&](Rbnode *n) {
    void *value = copy != nullptr ? copy(n->value) : n->value;
    // Keys arrive in ascending order, so each one hangs right of the greatest so far.
    corvel::RbLink(dup, NewKeyedNode(static_cast<const char *>(n->key), value), corvel::RbLast(dup),
                   1);
  });
  return dup;
}

int freearr(Arr *arr, Arr_free_fn free_value) {
  if (arr == nullptr) return 0;
  if (free_value != nullptr) {
    corvel::RbFreeNodes(arr, [&](Rbnode *n) { free_value(n->value); });
  } else {
    corvel::RbFreeNodes(arr, [](Rbnode *) {});
  }
  free(arr);
  return 0;
}

Tbl *greparr(const char *pattern, Arr *arr) {
  Tbl *found = newtbl(0);
  regex_t re;
  if (arr == nullptr || pattern == nullptr || regcomp(&re, pattern, REG_EXTENDED) != 0) {
    return found;
  }
  InOrder(arr, [&](Rbnode *n) {
    const char *key = static_cast<const char *>(n->key);
    if (key != nullptr && MatchesWhole(&re, key)) pushtbl(found, n->key);
  });
  regfree(&re);
  return found;
}

Tbl *arrgrep(Arr *arr, const char *string) {
  Tbl *found = newtbl(0);
  if (arr == nullptr || string == nullptr) return found;
  InOrder(arr, [&](Rbnode *n) {
    regex_t re;
    const char *pattern = static_cast<const char *>(n->key);
    if (pattern == nullptr || regcomp(&re, pattern, REG_EXTENDED) != 0) return;
    if (MatchesWhole(&re, string)) pushtbl(found, n->key);
    regfree(&re);
  });
  return found;
}
