// Finding the installation root from the running program's location. Internal.
#ifndef CORVEL_FILES_VELMORA_H_
#define CORVEL_FILES_VELMORA_H_

namespace corvel {
namespace files {

// The installation root a program belongs to when it is installed as <root>/bin/<name>: a new
// string, or null when the program's directory is not such a "bin". program is the program's
// path: one with a '/' is made absolute (symbolic links resolved when it exists), one without
// is looked up along PATH (not found when PATH is unset).
char *RootFromProgramPath(const char *program);

}  // namespace files
}  // namespace corvel

#endif  // CORVEL_FILES_VELMORA_H_
