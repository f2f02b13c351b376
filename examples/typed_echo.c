/* A loopback server and its client exchanging typed values through buffered streams.
 *
 * The server listens on 127.0.0.1 at the port named "typed_echo" in orbserver_names.pf, accepts
 * one client with reaccept, checks its address against an access list, and sends back every
 * record it reads. The client opens the server by its name, "localhost:typed_echo", sends a
 * record of a station name, samples and a sample rate, and reads the echo back. On the wire
 * every number is big-endian, whatever the hosts are.
 *
 * Run it with the shipped parameter files on the path: VELMORA=/path/to/source typed_echo */
#include <arpa/inet.h>
#include <corvel.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#define NSAMPLES 5

/* Who may connect: the loopback network only. */
static const char access_list[] =
    "valid_ip_addresses &Tbl{\n"
    "    127.0.0.0   255.0.0.0   this host\n"
    "}\n"
    "reject_ip_addresses &Tbl{\n"
    "}\n";

/* One record: a station name ending in a newline, a sample count, the samples, the rate. */
static void put_record(Bns *bns, const char *station, int n, const int *samples, double rate) {
  buf2bns(bns, station, (long)strlen(station));
  buf2bns(bns, "\n", 1);
  bnsput(bns, &n, BNS_TYPE_INT32, 1);
  bnsput(bns, samples, BNS_TYPE_INT32, n);
  bnsput(bns, &rate, BNS_TYPE_DOUBLE, 1);
}

static int get_record(Bns *bns, char *station, long size, int *n, int *samples, double *rate) {
  if (bnsgetc(bns, station, size, '\n') < 0) return -1;
  if (bnsget(bns, n, BNS_TYPE_INT32, 1) != 0 || *n < 0 || *n > NSAMPLES) return -1;
  if (bnsget(bns, samples, BNS_TYPE_INT32, *n) != 0) return -1;
  return bnsget(bns, rate, BNS_TYPE_DOUBLE, 1);
}

static int serve(int listener) {
  struct sockaddr_storage peer;
  socklen_t length = sizeof peer;
  char address[64], station[64], *comment = NULL;
  int samples[NSAMPLES], n, fd;
  double rate;
  Pf *access = NULL;
  Bns *bns;

  fd = reaccept(listener, (struct sockaddr *)&peer, &length);
  if (fd < 0) elog_die(1, "accept failed");
  pfcompile(access_list, &access);
  zq_getpeername(fd, address);
  if (!legit_fd("typed_echo", access, fd, &comment)) {
    printf("server: refused %s\n", address);
    close(fd);
    return 1;
  }
  printf("server: accepted %s (%s)\n", address, comment ? comment : "no comment");
  free(comment);
  pffree(access);

  bns = bnsnew(fd, 4096);
  bnstimeout(bns, 5000);
  while (get_record(bns, station, sizeof station, &n, samples, &rate) == 0) {
    printf("server: %s, %d samples at %g Hz; echoing\n", station, n, rate);
    put_record(bns, station, n, samples, rate);
    if (bnsflush(bns) != 0) break;
  }
  return bnsclose(bns) == 0 ? 0 : 1;
}

static int client(void) {
  static const int sent[NSAMPLES] = {-3, 0, 70000, -2147483647, 12};
  char host[ZQ_NAME_SIZE], extra[ZQ_NAME_SIZE], station[64];
  int port, samples[NSAMPLES], n, i, fd;
  double rate;
  Bns *bns;

  fd = zq_open_socket2("localhost:typed_echo", "typed_echo", NULL, host, &port, extra);
  if (fd < 0) elog_die(0, "can't reach the server");
  bns = bnsnew(fd, 4096);
  bnstimeout(bns, 5000);
  put_record(bns, "IU.ANMO.BHZ", NSAMPLES, sent, 40.0);
  if (bnsflush(bns) != 0) elog_die(1, "can't send");
  if (get_record(bns, station, sizeof station, &n, samples, &rate) != 0) {
    elog_die(1, "no echo");
  }
  for (i = 0; i < n && samples[i] == sent[i]; i++) {
  }
  printf("client: connected to %s port %d (%s)\n", host, port, extra);
  printf("client: echo of %s: %d samples at %g Hz, %s\n", station, n, rate,
         i == NSAMPLES ? "all equal" : "DIFFERENT");
  bnsclose(bns);
  return i == NSAMPLES ? 0 : 1;
}

int main(int argc, char **argv) {
  struct sockaddr_in address;
  int listener, served, status, one = 1, port;
  pid_t pid;

  elog_init(argc, argv);
  setvbuf(stdout, NULL, _IOLBF, 0); /* the two processes' lines in the order they happen */
  /* Each accept attempt is reported at notify; this program keeps those in the register. */
  elog_set(ELOG_DELIVER, ELOG_NOTIFY, (char *)"log");
  port = zq_portnumber("typed_echo", NULL);
  if (port == 0) elog_die(0, "no port named typed_echo: is orbserver_names.pf on PFPATH?");

  listener = socket(AF_INET, SOCK_STREAM, 0);
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons((unsigned short)port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, (struct sockaddr *)&address, sizeof address) != 0 || listen(listener, 1)) {
    elog_die(1, "can't listen on 127.0.0.1 port %d", port);
  }
  printf("server: listening on 127.0.0.1 port %d\n", port);

  pid = fork();
  if (pid == 0) {
    close(listener);
    exit(client());
  }
  served = serve(listener);
  close(listener);
  waitpid(pid, &status, 0);
  return served == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}
