/* Buffered network streams: typed big-endian reads and writes over one descriptor. */
#ifndef CORVEL_BNS_H
#define CORVEL_BNS_H

#include <stdint.h>
#include <stdio.h>

#include "corvel/export.h"
#include "corvel/tbl.h"

CORVEL_BEGIN_DECLS

/* Type codes of bnsget and bnsput; on the wire every value is big-endian, floats and doubles in
 * IEEE form. */
#define BNS_TYPE_BYTES 0  /* 1 byte, copied as it is */
#define BNS_TYPE_INT16 1  /* 2 bytes */
#define BNS_TYPE_INT32 2  /* 4 bytes */
#define BNS_TYPE_INT64 3  /* 8 bytes */
#define BNS_TYPE_FLOAT 4  /* 4 bytes */
#define BNS_TYPE_DOUBLE 5 /* 8 bytes */

/* Moves bytes between a descriptor and a buffer as read(2) and write(2) do; flags is the
 * stream's flags member, passed unchanged. */
typedef int64_t (*Bns_io_fn)(int fd, void *buffer, int64_t length, int flags);

/* A stream. Callers may read and set every member; positions are byte offsets into data, with
 * 0 <= fp <= lp <= sz, and 0 <= mark <= fp unless mark is -1. */
typedef struct Bns {
  char *data;              /* the buffer, sz bytes, zero-filled when allocated */
  int64_t fp;              /* read position (reading) or start of unsent data (writing) */
  int64_t lp;              /* end of the valid bytes */
  int64_t mark;            /* start of the bytes that must stay in the buffer, or -1 for none */
  int64_t sz;              /* allocated size of data */
  int fd;                  /* the descriptor */
  int eof;                 /* 1 after a read met end of file */
  int err;                 /* errors met on this stream */
  int revents;             /* event bits of the last wait */
  int syserrno;            /* errno of the last error */
  int flags;               /* passed to read_routine and write_routine */
  int timeout;             /* read time-out in milliseconds: negative waits forever, 0 polls */
  int64_t nbytes;          /* bytes read plus bytes flushed */
  int64_t nsys;            /* read and write system calls issued (one per attempt sequence) */
  int64_t keep;            /* flushed messages kept for bnsresend, 0 for none */
  Tbl *marktbl;            /* starts of the kept messages, oldest first; null until bnskeep */
  Bns_io_fn read_routine;  /* _bnsread unless the caller sets another */
  Bns_io_fn write_routine; /* _bnswrite unless the caller sets another */
  int64_t nin;             /* bytes taken by the get family since the last bnsin */
  int64_t nout;            /* bytes added by the put family since the last bnsout */
  char *snoopfile;         /* name of the snoop file, or null */
  int snoopfd;             /* its descriptor, -1 for none */
  int snoopflag; /* 1 asks for a snoop file, 0 for none (acted on at the next read or flush) */
  char *id;      /* identifier shown in snoop records and dumps, or null */
  int pid;       /* process that opened the snoop file */
} Bns;

/* Default time-out of new streams, in milliseconds; bnsnew replaces it with the value of the
 * environment variable BNS_TIMEOUT when that is set. */
CORVEL_API extern long BNS_TIMEOUT;
/* Nonzero: streams report time-outs, failed reads and end of file through the log. */
CORVEL_API extern int OrbVerbose;

/* A stream on fd with a buffer of size bytes (32767 when size < 1). With BNS_SNOOP set in the
 * environment its traffic is copied to the snoop file that variable names. */
CORVEL_API Bns *bnsnew(int fd, long size);
/* Forgets buffered data, positions, errors and counters; keeps the buffer, the kept-message
 * table, the time-out and snooping. */
CORVEL_API void bnsclr(Bns *bns);
/* Sets the read time-out in milliseconds; returns the previous one. */
CORVEL_API int bnstimeout(Bns *bns, int msec);
/* Bytes taken by the get family (bnsin) or added by the put family (bnsout) since the last
 * call; the count restarts at 0. */
CORVEL_API int64_t bnsin(Bns *bns);
CORVEL_API int64_t bnsout(Bns *bns);
/* The stream's identifier. With str, the stream takes a copy of str and the previous
 * identifier is returned to the caller, who frees it. */
CORVEL_API char *bnsid(Bns *bns, const char *str);
/* Releases the stream; fd and the snoop file stay open. */
CORVEL_API void bnsfree(Bns *bns);
/* Flushes, closes fd and releases the stream: 0, or nonzero when the flush or close failed. */
CORVEL_API int bnsclose(Bns *bns);

/* Reads n elements of type into dest, waiting for them: 0, or -1 (time-out, end of file, read
 * error, bad request) with nothing consumed. */
CORVEL_API int bnsget(Bns *bns, void *dest, int type, long n);
/* Appends n elements of type from src in wire form; nothing is sent until bnsflush. 0, or -1
 * for an unknown type. */
CORVEL_API int bnsput(Bns *bns, const void *src, int type, long n);
CORVEL_API int buf2bns(Bns *bns, const void *src, long n);
/* Moves up to max buffered bytes into dest without reading, then empties the buffer; returns
 * the count moved. */
CORVEL_API long bns2buf(Bns *bns, void *dest, long max);
/* Reads through the next byte c and stores what came before it in dest (size bytes, always
 * terminated; what does not fit is dropped): the count stored, or -1 when the stream failed
 * first, with what was buffered stored and consumed. */
CORVEL_API long bnsgetc(Bns *bns, char *dest, long size, int c);
/* Expects the bytes of str next: 0 (consumed), 1 when other bytes came (nothing consumed), -1
 * when too few bytes could be read. */
CORVEL_API int bnspeek(Bns *bns, const char *str);
/* Skips to just past the len bytes of sync: 0 found, -1 read failure, -2 not found (strict: the
 * first byte that does not belong to sync; otherwise after 32 skipped bytes). */
CORVEL_API int gbnsSync(Bns *bns, const char *sync, int len, int strict);
/* Sends the buffered data with one write: 0, or -1 with the data kept for another attempt. */
CORVEL_API int bnsflush(Bns *bns);
/* Keeps the last n flushed messages in the buffer for bnsresend. */
CORVEL_API void bnskeep(Bns *bns, long n);
/* Sends the kept messages again (after a reconnection): 0, or -1 when the write failed. */
CORVEL_API int bnsresend(Bns *bns);
/* Waits up to the time-out for input: 1 ready, 0 time-out, -1 error. */
CORVEL_API int bnswait(Bns *bns);
/* Grows the buffer by at least n bytes and at least doubles it; returns 0. */
CORVEL_API int bnsresize(Bns *bns, long n);
/* Copies the stream's traffic to filename (appended, created if needed); closes a snoop file
 * already open. 0, or -1 when filename cannot be opened. */
CORVEL_API int bnssnoop(Bns *bns, const char *filename);
/* Prints the stream's state (stderr for a null file). */
CORVEL_API void bnsdump(FILE *file, Bns *bns);

/* The default read and write routines: read(2) and write(2); flags is ignored. */
CORVEL_API int64_t _bnsread(int fd, void *buffer, int64_t length, int flags);
CORVEL_API int64_t _bnswrite(int fd, void *buffer, int64_t length, int flags);

CORVEL_END_DECLS

#endif
