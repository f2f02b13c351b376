// Byte-order conversion of 1M 4-byte integers to and from the wire, against copying the same
// bytes with memcpy: the conversion should cost little more than moving the data.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/port.h"

namespace {

constexpr long kValues = 1 << 20;

struct Buffers {
  Buffers() : host(kValues), wire(kValues * 4) {
    for (long i = 0; i < kValues; i++) host[i] = static_cast<int32_t>(i * 2654435761u);
  }
  std::vector<int32_t> host;
  std::vector<char> wire;
};

void BM_Hi2mi(benchmark::State &state) {
  Buffers b;
  for (auto _ : state) {
    char *p = b.wire.data();
    hi2mi(&p, b.host.data(), kValues);
    benchmark::DoNotOptimize(p);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kValues * 4);
}
BENCHMARK(BM_Hi2mi)->Unit(benchmark::kMicrosecond)->Repetitions(9)->ReportAggregatesOnly();

void BM_Mi2hi(benchmark::State &state) {
  Buffers b;
  for (auto _ : state) {
    char *p = b.wire.data();
    mi2hi(&p, b.host.data(), kValues);
    benchmark::DoNotOptimize(p);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kValues * 4);
}
BENCHMARK(BM_Mi2hi)->Unit(benchmark::kMicrosecond)->Repetitions(9)->ReportAggregatesOnly();

void BM_Memcpy(benchmark::State &state) {
  Buffers b;
  for (auto _ : state) {
    memcpy(b.wire.data(), b.host.data(), kValues * 4);
    benchmark::DoNotOptimize(b.wire.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kValues * 4);
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMicrosecond)->Repetitions(9)->ReportAggregatesOnly();

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunInterleavedWithRatios(
      argc, argv,
      {{"hi2mi 1M values / memcpy 4 MB", "BM_Hi2mi", "BM_Memcpy"},
       {"mi2hi 1M values / memcpy 4 MB", "BM_Mi2hi", "BM_Memcpy"}});
}
