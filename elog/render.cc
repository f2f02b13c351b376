// How messages are formatted, and how records are printed to streams, written to files and
// rendered as text.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "elog/internal.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "elog.c";

namespace corvel {
namespace elog {
namespace {

constexpr char kTruncationMarker[] = "\n\t...  ** truncated by elog ***\n";
constexpr char kRepeatFormat[] = "\t** repeated %d times\n";

bool HasTag(const Elog_msg *record) { return record->tag != nullptr && record->tag[0] != '\0'; }

void FlushReporting(FILE *stream, const char *what) {
  if (fflush(stream) != 0) {
    int err = errno;
    fprintf(stderr, what, static_cast<long>(EOF), strerror(err));
  }
}

void FreeRecordTexts(void *record) { elog_free_msg(static_cast<Elog_msg *>(record)); }

}  // namespace

int FormatMessage(char *buf, const char *fmt, va_list ap) {
  if (fmt == nullptr || fmt[0] == '\0') {
    strcpy(buf, "\n");
    return 1;
  }
  int would_be = vsnprintf(buf, kMessageBufferSize - 2, fmt, ap);
  int length;
  if (would_be < 0) {
    buf[0] = '\0';
    length = 0;
  } else if (would_be > kMessageBufferSize) {
    // Messages longer than the buffer end with a marker; those that only just overflow it
    // are cut by vsnprintf alone.
    constexpr int marker_length = sizeof kTruncationMarker - 1;
    length = kMessageBufferSize - 1;
    memcpy(buf + length - marker_length, kTruncationMarker, marker_length + 1);
  } else {
    length = would_be < kMessageBufferSize - 3 ? would_be : kMessageBufferSize - 3;
  }
  if (length > 0 && buf[length - 1] != '\n') {
    buf[length++] = '\n';
    buf[length] = '\0';
  }
  return length;
}

void SystemMessage(int err, char *out, size_t size) {
  char scratch[256];
  const char *text = strerror_r(err, scratch, sizeof scratch);
  if (text == nullptr || strcmp(text, "Unknown error") == 0) {
    snprintf(out, size, "Unknown error: %d", err);
  } else {
    snprintf(out, size, "%s", text);
  }
}

void PrintRecord(FILE *stream, const Elog_msg *record) {
  if (HasTag(record)) {
    fputs(record->tag, stream);
    fputs(": ", stream);
  }
  fputs(record->msg, stream);
  if (record->sys != nullptr) fprintf(stream, "\t%s\n", record->sys);
  if (record->count > 1) fprintf(stream, kRepeatFormat, record->count);
}

void PrintRegister(FILE *stream, long mark, const Elog_msg *extra) {
  if (!Elog_init) return;
  if (stream == stderr) FlushReporting(stdout, "fflush(stdout) failed: %ld : %s\n");
  Tbl *reg = Elog_tbl;
  for (long i = mark < 0 ? 0 : mark; i < reg->count; i++) {
    PrintRecord(stream, static_cast<Elog_msg *>(gettbl(reg, i)));
  }
  if (extra != nullptr) PrintRecord(stream, extra);
  FlushReporting(stream, "fflush() failed: %ld : %s\n");
  errno = 0;
}

void WriteRecord(int fd, const Elog_msg *record) {
  // One buffer serves every write to a file: the lock is held.
  static char *line = nullptr;
  static size_t line_size = 0;
  size_t needed = (record->tag ? strlen(record->tag) : 0) + strlen(record->msg) +
                  (record->sys ? strlen(record->sys) : 0) + 100;
  if (needed > line_size) {
    line_size = needed * 2 > 1024 ? needed * 2 : 1024;
    free(line);
    line = static_cast<char *>(CV_MALLOC(line_size, "buf"));
  }
  int n = HasTag(record) ? snprintf(line, line_size, "%s: %s", record->tag, record->msg)
                         : snprintf(line, line_size, "%s", record->msg);
  if (record->sys != nullptr) n += snprintf(line + n, line_size - n, "\t##=> %s\n", record->sys);
  if (record->count > 1) n += snprintf(line + n, line_size - n, kRepeatFormat, record->count);
  const char *p = line;
  size_t left = static_cast<size_t>(n);
  while (left > 0) {
    ssize_t written = write(fd, p, left);
    if (written < 0) {
      if (errno == EINTR) continue;
      break;
    }
    p += written;
    left -= static_cast<size_t>(written);
  }
}

namespace {

size_t RenderedSize(const Elog_msg *record) {
  size_t size = (record->tag ? strlen(record->tag) : 0) + 2 + strlen(record->msg) +
                (record->sys ? strlen(record->sys) : 0) + 2;
  if (record->count > 1) size += snprintf(nullptr, 0, kRepeatFormat, record->count) + 10;
  return size;
}

size_t RenderRecord(char *out, size_t room, const Elog_msg *record) {
  int n = HasTag(record) ? snprintf(out, room, "%s: %s", record->tag, record->msg)
                         : snprintf(out, room, "%s", record->msg);
  if (record->sys != nullptr) n += snprintf(out + n, room - n, "\t%s\n", record->sys);
  if (record->count > 1) n += snprintf(out + n, room - n, kRepeatFormat, record->count);
  return static_cast<size_t>(n);
}

}  // namespace

char *RenderRegister(long mark, const Elog_msg *extra) {
  Tbl *reg = Elog_tbl;
  if (mark < 0) mark = 0;
  size_t size = 100;
  for (long i = mark; i < reg->count; i++) {
    size += RenderedSize(static_cast<Elog_msg *>(gettbl(reg, i)));
  }
  if (extra != nullptr) size += RenderedSize(extra);
  char *text = static_cast<char *>(CV_MALLOC(size, "s"));
  size_t used = 0;
  text[0] = '\0';
  for (long i = mark; i < reg->count && used < size; i++) {
    used += RenderRecord(text + used, size - used, static_cast<Elog_msg *>(gettbl(reg, i)));
  }
  if (extra != nullptr && used < size) used += RenderRecord(text + used, size - used, extra);
  if (used >= size) {
    elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n", "register text overflow",
             kSourceName, __LINE__);
  }
  return text;
}

void TruncateRegister(long n) { trunctbl(Elog_tbl, n < 0 ? 0 : n, FreeRecordTexts); }

}  // namespace elog
}  // namespace corvel

void elog_free_msg(Elog_msg *record) {
  if (record == nullptr) return;
  free(record->tag);
  free(record->msg);
  free(record->sys);
  record->tag = record->msg = record->sys = nullptr;
}
