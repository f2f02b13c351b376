// Waveform codecs on a realistic series, one million samples of band-limited noise whose
// amplitude sweeps from 1e2 to 1e6, against libmseed's Steim-2 records of the same series (4096
// bytes each, decoded as a reader of such records does, one record at a time). Speeds are in
// samples per second; the ratios are of time for the whole series.
#include <benchmark/benchmark.h>
#include <libmseed.h>
#include <math.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/codec.h"

namespace {

constexpr int kSamples = 1000000;
constexpr int kRecordLength = 4096;

// White noise through two one-pole low-pass stages (a corner near a tenth of the sampling
// rate), scaled by an envelope that rises and falls between 1e2 and 1e6 on a log scale.
const std::vector<int> &Series() {
  static const std::vector<int> series = [] {
    std::vector<int> x(kSamples);
    std::mt19937 rng(42);
    std::normal_distribution<double> noise(0.0, 1.0);
    double a = 0, b = 0;
    const double k = 0.45;
    for (int i = 0; i < kSamples; i++) {
      a += k * (noise(rng) - a);
      b += k * (a - b);
      double phase = 2 * M_PI * i / 200000.0;
      double amplitude = pow(10.0, 4.0 + 2.0 * sin(phase));  // 1e2 .. 1e6
      x[i] = static_cast<int>(lrint(b * amplitude * 2.5));
    }
    // The UCSD encoder cannot end on a step down to a narrower level (it would look ahead past
    // the last sample): the series ends with a jump that only the widest level holds.
    x[kSamples - 1] = x[kSamples - 2] > 0 ? x[kSamples - 2] - 3000000 : x[kSamples - 2] + 3000000;
    return x;
  }();
  return series;
}

template <typename T>
struct Buffer {
  T *data = nullptr;
  int used = 0;
  int size = 0;
  ~Buffer() { free(data); }
};

void Samples(benchmark::State &state) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kSamples);
}

void BM_GenEncode(benchmark::State &state) {
  Buffer<unsigned char> out;
  for (auto _ : state) gencompress(&out.data, &out.used, &out.size, Series().data(), kSamples, 0);
  Samples(state);
  state.counters["bytes"] = out.used;
}

void BM_GenDecode(benchmark::State &state) {
  Buffer<unsigned char> in;
  gencompress(&in.data, &in.used, &in.size, Series().data(), kSamples, 0);
  Buffer<int> out;
  for (auto _ : state) {
    out.used = 0;
    genuncompress(&out.data, &out.used, &out.size, in.data, in.used);
  }
  if (out.used != kSamples || memcmp(out.data, Series().data(), kSamples * 4) != 0) abort();
  Samples(state);
}

void BM_CanadaEncode(benchmark::State &state) {
  Buffer<unsigned char> out;
  for (auto _ : state) ccanada(Series().data(), kSamples, &out.data, &out.used, &out.size);
  Samples(state);
  state.counters["bytes"] = out.used;
}

void BM_CanadaDecode(benchmark::State &state) {
  Buffer<unsigned char> in;
  ccanada(Series().data(), kSamples, &in.data, &in.used, &in.size);
  Buffer<int> out;
  int nsamp = kSamples;
  for (auto _ : state) ucanada(in.data, in.used, &out.data, &nsamp, &out.size);
  if (memcmp(out.data, Series().data(), kSamples * 4) != 0) abort();
  Samples(state);
}

void BM_UcsdEncode(benchmark::State &state) {
  Buffer<unsigned char> out;
  for (auto _ : state) cucsd(Series().data(), kSamples, &out.data, &out.used, &out.size);
  Samples(state);
  state.counters["bytes"] = out.used;
}

void BM_UcsdDecode(benchmark::State &state) {
  Buffer<unsigned char> in;
  cucsd(Series().data(), kSamples, &in.data, &in.used, &in.size);
  std::vector<int> out(kSamples);
  for (auto _ : state) {
    const unsigned char *p = in.data;
    uucsd(out.data(), &p, in.used, kSamples);
  }
  if (memcmp(out.data(), Series().data(), kSamples * 4) != 0) abort();
  Samples(state);
}

