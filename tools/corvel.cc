// The corvel command: the library's conversions at the shell. Each subcommand lives in a file
// of its own; this one finds it by name.
#include <stdio.h>
#include <string.h>

#include "commands.h"
#include "corvel/elog.h"

namespace {

using corvel::tools::IsHelp;
using corvel::tools::kUsageError;

struct Command {
  const char *name;
  const char *summary;
  int (*run)(int argc, char **argv);
};

constexpr Command kCommands[] = {
    {"codec", "samples into and out of the waveform formats: gen, canada, cm6, ucsd",
     corvel::tools::CodecCommand},
    {"pf", "print parameter files as programs read them, one value of them, or check them",
     corvel::tools::PfCommand},
    {"ring", "ring files of readings: create one, push readings, show their statistics",
     corvel::tools::RingCommand},
    {"sum", "checksums and digests of files: CRCs, Adler-32, MD4, MD5, SHA-1",
     corvel::tools::SumCommand},
    {"time", "convert times typed by people into epochs, and epochs into text",
     corvel::tools::TimeCommand},
    {"units", "values from one unit of measure to another, and the units compatible with one",
     corvel::tools::UnitsCommand},
};

void PrintUsage(FILE *stream) {
  fputs("usage: corvel COMMAND [ARGUMENTS]\n\ncommands:\n", stream);
  for (const Command &command : kCommands) {
    fprintf(stream, "  %-7s %s\n", command.name, command.summary);
  }
  fputs("\ncorvel COMMAND --help explains a command.\n", stream);
}

}  // namespace

int main(int argc, char **argv) {
  elog_init(argc, argv);
  if (argc < 2) {
    PrintUsage(stderr);
    return kUsageError;
  }
  if (IsHelp(argv[1])) {
    PrintUsage(stdout);
    return 0;
  }
  for (const Command &command : kCommands) {
    if (strcmp(argv[1], command.name) == 0) return command.run(argc - 2, argv + 2);
  }
  fprintf(stderr, "corvel: unknown command '%s'\n\n", argv[1]);
  PrintUsage(stderr);
  return kUsageError;
}
