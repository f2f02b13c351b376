#include <stdlib.h>

#include "corvel/port.h"
#include "elog/oom.h"

static constexpr char kSourceName[] = "hook.c";

Hook *new_hook(void (*free_fn)(void *p)) {
  Hook *hook = static_cast<Hook *>(CV_MALLOC(sizeof(Hook), "hook"));
  hook->p = nullptr;
  hook->free_fn = free_fn;
  return hook;
}

void free_hook(Hook **hook) {
  if (hook == nullptr || *hook == nullptr) return;
  if ((*hook)->free_fn != nullptr && (*hook)->p != nullptr) (*hook)->free_fn((*hook)->p);
  free(*hook);
  *hook = nullptr;
}
