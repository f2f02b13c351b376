/* Codecs for series of 32-bit samples and for byte buffers: the block-packed integer format,
 * tagged zlib buffers, and the Canadian, CM6 and UCSD waveform formats with the CHK2 checksum.
 * Every format is exchanged between hosts and is defined to the bit, whatever the host.
 *
 * Encoders and decoders take the address of an output pointer and of its allocated size,
 * allocate or enlarge the output themselves (with malloc: the caller frees it), and return 0
 * (or a count) on success, or -1 after a message through elog_log. */
#ifndef CORVEL_CODEC_H
#define CORVEL_CODEC_H

#include <stddef.h>

#include "corvel/export.h"

CORVEL_BEGIN_DECLS

/* Block-packed integers: n samples in blocks of blocksize (below 1: 25; keep it to 255), each
 * block in the fewest two's-complement bits that hold its largest magnitude. *out may be null
 * (allocated) or a malloc'ed buffer of *size bytes (enlarged when needed); *nout receives the
 * encoded length in bytes. */
CORVEL_API int gencompress(unsigned char **out, int *nout, int *size, const int *data, int n,
                           int blocksize);
/* Decodes every segment of nin bytes at in and appends their samples to *out (allocated when
 * null; *size its allocated length in bytes); *nout receives the number of samples. */
CORVEL_API int genuncompress(int **out, int *nout, int *size, const unsigned char *in, int nin);

/* A byte buffer: data owned by the record, nbytes used, size allocated (0: nothing). */
typedef struct Zqbuf {
  unsigned char *data;
  size_t nbytes;
  size_t size;
} Zqbuf;

/* "zlib", the length big-endian, then zlib's compress of in. Returns 1 for inputs shorter than
 * 101 bytes (nothing done, out->nbytes 0), 0 when compressed, -2 when compressed but longer
 * than the input (still complete), -1 when zlib fails. */
CORVEL_API int zqcompress(const Zqbuf *in, Zqbuf *out);
/* Undoes zqcompress: 1 when in does not begin with "zlib" (use it as it is), 0 on success, -1
 * when zlib fails, -2 when the expanded length differs from the header's. */
CORVEL_API int zqexpand(const Zqbuf *in, Zqbuf *out);

/* Canadian compression of nsamp samples (a multiple of 20, or one more: the last sample then
 * only closes the final difference). *outsize is the allocated size of *out in bytes, *nout
 * receives the bytes used. */
CORVEL_API int ccanada(const int *data, int nsamp, unsigned char **out, int *nout, int *outsize);
/* Decodes nin bytes into *out, which receives *nsamp + 1 samples: the last is the first sample
 * of the following record. *nsamp <= 0 asks the decoder to count the blocks itself and
 * receives the count. *outsize is the allocated size of *out in samples. */
CORVEL_API int ucanada(const unsigned char *in, int nin, int **out, int *nsamp, int *outsize);

/* The CM6 text of nsamp samples, lines of 80 characters, ended by "CHK2 %d\n"; *outsize is the
 * allocated size of *out in bytes, *nout receives the text length. Returns 0. */
CORVEL_API int cm6(const int *data, int nsamp, char **out, int *nout, int *outsize);
/* Decodes nbytes of CM6 text (header lines skipped, CHK2 verified) into *out, of *outsize
 * samples allocated; *nsamp receives the count. Returns the count, or -1 on any error. */
CORVEL_API int um6(const char *text, int nbytes, int **out, int *nsamp, int *outsize);
/* Adds the GSE2.0 CHK2 checksum of n samples into *sum (start it at 0). */
CORVEL_API void gse_checksum(const int *data, int n, int *sum);

/* UCSD compression of nsamp samples; *outsize is the allocated size of *out in bytes, *nout
 * receives the bytes written. Returns -1 when a value had to be coded in the 24-bit mode
 * without fitting it. Keeps its run state in process-wide variables: one thread at a time. */
CORVEL_API int cucsd(const int *data, int nsamp, unsigned char **out, int *nout, int *outsize);
/* Decodes nsamp samples from nbytes at *in into out (nsamp ints) and advances *in past the
 * bytes used. */
CORVEL_API int uucsd(int *out, const unsigned char **in, int nbytes, int nsamp);

CORVEL_END_DECLS

#endif
