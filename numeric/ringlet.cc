// Ringlets: histories of fixed-size records of any content, written backwards in a mapped file
// as ring entries are, without statistics.
//
// A ringlet is always mapped for writing. When another process holds the file, it is still
// opened, so that its records can be read, but marked no-write; on NFS, where the lock cannot
// be trusted, it stays writable.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/port.h"
#include "corvel/ring.h"
#include "elog/oom.h"
#include "numeric/ring_internal.h"

static constexpr char kSourceName[] = "ringlet.c";

static_assert(offsetof(Ringlet_header, magic) == 0, "ringlet file layout");
static_assert(offsetof(Ringlet_header, newest) == 8, "ringlet file layout");
static_assert(offsetof(Ringlet_header, count) == 16, "ringlet file layout");
static_assert(offsetof(Ringlet_header, capacity) == 24, "ringlet file layout");
static_assert(offsetof(Ringlet_header, size) == 32, "ringlet file layout");
static_assert(sizeof(Ringlet_header) == 40, "ringlet file layout");
// The record size is the low half of an 8-byte field.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "ringlet record size");

namespace corvel {
namespace numeric {
namespace {

constexpr char kMagic[8] = {'r', 'i', 'n', 'g', 'l', 'e', 't', '\0'};

// The header's indices at one moment, kept inside the mapping as a ring's are.
struct RingletGeometry {
  int64_t newest;
  int64_t count;
  int64_t capacity;
  int size;
};

size_t RecordBytes(size_t length) { return length - sizeof(Ringlet_header); }

bool ReadRingletGeometry(const Ringlet *ringlet, RingletGeometry *g) {
  const Ringlet_header *h = ringlet->header;
  g->size = LoadShared(&h->size);
  g->capacity = LoadShared(&h->capacity);
  if (g->size < 1 || g->capacity < 1) return false;
  if (static_cast<uint64_t>(g->capacity) > RecordBytes(ringlet->length) / g->size) return false;
  BoundCountAndNewest(g->capacity, LoadShared(&h->count), LoadShared(&h->newest), &g->count,
                      &g->newest);
  return true;
}

// The header checks of openringlet: false after a message when the header does not describe
// a ringlet that fits in length bytes.
bool HeaderFits(const Ringlet_header *h, size_t length, const char *path) {
  if (h->size < 1) {
    elog_log(0, "Bad record size %d while trying to read ringlet %s.\n", h->size, path);
    return false;
  }
  if (h->capacity < 1 || static_cast<uint64_t>(h->capacity) > RecordBytes(length) / h->size) {
    elog_log(0, "Bad capacity %lld while trying to read ringlet %s.\n",
             static_cast<long long>(h->capacity), path);
    return false;
  }
  if (h->count < 0 || h->count > h->capacity) {
    elog_log(0, "Bad count %lld while trying to read ringlet %s.\n",
             static_cast<long long>(h->count), path);
    return false;
  }
  if (h->newest < 0 || h->newest >= h->capacity) {
    elog_log(0, "Bad newest index %lld while trying to read ringlet %s.\n",
             static_cast<long long>(h->newest), path);
    return false;
  }
  return true;
}

// Maps the open file fd of path for reading and writing: the mapping and its length, or null
// after a message.
Ringlet_header *MapRinglet(int fd, const char *path, size_t *length) {
  struct stat status;
  if (fstat(fd, &status) != 0) {
    elog_log(1, "ringlet buffer file '%s' does not exist", path);
    return nullptr;
  }
  if (status.st_size < static_cast<off_t>(sizeof(Ringlet_header))) {
    elog_log(0, "Ringlet %s is too short for its header.\n", path);
    return nullptr;
  }
  *length = static_cast<size_t>(status.st_size);
  void *map = mmap(nullptr, *length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (map == MAP_FAILED) {
    elog_log(1, "failed to mmap ringlet %s", path);
    return nullptr;
  }
  Ringlet_header *h = static_cast<Ringlet_header *>(map);
  if (memcmp(h->magic, kMagic, sizeof kMagic) != 0) {
    elog_log(0, "Bad magic number while trying to read ringlet.\n");
  } else if (HeaderFits(h, *length, path)) {
    return h;
  }
  munmap(map, *length);
  return nullptr;
}

// Whether the ringlet may be written: true when the lock was granted or cannot be trusted.
bool LockRinglet(int fd, const char *path) {
  if (lockf(fd, F_TLOCK, 0) == 0) return true;
  if (is_nfs(path)) {
    elog_complain(0, "Can't lock '%s': it is on an nfs filesystem: proceeding anyway\n", path);
    return true;
  }
  elog_log(0, "Can't lock '%s' for exclusive use\n", path);
  return false;
}

}  // namespace
}  // namespace numeric
}  // namespace corvel

namespace cn = corvel::numeric;

int newringlet(const char *path, int capacity, int size) {
  if (capacity < 1 || size < 1) {
    elog_log(0, "Can't make new ring buffer %s of %d records of %d bytes", path, capacity, size);
    return -1;
  }
  Ringlet_header header;
  memset(&header, 0, sizeof header);
  memcpy(header.magic, cn::kMagic, sizeof header.magic);
  header.capacity = capacity;
  header.size = size;

  const size_t bytes = static_cast<size_t>(capacity) * static_cast<size_t>(size);
  void *data = CV_CALLOC(1, bytes, "data");
  const int result = cn::WriteNewRingFile(path, &header, sizeof header, data, bytes);
  free(data);
  return result;
}

Ringlet *openringlet(const char *path, int capacity, int size) {
  make_pathdirs(path);  // a failure shows when the file cannot be made
  struct stat status;
  if (stat(path, &status) != 0) {
    if (errno != ENOENT) {
      elog_log(0, "ringlet buffer file '%s' does not exist", path);
      return nullptr;
    }
    if (newringlet(path, capacity, size) != 0) return nullptr;
  }
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    elog_log(1, "Can't open ringlet %s.", path);
    return nullptr;
  }
  size_t length = 0;
  Ringlet_header *header = cn::MapRinglet(fd, path, &length);
  const bool writable = header != nullptr && cn::LockRinglet(fd, path);
  close(fd);  // also lets go of the lock: it only had to be free at the moment of opening
  if (header == nullptr) return nullptr;

