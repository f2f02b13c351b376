// The lexical pieces of parameter-file text.
#include "pf/lexical.h"

#include <stdlib.h>

#include "corvel/elog.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "pflex.c";

namespace corvel {
namespace pf {
namespace lexical {

namespace {

constexpr size_t kFirstValueSize = 128;

}  // namespace

char *NewString(const char *text, size_t length) {
  char *s = static_cast<char *>(CV_MALLOC(length + 1, "pf->value.s"));
  memcpy(s, text, length);
  s[length] = '\0';
  return s;
}

const char *DecodeEscape(const char *p, const char *limit, char *out) {
  char c = p[1];
  switch (c) {
    case 'n':
      *out = '\n';
      return p + 2;
    case 'b':
      *out = '\b';
      return p + 2;
    case 'r':
      *out = '\r';
      return p + 2;
    case 't':
      *out = '\t';
      return p + 2;
    default:
      break;
  }
  if (!IsDigit(c)) {
    *out = c;  // a newline, '#', a backslash, a brace or any other character stands for itself
    return p + 2;
  }
  const char *stop = limit - (p + 1) > 3 ? p + 4 : limit;
  int value = 0;
  for (const char *q = p + 1; q < stop && *q >= '0' && *q <= '7'; q++) value = value * 8 + *q - '0';
  *out = static_cast<char>(value);
  return stop;
}

bool ClosesFunction(const char *open, const char *line_end) {
  // Each blank run walked back over ends at the '#' or ')' that follows it, so the walks never
  // overlap and the line is read about twice at most.
  for (const char *h = open + 1;; h++) {
    if (h == line_end || *h == '#') {
      const char *k = h;
      while (k > open + 1 && IsBlank(k[-1])) k--;
      if (k > open + 1 && k[-1] == ')') return true;
      if (h == line_end) return false;
    }
  }
}

bool IsEndMarker(const char *p, const char *line_end) {
  static const char *const kMarkers[] = {"__END__", "__DATA__", "__EOF__"};
  for (const char *marker : kMarkers) {
    size_t length = strlen(marker);
    if (StartsWith(p, line_end, marker, length)) {
      const char *q = p + length;
      while (q < line_end && IsBlank(*q)) q++;
      return q == line_end;
    }
  }
  return false;
}

void ComplainOfOpeners(const char *text) {
  if (strchr(text, '&') == nullptr) return;
  if (strstr(text, "&Tbl{") != nullptr) elog_complain(0, "value contains '&Tbl{'\n\t'%s'\n", text);
  // A literal opener inside a value shares the array's message.
  if (strstr(text, "&Arr{") != nullptr || strstr(text, "&Literal{") != nullptr) {
    elog_complain(0, "value contains '&Arr{'\n\t'%s'\n", text);
  }
}

ValueBuffer::~ValueBuffer() { free(data_); }

void ValueBuffer::Grow(size_t needed) {
  size_t capacity = capacity_ != 0 ? capacity_ : kFirstValueSize;
  while (capacity < needed) capacity *= 2;
  data_ = static_cast<char *>(CV_REALLOC(data_, capacity, "pf value buffer"));
  capacity_ = capacity;
}

}  // namespace lexical
}  // namespace pf
}  // namespace corvel
