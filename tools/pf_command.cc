// corvel pf: parameter files at the shell. Prints the tree that a program reading NAME gets,
// one value of it as a program's getter sees it, the tree as JSON, or the files the search
// finds, and checks files for errors.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "commands.h"
#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/pf.h"
#include "pf_json.h"

namespace corvel {
namespace tools {
namespace {

const char kPfSynopsis[] =
    "usage: corvel pf [-t TYPE] NAME [KEYPATH]\n"
    "       corvel pf --json NAME [KEYPATH]\n"
    "       corvel pf --files [--all] NAME\n"
    "       corvel pf --check FILE...\n";

const char kPfHelp[] =
    "\n"
    "Reads the parameter file NAME as a program does: every NAME.pf along PFPATH (directories\n"
    "separated by ':'; when it is not set, the installation's data/pf, then the current\n"
    "directory), merged so that a later file's keys replace an earlier one's.\n"
    "\n"
    "Without KEYPATH, prints the merged tree as parameter-file text, four blanks per level.\n"
    "With KEYPATH (a key, then {key} and [index] selectors: stations[0],\n"
    "channels{ANMO}{BHZ}{samprate}), prints that value: a string with its &name references\n"
    "replaced and its &function evaluated, and a newline; an array as parameter-file text of\n"
    "its entries; a list as &Tbl{ ... }.\n"
    "  $ corvel pf quickstart 'channels{ANMO}{BHZ}{samprate}'\n"
    "  40\n"
    "\n"
    "-t TYPE converts the string as a program's typed getter does, and prints it as:\n"
    "  int     a decimal integer (the value may be written 0x1f or 017, hexadecimal or octal)\n"
    "  double  the shortest decimal that reads back as the same double\n"
    "  bool    true or false (yes, y, ok, on, true, t and 1 are true, no, n, off, false, f\n"
    "          and 0 false, in either case)\n"
    "  time    an epoch in seconds with three decimals (the value: any time text that\n"
    "          corvel time reads)\n"
    "  size    a number, as double prints it (a final G, M or k multiplies by 1e9, 1e6 or\n"
    "          1e3, m and u by 1e-3 and 1e-6)\n"
    "  $ corvel pf -t time quickstart start_time\n"
    "  1706771109.047\n"
    "\n"
    "--json prints the tree or the value as JSON: arrays as objects in key order, lists as\n"
    "arrays, strings with &name replaced, functions evaluated; bytes that are not UTF-8 read\n"
    "as U+FFFD.\n"
    "  $ corvel pf --json quickstart 'channels{ANMO}'\n"
    "--files lists the files the search finds, one per line in the order they are read; with\n"
    "--all, also where along the path NAME.pf could be put (in each directory that exists).\n"
    "  $ PFPATH=/etc/site:$HOME/pf corvel pf --files --all quickstart\n"
    "--check reads each FILE on its own and prints \"FILE: ok\" for each that reads; for one\n"
    "that does not, the reader's message on stderr names the file and the line.\n"
    "  $ corvel pf --check site.pf\n"
    "  corvel: invalid right brace at line #12 in pf file site.pf\n"
    "\n"
    "A missing file or key, a value that does not convert, or a file that does not read is\n"
    "reported on stderr and makes the exit status 1, with nothing on stdout.\n";

// A command line that cannot be understood.
int UsageError() {
  fprintf(stderr, "%scorvel pf --help says more.\n", kPfSynopsis);
  return kUsageError;
}

// ---- The library's messages.

// While the command works, the library's messages are held here instead of being delivered,
// so that the command decides what reaches stderr, and when: a failed read or conversion shows
// its messages and nothing else.
std::string g_held;
// Where a fatal message goes at once: stderr, even while the descriptor is muted.
int g_stderr_fd = STDERR_FILENO;

// The messages without the marker that asks for a stack trace.
std::string WithoutMarkers(const char *text) {
  static const char kMarker[] = "*stack*";
  std::string clean = text;
  for (size_t at; (at = clean.find(kMarker)) != std::string::npos;) {
    size_t length = sizeof kMarker - 1;
    if (clean.compare(at + length, 1, " ") == 0) length++;
    clean.erase(at, length);
  }
  return clean;
}

// The log's callback: takes every message. The register stays empty, so text is the new
// message alone.
int HoldMessage(int severity, char *text, Tbl *) {
  if (severity >= ELOG_DIE) {
    // The process ends right after this message: it goes out now, after those held.
    std::string clean = WithoutMarkers((g_held + text).c_str());
    if (write(g_stderr_fd, clean.data(), clean.size()) < 0) return 0;
    return 1;
  }
  g_held += text;
  return 1;
}

// Writes and forgets the held messages; true when there were any.
bool ReportHeld() {
  if (g_held.empty()) return false;
  fputs(WithoutMarkers(g_held.c_str()).c_str(), stderr);
  g_held.clear();
  return true;
}

// A message of the reader that stops a read asks for a stack trace, which is printed on the
// spot through the descriptor of stderr. The trace tells the people running the command
// nothing, so stderr points at /dev/null while files are read.
class MutedStderr {
 public:
  MutedStderr() {
    fflush(stderr);
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    saved_ = null >= 0 ? fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0) : -1;
    if (saved_ >= 0 && dup2(null, STDERR_FILENO) >= 0) {
      g_stderr_fd = saved_;
    } else if (saved_ >= 0) {
      close(saved_);
      saved_ = -1;
    }
    if (null >= 0) close(null);
  }
  ~MutedStderr() {
    if (saved_ < 0) return;
    fflush(stderr);
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    g_stderr_fd = STDERR_FILENO;
  }
  MutedStderr(const MutedStderr &) = delete;
  MutedStderr &operator=(const MutedStderr &) = delete;

