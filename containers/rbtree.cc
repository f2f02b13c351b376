// The red-black tree. Every absent child, and the parent of the root, is the shared black
// sentinel rb_null. Nothing here writes the sentinel: deletion carries the parent of the node
// that replaced the unlinked one in a variable instead of parking it in the sentinel, so trees
// in different threads never touch common memory.
//
// A node with two children is removed by moving its in-order successor into its place rather
// than by copying the successor's key and value into it. The shape and colours come out the
// same, but every surviving key and value stays in the node that was made for it: Arr keeps its
// key text inside the node, and callers that hold a node from rbinsert keep a valid record.
#include "containers/rbtree.h"

#include <stdlib.h>
#include <string.h>

#include "corvel/arr.h"

// Zero-initialised, so it needs no constructor: black, with null links that nothing follows.
Rbnode rb_null = {nullptr, nullptr, nullptr, RB_BLACK, nullptr, nullptr};

namespace corvel {

namespace {

inline bool IsRed(const Rbnode *n) { return n->color == RB_RED; }

// Makes child take old's place under old's parent.
void Replace(Rbtree *t, Rbnode *old, Rbnode *child) {
  Rbnode *parent = old->parent;
  if (parent == RbNil()) {
    t->root = child;
  } else if (parent->left == old) {
    parent->left = child;
  } else {
    parent->right = child;
  }
  if (child != RbNil()) child->parent = parent;
}

void RotateLeft(Rbtree *t, Rbnode *x) {
  Rbnode *y = x->right;
  x->right = y->left;
  if (y->left != RbNil()) y->left->parent = x;
  Replace(t, x, y);
  y->left = x;
  x->parent = y;
}

void RotateRight(Rbtree *t, Rbnode *x) {
  Rbnode *y = x->left;
  x->left = y->right;
  if (y->right != RbNil()) y->right->parent = x;
  Replace(t, x, y);
  y->right = x;
  x->parent = y;
}

void InsertRepair(Rbtree *t, Rbnode *n) {
  while (IsRed(n->parent)) {
    Rbnode *parent = n->parent;
    Rbnode *grandparent = parent->parent;  // exists: a red node is never the root
    if (parent == grandparent->left) {
      Rbnode *uncle = grandparent->right;
      if (IsRed(uncle)) {
        parent->color = RB_BLACK;
        uncle->color = RB_BLACK;
        grandparent->color = RB_RED;
        n = grandparent;
        continue;
      }
      if (n == parent->right) {
        RotateLeft(t, parent);
        n = parent;
        parent = n->parent;
      }
      parent->color = RB_BLACK;
      grandparent->color = RB_RED;
      RotateRight(t, grandparent);
    } else {
      Rbnode *uncle = grandparent->left;
      if (IsRed(uncle)) {
        parent->color = RB_BLACK;
        uncle->color = RB_BLACK;
        grandparent->color = RB_RED;
        n = grandparent;
        continue;
      }
      if (n == parent->left) {
        RotateRight(t, parent);
        n = parent;
        parent = n->parent;
      }
      parent->color = RB_BLACK;
      grandparent->color = RB_RED;
      RotateLeft(t, grandparent);
    }
  }
  t->root->color = RB_BLACK;
}

// Restores the black heights after a black node was unlinked: x (possibly the sentinel) took its
// place below parent and is one black short. The sibling of a short subtree is never the
// sentinel, so which side x is on can be read from the parent even when x is the sentinel.
void DeleteRepair(Rbtree *t, Rbnode *x, Rbnode *parent) {
  while (x != t->root && !IsRed(x)) {
    if (x == parent->left) {
      Rbnode *sibling = parent->right;
      if (IsRed(sibling)) {
        sibling->color = RB_BLACK;
        parent->color = RB_RED;
        RotateLeft(t, parent);
        sibling = parent->right;
      }
      if (!IsRed(sibling->left) && !IsRed(sibling->right)) {
        sibling->color = RB_RED;
        x = parent;
        parent = x->parent;
        continue;
      }
      if (!IsRed(sibling->right)) {
        sibling->left->color = RB_BLACK;
        sibling->color = RB_RED;
        RotateRight(t, sibling);
        sibling = parent->right;
      }
      sibling->color = parent->color;
      parent->color = RB_BLACK;
      sibling->right->color = RB_BLACK;
      RotateLeft(t, parent);
    } else {
      Rbnode *sibling = parent->left;
      if (IsRed(sibling)) {
        sibling->color = RB_BLACK;
        parent->color = RB_RED;
        RotateRight(t, parent);
        sibling = parent->left;
      }
      if (!IsRed(sibling->left) && !IsRed(sibling->right)) {
        sibling->color = RB_RED;
        x = parent;
        parent = x->parent;
        continue;
      }
      if (!IsRed(sibling->left)) {
        sibling->right->color = RB_BLACK;
        sibling->color = RB_RED;
        RotateLeft(t, sibling);
        sibling = parent->left;
      }
      sibling->color = parent->color;
      parent->color = RB_BLACK;
      sibling->left->color = RB_BLACK;
      RotateRight(t, parent);
    }
    x = t->root;
  }
  if (x != RbNil()) x->color = RB_BLACK;
}

Rbnode *Leftmost(Rbnode *n) {
  while (n->left != RbNil()) n = n->left;
  return n;
}

Rbnode *Rightmost(Rbnode *n) {
  while (n->right != RbNil()) n = n->right;
  return n;
}

}  // namespace

void RbInitHeader(Rbtree *t, Rbtree_compare_fn compare, int replace) {
  t->compare = compare != nullptr ? compare : DefaultCompare();
  t->replace = replace;
  t->spare.left = t->spare.right = t->spare.parent = RbNil();
  t->spare.color = RB_BLACK;
  t->spare.key = nullptr;
  t->spare.value = nullptr;
  t->root = RbNil();
}

void RbLink(Rbtree *t, Rbnode *node, Rbnode *parent, int last_compare) {
  Rbnode *nil = RbNil();
  node->left = node->right = nil;
  node->parent = parent;
  node->color = RB_RED;
  if (parent == nil) {
    t->root = node;
  } else if (last_compare < 0) {
    parent->left = node;
  } else {
    parent->right = node;
  }
  InsertRepair(t, node);
}

void RbUnlink(Rbtree *t, Rbnode *node) {
  Rbnode *nil = RbNil();
  Rbnode *x;         // what moves up into the place that loses a node
  Rbnode *x_parent;  // its parent afterwards
  int removed_color = node->color;
  if (node->left == nil) {
    x = node->right;
    x_parent = node->parent;
    Replace(t, node, x);
  } else if (node->right == nil) {
    x = node->left;
    x_parent = node->parent;
    Replace(t, node, x);
  } else {
    Rbnode *successor = Leftmost(node->right);
    removed_color = successor->color;
    x = successor->right;
    if (successor->parent == node) {
      x_parent = successor;
    } else {
      x_parent = successor->parent;
      Replace(t, successor, x);
      successor->right = node->right;
      successor->right->parent = successor;
    }
    Replace(t, node, successor);
    successor->left = node->left;
    successor->left->parent = successor;
    successor->color = node->color;
  }
  if (removed_color == RB_BLACK) DeleteRepair(t, x, x_parent);
}

Rbnode *RbFirst(const Rbtree *t) { return t->root == RbNil() ? RbNil() : Leftmost(t->root); }

Rbnode *RbLast(const Rbtree *t) { return t->root == RbNil() ? RbNil() : Rightmost(t->root); }

Rbnode *RbNext(Rbnode *n) {
  Rbnode *nil = RbNil();
  if (n->right != nil) return Leftmost(n->right);
  Rbnode *parent = n->parent;
  while (parent != nil && n == parent->right) {
    n = parent;
    parent = parent->parent;
  }
  return parent;
}

Rbnode *RbPrevious(Rbnode *n) {
  Rbnode *nil = RbNil();
  if (n->left != nil) return Rightmost(n->left);
  Rbnode *parent = n->parent;
  while (parent != nil && n == parent->left) {
    n = parent;
    parent = parent->parent;
  }
  return parent;
}

}  // namespace corvel

