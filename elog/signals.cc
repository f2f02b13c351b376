// Crash signals become logged faults with a stack trace.
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/port.h"
#include "elog/internal.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "elog.c";

namespace corvel {
namespace elog {
namespace {

struct SignalName {
  int number;
  const char *name;
  const char *description;
};

constexpr SignalName kSignals[] = {
    {SIGHUP, "HUP", "hangup"},
    {SIGINT, "INT", "interrupt"},
    {SIGQUIT, "QUIT", "quit"},
    {SIGILL, "ILL", "illegal instruction"},
    {SIGTRAP, "TRAP", "trace trap"},
    {SIGABRT, "ABRT", "abort"},
    {SIGBUS, "BUS", "bus error"},
    {SIGFPE, "FPE", "floating point exception"},
    {SIGKILL, "KILL", "kill"},
    {SIGUSR1, "USR1", "user defined signal 1"},
    {SIGSEGV, "SEGV", "segmentation violation"},
    {SIGUSR2, "USR2", "user defined signal 2"},
    {SIGPIPE, "PIPE", "write on a pipe with no one to read it"},
    {SIGALRM, "ALRM", "alarm clock"},
    {SIGTERM, "TERM", "software termination signal"},
    {SIGSTKFLT, "STKFLT", "stack fault"},
    {SIGCHLD, "CHLD", "child status change"},
    {SIGCONT, "CONT", "continue after stop"},
    {SIGSTOP, "STOP", "stop"},
    {SIGTSTP, "TSTP", "stop from terminal"},
    {SIGTTIN, "TTIN", "background read from terminal"},
    {SIGTTOU, "TTOU", "background write to terminal"},
    {SIGURG, "URG", "urgent condition on socket"},
    {SIGXCPU, "XCPU", "cpu time limit exceeded"},
    {SIGXFSZ, "XFSZ", "file size limit exceeded"},
    {SIGVTALRM, "VTALRM", "virtual time alarm"},
    {SIGPROF, "PROF", "profiling time alarm"},
    {SIGWINCH, "WINCH", "window size change"},
    {SIGIO, "IO", "i/o possible"},
    {SIGPWR, "PWR", "power failure"},
    {SIGSYS, "SYS", "bad system call"},
};

const SignalName *SignalBySig(int number) {
  for (const SignalName &s : kSignals) {
    if (s.number == number) return &s;
  }
  return nullptr;
}

int SignalByName(const char *name) {
  for (const SignalName &s : kSignals) {
    if (strcmp(s.name, name) == 0) return s.number;
  }
  return -1;
}

constexpr int kSavedSignals = 50;
struct sigaction g_previous[kSavedSignals];
bool g_saved[kSavedSignals];
Fault_handler_fn g_handlers[kSavedSignals];

void Dispatch(int sig, siginfo_t *info, void *context) {
  Fault_handler_fn handler = sig >= 0 && sig < kSavedSignals ? g_handlers[sig] : nullptr;
  if (handler != nullptr) handler(sig, info, context);
}

void ReportFault(int sig, void *info, void *context) {
  const SignalName *signal = SignalBySig(sig);
  if (signal != nullptr) {
    elog_log(0, "\n%s\n", signal->description);
  } else {
    elog_log(0, "\nsignal #%d received: signal_bysig failed\n", sig);
  }
  show_stack_trace(stderr);
  show_fault(info, context);
  if (signal != nullptr) {
    elog_fault(0, "Signal %s : %s", signal->name, signal->description);
  } else {
    elog_fault(0, "\nsignal #%d received: signal_bysig failed\n", sig);
  }
}

}  // namespace

}  // namespace elog
}  // namespace corvel

using namespace corvel::elog;

void setup_fault_handlers(Fault_handler_fn handler, const char *list) {
  // The list in force is kept for queries; the first one is a literal never freed.
  static char *owned = nullptr;
  char *copy = CV_STRDUP(list ? list : "", "s");
  Faults = copy;
  free(owned);
  owned = copy;
  if (list == nullptr || strcmp(list, "null") == 0) return;

  char *names = CV_STRDUP(list, "s");
  char *rest = names;
  for (char *name = strtok_r(names, ":", &rest); name != nullptr;
       name = strtok_r(nullptr, ":", &rest)) {
    const char *bare = strncmp(name, "SIG", 3) == 0 ? name + 3 : name;
    int sig = SignalByName(bare);
    if (sig < 0) {
      elog_fail("Unrecognized signal name '%s'\n", name);
      continue;
    }
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = Dispatch;
    action.sa_flags = SA_SIGINFO | SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    g_handlers[sig] = handler;
    bool save = sig < kSavedSignals && !g_saved[sig];
    if (sigaction(sig, &action, save ? &g_previous[sig] : nullptr) != 0) {
      elog_fail("Couldn't intercept signal %s\n", name);
      continue;
    }
    if (save) g_saved[sig] = true;
  }
  free(names);
}

void elog_setup_fault_handler(const char *list) { setup_fault_handlers(ReportFault, list); }
