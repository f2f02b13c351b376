// Accepting a connection again when a signal interrupts the wait.
#include <errno.h>
#include <sys/socket.h>

#include "corvel/elog.h"
#include "corvel/net.h"

int reaccept(int fd, struct sockaddr *address, socklen_t *length) {
  int accepted;
  int accept_errno;
  do {
    errno = 0;  // a success then reports errno=0, not what an earlier call left
    accepted = accept(fd, address, length);
    accept_errno = errno;
    elog_notify(0, "reaccept: fd=%d errno=%d", fd, accept_errno);
  } while (accepted < 0 && accept_errno == EINTR);
  errno = accept_errno;  // logging clears errno; the caller needs accept's
  return accepted;
}

// Named for what its callers do after a lost connection, but it accepts: they are servers.
int reconnect(int fd, struct sockaddr *address, socklen_t *length) {
  int accepted;
  do {
    errno = 0;  // only this call's EINTR may repeat it
    accepted = accept(fd, address, length);
  } while (errno == EINTR);
  return accepted;
}
