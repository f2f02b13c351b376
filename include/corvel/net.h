/* Sockets by server name, port names, address texts and access lists.
 *
 * A server is named by one string, "host:port", where the port is a number or a name from the
 * parameter file "orbserver_names" (read once per process, along PFPATH like any parameter
 * file). Each key of that file is a port name; its value is a number (decimal, 0x hexadecimal
 * or 0 octal) optionally followed by free text, which is handed back as the port's "extra"
 * string. Host and extra buffers handed in here hold 64 bytes (63 characters and the
 * terminator); host names of 64 characters or more are refused.
 *
 * An access list is a parameter file with the lists valid_ip_addresses and reject_ip_addresses:
 * each entry is an address, a mask and an optional comment, separated by blanks or tabs. The
 * address and mask are both IPv4 dotted quads or both IPv6 texts. A peer matches an entry when
 * its address agrees with the entry's address in every bit the mask sets. */
#ifndef CORVEL_NET_H
#define CORVEL_NET_H

#include <sys/socket.h>

#include "corvel/export.h"
#include "corvel/pf.h"
#include "corvel/tbl.h"

CORVEL_BEGIN_DECLS

/* The size of the host and extra buffers. */
#define ZQ_NAME_SIZE 64
/* The largest port number. */
#define ZQ_MAX_PORT 65535

/* Splits a server name into host (64 bytes), *port and extra (64 bytes, the port's free text or
 * the text after a second ':' in the port part). An empty host means "localhost"; an empty or
 * missing port part means default_port. When name is an existing file and the port-name table
 * has a string at emulator_key (given and not empty), host receives that string (the program
 * that emulates a server), *port -2 and the result is 1. Otherwise 0, or -1 when the host part
 * has 64 characters or more (host is then empty). Any of host, port and extra may be null. */
CORVEL_API int zq_parse_servername(const char *name, const char *default_port,
                                   const char *emulator_key, char *host, int *port, char *extra);
/* A connected TCP socket to the server name, or, for a name that is a file (see
 * zq_parse_servername), the socket of a program run to emulate the server; -1 on failure,
 * with a message logged. The parsed parts go to host, port and extra as above. */
CORVEL_API int zq_open_socket2(const char *name, const char *default_port, const char *emulator_key,
                               char *host, int *port, char *extra);
/* The older opener: the port part is a number or a service name, the default "8000" or the
 * string default_port of the parameter file pfname (which may be null); a port part written
 * as a key of that file's top level gives the text after the value's first blank as extra
 * (64 bytes), when the file has an array "names". A name that is an existing file runs the
 * file's string "emulator" instead. */
CORVEL_API int zq_open_socket(const char *name, const char *pfname, char *extra);
/* Binds the unconnected socket fd to the local IPv4 address in the environment variable
 * ORB_IP_ADDRESS, port 0: 0 when bound or when the variable is unset, -1 on failure. */
CORVEL_API int bind2_ORB_IP_ADDRESS(int fd);

/* The port number of a port name (a name of the table, or a number), with the value's free
 * text in extra (64 bytes, may be null); a name written "name:text" takes text as extra
 * instead. 0, with a message logged, when there is no number or it exceeds 65535. */
CORVEL_API int zq_portnumber(const char *portname, char *extra);
/* The number at the start of a table value; extra (64 bytes, may be null) receives
 * extra_override when that is not empty, else the rest of the value, trimmed. */
CORVEL_API int zq_parse_portvalue(const char *value, const char *extra_override, char *extra);
/* A new list of every port name of the table, the table's own texts: free it with
 * freetbl(t, 0). */
CORVEL_API Tbl *zq_portnames(void);
/* A new list of new copies of the port names whose number is number (free it with
 * freetbl(t, free)); empty when there are none. */
CORVEL_API Tbl *zq_portbynumber(int number);

/* Runs program (a relative name is taken from the "bin" directory of the installation root)
 * connected to the caller by a socket pair, and returns the caller's end, or -1. The program
 * gets arg as its argument, or, when arg holds '@', "-" followed by the text after the last
 * '@', then the text before it. */
CORVEL_API int zq_exec_subprogram(const char *program, const char *arg);
/* Runs argv[0] (searched along PATH) with the null-terminated argv, its standard input and
 * output on one end of a Unix-domain socket pair, and returns the other end, or -1. The child
 * is not waited for: reap it (or ignore SIGCHLD). */
CORVEL_API int zq_spawn(char **argv);

/* AF_INET (2) for a dotted quad, AF_INET6 (10) for a text holding ':', else -1. */
CORVEL_API int zq_inet_family(const char *text);
/* Sets the family and address of *address from text: 1, or -1 for a text that is no address.
 * The port is untouched; address must have room for an IPv6 address (a sockaddr_storage or a
 * sockaddr_in6) whenever text may be one. */
CORVEL_API int zq_inet_pton(const char *text, struct sockaddr *address);
/* Writes the address of an IPv4 or IPv6 socket address as text into out (size bytes) and
 * returns out; null when it does not fit. Any other family writes "Unknown AF" (cut to size)
 * and returns null. */
CORVEL_API char *zq_inet_ntop(const struct sockaddr *address, char *out, int size);
/* Writes the address of fd's peer into out (at least 46 bytes; "Unknown AF" for a peer that
 * is not IPv4 or IPv6): 0, or -1 with "*unknown*" written and a message logged when there is
 * no peer. */
CORVEL_API int zq_getpeername(int fd, char *out);

/* The index of the entry of valid_ip_addresses that accepted, and of reject_ip_addresses that
 * refused, the last peer tested, or -1. Plain globals: concurrent tests race on them. */
CORVEL_API extern int Legit_accept;
CORVEL_API extern int Legit_reject;
/* Each test answers 1 for a peer the access list accepts and 0 for one it refuses; *comment
 * (when comment is not null) receives a new copy of the deciding entry's comment, or null.
 * legit_ip reads the parameter file pfname (-1 when it cannot) and tests the IPv4 address ip
 * (network byte order) as legit_ip_pf does, which also reads the addresses as inet_addr does
 * and keeps the accepting entry's comment when the reject list refuses. legit_fd tests the
 * peer of fd (refused when there is none) and legit_ipv6 the IPv4 or IPv6 socket address
 * peer; name is not used. */
CORVEL_API int legit_ip(const char *pfname, unsigned int ip, char **comment);
CORVEL_API int legit_ip_pf(Pf *pf, unsigned int ip, char **comment);
CORVEL_API int legit_fd(const char *name, Pf *pf, int fd, char **comment);
CORVEL_API int legit_ipv6(const char *name, Pf *pf, const struct sockaddr *peer, char **comment);

/* accept(2) again while it fails with EINTR; reaccept logs each attempt with elog_notify. */
CORVEL_API int reaccept(int fd, struct sockaddr *address, socklen_t *length);
CORVEL_API int reconnect(int fd, struct sockaddr *address, socklen_t *length);

CORVEL_END_DECLS

#endif
