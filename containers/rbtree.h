// The red-black tree shared by the tree family, Arr and the sorted table. The public functions
// are thin layers over these: a search that reports where a missing key would hang, linking a
// node the caller allocated there, unlinking a node without freeing it, ordered stepping and
// freeing every node. Nodes are single malloc blocks, so freeing one is always free(node).
#ifndef CORVEL_CONTAINERS_RBTREE_H_
#define CORVEL_CONTAINERS_RBTREE_H_

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/arr.h"

namespace corvel {

inline Rbnode *RbNil() { return &rb_null; }

// Trees made without a comparison use strcmp; their searches call it directly rather than
// through the pointer.
inline Rbtree_compare_fn DefaultCompare() { return reinterpret_cast<Rbtree_compare_fn>(strcmp); }
inline bool UsesStrcmp(const Rbtree *t) { return t->compare == DefaultCompare(); }

// Fills a new header: empty tree, spare record cleared.
void RbInitHeader(Rbtree *t, Rbtree_compare_fn compare, int replace);

// The child a descent takes after comparing with n. A branch, not a conditional move: the
// descent waits on memory, and a predicted branch lets the processor start loading the next
// node before the comparison is done, where a conditional move would have to wait for it.
inline Rbnode *Child(Rbnode *n, int c) {
  Rbnode *next;
  if (c < 0) {
    next = n->left;
    __asm__("" : "+r"(next));
  } else {
    next = n->right;
    __asm__("" : "+r"(next));
  }
  return next;
}

template <typename Compare>
inline Rbnode *FindWith(Rbnode *n, const void *key, Compare compare) {
  Rbnode *nil = RbNil();
  while (n != nil) {
    int c = compare(key, n);
    if (c == 0) return n;
    n = Child(n, c);
  }
  return nullptr;
}

// Comparisons of a key with a node's key: through the tree's function, by calling strcmp
// directly, and by calling strcmp on the text an Arr keeps right after its node. Naming that
// address, instead of loading it from the node first, lets the processor fetch the text while
// the node is still on its way from memory; the check that the key really is there is a branch
// that is predicted right for every node setarr made.
struct ByFunction {
  Rbtree_compare_fn compare;
  int operator()(const void *key, const Rbnode *n) const { return compare(key, n->key); }
};
struct ByStrcmp {
  int operator()(const void *key, const Rbnode *n) const {
    return strcmp(static_cast<const char *>(key), static_cast<const char *>(n->key));
  }
};
struct ByInlineText {
  int operator()(const void *key, const Rbnode *n) const {
    const char *text = reinterpret_cast<const char *>(n + 1);
    if (__builtin_expect(n->key == text, 1)) {
      // From here the compiler must not swap in the loaded pointer, nor turn the branch into a
      // select: either would make the comparison wait for the load again.
      __asm__ volatile("" : "+r"(text));
    } else {
      text = static_cast<const char *>(n->key);
    }
    return strcmp(static_cast<const char *>(key), text);
  }
};

// The node holding key, or null.
inline Rbnode *RbFindNode(const Rbtree *t, const void *key) {
  if (UsesStrcmp(t)) return FindWith(t->root, key, ByStrcmp());
  return FindWith(t->root, key, ByFunction{t->compare});
}

template <typename Compare>
inline Rbnode *FindSlotWith(Rbnode *n, const void *key, Compare compare, Rbnode **parent,
                            int *last_compare) {
  Rbnode *nil = RbNil();
  Rbnode *last = nil;
  int c = 0;
  while (n != nil) {
    c = compare(key, n);
    if (c == 0) return n;
    last = n;
    n = Child(n, c);
  }
  *parent = last;
  *last_compare = c;
  return nullptr;
}

// The node holding key; or null, with *parent and *last_compare saying where RbLink hangs a new
// node for it.
inline Rbnode *RbFindSlot(const Rbtree *t, const void *key, Rbnode **parent, int *last_compare) {
  if (UsesStrcmp(t)) return FindSlotWith(t->root, key, ByStrcmp(), parent, last_compare);
  return FindSlotWith(t->root, key, ByFunction{t->compare}, parent, last_compare);
}

// Hangs node (key and value already set) below parent as RbFindSlot reported, then rebalances.
void RbLink(Rbtree *t, Rbnode *node, Rbnode *parent, int last_compare);
// Takes node out of the tree and rebalances; the node itself is left to the caller.
void RbUnlink(Rbtree *t, Rbnode *node);

// In-order stepping; each returns the sentinel past either end.
Rbnode *RbFirst(const Rbtree *t);
Rbnode *RbLast(const Rbtree *t);
Rbnode *RbNext(Rbnode *n);
Rbnode *RbPrevious(Rbnode *n);

// Frees every node, children before their parent, calling visit(node) just before each free.
// The tree is left empty. The path from the root is kept in a fixed stack: a red-black tree of
// n nodes is at most 2 log2(n + 1) deep, whatever its comparison, so 128 levels outlast memory.
template <typename Visit>
void RbFreeNodes(Rbtree *t, Visit visit) {
  Rbnode *nil = RbNil();
  Rbnode *path[128];
  int depth = 0;
  Rbnode *n = t->root;
  uintptr_t done = 0;  // address of the node freed last, compared and never followed
  for (;;) {
    for (; n != nil; n = n->left) path[depth++] = n;
    if (depth == 0) break;
    Rbnode *top = path[depth - 1];
    if (top->right != nil && reinterpret_cast<uintptr_t>(top->right) != done) {
      n = top->right;  // its right subtree first
      continue;
    }
    visit(top);
    done = reinterpret_cast<uintptr_t>(top);
    free(top);
    depth--;
  }
  t->root = nil;
}

}  // namespace corvel

#endif  // CORVEL_CONTAINERS_RBTREE_H_
