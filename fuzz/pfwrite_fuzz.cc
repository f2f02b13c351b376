// Whatever tree the reader makes, the writer's text reads back to the same tree, in both
// layouts, unless a key or string holds something the text format cannot carry there.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"

namespace {

bool HasBlank(const char *s) { return strchr(s, ' ') != nullptr; }

// A string value is written as it stands, escaped or as a literal, and every one of these
// reads back, except a text that begins with '&': the reader takes "&Arr{", "&Tbl{",
// "&Literal", "&Undef{}" and "&name(...)" for what they open, define or remove.
bool ValueSurvives(const char *s) { return s[0] != '&'; }

bool IsEndWord(const char *s) {
  return strcmp(s, "__END__") == 0 || strcmp(s, "__DATA__") == 0 || strcmp(s, "__EOF__") == 0;
}

// Keys: a key with a blank is quoted and a quoted key is read as it stands, so it cannot also
// carry an escape, or both kinds of quote; a bare key ends at a blank, tab or newline, cannot
// begin with a quote, and must not be a word that ends the text.
bool StreamKeySurvives(const char *key) {
  size_t length = strlen(key);
  if (length == 0 || length > 1023 || IsEndWord(key) || strpbrk(key, "\t\n") != nullptr) {
    return false;
  }
  if (HasBlank(key)) {
    return strpbrk(key, "#}\\") == nullptr &&
           (strchr(key, '"') == nullptr || strchr(key, '\'') == nullptr);
  }
  return key[0] != '"' && key[0] != '\'';
}

// The compact layout writes keys unescaped, so a bare key cannot hold what the reader decodes
// or takes for a comment, nor begin with the brace that closes an array.
bool CompactKeySurvives(const char *key) {
  return StreamKeySurvives(key) && (HasBlank(key) || strpbrk(key, "#\\") == nullptr) &&
         key[0] != '}';
}

struct Check {
  bool stream = true;
  bool compact = true;
};

void Inspect(Pf *pf, Check *check);

void InspectEntry(char *key, void *value, void *private_data) {
  Check *check = static_cast<Check *>(private_data);
  check->stream &= StreamKeySurvives(key);
  check->compact &= CompactKeySurvives(key);
  Inspect(static_cast<Pf *>(value), check);
}

void Inspect(Pf *pf, Check *check) {
  switch (pf->type) {
    case PFFILE:
    case PFARR:
      applyarr(pf->value.arr, InspectEntry, check);
      break;
    case PFTBL:
      for (long i = 0; i < maxtbl(pf->value.tbl); i++) {
        Inspect(static_cast<Pf *>(gettbl(pf->value.tbl, i)), check);
      }
      break;
    case PFSTRING:
      if (!ValueSurvives(pf->value.s)) check->stream = check->compact = false;
      break;
    default:
      break;
  }
}

void ExpectReadsBack(Pf *pf, const char *text) {
  Pf *copy = nullptr;
  if (pfcompile(text, &copy) != 0 || pfcmp(pf, copy) != 0) {
    fprintf(stderr, "the writer's text does not read back to the same tree:\n%s\n", text);
    abort();
  }
  pffree(copy);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // A NUL byte cuts a value or a function's text where it stands, blanks before it and all;
  // no text the writer makes holds one, so such trees are the reader's alone.
  if (size > 0 && memchr(data, 0, size) != nullptr) return 0;
  Pf *pf = nullptr;
  if (pfcompile_counted(reinterpret_cast<const char *>(data), static_cast<long>(size), &pf) == 0) {
    Check check;
    Inspect(pf, &check);
    if (check.stream) {
      char *text = nullptr;
      size_t length = 0;
      FILE *stream = open_memstream(&text, &length);
      pfout(stream, pf);
      fclose(stream);
      ExpectReadsBack(pf, text);
      free(text);
    }
    if (check.compact) {
      char *text = pf2string(pf);
      ExpectReadsBack(pf, text);
      free(text);
    }
  }
  pffree(pf);
  elog_clear();
  return 0;
}
