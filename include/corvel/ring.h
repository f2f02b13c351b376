/* Numeric rings: fixed-capacity histories of (time, value) readings kept in a file that is
 * mapped into memory, so that one program pushes readings as they arrive while others map the
 * same file read-only and compute statistics over the most recent stretch of time. Ringlets
 * keep fixed-size records of any content the same way, without statistics.
 *
 * Both files are in host byte order, as mapped. Entries are written backwards: each new entry
 * goes to the slot before the newest one, wrapping from 0 to capacity - 1, so entry i (0 the
 * newest, 1 the one before, ...) lives in slot (newest + i) modulo capacity.
 *
 * One writer per file; readers take no lock and read the header afresh as they go, since the
 * writer may move it. A file whose header does not fit its length is refused at open, and
 * every later access stays inside the mapping whatever another process writes into it. */
#ifndef CORVEL_RING_H
#define CORVEL_RING_H

#include <stddef.h>
#include <stdint.h>

#include "corvel/export.h"

CORVEL_BEGIN_DECLS

/* The ring file's header, 104 bytes. */
typedef struct Ring_header {
  char magic[8];    /* the characters "newringb", without a terminator */
  char id[64];      /* identifier chosen by the creator, NUL-padded */
  int32_t newest;   /* slot of the newest entry */
  int32_t count;    /* valid entries, at most capacity */
  int32_t capacity; /* entry slots */
  int32_t flags;    /* as given at creation, bit 0 cleared */
  double gap;       /* gap threshold in seconds; 0 switches gap handling off (60 at creation) */
  double marker;    /* value of gap marker entries (-99999999 at creation) */
} Ring_header;

/* One reading: the entries follow the header. */
typedef struct Ring_entry {
  double time; /* epoch seconds */
  double value;
} Ring_entry;

/* An open ring. */
typedef struct Ring {
  Ring_header *header; /* the mapped file */
  Ring_entry *entries; /* the first entry slot */
  size_t length;       /* mapped length in bytes: the whole file */
  int readonly;        /* 1 when opened read-only: nothing may be added */
  char *filename;      /* private copy of the file's name */
} Ring;

/* Creates (truncating) the file path holding a ring of capacity (at least 1) empty slots,
 * the first 64 bytes of id (null or shorter: NUL-padded) and flags with bit 0 cleared. 0, or
 * -1 after a message through elog_log. */
CORVEL_API int newring(const char *path, const char *id, int capacity, int flags);
/* Opens the ring in path, read-only when flags has bit 0 (value 1) set; a missing file is created
 * with newring unless read-only was asked for. The file's identifier is copied into id (64 bytes,
 * when not null). A read-write open is refused while another process holds a lock on the
 * file. Null after a message (complained for a refused lock, else logged). */
CORVEL_API Ring *openring(const char *path, char *id, int capacity, int flags);
/* Unmaps and frees the ring; rmring also removes its file. The system calls' results ORed. */
CORVEL_API int closering(Ring *ring);
CORVEL_API int rmring(Ring *ring);

/* The identifier inside the mapped header: 64 bytes, terminated only when it is shorter. */
CORVEL_API char *idring(Ring *ring);
/* The file name the ring was opened with. */
CORVEL_API char *filenamering(Ring *ring);
/* The number of valid entries. */
CORVEL_API int countring(Ring *ring);
/* Sets the gap threshold (seconds; 0 switches gap handling off) and the gap marker value.
 * 0, or -1 for a read-only ring. */
CORVEL_API int setring(Ring *ring, double gap, double marker);

/* Adds a reading: 0 added, -1 read-only ring (or one whose header no longer fits its file),
 * -2 older than the newest entry or the same time and value again. A reading more than the
 * gap threshold after the newest one is preceded by two gap marker entries, one at each end
 * of the gap. */
CORVEL_API int pushring(Ring *ring, double time, double value);
/* As pushring, and method "collapse" keeps only the two ends of a run of equal values: the
 * newest end moves to the new time. -3 after a message for an unknown method. */
CORVEL_API int cramring(Ring *ring, const char *method, double time, double value);

/* Entry i (0 the newest) into *time and *value: 0, or -1 when there is no entry i. */
CORVEL_API int getring(Ring *ring, int i, double *time, double *value);
/* The reading in effect at *time: the newest entry earlier than *time, stored in *time and
 * *value (0); -1 unless the newest entry is later than *time and an earlier one exists. */
