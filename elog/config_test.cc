// Configuring the log: environment values, the "elog" parameter file and stack-trace letters.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "elog/internal.h"
#include "pf/test_dir.h"

namespace {

using Slots = std::vector<std::string>;
using corvel::elog::CopySlot;

const char *const kStart[ELOG_NSEVERITY] = {"l0", "D1", "n2", "a3", "c4", "d5", "f6"};
const char *const kDefaults[ELOG_NSEVERITY] = {"L", "D", "N", "A", "C", "X", "F"};

// The table after filling it from value, starting from kStart.
Slots Fill(const char *value, const char *const *start = kStart, int fill_defaults = 1) {
  char table[ELOG_NSEVERITY][ELOG_SLOT_SIZE];
  for (int s = 0; s < ELOG_NSEVERITY; s++) CopySlot(table[s], start[s]);
  elog_fill_from_env(value, table, kDefaults, fill_defaults);
  return Slots(table, table + ELOG_NSEVERITY);
}

Slots All(const std::string &text) { return Slots(ELOG_NSEVERITY, text); }

TEST(ElogEnvironmentTest, GroupsGiveTextsToTheSeveritiesTheyName) {
  EXPECT_EQ(Fill("stderr /path@cdf stderr@n"),
            Slots({"l0", "D1", "stderr", "a3", "stderr /path", "stderr /path", "stderr /path"}));
  EXPECT_EQ(Fill("stderr"), All("stderr"));
  EXPECT_EQ(Fill("x@c y"), All("y"));  // a trailing plain part overrides what came before
  EXPECT_EQ(Fill(""), All(""));
  EXPECT_EQ(Fill("@"), All(""));
  // A letter after an empty text takes its default; a group that names none resets them all.
  EXPECT_EQ(Fill("@cd"), Slots({"l0", "D1", "n2", "a3", "C", "X", "f6"}));
  EXPECT_EQ(Fill("out@@err@c"), Slots({"L", "D", "N", "A", "err", "X", "F"}));
  EXPECT_EQ(Fill("out@ in@l"), Slots({"in", "D", "N", "A", "C", "X", "F"}));
  EXPECT_EQ(Fill("stderr@n "), Slots({"l0", "D1", "stderr", "a3", "c4", "d5", "f6"}));
  // Backslashes quote the next character; a last one stands for itself.
  EXPECT_EQ(Fill("a\\@b\\ \\\\@n"), Slots({"l0", "D1", "a@b \\", "a3", "c4", "d5", "f6"}));
  EXPECT_EQ(Fill("trail\\"), All("trail\\"));

  testing::internal::CaptureStderr();
  EXPECT_EQ(Fill("out@cxn\tD"), Slots({"l0", "out", "out", "a3", "out", "d5", "f6"}));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Unrecognized severity 'xn\tD'\nUnrecognized severity '\tD'\n");
}

TEST(ElogEnvironmentTest, SlotsStayTerminatedAndUnsetVariablesFillEmptySlots) {
  std::string long_value(200, 'v'), cut(ELOG_SLOT_SIZE - 1, 'v');
  EXPECT_EQ(Fill((long_value + "@a").c_str())[ELOG_ALERT], cut);
  EXPECT_EQ(Fill(long_value.c_str()), All(cut));

  const char *const sparse[ELOG_NSEVERITY] = {"", "keep", "", "", "", "", "keep"};
  EXPECT_EQ(Fill(nullptr, sparse, 1), Slots({"L", "keep", "N", "A", "C", "X", "keep"}));
  EXPECT_EQ(Fill(nullptr, sparse, 0), Slots(sparse, sparse + ELOG_NSEVERITY));
}

TEST(ElogEnvironmentTest, StackLettersChooseSeveritiesAndAlertMeansFault) {
  int saved[ELOG_NSEVERITY];
  memcpy(saved, corvel::elog::g_show_stack, sizeof saved);
  memset(corvel::elog::g_show_stack, 0, sizeof saved);
  setenv("ELOG_STACK_TEST", "a? l", 1);
  elog_setup_show_stack("ELOG_STACK_TEST");
  std::vector<int> flags(corvel::elog::g_show_stack, corvel::elog::g_show_stack + ELOG_NSEVERITY);
  EXPECT_EQ(flags, std::vector<int>({1, 0, 0, 0, 0, 0, 1}));
  memcpy(corvel::elog::g_show_stack, saved, sizeof saved);
  unsetenv("ELOG_STACK_TEST");
}

const Slots kDeliver(Deliver_default, Deliver_default + ELOG_NSEVERITY);
const Slots kTag(Tag_default, Tag_default + ELOG_NSEVERITY);
const Slots kDebuggers = {"", "", "", "", "", "gdb %r %p", "gdb %r %p"};

// What a first initialisation sets up; built in unless changed.
struct Settings {
  int maxmsg = 50;
  double wait = 10.0;
  std::string t_format = "%a %b %e %H:%M:%S %Y";
  std::string u_format = "%Y-%j %H:%M:%S";
  std::string signals = "ILL:TRAP:FPE:BUS:SEGV:SYS";
  Slots deliver = kDeliver;
  Slots tag = kTag;
  Slots debug = All("");

