#include "corvel/grave.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>

#include "corvel/elog.h"
#include "pf/test_dir.h"

namespace {

// Every graveyard lives in a process of its own: a process has one, for good.
class GraveTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    char arg0[] = "elog_test";
    char *argv[] = {arg0, nullptr};
    elog_init(1, argv);
    elog_clear();
    state_ = Path("grave/state");
  }

  // Runs body in a child and returns its exit status, or 128 plus the signal that ended it.
  static int InChild(const std::function<int()> &body) {
    pid_t pid = fork();
    if (pid == 0) _exit(body());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  std::string Read(const std::string &path) const {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  // The state file's value for name, or "(absent)"; "(unreadable)" when it is no parameter file.
  std::string Value(const char *name) const {
    Pf *pf = nullptr;
    if (pfcompile(Read(state_).c_str(), &pf) != 0) return "(unreadable)";
    const char *value = pfget_string(pf, name);
    std::string result = value ? value : "(absent)";
    pffree(pf);
    return result;
  }

  std::string state_;
};

// The relics of the tests: one of each type.
struct Relics {
  int count = 0;
  double level = 0;
  char *station = nullptr;
  double seen = 0;

  int Resurrect() {
    return resurrect("count", &count, RELIC_INT) + resurrect("level", &level, RELIC_DOUBLE) +
           resurrect("station", &station, RELIC_STRING) + resurrect("seen", &seen, RELIC_TIME);
  }
};

TEST_F(GraveTest, RelicsComeBackInTheNextLife) {
  EXPECT_EQ(InChild([&] {
              if (exhume(state_.c_str(), nullptr, 0, nullptr) != 0) return 1;  // created
              Relics r;
              if (r.Resurrect() != 4) return 2;  // nothing to restore yet
              r.count = 42, r.level = -2.5e-7, r.seen = 1700000000.25;
              r.station = const_cast<char *>("ANMO  # not a comment");
              return bury() == 0 ? 0 : 3;
            }),
            0);
  EXPECT_EQ(InChild([&] {
              if (exhume(state_.c_str(), nullptr, 0, nullptr) != 1) return 1;
              if (exhume(state_.c_str(), nullptr, 0, nullptr) != -2) return 2;
              Relics r;
              int absent = 9;
              if (r.Resurrect() != 0 || resurrect("absent", &absent, RELIC_INT) != 1) return 3;
              if (r.count != 42 || r.level != -2.5e-7 || r.seen != 1700000000.25) return 4;
              if (strcmp(r.station, "ANMO  # not a comment") != 0 || absent != 9) return 5;
              if (strcmp(gravesite(), state_.c_str()) != 0) return 6;
              absent = 10;
              return bury();
            }),
            0);
  // A relic the file lacked is written all the same.
  EXPECT_EQ(Value("absent"), "10");
  EXPECT_EQ(Value("seen"), "1700000000.250 (318) 2023-11-14  22:13:20.25000 UTC Tuesday");
}

TEST_F(GraveTest, BadStateFilesAndUnwritableAlternatesAreReported) {
  int count = 0;
  EXPECT_EQ(resurrect("count", &count, RELIC_INT), -1);
  EXPECT_EQ(bury(), -1);
  custom_gravesite("/var/state/ours");
  EXPECT_STREQ(gravesite(), "/var/state/ours");
  Write("plain", "");
  EXPECT_EQ(exhume(Path("plain/state").c_str(), nullptr, 0, nullptr), -1);

  ASSERT_EQ(mkdir(Path("grave").c_str(), 0775), 0);
  Write("grave/state", "&Arr{\n}\n}\n");
  EXPECT_EQ(InChild([&] {
              if (exhume(state_.c_str(), nullptr, 0, nullptr) != 2) return 1;
              Relics r;
              if (r.Resurrect() != 4) return 2;
              elog_clear();
              elog_set(ELOG_DELIVER, ELOG_COMPLAIN, const_cast<char *>("log"));
              // The alternate file cannot be made: the state file stays as it was.
              if (mkdir((state_ + "+").c_str(), 0775) != 0) return 3;
              if (bury() != -1) return 4;
              char *messages = elog_string(0);
              bool reported = strcmp(messages, ("elog_test: Can't write alternate state file " +
                                                state_ + "+\n\tIs a directory\n")
                                                   .c_str()) == 0;
              free(messages);
              if (!reported) return 5;
              if (rmdir((state_ + "+").c_str()) != 0) return 6;
              return bury() == 0 ? 0 : 7;
            }),
            0);
  EXPECT_EQ(Value("count"), "0");
}

TEST_F(GraveTest, ASecondProcessCannotTakeALockedStateFile) {
  int ready[2], done[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(done), 0);
  pid_t holder = fork();
  if (holder == 0) {
    // The lock must survive the renames that replace the file.
    if (exhume(state_.c_str(), nullptr, 0, nullptr) != 0 || bury() != 0 || bury() != 0) _exit(1);
    char c = 0;
    if (write(ready[1], &c, 1) != 1 || read(done[0], &c, 1) != 1) _exit(2);
    _exit(0);
  }
  char c;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  EXPECT_EXIT(exhume(state_.c_str(), nullptr, 0, nullptr), ::testing::ExitedWithCode(1),
              "^elog_test: \\*fatal\\* Can't lock state file '" + state_ +
                  "' for exclusive use: it is already in use.\n$");
  ASSERT_EQ(write(done[1], &c, 1), 1);
  int status;
  waitpid(holder, &status, 0);
  EXPECT_EQ(status, 0);
}

// The ways a process ends through the log or a termination signal; each must leave the
// current values in the state file.
enum class Ending { kDie, kFullRegister, kSignal, kSignalInsideBury, kSignalUnderLogLock };

class GraveEndingTest : public GraveTest, public ::testing::WithParamInterface<Ending> {
 protected:
  // Signals end the process silently; the log says why it ends.
  static std::string ExpectedStderr(Ending ending) {
    if (ending == Ending::kDie) return "^elog_test \\*fatal\\*: done\n$";
    if (ending != Ending::kFullRegister) return "^$";
    return "^elog_test: 0\n(.|\n)*elog_test: 50\nelog_test \\*fatal\\*: quitting because log "
           "has 50 messages\n(.|\n)*See elog\\(3\\).\n$";
  }
};

int g_count;
int g_quit = -1;

TEST_P(GraveEndingTest, EveryEndingBuriesTheValues) {
  EXPECT_EXIT(
      {
        static Mortician_fn raising = [](Pf *pf) {
          pfput_string(pf, "mortician", "was here");
          raise(SIGTERM);
        };
        Ending ending = GetParam();
        exhume(state_.c_str(), &g_quit, 0, ending == Ending::kSignalInsideBury ? raising : nullptr);
        resurrect("count", &g_count, RELIC_INT);
        g_count = 31;
        switch (ending) {
          case Ending::kDie:
            elog_die(0, "done");
          case Ending::kFullRegister:
            for (int i = 0; i < 51; i++) elog_log(0, "%d", i);
            break;
          case Ending::kSignal:
            raise(SIGTERM);
            break;
          case Ending::kSignalInsideBury:
            bury();
            break;
          case Ending::kSignalUnderLogLock:
            elog_callback = [](int, char *, Tbl *) { return raise(SIGTERM); };
            elog_complain(0, "x");
            break;
        }
        fprintf(stderr, "still running\n");
        exit(0);
      },
      ::testing::ExitedWithCode(1), ExpectedStderr(GetParam()));
  EXPECT_EQ(Value("count"), "31");
  if (GetParam() == Ending::kSignalInsideBury) {
    EXPECT_EQ(Value("mortician"), "was here");
  }
}

std::string EndingName(const ::testing::TestParamInfo<Ending> &info) {
  static const char *const kNames[] = {"Die", "FullRegister", "Signal", "SignalInsideBury",
                                       "SignalUnderLogLock"};
  return kNames[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Endings, GraveEndingTest,
                         ::testing::Values(Ending::kDie, Ending::kFullRegister, Ending::kSignal,
                                           Ending::kSignalInsideBury, Ending::kSignalUnderLogLock),
                         EndingName);

TEST_F(GraveTest, SignalsWithADelayAndTheHaltFlag) {
  EXPECT_EXIT(
      {
        exhume(state_.c_str(), &g_quit, 1, nullptr);
        raise(SIGINT);
        if (g_quit != SIGINT) exit(2);
        for (;;) pause();
      },
      ::testing::ExitedWithCode(1), "^elog_test \\*fatal\\*: quitting from resurrection alarm\n$");
  EXPECT_EQ(InChild([&] {
              exhume(state_.c_str(), &g_quit, -1, nullptr);
              raise(SIGHUP);  // the program decides
              return g_quit == SIGHUP && bury() == 0 ? 0 : 1;
            }),
            0);
  EXPECT_EQ(InChild([&] {
              int halt = 0;
              setup_signals(&halt, nullptr, 0);
              raise(SIGQUIT);
              return halt == 1 ? 0 : 1;
            }),
            0);
  EXPECT_EXIT(
      {
        static int halt = 0;
        setup_signals(
            &halt, [](Pf *) { fprintf(stderr, "mortician\n"); }, 1);
        raise(SIGTERM);
        for (;;) pause();
      },
      ::testing::ExitedWithCode(1),
      "^mortician\nelog_test \\*fatal\\*: quitting from resurrection alarm\n$");
  EXPECT_EXIT(
      {
        die_soon(0.01);
        for (;;) pause();
      },
      ::testing::ExitedWithCode(1), "^elog_test \\*fatal\\*: quitting from die_soon alarm\n$");
}

// A process that buries over and over is killed at random moments: each time the state file
// holds one complete set of values, never older than the set the previous life left. Each life
// pads its texts differently, so that a longer leftover of an earlier write would show.
TEST_F(GraveTest, KillingABuryingProcessNeverTearsTheStateFile) {
  std::mt19937 random(20261122);
  int last = -1;
  for (int life = 0; life < 60; life++) {
    size_t pad = random() % 40;
    pid_t pid = fork();
    if (pid == 0) {
      exhume(state_.c_str(), nullptr, 0, nullptr);
      Relics r;
      r.Resurrect();
      char station[64];
      r.station = station;
      for (;;) {
        r.count++;
        r.level = r.count + 0.5;
        r.seen = 1e9 + r.count;
        snprintf(station, sizeof station, "life %d %s", r.count, std::string(pad, '~').c_str());
        bury();
      }
    }
    usleep(1000 + random() % 4000);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    Pf *pf = nullptr;
    ASSERT_EQ(pfcompile(Read(state_).c_str(), &pf), 0) << "life " << life;
    Tbl *keys = pfkeys(pf);
    long entries = maxtbl(keys);
    freetbl(keys, nullptr);
    if (entries > 0) {  // not killed before its first bury
      ASSERT_EQ(entries, 4) << Read(state_);
      int count = atoi(pfget_string(pf, "count"));
      ASSERT_GE(count, last) << "life " << life;
      EXPECT_EQ(pfget_string(pf, "level"), std::to_string(count) + ".5");
      std::string station = pfget_string(pf, "station");
      std::string prefix = "life " + std::to_string(count) + " ";
      EXPECT_EQ(station.substr(0, prefix.size()), prefix);
      EXPECT_EQ(station.find_first_not_of('~', prefix.size()), std::string::npos);
      EXPECT_EQ(pfget_time(pf, "seen"), 1e9 + count);
      last = count;
    }
    pffree(pf);
  }
  EXPECT_GT(last, 0);
}

TEST(GraveFaults, SignalListsAndFaultReports) {
  elog_clear();
  testing::internal::CaptureStderr();
  setup_fault_handlers([](int, void *, void *) {}, "segv:SIGBOGUS:RTMIN+2");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unrecognized signal name 'SIGBOGUS'\n");
  EXPECT_STREQ(Faults, "segv:SIGBOGUS:RTMIN+2");
  EXPECT_DEATH(
      {
        elog_setup_fault_handler("USR1:RTMIN+2");
        raise(SIGRTMIN + 2);
      },
      "\nelog_test: real-time signal(.|\n)*elog_test \\*fault\\*: Signal RTMIN\\+2 : ");
}

}  // namespace
