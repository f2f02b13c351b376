// CM6 text: exact texts of small series, line breaks, round trips over every code length, how
// the decoder takes foreign and damaged text, and the CHK2 checksum.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "corvel/codec.h"

namespace {

std::string Encode(const std::vector<int> &x, int *size_out = nullptr) {
  char *out = nullptr;
  int nout = -1, size = 0;
  EXPECT_EQ(cm6(x.data(), static_cast<int>(x.size()), &out, &nout, &size), 0);
  EXPECT_LT(nout, size);
  std::string text(out, nout);
  free(out);
  if (size_out != nullptr) *size_out = size;
  return text;
}

// um6's result; the samples decoded go to *x.
int Decode(const std::string &text, std::vector<int> *x = nullptr) {
  // A copy of exactly the text's size, so that reading past it is caught by the sanitizers.
  char *copy = static_cast<char *>(malloc(text.size() + 1));
  memcpy(copy, text.data(), text.size());
  int *out = nullptr, n = -5, size = 0;
  const int r = um6(copy, static_cast<int>(text.size()), &out, &n, &size);
  if (x != nullptr) x->assign(out, out + (out != nullptr ? n : 0));
  EXPECT_TRUE(r == -1 || r == n);
  free(out);
  free(copy);
  return r;
}

// Every line of values holds 80 characters but the last, which ends before the checksum line.
void ExpectEightyColumns(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines.back().compare(0, 5, "CHK2 "), 0);
  for (size_t i = 0; i + 2 < lines.size(); i++) EXPECT_EQ(lines[i].size(), 80u) << i;
  EXPECT_LT(lines[lines.size() - 2].size(), 80u);
}

TEST(Cm6, SmallSeriesHaveTheirExactTexts) {
  EXPECT_EQ(Encode({}), "\nCHK2 0\n");
  EXPECT_EQ(Encode({0}), "+\nCHK2 0\n");
  EXPECT_EQ(Encode({-1}), "F\nCHK2 1\n");
  EXPECT_EQ(Encode({16}), "UE\nCHK2 16\n");
  EXPECT_EQ(Encode({-16}), "kE\nCHK2 16\n");
  EXPECT_EQ(Encode({1, 2, 3}), "-++\nCHK2 6\n");         // second differences 1, 0, 0
  EXPECT_EQ(Encode({511, 1534}), "jTUk+\nCHK2 2045\n");  // 511, then 512
  EXPECT_EQ(Encode({1 << 30}), "VUUUUU+\nCHK2 73741824\n");
  // Where each code length begins.
  const int first[] = {0, 16, 512, 16384, 0x80000, 0x1000000, 0x20000000};
  for (int n = 1; n <= 7; n++) {
    EXPECT_EQ(Encode({first[n - 1]}).find('\n'), static_cast<size_t>(n)) << first[n - 1];
    if (n < 7) {
      EXPECT_EQ(Encode({-(first[n] - 1)}).find('\n'), static_cast<size_t>(n));
    }
  }
}

TEST(Cm6, LinesBreakAfterEightyCharacters) {
  // A full last line is broken like the others, and the newline ending the values follows.
  EXPECT_EQ(Encode(std::vector<int>(80, 0)), std::string(80, '+') + "\n\nCHK2 0\n");
  EXPECT_EQ(Encode(std::vector<int>(81, 0)), std::string(80, '+') + "\n+\nCHK2 0\n");
  // Seven-character values run across the breaks and read back.
  std::vector<int> wide(200), back;
  for (size_t i = 0; i < wide.size(); i++) wide[i] = (i % 2 ? 1 : -1) * (0x30000000 + 977 * i);
  const std::string text = Encode(wide);
  ExpectEightyColumns(text);
  EXPECT_EQ(Decode(text, &back), 200);
  EXPECT_EQ(back, wide);
}

TEST(Cm6, RoundTripsAcrossMagnitudes) {
  std::mt19937 rng(6);
  for (int bits : {1, 4, 5, 9, 10, 14, 15, 19, 20, 24, 25, 29, 30, 32}) {
    std::vector<int> x(5000), back;
    for (int &v : x) v = static_cast<int>(rng() >> (32 - bits)) - (bits < 32 ? 1 << (bits - 1) : 0);
    int size = 0;
    const std::string text = Encode(x, &size);
    // Small values keep the traditional size; the widest need room for their line breaks.
    if (bits <= 24) {
      EXPECT_EQ(size, static_cast<int>(7.0 * 5000 * (1.0 + 1.0 / 81.0) + 21.0));
    }
    ExpectEightyColumns(text);
    ASSERT_EQ(Decode(text, &back), 5000) << bits;
    EXPECT_EQ(back, x) << bits;
  }
  // Differences that reach the most negative 32-bit value still come back.
  const std::vector<int> extremes = {INT_MIN, INT_MAX, INT_MIN, 0, INT_MAX, INT_MIN, INT_MIN};
  std::vector<int> back;
  EXPECT_EQ(Decode(Encode(extremes), &back), 7);
  EXPECT_EQ(back, extremes);
}

