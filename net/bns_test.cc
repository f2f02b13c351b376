#include "corvel/bns.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "corvel/elog.h"
#include "corvel/text.h"

namespace {

using ::testing::HasSubstr;

std::string Take(char *s) {
  std::string text(s != nullptr ? s : "(null)");
  free(s);
  return text;
}

// A stream on one end of a socket pair; the test plays the peer on the other end.
class BnsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds_), 0);
    bns_ = bnsnew(fds_[0], 64);
    bnstimeout(bns_, 20);
    elog_clear();
  }
  void TearDown() override {
    bnsfree(bns_);
    close(fds_[0]);
    ClosePeer();
  }
  void ClosePeer() {
    if (fds_[1] >= 0) close(fds_[1]);
    fds_[1] = -1;
  }
  void Send(const std::string &bytes) {
    ASSERT_EQ(write(fds_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // What the peer receives: up to n bytes, waiting at most a second for each piece.
  std::string Receive(size_t n) {
    std::string got;
    struct pollfd peer = {fds_[1], POLLIN, 0};
    char chunk[4096];
    while (got.size() < n && poll(&peer, 1, 1000) == 1) {
      ssize_t r = read(fds_[1], chunk, std::min(sizeof chunk, n - got.size()));
      if (r <= 0) break;
      got.append(chunk, static_cast<size_t>(r));
    }
    return got;
  }
  std::string Buffered() const { return std::string(bns_->data + bns_->fp, bns_->lp - bns_->fp); }
  static std::string Register() { return Take(elog_string(0)); }

  int fds_[2] = {-1, -1};
  Bns *bns_ = nullptr;
};

TEST(Bns, NewStreamsTakeTheirDefaultsAndTheEnvironmentsTimeOut) {
  setenv("BNS_TIMEOUT", "1234", 1);
  Bns *bns = bnsnew(5, 0);
  EXPECT_EQ(bns->sz, 32767);
  EXPECT_EQ(bns->timeout, 1234);
  EXPECT_EQ(BNS_TIMEOUT, 1234);
  unsetenv("BNS_TIMEOUT");
  Bns *other = bnsnew(5, -3);
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
  EXPECT_THAT(Register(), HasSubstr("unrecognized type 7\n"));
  EXPECT_THAT(Register(), HasSubstr("invalid request for -1 bytes\n"));

  const std::string big(100, 'z');  // more than the 64-byte buffer holds
  buf2bns(bns_, big.data(), 100);
  EXPECT_EQ(bns_->sz, 64 + 66);  // 34 bytes were free after the 30 read: 66 were missing
  EXPECT_EQ(Buffered(), big);
}

// A value cut short stays buffered until the rest comes; nothing is counted as an error.
TEST_F(BnsTest, TimeOutsKeepPartialValuesAndEndOfFileIsReported) {
  Send(std::string("\0\0\x01", 3));
  int32_t v = 0;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(bnsget(bns_, &v, BNS_TYPE_INT32, 1), -1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
  EXPECT_EQ(bns_->err, 0);
  EXPECT_EQ(bns_->eof, 0);
  EXPECT_EQ(bnsin(bns_), 0);
  EXPECT_EQ(Buffered(), std::string("\0\0\x01", 3));
  Send("\x02");
  EXPECT_EQ(bnsget(bns_, &v, BNS_TYPE_INT32, 1), 0);
  EXPECT_EQ(v, 0x102);
  Send("\x7f");
  ClosePeer();
  EXPECT_EQ(bnsget(bns_, &v, BNS_TYPE_INT32, 1), -1);
  EXPECT_EQ(bns_->eof, 1);
  EXPECT_EQ(Buffered(), "\x7f");
}

TEST_F(BnsTest, PeerSendingOneByteAtATime) {
  bnstimeout(bns_, 2000);
  const std::string wire("\x01\x02\x03\x04\x05\x06\x07\x08\xff\xff\xff\xfe", 12);
  std::thread peer([&] {
    for (char c : wire) {
      if (write(fds_[1], &c, 1) != 1) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  int64_t big = 0;
  int32_t small = 0;
  EXPECT_EQ(bnsget(bns_, &big, BNS_TYPE_INT64, 1), 0);
  EXPECT_EQ(bnsget(bns_, &small, BNS_TYPE_INT32, 1), 0);
  peer.join();
  EXPECT_EQ(big, 0x0102030405060708);
  EXPECT_EQ(small, -2);
  EXPECT_GT(bns_->nsys, 2);
}

TEST_F(BnsTest, DelimitedReadsDropWhatDoesNotFit) {
  Send("abc\nlonger line\n\nx\ntail");
  ClosePeer();
  char line[8];
  EXPECT_EQ(bnsgetc(bns_, line, sizeof line, '\n'), 3);
  EXPECT_STREQ(line, "abc");
  EXPECT_EQ(bnsgetc(bns_, line, 5, '\n'), 4);
  EXPECT_STREQ(line, "long");
  EXPECT_EQ(bnsgetc(bns_, line, sizeof line, '\n'), 0);
  EXPECT_EQ(bnsgetc(bns_, line, 1, '\n'), 0);  // "x" consumed with its delimiter
  EXPECT_STREQ(line, "");
  EXPECT_EQ(bnsgetc(bns_, line, sizeof line, '\n'), -1);
  EXPECT_STREQ(line, "tail");
  EXPECT_EQ(Buffered(), "");
  EXPECT_EQ(bnsin(bns_), 23);
}

TEST_F(BnsTest, PeekConsumesOnlyAMatch) {
  Send("HELLO");
  EXPECT_EQ(bnspeek(bns_, "HELP"), 1);
  EXPECT_THAT(Register(),
              HasSubstr("bnspeek wanted 'HELP', but got \n\t" + Take(hexdump_string("HELL", 4))));
  EXPECT_EQ(bnspeek(bns_, "HELL"), 0);
  EXPECT_EQ(bnspeek(bns_, "OK"), -1);
  EXPECT_THAT(Register(), HasSubstr("bnspeek wanted 2 bytes, got only 1"));
  EXPECT_EQ(Buffered(), "O");
}

TEST_F(BnsTest, SyncSkipsJunkAndReportsIt) {
  Send("xxSYNCd");
  testing::internal::CaptureStderr();
  EXPECT_EQ(gbnsSync(bns_, "SYNC", 4, 0), 0);
  std::string report = testing::internal::GetCapturedStderr();
  EXPECT_THAT(report, HasSubstr("skipped 2 bytes looking for sync 'SYNC'\n"));
  EXPECT_THAT(report, HasSubstr(Take(hexdump_string("xx", 2))));
  EXPECT_EQ(Buffered(), "d");

  // The byte that breaks a partial match is not taken as a new start, and the byte after it is
  // compared with the first byte again: "SSYNC" hides its pattern, the search goes on to the
  // next one.
  Send("SSYNCSYNC!");
  setenv("BNS_SUPPRESS_SYNCERR", "1", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(gbnsSync(bns_, "SYNC", 4, 0), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(bnsin(bns_), 6 + 10);
  EXPECT_EQ(Buffered(), "!");
}

TEST_F(BnsTest, SyncGivesUpAfterThirtyTwoBytesOrStrictlyAtOnce) {
  setenv("BNS_SUPPRESS_SYNCERR", "1", 1);
  Send(std::string(40, 'x'));
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

TEST_F(BnsTest, FailedFlushKeepsTheMessage) {
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
}

TEST_F(BnsTest, ResendRepeatsTheLastKeptMessages) {
  bnskeep(bns_, 1);
  EXPECT_EQ(bnsresend(bns_), 0);  // nothing kept yet
  for (const char *message : {"one", "two!"}) {
    buf2bns(bns_, message, static_cast<long>(strlen(message)));
    ASSERT_EQ(bnsflush(bns_), 0);
  }
  EXPECT_EQ(Receive(7), "onetwo!");
  EXPECT_EQ(bns_->mark, 0);
  EXPECT_EQ(bns_->fp, 4);
  EXPECT_EQ(bnsresend(bns_), 0);
  EXPECT_EQ(Receive(4), "two!");

  bnskeep(bns_, 2);
  buf2bns(bns_, "3", 1);
  bnsflush(bns_);
  buf2bns(bns_, "45", 2);
  bnsflush(bns_);
  EXPECT_EQ(maxtbl(bns_->marktbl), 1);
  EXPECT_EQ(reinterpret_cast<intptr_t>(gettbl(bns_->marktbl, 0)), 1);  // "45" after "3"
  EXPECT_EQ(Receive(3), "345");
  EXPECT_EQ(bnsresend(bns_), 0);
  EXPECT_EQ(Receive(3), "345");
}

class BnsSnoopTest : public BnsTest {
 protected:
  void SetUp() override {
    BnsTest::SetUp();
    char pattern[] = "/tmp/bns_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    ASSERT_EQ(chdir(dir_.c_str()), 0);
  }
  void TearDown() override {
    BnsTest::TearDown();
    ASSERT_EQ(chdir("/"), 0);
    ASSERT_EQ(system(("rm -rf '" + dir_ + "'").c_str()), 0);
  }
  // The records of a snoop file with the times replaced by "T".
  static std::string Records(const std::string &path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return std::regex_replace(text.str(), std::regex("(#msg [^\n]*) [0-9]+\n"), "$1 T\n");
  }
  std::string Header(const char *direction, int count) const {
    return "\n\n#msg " + std::to_string(getpid()) + " " + direction + " " +
           std::to_string(fds_[0]) + " link " + std::to_string(count) + " T\n";
  }
  std::string dir_;
};

TEST_F(BnsSnoopTest, RecordsBothDirectionsAndReadsFromTheUnreadData) {
  ASSERT_EQ(bnssnoop(bns_, "snoop.log"), 0);
  free(bnsid(bns_, "link"));
  buf2bns(bns_, "abc", 3);
  ASSERT_EQ(bnsflush(bns_), 0);
  Send("xy");
  char four[4];
  EXPECT_EQ(bnsget(bns_, four, BNS_TYPE_BYTES, 4), -1);
  Send("zw");
  EXPECT_EQ(bnsget(bns_, four, BNS_TYPE_BYTES, 4), 0);
  EXPECT_EQ(Records("snoop.log"),
            Header(">", 3) + "abc" + Header("<", 2) + "xy" + Header("<", 2) + "xy");

  bns_->snoopflag = 0;  // closed at the next flush
  buf2bns(bns_, "q", 1);
  bnsflush(bns_);
  EXPECT_EQ(bns_->snoopfd, -1);
  EXPECT_EQ(bns_->snoopfile, nullptr);
  bns_->snoopflag = 1;  // a file of its own at the next read
  Send("r");
  bnsget(bns_, four, BNS_TYPE_BYTES, 1);
  ASSERT_NE(bns_->snoopfile, nullptr);
  const std::string unique = bns_->snoopfile;
  EXPECT_EQ(unique.rfind("snoop" + std::to_string(getpid()) + "_", 0), 0u);
  EXPECT_EQ(Records(unique), Header("<", 1) + "r");
  EXPECT_EQ(Records("snoop.log").find("q"), std::string::npos);

  setenv("BNS_SNOOP", "env.log", 1);
  Bns *other = bnsnew(fds_[0], 0);
  EXPECT_STREQ(other->snoopfile, "env.log");
  close(other->snoopfd);
  bnsfree(other);
  close(bns_->snoopfd);
}

TEST_F(BnsSnoopTest, DumpShowsPositionsKeptMessagesAndSnoopFile) {
  free(bnsid(bns_, "d"));
  bnskeep(bns_, 3);
  buf2bns(bns_, "one", 3);
  bnsflush(bns_);
  buf2bns(bns_, "hi", 2);
  bnssnoop(bns_, "s.log");
  char *text = nullptr;
  size_t size = 0;
  FILE *file = open_memstream(&text, &size);
  bnsdump(file, bns_);
  fclose(file);
  EXPECT_EQ(Take(text),
            "  id='d'\n  fp=3  lp=5  mark=0  sz=      64\n"
            "  eof=0  err=0  syserrno=0  flags=0\n  timeout=20  nbytes=3  nsys=1\n"
            "marktbl has 1 entries: 0\n\n data+mark=0\n" +
                Take(hexdump_string("onehi", 5)) + "\ndata+fp : 2 bytes\n" +
                Take(hexdump_string("hi", 2)) +
                "  snoop=s.log (fd=" + std::to_string(bns_->snoopfd) + ")\n");
  close(bns_->snoopfd);
}

}  // namespace
