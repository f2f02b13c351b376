// Address texts: the family a text names, text to socket address and back, and the text of a
// connection's peer.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "corvel/elog.h"
#include "corvel/net.h"
#include "corvel/port.h"
#include "corvel/text.h"

namespace corvel {
namespace net {
namespace {

constexpr char kDottedQuad[] = "[0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+";

// The compiled pattern is kept between calls; the lock makes its first compilation happen
// once and keeps concurrent matches off the shared cache.
pthread_mutex_t g_pattern_mutex = PTHREAD_MUTEX_INITIALIZER;
Hook *g_pattern = nullptr;

bool IsDottedQuad(const char *text) {
  pthread_mutex_lock(&g_pattern_mutex);
  bool matches = strmatches(text, kDottedQuad, &g_pattern) == 1;
  pthread_mutex_unlock(&g_pattern_mutex);
  return matches;
}

}  // namespace
}  // namespace net
}  // namespace corvel

int zq_inet_family(const char *text) {
  if (text == nullptr) return -1;
  if (strchr(text, ':') != nullptr) return AF_INET6;
  return corvel::net::IsDottedQuad(text) ? AF_INET : -1;
}

int zq_inet_pton(const char *text, struct sockaddr *address) {
  if (address == nullptr) return -1;
  int family = zq_inet_family(text);
  if (family == AF_INET) {
    struct in_addr parsed;
    if (inet_pton(AF_INET, text, &parsed) != 1) return -1;
    auto *v4 = reinterpret_cast<struct sockaddr_in *>(address);
    v4->sin_family = AF_INET;
    v4->sin_addr = parsed;
    return 1;
  }
  if (family == AF_INET6) {
    struct in6_addr parsed;
    if (inet_pton(AF_INET6, text, &parsed) != 1) return -1;
    auto *v6 = reinterpret_cast<struct sockaddr_in6 *>(address);
    v6->sin6_family = AF_INET6;
    v6->sin6_addr = parsed;
    return 1;
  }
  return -1;
}

char *zq_inet_ntop(const struct sockaddr *address, char *out, int size) {
  if (out == nullptr || size <= 0) return nullptr;
  const void *bytes = nullptr;
  int family = address != nullptr ? address->sa_family : AF_UNSPEC;
  if (family == AF_INET) {
    bytes = &reinterpret_cast<const struct sockaddr_in *>(address)->sin_addr;
  } else if (family == AF_INET6) {
    bytes = &reinterpret_cast<const struct sockaddr_in6 *>(address)->sin6_addr;
  } else {
    snprintf(out, static_cast<size_t>(size), "Unknown AF");
    return nullptr;
  }
  int saved_errno = errno;
  const char *text = inet_ntop(family, bytes, out, static_cast<socklen_t>(size));
  errno = saved_errno;
  if (text == nullptr) out[0] = '\0';
  return text != nullptr ? out : nullptr;
}

int zq_getpeername(int fd, char *out) {
  struct sockaddr_storage peer;
  socklen_t length = sizeof peer;
  memset(&peer, 0, sizeof peer);
  if (getpeername(fd, reinterpret_cast<struct sockaddr *>(&peer), &length) < 0) {
    elog_log(1, "getpeername failed");
    if (out != nullptr) strcpy(out, "*unknown*");
    return -1;
  }
  // A peer of another family (a Unix-domain socket) is had, but has no address text: the
  // text says so.
  if (out != nullptr)
    zq_inet_ntop(reinterpret_cast<struct sockaddr *>(&peer), out, INET6_ADDRSTRLEN);
  return 0;
}
