// What the files of the buffered stream share: filling the buffer, the element types and the
// snoop file.
#ifndef CORVEL_NET_BNS_INTERNAL_H_
#define CORVEL_NET_BNS_INTERNAL_H_

#include <stdint.h>

#include "corvel/bns.h"

namespace corvel {
namespace net {

// Reads once more into the buffer, first making room for at least need more bytes: 1 when
// bytes came, 0 on a time-out, -1 on end of file or an error.
int BnsMore(Bns *bns, int64_t need);

// One element type of bnsget and bnsput: its width and the converters to and from the wire.
struct BnsType {
  int width;
  void (*to_wire)(char **wire, const void *host, long n);
  void (*from_wire)(char **wire, void *host, long n);
};
// The type of a code, or null for a code that names none.
const BnsType *FindBnsType(int type);

// Opens or closes the snoop file as snoopflag asks.
void CheckSnoopFlag(Bns *bns);
// Appends one record to the open snoop file: a header with the direction ("<" read, ">"
// written) and count, then count bytes from bytes when count >= 1. Bytes past the end of the
// buffer are not recorded. errno is preserved.
void SnoopRecord(Bns *bns, const char *direction, int64_t count, const char *bytes);

}  // namespace net
}  // namespace corvel

#endif  // CORVEL_NET_BNS_INTERNAL_H_
