// For the command's tests: runs the built corvel with a shell command line.
#ifndef CORVEL_TOOLS_RUN_CORVEL_H_
#define CORVEL_TOOLS_RUN_CORVEL_H_

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace corvel {
namespace tools {

struct Result {
  int status;
  std::string out;  // stdout, with stderr too unless the two were kept apart
  std::string err;
};

inline std::string ReadAll(FILE *stream) {
  std::string text;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, stream)) > 0) text.append(buf, n);
  return text;
}

// stdout and stderr together in out, or, with apart, stderr in err.
inline Result RunCorvel(const std::string &arguments, bool apart = false) {
  char err_path[] = "/tmp/corvel_stderr.XXXXXX";
  int err_fd = apart ? mkstemp(err_path) : -1;
  std::string command = "TZ=America/New_York " CORVEL_BINARY_DIR "/corvel " + arguments +
                        (err_fd >= 0 ? std::string(" 2>") + err_path : " 2>&1");
  FILE *pipe = popen(command.c_str(), "r");
  Result result = {-1, ReadAll(pipe), ""};
  int status = pclose(pipe);
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  if (err_fd >= 0) {
    FILE *err = fdopen(err_fd, "r");
    result.err = ReadAll(err);
    fclose(err);
    unlink(err_path);
  }
  return result;
}

}  // namespace tools
}  // namespace corvel

#endif  // CORVEL_TOOLS_RUN_CORVEL_H_
