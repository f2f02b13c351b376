#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "corvel/elog.h"
#include "corvel/pf.h"

namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

std::string Register() {
  char *text = elog_string(0);
  std::string result(text != nullptr ? text : "");
  free(text);
  elog_clear();
  return result;
}

std::string Text(const char *s) { return s != nullptr ? s : "(null)"; }

// A new array of the given key and value strings, put under key into pf; returns it.
Pf *PutArray(Pf *pf, const char *key, std::initializer_list<const char *> pairs) {
  Pf *array = pfnew(PFARR);
  for (auto p = pairs.begin(); p != pairs.end(); p += 2) pfput_string(array, p[0], p[1]);
  pfput(pf, key, array, PFPF);
  return array;
}

Pf *PutList(Pf *pf, const char *key, std::initializer_list<const char *> values) {
  Pf *list = pfnew(PFTBL);
  long i = 0;
  for (const char *value : values) pfput_string(list, PF_INDEX(i++), value);
  pfput(pf, key, list, PFPF);
  return list;
}

// The tree of a file "site.pf":
//   home /u, n 0x10, bad 12abc, on TRUE, size 2k, when "1970-01-02 00:00:00"
//   stations &Arr{ AAK 1; two words 2 }, bands &Tbl{ b0 b1 b2 }, chan &Arr{ BHZ &Tbl{ c0 c1 } }
class PfAccessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    pf_ = pfnew(PFFILE);
    pf_->filename = "site.pf";
    const char *const strings[][2] = {{"home", "/u"},   {"n", "0x10"},
                                      {"bad", "12abc"}, {"on", "TRUE"},
                                      {"size", "2k"},   {"when", "1970-01-02 00:00:00"}};
    for (const auto &entry : strings) pfput_string(pf_, entry[0], entry[1]);
    stations_ = PutArray(pf_, "stations", {"AAK", "1", "two words", "2"});
    bands_ = PutList(pf_, "bands", {"b0", "b1", "b2"});
    PutList(PutArray(pf_, "chan", {}), "BHZ", {"c0", "c1"});
    elog_clear();
  }
  void TearDown() override { pffree(pf_); }

  // What the path names: its type code and, for a string, its text.
  std::string Resolve(const char *path, int create = 0) {
    Pf *node = nullptr;
    int code = pfresolve(pf_, path, create, &node);
    std::string text = std::to_string(code);
    if (node != nullptr && node->type == PFSTRING) text += " " + Text(node->value.s);
    return text;
  }

  Pf *pf_;
  Pf *stations_;
  Pf *bands_;
};

TEST_F(PfAccessTest, ResolvesNamesKeysAndIndices) {
  EXPECT_EQ(Resolve("chan{BHZ}[1]"), "1 c1");
  EXPECT_EQ(Resolve(" chan{ BHZ }[0]"), "1 c0");     // blanks next to braces are dropped
  EXPECT_EQ(Resolve("chan{\tBHZ}[0]"), "-31");       // tabs are not
  EXPECT_EQ(Resolve("stations{two words}"), "1 2");  // blanks inside a key belong to it
  EXPECT_EQ(Resolve("stations {AAK}"), "-31");       // ... and so they do after a name
  EXPECT_EQ(Resolve("stations{AAK}x"), "-31");       // a second name is a key in the string
  EXPECT_EQ(Resolve("bands[3]"), "-31");
  EXPECT_EQ(Resolve("bands[-1]"), "-31");
  EXPECT_EQ(Resolve("bands{b0}"), "-32");
  EXPECT_EQ(Resolve("stations[0]"), "-32");
  EXPECT_EQ(Resolve(""), "0");  // the tree itself
  EXPECT_EQ(pfresolve(nullptr, "x", 0, nullptr), PF_NO_CONTAINER);

  // A list is looked up directly by index.
  Pf *node;
  EXPECT_EQ(pfresolve(bands_, PF_INDEX(2), 0, &node), PFSTRING);
  EXPECT_STREQ(node->value.s, "b2");
  EXPECT_EQ(pfresolve(bands_, PF_INDEX(3), 0, &node), PF_MISMATCH);
  EXPECT_EQ(node, nullptr);
}

TEST_F(PfAccessTest, StrayBracketsAreSkipped) {
  CaptureStderr();
  EXPECT_EQ(Resolve("stations[AAK]"), "1 1");  // a name after the first is looked up as a key
  EXPECT_EQ(Resolve("{stations}{}{AAK}}"), "1 1");
  EXPECT_EQ(Resolve("bands[1][x"), "-31");
  EXPECT_EQ(GetCapturedStderr(), "unmatched char '['\nunmatched char ']'\nunmatched char '['\n");
}

