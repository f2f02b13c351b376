#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <string>

#include "corvel/elog.h"
#include "corvel/port.h"

namespace {

std::string Expand(const char *tag, int severity = ELOG_LOG, int size = 1023) {
  char out[2048];
  elog_expand(tag, severity, out, size);
  return out;
}

TEST(ElogExpandTest, Codes) {
  char arg0[] = "prog";
  char arg1[] = "-x";
  char arg2[] = "file";
  char *argv[] = {arg0, arg1, arg2, nullptr};
  elog_init(3, argv);
  char host[256];
  my_hostname(host, sizeof host);

  EXPECT_EQ(Expand("%P *debug*"), std::string(Program_Name) + " *debug*");
  EXPECT_EQ(Expand("[%p]"), "[" + std::to_string(getpid()) + "]");
  EXPECT_EQ(Expand("%h"), host);
  EXPECT_EQ(Expand("%r"), elog_cmdline());
  EXPECT_EQ(Expand("%a|"), "-x file |");
  EXPECT_EQ(Expand("%s %s", ELOG_ALERT), "alert alert");
  EXPECT_EQ(Expand("%s", 9), "<BAD>");
  EXPECT_EQ(Expand("%T"), std::to_string(static_cast<unsigned long>(pthread_self())));
  EXPECT_EQ(Expand("100%% %q%"), "100% q%");
  EXPECT_EQ(Expand("no codes"), "no codes");

  Elog_reference_time = std_now() - 2.0;
  std::string elapsed = Expand("%e");
  EXPECT_EQ(elapsed.size(), 10u);
  EXPECT_NEAR(std::stod(elapsed), 2.0, 0.5);

  char *saved = Elog_u_format;
  Elog_u_format = const_cast<char *>("%Y");
  int year = std::stoi(Expand("%u"));
  EXPECT_GE(year, 2024);
  Elog_u_format = saved;
}

TEST(ElogExpandTest, LongExpansionsStopAndAreMarked) {
  std::string name(250, 'n');
  snprintf(Program_Name, sizeof Program_Name, "%s", name.c_str());
  // Expansion stops once past size - 100 characters.
  EXPECT_EQ(Expand("%P%P%P%Pxyz", ELOG_LOG, 1023), std::string(1000, 'n'));
  // An expansion that reaches the end of the output is cut and marked.
  snprintf(Program_Name, sizeof Program_Name, "%s", std::string(300, 'n').c_str());
  EXPECT_EQ(Expand("%P%P%P%P", ELOG_LOG, 1023), std::string(1017, 'n') + " *...");
  EXPECT_EQ(Expand("%P", ELOG_LOG, 120), std::string(114, 'n') + " *...");
}

}  // namespace
