/* Paths, files and directories. */
#ifndef CORVEL_FILES_H
#define CORVEL_FILES_H

#include "corvel/export.h"

CORVEL_BEGIN_DECLS

struct stat;

/* Splits path into the caller's buffers dir and base (each at least as large as path):
 * "/a/b" gives "/a" and "b", "/etc" gives "/" and "etc", "name" gives "." and "name", and a
 * path ending in '/' gives an empty base. */
CORVEL_API void dirbase(const char *path, char *dir, char *base);

/* Splits path as dirbase does; with a non-null suffix, base also loses its last ".suffix",
 * which goes (without the dot) into suffix: "/d/x.tar.gz" gives "/d", "x.tar" and "gz". A dot
 * that begins the base name starts no suffix (".profile"). Any of dir, base and suffix may be
 * null; each non-null one must be at least as large as path. */
CORVEL_API void parsepath(const char *path, char *dir, char *base, char *suffix);

/* A new string joining dir and name with exactly one '/' ("a/" and "b" give "a/b", "/" and
 * "b" give "/b"). An absolute name, or an empty or null dir, gives a copy of name; an empty or
 * null name gives a copy of dir. */
CORVEL_API char *concatpaths(const char *dir, const char *name);

/* 1 when path names a regular file (following symbolic links), else 0. */
CORVEL_API int is_filename(const char *path);

/* stat(2) that repeats when interrupted by a signal: 0, or -1 with errno set. */
CORVEL_API int restat(const char *path, struct stat *status);

/* Creates an empty file named prefix, the process id, '_' and a counter ("snoop4711_3"),
 * atomically, so that no other call in any process gets the same name, and returns the name
 * as a new string. Null, with a message logged, when no file can be created there. */
CORVEL_API char *zqunique_filename(const char *prefix);

/* 0 when path is, or has become, a writable directory, creating every missing parent with
 * mode 0775 (less the umask); otherwise -1 with a message logged with elog_log. Directories
 * created on the way to a failure stay. */
CORVEL_API int makedir(const char *path);
/* Creates the directories of a file path, the part before its last '/' ("/" for "/name"):
 * 0 when there is none to create, else the result of makedir. */
CORVEL_API int make_pathdirs(const char *path);

/* A new string with the home directory of user (the current user when null or empty), or
 * null when the user is unknown. */
CORVEL_API char *homedir(const char *user);

CORVEL_END_DECLS

#endif
