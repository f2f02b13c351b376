// Tbl: the library's growable sequence. An indirect table holds pointers, a direct table holds
// fixed-size elements by value. Storage is one block; element 0 sits at base, with -first free
// slots before it and right_limit slots from it rightwards. Every slot that does not hold a live
// element holds the table's null value (zeros when a direct table has none), so that growing,
// shrinking and moving never need to know which slots were written.

// The header's inline fast paths stand in for the definitions below everywhere else.
#define CORVEL_TBL_NO_INLINE
#include "corvel/tbl.h"

#include <regex.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "corvel/elog.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "tbl.c";

namespace {

constexpr int64_t kDefaultIncrement = 10;

// Slot counts and byte sizes saturate instead of wrapping: an absurd index then asks the
// allocator for an impossible size, and the process ends with the out-of-memory message.
int64_t AddSat(int64_t a, int64_t b) {
  int64_t r;
  return __builtin_add_overflow(a, b, &r) ? INT64_MAX : r;
}

size_t Bytes(int64_t slots, int32_t size) {
  size_t r;
  if (slots < 0 ||
      __builtin_mul_overflow(static_cast<size_t>(slots), static_cast<size_t>(size), &r)) {
    return SIZE_MAX;
  }
  return r;
}

inline char *Slot(const Tbl *t, int64_t i) { return t->base + i * t->size; }

inline char *Storage(const Tbl *t) { return t->base + t->first * t->size; }

bool AllZero(const void *p, size_t n) {
  const unsigned char *c = static_cast<const unsigned char *>(p);
  for (size_t i = 0; i < n; i++) {
    if (c[i]) return false;
  }
  return true;
}

// Writes the null value into n consecutive slots starting at p.
void FillNull(const Tbl *t, char *p, int64_t n) {
  if (n <= 0) return;
  if (!t->direct) {
    void **slots = reinterpret_cast<void **>(p);
    if (t->null_value == nullptr) {
      memset(p, 0, static_cast<size_t>(n) * sizeof(void *));
    } else {
      for (int64_t i = 0; i < n; i++) slots[i] = t->null_value;
    }
    return;
  }
  size_t size = static_cast<size_t>(t->size);
  size_t total = static_cast<size_t>(n) * size;
  if (t->null_value == nullptr || AllZero(t->null_value, size)) {
    memset(p, 0, total);
    return;
  }
  // Lay down one copy, then keep doubling what is already there.
  memcpy(p, t->null_value, size);
  size_t done = size;
  while (done < total) {
    size_t chunk = done < total - done ? done : total - done;
    memcpy(p + done, p, chunk);
    done += chunk;
  }
}

// Whether a slot holds the null value: the free rule never hands such slots to a free function.
bool IsNull(const Tbl *t, const char *slot) {
  if (!t->direct) return *reinterpret_cast<void *const *>(slot) == t->null_value;
  if (t->null_value == nullptr) return AllZero(slot, static_cast<size_t>(t->size));
  return memcmp(slot, t->null_value, static_cast<size_t>(t->size)) == 0;
}

void StoreDirect(const Tbl *t, char *slot, const void *value) {
  if (value == nullptr) {
    FillNull(t, slot, 1);
  } else {
    memmove(slot, value, static_cast<size_t>(t->size));
  }
}

// The element a caller sees: the pointer itself, or the address of a direct slot.
inline void *Element(const Tbl *t, char *slot) {
  return t->direct ? static_cast<void *>(slot) : *reinterpret_cast<void **>(slot);
}

void *DeletedBuffer(Tbl *t) {
  if (t->deleted == nullptr) t->deleted = CV_MALLOC(static_cast<size_t>(t->size), "tbl->deleted");
  return t->deleted;
}

// A direct value about to be stored may point into the table itself (an element returned by
// gettbl); growing or shifting the contents would then move it. Such a value is copied aside.
class StableValue {
 public:
  StableValue(const Tbl *t, const void *value) : value_(value) {
    if (!t->direct || value == nullptr || t->base == nullptr) return;
    const char *p = static_cast<const char *>(value);
    const char *lo = Storage(t);
    const char *hi = Slot(t, t->right_limit);
    if (p < lo || p >= hi) return;
    size_t size = static_cast<size_t>(t->size);
    char *copy = size <= sizeof small_
                     ? small_
                     : (heap_ = static_cast<char *>(CV_MALLOC(size, "tbl element")));
    memcpy(copy, value, size);
    value_ = copy;
  }
  ~StableValue() { free(heap_); }
  StableValue(const StableValue &) = delete;
  StableValue &operator=(const StableValue &) = delete;
  const void *get() const { return value_; }