 private:
  int saved_;
};

// ---- Reading.

// NAME as the search looks for it.
std::string FileName(const char *name) {
  size_t length = strlen(name);
  std::string file = name;
  if (length <= 2 || strcmp(name + length - 3, ".pf") != 0) file += ".pf";
  return file;
}

std::string SearchPath() {
  const char *path = getenv("PFPATH");
  if (path != nullptr) return std::string("PFPATH ") + path;
  return std::string(getvelmora()) + "/data/pf:. (PFPATH is not set)";
}

void ReportNotFound(const char *name) {
  fprintf(stderr, "corvel pf: no parameter file %s along %s\n", FileName(name).c_str(),
          SearchPath().c_str());
}

// The files a search for name finds, joined by sep.
std::string Files(const char *name, int all, const char *sep) {
  Tbl *files = pffiles(name, all);
  std::string joined;
  for (long i = 0; i < maxtbl(files); i++) {
    if (i > 0) joined += sep;
    joined += static_cast<const char *>(gettbl(files, i));
  }
  freetbl(files, free);
  return joined;
}

// Reads name along the path. Null, with the reason on stderr, when no file is found, a file
// does not read or the files hold nothing.
Pf *ReadMerged(const char *name) {
  Pf *pf = nullptr;
  int result;
  {
    MutedStderr muted;
    result = pfread(name, &pf);
  }
  if (result == 0) return pf;
  pffree(pf);
  // A file that does not read: the reader's messages name it and the line.
  if (ReportHeld()) return nullptr;
  std::string files = Files(name, 0, ", ");
  if (files.empty()) {
    ReportNotFound(name);
  } else {
    fprintf(stderr, "corvel pf: nothing read from %s\n", files.c_str());
  }
  return nullptr;
}

// ---- Printing.

// An array is printed as a file of its entries, so that the text reads back as a parameter
// file; a list as the writer writes it after a key.
void PrintTree(Pf *node) {
  int type = node->type;
  if (type == PFARR) node->type = PFFILE;
  pfout(stdout, node);
  node->type = type;
}

// The shortest of the %g forms that reads back as the same number.
void FormatDouble(double value, char *text, size_t size) {
  for (int digits = 15; digits <= 17; digits++) {
    snprintf(text, size, "%.*g", digits, value);
    if (strtod(text, nullptr) == value) break;
  }
}

// The conversions of -t, by name; each reads the string with a program's typed getter.
enum Conversion { kNoConversion, kInt, kDouble, kBool, kTime, kSize };
constexpr const char *kConversionNames[] = {"", "int", "double", "bool", "time", "size"};

// The value at key, converted, as text; the getter complains through the log about text that
// does not convert.
void Convert(Conversion conversion, Pf *pf, const char *key, char *text, size_t size) {
  switch (conversion) {
    case kInt:
      snprintf(text, size, "%ld", pfget_int(pf, key));
      break;
    case kDouble:
      FormatDouble(pfget_double(pf, key), text, size);
      break;
    case kBool:
      snprintf(text, size, "%s", pfget_boolean(pf, key) ? "true" : "false");
      break;
    case kTime:
      snprintf(text, size, "%.3f", pfget_time(pf, key));
      break;
    case kSize:
      FormatDouble(pfget_size(pf, key), text, size);
      break;
    case kNoConversion:
      break;
  }
}

struct Options {
  enum Mode { kPrint, kJson, kFiles, kCheck } mode = kPrint;
  bool all = false;
  Conversion conversion = kNoConversion;
  std::vector<char *> operands;
};

bool IsContainer(int type) { return type == PFFILE || type == PFARR || type == PFTBL; }

// The tree or one value of it: as text, converted, or as JSON.
int Print(const Options &options) {
  const char *name = options.operands[0];
  const char *key = options.operands.size() > 1 ? options.operands[1] : nullptr;
  Pf *pf = ReadMerged(name);
  if (pf == nullptr) return 1;
  Pf *node = pf;
  // Null when the path names nothing. (The result code does not tell: an &exec whose command
  // failed is found, with a negative code.)
  if (key != nullptr) pfresolve(pf, key, 0, &node);
  int status = 1;
  if (node == nullptr) {
    ReportHeld();
    fprintf(stderr, "corvel pf: no key '%s' in parameter file %s (%s)\n", key, name,
            Files(name, 0, ", ").c_str());
  } else if (options.mode == Options::kJson) {
    // Functions are evaluated as the text is made, before any of it is printed.
    std::string json = PfJson(node);
    ReportHeld();
    fputs(json.c_str(), stdout);
    status = 0;
  } else if (node->type == PFSTRING && options.conversion != kNoConversion) {
    // The getter looks the key up again: a function is evaluated a second time.
    char text[64];
    Convert(options.conversion, pf, key, text, sizeof text);
    if (!ReportHeld()) {
      puts(text);
      status = 0;
    }
  } else if (node->type == PFSTRING) {
    // The text pfget_string gives, without a second lookup.
    const char *text = pfexpand(node);
    ReportHeld();
    puts(text != nullptr ? text : "");
    status = 0;
  } else if (IsContainer(node->type) && options.conversion == kNoConversion) {
    ReportHeld();
    PrintTree(node);
    status = 0;
  } else if (IsContainer(node->type)) {
    fprintf(stderr, "corvel pf: '%s' in parameter file %s is %s, not a single value\n", key, name,
            node->type == PFTBL ? "a list" : "an array");
  } else {
    // An unknown &function, a &ref that does not resolve, an &exec whose command fails.
    ReportHeld();
    fprintf(stderr, "corvel pf: '%s' in parameter file %s has no valid value\n", key, name);
    if ((node->type == PFINVALID || node->type == PFEXEC_ERROR) && node->value.s != nullptr &&
        node->value.s[0] != '\0') {
      fprintf(stderr, "\t%s\n", node->value.s);
    }
  }
  pffree(pf);
  return status;
}

int ListFiles(const Options &options) {
  std::string files = Files(options.operands[0], options.all, "\n");
  if (files.empty()) {
    ReportNotFound(options.operands[0]);
    return 1;
  }
  puts(files.c_str());
  return 0;
}

// Reads one file on its own; false when it cannot be opened or does not read.
bool CheckFile(const char *path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (fd < 0 || fstat(fd, &status) != 0 || S_ISDIR(status.st_mode)) {
    fprintf(stderr, "corvel pf: can't read %s: %s\n", path,
            fd < 0 ? strerror(errno) : strerror(EISDIR));
    if (fd >= 0) close(fd);
    return false;
  }
  Pf *pf = nullptr;
  int result;
  {
    MutedStderr muted;
    setpffilename(path);  // the reader's messages name the file so
    result = pfinfd(fd, &pf);
  }
  close(fd);
  pffree(pf);
  // Complaints about values that read all the same are shown too.
  ReportHeld();
  if (result != 0) return false;
  printf("%s: ok\n", path);
  return true;
}

int Check(const Options &options) {
  int status = 0;
  for (char *path : options.operands) {
    if (!CheckFile(path)) status = 1;
  }
  return status;
}

// Options may stand anywhere before "--". Returns -1 when the command is to run, else the
// exit status.
int ParseOptions(int argc, char **argv, Options *options) {
  bool operands_only = false;
  for (int i = 0; i < argc; i++) {
    const char *arg = argv[i];
    if (operands_only || arg[0] != '-' || arg[1] == '\0') {
      options->operands.push_back(argv[i]);
    } else if (IsHelp(arg)) {
      printf("%s%s", kPfSynopsis, kPfHelp);
      return 0;
    } else if (strcmp(arg, "--") == 0) {
      operands_only = true;
    } else if (strcmp(arg, "-t") == 0 && i + 1 < argc) {
      const char *type = argv[++i];
      options->conversion = kNoConversion;
      for (int c = kInt; c <= kSize; c++) {
        if (strcmp(type, kConversionNames[c]) == 0) options->conversion = Conversion(c);
      }
      if (options->conversion == kNoConversion) {
        fprintf(stderr, "corvel pf: unknown type '%s'\n", type);
        return UsageError();
      }
    } else if (strcmp(arg, "--all") == 0) {
      options->all = true;
    } else if (strcmp(arg, "--json") == 0 && options->mode == Options::kPrint) {
      options->mode = Options::kJson;
    } else if (strcmp(arg, "--files") == 0 && options->mode == Options::kPrint) {
      options->mode = Options::kFiles;
    } else if (strcmp(arg, "--check") == 0 && options->mode == Options::kPrint) {
      options->mode = Options::kCheck;
    } else {
      fprintf(stderr, "corvel pf: unknown or repeated option '%s'\n", arg);
      return UsageError();
    }
  }
  size_t n = options->operands.size();
  bool fits = false;
  switch (options->mode) {
    case Options::kPrint:
      fits = options->conversion != kNoConversion ? n == 2 : n == 1 || n == 2;
      break;
    case Options::kJson:
      fits = n == 1 || n == 2;
      break;
    case Options::kFiles:
      fits = n == 1;
      break;
    case Options::kCheck:
      fits = n >= 1;
      break;
  }
  if (!fits || (options->all && options->mode != Options::kFiles) ||
      (options->conversion != kNoConversion && options->mode != Options::kPrint)) {
    return UsageError();
  }
  return -1;
}

}  // namespace

int PfCommand(int argc, char **argv) {
  Options options;
  int status = ParseOptions(argc, argv, &options);
  if (status >= 0) return status;

  // What was logged before the command began is delivered as it would have been.
  elog_flush(1, 0);
  Elog_callback_fn previous = elog_callback;
  elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void *>(HoldMessage));
  switch (options.mode) {
    case Options::kPrint:
    case Options::kJson:
      status = Print(options);
      break;
    case Options::kFiles:
      status = ListFiles(options);
      break;
    case Options::kCheck:
      status = Check(options);
      break;
  }
  elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void *>(previous));
  ReportHeld();
  if (fflush(stdout) != 0) {
    fprintf(stderr, "corvel pf: can't write the output: %s\n", strerror(errno));
    return 1;
  }
  return status;
}

}  // namespace tools
}  // namespace corvel
