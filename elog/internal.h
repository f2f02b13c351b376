// State and helpers shared by the files of the message log. Everything here expects the
// caller to know whether it holds the log's lock; functions that need it say so.
#ifndef CORVEL_ELOG_INTERNAL_H_
#define CORVEL_ELOG_INTERNAL_H_

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>

#include <atomic>

#include "corvel/elog.h"

namespace corvel {
namespace elog {

// Messages are formatted into a buffer of this size (see FormatMessage).
constexpr int kMessageBufferSize = 10240;
// Expanded tags are limited to this many bytes.
constexpr int kTagBufferSize = 1023;

// The per-severity tables: fixed slots of ELOG_SLOT_SIZE bytes.
extern char g_tag[ELOG_NSEVERITY][ELOG_SLOT_SIZE];
extern char g_deliver[ELOG_NSEVERITY][ELOG_SLOT_SIZE];
extern char g_debug[ELOG_NSEVERITY][ELOG_SLOT_SIZE];
extern int g_show_stack[ELOG_NSEVERITY];
extern const char *const kSeverityName[ELOG_NSEVERITY];

// Copies value into a table slot; a value too long for the slot is cut and stays terminated.
void CopySlot(char *slot, const char *value);

// The one mutex that guards the register and all printing. It remembers its holder so that
// a report made while the lock is held (a callback that logs, running out of memory while
// delivering) goes straight to stderr instead of deadlocking.
class LogLock {
 public:
  void Lock();
  void Unlock();
  bool TryLock();
  bool HeldByMe() const;

 private:
  void TakeOwnership();
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  std::atomic<bool> held_{false};
  std::atomic<pthread_t> owner_{};
};
LogLock &Lock();

// Holds the log's lock for a scope unless this thread already holds it.
class ScopedLogLock {
 public:
  ScopedLogLock() : taken_(!Lock().HeldByMe()) {
    if (taken_) Lock().Lock();
  }
  ~ScopedLogLock() {
    if (taken_) Lock().Unlock();
  }
  ScopedLogLock(const ScopedLogLock &) = delete;
  ScopedLogLock &operator=(const ScopedLogLock &) = delete;

 private:
  bool taken_;
};

// Runs elog_init(0, NULL) when the log has not been initialised, keeping errno.
void EnsureInitialized();

// The configuration steps of elog_init. ReadConfigFile reads the "elog" parameter file (null
// when there is none, or while the parameter-file reader is busy), before the lock is taken:
// the reader has locks of its own and may log. With the lock held, ConfigureOnce applies the
// file, ELOG_MAXMSG, ELOG_STACK and the crash signals, and belongs to the first initialisation
// only; ConfigureFromEnvironment applies ELOG_DELIVER, ELOG_TAG, ELOG_DEBUG and ELOG_WAIT, which
// may change between initialisations.
struct Pf *ReadConfigFile();
void ConfigureOnce(struct Pf *pf);
void ConfigureFromEnvironment();

// Formats fmt into buf (kMessageBufferSize bytes) with the log's length limit, its truncation
// marker and its newline rule; returns the message length.
int FormatMessage(char *buf, const char *fmt, va_list ap);
// The text of errno for a message: strerror, or "Unknown error: N".
void SystemMessage(int err, char *out, size_t size);

// Printing and rendering of records; the lock must be held.
void PrintRecord(FILE *stream, const Elog_msg *record);
void PrintRegister(FILE *stream, long mark, const Elog_msg *extra);
void WriteRecord(int fd, const Elog_msg *record);
// The register from mark on, followed by extra when given, as one new text.
char *RenderRegister(long mark, const Elog_msg *extra);
void TruncateRegister(long n);

// Logs one message of the given severity (the body of every entry point).
void LogMessage(int severity, int flag, const char *fmt, va_list ap);

// Runs the debugger configured in command (after the lock has been released).
void RunDebugger(const char *command);
// Sleeps the whole time, however many signals arrive meanwhile.
void SleepSeconds(double seconds);

}  // namespace elog
}  // namespace corvel

#endif  // CORVEL_ELOG_INTERNAL_H_
