#include <gtest/gtest.h>
#include <stdlib.h>

#include <random>
#include <string>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "pf/test_tree.h"

namespace {

std::string Take(char *s) {
  std::string text(s ? s : "(null)");
  free(s);
  return text;
}

Pf *Child(Pf *pf, const char *key) {
  return static_cast<Pf *>(pf->type == PFTBL ? gettbl(pf->value.tbl, reinterpret_cast<long>(key))
                                             : getarr(pf->value.arr, key));
}

std::string NumberedKey(std::mt19937 &random) { return "k" + std::to_string(random() % 50); }
std::string NumberedValue(std::mt19937 &random) { return "value " + std::to_string(random()); }

TEST(PfNode, CopiesCompareEqualAndEveryChangeIsSeen) {
  std::mt19937 random(11);
  for (int round = 0; round < 50; round++) {
    Pf *tree = corvel::pf::RandomTree(random, 0, NumberedKey, NumberedValue);
    Pf *copy = pfdup(tree);
    EXPECT_EQ(pfcmp(tree, copy), 0);
    pfput_string(copy, "k0", "changed");
    EXPECT_EQ(pfcmp(tree, copy), 1);
    pffree(copy);
    pffree(tree);
  }
  Pf *a = pfnew(PFTBL), *b = pfnew(PFTBL);
  pfput_string(a, PF_INDEX(0), "x");
  EXPECT_EQ(pfcmp(a, b), 1);  // lengths differ
  pfput_string(b, PF_INDEX(0), "x");
  pfput(a, PF_INDEX(1), const_cast<char *>("&env(A)"), PFFCT);
  pfput(b, PF_INDEX(1), const_cast<char *>("&env(B)"), PFFCT);
  EXPECT_EQ(pfcmp(a, b), 1);                      // function texts differ
  EXPECT_EQ(pfcmp(a, Child(a, PF_INDEX(0))), 1);  // types differ
  pffree(a);
  pffree(b);
}

TEST(PfNode, PuttersWriteTheirTextsAndGraftTrees) {
  Pf *pf = pfnew(PFFILE);
  pfput_int(pf, "i", -42);
  pfput_double(pf, "d", 1.5e11);
  pfput_boolean(pf, "yes", 7);
  pfput_boolean(pf, "no", 0);
  pfput_time(pf, "t", 1706771109.047);
  EXPECT_STREQ(Child(pf, "i")->value.s, "-42");
  EXPECT_STREQ(Child(pf, "d")->value.s, "150e9");
  EXPECT_STREQ(Child(pf, "yes")->value.s, "True");
  EXPECT_STREQ(Child(pf, "no")->value.s, "False");
  EXPECT_STREQ(Child(pf, "t")->value.s,
               "1706771109.047 (032) 2024-02-01  07:05:09.047 UTC Thursday");
  EXPECT_EQ(pfget_time(pf, "t"), 1706771109.047);

  Tbl *strings = strtbl("a", nullptr, "c", nullptr);
  settbl(strings, 1, nullptr);
  settbl(strings, 2, const_cast<char *>("c"));
  pfput_tbl(pf, "list", strings);
  freetbl(strings, nullptr);
  Pf *list = Child(pf, "list");
  ASSERT_EQ(pfmaxtbl(list), 3);
  EXPECT_EQ(Child(list, PF_INDEX(1))->type, PFSTRING);
  EXPECT_EQ(Child(list, PF_INDEX(1))->value.s, nullptr);
  EXPECT_EQ(Child(list, PF_INDEX(0))->parent, list);

  // Putting past the end of a list leaves invalid entries in the gap.
  pfput_string(list, PF_INDEX(5), "f");
  EXPECT_EQ(pfmaxtbl(list), 6);
  EXPECT_EQ(Child(list, PF_INDEX(4))->type, PFINVALID);

  Pf *graft = pfnew(PFFILE);
  pfput_string(graft, "inner", "v");
  pfput(pf, "graft", graft, PFPF);
  EXPECT_EQ(graft->type, PFARR);
  EXPECT_EQ(graft->parent, pf);
  EXPECT_STREQ(pfget_string(pf, "graft{inner}"), "v");

  Tbl *keys = pfkeys(pf);
  EXPECT_EQ(Take(jointbl(keys, " ")), "d graft i list no t yes");
  freetbl(keys, nullptr);
  EXPECT_EQ(pfkeys(list), nullptr);
  EXPECT_EQ(pfmaxtbl(pf), 0);

  Pf *removed = pfdel(pf, "graft");
  EXPECT_EQ(removed, graft);
  EXPECT_EQ(removed->parent, nullptr);
  pffree(removed);
  EXPECT_EQ(pfdel(list, PF_INDEX(9)), nullptr);
  pffree(pf);
}

TEST(PfNode, PlaceholdersBecomeTheContainerAsked) {
  Pf *any = pfnew(PFANY);
  EXPECT_EQ(pfadd_tbl(any, PF_INDEX(1)), 0);
  EXPECT_EQ(any->type, PFTBL);
  EXPECT_EQ(pfmaxtbl(any), 2);
  EXPECT_EQ(pfadd_arr(any, "k"), -1);  // a list takes no key
  testing::internal::CaptureStderr();
  pffree(any);  // the placeholders left in it are complained about
  EXPECT_NE(testing::internal::GetCapturedStderr().find("pffree: didn't free type 6"),
            std::string::npos);
}

TEST(PfNodeDeathTest, BadTypesEndTheProcess) {
  Pf *pf = pfnew(PFFILE);
  EXPECT_EXIT(pfput(pf, "k", nullptr, 9), testing::ExitedWithCode(1), "Bad type in pfput : 9");
  Pf *string = pfnew(PFSTRING);
  EXPECT_EXIT(pfput(string, "k", nullptr, PFSTRING), testing::ExitedWithCode(1),
              "Bad pf pointer in pfput.");
  Pf *any = pfnew(PFANY);
  EXPECT_EXIT(pfdup(any), testing::ExitedWithCode(1), "Bad type in pfdup : 6");
  pffree(string);
  pffree(pf);
  free(any);
}

}  // namespace
