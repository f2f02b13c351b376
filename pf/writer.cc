// The parameter-file writer: a tree back into text, every string in the plainest form that the
// reader turns into the same string again.
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/arr.h"
#include "corvel/elog.h"
#include "corvel/pf.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "pfwrite.c";

namespace corvel {
namespace pf {
namespace {

constexpr char kBlanks[] = "                                                                ";
constexpr int kIndentWidth = 4;  // blanks per level of nesting
constexpr size_t kStreamChunk = 64 * 1024;
constexpr char kEndMarker[] = "\"EndOfLiteral";
// The delimiter pairs a literal may use, in the order they are tried.
constexpr char kLiteralPairs[][2] = {{'{', '}'}, {'(', ')'}, {'[', ']'}, {'<', '>'}, {'`', '\''}};

// How a string must be written: as it stands, escaped, or (with a blank or tab at either end,
// which the reader would trim) as a literal.
enum Quoting { kAsItStands = 0, kEscaped = 1, kLiteral = 2 };

// What one pass over a string finds in it: the characters a plain value cannot carry
// unescaped, and the blank and double quote that decide how a key is quoted.
constexpr int kSpecial = 1;
constexpr int kBlank = 2;
constexpr int kDoubleQuote = 4;

// Sixteen characters compared at once; the compiler maps the type onto the processor's vector
// registers. Most keys and values are shorter than that, so a string takes one comparison and
// no loop whose end depends on its length.
typedef signed char Block __attribute__((vector_size(16)));
typedef uint64_t BlockWords __attribute__((vector_size(16)));
constexpr size_t kBlockSize = sizeof(Block);

// The class bits of each character of the block (zero, which ends a string, has none).
Block Classify(Block block) {
  return (((block == '#') | (block == '}') | (block == '\\') | (block == '\n')) & kSpecial) |
         ((block == ' ') & kBlank) | ((block == '"') & kDoubleQuote);
}

template <typename T>
T Load(const char *text) {
  T value;
  memcpy(&value, text, sizeof value);
  return value;
}

// The classes (the bits above) of the length characters at text. Every read stays inside the
// string: a tail shorter than a block is read as two pieces that overlap in its middle, which
// repeats some characters but finds no class that is not there.
unsigned ClassesIn(const char *text, size_t length) {
  Block found = {};
  size_t i = 0;
  for (; i + kBlockSize <= length; i += kBlockSize) found |= Classify(Load<Block>(text + i));
  if (i < length) {
    if (length >= kBlockSize) {
      found |= Classify(Load<Block>(text + length - kBlockSize));
    } else {
      BlockWords halves = {};
      if (length >= 8) {
        halves[0] = Load<uint64_t>(text);
        halves[1] = Load<uint64_t>(text + length - 8);
      } else if (length >= 4) {
        halves[0] = Load<uint32_t>(text);
        halves[1] = Load<uint32_t>(text + length - 4);
      } else {
        halves[0] = static_cast<unsigned char>(text[0]) |
                    static_cast<unsigned char>(text[length / 2]) << 8 |
                    static_cast<unsigned char>(text[length - 1]) << 16;
      }
      found |= Classify(reinterpret_cast<Block>(halves));
    }
  }
  // The sixteen bytes or-ed into one.
  BlockWords words = reinterpret_cast<BlockWords>(found);
  uint64_t any = words[0] | words[1];
  any |= any >> 32;
  any |= any >> 16;
  any |= any >> 8;
  return static_cast<unsigned>(any & 0xff);
}

bool IsBlankOrTab(char c) { return c == ' ' || c == '\t'; }

// A string's length and the classes of the characters it holds.
struct Scan {
  size_t length;
  unsigned found;
};

Scan ScanString(const char *text) {
  size_t length = strlen(text);
  return {length, ClassesIn(text, length)};
}

// The quoting a scanned string needs.
Quoting RequiresLiteral(const char *text, const Scan &scan) {
  if (scan.length > 0 && (IsBlankOrTab(text[0]) || IsBlankOrTab(text[scan.length - 1]))) {
    return kLiteral;
  }
  return (scan.found & kSpecial) != 0 ? kEscaped : kAsItStands;
}

// Text being written: collected in one growing buffer, which a stream receives in large pieces.
class Output {
 public:
  explicit Output(FILE *stream) : stream_(stream) {}
  ~Output() { free(data_); }
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  void Append(const char *text, size_t length) {
    Reserve(length);
    memcpy(data_ + length_, text, length);
    length_ += length;
  }
  void Put(char c) {
    Reserve(1);
    data_[length_++] = c;
  }
  void Indent(int level) {
    for (size_t blanks = static_cast<size_t>(level) * kIndentWidth; blanks > 0;) {
      size_t piece = blanks < sizeof kBlanks - 1 ? blanks : sizeof kBlanks - 1;
      Append(kBlanks, piece);
      blanks -= piece;
    }
  }
  // Room for length more bytes at the end; a stream gets what is collected first.
  char *Reserve(size_t length) {
    if (length_ + length + 1 > capacity_) {
      if (stream_ != nullptr && length_ >= kStreamChunk) Flush();
      if (length_ + length + 1 > capacity_) Grow(length_ + length + 1);
    }
    return data_ + length_;
  }
  void Advance(size_t length) { length_ += length; }
  void Flush() { WriteTo(stream_); }
  // Hands everything collected to stream.
  void WriteTo(FILE *stream) {
    if (length_ > 0) fwrite(data_, 1, length_, stream);
    length_ = 0;
  }
  // The collected text, terminated, for the caller to free.
  char *Release() {
    Reserve(0);
    data_[length_] = '\0';
    char *text = data_;
    data_ = nullptr;
    length_ = capacity_ = 0;
    return text;
  }

