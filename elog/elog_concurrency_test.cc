// The register under logging from several threads at once.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>

#include "containers/run_together.h"
#include "corvel/elog.h"

namespace {

using corvel::kTogether;
using corvel::RunTogether;

// Long enough that two messages written into one another would show.
std::string Message(int thread, int i) {
  return "thread " + std::to_string(thread) + " message " + std::to_string(i) + " " +
         std::string(200, static_cast<char>('a' + thread)) + "\n";
}

// Every record of the register: message text -> the sum of its counts, and the number of
// records that are not whole messages of this test.
std::map<std::string, int> Records(int *strangers) {
  Tbl *copies = nullptr;
  EXPECT_EQ(elog_query(ELOG_TBLCP, 0, &copies), 0u);
  std::map<std::string, int> counts;
  *strangers = 0;
  for (long i = 0; i < maxtbl(copies); i++) {
    Elog_msg *record = static_cast<Elog_msg *>(gettbl(copies, i));
    if (strncmp(record->msg, "thread ", 7) != 0) ++*strangers;
    counts[record->msg] += record->count;
    elog_free_msg(record);
    free(record);
  }
  freetbl(copies, nullptr);
  return counts;
}

TEST(ElogConcurrencyTest, EveryMessageIsKeptWholeAndCountedExactly) {
  char arg0[] = "elog_test";
  char *argv[] = {arg0, nullptr};
  elog_init(1, argv);
  int unlimited = 0;
  elog_set(ELOG_MAXMSG, 0, &unlimited);
  elog_clear();
  constexpr int kMessages = 150;
  // Each message is logged twice in a row: whether another thread comes in between decides
  // whether that is one record counted twice or two records, but the counts add up to 2.
  RunTogether(kTogether, [](int t) {
    for (int i = 0; i < kMessages; i++) {
      std::string text = Message(t, i);
      elog_log(0, "%s", text.c_str());
      elog_log(0, "%s", text.c_str());
    }
  });
  int strangers = 0;
  std::map<std::string, int> counts = Records(&strangers);
  EXPECT_EQ(strangers, 0);
  EXPECT_EQ(counts.size(), static_cast<size_t>(kTogether * kMessages));
  for (int t = 0; t < kTogether; t++) {
    for (int i = 0; i < kMessages; i++) EXPECT_EQ(counts[Message(t, i)], 2) << t << " " << i;
  }
  // The rendered register holds each message whole after its tag.
  char *text = elog_string(0);
  for (int t = 0; t < kTogether; t++) {
    EXPECT_NE(strstr(text, (": " + Message(t, kMessages - 1)).c_str()), nullptr);
  }
  free(text);
  elog_clear();
}

// The first log calls of the process come from several threads at once: one of them sets the
// log up, and none loses its message meanwhile. Few enough messages that the default cap of
// the register cannot end the process. (The initialising thread once wrote the program's name
// while the others were already putting it into their messages' tags.)
TEST(ElogConcurrencyTest, FirstUseFromSeveralThreads) {
  RunTogether(kTogether, [](int t) {
    for (int i = 0; i < 4; i++) elog_log(0, "%s", Message(t, i).c_str());
  });
  EXPECT_EQ(Elog_init, 1);
  int strangers = 0;
  std::map<std::string, int> counts = Records(&strangers);
  EXPECT_EQ(strangers, 0);
  EXPECT_EQ(counts.size(), static_cast<size_t>(kTogether * 4));
  for (const auto &entry : counts) EXPECT_EQ(entry.second, 1) << entry.first;
  elog_clear();
}

}  // namespace
