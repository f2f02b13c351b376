/* A program that remembers: how many times it has run, when it last ran and where, kept in a
 * state file across restarts. Run it twice and the second run shows what the first left.
 *
 *   graveyard [STATE_FILE]     (default: state/graveyard)
 *
 * The values are written back whenever the program ends through the log (elog_die) or is asked
 * to stop by SIGHUP, SIGINT, SIGQUIT or SIGTERM, and here at the end of each run with bury. */
#include <corvel.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
  const char *state = argc > 1 ? argv[1] : "state/graveyard";
  int runs = 0;
  double last_seen = 0;
  char *last_host = NULL;
  char host[256];
  int quit = 0;
  char *text;

  elog_init(argc, argv);
  /* With a quit flag and no delay, a termination signal writes the values and exits at once. */
  switch (exhume(state, &quit, 0, NULL)) {
    case 0:
      printf("new state file %s\n", state);
      break;
    case 1:
      printf("state file %s found\n", state);
      break;
    case 2:
      elog_complain(0, "%s is not a state file: starting afresh", state);
      break;
    default:
      elog_die(0, "can't open the state file %s", state);
  }
  /* A relic the file does not hold keeps the value it has here. */
  resurrect("runs", &runs, RELIC_INT);
  resurrect("last_seen", &last_seen, RELIC_TIME);
  resurrect("last_host", &last_host, RELIC_STRING);
  if (runs > 0) {
    text = strtime(last_seen);
    printf("  run %d: last seen %s UTC on %s\n", runs + 1, text, last_host);
    free(text);
  } else {
    printf("  first run: nothing remembered yet\n");
  }

  runs++;
  last_seen = std_now();
  last_host = my_hostname(host, sizeof host);
  if (bury() != 0) elog_die(0, "can't write the state file %s", state);
  printf("  remembered run %d for next time\n", runs);
  return 0;
}
