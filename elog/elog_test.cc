#include "corvel/elog.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string RegisterText(int mark = 0) {
  char *s = elog_string(mark);
  std::string text(s);
  free(s);
  return text;
}

std::string Tagged(const std::string &message) {
  return std::string(Program_Name) + ": " + message;
}

class ElogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char arg0[] = "elog_test";
    char arg1[] = "-v";
    char *argv[] = {arg0, arg1, nullptr};
    elog_init(2, argv);
  }
};

TEST_F(ElogTest, KeepsLogMessagesAndFoldsRepeats) {
  elog_log(0, "station %s offline", "ANMO");
  elog_log(0, "station %s offline", "ANMO");
  elog_log(0, "no newline twice");
  EXPECT_EQ(elog_mark(), 2);
  EXPECT_EQ(RegisterText(), Tagged("station ANMO offline\n") + "\t** repeated 2 times\n" +
                                Tagged("no newline twice\n"));
  // Only the last record is compared: an older text starts a new record.
  elog_log(0, "station %s offline", "ANMO");
  EXPECT_EQ(elog_mark(), 3);
  EXPECT_EQ(RegisterText(2), Tagged("station ANMO offline\n"));

  elog_flush(0, 1);
  EXPECT_EQ(elog_mark(), 1);
  elog_clear();
  EXPECT_EQ(elog_mark(), 0);
  EXPECT_EQ(RegisterText(), "");
}

TEST_F(ElogTest, NewlineAndEmptyMessageRules) {
  elog_log(0, "\nafter a blank line");
  const char *empty = "";
  elog_log(0, nullptr);
  elog_log(0, empty);
  // An empty result is kept as a newline without tag.
  EXPECT_EQ(RegisterText(), "\n" + Tagged("after a blank line\n") + "\n\t** repeated 2 times\n");

  testing::internal::CaptureStderr();
  elog_notify(0, "\nX");
  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "\n" + Tagged("after a blank line\n") + "\n\t** repeated 2 times\n" + "\n" + Tagged("X\n"));
  EXPECT_EQ(elog_mark(), 0);  // delivery took the register with it

  // A record keeps its text up to the first NUL a conversion wrote. All three become bare
  // newlines; the repeat check compares the formatted texts, so only the last one is folded.
  elog_log(0, "%s", "");
  elog_log(0, "%c%s", 0, "after a NUL");
  elog_log(0, "\n%c", 0);
  EXPECT_EQ(RegisterText(), "\n\n\t** repeated 2 times\n");
}

TEST_F(ElogTest, LongMessagesAreCutAtTheBufferWithAMarker) {
  const std::string marker = "\n\t...  ** truncated by elog ***\n";
  struct Case {
    size_t length;
    size_t kept;  // characters of the original text that survive
    bool marked;
  } cases[] = {
      {10236, 10236, false},
      {10237, 10237, false},
      {10238, 10237, false},
      {10240, 10237, false},
      {10241, 10239 - marker.size(), true},
      {20000, 10239 - marker.size(), true},
  };
  for (const Case &c : cases) {
    std::string text(c.length, 'x');
    char *s = elogstr(ELOG_LOG, 0, "%s", text.c_str());
    std::string out(s);
    free(s);
    std::string expected = Tagged(std::string(c.kept, 'x') + (c.marked ? marker : "\n"));
    EXPECT_EQ(out, expected) << "length " << c.length;
  }
}

TEST_F(ElogTest, SystemMessageFollowsWhenAskedAndErrnoIsCleared) {
  errno = ENOENT;
  elog_log(1, "open failed");
  EXPECT_EQ(errno, 0);
  errno = 0;
  elog_log(1, "no error to add");
  errno = EACCES;
  elog_log(0, "flag clear");
  EXPECT_EQ(RegisterText(), Tagged("open failed\n") + "\tNo such file or directory\n" +
                                Tagged("no error to add\n") + Tagged("flag clear\n"));

  errno = ENOENT;
  char *s = elogstr(ELOG_COMPLAIN, 1, "%d files", 3);
  EXPECT_STREQ(s, (Tagged("3 files\n") + "\tNo such file or directory\n").c_str());
  free(s);
  s = elogstr(ELOG_ALERT, 0, "\nwatch");
  EXPECT_EQ(std::string(s), "\n" + std::string(Program_Name) + " *alert*: watch\n");
  free(s);
}

