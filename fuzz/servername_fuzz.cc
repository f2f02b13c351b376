// Texts a server takes from people and configuration files: server names, port values, address
// texts and access-list entries. The first byte chooses the parser, the rest (up to a
// terminator) is its text. Nothing here opens a socket or resolves a name: the parsers only
// split and convert.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "corvel/elog.h"
#include "corvel/net.h"
#include "corvel/pf.h"
#include "corvel/tbl.h"

namespace {

std::string g_table_dir;

void RemoveTable() {
  unlink((g_table_dir + "/orbserver_names.pf").c_str());
  rmdir(g_table_dir.c_str());
}

// A small port-name table on PFPATH, so that names are found as well as missed, and the
// complaints of bad entries kept in the register rather than printed for every input.
void SetUpOnce() {
  static bool done = false;
  if (done) return;
  done = true;
  char pattern[] = "/tmp/servername_fuzz.XXXXXX";
  if (mkdtemp(pattern) == nullptr) abort();
  g_table_dir = pattern;
  FILE *table = fopen((g_table_dir + "/orbserver_names.pf").c_str(), "w");
  if (table == nullptr) abort();
  fputs("status 6540 state of health\nhexed 0x1976\nbig 70000\nemulate /bin/cat\n", table);
  fclose(table);
  atexit(RemoveTable);
  setenv("PFPATH", g_table_dir.c_str(), 1);
  char arg0[] = "servername_fuzz";
  char *argv[] = {arg0, nullptr};
  elog_init(1, argv);
  for (int severity : {ELOG_NOTIFY, ELOG_COMPLAIN}) {
    elog_set(ELOG_DELIVER, severity, const_cast<char *>("log"));
  }
  // A long list of bad entries keeps many complaints: the register is cleared after each input,
  // and must not end the process for holding them meanwhile.
  int unlimited = 0;
  elog_set(ELOG_MAXMSG, 0, &unlimited);
}

void CheckTerminated(const char *buffer) {
  if (memchr(buffer, '\0', ZQ_NAME_SIZE) == nullptr) abort();
}

void ServerName(const char *text) {
  char host[ZQ_NAME_SIZE], extra[ZQ_NAME_SIZE];
  int port = 0;
  int result = zq_parse_servername(text, "status", "emulate", host, &port, extra);
  CheckTerminated(host);
  CheckTerminated(extra);
  if (result < -1 || result > 1 || port < -2 || port > ZQ_MAX_PORT) abort();
  if (zq_portnumber(text, extra) > ZQ_MAX_PORT) abort();
  CheckTerminated(extra);
}

// The value, then after a newline the override.
void PortValue(char *text) {
  char *override = strchr(text, '\n');
  if (override != nullptr) *override++ = '\0';
  char extra[ZQ_NAME_SIZE];
  zq_parse_portvalue(text, override, extra);
  CheckTerminated(extra);
}

void Address(const char *text) {
  struct sockaddr_storage address = {};
  int family = zq_inet_family(text);
  int parsed = zq_inet_pton(text, reinterpret_cast<struct sockaddr *>(&address));
  if (parsed == 1 && address.ss_family != family) abort();
  char out[64];
  zq_inet_ntop(reinterpret_cast<struct sockaddr *>(&address), out, sizeof out);
  if (memchr(out, '\0', sizeof out) == nullptr) abort();
}

// Lines of the valid list, then after a line "--" the lines of the reject list, tested
// against both loopback addresses.
void AccessList(char *text) {
  Tbl *lists[2] = {newtbl(0), newtbl(0)};
  int which = 0;
  for (char *line = strtok(text, "\n"); line != nullptr; line = strtok(nullptr, "\n")) {
    if (strcmp(line, "--") == 0) {
      which = 1;
    } else {
      pushtbl(lists[which], line);
    }
  }
  Pf *pf = pfnew(PFFILE);
  pfput_tbl(pf, "valid_ip_addresses", lists[0]);
  pfput_tbl(pf, "reject_ip_addresses", lists[1]);
  freetbl(lists[0], nullptr);
  freetbl(lists[1], nullptr);
  for (const char *peer_text : {"127.0.0.1", "::1"}) {
    struct sockaddr_storage peer = {};
    zq_inet_pton(peer_text, reinterpret_cast<struct sockaddr *>(&peer));
    char *comment = nullptr;
    int result = legit_ipv6("fuzz", pf, reinterpret_cast<struct sockaddr *>(&peer), &comment);
    if (result != 0 && result != 1) abort();
    free(comment);
  }
  char *comment = nullptr;
  legit_ip_pf(pf, 0x0100007f, &comment);
  free(comment);
  pffree(pf);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  SetUpOnce();
  char *text = static_cast<char *>(malloc(size));
  memcpy(text, data + 1, size - 1);
  text[size - 1] = '\0';
  switch (data[0] % 4) {
    case 0:
      ServerName(text);
      break;
    case 1:
      PortValue(text);
      break;
    case 2:
      Address(text);
      break;
    default:
      AccessList(text);
      break;
  }
  free(text);
  elog_clear();
  return 0;
}