using corvel::RbNil;

namespace {

// strcmp cannot take a null key; under it a null key is simply never stored.
bool Unusable(const Rbtree *t, const void *key) { return key == nullptr && corvel::UsesStrcmp(t); }

}  // namespace

Rbtree *rbinit(Rbtree_compare_fn compare) {
  Rbtree *t = static_cast<Rbtree *>(malloc(sizeof(Rbtree)));
  if (t == nullptr) return nullptr;
  corvel::RbInitHeader(t, compare, 1);
  return t;
}

Rbnode *rbinsert(void *key, void *value, Rbtree *tree) {
  if (tree == nullptr || Unusable(tree, key)) return RbNil();
  Rbnode *parent;
  int last_compare;
  Rbnode *n = corvel::RbFindSlot(tree, key, &parent, &last_compare);
  if (n != nullptr) {
    if (!tree->replace) return n;
    tree->spare.key = n->key;
    tree->spare.value = n->value;
    n->key = key;
    n->value = value;
    return &tree->spare;
  }
  n = static_cast<Rbnode *>(malloc(sizeof(Rbnode)));
  if (n == nullptr) return RbNil();
  n->key = key;
  n->value = value;
  corvel::RbLink(tree, n, parent, last_compare);
  return n;
}

Rbnode *rbdelete(const void *key, Rbtree *tree) {
  if (tree == nullptr || Unusable(tree, key)) return nullptr;
  Rbnode *n = corvel::RbFindNode(tree, key);
  if (n == nullptr) return nullptr;
  tree->spare.key = n->key;
  tree->spare.value = n->value;
  corvel::RbUnlink(tree, n);
  free(n);
  return &tree->spare;
}

