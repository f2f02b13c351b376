#include "corvel/bns.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <string.h>
#include <sys/socket.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "corvel/elog.h"
#include "corvel/text.h"
#include "pf/test_dir.h"

namespace {

using ::testing::HasSubstr;

std::string Take(char *s) {
  std::string text(s != nullptr ? s : "(null)");
  free(s);
  return text;
}

// A stream on one end of a socket pair; the test plays the peer on the other end.
class BnsTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds_), 0);
    struct timeval second = {1, 0};  // the longest the peer waits for what it expects
    setsockopt(fds_[1], SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
    bns_ = bnsnew(fds_[0], 64);
    bnstimeout(bns_, 20);
    elog_clear();
  }
  void TearDown() override {
    if (bns_->snoopfd >= 0) close(bns_->snoopfd);
    bnsfree(bns_);
    close(fds_[0]);
    close(fds_[1]);
    TempDirTest::TearDown();
  }
  void Send(const std::string &bytes) {
    ASSERT_EQ(write(fds_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  std::string Receive(size_t n) {
    std::string got(n, '\0');
    ssize_t r = recv(fds_[1], &got[0], n, MSG_WAITALL);
    got.resize(r > 0 ? static_cast<size_t>(r) : 0);
    return got;
  }
  void Flush(const std::string &message) {
    buf2bns(bns_, message.data(), static_cast<long>(message.size()));
    ASSERT_EQ(bnsflush(bns_), 0);
  }
  std::string Buffered() const { return std::string(bns_->data + bns_->fp, bns_->lp - bns_->fp); }
  static std::string Register() { return Take(elog_string(0)); }

  int fds_[2] = {-1, -1};
  Bns *bns_ = nullptr;
};

TEST(Bns, NewStreamsTakeTheirDefaultsAndTheEnvironmentsTimeOut) {
  setenv("BNS_TIMEOUT", "1234", 1);
  Bns *bns = bnsnew(5, 0);
  unsetenv("BNS_TIMEOUT");
  Bns *other = bnsnew(5, -3);
  EXPECT_EQ(bns->sz, 32767);
  EXPECT_EQ(other->sz, 32767);
  EXPECT_EQ(other->timeout, 1234);  // the override outlives the variable
  EXPECT_EQ(bnsid(bns, "first"), nullptr);
  EXPECT_EQ(Take(bnsid(bns, "second")), "first");  // handed back to the caller
  bnsfree(bns);
  bnsfree(other);
}

TEST(BnsDeathTest, OutOfMemoryEndsTheProcess) {
  EXPECT_EXIT(bnsnew(5, 1L << 60), ::testing::ExitedWithCode(1),
              "Out of memory in bnsnew at line [0-9]+ of 'bns'\n\tCan't malloc "
              "1152921504606846976 bytes for bns->data");
}

TEST_F(BnsTest, EveryTypeCodeHasItsWireForm) {
  const int16_t i16[] = {0x0102, -2};
  const int32_t i32 = 0x01020304;
  const int64_t i64 = 0x0102030405060708;
  const float f = 1.5f;
  const double d = -2.0;
  const struct {
    int type;
    const void *host;
    long n, bytes;
  } values[] = {{BNS_TYPE_BYTES, "ab", 2, 2}, {BNS_TYPE_INT16, i16, 2, 4},
                {BNS_TYPE_INT32, &i32, 1, 4}, {BNS_TYPE_INT64, &i64, 1, 8},
                {BNS_TYPE_FLOAT, &f, 1, 4},   {BNS_TYPE_DOUBLE, &d, 1, 8}};
  for (const auto &v : values) ASSERT_EQ(bnsput(bns_, v.host, v.type, v.n), 0);
  EXPECT_EQ(bnsput(bns_, &d, 6, 1), -1);
  EXPECT_EQ(bns_->nsys, 0);  // putting never writes
  const std::string wire(
      "ab\x01\x02\xff\xfe\x01\x02\x03\x04\x01\x02\x03\x04\x05\x06\x07\x08"
      "\x3f\xc0\0\0\xc0\0\0\0\0\0\0\0",
      30);
  EXPECT_EQ(bnsout(bns_), 30);
  ASSERT_EQ(bnsflush(bns_), 0);
  EXPECT_EQ(bnsflush(bns_), 0);
  EXPECT_EQ(bns_->nsys, 1);  // the empty flush issued no call
  EXPECT_EQ(Receive(30), wire);

  Send(wire);
  for (const auto &v : values) {
    char got[8];
    ASSERT_EQ(bnsget(bns_, got, v.type, v.n), 0);
    EXPECT_EQ(memcmp(got, v.host, v.bytes), 0) << "type " << v.type;
  }
  EXPECT_EQ(bnsin(bns_), 30);
  EXPECT_EQ(bns_->nbytes, 60);
  EXPECT_EQ(bnsget(bns_, nullptr, BNS_TYPE_DOUBLE, 0), 0);  // at once, without waiting
  EXPECT_EQ(bnsget(bns_, nullptr, 7, 1), -1);
  EXPECT_EQ(bnsget(bns_, nullptr, BNS_TYPE_BYTES, -1), -1);
  EXPECT_EQ(Register(),
            "net_test: unrecognized type 6\nnet_test: unrecognized type 7\n"
            "net_test: invalid request for -1 bytes\n");

  const std::string big(100, 'z');  // more than the 64-byte buffer holds
  buf2bns(bns_, big.data(), 100);
  EXPECT_EQ(bns_->sz, 64 + 66);  // 34 bytes were free after the 30 read: 66 were missing
  EXPECT_EQ(Buffered(), big);
}

// A value cut short stays buffered, neither consumed nor counted as an error, until the rest
// comes, however slowly it trickles in; at the end of the data the unread bytes stay too.
TEST_F(BnsTest, PartialValuesWaitForTheRestAndEndOfFileIsReported) {
  Send("\xff\xff\xff");
  int32_t small = 0;
  int64_t big = 0;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(bnsget(bns_, &small, BNS_TYPE_INT32, 1), -1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
  EXPECT_EQ(bns_->err, 0);
  EXPECT_EQ(bns_->eof, 0);
  EXPECT_EQ(bnsin(bns_), 0);
  EXPECT_EQ(Buffered(), "\xff\xff\xff");

  bnstimeout(bns_, 2000);
  std::thread peer([&] {
    for (char c : std::string("\xfe\x01\x02\x03\x04\x05\x06\x07\x08")) {
      if (write(fds_[1], &c, 1) != 1) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  EXPECT_EQ(bnsget(bns_, &small, BNS_TYPE_INT32, 1), 0);
  EXPECT_EQ(bnsget(bns_, &big, BNS_TYPE_INT64, 1), 0);
  peer.join();
  EXPECT_EQ(small, -2);
  EXPECT_EQ(big, 0x0102030405060708);
  EXPECT_GT(bns_->nsys, 3);

  Send("\x7f");
  shutdown(fds_[1], SHUT_WR);  // end of file
  EXPECT_EQ(bnsget(bns_, &small, BNS_TYPE_INT32, 1), -1);
  EXPECT_EQ(bns_->eof, 1);
  EXPECT_EQ(Buffered(), "\x7f");
}

TEST_F(BnsTest, DelimitedReadsDropWhatDoesNotFitAndPeeksConsumeOnlyAMatch) {
  Send("abc\nlonger line\n\nx\ntail");
  shutdown(fds_[1], SHUT_WR);  // end of file
  char line[8];
  EXPECT_EQ(bnsgetc(bns_, line, sizeof line, '\n'), 3);
  EXPECT_STREQ(line, "abc");
  EXPECT_EQ(bnsgetc(bns_, line, 5, '\n'), 4);
  EXPECT_STREQ(line, "long");
  EXPECT_EQ(bnsgetc(bns_, line, sizeof line, '\n'), 0);
  EXPECT_EQ(bnsgetc(bns_, line, 1, '\n'), 0);  // "x" consumed with its delimiter
  EXPECT_STREQ(line, "");
  EXPECT_EQ(bnspeek(bns_, "tale"), 1);
  EXPECT_EQ(bnspeek(bns_, "ta"), 0);
  EXPECT_EQ(bnspeek(bns_, "ilk"), -1);
  EXPECT_EQ(Register(), "net_test: bnspeek wanted 'tale', but got \n\t" +
                            Take(hexdump_string("tail", 4)) +
                            "net_test: bnspeek wanted 3 bytes, got only 2\n");
  EXPECT_EQ(bnsgetc(bns_, line, sizeof line, '\n'), -1);
  EXPECT_STREQ(line, "il");
  EXPECT_EQ(Buffered(), "");
  EXPECT_EQ(bnsin(bns_), 23);
}

TEST_F(BnsTest, SyncSkipsJunkUpToThirtyTwoBytesOrNoneWhenStrict) {
  Send("xxSYNCd");
  testing::internal::CaptureStderr();
  EXPECT_EQ(gbnsSync(bns_, "SYNC", 4, 0), 0);
  std::string report = testing::internal::GetCapturedStderr();
  EXPECT_THAT(report, HasSubstr("skipped 2 bytes looking for sync 'SYNC'\n"));
  EXPECT_THAT(report, HasSubstr(Take(hexdump_string("xx", 2))));
  EXPECT_EQ(Buffered(), "d");

  // The byte that breaks a partial match is not a new start; the byte after it is compared
  // with the first again, so "SSYNC" hides its pattern and the search goes on to the next one.
  Send("SSYNCSYNC!");
  setenv("BNS_SUPPRESS_SYNCERR", "1", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(gbnsSync(bns_, "SYNC", 4, 0), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(bnsin(bns_), 6 + 10);
  EXPECT_EQ(Buffered(), "!");

  Send(std::string(39, 'x'));
  EXPECT_EQ(gbnsSync(bns_, "AB", 2, 0), -2);
  EXPECT_EQ(bnsin(bns_), 32);
  Send("ABAx");
  EXPECT_EQ(gbnsSync(bns_, "AB", 2, 1), -2);  // eight x still to come
  EXPECT_EQ(bnsin(bns_), 1);
  EXPECT_EQ(bns2buf(bns_, nullptr, 0), 0);  // drops the other seven
  EXPECT_EQ(gbnsSync(bns_, "AB", 2, 1), 0);
  EXPECT_EQ(gbnsSync(bns_, "AB", 2, 1), -2);  // 'x' after the 'A'
  EXPECT_EQ(gbnsSync(bns_, "AB", 2, 1), -1);  // nothing more comes
}

// A failed flush keeps the message for the next attempt; a stream that keeps messages starts
// its buffer with the last ones flushed and sends them again on request.
TEST_F(BnsTest, FailedFlushesAndResendsKeepTheMessages) {
  bns_->write_routine = [](int, void *, int64_t, int) -> int64_t {
    errno = EPIPE;
    return -1;
  };
  buf2bns(bns_, "keep", 4);
  EXPECT_EQ(bnsflush(bns_), -1);
  EXPECT_EQ(bns_->err, 1);
  EXPECT_EQ(bns_->syserrno, EPIPE);
  EXPECT_EQ(Buffered(), "keep");
  bns_->write_routine = _bnswrite;
  EXPECT_EQ(bnsflush(bns_), 0);
  EXPECT_EQ(Receive(4), "keep");

  bnskeep(bns_, 1);
  EXPECT_EQ(bnsresend(bns_), 0);  // nothing kept yet
  Flush("one");
  Flush("two!");
  EXPECT_EQ(Receive(7), "onetwo!");
  EXPECT_EQ(bns_->mark, 0);
  EXPECT_EQ(bns_->fp, 4);
  EXPECT_EQ(bnsresend(bns_), 0);
  EXPECT_EQ(Receive(4), "two!");

  bnskeep(bns_, 2);
  Flush("3");
  Flush("45");
  EXPECT_EQ(Receive(3), "345");
  EXPECT_EQ(bnsresend(bns_), 0);
  EXPECT_EQ(Receive(3), "345");

  // The dump shows the positions, the counters and the kept and unsent bytes.
  free(bnsid(bns_, "d"));
  buf2bns(bns_, "hi", 2);
  char *text = nullptr;
  size_t size = 0;
  FILE *file = open_memstream(&text, &size);
  bnsdump(file, bns_);
  fclose(file);
  EXPECT_EQ(Take(text),
            "  id='d'\n  fp=3  lp=5  mark=0  sz=      64\n"
            "  eof=0  err=1  syserrno=" +
                std::to_string(EPIPE) +
                "  flags=0\n  timeout=20  nbytes=14  nsys=8\n"
                "marktbl has 1 entries: 1\n\n data+mark=0\n" +  // "45" after "3"
                Take(hexdump_string("345hi", 5)) +
                "\ndata+fp : 2 bytes\n" + Take(hexdump_string("hi", 2)));
}

// The records of a snoop file with the times replaced by "T".
std::string Records(const std::string &path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return std::regex_replace(text.str(), std::regex("(#msg [^\n]*) [0-9]+\n"), "$1 T\n");
}

TEST_F(BnsTest, SnoopRecordsBothDirectionsAndReadsFromTheUnreadData) {
  ASSERT_EQ(chdir(root_.c_str()), 0);
  auto header = [this](const char *direction, int count) {
    return "\n\n#msg " + std::to_string(getpid()) + " " + direction + " " +
           std::to_string(fds_[0]) + " link " + std::to_string(count) + " T\n";
  };
  ASSERT_EQ(bnssnoop(bns_, "snoop.log"), 0);
  free(bnsid(bns_, "link"));
  Flush("abc");
  Send("xy");
  char four[4];
  EXPECT_EQ(bnsget(bns_, four, BNS_TYPE_BYTES, 4), -1);
  Send("zw");
  EXPECT_EQ(bnsget(bns_, four, BNS_TYPE_BYTES, 4), 0);
  EXPECT_EQ(Records("snoop.log"),
            header(">", 3) + "abc" + header("<", 2) + "xy" + header("<", 2) + "xy");

  bns_->snoopflag = 0;  // closed at the next flush
  Flush("q");
  EXPECT_EQ(bns_->snoopfd, -1);
  bns_->snoopflag = 1;  // a file of its own at the next read
  Send("r");
  bnsget(bns_, four, BNS_TYPE_BYTES, 1);
  ASSERT_NE(bns_->snoopfile, nullptr);
  const std::string unique = bns_->snoopfile;
  EXPECT_EQ(unique.rfind("snoop" + std::to_string(getpid()) + "_", 0), 0u);
  EXPECT_EQ(Records(unique), header("<", 1) + "r");
  EXPECT_EQ(Records("snoop.log").find("q"), std::string::npos);

  setenv("BNS_SNOOP", "env.log", 1);
  Bns *other = bnsnew(fds_[0], 0);
  EXPECT_STREQ(other->snoopfile, "env.log");
  close(other->snoopfd);
  bnsfree(other);
}

}  // namespace
