#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <thread>

#include "corvel/elog.h"
#include "corvel/net.h"
#include "pf/test_dir.h"

namespace {

// Each test has a listener on 127.0.0.1 and an empty PFPATH directory: ports are numbers.
class SocketTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    char arg0[] = "net_test";
    char *argv[] = {arg0, nullptr};
    elog_init(1, argv);
    elog_clear();
    elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char *>("log"));
    elog_set(ELOG_DELIVER, ELOG_COMPLAIN, const_cast<char *>("log"));
    setenv("PFPATH", root_.c_str(), 1);
    unsetenv("ORB_IP_ADDRESS");
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address_;
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(bind(listener_, Address(), length), 0);
    ASSERT_EQ(listen(listener_, 8), 0);
    ASSERT_EQ(getsockname(listener_, Address(), &length), 0);
    server_ = "127.0.0.1:" + std::to_string(ntohs(address_.sin_port));
  }
  void TearDown() override {
    close(listener_);
    TempDirTest::TearDown();
  }
  sockaddr *Address() { return reinterpret_cast<sockaddr *>(&address_); }
  static std::string Register() {
    char *text = elog_string(0);
    std::string result(text);
    free(text);
    elog_clear();
    return result;
  }

  int listener_ = -1;
  struct sockaddr_in address_ = {};
  std::string server_;  // "127.0.0.1:port"
};

TEST_F(SocketTest, OpensByName) {
  char host[ZQ_NAME_SIZE], extra[ZQ_NAME_SIZE];
  int port = 0;
  int client =
      zq_open_socket2((server_ + ":listener").c_str(), "6510", nullptr, host, &port, extra);
  ASSERT_GE(client, 0);
  EXPECT_EQ(std::string(host) + ":" + std::to_string(port) + " " + extra, server_ + " listener");
  close(reaccept(listener_, nullptr, nullptr));
  close(client);
  EXPECT_EQ(Register(), "net_test: reaccept: fd=" + std::to_string(listener_) + " errno=0\n");

  // The local address comes from the environment; one of no local interface cannot be bound.
  setenv("ORB_IP_ADDRESS", "127.0.0.1", 1);
  client = zq_open_socket2(server_.c_str(), "", nullptr, nullptr, nullptr, nullptr);
  EXPECT_GE(client, 0);
  close(client);
  setenv("ORB_IP_ADDRESS", "192.0.2.1", 1);
  EXPECT_EQ(zq_open_socket2(server_.c_str(), "", nullptr, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(Register(),
            "net_test: Failed to bind ip address '192.0.2.1'\n"
            "\tCannot assign requested address\n"
            "net_test: failed to connect to " +
                server_ + " (" + server_ + ")\n");
  unsetenv("ORB_IP_ADDRESS");
  close(listener_);
  listener_ = -1;
  EXPECT_EQ(zq_open_socket2(server_.c_str(), "", nullptr, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(Register(), "net_test: failed to connect to " + server_ + " (" + server_ +
                            ")\n\tConnection refused\n");
}

TEST_F(SocketTest, OlderOpenerTakesItsDefaultsFromAFile) {
  std::string port = std::to_string(ntohs(address_.sin_port));
  Write("opener.pf",
        "default_port " + port + "\nnames &Arr{\n}\n" + port + " " + port + "  the listener \n");
  Write("wrong.pf", "names not-an-array\n");
  char extra[ZQ_NAME_SIZE] = "stale";
  int fds[] = {zq_open_socket("127.0.0.1", "opener", extra), -1, -1};
  EXPECT_STREQ(extra, "");
  fds[1] = zq_open_socket(server_.c_str(), "opener", extra);
  EXPECT_STREQ(extra, "the listener");
  fds[2] = zq_open_socket(server_.c_str(), "wrong", extra);
  for (int fd : fds) {
    EXPECT_GE(fd, 0);
    close(fd);
  }
  EXPECT_EQ(zq_open_socket("127.0.0.1:no-such-service", nullptr, extra), -1);
  EXPECT_EQ(Register().rfind("net_test: names entry in parameter file should be Arr\n"
                             "net_test: couldn't find ip address for '127.0.0.1' : '",
                             0),
            0u);
}

TEST_F(SocketTest, AcceptingAgainAfterASignal) {
  struct sigaction quiet = {}, saved;
  quiet.sa_handler = [](int) {};  // no SA_RESTART: accept fails with EINTR
  sigaction(SIGUSR1, &quiet, &saved);
  pthread_t self = pthread_self();
  for (auto accept_again : {reaccept, reconnect}) {
    int client = socket(AF_INET, SOCK_STREAM, 0);
    std::thread interrupter([&] {
      for (int i = 0; i < 5; i++) usleep(30000), pthread_kill(self, SIGUSR1);
      connect(client, Address(), sizeof address_);
    });
    int server = accept_again(listener_, nullptr, nullptr);
    interrupter.join();
    EXPECT_GE(server, 0);
    close(server);
    close(client);
  }
  sigaction(SIGUSR1, &saved, nullptr);
  std::string attempts = Register(), fd = std::to_string(listener_);
  EXPECT_NE(attempts.find("reaccept: fd=" + fd + " errno=" + std::to_string(EINTR) + "\n"),
            std::string::npos);
  EXPECT_NE(attempts.find("reaccept: fd=" + fd + " errno=0\n"), std::string::npos);
}

// Everything a spawned program writes until it ends (five seconds at most); the child is
// reaped and the descriptor closed.
std::string Output(int fd) {
  struct timeval limit = {5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  std::string text;
  char buffer[256];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, n);
  close(fd);
  wait(nullptr);
  return text;
}

TEST_F(SocketTest, ProgramsOnASocketPair) {
  char cat[] = "/bin/cat", echo[] = "/bin/echo", verbose[] = "-V", word[] = "x";
  char *cat_argv[] = {cat, nullptr}, *echo_argv[] = {echo, verbose, word, nullptr};
  int fd = zq_spawn(cat_argv);
  ASSERT_EQ(write(fd, "hello\n", 6), 6);
  shutdown(fd, SHUT_WR);
  EXPECT_EQ(Output(fd), "hello\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Output(zq_spawn(echo_argv)), "-V x\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "(/bin/echo -V x) spawned\n");

  // After the last at sign comes an option; the text before it is the argument.
  EXPECT_EQ(Output(zq_exec_subprogram("/bin/echo", "plain")), "plain\n");
  EXPECT_EQ(Output(zq_exec_subprogram("/bin/echo", "a@b@n")), "a@b");
  EXPECT_EQ(Output(zq_exec_subprogram("/nonexistent/program", "x")), "");
  // A relative program comes from the installation's bin.
  ASSERT_EQ(mkdir(Path("bin").c_str(), 0755), 0);
  ASSERT_EQ(symlink("/bin/echo", Path("bin/say").c_str()), 0);
  setenv("VELMORA", root_.c_str(), 1);
  EXPECT_EQ(Output(zq_exec_subprogram("say", "hi")), "hi\n");
}

}  // namespace
