// What the ring files share: reading the header of a mapping that another process may be
// writing, and walking the entries newest first.
//
// The header's indices are read afresh for every stretch of entries that lie one after another
// in the file (the writer may move them at any time) and are kept inside the mapping whatever
// they hold, so that nothing read from the file can send an access outside it.
#ifndef CORVEL_NUMERIC_RING_INTERNAL_H_
#define CORVEL_NUMERIC_RING_INTERNAL_H_

#include <math.h>
#include <stddef.h>

#include "corvel/ring.h"

namespace corvel {
namespace numeric {

// Creates (truncating) path holding the header and then the data: 0, or -1 after one of the
// creation messages. Rings and ringlets are made alike.
int WriteNewRingFile(const char *path, const void *header, size_t header_bytes, const void *data,
                     size_t data_bytes);

// One read of a value another process may be writing: the compiler may neither repeat nor tear
// it, so a value checked once stays the value used.
template <typename T>
inline T LoadShared(const T *p) {
  T value;
  __atomic_load(p, &value, __ATOMIC_RELAXED);
  return value;
}
template <typename T>
inline void StoreShared(T *p, T value) {
  __atomic_store(p, &value, __ATOMIC_RELAXED);
}

// The header's indices at one moment.
struct RingGeometry {
  int newest;
  int count;
  int capacity;
};

// The entry slots that fit in the mapping.
inline long RingSlots(const Ring *ring) {
  return static_cast<long>((ring->length - sizeof(Ring_header)) / sizeof(Ring_entry));
}

// The count and newest index as a reader may use them, whatever a writer or a damaged file left
// in the header: the count within 0..capacity, the newest index taken modulo the capacity.
template <typename T>
void BoundCountAndNewest(T capacity, T count, T newest, T *bounded_count, T *bounded_newest) {
  *bounded_count = count < 0 ? 0 : count > capacity ? capacity : count;
  newest %= capacity;
  *bounded_newest = newest < 0 ? newest + capacity : newest;
}

// Reads the header's indices: false when the capacity no longer fits the mapping (someone has
// rewritten the header). The count is clamped to the capacity and the newest index taken
// modulo the capacity, so that every slot they name lies inside the mapping.
inline bool ReadGeometry(const Ring *ring, RingGeometry *g) {
  const Ring_header *h = ring->header;
  g->capacity = LoadShared(&h->capacity);
  if (g->capacity < 1 || g->capacity > RingSlots(ring)) return false;
  BoundCountAndNewest(g->capacity, LoadShared(&h->count), LoadShared(&h->newest), &g->count,
                      &g->newest);
  return true;
}

// Entries first, first + 1, ... first + n - 1, one after another in the file.
struct RingRun {
  const Ring_entry *entry;
  int n;
};

// The run of entries from entry number i on that lie one after another in the file (up to
// the end of the slots or of the valid entries); false when there is no entry i.
inline bool RunAt(const Ring *ring, int i, RingRun *run) {
  RingGeometry g;
  if (i < 0 || !ReadGeometry(ring, &g) || i >= g.count) return false;
  const long slot = (static_cast<long>(g.newest) + i) % g.capacity;
  run->entry = ring->entries + slot;
  const long to_end = g.capacity - slot;
  run->n = static_cast<int>(g.count - i < to_end ? g.count - i : to_end);
  return true;
}

// Entry i (0 the newest): false when there is none.
inline bool EntryAt(const Ring *ring, int i, Ring_entry *entry) {
  RingRun run;
  if (!RunAt(ring, i, &run)) return false;
  entry->time = LoadShared(&run.entry->time);
  entry->value = LoadShared(&run.entry->value);
  return true;
}

// The value whose entries the statistics leave out: the gap marker while the gap threshold is
// not 0 (a NaN threshold is not 0), else a NaN, which no value equals.
inline double SkippedValue(const Ring *ring) {
  const double gap = LoadShared(&ring->header->gap);
  return gap != 0 ? LoadShared(&ring->header->marker) : NAN;
}

// Calls visit(entry, i) for the entries from number `from` on, newest first, until it returns
// false or the valid entries run out. Returns the number of the entry that stopped it, or of
// the first entry past the valid ones.
template <typename Visit>
inline int ForEachEntry(const Ring *ring, int from, Visit visit) {
  RingRun run;
  int i = from;
  for (; RunAt(ring, i, &run); i += run.n) {
    const Ring_entry *entry = run.entry;
    for (int k = 0; k < run.n; k++) {
      if (!visit(entry[k], i + k)) return i + k;
    }
  }
  return i;
}

}  // namespace numeric
}  // namespace corvel

#endif  // CORVEL_NUMERIC_RING_INTERNAL_H_
