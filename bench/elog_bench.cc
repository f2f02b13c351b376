// Keeping messages in the register against formatting them into strings with the C library.
#include <benchmark/benchmark.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/elog.h"

namespace {

constexpr int kMessagesPerClear = 40;

void BM_ElogLog(benchmark::State &state) {
  elog_init(0, nullptr);
  int i = 0;
  for (auto _ : state) {
    elog_log(0, "station %s channel %s: gap of %d samples at %.3f", "ANMO", "BHZ", i, 1.5 * i);
    if (++i % kMessagesPerClear == 0) elog_clear();
  }
  elog_clear();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ElogLog);

void BM_SnprintfVector(benchmark::State &state) {
  std::vector<std::string> kept;
  int i = 0;
  char buf[10240];
  for (auto _ : state) {
    snprintf(buf, sizeof buf, "station %s channel %s: gap of %d samples at %.3f", "ANMO", "BHZ",
             i, 1.5 * i);
    kept.emplace_back(buf);
    if (++i % kMessagesPerClear == 0) kept.clear();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SnprintfVector);

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunWithRatios(
      argc, argv, {{"elog_log / snprintf into vector<string>", "BM_ElogLog", "BM_SnprintfVector"}});
}