 private:
  void Grow(size_t needed) {
    size_t capacity = capacity_ > 0 ? capacity_ : 4096;
    while (capacity < needed) capacity *= 2;
    data_ = static_cast<char *>(CV_REALLOC(data_, capacity, "s"));
    capacity_ = capacity;
  }

  FILE *stream_;
  char *data_ = nullptr;
  size_t length_ = 0;
  size_t capacity_ = 0;
};

// Writes text with a backslash before every newline, '#' and backslash, and before every '}'
// that closes no '{' still open, into at most twice its length; returns the bytes written.
size_t Escape(const char *text, size_t length, char *out) {
  char *start = out;
  long open_braces = 0;
  for (size_t i = 0; i < length; i++) {
    char c = text[i];
    if (c == '\n' || c == '#' || c == '\\') {
      *out++ = '\\';
    } else if (c == '{') {
      open_braces++;
    } else if (c == '}') {
      if (open_braces > 0) {
        open_braces--;
      } else {
        *out++ = '\\';
      }
    }
    *out++ = c;
  }
  return static_cast<size_t>(out - start);
}

void AppendEscaped(Output *out, const char *text, size_t length) {
  out->Advance(Escape(text, length, out->Reserve(2 * length)));
}

// True when, counted from the start, the closers never outnumber the openers and the two
// counts end equal.
bool IsBalanced(const char *text, size_t length, char opener, char closer) {
  long depth = 0;
  for (size_t i = 0; i < length; i++) {
    if (text[i] == opener) {
      depth++;
    } else if (text[i] == closer && --depth < 0) {
      return false;
    }
  }
  return depth == 0;
}

// A literal: between the first delimiter pair that the text balances, or else between two
// end markers that the text does not hold ("EndOfLiteral, then numbered until one is free).
void AppendLiteral(Output *out, const char *text, size_t length) {
  out->Append("&Literal", 8);
  for (const auto &pair : kLiteralPairs) {
    if (IsBalanced(text, length, pair[0], pair[1])) {
      out->Put(pair[0]);
      out->Put('\n');
      out->Append(text, length);
      out->Put(pair[1]);
      return;
    }
  }
  char marker[sizeof kEndMarker + 24];
  memcpy(marker, kEndMarker, sizeof kEndMarker);
  size_t marker_length = sizeof kEndMarker - 1;
  for (unsigned long n = 0; memmem(text, length, marker, marker_length) != nullptr; n++) {
    marker_length = static_cast<size_t>(snprintf(marker, sizeof marker, "%s%lu", kEndMarker, n));
  }
  out->Append(marker, marker_length);
  out->Put('\n');
  out->Append(text, length);
  out->Append(marker, marker_length);
}

// A string value in the form its quoting calls for (no line end).
void AppendString(Output *out, const char *text) {
  Scan scan = ScanString(text);
  size_t length = scan.length;
  Quoting quoting = RequiresLiteral(text, scan);
  if (quoting == kAsItStands) {
    out->Append(text, length);
  } else if (quoting == kEscaped && memchr(text, '\n', length) == nullptr) {
    AppendEscaped(out, text, length);
  } else {
    AppendLiteral(out, text, length);
  }
}

// The nodes of a tree are scattered over the heap, so writing one that is not in the cache is
// mostly waiting for memory: the key's node in the array, then the value's node, then its text.
// The writer therefore collects the entries of an array (or list) before writing them, asking
// for each value's node (and for the array's next nodes) on the way, and asks for the text of
// the entry kLookahead places ahead while it writes the current one. The loads then overlap
// instead of following one another.
constexpr size_t kLookahead = 4;

class TreeWriter {
 public:
  // indented: the stream layout, with escaped keys and four blanks per level; otherwise the
  // compact layout.
  TreeWriter(Output *out, bool indented) : out_(out), indented_(indented) {}
  ~TreeWriter() { free(entries_); }
  TreeWriter(const TreeWriter &) = delete;
  TreeWriter &operator=(const TreeWriter &) = delete;