TEST_F(ElogTest, ComplaintsDeliverTheRegisterFirstAndAreNeverFolded) {
  elog_log(0, "kept");
  testing::internal::CaptureStderr();
  elog_complain(0, "bad");
  elog_complain(0, "bad");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            Tagged("kept\n") + Tagged("bad\n") + Tagged("bad\n"));
  EXPECT_EQ(elog_mark(), 0);
}

TEST_F(ElogTest, FlushDeliversFromTheMarkOnly) {
  elog_log(0, "early");
  int mark = elog_mark();
  elog_log(0, "late 1");
  elog_log(0, "late 2");
  testing::internal::CaptureStderr();
  elog_flush(1, mark);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), Tagged("late 1\n") + Tagged("late 2\n"));
  EXPECT_EQ(RegisterText(), Tagged("early\n"));

  testing::internal::CaptureStderr();
  elog_clear_register(1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), Tagged("early\n"));
  EXPECT_EQ(elog_mark(), 0);
}

TEST_F(ElogTest, DeliveryListsReachFilesAndSkipUnknownWords) {
  char dir[] = "/tmp/elog_testXXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  std::string file = std::string(dir) + "/errors";
  std::string list = "/dev/null " + file + " log";
  ASSERT_EQ(elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char *>(list.c_str())), 0);

  elog_log(0, "queued");
  errno = EPERM;
  elog_log(1, "queued with errno");
  elog_notify(0, "to the file");
  elog_notify(0, "to the file");
  std::ifstream in(file);
  std::stringstream contents;
  contents << in.rdbuf();
  EXPECT_EQ(contents.str(), Tagged("queued\n") + Tagged("queued with errno\n") +
                                "\t##=> Operation not permitted\n" + Tagged("to the file\n") +
                                Tagged("to the file\n"));
  EXPECT_EQ(elog_mark(), 0);

  // Only "log" and words that merely begin with 'o' keep the message in the register.
  elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char *>("log other"));
  elog_notify(0, "kept");
  EXPECT_EQ(elog_mark(), 1);
  testing::internal::CaptureStderr();
  elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char *>("lumber"));
  elog_notify(0, "still kept");
  EXPECT_EQ(elog_mark(), 2);
  elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char *>("bogus"));
  elog_notify(0, "consumed");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "unrecognized delivery 'lumber'\nunrecognized delivery 'bogus'\n");
  EXPECT_EQ(elog_mark(), 0);

  unlink(file.c_str());
  rmdir(dir);
}

int g_callback_calls;
std::string g_callback_text;
int ConsumingCallback(int severity, char *text, Tbl *reg) {
  g_callback_calls++;
  g_callback_text = std::to_string(severity) + ":" + text;
  return 1;
}
int PassingCallback(int severity, char *text, Tbl *reg) {
  g_callback_calls++;
  return 0;
}

TEST_F(ElogTest, CallbackSeesRegisterAndMayConsumeIt) {
  elog_log(0, "one");
  ASSERT_EQ(elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void *>(ConsumingCallback)), 0);
  testing::internal::CaptureStderr();
  elog_complain(0, "two");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(g_callback_text, "4:" + Tagged("one\n") + Tagged("two\n"));
  EXPECT_EQ(elog_mark(), 0);

  elog_set(ELOG_CALLBACK, 0, nullptr);
  elog_log(0, "three");
  elog_log(0, "three");
  elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void *>(ConsumingCallback));
  testing::internal::CaptureStderr();
  elog_flush(1, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(g_callback_calls, 2);
  EXPECT_EQ(g_callback_text, "2:" + Tagged("three\n") + "\t** repeated 2 times\n");

  elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void *>(PassingCallback));
  elog_log(0, "four");
  EXPECT_EQ(elog_mark(), 1);
}