 private:
  const void *value_;
  char *heap_ = nullptr;
  alignas(16) char small_[256];
};

int64_t Increment(int64_t increment) { return increment > 0 ? increment : kDefaultIncrement; }

int64_t Doubled(int64_t increment) { return increment > INT64_MAX / 2 ? INT64_MAX : increment * 2; }

// Makes room for at least `want` slots from element 0 rightwards.
void GrowRight(Tbl *t, int64_t want) {
  int64_t needed = want - t->right_limit;
  if (needed <= 0) return;
  int64_t inc = Increment(t->right_increment);
  if (inc < needed) inc = needed;
  t->right_increment = inc;
  if (t->base == nullptr) {
    char *storage = static_cast<char *>(CV_MALLOC(Bytes(inc, t->size), "tbl->base.cp"));
    FillNull(t, storage, inc);
    t->base = storage;
    t->first = 0;
    t->right_limit = inc;
    t->right_increment = Doubled(inc);
    return;
  }
  int64_t left_free = -t->first;
  if (left_free > inc / 2) {
    // Plenty of room on the left: slide the contents down instead of allocating. The slots that
    // held elements and were not overwritten go back to the null value.
    char *storage = Storage(t);
    memmove(storage, t->base, Bytes(t->count, t->size));
    int64_t stale_from = t->count > left_free ? t->count : left_free;
    int64_t stale = t->count < left_free ? t->count : left_free;
    FillNull(t, storage + stale_from * t->size, stale);
    t->base = storage;
    t->first = 0;
    t->right_limit += left_free;
    needed -= left_free;
    if (needed <= 0) return;
  }
  int64_t left = -t->first;
  int64_t total = AddSat(AddSat(left, t->right_limit), inc);
  char *storage =
      static_cast<char *>(CV_REALLOC(Storage(t), Bytes(total, t->size), "tbl->base.cp"));
  t->base = storage + left * t->size;
  FillNull(t, Slot(t, t->right_limit), inc);
  t->right_limit += inc;
  t->right_increment = Doubled(inc);
}

// Makes at least one free slot before element 0; called only when there is none.
void GrowLeft(Tbl *t) {
  int64_t inc = Increment(t->left_increment);
  if (t->base == nullptr) {
    char *storage = static_cast<char *>(CV_MALLOC(Bytes(inc, t->size), "tbl->base.cp"));
    FillNull(t, storage, inc);
    t->base = storage + inc * t->size;
    t->first = -inc;
    t->right_limit = 0;
    t->left_increment = Doubled(inc);
    return;
  }
  int64_t right_free = t->right_limit - t->count;
  if (right_free <= inc / 2) {
    int64_t total = AddSat(t->right_limit, inc);
    char *storage =
        static_cast<char *>(CV_REALLOC(Storage(t), Bytes(total, t->size), "tbl->base.cp"));
    memmove(storage + inc * t->size, storage, Bytes(t->count, t->size));
    FillNull(t, storage, inc);
    t->base = storage + inc * t->size;
    FillNull(t, Slot(t, t->count), t->right_limit - t->count);
    t->first = -inc;
    t->left_increment = Doubled(inc);
    return;
  }
  // Slide the contents up by half the free room at the right end. Moving by all of it would
  // leave the right end full, and a table fed at both ends would then slide back and forth on
  // every insertion.
  int64_t by = (right_free + 1) / 2;
  memmove(Slot(t, by), t->base, Bytes(t->count, t->size));
  FillNull(t, t->base, t->count < by ? t->count : by);
  t->base += by * t->size;
  t->first -= by;
  t->right_limit -= by;
}

// Moves element 0 by `by` slots (1 after a shift, -1 before an unshift): the base, the free
// slots on the left, the right limit and the count all follow. The new values are kept opaque so
// that the optimiser does not merge their stores into one vector store, from which the next read
// of the count (by every push) could not be forwarded.
__attribute__((always_inline)) inline void MoveFront(Tbl *t, int64_t by) {
  int64_t first = t->first - by, right_limit = t->right_limit - by, count = t->count - by;
  __asm__("" : "+r"(first), "+r"(right_limit), "+r"(count));
  t->base += by * t->size;
  t->first = first;
  t->right_limit = right_limit;
  t->count = count;
}

__attribute__((noinline)) long PushSlow(Tbl *t, void *value) {
  if (t == nullptr) return -1;
  if (t->direct && t->count < t->right_limit) {
    StoreDirect(t, Slot(t, t->count), value);
    return t->count++;
  }
  StableValue v(t, value);
  GrowRight(t, AddSat(t->count, 1));
  char *slot = Slot(t, t->count);
  if (t->direct) {
    StoreDirect(t, slot, v.get());
  } else {
    *reinterpret_cast<void **>(slot) = value;
  }
  return t->count++;
}

// Removes the slot's element into the value returned to the caller and resets the slot.
void *TakeSlot(Tbl *t, char *slot) {
  if (t->direct) {
    void *deleted = DeletedBuffer(t);
    memcpy(deleted, slot, static_cast<size_t>(t->size));
    FillNull(t, slot, 1);
    return deleted;
  }
  void **p = reinterpret_cast<void **>(slot);
  void *value = *p;
  *p = t->null_value;
  return value;
}

__attribute__((noinline)) void *ShiftDirect(Tbl *t) {
  void *value = TakeSlot(t, t->base);
  MoveFront(t, 1);
  return value;
}

void ApplyFreeRule(Tbl *t, int64_t from, Tbl_free_fn free_fn) {
  if (free_fn == nullptr) return;
  for (int64_t i = from; i < t->count; i++) {
    char *slot = Slot(t, i);
    if (!IsNull(t, slot)) free_fn(Element(t, slot));
  }
}

bool NullValuesEqual(const Tbl *a, const Tbl *b) {
  if (!a->direct) return a->null_value == b->null_value;
  size_t size = static_cast<size_t>(a->size);
  if (a->null_value == nullptr || b->null_value == nullptr) {
    const void *other = a->null_value ? a->null_value : b->null_value;
    return other == nullptr || AllZero(other, size);
  }
  return memcmp(a->null_value, b->null_value, size) == 0;
}

// Whether the regular expression matches all of text: the first match must start at its first
// character and end at its last.
bool MatchesWhole(const regex_t *re, const char *text) {
  regmatch_t m;
  if (regexec(re, text, 1, &m, 0) != 0) return false;
  return m.rm_so == 0 && static_cast<size_t>(m.rm_eo) == strlen(text);
}

void *IndexValue(long i) { return reinterpret_cast<void *>(static_cast<intptr_t>(i)); }

// Shell sort gaps: Ciura's measured sequence, then each gap 2.25 times the one before.
int ShellGaps(int64_t n, int64_t *gaps, int max_gaps) {
  static const int64_t kCiura[] = {1, 4, 10, 23, 57, 132, 301, 701, 1750};
  int count = 0;
  for (int64_t g : kCiura) {
    if (g >= n && count > 0) return count;
    gaps[count++] = g;
  }
  while (count < max_gaps) {
    int64_t g = gaps[count - 1] * 9 / 4;
    if (g >= n) break;
    gaps[count++] = g;
  }
  return count;
}

}  // namespace

