// The register's operations, and the query and set interface over the log's state.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "elog/internal.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "elog.c";

using namespace corvel::elog;

namespace {

bool ValidSeverity(int severity) { return severity >= 0 && severity < ELOG_NSEVERITY; }

// Hands the register from mark on to the callback and then to the complain destinations.
void DeliverFrom(long mark) {
  ScopedLogLock lock;
  if (elog_callback != nullptr && Elog_tbl->count > mark) {
    char *text = RenderRegister(mark, nullptr);
    int consumed = elog_callback(ELOG_NOTIFY, text, Elog_tbl);
    free(text);
    if (consumed) TruncateRegister(mark);
  }
  elog_deliver(g_deliver[ELOG_COMPLAIN], static_cast<int>(mark), nullptr);
}

void FreeCopiedRecord(void *p) {
  elog_free_msg(static_cast<Elog_msg *>(p));
  free(p);
}

char *DuplicateOrNull(const char *s, bool *failed) {
  if (s == nullptr) return nullptr;
  char *copy = strdup(s);
  if (copy == nullptr) *failed = true;
  return copy;
}

// A new indirect table of separately allocated copies of every record, or null when memory
// runs out (the caller reports failure rather than dying).
Tbl *CopyRegister() {
  Tbl *copies = newtbl(Elog_tbl->count > 0 ? Elog_tbl->count : 1);
  bool failed = false;
  for (long i = 0; i < Elog_tbl->count && !failed; i++) {
    const Elog_msg *record = static_cast<Elog_msg *>(gettbl(Elog_tbl, i));
    Elog_msg *copy = static_cast<Elog_msg *>(calloc(1, sizeof(Elog_msg)));
    if (copy == nullptr) {
      failed = true;
      break;
    }
    *copy = *record;
    copy->tag = DuplicateOrNull(record->tag, &failed);
    copy->msg = DuplicateOrNull(record->msg, &failed);
    copy->sys = DuplicateOrNull(record->sys, &failed);
    pushtbl(copies, copy);
  }
  if (failed) {
    freetbl(copies, FreeCopiedRecord);
    return nullptr;
  }
  return copies;
}

}  // namespace

int elog_mark(void) {
  EnsureInitialized();
  ScopedLogLock lock;
  return static_cast<int>(Elog_tbl->count);
}

void elog_flush(int deliver, int mark) {
  EnsureInitialized();
  if (deliver) DeliverFrom(mark);
  elog_truncate(mark);
}

void elog_clear_register(int deliver) {
  EnsureInitialized();
  if (deliver) DeliverFrom(0);
  elog_clear();
}

void elog_clear(void) {
  if (Elog_init) {
    ScopedLogLock lock;
    TruncateRegister(0);
  } else {
    TruncateRegister(0);
  }
  errno = 0;
}

void elog_truncate(int n) {
  ScopedLogLock lock;
  TruncateRegister(n);
}

void elog_print(FILE *stream, int mark) {
  ScopedLogLock lock;
  PrintRegister(stream, mark, nullptr);
}

char *elog_string(int mark) {
  if (!Elog_init) return CV_STRDUP("", "s");
  ScopedLogLock lock;
  return RenderRegister(mark, nullptr);
}

const char *elog_severity(int severity) {
  return ValidSeverity(severity) ? kSeverityName[severity] : "<BAD>";
}

int elog_fprintf(FILE *stream, const char *fmt, ...) {
  ScopedLogLock lock;
  va_list ap;
  va_start(ap, fmt);
  int n = vfprintf(stream, fmt, ap);
  va_end(ap);
  return n;
}

unsigned int elog_query(int code, int severity, void *result) {
  EnsureInitialized();
  constexpr unsigned int kUnknown = static_cast<unsigned int>(-1);
  switch (code) {
    case ELOG_TBL:
      *static_cast<Tbl **>(result) = Elog_tbl;
      return 0;
    case ELOG_TBLCP:
    case ELOG_TBLCPCL: {
      ScopedLogLock lock;
      Tbl *copies = CopyRegister();
      if (copies == nullptr) return kUnknown;
      if (code == ELOG_TBLCPCL) TruncateRegister(0);
      *static_cast<Tbl **>(result) = copies;
      return 0;
    }
    case ELOG_ARGV:
      *static_cast<char ***>(result) = Argv;
      return 0;
    case ELOG_ARGC:
      *static_cast<int *>(result) = Argc;
      return 0;
    case ELOG_COUNT: {
      ScopedLogLock lock;
      *static_cast<int *>(result) = static_cast<int>(Elog_tbl->count);
      return 0;
    }
    case ELOG_MAXMSG:
      *static_cast<int *>(result) = Max_msg;
      return 0;
    case ELOG_TAG:
    case ELOG_DELIVER:
    case ELOG_DEBUG: {
      if (!ValidSeverity(severity)) return kUnknown;
      char(*table)[ELOG_SLOT_SIZE] =
          code == ELOG_TAG ? g_tag : code == ELOG_DELIVER ? g_deliver : g_debug;
      *static_cast<char **>(result) = table[severity];
      return 0;
    }
    case ELOG_SIGNALS:
      *static_cast<char **>(result) = Faults;
      return 0;
    case ELOG_CALLBACK:
      *static_cast<Elog_callback_fn *>(result) = elog_callback;
      return 0;
    case ELOG_STRING:
      *static_cast<char **>(result) = elog_string(severity);
      return 0;
    case 14:
      *static_cast<double *>(result) = Elog_reference_time;
      return 0;
    case 15:
      *static_cast<char **>(result) = Program_Name;
      return 0;
    default:
      return kUnknown;
  }
}

int elog_set(int code, int severity, void *value) {
  EnsureInitialized();
  switch (code) {
    case ELOG_TBL: {
      if (value == nullptr) return -1;
      ScopedLogLock lock;
      Elog_tbl = static_cast<Tbl *>(value);
      return 0;
    }
    case ELOG_ARGV:
      Argv = static_cast<char **>(value);
      return 0;
    case ELOG_ARGC:
      Argc = *static_cast<int *>(value);
      return 0;
    case ELOG_COUNT:
      elog_truncate(*static_cast<int *>(value));
      return 0;
    case ELOG_MAXMSG:
      Max_msg = *static_cast<int *>(value);
      return 0;
    case ELOG_TAG: {
      ScopedLogLock lock;
      const char *text = static_cast<const char *>(value);
      if (ValidSeverity(severity)) {
        CopySlot(g_tag[severity], text);
      } else {
        for (auto &slot : g_tag) CopySlot(slot, text);
      }
      return 0;
    }
    case ELOG_DELIVER:
    case ELOG_DEBUG: {
      if (!ValidSeverity(severity)) return -1;
      ScopedLogLock lock;
      CopySlot(code == ELOG_DELIVER ? g_deliver[severity] : g_debug[severity],
               static_cast<const char *>(value));
      return 0;
    }
    case ELOG_SIGNALS:
      elog_setup_fault_handler(static_cast<const char *>(value));
      return 0;
    case ELOG_CALLBACK:
      elog_callback = reinterpret_cast<Elog_callback_fn>(value);
      return 0;
    case 14:
      Elog_reference_time = *static_cast<double *>(value);
      return 0;
    default:
      return -1;
  }
}
