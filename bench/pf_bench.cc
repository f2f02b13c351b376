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

#include "bench/ratio_reporter.h"
#include "corvel/pf.h"

namespace {

constexpr int kStations = 400;
constexpr int kBands = 8;

// The same content twice: as a parameter file (nested arrays, lists, literals, escapes) and as
// a key file (a group per station, nested keys joined with '.', lists separated by ';',
// newlines escaped).
struct Texts {
  std::string pf;
  std::string keyfile;
  int keys = 0;
};

const Texts &Generated() {
  static const Texts *texts = [] {
    Texts *t = new Texts;
    char line[256];
    t->pf += "a &Arr{\n    b &Tbl{\n        v0\n        v1\n        v2\n        v3\n    }\n}\n";
    t->keyfile += "[a]\nb=v0;v1;v2;v3\nb3=v3\n";
    t->keys += 2;
    for (int s = 0; s < kStations; s++) {
      snprintf(line, sizeof line, "sta%04d &Arr{\n", s);
      t->pf += line;
      snprintf(line, sizeof line, "[sta%04d]\n", s);
      t->keyfile += line;
      snprintf(line, sizeof line,
               "    lat    %.4f\n    lon    %.4f\n    elev   %.1f\n"
               "    name   Station\\ %d\\, vault \\#%d   # where it stands\n",
               30 + s * 0.01, -106 + s * 0.02, 1500.0 + s, s, s % 7);
      t->pf += line;
      snprintf(line, sizeof line, "lat=%.4f\nlon=%.4f\nelev=%.1f\nname=Station %d, vault #%d\n",
               30 + s * 0.01, -106 + s * 0.02, 1500.0 + s, s, s % 7);
      t->keyfile += line;
      t->keys += 4;
      t->pf += "    chan &Arr{\n";
      for (const char *c : {"BHZ", "BHN", "BHE", "LHZ", "LHN", "LHE"}) {
        snprintf(line, sizeof line,
                 "        %s &Arr{\n            samprate  40\n            gain      1.5e9\n"
                 "            calper    1.0\n            segtype   V\n            loc       00\n"
                 "        }\n",
                 c);
        t->pf += line;
        snprintf(line, sizeof line,
                 "chan.%s.samprate=40\nchan.%s.gain=1.5e9\nchan.%s.calper=1.0\n"
                 "chan.%s.segtype=V\nchan.%s.loc=00\n",
                 c, c, c, c, c);
        t->keyfile += line;
        t->keys += 5;
      }
      t->pf += "    }\n    bands &Tbl{\n";
      std::string list;
      for (int b = 0; b < kBands; b++) {
        snprintf(line, sizeof line, "        %.3f %.3f\n", 0.01 * (b + 1), 0.1 * (b + 1));
        t->pf += line;
        snprintf(line, sizeof line, "%s%.3f %.3f", b ? ";" : "", 0.01 * (b + 1), 0.1 * (b + 1));
        list += line;
      }
      t->pf += "    }\n";
      t->keyfile += "bands=" + list + "\n";
      t->keys += 1;
      snprintf(line, sizeof line,
               "    notes &Literal{\nInstalled in a vault {dry} on bedrock, north of the road.\n"
               "Sensor %d, logger %d; serviced every spring and every autumn.\n}\n",
               s, s + 1000);
      t->pf += line;
      snprintf(line, sizeof line,
               "notes=Installed in a vault {dry} on bedrock, north of the road.\\n"
               "Sensor %d, logger %d; serviced every spring and every autumn.\\n\n",
               s, s + 1000);
      t->keyfile += line;
      t->keys += 1;
      for (int k = 0; k < 13; k++) {
        snprintf(line, sizeof line,
                 "    parameter_%02d    value %d of station %d, as set at installation\n", k, k, s);
        t->pf += line;
        snprintf(line, sizeof line,
                 "parameter_%02d=value %d of station %d, as set at installation\n", k, k, s);
        t->keyfile += line;
        t->keys += 1;
      }
      t->pf += "}\n";
    }
    return t;
  }();
  return *texts;
}

Pf *Compile(benchmark::State &state) {
  Pf *pf = nullptr;
  if (pfcompile(Generated().pf.c_str(), &pf) != 0) state.SkipWithError("pfcompile failed");
  return pf;
}

GKeyFile *Load(benchmark::State &state) {
  const Texts &texts = Generated();
  GKeyFile *kf = g_key_file_new();
  if (!g_key_file_load_from_data(kf, texts.keyfile.c_str(), texts.keyfile.size(), G_KEY_FILE_NONE,
                                 nullptr)) {
    state.SkipWithError("g_key_file_load_from_data failed");
  }
  return kf;
}

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
  // The repetitions of all benchmarks run in a random order, so that a stretch of a busy
  // machine falls on both sides of a ratio alike.
  std::vector<char *> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  int count = static_cast<int>(args.size());
  return corvel_bench::RunWithRatios(
      count, args.data(),
      {{"pfcompile+pffree 1 MB / load+g_key_file_free", "BM_Pfcompile", "BM_GKeyFileLoad"},
       {"pfcompile 1 MB / g_key_file_load_from_data", "BM_PfcompileOnly", "BM_GKeyFileLoadOnly"},
       {"pfcompile 1 MB / load, each into fresh memory", "BM_PfcompileKept", "BM_GKeyFileLoadKept"},
       {"pfget_string a{b}[3] / g_key_file_get_string", "BM_PfgetString", "BM_GKeyFileGetString"},
       {"pfget_string a{b}[3] / g_key_file_get_string_list", "BM_PfgetString",
        "BM_GKeyFileGetStringList"}});
}
