#include <gmock/gmock.h>
#include <stdint.h>

#include <string>

#include "corvel/ring.h"
#include "numeric/ring_test_support.h"
#include "pf/test_dir.h"

namespace corvel {
namespace numeric {
namespace {

using ::testing::HasSubstr;

class RingletTest : public pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    path_ = Path("a/b/ringlet");  // the directories are made by the open
    elog_clear();
  }
  static std::string Record(Ringlet *ringlet, int i) {
    void *record = nullptr;
    if (getringlet(ringlet, i, &record) != 0) return "none";
    return std::string(static_cast<const char *>(record), ringlet->header->size);
  }
  std::string path_;
};

TEST_F(RingletTest, RecordsGoBackwardsAndWrapInTheFileLayout) {
  Ringlet *ringlet = openringlet(path_.c_str(), 3, 4);
  ASSERT_NE(ringlet, nullptr);
  EXPECT_EQ(Record(ringlet, 0), "none");
  for (const char *r : {"rec1", "rec2", "rec3", "rec4"}) ASSERT_EQ(pushringlet(ringlet, r), 0);
  EXPECT_EQ(countringlet(ringlet), 3);
  EXPECT_EQ(Record(ringlet, 0), "rec4");
  EXPECT_EQ(Record(ringlet, 2), "rec2");
  EXPECT_EQ(Record(ringlet, 3), "none");
  EXPECT_EQ(closeringlet(ringlet), 0);
  const int64_t fields[] = {2, 3, 3, 4};  // newest, count, capacity, record size
  EXPECT_EQ(ReadFile(path_), std::string("ringlet\0", 8) +
                                 std::string(reinterpret_cast<const char *>(fields), 32) +
                                 "rec3rec2rec4");  // slots 2, 1, 0, then 2 again

  EXPECT_EQ(newringlet(path_.c_str(), 3, 0), -1);
  EXPECT_EQ(newringlet(path_.c_str(), 0, 5), -1);
}

TEST_F(RingletTest, LockedFileOpensWithoutWriting) {
  Ringlet *writer = openringlet(path_.c_str(), 2, 1);
  ASSERT_EQ(pushringlet(writer, "w"), 0);
  LockHolder holder(path_);
  ASSERT_TRUE(holder.locked());
  Ringlet *ringlet = openringlet(path_.c_str(), 2, 1);
  ASSERT_NE(ringlet, nullptr);
  EXPECT_EQ(Register(), "numeric_test: Can't lock '" + path_ + "' for exclusive use\n");
  EXPECT_EQ(pushringlet(ringlet, "x"), -1);
  EXPECT_EQ(Record(ringlet, 0), "w");
  closeringlet(ringlet);
  closeringlet(writer);
}

TEST_F(RingletTest, CorruptFilesAreRefusedAtOpen) {
  const struct {
    long offset;
    int64_t value;
    const char *message;
  } kCorrupt[] = {
      {32, 0, "Bad record size 0 while trying to read ringlet"},
      {32, 5, "Bad capacity 4 while trying to read ringlet"},  // 16 bytes hold 3 records of 5
      {24, int64_t{1} << 62, "Bad capacity 4611686018427387904 while trying to read ringlet"},
      {16, 5, "Bad count 5 while trying to read ringlet"},
      {8, -1, "Bad newest index -1 while trying to read ringlet"},
  };
  for (const auto &c : kCorrupt) {
    closeringlet(openringlet(path_.c_str(), 4, 4));
    Patch(path_, c.offset, &c.value, sizeof c.value);
    EXPECT_EQ(openringlet(path_.c_str(), 4, 4), nullptr);
    EXPECT_THAT(Register(), HasSubstr(c.message));
    ASSERT_EQ(unlink(path_.c_str()), 0);
  }
  ASSERT_EQ(newringlet(path_.c_str(), 4, 4), 0);
  Patch(path_, 0, "ringlex", 8);
  EXPECT_EQ(openringlet(path_.c_str(), 4, 4), nullptr);
  EXPECT_EQ(Register(), "numeric_test: Bad magic number while trying to read ringlet.\n");
  ASSERT_EQ(truncate(path_.c_str(), 39), 0);
  EXPECT_EQ(openringlet(path_.c_str(), 4, 4), nullptr);
  EXPECT_THAT(Register(), HasSubstr("is too short for its header"));
}

// Another process may rewrite the header after the open: nothing may then reach past the file.
TEST_F(RingletTest, HeaderRewrittenAfterOpenStaysInsideTheMapping) {
  Ringlet *ringlet = openringlet(path_.c_str(), 2, 8);
  ASSERT_EQ(pushringlet(ringlet, "12345678"), 0);
  ringlet->header->size = 1 << 20;
  EXPECT_EQ(pushringlet(ringlet, "12345678"), -1);
  EXPECT_EQ(Record(ringlet, 0), "none");
  ringlet->header->size = 4;  // four records of 4 fit in the file
  ringlet->header->capacity = 4;
  ringlet->header->count = 100;
  ringlet->header->newest = 11;  // slot 3
  EXPECT_EQ(countringlet(ringlet), 4);
  EXPECT_EQ(Record(ringlet, 0), "5678");
  closeringlet(ringlet);
}

}  // namespace
}  // namespace numeric
}  // namespace corvel
