// Reading a yes-or-no word.
#include <string.h>

#include "corvel/text.h"

namespace {

// The longest word either list holds ("false").
constexpr size_t kLongestWord = 5;

const char *const kTrueWords[] = {"yes", "ok", "y", "true", "1", "on", "t"};
const char *const kFalseWords[] = {"no", "n", "false", "0", "off", "f"};

bool Contains(const char *const *words, size_t count, const char *word) {
  for (size_t i = 0; i < count; i++) {
    if (strcmp(words[i], word) == 0) return true;
  }
  return false;
}

}  // namespace

int yesno(const char *text) {
  if (text == nullptr) return 1;
  size_t length = strlen(text);
  if (length > kLongestWord) return 1;
  // Lower case by ASCII alone: under some locales 'I' does not lower to 'i'.
  char lowered[kLongestWord + 1];
  for (size_t i = 0; i <= length; i++) {
    char c = text[i];
    lowered[i] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  }
  if (Contains(kTrueWords, sizeof kTrueWords / sizeof *kTrueWords, lowered)) return -1;
  if (Contains(kFalseWords, sizeof kFalseWords / sizeof *kFalseWords, lowered)) return 0;
  return 1;
}
