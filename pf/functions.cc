// The deferred &functions that run commands, read files, consult the environment and ask the
// person at the terminal.
#include "pf/functions.h"

#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/text.h"
#include "elog/oom.h"
#include "pf/config.h"
#include "pf/internal.h"

static constexpr char kSourceName[] = "pfinterpret.c";

namespace corvel {
namespace pf {
namespace {

// A command's output arrives in pieces of this size.
constexpr size_t kOutputPiece = 255;
// The longest answer read from the terminal, without its newline.
constexpr size_t kMaxAnswer = 1023;

char *CopyPrefix(const char *text, size_t length) {
  char *copy = static_cast<char *>(CV_MALLOC(length + 1, "pf function"));
  memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

// A new string node that takes over text.
Pf *AdoptString(char *text) {
  Pf *node = pfnew(PFSTRING);
  node->value.s = text;
  return node;
}

// The whole contents of the file at path as a new string, or null after a message in the log.
char *ReadContents(const char *path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    elog_log(1, "Can't open '%s'", path);
    return nullptr;
  }
  struct stat status;
  // Room for the whole file, the terminator and one more byte, so that the read which
  // reports the end needs no second buffer.
  size_t capacity = fstat(fd, &status) == 0 && status.st_size > 0
                        ? static_cast<size_t>(status.st_size) + 2
                        : 4096;
  char *contents = static_cast<char *>(CV_MALLOC(capacity, "file contents"));
  size_t length = 0;
  for (;;) {
    if (length + 1 == capacity) {
      capacity *= 2;
      contents = static_cast<char *>(CV_REALLOC(contents, capacity, "file contents"));
    }
    ssize_t n = read(fd, contents + length, capacity - 1 - length);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      elog_log(1, "Can't read '%s'", path);
      close(fd);
      free(contents);
      return nullptr;
    }
    length += static_cast<size_t>(n);
  }
  close(fd);
  contents[length] = '\0';
  return contents;
}

// The file's contents as a string node; when it cannot be read, "** " and the messages the
// failure left in the log, which are taken out of the log again.
Pf *ContentsNode(const char *path) {
  int mark = elog_mark();
  char *contents = ReadContents(path);
  if (contents != nullptr) return AdoptString(contents);
  char *messages = elog_string(mark);
  elog_truncate(mark);
  Pf *node = AdoptString(strconcat("** ", messages, nullptr));
  free(messages);
  return node;
}

// The path a &file or &filename names: environment references replaced, and a relative path
// taken from the directory of the parameter file that defined the entry.
char *ResolvePath(const Pf *node, const char *text) {
  char *argument = FunctionArgument(text);
  char *path = expand_env(argument);
  free(argument);
  const char *defined_in = node->filename;
  const char *slash = defined_in != nullptr ? strrchr(defined_in, '/') : nullptr;
  if (path[0] == '/' || slash == nullptr) return path;
  char *directory = CopyPrefix(defined_in, slash == defined_in ? 1 : slash - defined_in);
  char *joined = concatpaths(directory, path);
  free(directory);
  free(path);
  return joined;
}

// The argument of a function that takes a name, without surrounding blanks.
char *NameArgument(const char *text) { return strtrim(FunctionArgument(text)); }

// What &ask shows: the text in its parentheses; for "&ask()" the text after the first '#',
// where the reader left the line's comment; for any other form the whole text less a final
// ')'.
char *AskPrompt(const char *text) {
  if (strncmp(text, "&ask()", 6) == 0) {
    const char *hash = strchr(text, '#');
    return CV_STRDUP(hash != nullptr ? hash + 1 : "", "prompt");
  }
  if (strncmp(text, "&ask(", 5) == 0) {
    const char *start = text + 5;
    return CopyPrefix(start, strchrnul(start, ')') - start);
  }
  size_t length = strlen(text);
  if (length > 0 && text[length - 1] == ')') length--;
  return CopyPrefix(text, length);
}

char *AskTerminal(const char *prompt) {
  FILE *tty = fopen("/dev/tty", "r+e");
  if (tty == nullptr) elog_die(0, "Can't open /dev/tty for prompt.\n");
  fprintf(tty, "%s : ", prompt);
  fflush(tty);
  char line[kMaxAnswer + 1];
  if (fgets(line, sizeof line, tty) == nullptr) line[0] = '\0';
  fclose(tty);
  size_t length = strlen(line);
  if (length > 0) line[length - 1] = '\0';  // the newline
  return CV_STRDUP(line, "answer");
}

}  // namespace

char *FunctionArgument(const char *text) {
  const char *open = strchr(text, '(');
  if (open == nullptr) return CV_STRDUP("", "pf function");
  const char *close = strrchr(open, ')');
  if (close == nullptr) close = open + strlen(open);
  return CopyPrefix(open + 1, close - open - 1);
}

Pf *NewInvalidNode(const char *format, const char *text) {
  int length = snprintf(nullptr, 0, format, text);
  char *message = static_cast<char *>(CV_MALLOC(length + 1, "pf->value.s"));
  snprintf(message, length + 1, format, text);
  Pf *node = pfnew(PFINVALID);
  node->value.s = message;
  return node;
}

Pf *EvaluateExec(Pf *node, const char *text) {
  char *command = FunctionArgument(text);
  FILE *pipe = popen(command, "re");
  free(command);
  if (pipe == nullptr) return NewStringNode("", nullptr);
  size_t capacity = 4 * kOutputPiece;
  char *output = static_cast<char *>(CV_MALLOC(capacity, "command output"));
  size_t length = 0;
  for (;;) {
    if (length + kOutputPiece + 1 > capacity) {
      capacity *= 2;
      output = static_cast<char *>(CV_REALLOC(output, capacity, "command output"));
    }
    size_t n = fread(output + length, 1, kOutputPiece, pipe);
    length += n;
    if (n < kOutputPiece) {
      // A signal handler may interrupt the read before the command has finished.
      if (!ferror(pipe) || errno != EINTR) break;
      clearerr(pipe);
    }
  }
  int status = pclose(pipe);
  if (length > 0 && output[length - 1] == '\n') length--;
  output[length] = '\0';
  Pf *result = AdoptString(output);
  // -1 tells only that the status could not be collected (the program may ignore SIGCHLD),
  // not that the command failed.
  if (status != 0 && status != -1) result->type = PFEXEC_ERROR;
  return result;
}

Pf *EvaluateGlob(Pf *node, const char *text) {
  char *pattern = NameArgument(text);
  Pf *list = pfnew(PFTBL);
  glob_t matches;
  if (glob(pattern, 0, nullptr, &matches) == 0) {
    for (size_t i = 0; i < matches.gl_pathc; i++) {
      pushtbl(list->value.tbl, NewStringNode(matches.gl_pathv[i], list));
    }
    globfree(&matches);
  }
  free(pattern);
  return list;
}

Pf *EvaluateFile(Pf *node, const char *text) {
  char *path = ResolvePath(node, text);
  Pf *result = ContentsNode(path);
  free(path);
  return result;
}

Pf *EvaluateFilename(Pf *node, const char *text) { return AdoptString(ResolvePath(node, text)); }

Pf *EvaluateDatafile(Pf *node, const char *text) {
  char *name = NameArgument(text);
  char *path = datafile(nullptr, name);
  Pf *result;
  if (path == nullptr) {
    result = AdoptString(strconcat("** no datafile '", name, "' found", nullptr));
  } else {
    result = ContentsNode(path);
    free(path);
  }
  free(name);
  return result;
}

Pf *EvaluateDatafilename(Pf *node, const char *text) {
  char *name = NameArgument(text);
  char *path = datafile(nullptr, name);
  free(name);
  return path != nullptr ? AdoptString(path) : NewStringNode("", nullptr);
}

Pf *EvaluateEnv(Pf *node, const char *text) {
  char *name = NameArgument(text);
  const char *value = getenv(name);
  free(name);
  return NewStringNode(value != nullptr ? value : "", nullptr);
}

Pf *EvaluateAsk(Pf *node, const char *text) {
  char *prompt = AskPrompt(text);
  Pf_ask_fn ask = CurrentAskFunction();
  Pf *result;
  if (ask != nullptr) {
    // The answer stays the prompt function's.
    const char *answer = ask(prompt);
    result = NewStringNode(answer != nullptr ? answer : "", nullptr);
  } else {
    result = AdoptString(AskTerminal(prompt));
  }
  free(prompt);
  return result;
}

}  // namespace pf
}  // namespace corvel
