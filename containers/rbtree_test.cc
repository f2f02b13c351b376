// The tree family and sorted tables: random insert/delete runs checked against std::set together
// with the red-black invariants, every lookup mode against the set's own neighbours, and the
// replace and refresh rules.
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <vector>

#include "corvel/arr.h"

namespace {

void *AsKey(intptr_t i) { return reinterpret_cast<void *>(i); }
intptr_t FromKey(const void *p) { return reinterpret_cast<intptr_t>(p); }

int CompareInts(const void *a, const void *b) {
  intptr_t x = FromKey(a), y = FromKey(b);
  return x < y ? -1 : x > y;
}

// Checks colours, parent links and order below n; returns the black height.
int CheckSubtree(const Rbtree *t, const Rbnode *n, const Rbnode *parent) {
  if (n == &rb_null) return 1;
  EXPECT_EQ(n->parent, parent);
  if (n->color == RB_RED) {
    EXPECT_NE(n->left->color, RB_RED);
    EXPECT_NE(n->right->color, RB_RED);
  }
  if (n->left != &rb_null) {
    EXPECT_LT(t->compare(n->left->key, n->key), 0);
  }
  if (n->right != &rb_null) {
    EXPECT_GT(t->compare(n->right->key, n->key), 0);
  }
  int left = CheckSubtree(t, n->left, n);
  EXPECT_EQ(left, CheckSubtree(t, n->right, n));
  return left + (n->color == RB_BLACK);
}

void CheckTree(const Rbtree *t) {
  EXPECT_EQ(t->root->color, RB_BLACK);
  CheckSubtree(t, t->root, &rb_null);
  EXPECT_EQ(rb_null.color, RB_BLACK);
  EXPECT_EQ(rb_null.parent, nullptr);  // nothing writes the shared sentinel
}

// What rblookup should give for key, worked out from the model.
void *Expected(const std::set<intptr_t> &model, int mode, intptr_t key) {
  auto at = model.lower_bound(key), above = model.upper_bound(key);
  bool stored = at != above;
  auto key_of = [&](auto i) { return i == model.end() ? nullptr : AsKey(*i); };
  auto before = [&](auto i) { return i == model.begin() ? nullptr : AsKey(*std::prev(i)); };
  void *by_mode[] = {stored ? AsKey(key) : nullptr,
                     key_of(at),
                     stored ? AsKey(key) : before(at),
                     before(at),
                     key_of(above),
                     stored ? key_of(above) : nullptr,
                     stored ? before(at) : nullptr,
                     key_of(model.begin()),
                     before(model.end())};
  return mode >= 0 && mode <= 8 ? by_mode[mode] : nullptr;
}

TEST(Rbtree, RandomRunsKeepInvariantsAndMatchModel) {
  std::mt19937 rng(20240501);
  Rbtree *t = rbinit(CompareInts);
  std::set<intptr_t> model;
  for (int step = 0; step < 20000; step++) {
    intptr_t key = 2 * (1 + static_cast<intptr_t>(rng() % 400));  // even keys; odd ones absent
    if (rng() % 3 != 0) {
      Rbnode *n = rbinsert(AsKey(key), AsKey(key + 1), t);
      bool was_stored = !model.insert(key).second;
      EXPECT_EQ(n == &t->spare, was_stored);
    } else {
      Rbnode *removed = rbdelete(AsKey(key), t);
      ASSERT_EQ(removed != nullptr, model.erase(key) == 1);
      if (removed != nullptr) {
        EXPECT_EQ(FromKey(removed->value), key + 1);
      }
    }
    if (step % 250 == 0 || model.size() < 3) {
      CheckTree(t);
      // Every mode, for keys present, absent between, below the least and above the greatest.
      for (intptr_t probe = 0; probe <= 804; probe++) {
        for (int mode = -1; mode <= 9; mode++) {
          ASSERT_EQ(rblookup(mode, AsKey(probe), t), Expected(model, mode, probe))
              << "mode " << mode << " key " << probe << " size " << model.size();
        }
      }
    }
  }
  CheckTree(t);
  std::vector<intptr_t> in_order;
  rbtraverse(
      t,
      [](void *key, void *, void *out) {
        static_cast<std::vector<intptr_t> *>(out)->push_back(FromKey(key));
      },
      &in_order);
  EXPECT_EQ(in_order, std::vector<intptr_t>(model.begin(), model.end()));

  std::shuffle(in_order.begin(), in_order.end(), rng);
  for (size_t i = 0; i < in_order.size(); i++) {
    ASSERT_NE(rbdelete(AsKey(in_order[i]), t), nullptr);
    if (i % 16 == 0) CheckTree(t);
  }
  EXPECT_EQ(t->root, &rb_null);
  rbdestroy(t);
}

TEST(Rbtree, LookupModesOnStrings) {
  Rbtree *t = rbinit(nullptr);
  char b[] = "b", d[] = "d";
  rbinsert(b, nullptr, t);
  rbinsert(d, nullptr, t);
  EXPECT_EQ(rblookup(RB_EQUAL_OR_GREATER, "c", t), d);
  EXPECT_EQ(rblookup(RB_EQUAL_OR_GREATER, "b", t), b);
  EXPECT_EQ(rblookup(RB_EQUAL_OR_GREATER, "e", t), nullptr);
  EXPECT_EQ(rblookup(RB_LESS, "b", t), nullptr);
  EXPECT_EQ(rblookup(RB_NEXT, "c", t), nullptr);
  EXPECT_EQ(rblookup(RB_NEXT, "b", t), d);
  EXPECT_EQ(rblookup(RB_LAST, nullptr, t), d);
  EXPECT_EQ(rbfind(nullptr, t), nullptr);  // strcmp never sees a null key
  rbdestroy(t);
}

TEST(Rbtree, ReplacingInsertHandsBackTheDisplacedPair) {
  Rbtree *t = rbinit(nullptr);
  char first[] = "BHZ", second[] = "BHZ";
  int old_value, new_value;
  EXPECT_NE(rbinsert(first, &old_value, t), &rb_null);
  Rbnode *spare = rbinsert(second, &new_value, t);
  ASSERT_EQ(spare, &t->spare);
  EXPECT_EQ(spare->key, first);
  EXPECT_EQ(spare->value, &old_value);
  EXPECT_EQ(rbsearch("BHZ", t), &new_value);
  EXPECT_EQ(rbfind("BHZ", t), second);
  rbdestroy(t);
}

int freed = 0;
void CountingFree(void *p) {
  freed++;
  free(p);
}
int CountCalls(void *, void *counter) { return ++*static_cast<int *>(counter), 1; }

TEST(Stbl, ListFollowsAddsAndDeletes) {
  Stbl *s = newstbl(nullptr);
  char *c = strdup("c"), *a = strdup("a"), *b = strdup("b"), *other_b = strdup("b");
  EXPECT_EQ(addstbl(s, c), c);
  EXPECT_EQ(addstbl(s, a), a);
  EXPECT_EQ(addstbl(s, b), b);
  EXPECT_EQ(addstbl(s, other_b), b);  // the stored item, not added again
  ASSERT_EQ(maxstbl(s), 3);
  EXPECT_EQ(getstbl(s, 0), a);
  EXPECT_EQ(getstbl(s, 2), c);
  EXPECT_EQ(getstbl(s, 3), nullptr);

  EXPECT_EQ(delstbl(s, other_b), b);
  EXPECT_EQ(tststbl(s, other_b), nullptr);
  ASSERT_EQ(maxstbl(s), 2);
  EXPECT_EQ(getstbl(s, 1), c);
  int calls = 0;
  EXPECT_EQ(applystbl(s, CountCalls, &calls), 2);
  EXPECT_EQ(calls, 2);
  free(b);
  free(other_b);

  delstbl(s, a);
  EXPECT_EQ(maxstbl(s), 1);
  addstbl(s, a);
  freestbl(s, CountingFree);
  EXPECT_EQ(freed, 2);

  s = newstbl(nullptr);  // emptied by deletes
  char x[] = "x";
  addstbl(s, x);
  delstbl(s, x);
  EXPECT_EQ(maxstbl(s), 0);
  ASSERT_NE(tblstbl(s), nullptr);
  EXPECT_EQ(maxtbl(tblstbl(s)), 0);
  freestbl(s, nullptr);
}

}  // namespace
