// Runs the registered benchmarks and, after the usual table, prints each library-to-peer
// ratio of real time per iteration, so that every ratio comes from one run of one binary.
#ifndef CORVEL_BENCH_RATIO_REPORTER_H_
#define CORVEL_BENCH_RATIO_REPORTER_H_

#include <benchmark/benchmark.h>
#include <stdio.h>

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace corvel_bench {

struct Ratio {
  const char *label;
  const char *ours;    // benchmark function name of the library's side
  const char *theirs;  // benchmark function name of the peer
};

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    // With repetitions, the median of the repetitions stands for the benchmark.
    for (const Run &run : runs) {
      const std::string &name = run.run_name.function_name;
      double seconds = run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        seconds_[name] = seconds;
        from_median_[name] = true;
      } else if (run.run_type == Run::RT_Iteration && run.iterations > 0 && !from_median_[name]) {
        seconds_[name] = seconds;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatio(const Ratio &r) const {
    auto a = seconds_.find(r.ours), b = seconds_.find(r.theirs);
    if (a == seconds_.end() || b == seconds_.end() || b->second <= 0) return;
    printf("%-50s %6.2f  (%s vs %s)\n", r.label, a->second / b->second, Human(a->second).c_str(),
           Human(b->second).c_str());
  }

 private:
  static std::string Human(double seconds) {
    char text[32];
    if (seconds < 1e-6) {
      snprintf(text, sizeof text, "%.1f ns", seconds * 1e9);
    } else if (seconds < 1e-3) {
      snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
    } else {
      snprintf(text, sizeof text, "%.3f ms", seconds * 1e3);
    }
    return text;
  }
  std::map<std::string, double> seconds_;
  std::map<std::string, bool> from_median_;
};

inline int RunWithRatios(int argc, char **argv, std::initializer_list<Ratio> ratios) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  printf("\nratio library / peer (lower is faster)\n");
  for (const Ratio &r : ratios) reporter.PrintRatio(r);
  benchmark::Shutdown();
  return 0;
}

// As RunWithRatios, with the repetitions of all benchmarks run in a random order, so that a
// stretch of a busy machine falls on both sides of a ratio alike.
inline int RunInterleavedWithRatios(int argc, char **argv, std::initializer_list<Ratio> ratios) {
  std::vector<char *> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  return RunWithRatios(static_cast<int>(args.size()), args.data(), ratios);
}

}  // namespace corvel_bench

#endif  // CORVEL_BENCH_RATIO_REPORTER_H_