CORVEL_API int valring(Ring *ring, double *time, double *value);

/* Statistics over the span seconds that end at the newest entry's time, from the newest
 * entry towards older ones, up to the first entry outside the span. The span excludes its
 * start (time > newest - span) for maxring, minring, tallyring, findring and changedring, and
 * includes it for meanring, avgring and linearfitring. While the gap threshold is not 0 (NaN
 * counts as not 0), maxring, minring, meanring, avgring and linearfitring leave gap marker
 * entries out and tallyring stops at them; the others take them as any other value. */

/* The largest value (minus infinity when none), *index the newest entry holding it or -1. */
CORVEL_API double maxring(Ring *ring, int *index, double span);
/* The smallest value (plus infinity when none), *index the newest entry holding it or -1. */
CORVEL_API double minring(Ring *ring, int *index, double span);
/* The oldest entry in the span reached from the newest without meeting a gap marker, or -1. */
CORVEL_API int tallyring(Ring *ring, double span);
/* The newest entry in the span holding exactly value, or -1. */
CORVEL_API int findring(Ring *ring, double value, double span);
/* The first entry after the newest whose value differs from the newest value (a NaN on either
 * side differs), looking one entry beyond the span; 0 when there is none. */
CORVEL_API int changedring(Ring *ring, double span);
/* The largest value of the entries timed within span of *time on either side, into *value,
 * with its time into *time: 0, or -1 when there is none. */
CORVEL_API int nearbymaxring(Ring *ring, double *time, double *value, double span);
/* *n readings, their *mean and standard deviation *stdev (over n - 1; 0 for fewer than two):
 * 0, or -1 with everything 0 when there is none. */
CORVEL_API int meanring(Ring *ring, int *n, double *mean, double *stdev, double span);
/* The mean of the readings, 0 when there is none. */
CORVEL_API double avgring(Ring *ring, double span);
/* The least-squares line through the *n readings: *slope per second, *intercept at epoch 0
 * and the *correlation coefficient. -1 with all 0 for fewer than two readings; readings all
 * at one time give infinite slope and intercept, correlation 0. */
CORVEL_API int linearfitring(Ring *ring, int *n, double *slope, double *intercept,
                             double *correlation, double span);

/* The ringlet file's header, 40 bytes. */
typedef struct Ringlet_header {
  char magic[8];    /* the characters "ringlet" and a NUL */
  int64_t newest;   /* slot of the newest record */
  int64_t count;    /* valid records, at most capacity */
  int64_t capacity; /* record slots */
  int32_t size;     /* record size in bytes */
  char reserved[4]; /* rest of the 8-byte size field: zero */
} Ringlet_header;

/* An open ringlet. */
typedef struct Ringlet {
  Ringlet_header *header; /* the mapped file */
  char *records;          /* the first record slot */
  size_t length;          /* mapped length in bytes: the whole file */
  int nowrite;            /* 1 when another process held the file: nothing may be added */
} Ringlet;

/* Creates (truncating) the file path holding capacity empty records of size bytes (both at
 * least 1): 0, or -1 after a message through elog_log. */
CORVEL_API int newringlet(const char *path, int capacity, int size);
/* Opens the ringlet in path for reading and writing, creating its directories and the file
 * as needed. When another process holds the file locked the ringlet is still opened, but
 * marked no-write (except on NFS, where locks cannot be trusted). Null after a message. */
CORVEL_API Ringlet *openringlet(const char *path, int capacity, int size);
/* Adds a copy of the record's size bytes: 0, or -1 when marked no-write (or when the header
 * no longer fits the file). */
CORVEL_API int pushringlet(Ringlet *ringlet, const void *record);
/* Stores in *record the address of record i (0 the newest) inside the mapping: 0, or -1 when
 * there is no record i. */
CORVEL_API int getringlet(Ringlet *ringlet, int i, void **record);
/* The number of valid records. */
CORVEL_API int countringlet(Ringlet *ringlet);
/* Unmaps and frees the ringlet: the result of unmapping. */
CORVEL_API int closeringlet(Ringlet *ringlet);

CORVEL_END_DECLS

#endif
