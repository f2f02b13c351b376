// Orderly ends: the termination signals, the halt flag with its deadline, and die_soon.
#include <errno.h>
#include <signal.h>
#include <string.h>
#include <time.h>

#include "corvel/grave.h"
#include "corvel/port.h"
#include "elog/internal.h"

namespace corvel {
namespace elog {
namespace {

struct TerminationSignal {
  int number;
  const char *failure;
};

constexpr TerminationSignal kTerminationSignals[] = {
    {SIGHUP, "Couldn't intercept signal SIGHUP\n"},
    {SIGINT, "Couldn't intercept signal SIGINT\n"},
    {SIGQUIT, "Couldn't intercept signal SIGQUIT\n"},
    {SIGTERM, "Couldn't intercept signal SIGTERM\n"},
};

void HaltAlarm(int) {
  Pf *pf = pfnew(PFFILE);
  if (Halt_Mortician != nullptr) Halt_Mortician(pf);
  pffree(pf);
  elog_die(0, "quitting from resurrection alarm\n");
}

void HaltHandler(int sig) {
  if (Halt_flag != nullptr) *Halt_flag = 1;
  if (Halt_In_Seconds > 0 && std_set_timer(Halt_In_Seconds, HaltAlarm) != 0) {
    elog_die(0, "received signal #%d but failed to set alarm timer", sig);
  }
}

void DieSoonAlarm(int) { elog_die(0, "quitting from die_soon alarm\n"); }

}  // namespace

void SleepSeconds(double seconds) {
  if (!(seconds > 0)) return;
  struct timespec pause;
  pause.tv_sec = static_cast<time_t>(seconds);
  pause.tv_nsec = static_cast<long>((seconds - static_cast<double>(pause.tv_sec)) * 1e9);
  // Signals that interrupt the pause do not shorten it.
  while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
  }
}

}  // namespace elog
}  // namespace corvel

using namespace corvel::elog;

void setup_signal_handlers(void (*handler)(int sig)) {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = handler;
  // One termination at a time; no SA_RESTART, so that a program waiting in a system call sees
  // the flag its handler set.
  sigemptyset(&action.sa_mask);
  for (const TerminationSignal &s : kTerminationSignals) sigaddset(&action.sa_mask, s.number);
  for (const TerminationSignal &s : kTerminationSignals) {
    if (sigaction(s.number, &action, nullptr) != 0) elog_die(0, "%s", s.failure);
  }
}

void setup_signals(int *halt_flag, Mortician_fn mortician, int seconds) {
  Halt_flag = halt_flag;
  Halt_Mortician = mortician;
  Halt_In_Seconds = seconds;
  setup_signal_handlers(HaltHandler);
}

void die_soon(double seconds) {
  if (std_set_timer(seconds, DieSoonAlarm) == 0) return;
  SleepSeconds(seconds);
  elog_die(0, "failed to setup timer to die");
}
