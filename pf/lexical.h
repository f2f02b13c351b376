// The lexical pieces of parameter-file text that the scanner is built from: the byte sets that
// end its runs, escapes, the form of a function line, the end markers, and the buffer in which
// values with escapes are decoded.
#ifndef CORVEL_PF_LEXICAL_H_
#define CORVEL_PF_LEXICAL_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace corvel {
namespace pf {
namespace lexical {

// The delimiters of bracketed literals, in order: each one is closed by the character after
// it, so that "{" pairs with "}", and "}" used as an opener with "(". The last one pairs with
// the terminating NUL.
constexpr char kDelimiters[] = "{}()[]<>`'";

// A set of bytes tested with one table lookup, for the loops that run over whole lines.
class ByteSet {
 public:
  // The bytes listed, NUL with them when with_nul; or, inverted, every other byte.
  constexpr ByteSet(const char *bytes, bool with_nul, bool inverted = false) : member_() {
    for (; *bytes != '\0'; bytes++) member_[static_cast<unsigned char>(*bytes)] = true;
    member_[0] = with_nul;
    if (inverted) {
      for (bool &member : member_) member = !member;
    }
  }
  bool Has(char c) const { return member_[static_cast<unsigned char>(c)]; }

 private:
  bool member_[256];
};

// The sets that stop the loops over a line. Each holds the newline, so that a loop over a line
// that ends with one needs no bounds check. Where a key is expected a NUL byte counts as a
// blank.
constexpr ByteSet kKeyNonBlank(" \t", true, true);
constexpr ByteSet kNonBlank(" \t", false, true);
constexpr ByteSet kKeyEnd(" \t\n", true);
constexpr ByteSet kKeySpecial(" \t\n\\#", true);
constexpr ByteSet kValueSpecial("\n\\#&", true);

// The first byte from p that stop holds, or line_end. newline_ends: the line ends with its
// newline rather than with the end of the text.
inline const char *Find(const ByteSet &stop, const char *p, const char *line_end,
                        bool newline_ends) {
  if (newline_ends) {
    while (!stop.Has(*p)) p++;
    return p;
  }
  while (p < line_end && !stop.Has(*p)) p++;
  return p;
}

// The first byte from p that non_blank holds; indentation goes eight blanks at a time.
inline const char *SkipBlanks(const ByteSet &non_blank, const char *p, const char *line_end,
                              bool newline_ends) {
  constexpr uint64_t kEightBlanks = 0x2020202020202020;
  uint64_t eight;
  while (line_end - p >= 8 && (memcpy(&eight, p, 8), eight == kEightBlanks)) p += 8;
  return Find(non_blank, p, line_end, newline_ends);
}

inline bool IsBlank(char c) { return c == ' ' || c == '\t'; }
inline bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

inline bool StartsWith(const char *p, const char *line_end, const char *prefix, size_t length) {
  return static_cast<size_t>(line_end - p) >= length && memcmp(p, prefix, length) == 0;
}

// A new string of length bytes of text.
char *NewString(const char *text, size_t length);

// The character that the escape whose backslash is at p stands for (p + 1 < limit), stored in
// *out; returns where the text goes on. A digit takes the two characters after it whatever
// they are (never beyond limit) and reads the three as octal up to the first non-octal one.
const char *DecodeEscape(const char *p, const char *limit, char *out);

// Whether the function whose '(' is at open closes on its line: a ')' after it followed by
// nothing but blanks or tabs up to the line's end or up to a comment.
bool ClosesFunction(const char *open, const char *line_end);

// "__END__", "__DATA__" or "__EOF__" and blanks up to the line's end.
bool IsEndMarker(const char *p, const char *line_end);

// A plain value that holds the opening of an array, a list or a literal is kept, but most
// likely a mistake: says so.
void ComplainOfOpeners(const char *text);

// The buffer in which values with escapes are decoded: it starts small and doubles.
class ValueBuffer {
 public:
  ValueBuffer() = default;
  ValueBuffer(const ValueBuffer &) = delete;
  ValueBuffer &operator=(const ValueBuffer &) = delete;
  ~ValueBuffer();

  void Clear() { length_ = 0; }
  void Append(const char *text, size_t n) {
    if (n == 0) return;
    Reserve(n);
    memcpy(data_ + length_, text, n);
    length_ += n;
  }
  void Push(char c) {
    Reserve(1);
    data_[length_++] = c;
  }
  const char *data() const { return data_; }
  size_t length() const { return length_; }

 private:
  void Reserve(size_t n) {
    if (length_ + n > capacity_) Grow(length_ + n);
  }
  void Grow(size_t needed);

  char *data_ = nullptr;
  size_t length_ = 0;
  size_t capacity_ = 0;
};

}  // namespace lexical
}  // namespace pf
}  // namespace corvel

#endif  // CORVEL_PF_LEXICAL_H_