  // A node as the value of an entry, at the level of its key.
  void WriteValue(Pf *pf, int level) {
    switch (pf->type) {
      case PFFILE:
        if (indented_) {
          WriteEntries(pf, level);
          break;
        }
        // A file node below the top is an array in the compact layout.
        [[fallthrough]];
      case PFARR:
        out_->Append("&Arr{\n", 6);
        WriteEntries(pf, level + 1);
        Indent(level);
        out_->Append("}\n", 2);
        break;
      case PFSTRING:
        AppendString(out_, pf->value.s);
        out_->Put('\n');
        break;
      case PFTBL: {
        out_->Append("&Tbl{\n", 6);
        size_t first = count_;
        Tbl *list = pf->value.tbl;
        for (long i = 0; i < maxtbl(list); i++) Push(nullptr, gettbl(list, i));
        WriteCollected(first, level + 1);
        Indent(level);
        out_->Append("}\n", 2);
        break;
      }
      case PFFCT:
        out_->Append(pf->value.pffunct->expression, strlen(pf->value.pffunct->expression));
        out_->Put('\n');
        break;
      default:
        break;  // nothing at all, not even the line end
    }
  }

  // The entries of an array or file, in key order.
  void WriteEntries(Pf *pf, int level) {
    size_t first = count_;
    CollectEntries(pf->value.arr);
    WriteCollected(first, level);
  }

 private:
  // A collected entry; the key is null for an element of a list.
  struct Entry {
    const char *key;
    Pf *value;
  };

  // Collects the entries of arr in key order, as applyarr gives them. Walking the array's
  // red-black tree here rather than through applyarr lets the walk ask for each node's right
  // child when it passes the node on the way down, long before it gets there. A tree of n nodes
  // is at most 2 log2(n + 1) deep, so the path fits a fixed stack.
  void CollectEntries(const Arr *arr) {
    if (arr == nullptr) return;
    const Rbnode *nil = &rb_null;
    const Rbnode *path[128];
    int depth = 0;
    const Rbnode *node = arr->root;
    for (;;) {
      for (; node != nil; node = node->left) {
        __builtin_prefetch(node->right);
        path[depth++] = node;
      }
      if (depth == 0) break;
      node = path[--depth];
      Push(static_cast<const char *>(node->key), node->value);
      node = node->right;
    }
  }

  void Push(const char *key, void *value) {
    if (count_ == capacity_) {
      capacity_ = capacity_ > 0 ? 2 * capacity_ : 256;
      entries_ = static_cast<Entry *>(CV_REALLOC(entries_, capacity_ * sizeof(Entry), "entries"));
    }
    entries_[count_++] = {key, static_cast<Pf *>(value)};
    __builtin_prefetch(value);
  }

  // Writes the entries collected from first on, each on its line at level, and drops them. The
  // entries of nested arrays and lists are collected above them, so the buffer may move while
  // they are written: it is indexed afresh each time.
  void WriteCollected(size_t first, int level) {
    size_t end = count_;
    for (size_t i = first; i < end && i < first + kLookahead; i++) Prefetch(entries_[i].value);
    for (size_t i = first; i < end; i++) {
      if (i + kLookahead < end) Prefetch(entries_[i + kLookahead].value);
      Entry entry = entries_[i];
      Indent(level);
      if (entry.key != nullptr) {
        WriteKey(entry.key);
        out_->Put('\t');
      }
      WriteValue(entry.value, level);
    }
    count_ = first;
  }

