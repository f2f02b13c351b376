// Tbl against the standard containers it stands in for: appending (std::vector) and a queue fed
// at one end and drained at the other (std::deque). Each pair does the same operations, building
// and destroying its container inside the timed loop, and the ratios are printed at the end.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>

#include <deque>
#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/tbl.h"

namespace {

constexpr long kPushes = 1000000;
constexpr long kQueueLength = 1000;
constexpr long kQueueRounds = 1000000;

void *Value(long i) { return reinterpret_cast<void *>(static_cast<intptr_t>(i)); }

void BM_PushTbl(benchmark::State &state) {
  for (auto _ : state) {
    Tbl *t = newtbl(0);
    for (long i = 0; i < kPushes; i++) pushtbl(t, Value(i));
    benchmark::DoNotOptimize(t->base);
    freetbl(t, nullptr);
  }
  state.SetItemsProcessed(state.iterations() * kPushes);
}
BENCHMARK(BM_PushTbl)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_PushVector(benchmark::State &state) {
  for (auto _ : state) {
    std::vector<void *> v;
    for (long i = 0; i < kPushes; i++) v.push_back(Value(i));
    benchmark::DoNotOptimize(v.data());
  }
  state.SetItemsProcessed(state.iterations() * kPushes);
}
BENCHMARK(BM_PushVector)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_QueueTbl(benchmark::State &state) {
  for (auto _ : state) {
    Tbl *t = newtbl(0);
    for (long i = 0; i < kQueueLength; i++) pushtbl(t, Value(i));
    for (long i = 0; i < kQueueRounds; i++) {
      void *front = shifttbl(t);
      pushtbl(t, Value(i));
      benchmark::DoNotOptimize(front);
    }
    freetbl(t, nullptr);
  }
  state.SetItemsProcessed(state.iterations() * kQueueRounds);
}
BENCHMARK(BM_QueueTbl)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_QueueDeque(benchmark::State &state) {
  for (auto _ : state) {
    std::deque<void *> q;
    for (long i = 0; i < kQueueLength; i++) q.push_back(Value(i));
    for (long i = 0; i < kQueueRounds; i++) {
      void *front = q.front();
      q.pop_front();
      q.push_back(Value(i));
      benchmark::DoNotOptimize(front);
    }
  }
  state.SetItemsProcessed(state.iterations() * kQueueRounds);
}
BENCHMARK(BM_QueueDeque)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace

int main(int argc, char **argv) {
  // Large blocks from the heap, and freed memory kept there: otherwise whichever side runs first
  // decides, through the allocator's adaptive thresholds, whether the other pays a page fault for
  // every page of every iteration, and the comparison measures the order of the runs.
  mallopt(M_MMAP_THRESHOLD, 256 << 20);
  mallopt(M_TRIM_THRESHOLD, 512 << 20);
  return corvel_bench::RunWithRatios(
      argc, argv,
      {{"pushtbl / vector::push_back", "BM_PushTbl", "BM_PushVector"},
       {"shifttbl+pushtbl / deque::pop_front+push_back", "BM_QueueTbl", "BM_QueueDeque"}});
}
