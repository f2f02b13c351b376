// Configuring the log: the per-severity tables from environment values and from the "elog"
// parameter file, stack traces by severity, and the settings applied when the log is set up.
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/pf.h"
#include "elog/internal.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "elog.c";

namespace corvel {
namespace elog {
namespace {

// Crash signals intercepted when neither the environment nor a parameter file names any.
constexpr char kDefaultFaultSignals[] = "ILL:TRAP:FPE:BUS:SEGV:SYS";
constexpr char kConfigFile[] = "elog";

int SeverityOfLetter(char letter) {
  switch (letter) {
    case 'l':
      return ELOG_LOG;
    case 'D':
      return ELOG_DEBUGGING;
    case 'n':
      return ELOG_NOTIFY;
    case 'a':
      return ELOG_ALERT;
    case 'c':
      return ELOG_COMPLAIN;
    case 'd':
      return ELOG_DIE;
    case 'f':
      return ELOG_FAULT;
    default:
      return -1;
  }
}

const char *DefaultOf(const char *const *defaults, int severity) {
  return defaults != nullptr ? defaults[severity] : "";
}

const char *TypeName(int type) {
  switch (type) {
    case PFSTRING:
      return "a text";
    case PFTBL:
      return "a list";
    case PFARR:
      return "an array";
    case PFEXEC_ERROR:
      return "the output of a failed command";
    default:
      return "a value of another kind";
  }
}

// The log's lock is held while the file is applied, so reports cannot go through the log.
void ReportIgnored(const char *key, const char *wanted, const char *found) {
  fprintf(stderr, "Parameter file %s: %s should be %s, not %s; ignored\n", kConfigFile, key, wanted,
          found);
}

// The text at key in the file. Null when the key is absent (present is then false) or holds
// something else, which is reported.
const char *FileText(Pf *pf, const char *key, bool *present) {
  void *value = nullptr;
  int type = pfget(pf, key, &value);
  *present = type != PFINVALID;
  if (type == PFSTRING) return static_cast<const char *>(value);
  if (*present) ReportIgnored(key, "a text", TypeName(type));
  return nullptr;
}

// Whether the number that a conversion ended at end took all of text; blanks may follow it.
bool IsWholeNumber(const char *text, const char *end) {
  if (end == text) return false;
  end += strspn(end, " \t");
  return *end == '\0';
}

void ApplyFileNumbers(Pf *pf) {
  bool present;
  if (const char *text = FileText(pf, "ELOG_MAXMSG", &present)) {
    char *end;
    errno = 0;
    long n = strtol(text, &end, 10);
    if (IsWholeNumber(text, end) && errno == 0 && n >= INT_MIN && n <= INT_MAX) {
      Max_msg = static_cast<int>(n);
    } else {
      char found[80];
      snprintf(found, sizeof found, "'%.60s'", text);
      ReportIgnored("ELOG_MAXMSG", "an integer", found);
    }
  }
  if (const char *text = FileText(pf, "ELOG_WAIT", &present)) {
    char *end;
    double seconds = strtod(text, &end);
    if (IsWholeNumber(text, end)) {
      Elog_wait = seconds;
    } else {
      char found[80];
      snprintf(found, sizeof found, "'%.60s'", text);
      ReportIgnored("ELOG_WAIT", "a number of seconds", found);
    }
  }
}

// The formats replace the built-in literals once per process and are never freed: tags may be
// expanded from them at any time.
void ApplyFileFormats(Pf *pf) {
  bool present;
  if (const char *text = FileText(pf, "t_format", &present)) {
    Elog_t_format = CV_STRDUP(text, "Elog_t_format");
  }
  if (const char *text = FileText(pf, "u_format", &present)) {
    Elog_u_format = CV_STRDUP(text, "Elog_u_format");
  }
}

// The signal list from the environment, else from the file (whose silence means no signal at
// all), else the built-in list.
void SetupFaultSignals(Pf *pf) {
  const char *list = getenv("ELOG_SIGNALS");
  if (list == nullptr && pf != nullptr) {
    bool present;
    list = FileText(pf, "ELOG_SIGNALS", &present);
    if (list == nullptr && !present) list = "";
  }
  elog_setup_fault_handler(list != nullptr ? list : kDefaultFaultSignals);
}

}  // namespace

Pf *ReadConfigFile() {
  // The parameter-file reader logs, and logging sets the log up: a read already under way
  // must not start another.
  Pf *pf = nullptr;
  if (__atomic_load_n(&Pf_busy, __ATOMIC_RELAXED) == 0) pfread(kConfigFile, &pf);
  return pf;
}

void ConfigureOnce(Pf *pf) {
  if (pf != nullptr) {
    ApplyFileNumbers(pf);
    ApplyFileFormats(pf);
    elog_fill_from_pf(pf, "ELOG_DELIVER", g_deliver, Deliver_default);
    elog_fill_from_pf(pf, "ELOG_TAG", g_tag, Tag_default);
    elog_fill_from_pf(pf, "ELOG_DEBUG", g_debug, Debug_default);
  }
  if (const char *maxmsg = getenv("ELOG_MAXMSG")) Max_msg = atoi(maxmsg);
  elog_setup_show_stack("ELOG_STACK");
  SetupFaultSignals(pf);
}

void ConfigureFromEnvironment() {
  elog_fill_from_env(getenv("ELOG_DELIVER"), g_deliver, Deliver_default, 1);
  elog_fill_from_env(getenv("ELOG_TAG"), g_tag, Tag_default, 1);
  elog_fill_from_env(getenv("ELOG_DEBUG"), g_debug, Debug_default, 0);
  if (const char *wait = getenv("ELOG_WAIT")) Elog_wait = atof(wait);
}

}  // namespace elog
}  // namespace corvel

