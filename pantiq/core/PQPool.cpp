#include "pantiq/core/PQPool.h"

#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PQ_PLAIN_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PQ_PLAIN_HEAP 1
#endif
#endif

namespace pantiq {

#ifdef PQ_PLAIN_HEAP

void* PQPoolAllocate(std::size_t bytes) { return ::operator new(bytes); }
void PQPoolFree(void* block, std::size_t) noexcept { ::operator delete(block); }

#else

namespace {

constexpr std::size_t kGrain = 16;
constexpr std::size_t kClasses = 32;  // up to 512 bytes
constexpr int kKept = 64;             // free blocks of one size that a thread keeps

struct FreeBlock {
  FreeBlock* next;
};

// Plain data, so that access costs no initialisation check.
struct Cache {
  FreeBlock* head[kClasses];
  int count[kClasses];
  bool armed;  // the thread's cleaner stands ready
  bool ended;  // the thread is going away: no more keeping
};

constinit thread_local Cache t_cache{};

struct Cleaner {
  ~Cleaner() {
    Cache& cache = t_cache;
    cache.ended = true;
    for (std::size_t i = 0; i < kClasses; ++i) {
      for (FreeBlock* block = cache.head[i]; block != nullptr;) {
        FreeBlock* next = block->next;
        ::operator delete(block);
        block = next;
      }
      cache.head[i] = nullptr;
      cache.count[i] = 0;
    }
  }
};

void Arm() {
  thread_local Cleaner cleaner;
  (void)cleaner;
  t_cache.armed = true;
}

}  // namespace

void* PQPoolAllocate(std::size_t bytes) {
  const std::size_t index = (bytes + kGrain - 1) / kGrain - 1;
  if (index >= kClasses) return ::operator new(bytes);
  Cache& cache = t_cache;
  if (FreeBlock* block = cache.head[index]) {
    cache.head[index] = block->next;
    --cache.count[index];
    return block;
  }
  return ::operator new((index + 1) * kGrain);
}

void PQPoolFree(void* block, std::size_t bytes) noexcept {
  const std::size_t index = (bytes + kGrain - 1) / kGrain - 1;
  Cache& cache = t_cache;
  if (index >= kClasses || cache.ended || cache.count[index] >= kKept) {
    ::operator delete(block);
    return;
  }
  if (!cache.armed) Arm();
  auto* free_block = static_cast<FreeBlock*>(block);
  free_block->next = cache.head[index];
  cache.head[index] = free_block;
  ++cache.count[index];
}

#endif

}  // namespace pantiq