TEST_F(PfAccessTest, CreateModeMakesPlaceholdersThatTakeTheKindTheirSelectorAsks) {
  Pf *empty = pfnew(PFFILE);
  Pf *node;
  EXPECT_EQ(pfresolve(empty, "a{b}[1]", 1, &node), PFANY);
  Pf *a, *b;
  EXPECT_EQ(pfresolve(empty, "a", 0, &a), PFARR);
  EXPECT_EQ(pfresolve(empty, "a{b}", 0, &b), PFTBL);
  EXPECT_EQ(pfmaxtbl(b), 2);
  EXPECT_EQ(gettbl(b->value.tbl, 1), node);
  EXPECT_EQ(node->parent, b);
  EXPECT_EQ(b->parent, a);
  // A placeholder asked without create mode does not fit; nor does a selector of the wrong
  // kind on an existing container even with it.
  EXPECT_EQ(pfresolve(empty, "a{b}[1]{c}", 0, &node), PF_MISMATCH);
  EXPECT_EQ(pfresolve(empty, "a[0]", 1, &node), PF_MISMATCH);
  pffree(empty);
}

TEST_F(PfAccessTest, SetCreatesThePathAndReplacesWhatStandsThere) {
  EXPECT_EQ(pfset(pf_, "new{deep}[0]", "v"), 0);
  EXPECT_EQ(Text(pfget_string(pf_, "new{deep}[0]")), "v");
  EXPECT_EQ(pfset(pf_, "home", "/w"), 0);
  EXPECT_EQ(Text(pfget_string(pf_, "home")), "/w");
  EXPECT_EQ(pfset(pf_, "chan{BHZ}", "flat"), 0);  // a list gives way to the string
  EXPECT_EQ(Resolve("chan{BHZ}"), "1 flat");
  EXPECT_EQ(pfset(pf_, "stations[0]", "x"), -1);
}

TEST_F(PfAccessTest, OneStepLookupsAndPresence) {
  void *value;
  EXPECT_EQ(pfget(pf_, "home", &value), PFSTRING);
  EXPECT_STREQ(static_cast<char *>(value), "/u");
  EXPECT_EQ(pfget(pf_, "stations", &value), PFARR);
  EXPECT_EQ(value, stations_);
  EXPECT_EQ(pfget(bands_, PF_INDEX(1), &value), PFSTRING);
  EXPECT_STREQ(static_cast<char *>(value), "b1");
  EXPECT_EQ(pfget(pf_, "chan{BHZ}", &value), PFINVALID);  // no path here
  EXPECT_EQ(value, nullptr);

  pfput(pf_, "unset", pfnew(PFINVALID), PFPF);
  EXPECT_EQ(pfhas_key(pf_, "unset"), 1);
  EXPECT_EQ(pfhas_key(pf_, "chan{BHZ}[1]"), 1);
  EXPECT_EQ(pfhas_key(pf_, "chan{BHZ}[2]"), 0);
  EXPECT_EQ(pfhas_key(pf_, nullptr), 0);

  // A function is evaluated before its result is handed out.
  setenv("PF_ACCESS_TEST", "evaluated", 1);
  pfput(stations_, "fn", const_cast<char *>("&env(PF_ACCESS_TEST)"), PFFCT);
  EXPECT_EQ(Resolve("stations{fn}"), "1 evaluated");
  char *text;
  EXPECT_EQ(pfeval(pf_, "stations{fn}", &text), 0);
  EXPECT_EQ(Text(text), "evaluated");
  EXPECT_EQ(pfeval(pf_, "bands", &text), -1);
  EXPECT_EQ(text, nullptr);
}

TEST_F(PfAccessTest, GettersConvertAndComplainAboutBadText) {
  EXPECT_EQ(pfget_int(pf_, "n"), 16);
  EXPECT_EQ(pfget_double(pf_, "stations{two words}"), 2.0);
  EXPECT_EQ(pfget_size(pf_, "size"), 2000);
  EXPECT_EQ(pfget_time(pf_, "when"), 86400);
  EXPECT_EQ(pfget_boolean(pf_, "on"), -1);
  EXPECT_EQ(pfget_boolean(pf_, "missing"), 0);
  EXPECT_EQ(pfget_string(pf_, "missing"), nullptr);
  EXPECT_EQ(Register(), "");

  EXPECT_EQ(pfget_int(pf_, "bad"), 12);
  EXPECT_EQ(pfget_double(pf_, "bad"), 12);
  EXPECT_EQ(pfget_boolean(pf_, "bad"), 0);
  pfget_time(pf_, "bad");
  std::string messages = Register();
  for (const char *expected :
       {"Bad integer value '12abc' for bad", "Bad floating point value '12abc' for bad",
        "Bad boolean value '12abc' for bad", "Bad time value '12abc' for bad"}) {
    EXPECT_NE(messages.find(expected), std::string::npos) << expected << " in " << messages;
  }
  pfget_int(bands_, PF_INDEX(1));
  EXPECT_NE(Register().find("Bad integer value 'b1' for #1"), std::string::npos);
}

