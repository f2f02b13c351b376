// The graveyard: variables a program registers (relics) are restored from a state file at
// start and written back whenever the process ends through the log.
//
// The state file is replaced, never rewritten in place: the values go to the alternate file
// (the name with "+" appended), which is cut to their length, synced and renamed over the state
// file. A crash at any instant leaves the old or the new values, both complete. The descriptor
// of the renamed file becomes the state file's, and keeps the process's lock on it.
//
// Nothing here logs while holding the grave's lock: the log may itself be holding its own lock
// and waiting for the grave (a full register buries before exiting).
#include "corvel/grave.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <initializer_list>

#include "corvel/files.h"
#include "corvel/port.h"
#include "corvel/text.h"
#include "corvel/time.h"
#include "elog/internal.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "bury.c";

struct Grave {
  char *filename;
  char *alternate;  // filename with "+" appended
  int fd;           // the state file, locked; -1 when it could not be opened
  Arr *relics;      // name -> Relic
  Pf *pf;           // what the state file held; null when it was new or unreadable
  int *quit_flag;
  int seconds;
  Mortician_fn mortician;
  bool ready;  // exhume has finished: until then the grave is claimed but not usable
  volatile sig_atomic_t signalled;
};

namespace corvel {
namespace elog {
namespace {

struct Relic {
  void *variable;
  int type;
};

constexpr char kTimeFormat[] = "%E (%j) %Y-%m-%d  %H:%M:%S.%u %z %A";

// The grave's mutex, taken with every signal blocked that a handler might catch to bury: such a
// handler then runs once the lock is released, instead of waiting forever for it on the same
// thread. Faults stay deliverable: a blocked fault would kill the process outright.
class GraveLock {
 public:
  GraveLock() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (int sig : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
      sigdelset(&blocked, sig);
    }
    pthread_sigmask(SIG_BLOCK, &blocked, &saved_);
    pthread_mutex_lock(&grave_mutex);
  }
  ~GraveLock() {
    pthread_mutex_unlock(&grave_mutex);
    pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
  }
  GraveLock(const GraveLock &) = delete;
  GraveLock &operator=(const GraveLock &) = delete;