void *rbfind(const void *key, Rbtree *tree) {
  if (tree == nullptr || Unusable(tree, key)) return nullptr;
  Rbnode *n = corvel::RbFindNode(tree, key);
  return n != nullptr ? n->key : nullptr;
}

void *rbsearch(const void *key, Rbtree *tree) {
  if (tree == nullptr || Unusable(tree, key)) return nullptr;
  Rbnode *n = corvel::RbFindNode(tree, key);
  return n != nullptr ? n->value : nullptr;
}

void *rblookup(int mode, const void *key, Rbtree *tree) {
  if (tree == nullptr || mode < RB_EQUAL || mode > RB_LAST) return nullptr;
  Rbnode *nil = RbNil();
  if (mode == RB_FIRST) return corvel::RbFirst(tree)->key;
  if (mode == RB_LAST) return corvel::RbLast(tree)->key;
  if (Unusable(tree, key)) return nullptr;

  // The last node visited and the last comparison with it decide every neighbour mode.
  Rbnode *last = nil;
  int c = 0;
  for (Rbnode *n = tree->root; n != nil; n = c < 0 ? n->left : n->right) {
    last = n;
    c = tree->compare(key, n->key);
    if (c == 0) break;
  }
  if (last == nil) return nullptr;

  Rbnode *found = nil;
  switch (mode) {
    case RB_EQUAL:
      found = c == 0 ? last : nil;
      break;
    case RB_EQUAL_OR_GREATER:
      found = c <= 0 ? last : corvel::RbNext(last);
      break;
    case RB_GREATER:
      found = c < 0 ? last : corvel::RbNext(last);
      break;
    case RB_EQUAL_OR_LESS:
      found = c >= 0 ? last : corvel::RbPrevious(last);
      break;
    case RB_LESS:
      found = c > 0 ? last : corvel::RbPrevious(last);
      break;
    case RB_NEXT:
      found = c == 0 ? corvel::RbNext(last) : nil;
      break;
    case RB_PREVIOUS:
      found = c == 0 ? corvel::RbPrevious(last) : nil;
      break;
  }
  return found->key;  // the sentinel's key is null
}

void rbtraverse(Rbtree *tree, Rbtree_apply_fn fn, void *private_data) {
  if (tree == nullptr || fn == nullptr) return;
  Rbnode *nil = RbNil();
  for (Rbnode *n = corvel::RbFirst(tree); n != nil;) {
    Rbnode *next = corvel::RbNext(n);  // taken first, so fn may delete n
    fn(n->key, n->value, private_data);
    n = next;
  }
}

void rbdestroy(Rbtree *tree) {
  if (tree == nullptr) return;
  corvel::RbFreeNodes(tree, [](Rbnode *) {});
  free(tree);
}
