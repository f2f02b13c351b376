// Formatting epochs: the library's percent codes and site formats against the C library's
// gmtime_r + strftime with a snprintf of the milliseconds, producing the same text.
#include <benchmark/benchmark.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "bench/ratio_reporter.h"
#include "corvel/time.h"

namespace {

constexpr double kStart = 1706771109.0466;
constexpr double kIncrement = 3600.0 * 7 + 0.123;  // moves every field from call to call

// The next time to format: every field moves, and times stay within 2001 to 2096.
inline double Next(double t) {
  t += kIncrement;
  return t < 4e9 ? t : t - 3e9;
}

void BM_Epoch2str(benchmark::State &state) {
  double t = kStart;
  for (auto _ : state) {
    char *text = epoch2str("%Y-%m-%d %H:%M:%S.%s", t);
    benchmark::DoNotOptimize(text);
    free(text);
    t = Next(t);
  }
}
BENCHMARK(BM_Epoch2str);

void BM_Strtime(benchmark::State &state) {
  double t = kStart;
  free(strtime(t));  // loads the site formats
  for (auto _ : state) {
    char *text = strtime(t);
    benchmark::DoNotOptimize(text);
    free(text);
    t = Next(t);
  }
}
BENCHMARK(BM_Strtime);

// The peer writes into a buffer of its own: no allocation, unlike the library's functions.
void BM_GmtimeStrftime(benchmark::State &state) {
  double t = kStart;
  for (auto _ : state) {
    char text[64];
    double whole = floor(t);
    time_t seconds = static_cast<time_t>(whole);
    struct tm tm;
    gmtime_r(&seconds, &tm);
    size_t n = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &tm);
    snprintf(text + n, sizeof text - n, ".%03d", static_cast<int>((t - whole) * 1000 + 0.5));
    benchmark::DoNotOptimize(text);
    t = Next(t);
  }
}
BENCHMARK(BM_GmtimeStrftime);

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunWithRatios(
      argc, argv,
      {{"epoch2str / gmtime_r+strftime+snprintf", "BM_Epoch2str", "BM_GmtimeStrftime"},
       {"strtime / gmtime_r+strftime+snprintf", "BM_Strtime", "BM_GmtimeStrftime"}});
}