Tbl *inittbl(long left_increment, long right_increment, int direct, void *null_value,
             int element_size) {
  if (direct && element_size <= 0) return nullptr;
  Tbl *t = static_cast<Tbl *>(CV_CALLOC(1, sizeof(Tbl), "tbl"));
  t->fd = -1;
  t->left_increment = Increment(left_increment);
  t->right_increment = Increment(right_increment);
  t->direct = direct ? 1 : 0;
  if (direct) {
    t->size = element_size;
    if (null_value != nullptr) {
      t->null_value = CV_MALLOC(static_cast<size_t>(element_size), "tbl->null");
      memcpy(t->null_value, null_value, static_cast<size_t>(element_size));
    }
    t->deleted = CV_MALLOC(static_cast<size_t>(element_size), "tbl->deleted");
    FillNull(t, static_cast<char *>(t->deleted), 1);
  } else {
    t->size = sizeof(void *);
    t->null_value = null_value;
  }
  return t;
}

Tbl *newtbl(long increment) { return inittbl(0, increment, 0, nullptr, sizeof(void *)); }

long maxtbl(Tbl *t) { return t ? t->count : 0; }

void *gettbl(Tbl *t, long i) {
  if (t == nullptr) return nullptr;
  if (static_cast<uint64_t>(i) >= static_cast<uint64_t>(t->count)) return t->null_value;
  return Element(t, Slot(t, i));
}

