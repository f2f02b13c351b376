// Conversions through the units table that ships in data/ and installs beside the library.
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <initializer_list>
#include <string>

#include "corvel/elog.h"
#include "corvel/units.h"

namespace {

struct Conversion {
  const char *from;
  const char *to;
  double factor;  // the size of one `from` in `to`
};

std::string Register() {
  char *text = elog_string(0);
  std::string result(text);
  free(text);
  elog_clear();
  return result;
}

// The table is read once per process, on the first conversion; every test runs in a process
// of its own, so each one reads the shipped table.
class ShippedUnitsTable : public testing::Test {
 protected:
  void SetUp() override { setenv("UNITS", CORVEL_SOURCE_DIR "/data", 1); }

  // Each conversion must match in dimensions and give its factor to 12 significant digits.
  static void ExpectFactors(std::initializer_list<Conversion> conversions) {
    for (const Conversion &c : conversions) {
      double result = 0;
      char toout[64 + UNITS_TOOUT_EXTRA] = "";
      EXPECT_EQ(units_convert(c.from, c.to, &result, toout, 1.0), 0)
          << c.from << " -> " << c.to << ":" << toout;
      EXPECT_NEAR(result, c.factor, 1e-12 * fabs(c.factor)) << c.from << " -> " << c.to;
    }
  }

  // The status of a conversion and the text naming the dimensions `to` lacks.
  static std::string Mismatch(const char *from, const char *to) {
    double result = 0;
    char toout[64 + UNITS_TOOUT_EXTRA] = "";
    int status = units_convert(from, to, &result, toout, 1.0);
    return std::to_string(status) + toout;
  }
};

// A line that fails to parse would end the load there, and a name defined twice is complained
// about: the last unit of the table must be there, with nothing said while loading.
TEST_F(ShippedUnitsTable, LoadsToTheEndWithoutAComplaint) {
  testing::internal::CaptureStderr();
  ExpectFactors({{"Gbps", "bit/s", 1e9}});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(Register(), "");
}

TEST_F(ShippedUnitsTable, ConvertsTheUnitsOfAGeophysicalNetwork) {
  ExpectFactors({
      {"gal", "m/s^2", 0.01},
      {"mGal", "m/s^2", 1e-5},
      {"microgals", "nm/s^2", 10},
      {"gravity", "mGal", 980665},
      {"eotvos", "mGal/km", 0.1},
      {"nm/s/count", "m/s/count", 1e-9},
      {"counts/um/s", "count/m/s", 1e6},
      {"degree", "rad", M_PI / 180},
      {"arcsec", "urad", M_PI / 648000 * 1e6},
      {"deg/s", "rad/s", M_PI / 180},
      {"gamma", "nT", 1},
      {"gauss", "nT", 1e5},
      {"bar", "hPa", 1000},
      {"mbar", "hPa", 1},
      {"microbar", "Pa", 0.1},
      {"atm", "hPa", 1013.25},
      {"sps", "Hz", 1},
      {"mHz", "Hz", 1e-3},
  });
}

TEST_F(ShippedUnitsTable, ConvertsCustomaryAndCgsUnitsByTheirExactDefinitions) {
  ExpectFactors({
      {"mile", "km", 1.609344},
      {"feet", "inches", 12},
      {"nmi", "m", 1852},
      {"knot", "m/s", 1852.0 / 3600},
      {"mph", "km/hour", 1.609344},
      {"pound", "kg", 0.45359237},
      {"lbf", "N", 0.45359237 * 9.80665},
      {"psi", "Pa", 0.45359237 * 9.80665 / (0.0254 * 0.0254)},
      {"inHg", "Pa", 3386.388640341},
      {"torr", "Pa", 101325.0 / 760},
      {"hp", "W", 550 * 0.3048 * 0.45359237 * 9.80665},
      {"BTU", "J", 1055.05585262},
      {"calorie", "J", 4.184},
      {"erg/s", "W", 1e-7},
      {"dyne cm", "N m", 1e-7},
      {"gallon", "liter", 3.785411784},
      {"acre", "m^2", 4046.8564224},
      {"parsec", "au", 648000 / M_PI},
      {"lightyear", "m", 9460730472580800.0},
  });
}

TEST_F(ShippedUnitsTable, ConvertsSiUnitsDataSizesAndTemperatureSteps) {
  ExpectFactors({
      {"kg m/s^2", "N", 1},
      {"V A", "W", 1},
      {"Wb/m^2", "T", 1},
      {"kWh", "MJ", 3.6},
      {"mAh", "C", 3.6},
      {"eV", "J", 1.602176634e-19},
      {"kilotonTNT", "J", 4.184e12},
      {"byte", "bit", 8},
      {"KiB", "byte", 1024},
      {"MiB", "kB", 1048.576},
      {"Mbps", "byte/s", 125000},
      {"percent", "ppm", 1e4},
      {"degF", "K", 5.0 / 9},
      {"degC", "degF", 1.8},
  });
}

// Symbols are their own units, not plurals: "ms" is a millisecond, never a meter.
TEST_F(ShippedUnitsTable, SymbolsEndingInSAreNotPlurals) {
  ExpectFactors({{"ms", "s", 1e-3}, {"ns", "us", 1e-3}, {"Pas", "poise", 10}, {"Ws", "J", 1}});
  EXPECT_EQ(Mismatch("ms", "m"), "1 m m^-1  s");
}

// Angle is a dimension of its own: a frequency in cycles is not an angular rate, and the gal
// is an acceleration, not the gallon.
TEST_F(ShippedUnitsTable, KeepsLookalikeQuantitiesApart) {
  ExpectFactors({{"rev/min", "rad/s", 2 * M_PI / 60}, {"rpm", "Hz", 1.0 / 60}});
  EXPECT_EQ(Mismatch("rpm", "rad/s"), "1 rad/s rad^-1 ");
  EXPECT_EQ(Mismatch("gal", "liter"), "1 liter m^-2  s^-2 ");
}

}  // namespace
