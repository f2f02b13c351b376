/* Proves the C interface of the installed library from a strict C99 program. */
#include <corvel.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

static void check(int ok, const char *what) {
  if (!ok) {
    fprintf(stderr, "c_abi_test: FAILED: %s\n", what);
    failures++;
  }
}

static int by_text(void *a, void *b, void *private_data) {
  (void)private_data;
  return strcmp(*(char **)a, *(char **)b);
}

int main(int argc, char **argv) {
  Tbl *t;
  char *s;
  long first = 0, last = 0;
  double values[3] = {1.5, 2.5, 3.5};
  Tbl *direct;
  int count = -1;

  elog_init(argc, argv);
  check(strcmp(Program_Name, "c_abi_test") == 0, "Program_Name");

  t = strtbl("KONO", "ANMO", "COLA", NULL);
  unshifttbl(t, "TAM");
  sorttbl(t, by_text, NULL);
  s = jointbl(t, ",");
  check(strcmp(s, "ANMO,COLA,KONO,TAM") == 0, "sorted list");
  free(s);
  {
    char *key = "KONO";
    check(searchtbl(&key, t, by_text, NULL, &first, &last) == 1 && first == 2 && last == 2,
          "searchtbl");
  }
  check(gettbl(t, -1) == NULL && gettbl(t, 4) == NULL, "reads out of range");
  freetbl(t, NULL);

  direct = inittbl(0, 2, 1, NULL, sizeof(double));
  pushtbl(direct, &values[0]);
  pushtbl(direct, &values[1]);
  unshifttbl(direct, &values[2]);
  check(*(double *)gettbl(direct, 0) == 3.5 && *(double *)gettbl(direct, 2) == 2.5, "direct");
  freetbl(direct, NULL);

  elog_log(0, "one %d", 1);
  elog_log(0, "one %d", 1);
  errno = ENOENT;
  elog_log(1, "two");
  check(errno == 0, "errno cleared");
  s = elog_string(0);
  check(strcmp(s,
               "c_abi_test: one 1\n\t** repeated 2 times\nc_abi_test: two\n"
               "\tNo such file or directory\n") == 0,
        "register text");
  free(s);
  elog_query(ELOG_COUNT, 0, &count);
  check(count == 2, "ELOG_COUNT");
  elog_clear();
  check(elog_mark() == 0, "elog_clear");

  {
    Pf *pf = NULL, *node = NULL;
    Tbl *bands;
    check(pfcompile("rate 40\nsta &Arr{\n  ANMO &Tbl{\n    BHZ\n    BHN\n  }\n}\n", &pf) == 0,
          "pfcompile");
    check(pfget_int(pf, "rate") == 40, "pfget_int");
    check(strcmp(pfget_string(pf, "sta{ANMO}[1]"), "BHN") == 0, "key path");
    check(pfresolve(pf, "sta{ANMO}[2]", 0, &node) == PF_NOT_FOUND, "pfresolve");
    pfput_string(pf, "net", "IU");
    check(pfset(pf, "new{list}[0]", "x") == 0 && strcmp(pfget_string(pf, "new{list}[0]"), "x") == 0,
          "pfset");
    bands = pfget_tbl(pf, "sta{ANMO}");
    check(maxtbl(bands) == 2, "pfget_tbl");
    freetbl(bands, NULL);
    s = pf2string(pf);
    check(strcmp(s,
                 "net\tIU\nnew\t&Arr{\nlist\t&Tbl{\nx\n}\n}\nrate\t40\n"
                 "sta\t&Arr{\nANMO\t&Tbl{\nBHZ\nBHN\n}\n}\n") == 0,
          "pf2string");
    free(s);
    pffree(pf);
  }

  s = elogstr(ELOG_ALERT, 0, "watch %s", "out");
  check(strcmp(s, "c_abi_test *alert*: watch out\n") == 0, "elogstr");
  free(s);

  {
    /* A fresh state file: the relic keeps its value and is written out. */
    int runs = 5;
    remove("abi_state/c_abi_test");
    check(exhume("abi_state/c_abi_test", NULL, 0, NULL) == 0, "exhume");
    check(resurrect("runs", &runs, RELIC_INT) == 1 && runs == 5, "resurrect");
    check(bury() == 0 && strcmp(gravesite(), "abi_state/c_abi_test") == 0, "bury");
  }

  {
    /* Samples through two codecs and back; a digest and a CRC of known answers. */
    int samples[21] = {0, 1, -1, 70000, -70000, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 9};
    unsigned char *coded = NULL;
    int *decoded = NULL, ncoded = 0, size = 0, ndecoded = 0, dsize = 0;
    char hex[33];
    uint32_t crc = 0xFFFFFFFF;
    check(gencompress(&coded, &ncoded, &size, samples, 21, 0) == 0 &&
              genuncompress(&decoded, &ndecoded, &dsize, coded, ncoded) == 0 && ndecoded == 21 &&
              memcmp(decoded, samples, sizeof samples) == 0,
          "gencompress");
    free(coded), free(decoded);
    coded = NULL, decoded = NULL, size = dsize = ndecoded = 0;
    check(ccanada(samples, 21, &coded, &ncoded, &size) == 0 &&
              ucanada(coded, ncoded, &decoded, &ndecoded, &dsize) == 0 && ndecoded == 20 &&
              memcmp(decoded, samples, sizeof samples) == 0,
          "ccanada");
    free(coded), free(decoded);
    mdhex(hex, "abc", 3);
    check(strcmp(hex, "900150983cd24fb0d6963f7d28e17f72") == 0, "mdhex");
    zq_crc32(&crc, "123456789", 9);
    check(crc == 0x0376E6E7u, "zq_crc32");
  }

  {
    /* A ring of three readings, mapped from its file. */
    char id[64] = "abi ring";
    Ring *ring;
    int n = 0;
    double mean = 0, stdev = 0;
    remove("abi_ring");
    ring = openring("abi_ring", id, 8, 0);
    check(ring != NULL && pushring(ring, 1.0, 2.0) == 0 && pushring(ring, 2.0, 4.0) == 0 &&
              pushring(ring, 3.0, 6.0) == 0 && countring(ring) == 3,
          "pushring");
    check(ring != NULL && meanring(ring, &n, &mean, &stdev, 10.0) == 0 && n == 3 && mean == 4.0,
          "meanring");
    if (ring != NULL) check(rmring(ring) == 0, "rmring");
  }

  if (failures == 0) printf("c_abi_test: ok\n");
  return failures == 0 ? 0 : 1;
}
