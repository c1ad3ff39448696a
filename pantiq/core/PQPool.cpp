#include "pantiq/core/PQPool.h"

namespace pantiq::pool {

constinit thread_local Cache t_cache{};

namespace {

constinit thread_local bool t_ended = false;

// Gives the thread's free blocks back when the thread ends.
struct Cleaner {
  ~Cleaner() {
    t_ended = true;
    t_cache.ready = false;
    for (FreeBlock*& head : t_cache.head) {
      while (head != nullptr) {
        FreeBlock* next = head->next;
        ::operator delete(head);
        head = next;
      }
    }
  }
};

}  // namespace

void FreeSlowly(void* block, std::size_t index) noexcept {
  if (t_cache.ready || t_ended || index >= kClasses) {
    ::operator delete(block);
    return;
  }
  static thread_local Cleaner cleaner;
  (void)cleaner;
  t_cache.ready = true;
  auto* free_block = static_cast<FreeBlock*>(block);
  free_block->next = t_cache.head[index];
  t_cache.head[index] = free_block;
  ++t_cache.count[index];
}

}  // namespace pantiq::pool
