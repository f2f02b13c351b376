// The parameter-file scanner: turns text into entries of a Pf tree as it reads, line by line.
#ifndef CORVEL_PF_SCANNER_H_
#define CORVEL_PF_SCANNER_H_

#include <stddef.h>
#include <stdio.h>

#include "corvel/pf.h"

namespace corvel {
namespace pf {

// Where the text comes from: memory that is scanned in place, or a descriptor or stream read
// in large chunks into a buffer that keeps the text the scanner still needs. The scanner asks
// for more only when a line (or a string spanning lines) is not yet complete, so a reader on
// a pipe sees each line as soon as it has arrived.
class TextSource {
 public:
  TextSource(const char *text, size_t length);
  TextSource(int fd, const char *name);
  TextSource(FILE *stream, const char *name);
  ~TextSource();
  TextSource(const TextSource &) = delete;
  TextSource &operator=(const TextSource &) = delete;

  // The text available so far.
  const char *start() const { return start_; }
  const char *end() const { return end_; }

  // Reads more, keeping the text from *keep to *end (the end of what was available); both
  // are moved to where that text now lies. False at the end of the text; a read error is
  // logged and counts as the end.
  bool More(const char **keep, const char **end);

 private:
  long Read(char *into, size_t room);

  int fd_ = -1;
  FILE *stream_ = nullptr;
  const char *name_ = "";
  char *buffer_ = nullptr;  // owned; null for text in memory
  size_t capacity_ = 0;
  const char *start_ = nullptr;
  const char *end_ = nullptr;
  bool at_end_ = false;
};

// How a read ended.
struct ScanOutcome {
  bool stopped;     // an error stopped the read (it has been logged)
  int open_levels;  // arrays and lists still open at the end, and a literal left unfinished
  int last_line;    // the line count at the end
};

// Reads the whole text into top, an array, naming the input name in messages.
ScanOutcome ScanParameterText(TextSource *source, Pf *top, const char *name);

}  // namespace pf
}  // namespace corvel

#endif  // CORVEL_PF_SCANNER_H_
