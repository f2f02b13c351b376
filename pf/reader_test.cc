#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "corvel/elog.h"
#include "corvel/pf.h"

namespace {

std::string Register() {
  char *s = elog_string(0);
  std::string text(s ? s : "");
  free(s);
  return text;
}

// A message as the register holds it.
std::string Logged(const std::string &message) {
  return std::string(Program_Name) + ": " + message;
}

// The tree a text reads into, and what the read returned.
struct Read {
  explicit Read(const std::string &text) {
    elog_clear();
    result = pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf);
  }
  ~Read() { pffree(pf); }
  Pf *pf = nullptr;
  int result;
};

Pf *Child(Pf *pf, const char *key) { return static_cast<Pf *>(getarr(pf->value.arr, key)); }
Pf *Item(Pf *pf, long i) { return static_cast<Pf *>(gettbl(pf->value.tbl, i)); }
std::string Text(Pf *node) {
  if (node == nullptr) return "<absent>";
  if (node->type == PFFCT) return "fct:" + std::string(node->value.pffunct->expression);
  return node->type == PFSTRING ? node->value.s : "<type " + std::to_string(node->type) + ">";
}
std::string Value(Pf *pf, const char *key) { return Text(Child(pf, key)); }

TEST(PfReader, ReadsKeysAndValuesWithTheirEscapes) {
  Read r(
      "a 1\na 2\nkey   value with  blanks   # note\npath a\\#b\nx \\101\nodd \\1x9z\n"
      "q \"quoted\"\n\"two words\" 5\n'one two' v\n\"ab\"cd 7\nk\\ey\\} v\nbare#rest of line\n"
      "}x y\ncont one \\\n  two\\t\nempty\ncomment # only\nlast");
  ASSERT_EQ(r.result, 0);
  EXPECT_EQ(r.pf->type, PFFILE);
  EXPECT_EQ(Value(r.pf, "a"), "2");
  EXPECT_EQ(Value(r.pf, "key"), "value with  blanks");
  EXPECT_EQ(Value(r.pf, "path"), "a#b");
  EXPECT_EQ(Value(r.pf, "x"), "A");
  EXPECT_EQ(Value(r.pf, "odd"), "\001z");  // both characters after the digit are taken
  EXPECT_EQ(Value(r.pf, "q"), "\"quoted\"");
  EXPECT_EQ(Value(r.pf, "two words"), "5");
  EXPECT_EQ(Value(r.pf, "one two"), "v");
  EXPECT_EQ(Value(r.pf, "\"ab\"cd"), "7");  // the longer reading wins
  EXPECT_EQ(Value(r.pf, "key}"), "v");
  EXPECT_EQ(Value(r.pf, "bare"), "");
  EXPECT_EQ(Value(r.pf, "}x"), "y");
  EXPECT_EQ(Value(r.pf, "cont"), "one \n  two\t");
  EXPECT_EQ(Value(r.pf, "empty"), "");
  EXPECT_EQ(Value(r.pf, "comment"), "");
  EXPECT_EQ(Value(r.pf, "last"), "");
  EXPECT_EQ(Child(r.pf, "a")->parent, r.pf);
  EXPECT_STREQ(Child(r.pf, "a")->filename, "*internal buffer*");

  Read long_key(std::string(1500, 'k') + " v\n");
  EXPECT_EQ(Value(long_key.pf, std::string(1023, 'k').c_str()), "v");
}

