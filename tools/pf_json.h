// A parameter-file tree as JSON, for programs that do not read parameter files themselves.
#ifndef CORVEL_TOOLS_PF_JSON_H_
#define CORVEL_TOOLS_PF_JSON_H_

#include <string>

#include "corvel/pf.h"

namespace corvel {
namespace tools {

// The node as a JSON text with a final newline, two blanks per level: arrays and files as
// objects in key order, lists as JSON arrays, strings as their &name-substituted text, and
// functions as what they yield. An entry that yields nothing is left out of its object (it
// reads as absent) and is null in a list; so is a value that is not valid. Bytes that are not
// UTF-8 become U+FFFD, so that the text is always valid JSON.
std::string PfJson(Pf *node);

}  // namespace tools
}  // namespace corvel

#endif  // CORVEL_TOOLS_PF_JSON_H_
