// The parameter-file writer: a tree back into text, every string in the plainest form that the
// reader turns into the same string again.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "pfwrite.c";

namespace corvel {
namespace pf {
namespace {

constexpr char kIndent[] = "    ";  // one level of nesting
constexpr size_t kStreamChunk = 64 * 1024;
constexpr char kEndMarker[] = "\"EndOfLiteral";
// The delimiter pairs a literal may use, in the order they are tried.
constexpr char kLiteralPairs[][2] = {{'{', '}'}, {'(', ')'}, {'[', ']'}, {'<', '>'}, {'`', '\''}};

// How a string must be written: as it stands, escaped, or (with a blank or tab at either end,
// which the reader would trim) as a literal.
enum Quoting { kAsItStands = 0, kEscaped = 1, kLiteral = 2 };

// The characters a plain value cannot carry unescaped.
struct SpecialCharacters {
  bool table[256] = {};
  constexpr SpecialCharacters() {
    table[static_cast<unsigned char>('#')] = true;
    table[static_cast<unsigned char>('}')] = true;
    table[static_cast<unsigned char>('\\')] = true;
    table[static_cast<unsigned char>('\n')] = true;
  }
};
constexpr SpecialCharacters kSpecial;

bool IsBlankOrTab(char c) { return c == ' ' || c == '\t'; }

// The quoting a string needs; its length comes back on the way.
Quoting RequiresLiteral(const char *text, size_t *length) {
  bool special = false;
  const char *p = text;
  for (; *p != '\0'; p++) special |= kSpecial.table[static_cast<unsigned char>(*p)];
  *length = static_cast<size_t>(p - text);
  if (*length > 0 && (IsBlankOrTab(text[0]) || IsBlankOrTab(p[-1]))) return kLiteral;
  return special ? kEscaped : kAsItStands;
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
    for (int i = 0; i < level; i++) Append(kIndent, sizeof kIndent - 1);
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
  void Flush() {
    if (length_ > 0) fwrite(data_, 1, length_, stream_);
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
  size_t length;
  Quoting quoting = RequiresLiteral(text, &length);
  if (quoting == kAsItStands) {
    out->Append(text, length);
  } else if (quoting == kEscaped && memchr(text, '\n', length) == nullptr) {
    AppendEscaped(out, text, length);
  } else {
    AppendLiteral(out, text, length);
  }
}

class TreeWriter {
 public:
  // indented: the stream layout, with escaped keys and four blanks per level; otherwise the
  // compact layout.
  TreeWriter(Output *out, bool indented) : out_(out), indented_(indented) {}

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
      case PFTBL:
        out_->Append("&Tbl{\n", 6);
        for (long i = 0; i < maxtbl(pf->value.tbl); i++) {
          Indent(level + 1);
          WriteValue(static_cast<Pf *>(gettbl(pf->value.tbl, i)), level + 1);
        }
        Indent(level);
        out_->Append("}\n", 2);
        break;
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
    EntryContext context = {this, level};
    applyarr(pf->value.arr, WriteEntry, &context);
  }

 private:
  struct EntryContext {
    TreeWriter *writer;
    int level;
  };

  static void WriteEntry(char *key, void *value, void *private_data) {
    auto *context = static_cast<EntryContext *>(private_data);
    TreeWriter *writer = context->writer;
    writer->Indent(context->level);
    writer->WriteKey(key);
    writer->out_->Put('\t');
    writer->WriteValue(static_cast<Pf *>(value), context->level);
  }

  // A key holding a blank is quoted, with single quotes when it holds a double quote; in the
  // stream layout a key that needs quoting as a value is escaped first.
  void WriteKey(const char *key) {
    size_t length;
    Quoting quoting = RequiresLiteral(key, &length);
    char *escaped = nullptr;
    if (indented_ && quoting != kAsItStands) {
      escaped = static_cast<char *>(CV_MALLOC(2 * length + 1, "s"));
      length = Escape(key, length, escaped);
      key = escaped;
    }
    if (memchr(key, ' ', length) != nullptr) {
      char quote = memchr(key, '"', length) != nullptr ? '\'' : '"';
      out_->Put(quote);
      out_->Append(key, length);
      out_->Put(quote);
    } else {
      out_->Append(key, length);
    }
    free(escaped);
  }

  void Indent(int level) {
    if (indented_) out_->Indent(level);
  }

  Output *out_;
  bool indented_;
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
  // A null tree writes nothing: the file is left as it was rather than emptied.
  if (pf == nullptr || pf->value.s == nullptr) return -1;
  FILE *stream = fopen(path, "w+");
  if (stream == nullptr) {
    elog_log(1, "Can't open %s for writing.\n", path);
    return -1;
  }
  int result = pfout(stream, pf);
  // A write that failed (a full disk) leaves the stream's error set: the file is incomplete.
  bool failed = ferror(stream) != 0;
  if (fclose(stream) != 0 || failed) {
    elog_log(1, "Can't close %s.\n", path);
    return -1;
  }
  return result;
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