TEST_F(ElogTest, QueryAndSet) {
  EXPECT_EQ(elog_query(16, 0, nullptr), static_cast<unsigned>(-1));
  EXPECT_EQ(elog_query(ELOG_VERSION, 0, nullptr), static_cast<unsigned>(-1));
  EXPECT_EQ(elog_set(ELOG_VERSION, 0, nullptr), -1);
  EXPECT_EQ(elog_set(ELOG_TBLCP, 0, nullptr), -1);
  EXPECT_EQ(elog_set(15, 0, nullptr), -1);

  ASSERT_EQ(elog_set(ELOG_TAG, -1, const_cast<char *>("T")), 0);
  for (int s = 0; s < ELOG_NSEVERITY; s++) {
    char *tag = nullptr;
    ASSERT_EQ(elog_query(ELOG_TAG, s, &tag), 0u);
    EXPECT_STREQ(tag, "T");
  }
  EXPECT_EQ(elog_set(ELOG_DELIVER, 7, const_cast<char *>("stderr")), -1);
  std::string long_value(60, 'd');
  elog_set(ELOG_DEBUG, 2, const_cast<char *>(long_value.c_str()));
  char *debug = nullptr;
  elog_query(ELOG_DEBUG, 2, &debug);
  EXPECT_EQ(std::string(debug), long_value.substr(0, ELOG_SLOT_SIZE - 1));
  elog_set(ELOG_DEBUG, 2, const_cast<char *>(""));

  int argc = 0;
  char **argv = nullptr;
  elog_query(ELOG_ARGC, 0, &argc);
  elog_query(ELOG_ARGV, 0, &argv);
  ASSERT_EQ(argc, 2);
  EXPECT_STREQ(argv[1], "-v");
  EXPECT_EQ(argv[2], nullptr);

  elog_log(0, "a");
  elog_log(0, "b");
  elog_log(0, "c");
  Tbl *copies = nullptr;
  ASSERT_EQ(elog_query(ELOG_TBLCPCL, 0, &copies), 0u);
  EXPECT_EQ(elog_mark(), 0);
  ASSERT_EQ(maxtbl(copies), 3);
  Elog_msg *second = static_cast<Elog_msg *>(gettbl(copies, 1));
  EXPECT_STREQ(second->msg, "b\n");
  EXPECT_STREQ(second->tag, "T");
  for (long i = 0; i < maxtbl(copies); i++) {
    elog_free_msg(static_cast<Elog_msg *>(gettbl(copies, i)));
    free(gettbl(copies, i));
  }
  freetbl(copies, nullptr);

  int count = 5;
  elog_log(0, "x");
  elog_log(0, "y");
  elog_query(ELOG_COUNT, 0, &count);
  EXPECT_EQ(count, 2);
  int keep = 1;
  elog_set(ELOG_COUNT, 0, &keep);
  EXPECT_EQ(RegisterText(), "T: x\n");
  char *from1 = nullptr;
  elog_log(0, "z");
  elog_query(ELOG_STRING, 1, &from1);
  EXPECT_STREQ(from1, "T: z\n");
  free(from1);
}

TEST_F(ElogTest, CommandLineIsANotifyMessageWithoutTag) {
  char *line = elog_commandline_str();
  EXPECT_EQ(std::string(line), "\n--> " + std::string(Program_Name) + " -v <#>\n\n");
  free(line);
  testing::internal::CaptureStderr();
  elog_commandline();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "\n--> " + std::string(Program_Name) + " -v <#>\n\n");

  std::vector<std::string> args(200, "argument");
  std::vector<char *> argv = {const_cast<char *>("prog")};
  for (auto &a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  elog_init(static_cast<int>(argv.size() - 1), argv.data());
  line = elog_commandline_str();
  EXPECT_EQ(strlen(line), 1023u);
  free(line);
}

TEST_F(ElogTest, ProcessFrame) {
  EXPECT_STREQ(Program_Name, "elog_test");
  EXPECT_NE(Program_Dir[0], '\0');
  EXPECT_EQ(Argc, 2);
  EXPECT_EQ(elog_cmdline()[0], '/');
  EXPECT_GT(Elog_reference_time, 1.6e9);
  EXPECT_STREQ(Faults, "ILL:TRAP:FPE:BUS:SEGV:SYS");

  elog2stderr();
  EXPECT_STREQ(getenv("ELOG_DELIVER"), "stderr@ncdfDa");
  char *deliver = nullptr;
  elog_query(ELOG_DELIVER, ELOG_LOG, &deliver);
  EXPECT_STREQ(deliver, "");
  elog_query(ELOG_DELIVER, ELOG_FAULT, &deliver);
  EXPECT_STREQ(deliver, "stderr");
}

TEST(ElogReferenceTime, AcceptsAnyTimeText) {
  setenv("ELOG_REFERENCE_TIME", "1970-01-02 00:00:01.5", 1);
  elog_init(0, nullptr);
  EXPECT_EQ(Elog_reference_time, 86401.5);
  setenv("ELOG_REFERENCE_TIME", "", 1);
  elog_init(0, nullptr);
  EXPECT_GT(Elog_reference_time, 1.6e9);  // now
}

TEST_F(ElogTest, FortranTwinsTrimTheirFields) {
  int flag = 0;
  register_error_(&flag, "padded text     ", 16);
  register_error__(&flag, "cut here and not beyond", 8);
  EXPECT_EQ(RegisterText(), Tagged("padded text\n") + Tagged("cut here\n"));
  testing::internal::CaptureStderr();
  complain_(&flag, "complaint   ", 12);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            Tagged("padded text\n") + Tagged("cut here\n") + Tagged("complaint\n"));
  register_error_(&flag, "x", 1);
  clear_register_(0);
  EXPECT_EQ(elog_mark(), 0);
}

