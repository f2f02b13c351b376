// Times parsed from several threads at once read exactly as they do from one.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "containers/run_together.h"
#include "corvel/elog.h"
#include "corvel/time.h"

namespace {

using corvel::kTogether;
using corvel::RunTogether;

// Every kind of text the parser knows, zones and errors included.
const char *const kTexts[] = {
    "2024-02-01 07:05:09.047",
    "2024:032:07:05:09.5",
    "2024032",
    "Feb 1 24",
    "Feb 1 69",
    "1 February 2024 13:45",
    "2/1/2024 1:30 pm",
    "12:30 am",
    "100:00",
    "2024-07-01 12:00 US/Pacific",
    "2024-02-01 12:00 Asia/Tokyo",
    "2024-02-01 12:00 LOCAL",
    "2024-02-01 12:00 UTC",
    "1706789109.5",
    "2024",
    "0.0",
    "0",
    "",
    "today",
    "2024-2-1",
    "2024-02-01 25:00",
    "13/1/2024",
    "Feb 2024",
};
constexpr int kCount = sizeof kTexts / sizeof kTexts[0];

struct Reading {
  double epoch = 0;
  int clean = 0;
  bool operator==(const Reading &other) const {
    // Bit for bit: the same text must give the same double.
    return memcmp(&epoch, &other.epoch, sizeof epoch) == 0 && clean == other.clean;
  }
};

Reading Read(const char *text) {
  Reading r;
  r.epoch = str2epoch(text);
  double again = 0;
  r.clean = is_epoch_string(text, &again);
  return r;
}

// The first parses of the process (site formats, zone data) run in eight threads at once;
// the answers are then compared with those of one thread alone.
TEST(Str2epochConcurrencyTest, EightThreadsReadWhatOneReads) {
  setenv("TZ", "Europe/Paris", 1);
  constexpr int kRounds = 20;
  std::vector<std::vector<Reading>> seen(kTogether, std::vector<Reading>(kRounds * kCount));
  RunTogether(kTogether, [&](int t) {
    for (int round = 0; round < kRounds; round++) {
      // Each thread walks the list from a different place, so different texts overlap.
      for (int i = 0; i < kCount; i++) {
        int n = (i + t * 3) % kCount;
        seen[t][round * kCount + n] = Read(kTexts[n]);
      }
    }
  });
  for (int i = 0; i < kCount; i++) {
    Reading alone = Read(kTexts[i]);
    for (int t = 0; t < kTogether; t++) {
      for (int round = 0; round < kRounds; round++) {
        ASSERT_TRUE(seen[t][round * kCount + i] == alone)
            << "'" << kTexts[i] << "' in thread " << t << ": " << seen[t][round * kCount + i].epoch
            << " alone: " << alone.epoch;
      }
    }
  }
  // The parser's own switch of zones is undone every time.
  EXPECT_STREQ(getenv("TZ"), "Europe/Paris");
  EXPECT_EQ(elog_mark(), 0) << "str2epoch and is_epoch_string are silent";
}

}  // namespace