  std::string Line() const {
    std::string line = "maxmsg " + std::to_string(maxmsg) + " wait " + std::to_string(wait) +
                       " t " + t_format + " u " + u_format + " signals [" + signals + "]";
    for (const Slots *table : {&deliver, &tag, &debug}) {
      line += " |";
      for (const std::string &slot : *table) line += slot + "|";
    }
    return line;
  }
};

Settings Current() {
  using namespace corvel::elog;
  Settings now;
  now.maxmsg = Max_msg;
  now.wait = Elog_wait;
  now.t_format = Elog_t_format;
  now.u_format = Elog_u_format;
  now.signals = Faults;
  now.deliver = Slots(g_deliver, g_deliver + ELOG_NSEVERITY);
  now.tag = Slots(g_tag, g_tag + ELOG_NSEVERITY);
  now.debug = Slots(g_debug, g_debug + ELOG_NSEVERITY);
  return now;
}

// Exits 0 when the log is set up as expected, else shows both and exits 1.
void ExitComparing(const Settings &expected) {
  std::string got = Current().Line(), want = expected.Line();
  if (got != want) fprintf(stderr, "got  %s\nwant %s\n", got.c_str(), want.c_str());
  exit(got == want ? 0 : 1);
}

// Tests that set the log up afresh do it in a child, from the state of a process that has not
// set it up yet, with only the given configuration in the environment.
class ElogFirstInitTest : public corvel::pf::TempDirTest {
 protected:
  void WriteFile(const std::string &text) const { Write("elog.pf", text); }

