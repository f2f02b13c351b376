// Hexadecimal dumps: an offset, 16 bytes in hexadecimal, and the same bytes as characters.
#include <stdio.h>
#include <string.h>

#include "corvel/text.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "hexdump.c";

namespace {

constexpr long kBytesPerLine = 16;
// The longest line: a 16-digit offset, 2 blanks, 16 "xx " groups, 2 blanks, the 18-character
// character column and the newline.
constexpr size_t kMaxLine = 16 + 2 + 16 * 3 + 2 + 18 + 1;

// Formats the line of up to 16 bytes at offset into line; returns its length.
size_t FormatLine(char *line, unsigned long offset, const unsigned char *bytes, long count) {
  static const char kHex[] = "0123456789abcdef";
  char *p = line + snprintf(line, kMaxLine, "%08lx  ", offset);
  for (long i = 0; i < kBytesPerLine; i++) {
    if (i < count) {
      *p++ = kHex[bytes[i] >> 4];
      *p++ = kHex[bytes[i] & 15];
    } else {
      *p++ = ' ';
      *p++ = ' ';
    }
    *p++ = ' ';
    if (i == 7) *p++ = ' ';
  }
  *p++ = ' ';
  *p++ = '|';
  for (long i = 0; i < count; i++) *p++ = bytes[i] >= 0x20 && bytes[i] < 0x7f ? bytes[i] : '.';
  *p++ = '|';
  *p++ = '\n';
  return static_cast<size_t>(p - line);
}

}  // namespace

int hexdump(FILE *file, const void *bytes, long n) {
  const unsigned char *data = static_cast<const unsigned char *>(bytes);
  if (data == nullptr || n <= 0) return 0;
  if (file == nullptr) file = stderr;
  // Lines are gathered into blocks so that a large dump costs few writes.
  char block[64 * kMaxLine];
  size_t used = 0;
  for (long offset = 0; offset < n; offset += kBytesPerLine) {
    long count = n - offset < kBytesPerLine ? n - offset : kBytesPerLine;
    used += FormatLine(block + used, static_cast<unsigned long>(offset), data + offset, count);
    if (used + kMaxLine > sizeof block) {
      if (fwrite(block, 1, used, file) != used) return -1;
      used = 0;
    }
  }
  if (used && fwrite(block, 1, used, file) != used) return -1;
  return 0;
}

char *hexdump_string(const void *bytes, long n) {
  const unsigned char *data = static_cast<const unsigned char *>(bytes);
  if (data == nullptr || n < 0) n = 0;
  const size_t lines = static_cast<size_t>((n + kBytesPerLine - 1) / kBytesPerLine);
  char *text = static_cast<char *>(CV_MALLOC(lines * kMaxLine + 1, "hexdump"));
  size_t used = 0;
  for (long offset = 0; offset < n; offset += kBytesPerLine) {
    long count = n - offset < kBytesPerLine ? n - offset : kBytesPerLine;
    used += FormatLine(text + used, static_cast<unsigned long>(offset), data + offset, count);
  }
  text[used] = '\0';
  return text;
}
