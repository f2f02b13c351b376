// Ring files: creating and opening them, and adding and reading their entries.
//
// The whole file is mapped shared, so a reading pushed by the writer is at once visible to
// every reader that maps the same file. The header is checked against the file's length when
// the file is opened; after that another process may still rewrite it, which is why every
// access goes through the geometry of ring_internal.h.
#include "corvel/ring.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/port.h"
#include "elog/oom.h"
#include "numeric/ring_internal.h"

static constexpr char kSourceName[] = "ring.c";

static_assert(offsetof(Ring_header, magic) == 0, "ring file layout");
static_assert(offsetof(Ring_header, id) == 8, "ring file layout");
static_assert(offsetof(Ring_header, newest) == 72, "ring file layout");
static_assert(offsetof(Ring_header, count) == 76, "ring file layout");
static_assert(offsetof(Ring_header, capacity) == 80, "ring file layout");
static_assert(offsetof(Ring_header, flags) == 84, "ring file layout");
static_assert(offsetof(Ring_header, gap) == 88, "ring file layout");
static_assert(offsetof(Ring_header, marker) == 96, "ring file layout");
static_assert(sizeof(Ring_header) == 104, "ring file layout");
static_assert(offsetof(Ring_entry, value) == 8 && sizeof(Ring_entry) == 16, "ring entries");

