// Replacing environment references in a text by the variables' values.
#include <stdlib.h>
#include <string.h>

#include "corvel/text.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "expand_env.c";

namespace {

constexpr size_t kMaxName = 1023;

bool IsNameCharacter(char c) {
  // Letters and digits of ASCII only: the name rules must not change with the locale.
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// The result under construction. The buffer always has room for the unscanned rest of the
// text and the terminator, so literal text is copied without checks.
struct Output {
  char *buffer;
  size_t length;
  size_t capacity;

  void Append(const char *text, size_t n) {
    memcpy(buffer + length, text, n);
    length += n;
  }
};

// Expands text, whose first '$' is at dollar. Kept out of line so that the common case of a
// text without references carries none of its stack frame.
__attribute__((noinline)) char *ExpandReferences(const char *text, const char *dollar) {
  const size_t text_length = strlen(text);
  const char *const end = text + text_length;
  Output out;
  out.capacity = text_length * 2 < 1024 ? 1024 : text_length * 2;
  out.buffer = static_cast<char *>(CV_CALLOC(out.capacity, 1, "result"));
  out.length = 0;

  const char *p = text;
  while (*dollar != '\0') {
    out.Append(p, static_cast<size_t>(dollar - p));
    const char *name = dollar + 1;
    const char *name_end;
    const char *resume;
    if (*name == '{') {
      name++;
      name_end = strchrnul(name, '}');
      resume = *name_end == '}' ? name_end + 1 : name_end;
    } else {
      name_end = name;
      while (IsNameCharacter(*name_end)) name_end++;
      resume = name_end;
    }
    size_t name_length = static_cast<size_t>(name_end - name);
    if (name_length > kMaxName) name_length = kMaxName;
    char name_copy[kMaxName + 1];
    memcpy(name_copy, name, name_length);
    name_copy[name_length] = '\0';

    const char *value = name_length ? getenv(name_copy) : nullptr;
    if (value != nullptr) {
      size_t value_length = strlen(value);
      size_t rest = static_cast<size_t>(end - resume);
      if (out.length + value_length + rest + 1 > out.capacity) {
        out.capacity = out.length + value_length + rest + 2;
        out.buffer = static_cast<char *>(CV_REALLOC(out.buffer, out.capacity, "result"));
      }
      out.Append(value, value_length);
    } else {
      out.Append(dollar, static_cast<size_t>(resume - dollar));
    }
    p = resume;
    dollar = strchrnul(p, '$');
  }
  out.Append(p, static_cast<size_t>(dollar - p));
  out.buffer[out.length] = '\0';
  return out.buffer;
}

}  // namespace

char *expand_env(const char *text) {
  if (text == nullptr) return nullptr;
  // Most texts hold no reference: one scan finds both the '$' and the length.
  const char *dollar = strchrnul(text, '$');
  if (*dollar != '\0') return ExpandReferences(text, dollar);
  size_t n = static_cast<size_t>(dollar - text) + 1;
  return static_cast<char *>(memcpy(CV_MALLOC(n, "result"), text, n));
}
