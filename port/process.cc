// What the platform can tell about the running program and its host.
#include <dlfcn.h>
#include <execinfo.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "corvel/port.h"

const char *getexecname(void) {
  // The executable cannot change under a running process: read the link once.
  static const char *path = [] {
    static char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return static_cast<const char *>(nullptr);
    buf[n] = '\0';
    return static_cast<const char *>(buf);
  }();
  return path;
}

char *my_hostname(char *name, int size) {
  if (name == nullptr || size <= 0) return name;
  if (gethostname(name, static_cast<size_t>(size)) != 0) name[0] = '\0';
  name[size - 1] = '\0';
  return name;
}

void show_stack_trace(FILE *stream) {
  if (stream == nullptr) stream = stderr;
  void *frames[64];
  int n = backtrace(frames, 64);
  fflush(stream);
  // Skip this function's own frame.
  backtrace_symbols_fd(frames + 1, n - 1, fileno(stream));
}

void *std_dlopen(const char *name) {
  if (name == nullptr || name[0] == '\0') return nullptr;
  // A name with a '/' or a ".so" is a file name already.
  if (strchr(name, '/') != nullptr || strstr(name, ".so") != nullptr) {
    return dlopen(name, RTLD_NOW | RTLD_GLOBAL);
  }
  char file[PATH_MAX];
  snprintf(file, sizeof file, "lib%s.so", name);
  return dlopen(file, RTLD_NOW | RTLD_GLOBAL);
}

void show_fault(void *info, void *context) {
  const siginfo_t *si = static_cast<const siginfo_t *>(info);
  if (si == nullptr) return;
  if (si->si_code <= 0) {
    // Sent by a process (kill, raise, sigqueue): there is no faulting address.
    fprintf(stderr, "\tsignal %d, code %d, sent by process %ld\n", si->si_signo, si->si_code,
            static_cast<long>(si->si_pid));
  } else {
    fprintf(stderr, "\tsignal %d, code %d, fault address %p\n", si->si_signo, si->si_code,
            si->si_addr);
  }
  (void)context;
}
