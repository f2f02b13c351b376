// The scanner of parameter-file text. It reads line by line in one of two states, KEY where a
// key is expected (in arrays) and VALUE where a value is expected (after a key, and everywhere
// in a list), and puts each entry into the tree as soon as it is complete, so that what was
// read before an error stays. All of its state lives in one Scanner per read: nothing carries
// over from one read to the next.
#include "pf/scanner.h"

#include <stdio.h>
#include <string.h>

#include "corvel/elog.h"
#include "pf/internal.h"
#include "pf/lexical.h"

namespace corvel {
namespace pf {

namespace {

using lexical::ClosesFunction;
using lexical::ComplainOfOpeners;
using lexical::DecodeEscape;
using lexical::Find;
using lexical::IsBlank;
using lexical::IsDigit;
using lexical::IsEndMarker;
using lexical::IsLetter;
using lexical::kDelimiters;
using lexical::kKeyEnd;
using lexical::kKeyNonBlank;
using lexical::kKeySpecial;
using lexical::kNonBlank;
using lexical::kValueSpecial;
using lexical::NewString;
using lexical::SkipBlanks;
using lexical::StartsWith;
using lexical::ValueBuffer;

constexpr int kMaxOpen = 10;         // opening a container while more are open stops the read
constexpr size_t kMaxKey = 1023;     // longer keys are cut
constexpr size_t kMaxEndWord = 127;  // the word that ends a &Literal" literal

enum class Step { kGoOn, kEndOfText, kStop, kLiteralUnfinished };

class Scanner {
 public:
  Scanner(TextSource *source, Pf *top, const char *name)
      : source_(source), p_(source->start()), end_(source->end()), current_(top), name_(name) {
    key_[0] = '\0';
  }
  Scanner(const Scanner &) = delete;
  Scanner &operator=(const Scanner &) = delete;

  ScanOutcome Run();

 private:
  bool LoadLine();
  bool More();
  bool NewlineEnds() const { return line_end_ < end_; }
  const char *FindValueSpecial(const char *p, bool *ampersand) const;
  Step SkipRestOfLine();
  void CountLines(const char *from, const char *to);
  void SetKey(const char *text, size_t length);

  Step ScanKey();
  bool ScanQuotedKey();
  Step ScanBareKey(const char *p);
  Step ScanValue();
  bool ScanDirective(const char *p, Step *step);
  bool ScanFunction(const char *p);
  Step ScanBracketLiteral(const char *p);
  Step ScanTerminatedLiteral(const char *p);
  Step ScanPlainValue(const char *p);
  size_t DecodeValue(const char *p, const char *q);
  Step LiteralUnfinished();

  Step Open(int type);
  Step Close();
  void Undefine();
  void Store(Pf *node);
  void StoreString(const char *text, size_t length);

