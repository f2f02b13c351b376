// The fixed forms read directly must give what the general parser gives: the same count of
// errors, the same double to the last bit and the same messages, on texts made to sit on and
// around every boundary of those forms.
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "corvel/elog.h"
#include "corvel/time.h"
#include "time/epoch_parse.h"

namespace {

using corvel::epoch_parse::Parse;
using corvel::epoch_parse::ParseFixedForm;
using corvel::epoch_parse::ParseGeneral;

struct Outcome {
  int code;
  uint64_t bits;
  std::string messages;
};

Outcome ParseWith(int (*parse)(const char *, double *, int), const std::string &text) {
  elog_clear();
  double value;
  Outcome out;
  out.code = parse(text.c_str(), &value, 1);
  memcpy(&out.bits, &value, sizeof value);
  char *messages = elog_string(0);
  out.messages = messages != nullptr ? messages : "";
  free(messages);
  elog_clear();
  return out;
}

// Texts whose epoch is counted from the present differ between two parses of them.
bool ReadsTheClock(const std::string &text) {
  std::string lower;
  for (char c : text) lower += static_cast<char>(tolower(static_cast<unsigned char>(c)));
  if (lower.find("now") != std::string::npos) return true;
  for (size_t i = 0; i < lower.size(); i++) {
    if (lower[i] != '-' && lower[i] != '+') continue;
    size_t j = i + 1;
    while (j < lower.size() && isdigit(static_cast<unsigned char>(lower[j]))) j++;
    if (j < lower.size() && (lower[j] == ':' || lower[j] == 'd')) return true;
  }
  return false;
}

// Texts in the fixed forms and near them, from a fixed seed.
class TextMaker {
 public:
  explicit TextMaker(uint32_t seed) : random_(seed) {}

  std::string Next() {
    std::string text;
    switch (Below(6)) {
      case 0:
        text = IsoDate();
        break;
      case 1:
        text = IsoDate() + " " + Clock();
        break;
      case 2:
        text = YearDayDate();
        break;
      case 3:
        text = YearDayDate() + " " + Clock();
        break;
      default:  // the colon stamp, twice as often: it has the most fields
        text = Field(Year(), 4) + ":" + Field(Doy(), 3) + ":" + Field(Hour(), 2) + ":" +
               Field(Minute(), 2) + ":" + Field(Second(), 2) + Fraction();
        break;
    }
    if (Below(5) < 2) Mutate(&text);
    return text;
  }

 private:
  uint32_t Below(uint32_t n) { return random_() % n; }
  int Pick(std::initializer_list<int> edges, int low, int high) {
    if (Below(2) == 0) return edges.begin()[Below(static_cast<uint32_t>(edges.size()))];
    return low + static_cast<int>(Below(static_cast<uint32_t>(high - low + 1)));
  }

  int Year() { return Pick({0, 1, 68, 69, 99, 100, 1600, 1900, 1969, 1970, 2000, 9999}, 0, 9999); }
  int Month() { return Pick({0, 1, 2, 12, 13, 19, 99}, 1, 12); }
  int Day() { return Pick({0, 1, 28, 29, 30, 31, 32, 99}, 1, 31); }
  int Doy() { return Pick({0, 1, 59, 60, 365, 366, 367, 999}, 1, 366); }
  int Hour() { return Pick({0, 23, 24, 25, 99}, 0, 23); }
  int Minute() { return Pick({0, 59, 60, 61, 99}, 0, 59); }
  int Second() { return Pick({0, 59, 60, 61, 99}, 0, 59); }

  // Mostly the form's own width, sometimes a digit fewer or more.
  std::string Field(int value, int width) {
    uint32_t r = Below(20);
    if (r == 0 && width > 1) width--;
    if (r == 1) width++;
    char text[16];
    snprintf(text, sizeof text, "%0*d", width, value);
    return text;
  }

  std::string Fraction() {
    uint32_t r = Below(8);
    if (r < 3) return "";
    if (r == 3) return ".";
    std::string text = ".";
    int count = 1 + static_cast<int>(Below(18));  // past the 15 digits read exactly
    char fill = "09"[Below(2)];
    bool uniform = Below(4) == 0;
    for (int i = 0; i < count; i++) text += uniform ? fill : static_cast<char>('0' + Below(10));
    return text;
  }

