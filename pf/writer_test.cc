#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <random>
#include <string>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "pf/test_dir.h"
#include "pf/test_tree.h"

namespace corvel {
namespace pf {
namespace {

std::string Take(char *s) {
  std::string text(s != nullptr ? s : "(null)");
  free(s);
  return text;
}

std::string StreamText(Pf *pf, int *result = nullptr) {
  char *data = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&data, &size);
  int status = pfout(stream, pf);
  if (result != nullptr) *result = status;
  fclose(stream);
  return Take(data);
}

// One tree that holds every form the writer chooses between.
Pf *EveryForm() {
  Pf *pf = pfnew(PFFILE);
  pfput_string(pf, "word", "value");
  pfput_string(pf, "lead", " blank first");
  pfput_string(pf, "closer", "a}b");
  pfput_string(pf, "pair", "{a}}");
  pfput_string(pf, "hash", "a#b\\c");
  pfput_string(pf, "lines", "two\n(lines)");
  pfput_string(pf, "open", "x{\n(y[<`");
  pfput_string(pf, "marked", "{([<`\n\"EndOfLiteral");
  pfput_string(pf, "k y", "");
  pfput_string(pf, "q\" z", "1");
  pfput_string(pf, "h#k", "2");
  pfput(pf, "bad", pfnew(PFINVALID), PFPF);
  Pf *nested = pfnew(PFARR);
  Pf *deeper = pfnew(PFARR);
  pfput_string(deeper, "deep", "1");
  pfput(deeper, "f", const_cast<char *>("&env(HOME)"), PFFCT);
  pfput(nested, "m", deeper, PFPF);
  Pf *list = pfnew(PFTBL);
  pfput_string(list, PF_INDEX(0), "p");
  pfput_string(list, PF_INDEX(1), "}");
  pfput(list, PF_INDEX(2), pfnew(PFARR), PFPF);
  pfput(nested, "t", list, PFPF);
  pfput(pf, "n", nested, PFPF);
  return pf;
}

TEST(PfWriter, StreamLayoutIsExact) {
  Pf *pf = EveryForm();
  int result = -1;
  EXPECT_EQ(StreamText(pf, &result),
            "bad\t"
            "closer\ta\\}b\n"
            "h\\#k\t2\n"
            "hash\ta\\#b\\\\c\n"
            "\"k y\"\t\n"
            "lead\t&Literal{\n blank first}\n"
            "lines\t&Literal{\ntwo\n(lines)}\n"
            "marked\t&Literal\"EndOfLiteral0\n{([<`\n\"EndOfLiteral\"EndOfLiteral0\n"
            "n\t&Arr{\n"
            "    m\t&Arr{\n"
            "        deep\t1\n"
            "        f\t&env(HOME)\n"
            "    }\n"
            "    t\t&Tbl{\n"
            "        p\n"
            "        \\}\n"
            "        &Arr{\n"
            "        }\n"
            "    }\n"
            "}\n"
            "open\t&Literal\"EndOfLiteral\nx{\n(y[<`\"EndOfLiteral\n"
            "pair\t{a}\\}\n"
            "'q\" z'\t1\n"
            "word\tvalue\n");
  EXPECT_EQ(result, 0);
  // The compact form: no indentation, keys quoted but not escaped.
  std::string compact = Take(pf2string(pf));
  EXPECT_NE(compact.find("h#k\t2\nhash"), std::string::npos);
  EXPECT_NE(
      compact.find(
          "n\t&Arr{\nm\t&Arr{\ndeep\t1\nf\t&env(HOME)\n}\nt\t&Tbl{\np\n\\}\n&Arr{\n}\n}\n}\n"),
      std::string::npos)
      << compact;
  pffree(pf);
}

TEST(PfWriter, SingleStringsAndEscapes) {
  EXPECT_EQ(Take(str2pf("plain words")), "plain words");
  EXPECT_EQ(Take(str2pf("")), "");
  EXPECT_EQ(Take(str2pf("tab\t")), "&Literal{\ntab\t}");
  EXPECT_EQ(Take(str2pf(" }{")), "&Literal(\n }{)");
  EXPECT_EQ(Take(str2pf("a\n`'")), "&Literal{\na\n`'}");
  EXPECT_EQ(Take(str2pf("{\n(\n[\n<\n`\n\"EndOfLiteral\n\"EndOfLiteral0")),
            "&Literal\"EndOfLiteral1\n{\n(\n[\n<\n`\n\"EndOfLiteral\n\"EndOfLiteral0"
            "\"EndOfLiteral1");
  EXPECT_EQ(Take(pfescape_special_chars("}{a}}#\\\n")), "\\}{a}\\}\\#\\\\\\\n");
  EXPECT_EQ(Take(pfescape_special_chars("\\\\\\")), "\\\\\\\\\\\\");
  EXPECT_EQ(str2pf(nullptr), nullptr);
  EXPECT_EQ(Take(pf2string(nullptr)), "");
  int result = 0;
  EXPECT_EQ(StreamText(nullptr, &result), "");
  EXPECT_EQ(result, -1);
}

// Texts built from the characters and words that the quoting rules turn on.
std::string TrickyText(std::mt19937 &random) {
  static const char *const kPieces[] = {"a",      "b", "word", " ",  "\t", "\n",  "#",
                                        "{",      "}", "(",    ")",  "[",  "]",   "<",
                                        ">",      "`", "'",    "\"", "\\", "\\1", "\"EndOfLiteral",
                                        "__END__"};
  std::string text;
  for (int n = random() % 9; n > 0; n--) text += kPieces[random() % std::size(kPieces)];
  return text;
}

// A key with a digit after its first character, so that blanks at either end stay there.
std::string Numbered(std::string key, std::mt19937 &random) {
  return key.insert(1, std::to_string(random() % 4));
}

// Keys that the stream layout writes back readably: with blanks, quotes, and what it escapes.
std::string StreamKey(std::mt19937 &random) {
  static const char *const kKeys[] = {"k", "a b",  " lead", "trail ", "q\"uote x",   "it's",
                                      "#", "h#sh", "}",     "br}ce",  "back\\slash", "{x}"};
  return Numbered(kKeys[random() % std::size(kKeys)], random);
}

// The compact layout does not escape keys.
std::string CompactKey(std::mt19937 &random) {
  static const char *const kKeys[] = {"k", "a b", " lead", "trail ", "q\"uote x", "it's", "{x}"};
  return Numbered(kKeys[random() % std::size(kKeys)], random);
}

void ExpectReadsBack(Pf *tree, const std::string &text) {
  Pf *copy = nullptr;
  ASSERT_EQ(pfcompile(text.c_str(), &copy), 0) << text;
  EXPECT_EQ(pfcmp(tree, copy), 0) << text;
  pffree(copy);
}

TEST(PfWriter, RandomTreesReadBackEqual) {
  std::mt19937 random(5);
  for (int round = 0; round < 300; round++) {
    Pf *tree = RandomTree(random, 0, StreamKey, TrickyText);
    ExpectReadsBack(tree, StreamText(tree));
    pffree(tree);
    tree = RandomTree(random, 0, CompactKey, TrickyText);
    ExpectReadsBack(tree, Take(pf2string(tree)));
    pffree(tree);
  }
  Pf *every = EveryForm();
  pffree(pfdel(every, "bad"));  // an invalid value writes nothing, so the next entry joins its line
  ExpectReadsBack(every, StreamText(every));
  pffree(every);
}

class PfWrite : public TempDirTest {};

TEST_F(PfWrite, WritesFilesAndReportsFailures) {
  Pf *pf = EveryForm();
  pffree(pfdel(pf, "bad"));
  ASSERT_EQ(pfwrite(Path("out.pf").c_str(), pf), 0);
  setenv("PFPATH", root_.c_str(), 1);
  Pf *back = nullptr;
  ASSERT_EQ(pfread("out", &back), 0);
  EXPECT_EQ(pfcmp(pf, back), 0);
  pffree(back);

  // Nothing is opened for a null tree: the file is left as it was.
  EXPECT_EQ(pfwrite(Path("out.pf").c_str(), nullptr), -1);
  back = nullptr;
  ASSERT_EQ(pfread("out", &back), 0);
  pffree(back);

  elog_clear();
  EXPECT_EQ(pfwrite(root_.c_str(), pf), -1);
  EXPECT_NE(Take(elog_string(0)).find("Can't open " + root_ + " for writing."), std::string::npos);
  elog_clear();
  EXPECT_EQ(pfwrite("/dev/full", pf), -1);
  EXPECT_NE(Take(elog_string(0)).find("Can't close /dev/full."), std::string::npos);

  int result = -1;
  std::string path = Path("fortran.pf");
  pfwrite_(&pf, path.c_str(), &result, path.size());
  EXPECT_EQ(result, 0);
  pffree(pf);
}

}  // namespace
}  // namespace pf
}  // namespace corvel
