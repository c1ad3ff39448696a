#include "pantiq/core/PQFramePool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "pantiq/core/PQPool.h"

namespace pantiq {

constinit std::atomic<std::uint64_t> PQFramePool::copied_bytes_{0};

namespace {

#ifdef PQ_PLAIN_HEAP
constexpr bool kRecycle = false;  // a use after free is to be seen
#else
constexpr bool kRecycle = true;
#endif

constexpr std::size_t kMostIdleBytes = std::size_t{256} << 20;
constexpr std::size_t kMostIdleBlocks = 64;

struct Pool {
  std::mutex mutex;
  std::vector<PQFrameBlock*> idle;  // the latest used last
  std::size_t idle_bytes = 0;
};

Pool& ThePool() {
  static auto* const pool = new Pool;  // never destroyed: frames may outlive main
  return *pool;
}

constinit std::atomic<int> g_fill{-1};
constinit std::atomic<std::int64_t> g_most{PQFrameBlock::kMostBytes};
constinit std::atomic<std::int64_t> g_live{0};

// The header takes one cache line, so that the data behind it and the first slack stand at a multiple of 64.
constexpr std::size_t kHeader = 64;
static_assert(sizeof(PQFrameBlock) <= kHeader);

}  // namespace

PQRef<PQFrameBlock> PQFrameBlock::Make(std::int64_t step, std::int64_t rows) {
  step = std::max<std::int64_t>(step, 0);
  rows = std::max<std::int64_t>(rows, 0);
  const std::int64_t most = g_most.load(std::memory_order_relaxed);
  if (step > most || rows > most || step * rows > most) throw std::bad_alloc();
  const auto bytes = static_cast<std::size_t>(step * rows);
  const std::size_t behind = static_cast<std::size_t>(step) + kSlack;
  const std::size_t need = bytes + behind;

  PQFrameBlock* block = nullptr;
  if (kRecycle) {
    Pool& pool = ThePool();
    std::lock_guard guard(pool.mutex);
    for (std::size_t i = pool.idle.size(); i-- > 0;) {
      PQFrameBlock* candidate = pool.idle[i];
      if (candidate->capacity_ >= need && candidate->capacity_ <= need + need / 4 + 4096) {
        block = candidate;
        pool.idle.erase(pool.idle.begin() + static_cast<std::ptrdiff_t>(i));
        pool.idle_bytes -= candidate->capacity_;
        break;
      }
    }
  }
  if (block == nullptr) {
    const std::size_t grain = need < 16384 ? 256 : 4096;
    const std::size_t capacity = (need + grain - 1) / grain * grain;
    void* memory = std::aligned_alloc(64, kHeader + kSlack + capacity);
    if (memory == nullptr) throw std::bad_alloc();
    block = new (memory) PQFrameBlock;
    block->capacity_ = capacity;
    block->data_ = static_cast<std::uint8_t*>(memory) + kHeader + kSlack;
  }
  block->count_.store(1, std::memory_order_relaxed);
  block->bytes_ = bytes;
  std::memset(block->data_ - kSlack, 0, kSlack);
  std::memset(block->data_ + bytes, 0, behind);
  if (const int fill = g_fill.load(std::memory_order_relaxed); fill >= 0) std::memset(block->data_, fill, bytes);
  g_live.fetch_add(1, std::memory_order_relaxed);
  return PQRef<PQFrameBlock>::Adopt(block);
}

void PQFrameBlock::Recycle() const noexcept {
  g_live.fetch_sub(1, std::memory_order_relaxed);
  auto* self = const_cast<PQFrameBlock*>(this);
  if (kRecycle) {
    Pool& pool = ThePool();
    std::lock_guard guard(pool.mutex);
    if (pool.idle.size() < kMostIdleBlocks && pool.idle_bytes + capacity_ <= kMostIdleBytes) {
      try {
        pool.idle.push_back(self);
        pool.idle_bytes += capacity_;
        return;
      } catch (...) {  // no memory to remember it: it goes to the system
      }
    }
  }
  self->~PQFrameBlock();
  std::free(self);
}

void PQFramePool::SetFillByte(int value) noexcept { g_fill.store(value, std::memory_order_relaxed); }

void PQFramePool::SetMostBytes(std::int64_t bytes) noexcept {
  g_most.store(std::min(bytes, PQFrameBlock::kMostBytes), std::memory_order_relaxed);
}

std::int64_t PQFramePool::LiveBlocks() noexcept { return g_live.load(std::memory_order_relaxed); }

std::size_t PQFramePool::IdleBytes() noexcept {
  Pool& pool = ThePool();
  std::lock_guard guard(pool.mutex);
  return pool.idle_bytes;
}

void PQFramePool::Trim() noexcept {
  Pool& pool = ThePool();
  std::lock_guard guard(pool.mutex);
  for (PQFrameBlock* block : pool.idle) std::free(block);
  pool.idle.clear();
  pool.idle_bytes = 0;
}

}  // namespace pantiq
