// The process-wide cache of parameter-file trees by name.
#include <pthread.h>
#include <stdlib.h>

#include "corvel/pf.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "getPf.c";

namespace {

// Trees displaced by a concurrent insertion: another thread may still read them, so they are
// kept, not freed.
Tbl *g_displaced = nullptr;

// Each name's variable for updatePf: change detection keys on the variable's address, so it
// must stay the same from one call to the next. One variable serves every thread, so a whole
// updatePf runs under this lock: two threads refreshing at once would otherwise both write the
// variable, and one could hand the other's freed tree to the cache.
pthread_mutex_t g_update_pf_lock = PTHREAD_MUTEX_INITIALIZER;
Arr *g_update_slots = nullptr;

// Stores pf under name; returns what was stored before. Pflist_mutex must be held.
Pf *StoreLocked(const char *name, Pf *pf) {
  if (Pflist == nullptr) Pflist = newarr(nullptr);
  return static_cast<Pf *>(setarr(Pflist, name, pf));
}

// g_update_pf_lock must be held.
Pf **UpdateSlot(const char *name) {
  if (g_update_slots == nullptr) g_update_slots = newarr(nullptr);
  Pf **slot = static_cast<Pf **>(getarr(g_update_slots, name));
  if (slot == nullptr) {
    slot = static_cast<Pf **>(CV_CALLOC(1, sizeof(Pf *), "updatePf"));
    setarr(g_update_slots, name, slot);
  }
  return slot;
}

}  // namespace

Pf *existsPf(const char *name) {
  if (name == nullptr) return nullptr;
  pthread_mutex_lock(&Pflist_mutex);
  Pf *pf = Pflist != nullptr ? static_cast<Pf *>(getarr(Pflist, name)) : nullptr;
  pthread_mutex_unlock(&Pflist_mutex);
  return pf;
}

Pf *getPf(const char *name) {
  Pf *pf = existsPf(name);
  if (pf != nullptr || name == nullptr) return pf;
  // The read runs without the cache's lock, so other names stay available meanwhile.
  if (pfread(name, &pf) < 0) {
    pffree(pf);
    return nullptr;
  }
  pthread_mutex_lock(&Pflist_mutex);
  Pf *earlier = StoreLocked(name, pf);
  if (earlier != nullptr && earlier != pf) {
    if (g_displaced == nullptr) g_displaced = newtbl(0);
    pushtbl(g_displaced, earlier);
  }
  pthread_mutex_unlock(&Pflist_mutex);
  return pf;
}

void putPf(const char *name, Pf *pf) {
  if (name == nullptr) return;
  pthread_mutex_lock(&Pflist_mutex);
  Pf *earlier = StoreLocked(name, pf);
  pthread_mutex_unlock(&Pflist_mutex);
  if (earlier != pf) pffree(earlier);
}

void putPf_nofree(const char *name, Pf *pf) {
  if (name == nullptr) return;
  pthread_mutex_lock(&Pflist_mutex);
  StoreLocked(name, pf);
  pthread_mutex_unlock(&Pflist_mutex);
}

int updatePf(const char *name) {
  pthread_mutex_lock(&g_update_pf_lock);
  Pf *cached = getPf(name);
  int result = -1;
  if (cached != nullptr) {
    Pf **slot = UpdateSlot(name);
    *slot = cached;
    result = pfupdate(name, slot);
    // pfupdate has freed the cached tree when it read a new one.
    if (result == 1) putPf_nofree(name, *slot);
  }
  pthread_mutex_unlock(&g_update_pf_lock);
  return result;
}

int freePf(const char *name) {
  if (name == nullptr) return -1;
  pthread_mutex_lock(&Pflist_mutex);
  Pf *pf = Pflist != nullptr ? static_cast<Pf *>(delarr(Pflist, name)) : nullptr;
  pthread_mutex_unlock(&Pflist_mutex);
  if (pf == nullptr) return -1;
  pffree(pf);
  return 0;
}
