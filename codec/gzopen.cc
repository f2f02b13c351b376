// Reading files that may be compressed: the name's ending picks the command that expands them
// through the shell, into a temporary file or a pipe; other files are opened as they are.
//
// The temporary file is made by mkostemp, so no other process can slip in a file of the same
// name, and the command writes into that existing file. It is opened again for reading and its
// name removed at once: the data stays reachable until the caller closes the stream.
//
// Paths go into the command as they are, unquoted, so a path that the shell would read as more
// than a file name is refused before anything runs: blanks and control characters, quotes,
// the backslash, the characters that start expansions, globs, redirections, pipes, lists,
// groups, comments and history references. Such paths are refused whatever their ending, so
// that one name is either supported by every function or by none. A compressed file's path
// may not begin with '-' either, which the expanding command would take for an option.
#include "corvel/gzopen.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "elog/oom.h"

static constexpr char kSourceName[] = "gz_open.c";

namespace corvel {
namespace codec {
namespace {

enum class Kind { kPlain, kCompress, kGzip, kBzip2 };

bool EndsWith(const char *s, size_t n, const char *suffix) {
  const size_t k = strlen(suffix);
  return n >= k && memcmp(s + n - k, suffix, k) == 0;
}

// The endings are compared exactly: "x.GZ" is a plain file.
Kind KindOf(const char *path) {
  const size_t n = strlen(path);
  if (EndsWith(path, n, ".Z")) return Kind::kCompress;
  if (EndsWith(path, n, ".gz")) return Kind::kGzip;
  if (EndsWith(path, n, ".bz2")) return Kind::kBzip2;
  return Kind::kPlain;
}

bool Supported(const char *path) {
  if (path == nullptr) return false;
  for (const char *p = path; *p != '\0'; p++) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (c <= ' ' || c == 0x7F || strchr("\"'\\$`;&|<>(){}[]*?!~#^", c) != nullptr) return false;
  }
  return true;
}

bool SafeForShell(const char *path) { return path[0] != '\0' && path[0] != '-' && Supported(path); }

// Runs the command made from format, path and temporary (in that order) and returns a
// read-only descriptor of the temporary file whose name is already gone; -1 when it cannot be
// made or opened again. What the command itself does is not examined: a failed expansion
// leaves an empty or partial file, which is read all the same.
int ExpandToTemporary(const char *format, const char *path, const char *prefix) {
  char temporary[64];
  snprintf(temporary, sizeof temporary, "/var/tmp/%sXXXXXX", prefix);
  const int made = mkostemp(temporary, O_CLOEXEC);  // the command's shell needs none of it
  if (made < 0) return -1;
  const size_t size = strlen(format) + strlen(path) + strlen(temporary) + 1;
  char *command = static_cast<char *>(CV_MALLOC(size, "command"));
  snprintf(command, size, format, path, temporary);
  const int status = system(command);
  (void)status;
  free(command);
  const int fd = open(temporary, O_RDONLY);
  unlink(temporary);
  close(made);
  return fd;
}

const char *TemporaryFormat(Kind kind, bool gunzip_for_compress) {
  switch (kind) {
    case Kind::kCompress:
      return gunzip_for_compress ? "gunzip < %s > %s" : "zcat %s > %s";
    case Kind::kGzip:
      return "gunzip < %s > %s";
    case Kind::kBzip2:
      return "bzcat %s > %s";
    default:
      return nullptr;
  }
}

// The descriptor for gz_openfd, and under the streams of gz_open and zopen.
int OpenExpanded(const char *path, bool gunzip_for_compress, const char *prefix) {
  if (!Supported(path)) return -1;
  const Kind kind = KindOf(path);
  if (kind == Kind::kPlain) return open(path, O_RDONLY);
  if (!SafeForShell(path)) return -1;
  return ExpandToTemporary(TemporaryFormat(kind, gunzip_for_compress), path, prefix);
}

FILE *StreamOf(int fd) {
  if (fd < 0) return nullptr;
  FILE *f = fdopen(fd, "r");
  if (f == nullptr) close(fd);
  return f;
}

}  // namespace
}  // namespace codec
}  // namespace corvel

namespace cc = corvel::codec;

FILE *gz_open(const char *path) {
  if (cc::Supported(path) && cc::KindOf(path) == cc::Kind::kPlain) return fopen(path, "r");
  return cc::StreamOf(cc::OpenExpanded(path, false, "jstmp"));
}

int gz_openfd(const char *path) { return cc::OpenExpanded(path, false, "gzO"); }

FILE *zopen(const char *path) {
  if (cc::Supported(path) && cc::KindOf(path) == cc::Kind::kPlain) return fopen(path, "r");
  return cc::StreamOf(cc::OpenExpanded(path, true, "jstmp"));
}

FILE *gz_cat(const char *path) {
  if (!cc::Supported(path)) return nullptr;
  const char *format;
  switch (cc::KindOf(path)) {
    case cc::Kind::kCompress:
      format = "zcat %s";
      break;
    case cc::Kind::kGzip:
      format = "gunzip < %s";
      break;
    case cc::Kind::kBzip2:
      format = "bzcat %s";
      break;
    default:
      return fopen(path, "r");
  }
  if (!cc::SafeForShell(path)) return nullptr;
  const size_t size = strlen(format) + strlen(path) + 1;
  char *command = static_cast<char *>(CV_MALLOC(size, "command"));
  snprintf(command, size, format, path);
  FILE *pipe = popen(command, "r");
  free(command);
  return pipe;
}