  // Asks for what writing the node will read first: its text, or the header of its array or
  // list.
  static void Prefetch(const Pf *pf) {
    switch (pf->type) {
      case PFSTRING:
        __builtin_prefetch(pf->value.s);
        break;
      case PFFILE:
      case PFARR:
        if (pf->value.arr != nullptr) __builtin_prefetch(&pf->value.arr->root);
        break;
      case PFTBL:
        __builtin_prefetch(pf->value.tbl);
        break;
      default:
        break;
    }
  }

  // A key holding a blank is quoted, with single quotes when it holds a double quote; in the
  // stream layout a key that needs quoting as a value is escaped first (which adds backslashes
  // only, so the blanks and quotes found before escaping still decide).
  void WriteKey(const char *key) {
    Scan scan = ScanString(key);
    bool escape = indented_ && RequiresLiteral(key, scan) != kAsItStands;
    char quote = 0;
    if ((scan.found & kBlank) != 0) quote = (scan.found & kDoubleQuote) != 0 ? '\'' : '"';
    if (quote != 0) out_->Put(quote);
    if (escape) {
      AppendEscaped(out_, key, scan.length);
    } else {
      out_->Append(key, scan.length);
    }
    if (quote != 0) out_->Put(quote);
  }

  void Indent(int level) {
    if (indented_) out_->Indent(level);
  }

  Output *out_;
  bool indented_;
  Entry *entries_ = nullptr;  // entries collected and not yet written, outermost first
  size_t count_ = 0;
  size_t capacity_ = 0;
};

}  // namespace
}  // namespace pf
}  // namespace corvel

int pfout(FILE *stream, Pf *pf) {
  using namespace corvel::pf;
  if (pf == nullptr || pf->value.s == nullptr) return -1;
  Output out(stream);
  TreeWriter(&out, true).WriteValue(pf, 0);
  out.Flush();
  return 0;
}

int pfwrite(const char *path, Pf *pf) {
  using namespace corvel::pf;
  // A null tree writes nothing: the file is left as it was rather than emptied.
  if (pf == nullptr || pf->value.s == nullptr) return -1;
  // The whole text is made before the file is opened, so the file is emptied only when its new
  // text is ready and stays incomplete no longer than one write takes. That one write goes
  // straight from the collected text (the stream keeps no buffer): one system call, no copy.
  Output out(nullptr);
  TreeWriter(&out, true).WriteValue(pf, 0);
  FILE *stream = fopen(path, "w+");
  if (stream == nullptr) {
    elog_log(1, "Can't open %s for writing.\n", path);
    return -1;
  }
  setvbuf(stream, nullptr, _IONBF, 0);
  out.WriteTo(stream);
  // A write that failed (a full disk) leaves the stream's error set: the file is incomplete.
  bool failed = ferror(stream) != 0;
  if (fclose(stream) != 0 || failed) {
    elog_log(1, "Can't close %s.\n", path);
    return -1;
  }
  return 0;
}

char *pf2string(Pf *pf) {
  using namespace corvel::pf;
  Output out(nullptr);
  if (pf != nullptr && pf->value.s != nullptr) {
    TreeWriter writer(&out, false);
    if (pf->type == PFFILE || pf->type == PFARR) {
      writer.WriteEntries(pf, 0);
    } else {
      writer.WriteValue(pf, 0);
    }
  }
  return out.Release();
}

char *str2pf(const char *string) {
  if (string == nullptr) return nullptr;
  corvel::pf::Output out(nullptr);
  corvel::pf::AppendString(&out, string);
  return out.Release();
}

char *pfescape_special_chars(const char *string) {
  if (string == nullptr) return nullptr;
  size_t length = strlen(string);
  // Twice the length holds the text even when every character needs its backslash.
  char *escaped = static_cast<char *>(CV_MALLOC(2 * length + 1, "s"));
  escaped[corvel::pf::Escape(string, length, escaped)] = '\0';
  return escaped;
}
