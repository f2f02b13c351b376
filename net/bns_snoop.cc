// Watching a stream: its traffic copied to a snoop file, and its state printed for debugging.
//
// A snoop record is a header line, "\n\n#msg pid direction fd id count seconds\n", followed by
// the bytes; both go out in one writev so that records of several streams sharing a file do
// not interleave.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include "corvel/bns.h"
#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/text.h"
#include "elog/oom.h"
#include "net/bns_internal.h"

static constexpr char kSourceName[] = "bns";

namespace corvel {
namespace net {
namespace {

constexpr size_t kMaxHeader = 256;
constexpr int64_t kMaxDump = 96;

void ForgetSnoopFile(Bns *bns) {
  bns->snoopfd = -1;
  free(bns->snoopfile);
  bns->snoopfile = nullptr;
}

}  // namespace

void CheckSnoopFlag(Bns *bns) {
  const int saved_errno = errno;
  if (bns->snoopflag && bns->snoopfd < 0) {
    char *name = zqunique_filename("snoop");
    if (name != nullptr) {
      bnssnoop(bns, name);
      free(name);
    } else {
      bns->snoopflag = 0;  // logged once; trying again at every read would flood the log
    }
  } else if (!bns->snoopflag && bns->snoopfd >= 0) {
    if (close(bns->snoopfd) != 0) elog_complain(1, "error closing snoopfile %s", bns->snoopfile);
    ForgetSnoopFile(bns);
  }
  errno = saved_errno;
}

void SnoopRecord(Bns *bns, const char *direction, int64_t count, const char *bytes) {
  const int saved_errno = errno;
  char header[kMaxHeader + 1];
  int length = snprintf(header, sizeof header, "\n\n#msg %d %s %d %s %ld %ld\n", bns->pid,
                        direction, bns->fd, bns->id != nullptr ? bns->id : "anon",
                        static_cast<long>(count), static_cast<long>(time(nullptr)));
  if (length < 0) length = 0;
  if (static_cast<size_t>(length) > kMaxHeader) length = kMaxHeader;
  const int64_t room = bns->data + bns->sz - bytes;
  struct iovec parts[2] = {
      {header, static_cast<size_t>(length)},
      {const_cast<char *>(bytes), static_cast<size_t>(count < room ? count : room)}};
  const int nparts = count >= 1 && room > 0 ? 2 : 1;
  ssize_t written;
  do {
    written = writev(bns->snoopfd, parts, nparts);
  } while (written < 0 && errno == EINTR);
  errno = saved_errno;
}

}  // namespace net
}  // namespace corvel

int bnssnoop(Bns *bns, const char *filename) {
  int result = 0;
  if (bns->snoopfd >= 0) {
    result = close(bns->snoopfd);
    corvel::net::ForgetSnoopFile(bns);
  }
  bns->snoopflag = 1;
  int fd;
  do {
    fd = open(filename, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0664);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    elog_log(1, "can't open snoop file %s", filename);
    return -1;
  }
  bns->snoopfd = fd;
  bns->snoopfile = CV_STRDUP(filename, "bns->snoopfile");
  bns->pid = static_cast<int>(getpid());
  return result;
}

void bnsdump(FILE *file, Bns *bns) {
  using corvel::net::kMaxDump;
  if (file == nullptr) file = stderr;
  if (bns->id != nullptr) fprintf(file, "  id='%s'\n", bns->id);
  fprintf(file, "  fp=%ld  lp=%ld  mark=%ld  sz=%8ld\n", static_cast<long>(bns->fp),
          static_cast<long>(bns->lp), static_cast<long>(bns->mark), static_cast<long>(bns->sz));
  fprintf(file, "  eof=%d  err=%d  syserrno=%d  flags=%d\n", bns->eof, bns->err, bns->syserrno,
          bns->flags);
  fprintf(file, "  timeout=%d  nbytes=%ld  nsys=%ld\n", bns->timeout,
          static_cast<long>(bns->nbytes), static_cast<long>(bns->nsys));
  if (bns->marktbl != nullptr) {
    const long entries = maxtbl(bns->marktbl);
    if (entries > 0) fprintf(file, "marktbl has %ld entries:", entries);
    for (long i = 0; i < entries; i++) {
      fprintf(file, " %ld", static_cast<long>(reinterpret_cast<intptr_t>(gettbl(bns->marktbl, i))));
    }
    fputc('\n', file);
  }
  if (bns->mark >= 0) {
    fprintf(file, "\n data+mark=%ld\n", static_cast<long>(bns->mark));
    const int64_t n = bns->lp - bns->mark;
    hexdump(file, bns->data + bns->mark, static_cast<long>(n < kMaxDump ? n : kMaxDump));
  }
  if (bns->fp != bns->mark) {
    fprintf(file, "\ndata+fp : %ld bytes\n", static_cast<long>(bns->lp - bns->fp));
    const int64_t n = bns->lp - bns->fp;
    hexdump(file, bns->data + bns->fp, static_cast<long>(n < kMaxDump ? n : kMaxDump));
  }
  if (bns->snoopfd >= 0) fprintf(file, "  snoop=%s (fd=%d)\n", bns->snoopfile, bns->snoopfd);
}
