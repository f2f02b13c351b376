// Key paths: reading a path such as "chan{BHZ}[0]" and walking a tree along it, optionally
// creating what is missing, and the one-step lookups built on the same rules.
//
// The path reader keeps all of its state on the stack, so walks in different threads need no
// lock; a tree itself is never shared between threads that use it at the same time.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "containers/rbtree.h"
#include "corvel/elog.h"
#include "corvel/pf.h"
#include "elog/oom.h"
#include "pf/internal.h"

static constexpr char kSourceName[] = "pfresolve.c";

namespace corvel {
namespace pf {
namespace {

enum class TokenKind { kEnd, kName, kIndex };

// A component of a path. A name and an {array key} are looked up alike, so both are kName;
// text points into the path and is not terminated.
struct Token {
  TokenKind kind;
  const char *text;
  size_t length;
  long index;
};

// The characters that end a name: the terminator and the four brackets. A table, as names
// are scanned a character at a time on every lookup.
struct NameEnds {
  bool table[256];
  constexpr NameEnds() : table() {
    for (const char *c = "[]{}"; *c != '\0'; c++) table[static_cast<unsigned char>(*c)] = true;
    table[0] = true;
  }
};
constexpr NameEnds kNameEnds;

bool EndsName(char c) { return kNameEnds.table[static_cast<unsigned char>(c)]; }

// Splits a path into names, array keys and list indices. Selectors count only once a name
// has been read; brackets that form no selector are skipped, square ones with a word on the
// standard error stream.
class PathReader {
 public:
  explicit PathReader(const char *path) : p_(path != nullptr ? path : "") {}

  Token Next() {
    for (;;) {
      switch (*p_) {
        case '\0':
          return Token{TokenKind::kEnd, p_, 0, 0};
        case ' ':
        case '\t':
          p_++;
          break;
        case '[': {
          Token index;
          if (seen_name_ && ReadIndex(&index)) return index;
          Unmatched("[");
          break;
        }
        case ']':
          Unmatched("]");
          break;
        case '{': {
          Token key;
          if (seen_name_ && ReadKey(&key)) return key;
          p_++;
          break;
        }
        case '}':
          p_++;
          break;
        default: {
          // Blanks, tabs and newlines inside a name and at its end are part of it.
          const char *start = p_;
          while (!EndsName(*p_)) p_++;
          seen_name_ = true;
          return Token{TokenKind::kName, start, static_cast<size_t>(p_ - start), 0};
        }
      }
    }
  }

 private:
  void Unmatched(const char *bracket) {
    fprintf(stderr, "unmatched char '%s'\n", bracket);
    p_++;
  }

  // "[n]" or "[-n]" at p_: digits only, no blanks and no sign but a minus.
  bool ReadIndex(Token *token) {
    const char *q = p_ + 1;
    bool negative = *q == '-';
    if (negative) q++;
    if (*q < '0' || *q > '9') return false;
    long value = 0;
    for (; *q >= '0' && *q <= '9'; q++) {
      int digit = *q - '0';
      value = value > (LONG_MAX - digit) / 10 ? LONG_MAX : value * 10 + digit;
    }
    if (*q != ']') return false;
    *token =
        Token{TokenKind::kIndex, p_, static_cast<size_t>(q + 1 - p_), negative ? -value : value};
    p_ = q + 1;
    return true;
  }

  // "{key}" at p_: at least one character that is no brace; blanks (not tabs) next to the
  // braces are dropped.
  bool ReadKey(Token *token) {
    const char *start = p_ + 1;
    const char *end = start;
    while (*end != '\0' && *end != '{' && *end != '}') end++;
    if (*end != '}' || end == start) return false;
    p_ = end + 1;
    while (start < end && *start == ' ') start++;
    while (end > start && end[-1] == ' ') end--;
    *token = Token{TokenKind::kName, start, static_cast<size_t>(end - start), 0};
    return true;
  }

  const char *p_;
  bool seen_name_ = false;
};

// A terminated copy of a key that lies inside a path: on the stack when it is short, as lookups
// of ordinary keys must not allocate.
class KeyCopy {
 public:
  KeyCopy(const char *text, size_t length) {
    if (text[length] == '\0') {
      key_ = text;  // already terminated: the last component of the path
      return;
    }
    char *copy = buffer_;
    if (length >= sizeof buffer_) copy = heap_ = static_cast<char *>(CV_MALLOC(length + 1, "key"));
    memcpy(copy, text, length);
    copy[length] = '\0';
    key_ = copy;
  }
  ~KeyCopy() { free(heap_); }
  KeyCopy(const KeyCopy &) = delete;
  KeyCopy &operator=(const KeyCopy &) = delete;

  const char *get() const { return key_; }

