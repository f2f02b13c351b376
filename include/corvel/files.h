/* Paths, files and directories. */
#ifndef CORVEL_FILES_H
#define CORVEL_FILES_H

#include "corvel/export.h"
#include "corvel/tbl.h"

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

/* The installation root, found on first use: VELMORA, else the default root /opt/velmora/5.8
 * when it is a directory, else the directory above the "bin" that holds the running program,
 * else the highest release directory under /opt/velmora. Empty when none is found, in which
 * case the next call searches again. The text is process-wide: a later putvelmora overwrites
 * it. */
CORVEL_API char *getvelmora(void);
/* Records root (at most 4095 characters kept) as the installation root. The first call also
 * puts "VELMORA=" and the root into the environment, which later calls leave alone, so child
 * processes see the first root. */
CORVEL_API void putvelmora(const char *root);

/* A new list of new strings (free it with freetbl(t, free)): where name is found along path,
 * a list of directories separated by ':'. An empty or null path means DATAPATH, or the root's
 * "data" directory when that is unset. An element beginning with '~' starts at a home
 * directory ("~" and "~/x" the current user's, "~user/x" that user's), and a non-empty subdir
 * is joined to every element. A directory element gives the element joined with name, and,
 * when name holds a '/', also with the last component of name; an element that is a file is
 * listed itself when its path is absolute. Only readable candidates are listed unless flags
 * has bit 2 (value 2) set; with bit 1 (value 1) set, environment references in path are
 * expanded first. errno is left as it was. */
CORVEL_API Tbl *datasearch(const char *path, const char *subdir, const char *name, int flags);
/* The first readable file found for name, with "." and suffix appended when suffix is
 * non-empty, along the value of the environment variable env when that is set, else as
 * datasearch searches an empty path; a new string, or null when there is none. */
CORVEL_API char *datapath(const char *env, const char *subdir, const char *name,
                          const char *suffix);
/* datapath without a subdirectory or a suffix. */
CORVEL_API char *datafile(const char *env, const char *name);

CORVEL_END_DECLS

#endif
