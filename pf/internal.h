// State and helpers shared by the files of the parameter-file family.
#ifndef CORVEL_PF_INTERNAL_H_
#define CORVEL_PF_INTERNAL_H_

#include "corvel/pf.h"

namespace corvel {
namespace pf {

// The word messages use for a node type: "scalar", "scalar", "table", "array", "undefined",
// "invalid", "pf-function" for 0 to 6; any other code reads as the last word.
const char *TypeName(int type);

// A copy of name that lives as long as the process, the same pointer for equal names: nodes
// keep the name of the file they were read from without owning it, and the tree may outlive
// every string its reader was given.
const char *InternFilename(const char *name);

// The name of the file this thread is reading now ("" when none), which pfnew gives each new
// node. Only the reader sets it, around each read.
const char *CurrentReadFilename();
void SetCurrentReadFilename(const char *interned_name);

// Raises Pf_busy for a scope: a parameter-file operation is under way, so that the message
// log does not start reading its own parameter file from inside one.
class BusyScope {
 public:
  BusyScope();
  ~BusyScope();
  BusyScope(const BusyScope &) = delete;
  BusyScope &operator=(const BusyScope &) = delete;
};

// The key as a list index, for functions whose key names an index in a list.
inline long KeyIndex(const char *key) { return static_cast<long>(reinterpret_cast<intptr_t>(key)); }

// A new node of the type with no value yet, its file name the one being read, and extra bytes
// of room after it; pfnew then gives containers their empty value.
Pf *NewBareNode(int type, size_t extra);

// A new string node holding a copy of text (none when text is null), its parent set.
Pf *NewStringNode(const char *text, Pf *parent);

// A new string node whose text, a copy of length bytes of text, lives in the node's own
// allocation: the reader makes one for every value it reads, and one allocation is half the
// cost of two. Such a text is never freed on its own; change a node's text with SetNodeText.
Pf *NewInlineStringNode(const char *text, size_t length);
// Replaces the text of a string node with owned_text (which the node takes over), freeing the
// earlier text unless it lives in the node.
void SetNodeText(Pf *pf, char *owned_text);

}  // namespace pf
}  // namespace corvel

#endif  // CORVEL_PF_INTERNAL_H_