  Ringlet *ringlet = static_cast<Ringlet *>(CV_MALLOC(sizeof(Ringlet), "ringlet"));
  ringlet->header = header;
  ringlet->records = reinterpret_cast<char *>(header + 1);
  ringlet->length = length;
  ringlet->nowrite = writable ? 0 : 1;
  return ringlet;
}

int pushringlet(Ringlet *ringlet, const void *record) {
  cn::RingletGeometry g;
  if (ringlet->nowrite || !cn::ReadRingletGeometry(ringlet, &g)) return -1;
  const int64_t slot = g.newest == 0 ? g.capacity - 1 : g.newest - 1;
  // The record is in place before the indices move, so a reader never counts an empty slot.
  memcpy(ringlet->records + slot * g.size, record, static_cast<size_t>(g.size));
  cn::StoreShared(&ringlet->header->newest, slot);
  cn::StoreShared(&ringlet->header->count, g.count < g.capacity ? g.count + 1 : g.capacity);
  return 0;
}

int getringlet(Ringlet *ringlet, int i, void **record) {
  cn::RingletGeometry g;
  if (i < 0 || !cn::ReadRingletGeometry(ringlet, &g) || i >= g.count) return -1;
  const int64_t slot = (g.newest + i) % g.capacity;
  *record = ringlet->records + slot * g.size;
  return 0;
}

int countringlet(Ringlet *ringlet) {
  cn::RingletGeometry g;
  return cn::ReadRingletGeometry(ringlet, &g)
             ? static_cast<int>(g.count < INT32_MAX ? g.count : INT32_MAX)
             : 0;
}

int closeringlet(Ringlet *ringlet) {
  const int result = munmap(ringlet->header, ringlet->length);
  free(ringlet);
  return result;
}
