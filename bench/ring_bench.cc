// Ring statistics over a million readings against the same sums over plain arrays of doubles,
// and pushing readings one at a time.
//
// The ring has wrapped, so every scan crosses the end of the slots once, and gap handling is
// on (no gaps occur), so every entry is tested against the marker as it would be in use.
#include <benchmark/benchmark.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/ring.h"

namespace {

constexpr int kEntries = 1 << 20;
constexpr double kStart = 1.7e9;
constexpr double kSpan = 1e7;  // longer than the ring: every reading counts

// A scratch directory, in memory when the system offers one, so that the disk plays no part.
std::string ScratchDirectory() {
  struct stat status;
  std::string pattern = stat("/dev/shm", &status) == 0 && S_ISDIR(status.st_mode)
                            ? "/dev/shm/ring_bench.XXXXXX"
                            : "/tmp/ring_bench.XXXXXX";
  if (mkdtemp(&pattern[0]) == nullptr) abort();
  return pattern;
}

// The same million readings in a ring and, newest first, in two plain arrays.
struct Readings {
  std::string dir = ScratchDirectory();
  Ring *ring = nullptr;
  std::vector<double> times, values;

  Readings() {
    const std::string path = dir + "/full";
    ring = openring(path.c_str(), nullptr, kEntries, 0);
    if (ring == nullptr) abort();
    std::mt19937 rng(1);
    std::normal_distribution<double> noise(0, 0.5);
    const int pushes = kEntries + kEntries / 3;
    for (int i = 0; i < pushes; i++) {
      if (pushring(ring, kStart + i, 20 + 5 * sin(i * 1e-4) + noise(rng)) != 0) abort();
    }
    double t, v;
    for (int i = 0; getring(ring, i, &t, &v) == 0; i++) {
      times.push_back(t);
      values.push_back(v);
    }
  }
  ~Readings() {
    rmring(ring);
    rmdir(dir.c_str());
  }
};

Readings &Shared() {
  static Readings readings;
  return readings;
}

void BM_Meanring(benchmark::State &state) {
  Ring *ring = Shared().ring;
  for (auto _ : state) {
    int n;
    double mean, stdev;
    meanring(ring, &n, &mean, &stdev, kSpan);
    benchmark::DoNotOptimize(stdev);
  }
}

// Two passes, as the deviations from the mean need: the sum, then the squared deviations.
void BM_MeanArray(benchmark::State &state) {
  const std::vector<double> &values = Shared().values;
  for (auto _ : state) {
    const double *v = values.data();
    const int n = static_cast<int>(values.size());
    double sum = 0;
    for (int i = 0; i < n; i++) sum += v[i];
    const double mean = sum / n;
    double squares = 0;
    for (int i = 0; i < n; i++) {
      const double d = mean - v[i];
      squares += d * d;
    }
    benchmark::DoNotOptimize(sqrt(squares / (n - 1)));
  }
}

void BM_Linearfitring(benchmark::State &state) {
  Ring *ring = Shared().ring;
  for (auto _ : state) {
    int n;
    double slope, intercept, r;
    linearfitring(ring, &n, &slope, &intercept, &r, kSpan);
    benchmark::DoNotOptimize(slope);
    benchmark::DoNotOptimize(r);
  }
}

void BM_LinearFitArray(benchmark::State &state) {
  const std::vector<double> &times = Shared().times, &values = Shared().values;
  for (auto _ : state) {
    const double *t = times.data(), *y = values.data();
    const int n = static_cast<int>(times.size());
    const double t0 = t[0] - kSpan;
    double sx = 0, sy = 0, sxy = 0, sxx = 0, syy = 0;
    for (int i = 0; i < n; i++) {
      const double x = t[i] - t0;
      sx += x;
      sy += y[i];
      sxy += x * y[i];
      sxx += x * x;
      syy += y[i] * y[i];
    }
    const double slope = (sxy - sx * sy / n) / (sxx - sx * sx / n);
    benchmark::DoNotOptimize(slope);
    benchmark::DoNotOptimize((n * sxy - sx * sy) / sqrt((n * syy - sy * sy) * (n * sxx - sx * sx)));
  }
}

// Readings pushed one by one into a ring that has wrapped, as a monitoring program does.
void BM_Pushring(benchmark::State &state) {
  constexpr int kBatch = 1024;
  const std::string path = Shared().dir + "/push";
  Ring *ring = openring(path.c_str(), nullptr, kEntries, 0);
  if (ring == nullptr) abort();
  double t = kStart;
  for (int i = 0; i < kEntries + 1000; i++) pushring(ring, t++, i % 100);
  for (auto _ : state) {
    for (int i = 0; i < kBatch; i++) benchmark::DoNotOptimize(pushring(ring, t++, i));
  }
  state.counters["ns_per_reading"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * kBatch,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  rmring(ring);
}

#define RING_BENCH(name) \
  BENCHMARK(name)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly()

RING_BENCH(BM_Meanring);
RING_BENCH(BM_MeanArray);
RING_BENCH(BM_Linearfitring);
RING_BENCH(BM_LinearFitArray);
RING_BENCH(BM_Pushring);

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunInterleavedWithRatios(
      argc, argv,
      {{"meanring / two passes over an array", "BM_Meanring", "BM_MeanArray"},
       {"linearfitring / one pass over two arrays", "BM_Linearfitring", "BM_LinearFitArray"}});
}
