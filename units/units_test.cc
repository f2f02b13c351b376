#include "corvel/units.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "corvel/elog.h"
#include "pf/test_dir.h"
#include "units/units_internal.h"

namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

// A table of its own, so that the tests do not follow the shipped one.
const char kTable[] =
    "# three dimensions\n"
    "Primitive m\n"
    "Primitive kg\n"
    "Primitive s\n"
    "\n"
    "meter = m   # a trailing comment ends the line\n"
    "km = 1000 m\n"
    "minute = 60 s\n"
    "hour = 60 minute\n"
    "inch = .0254 m\n"
    "hectare = 10000 m^2\n"
    "siemens = s^3/kg m^2\n"
    "knot = 1852 m/hour\n"
    "hz = /s\n"
    "newton = kg-m/s^2";  // the last line needs no line end

class UnitsTest : public corvel::pf::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    corvel::units::ForgetTable();  // whatever table an earlier test of the process loaded
    setenv("UNITS", root_.c_str(), 1);
    elog_clear();
  }
  void TearDown() override {
    corvel::units::ForgetTable();
    unsetenv("UNITS");
    elog_clear();
    TempDirTest::TearDown();
  }
  static std::string Register() {
    char *text = elog_string(0);
    std::string s = text != nullptr ? text : "";
    free(text);
    elog_clear();
    return s;
  }
  struct Conversion {
    int status;
    double result;
    std::string toout;
  };
  static Conversion Convert(const char *from, const char *to, double value = 1) {
    char toout[64 + UNITS_TOOUT_EXTRA];
    Conversion c = {0, -12345, ""};
    c.status = units_convert(from, to, &c.result, toout, value);
    c.toout = toout;
    return c;
  }
};

TEST_F(UnitsTest, Conversions) {
  Write("units", kTable);
  Conversion c = Convert("km", "m");
  EXPECT_EQ(c.status, 0);
  EXPECT_EQ(c.result, 1000);
  EXPECT_EQ(c.toout, " m");
  c = Convert("km/hour", "m/s", 36);
  EXPECT_EQ(c.status, 0);
  EXPECT_DOUBLE_EQ(c.result, 10);
  EXPECT_EQ(Convert("kilometers", "meters").result, 1000);
  EXPECT_EQ(Convert("3 inches", "m").result, 3 * .0254);
  EXPECT_EQ(Convert("newton", "kg m s^-2").status, 0);
  EXPECT_EQ(Convert("knots", "m/s").status, 0);
  c = Convert("m", "s", 2);
  EXPECT_EQ(c.status, 1);
  EXPECT_EQ(c.result, 2);
  EXPECT_EQ(c.toout, " s m s^-1 ");
  c = Convert("hz", "kg^2");
  EXPECT_EQ(c.toout, " kg^2 kg^-2  s^-1 ");
  EXPECT_EQ(Register(), "");
}

// The grammar's readings, the number power and the negative power included.
TEST_F(UnitsTest, GrammarReadings) {
  Write("units", "Primitive m\nPrimitive s\nPrimitive kg\nkm = 1000 m\n");
  const struct {
    const char *from, *to;
    int status;
    double result;
  } kCases[] = {
      {"10^3 m", "m", 0, 100},     // one factor fewer than the exponent
      {"2*3^2", "1", 0, 6},        // (2*3)^2 by the same rule
      {"2^1", "1", 0, 1},          // an exponent of 1 or less gives 1
      {"2/3*2", "1/3", 0, 1},      // "/" divides by all that follows
      {"2/3/4", "8/3", 0, 1},      // ... and groups to the right
      {"m/s kg", "m/s/kg", 0, 1},  // everything between two "/" is below
      {"m/s kg", "m kg/s", 1, 1},  //
      {"kg-m", "m kg", 0, 1},      // "-" is a product
      {"m 2", "2 m", 0, 1},        // a number on either side
      {"/s", "s^-1", 0, 1},        //
      {"km^2", "m^2", 0, 1e6},     //
      {"km^-1", "m^-1", 0, 1000},  // the factor keeps the positive power
      {"m-2", "m", 0, -2},         // "-2" is a number
      {"m^2.9", "m^2", 0, 1},      // the whole part of the power
      {"kilokm", "m", 0, 1e6},     // a prefix before any unit
  };
  for (const auto &c : kCases) {
    Conversion got = Convert(c.from, c.to);
    EXPECT_EQ(got.status, c.status) << c.from << " -> " << c.to;
    EXPECT_DOUBLE_EQ(got.result, c.result) << c.from << " -> " << c.to;
  }
  EXPECT_EQ(Register(), "");
}

