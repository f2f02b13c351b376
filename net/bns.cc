// The buffered stream: creation and release, waiting for input, filling and growing the buffer.
//
// One buffer serves both directions. Reading, [fp, lp) is what has come in and not been taken
// yet; writing, it is what has been put and not sent yet. Bytes before fp are dead unless a
// writer keeps its last messages for a resend, in which case [mark, fp) holds them and nothing
// from mark on may be moved away or overwritten.
#include "corvel/bns.h"

#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/port.h"
#include "elog/oom.h"
#include "net/bns_internal.h"

static constexpr char kSourceName[] = "bns";

long BNS_TIMEOUT = 60000;
int OrbVerbose = 0;

namespace corvel {
namespace net {
namespace {

constexpr long kDefaultSize = 32767;
// What a reader waits for: ordinary, priority and out-of-band data, and errors.
constexpr short kReadEvents = POLLIN | POLLPRI | POLLERR | POLLRDNORM | POLLRDBAND;

void CopyToWire(char **wire, const void *host, long n) {
  if (n <= 0) return;
  memcpy(*wire, host, static_cast<size_t>(n));
  *wire += n;
}

void CopyFromWire(char **wire, void *host, long n) {
  if (n <= 0) return;
  memcpy(host, *wire, static_cast<size_t>(n));
  *wire += n;
}

// Indexed by type code.
const BnsType kTypes[] = {
    {1, CopyToWire, CopyFromWire},
    {2, hs2ms, ms2hs},
    {4, hi2mi, mi2hi},
    {8, hl2ml, ml2hl},
    {4, hf2mf, mf2hf},
    {8, hd2md, md2hd},
};

// Moves [from, lp) to the start of the buffer and shifts the positions after it.
void ShiftDown(Bns *bns, int64_t from) {
  if (bns->lp > from) {
    memmove(bns->data, bns->data + from, static_cast<size_t>(bns->lp - from));
  }
  bns->fp -= from;
  bns->lp -= from;
}

}  // namespace

const BnsType *FindBnsType(int type) {
  if (type < 0 || type >= static_cast<int>(sizeof kTypes / sizeof kTypes[0])) return nullptr;
  return &kTypes[type];
}

int BnsMore(Bns *bns, int64_t need) {
  // Room first: taken bytes go, kept messages stay.
  if (bns->mark == -1 && bns->fp > 0) {
    ShiftDown(bns, bns->fp);
  } else if (bns->mark > 0) {
    ShiftDown(bns, bns->mark);
    bns->mark = 0;
  }
  if (need > bns->sz - bns->lp) bnsresize(bns, 2 * (need - (bns->sz - bns->lp)));

  int ready = bnswait(bns);
  if (ready != 1) {
    if (OrbVerbose && bns->timeout > 0) {
      elog_debug(0, "%d msec timeout on read from fd #%d\n", bns->timeout, bns->fd);
    }
    return ready;
  }

  bns->nsys++;
  int64_t n = bns->read_routine(bns->fd, bns->data + bns->lp, bns->sz - bns->lp, bns->flags);
  while (n < 0 && errno == EINTR) {
    errno = 0;
    n = bns->read_routine(bns->fd, bns->data + bns->lp, bns->sz - bns->lp, bns->flags);
  }
  const int read_errno = errno;

  CheckSnoopFlag(bns);
  // The record's bytes start at the unread data, not at what this read brought.
  if (bns->snoopfd >= 0) SnoopRecord(bns, "<", n, bns->data + bns->fp);

  if (n < 0) {
    bns->eof = 0;
    bns->err++;
    bns->syserrno = read_errno;
    if (OrbVerbose) {
      elog_debug(0, "bns->read_routine returned %ld on fd #%d\n", static_cast<long>(n), bns->fd);
      bnsdump(stderr, bns);
    }
    errno = read_errno;
    return -1;
  }
  if (n == 0) {
    bns->eof = 1;
    if (OrbVerbose) elog_debug(0, "bns->read_routine returned eof on fd #%d\n", bns->fd);
    return -1;
  }
  bns->eof = 0;
  bns->lp += n;
  bns->nbytes += n;
  return 1;
}

}  // namespace net
}  // namespace corvel