 private:
  sigset_t saved_;
};

// A failure met under the grave's lock, complained about once the lock is released.
struct Failure {
  char text[PATH_MAX + 128] = "";
  int err = 0;
  template <typename... Args>
  void Set(const char *fmt, Args... args) {
    err = errno;
    snprintf(text, sizeof text, fmt, args...);
  }
  void Report() const {
    if (text[0] == '\0') return;
    errno = err;
    elog_complain(err != 0, "%s", text);
  }
};

void FreeGrave(Grave *g) {
  free(g->filename);
  free(g->alternate);
  freearr(g->relics, free);
  pffree(g->pf);
  free(g);
}

// Reads the whole state file and parses it; false when it is not a parameter file.
bool ReadStateFile(int fd, Pf **pf) {
  size_t size = 0, used = 0;
  char *text = nullptr;
  for (;;) {
    if (used == size) {
      size = size ? 2 * size : 4096;
      text = static_cast<char *>(CV_REALLOC(text, size, "text"));
    }
    ssize_t n = pread(fd, text + used, size - used, static_cast<off_t>(used));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      free(text);
      return false;
    }
    if (n == 0) break;
    used += static_cast<size_t>(n);
  }
  int result = pfcompile_counted(text, static_cast<long>(used), pf);
  free(text);
  if (result == 0) return true;
  pffree(*pf);
  *pf = nullptr;
  return false;
}

enum class LockResult { kLocked, kOnNfs, kInUse };

LockResult LockStateFile(int fd, const char *filename) {
  if (lseek(fd, 0, SEEK_SET) == 0 && lockf(fd, F_TLOCK, 0) == 0) return LockResult::kLocked;
  return is_nfs(filename) ? LockResult::kOnNfs : LockResult::kInUse;
}

// Opens the state file, creating it when it does not exist: the exhume result, with the
// descriptor and what the file held in g.
int OpenStateFile(Grave *g) {
  make_pathdirs(g->filename);
  g->fd = open(g->filename, O_RDWR | O_CLOEXEC);
  bool created = false;
  if (g->fd < 0 && errno == ENOENT) {
    g->fd = open(g->filename, O_RDWR | O_CREAT | O_CLOEXEC, 0664);
    created = g->fd >= 0;
  }
  if (g->fd < 0) {
    errno = 0;
    return -1;
  }
  switch (LockStateFile(g->fd, g->filename)) {
    case LockResult::kLocked:
      break;
    case LockResult::kOnNfs:
      elog_complain(0, "Can't lock '%s' on an nfs filesystem: proceeding without lock",
                    g->filename);
      break;
    case LockResult::kInUse:
      elog_complain(0,
                    "*fatal* Can't lock state file '%s' for exclusive use: it is already in "
                    "use.\n",
                    g->filename);
      exit(1);
  }
  if (created) {
    errno = 0;
    return 0;
  }
  return ReadStateFile(g->fd, &g->pf) ? 1 : 2;
}

void PutRelic(char *name, void *value, void *private_data) {
  const Relic *relic = static_cast<const Relic *>(value);
  Pf *pf = static_cast<Pf *>(private_data);
  char number[64];
  switch (relic->type) {
    case RELIC_INT:
      snprintf(number, sizeof number, "%d", *static_cast<int *>(relic->variable));
      pfput_string(pf, name, number);
      break;
    case RELIC_DOUBLE:
      pfput_string(pf, name, strdbl(number, *static_cast<double *>(relic->variable)));
      break;
    case RELIC_STRING: {
      // A null text has no value to keep: the variable stays as the program leaves it.
      const char *text = *static_cast<char **>(relic->variable);
      if (text != nullptr) pfput_string(pf, name, text);
      break;
    }
    case RELIC_TIME: {
      char *text = zepoch2str(kTimeFormat, "UTC", *static_cast<double *>(relic->variable));
      // The epoch comes right-aligned; its leading blanks would only make the value a literal.
      pfput_string(pf, name, text + strspn(text, " "));
      free(text);
      break;
    }
  }
}

// Writes all of text to fd: the count written, or -1 when nothing could be.
ssize_t WriteAll(int fd, const char *text, size_t length) {
  size_t done = 0;
  while (done < length) {
    ssize_t n = write(fd, text + done, length - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return done > 0 ? static_cast<ssize_t>(done) : -1;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

// Makes a rename in the state file's directory survive a power failure.
void SyncDirectory(const char *filename) {
  char dir[PATH_MAX], base[PATH_MAX];
  if (strlen(filename) >= sizeof dir) return;
  dirbase(filename, dir, base);
  int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

// Puts text in the alternate file and renames it over the state file; 0, or -1 with failure
// filled.
int ReplaceStateFile(Grave *g, const char *text, Failure *failure) {
  // Not truncated on opening: a leftover of a crashed bury is cut below, once the new text
  // is in place.
  int fd = open(g->alternate, O_RDWR | O_CREAT | O_CLOEXEC, 0664);
  if (fd < 0) {
    failure->Set("Can't write alternate state file %s", g->alternate);
    return -1;
  }
  size_t length = strlen(text);
  ssize_t written = WriteAll(fd, text, length);
  if (written < 0 || ftruncate(fd, static_cast<off_t>(length)) != 0 || fsync(fd) != 0) {
    failure->Set("Can't write alternate state file %s", g->alternate);
  } else if (static_cast<size_t>(written) != length) {
    failure->Set("Wrote %ld bytes to alternate state file %s instead of %ld",
                 static_cast<long>(written), g->alternate, static_cast<long>(length));
  } else {
    // The new file carries this process's lock from the moment it becomes the state file.
    if (lseek(fd, 0, SEEK_SET) == 0) lockf(fd, F_TLOCK, 0);
    if (rename(g->alternate, g->filename) != 0) {
      failure->Set("failed to rename state file %s to %s", g->alternate, g->filename);
    } else {
      SyncDirectory(g->filename);
      if (g->fd >= 0) close(g->fd);
      g->fd = fd;
      return 0;
    }
  }
  if (close(fd) != 0 && failure->text[0] == '\0') {
    failure->Set("Can't close alternate state file %s", g->alternate);
  }
  return -1;
}

[[noreturn]] void QuitFromResurrectionAlarm() { elog_die(0, "quitting from resurrection alarm\n"); }

void ResurrectionAlarm(int) {
  if (grave != nullptr && grave->signalled) {
    bury();
    QuitFromResurrectionAlarm();
  }
}

// The termination signals after exhume with a quit flag.
void GraveSignalHandler(int sig) {
  Grave *g = grave;
  if (g == nullptr) {
    elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n", "grave != 0", kSourceName,
             __LINE__);
  }
  g->signalled = 1;
  if (g->quit_flag != nullptr) *g->quit_flag = sig;
  if (g->seconds == 0) {
    bury();
    exit(1);
  }
  if (g->seconds > 0 && std_set_timer(g->seconds, ResurrectionAlarm) != 0) {
    elog_die(0, "failed to set timer");
  }
}

}  // namespace
}  // namespace elog
}  // namespace corvel

using namespace corvel::elog;

int exhume(const char *filename, int *quit_flag, int seconds, Mortician_fn mortician) {
  if (filename == nullptr || filename[0] == '\0') return -1;
  Grave *g;
  {
    GraveLock lock;
    if (grave != nullptr) return -2;
    g = static_cast<Grave *>(CV_CALLOC(1, sizeof(Grave), "grave"));
    grave = g;
  }
  // The grave is claimed: the files are opened and read without the lock, which the log may
  // need meanwhile.
  g->filename = CV_STRDUP(filename, "grave->filename");
  size_t length = strlen(filename);
  g->alternate = static_cast<char *>(CV_MALLOC(length + 2, "grave->alternate"));
  memcpy(g->alternate, filename, length);
  memcpy(g->alternate + length, "+", 2);
  g->relics = newarr(nullptr);
  g->quit_flag = quit_flag;
  if (quit_flag != nullptr) *quit_flag = 0;
  g->seconds = seconds;
  g->mortician = mortician;
  int result = OpenStateFile(g);
  {
    GraveLock lock;
    if (result < 0) {
      // Nothing to keep: a later exhume may try again.
      grave = nullptr;
      FreeGrave(g);
      return result;
    }
    g->ready = true;
  }
  if (quit_flag != nullptr) setup_signal_handlers(GraveSignalHandler);
  return result;
}

int resurrect(const char *name, void *variable, int type) {
  if (name == nullptr || variable == nullptr || type < RELIC_INT || type > RELIC_TIME) {
    elog_log(0, "resurrect: can't keep relic '%s' of type %d\n", name ? name : "(null)", type);
    return -1;
  }
  const char *text = nullptr;
  {
    GraveLock lock;
    Grave *g = grave;
    if (g == nullptr || !g->ready) return -1;
    Relic *relic = static_cast<Relic *>(CV_MALLOC(sizeof(Relic), "relic"));
    relic->variable = variable;
    relic->type = type;
    free(setarr(g->relics, name, relic));
    void *value = nullptr;
    if (g->pf != nullptr && pfget(g->pf, name, &value) == PFSTRING) {
      text = static_cast<const char *>(value);
    }
  }
  // The grave's tree is never freed: its texts outlive the lock.
  if (text == nullptr) return 1;
  switch (type) {
    case RELIC_INT:
      *static_cast<int *>(variable) = atoi(text);
      break;
    case RELIC_DOUBLE:
      *static_cast<double *>(variable) = atof(text);
      break;
    case RELIC_STRING:
      *static_cast<const char **>(variable) = text;
      break;
    case RELIC_TIME:
      *static_cast<double *>(variable) = str2epoch(text);
      break;
  }
  return 0;
}

int bury(void) {
  Failure failure;
  int result;
  {
    GraveLock lock;
    Grave *g = grave;
    if (g == nullptr || !g->ready) return -1;
    g->signalled = 0;
    Pf *pf = pfnew(PFFILE);
    if (g->mortician != nullptr) g->mortician(pf);
    applyarr(g->relics, PutRelic, pf);
    char *text = pf2string(pf);
    pffree(pf);
    result = ReplaceStateFile(g, text ? text : "", &failure);
    free(text);
  }
  failure.Report();
  return result;
}

const char *gravesite(void) {
  GraveLock lock;
  return grave != nullptr && grave->ready ? grave->filename : Gravesite;
}

void custom_gravesite(const char *name) {
  // The name set last is ours to free; one a program stored itself is not.
  static char *owned = nullptr;
  char *copy = name != nullptr ? CV_STRDUP(name, "Gravesite") : nullptr;
  GraveLock lock;
  if (Gravesite == owned) free(owned);
  Gravesite = owned = copy;
}