  TextSource *source_;
  const char *p_;  // the next character to scan; the source keeps the text from here on
  const char *end_;
  // The newline that ends the line at p_, or end_ for a last line without one; null when it
  // has to be looked for again.
  const char *line_end_ = nullptr;
  Pf *current_;  // the container that entries go into
  Pf *enclosing_[kMaxOpen + 1];
  int level_ = 0;
  int lineno_ = 1;
  bool in_value_ = false;
  bool at_line_start_ = true;
  const char *name_;
  char key_[kMaxKey + 1];
  ValueBuffer value_;
};

// Makes the whole line at p_ available, with line_end_ at its end. False when no text is left.
bool Scanner::LoadLine() {
  if (line_end_ == nullptr || line_end_ < p_) {
    size_t searched = 0;
    for (;;) {
      const void *newline = memchr(p_ + searched, '\n', static_cast<size_t>(end_ - p_) - searched);
      if (newline != nullptr) {
        line_end_ = static_cast<const char *>(newline);
        break;
      }
      searched = static_cast<size_t>(end_ - p_);
      if (!More()) {
        line_end_ = end_;
        break;
      }
    }
  }
  return p_ < end_;
}

// Reads more text. Every pointer into the text but p_ and end_ is stale afterwards.
bool Scanner::More() {
  bool more = source_->More(&p_, &end_);
  line_end_ = nullptr;
  return more;
}

// Drops the rest of the line at p_ together with its newline.
Step Scanner::SkipRestOfLine() {
  if (line_end_ < end_) {
    p_ = line_end_ + 1;
    lineno_++;
    at_line_start_ = true;
  } else {
    p_ = end_;
  }
  return Step::kGoOn;
}

void Scanner::CountLines(const char *from, const char *to) {
  while (from < to) {
    const void *newline = memchr(from, '\n', static_cast<size_t>(to - from));
    if (newline == nullptr) break;
    lineno_++;
    from = static_cast<const char *>(newline) + 1;
  }
}

void Scanner::SetKey(const char *text, size_t length) {
  if (length > kMaxKey) length = kMaxKey;
  memcpy(key_, text, length);
  key_[length] = '\0';
}

ScanOutcome Scanner::Run() {
  Step step = Step::kGoOn;
  while (step == Step::kGoOn && LoadLine()) step = in_value_ ? ScanValue() : ScanKey();
  if (step == Step::kGoOn && in_value_ && current_->type != PFTBL) {
    // The text ended right after a key: the end of the text ends its line too.
    StoreString("", 0);
  }
  ScanOutcome outcome;
  outcome.stopped = step == Step::kStop;
  outcome.open_levels = level_ + (step == Step::kLiteralUnfinished ? 1 : 0);
  outcome.last_line = lineno_;
  return outcome;
}

Step Scanner::ScanKey() {
  const char *p = p_;
  const char *const line_end = line_end_;
  p = SkipBlanks(kKeyNonBlank, p, line_end, NewlineEnds());
  if (p == line_end) return SkipRestOfLine();
  at_line_start_ = false;
  switch (*p) {
    case '#':
      return SkipRestOfLine();
    case '}':
      // A longer word that begins with the brace is a key.
      if (p + 1 == line_end || kKeyEnd.Has(p[1])) {
        Step step = Close();
        return step == Step::kGoOn ? SkipRestOfLine() : step;
      }
      break;
    case '_':
      if (line_end < end_ && IsEndMarker(p, line_end)) return Step::kEndOfText;
      break;
    case '"':
    case '\'':
      p_ = p;
      if (ScanQuotedKey()) return Step::kGoOn;
      LoadLine();  // the text may have moved while the closing quote was looked for
      p = p_;
      break;
    default:
      break;
  }
  return ScanBareKey(p);
}

// A key in quotes at p_, taken as it stands, newlines included. The quoted reading must be at
// least as long as the bare word that begins with the same quote; else the word is the key.
bool Scanner::ScanQuotedKey() {
  const char quote = *p_;
  size_t word_length = 1;
  while (p_ + word_length < line_end_ && !kKeyEnd.Has(p_[word_length])) word_length++;
  size_t searched = 1;
  const char *close;
  for (;;) {
    close = static_cast<const char *>(
        memchr(p_ + searched, quote, static_cast<size_t>(end_ - p_) - searched));
    if (close != nullptr) break;
    searched = static_cast<size_t>(end_ - p_);
    if (!More()) return false;
  }
  if (static_cast<size_t>(close - p_) + 1 < word_length) return false;
  SetKey(p_ + 1, static_cast<size_t>(close - p_ - 1));
  CountLines(p_, close);
  p_ = close + 1;
  in_value_ = true;
  return true;
}

// A bare word at p, copied with its escapes decoded. A '#' in it ends the key and makes the
// rest of the line a comment, which leaves the key an empty value.
Step Scanner::ScanBareKey(const char *p) {
  const char *const line_end = line_end_;
  const char *q = Find(kKeySpecial, p, line_end, NewlineEnds());
  if (q == line_end || kKeyEnd.Has(*q)) {
    SetKey(p, static_cast<size_t>(q - p));
    p_ = q;
    in_value_ = true;
    return Step::kGoOn;
  }
  const char *word_end = Find(kKeyEnd, q, line_end, NewlineEnds());
  size_t n = static_cast<size_t>(q - p) < kMaxKey ? static_cast<size_t>(q - p) : kMaxKey;
  memcpy(key_, p, n);
  while (q < word_end) {
    char c = *q;
    if (c == '#') {
      key_[n] = '\0';
      p_ = q;
      StoreString("", 0);
      return SkipRestOfLine();
    }
    if (c == '\\' && q + 1 < word_end) {
      q = DecodeEscape(q, word_end, &c);
    } else {
      q++;
    }
    if (n < kMaxKey) key_[n++] = c;
  }
  key_[n] = '\0';
  p_ = word_end;
  in_value_ = true;
  return Step::kGoOn;
}

Step Scanner::ScanValue() {
  const char *p = p_;
  const char *const line_end = line_end_;
  if (p < line_end && IsBlank(*p)) {
    p = SkipBlanks(kNonBlank, p, line_end, NewlineEnds());
    at_line_start_ = false;
  }
  p_ = p;
  if (p == line_end) {
    // A key at the end of its line, or a list line of nothing or blanks: an empty value.
    StoreString("", 0);
    return SkipRestOfLine();
  }
  switch (*p) {
    case '#':
      // A comment after a key, or after blanks on a list line, stands for an empty value; a
      // list line with the comment in its first column adds nothing.
      if (!at_line_start_ || current_->type != PFTBL) StoreString("", 0);
      return SkipRestOfLine();
    case '}': {
      Step step = Close();
      return step == Step::kGoOn ? SkipRestOfLine() : step;
    }
    case '&': {
      Step step;
      if (ScanDirective(p, &step)) return step;
      break;
    }
    default:
      break;
  }
  return ScanPlainValue(p);
}

// The forms that begin with '&' at the start of a value. A function must take the whole line;
// the others are recognised by their beginning.
bool Scanner::ScanDirective(const char *p, Step *step) {
  const char *const line_end = line_end_;
  if (ScanFunction(p)) {
    *step = Step::kGoOn;
  } else if (StartsWith(p, line_end, "&Arr{", 5) || StartsWith(p, line_end, "&Tbl{", 5)) {
    *step = Open(p[1] == 'A' ? PFARR : PFTBL);
    if (*step == Step::kGoOn) *step = SkipRestOfLine();
  } else if (StartsWith(p, line_end, "&Undef{}", 8)) {
    Undefine();
    *step = SkipRestOfLine();
  } else if (line_end - p > 8 && memcmp(p, "&Literal", 8) == 0) {
    *step = p[8] == '"' ? ScanTerminatedLiteral(p) : ScanBracketLiteral(p);
  } else {
    return false;
  }
  return true;
}

bool Scanner::ScanFunction(const char *p) {
  const char *const line_end = line_end_;
  if (line_end == end_) return false;  // the form ends with its newline
  const char *q = p + 1;
  if (q == line_end || !IsLetter(*q)) return false;
  do q++;
  while (q < line_end && (IsLetter(*q) || IsDigit(*q) || *q == '_'));
  if (q == line_end || *q != '(' || !ClosesFunction(q, line_end)) return false;
  // &file and &filename keep their line whole; other functions lose the blanks at its end.
  size_t name_length = static_cast<size_t>(q - p - 1);
  bool whole = (name_length == 4 && memcmp(p + 1, "file", 4) == 0) ||
               (name_length == 8 && memcmp(p + 1, "filename", 8) == 0);
  const char *text_end = line_end;
  if (!whole) {
    while (IsBlank(text_end[-1])) text_end--;
  }
  Pf *node = pfnew(PFFCT);
  node->value.pffunct->expression = NewString(p, static_cast<size_t>(text_end - p));
  Store(node);
  SkipRestOfLine();
  return true;
}

// &Literal and an opening delimiter at p: the value is the text from the next line up to the
// matching closer, taken as it stands.
Step Scanner::ScanBracketLiteral(const char *p) {
  const char opener = p[8];
  const char *listed = opener != '\0' ? strchr(kDelimiters, opener) : nullptr;
  char closer;
  if (listed != nullptr) {
    closer = listed[1];
  } else if (p + 9 < line_end_) {
    closer = p[9];  // any other opener: the character after it closes
  } else {
    closer = '\n';  // which is the newline that ends this line
  }
  if (line_end_ == end_) return Step::kLiteralUnfinished;
  SkipRestOfLine();
  int depth = 0;
  size_t scanned = 0;
  const char *close = nullptr;
  while (close == nullptr) {
    for (const char *q = p_ + scanned; q < end_; q++) {
      if (*q == closer) {
        if (depth == 0) {
          close = q;
          break;
        }
        depth--;
      } else if (*q == opener) {
        depth++;
      }
    }
    scanned = static_cast<size_t>(end_ - p_);
    if (close == nullptr && !More()) return LiteralUnfinished();
  }
  CountLines(p_, close);
  StoreString(p_, static_cast<size_t>(close - p_));
  p_ = close + 1;
  if (closer == '\n') {
    lineno_++;
    at_line_start_ = true;
    return Step::kGoOn;
  }
  LoadLine();
  return SkipRestOfLine();  // the rest of the closer's line
}

// A literal ran to the end of the text, which the source has kept from p_ on: its lines count.
Step Scanner::LiteralUnfinished() {
  CountLines(p_, end_);
  p_ = end_;
  return Step::kLiteralUnfinished;
}

// &Literal" and a word at p: the value is the text from the next line up to a double quote
// followed by the word.
Step Scanner::ScanTerminatedLiteral(const char *p) {
  char marker[kMaxEndWord + 1];
  size_t word_length = static_cast<size_t>(line_end_ - (p + 9));
  if (word_length > kMaxEndWord) word_length = kMaxEndWord;
  marker[0] = '"';
  memcpy(marker + 1, p + 9, word_length);
  const size_t marker_length = word_length + 1;
  if (line_end_ == end_) return Step::kLiteralUnfinished;
  SkipRestOfLine();
  size_t searched = 0;
  const char *found;
  for (;;) {
    found = static_cast<const char *>(
        memmem(p_ + searched, static_cast<size_t>(end_ - p_) - searched, marker, marker_length));
    if (found != nullptr) break;
    size_t available = static_cast<size_t>(end_ - p_);
    searched = available >= marker_length ? available - marker_length + 1 : 0;
    if (!More()) return LiteralUnfinished();
  }
  CountLines(p_, found);
  StoreString(p_, static_cast<size_t>(found - p_));
  p_ = found + marker_length;
  LoadLine();
  return SkipRestOfLine();
}

// The rest of the line as a value: a '#' starts a comment, a NUL byte ends the value, blanks
// around it are dropped. Values without a backslash are copied straight from the text.
Step Scanner::ScanPlainValue(const char *p) {
  bool ampersand = false;
  const char *q = FindValueSpecial(p, &ampersand);
  const char *text = p;
  size_t length;
  if (q < line_end_ && *q == '\\') {
    length = DecodeValue(p, q);
    text = value_.data();
    ampersand = true;  // it may come from an escape
  } else {
    const char *e = q;
    while (e > p && IsBlank(e[-1])) e--;
    length = static_cast<size_t>(e - p);
  }
  Pf *node = NewInlineStringNode(text, length);
  if (ampersand) ComplainOfOpeners(node->value.s);
  Store(node);
  return SkipRestOfLine();
}

// The first backslash, '#' or NUL byte of the line from p, or the line's end; notes whether an
// '&' came before it.
const char *Scanner::FindValueSpecial(const char *p, bool *ampersand) const {
  for (;;) {
    p = Find(kValueSpecial, p, line_end_, NewlineEnds());
    if (p == line_end_ || *p != '&') return p;
    *ampersand = true;
    p++;
  }
}

// Decodes the value that begins at p and has its first backslash at q. A backslash before the
// newline carries the value on to the next line. Blanks at the end are dropped, but escaped
// characters are kept. Leaves p_ on the value's last line, and the value in value_; returns
// its length.
size_t Scanner::DecodeValue(const char *p, const char *q) {
  value_.Clear();
  size_t kept = 0;
  for (;;) {
    value_.Append(p, static_cast<size_t>(q - p));
    const char *e = q;
    while (e > p && IsBlank(e[-1])) e--;
    if (e > p) kept = value_.length() - static_cast<size_t>(q - e);
    const char *const line_end = line_end_;
    if (q == line_end || *q != '\\') break;
    if (q + 1 < line_end) {
      char c;
      p = DecodeEscape(q, line_end, &c);
      value_.Push(c);
    } else if (line_end < end_) {
      value_.Push('\n');
      p_ = line_end + 1;
      lineno_++;
      LoadLine();
      p = p_;
    } else {
      value_.Push('\\');  // a backslash that ends the text stands for itself
      p = line_end;
    }
    kept = value_.length();
    bool ampersand;
    q = FindValueSpecial(p, &ampersand);
  }
  p_ = q;
  return kept;
}

Step Scanner::Open(int type) {
  if (level_ > kMaxOpen) {
    elog_log(0, "*stack* too many Lex_levels of nesting at line #%d in pf file %s", lineno_, name_);
    return Step::kStop;
  }
  Pf *node = pfnew(type);
  Store(node);
  enclosing_[level_++] = current_;
  current_ = node;
  in_value_ = type == PFTBL;
  return Step::kGoOn;
}

Step Scanner::Close() {
  if (level_ == 0) {
    elog_log(0, "*stack* invalid right brace at line #%d in pf file %s", lineno_, name_);
    return Step::kStop;
  }
  current_ = enclosing_[--level_];
  in_value_ = current_->type == PFTBL;
  return Step::kGoOn;
}

// &Undef{}: an array forgets the current key, a list its last entry.
void Scanner::Undefine() {
  if (current_->type == PFTBL) {
    pffree(static_cast<Pf *>(poptbl(current_->value.tbl)));
  } else {
    pffree(static_cast<Pf *>(delarr(current_->value.arr, key_)));
    in_value_ = false;
  }
}

void Scanner::Store(Pf *node) {
  node->parent = current_;
  if (current_->type == PFTBL) {
    pushtbl(current_->value.tbl, node);
    return;
  }
  Pf *previous = static_cast<Pf *>(setarr(current_->value.arr, key_, node));
  if (previous != nullptr) {
    if (Pf_show_replacements) {
      fprintf(stderr, "replacing key '%s' at line #%d of %s\n", key_, lineno_, name_);
    }
    pffree(previous);
  }
  in_value_ = false;
}

void Scanner::StoreString(const char *text, size_t length) {
  Store(NewInlineStringNode(text, length));
}

}  // namespace

ScanOutcome ScanParameterText(TextSource *source, Pf *top, const char *name) {
  Scanner scanner(source, top, name);
  return scanner.Run();
}

}  // namespace pf
}  // namespace corvel
