// Signals by name and by number, a one-shot alarm, and whether a file lives on NFS.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/time.h>
#include <sys/vfs.h>

#include "corvel/port.h"

namespace corvel {
namespace port {
namespace {

struct SignalName {
  const char *name;  // without "SIG"
  int number;
  const char *description;
};

// Every signal of Linux, the primary name of a number first; aliases follow and are found by
// name only.
const SignalName kSignals[] = {
    {"HUP", SIGHUP, "hangup: the controlling terminal or its process went away"},
    {"INT", SIGINT, "interrupt from the keyboard"},
    {"QUIT", SIGQUIT, "quit from the keyboard, with a core dump"},
    {"ILL", SIGILL, "illegal instruction"},
    {"TRAP", SIGTRAP, "trace or breakpoint trap"},
    {"ABRT", SIGABRT, "abort: the program stopped itself"},
    {"BUS", SIGBUS, "bus error: access to memory that does not exist"},
    {"FPE", SIGFPE, "arithmetic exception, such as an integer divided by zero"},
    {"KILL", SIGKILL, "killed: cannot be caught or ignored"},
    {"USR1", SIGUSR1, "first signal for the program's own use"},
    {"SEGV", SIGSEGV, "segmentation violation: access to memory outside the program's own"},
    {"USR2", SIGUSR2, "second signal for the program's own use"},
    {"PIPE", SIGPIPE, "write to a pipe or socket that nobody reads"},
    {"ALRM", SIGALRM, "alarm clock: a real-time timer expired"},
    {"TERM", SIGTERM, "termination requested"},
    {"STKFLT", SIGSTKFLT, "stack fault on the coprocessor"},
    {"CHLD", SIGCHLD, "a child process stopped or ended"},
    {"CONT", SIGCONT, "continue after a stop"},
    {"STOP", SIGSTOP, "stopped: cannot be caught or ignored"},
    {"TSTP", SIGTSTP, "stop typed at the terminal"},
    {"TTIN", SIGTTIN, "terminal input for a process in the background"},
    {"TTOU", SIGTTOU, "terminal output for a process in the background"},
    {"URG", SIGURG, "urgent data on a socket"},
    {"XCPU", SIGXCPU, "the processor time limit was exceeded"},
    {"XFSZ", SIGXFSZ, "the file size limit was exceeded"},
    {"VTALRM", SIGVTALRM, "virtual timer expired"},
    {"PROF", SIGPROF, "profiling timer expired"},
    {"WINCH", SIGWINCH, "the terminal window changed size"},
    {"IO", SIGIO, "input or output is possible on a descriptor"},
    {"PWR", SIGPWR, "power failure"},
    {"SYS", SIGSYS, "bad system call"},
    {"IOT", SIGIOT, "abort: the program stopped itself"},
    {"CLD", SIGCHLD, "a child process stopped or ended"},
    {"POLL", SIGPOLL, "input or output is possible on a descriptor"},
    {"UNUSED", SIGSYS, "bad system call"},
};

constexpr char kRealTimeDescription[] = "real-time signal for the program's own use";

}  // namespace
}  // namespace port
}  // namespace corvel

int signal_byname(const char *name) {
  using namespace corvel::port;
  if (name == nullptr) return -1;
  if (strncasecmp(name, "SIG", 3) == 0) name += 3;
  for (const SignalName &s : kSignals) {
    if (strcasecmp(name, s.name) == 0) return s.number;
  }
  // The real-time signals: RTMIN, RTMIN+n, RTMAX-n, RTMAX.
  int base, sign;
  if (strncasecmp(name, "RTMIN", 5) == 0) {
    base = SIGRTMIN;
    sign = 1;
  } else if (strncasecmp(name, "RTMAX", 5) == 0) {
    base = SIGRTMAX;
    sign = -1;
  } else {
    return -1;
  }
  const char *rest = name + 5;
  int offset = 0;
  if (*rest != '\0') {
    char expected = sign > 0 ? '+' : '-';
    int consumed = 0;
    if (rest[0] != expected || sscanf(rest + 1, "%d%n", &offset, &consumed) != 1 ||
        rest[1 + consumed] != '\0' || rest[1] < '0' || rest[1] > '9') {
      return -1;
    }
  }
  int number = base + sign * offset;
  return number >= SIGRTMIN && number <= SIGRTMAX ? number : -1;
}

int signal_bysig(int sig, const char **name, const char **description) {
  using namespace corvel::port;
  for (const SignalName &s : kSignals) {
    if (s.number == sig) {
      if (name != nullptr) *name = s.name;
      if (description != nullptr) *description = s.description;
      return 0;
    }
  }
  if (sig < SIGRTMIN || sig > SIGRTMAX) return -1;
  // Names of the real-time signals, made once per thread for the numbers this system has.
  static thread_local char text[16];
  if (sig == SIGRTMAX) {
    snprintf(text, sizeof text, "RTMAX");
  } else if (sig == SIGRTMIN) {
    snprintf(text, sizeof text, "RTMIN");
  } else if (sig - SIGRTMIN <= SIGRTMAX - sig) {
    snprintf(text, sizeof text, "RTMIN+%d", sig - SIGRTMIN);
  } else {
    snprintf(text, sizeof text, "RTMAX-%d", SIGRTMAX - sig);
  }
  if (name != nullptr) *name = text;
  if (description != nullptr) *description = kRealTimeDescription;
  return 0;
}

int std_set_timer(double seconds, void (*handler)(int)) {
  if (!(seconds > 0)) return -1;
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  if (sigaction(SIGALRM, &action, nullptr) != 0) return -1;
  struct itimerval timer;
  memset(&timer, 0, sizeof timer);  // no interval: the timer fires once
  timer.it_value.tv_sec = static_cast<time_t>(seconds);
  timer.it_value.tv_usec = static_cast<suseconds_t>((seconds - timer.it_value.tv_sec) * 1e6);
  if (timer.it_value.tv_sec == 0 && timer.it_value.tv_usec == 0) timer.it_value.tv_usec = 1;
  return setitimer(ITIMER_REAL, &timer, nullptr) == 0 ? 0 : -1;
}

int is_nfs(const char *path) {
  constexpr long kNfsMagic = 0x6969;  // the kernel's identifier of an NFS file system
  struct statfs status;
  if (path == nullptr || statfs(path, &status) != 0) return 0;
  return status.f_type == kNfsMagic ? 1 : 0;
}
