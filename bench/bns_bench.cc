// A stream of 1M 4-byte integers through a socket pair in 4 KB messages: bnsput and bnsflush
// on one end, bnsget on the other (a reader thread), against plain write and read of the same
// bytes with a byte-swap loop on each side.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/bns.h"

namespace {

constexpr long kValues = 1 << 20;
constexpr long kPerMessage = 1024;  // 4 KB
constexpr long kMessages = kValues / kPerMessage;

std::vector<int32_t> Values() {
  std::vector<int32_t> v(kValues);
  for (long i = 0; i < kValues; i++) v[i] = static_cast<int32_t>(i * 2654435761u);
  return v;
}

// A connected pair, made once per benchmark.
class Pair {
 public:
  explicit Pair(benchmark::State &state) {
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds_) != 0) state.SkipWithError("socketpair failed");
  }
  ~Pair() {
    close(fds_[0]);
    close(fds_[1]);
  }
  int writer() const { return fds_[0]; }
  int reader() const { return fds_[1]; }

 private:
  int fds_[2] = {-1, -1};
};

void BM_Bns(benchmark::State &state) {
  Pair pair(state);
  const std::vector<int32_t> values = Values();
  std::vector<int32_t> got(kValues);
  Bns *out = bnsnew(pair.writer(), 0);
  Bns *in = bnsnew(pair.reader(), 0);
  for (auto _ : state) {
    std::thread reader([&] {
      for (long m = 0; m < kMessages; m++) {
        if (bnsget(in, &got[m * kPerMessage], BNS_TYPE_INT32, kPerMessage) != 0) return;
      }
    });
    for (long m = 0; m < kMessages; m++) {
      bnsput(out, &values[m * kPerMessage], BNS_TYPE_INT32, kPerMessage);
      if (bnsflush(out) != 0) state.SkipWithError("bnsflush failed");
    }
    reader.join();
  }
  if (got != values) state.SkipWithError("values differ");
  state.SetBytesProcessed(state.iterations() * kValues * 4);
  bnsfree(out);
  bnsfree(in);
}
BENCHMARK(BM_Bns)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

bool WriteAll(int fd, const char *p, size_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w <= 0) return false;
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
}

bool ReadAll(int fd, char *p, size_t n) {
  while (n > 0) {
    ssize_t r = read(fd, p, n);
    if (r <= 0) return false;
    p += r;
    n -= static_cast<size_t>(r);
  }
  return true;
}

void BM_RawSwapped(benchmark::State &state) {
  Pair pair(state);
  const std::vector<int32_t> values = Values();
  std::vector<int32_t> got(kValues);
  for (auto _ : state) {
    std::thread reader([&] {
      uint32_t message[kPerMessage];
      for (long m = 0; m < kMessages; m++) {
        if (!ReadAll(pair.reader(), reinterpret_cast<char *>(message), sizeof message)) return;
        int32_t *dest = &got[m * kPerMessage];
        for (long i = 0; i < kPerMessage; i++) {
          dest[i] = static_cast<int32_t>(__builtin_bswap32(message[i]));
        }
      }
    });
    uint32_t message[kPerMessage];
    for (long m = 0; m < kMessages; m++) {
      const int32_t *src = &values[m * kPerMessage];
      for (long i = 0; i < kPerMessage; i++) {
        message[i] = __builtin_bswap32(static_cast<uint32_t>(src[i]));
      }
      if (!WriteAll(pair.writer(), reinterpret_cast<char *>(message), sizeof message)) {
        state.SkipWithError("write failed");
      }
    }
    reader.join();
  }
  if (got != values) state.SkipWithError("values differ");
  state.SetBytesProcessed(state.iterations() * kValues * 4);
}
BENCHMARK(BM_RawSwapped)->Unit(benchmark::kMillisecond)->Repetitions(9)->ReportAggregatesOnly();

}  // namespace

int main(int argc, char **argv) {
  return corvel_bench::RunInterleavedWithRatios(
      argc, argv, {{"bns 1M int32 in 4 KB messages / raw swapped", "BM_Bns", "BM_RawSwapped"}});
}
