// The input of the parameter-file reader: text in memory, a descriptor or a stream.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "elog/oom.h"
#include "pf/scanner.h"

static constexpr char kSourceName[] = "pflex.c";

namespace corvel {
namespace pf {

namespace {

// Each read asks for at least this much, so that a file takes few system calls.
constexpr size_t kMinRead = 64 * 1024;

}  // namespace

TextSource::TextSource(const char *text, size_t length)
    : start_(text), end_(text + length), at_end_(true) {}

TextSource::TextSource(int fd, const char *name) : fd_(fd), name_(name) {
  capacity_ = 2 * kMinRead;
  buffer_ = static_cast<char *>(CV_MALLOC(capacity_, "pf input buffer"));
  start_ = end_ = buffer_;
}

TextSource::TextSource(FILE *stream, const char *name) : stream_(stream), name_(name) {
  capacity_ = 2 * kMinRead;
  buffer_ = static_cast<char *>(CV_MALLOC(capacity_, "pf input buffer"));
  start_ = end_ = buffer_;
}

TextSource::~TextSource() { free(buffer_); }

long TextSource::Read(char *into, size_t room) {
  if (stream_ != nullptr) {
    size_t n = fread(into, 1, room, stream_);
    if (n == 0 && ferror(stream_)) {
      elog_log(1, "read failed in pf input routine for file %s", name_);
      return -1;
    }
    return static_cast<long>(n);
  }
  ssize_t n;
  do {
    n = read(fd_, into, room);
  } while (n < 0 && errno == EINTR);
  if (n < 0) elog_log(1, "read failed in pf input routine for file %s", name_);
  return static_cast<long>(n);
}

bool TextSource::More(const char **keep, const char **end) {
  if (at_end_) return false;
  size_t kept = static_cast<size_t>(*end - *keep);
  size_t offset = static_cast<size_t>(*keep - buffer_);
  if (capacity_ - offset - kept < kMinRead) {
    // Little room is left behind the text: drop what the scanner is done with, and grow when
    // the text kept fills most of the buffer (a long line or a long literal).
    if (offset > 0) memmove(buffer_, *keep, kept);
    offset = 0;
    if (capacity_ - kept < kMinRead) {
      capacity_ = capacity_ * 2 > kept + kMinRead ? capacity_ * 2 : kept + kMinRead;
      buffer_ = static_cast<char *>(CV_REALLOC(buffer_, capacity_, "pf input buffer"));
    }
  }
  char *tail = buffer_ + offset + kept;
  long n = Read(tail, capacity_ - offset - kept);
  if (n <= 0) {
    at_end_ = true;
    n = 0;
  }
  start_ = buffer_ + offset;
  end_ = tail + n;
  *keep = start_;
  *end = end_;
  return n > 0;
}

}  // namespace pf
}  // namespace corvel