TEST_F(PfAccessTest, ListAndArrayGettersHandOutExpandedStrings) {
  pfput_string(bands_, PF_INDEX(1), "&home/b");
  pfput(bands_, PF_INDEX(2), pfnew(PFARR), PFPF);
  Tbl *list = pfget_tbl(pf_, "bands");
  ASSERT_EQ(maxtbl(list), 3);
  EXPECT_STREQ(static_cast<char *>(gettbl(list, 1)), "/u/b");
  EXPECT_EQ(static_cast<Pf *>(gettbl(list, 2))->type, PFARR);
  freetbl(list, nullptr);

  pfput(stations_, "sub", pfnew(PFARR), PFPF);
  Arr *strings = pfget_arr(pf_, "stations");
  EXPECT_EQ(cntarr(strings), 2);  // "sub" is no string
  EXPECT_STREQ(static_cast<char *>(getarr(strings, "two words")), "2");
  freearr(strings, nullptr);
  EXPECT_EQ(pfget_tbl(pf_, "missing"), nullptr);
  EXPECT_EQ(pfget_arr(pf_, "missing"), nullptr);
}

using PfAccessDeathTest = PfAccessTest;

TEST_F(PfAccessDeathTest, DefaultDieHandlerEndsTheProgramForMissingOrMistypedValues) {
  EXPECT_EXIT(pfget_int(pf_, "missing"), ::testing::ExitedWithCode(1),
              "program needs value for 'missing', not found in parameter file 'site.pf'");
  EXPECT_EXIT(pfget_double(pf_, "stations"), ::testing::ExitedWithCode(1),
              "wrong parameter type for 'stations' : expected scalar but got array in 'site.pf'");
  EXPECT_EXIT(pfget_string(pf_, "bands"), ::testing::ExitedWithCode(1),
              "expected scalar but got table in 'site.pf'");
  EXPECT_EXIT(pfget_size(bands_, PF_INDEX(7)), ::testing::ExitedWithCode(1),
              "wrong parameter type for #7 : expected scalar but got invalid in ''");
  // In a list a present entry of the wrong kind is let through.
  pfput(bands_, PF_INDEX(0), pfnew(PFARR), PFPF);
  EXPECT_EQ(pfget_int(bands_, PF_INDEX(0)), 0);
}

struct DieCall {
  Pf *pf;
  std::string key;
  int wanted, found;
} g_die_call;

void StoreFortyTwo(Pf *pf, const char *key, int wanted, int found, void *result) {
  g_die_call = DieCall{pf, key, wanted, found};
  *static_cast<long *>(result) = 42;
}

TEST_F(PfAccessTest, AnInstalledDieHandlerMayAnswerForTheGetter) {
  EXPECT_EQ(pfconfig("die", reinterpret_cast<Pf_config_fn>(StoreFortyTwo)), 0);
  EXPECT_EQ(pfget_int(pf_, "stations{none}"), 42);
  EXPECT_EQ(g_die_call.pf, pf_);
  EXPECT_EQ(g_die_call.key, "stations{none}");
  EXPECT_EQ(g_die_call.wanted, PFSTRING);
  EXPECT_EQ(g_die_call.found, PFINVALID);
  EXPECT_EQ(pfget_int(pf_, "chan"), 42);
  EXPECT_EQ(g_die_call.found, PFARR);
  EXPECT_EQ(pfconfig("dye", nullptr), -1);
  EXPECT_NE(Register().find("pfconfig: unrecognized code 'dye'"), std::string::npos);
}

TEST_F(PfAccessTest, ExpandsReferencesToStringsAbove) {
  pfput_string(stations_, "p", "&home/x:&{home}x:&nothing:&{nothing}:&env(HOME):&:&{}");
  EXPECT_EQ(Text(pfget_string(pf_, "stations{p}")),
            "/u/x:/ux:&nothing:&{nothing}:&env(HOME):&:&{}");
  // The nearest string wins; an entry of another kind does not hide one further up.
  pfput_string(stations_, "home", "/near");
  pfput_string(stations_, "q", "&home &chan");
  EXPECT_EQ(Text(pfget_string(pf_, "stations{q}")), "/near &chan");
  // References nest, and a text without any is handed out as it stands.
  pfput_string(pf_, "home", "&root/u");
  pfput_string(pf_, "root", "/r");
  pfput_string(pf_, "r", "&{home}");
  EXPECT_EQ(Text(pfget_string(pf_, "r")), "/r/u");
  Pf *node;
  pfresolve(pf_, "bands[0]", 0, &node);
  EXPECT_EQ(pfexpand(node), node->value.s);
  // A function's text is expanded, the function name itself left alone.
  pfput(pf_, "f", const_cast<char *>("&env(&{root})"), PFFCT);
  pfvalue(pf_, "f", &node);
  EXPECT_EQ(Text(pfexpand(node)), "&env(/r)");
}

TEST_F(PfAccessTest, ExpansionGrowsItsBufferAndStopsRunawayRecursion) {
  std::string long_value(3000, 'v');
  pfput_string(pf_, "long", long_value.c_str());
  pfput_string(pf_, "three", "&long&long&long");
  EXPECT_EQ(Text(pfget_string(pf_, "three")), long_value + long_value + long_value);
  pfput_string(pf_, "self", "x&self");
  EXPECT_EQ(Text(pfget_string(pf_, "self")),
            std::string(11, 'x') + "** error ** pf massive recursion");
}

}  // namespace
