// For the ring tests: the register, file bytes, and another process holding a file's lock.
#ifndef CORVEL_NUMERIC_RING_TEST_SUPPORT_H_
#define CORVEL_NUMERIC_RING_TEST_SUPPORT_H_

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "corvel/elog.h"

namespace corvel {
namespace numeric {

// The messages kept so far, which are then dropped.
inline std::string Register() {
  char *s = elog_string(0);
  std::string text(s != nullptr ? s : "");
  free(s);
  elog_clear();
  return text;
}

inline std::string ReadFile(const std::string &path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

// Overwrites n bytes of a file at offset, as another process could.
inline void Patch(const std::string &path, long offset, const void *bytes, size_t n) {
  std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
      .seekp(offset)
      .write(static_cast<const char *>(bytes), static_cast<std::streamsize>(n));
}

// A child process that holds an exclusive lock on a file while this object lives: locks
// belong to processes, so the test's own process would always be granted it again.
class LockHolder {
 public:
  explicit LockHolder(const std::string &path) {
    int ready[2], release[2];
    if (pipe(ready) != 0 || pipe(release) != 0) abort();
    if ((pid_ = fork()) == 0) {
      close(release[1]);  // the parent's end closing is the signal to let go
      const int fd = open(path.c_str(), O_RDWR);
      const char locked = fd >= 0 && lockf(fd, F_LOCK, 0) == 0 ? 'y' : 'n';
      char c;
      _exit(write(ready[1], &locked, 1) == 1 && read(release[0], &c, 1) >= 0 ? 0 : 1);
    }
    close(ready[1]);
    close(release[0]);
    release_ = release[1];
    char locked = 'n';
    locked_ = read(ready[0], &locked, 1) == 1 && locked == 'y';
    close(ready[0]);
  }
  ~LockHolder() {
    close(release_);
    waitpid(pid_, nullptr, 0);
  }
  bool locked() const { return locked_; }

 private:
  pid_t pid_;
  int release_;
  bool locked_;
};

}  // namespace numeric
}  // namespace corvel

#endif  // CORVEL_NUMERIC_RING_TEST_SUPPORT_H_
