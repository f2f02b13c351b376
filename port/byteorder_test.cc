#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "corvel/port.h"

namespace corvel::port {
void ForcePortableByteOrder(bool force);
}  // namespace corvel::port

namespace {

const struct Converter {
  const char *name;
  int width;
  void (*to_wire)(char **, const void *, long);
  void (*from_wire)(char **, void *, long);
} kConverters[] = {
    {"hs2ms", 2, hs2ms, ms2hs}, {"hi2mi", 4, hi2mi, mi2hi}, {"uhi2mi", 4, uhi2mi, umi2hi},
    {"hl2ml", 8, hl2ml, ml2hl}, {"hf2mf", 4, hf2mf, mf2hf}, {"hd2md", 8, hd2md, md2hd},
    {"H2N4", 4, H2N4, N2H4},
};

// Every converter, both directions and in place, on lengths around the 32-byte blocks and the
// 128-byte unrolled loop, at odd offsets of both sides, on the vector path and the portable one.
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
          SCOPED_TRACE(std::string(c.name) + " n=" + std::to_string(n) + " offset=" +
                       std::to_string(offset) + " portable=" + std::to_string(portable));
          // The wire form by definition: each element's bytes, most significant first.
          std::vector<unsigned char> expected;
          for (size_t i = 0; i < bytes; i++)
            expected.push_back(h[i - i % c.width + c.width - 1 - i % c.width]);
          char *p = w;
          c.to_wire(&p, h, n);
          ASSERT_EQ(p, w + bytes);
          ASSERT_EQ(std::vector<unsigned char>(w, w + bytes), expected);
          EXPECT_EQ(static_cast<unsigned char>(w[bytes]), 0xEE) << "wrote past the end";
          p = w;
          c.from_wire(&p, back.data() + offset, n);
          ASSERT_EQ(p, w + bytes);
          ASSERT_EQ(memcmp(back.data() + offset, h, bytes), 0);
          p = w;
          c.from_wire(&p, w, n);  // in place
          ASSERT_EQ(memcmp(w, h, bytes), 0) << "in place";
        }
      }
    }
  }
}

}  // namespace
