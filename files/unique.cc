// Files with names that no other caller gets.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>

#include "corvel/elog.h"
#include "corvel/files.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "unique.c";

namespace {

// Names already taken (left by an earlier process with the same id) are skipped; this many
// in a row means something other than chance is in the way.
constexpr int kMaxAttempts = 10000;

std::atomic<unsigned long> g_counter{0};

}  // namespace

char *zqunique_filename(const char *prefix) {
  if (prefix == nullptr) prefix = "";
  const long pid = static_cast<long>(getpid());
  for (int attempt = 0; attempt < kMaxAttempts; attempt++) {
    unsigned long n = g_counter.fetch_add(1, std::memory_order_relaxed);
    int length = snprintf(nullptr, 0, "%s%ld_%lu", prefix, pid, n);
    char *name = static_cast<char *>(CV_MALLOC(static_cast<size_t>(length) + 1, "name"));
    snprintf(name, static_cast<size_t>(length) + 1, "%s%ld_%lu", prefix, pid, n);
    // Creating the file with O_EXCL claims the name: the check and the claim are one step.
    int fd;
    do {
      fd = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0664);
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0) {
      close(fd);
      return name;
    }
    const bool taken = errno == EEXIST;
    if (!taken || attempt + 1 == kMaxAttempts) {
      elog_log(1, "can't create a unique file %s", name);
      free(name);
      return nullptr;
    }
    free(name);
  }
  return nullptr;
}
