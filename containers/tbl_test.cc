#include "corvel/tbl.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "corvel/elog.h"

namespace {

struct Rec {  // 12 bytes, so that a null value is laid down in uneven chunks
  int32_t a, b, c;
};
const Rec kNullRec = {-1, -1, -1};

void *P(intptr_t v) { return reinterpret_cast<void *>(v); }

// The int an element was made from; a direct table without a null value reads as 0.
int Decode(Tbl *t, void *e) {
  if (!t->direct) return static_cast<int>(reinterpret_cast<intptr_t>(e));
  return e ? static_cast<Rec *>(e)->a : 0;
}

void Check(Tbl *t, const std::deque<int> &model) {
  ASSERT_EQ(maxtbl(t), static_cast<long>(model.size()));
  for (size_t i = 0; i < model.size(); i++) ASSERT_EQ(Decode(t, gettbl(t, i)), model[i]) << i;
  // Every slot that holds no element holds the null value.
  const Rec zero = {0, 0, 0};
  const void *null = t->direct ? (t->null_value ? t->null_value : &zero) : &t->null_value;
  for (long i = t->first; t->base && i < t->right_limit; i++) {
    if (i < 0 || i >= t->count) {
      ASSERT_EQ(memcmp(t->base + i * t->size, null, t->size), 0) << i;
    }
  }
}

// Random edits at both ends and in the middle, mirrored on a deque.
void RunModel(Tbl *t, unsigned seed) {
  std::mt19937 rng(seed);
  std::deque<int> m;
  const int null = Decode(t, t->null_value);
  int next = 1;
  for (int step = 0; step < 4000; step++) {
    long n = static_cast<long>(m.size());
    auto pick = [&](long lo, long hi) { return std::uniform_int_distribution<long>(lo, hi)(rng); };
    int v = next++;
    Rec rec = {v, v, v};
    void *value = t->direct ? static_cast<void *>(&rec) : P(v);
    if (n && pick(0, 2) == 0) {  // an element of the table itself, which may move while stored
      long k = pick(0, n - 1);
      value = gettbl(t, k);
      v = m[k];
    }
    bool back = pick(0, 2) != 0;
    switch (pick(0, 8)) {
      case 0:
      case 1:
        ASSERT_EQ(back ? pushtbl(t, value) : unshifttbl(t, value), back ? n : 0);
        back ? m.push_back(v) : m.push_front(v);
        break;
      case 2:
      case 3:
        ASSERT_EQ(Decode(t, back ? poptbl(t) : shifttbl(t)), !n     ? null
                                                             : back ? m.back()
                                                                    : m.front());
        if (n) back ? m.pop_back() : m.pop_front();
        break;
      case 5: {
        long i = pick(-2, n + 2);
        long at = i < 0 ? 0 : std::min(i, n);
        ASSERT_EQ(instbl(t, i, value), at);
        m.insert(m.begin() + at, v);
        break;
      }
      case 6: {
        long i = pick(-2, n + 2);
        bool in = i >= 0 && i < n;
        ASSERT_EQ(Decode(t, deltbl(t, i)), in ? m[i] : null);
        if (in) m.erase(m.begin() + i);
        break;
      }
      case 7: {
        long i = pick(-1, n + 3);
        ASSERT_EQ(settbl(t, i, value), i < 0 ? n : i);
        if (i < 0) i = n;
        if (i >= n) m.resize(i + 1, null);
        m[i] = v;
        break;
      }
      default:
        if (pick(0, 9) == 0) {
          long k = pick(-1, n + 1);
          trunctbl(t, k, nullptr);
          if (k < n) m.resize(std::max(k, 0L));
        }
        for (long i : {-1L, n, INT64_MIN, INT64_MAX}) ASSERT_EQ(Decode(t, gettbl(t, i)), null);
        ASSERT_EQ(addrtbl(t, n), nullptr);
    }
    ASSERT_NO_FATAL_FAILURE(Check(t, m)) << "step " << step;
  }
  freetbl(t, nullptr);
}

TEST(Tbl, MatchesDequeModel) {
  Rec null = kNullRec;
  RunModel(newtbl(1), 1);
  RunModel(newtbl(0), 2);
  RunModel(inittbl(2, 3, 0, P(-5), 8), 3);
  RunModel(inittbl(1, 1, 1, &null, sizeof(Rec)), 4);
  RunModel(inittbl(3, 2, 1, nullptr, sizeof(Rec)), 5);
  EXPECT_EQ(pushtbl(nullptr, P(1)), -1);
  EXPECT_EQ(shifttbl(nullptr), nullptr);
}

TEST(Tbl, GrowthFollowsIncrements) {
  Tbl *t = newtbl(4);
  pushtbl(t, P(1));
  EXPECT_EQ(t->right_limit, 4);  // a first allocation takes exactly the increment
  freetbl(t, nullptr);

  // Alternating unshift and shift stays inside the first allocation.
  t = inittbl(5, 0, 0, nullptr, 8);
  unshifttbl(t, P(1));
  EXPECT_EQ(t->first, -4);
  char *storage = t->base + t->first * t->size;
  for (int i = 0; i < 1000; i++) {
    unshifttbl(t, P(i + 2));
    ASSERT_EQ(shifttbl(t), P(i + 2));
  }
  EXPECT_EQ(t->base + t->first * t->size, storage);
  freetbl(t, nullptr);

  // A queue of constant length keeps its storage bounded: the space freed at the front is reused.
  t = newtbl(0);
  for (int i = 0; i < 100; i++) pushtbl(t, P(i + 1));
  for (int i = 0; i < 100000; i++) ASSERT_EQ(pushtbl(t, shifttbl(t)), 99);
  EXPECT_LE(t->right_limit - t->first, 1000);
  freetbl(t, nullptr);
}

std::vector<int> freed;
void FreeIndirect(void *p) { freed.push_back(static_cast<int>(reinterpret_cast<intptr_t>(p))); }
void FreeRec(void *p) { freed.push_back(static_cast<Rec *>(p)->a); }

TEST(Tbl, FreeFunctionSkipsNullElements) {
  Tbl *t = newtbl(0);
  for (long i : {0, 2, 4}) settbl(t, i, P(i + 1));  // 1 null 3 null 5
  trunctbl(t, 2, FreeIndirect);
  freetbl(t, FreeIndirect);
  EXPECT_EQ(freed, (std::vector<int>{3, 5, 1}));
  // A direct table frees what differs from its null value, or without one what is not zeros.
  Rec null = kNullRec, zero = {0, 0, 0}, seven = {7, 7, 7};
  for (Rec *nv : {&null, static_cast<Rec *>(nullptr)}) {
    freed.clear();
    t = inittbl(0, 0, 1, nv, sizeof(Rec));
    for (Rec *r : {&null, &seven, &zero, &null}) pushtbl(t, r);
    trunctbl(t, 2, FreeRec);
    clrtbl(t, FreeRec);
    freetbl(t, FreeRec);
    EXPECT_EQ(freed, nv ? (std::vector<int>{0, 7}) : (std::vector<int>{-1, -1, 7}));
  }
}

TEST(Tbl, CatRefusesMismatchedTablesWithLoggedReason) {
  char name[] = "tbltest";
  char *argv[] = {name, nullptr};
  elog_init(1, argv);
  Rec null = kNullRec, other = {1, 1, 1};
  Tbl *a = newtbl(3), *b = strtbl("x", "y", nullptr), *d1 = inittbl(0, 0, 1, &null, 8);
  Tbl *d2 = inittbl(0, 0, 1, &null, sizeof(Rec)), *d3 = inittbl(0, 0, 1, &other, sizeof(Rec));
  EXPECT_EQ(cattbl(a, d2), 1);
  EXPECT_EQ(cattbl(a, d1), 1);
  EXPECT_EQ(cattbl(d2, d3), 1);
  char *text = elog_string(0);
  std::string tag = std::string(Program_Name) + ": ";
  std::string want = tag + "tbl lists have different entry sizes: 8 12\n" + tag +
                     "tbl lists are not both direct or indirect.\n";
  EXPECT_EQ(std::string(text).substr(0, want.size()), want);
  free(text);
  b->right_increment = 50;
  EXPECT_EQ(cattbl(a, b), 0);
  EXPECT_EQ(cattbl(a, a), 0);     // appending a table to itself doubles it
  EXPECT_EQ(a->right_limit, 50);  // the first allocation used the larger increment
  char *joined = jointbl(a, ", ");
  EXPECT_STREQ(joined, "x, y, x, y");
  free(joined);
  for (Tbl *t : {a, b, d1, d2, d3}) freetbl(t, nullptr);
}

void *Dup(void *s) { return strdup(static_cast<char *>(s)); }
void *BumpRec(void *p) { return &++static_cast<Rec *>(p)->a; }

TEST(Tbl, DuplicatesCompareEqualUntilChanged) {
  Tbl *t = strtbl("a", "bc", nullptr);
  settbl(t, 3, P(0));  // a null element is not duplicated
  Tbl *same = duptbl(t, nullptr), *deep = duptbl(t, Dup);
  EXPECT_EQ(cmptbl(t, same), 0);
  EXPECT_STREQ(static_cast<char *>(gettbl(deep, 1)), "bc");
  EXPECT_NE(gettbl(deep, 1), gettbl(t, 1));
  pushtbl(same, P(0));
  EXPECT_EQ(cmptbl(t, same), 1);
  freetbl(deep, free);
  Rec null = kNullRec, r = {4, 4, 4};
  Tbl *d = inittbl(0, 0, 1, &null, sizeof(Rec));
  settbl(d, 1, &r);
  Tbl *dd = duptbl(d, BumpRec);  // called in place on the copy of each non-null element
  EXPECT_EQ(Decode(dd, gettbl(dd, 0)) + Decode(dd, gettbl(dd, 1)) + Decode(d, gettbl(d, 1)), 8);
  for (Tbl *x : {t, same, d, dd}) freetbl(x, nullptr);
}

std::vector<long> Indices(Tbl *found) {
  std::vector<long> v;
  for (long i = 0; i < maxtbl(found); i++)
    v.push_back(reinterpret_cast<intptr_t>(gettbl(found, i)));
  freetbl(found, nullptr);
  return v;
}

TEST(Tbl, GrepMatchesWholeText) {
  Tbl *t = strtbl("abc", "ab", "xabc", "", "abcabc", nullptr);
  EXPECT_EQ(Indices(greptbl("a.*", t)), (std::vector<long>{0, 1, 4}));
  EXPECT_EQ(Indices(greptbl("(abc)+|x?", t)), (std::vector<long>{0, 3, 4}));
  EXPECT_EQ(Indices(greptbl("b", t)), (std::vector<long>{}));
  EXPECT_EQ(Indices(greptbl("(ab", t)), (std::vector<long>{}));
  Tbl *patterns = strtbl("a+b", "[", "b", "a|aab", "", nullptr);
  EXPECT_EQ(Indices(tblgrep(patterns, "aab")), (std::vector<long>{0, 3}));
  freetbl(t, nullptr);
  freetbl(patterns, nullptr);
}

// Reads both kinds of slot: a long stored by value or a pointer holding the number.
int CompareLong(void *a, void *b, void *) {
  long x, y;
  memcpy(&x, a, sizeof x);
  memcpy(&y, b, sizeof y);
  return (x > y) - (x < y);
}

TEST(Tbl, SortThenSearchFindsEqualRanges) {
  for (int direct : {0, 1}) {
    std::mt19937 rng(7);
    Tbl *t = inittbl(0, 0, direct, nullptr, sizeof(long));
    std::vector<long> model;
    for (int i = 0; i < 5000; i++) {
      long v = 2 * static_cast<long>(rng() % 700);  // even keys, many repeated
      pushtbl(t, direct ? &v : P(v));
      model.push_back(v);
    }
    sorttbl(t, CompareLong, nullptr);
    std::sort(model.begin(), model.end());
    for (long key = -1; key <= 1401; key++) {
      long first = -9, last = -9;
      auto range = std::equal_range(model.begin(), model.end(), key);
      long lo = range.first - model.begin(), hi = range.second - model.begin();
      ASSERT_EQ(searchtbl(&key, t, CompareLong, nullptr, &first, &last), hi - lo) << key;
      ASSERT_EQ(first, lo);
      ASSERT_EQ(last, hi - 1);
    }
    freetbl(t, nullptr);
  }
}

}  // namespace