namespace corvel {
namespace numeric {
namespace {

constexpr char kMagic[8] = {'n', 'e', 'w', 'r', 'i', 'n', 'g', 'b'};
constexpr int kReadOnly = 1;  // bit 0 of the open flags
constexpr double kDefaultGap = 60.0;
constexpr double kDefaultMarker = -99999999.0;

// Writes all n bytes, resuming after interruptions and partial writes.
bool WriteAll(int fd, const void *data, size_t n) {
  const char *p = static_cast<const char *>(data);
  while (n > 0) {
    const ssize_t written = write(fd, p, n);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    p += written;
    n -= static_cast<size_t>(written);
  }
  return true;
}

// The header checks of openring: false after a message when the header does not describe a
// ring that fits in length bytes.
bool HeaderFits(const Ring_header *h, size_t length, const char *path) {
  const long slots = static_cast<long>((length - sizeof(Ring_header)) / sizeof(Ring_entry));
  if (h->capacity < 1 || h->capacity > slots) {
    elog_log(0, "Bad capacity %d while trying to read ring buffer %s.\n", h->capacity, path);
    return false;
  }
  if (h->count < 0 || h->count > h->capacity) {
    elog_log(0, "Bad count %d while trying to read ring buffer %s.\n", h->count, path);
    return false;
  }
  if (h->newest < 0 || h->newest >= h->capacity) {
    elog_log(0, "Bad newest index %d while trying to read ring buffer %s.\n", h->newest, path);
    return false;
  }
  return true;
}

// Maps the open file fd of path: the mapping and its length, or null after a message.
Ring_header *MapRing(int fd, const char *path, bool readonly, size_t *length) {
  struct stat status;
  if (fstat(fd, &status) != 0) {
    elog_log(1, "ring buffer file '%s' does not exist", path);
    return nullptr;
  }
  if (status.st_size < static_cast<off_t>(sizeof(Ring_header))) {
    elog_log(0, "Ring buffer %s is too short for its header.\n", path);
    return nullptr;
  }
  *length = static_cast<size_t>(status.st_size);
  void *map =
      mmap(nullptr, *length, readonly ? PROT_READ : PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (map == MAP_FAILED) {
    elog_log(1, "failed to mmap ringbuffer %s", path);
    return nullptr;
  }
  Ring_header *h = static_cast<Ring_header *>(map);
  if (memcmp(h->magic, kMagic, sizeof kMagic) != 0) {
    elog_log(0, "Bad magic number while trying to read ring buffer.\n");
  } else if (HeaderFits(h, *length, path)) {
    return h;
  }
  munmap(map, *length);
  return nullptr;
}

// Tries the exclusive test-lock that keeps a second writer away; complains when it is refused.
bool LockRing(int fd, const char *path) {
  if (lockf(fd, F_TLOCK, 0) == 0) return true;
  if (is_nfs(path)) {
    elog_complain(0, "Can't lock '%s': it is on an nfs filesystem\n", path);
  } else {
    elog_complain(0, "Can't lock '%s' for exclusive use\n", path);
  }
  return false;
}

// Puts a reading in the slot before the newest. The entry is written before the indices move,
// so a reader never counts a slot that has not been filled. False when the header no longer
// fits the file.
bool AddEntry(Ring *ring, double time, double value) {
  RingGeometry g;
  if (!ReadGeometry(ring, &g)) return false;
  const int slot = g.newest == 0 ? g.capacity - 1 : g.newest - 1;
  Ring_entry *entry = ring->entries + slot;
  StoreShared(&entry->time, time);
  StoreShared(&entry->value, value);
  StoreShared(&ring->header->newest, slot);
  StoreShared(&ring->header->count, g.count < g.capacity ? g.count + 1 : g.capacity);
  return true;
}

// What pushring and cramring refuse: -1 for a ring that may not be written, -2 for a reading
// older than the newest or repeating it; else 0, with *has_newest telling whether there is a
// newest entry, which *newest receives.
int Refusal(const Ring *ring, double time, double value, bool *has_newest, Ring_entry *newest) {
  RingGeometry g;
  if (ring->readonly || !ReadGeometry(ring, &g)) return -1;
  *has_newest = EntryAt(ring, 0, newest);
  if (!*has_newest) return 0;
  if (time < newest->time) return -2;
  if (time == newest->time && value == newest->value) return -2;
  return 0;
}

// Marks a gap longer than the threshold with two marker entries, at its start and at its end:
// true when it did.
bool MarkGap(Ring *ring, bool has_newest, const Ring_entry &newest, double time) {
  const double gap = LoadShared(&ring->header->gap);
  if (!has_newest || gap == 0 || !(time - newest.time > gap)) return false;
  const double marker = LoadShared(&ring->header->marker);
  AddEntry(ring, newest.time, marker);
  AddEntry(ring, time, marker);
  return true;
}

}  // namespace

int WriteNewRingFile(const char *path, const void *header, size_t header_bytes, const void *data,
                     size_t data_bytes) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0664);
  if (fd < 0) {
    elog_log(1, "Can't open new ring buffer %s", path);
    return -1;
  }
  if (!WriteAll(fd, header, header_bytes)) {
    elog_log(1, "Can't write new ring buffer %s", path);
    close(fd);
    return -1;
  }
  if (!WriteAll(fd, data, data_bytes)) {
    elog_log(1, "Can't write new ring buffer data %s", path);
    close(fd);
    return -1;
  }
  if (close(fd) != 0) {
    elog_log(1, "Can't close new ring buffer %s", path);
    return -1;
  }
  return 0;
}

}  // namespace numeric
}  // namespace corvel

namespace cn = corvel::numeric;

int newring(const char *path, const char *id, int capacity, int flags) {
  if (capacity < 1) {
    elog_log(0, "Can't make new ring buffer %s with capacity %d", path, capacity);
    return -1;
  }
  Ring_header header;
  memset(&header, 0, sizeof header);
  memcpy(header.magic, cn::kMagic, sizeof header.magic);
  if (id != nullptr) memcpy(header.id, id, strnlen(id, sizeof header.id));
  header.capacity = capacity;
  header.flags = flags & ~cn::kReadOnly;
  header.gap = cn::kDefaultGap;
  header.marker = cn::kDefaultMarker;

  const size_t bytes = static_cast<size_t>(capacity) * sizeof(Ring_entry);
  void *data = CV_CALLOC(1, bytes, "data");
  const int result = cn::WriteNewRingFile(path, &header, sizeof header, data, bytes);
  free(data);
  return result;
}

