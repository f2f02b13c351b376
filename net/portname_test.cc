#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <vector>

#include "corvel/elog.h"
#include "corvel/net.h"
#include "pf/test_dir.h"

namespace {

std::string Register() {
  char *text = elog_string(0);
  std::string result(text);
  free(text);
  elog_clear();
  return result;
}

std::vector<std::string> Names(Tbl *names, bool owned) {
  std::vector<std::string> result;
  for (long i = 0; i < maxtbl(names); i++) result.push_back(static_cast<char *>(gettbl(names, i)));
  freetbl(names, owned ? free : nullptr);
  return result;
}

// The number and the extra string of a port name, as "6540 extra".
std::string Port(const char *name) {
  char extra[ZQ_NAME_SIZE];
  int number = zq_portnumber(name, extra);
  return std::to_string(number) + (extra[0] != '\0' ? " " : "") + extra;
}

// The parts of a server name, as "result host port extra".
std::string Server(const std::string &name, const char *default_port, const char *key = "") {
  char host[ZQ_NAME_SIZE], extra[ZQ_NAME_SIZE];
  int port = 0;
  int result = zq_parse_servername(name.c_str(), default_port, key, host, &port, extra);
  return std::to_string(result) + " " + host + " " + std::to_string(port) + " " + extra;
}

// The table is read once per process, so every test (each in a process of its own) puts the
// same table on PFPATH before the first lookup.
class PortNameTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    char arg0[] = "net_test";
    char *argv[] = {arg0, nullptr};
    elog_init(1, argv);
    elog_clear();
    Write("orbserver_names.pf",
          "status 6540   state of health  \ntwin 6540\nhexed 0x1976\noctal 014567\n"
          "big 70000 too large\nemulate /bin/cat\nnested &Arr{\n}\n");
    setenv("PFPATH", root_.c_str(), 1);
  }
};

TEST_F(PortNameTest, NumbersByNameNamesByNumberAndServerNames) {
  EXPECT_EQ(Port("status"), "6540 state of health");
  EXPECT_EQ(Port("hexed"), "6518");
  EXPECT_EQ(Port("octal"), "6519");
  EXPECT_EQ(Port("status: given instead "), "6540 given instead");
  EXPECT_EQ(Port("6510:note"), "6510 note");  // a number that is no name stands for itself
  EXPECT_EQ(Port("65535"), "65535");
  EXPECT_EQ(Register(), "");
  for (const char *bad : {"nonsense", "", "big", "65536", "99999999999999999999"}) {
    EXPECT_EQ(zq_portnumber(bad, nullptr), 0) << bad;
  }
  EXPECT_EQ(Register(),
            "net_test: Don't understand orbserver port 'nonsense'\n"
            "net_test: port name unspecified\n"
            "net_test: port number is 70000, but must be less than 65535\n"
            "net_test: port number is 65536, but must be less than 65535\n"
            "net_test: port number is 2147483647, but must be less than 65535\n");

  char extra[ZQ_NAME_SIZE];
  EXPECT_EQ(zq_parse_portvalue(" 0x10\t some  text ", nullptr, extra), 16);
  EXPECT_STREQ(extra, "some  text");
  EXPECT_EQ(zq_parse_portvalue(("12 " + std::string(100, 'x')).c_str(), nullptr, extra), 12);
  EXPECT_EQ(std::string(extra), std::string(63, 'x'));

  EXPECT_EQ(Names(zq_portbynumber(6540), true), (std::vector<std::string>{"status", "twin"}));
  EXPECT_TRUE(Names(zq_portbynumber(1), true).empty());
  EXPECT_EQ(
      Names(zq_portnames(), false),
      (std::vector<std::string>{"big", "emulate", "hexed", "nested", "octal", "status", "twin"}));

  EXPECT_EQ(Server("archive.local", "status"), "0 archive.local 6540 state of health");
  EXPECT_EQ(Server("archive.local:hexed", "status"), "0 archive.local 6518 ");
  EXPECT_EQ(Server(":6510:why", "status"), "0 localhost 6510 why");
  EXPECT_EQ(Server("h:", "twin"), "0 h 6540 ");
  EXPECT_EQ(Server("", "6510"), "0 localhost 6510 ");
  std::string longest(63, 'h');
  EXPECT_EQ(Server(longest + ":6510", ""), "0 " + longest + " 6510 ");
  EXPECT_EQ(Server(longest + "h:6510", ""), "-1  6510 ");  // parsing goes on
  EXPECT_EQ(Server(longest + "h", "6510"), "-1  6510 ");
  EXPECT_EQ(Server("h:70000", ""), "0 h 0 ");

  // A file stands for an emulating program when the table names one under the key.
  Write("recording", "");
  EXPECT_EQ(Server(Path("recording"), "6510", "emulate"), "1 /bin/cat -2 ");
  EXPECT_EQ(Server(Path("recording"), "6510", "absent"), "0 " + Path("recording") + " 6510 ");
}

TEST(ShippedFiles, ReadBack) {
  setenv("PFPATH", CORVEL_SOURCE_DIR "/data/pf", 1);
  EXPECT_EQ(Port("status"), "6540 state of health of stations and programs");
  std::vector<std::string> names = Names(zq_portnames(), false);
  EXPECT_GE(names.size(), 5u);
  for (const std::string &name : names) {
    int port = zq_portnumber(name.c_str(), nullptr);
    EXPECT_TRUE(port >= 1024 && port <= 49151) << name;
    EXPECT_EQ(Names(zq_portbynumber(port), true), std::vector<std::string>{name});
  }

  Pf *pf = nullptr;
  ASSERT_EQ(pfread("legit_example", &pf), 0);
  EXPECT_EQ(legit_ip_pf(pf, inet_addr("127.0.0.1"), nullptr), 1);
  EXPECT_EQ(legit_ip_pf(pf, inet_addr("192.168.10.66"), nullptr), 0);
  EXPECT_EQ(Legit_reject, 0);
  struct sockaddr_storage peer = {};
  ASSERT_EQ(zq_inet_pton("fd00:10::7", reinterpret_cast<sockaddr *>(&peer)), 1);
  EXPECT_EQ(legit_ipv6("", pf, reinterpret_cast<sockaddr *>(&peer), nullptr), 1);
  EXPECT_EQ(Legit_accept, 3);
  pffree(pf);
  EXPECT_EQ(Register(), "");
}

}  // namespace
