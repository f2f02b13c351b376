// Reading a stream: typed values, delimited text, expected bytes, and skipping to a sync
// pattern. A read that cannot be completed consumes nothing, so the caller can try again once
// more bytes have come.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/bns.h"
#include "corvel/elog.h"
#include "corvel/text.h"
#include "net/bns_internal.h"

namespace corvel {
namespace net {
namespace {

// Skipped bytes remembered for the sync report, and how many skipped bytes end the search.
constexpr int kSkipMemory = 1024;
constexpr int kSkipLimit = 32;

// Reads until count bytes are buffered; false when the stream failed first.
bool Fill(Bns *bns, int64_t count) {
  while (bns->lp - bns->fp < count) {
    if (BnsMore(bns, count - (bns->lp - bns->fp)) <= 0) return false;
  }
  return true;
}

// Stores what fits of n bytes into dest (size bytes with the terminator); the count stored.
long Store(char *dest, long size, const char *bytes, int64_t n) {
  if (size < 1) return 0;  // no room even for the terminator
  const long k = n < size - 1 ? static_cast<long>(n) : size - 1;
  memcpy(dest, bytes, static_cast<size_t>(k));
  dest[k] = '\0';
  return k;
}

void Consume(Bns *bns, int64_t n) {
  bns->fp += n;
  bns->nin += n;
}

// The search state of gbnsSync and the bytes it passed over.
class SyncSearch {
 public:
  SyncSearch(Bns *bns, const unsigned char *sync, int len, bool strict)
      : bns_(bns), sync_(sync), len_(len), strict_(strict) {}

  int Run() {
    int matched = 0;
    unsigned char c = static_cast<unsigned char>(~sync_[0]);
    while (matched < len_) {
      // Look for a first byte, unless the byte that broke the last partial match is one.
      while (matched == 0 && c != sync_[0]) {
        if (bnsget(bns_, &c, BNS_TYPE_BYTES, 1) < 0) return -1;
        if (c == sync_[0]) {
          matched = 1;
        } else if (strict_ || !Skip(c)) {
          return -2;
        }
      }
      if (matched >= len_) break;  // a one-byte pattern is complete at its first byte
      if (bnsget(bns_, &c, BNS_TYPE_BYTES, 1) < 0) return -1;
      if (c == sync_[matched]) {
        matched++;
        continue;
      }
      if (strict_) return -2;
      for (int i = 0; i < matched; i++) {
        if (!Skip(sync_[i])) return -2;
      }
      if (!Skip(c)) return -2;
      matched = 0;
    }
    return 0;
  }

  // Complains about the skipped bytes, when there were any and nobody asked for silence.
  void Report() const {
    if (skipped_ < 1 || getenv("BNS_SUPPRESS_SYNCERR") != nullptr) return;
    char shown[257];
    printable_string(shown, sizeof shown, sync_, len_);
    elog_complain(0, "skipped %d bytes looking for sync '%s'\n", skipped_, shown);
    hexdump(stderr, skipped_bytes_, skipped_ < kSkipMemory ? skipped_ : kSkipMemory);
  }

 private:
  // Records one skipped byte; false once the limit is reached.
  bool Skip(unsigned char c) {
    if (skipped_ < kSkipMemory) skipped_bytes_[skipped_] = c;
    return ++skipped_ < kSkipLimit;
  }

  Bns *bns_;
  const unsigned char *sync_;
  int len_;
  bool strict_;
  int skipped_ = 0;
  unsigned char skipped_bytes_[kSkipMemory];
};

}  // namespace
}  // namespace net
}  // namespace corvel

using corvel::net::Consume;
using corvel::net::Fill;
using corvel::net::Store;

int bnsget(Bns *bns, void *dest, int type, long n) {
  if (n < 0) {
    elog_log(0, "invalid request for %ld bytes\n", n);
    return -1;
  }
  const corvel::net::BnsType *t = corvel::net::FindBnsType(type);
  if (t == nullptr) {
    elog_log(0, "unrecognized type %d\n", type);
    return -1;
  }
  if (n > INT64_MAX / t->width) {
    elog_log(0, "invalid request for %ld bytes\n", n);
    return -1;
  }
  const int64_t count = static_cast<int64_t>(n) * t->width;
  if (!Fill(bns, count)) return -1;
  char *wire = bns->data + bns->fp;
  t->from_wire(&wire, dest, n);
  Consume(bns, count);
  return 0;
}

long bns2buf(Bns *bns, void *dest, long max) {
  int64_t n = bns->lp - bns->fp;
  if (max < n) n = max;
  if (n < 0) n = 0;
  if (n > 0) memcpy(dest, bns->data + bns->fp, static_cast<size_t>(n));
  bns->fp = bns->lp = 0;
  if (bns->mark > 0) bns->mark = 0;  // kept bytes cannot lie beyond the empty buffer
  return static_cast<long>(n);
}

long bnsgetc(Bns *bns, char *dest, long size, int c) {
  int64_t searched = 0;  // bytes from fp known not to be c; compaction keeps them from fp
  for (;;) {
    const char *start = bns->data + bns->fp;
    const void *hit =
        memchr(start + searched, c, static_cast<size_t>(bns->lp - bns->fp - searched));
    if (hit != nullptr) {
      const int64_t i = static_cast<const char *>(hit) - start;
      long k = Store(dest, size, start, i);
      Consume(bns, i + 1);  // the delimiter, and whatever did not fit, go too
      return k;
    }
    searched = bns->lp - bns->fp;
    if (corvel::net::BnsMore(bns, 1) <= 0) break;
  }
  Store(dest, size, bns->data + bns->fp, bns->lp - bns->fp);
  Consume(bns, bns->lp - bns->fp);
  return -1;
}

int bnspeek(Bns *bns, const char *str) {
  const int64_t len = static_cast<int64_t>(strlen(str));
  if (!Fill(bns, len)) {
    elog_log(0, "bnspeek wanted %d bytes, got only %ld", static_cast<int>(len),
             static_cast<long>(bns->lp - bns->fp));
    return -1;
  }
  if (memcmp(bns->data + bns->fp, str, static_cast<size_t>(len)) != 0) {
    char *dump = hexdump_string(bns->data + bns->fp, static_cast<long>(len));
    elog_log(0, "bnspeek wanted '%s', but got \n\t%s", str, dump);
    free(dump);
    return 1;
  }
  Consume(bns, len);
  return 0;
}

int gbnsSync(Bns *bns, const char *sync, int len, int strict) {
  if (len < 1) return 0;  // nothing to look for is found at once
  corvel::net::SyncSearch search(bns, reinterpret_cast<const unsigned char *>(sync), len,
                                 strict != 0);
  int result = search.Run();
  search.Report();
  return result;
}
