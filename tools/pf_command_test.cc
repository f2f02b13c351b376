#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>

#include "pf/test_dir.h"
#include "tools/run_corvel.h"

namespace {

using corvel::tools::Result;
using corvel::tools::RunCorvel;

class PfCommand : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    for (const char *dir : {"a", "b", "empty"}) ASSERT_EQ(mkdir(Path(dir).c_str(), 0755), 0);
    setenv("PFPATH", (Path("a") + ":" + Path("empty") + ":" + Path("b")).c_str(), 1);
  }

  // The command's stdout, stderr and status, kept apart.
  Result Run(const std::string &arguments) { return RunCorvel(arguments, true); }

  // A failure: status 1, the message, and nothing on stdout.
  void ExpectFailure(const std::string &arguments, const std::string &message) {
    Result r = Run(arguments);
    EXPECT_EQ(r.status, 1) << arguments;
    EXPECT_EQ(r.out, "") << arguments;
    EXPECT_NE(r.err.find(message), std::string::npos) << arguments << ": " << r.err;
  }
};

TEST_F(PfCommand, MergedTreeAndValues) {
  Write("a/x.pf",
        "net IU\nchan &Arr{\n  BHZ &Arr{\n    rate 40\n  }\n}\nlist &Tbl{\n  one\n}\n"
        "path /data/&net\n");
  Write("b/x.pf", "net II\ngain 0.1\nflag yes\nstart 2024-02-01 07:05:09.047\nbuf 2k\n");
  Result r = Run("pf x");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "buf\t2k\nchan\t&Arr{\n    BHZ\t&Arr{\n        rate\t40\n    }\n}\nflag\tyes\n"
            "gain\t0.1\nlist\t&Tbl{\n    one\n}\nnet\tII\npath\t/data/&net\n"
            "start\t2024-02-01 07:05:09.047\n");
  EXPECT_EQ(Run("pf x path").out, "/data/II\n");  // substituted after the merge
  EXPECT_EQ(Run("pf x chan").out, "BHZ\t&Arr{\n    rate\t40\n}\n");
  EXPECT_EQ(Run("pf x list").out, "&Tbl{\n    one\n}\n");

  EXPECT_EQ(Run("pf -t int x 'chan{BHZ}{rate}'").out, "40\n");
  EXPECT_EQ(Run("pf x gain -t double").out, "0.1\n");
  EXPECT_EQ(Run("pf -t bool x flag").out, "true\n");
  EXPECT_EQ(Run("pf -t time x start").out, "1706771109.047\n");
  EXPECT_EQ(Run("pf -t size x buf").out, "2000\n");
  ExpectFailure("pf -t int x gain", "corvel: Bad integer value '0.1' for gain\n");
  ExpectFailure("pf -t bool x net", "corvel: Bad boolean value 'II' for net\n");
  ExpectFailure("pf -t time x net", "corvel: Bad time value 'II' for net\n");
  ExpectFailure("pf -t int x list", "'list' in parameter file x is a list, not a single value");

  ExpectFailure("pf x nokey", "no key 'nokey' in parameter file x");
  ExpectFailure("pf -t int x 'chan{BHZ}{none}'", "no key 'chan{BHZ}{none}'");
  ExpectFailure("pf -t bool x nokey", "no key 'nokey'");
  ExpectFailure("pf nothere", "no parameter file nothere.pf along PFPATH " + Path("a"));
}

TEST_F(PfCommand, Files) {
  Write("a/x.pf", "k 1\n");
  Write("b/x.pf", "k 2\n");
  EXPECT_EQ(Run("pf --files x").out, Path("a/x.pf") + "\n" + Path("b/x.pf") + "\n");
  EXPECT_EQ(Run("pf --all --files x").out,
            Path("a/x.pf") + "\n" + Path("empty/x.pf") + "\n" + Path("b/x.pf") + "\n");
  ExpectFailure("pf --files y", "no parameter file y.pf");
}

// The JSON text as Python's json module reads it (strict UTF-8 first), written back with
// sorted keys and ASCII escapes.
std::string ThroughPython(const std::string &json, const std::string &path) {
  FILE *f = fopen(path.c_str(), "w");
  fputs(json.c_str(), f);
  fclose(f);
  std::string command =
      "python3 -c 'import json, sys; "
      "print(json.dumps(json.loads(open(sys.argv[1], \"rb\").read().decode(\"utf-8\")), "
      "sort_keys=True))' " +
      path + " 2>&1";
  FILE *pipe = popen(command.c_str(), "r");
  std::string out = corvel::tools::ReadAll(pipe);
  pclose(pipe);
  return out;
}

TEST_F(PfCommand, Json) {
  // \377 is no UTF-8; \303\251 is e acute.
  Write("a/x.pf",
        "s \"q\" a\\tb\\nc \\377 \\303\\251 \\001\nl &Tbl{\n  x\n  &env(HOME)\n}\n"
        "n &Arr{\n  m &Arr{\n    k v\n  }\n  e &Tbl{\n  }\n}\nf &env(HOME)\ngone &undef()\n");
  setenv("HOME", "/home/tester", 1);
  Result r = Run("pf --json x");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(ThroughPython(r.out, Path("x.json")),
            "{\"f\": \"/home/tester\", \"l\": [\"x\", \"/home/tester\"], "
            "\"n\": {\"e\": [], \"m\": {\"k\": \"v\"}}, "
            "\"s\": \"\\\"q\\\" a\\tb\\nc \\ufffd \\u00e9 \\u0001\"}\n");
  EXPECT_EQ(Run("pf --json x n").out, "{\n  \"e\": [],\n  \"m\": {\n    \"k\": \"v\"\n  }\n}\n");
  ExpectFailure("pf --json x gone", "no key 'gone'");
}

TEST_F(PfCommand, Check) {
  Write("good.pf", "a 1\n");
  Write("b/broken.pf", "a 1\nb &Arr{\n  c 2\n}\n}\n");
  // The reader's own message, without the stack trace that it asks for.
  std::string message = "corvel: invalid right brace at line #5 in pf file ";
  Result r = Run("pf --check " + Path("good.pf") + " " + Path("b/broken.pf"));
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, Path("good.pf") + ": ok\n");
  EXPECT_EQ(r.err, message + Path("b/broken.pf") + "\n");
  ExpectFailure("pf --check " + Path("none.pf"), "can't read " + Path("none.pf"));

  r = Run("pf broken");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, message + Path("b/broken.pf") + "\n");
}

TEST_F(PfCommand, Usage) {
  EXPECT_EQ(Run("pf").status, 2);
  EXPECT_EQ(Run("pf --all x").status, 2);
  EXPECT_EQ(Run("pf -t number x k").status, 2);
  EXPECT_EQ(Run("pf --json --files x").status, 2);
  Result r = Run("pf --help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("--check FILE"), std::string::npos);
}

}  // namespace
