/* A first program on libcorvel: set up the message log, report at several severities, keep
 * messages in the register and deliver them when the program decides to. */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <corvel.h>

int main(int argc, char **argv) {
  Tbl *stations;
  char *joined;
  int mark;
  long i;

  elog_init(argc, argv);
  elog_notify(0, "starting up as %s", Program_Name);

  /* Lists hold pointers and grow at both ends. */
  stations = strtbl("ANMO", "COLA", "KONO", NULL);
  unshifttbl(stations, "BFO");
  pushtbl(stations, "TAM");
  joined = jointbl(stations, ", ");
  elog_notify(0, "%ld stations: %s", maxtbl(stations), joined);
  free(joined);

  /* Severity log keeps messages in the register until the program delivers or clears them. */
  mark = elog_mark();
  for (i = 0; i < maxtbl(stations); i++) {
    elog_log(0, "checked station %s", (char *)gettbl(stations, i));
  }
  elog_log(0, "checked station %s", (char *)gettbl(stations, i - 1)); /* a repeat is counted */
  printf("the register holds %d messages\n", elog_mark() - mark);
  elog_flush(1, mark); /* deliver them to the complain destinations (stderr) */

  /* A failure with errno: the system's text follows the message. */
  if (fopen("/nonexistent/station.list", "r") == NULL) {
    elog_complain(1, "can't open the station list");
  }
  elog_alert(0, "this is an alert");

  /* Kept messages can also be discarded. */
  elog_log(0, "a note nobody needs");
  elog_clear();

  freetbl(stations, NULL);
  elog_notify(0, "done");
  return 0;
}
