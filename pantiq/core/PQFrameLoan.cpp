#include "pantiq/core/PQFrameLoan.h"

#include <new>
#include <utility>

namespace pantiq {
namespace {

struct Loan {
  PQRef<PQFrameBlock> block;
};

}  // namespace

std::shared_ptr<void> PQLendFrame(std::int64_t step, std::int64_t rows, std::uint8_t*& data) {
  try {
    auto loan = std::make_shared<Loan>(Loan{PQFrameBlock::Make(step, rows)});
    data = loan->block->Data();
    return loan;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

PQRef<PQFrameBlock> PQTakeLentFrame(const std::shared_ptr<const void>& loan, const std::uint8_t* data,
                                    std::int64_t step, std::int64_t rows) {
  auto* const lent = static_cast<Loan*>(const_cast<void*>(loan.get()));
  if (lent == nullptr || !lent->block || data != lent->block->Data() ||
      lent->block->Bytes() != static_cast<std::size_t>(step * rows)) {
    return {};
  }
  return std::move(lent->block);
}

std::shared_ptr<const void> PQHoldFrame(PQRef<PQFrameBlock> block) {
  return std::make_shared<PQRef<PQFrameBlock>>(std::move(block));
}

}  // namespace pantiq
