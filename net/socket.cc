// Client sockets by server name: splitting "host:port", resolving and connecting, the older
// opener driven by a parameter file, and the local address a client binds to.
#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/net.h"
#include "corvel/pf.h"
#include "corvel/text.h"
#include "elog/oom.h"
#include "net/portname.h"

static constexpr char kSourceName[] = "zq_open_socket.c";

namespace corvel {
namespace net {
namespace {

constexpr char kLocalHost[] = "localhost";
constexpr char kOldDefaultPort[] = "8000";

// Copies the first n characters of text into a 64-byte buffer; false, leaving it empty, when
// they do not fit.
bool CopyName(char *out, const char *text, size_t n) {
  if (n >= ZQ_NAME_SIZE) {
    out[0] = '\0';
    return false;
  }
  memcpy(out, text, n);
  out[n] = '\0';
  return true;
}

enum class Bind { kNone, kOrbIpAddress };
constexpr int kNotConnected = -2;

// A socket connected to the first address of host and service that accepts, or -1 when the
// host cannot be resolved (reported here), or kNotConnected when no address accepted.
int ConnectFirst(const char *host, const char *service, Bind local) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  struct addrinfo *addresses = nullptr;
  int resolved = getaddrinfo(host, service, &hints, &addresses);
  if (resolved != 0) {
    elog_log(0, "couldn't find ip address for '%s' : '%s'\n", host, gai_strerror(resolved));
    return -1;
  }
  int last_errno = 0;
  for (struct addrinfo *a = addresses; a != nullptr; a = a->ai_next) {
    int fd = socket(a->ai_family, a->ai_socktype, a->ai_protocol);
    if (fd < 0) {
      elog_log(1, "failed to make socket\n");
      continue;
    }
    if (local == Bind::kOrbIpAddress && bind2_ORB_IP_ADDRESS(fd) < 0) {
      close(fd);
      continue;
    }
    if (connect(fd, a->ai_addr, a->ai_addrlen) < 0) {
      last_errno = errno;
      close(fd);
      continue;
    }
    freeaddrinfo(addresses);
    errno = 0;
    return fd;
  }
  freeaddrinfo(addresses);
  errno = last_errno;
  return kNotConnected;
}

// The string at key of pf, or null.
const char *StringAt(Pf *pf, const char *key) {
  void *value = nullptr;
  return pf != nullptr && pfget(pf, key, &value) == PFSTRING ? static_cast<char *>(value) : nullptr;
}

// Sets extra (a 64-byte buffer) from the text after the first blank of the value of port in
// the tree, when the tree declares its port names with an array "names".
void ExtraFromNames(Pf *pf, const char *port, char *extra) {
  void *names = nullptr;
  int type = pf != nullptr ? pfget(pf, "names", &names) : PFINVALID;
  if (type == PFINVALID) return;
  if (type != PFARR) {
    elog_complain(0, "names entry in parameter file should be Arr");
    return;
  }
  // The port is looked up in the file's top level, not in "names": that is where such files
  // keep their port values.
  const char *value = StringAt(pf, port);
  if (value == nullptr || extra == nullptr) return;
  const char *blank = strpbrk(value, " \t");
  if (blank == nullptr) return;
  snprintf(extra, ZQ_NAME_SIZE, "%s", blank + 1);
  strtrim(extra);
}

}  // namespace
}  // namespace net
}  // namespace corvel

using namespace corvel::net;

int zq_parse_servername(const char *name, const char *default_port, const char *emulator_key,
                        char *host, int *port, char *extra) {
  char host_buffer[ZQ_NAME_SIZE], extra_buffer[ZQ_NAME_SIZE];
  int port_buffer;
  if (host == nullptr) host = host_buffer;
  if (extra == nullptr) extra = extra_buffer;
  if (port == nullptr) port = &port_buffer;
  host[0] = extra[0] = '\0';
  *port = 0;
  Arr *table = PortTable();
  if (name == nullptr) name = "";

  if (emulator_key != nullptr && emulator_key[0] != '\0' && is_filename(name)) {
    // Without a program to run, the name is parsed as a server name after all.
    const char *program = static_cast<const char *>(getarr(table, emulator_key));
    if (program != nullptr) {
      *port = -2;
      return CopyName(host, program, strlen(program)) ? 1 : -1;
    }
  }

  int result = 0;
  const char *port_name = default_port;
  const char *colon = strchr(name, ':');
  size_t host_length = colon != nullptr ? static_cast<size_t>(colon - name) : strlen(name);
  if (host_length == 0) {
    strcpy(host, kLocalHost);
  } else if (!CopyName(host, name, host_length)) {
    result = -1;
  }
  if (colon != nullptr && colon[1] != '\0') port_name = colon + 1;
  *port = zq_portnumber(port_name, extra);
  return result;
}

int zq_open_socket2(const char *name, const char *default_port, const char *emulator_key,
                    char *host, int *port, char *extra) {
  char host_buffer[ZQ_NAME_SIZE];
  int port_buffer;
  if (host == nullptr) host = host_buffer;
  if (port == nullptr) port = &port_buffer;
  int parsed = zq_parse_servername(name, default_port, emulator_key, host, port, extra);
  if (parsed == 1) return zq_exec_subprogram(host, name);
  if (parsed < 0) return -1;
  char service[16];
  snprintf(service, sizeof service, "%d", *port);
  int fd = ConnectFirst(host, service, Bind::kOrbIpAddress);
  if (fd == kNotConnected) {
    elog_log(1, "failed to connect to %s (%s:%d)", okstr(name), host, *port);
    return -1;
  }
  return fd;
}

int zq_open_socket(const char *name, const char *pfname, char *extra) {
  Pf *pf = nullptr;
  if (pfname != nullptr && pfread(pfname, &pf) < 0) {
    pffree(pf);
    pf = nullptr;
  }
  if (name == nullptr) name = "";
  if (pf != nullptr && is_filename(name)) {
    if (const char *emulator = StringAt(pf, "emulator")) {
      int fd = zq_exec_subprogram(emulator, name);
      pffree(pf);
      return fd;
    }
  }

  char *host = CV_STRDUP(name, "host");
  const char *service = kOldDefaultPort;
  if (const char *default_port = StringAt(pf, "default_port")) service = default_port;
  if (extra != nullptr) extra[0] = '\0';
  if (char *colon = strchr(host, ':')) {
    *colon = '\0';
    if (colon[1] != '\0') {
      ExtraFromNames(pf, colon + 1, extra);
      service = colon + 1;
    }
  }
  const char *target = host[0] != '\0' ? host : kLocalHost;
  int fd = ConnectFirst(target, service, Bind::kNone);
  if (fd == kNotConnected) {
    elog_log(1, "failed to connect to %s (%s:%s)", name, target, service);
    fd = -1;
  }
  free(host);
  pffree(pf);
  return fd;
}

int bind2_ORB_IP_ADDRESS(int fd) {
  // An empty value counts as unset: it names no address a socket could be bound to.
  const char *address = getenv("ORB_IP_ADDRESS");
  if (address == nullptr || address[0] == '\0') return 0;
  struct sockaddr_in local;
  memset(&local, 0, sizeof local);
  local.sin_family = AF_INET;
  local.sin_port = 0;
  local.sin_addr.s_addr = inet_addr(address);
  if (bind(fd, reinterpret_cast<struct sockaddr *>(&local), sizeof local) < 0) {
    elog_log(1, "Failed to bind ip address '%s'", address);
    return -1;
  }
  return 0;
}
