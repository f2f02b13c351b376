// The deferred &functions that pfinterpret dispatches to. Each is given the function node and
// its text with &name substitution already done, and returns a new node (parent and file name
// are set by the caller), or null when the function yields nothing.
#ifndef CORVEL_PF_FUNCTIONS_H_
#define CORVEL_PF_FUNCTIONS_H_

#include "corvel/pf.h"

namespace corvel {
namespace pf {

Pf *EvaluateExec(Pf *node, const char *text);
Pf *EvaluateGlob(Pf *node, const char *text);
Pf *EvaluateFile(Pf *node, const char *text);
Pf *EvaluateFilename(Pf *node, const char *text);
Pf *EvaluateDatafile(Pf *node, const char *text);
Pf *EvaluateDatafilename(Pf *node, const char *text);
Pf *EvaluateEnv(Pf *node, const char *text);
Pf *EvaluateAsk(Pf *node, const char *text);
Pf *EvaluateRef(Pf *node, const char *text);

// A new string of what stands between the first '(' of text and its last ')'; the rest of
// the text after the '(' when no ')' follows it, and "" when there is no '('.
char *FunctionArgument(const char *text);

// A new invalid node whose text is format with text in place of its one %s.
Pf *NewInvalidNode(const char *format, const char *text);

}  // namespace pf
}  // namespace corvel

#endif  // CORVEL_PF_FUNCTIONS_H_