Ring *openring(const char *path, char *id, int capacity, int flags) {
  const bool readonly = (flags & cn::kReadOnly) != 0;
  struct stat status;
  if (stat(path, &status) != 0) {
    if (errno != ENOENT || readonly) {
      elog_log(0, "ring buffer file '%s' does not exist", path);
      return nullptr;
    }
    if (newring(path, id, capacity, flags) != 0) return nullptr;
  }
  const int fd = open(path, (readonly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
  if (fd < 0) {
    elog_log(1, "Can't open ringbuffer %s.", path);
    return nullptr;
  }
  size_t length = 0;
  Ring_header *header = cn::MapRing(fd, path, readonly, &length);
  if (header != nullptr && !readonly && !cn::LockRing(fd, path)) {
    munmap(header, length);
    header = nullptr;
  }
  close(fd);  // also lets go of the lock: it only had to be free at the moment of opening
  if (header == nullptr) return nullptr;

  if (id != nullptr) memcpy(id, header->id, sizeof header->id);
  Ring *ring = static_cast<Ring *>(CV_MALLOC(sizeof(Ring), "ring"));
  ring->header = header;
  ring->entries = reinterpret_cast<Ring_entry *>(header + 1);
  ring->length = length;
  ring->readonly = readonly ? 1 : 0;
  ring->filename = CV_STRDUP(path, "ring->filename");
  return ring;
}

int closering(Ring *ring) {
  const int result = munmap(ring->header, ring->length);
  free(ring->filename);
  free(ring);
  return result;
}

int rmring(Ring *ring) {
  const int removed = unlink(ring->filename);
  return closering(ring) | removed;
}

char *idring(Ring *ring) { return ring->header->id; }

char *filenamering(Ring *ring) { return ring->filename; }

int countring(Ring *ring) {
  cn::RingGeometry g;
  return cn::ReadGeometry(ring, &g) ? g.count : 0;
}

int setring(Ring *ring, double gap, double marker) {
  if (ring->readonly) return -1;
  cn::StoreShared(&ring->header->gap, gap);
  cn::StoreShared(&ring->header->marker, marker);
  return 0;
}

int pushring(Ring *ring, double time, double value) {
  bool has_newest;
  Ring_entry newest;
  const int refused = cn::Refusal(ring, time, value, &has_newest, &newest);
  if (refused != 0) return refused;
  cn::MarkGap(ring, has_newest, newest, time);
  return cn::AddEntry(ring, time, value) ? 0 : -1;
}

int cramring(Ring *ring, const char *method, double time, double value) {
  bool has_newest;
  Ring_entry newest;
  const int refused = cn::Refusal(ring, time, value, &has_newest, &newest);
  if (refused != 0) return refused;
  if (cn::MarkGap(ring, has_newest, newest, time)) {
    return cn::AddEntry(ring, time, value) ? 0 : -1;
  }
  if (method == nullptr || strcmp(method, "collapse") != 0) {
    elog_log(0, "unrecognized cramring method '%s'", method != nullptr ? method : "(null)");
    return -3;
  }
  // A run of equal values keeps its two ends: the newest end moves to the new time.
  Ring_entry before;
  if (has_newest && countring(ring) > 2 && newest.value == value && cn::EntryAt(ring, 1, &before) &&
      before.value == value) {
    cn::RingRun run;
    if (!cn::RunAt(ring, 0, &run)) return -1;
    cn::StoreShared(&const_cast<Ring_entry *>(run.entry)->time, time);
    return 0;
  }
  return cn::AddEntry(ring, time, value) ? 0 : -1;
}

int getring(Ring *ring, int i, double *time, double *value) {
  Ring_entry entry;
  if (!cn::EntryAt(ring, i, &entry)) return -1;
  *time = entry.time;
  *value = entry.value;
  return 0;
}

int valring(Ring *ring, double *time, double *value) {
  Ring_entry newest;
  if (!cn::EntryAt(ring, 0, &newest) || !(newest.time > *time)) return -1;
  const double at = *time;
  int result = -1;
  cn::ForEachEntry(ring, 1, [&](const Ring_entry &entry, int) {
    if (!(entry.time < at)) return true;
    *time = entry.time;
    *value = entry.value;
    result = 0;
    return false;
  });
  return result;
}