 private:
  char buffer_[256];
  char *heap_ = nullptr;
  const char *key_;
};

// Compares a key that lies inside a path (not terminated) with the text of an array's node,
// in strcmp's order. Keys are short, and most differ from the node's in the first byte or two:
// comparing here costs less than a call.
struct ByPathKey {
  size_t length;
  int operator()(const void *key, const Rbnode *n) const {
    const unsigned char *a = static_cast<const unsigned char *>(key);
    // An array keeps each key's text right after its node: naming that address lets the
    // processor fetch the text while the node itself is still on its way from memory.
    const unsigned char *b = reinterpret_cast<const unsigned char *>(n + 1);
    if (__builtin_expect(n->key == b, 1)) {
      __asm__ volatile("" : "+r"(b));
    } else {
      b = static_cast<const unsigned char *>(n->key);
    }
    for (size_t i = 0; i < length; i++) {
      // The node's terminator compares low, like any shorter text.
      if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    }
    return b[length] == '\0' ? 0 : -1;
  }
};

// The child stored under the key text[0, length) of an array, or null.
Pf *ArrayEntry(Pf *array, const char *text, size_t length) {
  Arr *arr = array->value.arr;
  if (UsesStrcmp(arr)) {
    Rbnode *n = FindWith(arr->root, text, ByPathKey{length});
    return n != nullptr ? static_cast<Pf *>(n->value) : nullptr;
  }
  KeyCopy key(text, length);
  return static_cast<Pf *>(getarr(arr, key.get()));
}

Pf *ListEntry(Pf *list, long index) {
  if (index < 0 || index >= maxtbl(list->value.tbl)) return nullptr;
  return static_cast<Pf *>(gettbl(list->value.tbl, index));
}

bool IsContainer(const Pf *pf) {
  return pf->type == PFFILE || pf->type == PFARR || pf->type == PFTBL;
}

// One level down without a path: by key in an array or a file, by index in a list.
Pf *Child(Pf *container, const char *key) {
  if (container->type == PFTBL) return ListEntry(container, KeyIndex(key));
  return static_cast<Pf *>(getarr(container->value.arr, key));
}

// Where the walk found its node: the container and the selector that named it there.
struct Place {
  Pf *container = nullptr;
  Token selector{TokenKind::kEnd, nullptr, 0, 0};
};

// One component of a walk from node: 0 with the node it names in *next, or the code of what
// went wrong.
int Step(Pf *node, const Token &token, bool create, Pf **next) {
  const bool by_index = token.kind == TokenKind::kIndex;
  Pf *child;
  switch (node->type) {
    case PFFILE:
    case PFARR: {
      if (by_index) return PF_MISMATCH;
      child = ArrayEntry(node, token.text, token.length);
      if (child == nullptr) {
        if (!create) return PF_NOT_FOUND;
        KeyCopy key(token.text, token.length);
        pfadd_arr(node, key.get());
        child = static_cast<Pf *>(getarr(node->value.arr, key.get()));
      }
      break;
    }
    case PFTBL:
      if (!by_index) return PF_MISMATCH;
      child = ListEntry(node, token.index);
      if (child == nullptr) {
        // Nothing can be made at a negative index.
        if (!create || token.index < 0) return PF_NOT_FOUND;
        pfadd_tbl(node, PF_INDEX(token.index));
        child = ListEntry(node, token.index);
      }
      break;
    case PFANY:
      // A placeholder takes the kind its first selector asks for.
      if (!create) return PF_MISMATCH;
      if (by_index) {
        if (token.index < 0) return PF_NOT_FOUND;
        pfadd_tbl(node, PF_INDEX(token.index));
        child = ListEntry(node, token.index);
      } else {
        KeyCopy key(token.text, token.length);
        pfadd_arr(node, key.get());
        child = static_cast<Pf *>(getarr(node->value.arr, key.get()));
      }
      break;
    case PFSTRING:
      return PF_NOT_FOUND;
    case PFFCT:
      // Selectors stop at a function: it is evaluated as a whole once the walk is over.
      child = node;
      break;
    default:
      elog_die(0, "invalid pf type = %d\n", node->type);
  }
  *next = child;
  return 0;
}

int Walk(Pf *pf, const char *path, bool create, Pf **result, Place *place) {
  PathReader reader(path);
  Pf *node = pf;
  for (Token token = reader.Next(); token.kind != TokenKind::kEnd; token = reader.Next()) {
    Pf *next;
    int code = Step(node, token, create, &next);
    if (code != 0) return code;
    if (place != nullptr && next != node) {
      place->container = node;
      place->selector = token;
    }
    node = next;
  }
  *result = node;
  return node->type;
}

// A list looked up directly takes its key as an index.
int LookUpIndex(Pf *list, long index, bool create, Pf **result, Place *place) {
  Pf *node = ListEntry(list, index);
  if (node == nullptr && create && index >= 0) {
    pfadd_tbl(list, PF_INDEX(index));
    node = ListEntry(list, index);
  }
  if (node == nullptr) return PF_MISMATCH;
  if (place != nullptr) {
    place->container = list;
    place->selector = Token{TokenKind::kIndex, nullptr, 0, index};
  }
  *result = node;
  return node->type;
}

int Find(Pf *pf, const char *path, bool create, Pf **result, Place *place) {
  // Raised for the walk only: evaluating a function afterwards may read other files.
  BusyScope busy;
  if (pf->type == PFTBL) return LookUpIndex(pf, KeyIndex(path), create, result, place);
  return Walk(pf, path, create, result, place);
}

// Hands node out, a function evaluated first; one that yields nothing is absent.
int Deliver(Pf *node, Pf **result) {
  if (node->type == PFFCT) node = pfinterpret(node);
  *result = node;
  return node != nullptr ? node->type : PF_NOT_FOUND;
}

}  // namespace
}  // namespace pf
}  // namespace corvel

