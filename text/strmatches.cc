// Whole-text matching with POSIX extended regular expressions, with an optional cache that
// keeps the compiled pattern between calls.
#include <regex.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/text.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "strmatches.c";

namespace {

enum State { kCompiled = 0, kCompiling = 1, kFailed = -1 };

// What a cache hook holds.
struct CompiledPattern {
  char *pattern;  // private copy
  regex_t regex;  // valid only in state kCompiled
  int state;
};

void FreeCompiledPattern(void *p) {
  CompiledPattern *compiled = static_cast<CompiledPattern *>(p);
  if (compiled->state == kCompiled) regfree(&compiled->regex);
  free(compiled->pattern);
  free(compiled);
}

// Compiles pattern into regex; on failure logs the library's reason and returns false.
bool Compile(regex_t *regex, const char *pattern) {
  int code = regcomp(regex, pattern, REG_EXTENDED);
  if (code == 0) return true;
  char reason[256];
  regerror(code, regex, reason, sizeof reason);
  elog_log(0, "'%s' did not compile: %s", pattern, reason);
  return false;
}

// The first match found must cover the text from its first character to its last.
int MatchesWhole(const regex_t *regex, const char *text) {
  regmatch_t match;
  if (regexec(regex, text, 1, &match, 0) != 0) return 0;
  return match.rm_so == 0 && static_cast<size_t>(match.rm_eo) == strlen(text);
}

}  // namespace

int strmatches(const char *text, const char *pattern, Hook **cache) {
  if (text == nullptr) text = "";
  if (pattern == nullptr) pattern = "";
  if (cache == nullptr) {
    regex_t regex;
    if (!Compile(&regex, pattern)) return -2;
    int result = MatchesWhole(&regex, text);
    regfree(&regex);
    return result;
  }
  if (*cache == nullptr) {
    CompiledPattern *compiled =
        static_cast<CompiledPattern *>(CV_MALLOC(sizeof(CompiledPattern), "cache"));
    compiled->pattern = CV_STRDUP(pattern, "pattern");
    compiled->state = kCompiling;
    *cache = new_hook(FreeCompiledPattern);
    (*cache)->p = compiled;
    if (!Compile(&compiled->regex, compiled->pattern)) {
      compiled->state = kFailed;
      return -2;
    }
    compiled->state = kCompiled;
  }
  const CompiledPattern *compiled = static_cast<const CompiledPattern *>((*cache)->p);
  if (compiled->state != kCompiled) return -1;
  return MatchesWhole(&compiled->regex, text);
}
