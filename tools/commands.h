// The corvel command's subcommands. Each is given the arguments that follow its own name and
// returns the exit status.
#ifndef CORVEL_TOOLS_COMMANDS_H_
#define CORVEL_TOOLS_COMMANDS_H_

#include <string.h>

namespace corvel {
namespace tools {

// The exit status of a command line that cannot be understood.
constexpr int kUsageError = 2;

inline bool IsHelp(const char *arg) { return strcmp(arg, "--help") == 0 || strcmp(arg, "-h") == 0; }

// Reads a time given on a command line: a number is an epoch, anything else goes to the time
// parser, whose message goes to stderr when it fails.
bool ReadTime(const char *text, double *epoch);

int CodecCommand(int argc, char **argv);
int PfCommand(int argc, char **argv);
int RingCommand(int argc, char **argv);
int SumCommand(int argc, char **argv);
int TimeCommand(int argc, char **argv);
int UnitsCommand(int argc, char **argv);

}  // namespace tools
}  // namespace corvel

#endif  // CORVEL_TOOLS_COMMANDS_H_
