// Big-endian words at any byte address, the order every format of this family puts on the wire.
#ifndef CORVEL_CODEC_BIG_ENDIAN_H_
#define CORVEL_CODEC_BIG_ENDIAN_H_

#include <stdint.h>
#include <string.h>

namespace corvel {
namespace codec {

inline uint32_t LoadBe32(const unsigned char *p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return __builtin_bswap32(v);
}

inline uint64_t LoadBe64(const unsigned char *p) {
  uint64_t v;
  memcpy(&v, p, 8);
  return __builtin_bswap64(v);
}

inline void StoreBe32(unsigned char *p, uint32_t v) {
  v = __builtin_bswap32(v);
  memcpy(p, &v, 4);
}

}  // namespace codec
}  // namespace corvel

#endif  // CORVEL_CODEC_BIG_ENDIAN_H_
