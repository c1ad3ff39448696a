// Frame memory on loan: a block goes out to somebody who knows no frames, and comes back with pixels in it.
#pragma once
#include <cstdint>
#include <memory>

#include "pantiq/core/PQFramePool.h"

namespace pantiq {

// A block for `rows` rows of `step` bytes, held by the answer alone; `data` is its first byte. Null if there is no
// memory.
PQ_EXPORT std::shared_ptr<void> PQLendFrame(std::int64_t step, std::int64_t rows, std::uint8_t*& data);

// Takes the block back out of what PQLendFrame gave. Empty, and nothing is taken, unless it holds exactly `rows` rows
// of `step` bytes from `data` on. Only for a loan that nobody else uses any more.
PQ_EXPORT PQRef<PQFrameBlock> PQTakeLentFrame(const std::shared_ptr<const void>& loan, const std::uint8_t* data,
                                              std::int64_t step, std::int64_t rows);

// Holds a block for as long as the answer lives: what keeps a frame's pixels while they are with somebody else.
PQ_EXPORT std::shared_ptr<const void> PQHoldFrame(PQRef<PQFrameBlock> block);

}  // namespace pantiq