TEST(PfReader, ReportsReplacedKeysWhenAsked) {
  Pf_show_replacements = 1;
  testing::internal::CaptureStderr();
  Read r("a 1\na 2\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "replacing key 'a' at line #2 of *internal buffer*\n");
  Pf_show_replacements = 0;
}

TEST(PfReader, BuildsListsArraysAndUndefinitions) {
  Read r(
      "l &Tbl{\na\n\n# first column\n  # indented\n   \nb # note\n&Arr{ ignored\n k v\n}\n"
      "__END__\nlast\n&Undef{}\n}\nk 1\nk &Undef{}\ngone 2\nnest &Arr{\n inner &Tbl{\n }\n}\n");
  ASSERT_EQ(r.result, 0) << Register();
  Pf *list = Child(r.pf, "l");
  ASSERT_EQ(list->type, PFTBL);
  ASSERT_EQ(maxtbl(list->value.tbl), 7);
  const char *expected[] = {"a", "", "", "", "b", nullptr, "__END__"};
  for (long i = 0; i < 7; i++) {
    if (expected[i] != nullptr) {
      EXPECT_EQ(Text(Item(list, i)), expected[i]) << i;
    }
    EXPECT_EQ(Item(list, i)->parent, list);
  }
  EXPECT_EQ(Value(Item(list, 5), "k"), "v");
  EXPECT_EQ(Child(r.pf, "k"), nullptr);
  EXPECT_EQ(Value(r.pf, "gone"), "2");
  EXPECT_EQ(Child(Child(r.pf, "nest"), "inner")->type, PFTBL);

  Read stop("a 1\n  __END__  \nb 2\n");
  EXPECT_EQ(stop.result, 0);
  EXPECT_EQ(Child(stop.pf, "b"), nullptr);
  Read key("__END__x 1\n__EOF__");  // not alone on a line: keys
  EXPECT_EQ(Value(key.pf, "__END__x"), "1");
  EXPECT_EQ(Value(key.pf, "__EOF__"), "");
}

TEST(PfReader, TakesLiteralsAsTheyStand) {
  Read r(
      "text &Literal{\nif (x) { y }\n} after\nbrace &Literal}x\na}b((\n"
      "p &Literal(\n(a)\n)\nb &Literal)\nx[\nsq &Literal[\n]\nsq2 &Literal]\n<\n"
      "an &Literal<\n>\nan2 &Literal>\n`\ngr &Literal`\n\\#'\nbar &Literal|x\nyxy\n"
      "term &Literal\"EOT trailing\n a \"EOT\"EOT trailing rest\nafter 1\n"
      "l &Tbl{\n&Literal{\n}\n}\n");
  ASSERT_EQ(r.result, 0) << Register();
  EXPECT_EQ(Value(r.pf, "text"), "if (x) { y }\n");
  EXPECT_EQ(Value(r.pf, "brace"), "a}b(");
  EXPECT_EQ(Value(r.pf, "p"), "(a)\n");
  EXPECT_EQ(Value(r.pf, "b"), "x");
  EXPECT_EQ(Value(r.pf, "sq"), "");
  EXPECT_EQ(Value(r.pf, "sq2"), "");
  EXPECT_EQ(Value(r.pf, "an"), "");
  EXPECT_EQ(Value(r.pf, "an2"), "");
  EXPECT_EQ(Value(r.pf, "gr"), "\\#");
  EXPECT_EQ(Value(r.pf, "bar"), "y");  // the 'x' after the opener closes
  EXPECT_EQ(Value(r.pf, "term"), " a \"EOT");
  EXPECT_EQ(Value(r.pf, "after"), "1");
  EXPECT_EQ(Text(Item(Child(r.pf, "l"), 0)), "");

  Read apostrophe(std::string("a &Literal'\nxy\0z\nb 2\n", 21));  // closed by a NUL byte
  EXPECT_EQ(apostrophe.result, 0);
  EXPECT_EQ(Value(apostrophe.pf, "a"), "xy");
  EXPECT_EQ(Value(apostrophe.pf, "b"), "2");
}

TEST(PfReader, KeepsFunctionsOnlyWhenTheyTakeTheWholeLine) {
  Read r(
      "e   &env(HOME)   # home\nf &file( x )  \nn &filename(y)\t\nplain &env(HOME) x\n"
      "digit &1x(a)\ninner &ask(a # b) (c)\nopen &env(HOME\nend &env(X)");
  ASSERT_EQ(r.result, 0);
  EXPECT_EQ(Value(r.pf, "e"), "fct:&env(HOME)   # home");
  EXPECT_EQ(Value(r.pf, "f"), "fct:&file( x )  ");
  EXPECT_EQ(Value(r.pf, "n"), "fct:&filename(y)\t");
  EXPECT_EQ(Value(r.pf, "plain"), "&env(HOME) x");
  EXPECT_EQ(Value(r.pf, "digit"), "&1x(a)");
  EXPECT_EQ(Value(r.pf, "inner"), "fct:&ask(a # b) (c)");
  EXPECT_EQ(Value(r.pf, "open"), "&env(HOME");
  EXPECT_EQ(Value(r.pf, "end"), "&env(X)");  // the form needs its newline
}

TEST(PfReader, ComplainsOfOpenersInsidePlainValues) {
  testing::internal::CaptureStderr();
  Read r("a x &Tbl{\nb y &Literal{\n");
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("value contains '&Tbl{'\n\t'x &Tbl{'\n"), std::string::npos) << err;
  EXPECT_NE(err.find("value contains '&Arr{'\n\t'y &Literal{'\n"), std::string::npos) << err;
  EXPECT_EQ(Value(r.pf, "a"), "x &Tbl{");
}

TEST(PfReader, StopsOnBadBracesAndDeepNesting) {
  Read brace("a 1\n}\nb 2\n");
  EXPECT_EQ(brace.result, -2);
  EXPECT_EQ(Value(brace.pf, "a"), "1");
  EXPECT_EQ(Child(brace.pf, "b"), nullptr);
  EXPECT_NE(Register().find("*stack* invalid right brace at line #2 in pf file *internal buffer*"),
            std::string::npos);

  std::string deep;
  for (int i = 0; i < 100000; i++) deep += "x &Arr{\n";
  auto started = std::chrono::steady_clock::now();
  Read nested(deep);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
  EXPECT_EQ(nested.result, -2);
  EXPECT_EQ(
      Register(),
      Logged("*stack* too many Lex_levels of nesting at line #12 in pf file *internal buffer*\n"));

  // The next read starts afresh: at line 1, in an array, with nothing open.
  Read after("a 1\n}\n");
  EXPECT_EQ(after.result, -2);
  EXPECT_NE(Register().find("line #2"), std::string::npos);
}

