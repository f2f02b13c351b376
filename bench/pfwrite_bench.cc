// Writing parameter files against GLib's key files: the generated tree of about 1 MB turned back
// into text, and written to a file by pfwrite against pf2string's text written with one call.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <glib.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bench/pf_texts.h"
#include "bench/ratio_reporter.h"
#include "corvel/pf.h"

namespace {

using corvel_bench::Compile;
using corvel_bench::Load;

// A file in a directory of its own under /tmp, removed with the directory at the end.
class ScratchFile {
 public:
  explicit ScratchFile(benchmark::State &state) {
    char dir[] = "/tmp/pfwrite_bench.XXXXXX";
    if (mkdtemp(dir) == nullptr) {
      state.SkipWithError("mkdtemp failed");
      return;
    }
    dir_ = dir;
    path_ = dir_ + "/bench.pf";
  }
  ~ScratchFile() {
    if (dir_.empty()) return;
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }
  ScratchFile(const ScratchFile &) = delete;
  ScratchFile &operator=(const ScratchFile &) = delete;

  const char *path() const { return path_.c_str(); }
  bool ok() const { return !dir_.empty(); }

 private:
  std::string dir_;
  std::string path_;
};

void BM_Pf2string(benchmark::State &state) {
  Pf *pf = Compile(state);
  char *text = pf2string(pf);
  state.counters["bytes"] = static_cast<double>(strlen(text));
  free(text);
  for (auto _ : state) {
    text = pf2string(pf);
    benchmark::DoNotOptimize(text);
    free(text);
  }
  pffree(pf);
}
BENCHMARK(BM_Pf2string)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

void BM_GKeyFileToData(benchmark::State &state) {
  GKeyFile *kf = Load(state);
  gsize bytes = 0;
  for (auto _ : state) {
    gchar *text = g_key_file_to_data(kf, &bytes, nullptr);
    benchmark::DoNotOptimize(text);
    g_free(text);
  }
  state.counters["bytes"] = static_cast<double>(bytes);
  g_key_file_free(kf);
}
BENCHMARK(BM_GKeyFileToData)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

// pfwrite creates or truncates the file each time, as a program saving its parameters does.
void BM_Pfwrite(benchmark::State &state) {
  ScratchFile file(state);
  Pf *pf = Compile(state);
  if (!file.ok()) return pffree(pf);
  for (auto _ : state) {
    if (pfwrite(file.path(), pf) != 0) state.SkipWithError("pfwrite failed");
  }
  pffree(pf);
}
BENCHMARK(BM_Pfwrite)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

// The shortest way to the same kind of file: pf2string's text (the compact layout, about 30%
// shorter than the indented one pfwrite writes) in one write.
void BM_Pf2stringWrite(benchmark::State &state) {
  ScratchFile file(state);
  Pf *pf = Compile(state);
  if (!file.ok()) return pffree(pf);
  for (auto _ : state) {
    char *text = pf2string(pf);
    size_t length = strlen(text);
    int fd = open(file.path(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || write(fd, text, length) != static_cast<ssize_t>(length)) {
      state.SkipWithError("open or write failed");
    }
    if (fd >= 0) close(fd);
    free(text);
  }
  pffree(pf);
}
BENCHMARK(BM_Pf2stringWrite)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunInterleavedWithRatios(
      argc, argv,
      {{"pf2string 1 MB / g_key_file_to_data", "BM_Pf2string", "BM_GKeyFileToData"},
       {"pfwrite 1 MB / pf2string+write", "BM_Pfwrite", "BM_Pf2stringWrite"}});
}
