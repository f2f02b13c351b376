// The port-name table, first used from several threads at once.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "containers/run_together.h"
#include "corvel/elog.h"
#include "corvel/net.h"
#include "pf/test_dir.h"

namespace {

using corvel::kTogether;
using corvel::RunTogether;

class PortNameConcurrencyTest : public corvel::pf::TempDirTest {};

// The table is read once, by whichever thread comes first; every lookup, by name, by number
// and of a whole server name, gives every thread the same answers.
TEST_F(PortNameConcurrencyTest, FirstLookupsFromEightThreadsReadOneTable) {
  Write("orbserver_names.pf", "status 6540 state of health\ntwin 6540\nhexed 0x1976\n");
  setenv("PFPATH", root_.c_str(), 1);
  elog_clear();
  std::vector<std::string> answers(kTogether);
  RunTogether(kTogether, [&](int t) {
    std::string answer;
    for (int i = 0; i < 3; i++) {
      const char *name = i == 0 ? "status" : i == 1 ? "hexed" : "twin";
      char extra[ZQ_NAME_SIZE];
      answer += std::to_string(zq_portnumber(name, extra)) + " " + extra + ";";
    }
    Tbl *names = zq_portbynumber(6540);
    for (long i = 0; i < maxtbl(names); i++) {
      answer += static_cast<char *>(gettbl(names, i));
      answer += ",";
    }
    freetbl(names, free);
    char host[ZQ_NAME_SIZE], extra[ZQ_NAME_SIZE];
    int port = 0;
    zq_parse_servername("example:hexed", "status", "", host, &port, extra);
    answers[t] = answer + host + ":" + std::to_string(port);
  });
  for (int t = 0; t < kTogether; t++) {
    EXPECT_EQ(answers[t], "6540 state of health;6518 ;6540 ;status,twin,example:6518")
        << "thread " << t;
  }
  EXPECT_EQ(elog_mark(), 0);
}

}  // namespace