using ElogDeathTest = ElogTest;

TEST_F(ElogDeathTest, DieDeliversEverythingAndExitsWithOne) {
  EXPECT_EXIT(
      {
        elog_log(0, "pending");
        errno = ENOENT;
        elog_die(1, "cannot go on");
      },
      ::testing::ExitedWithCode(1),
      "elog_test: pending\nelog_test \\*fatal\\*: cannot go on\n\tNo such file or directory\n");
  EXPECT_EXIT(
      {
        int flag = 0;
        die_(&flag, "from fortran  ", 14);
      },
      ::testing::ExitedWithCode(1), "elog_test \\*fatal\\*: from fortran\n");
}

TEST_F(ElogDeathTest, RunningOutOfMemoryEndsTheProcessWithTheLibrarysMessage) {
  // A list asked to hold an absurd number of slots cannot get them.
  EXPECT_EXIT(
      {
        Tbl *t = newtbl(0);
        settbl(t, 1L << 60, t);
      },
      ::testing::ExitedWithCode(1),
      "elog_test \\*fatal\\*: Out of memory in [A-Za-z_]+ at line [0-9]+ of 'tbl.c'\n\tCan't "
      "malloc [0-9]+ bytes for tbl->base.cp\n");
}

TEST_F(ElogDeathTest, FullRegisterEndsTheProcess) {
  EXPECT_EXIT(
      {
        for (int i = 0; i < 51; i++) elog_log(0, "message %d", i);
      },
      ::testing::ExitedWithCode(1),
      "elog_test: message 49\nelog_test: message 50\nelog_test \\*fatal\\*: quitting because "
      "log has 50 messages\n   eliminate this limit with\n      setenv ELOG_MAXMSG 0\n   or by "
      "editing elog.pf.  See elog\\(3\\).\n$");
}

TEST_F(ElogDeathTest, FaultsAbortAndCrashesAreReported) {
  EXPECT_DEATH(elog_fault(0, "broken"), "elog_test \\*fault\\*: broken\n");
  EXPECT_DEATH(raise(SIGSEGV),
               "\nelog_test: segmentation violation: (.|\n)*Signal SEGV : segmentation violation");
}

TEST_F(ElogTest, StackMarkerPrintsATrace) {
  testing::internal::CaptureStderr();
  elog_complain(0, "*stack* where am I");
  std::string out = testing::internal::GetCapturedStderr();
  EXPECT_EQ(out.rfind(Tagged("*stack* where am I\n"), 0), 0u);
  EXPECT_GT(out.size(), Tagged("*stack* where am I\n").size());
}

}  // namespace

namespace {

TEST_F(ElogDeathTest, ADebuggerStartsOnceAndTheProcessThenStopsForIt) {
  setenv("ELOG_WAIT", "0", 1);
  setenv("ELOG_DEBUG", "false@c", 1);
  EXPECT_EXIT(
      {
        elog_init(0, nullptr);
        elog_complain(0, "x");
      },
      ::testing::ExitedWithCode(1),
      "^elog_test: x\nRunning debugger: 'false'\nCan't run debugger 'false'\n$");

  setenv("ELOG_DEBUG", "kill -0 %p@c", 1);
  pid_t pid = fork();
  if (pid == 0) {
    elog_init(0, nullptr);
    elog_complain(0, "started");
    elog_complain(0, "stopped");
    _exit(Debugger_running ? 0 : 2);
  }
  int status;
  ASSERT_EQ(waitpid(pid, &status, WUNTRACED), pid);
  EXPECT_TRUE(WIFSTOPPED(status));
  kill(pid, SIGCONT);
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  unsetenv("ELOG_DEBUG");
  unsetenv("ELOG_WAIT");
}

TEST_F(ElogDeathTest, AMissingRemoteLogIsReportedOnceAndStderrTakesItsMessages) {
  EXPECT_EXIT(
      {
        elog_set(ELOG_DELIVER, ELOG_COMPLAIN, const_cast<char *>("orb:acq"));
        elog_complain(0, "one");
        elog_complain(0, "two");
        exit(0);
      },
      ::testing::ExitedWithCode(0),
      "^Can't dynamically load library orb, error messages will be written to stderr.\n"
      "elog_test: elog_test: one\n\nelog_test: elog_test: two\n\n$");
}

}  // namespace
