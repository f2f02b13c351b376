#include <gtest/gtest.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "corvel/text.h"
#include "text/strtod_c.h"

namespace {

TEST(TextYesno, ReadsWordsWholeInAnyCase) {
  for (const char *word : {"yes", "OK", "y", "True", "1", "ON", "t"}) EXPECT_EQ(yesno(word), -1);
  for (const char *word : {"No", "n", "FALSE", "0", "oFF", "F"}) EXPECT_EQ(yesno(word), 0);
  for (const char *word : {"maybe", "", "yess", "falsey", " yes", "01", "Ist"}) {
    EXPECT_EQ(yesno(word), 1) << word;
  }
  EXPECT_EQ(yesno(nullptr), 1);
}

TEST(TextSz2dbl, AppliesAFinalMultiplierLetter) {
  EXPECT_EQ(sz2dbl("2k"), 2000);
  EXPECT_EQ(sz2dbl("5m"), 0.005);
  EXPECT_EQ(sz2dbl("3K"), 3);  // case matters
  EXPECT_EQ(sz2dbl("1.5G"), 1.5e9);
  EXPECT_EQ(sz2dbl("4M"), 4e6);
  EXPECT_EQ(sz2dbl("7u"), 7e-6);
  EXPECT_EQ(sz2dbl("12"), 12);
  EXPECT_EQ(sz2dbl("k"), 0);
  EXPECT_EQ(sz2dbl("k2"), 0);  // only a letter at the end is a multiplier
}

// A locale whose decimal point is a comma, made for the test (no such locale need be
// installed): the library's numbers must not change with it.
TEST(TextStrtodC, ReadsAPointUnderACommaLocale) {
  char directory[] = "/tmp/strtod_c_test.XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  std::string source = std::string(directory) + "/comma.src";
  FILE *f = fopen(source.c_str(), "w");
  ASSERT_NE(f, nullptr);
  fputs(
      "LC_NUMERIC\ndecimal_point \"<U002C>\"\nthousands_sep \"<U002E>\"\ngrouping 3;3\n"
      "END LC_NUMERIC\n",
      f);
  fclose(f);
  std::string command =
      "localedef -c -i " + source + " -f UTF-8 " + directory + "/comma.UTF-8 >/dev/null 2>&1";
  if (system(command.c_str()) == -1) {
  }
  setenv("LOCPATH", directory, 1);
  bool have_locale = setlocale(LC_NUMERIC, "comma.UTF-8") != nullptr;
  if (have_locale) {
    EXPECT_EQ(strtod("1,5", nullptr), 1.5);  // the locale is in force
    char *end;
    EXPECT_EQ(corvel::text::StrtodC("2.25e1 rest", &end), 22.5);
    EXPECT_STREQ(end, " rest");
    EXPECT_EQ(corvel::text::StrtodC("1,5", &end), 1);
    EXPECT_EQ(sz2dbl("2.5k"), 2500);
    setlocale(LC_NUMERIC, "C");
  }
  EXPECT_EQ(system((std::string("rm -rf ") + directory).c_str()), 0);
  if (!have_locale) GTEST_SKIP() << "localedef could not make a test locale";
}

}  // namespace
