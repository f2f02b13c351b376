#include "corvel/ring.h"

#include <gmock/gmock.h>
#include <math.h>

#include <string>
#include <utility>
#include <vector>

#include "numeric/ring_test_support.h"
#include "pf/test_dir.h"

namespace corvel {
namespace numeric {
namespace {

using ::testing::HasSubstr;

constexpr double kMarker = -99999999.0;
using Readings = std::vector<std::pair<double, double>>;

class RingTest : public pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    path_ = Path("ring");
    elog_clear();
  }
  void TearDown() override {
    if (ring_ != nullptr) closering(ring_);
    TempDirTest::TearDown();
  }
  // A new ring open for writing, holding the readings pushed oldest first.
  void Make(int capacity, const Readings &readings = {}) {
    ring_ = openring(path_.c_str(), nullptr, capacity, 0);
    for (const auto &r : readings) ASSERT_EQ(pushring(ring_, r.first, r.second), 0);
  }
  // The entries, newest first.
  Readings Entries() const {
    Readings entries;
    double t, v;
    for (int i = 0; getring(ring_, i, &t, &v) == 0; i++) entries.push_back({t, v});
    return entries;
  }
  std::string path_;
  Ring *ring_ = nullptr;
};

TEST_F(RingTest, FileLayoutIsByteForByte) {
  ASSERT_EQ(newring(path_.c_str(), "ANMO air", 3, 7), 0);
  std::string expected = "newringb" + std::string("ANMO air") + std::string(56, '\0');
  const int32_t ints[] = {0, 0, 3, 6};  // newest, count, capacity, flags without bit 0
  const double doubles[] = {60.0, kMarker};
  expected.append(reinterpret_cast<const char *>(ints), sizeof ints);
  expected.append(reinterpret_cast<const char *>(doubles), sizeof doubles);
  EXPECT_EQ(ReadFile(path_), expected + std::string(3 * 16, '\0'));

  ASSERT_EQ(newring(path_.c_str(), std::string(70, 'x').c_str(), 1, 0), 0);
  EXPECT_EQ(ReadFile(path_).substr(8, 65), std::string(64, 'x') + '\0');  // no terminator

  EXPECT_EQ(newring(Path("no/dir").c_str(), "x", 1, 0), -1);
  EXPECT_THAT(Register(), HasSubstr("Can't open new ring buffer " + Path("no/dir")));
}

TEST_F(RingTest, OpenCreatesReadsOnlyWhatExistsAndRemoves) {
  char id[64] = "BHZ";
  EXPECT_EQ(openring(path_.c_str(), id, 4, 1), nullptr);
  EXPECT_EQ(Register(), "numeric_test: ring buffer file '" + path_ + "' does not exist\n");
  Ring *writer = openring(path_.c_str(), id, 4, 0);
  ASSERT_NE(writer, nullptr);
  strcpy(id, "overwritten");
  Ring *reader = openring(path_.c_str(), id, 99, 1);  // the file's capacity stays
  ASSERT_NE(reader, nullptr);
  EXPECT_STREQ(id, "BHZ");
  EXPECT_STREQ(idring(reader), "BHZ");
  EXPECT_EQ(filenamering(reader), path_);
  EXPECT_EQ(reader->header->capacity, 4);
  EXPECT_EQ(pushring(reader, 5, 5), -1);
  EXPECT_EQ(cramring(reader, "collapse", 5, 5), -1);
  EXPECT_EQ(setring(reader, 0, 0), -1);
  EXPECT_EQ(pushring(writer, 3, 4), 0);
  EXPECT_EQ(countring(reader), 1);  // readers see the writer's entries at once
  EXPECT_EQ(closering(reader), 0);
  EXPECT_EQ(rmring(writer), 0);
  EXPECT_NE(access(path_.c_str(), F_OK), 0);
}

TEST_F(RingTest, LockedFileIsRefusedForWritingOnly) {
  ASSERT_EQ(newring(path_.c_str(), "x", 2, 0), 0);
  LockHolder holder(path_);
  ASSERT_TRUE(holder.locked());
  testing::internal::CaptureStderr();
  EXPECT_EQ(openring(path_.c_str(), nullptr, 2, 0), nullptr);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Can't lock '" + path_ + "' for exclusive use\n"));
  ring_ = openring(path_.c_str(), nullptr, 2, 1);
  EXPECT_NE(ring_, nullptr);
}

TEST_F(RingTest, CorruptFilesAreRefusedAtOpen) {
  const struct {
    long offset;
    int32_t value;
    const char *message;
  } kCorrupt[] = {
      {80, 0, "Bad capacity 0 while trying to read ring buffer"},
      {80, 5, "Bad capacity 5 while trying to read ring buffer"},  // 4 slots in the file
      {76, 5, "Bad count 5 while trying to read ring buffer"},
      {76, -1, "Bad count -1 while trying to read ring buffer"},
      {72, 4, "Bad newest index 4 while trying to read ring buffer"},
      {72, -1, "Bad newest index -1 while trying to read ring buffer"},
  };
  for (const auto &c : kCorrupt) {
    ASSERT_EQ(newring(path_.c_str(), "x", 4, 0), 0);
    Patch(path_, c.offset, &c.value, sizeof c.value);
    EXPECT_EQ(openring(path_.c_str(), nullptr, 4, 1), nullptr);
    EXPECT_THAT(Register(), HasSubstr(c.message));
  }
  Patch(path_, 0, "oldringb", 8);
  EXPECT_EQ(openring(path_.c_str(), nullptr, 4, 1), nullptr);
  EXPECT_EQ(Register(), "numeric_test: Bad magic number while trying to read ring buffer.\n");
  ASSERT_EQ(truncate(path_.c_str(), 100), 0);
  EXPECT_EQ(openring(path_.c_str(), nullptr, 4, 1), nullptr);
  EXPECT_THAT(Register(), HasSubstr("is too short for its header"));
}

// Another process may rewrite the header after the open: nothing may then reach past the file.
TEST_F(RingTest, HeaderRewrittenAfterOpenStaysInsideTheMapping) {
  Make(4, {{1, 1}, {2, 2}, {3, 3}});
  ring_->header->count = 1 << 30;  // clamped to the capacity
  ring_->header->newest = -7;      // taken modulo the capacity: slot 1
  double t, v;
  EXPECT_EQ(getring(ring_, 3, &t, &v), 0);
  EXPECT_EQ(getring(ring_, 4, &t, &v), -1);
  int n;
  double mean, stdev;
  EXPECT_EQ(meanring(ring_, &n, &mean, &stdev, 1e9), 0);
  EXPECT_EQ(n, 4);
  ring_->header->capacity = 1 << 30;
  EXPECT_EQ(countring(ring_), 0);
  EXPECT_EQ(getring(ring_, 0, &t, &v), -1);
  EXPECT_EQ(pushring(ring_, 10, 10), -1);
  EXPECT_EQ(maxring(ring_, &n, 1e9), -INFINITY);
}

TEST_F(RingTest, PushesGoBackwardsWrapAndRefuseThePast) {
  Make(3);
  double t, v;
  EXPECT_EQ(getring(ring_, 0, &t, &v), -1);
  for (int i = 1; i <= 4; i++) ASSERT_EQ(pushring(ring_, i, 10 * i), 0);
  EXPECT_EQ(Entries(), (Readings{{4, 40}, {3, 30}, {2, 20}}));  // entry 2 is the second push
  EXPECT_EQ(ring_->header->newest, 2);                          // slots 2, 1, 0, then 2 again
  EXPECT_EQ(pushring(ring_, 4, 40), -2);                        // the same reading again
  EXPECT_EQ(pushring(ring_, 3.5, 1), -2);
  EXPECT_EQ(pushring(ring_, 4, 41), 0);  // the same time with another value
  EXPECT_EQ(Entries()[0], std::make_pair(4.0, 41.0));
}

TEST_F(RingTest, GapsLongerThanTheThresholdAreMarkedAtBothEnds) {
  Make(8, {{0, 5}, {100, 7}});
  EXPECT_EQ(Entries(), (Readings{{100, 7}, {100, kMarker}, {0, kMarker}, {0, 5}}));
  EXPECT_EQ(avgring(ring_, 1000), 6);
  EXPECT_EQ(tallyring(ring_, 1000), 0);   // stops at the marker behind the newest
  ASSERT_EQ(pushring(ring_, 160, 1), 0);  // exactly the threshold is no gap
  EXPECT_EQ(countring(ring_), 5);

  // Without gap handling markers are values like any other, and none are added.
  setring(ring_, 0, kMarker);
  ASSERT_EQ(pushring(ring_, 1000, 2), 0);
  int index;
  EXPECT_EQ(minring(ring_, &index, 2000), kMarker);
  EXPECT_EQ(index, 3);
  // A NaN threshold adds no markers (no gap exceeds it) but still leaves them out.
  setring(ring_, NAN, kMarker);
  ASSERT_EQ(pushring(ring_, 5000, 3), 0);
  EXPECT_EQ(minring(ring_, &index, 1e4), 1);
  EXPECT_EQ(avgring(ring_, 1e4), (3 + 2 + 1 + 7 + 5) / 5.0);
}

TEST_F(RingTest, CramCollapsesRunsOfEqualValues) {
  Make(8);
  for (int t = 1; t <= 4; t++) ASSERT_EQ(cramring(ring_, "collapse", t, 1), 0);
  EXPECT_EQ(Entries(), (Readings{{4, 1}, {2, 1}, {1, 1}}));
  EXPECT_EQ(cramring(ring_, "collapse", 5, 2), 0);
  EXPECT_EQ(cramring(ring_, "collapse", 5, 2), -2);
  EXPECT_EQ(cramring(ring_, "average", 6, 2), -3);
  EXPECT_EQ(Register(), "numeric_test: unrecognized cramring method 'average'\n");
  ASSERT_EQ(cramring(ring_, "average", 100, 2), 0);  // after a gap, whatever the method
  EXPECT_EQ(countring(ring_), 7);
}

// Readings at 0 .. 10 s with a span of 10 s: the one at 0 lies on the span's start, outside
// for the extremes, tally, search and change test, inside for the mean and the fit.
TEST_F(RingTest, SpanStartIsExcludedOrIncludedAsEachStatisticTakesIt) {
  Make(16, {{0, 100}, {1, -50}});
  for (int t = 2; t <= 10; t++) pushring(ring_, t, t);
  int index, n;
  EXPECT_EQ(maxring(ring_, &index, 10), 10);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(maxring(ring_, &index, 10.5), 100);
  EXPECT_EQ(index, 10);
  EXPECT_EQ(minring(ring_, &index, 10), -50);
  EXPECT_EQ(index, 9);
  EXPECT_EQ(tallyring(ring_, 10), 9);
  EXPECT_EQ(tallyring(ring_, 10.5), 10);
  EXPECT_EQ(findring(ring_, 100, 10), -1);
  EXPECT_EQ(findring(ring_, 100, 10.5), 10);
  EXPECT_EQ(avgring(ring_, 10), (100 - 50 + 54) / 11.0);
  EXPECT_EQ(avgring(ring_, 9.5), (-50 + 54) / 10.0);
  double slope, intercept, r;
  EXPECT_EQ(linearfitring(ring_, &n, &slope, &intercept, &r, 10), 0);
  EXPECT_EQ(n, 11);
  EXPECT_EQ(maxring(ring_, &index, -1), -INFINITY);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(tallyring(ring_, 0), -1);
}

TEST_F(RingTest, ChangedTestsTheValueBeforeTheSpan) {
  Make(8, {{0, 6}, {1, 5}, {2, 5}, {3, 5}});
  EXPECT_EQ(changedring(ring_, 3), 3);  // outside the span, but it differs
  EXPECT_EQ(changedring(ring_, 2), 0);  // the entry at 1 lies on the start
  pushring(ring_, 4, NAN);
  EXPECT_EQ(changedring(ring_, 10), 1);
  pushring(ring_, 5, 5);
  EXPECT_EQ(changedring(ring_, 10), 1);
}

// valring takes the newest reading before a time; nearbymaxring the largest within a span of
// it on either side.
TEST_F(RingTest, ReadingsAroundATime) {
  Make(8, {{10, 3}, {20, 9}, {30, 4}, {40, 8}});
  const struct {
    double at;
    int result;
    double time, value;
  } kBefore[] = {{25, 0, 20, 9}, {20, 0, 10, 3}, {40, -1, 40, -1}, {10, -1, 10, -1}};
  for (const auto &c : kBefore) {
    double t = c.at, v = -1;
    EXPECT_EQ(valring(ring_, &t, &v), c.result) << c.at;
    EXPECT_EQ(std::make_pair(t, v), std::make_pair(c.time, c.value)) << c.at;
  }
  const struct {
    double at, span;
    int result;
    double time, value;
  } kNearby[] = {{33, 10, 0, 40, 8},   // 23 .. 43
                 {25, 5, 0, 20, 9},    // both ends belong
                 {15, 2, -1, 15, -1},  // nothing within
                 {60, 10, -1, 60, -1}};
  for (const auto &c : kNearby) {
    double t = c.at, v = -1;
    EXPECT_EQ(nearbymaxring(ring_, &t, &v, c.span), c.result) << c.at;
    EXPECT_EQ(std::make_pair(t, v), std::make_pair(c.time, c.value)) << c.at;
  }
}

TEST_F(RingTest, MeanAndDeviationOverNMinusOne) {
  int n;
  double mean, stdev;
  Make(16);
  EXPECT_EQ(meanring(ring_, &n, &mean, &stdev, 100), -1);
  const double values[] = {7, 2, 4, 4, 4, 5, 5, 9};  // mean 5, Σ(d²) 32
  for (int i = 0; i < 8; i++) pushring(ring_, i, values[i]);
  EXPECT_EQ(meanring(ring_, &n, &mean, &stdev, 100), 0);
  EXPECT_EQ(n, 8);
  EXPECT_EQ(mean, 5);
  EXPECT_DOUBLE_EQ(stdev, sqrt(32.0 / 7));
  EXPECT_EQ(meanring(ring_, &n, &mean, &stdev, 0), 0);
  EXPECT_EQ(std::make_pair(mean, stdev), std::make_pair(9.0, 0.0));
}

TEST_F(RingTest, LinearFitOfALine) {
  Make(16);
  int n;
  double slope, intercept, r;
  for (int t = 1000; t < 1010; t++) pushring(ring_, t, 2.0 * t + 3);
  ASSERT_EQ(linearfitring(ring_, &n, &slope, &intercept, &r, 100), 0);
  EXPECT_EQ(n, 10);
  EXPECT_EQ(slope, 2);
  EXPECT_EQ(intercept, 3);  // the line's value at epoch 0
  EXPECT_EQ(r, 1);
  ASSERT_EQ(linearfitring(ring_, &n, &slope, &intercept, &r, 0), -1);
  EXPECT_EQ(slope, 0);
  pushring(ring_, 1009, 1);  // two readings at one time
  ASSERT_EQ(linearfitring(ring_, &n, &slope, &intercept, &r, 0), 0);
  EXPECT_EQ(slope, INFINITY);
  EXPECT_EQ(r, 0);
}

}  // namespace
}  // namespace numeric
}  // namespace corvel
