/*
 * Memory for instances. A host never says that an instance has ended, only the library is unloaded: what Keep gave is
 * given back then. Other components of a graph may have instances of the same library at the same time.
 */
#ifndef PANTIQ_EXAMPLE_KEEP_H
#define PANTIQ_EXAMPLE_KEEP_H

#include <stdatomic.h>
#include <stddef.h>
#include <stdlib.h>

typedef union Kept {
  union Kept* next;
  max_align_t aligned;
} Kept;
static _Atomic(Kept*) g_kept;

/* Zeroed; NULL if there is none. Any thread. */
static void* Keep(size_t bytes) {
  Kept* const kept = (Kept*)calloc(1, sizeof(Kept) + bytes);
  if (kept == NULL) return NULL;
  kept->next = atomic_load(&g_kept);
  while (!atomic_compare_exchange_weak(&g_kept, &kept->next, kept)) {
  }
  return kept + 1;
}

__attribute__((destructor)) static void GiveBack(void) {
  for (Kept* kept = atomic_exchange(&g_kept, NULL); kept != NULL;) {
    Kept* const next = kept->next;
    free(kept);
    kept = next;
  }
}

#endif
