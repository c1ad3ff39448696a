// Free lists for the small objects that are made for every frame: operations and buffer objects.
//
// Each thread keeps free blocks of each size in multiples of 16 bytes up to 512, as many as a chain of a few hundred
// components has in use at once; what is larger, or more, goes to the heap. Under sanitizers everything goes to the heap,
// so that a use after free is seen.
#pragma once
#include <cstddef>
#include <new>

#include "pantiq/PQExport.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PQ_PLAIN_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PQ_PLAIN_HEAP 1
#endif
#endif

namespace pantiq {
namespace pool {

inline constexpr std::size_t kGrain = 16;
inline constexpr std::size_t kClasses = 32;
inline constexpr int kKept = 1024;  // free blocks of one size that a thread keeps

struct FreeBlock {
  FreeBlock* next;
};

// Plain data, so that access costs no initialisation check.
struct Cache {
  FreeBlock* head[kClasses];
  int count[kClasses];
  bool ready;  // takes blocks back; false before the thread's cleaner stands and after it has run
};

PQ_EXPORT extern constinit thread_local Cache t_cache;

// A block that the cache does not take: makes the cache ready if the thread is new, otherwise frees.
PQ_EXPORT void FreeSlowly(void* block, std::size_t index) noexcept;

}  // namespace pool

#ifdef PQ_PLAIN_HEAP

inline void* PQPoolAllocate(std::size_t bytes) { return ::operator new(bytes); }
inline void PQPoolFree(void* block, std::size_t) noexcept { ::operator delete(block); }

#else

inline void* PQPoolAllocate(std::size_t bytes) {
  const std::size_t index = (bytes + pool::kGrain - 1) / pool::kGrain - 1;
  if (index < pool::kClasses) {
    pool::Cache& cache = pool::t_cache;
    if (pool::FreeBlock* block = cache.head[index]) {
      cache.head[index] = block->next;
      --cache.count[index];
      return block;
    }
  }
  return ::operator new((index + 1) * pool::kGrain);
}

inline void PQPoolFree(void* block, std::size_t bytes) noexcept {
  const std::size_t index = (bytes + pool::kGrain - 1) / pool::kGrain - 1;
  pool::Cache& cache = pool::t_cache;
  if (index >= pool::kClasses || !cache.ready || cache.count[index] >= pool::kKept) {
    pool::FreeSlowly(block, index);
    return;
  }
  auto* free_block = static_cast<pool::FreeBlock*>(block);
  free_block->next = cache.head[index];
  cache.head[index] = free_block;
  ++cache.count[index];
}

#endif

// Give a class these allocation functions by inheriting from it. The class needs a virtual destructor if it is deleted
// through a base.
struct PQPooled {
  static void* operator new(std::size_t bytes) { return PQPoolAllocate(bytes); }
  static void operator delete(void* block, std::size_t bytes) noexcept { PQPoolFree(block, bytes); }
};

}  // namespace pantiq
