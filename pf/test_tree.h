// For the parameter-file tests: random trees of arrays, lists, strings and functions, a few
// levels deep, with keys and texts of the test's choosing.
#ifndef CORVEL_PF_TEST_TREE_H_
#define CORVEL_PF_TEST_TREE_H_

#include <random>
#include <string>

#include "corvel/pf.h"

namespace corvel {
namespace pf {

using TextMaker = std::string (*)(std::mt19937 &random);

inline Pf *RandomTree(std::mt19937 &random, int depth, TextMaker key, TextMaker text) {
  Pf *pf = pfnew(depth == 0 ? PFFILE : random() % 2 ? PFARR : PFTBL);
  int n = 1 + random() % 5;
  for (int i = 0; i < n; i++) {
    std::string name = key(random);
    const char *where = pf->type == PFTBL ? PF_INDEX(i) : name.c_str();
    switch (depth < 3 ? random() % 4 : random() % 2) {
      case 0:
        pfput_string(pf, where, text(random).c_str());
        break;
      case 1:
        pfput(pf, where, const_cast<char *>("&env(HOME)"), PFFCT);
        break;
      default:
        pfput(pf, where, RandomTree(random, depth + 1, key, text), PFPF);
        break;
    }
  }
  return pf;
}

}  // namespace pf
}  // namespace corvel

#endif  // CORVEL_PF_TEST_TREE_H_