  std::string IsoDate() {
    return Field(Year(), 4) + "-" + Field(Month(), 2) + "-" + Field(Day(), 2);
  }
  std::string YearDayDate() { return Field(Year(), 4) + "-" + Field(Doy(), 3); }
  std::string Clock() {
    std::string text = Field(Hour(), 2) + ":" + Field(Minute(), 2);
    if (Below(4) != 0) text += ":" + Field(Second(), 2) + Fraction();
    return text;
  }

  void Mutate(std::string *text) {
    static const char kCharacters[] = " \t\n.:-/,0159TZxe";
    static const char *const kSuffixes[] = {" UTC", " GMT", " LOCAL", " US/Mountain", " Nowhere",
                                            "Z",    " pm",  " am",    " 1",           " 2024"};
    size_t at = Below(static_cast<uint32_t>(text->size() + 1));
    char c = kCharacters[Below(sizeof kCharacters - 1)];
    switch (Below(5)) {
      case 0:
        text->insert(at, 1, c);
        break;
      case 1:
        if (at < text->size()) text->erase(at, 1);
        break;
      case 2:
        if (at < text->size()) (*text)[at] = c;
        break;
      case 3:
        text->resize(at);
        break;
      default:
        *text += kSuffixes[Below(sizeof kSuffixes / sizeof kSuffixes[0])];
        break;
    }
  }

  std::mt19937 random_;
};

// Parses the boundary texts and count generated ones both ways and compares the outcomes.
void ExpectTheGeneralParsersAnswers(size_t count, uint32_t seed) {
  std::vector<std::string> texts = {
      // Leap days that are and are not, days past a month's end, the century rules.
      "2024-02-29", "2023-02-29", "1900-02-29", "2000-02-29 23:59:59.999999999999999",
      "2024-02-31 07:05", "2023-366", "2024-366 24:00", "2024:366:24:60:59.5",
      // The years that two digits stand for, and the ends of the calendar.
      "0000-01-01", "0068-12-31", "0069-01-01", "0099-12-31 23:59:59", "0100-01-01", "0001-001",
      "9999-12-31 24:00", "1969-12-31 23:59:59.5", "1970-01-01 00:00:00", "1970-00-00", "1970-000",
      "1970:000:00:00:00", "1970:001:00:00:00",
      // Ends of the fields, the form the benchmark reads, and the forms that only look fixed.
      "2024-00-00 00:00", "2024-13-01", "2024-01-32", "2024-02-01 24:60", "2024-02-01 24:61",
      "2024-02-01 25:00", "2024-02-01 07:60:00", "2024-02-01 07:05:60", "2024-02-01 07:05:09.",
      "2024-02-01 07:05:09.047", "2024-02-01T07:05:09", "2024-2-1", "2024-02-01  07:05",
      "2024-032 07:05:09.047", "2024:032:07:05:09", "2024:032:07:05:09:500", "2024-02-01 UTC"};
  TextMaker maker(seed);
  while (texts.size() < count) {
    std::string text = maker.Next();
    if (!ReadsTheClock(text)) texts.push_back(text);
  }

  int taken_directly = 0, mismatches = 0;
  for (const std::string &text : texts) {
    double direct;
    if (ParseFixedForm(text.c_str(), &direct)) taken_directly++;
    Outcome general = ParseWith(ParseGeneral, text);
    Outcome entry = ParseWith(Parse, text);
    if (entry.code != general.code || entry.bits != general.bits ||
        entry.messages != general.messages) {
      ADD_FAILURE() << "'" << text << "': " << entry.code << " " << std::hex << entry.bits << " '"
                    << entry.messages << "' but the general parser gives " << std::dec
                    << general.code << " " << std::hex << general.bits << " '" << general.messages
                    << "'";
      if (++mismatches == 20) break;
    }
  }
  // Without a good share of texts read directly the comparison would prove little.
  EXPECT_GT(taken_directly, static_cast<int>(texts.size() / 5));
  EXPECT_LT(taken_directly, static_cast<int>(texts.size() * 4 / 5));
}

TEST(Str2epochFastPath, GivesTheGeneralParsersAnswerToTheBit) {
  setenv("TZ", "UTC", 1);
  elog_init(0, nullptr);
  ExpectTheGeneralParsersAnswers(50000, 20240201);
}

// A day-first site reads slashed dates the other way round, but none of the fixed forms.
TEST(Str2epochFastPath, ADayFirstSiteChangesNothing) {
  setenv("TZ", "UTC", 1);
  setenv("EUROPEAN_DATE", "1", 1);
  elog_init(0, nullptr);
  ASSERT_EQ(is_month_first(), 0);
  ExpectTheGeneralParsersAnswers(10000, 1);
}

}  // namespace
