#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "pf/internal.h"
#include "pf/test_dir.h"

// The program's own functions: &twice(x) yields xx, &chain(n) yields &chain(n-1) down to
// &chain(0), which yields "end"; anything else is unknown.
extern "C" __attribute__((visibility("default"))) Pf *pfuser(Pf *node, const char *expression) {
  std::string text(expression);
  if (text.rfind("&twice(", 0) == 0) {
    std::string argument = text.substr(7, text.size() - 8);
    return corvel::pf::NewStringNode((argument + argument).c_str(), nullptr);
  }
  if (text.rfind("&chain(", 0) == 0) {
    int n = atoi(text.c_str() + 7);
    if (n == 0) return corvel::pf::NewStringNode("end", nullptr);
    Pf *next = pfnew(PFFCT);
    next->value.pffunct->expression = strdup(("&chain(" + std::to_string(n - 1) + ")").c_str());
    return next;
  }
  return nullptr;
}

namespace {

std::string g_prompt;
char *AnswerPrompt(const char *prompt) {
  g_prompt = prompt;
  static char answer[] = "HRV";
  return answer;
}

// Each test works in a fresh directory of its own, and evaluates functions put into one
// file whose string "word" holds "hello".
class PfInterpretTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    setenv("PFPATH", root_.c_str(), 1);
    tree_ = pfnew(PFFILE);
    pfput_string(tree_, "word", "hello");
    elog_clear();
  }
  void TearDown() override {
    pffree(tree_);
    TempDirTest::TearDown();
  }
  // Evaluates the function text as if read from the file defined_in.
  Pf *Eval(const char *text, const std::string &defined_in = "") {
    pfput(tree_, "f", const_cast<char *>(text), PFFCT);
    Pf *node = static_cast<Pf *>(getarr(tree_->value.arr, "f"));
    node->filename = corvel::pf::InternFilename(defined_in.c_str());
    return pfinterpret(node);
  }
  // The text of the string that the function yields.
  std::string Text(const char *text, const std::string &defined_in = "") {
    Pf *result = Eval(text, defined_in);
    if (result == nullptr) return "(nothing)";
    return result->value.s != nullptr ? result->value.s : "(null)";
  }
  Pf *tree_ = nullptr;
};

TEST_F(PfInterpretTest, ExecYieldsOutputLessOneNewlineAndFlagsFailure) {
  EXPECT_EQ(Text("&exec(printf 'a\\n\\n')"), "a\n");
  EXPECT_EQ(Text("&exec(echo '&word (x)')"), "hello (x)");  // expanded, up to the last ')'
  EXPECT_EQ(Text("&exec(seq 1000)").size(), 3892u);         // many pieces
  Pf *failed = Eval("&exec(echo partial; exit 3)");
  EXPECT_EQ(failed->type, PFEXEC_ERROR);
  EXPECT_STREQ(failed->value.s, "partial");
  EXPECT_EQ(failed->parent, tree_);
}

TEST_F(PfInterpretTest, GlobListsMatchingPathsInOrder) {
  Write("b.x", "");
  Write("a.x", "");
  Write("c.y", "");
  Pf *list = Eval(("&glob(" + Path("*.x") + ")").c_str());
  ASSERT_EQ(list->type, PFTBL);
  ASSERT_EQ(pfmaxtbl(list), 2);
  EXPECT_EQ(static_cast<Pf *>(gettbl(list->value.tbl, 1))->value.s, Path("b.x"));
  EXPECT_EQ(pfmaxtbl(Eval(("&glob(" + Path("*.z") + ")").c_str())), 0);
}

TEST_F(PfInterpretTest, FileIsFoundBesideTheFileThatDefinedTheEntry) {
  mkdir(Path("sub").c_str(), 0755);
  Write("sub/notes", "two\nlines\n");
  const std::string defined_in = Path("sub/site.pf");
  EXPECT_EQ(Text("&file(notes)", defined_in), "two\nlines\n");
  EXPECT_EQ(Text("&filename(notes)", defined_in), Path("sub/notes"));
  setenv("NOTESDIR", Path("sub").c_str(), 1);
  EXPECT_EQ(Text("&file($NOTESDIR/notes)"), "two\nlines\n");
  std::string failure = Text("&file(absent)", defined_in);
  EXPECT_EQ(failure.rfind("** ", 0), 0u) << failure;
  EXPECT_NE(failure.find(Path("sub/absent")), std::string::npos) << failure;
  EXPECT_NE(failure.find("No such file"), std::string::npos) << failure;
  EXPECT_EQ(elog_mark(), 0);  // the failure's message is not left in the log
}