void *addrtbl(Tbl *t, long i) {
  if (t == nullptr || static_cast<uint64_t>(i) >= static_cast<uint64_t>(t->count)) return nullptr;
  return Slot(t, i);
}

long pushtbl(Tbl *t, void *value) {
  if (__builtin_expect(t != nullptr && !t->direct && t->count < t->right_limit, 1)) {
    reinterpret_cast<void **>(t->base)[t->count] = value;
    return t->count++;
  }
  return PushSlow(t, value);
}

long settbl(Tbl *t, long i, void *value) {
  if (t == nullptr) return -1;
  if (i < 0) i = t->count;
  if (i >= t->right_limit) {
    StableValue v(t, value);
    GrowRight(t, AddSat(i, 1));
    if (t->direct) {
      StoreDirect(t, Slot(t, i), v.get());
    } else {
      reinterpret_cast<void **>(t->base)[i] = value;
    }
  } else if (t->direct) {
    StoreDirect(t, Slot(t, i), value);
  } else {
    reinterpret_cast<void **>(t->base)[i] = value;
  }
  if (i >= t->count) t->count = i + 1;
  return i;
}

void *poptbl(Tbl *t) {
  if (t == nullptr) return nullptr;
  if (t->count == 0) return t->null_value;
  t->count--;
  return TakeSlot(t, Slot(t, t->count));
}

long unshifttbl(Tbl *t, void *value) {
  if (t == nullptr) return -1;
  StableValue v(t, value);
  if (t->first == 0) GrowLeft(t);
  MoveFront(t, -1);
  if (t->direct) {
    StoreDirect(t, t->base, v.get());
  } else {
    *reinterpret_cast<void **>(t->base) = value;
  }
  return 0;
}

void *shifttbl(Tbl *t) {
  if (t == nullptr) return nullptr;
  if (t->count == 0) return t->null_value;
  if (t->direct) return ShiftDirect(t);
  void **slot = reinterpret_cast<void **>(t->base);
  void *value = *slot;
  *slot = t->null_value;
  MoveFront(t, 1);
  return value;
}

long instbl(Tbl *t, long i, void *value) {
  if (t == nullptr) return -1;
  if (i < 0) return unshifttbl(t, value);
  if (i >= t->count) return pushtbl(t, value);
  StableValue v(t, value);
  GrowRight(t, AddSat(t->count, 1));
  char *slot = Slot(t, i);
  memmove(slot + t->size, slot, Bytes(t->count - i, t->size));
  if (t->direct) {
    StoreDirect(t, slot, v.get());
  } else {
    *reinterpret_cast<void **>(slot) = value;
  }
  t->count++;
  return i;
}

void *deltbl(Tbl *t, long i) {
  if (t == nullptr) return nullptr;
  if (static_cast<uint64_t>(i) >= static_cast<uint64_t>(t->count)) return t->null_value;
  char *slot = Slot(t, i);
  void *value;
  if (t->direct) {
    value = DeletedBuffer(t);
    memcpy(value, slot, static_cast<size_t>(t->size));
  } else {
    value = *reinterpret_cast<void **>(slot);
  }
  memmove(slot, slot + t->size, Bytes(t->count - i - 1, t->size));
  t->count--;
  FillNull(t, Slot(t, t->count), 1);
  return value;
}