using namespace corvel::elog;

void elog_fill_from_env(const char *value, char table[][ELOG_SLOT_SIZE],
                        const char *const *defaults, int fill_defaults) {
  if (table == nullptr) return;
  if (value == nullptr) {
    if (!fill_defaults) return;
    for (int s = 0; s < ELOG_NSEVERITY; s++) {
      if (table[s][0] == '\0') CopySlot(table[s], DefaultOf(defaults, s));
    }
    return;
  }
  // The text of a group is never longer than the value.
  char *text = static_cast<char *>(CV_MALLOC(strlen(value) + 1, "text"));
  size_t length = 0;
  bool letters = false;  // after the '@' of a group
  bool named = false;    // the group has named a severity
  bool ended = false;    // a group has ended: only text after it makes a trailing part
  for (const char *p = value; *p != '\0'; p++) {
    if (!letters) {
      if (*p == '\\') {
        text[length++] = p[1] != '\0' ? *++p : '\\';
      } else if (*p == '@') {
        text[length] = '\0';
        letters = true;
      } else {
        text[length++] = *p;
      }
      continue;
    }
    int severity = SeverityOfLetter(*p);
    if (severity >= 0) {
      CopySlot(table[severity], length > 0 ? text : DefaultOf(defaults, severity));
      named = true;
    } else if (*p == ' ' || *p == '@') {
      if (!named) {
        for (int s = 0; s < ELOG_NSEVERITY; s++) CopySlot(table[s], DefaultOf(defaults, s));
      }
      length = 0;
      letters = false;
      named = false;
      ended = true;
    } else {
      fprintf(stderr, "Unrecognized severity '%s'\n", p);
    }
  }
  // A plain value, or plain text after the last group, applies to every severity; so does a
  // group without letters. A blank that merely closes the last group empties nothing.
  if (!named && (letters || length > 0 || !ended)) {
    text[length] = '\0';
    for (int s = 0; s < ELOG_NSEVERITY; s++) CopySlot(table[s], text);
  }
  free(text);
}

void elog_fill_from_pf(Pf *pf, const char *key, char table[][ELOG_SLOT_SIZE],
                       const char *const *defaults) {
  if (pf == nullptr || key == nullptr || table == nullptr) return;
  void *value = nullptr;
  int type = pfget(pf, key, &value);
  if (type == PFINVALID) return;
  if (type != PFARR) {
    ReportIgnored(key, "an array keyed by severity name", TypeName(type));
    return;
  }
  Pf *array = static_cast<Pf *>(value);
  for (int s = 0; s < ELOG_NSEVERITY; s++) {
    void *entry = nullptr;
    int entry_type = pfget(array, kSeverityName[s], &entry);
    if (entry_type == PFSTRING) {
      CopySlot(table[s], static_cast<const char *>(entry));
      continue;
    }
    if (entry_type != PFINVALID) {
      char name[128];
      snprintf(name, sizeof name, "%s{%s}", key, kSeverityName[s]);
      ReportIgnored(name, "a text", TypeName(entry_type));
    }
    CopySlot(table[s], DefaultOf(defaults, s));
  }
}

void elog_setup_show_stack(const char *variable_name) {
  const char *letters = variable_name != nullptr ? getenv(variable_name) : nullptr;
  if (letters == nullptr) return;
  for (const char *p = letters; *p != '\0'; p++) {
    // Alerts never get a trace: 'a' asks for faults, like 'f'.
    int severity = *p == 'a' ? ELOG_FAULT : SeverityOfLetter(*p);
    if (severity >= 0) g_show_stack[severity] = 1;
  }
}
