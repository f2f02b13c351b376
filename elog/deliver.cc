// Where messages go: the destinations of a delivery list, the register's cap, the remote log
// service and the debugger.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "corvel/port.h"
#include "elog/internal.h"

namespace corvel {
namespace elog {
namespace {

constexpr char kQuitting[] =
    "%s: quitting because log has %d messages\n   eliminate this limit with\n      setenv "
    "ELOG_MAXMSG 0\n   or by editing elog.pf.  See elog(3).\n";

void AppendToFile(const char *path, long mark, const Elog_msg *record) {
  int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY, 0664);
  if (fd < 0) {
    fprintf(stderr, "Can't open error file '%s'\n", path);
    return;
  }
  Tbl *reg = Elog_tbl;
  for (long i = mark < 0 ? 0 : mark; i < reg->count; i++) {
    WriteRecord(fd, static_cast<Elog_msg *>(gettbl(reg, i)));
  }
  if (record != nullptr) WriteRecord(fd, record);
  if (close(fd) != 0) fprintf(stderr, "Can't close error file '%s'\n", path);
}

using RemoteLogFn = int (*)(const char *name, const char *program, const char *text);

RemoteLogFn RemoteLogEntry() {
  // Loaded once; each notice about a missing service is printed at most once per process.
  static RemoteLogFn entry = [] {
    void *library = std_dlopen("orb");
    if (library == nullptr) {
      fprintf(stderr,
              "Can't dynamically load library %s, error messages will be written to stderr.\n",
              "orb");
      return static_cast<RemoteLogFn>(nullptr);
    }
    void *symbol = dlsym(library, "orbelog");
    if (symbol == nullptr) {
      const char *why = dlerror();
      fprintf(stderr,
              "Can't find %s in library %s: %s,\n\terror messages will be written to stderr.\n",
              "orbelog", "orb", why ? why : "");
    }
    return reinterpret_cast<RemoteLogFn>(symbol);
  }();
  return entry;
}

void SendRemote(const char *name, long mark, const Elog_msg *record) {
  char *text = RenderRegister(mark, record);
  // The remote call may take long: other threads may log meanwhile.
  Lock().Unlock();
  call_orbelog(name, Program_Name, text);
  Lock().Lock();
  free(text);
}

// The register is full: deliver to the die destinations, say why, and end the process.
[[noreturn]] void QuitOnFullRegister(Elog_msg *record) {
  int count = static_cast<int>(Elog_tbl->count);
  elog_deliver(g_deliver[ELOG_DIE], 0, record);
  char tag[kTagBufferSize + 1];
  elog_expand(g_tag[ELOG_DIE], ELOG_DIE, tag, sizeof tag);
  fprintf(stderr, kQuitting, tag, count);
  bury();
  if (fflush(nullptr) != 0) {
    int err = errno;
    fprintf(stderr, "fflush(0) failed: %ld : %s\n", static_cast<long>(EOF), strerror(err));
  }
  exit(1);
}

bool WordIs(const char *word, size_t length, const char *name) {
  return strlen(name) == length && strncmp(word, name, length) == 0;
}

}  // namespace

void RunDebugger(const char *command) {
  if (!Debugger_running) {
    char expanded[1024];
    elog_expand(command, ELOG_DEBUGGING, expanded, sizeof expanded);
    fprintf(stderr, "Running debugger: '%s'\n", expanded);
    if (system(expanded) != 0) elog_fatal("Can't run debugger '%s'\n", expanded);
    Debugger_running = 1;
  } else {
    // The debugger started earlier takes over from here.
    raise(SIGSTOP);
  }
  SleepSeconds(Elog_wait);
}

}  // namespace elog
}  // namespace corvel

using namespace corvel::elog;

