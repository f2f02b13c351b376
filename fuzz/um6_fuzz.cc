// CM6 text as any sender may write it. The decoder must stay within the text and its output
// whatever the bytes, and agree with a plain reading of the format, one character at a time,
// on the result and on every sample. Whenever it accepts a text, coding its samples again and
// decoding that must give the same samples.
//
// Layout: byte 0 chooses the output the decoder is handed (bit 0: none, else a buffer of
// byte 0 >> 1 samples, too small for all but the shortest texts); the rest is the text.
#include <ctype.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "corvel/codec.h"
#include "corvel/elog.h"

namespace {

const std::string kAlphabet = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

bool IsOneOf(char c, const char *set) { return c != '\0' && strchr(set, c) != nullptr; }

// The plain reading: the result, and the samples decoded into *x.
int Reference(const std::string &text, std::vector<int> *x) {
  size_t at = 0;
  while (at < text.size() && (!text.compare(at, 5, "WID2 ") || !text.compare(at, 5, "STA2 ") ||
                              !text.compare(at, 5, "EID2 ") || !text.compare(at, 5, "BEA2 ") ||
                              !text.compare(at, 4, "DAT2"))) {
    const size_t newline = text.find('\n', at);
    at = newline == std::string::npos ? text.size() : newline + 1;
  }
  const size_t tag = text.find("\nCHK2 ", at > 0 ? at - 1 : 0);
  if (tag == std::string::npos) return -1;
  const std::string values = text.substr(at, tag > at ? tag - at : 0);
  size_t p = 0;
  bool error = false;
  uint32_t x1 = 0, x2 = 0;
  for (int k = 0;; k++) {
    if (k >= 2) {
      while (p < values.size() && values[p] == '\n') p++;
      if (p < values.size() && values[p] == ' ') break;
    }
    while (p < values.size() && IsOneOf(values[p], "\r\t\n")) p++;
    if (p == values.size()) break;
    bool bad = values[p] == ' ' || kAlphabet.find(values[p]) == std::string::npos;
    uint32_t c = bad ? 0 : kAlphabet.find(values[p]), m = c & 15, sign = c & 16;
    for (p++; !bad && (c & 32);) {
      while (p < values.size() && IsOneOf(values[p], "\r\t\n ")) p++;
      bad = p == values.size() || kAlphabet.find(values[p]) == std::string::npos;
      if (!bad) c = kAlphabet.find(values[p++]), m = m << 5 | (c & 31);
    }
    error |= bad;
    if (bad && k >= 2) break;
    const uint32_t v = bad ? 0 : sign ? 0 - m : m, s = v + 2 * x1 - x2;
    x2 = x1, x1 = s;
    x->push_back(static_cast<int>(s));
  }
  int sum = 0;
  gse_checksum(x->data(), static_cast<int>(x->size()), &sum);
  size_t q = tag + 6;
  while (q < text.size() && (text[q] == ' ' || text[q] == '\t')) q++;
  const bool negative = q < text.size() && text[q] == '-';
  if (q < text.size() && (text[q] == '+' || text[q] == '-')) q++;
  if (q == text.size() || !isdigit(static_cast<unsigned char>(text[q]))) return -1;
  long long number = 0;
  for (; q < text.size() && isdigit(static_cast<unsigned char>(text[q])); q++) {
    number = std::min(number * 10 + (text[q] - '0'), 1000000000000ll);
  }
  if (error || (negative ? -number : number) != sum) return -1;
  return static_cast<int>(x->size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1 || size > (1u << 20)) return 0;
  const char *text = reinterpret_cast<const char *>(data + 1);
  const int nbytes = static_cast<int>(size - 1);
  int given = data[0] & 1 ? 0 : data[0] >> 1;
  int *samples = given > 0 ? static_cast<int *>(malloc(given * sizeof(int))) : nullptr;
  int nsamp = -1;
  const int n = um6(text, nbytes, &samples, &nsamp, &given);

  std::vector<int> expected;
  if (Reference(std::string(text, nbytes), &expected) != n) abort();
  if (n >= 0 && (nsamp != n || (n > 0 && memcmp(samples, expected.data(), n * sizeof(int))))) {
    abort();
  }
  if (n >= 0) {
    char *again = nullptr;
    int nout = 0, outsize = 0;
    cm6(samples, n, &again, &nout, &outsize);
    if (nout >= outsize) abort();
    int *back = nullptr, nback = -1, backsize = 0;
    if (um6(again, nout, &back, &nback, &backsize) != n) abort();
    if (n > 0 && memcmp(back, samples, n * sizeof(int)) != 0) abort();
    free(back);
    free(again);
  }
  free(samples);
  elog_clear();
  return 0;
}
