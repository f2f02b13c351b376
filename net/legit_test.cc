#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "corvel/elog.h"
#include "corvel/net.h"
#include "pf/test_dir.h"

namespace {

// A text as zq_inet_pton and zq_inet_ntop carry it there and back, or "(invalid)".
std::string RoundTrip(const char *text) {
  struct sockaddr_storage address = {};
  if (zq_inet_pton(text, reinterpret_cast<sockaddr *>(&address)) != 1) return "(invalid)";
  char out[INET6_ADDRSTRLEN];
  return zq_inet_ntop(reinterpret_cast<sockaddr *>(&address), out, sizeof out);
}

TEST(AddressTest, TextsThereAndBack) {
  EXPECT_EQ(zq_inet_family("999.1.1.1"), AF_INET);  // the form decides, not the values
  EXPECT_EQ(zq_inet_family("not:an:address"), AF_INET6);
  EXPECT_EQ(zq_inet_family(nullptr), -1);
  for (const char *text : {"10.1", "1.2.3.4.", " 1.2.3.4", "host", ""}) {
    EXPECT_EQ(zq_inet_family(text), -1) << text;
  }
  EXPECT_EQ(RoundTrip("127.0.0.1"), "127.0.0.1");
  EXPECT_EQ(RoundTrip("FD00:0:0::0A"), "fd00::a");
  EXPECT_EQ(RoundTrip("::ffff:10.0.0.1"), "::ffff:10.0.0.1");
  for (const char *text : {"999.1.1.1", "1::2::3", "::1/128", "localhost", ""}) {
    EXPECT_EQ(RoundTrip(text), "(invalid)") << text;
  }
  struct sockaddr_un local = {};
  local.sun_family = AF_UNIX;
  char out[16];
  EXPECT_EQ(zq_inet_ntop(reinterpret_cast<sockaddr *>(&local), out, sizeof out), nullptr);
  EXPECT_STREQ(out, "Unknown AF");
}

// Both ends of a connection over a loopback address; server is -1 when the family is missing.
struct Connection {
  explicit Connection(const char *loopback) {
    struct sockaddr_storage address = {};
    auto *a = reinterpret_cast<sockaddr *>(&address);
    zq_inet_pton(loopback, a);
    socklen_t length = address.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    int listener = socket(address.ss_family, SOCK_STREAM, 0);
    client = socket(address.ss_family, SOCK_STREAM, 0);
    if (bind(listener, a, length) == 0 && listen(listener, 1) == 0 &&
        getsockname(listener, a, &length) == 0 && connect(client, a, length) == 0) {
      server = accept(listener, nullptr, nullptr);
    }
    close(listener);
  }
  ~Connection() { close(client), close(server); }
  int client = -1, server = -1;
};

class LegitTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    char arg0[] = "net_test";
    char *argv[] = {arg0, nullptr};
    elog_init(1, argv);
    elog_clear();
    elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char *>("log"));
    elog_set(ELOG_DELIVER, ELOG_COMPLAIN, const_cast<char *>("log"));
  }
  void TearDown() override {
    pffree(pf_);
    TempDirTest::TearDown();
  }
  void Compile(const std::string &text) {
    pffree(pf_);
    pf_ = nullptr;
    ASSERT_EQ(pfcompile(text.c_str(), &pf_), 0);
  }
  // How legit_ipv6 decides on a peer, as "result accepting-index rejecting-index comment".
  std::string Decide(const char *peer_text) {
    struct sockaddr_storage peer = {};
    EXPECT_EQ(zq_inet_pton(peer_text, reinterpret_cast<sockaddr *>(&peer)), 1);
    char *comment = nullptr;
    int result = legit_ipv6("test", pf_, reinterpret_cast<sockaddr *>(&peer), &comment);
    return Decision(result, comment);
  }
  static std::string Decision(int result, char *comment) {
    std::string text = std::to_string(result) + " " + std::to_string(Legit_accept) + " " +
                       std::to_string(Legit_reject) + " " + (comment ? comment : "(null)");
    free(comment);
    return text;
  }
  static std::string Register() {
    char *text = elog_string(0);
    std::string result(text);
    free(text);
    elog_clear();
    return result;
  }
  Pf *pf_ = nullptr;
};