void elog_deliver(const char *list, int mark, Elog_msg *record) {
  bool delivered = false;
  const char *p = list ? list : "";
  while (*p != '\0') {
    p += strspn(p, " \t");
    size_t length = strcspn(p, " \t");
    if (length == 0) break;
    char word[4096];
    size_t kept = length < sizeof word ? length : sizeof word - 1;
    memcpy(word, p, kept);
    word[kept] = '\0';
    p += length;

    if (WordIs(word, length, "stderr")) {
      PrintRegister(stderr, mark, record);
      delivered = true;
    } else if (WordIs(word, length, "stdout")) {
      PrintRegister(stdout, mark, record);
      delivered = true;
    } else if (WordIs(word, length, "/dev/null")) {
      delivered = true;
    } else if (word[0] == '/' || word[0] == '.') {
      AppendToFile(word, mark, record);
      delivered = true;
    } else if (WordIs(word, length, "log")) {
      // Stays in the register.
    } else if (strncmp(word, "orb:", 4) == 0) {
      SendRemote(word + 4, mark, record);
      delivered = true;
    } else if (word[0] == 'o') {
      // Reserved for other remote services: ignored.
    } else {
      fprintf(stderr, "unrecognized delivery '%s'\n", word);
      if (word[0] != 'l') delivered = true;
    }
  }

  if (delivered) {
    TruncateRegister(mark);
    elog_free_msg(record);
    return;
  }
  if (record == nullptr) return;
  // Kept messages are capped: a program that only ever logs would otherwise grow forever.
  static int depth = 0;
  if (Max_msg >= 1 && Elog_tbl->count >= Max_msg && depth == 0) {
    depth++;
    QuitOnFullRegister(record);
  }
  pushtbl(Elog_tbl, record);
}

int elog_expand(const char *tag_template, int severity, char *out, int size) {
  if (out == nullptr || size <= 0) return 0;
  int length = 0;
  // Copies text, bounded by the room left in out.
  auto append = [&](const char *text, size_t n) {
    size_t room = static_cast<size_t>(size - 1 - length);
    if (n > room) n = room;
    memcpy(out + length, text, n);
    length += static_cast<int>(n);
  };
  auto append_str = [&](const char *text) { append(text, strlen(text)); };
  char scratch[256];
  const char *p = tag_template ? tag_template : "";
  while (*p != '\0') {
    if (*p != '%' || p[1] == '\0') {
      append(p++, 1);
    } else {
      char code = p[1];
      p += 2;
      switch (code) {
        case 'P':
          append_str(Program_Name);
          break;
        case 'p':
          snprintf(scratch, sizeof scratch, "%d", static_cast<int>(getpid()));
          append_str(scratch);
          break;
        case 'h':
          append_str(my_hostname(scratch, sizeof scratch));
          break;
        case 'r':
          append_str(elog_cmdline());
          break;
        case 'a':
          for (int i = 1; i < Argc && Argv != nullptr && Argv[i] != nullptr; i++) {
            append_str(Argv[i]);
            append(" ", 1);
          }
          break;
        case 'e':
          snprintf(scratch, 65, "%10.6f", std_now() - Elog_reference_time);
          append_str(scratch);
          break;
        case 't':
        case 'u': {
          time_t now = time(nullptr);
          struct tm parts;
          if (code == 't') {
            localtime_r(&now, &parts);
          } else {
            gmtime_r(&now, &parts);
          }
          size_t n = strftime(scratch, 65, code == 't' ? Elog_t_format : Elog_u_format, &parts);
          append(scratch, n);
          break;
        }
        case 's':
          append_str(severity >= 0 && severity < ELOG_NSEVERITY ? kSeverityName[severity]
                                                                : "<BAD>");
          break;
        case 'T':
          snprintf(scratch, sizeof scratch, "%lu", static_cast<unsigned long>(pthread_self()));
          append_str(scratch);
          break;
        default:  // "%%" and unknown codes: the character alone
          append(&code, 1);
          break;
      }
    }
    if (length > size - 100) break;
  }
  if (length >= size - 5) {
    static constexpr char kCut[] = " *...";
    length = size - static_cast<int>(sizeof kCut);
    if (length < 0) length = 0;
    append_str(kCut);
  }
  out[length] = '\0';
  return length;
}

void call_orbelog(const char *name, const char *program, const char *text) {
  RemoteLogFn entry = RemoteLogEntry();
  if (entry != nullptr) {
    entry(name, program, text);
  } else {
    fprintf(stderr, "%s: %s\n", program, text);
  }
}

void elog_debugger(void) {
  char command[ELOG_SLOT_SIZE];
  {
    ScopedLogLock lock;
    CopySlot(command, g_debug[ELOG_FAULT]);
  }
  if (command[0] != '\0') RunDebugger(command);
}