TEST_F(UnitsTest, ExpressionErrors) {
  Write("units", "Primitive m\n");
  const struct {
    std::string from, to, messages;
  } kCases[] = {
      {"foo bar", "m", "xunits : can't find unit 'foo' near line #-1\n"},  // the first only
      {"m", "m bar", "xunits : can't find unit 'bar' near line #-2\n"},
      {"m ^", "",
       "xunits : syntax error near line #-1\nunits_test: xunits : syntax error near line #-2\n"},
      {"m = 3 m", "m", "xunits : syntax error near line #-1\n"},  // no definitions here
      {"Primitive x", "m", "xunits : syntax error near line #-1\n"},
      {"m\nm", "m", "xunits : syntax error near line #-1\n"},
  };
  for (const auto &c : kCases) {
    Conversion got = Convert(c.from.c_str(), c.to.c_str());
    EXPECT_EQ(got.status, -1) << c.from;
    EXPECT_EQ(got.result, -12345) << c.from;
    EXPECT_EQ(got.toout, "");
    EXPECT_EQ(Register(), "units_test: " + c.messages) << c.from;
  }
  std::string deep;
  for (int i = 0; i < 600; i++) deep += "1/";
  EXPECT_EQ(Convert((deep + "1").c_str(), "m").status, -1);
  EXPECT_EQ(Register(), "units_test: xunits : yacc stack overflow near line #-1\n");
  EXPECT_EQ(units_convert(nullptr, "m", nullptr, nullptr, 1), -1);
  EXPECT_EQ(Register(), "units_test: xunits : syntax error near line #-1\n");
}

// Loading stops at the first error, which names its line; what came before stays.
TEST_F(UnitsTest, TableErrorsNameTheirLine) {
  Write("units", "Primitive m\n# comment\n\nfoot = .3048 m\nyard = 3 * foot\n mile = 1 m\n");
  EXPECT_EQ(Convert("foot", "m").result, .3048);
  EXPECT_EQ(Register(), "units_test: xunits : syntax error near line #5\n");
  EXPECT_EQ(Convert("mile", "m").status, -1);
  Register();
  corvel::units::ForgetTable();
  Write("units", "Primitive m\n\n  x = 2 nosuch\ny = m\n");
  EXPECT_EQ(Convert("x", "m").status, -1);
  EXPECT_EQ(Register(),
            "units_test: xunits : can't find unit 'nosuch' near line #3\n"
            "units_test: xunits : can't find unit 'x' near line #-1\n");
  EXPECT_EQ(Convert("y", "m").status, -1);  // never read
}

TEST_F(UnitsTest, ComplaintsWhileLoading) {
  std::string table;
  for (int i = 1; i <= 17; i++) table += "Primitive p" + std::string(1, 'a' + i - 1) + "\n";
  table += "foot = 12 pa\nfoot = .3048 pa\n";
  table += std::string(33, 'z') + " = 2 pa\n" + std::string(32, 'y') + " = 3 pa\n";
  Write("units", table);
  CaptureStderr();
  units_init();
  EXPECT_EQ(GetCapturedStderr(),
            "units_test: too many basic units, ignoring new unit 'pq'\n"
            "units_test: replacing definition for foot\n"
            "units_test: unit name '" +
                std::string(33, 'z') + "' is longer than 32 characters, ignoring it\n");
  EXPECT_EQ(maxtbl(UnitsBasis_tbl), 16);
  EXPECT_EQ(cntarr(Units_arr), 18);
  EXPECT_EQ(Convert("foot", "pa").result, .3048);
  EXPECT_EQ(Convert((std::string(32, 'y')).c_str(), "pa").result, 3);
}

