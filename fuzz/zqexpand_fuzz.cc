// Tagged zlib buffers as any peer may send them: the input as it is, and behind a "zlib" tag so
// that most inputs reach zlib with a length taken from their first bytes. Whatever expands
// cleanly must compress and expand back to itself.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "corvel/codec.h"
#include "corvel/elog.h"

namespace {

void Check(bool ok) {
  if (!ok) abort();
}

void Expand(const uint8_t *data, size_t size) {
  // A buffer of exactly the input's size, so that reading past it is caught.
  unsigned char *copy = static_cast<unsigned char *>(malloc(size ? size : 1));
  if (size > 0) memcpy(copy, data, size);
  Zqbuf in = {copy, size, size}, out = {nullptr, 0, 0};
  const int code = zqexpand(&in, &out);
  Check(code >= -2 && code <= 1 && out.nbytes <= out.size);
  if (code == 0) {
    Zqbuf packed = {nullptr, 0, 0}, back = {nullptr, 0, 0};
    const int packing = zqcompress(&out, &packed);
    Check(packing != -1);
    if (packing != 1) {
      Check(zqexpand(&packed, &back) == 0 && back.nbytes == out.nbytes &&
            memcmp(back.data, out.data, out.nbytes) == 0);
    }
    free(packed.data);
    free(back.data);
  }
  free(out.data);
  free(copy);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Expand(data, size);
  if (size < 4 || memcmp(data, "zlib", 4) != 0) {
    std::vector<uint8_t> tagged = {'z', 'l', 'i', 'b'};
    tagged.insert(tagged.end(), data, data + size);
    Expand(tagged.data(), tagged.size());
  }
  elog_clear();
  return 0;
}
