// Local programs that stand in for a server: run with their standard input and output on one
// end of a socket pair, the caller holding the other end as it would hold a connection.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/net.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "zq_open_socket.c";

namespace corvel {
namespace net {
namespace {

// The longest option text taken from after the '@' of an argument.
constexpr size_t kMaxOption = 1022;

// In the child, between fork and exec: no allocation and no stdio streams, since another
// thread of the parent may have held their locks at the moment of the fork.
[[noreturn]] void RunChild(char **argv, int parent_end, int own_end) {
  close(parent_end);
  if (dup2(own_end, STDIN_FILENO) < 0 || dup2(own_end, STDOUT_FILENO) < 0) _exit(1);
  if (own_end > STDOUT_FILENO) close(own_end);
  if (argv[1] != nullptr && argv[1][0] == '-' && strchr(argv[1], 'V') != nullptr) {
    char line[4096];
    int n = snprintf(line, sizeof line, "(%s %s %s) spawned\n", argv[0], argv[1],
                     argv[2] != nullptr ? argv[2] : "");
    if (n > 0) {
      ssize_t ignored =
          write(STDERR_FILENO, line,
                static_cast<size_t>(n) < sizeof line ? static_cast<size_t>(n) : sizeof line - 1);
      (void)ignored;
    }
  }
  execvp(argv[0], argv);
  _exit(1);
}

}  // namespace
}  // namespace net
}  // namespace corvel

int zq_spawn(char **argv) {
  if (argv == nullptr || argv[0] == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) < 0) {
    elog_log(1, "Couldn't open socketpair for subprocess '%s'\n", argv[0]);
    return -1;
  }
  pid_t pid = fork();
  if (pid == 0) corvel::net::RunChild(argv, ends[0], ends[1]);
  close(ends[1]);
  if (pid < 0) {
    elog_log(1, "Couldn't fork subprocess '%s'\n", argv[0]);
    close(ends[0]);
    return -1;
  }
  return ends[0];
}

int zq_exec_subprogram(const char *program, const char *arg) {
  if (program == nullptr) program = "";
  char *path;
  if (program[0] == '/') {
    path = CV_STRDUP(program, "program");
  } else {
    char *bin = concatpaths(getvelmora(), "bin");
    path = concatpaths(bin, program);
    free(bin);
  }
  if (arg == nullptr) arg = "";
  char *before = nullptr;
  char option[corvel::net::kMaxOption + 2] = "-";
  char *argv[4] = {path, const_cast<char *>(arg), nullptr, nullptr};
  if (const char *at = strrchr(arg, '@')) {
    snprintf(option + 1, sizeof option - 1, "%s", at + 1);
    before = static_cast<char *>(CV_MALLOC(static_cast<size_t>(at - arg) + 1, "argument"));
    memcpy(before, arg, static_cast<size_t>(at - arg));
    before[at - arg] = '\0';
    argv[1] = option;
    argv[2] = before;
  }
  int fd = zq_spawn(argv);
  free(before);
  free(path);
  return fd;
}
