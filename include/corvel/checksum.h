/* Checksums and digests: CRC-16, CRC-32, CRC-64, the data-logger sums, Adler-32, MD4, MD5 and
 * SHA-1 over byte buffers. Results are defined bit for bit, the same on every host. */
#ifndef CORVEL_CHECKSUM_H
#define CORVEL_CHECKSUM_H

#include <stddef.h>
#include <stdint.h>

#include "corvel/export.h"

CORVEL_BEGIN_DECLS

/* CRC-16, reflected, polynomial 0x8005: continues from *crc, no final XOR. */
CORVEL_API void zq_crc16(uint16_t *crc, const void *buf, size_t n);
/* CRC-32, most significant bit first, polynomial 0x04C11DB7: continues from *crc, no final
 * XOR; a start of 0xFFFFFFFF gives the MPEG-2 CRC. */
CORVEL_API void zq_crc32(uint32_t *crc, const void *buf, size_t n);
/* CRC-64, reflected, ISO 3309 polynomial: always starts from 0, whatever *crc holds, so calls
 * do not chain; no final XOR. */
CORVEL_API void zq_crc64(uint64_t *crc, const void *buf, size_t n);
/* The data loggers' CRC-32, most significant bit first, polynomial 0x56070368, from 0. */
CORVEL_API void qtcrc(uint32_t *crc, const void *buf, size_t n);
/* The data loggers' sum of all bytes modulo 65536, from 0. */
CORVEL_API void qtchecksum(uint16_t *sum, const void *buf, size_t n);
/* Adler-32 continued from adler (start with 1); a null buf returns 1. */
CORVEL_API uint32_t zq_adler32(uint32_t adler, const void *buf, size_t n);

/* MD4 fed by blocks of bits. */
typedef struct Zq_md4_ctx {
  uint32_t buffer[4]; /* the state words; after the last block, the digest, low byte first */
  uint64_t count;     /* bits taken so far */
  int done;           /* 1 once the last, partial, block has been taken */
} Zq_md4_ctx;

CORVEL_API void zq_mdbegin(Zq_md4_ctx *md);
/* Takes nbits bits of bytes, most significant bit of each byte first: 512 bits are one whole
 * block; fewer are the last block, after which only calls with 0 bits are allowed. Ends the
 * process on more than 512 bits or on input after the last block. */
CORVEL_API void zq_mdupdate(Zq_md4_ctx *md, const void *bytes, unsigned int nbits);
/* Compresses one 64-byte block into the state words; the bit count is the caller's. */
CORVEL_API void MDblock(Zq_md4_ctx *md, const void *block);

typedef struct Zq_md5_ctx {
  uint32_t state[4];
  uint64_t bytes;           /* bytes taken so far */
  unsigned char buffer[64]; /* the partial block, bytes % 64 of them */
} Zq_md5_ctx;

CORVEL_API void zq_md5init(Zq_md5_ctx *ctx);
CORVEL_API void zq_md5update(Zq_md5_ctx *ctx, const void *bytes, size_t n);
/* Writes the 16-byte digest; the context must be initialised again before reuse. */
CORVEL_API void zq_md5final(unsigned char digest[16], Zq_md5_ctx *ctx);
/* The MD5 of n bytes as 32 lowercase hexadecimal digits and a NUL: out holds 33 bytes. */
CORVEL_API void mdhex(char *out, const void *bytes, size_t n);
/* As mdhex over the concatenation of pieces given as pairs (const void *bytes, int length),
 * the list ended by a null pointer. */
CORVEL_API void mdhexlist(char *out, ...) __attribute__((sentinel));

typedef struct Zq_sha_ctx {
  uint32_t digest[5];     /* the state words */
  uint32_t count_lo;      /* whole 64-byte blocks compressed, low half */
  uint32_t count_hi;      /* and high half */
  unsigned char data[64]; /* the partial block */
  int local;              /* bytes in data */
} Zq_sha_ctx;

CORVEL_API void sha_init(Zq_sha_ctx *ctx);
CORVEL_API void sha_update(Zq_sha_ctx *ctx, const void *bytes, size_t n);
/* Pads and compresses the last block; read the result with sha_digest. */
CORVEL_API void sha_final(Zq_sha_ctx *ctx);
/* Writes the five state words big-endian: 20 bytes. */
CORVEL_API void sha_digest(const Zq_sha_ctx *ctx, unsigned char out[20]);
/* Copies a context mid-stream, buffered bytes included. */
CORVEL_API void sha_copy(Zq_sha_ctx *to, const Zq_sha_ctx *from);
/* Compresses one 64-byte block from block and counts it; only between whole blocks (no bytes
 * buffered). */
CORVEL_API void sha_block(Zq_sha_ctx *ctx, const void *block);
/* Compresses the context's own 64-byte buffer into the state words, without counting it. */
CORVEL_API void sha_transform(Zq_sha_ctx *ctx);

CORVEL_END_DECLS

#endif