void BM_Cm6Encode(benchmark::State &state) {
  Buffer<char> out;
  for (auto _ : state) cm6(Series().data(), kSamples, &out.data, &out.used, &out.size);
  Samples(state);
  state.counters["bytes"] = out.used;
}

void BM_Cm6Decode(benchmark::State &state) {
  Buffer<char> in;
  cm6(Series().data(), kSamples, &in.data, &in.used, &in.size);
  Buffer<int> out;
  int n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(um6(in.data, in.used, &out.data, &n, &out.size));
  if (n != kSamples || memcmp(out.data, Series().data(), kSamples * 4) != 0) abort();
  Samples(state);
}

// Steim-2 records of the series, packed once.
void KeepRecord(char *record, int length, void *records) {
  static_cast<std::string *>(records)->append(record, static_cast<size_t>(length));
}

std::string PackSteim2(const std::vector<int> &series) {
  std::string records;
  MSTrace *mst = mst_init(nullptr);
  strcpy(mst->network, "XX");
  strcpy(mst->station, "BENCH");
  strcpy(mst->channel, "BHZ");
  mst->samprate = 40.0;
  mst->sampletype = 'i';
  mst->numsamples = mst->samplecnt = static_cast<int64_t>(series.size());
  mst->datasamples = malloc(series.size() * 4);
  memcpy(mst->datasamples, series.data(), series.size() * 4);
  int64_t packed = 0;
  mst_pack(mst, KeepRecord, &records, kRecordLength, DE_STEIM2, 1, &packed, 1, 0, nullptr);
  mst_free(&mst);
  return records;
}

void BM_Steim2Encode(benchmark::State &state) {
  size_t bytes = 0;
  for (auto _ : state) bytes = PackSteim2(Series()).size();
  Samples(state);
  state.counters["bytes"] = static_cast<double>(bytes);
}

void BM_Steim2Decode(benchmark::State &state) {
  std::string records = PackSteim2(Series());
  std::vector<int> out(kSamples);
  MSRecord *msr = nullptr;
  for (auto _ : state) {
    size_t n = 0;
    for (size_t at = 0; at < records.size(); at += kRecordLength) {
      msr_unpack(&records[at], kRecordLength, &msr, 1, 0);
      memcpy(out.data() + n, msr->datasamples, static_cast<size_t>(msr->numsamples) * 4);
      n += static_cast<size_t>(msr->numsamples);
    }
  }
  msr_free(&msr);
  if (memcmp(out.data(), Series().data(), kSamples * 4) != 0) abort();
  Samples(state);
}

#define CORVEL_CODEC_BENCH(name) \
  BENCHMARK(name)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly()
CORVEL_CODEC_BENCH(BM_GenEncode);
CORVEL_CODEC_BENCH(BM_GenDecode);
CORVEL_CODEC_BENCH(BM_CanadaEncode);
CORVEL_CODEC_BENCH(BM_CanadaDecode);
CORVEL_CODEC_BENCH(BM_UcsdEncode);
CORVEL_CODEC_BENCH(BM_UcsdDecode);
CORVEL_CODEC_BENCH(BM_Cm6Encode);
CORVEL_CODEC_BENCH(BM_Cm6Decode);
CORVEL_CODEC_BENCH(BM_Steim2Encode);
CORVEL_CODEC_BENCH(BM_Steim2Decode);

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunInterleavedWithRatios(
      argc, argv,
      {{"genuncompress / Steim-2 decoding", "BM_GenDecode", "BM_Steim2Decode"},
       {"ucanada / Steim-2 decoding", "BM_CanadaDecode", "BM_Steim2Decode"},
       {"uucsd / Steim-2 decoding", "BM_UcsdDecode", "BM_Steim2Decode"},
       {"um6 / Steim-2 decoding", "BM_Cm6Decode", "BM_Steim2Decode"},
       {"gencompress / Steim-2 encoding", "BM_GenEncode", "BM_Steim2Encode"},
       {"ccanada / Steim-2 encoding", "BM_CanadaEncode", "BM_Steim2Encode"},
       {"cucsd / Steim-2 encoding", "BM_UcsdEncode", "BM_Steim2Encode"},
       {"cm6 / Steim-2 encoding", "BM_Cm6Encode", "BM_Steim2Encode"}});
}
