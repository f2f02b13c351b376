// Parameter files against GLib's key files: reading a generated file of about 1 MB with 20 000
// keys, looking one value up, and getting a cached tree by name.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bench/pf_texts.h"
#include "bench/ratio_reporter.h"
#include "corvel/pf.h"

namespace {

using corvel_bench::Compile;
using corvel_bench::Generated;
using corvel_bench::Load;
using corvel_bench::Texts;

void BM_Pfcompile(benchmark::State &state) {
  const Texts &texts = Generated();
  for (auto _ : state) pffree(Compile(state));
  state.counters["bytes"] = static_cast<double>(texts.pf.size());
  state.counters["keys"] = texts.keys;
}
BENCHMARK(BM_Pfcompile)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

// Reading alone: releasing the tree (or the key file) is left out of the time.
void BM_PfcompileOnly(benchmark::State &state) {
  for (auto _ : state) {
    Pf *pf = Compile(state);
    state.PauseTiming();
    pffree(pf);
    state.ResumeTiming();
  }
}
BENCHMARK(BM_PfcompileOnly)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

void BM_GKeyFileLoad(benchmark::State &state) {
  const Texts &texts = Generated();
  for (auto _ : state) g_key_file_free(Load(state));
  state.counters["bytes"] = static_cast<double>(texts.keyfile.size());
}
BENCHMARK(BM_GKeyFileLoad)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

void BM_GKeyFileLoadOnly(benchmark::State &state) {
  for (auto _ : state) {
    GKeyFile *kf = Load(state);
    state.PauseTiming();
    g_key_file_free(kf);
    state.ResumeTiming();
  }
}
BENCHMARK(BM_GKeyFileLoadOnly)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly();

// Reading as a program does at start: every tree (and key file) read is kept until the
// repetition ends, so each read allocates from fresh memory rather than from what the last
// release left behind.
void BM_PfcompileKept(benchmark::State &state) {
  std::vector<Pf *> kept;
  for (auto _ : state) kept.push_back(Compile(state));
  for (Pf *pf : kept) pffree(pf);
}
BENCHMARK(BM_PfcompileKept)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20)
    ->Repetitions(9)
    ->ReportAggregatesOnly();

void BM_GKeyFileLoadKept(benchmark::State &state) {
  std::vector<GKeyFile *> kept;
  for (auto _ : state) kept.push_back(Load(state));
  for (GKeyFile *kf : kept) g_key_file_free(kf);
}
BENCHMARK(BM_GKeyFileLoadKept)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(20)
    ->Repetitions(9)
    ->ReportAggregatesOnly();

void BM_PfgetString(benchmark::State &state) {
  Pf *pf = Compile(state);
  for (auto _ : state) {
    const char *value = pfget_string(pf, "a{b}[3]");
    benchmark::DoNotOptimize(value);
  }
  if (strcmp(pfget_string(pf, "a{b}[3]"), "v3") != 0) state.SkipWithError("wrong value");
  pffree(pf);
}
BENCHMARK(BM_PfgetString)->Repetitions(9)->ReportAggregatesOnly();

// GLib's getter returns a new copy of the value; the list form splits and copies every entry.
void BM_GKeyFileGetString(benchmark::State &state) {
  GKeyFile *kf = Load(state);
  for (auto _ : state) {
    gchar *value = g_key_file_get_string(kf, "a", "b3", nullptr);
    benchmark::DoNotOptimize(value);
    g_free(value);
  }
  g_key_file_free(kf);
}
BENCHMARK(BM_GKeyFileGetString)->Repetitions(9)->ReportAggregatesOnly();

void BM_GKeyFileGetStringList(benchmark::State &state) {
  GKeyFile *kf = Load(state);
  for (auto _ : state) {
    gsize n = 0;
    gchar **values = g_key_file_get_string_list(kf, "a", "b", &n, nullptr);
    benchmark::DoNotOptimize(values[3]);
    g_strfreev(values);
  }
  g_key_file_free(kf);
}
BENCHMARK(BM_GKeyFileGetStringList)->Repetitions(9)->ReportAggregatesOnly();

// getPf of a name already cached: one locked lookup.
void BM_GetPfCached(benchmark::State &state) {
  char dir[] = "/tmp/pf_bench.XXXXXX";
  if (mkdtemp(dir) == nullptr) return state.SkipWithError("mkdtemp");
  std::string path = std::string(dir) + "/bench.pf";
  FILE *f = fopen(path.c_str(), "w");
  fputs("k v\n", f);
  fclose(f);
  setenv("PFPATH", dir, 1);
  if (getPf("bench") == nullptr) state.SkipWithError("getPf failed");
  for (auto _ : state) {
    Pf *pf = getPf("bench");
    benchmark::DoNotOptimize(pf);
  }
  unlink(path.c_str());
  rmdir(dir);
}
BENCHMARK(BM_GetPfCached)->Repetitions(9)->ReportAggregatesOnly();

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunInterleavedWithRatios(
      argc, argv,
      {{"pfcompile+pffree 1 MB / load+g_key_file_free", "BM_Pfcompile", "BM_GKeyFileLoad"},
       {"pfcompile 1 MB / g_key_file_load_from_data", "BM_PfcompileOnly", "BM_GKeyFileLoadOnly"},
       {"pfcompile 1 MB / load, each into fresh memory", "BM_PfcompileKept", "BM_GKeyFileLoadKept"},
       {"pfget_string a{b}[3] / g_key_file_get_string", "BM_PfgetString", "BM_GKeyFileGetString"},
       {"pfget_string a{b}[3] / g_key_file_get_string_list", "BM_PfgetString",
        "BM_GKeyFileGetStringList"}});
}
