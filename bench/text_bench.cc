// Environment expansion of a text without references against strdup, and splitting in place
// against a strtok_r loop that collects the fields in a vector.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/tbl.h"
#include "corvel/text.h"

namespace {

const char kPath[] = "/opt/observatory/data/db/waveforms/2024/032/ANMO.IU.00.BHZ.2024032.msd";

// A station line with a few dozen blank-separated fields, some separated by runs of blanks.
std::string StationLine() {
  std::string line;
  for (int i = 0; i < 40; i++) line += "ANMO  BHZ " + std::to_string(1.5 * i) + " ";
  return line;
}

void BM_ExpandEnvPlain(benchmark::State &state) {
  for (auto _ : state) {
    char *copy = expand_env(kPath);
    benchmark::DoNotOptimize(copy);
    free(copy);
  }
}
BENCHMARK(BM_ExpandEnvPlain);

void BM_Strdup(benchmark::State &state) {
  for (auto _ : state) {
    char *copy = strdup(kPath);
    benchmark::DoNotOptimize(copy);
    free(copy);
  }
}
BENCHMARK(BM_Strdup);

// Both sides start from a fresh copy of the line, since both cut it in place, and both build
// a new list of the fields.
void BM_Split(benchmark::State &state) {
  const std::string line = StationLine();
  std::vector<char> text(line.size() + 1);
  for (auto _ : state) {
    memcpy(text.data(), line.c_str(), text.size());
    Tbl *fields = split(text.data(), ' ');
    benchmark::DoNotOptimize(fields);
    freetbl(fields, nullptr);
  }
}
BENCHMARK(BM_Split);

void BM_StrtokVector(benchmark::State &state) {
  const std::string line = StationLine();
  std::vector<char> text(line.size() + 1);
  for (auto _ : state) {
    memcpy(text.data(), line.c_str(), text.size());
    std::vector<char *> fields;
    char *save = nullptr;
    for (char *field = strtok_r(text.data(), " ", &save); field != nullptr;
         field = strtok_r(nullptr, " ", &save)) {
      fields.push_back(field);
    }
    benchmark::DoNotOptimize(fields.data());
  }
}
BENCHMARK(BM_StrtokVector);

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunWithRatios(
      argc, argv,
      {{"expand_env without '$' / strdup", "BM_ExpandEnvPlain", "BM_Strdup"},
       {"split / strtok_r into vector<char*>", "BM_Split", "BM_StrtokVector"}});
}
