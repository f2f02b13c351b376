// The text the parameter-file benchmarks work on: a generated parameter file of about 1 MB with
// 20 000 keys, and the same content as a GLib key file, each with a helper that reads it.
#ifndef CORVEL_BENCH_PF_TEXTS_H_
#define CORVEL_BENCH_PF_TEXTS_H_

#include <benchmark/benchmark.h>
#include <glib.h>
#include <stdio.h>

#include <string>

#include "corvel/pf.h"

namespace corvel_bench {

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

inline const Texts &Generated() {
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

// The tree of the generated parameter file; a failure skips the benchmark.
inline Pf *Compile(benchmark::State &state) {
  Pf *pf = nullptr;
  if (pfcompile(Generated().pf.c_str(), &pf) != 0) state.SkipWithError("pfcompile failed");
  return pf;
}

// The generated key file, loaded; a failure skips the benchmark.
inline GKeyFile *Load(benchmark::State &state) {
  const Texts &texts = Generated();
  GKeyFile *kf = g_key_file_new();
  if (!g_key_file_load_from_data(kf, texts.keyfile.c_str(), texts.keyfile.size(), G_KEY_FILE_NONE,
                                 nullptr)) {
    state.SkipWithError("g_key_file_load_from_data failed");
  }
  return kf;
}

}  // namespace corvel_bench

#endif  // CORVEL_BENCH_PF_TEXTS_H_
