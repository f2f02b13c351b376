// The installation root and the data files under it, first used from several threads at once.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "containers/run_together.h"
#include "corvel/files.h"
#include "pf/test_dir.h"

namespace {

using corvel::kTogether;
using corvel::RunTogether;

class VelmoraConcurrencyTest : public corvel::pf::TempDirTest {};

// Every thread's first getvelmora finds the root at the same moment; all see one root, the
// environment passes it on, and data files are found under it. (Every thread that searched
// once wrote the root again while others were already reading it.)
TEST_F(VelmoraConcurrencyTest, FirstUseGivesEveryThreadTheSameRoot) {
  mkdir(Path("data").c_str(), 0755);
  Write("data/site.pf", "x 1\n");
  setenv("VELMORA", root_.c_str(), 1);
  unsetenv("DATAPATH");
  std::vector<std::string> roots(kTogether), files(kTogether);
  RunTogether(kTogether, [&](int t) {
    // Half the threads come in through the data-file search, which asks for the root itself.
    if (t % 2 == 0) roots[t] = getvelmora();
    char *found = datafile(nullptr, "site.pf");
    files[t] = found != nullptr ? found : "(null)";
    free(found);
    if (t % 2 == 1) roots[t] = getvelmora();
  });
  for (int t = 0; t < kTogether; t++) {
    EXPECT_EQ(roots[t], root_) << "thread " << t;
    EXPECT_EQ(files[t], Path("data/site.pf")) << "thread " << t;
  }
  EXPECT_EQ(std::string(getenv("VELMORA")), root_);
}

}  // namespace