TEST(PfReader, ReportsUnclosedContainersByInput) {
  Read text("a &Arr{\n b &Tbl{\n  c\n\nl1\nl2\nl3\n");
  EXPECT_EQ(text.result, -2);
  EXPECT_EQ(Text(Item(Child(Child(text.pf, "a"), "b"), 0)), "c");
  EXPECT_EQ(
      Register(),
      Logged("*stack* Unterminated arrays or tables at last line #8, depth = 2 in input string \n"
             "  --> a &Arr{\n  -->  b &Tbl{\n  -->   c\n  --> \n  --> l1\n"));
  Read literal("t &Literal{\nnever closed\n");
  EXPECT_EQ(literal.result, -2);
  EXPECT_NE(Register().find("at last line #3, depth = 1"), std::string::npos);

  FILE *stream = tmpfile();
  fputs("a &Tbl{\n", stream);
  rewind(stream);
  Pf *pf = nullptr;
  EXPECT_EQ(pfin(stream, &pf), -2);
  EXPECT_NE(Register().find("in input FILE at last line #2: depth = 1"), std::string::npos);
  rewind(stream);
  setpffilename("site.pf");
  EXPECT_EQ(pfinfd(fileno(stream), &pf), -2);
  EXPECT_NE(Register().find("in parameter file site.pf at last line #2: depth = 1"),
            std::string::npos);
  EXPECT_STREQ(pf->filename, "*unknown pfin file*");
  EXPECT_STREQ(Child(pf, "a")->filename, "site.pf");
  fclose(stream);
  pffree(pf);
}

TEST(PfReader, AddsToAnExistingTree) {
  Pf *pf = nullptr;
  ASSERT_EQ(pfcompile("a 1\nb &Arr{\nx 1\n}\n", &pf), 0);
  ASSERT_EQ(pfcompile("a 2\nb 3\nc 4\n", &pf), 0);
  Read expected("a 2\nb 3\nc 4\n");
  EXPECT_EQ(pfcmp(pf, expected.pf), 0);
  EXPECT_EQ(pf->type, PFFILE);
  pffree(pf);
}

// Text that exercises every form, repeated so that it spans many reads of a descriptor.
std::string Varied(int copies) {
  std::string text;
  for (int i = 0; i < copies; i++) {
    std::string n = std::to_string(i);
    text += "k" + n + " v\\\n" + n + " # c\n\"q " + n + "\n\" x\nl" + n + " &Tbl{\n a\n\n" +
            std::string(i % 3000, 'w') + "\n}\nt" + n + " &Literal\"E" + n + "\nbody\n\"E" + n +
            "\nb" + n + " &Literal{\n{" + std::string(i % 700, 'x') + "}\n}\nf" + n + " &env(X)\n";
  }
  return text;
}

TEST(PfReader, ReadsDescriptorsInPiecesLikeMemory) {
  std::string text = Varied(400) + "__EOF__\n";
  Read expected(text);
  ASSERT_EQ(expected.result, 0) << Register();
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  // The writer keeps the pipe open: the read must end at the end marker.
  std::thread writer([&] {
    std::mt19937 random(7);
    for (size_t at = 0; at < text.size();) {
      size_t n = std::min<size_t>(random() % 5000 + 1, text.size() - at);
      ASSERT_EQ(write(fds[1], text.data() + at, n), static_cast<ssize_t>(n));
      at += n;
    }
  });
  Pf *pf = nullptr;
  EXPECT_EQ(pfinfd(fds[0], &pf), 0);
  writer.join();
  EXPECT_EQ(pfcmp(pf, expected.pf), 0);
  pffree(pf);
  close(fds[0]);
  close(fds[1]);
}

TEST(PfReader, SurvivesNulBytesHugeLinesAndGarbage) {
  Read nul(std::string("a x\0y\nb 2\n\0c 3\n", 16));
  EXPECT_EQ(Value(nul.pf, "a"), "x");
  EXPECT_EQ(Value(nul.pf, "b"), "2");
  EXPECT_EQ(Value(nul.pf, "c"), "3");

  std::string huge = "big " + std::string(10 << 20, 'v') + "\nnext 1\n";
  Read big(huge);
  EXPECT_EQ(strlen(Child(big.pf, "big")->value.s), size_t{10} << 20);
  EXPECT_EQ(Value(big.pf, "next"), "1");

  std::mt19937 random(1);
  const char alphabet[] = "&{}()[]<>`'\"\\#\n \t_ArTblLiteralUndef0";
  for (int round = 0; round < 200; round++) {
    std::string garbage(random() % 4000, '\0');
    for (char &c : garbage) {
      c = round % 2 ? static_cast<char>(random()) : alphabet[random() % (sizeof alphabet - 1)];
    }
    Read r(garbage);
    EXPECT_TRUE(r.result == 0 || r.result == -2);
    EXPECT_EQ(r.pf->type, PFFILE);
  }
}

}  // namespace
