// Crash signals become logged faults with a stack trace.
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/grave.h"
#include "corvel/port.h"
#include "elog/internal.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "elog.c";

namespace corvel {
namespace elog {
namespace {

// The first action of each signal below 50 is kept, as it was before the log intercepted it.
constexpr int kSavedSignals = 50;
struct sigaction g_previous[kSavedSignals];
bool g_saved[kSavedSignals];
// The handler of every signal number, the real-time ones included.
Fault_handler_fn g_handlers[NSIG];

void Dispatch(int sig, siginfo_t *info, void *context) {
  Fault_handler_fn handler = sig > 0 && sig < NSIG ? g_handlers[sig] : nullptr;
  if (handler != nullptr) handler(sig, info, context);
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
    int sig = signal_byname(name);
    if (sig <= 0 || sig >= NSIG) {
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

void _elog_fault(int sig, void *info, void *context) {
  const char *name = nullptr, *description = nullptr;
  bool known = signal_bysig(sig, &name, &description) == 0;
  if (known) {
    elog_log(0, "\n%s\n", description);
  } else {
    elog_log(0, "\nsignal #%d received: signal_bysig failed\n", sig);
  }
  show_stack_trace(stderr);
  show_fault(info, context);
  if (known) elog_fault(0, "Signal %s : %s", name, description);
  elog_fault(0, "\nsignal #%d received: signal_bysig failed\n", sig);
}

void elog_setup_fault_handler(const char *list) { setup_fault_handlers(_elog_fault, list); }
