// What every platform service shares: how a call answers, and how frames and sound cross into a module and out of it.
// Only the standard library is used here; a module includes these headers and links nothing of the library.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "pantiq/PQExport.h"

namespace pantiq {

// Kinds of failure, the `code` of a result.
enum PQPlatformCode : long {
  kPlatformOk = 0,
  kPlatformMissing = 1,      // something is not installed; the detail names the package
  kPlatformIo = 2,           // a path cannot be read or written, a disk is full
  kPlatformFormat = 3,       // a file, a size or a format that cannot be taken
  kPlatformState = 4,        // called at the wrong time
  kPlatformInterrupted = 5,  // a wait was ended by Interrupt or Stop
  kPlatformTimeout = 6,      // the stated limit has passed
  kPlatformFailed = 7,       // anything else
};

// The answer of a platform call: 0 for success, otherwise a code and one line of what the platform said.
struct PQPlatformResult {
  long code = kPlatformOk;
  std::string detail;

  PQPlatformResult() = default;
  PQPlatformResult(long result_code, std::string text) : code(result_code), detail(std::move(text)) {}
  bool Ok() const noexcept { return code == kPlatformOk; }
};

// A frame or a block of sound in memory that somebody else owns. Nothing is copied when it crosses a seam: the memory
// stays as it is until the last copy of `keep_alive` is gone.
struct PQPlatformBlock {
  const std::uint8_t* data = nullptr;
  std::int64_t step = 0;   // frames: bytes from one row to the next; 0 for sound
  std::size_t size = 0;    // bytes from the first to the last that counts
  std::int64_t begin = 0;  // 100 ns
  std::int64_t end = 0;    // 100 ns
  std::shared_ptr<const void> keep_alive;

  // True if the memory came from the receiver's own AllocateFrame: `keep_alive` is then the very reference that was
  // given out, nobody else holds it, and the receiver may do with the memory what it wants.
  bool own = false;
};

}  // namespace pantiq
