// Checksums and digests of 1 MB against the libraries a user would pick for each: zlib's CRC-32
// and Adler-32, ISA-L's CRC-32 (the same CRC as ours) and CRC-64, libdeflate's Adler-32 and
// OpenSSL's MD5 and SHA-1.
#include <benchmark/benchmark.h>
#include <isa-l/crc.h>
#include <isa-l/crc64.h>
#include <libdeflate.h>
#include <openssl/md5.h>
#include <openssl/sha.h>
#include <stdint.h>
#include <zlib.h>

#include <random>
#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/checksum.h"

namespace {

const std::vector<unsigned char> &Megabyte() {
  static const std::vector<unsigned char> data = [] {
    std::vector<unsigned char> v(1 << 20);
    std::mt19937 rng(1);
    for (auto &b : v) b = static_cast<unsigned char>(rng());
    return v;
  }();
  return data;
}

template <typename F>
void Run(benchmark::State &state, F f) {
  const auto &d = Megabyte();
  for (auto _ : state) benchmark::DoNotOptimize(f(d.data(), d.size()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * d.size()));
}

#define CORVEL_BENCH(name, body)                                                                \
  void name(benchmark::State &state) { Run(state, [](const unsigned char *p, size_t n) body); } \
  BENCHMARK(name)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly()

CORVEL_BENCH(BM_ZqCrc32, {
  uint32_t c = 0xFFFFFFFF;
  zq_crc32(&c, p, n);
  return c;
});
CORVEL_BENCH(BM_ZlibCrc32, { return crc32(0, p, static_cast<uInt>(n)); });
CORVEL_BENCH(BM_IsalCrc32Ieee, { return crc32_ieee(0xFFFFFFFF, p, n); });
CORVEL_BENCH(BM_ZqCrc64, {
  uint64_t c = 0;
  zq_crc64(&c, p, n);
  return c;
});
CORVEL_BENCH(BM_IsalCrc64IsoRefl, { return crc64_iso_refl(0, p, n); });
CORVEL_BENCH(BM_ZqAdler32, { return zq_adler32(1, p, n); });
CORVEL_BENCH(BM_ZlibAdler32, { return adler32(1, p, static_cast<uInt>(n)); });
CORVEL_BENCH(BM_LibdeflateAdler32, { return libdeflate_adler32(1, p, n); });
CORVEL_BENCH(BM_ZqMd5, {
  Zq_md5_ctx ctx;
  unsigned char out[16];
  zq_md5init(&ctx);
  zq_md5update(&ctx, p, n);
  zq_md5final(out, &ctx);
  return out[0];
});
CORVEL_BENCH(BM_OpensslMd5, {
  unsigned char out[16];
  MD5(p, n, out);
  return out[0];
});
CORVEL_BENCH(BM_ZqSha1, {
  Zq_sha_ctx ctx;
  unsigned char out[20];
  sha_init(&ctx);
  sha_update(&ctx, p, n);
  sha_final(&ctx);
  sha_digest(&ctx, out);
  return out[0];
});
CORVEL_BENCH(BM_OpensslSha1, {
  unsigned char out[20];
  SHA1(p, n, out);
  return out[0];
});

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunInterleavedWithRatios(
      argc, argv,
      {{"zq_crc32 / zlib crc32", "BM_ZqCrc32", "BM_ZlibCrc32"},
       {"zq_crc32 / ISA-L crc32_ieee", "BM_ZqCrc32", "BM_IsalCrc32Ieee"},
       {"zq_crc64 / ISA-L crc64_iso_refl", "BM_ZqCrc64", "BM_IsalCrc64IsoRefl"},
       {"zq_adler32 / zlib adler32", "BM_ZqAdler32", "BM_ZlibAdler32"},
       {"zq_adler32 / libdeflate_adler32", "BM_ZqAdler32", "BM_LibdeflateAdler32"},
       {"MD5 / OpenSSL MD5", "BM_ZqMd5", "BM_OpensslMd5"},
       {"SHA-1 / OpenSSL SHA1", "BM_ZqSha1", "BM_OpensslSha1"}});
}
