// Key paths as callers write them, on a small fixed tree: any bytes up to a terminator, walked
// for reading by every lookup and, on a copy of the tree, for writing by pfset and by
// pfresolve creating what is missing.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"

namespace {

// Arrays, lists, a list inside an array inside a list, an empty value, a key with a blank
// and a string with a &name reference to another key.
const char kTree[] =
    "sta AAK\n"
    "net II\n"
    "chan &Arr{\n"
    "    BHZ &Tbl{\n"
    "        40.0\n"
    "        &Arr{\n"
    "            gain 1.5e9\n"
    "        }\n"
    "    }\n"
    "    BHN 20\n"
    "}\n"
    "list &Tbl{\n"
    "    one\n"
    "    two\n"
    "    &Arr{\n"
    "        x 1\n"
    "    }\n"
    "}\n"
    "path /data/&sta/db\n"
    "empty\n";

Pf *Tree() {
  static Pf *tree = [] {
    Pf *pf = nullptr;
    if (pfcompile(kTree, &pf) != 0) abort();
    return pf;
  }();
  return tree;
}

// A walk that creates pads a list up to the index it names: a huge index would only measure
// the machine's memory, so writing walks are skipped for paths with long digit runs.
bool HasLongNumber(const char *path) {
  int run = 0;
  for (const char *p = path; *p != '\0'; p++) {
    run = (*p >= '0' && *p <= '9') ? run + 1 : 0;
    if (run > 3) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  char *path = static_cast<char *>(malloc(size + 1));
  memcpy(path, data, size);
  path[size] = '\0';
  Pf *tree = Tree();

  Pf *node;
  pfresolve(tree, path, 0, &node);
  pfhas_key(tree, path);
  char *text;
  if (pfeval(tree, path, &text) == 0 && text == nullptr) abort();
  void *value;
  pfget(tree, path, &value);
  Pf *chan;
  if (pfresolve(tree, "chan{BHZ}", 0, &chan) == PFTBL) {
    pfresolve(chan, path, 0, &node);  // a list takes the path as an index
    pfvalue(chan, path, &node);
  }

  if (!HasLongNumber(path)) {
    Pf *copy = pfdup(tree);
    pfset(copy, path, "set");
    pfresolve(copy, path, 1, &node);
    char *written = pf2string(copy);
    free(written);
    pffree(copy);
  }
  free(path);
  elog_clear();
  return 0;
}
