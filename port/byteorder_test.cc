#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "corvel/port.h"

namespace corvel {
namespace port {
void ForcePortableByteOrder(bool force);
}  // namespace port
}  // namespace corvel

namespace {

using ToWireFn = void (*)(char **, const void *, long);
using FromWireFn = void (*)(char **, void *, long);

struct Converter {
  const char *name;
  int width;
  ToWireFn to_wire;
  FromWireFn from_wire;
};

const Converter kConverters[] = {
    {"hs2ms", 2, hs2ms, ms2hs}, {"hi2mi", 4, hi2mi, mi2hi}, {"uhi2mi", 4, uhi2mi, umi2hi},
    {"hl2ml", 8, hl2ml, ml2hl}, {"hf2mf", 4, hf2mf, mf2hf}, {"hd2md", 8, hd2md, md2hd},
    {"H2N4", 4, H2N4, N2H4},
};

// The wire form by definition: each element's bytes, most significant first.
std::vector<unsigned char> Reference(const unsigned char *host, long n, int width) {
  std::vector<unsigned char> wire;
  for (long i = 0; i < n; i++) {
    for (int b = width - 1; b >= 0; b--) wire.push_back(host[i * width + b]);
  }
  return wire;
}

// Every converter, both directions and in place, on lengths around the 32-byte blocks and the
// 128-byte unrolled loop, at odd offsets of both sides, with the vector path and with the portable
// one.
TEST(PortByteOrder, BothPathsMatchTheReferenceOnOddLengthsAndOffsets) {
  for (bool portable : {false, true}) {
    corvel::port::ForcePortableByteOrder(portable);
    for (const Converter &c : kConverters) {
      for (long n : {0L, 1L, 3L, 15L, 16L, 17L, 31L, 33L, 64L, 127L, 1001L}) {
        for (int offset : {0, 1, 3}) {
          const size_t bytes = static_cast<size_t>(n) * c.width;
          std::vector<unsigned char> host(bytes + 8), wire(bytes + 8, 0xEE), back(bytes + 8);
          for (size_t i = 0; i < host.size(); i++) host[i] = static_cast<unsigned char>(i * 7 + 1);
          const unsigned char *h = host.data() + offset;
          char *w = reinterpret_cast<char *>(wire.data()) + 3 - offset;
          char *p = w;
          c.to_wire(&p, h, n);
          ASSERT_EQ(p, w + bytes) << c.name << " n=" << n;
          ASSERT_EQ(std::vector<unsigned char>(w, w + bytes), Reference(h, n, c.width))
              << c.name << " n=" << n << " offset=" << offset << " portable=" << portable;
          EXPECT_EQ(static_cast<unsigned char>(w[bytes]), 0xEE) << "wrote past the end";
          p = w;
          c.from_wire(&p, back.data() + offset, n);
          ASSERT_EQ(p, w + bytes);
          ASSERT_EQ(memcmp(back.data() + offset, h, bytes), 0) << c.name << " n=" << n;
          p = w;
          c.from_wire(&p, w, n);  // in place
          ASSERT_EQ(memcmp(w, h, bytes), 0) << c.name << " n=" << n << " in place";
        }
      }
    }
  }
}

}  // namespace
