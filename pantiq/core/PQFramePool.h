// Memory of frames and data blocks: reference-counted storage that buffers share until one of them writes.
//
// A block is laid out as 64 bytes of slack, the data, one more row and 64 bytes of slack. Neighbourhood kernels may read
// into the slack; it is zeroed whenever a block is laid out and nothing writes it. The data of a new block is not cleared.
// Blocks go back to a pool and are used again. Any thread.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "pantiq/host/PQRef.h"

namespace pantiq {

class PQ_EXPORT PQFrameBlock {
 public:
  static constexpr std::size_t kSlack = 64;
  static constexpr std::int64_t kMostBytes = 0x7fffffff;

  // Storage for `rows` rows of `step` bytes, data aligned to 64 bytes. Throws std::bad_alloc if there is no memory or the
  // data were larger than 2^31 - 1 bytes. Negative sizes count as 0.
  static PQRef<PQFrameBlock> Make(std::int64_t step, std::int64_t rows);

  std::uint8_t* Data() noexcept { return data_; }
  const std::uint8_t* Data() const noexcept { return data_; }
  std::size_t Bytes() const noexcept { return bytes_; }

  void AddRef() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
  void Release() const noexcept {
    if (count_.load(std::memory_order_acquire) == 1 || count_.fetch_sub(1, std::memory_order_acq_rel) == 1) Recycle();
  }
  // The acquire pairs with the release of the last other holder.
  bool IsSoleReference() const noexcept { return count_.load(std::memory_order_acquire) == 1; }

 private:
  friend class PQFramePool;
  PQFrameBlock() = default;
  ~PQFrameBlock() = default;
  void Recycle() const noexcept;
  mutable std::atomic<std::int32_t> count_{1};
  std::size_t capacity_ = 0;  // bytes that data and slack behind it may take
  std::size_t bytes_ = 0;
  std::uint8_t* data_ = nullptr;
};

class PQ_EXPORT PQFramePool {
 public:
  // For tests: every new block is filled with this byte; a negative value switches it off.
  static void SetFillByte(int value) noexcept;

  // For tests: larger blocks are refused, as if there were no memory for them.
  static void SetMostBytes(std::int64_t bytes) noexcept;

  // Pixels and elements copied because somebody wrote to what others held, or changed a format, since the process began.
  static std::uint64_t CopiedBytes() noexcept { return copied_bytes_.load(std::memory_order_relaxed); }
  static void CountCopy(std::size_t bytes) noexcept { copied_bytes_.fetch_add(bytes, std::memory_order_relaxed); }

  // Blocks that are in use, and bytes that wait for use.
  static std::int64_t LiveBlocks() noexcept;
  static std::size_t IdleBytes() noexcept;
  // Gives idle memory back to the system.
  static void Trim() noexcept;

 private:
  static std::atomic<std::uint64_t> copied_bytes_;
};

}  // namespace pantiq