int64_t _bnsread(int fd, void *buffer, int64_t length, int flags) {
  return read(fd, buffer, static_cast<size_t>(length));
}

int64_t _bnswrite(int fd, void *buffer, int64_t length, int flags) {
  return write(fd, buffer, static_cast<size_t>(length));
}

Bns *bnsnew(int fd, long size) {
  Bns *bns = static_cast<Bns *>(CV_CALLOC(1, sizeof(Bns), "bns"));
  bns->sz = size >= 1 ? size : corvel::net::kDefaultSize;
  bns->data = static_cast<char *>(CV_CALLOC(static_cast<size_t>(bns->sz), 1, "bns->data"));
  bns->fd = fd;
  bns->mark = -1;
  // The environment's time-out becomes the default for the rest of the process.
  if (const char *timeout = getenv("BNS_TIMEOUT")) BNS_TIMEOUT = atoi(timeout);
  bns->timeout = static_cast<int>(BNS_TIMEOUT);
  bns->read_routine = _bnsread;
  bns->write_routine = _bnswrite;
  bns->snoopfd = -1;
  if (const char *snoop = getenv("BNS_SNOOP")) bnssnoop(bns, snoop);
  return bns;
}

void bnsclr(Bns *bns) {
  bns->fp = bns->lp = 0;
  bns->eof = bns->err = bns->syserrno = 0;
  bns->mark = -1;
  bns->nin = bns->nout = 0;
}

int bnstimeout(Bns *bns, int msec) {
  int previous = bns->timeout;
  bns->timeout = msec;
  return previous;
}

int64_t bnsin(Bns *bns) {
  int64_t n = bns->nin;
  bns->nin = 0;
  return n;
}

int64_t bnsout(Bns *bns) {
  int64_t n = bns->nout;
  bns->nout = 0;
  return n;
}

char *bnsid(Bns *bns, const char *str) {
  char *previous = bns->id;
  if (str != nullptr) bns->id = CV_STRDUP(str, "bns->id");
  return previous;
}

void bnsfree(Bns *bns) {
  if (bns == nullptr) return;
  free(bns->data);
  free(bns->id);
  free(bns->snoopfile);
  if (bns->marktbl != nullptr) freetbl(bns->marktbl, nullptr);
  free(bns);
}

int bnsclose(Bns *bns) {
  int flushed = bnsflush(bns);
  int closed = close(bns->fd);
  bnsfree(bns);
  return flushed | closed;
}

int bnswait(Bns *bns) {
  struct pollfd watch = {bns->fd, corvel::net::kReadEvents, 0};
  int n;
  do {
    n = poll(&watch, 1, bns->timeout);
  } while (n < 0 && errno == EINTR);
  bns->revents = watch.revents;
  if (n == 0) return 0;
  // Ready without ordinary data (a hang-up or error alone) is a failure of the stream.
  if (n < 0 || !(watch.revents & POLLRDNORM)) {
    bns->err++;
    bns->syserrno = errno;
    return -1;
  }
  return 1;
}

int bnsresize(Bns *bns, long n) {
  const int64_t size = bns->sz + (n > bns->sz ? n : bns->sz);
  if (bns->lp == bns->fp && bns->mark == bns->fp) {
    // Nothing to carry over: a fresh buffer costs no copy.
    free(bns->data);
    bns->data = static_cast<char *>(CV_CALLOC(static_cast<size_t>(size), 1, "bns->data"));
  } else {
    bns->data = static_cast<char *>(CV_REALLOC(bns->data, static_cast<size_t>(size), "bns->data"));
    memset(bns->data + bns->sz, 0, static_cast<size_t>(size - bns->sz));
  }
  bns->sz = size;
  return 0;
}