TEST_F(PfInterpretTest, DatafileSearchesTheDataPath) {
  Write("table", "1 2 3");
  setenv("DATAPATH", root_.c_str(), 1);
  EXPECT_EQ(Text("&datafile(table)"), "1 2 3");
  EXPECT_EQ(Text("&datafilename( table )"), Path("table"));
  EXPECT_EQ(Text("&datafile(none)"), "** no datafile 'none' found");
  EXPECT_EQ(Text("&datafilename(none)"), "");
}

TEST_F(PfInterpretTest, EnvUndefAndUnknownFunctions) {
  setenv("PF_TEST_VALUE", "v", 1);
  unsetenv("PF_TEST_UNSET");
  EXPECT_EQ(Text("&env(PF_TEST_VALUE)"), "v");
  EXPECT_EQ(Text("&env(PF_TEST_UNSET)"), "");
  EXPECT_EQ(Eval("&undefined()"), nullptr);
  Pf *unknown = Eval("&nosuch(1)");
  EXPECT_EQ(unknown->type, PFINVALID);
  EXPECT_EQ(unknown->value.s, nullptr);
}

TEST_F(PfInterpretTest, UserFunctionsMayYieldFunctionsUpToFourDeep) {
  ASSERT_NE(dlsym(RTLD_DEFAULT, "pfuser"), nullptr)
      << "the test binary must export its symbols (link it with -rdynamic)";
  EXPECT_EQ(Text("&twice(&word)"), "hellohello");
  EXPECT_EQ(Text("&chain(3)"), "end");
  EXPECT_EQ(Text("&chain(4)"), "pf recursion too deep");
  EXPECT_EQ(Text("&chain(4)"), "pf recursion too deep");  // evaluated afresh, the old chain freed
}

TEST_F(PfInterpretTest, AskUsesTheInstalledPromptFunction) {
  ASSERT_EQ(pfconfig("ask", reinterpret_cast<Pf_config_fn>(AnswerPrompt)), 0);
  EXPECT_EQ(Text("&ask(Station code) # ignored"), "HRV");
  EXPECT_EQ(g_prompt, "Station code");
  Text("&ask() # Station code");
  EXPECT_EQ(g_prompt, " Station code");
  Text("&asking)");
  EXPECT_EQ(g_prompt, "&asking");
}

TEST_F(PfInterpretTest, AskWithoutTerminalEndsTheProcess) {
  EXPECT_EXIT(
      {
        pfconfig("ask", nullptr);
        setsid();  // no controlling terminal
        Eval("&ask(name)");
      },
      ::testing::ExitedWithCode(1), "Can't open /dev/tty for prompt.");
}

TEST_F(PfInterpretTest, RefCopiesAnEntryOfAnotherFileAndFollowsItsChanges) {
  Write("other.pf", "sub &Arr{\n  b two\n}\nloop &ref(other, loop)\n");
  Pf *copy = Eval("&ref( other , sub{b} )");
  ASSERT_EQ(copy->type, PFSTRING);
  EXPECT_STREQ(copy->value.s, "two");
  EXPECT_EQ(copy->parent, tree_);
  EXPECT_EQ(Text("&ref(other, loop)"), "pf recursion too deep");
  Write("other.pf", "sub &Arr{\n  b three\n}\n");
  struct timeval later[2] = {{time(nullptr) + 10, 0}, {time(nullptr) + 10, 0}};
  ASSERT_EQ(utimes(Path("other.pf").c_str(), later), 0);
  EXPECT_EQ(Text("&ref(other, sub{b})"), "three");
  Pf *whole = Eval("&ref(other)");
  EXPECT_EQ(whole->type, PFARR);
  EXPECT_EQ(Text("&ref(other, nope)"), "** reference not resolved: '&ref(other, nope)' **");
  EXPECT_EQ(Text("&ref(absent, a)"), "** referenced pf file not found: '&ref(absent, a)' **");
  EXPECT_EQ(Text("&ref( , a)"), "** missing pf name in reference: '&ref( , a)' **");
  EXPECT_EQ(Eval("&ref(other, nope)")->type, PFINVALID);
  EXPECT_EXIT(Eval("&ref(other, sub"), ::testing::ExitedWithCode(1), "Unexpected failure");
}

TEST_F(PfInterpretTest, PfprintWritesTheExpandedEntry) {
  Write("shown.pf", "greeting &word world\nword hi\nlist &Tbl{\n}\n");
  testing::internal::CaptureStdout();
  EXPECT_EQ(pfprint("shown", "greeting"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "hi world\n");
  EXPECT_EQ(pfprint("shown", "list"), -1);
  EXPECT_EQ(pfprint("absent", "greeting"), -1);
  char *messages = elog_string(0);
  EXPECT_NE(strstr(messages, "no entry 'list' in parameter file shown"), nullptr) << messages;
  EXPECT_NE(strstr(messages, "Can't read parameter file absent"), nullptr) << messages;
  free(messages);
}

}  // namespace
