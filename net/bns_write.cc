// Writing a stream: typed values appended in wire form, sent with one write per flush, and the
// last flushed messages kept for a resend after a reconnection.
#include <errno.h>
#include <stdint.h>
#include <string.h>

#include "corvel/bns.h"
#include "corvel/elog.h"
#include "net/bns_internal.h"

namespace corvel {
namespace net {
namespace {

// Writes n bytes from start, again while a signal interrupts it; the routine's last result.
int64_t WriteAll(Bns *bns, const char *start, int64_t n) {
  bns->nsys++;
  errno = 0;  // a stale EINTR must not send a completed message twice
  int64_t written = bns->write_routine(bns->fd, const_cast<char *>(start), n, bns->flags);
  while (written != n && errno == EINTR) {
    errno = 0;
    written = bns->write_routine(bns->fd, const_cast<char *>(start), n, bns->flags);
  }
  return written;
}

void *AsEntry(int64_t position) {
  return reinterpret_cast<void *>(static_cast<intptr_t>(position));
}
int64_t AsPosition(void *entry) { return static_cast<int64_t>(reinterpret_cast<intptr_t>(entry)); }

// After a flush with retention: drop the messages beyond the last keep, and move what is kept
// to the start of the buffer so that it does not grow with every message.
void Retain(Bns *bns, int64_t sent) {
  if (bns->marktbl != nullptr) {
    pushtbl(bns->marktbl, AsEntry(bns->fp));
    const int64_t limit = bns->keep > 1 ? bns->keep : 1;
    while (maxtbl(bns->marktbl) >= limit) bns->mark = AsPosition(shifttbl(bns->marktbl));
  }
  bns->fp += sent;
  if (bns->mark <= 0) return;
  const int64_t from = bns->mark;
  memmove(bns->data, bns->data + from, static_cast<size_t>(bns->lp - from));
  for (long i = 0; i < maxtbl(bns->marktbl); i++) {
    settbl(bns->marktbl, i, AsEntry(AsPosition(gettbl(bns->marktbl, i)) - from));
  }
  bns->fp -= from;
  bns->lp -= from;
  bns->mark = 0;
}

}  // namespace
}  // namespace net
}  // namespace corvel

using corvel::net::FindBnsType;
using corvel::net::WriteAll;

int bnsput(Bns *bns, const void *src, int type, long n) {
  const corvel::net::BnsType *t = FindBnsType(type);
  if (t == nullptr) {
    elog_log(0, "unrecognized type %d\n", type);
    return -1;
  }
  if (n <= 0) return 0;  // nothing to append, and a negative count must not move lp back
  const int64_t count = static_cast<int64_t>(n) * t->width;
  if (count > bns->sz - bns->lp) bnsresize(bns, count - (bns->sz - bns->lp));
  char *wire = bns->data + bns->lp;
  t->to_wire(&wire, src, n);
  bns->lp += count;
  bns->nout += count;
  return 0;
}

int buf2bns(Bns *bns, const void *src, long n) { return bnsput(bns, src, BNS_TYPE_BYTES, n); }

int bnsflush(Bns *bns) {
  const int64_t n = bns->lp - bns->fp;
  if (n < 1) return 0;
  const int64_t written = WriteAll(bns, bns->data + bns->fp, n);
  const int write_errno = errno;
  corvel::net::CheckSnoopFlag(bns);
  if (bns->snoopfd >= 0) corvel::net::SnoopRecord(bns, ">", written, bns->data + bns->fp);
  if (written != n) {
    // Everything stays buffered for another attempt.
    bns->err++;
    bns->syserrno = write_errno;
    errno = write_errno;
    return -1;
  }
  bns->nbytes += n;
  if (bns->mark < 0) {
    bns->fp = bns->lp = 0;
  } else {
    corvel::net::Retain(bns, n);
  }
  return 0;
}

void bnskeep(Bns *bns, long n) {
  bns->keep = n;
  if (bns->marktbl == nullptr) {
    bns->marktbl = newtbl(n + 1);
    bns->mark = bns->fp;
  }
}

int bnsresend(Bns *bns) {
  const int64_t n = bns->fp - bns->mark;
  if (bns->keep < 1 || bns->mark < 0 || n < 1) return 0;
  if (WriteAll(bns, bns->data + bns->mark, n) != n) {
    bns->err++;
    bns->syserrno = errno;
    return -1;
  }
  // The record's bytes start at fp, where the next message goes, not at the resent ones.
  if (bns->snoopfd >= 0) corvel::net::SnoopRecord(bns, ">", n, bns->data + bns->fp);
  return 0;
}
