// The string builder: a buffer that grows as texts are appended, and concatenation built on
// it.
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/text.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "pushstr.c";

namespace {

struct Builder {
  size_t length;    // characters held, not counting the terminator
  size_t capacity;  // bytes allocated for s
  char *s;          // always terminated
};

}  // namespace

long pushstr(void **handle, const char *text) {
  const size_t n = text != nullptr ? strlen(text) : 0;
  Builder *builder = static_cast<Builder *>(*handle);
  if (builder == nullptr) {
    builder = static_cast<Builder *>(CV_MALLOC(sizeof(Builder), "vstk"));
    builder->length = 0;
    builder->capacity = n * 5 < 1024 ? 1024 : n * 5;
    builder->s = static_cast<char *>(CV_CALLOC(builder->capacity, 1, "vstk->s"));
    *handle = builder;
  }
  // The buffer grows to exactly the room needed, terminator included, so a popped text holds
  // no slack; realloc extends in place where it can.
  if (builder->length + n + 1 > builder->capacity) {
    builder->capacity = builder->length + n + 1;
    builder->s = static_cast<char *>(CV_REALLOC(builder->s, builder->capacity, "vstk->s"));
  }
  if (n) memcpy(builder->s + builder->length, text, n);
  builder->length += n;
  builder->s[builder->length] = '\0';
  return static_cast<long>(builder->length);
}

char *popstr(void **handle, int release) {
  Builder *builder = handle != nullptr ? static_cast<Builder *>(*handle) : nullptr;
  if (builder == nullptr) return static_cast<char *>(CV_CALLOC(1, 1, "vstk->s"));
  char *s = builder->s;
  if (release) {
    free(builder);
    *handle = nullptr;
  }
  return s;
}

char *strconcat(const char *s1, ...) {
  void *builder = nullptr;
  va_list ap;
  va_start(ap, s1);
  for (const char *s = s1; s != nullptr; s = va_arg(ap, const char *)) pushstr(&builder, s);
  va_end(ap);
  return popstr(&builder, 1);
}
