// Port names: the table read from "orbserver_names", and port numbers by name and back.
#include "net/portname.h"

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/arr.h"
#include "corvel/elog.h"
#include "corvel/net.h"
#include "corvel/pf.h"
#include "corvel/text.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "zq_portnumber.c";

namespace corvel {
namespace net {
namespace {

constexpr char kTableName[] = "orbserver_names";

// The table, read once and never changed afterwards, so that lookups need no lock: port name
// -> a copy of its value's text, or null for an entry that is not a string.
pthread_mutex_t g_table_mutex = PTHREAD_MUTEX_INITIALIZER;
Arr *g_table = nullptr;

// Copies the values once, expanded: a lookup then reads plain text and never touches the tree,
// whose expansion caches change as they are read.
Arr *ReadTable() {
  Arr *table = newarr(nullptr);
  if (table == nullptr) DieOutOfMemory(__func__, __LINE__, kSourceName, sizeof(Arr), "table");
  Pf *pf = nullptr;
  int saved_errno = errno;
  pfread(kTableName, &pf);
  if (pf != nullptr) {
    Tbl *keys = pfkeys(pf);
    for (long i = 0; i < maxtbl(keys); i++) {
      const char *key = static_cast<const char *>(gettbl(keys, i));
      void *value = nullptr;
      char *text = nullptr;
      if (pfget(pf, key, &value) == PFSTRING && value != nullptr) {
        text = CV_STRDUP(static_cast<const char *>(value), "port value");
      }
      setarr(table, key, text);
    }
    freetbl(keys, nullptr);
  }
  pffree(pf);
  errno = saved_errno;
  return table;
}

// Copies text into extra (a 64-byte buffer), trimmed and cut to 63 characters.
void SetExtra(char *extra, const char *text) {
  if (extra == nullptr) return;
  while (*text == ' ' || *text == '\t' || *text == '\n') text++;
  size_t n = strnlen(text, ZQ_NAME_SIZE - 1);
  memcpy(extra, text, n);
  extra[n] = '\0';
  strtrim(extra);
}

// An int from the leading number of text in base, clamped to the int range so that an
// absurdly long number reads as too large, not as whatever its low bits hold.
int LeadingNumber(const char *text, int base, const char **end) {
  errno = 0;
  char *stop;
  long n = strtol(text, &stop, base);
  if (end != nullptr) *end = stop;
  if (n > INT_MAX) return INT_MAX;
  if (n < INT_MIN) return INT_MIN;
  return static_cast<int>(n);
}

}  // namespace

Arr *PortTable() {
  // A plain load of the pointer would race with the store; the lock makes the first read
  // happen once and publishes the finished table.
  pthread_mutex_lock(&g_table_mutex);
  if (g_table == nullptr) g_table = ReadTable();
  Arr *table = g_table;
  pthread_mutex_unlock(&g_table_mutex);
  return table;
}

}  // namespace net
}  // namespace corvel

using corvel::net::PortTable;

int zq_parse_portvalue(const char *value, const char *extra_override, char *extra) {
  if (extra != nullptr) extra[0] = '\0';
  if (value == nullptr) return 0;
  const char *rest;
  int saved_errno = errno;
  int number = corvel::net::LeadingNumber(value, 0, &rest);
  errno = saved_errno;
  if (extra_override != nullptr && !whitespace(extra_override)) {
    corvel::net::SetExtra(extra, extra_override);
  } else if (!whitespace(rest)) {
    corvel::net::SetExtra(extra, rest);
  }
  return number;
}

int zq_portnumber(const char *portname, char *extra) {
  if (extra != nullptr) extra[0] = '\0';
  Arr *table = PortTable();
  if (portname == nullptr || portname[0] == '\0') {
    elog_log(0, "port name unspecified");
    return 0;
  }
  char name[ZQ_NAME_SIZE];
  size_t n = strnlen(portname, sizeof name - 1);
  memcpy(name, portname, n);
  name[n] = '\0';
  const char *override = nullptr;
  if (char *colon = strchr(name, ':')) {
    *colon = '\0';
    override = colon + 1;
  }

  int number;
  const char *value = static_cast<const char *>(getarr(table, name));
  if (value != nullptr) {
    number = zq_parse_portvalue(value, override, extra);
  } else {
    int saved_errno = errno;
    number = corvel::net::LeadingNumber(name, 10, nullptr);
    errno = saved_errno;
    if (number != 0 && override != nullptr && !whitespace(override)) {
      corvel::net::SetExtra(extra, override);
    }
  }
  // A negative number is no port either; it is reported as a name not understood.
  if (number <= 0) {
    if (value == nullptr || number < 0) elog_log(0, "Don't understand orbserver port '%s'", name);
    return 0;
  }
  if (number > ZQ_MAX_PORT) {
    elog_log(0, "port number is %d, but must be less than %d", number, ZQ_MAX_PORT);
    return 0;
  }
  return number;
}

Tbl *zq_portnames(void) {
  Tbl *names = keysarr(PortTable());
  return names != nullptr ? names : newtbl(0);
}

Tbl *zq_portbynumber(int number) {
  Tbl *names = newtbl(0);
  Tbl *keys = keysarr(PortTable());
  for (long i = 0; i < maxtbl(keys); i++) {
    const char *key = static_cast<const char *>(gettbl(keys, i));
    const char *value = static_cast<const char *>(getarr(PortTable(), key));
    if (value == nullptr) continue;
    if (zq_parse_portvalue(value, nullptr, nullptr) == number) {
      pushtbl(names, CV_STRDUP(key, "port name"));
    }
  }
  freetbl(keys, nullptr);
  return names;
}
