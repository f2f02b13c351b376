/* Reading files that may be compressed: the name's ending (".Z", ".gz", ".bz2", case
 * sensitive) chooses the decompressing command, run through the shell; other files are opened
 * as they are. Paths holding a blank or a shell metacharacter are refused (null or -1) and
 * never reach the shell. */
#ifndef CORVEL_GZOPEN_H
#define CORVEL_GZOPEN_H

#include <stdio.h>

#include "corvel/export.h"

CORVEL_BEGIN_DECLS

/* A read stream over the decompressed data, kept in an unlinked temporary file in "/var/tmp";
 * close it with fclose. ".Z" is read with zcat. */
CORVEL_API FILE *gz_open(const char *path);
/* As gz_open, as a read-only descriptor; -1 on failure. */
CORVEL_API int gz_openfd(const char *path);
/* A stream from a pipe out of the decompressing command, closed with pclose; a file of another
 * name is opened with fopen and closed with fclose. */
CORVEL_API FILE *gz_cat(const char *path);
/* As gz_open, except that ".Z" is read with gunzip. */
CORVEL_API FILE *zopen(const char *path);

CORVEL_END_DECLS

#endif