void trunctbl(Tbl *t, long n, Tbl_free_fn free_fn) {
  if (t == nullptr) return;
  if (n < 0) n = 0;
  if (n >= t->count) return;
  ApplyFreeRule(t, n, free_fn);
  FillNull(t, Slot(t, n), t->count - n);
  t->count = n;
}

void clrtbl(Tbl *t, Tbl_free_fn free_fn) { trunctbl(t, 0, free_fn); }

void freetbl(Tbl *t, Tbl_free_fn free_fn) {
  if (t == nullptr) return;
  if (t->mapbase != nullptr) {
    if (munmap(t->mapbase, static_cast<size_t>(t->mapsize)) != 0) {
      elog_complain(1, "munmap (%lx, %ld) fails", reinterpret_cast<unsigned long>(t->mapbase),
                    static_cast<long>(t->mapsize));
    }
    if (t->fd >= 0) close(t->fd);
  } else {
    if (t->base != nullptr) {
      ApplyFreeRule(t, 0, free_fn);
      free(Storage(t));
    }
  }
  if (t->direct) free(t->null_value);
  free(t->deleted);
  free(t);
}

long applytbl(Tbl *t, Tbl_apply_fn fn, void *private_data) {
  if (t == nullptr || fn == nullptr) return 0;
  long sum = 0;
  for (int64_t i = 0; i < t->count; i++) {
    void *element = Element(t, Slot(t, i));
    if (element != nullptr) sum += fn(element, private_data);
  }
  return sum;
}

int cattbl(Tbl *dst, Tbl *src) {
  if (dst == nullptr) return -1;
  if (src == nullptr) return 0;
  if (dst->size != src->size) {
    elog_log(0, "tbl lists have different entry sizes: %d %d\n", dst->size, src->size);
    return 1;
  }
  if ((dst->direct != 0) != (src->direct != 0)) {
    elog_log(0, "tbl lists are not both direct or indirect.\n");
    return 1;
  }
  if (!NullValuesEqual(dst, src)) {
    elog_log(0, "tbl lists have different null values.\n");
    return 1;
  }
  if (src->left_increment > dst->left_increment) dst->left_increment = src->left_increment;
  if (src->right_increment > dst->right_increment) dst->right_increment = src->right_increment;
  int64_t n = src->count;
  if (n == 0) return 0;
  GrowRight(dst, AddSat(dst->count, n));  // may move src's contents when src is dst
  memcpy(Slot(dst, dst->count), src->base, Bytes(n, src->size));
  dst->count += n;
  return 0;
}

Tbl *duptbl(Tbl *t, Tbl_dup_fn dup_fn) {
  if (t == nullptr) return nullptr;
  Tbl *d = inittbl(t->left_increment, t->right_increment, t->direct, t->null_value, t->size);
  if (t->count == 0) return d;
  GrowRight(d, t->count);
  memcpy(d->base, t->base, Bytes(t->count, t->size));
  d->count = t->count;
  if (dup_fn != nullptr) {
    for (int64_t i = 0; i < d->count; i++) {
      char *slot = Slot(d, i);
      if (IsNull(d, slot)) continue;
      if (d->direct) {
        dup_fn(slot);  // makes the copy's own resources in place
      } else {
        void **p = reinterpret_cast<void **>(slot);
        *p = dup_fn(*p);
      }
    }
  }
  return d;
}

int cmptbl(Tbl *a, Tbl *b) {
  if (a == b) return 0;
  if (a == nullptr || b == nullptr) return 1;
  if (a->count != b->count || a->size != b->size) return 1;
  if (a->count == 0) return 0;
  return memcmp(a->base, b->base, Bytes(a->count, a->size));
}

Tbl *strtbl(const char *s, ...) {
  Tbl *t = newtbl(0);
  va_list ap;
  va_start(ap, s);
  for (const char *p = s; p != nullptr; p = va_arg(ap, const char *)) {
    pushtbl(t, const_cast<char *>(p));
  }
  va_end(ap);
  return t;
}

