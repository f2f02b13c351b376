#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "corvel/port.h"

namespace {

TEST(PortSignals, EveryNumberHasANameThatLeadsBack) {
  for (int sig = 1; sig <= SIGRTMAX; sig++) {
    const char *name = nullptr, *description = nullptr;
    if (sig > SIGSYS && sig < SIGRTMIN) continue;  // kept by the thread library
    ASSERT_EQ(signal_bysig(sig, &name, &description), 0) << sig;
    EXPECT_EQ(signal_byname(name), sig) << name;
    EXPECT_NE(strncmp(name, "SIG", 3), 0) << name;
    EXPECT_GT(strlen(description), 10u) << name;
  }
  const char *name;
  signal_bysig(SIGRTMIN + 1, &name, nullptr);
  EXPECT_STREQ(name, "RTMIN+1");
  signal_bysig(SIGRTMAX - 2, &name, nullptr);
  EXPECT_STREQ(name, "RTMAX-2");
  signal_bysig(SIGIOT, &name, nullptr);
  EXPECT_STREQ(name, "ABRT");
  EXPECT_EQ(signal_bysig(0, &name, nullptr), -1);
  EXPECT_EQ(signal_bysig(SIGRTMAX + 1, &name, nullptr), -1);
}

TEST(PortSignals, NamesWithPrefixAliasesAndMistakes) {
  EXPECT_EQ(signal_byname("SIGTERM"), SIGTERM);
  EXPECT_EQ(signal_byname("hup"), SIGHUP);
  EXPECT_EQ(signal_byname("IOT"), SIGABRT);
  EXPECT_EQ(signal_byname("CLD"), SIGCHLD);
  EXPECT_EQ(signal_byname("RTMIN"), SIGRTMIN);
  EXPECT_EQ(signal_byname("SIGRTMAX-1"), SIGRTMAX - 1);
  for (const char *bad : {"", "SIG", "TERMS", "BOGUS", "RTMIN+", "RTMIN-1", "RTMAX+1", "RTMIN+99",
                          "RTMIN+1x", "RTMIN+-1", "RTMIN+ 1"}) {
    EXPECT_EQ(signal_byname(bad), -1) << bad;
  }
  EXPECT_EQ(signal_byname(nullptr), -1);
}

volatile sig_atomic_t g_alarms = 0;

TEST(PortSignals, TimerFiresOnce) {
  EXPECT_EQ(std_set_timer(0, [](int) { g_alarms++; }), -1);
  ASSERT_EQ(std_set_timer(0.05, [](int) { g_alarms++; }), 0);
  for (int i = 0; i < 40 && g_alarms == 0; i++) usleep(10000);
  usleep(150000);  // long enough for a repeating timer to fire again
  EXPECT_EQ(g_alarms, 1);
}

TEST(PortFiles, LocalFilesAreNotOnNfs) {
  EXPECT_EQ(is_nfs("/tmp"), 0);
  EXPECT_EQ(is_nfs("/no/such/path"), 0);
  EXPECT_EQ(is_nfs(nullptr), 0);
}

}  // namespace