TEST(Um6, TakesHeaderLinesCarriageReturnsAndEndingBlanks) {
  const std::vector<int> x = {5, -7, 300000, 299990, 12, 0, -1};
  std::string text = Encode(x);
  for (size_t i = text.find('\n'); i != std::string::npos; i = text.find('\n', i + 2)) {
    text.insert(i, "\r");
  }
  std::vector<int> back;
  EXPECT_EQ(Decode("WID2 2024/02/01 ANMO\r\nSTA2 IU\nEID2 x\nBEA2 y\nDAT2\r\n" + text, &back), 7);
  EXPECT_EQ(back, x);
  EXPECT_EQ(Decode("DAT2\nCHK2 0\n", &back), 0);
  // From the third value on, a blank ends the values; the checksum covers those before it.
  EXPECT_EQ(Decode("-++ -\nCHK2 6\n", &back), 3);
  EXPECT_EQ(back, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(Decode("-+U\n E\nCHK2 22\n"), 3);  // blanks inside a value are passed over
}

TEST(Um6, RefusesDamagedText) {
  std::vector<int> back;
  EXPECT_EQ(Decode("-++\nCHK2 7\n", &back), -1);
  EXPECT_EQ(back.size(), 3u);  // what was decoded is kept for the caller
  for (const char *bad :
       {"-++\n", "-++\nCHK2", "-++\nCHK2 \n", "-++\nCHK2 -6\n", " -++\nCHK2 6\n", "-+\t \nCHK2 1\n",
        "*++\nCHK2 6\n", "-+*\nCHK2 2\n", "-+U\nCHK2 3\n", "-+-U\nCHK2 3\n", ""}) {
    EXPECT_EQ(Decode(bad), -1) << bad;
  }
  int *out = nullptr, n = 0, size = 0;
  EXPECT_EQ(um6(nullptr, 10, &out, &n, &size), -1);
  free(out);
}

TEST(Cm6, BuffersAreReplacedOnlyWhenTooSmall) {
  const std::vector<int> x = {1, 2, 3};
  char *text = static_cast<char *>(malloc(64));
  char *const given = text;
  int nout = 0, tsize = 64;
  ASSERT_EQ(cm6(x.data(), 3, &text, &nout, &tsize), 0);
  EXPECT_EQ(text, given);
  EXPECT_EQ(tsize, 64);
  tsize = 41;  // the encoder asks for 7 * 3 * (1 + 1/81) + 21 bytes
  ASSERT_EQ(cm6(x.data(), 3, &text, &nout, &tsize), 0);
  EXPECT_EQ(tsize, 42);

  int *out = static_cast<int *>(malloc(nout * sizeof(int)));
  int *const room = out;
  int n = 0, osize = nout;
  EXPECT_EQ(um6(text, nout, &out, &n, &osize), 3);
  EXPECT_EQ(out, room);
  EXPECT_EQ(osize, nout);
  osize = nout - 1;
  EXPECT_EQ(um6(text, nout, &out, &n, &osize), 3);
  EXPECT_EQ(osize, nout);
  free(out);
  free(text);
}

TEST(Cm6DeathTest, OutOfMemoryEndsTheProcess) {
  int x = 0, nout = 0, size = 0;
  char *out = nullptr;
  EXPECT_EXIT(cm6(&x, INT_MAX, &out, &nout, &size), ::testing::ExitedWithCode(1),
              "Out of memory in cm6 at line [0-9]+ of 'cm6.c'\n\tCan't malloc 15217970556 "
              "bytes for \\*compressedp");
}

int Checksum(std::vector<int> x, int start = 0) {
  gse_checksum(x.data(), static_cast<int>(x.size()), &start);
  return start;
}

TEST(Chk2, ReducesModuloTenToTheEighthWithTheSignOfTheValue) {
  EXPECT_EQ(Checksum({150000000}), 50000000);
  EXPECT_EQ(Checksum({-150000000, 49999999}), 1);
  EXPECT_EQ(Checksum({60000000, 60000000}), 20000000);
  EXPECT_EQ(Checksum({-99999999, -2}), 1);
  EXPECT_EQ(Checksum({99999999, 1, 5}), 5);
  EXPECT_EQ(Checksum({INT_MIN}), 47483648);
  EXPECT_EQ(Checksum({-5, 3}), 2);
  EXPECT_EQ(Checksum({3}, 5), 8);
}

}  // namespace