TEST_F(LegitTest, FirstMatchingEntriesDecide) {
  Compile(
      "valid_ip_addresses &Tbl{\n  \n127.0.0.0 255.0.0.0\tloopback net \n0.0.0.0 0.0.0.0\n"
      "::1 ::\tany v6\n}\n"
      "reject_ip_addresses &Tbl{\n127.0.0.9 255.255.255.255 banned\n10.0.0.0 255.0.0.0\n}\n");
  EXPECT_EQ(Decide("127.0.0.1"), "1 1 -1 loopback net");  // the blank entry counts
  EXPECT_EQ(Decide("192.0.2.7"), "1 2 -1 (null)");
  EXPECT_EQ(Decide("127.0.0.9"), "0 1 0 banned");  // the refusal's comment replaces
  EXPECT_EQ(Decide("10.9.9.9"), "0 2 1 (null)");
  EXPECT_EQ(Decide("fe80::9"), "1 3 -1 any v6");  // IPv4 entries never match IPv6 peers
  // The older IPv4 test keeps the valid list's comment when the reject list refuses.
  char *comment = nullptr;
  int result = legit_ip_pf(pf_, inet_addr("127.0.0.9"), &comment);
  EXPECT_EQ(Decision(result, comment), "0 1 0 loopback net");
  EXPECT_EQ(Register(), "");
}

TEST_F(LegitTest, MalformedEntriesNeverMatch) {
  Compile(
      "valid_ip_addresses &Tbl{\n127.0.0.1\n999.0.0.1 255.255.255.255\n"
      "127.0.0.1 255.255.255.999\ngg::1 ffff::\n::1 ffff::zz\nlocalhost 0.0.0.0\n}\n");
  EXPECT_EQ(Decide("127.0.0.1"), "0 -1 -1 (null)");
  EXPECT_EQ(Decide("::1"), "0 -1 -1 (null)");
  std::string no_mask = "net_test: no mask string for ip : '127.0.0.1'\n";
  std::string v4 = no_mask +
                   "net_test: invalid ipv4 address '999.0.0.1'\n"
                   "net_test: invalid ipv4 mask '255.255.255.999'\n";
  EXPECT_EQ(Register(), v4 + no_mask +
                            "net_test: invalid ipv6 address 'gg::1'\n"
                            "net_test: invalid ipv6 mask 'ffff::zz'\n");
  // The older test reads IPv4 texts as inet_addr does and passes over IPv6 entries.
  EXPECT_EQ(legit_ip_pf(pf_, inet_addr("127.0.0.1"), nullptr), 0);
  EXPECT_EQ(Register(), v4 + "net_test: invalid ipv4 address 'localhost'\n");

  // Without a valid list nobody is let in; the older test still searches the reject list.
  Compile("reject_ip_addresses &Tbl{\n127.0.0.1 255.255.255.255\n}\n");
  EXPECT_EQ(Decide("127.0.0.1"), "0 -1 -1 (null)");
  EXPECT_EQ(Decision(legit_ip_pf(pf_, inet_addr("127.0.0.1"), nullptr), nullptr), "0 -1 0 (null)");
  EXPECT_EQ(Register(), "net_test: failed to get valid_ip_addresses list\n\t** repeated 2 times\n");
}

TEST_F(LegitTest, PeersOfDescriptorsAndFiles) {
  Write("access.pf",
        "valid_ip_addresses &Tbl{\n127.0.0.1 255.255.255.255 v4\n::1 ffff:ffff:: v6\n}\n");
  setenv("PFPATH", root_.c_str(), 1);
  EXPECT_EQ(legit_ip("access", inet_addr("127.0.0.1"), nullptr), 1);
  EXPECT_EQ(legit_ip("missing", inet_addr("127.0.0.1"), nullptr), -1);
  ASSERT_EQ(pfread("access", &pf_), 0);
  char text[INET6_ADDRSTRLEN], *comment = nullptr;
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  EXPECT_EQ(legit_fd("test", pf_, pair[0], nullptr), 0);
  close(pair[1]);
  EXPECT_EQ(legit_fd("test", pf_, pair[1], nullptr), 0);
  EXPECT_EQ(zq_getpeername(pair[1], text), -1);
  EXPECT_STREQ(text, "*unknown*");
  close(pair[0]);
  EXPECT_EQ(Register(),
            "net_test: Can't read parameter file 'missing'\n"
            "net_test: unrecognized family 1\n"
            "net_test: Rejecting open from unknown source (getpeername failed)\n"
            "\tBad file descriptor\n"
            "net_test: getpeername failed\n\tBad file descriptor\n");

  for (const char *loopback : {"127.0.0.1", "::1"}) {
    Connection c(loopback);
    if (c.server < 0) GTEST_SKIP() << "no loopback at " << loopback;
    EXPECT_EQ(zq_getpeername(c.server, text), 0);
    EXPECT_STREQ(text, loopback);
    int result = legit_fd("test", pf_, c.client, &comment);
    EXPECT_EQ(Decision(result, comment), loopback[0] == ':' ? "1 1 -1 v6" : "1 0 -1 v4");
  }
}

}  // namespace