  // In the child: starts the log with PFPATH at the directory (or path) and the variables.
  void Start(const std::vector<std::pair<const char *, const char *>> &variables,
             const char *path = nullptr) const {
    for (const char *name : {"ELOG_MAXMSG", "ELOG_WAIT", "ELOG_SIGNALS", "ELOG_STACK",
                             "ELOG_DELIVER", "ELOG_TAG", "ELOG_DEBUG"}) {
      unsetenv(name);
    }
    for (const auto &v : variables) setenv(v.first, v.second, 1);
    setenv("PFPATH", path != nullptr ? path : root_.c_str(), 1);
    for (int s = 0; s < ELOG_NSEVERITY; s++) {
      CopySlot(corvel::elog::g_deliver[s], Deliver_default[s]);
      CopySlot(corvel::elog::g_tag[s], Tag_default[s]);
      CopySlot(corvel::elog::g_debug[s], "");
    }
    Max_msg = 50;
    Elog_wait = 10.0;
    Elog_init = 0;
    elog_init(0, nullptr);
  }

};

TEST_F(ElogFirstInitTest, TheShippedFileGivesTheBuiltInSettings) {
  EXPECT_EXIT(
      {
        Start({}, CORVEL_SOURCE_DIR "/data/pf");
        // The file is found and names every key: the settings come from it, not from defaults.
        Pf *pf = nullptr;
        pfread("elog", &pf);
        Tbl *keys = pfkeys(pf);
        long count = maxtbl(keys);
        freetbl(keys, nullptr);
        pffree(pf);
        if (count != 8) exit(2);
        ExitComparing(Settings());
      },
      ::testing::ExitedWithCode(0), "^$");
}

TEST_F(ElogFirstInitTest, TheFileSetsTheLogUpAndTheEnvironmentOverridesIt) {
  WriteFile(
      "ELOG_MAXMSG 7\nELOG_WAIT 2.5\nt_format %H\nu_format %j\n"
      "ELOG_DELIVER &Arr{\n  notify stderr /dev/null\n}\n"
      "ELOG_TAG &Arr{\n  log [%s]\n  fault\n}\nELOG_DEBUG &Arr{\n  alert dbg %p\n}\n");
  Settings file;
  file.maxmsg = 7;
  file.wait = 2.5;
  file.t_format = "%H";
  file.u_format = "%j";
  file.signals = "";  // a file without the key intercepts nothing
  file.deliver[ELOG_NOTIFY] = "stderr /dev/null";
  file.tag[ELOG_LOG] = "[%s]";  // the empty fault tag is filled in while ELOG_TAG is unset
  file.debug = kDebuggers;
  file.debug[ELOG_ALERT] = "dbg %p";
  EXPECT_EXIT(
      {
        Start({});
        ExitComparing(file);
      },
      ::testing::ExitedWithCode(0), "");

  Settings environment = file;
  environment.maxmsg = 0;
  environment.wait = 1.5;
  environment.signals = "null";
  environment.deliver[ELOG_NOTIFY] = "stdout";
  environment.debug = All("");
  EXPECT_EXIT(
      {
        Start({{"ELOG_MAXMSG", "0"},
               {"ELOG_WAIT", "1.5"},
               {"ELOG_SIGNALS", "null"},
               {"ELOG_DELIVER", "stdout@n"},
               {"ELOG_DEBUG", ""}});
        for (int i = 0; i < 60; i++) elog_log(0, "kept %d", i);  // no limit any more
        if (elog_mark() != 60) exit(2);
        ExitComparing(environment);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(ElogFirstInitTest, ValuesOfTheWrongKindAreReportedAndIgnored) {
  WriteFile(
      "ELOG_MAXMSG 12abc\nELOG_WAIT &Tbl{\n 1\n}\nt_format &Arr{\n x y\n}\n"
      "ELOG_DELIVER stderr\nELOG_TAG &Tbl{\n a\n}\nELOG_DEBUG &Arr{\n die &Arr{\n}\n}\n"
      "ELOG_SIGNALS &Tbl{\n SEGV\n}\n");
  // The debugger array itself is taken: its die entry gets the default, like the missing ones.
  // A signal list that cannot be read leaves the built-in one.
  Settings untouched;
  untouched.debug = kDebuggers;
  EXPECT_EXIT(
      {
        Start({});
        ExitComparing(untouched);
      },
      ::testing::ExitedWithCode(0),
      "elog: ELOG_MAXMSG should be an integer, not '12abc'; ignored\n"
      ".*elog: ELOG_WAIT should be a text, not a list; ignored\n"
      ".*elog: t_format should be a text, not an array; ignored\n"
      ".*elog: ELOG_DELIVER should be an array keyed by severity name, not a text; ignored\n"
      ".*elog: ELOG_TAG should be an array keyed by severity name, not a list; ignored\n"
      ".*elog: ELOG_DEBUG\\{die\\} should be a text, not an array; ignored\n"
      ".*elog: ELOG_SIGNALS should be a text, not a list; ignored\n");
}

TEST_F(ElogFirstInitTest, ABusyReaderSkipsTheFile) {
  WriteFile("ELOG_MAXMSG 7\n");
  EXPECT_EXIT(
      {
        Pf_busy = 1;
        Start({});
        Pf_busy = 0;
        ExitComparing(Settings());
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