char *jointbl(Tbl *t, const char *separator) {
  if (separator == nullptr) separator = "";
  size_t seplen = strlen(separator);
  int64_t n = t ? t->count : 0;
  size_t total = 1;
  for (int64_t i = 0; i < n; i++) {
    const char *s = static_cast<const char *>(Element(t, Slot(t, i)));
    total += (s ? strlen(s) : 0) + (i ? seplen : 0);
  }
  char *joined = static_cast<char *>(CV_MALLOC(total, "joined"));
  char *out = joined;
  for (int64_t i = 0; i < n; i++) {
    if (i) {
      memcpy(out, separator, seplen);
      out += seplen;
    }
    const char *s = static_cast<const char *>(Element(t, Slot(t, i)));
    size_t len = s ? strlen(s) : 0;
    memcpy(out, s, len);
    out += len;
  }
  *out = '\0';
  return joined;
}

Tbl *greptbl(const char *pattern, Tbl *t) {
  Tbl *found = newtbl(0);
  regex_t re;
  if (pattern == nullptr || regcomp(&re, pattern, REG_EXTENDED) != 0) return found;
  for (long i = 0, n = maxtbl(t); i < n; i++) {
    const char *s = static_cast<const char *>(Element(t, Slot(t, i)));
    if (s != nullptr && MatchesWhole(&re, s)) pushtbl(found, IndexValue(i));
  }
  regfree(&re);
  return found;
}

Tbl *tblgrep(Tbl *t, const char *string) {
  Tbl *found = newtbl(0);
  if (string == nullptr) return found;
  for (long i = 0, n = maxtbl(t); i < n; i++) {
    const char *pattern = static_cast<const char *>(Element(t, Slot(t, i)));
    regex_t re;
    if (pattern == nullptr || regcomp(&re, pattern, REG_EXTENDED) != 0) continue;
    if (MatchesWhole(&re, string)) pushtbl(found, IndexValue(i));
    regfree(&re);
  }
  return found;
}

void sorttbl(Tbl *t, Tbl_compare_fn compare, void *private_data) {
  if (t == nullptr || compare == nullptr || t->count < 2) return;
  int64_t n = t->count;
  int64_t gaps[64];
  int ngaps = ShellGaps(n, gaps, 64);
  if (!t->direct) {
    void **a = reinterpret_cast<void **>(t->base);
    for (int g = ngaps - 1; g >= 0; g--) {
      int64_t gap = gaps[g];
      for (int64_t i = gap; i < n; i++) {
        void *tmp = a[i];
        int64_t j = i;
        while (j >= gap && compare(&a[j - gap], &tmp, private_data) > 0) {
          a[j] = a[j - gap];
          j -= gap;
        }
        a[j] = tmp;
      }
    }
    return;
  }
  size_t size = static_cast<size_t>(t->size);
  char *tmp = static_cast<char *>(CV_MALLOC(size, "tbl element"));
  for (int g = ngaps - 1; g >= 0; g--) {
    int64_t gap = gaps[g];
    for (int64_t i = gap; i < n; i++) {
      memcpy(tmp, Slot(t, i), size);
      int64_t j = i;
      while (j >= gap && compare(Slot(t, j - gap), tmp, private_data) > 0) {
        memcpy(Slot(t, j), Slot(t, j - gap), size);
        j -= gap;
      }
      memcpy(Slot(t, j), tmp, size);
    }
  }
  free(tmp);
}

long searchtbl(void *key, Tbl *t, Tbl_compare_fn compare, void *private_data, long *first,
               long *last) {
  long lo = 0, hi = 0;
  if (t != nullptr && compare != nullptr) {
    // lo: the first element not below the key; hi: the first element above it.
    long n = t->count;
    long l = 0, r = n;
    while (l < r) {
      long mid = l + (r - l) / 2;
      if (compare(key, Slot(t, mid), private_data) > 0) {
        l = mid + 1;
      } else {
        r = mid;
      }
    }
    lo = l;
    r = n;
    while (l < r) {
      long mid = l + (r - l) / 2;
      if (compare(key, Slot(t, mid), private_data) >= 0) {
        l = mid + 1;
      } else {
        r = mid;
      }
    }
    hi = l;
  }
  if (first) *first = lo;
  if (last) *last = hi - 1;
  return hi - lo;
}
