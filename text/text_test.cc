#include "corvel/text.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "corvel/elog.h"

namespace {

std::string Take(char *s) {
  std::string text(s);
  free(s);
  return text;
}

std::string Expand(const char *text) { return Take(expand_env(text)); }

std::vector<std::string> Split(std::string text, char c) {
  Tbl *fields = split(&text[0], c);
  std::vector<std::string> result;
  for (long i = 0; i < maxtbl(fields); i++) result.push_back((char *)gettbl(fields, i));
  freetbl(fields, nullptr);
  return result;
}

TEST(TextExpandEnv, ReplacesReferencesAndKeepsUnsetOnes) {
  setenv("CVA", "alpha", 1);
  setenv("CVA_B", "never looked up by $CVA_B", 1);
  unsetenv("CVUNSET");
  EXPECT_EQ(Expand("no reference"), "no reference");
  EXPECT_EQ(Expand("$CVA/x"), "alpha/x");
  EXPECT_EQ(Expand("$CVA_B"), "alpha_B");                        // an underscore ends the name
  EXPECT_EQ(Expand("${CVA_B}!"), "never looked up by $CVA_B!");  // values are not rescanned
  EXPECT_EQ(Expand("x${CVA"), "xalpha");                         // no '}': the rest is the name
  EXPECT_EQ(Expand("$CVUNSET and ${CVUNSET} and ${CVUNSET"),
            "$CVUNSET and ${CVUNSET} and ${CVUNSET");
  EXPECT_EQ(Expand("cost: 5$"), "cost: 5$");
  EXPECT_EQ(Expand("$$-${}"), "$$-${}");
}

TEST(TextExpandEnv, GrowsForLongValues) {
  std::string value(5000, 'v');
  setenv("CVLONG", value.c_str(), 1);
  std::string expected = "<" + value + "|" + value + "|" + value + ">";
  EXPECT_TRUE(Expand("<$CVLONG|${CVLONG}|$CVLONG>") == expected);
}

std::string Trimmed(const char *text) {
  std::string buffer(text);
  return strtrim(&buffer[0]);
}

std::string Dbl(double value) {
  char buffer[32];
  return strdbl(buffer, value);
}

TEST(TextTrim, TrimsOnlyBlanksTabsAndNewlines) {
  EXPECT_EQ(Trimmed("\t x \n"), "x");
  EXPECT_EQ(Trimmed("\r x"), "\r x");
  EXPECT_EQ(Trimmed("x\r\n"), "x\r");
  EXPECT_EQ(Trimmed(" \t\n "), "");
  EXPECT_EQ(whitespace(" \t\n"), 1);
  EXPECT_EQ(whitespace(" \r "), 0);
}

TEST(TextSplit, SkipsRunsOfSeparators) {
  EXPECT_EQ(Split(",,a,,b,", ','), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(Split("ANMO BHZ  00", ' '), (std::vector<std::string>{"ANMO", "BHZ", "00"}));
  EXPECT_TRUE(Split("", ',').empty());
  EXPECT_TRUE(Split(",,,", ',').empty());
}

TEST(TextBuilder, AppendsAcrossGrowthAndHandsOverTheBuffer) {
  EXPECT_EQ(Take(popstr(nullptr, 1)), "");
  void *handle = nullptr;
  std::string expected;
  for (int i = 0; i < 300; i++) {  // well past the first 1024 bytes
    std::string piece = std::to_string(i) + ",";
    expected += piece;
    ASSERT_EQ(pushstr(&handle, piece.c_str()), static_cast<long>(expected.size()));
    if (i == 150) {
      EXPECT_EQ(popstr(&handle, 0), expected);  // a look without taking it
    }
  }
  EXPECT_EQ(Take(popstr(&handle, 1)), expected);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(Take(strconcat("a", "", "bc", nullptr, "ignored", nullptr)), "abc");
}

TEST(TextStrdbl, FormatsCompactlyWithEngineeringExponents) {
  EXPECT_EQ(Dbl(1e10), "10000000000");  // the threshold is exclusive
  EXPECT_EQ(Dbl(1.5e11), "150e9");
  EXPECT_EQ(Dbl(123456789012.0), "123.456789012e9");
  EXPECT_EQ(Dbl(1e12), "1e12");
  EXPECT_EQ(Dbl(0.001), ".001");
  EXPECT_EQ(Dbl(0.0005), "500e-6");
  EXPECT_EQ(Dbl(-2.5e-7), "-250e-9");
  EXPECT_EQ(Dbl(1e-100), ".1e-99");  // the exponent rule truncates toward zero
  EXPECT_EQ(Dbl(0), "0");
  EXPECT_EQ(Dbl(-0.5), "-0.5");
  EXPECT_EQ(Dbl(-INFINITY), "-Inf");
  EXPECT_EQ(Dbl(NAN), "NaN");
  for (double extreme : {5e-324, -1.5e308, 2.2250738585072014e-308}) {
    std::string text = Dbl(extreme);  // must read back as the value
    EXPECT_NEAR(strtod(text.c_str(), nullptr) / extreme, 1.0, 1e-14) << text;
  }
}

TEST(TextStrmatches, MatchesWholeTextOnly) {
  EXPECT_EQ(strmatches("abc", "b", nullptr), 0);
  EXPECT_EQ(strmatches("abc", "a.c", nullptr), 1);
  EXPECT_EQ(strmatches("abcabc", "abc", nullptr), 0);
  Hook *cache = nullptr;
  EXPECT_EQ(strmatches("BHN", "BH[ZNE]", &cache), 1);
  EXPECT_EQ(strmatches("LHZ", "LHZ", &cache), 0);  // the cached pattern wins
  free_hook(&cache);
}

TEST(TextStrmatches, BadPatternLogsOnceThenAnswersFromTheCache) {
  elog_clear();
  Hook *cache = nullptr;
  EXPECT_EQ(strmatches("x", "a(b", &cache), -2);
  char *text = elog_string(0);
  EXPECT_NE(strstr(text, "'a(b' did not compile: "), nullptr) << text;
  free(text);
  int mark = elog_mark();
  EXPECT_EQ(strmatches("x", "x", &cache), -1);
  EXPECT_EQ(elog_mark(), mark);
  free_hook(&cache);
  EXPECT_EQ(strmatches("x", "[", nullptr), -2);
  EXPECT_EQ(elog_mark(), mark + 1);
  elog_clear();
}

TEST(TextFields, ConvertsBlankPaddedFields) {
  EXPECT_EQ(Take(newcs("ANMO    ", 8)), "ANMO");
  EXPECT_EQ(Take(newcs("a b xyz", 3)), "a b");
  char field[6];
  EXPECT_EQ(cs2fs(field, "BH", sizeof field), 0);
  EXPECT_EQ(std::string(field, sizeof field), "BH    ");
  cs2fs(field, "TOOLONGNAME", sizeof field);
  EXPECT_EQ(std::string(field, sizeof field), "TOOLON");
}

TEST(TextDump, HexdumpShowsOffsetsBytesAndCharacters) {
  const char bytes[] = "Hello, world!\n\x01\xff tail";
  std::string dump = Take(hexdump_string(bytes, sizeof bytes - 1));
  EXPECT_EQ(dump,
            "00000000  48 65 6c 6c 6f 2c 20 77  6f 72 6c 64 21 0a 01 ff  |Hello, world!...|\n"
            "00000010  20 74 61 69 6c                                    | tail|\n");
  EXPECT_EQ(Take(hexdump_string(bytes, 0)), "");
  // The stream form writes the same text, here across more than one block of lines.
  std::vector<unsigned char> many(5000);
  for (size_t i = 0; i < many.size(); i++) many[i] = static_cast<unsigned char>(i * 7);
  char *written;
  size_t size;
  FILE *file = open_memstream(&written, &size);
  ASSERT_EQ(hexdump(file, many.data(), many.size()), 0);
  fclose(file);
  EXPECT_EQ(Take(written), Take(hexdump_string(many.data(), many.size())));
}

TEST(TextDump, PrintableStringEscapesAndNeverCutsAnEscape) {
  char out[64];
  const char bytes[] =
      "a\"b\\\n\t\0\x7f\xe9"
      "7";
  EXPECT_STREQ(printable_string(out, sizeof out, bytes, sizeof bytes - 1),
               "a\\\"b\\\\\\n\\t\\000\\177\\3517");
  EXPECT_STREQ(printable_string(out, 5, "ab\001", -1), "ab");  // "\001" would not fit
  EXPECT_STREQ(printable_string(out, sizeof out, nullptr, 3), "<null>");
}

}  // namespace
