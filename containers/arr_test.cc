// Arr: random set/delete runs against std::map, the replace and spelling rules, free functions,
// deleting while applying, duplication and the whole-text regular-expression selections.
#include "corvel/arr.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "corvel/tbl.h"

namespace {

void *AsValue(intptr_t i) { return reinterpret_cast<void *>(i); }

std::vector<std::string> Strings(Tbl *t) {
  std::vector<std::string> out;
  for (long i = 0; i < maxtbl(t); i++) out.emplace_back(static_cast<char *>(gettbl(t, i)));
  freetbl(t, nullptr);
  return out;
}

TEST(Arr, RandomRunsMatchMap) {
  std::mt19937 rng(7);
  Arr *arr = newarr(nullptr);
  std::map<std::string, intptr_t> model;
  char key[32];
  for (int step = 0; step < 20000; step++) {
    snprintf(key, sizeof key, "sta%u", static_cast<unsigned>(rng() % 500));
    intptr_t value = step + 1;
    auto it = model.find(key);
    void *expected = it == model.end() ? nullptr : AsValue(it->second);
    if (rng() % 3 != 0) {
      ASSERT_EQ(setarr(arr, key, AsValue(value)), expected);
      model[key] = value;
    } else {
      ASSERT_EQ(delarr(arr, key), expected);
      model.erase(key);
    }
  }
  std::vector<std::string> model_keys;
  Tbl *values = valsarr(arr);
  long i = 0;
  for (auto &[k, v] : model) {
    model_keys.push_back(k);
    EXPECT_EQ(getarr(arr, k.c_str()), AsValue(v));
    EXPECT_EQ(gettbl(values, i++), AsValue(v));
  }
  EXPECT_EQ(maxtbl(values), i);
  freetbl(values, nullptr);
  EXPECT_EQ(cntarr(arr), static_cast<long>(model.size()));
  EXPECT_EQ(Strings(keysarr(arr)), model_keys);
  // A key that the tree family stored lives outside its node; lookups still find it.
  char outside[] = "sta1";
  rbinsert(outside, AsValue(-1), arr);
  EXPECT_EQ(getarr(arr, "sta1"), AsValue(-1));
  freearr(arr, nullptr);
}

TEST(Arr, SettingAgainReturnsThePreviousValueAndKeepsTheFirstSpelling) {
  Arr *arr = newarr(strcasecmp);
  int first, second;
  EXPECT_EQ(setarr(arr, "BHZ", &first), nullptr);
  EXPECT_EQ(setarr(arr, "bhz", &second), &first);
  EXPECT_EQ(cntarr(arr), 1);
  EXPECT_EQ(getarr(arr, "Bhz"), &second);
  EXPECT_EQ(Strings(keysarr(arr)), std::vector<std::string>{"BHZ"});
  EXPECT_EQ(delarr(arr, "bHz"), &second);
  EXPECT_EQ(Strings(keysarr(arr)), std::vector<std::string>{});
  char key[] = "ANMO";  // keys are copies
  setarr(arr, key, &first);
  key[0] = 'X';
  EXPECT_EQ(getarr(arr, "anmo"), &first);
  EXPECT_EQ(getarr(arr, key), nullptr);
  freearr(arr, nullptr);
}

int freed_values = 0;

TEST(Arr, FreeCallsTheValueFunctionOncePerKey) {
  Arr *arr = newarr(nullptr);
  for (int i = 0; i < 300; i++) setarr(arr, std::to_string(i).c_str(), malloc(8));
  free(setarr(arr, "7", malloc(8)));  // the displaced value is the caller's to free
  freearr(arr, [](void *value) { freed_values++, free(value); });
  EXPECT_EQ(freed_values, 300);
}

TEST(Arr, ApplyMayDeleteTheEntryItIsGiven) {
  Arr *arr = newarr(nullptr);
  for (int i = 0; i < 200; i++) setarr(arr, std::to_string(i).c_str(), AsValue(i % 3 == 0));
  applyarr(
      arr,
      [](char *key, void *value, void *self) {
        if (value != nullptr) delarr(static_cast<Arr *>(self), key);
      },
      arr);
  EXPECT_EQ(cntarr(arr), 200 - 67);
  EXPECT_EQ(getarr(arr, "3"), nullptr);
  freearr(arr, nullptr);
}

TEST(Arr, DuplicateIsIndependent) {
  Arr *arr = newarr(strcasecmp);
  for (int i = 0; i < 50; i++) setarr(arr, ("K" + std::to_string(i)).c_str(), AsValue(i));
  Arr *dup = duparr(arr, [](void *v) { return AsValue(reinterpret_cast<intptr_t>(v) + 1000); });
  EXPECT_EQ(dup->compare, arr->compare);
  EXPECT_EQ(getarr(dup, "k7"), AsValue(1007));
  delarr(dup, "K7");
  EXPECT_EQ(getarr(arr, "K7"), AsValue(7));
  EXPECT_EQ(cntarr(arr), 50);
  EXPECT_EQ(cntarr(dup), 49);
  freearr(dup, nullptr);
  freearr(arr, nullptr);
}

TEST(Arr, GrepMatchesWholeKeysInKeyOrder) {
  Arr *arr = newarr(nullptr);
  for (const char *k : {"LHZ", "BHZ", "BHN", "xBHZ", "BHZZ"}) setarr(arr, k, nullptr);
  EXPECT_EQ(Strings(greparr("BH.", arr)), (std::vector<std::string>{"BHN", "BHZ"}));
  EXPECT_EQ(Strings(greparr("H", arr)), std::vector<std::string>{});  // inside, not whole
  EXPECT_EQ(Strings(greparr("BH(Z|ZZ)", arr)), (std::vector<std::string>{"BHZ", "BHZZ"}));
  EXPECT_EQ(Strings(greparr("BH[", arr)), std::vector<std::string>{});
  freearr(arr, nullptr);

  Arr *patterns = newarr(nullptr);
  for (const char *k : {"B.*", "BH", "[", ".HZ", "HZ"}) setarr(patterns, k, nullptr);
  EXPECT_EQ(Strings(arrgrep(patterns, "BHZ")), (std::vector<std::string>{".HZ", "B.*"}));
  EXPECT_EQ(Strings(arrgrep(patterns, "")), std::vector<std::string>{});
  freearr(patterns, nullptr);
}

TEST(Containers, NullArgumentsAreHarmless) {
  EXPECT_EQ(setarr(nullptr, "a", AsValue(1)), nullptr);
  EXPECT_EQ(getarr(nullptr, "a"), nullptr);
  EXPECT_EQ(cntarr(nullptr), 0);
  EXPECT_EQ(freearr(nullptr, free), 0);
  EXPECT_EQ(Strings(keysarr(nullptr)), std::vector<std::string>{});
  Arr *arr = newarr(nullptr);
  EXPECT_EQ(setarr(arr, nullptr, AsValue(1)), nullptr);
  EXPECT_EQ(getarr(arr, nullptr), nullptr);
  freearr(arr, nullptr);
  EXPECT_EQ(rbinsert(nullptr, nullptr, nullptr), &rb_null);
  EXPECT_EQ(rbfind("a", nullptr), nullptr);
  EXPECT_EQ(rblookup(RB_FIRST, nullptr, nullptr), nullptr);
  rbdestroy(nullptr);
  EXPECT_EQ(maxstbl(nullptr), 0);
  EXPECT_EQ(addstbl(nullptr, nullptr), nullptr);
  EXPECT_EQ(freestbl(nullptr, nullptr), 0);
}

}  // namespace
