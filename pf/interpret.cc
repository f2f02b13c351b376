// Evaluating deferred &functions, and printing one entry of a parameter file.
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "elog/oom.h"
#include "pf/functions.h"
#include "pf/internal.h"

static constexpr char kSourceName[] = "pfinterpret.c";

namespace corvel {
namespace pf {
namespace {

// A function may yield another function, which is evaluated in turn, and a function's
// evaluation may need others (a &ref whose entry is itself a function): both chains stop
// after this many evaluations.
constexpr int kMaxEvaluations = 4;

// Evaluations under way on this thread, one inside another.
thread_local int t_nested_evaluations = 0;

using Evaluator = Pf *(*)(Pf *node, const char *text);

struct Function {
  const char *prefix;
  Evaluator evaluate;
};

Pf *YieldNothing(Pf *, const char *) { return nullptr; }

// Prefixes are compared as written: "&ask" takes any text that begins so, and "&unde" is all
// of &undef( that is compared.
constexpr Function kFunctions[] = {
    {"&exec(", EvaluateExec},
    {"&glob(", EvaluateGlob},
    {"&file(", EvaluateFile},
    {"&datafile(", EvaluateDatafile},
    {"&filename(", EvaluateFilename},
    {"&datafilename(", EvaluateDatafilename},
    {"&env(", EvaluateEnv},
    {"&ref(", EvaluateRef},
    {"&ask", EvaluateAsk},
    {"&unde", YieldNothing},
};

// The program's own functions: a function named pfuser that the program exports, called as
// pfuser(node, text) and returning a new node, or null for a function it does not know.
using UserMethod = Pf *(*)(Pf *node, const char *expression);

Pf *EvaluateUserFunction(Pf *node, const char *text) {
  auto method = reinterpret_cast<UserMethod>(dlsym(RTLD_DEFAULT, "pfuser"));
  Pf *result = method != nullptr ? method(node, text) : nullptr;
  // A method that hands back its own node has made nothing the record could own.
  if (result == nullptr || result == node) result = pfnew(PFINVALID);
  return result;
}

Pf *Evaluate(Pf *node) {
  // A private copy: a nested evaluation of the same node would replace its expanded text.
  const char *expanded = pfexpand(node);
  if (expanded == nullptr) expanded = node->value.pffunct->expression;
  char *text = CV_STRDUP(expanded != nullptr ? expanded : "", "pf function");
  Evaluator evaluate = EvaluateUserFunction;
  for (const Function &function : kFunctions) {
    if (strncmp(text, function.prefix, strlen(function.prefix)) == 0) {
      evaluate = function.evaluate;
      break;
    }
  }
  Pf *result = evaluate(node, text);
  free(text);
  return result;
}

// Makes result the cached result of the function node, in place of the earlier one. A result
// sits where the function stands; a copied entry keeps the file name it came from.
Pf *KeepResult(Pf *node, Pf *result) {
  Pffunct *record = node->value.pffunct;
  if (record->result != result) pffree(record->result);
  record->result = result;
  if (result != nullptr) {
    result->parent = node->parent;
    if (result->filename == nullptr || result->filename[0] == '\0') {
      result->filename = node->filename;
    }
  }
  return result;
}

Pf *TooDeep(Pf *node) { return KeepResult(node, NewStringNode("pf recursion too deep", nullptr)); }

}  // namespace
}  // namespace pf
}  // namespace corvel

Pf *pfinterpret(Pf *pf) {
  using corvel::pf::t_nested_evaluations;
  if (pf == nullptr || pf->type != PFFCT) return pf;
  if (t_nested_evaluations >= corvel::pf::kMaxEvaluations) return corvel::pf::TooDeep(pf);
  t_nested_evaluations++;
  // Each result is kept in the record of the function that yielded it, so the first node's
  // record owns the whole chain.
  Pf *node = pf;
  for (int pass = 0; node != nullptr && node->type == PFFCT; pass++) {
    if (pass == corvel::pf::kMaxEvaluations) {
      node = corvel::pf::TooDeep(node);
      break;
    }
    node = corvel::pf::KeepResult(node, corvel::pf::Evaluate(node));
  }
  t_nested_evaluations--;
  return node;
}

int pfprint(const char *name, const char *key) {
  Pf *pf = nullptr;
  if (pfread(name, &pf) < 0) {
    elog_log(0, "Can't read parameter file %s", name);
    pffree(pf);
    return -1;
  }
  char *text = nullptr;
  int result = 0;
  if (pfeval(pf, key, &text) == 0 && text != nullptr) {
    printf("%s\n", text);
  } else {
    elog_log(0, "no entry '%s' in parameter file %s", key, name);
    result = -1;
  }
  pffree(pf);
  return result;
}