// The name as given, then without "s" and "es", then after a prefix with the ending put back.
TEST_F(UnitsTest, FindsPluralsAndPrefixes) {
  Write("units", "Primitive m\nPrimitive s\ninch = 2 m\nhectare = 3 m\nsiemens = 5 m\n");
  units_init();
  const struct {
    const char *name;
    int found;
    const char *unit;
    double prefix;
  } kCases[] = {
      {"siemens", 1, "siemens", 1},
      {"inches", 1, "inch", 1},
      {"ms", 1, "m", 1},  // a plural before a prefix
      {"kilos", 1, "s", 1e3},
      {"kilohectares", 1, "hectare", 1e3},
      {"millisiemens", 1, "siemens", 1e-3},
      {"hectoinch", 1, "inch", 1e2},
      {"kilo", 0, "*NO*SUCH*UNIT*", 1},
      {"feet", 0, "*NO*SUCH*UNIT*", 1},
      {"attoatto", 0, "*NO*SUCH*UNIT*", 1},
  };
  for (const auto &c : kCases) {
    UnitsBasis *record = nullptr;
    double prefix = -1;
    EXPECT_EQ(unit_found(c.name, &record, &prefix), c.found) << c.name;
    EXPECT_STREQ(record->name, c.unit) << c.name;
    EXPECT_EQ(prefix, c.prefix) << c.name;
  }
  std::string long_name = "kilo" + std::string(40, 'm');
  UnitsBasis *record;
  double prefix;
  EXPECT_EQ(unit_found(long_name.c_str(), &record, &prefix), 0);
  EXPECT_EXIT(unit_found("", &record, &prefix), ::testing::ExitedWithCode(1),
              "unit_found: name = 0");
}

TEST_F(UnitsTest, MatchListsCompatibleUnits) {
  Write("units", "Primitive m\nPrimitive s\nmps = m/s\nknot = 2 m/s\nkm = 1000 m\n");
  Tbl *list = units_match("m/s");
  std::vector<std::string> names;
  for (long i = 0; i < maxtbl(list); i++) names.push_back(static_cast<char *>(gettbl(list, i)));
  freetbl(list, free);
  EXPECT_EQ(names, (std::vector<std::string>{"knot", "mps"}));
  list = units_match("km");  // "km" and "m" are in the text
  EXPECT_EQ(maxtbl(list), 0);
  freetbl(list, free);
  list = units_match("2 furlongs");
  EXPECT_EQ(maxtbl(list), 0);
  freetbl(list, free);
  EXPECT_EQ(Register(), "units_test: xunits : can't find unit 'furlongs' near line #-1\n");
}

TEST_F(UnitsTest, ShowsUnits) {
  Write("units", "Primitive m\nPrimitive s\nknot = 0.5144 m/s\n");
  CaptureStdout();
  show_all_units();
  show_unit(nullptr);
  UnitsBasis *knot;
  double prefix;
  unit_found("knot", &knot, &prefix);
  EXPECT_EQ(match_unit(knot, knot), 1);
  UnitsBasis *copy = new_basis("copy");
  EXPECT_EQ(match_unit(copy, knot), 0);
  copy_basis(copy, knot);
  EXPECT_EQ(match_unit(copy, knot), 1);
  free(copy);
  EXPECT_EQ(GetCapturedStdout(),
            "\n2 basis units\n"
            "  m                    1                      1   0\n"
            "  s                    1                      0   1\n"
            "\n3 total units\n"
            "  knot                 .5144                  1  -1\n"
            "  m                    1                      1   0\n"
            "  s                    1                      0   1\n"
            "\n"
            "unit=0\n");
}

TEST_F(UnitsTest, TableMustBeFound) {
  EXPECT_EXIT(units_init(), ::testing::ExitedWithCode(1), "Can't find units table");
  // A "units" that cannot be read ends the table where it stands.
  ASSERT_EQ(mkdir(Path("units").c_str(), 0755), 0);
  units_init();
  EXPECT_EQ(Register(), "units_test: read failed in compile_schema\n");
}

}  // namespace