using namespace corvel::pf;

int pfresolve(Pf *pf, const char *key, int create, Pf **result) {
  Pf *ignored;
  if (result == nullptr) result = &ignored;
  *result = nullptr;
  if (pf == nullptr) return PF_NO_CONTAINER;
  Pf *node = nullptr;
  int code = Find(pf, key, create != 0, &node, nullptr);
  if (node == nullptr) return code;
  return Deliver(node, result);
}

int pfvalue(Pf *pf, const char *key, Pf **result) {
  Pf *ignored;
  if (result == nullptr) result = &ignored;
  *result = nullptr;
  if (pf == nullptr) return PF_NO_CONTAINER;
  Pf *node;
  if (IsContainer(pf)) {
    node = Child(pf, key);
  } else if (pf->type == PFSTRING) {
    node = nullptr;
  } else if (pf->type == PFFCT) {
    node = pf;
  } else {
    elog_die(0, "invalid pf type = %d\n", pf->type);
  }
  *result = node;
  return node != nullptr ? node->type : PF_NOT_FOUND;
}

int pfget(Pf *pf, const char *key, void **result) {
  void *ignored;
  if (result == nullptr) result = &ignored;
  *result = nullptr;
  if (pf == nullptr) return PFINVALID;
  Pf *node;
  if (IsContainer(pf)) {
    node = Child(pf, key);
  } else if (pf->type == PFSTRING || pf->type == PFFCT) {
    node = pf;
  } else {
    elog_log(0, "*stack* unrecognized pf type %d in pfget", pf->type);
    return PFINVALID;
  }
  if (node != nullptr && node->type == PFFCT) node = pfinterpret(node);
  if (node == nullptr) return PFINVALID;
  *result = node->type == PFSTRING ? static_cast<void *>(pfexpand(node)) : node;
  return node->type;
}

int pfhas_key(Pf *pf, const char *key) {
  if (pf == nullptr || key == nullptr) return 0;
  Pf *node;
  return pfresolve(pf, key, 0, &node) >= 0;
}

int pfeval(Pf *pf, const char *key, char **string) {
  char *ignored;
  if (string == nullptr) string = &ignored;
  *string = nullptr;
  Pf *node;
  int type = pfresolve(pf, key, 0, &node);
  // Only a scalar has a text; a failed command's output is kept as it stands.
  if (node == nullptr || type >= PFTBL) return -1;
  *string = type == PFSTRING ? pfexpand(node) : type == PFEXEC_ERROR ? node->value.s : nullptr;
  return *string != nullptr ? 0 : -1;
}

int pfset(Pf *pf, const char *path, const char *string) {
  if (pf == nullptr) return -1;
  Pf *node = nullptr;
  Place place;
  Find(pf, path, true, &node, &place);
  if (node == nullptr) return -1;
  if (node->type == PFSTRING || node->type == PFANY) {
    // A string, or a placeholder just made, takes the text in place.
    if (node->type != PFSTRING) node->value.s = nullptr;
    node->type = PFSTRING;
    SetNodeText(node, string != nullptr ? CV_STRDUP(string, "pf->value.s") : nullptr);
    free(node->expanded);
    node->expanded = nullptr;
    return 0;
  }
  // Any other kind of node is replaced by a new string in its container.
  if (place.container == nullptr) return -1;
  if (place.selector.kind == TokenKind::kIndex) {
    pfput_string(place.container, PF_INDEX(place.selector.index), string);
  } else {
    KeyCopy key(place.selector.text, place.selector.length);
    pfput_string(place.container, key.get(), string);
  }
  return 0;
}
