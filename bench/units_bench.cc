// Converting a value between two unit expressions: the library's units_convert against
// UDUNITS-2 parsing both expressions, making the converter and applying it to the value.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <udunits2.h>
#include <unistd.h>

#include <string>

#include "bench/ratio_reporter.h"
#include "corvel/units.h"

namespace {

const char kFrom[] = "km/hour";
const char kTo[] = "m/s";

// A table of the benchmark's own, for a tree without the shipped one.
const char kSmallTable[] =
    "Primitive m\nPrimitive kg\nPrimitive s\n"
    "km = 1000 m\nminute = 60 s\nhour = 60 minute\nnewton = kg m/s^2\n";

std::string g_scratch;

void RemoveScratch() {
  if (g_scratch.empty()) return;
  unlink((g_scratch + "/units").c_str());
  rmdir(g_scratch.c_str());
}

// UNITS names the source tree's data directory when it holds the shipped table, else a
// directory with the small table.
void PointAtTable() {
  std::string data = __FILE__;
  data = data.substr(0, data.rfind("/bench/")) + "/data";
  if (access((data + "/units").c_str(), R_OK) == 0) {
    setenv("UNITS", data.c_str(), 1);
    return;
  }
  char dir[] = "/tmp/units_bench.XXXXXX";
  if (mkdtemp(dir) == nullptr) abort();
  g_scratch = dir;
  FILE *table = fopen((g_scratch + "/units").c_str(), "w");
  fputs(kSmallTable, table);
  fclose(table);
  setenv("UNITS", dir, 1);
  atexit(RemoveScratch);
}

void BM_UnitsConvert(benchmark::State &state) {
  char toout[sizeof kTo + UNITS_TOOUT_EXTRA];
  double result = 0;
  if (units_convert(kFrom, kTo, &result, toout, 1) != 0) state.SkipWithError("units_convert");
  for (auto _ : state) {
    benchmark::DoNotOptimize(units_convert(kFrom, kTo, &result, toout, 1));
    benchmark::DoNotOptimize(result);
  }
}
BENCHMARK(BM_UnitsConvert)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_Udunits(benchmark::State &state) {
  ut_set_error_message_handler(ut_ignore);
  static ut_system *const system = ut_read_xml(nullptr);
  if (system == nullptr) {
    state.SkipWithError("ut_read_xml");
    return;
  }
  for (auto _ : state) {
    ut_unit *from = ut_parse(system, kFrom, UT_ASCII);
    ut_unit *to = ut_parse(system, kTo, UT_ASCII);
    cv_converter *converter = ut_get_converter(from, to);
    benchmark::DoNotOptimize(cv_convert_double(converter, 1));
    cv_free(converter);
    ut_free(to);
    ut_free(from);
  }
}
BENCHMARK(BM_Udunits)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace

int main(int argc, char **argv) {
  PointAtTable();
  return corvel_bench::RunInterleavedWithRatios(
      argc, argv,
      {{"units_convert / UDUNITS-2 (km/hour -> m/s)", "BM_UnitsConvert", "BM_Udunits"}});
}
