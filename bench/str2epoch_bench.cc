// Reading times: the library's parser against strptime + timegm on the same texts.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <time.h>

#include "bench/ratio_reporter.h"
#include "corvel/time.h"

namespace {

const char kIso[] = "2024-02-01 07:05:09.047";
const char kYearDay[] = "2024-032 07:05:09.047";
const char kMonthName[] = "Feb 1, 2024 07:05:09.047";

void BM_Str2epochIso(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(str2epoch(kIso));
}
BENCHMARK(BM_Str2epochIso);

void BM_Str2epochYearDay(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(str2epoch(kYearDay));
}
BENCHMARK(BM_Str2epochYearDay);

void BM_Str2epochMonthName(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(str2epoch(kMonthName));
}
BENCHMARK(BM_Str2epochMonthName);

// The C library's way: strptime for the whole seconds, the fraction read after them, timegm.
double Strptime(const char *text, const char *format, bool year_day) {
  struct tm t = {};
  const char *rest = strptime(text, format, &t);
  double fraction = rest && *rest == '.' ? strtod(rest, nullptr) : 0;
  if (year_day) {
    // timegm ignores the day of the year: count from the first of January.
    int yday = t.tm_yday;
    t.tm_mon = 0;
    t.tm_mday = 1;
    return static_cast<double>(timegm(&t)) + yday * 86400.0 + fraction;
  }
  return static_cast<double>(timegm(&t)) + fraction;
}

void BM_StrptimeIso(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(Strptime(kIso, "%Y-%m-%d %H:%M:%S", false));
}
BENCHMARK(BM_StrptimeIso)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_StrptimeYearDay(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(Strptime(kYearDay, "%Y-%j %H:%M:%S", true));
}
BENCHMARK(BM_StrptimeYearDay)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_StrptimeMonthName(benchmark::State &state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(Strptime(kMonthName, "%b %d, %Y %H:%M:%S", false));
  }
}
BENCHMARK(BM_StrptimeMonthName)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace

int main(int argc, char **argv) {
  setenv("TZ", "UTC", 1);
  return corvel_bench::RunWithRatios(
      argc, argv,
      {{"str2epoch / strptime+timegm (2024-02-01 ...)", "BM_Str2epochIso", "BM_StrptimeIso"},
       {"str2epoch / strptime+timegm (2024-032 ...)", "BM_Str2epochYearDay",
        "BM_StrptimeYearDay"},
       {"str2epoch / strptime+timegm (Feb 1, 2024 ...)", "BM_Str2epochMonthName",
        "BM_StrptimeMonthName"}});
}
