// &name substitution: a string may name another string entry of its own array or of any
// array above it, as "&home/bin" or "&{home}bin", and reads with that entry's text in place.
#include <stdlib.h>
#include <string.h>

#include "corvel/pf.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "pfexpand.c";

namespace {

constexpr size_t kMaxName = 1023;
constexpr int kMaxActiveLookups = 10;
constexpr char kTooDeep[] = "** error ** pf massive recursion";

// Lookups under way in this thread. A value that names itself, or two values that name each
// other, would otherwise recurse without end. The count is per thread: the guard is there to
// stop a runaway descent, and one shared count would let threads expanding unrelated trees
// trip each other's limit.
thread_local int t_active_lookups = 0;

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// The text being built: grows as needed.
class Output {
 public:
  explicit Output(size_t text_length)
      : capacity_(text_length * 2 > 1024 ? text_length * 2 : 1024),
        buffer_(static_cast<char *>(CV_MALLOC(capacity_, "expanded"))) {}

  void Append(const char *text, size_t n) {
    if (length_ + n + 1 > capacity_) {
      while (length_ + n + 1 > capacity_) capacity_ *= 2;
      buffer_ = static_cast<char *>(CV_REALLOC(buffer_, capacity_, "expanded"));
    }
    memcpy(buffer_ + length_, text, n);
    length_ += n;
  }

  // The terminated text, now the caller's.
  char *Release() {
    buffer_[length_] = '\0';
    return buffer_;
  }

 private:
  size_t capacity_;
  char *buffer_;
  size_t length_ = 0;
};

// The expanded text of the nearest string entry called name above node, or null. Only arrays
// and files are searched, and an entry of another kind does not hide a string further up.
const char *LookUp(Pf *node, const char *name, size_t length) {
  if (length > kMaxName) length = kMaxName;
  char key[kMaxName + 1];
  memcpy(key, name, length);
  key[length] = '\0';
  for (Pf *level = node->parent; level != nullptr; level = level->parent) {
    if (level->type != PFFILE && level->type != PFARR) continue;
    Pf *found = static_cast<Pf *>(getarr(level->value.arr, key));
    if (found == nullptr || found->type != PFSTRING) continue;
    const char *value;
    if (++t_active_lookups > kMaxActiveLookups) {
      value = kTooDeep;
    } else {
      value = pfexpand(found);
      // An entry without text stands for nothing.
      if (value == nullptr) value = "";
    }
    t_active_lookups--;
    return value;
  }
  return nullptr;
}

// Substitutes every reference in text, whose first '&' is at ampersand.
char *Substitute(Pf *node, const char *text, const char *ampersand) {
  Output out(strlen(text));
  const char *p = text;
  while (ampersand != nullptr) {
    out.Append(p, static_cast<size_t>(ampersand - p));
    const char *name;
    const char *name_end;
    const char *resume;
    bool is_function = false;
    if (ampersand[1] == '{') {
      name = ampersand + 2;
      name_end = strchrnul(name, '}');
      resume = *name_end == '}' ? name_end + 1 : name_end;
    } else {
      name = ampersand + 1;
      for (name_end = name; IsNameCharacter(*name_end);) name_end++;
      resume = name_end;
      // "&env(HOME)" and the like are functions, evaluated later, not references.
      is_function = *name_end == '(';
    }
    const char *value = nullptr;
    if (!is_function && name_end > name) {
      // The value is copied before anything else is expanded: expanding another reference
      // may replace the text it points to.
      value = LookUp(node, name, static_cast<size_t>(name_end - name));
    }
    if (value != nullptr) {
      out.Append(value, strlen(value));
    } else {
      out.Append(ampersand, static_cast<size_t>(resume - ampersand));
    }
    p = resume;
    ampersand = strchr(p, '&');
  }
  out.Append(p, strlen(p));
  return out.Release();
}

// The first '&' of text, or null. Most values are short, and a loop over their first bytes
// costs less than a call; longer texts are left to strchr.
const char *FindAmpersand(const char *text) {
  for (int i = 0; i < 16; i++) {
    if (text[i] == '&') return text + i;
    if (text[i] == '\0') return nullptr;
  }
  return strchr(text + 16, '&');
}

}  // namespace

char *pfexpand(Pf *pf) {
  if (pf == nullptr) return nullptr;
  const char *text;
  if (pf->type == PFSTRING) {
    text = pf->value.s;
  } else if (pf->type == PFFCT && pf->value.pffunct != nullptr) {
    text = pf->value.pffunct->expression;
  } else {
    return nullptr;
  }
  if (text == nullptr) return nullptr;
  const char *ampersand = FindAmpersand(text);
  if (ampersand == nullptr) return const_cast<char *>(text);
  char *expanded = Substitute(pf, text, ampersand);
  // The same text as last time keeps the earlier copy, so that what an earlier call returned
  // stays valid while the entries it depends on are unchanged.
  if (pf->expanded != nullptr && strcmp(pf->expanded, expanded) == 0) {
    free(expanded);
    return pf->expanded;
  }
  free(pf->expanded);
  pf->expanded = expanded;
  return expanded;
}
