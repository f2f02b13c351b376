// Reading parameter-file text into a tree, from a descriptor, a stream, a string or a counted
// buffer. Reads take turns: one at a time in the process, each under the file name that the
// nodes it makes record.
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "elog/oom.h"
#include "pf/internal.h"
#include "pf/scanner.h"

static constexpr char kSourceName[] = "pflex.c";

int Pf_show_replacements = 0;

namespace corvel {
namespace pf {

namespace {

constexpr char kStreamName[] = "*unknown pfin file*";
constexpr char kMemoryName[] = "*internal buffer*";
constexpr int kExcerptLines = 5;

pthread_mutex_t g_reader_lock = PTHREAD_MUTEX_INITIALIZER;

// The name that reads from a descriptor give in messages; the caller's pointer, kept.
const char *g_descriptor_name = "*pf filename unknown*";

// The three ways the message on unclosed arrays and lists names the input.
enum class InputKind { kFile, kStream, kString };

// The first lines of text, each after "  --> ", one per line (without a final newline). The
// text ends at a NUL byte.
char *Excerpt(const char *text, size_t length) {
  const void *nul = memchr(text, '\0', length);
  if (nul != nullptr) length = static_cast<size_t>(static_cast<const char *>(nul) - text);
  static const char kPrefix[] = "  --> ";
  const size_t prefix_length = sizeof kPrefix - 1;
  char *out = static_cast<char *>(CV_MALLOC(length + kExcerptLines * prefix_length + 1, "s"));
  char *o = out;
  const char *p = text;
  const char *const end = text + length;
  for (int line = 0; line < kExcerptLines && p < end; line++) {
    const char *newline = static_cast<const char *>(memchr(p, '\n', static_cast<size_t>(end - p)));
    const char *line_end = newline != nullptr ? newline : end;
    if (line > 0) *o++ = '\n';
    memcpy(o, kPrefix, prefix_length);
    o += prefix_length;
    memcpy(o, p, static_cast<size_t>(line_end - p));
    o += line_end - p;
    p = newline != nullptr ? newline + 1 : end;
  }
  *o = '\0';
  return out;
}

void ReportUnclosed(InputKind kind, const char *name, const ScanOutcome &outcome, const char *text,
                    size_t length) {
  switch (kind) {
    case InputKind::kFile:
      elog_log(0,
               "*stack* Unterminated arrays or tables in parameter file %s at last line #%d: "
               "depth = %d",
               name, outcome.last_line, outcome.open_levels);
      break;
    case InputKind::kStream:
      elog_log(0,
               "*stack* Unterminated arrays or tables in input FILE at last line #%d: depth = %d",
               outcome.last_line, outcome.open_levels);
      break;
    case InputKind::kString: {
      char *excerpt = Excerpt(text, length);
      elog_log(0,
               "*stack* Unterminated arrays or tables at last line #%d, depth = %d in input "
               "string \n%s\n",
               outcome.last_line, outcome.open_levels, excerpt);
      free(excerpt);
      break;
    }
  }
}

// Reads source into *pf under the lock. text and length are the whole text when it is in
// memory, for the message on unclosed arrays and lists.
int ReadLocked(TextSource *source, Pf **pf, InputKind kind, const char *name, const char *text,
               size_t length) {
  if (*pf == nullptr) {
    *pf = pfnew(PFARR);
  } else if ((*pf)->type == PFFILE || (*pf)->type == PFARR) {
    (*pf)->type = PFARR;  // the top is an array while entries go into it
  } else {
    elog_log(0, "pf text can only be read into an array, not into a %s", TypeName((*pf)->type));
    return -1;
  }
  ScanOutcome outcome = ScanParameterText(source, *pf, name);
  (*pf)->type = PFFILE;
  if (outcome.stopped) return -2;
  if (outcome.open_levels > 0) {
    ReportUnclosed(kind, name, outcome, text, length);
    return -2;
  }
  return 0;
}

int Read(TextSource *source, Pf **pf, InputKind kind, const char *name, const char *text,
         size_t length) {
  if (pf == nullptr) return -1;
  pthread_mutex_lock(&g_reader_lock);
  int result;
  {
    BusyScope busy;
    const char *previous = CurrentReadFilename();
    SetCurrentReadFilename(InternFilename(name));
    result = ReadLocked(source, pf, kind, name, text, length);
    SetCurrentReadFilename(previous);
  }
  pthread_mutex_unlock(&g_reader_lock);
  return result;
}

}  // namespace

}  // namespace pf
}  // namespace corvel

using corvel::pf::InputKind;
using corvel::pf::TextSource;

void setpffilename(const char *name) {
  __atomic_store_n(&corvel::pf::g_descriptor_name, name, __ATOMIC_RELEASE);
}

int pfinfd(int fd, Pf **pf) {
  const char *name = __atomic_load_n(&corvel::pf::g_descriptor_name, __ATOMIC_ACQUIRE);
  if (name == nullptr) name = "";
  TextSource source(fd, name);
  return corvel::pf::Read(&source, pf, InputKind::kFile, name, nullptr, 0);
}

int pfin(FILE *stream, Pf **pf) {
  if (stream == nullptr) return -1;
  TextSource source(stream, corvel::pf::kStreamName);
  return corvel::pf::Read(&source, pf, InputKind::kStream, corvel::pf::kStreamName, nullptr, 0);
}

int pfcompile(const char *string, Pf **pf) {
  if (string == nullptr) string = "";
  size_t length = strlen(string);
  TextSource source(string, length);
  return corvel::pf::Read(&source, pf, InputKind::kString, corvel::pf::kMemoryName, string, length);
}

int pfcompile_counted(const char *buffer, long count, Pf **pf) {
  if (buffer == nullptr || count < 0) count = 0;
  if (buffer == nullptr) buffer = "";
  size_t length = static_cast<size_t>(count);
  TextSource source(buffer, length);
  return corvel::pf::Read(&source, pf, InputKind::kString, corvel::pf::kMemoryName, buffer, length);
}
