// Rendering bytes as printable text, escaped the way C source spells them.
#include <string.h>

#include "corvel/text.h"

namespace {

// Writes the spelling of byte into spelling (at most 4 characters); returns its length.
int Spell(unsigned char byte, char *spelling) {
  static const char kNamed[] = "\a\b\f\n\r\t\v";
  static const char kLetters[] = "abfnrtv";
  if (byte >= 0x20 && byte < 0x7f) {
    if (byte == '\\' || byte == '"') {
      spelling[0] = '\\';
      spelling[1] = static_cast<char>(byte);
      return 2;
    }
    spelling[0] = static_cast<char>(byte);
    return 1;
  }
  const char *named = byte != 0 ? strchr(kNamed, byte) : nullptr;
  spelling[0] = '\\';
  if (named != nullptr) {
    spelling[1] = kLetters[named - kNamed];
    return 2;
  }
  // Always three octal digits, so that a digit that follows cannot join the escape.
  spelling[1] = static_cast<char>('0' + (byte >> 6));
  spelling[2] = static_cast<char>('0' + ((byte >> 3) & 7));
  spelling[3] = static_cast<char>('0' + (byte & 7));
  return 4;
}

}  // namespace

char *printable_string(char *out, long outsize, const void *bytes, long n) {
  if (out == nullptr || outsize <= 0) return out;
  const unsigned char *data = static_cast<const unsigned char *>(bytes);
  if (data == nullptr) {
    data = reinterpret_cast<const unsigned char *>("<null>");
    n = -1;
  }
  if (n < 0) n = static_cast<long>(strlen(reinterpret_cast<const char *>(data)));
  long used = 0;
  for (long i = 0; i < n; i++) {
    char spelling[4];
    int length = Spell(data[i], spelling);
    // An escape is never cut in half: a partial one would read as another byte.
    if (used + length >= outsize) break;
    memcpy(out + used, spelling, static_cast<size_t>(length));
    used += length;
  }
  out[used] = '\0';
  return out;
}
