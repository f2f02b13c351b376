// What the time scanner reads from, and how it allocates and fails.
#ifndef CORVEL_TIME_EPOCH_SOURCE_H_
#define CORVEL_TIME_EPOCH_SOURCE_H_

#include <stddef.h>

namespace corvel {
namespace epoch_parse {

// Copies at most max_size characters of the current parse's text into buf; 0 at its end.
int ReadSource(char *buf, size_t max_size);
void *ScannerAlloc(size_t size);
void *ScannerRealloc(void *p, size_t size);
[[noreturn]] void ScannerFailed(const char *message);

}  // namespace epoch_parse
}  // namespace corvel

#endif  // CORVEL_TIME_EPOCH_SOURCE_H_
