// Setting up the log and the process frame, and what the log tells about the running program.
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "corvel/files.h"
#include "corvel/pf.h"
#include "corvel/port.h"
#include "corvel/time.h"
#include "elog/internal.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "elog.c";

namespace {

// The copy of the arguments the log made last; freed when it makes another, unless a caller
// has replaced Argv meanwhile.
char **g_argv_copy = nullptr;

void CopyArguments(int argc, char **argv) {
  char **copy = static_cast<char **>(CV_MALLOC((argc + 1) * sizeof(char *), "Argv"));
  int n = 0;
  while (n < argc && argv != nullptr && argv[n] != nullptr) {
    copy[n] = CV_STRDUP(argv[n], "Argv");
    n++;
  }
  copy[n] = nullptr;
  if (g_argv_copy != nullptr && Argv == g_argv_copy) {
    for (char **p = g_argv_copy; *p != nullptr; p++) free(*p);
    free(g_argv_copy);
  }
  Argv = g_argv_copy = copy;
  Argc = n;
}

// Sets Program_Name and Program_Dir; the log's lock must be held, since every tag that names
// the program reads them while another thread may be initialising.
void SetProgramName(char **argv) {
  const char *path = getexecname();
  if (path != nullptr && strlen(path) < sizeof Program_Name) {
    char dir[sizeof Program_Dir];
    char base[sizeof Program_Name];
    dirbase(path, dir, base);
    memcpy(Program_Dir, dir, sizeof dir);
    memcpy(Program_Name, base, sizeof base);
  } else {
    strcpy(Program_Dir, "Unknown_Directory");
    strcpy(Program_Name, "Unknown_Program");
  }
  if (Program_Name[0] == '\0' && argv != nullptr && argv[0] != nullptr) {
    snprintf(Program_Name, sizeof Program_Name, "%s", argv[0]);
  }
}

// Looks a command name up along PATH; fills found and returns true when a readable file is
// found.
bool FindOnPath(const char *name, char *found, size_t size) {
  const char *path = getenv("PATH");
  if (path == nullptr) return false;
  while (*path != '\0') {
    size_t length = strcspn(path, ":");
    if (length > 0) {
      int n = snprintf(found, size, "%.*s/%s", static_cast<int>(length), path, name);
      if (n > 0 && static_cast<size_t>(n) < size && access(found, R_OK) == 0) return true;
    }
    path += length;
    if (*path == ':') path++;
  }
  return false;
}

}  // namespace

int elog_init(int argc, char **argv) {
  using namespace corvel::elog;
  int saved = errno;
  // Initialisation never waits: one already running (in another thread, or further up this
  // thread's stack) does the work.
  static pthread_mutex_t init_mutex = PTHREAD_MUTEX_INITIALIZER;
  if (pthread_mutex_trylock(&init_mutex) != 0) return 0;

  if (argc > 0) CopyArguments(argc, argv);
  const char *reference = getenv("ELOG_REFERENCE_TIME");
  double reference_time =
      reference != nullptr && reference[0] != '\0' ? str2epoch(reference) : std_now();
  // What tags read is written only under the log's lock: another thread may be logging while
  // this one initialises (it found initialisation under way and went on). The name is set
  // before the configuration is read, so that messages about the file carry it; when another
  // thread holds the lock just then, it is set below.
  bool mine = Lock().HeldByMe();  // called from inside the log
  bool named = mine || Lock().TryLock();
  if (named) {
    SetProgramName(argv);
    Elog_reference_time = reference_time;
    if (!mine) Lock().Unlock();
  }

  Pf *config = Elog_init ? nullptr : ReadConfigFile();
  if (Lock().TryLock()) {
    if (!named) {
      SetProgramName(argv);
      Elog_reference_time = reference_time;
    }
    if (!Elog_init) {
      ConfigureOnce(config);
      __atomic_store_n(&Elog_init, 1, __ATOMIC_RELEASE);
    }
    ConfigureFromEnvironment();
    Lock().Unlock();
  }
  pffree(config);
  errno = saved;
  pthread_mutex_unlock(&init_mutex);
  return 0;
}

char *elog_cmdline(void) {
  // The program's file does not change while it runs: found once.
  static char *path = [] {
    static char found[PATH_MAX];
    const char *name = getexecname();
    if (name == nullptr && Argv != nullptr && Argv[0] != nullptr) name = Argv[0];
    if (name == nullptr && Program_Name[0] != '\0' && strcmp(Program_Name, "***") != 0) {
      name = Program_Name;
    }
    if (name != nullptr && name[0] != '/' && name[0] != '.') {
      name = FindOnPath(name, found, sizeof found) ? found : nullptr;
    }
    if (name == nullptr) name = "*?program?*";
    if (name != found) snprintf(found, sizeof found, "%s", name);
    return found;
  }();
  return path;
}

char *elog_commandline_str(void) {
  char line[1024] = "";
  size_t used = 0;
  auto append = [&](const char *text) {
    size_t n = strlen(text);
    if (n > sizeof line - 1 - used) n = sizeof line - 1 - used;
    memcpy(line + used, text, n);
    used += n;
    line[used] = '\0';
  };
  append("\n--> ");
  append(Program_Name);
  for (int i = 1; i < Argc && Argv != nullptr && Argv[i] != nullptr; i++) {
    append(" ");
    append(Argv[i]);
  }
  append(" <#>\n\n");
  return CV_STRDUP(line, "s");
}

void elog_commandline(void) {
  using namespace corvel::elog;
  EnsureInitialized();
  Elog_msg record = {};
  record.msg = elog_commandline_str();
  record.severity = ELOG_NOTIFY;
  record.count = 1;
  record.thread = pthread_self();
  ScopedLogLock lock;
  elog_deliver(g_deliver[ELOG_NOTIFY], 0, &record);
}

void elog2stderr(void) {
  using namespace corvel::elog;
  setenv("ELOG_DELIVER", "stderr@ncdfDa", 1);
  if (!Elog_init) return;
  ScopedLogLock lock;
  for (int severity = ELOG_DEBUGGING; severity < ELOG_NSEVERITY; severity++) {
    CopySlot(g_deliver[severity], "stderr");
  }
}
