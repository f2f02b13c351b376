// Access lists: whether a peer's address is let in, by the entries of valid_ip_addresses and
// reject_ip_addresses in a parameter file.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "corvel/elog.h"
#include "corvel/net.h"
#include "corvel/pf.h"
#include "corvel/port.h"
#include "corvel/text.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "legit_ip.c";

int Legit_accept = -1;
int Legit_reject = -1;

namespace corvel {
namespace net {
namespace {

constexpr char kValidList[] = "valid_ip_addresses";
constexpr char kRejectList[] = "reject_ip_addresses";
// The family of an entry whose address is neither kind of text: equal to no peer's family.
constexpr int kNoFamily = 137;

// The matcher keeps a compiled pattern of its own, under its own lock, apart from
// zq_inet_family's.
pthread_mutex_t g_pattern_mutex = PTHREAD_MUTEX_INITIALIZER;
Hook *g_pattern = nullptr;

int EntryFamily(const char *address) {
  if (strchr(address, ':') != nullptr) return AF_INET6;
  pthread_mutex_lock(&g_pattern_mutex);
  bool quad = strmatches(address, "[0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+", &g_pattern) == 1;
  pthread_mutex_unlock(&g_pattern_mutex);
  return quad ? AF_INET : kNoFamily;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// One entry of a list, split in a copy of its line: the address, the mask (null when the line
// has none) and the comment (null when empty).
class Entry {
 public:
  explicit Entry(const char *line) : text_(CV_STRDUP(line, "access list entry")) {
    strtrim(text_);
    char *p = text_;
    address_ = p;
    p = Cut(p);
    if (*p != '\0') {
      mask_ = p;
      p = Cut(p);
    }
    if (*p != '\0') comment_ = strtrim(p);
  }
  ~Entry() { free(text_); }
  Entry(const Entry &) = delete;
  Entry &operator=(const Entry &) = delete;

  bool empty() const { return address_[0] == '\0'; }
  const char *address() const { return address_; }
  const char *mask() const { return mask_; }
  const char *comment() const { return comment_; }

 private:
  // Ends the word at p and returns the start of the next one.
  static char *Cut(char *p) {
    while (*p != '\0' && !IsBlank(*p)) p++;
    if (*p == '\0') return p;
    *p++ = '\0';
    while (IsBlank(*p)) p++;
    return p;
  }

  char *text_;
  const char *address_ = nullptr;
  const char *mask_ = nullptr;
  const char *comment_ = nullptr;
};

// The bytes of an IPv4 or IPv6 peer, and how many there are.
struct PeerBytes {
  int family;
  const unsigned char *bytes;
  size_t size;
};

// Whether entry admits peer: the text of both must be of the peer's family, and every bit the
// mask sets must agree.
bool MatchesPeer(const Entry &entry, const PeerBytes &peer) {
  if (entry.mask() == nullptr) {
    elog_complain(0, "no mask string for ip : '%s'", entry.address());
    return false;
  }
  if (EntryFamily(entry.address()) != peer.family) return false;
  const bool v4 = peer.family == AF_INET;
  unsigned char address[16], mask[16];
  if (inet_pton(peer.family, entry.address(), address) != 1) {
    elog_complain(0, v4 ? "invalid ipv4 address '%s'" : "invalid ipv6 address '%s'",
                  entry.address());
    return false;
  }
  if (inet_pton(peer.family, entry.mask(), mask) != 1) {
    elog_complain(0, v4 ? "invalid ipv4 mask '%s'" : "invalid ipv6 mask '%s'", entry.mask());
    return false;
  }
  for (size_t i = 0; i < peer.size; i++) {
    if ((mask[i] & (peer.bytes[i] ^ address[i])) != 0) return false;
  }
  return true;
}

// The older rule, for an IPv4 address in network order: the texts are read as inet_addr reads
// them (so "10.1" is 10.0.0.1), and IPv6 entries are passed over.
bool MatchesIpv4(const Entry &entry, const in_addr_t &ip) {
  if (entry.mask() == nullptr) {
    elog_complain(0, "no mask string for ip : '%s'", entry.address());
    return false;
  }
  if (strchr(entry.address(), ':') != nullptr) return false;
  // inet_aton rather than inet_addr: the same reading, but it tells 255.255.255.255 (a mask
  // that is all ones) from a text that is no address.
  struct in_addr address, mask;
  if (inet_aton(entry.address(), &address) == 0) {
    elog_complain(0, "invalid ipv4 address '%s'", entry.address());
    return false;
  }
  if (inet_aton(entry.mask(), &mask) == 0) {
    elog_complain(0, "invalid ipv4 mask '%s'", entry.mask());
    return false;
  }
  return ((ip ^ address.s_addr) & mask.s_addr) == 0;
}

// The list at key of pf, or null when there is none (or something else stands there).
Pf *List(Pf *pf, const char *key) {
  void *node = nullptr;
  return pfget(pf, key, &node) == PFTBL ? static_cast<Pf *>(node) : nullptr;
}

// The index of the first entry of list that matches, with a new copy of its comment (or null)
// in *comment; -1 when none does. Entries that are empty or not strings are passed over.
template <typename Peer>
int FirstMatch(Pf *list, const Peer &peer, bool (*matches)(const Entry &, const Peer &),
               char **comment) {
  long n = pfmaxtbl(list);
  for (long i = 0; i < n; i++) {
    void *line = nullptr;
    if (pfget(list, PF_INDEX(i), &line) != PFSTRING || line == nullptr) continue;
    Entry entry(static_cast<const char *>(line));
    if (entry.empty() || !matches(entry, peer)) continue;
    *comment = entry.comment() != nullptr ? CV_STRDUP(entry.comment(), "comment") : nullptr;
    return static_cast<int>(i);
  }
  return -1;
}

// Stores a decision's comment for the caller, or drops it when the caller wants none.
void GiveComment(char **out, char *comment) {
  if (out != nullptr) {
    free(*out);
    *out = comment;
  } else {
    free(comment);
  }
}

}  // namespace
}  // namespace net
}  // namespace corvel

using namespace corvel::net;

int legit_ipv6(const char *name, Pf *pf, const struct sockaddr *peer, char **comment) {
  Legit_accept = Legit_reject = -1;
  if (comment != nullptr) *comment = nullptr;
  Pf *valid = List(pf, kValidList);
  if (valid == nullptr) {
    elog_complain(0, "failed to get valid_ip_addresses list");
    return 0;
  }
  PeerBytes bytes;
  bytes.family = peer != nullptr ? peer->sa_family : AF_UNSPEC;
  if (bytes.family == AF_INET) {
    bytes.bytes = reinterpret_cast<const unsigned char *>(
        &reinterpret_cast<const struct sockaddr_in *>(peer)->sin_addr);
    bytes.size = 4;
  } else if (bytes.family == AF_INET6) {
    bytes.bytes = reinterpret_cast<const unsigned char *>(
        &reinterpret_cast<const struct sockaddr_in6 *>(peer)->sin6_addr);
    bytes.size = 16;
  } else {
    elog_complain(0, "unrecognized family %d", bytes.family);
    return 0;
  }

  char *found = nullptr;
  Legit_accept = FirstMatch(valid, bytes, MatchesPeer, &found);
  if (Legit_accept < 0) return 0;
  GiveComment(comment, found);
  Pf *reject = List(pf, kRejectList);
  if (reject == nullptr) return 1;
  Legit_reject = FirstMatch(reject, bytes, MatchesPeer, &found);
  if (Legit_reject < 0) return 1;
  GiveComment(comment, found);
  return 0;
}

int legit_ip_pf(Pf *pf, unsigned int ip, char **comment) {
  Legit_accept = Legit_reject = -1;
  if (comment != nullptr) *comment = nullptr;
  const in_addr_t address = ip;
  int result = 0;
  char *found = nullptr;
  Pf *valid = List(pf, kValidList);
  if (valid == nullptr) {
    elog_log(0, "failed to get valid_ip_addresses list");
  } else if ((Legit_accept = FirstMatch(valid, address, MatchesIpv4, &found)) >= 0) {
    GiveComment(comment, found);
    result = 1;
  }
  // The reject list is searched whatever the valid list said, and leaves the comment alone.
  Pf *reject = List(pf, kRejectList);
  if (reject != nullptr && (Legit_reject = FirstMatch(reject, address, MatchesIpv4, &found)) >= 0) {
    free(found);
    result = 0;
  }
  return result;
}

int legit_ip(const char *pfname, unsigned int ip, char **comment) {
  // A file with errors is not read in part: an access list applies whole or not at all.
  Pf *pf = nullptr;
  if (pfname == nullptr || pfread(pfname, &pf) < 0) {
    pffree(pf);
    if (comment != nullptr) *comment = nullptr;
    elog_log(0, "Can't read parameter file '%s'", okstr(pfname));
    return -1;
  }
  int result = legit_ip_pf(pf, ip, comment);
  pffree(pf);
  return result;
}

int legit_fd(const char *name, Pf *pf, int fd, char **comment) {
  struct sockaddr_storage peer;
  socklen_t length = sizeof peer;
  memset(&peer, 0, sizeof peer);
  if (getpeername(fd, reinterpret_cast<struct sockaddr *>(&peer), &length) < 0) {
    Legit_accept = Legit_reject = -1;
    if (comment != nullptr) *comment = nullptr;
    elog_notify(1, "Rejecting open from unknown source (getpeername failed)");
    return 0;
  }
  return legit_ipv6(name, pf, reinterpret_cast<struct sockaddr *>(&peer), comment);
}
