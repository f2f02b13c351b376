// The log's process-wide state: the process frame, the per-severity tables, the register and
// the lock. All of it is constant-initialised, so it exists before any code runs and no
// destructor runs at exit.
#include <errno.h>
#include <string.h>

#include "elog/internal.h"

char Program_Name[4096];
char Program_Dir[4096];
int Argc;
char **Argv;
double Elog_reference_time = -1.0;
int Max_msg = 50;
double Elog_wait = 10.0;
char *Elog_t_format = const_cast<char *>("%a %b %e %H:%M:%S %Y");
char *Elog_u_format = const_cast<char *>("%Y-%j %H:%M:%S");
Elog_callback_fn elog_callback;
char *Faults = const_cast<char *>("");
int Elog_init;
int Debugger_running;

// The register holds records by value. It exists from the start so that a thread that logs
// while another is still initialising finds it in place.
static Tbl g_register = {
    nullptr, nullptr, nullptr, nullptr, 0, 0, 0, sizeof(Elog_msg), 1, 0, -1, 0, 10, 10,
};
Tbl *Elog_tbl = &g_register;

Xlat Elog_xlat[] = {
    {"ELOG_NSEVERITY", ELOG_NSEVERITY}, {"ELOG_LOG", ELOG_LOG},
    {"ELOG_DEBUGGING", ELOG_DEBUGGING}, {"ELOG_NOTIFY", ELOG_NOTIFY},
    {"ELOG_ALERT", ELOG_ALERT},         {"ELOG_COMPLAIN", ELOG_COMPLAIN},
    {"ELOG_DIE", ELOG_DIE},             {"ELOG_FAULT", ELOG_FAULT},
    {"ELOG_TBL", ELOG_TBL},             {"ELOG_TBLCP", ELOG_TBLCP},
    {"ELOG_TBLCPCL", ELOG_TBLCPCL},     {"ELOG_ARGV", ELOG_ARGV},
    {"ELOG_ARGC", ELOG_ARGC},           {"ELOG_COUNT", ELOG_COUNT},
    {"ELOG_VERSION", ELOG_VERSION},     {"ELOG_MAXMSG", ELOG_MAXMSG},
    {"ELOG_TAG", ELOG_TAG},             {"ELOG_DELIVER", ELOG_DELIVER},
    {"ELOG_DEBUG", ELOG_DEBUG},         {"ELOG_SIGNALS", ELOG_SIGNALS},
    {"ELOG_CALLBACK", ELOG_CALLBACK},   {"ELOG_STRING", ELOG_STRING},
};
int Elog_xlatn = sizeof Elog_xlat / sizeof Elog_xlat[0];

const char *const Tag_default[ELOG_NSEVERITY] = {"%P", "%P *debug*", "%P",        "%P *alert*",
                                                 "%P", "%P *fatal*", "%P *fault*"};
const char *const Deliver_default[ELOG_NSEVERITY] = {"",       "stderr", "stderr", "stderr",
                                                     "stderr", "stderr", "stderr"};
// What a configuration that asks for a debugger gets; the table itself starts empty, so that
// dying never starts a debugger unless one was configured.
const char *const Debug_default[ELOG_NSEVERITY] = {"", "", "", "", "", "gdb %r %p", "gdb %r %p"};

namespace corvel {
namespace elog {

const char *const kSeverityName[ELOG_NSEVERITY] = {"log",      "debug", "notify", "alert",
                                                   "complain", "die",   "fault"};
char g_tag[ELOG_NSEVERITY][ELOG_SLOT_SIZE] = {"%P", "%P *debug*", "%P",        "%P *alert*",
                                              "%P", "%P *fatal*", "%P *fault*"};
char g_deliver[ELOG_NSEVERITY][ELOG_SLOT_SIZE] = {"",       "stderr", "stderr", "stderr",
                                                  "stderr", "stderr", "stderr"};
char g_debug[ELOG_NSEVERITY][ELOG_SLOT_SIZE];
int g_show_stack[ELOG_NSEVERITY];

void CopySlot(char *slot, const char *value) {
  strncpy(slot, value ? value : "", ELOG_SLOT_SIZE);
  slot[ELOG_SLOT_SIZE - 1] = '\0';
}

void LogLock::TakeOwnership() {
  owner_.store(pthread_self(), std::memory_order_relaxed);
  held_.store(true, std::memory_order_release);
}

void LogLock::Lock() {
  pthread_mutex_lock(&mutex_);
  TakeOwnership();
}

bool LogLock::TryLock() {
  if (pthread_mutex_trylock(&mutex_) != 0) return false;
  TakeOwnership();
  return true;
}

void LogLock::Unlock() {
  held_.store(false, std::memory_order_release);
  pthread_mutex_unlock(&mutex_);
}

bool LogLock::HeldByMe() const {
  return held_.load(std::memory_order_acquire) &&
         pthread_equal(owner_.load(std::memory_order_relaxed), pthread_self());
}

LogLock &Lock() {
  // Constant-initialised with a trivial destructor: usable from the first moment of the
  // process to the last.
  static LogLock lock;
  return lock;
}

void EnsureInitialized() {
  if (__atomic_load_n(&Elog_init, __ATOMIC_ACQUIRE)) return;
  int saved = errno;
  elog_init(0, nullptr);
  errno = saved;
}

}  // namespace elog
}  // namespace corvel
