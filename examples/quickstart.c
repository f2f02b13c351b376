/* A first program on libcorvel, along the path of a typical request: set up the message log,
 * read its parameter file, keep data in lists and associative arrays, read times typed by
 * people, format times, and report through the log. Run it where quickstart.pf is, or with
 * PFPATH naming that directory. */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <corvel.h>

/* Reads quickstart.pf: a time, a list and a nested array value by key path, a function and a
 * substitution. */
static void show_parameters(void) {
  Pf *pf = NULL;
  Tbl *stations;
  char *text;
  long i;

  if (pfread("quickstart", &pf) != 0) {
    elog_complain(0, "can't read quickstart.pf: run this program where it is, or set PFPATH");
    return;
  }
  text = strtime(pfget_time(pf, "start_time"));
  printf("parameter file: network %s, start time %s\n", pfget_string(pf, "network"), text);
  free(text);
  stations = pfget_tbl(pf, "stations");
  printf("  %ld stations:", maxtbl(stations));
  for (i = 0; i < maxtbl(stations); i++) printf(" %s", (char *)gettbl(stations, i));
  printf("\n");
  freetbl(stations, NULL);
  printf("  ANMO BHZ: %ld samples/s, gain %g\n", pfget_int(pf, "channels{ANMO}{BHZ}{samprate}"),
         pfget_double(pf, "channels{ANMO}{BHZ}{gain}"));
  printf("  home (from &env(HOME)): %s\n", pfget_string(pf, "home"));
  printf("  archive (with &network substituted): %s\n", pfget_string(pf, "archive"));
  pffree(pf);
}

static void print_station(char *key, void *value, void *private_data) {
  (void)private_data;
  printf("  %-5s %s\n", key, (char *)value);
}

int main(int argc, char **argv) {
  Tbl *stations, *fields;
  Arr *channels;
  char *joined, *text, *dir;
  char line[] = "ANMO  BHZ 00";
  char number[32];
  double t;
  int mark;
  long i;

  elog_init(argc, argv);
  elog_notify(0, "starting up as %s", Program_Name);
  show_parameters();

  /* Lists hold pointers and grow at both ends. */
  stations = strtbl("ANMO", "COLA", "KONO", NULL);
  unshifttbl(stations, "BFO");
  pushtbl(stations, "TAM");
  joined = jointbl(stations, ", ");
  elog_notify(0, "%ld stations: %s", maxtbl(stations), joined);
  free(joined);

  /* Associative arrays keep their keys in order. */
  channels = newarr(NULL);
  setarr(channels, "KONO", "BHZ BHN BHE");
  setarr(channels, "ANMO", "BHZ");
  setarr(channels, "COLA", "LHZ");
  printf("channels by station:\n");
  applyarr(channels, print_station, NULL);
  freearr(channels, NULL);

  /* Text helpers: split in place, compact numbers, environment expansion. */
  fields = split(line, ' ');
  printf("%ld fields, first %s; 1.5e11 prints as %s\n", maxtbl(fields),
         (char *)gettbl(fields, 0), strdbl(number, 1.5e11));
  freetbl(fields, NULL);
  dir = expand_env("$HOME/corvel-quickstart");
  printf("a directory under $HOME: %s\n", dir);
  free(dir);

  /* Times typed by people become epochs; epochs become text in UTC, the site format or a zone. */
  if (zstr2epoch("Feb 1, 2024 07:05:09.047", &t) == 0) {
    text = epoch2str("%Y-%m-%d (%j) %H:%M:%S.%s %Z", t);
    printf("%.3f is %s\n", t, text);
    free(text);
    text = strtime(t);
    printf("in the site format: %s\n", text);
    free(text);
    text = zepoch2str("%A %o %B %Y %H:%M %Z", "Asia/Kathmandu", t);
    printf("in Kathmandu: %s\n", text);
    free(text);
  }
  text = epoch2str("%Y-%m-%d %H:%M:%S UTC", std_now());
  printf("now: %s\n", text);
  free(text);
  text = strtdelta(str2epoch("now") - str2epoch("2024-01-01"));
  printf("since 2024 began:%s\n", text);
  free(text);

  /* Severity log keeps messages in the register until the program delivers or clears them. */
  mark = elog_mark();
  for (i = 0; i < maxtbl(stations); i++) {
    elog_log(0, "checked station %s", (char *)gettbl(stations, i));
  }
  elog_log(0, "checked station %s", (char *)gettbl(stations, i - 1)); /* a repeat is counted */
  printf("the register holds %d messages\n", elog_mark() - mark);
  elog_flush(1, mark); /* deliver them to the complain destinations (stderr) */

  /* A time that cannot be read is reported through the log. */
  if (zstr2epoch("2024-2-1", &t) != 0) elog_flush(1, 0);

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
