// The logging entry points: every message of every severity passes through LogMessage.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/port.h"
#include "elog/internal.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "elog.c";

namespace corvel {
namespace elog {
namespace {

// A copy of text whose length the caller already has: the tag's comes from its expansion, and
// the message is measured once for both the copy and the newline rules.
char *CopyText(const char *text, size_t length) {
  char *copy = static_cast<char *>(CV_MALLOC(length + 1, "s"));
  memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

// A tag that starts the message with a blank line: the newline moves in front of the tag.
char *TagAfterNewline(const char *tag, size_t length) {
  char *s = static_cast<char *>(CV_MALLOC(length + 2, "s"));
  s[0] = '\n';
  memcpy(s + 1, tag, length + 1);
  return s;
}

// Fills record from a formatted message and its expanded tag, by the log's newline rules.
// The lengths are those of the two texts as C strings.
void FillRecord(Elog_msg *record, const char *message, size_t length, const char *tag,
                size_t tag_length) {
  if (length == 0 || (length == 1 && message[0] == '\n')) {
    record->msg = CopyText("\n", 1);
    record->tag = nullptr;
  } else if (message[0] == '\n') {
    record->msg = CopyText(message + 1, length - 1);
    record->tag = TagAfterNewline(tag, tag_length);
  } else {
    record->msg = CopyText(message, length);
    record->tag = CopyText(tag, tag_length);
  }
}

const char *TagTemplate(int severity) {
  return severity >= 0 && severity < ELOG_NSEVERITY ? g_tag[severity] : "";
}

// A message logged while this thread already holds the lock (from a callback, or while the log
// itself reports running out of memory) cannot touch the register: it goes straight to stderr.
void ReportReentrant(int severity, const char *message, const char *sys) {
  char tag[kTagBufferSize];
  elog_expand(TagTemplate(severity), severity, tag, sizeof tag);
  if (tag[0] != '\0') fprintf(stderr, "%s: ", tag);
  fputs(message, stderr);
  if (sys != nullptr) fprintf(stderr, "\t%s\n", sys);
  fflush(stderr);
}

}  // namespace

void LogMessage(int severity, int flag, const char *fmt, va_list ap) {
  int err = errno;
  EnsureInitialized();
  char message[kMessageBufferSize];
  FormatMessage(message, fmt, ap);
  // Measured as a C string: a conversion may have written a NUL into the message.
  size_t length = strlen(message);
  char sys[256];
  bool with_sys = flag && err != 0;
  if (with_sys) SystemMessage(err, sys, sizeof sys);

  if (Lock().HeldByMe()) {
    ReportReentrant(severity, message, with_sys ? sys : nullptr);
    errno = 0;
    return;
  }

  Lock().Lock();
  Tbl *reg = Elog_tbl;
  // Repeats of the last kept message are counted, not kept again.
  if (severity == ELOG_LOG && reg->count > 0) {
    Elog_msg *last = static_cast<Elog_msg *>(gettbl(reg, reg->count - 1));
    if (strcmp(last->msg, message) == 0) {
      last->count++;
      Lock().Unlock();
      errno = 0;
      return;
    }
  }

  Elog_msg record;
  char tag[kTagBufferSize];
  int tag_length = elog_expand(TagTemplate(severity), severity, tag, sizeof tag);
  FillRecord(&record, message, length, tag, static_cast<size_t>(tag_length));
  record.sys = with_sys ? CV_STRDUP(sys, "s") : nullptr;
  record.severity = severity;
  record.count = 1;
  record.thread = pthread_self();

  bool want_stack = strncmp(message, "*stack*", 7) == 0 ||
                    (severity >= 0 && severity < ELOG_NSEVERITY && g_show_stack[severity]);

  Elog_msg *to_deliver = &record;
  if (elog_callback != nullptr) {
    char *text = RenderRegister(0, &record);
    int consumed = elog_callback(severity, text, reg);
    free(text);
    if (consumed) {
      TruncateRegister(0);
      elog_free_msg(&record);
      to_deliver = nullptr;
    }
  }
  const char *list = severity >= 0 && severity < ELOG_NSEVERITY ? g_deliver[severity] : "";
  elog_deliver(list, 0, to_deliver);
  if (want_stack) show_stack_trace(stderr);

  // Copied under the lock, since another thread may set it; most severities have none.
  char debugger[ELOG_SLOT_SIZE] = "";
  if (severity >= 0 && severity < ELOG_NSEVERITY && g_debug[severity][0] != '\0') {
    CopySlot(debugger, g_debug[severity]);
  }
  Lock().Unlock();
  errno = 0;
  if (debugger[0] != '\0') RunDebugger(debugger);
}

}  // namespace elog
}  // namespace corvel

using corvel::elog::LogMessage;

#define CORVEL_DEFINE_LOGGER(name, severity)  \
  void name(int flag, const char *fmt, ...) { \
    va_list ap;                               \
    va_start(ap, fmt);                        \
    LogMessage(severity, flag, fmt, ap);      \
    va_end(ap);                               \
  }                                           \
  void v##name(int flag, const char *fmt, va_list ap) { LogMessage(severity, flag, fmt, ap); }

CORVEL_DEFINE_LOGGER(elog_log, ELOG_LOG)
CORVEL_DEFINE_LOGGER(elog_debug, ELOG_DEBUGGING)
CORVEL_DEFINE_LOGGER(elog_notify, ELOG_NOTIFY)
CORVEL_DEFINE_LOGGER(elog_alert, ELOG_ALERT)
CORVEL_DEFINE_LOGGER(elog_complain, ELOG_COMPLAIN)

namespace {

[[noreturn]] void FlushAllAndExit() {
  if (fflush(nullptr) != 0) {
    int err = errno;
    fprintf(stderr, "fflush(0) failed: %ld : %s\n", static_cast<long>(EOF), strerror(err));
  }
  exit(1);
}

}  // namespace

void velog_die(int flag, const char *fmt, va_list ap) {
  LogMessage(ELOG_DIE, flag, fmt, ap);
  bury();
  FlushAllAndExit();
}

void elog_die(int flag, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  velog_die(flag, fmt, ap);
}

void velog_fault(int flag, const char *fmt, va_list ap) {
  LogMessage(ELOG_FAULT, flag, fmt, ap);
  abort();
}

void elog_fault(int flag, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  velog_fault(flag, fmt, ap);
}

char *velogstr(int severity, int flag, const char *fmt, va_list ap) {
  using namespace corvel::elog;
  int err = errno;
  EnsureInitialized();
  char message[kMessageBufferSize];
  FormatMessage(message, fmt, ap);
  char tag[kTagBufferSize];
  int expanded = elog_expand(TagTemplate(severity), severity, tag, sizeof tag);
  Elog_msg record = {};
  FillRecord(&record, message, strlen(message), tag, static_cast<size_t>(expanded));
  char sys[256] = "";
  if (flag && err != 0) SystemMessage(err, sys, sizeof sys);

  size_t tag_length = record.tag ? strlen(record.tag) : 0;
  size_t size = tag_length + 2 + strlen(record.msg) + strlen(sys) + 3;
  char *text = static_cast<char *>(CV_MALLOC(size, "s"));
  int n = tag_length ? snprintf(text, size, "%s: %s", record.tag, record.msg)
                     : snprintf(text, size, "%s", record.msg);
  if (sys[0] != '\0') snprintf(text + n, size - n, "\t%s\n", sys);
  elog_free_msg(&record);
  errno = err;
  return text;
}

char *elogstr(int severity, int flag, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  char *text = velogstr(severity, flag, fmt, ap);
  va_end(ap);
  return text;
}

namespace {

// Reports straight to stderr, then empties the register onto stderr: used where logging
// through the register could recurse.
void ReportAndDumpRegister(const char *fmt, va_list ap) {
  using namespace corvel::elog;
  int err = errno;
  ScopedLogLock lock;
  vfprintf(stderr, fmt, ap);
  if (err != 0) {
    errno = err;
    perror("\t");
  }
  PrintRegister(stderr, 0, nullptr);
  TruncateRegister(0);
}

}  // namespace

void elog_fail(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  ReportAndDumpRegister(fmt, ap);
  va_end(ap);
}

void elog_fatal(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  ReportAndDumpRegister(fmt, ap);
  va_end(ap);
  FlushAllAndExit();
}
