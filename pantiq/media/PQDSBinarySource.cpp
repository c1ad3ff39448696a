#include "pantiq/media/PQDSBinarySource.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace pantiq {

const TGUID TMyFilter::kClassId{0x62FCB093, 0xD092, 0x48EA, {0xBF, 0x9B, 0xC8, 0x2A, 0xDB, 0xFF, 0x0E, 0x12}};

TDSMediaSample::TDSMediaSample(std::int32_t size)
    : memory_(std::make_shared_for_overwrite<std::uint8_t[]>(static_cast<std::size_t>(std::max(size, 0)))),
      size_(std::max(size, 0)) {}

HRESULT TDSMemAllocator::SetProperties(const ALLOCATOR_PROPERTIES& request, ALLOCATOR_PROPERTIES& actual) {
  const std::int64_t room = std::int64_t{std::max(request.cbBuffer, 0)} * 5 / 2 + 4096;
  actual_ = request;
  actual_.cbBuffer = static_cast<std::int32_t>(std::min<std::int64_t>(room, std::numeric_limits<std::int32_t>::max()));
  actual = actual_;
  return S_OK;
}

std::unique_ptr<TDSMediaSample> TDSMemAllocator::GetBuffer() {
  return actual_.cbBuffer > 0 ? std::make_unique<TDSMediaSample>(actual_.cbBuffer) : nullptr;
}

// --- TDSSourceStreamPin ---------------------------------------------------------------------------------------------

HRESULT TDSSourceStreamPin::DecideAllocator(std::unique_ptr<TDSMemAllocator> allocator) {
  ALLOCATOR_PROPERTIES request;
  const HRESULT result = DecideBufferSize(allocator.get(), &request);
  if (result == S_OK) allocator_ = std::move(allocator);
  return result;
}

HRESULT TDSSourceStreamPin::Active(std::shared_ptr<PQCodecGraph> graph, PQFilterId id) {
  if (graph == nullptr) return E_POINTER;
  if (const HRESULT result = DecideAllocator(std::make_unique<TDSMemAllocator>()); result != S_OK) return result;
  graph_ = std::move(graph);
  id_ = id;
  active_.store(true);
  return S_OK;
}

std::unique_ptr<TDSMediaSample> TDSSourceStreamPin::GetDeliveryBuffer() {
  return IsActive() && allocator_ != nullptr ? allocator_->GetBuffer() : nullptr;
}

HRESULT TDSSourceStreamPin::Deliver(const TDSMediaSample& sample, std::int64_t start, std::int64_t stop, bool wait,
                                    PQPlatformResult& result) {
  if (!IsActive()) return E_FAIL;
  PQPlatformBlock block;
  block.keep_alive = sample.Memory();
  block.data = static_cast<const std::uint8_t*>(block.keep_alive.get());
  block.size = static_cast<std::size_t>(sample.GetActualDataLength());
  block.begin = start, block.end = stop;
  result = graph_->SendBlock(id_, block, wait);
  return result.Ok() ? S_OK : E_FAIL;
}

// --- TMyBinarySourceStreamPin ---------------------------------------------------------------------------------------

HRESULT TMyBinarySourceStreamPin::GetMediaType(std::int32_t position, PQStreamForm* type) {
  if (position < 0) return E_INVALIDARG;
  if (position > 0) return VFW_S_NO_MORE_ITEMS;
  if (type == nullptr) return E_POINTER;
  filter_.FilterLock();
  *type = type_;
  filter_.FilterUnlock();
  return S_OK;
}

HRESULT TMyBinarySourceStreamPin::CheckMediaType(const PQStreamForm* type) {
  return type != nullptr ? S_OK : E_POINTER;
}

HRESULT TMyBinarySourceStreamPin::SetMediaType(const PQStreamForm* type) {
  if (type == nullptr) return E_POINTER;
  filter_.FilterLock();
  type_ = *type;
  filter_.FilterUnlock();
  return S_OK;
}

HRESULT TMyBinarySourceStreamPin::DecideBufferSize(TDSMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) {
  if (allocator == nullptr || request == nullptr) return E_POINTER;
  request->cBuffers = 1;
  request->cbBuffer = block_size_;
  ALLOCATOR_PROPERTIES actual;
  if (const HRESULT result = allocator->SetProperties(*request, actual); result != S_OK) return result;
  return actual.cbBuffer < block_size_ ? E_FAIL : S_OK;
}

void TMyBinarySourceStreamPin::SetBlockSize(std::int32_t bytes) { block_size_ = std::max(bytes, 1); }

bool TMyBinarySourceStreamPin::Send(const void* data, std::int32_t size, std::int64_t start, std::int64_t stop,
                                    bool wait, PQPlatformResult& result) {
  result = {kPlatformFormat, "the block is empty"};
  if (data == nullptr || size < 1) return false;
  const auto* from = static_cast<const std::uint8_t*>(data);
  while (size > 0) {
    result = {kPlatformState, "the graph does not run"};
    const auto sample = GetDeliveryBuffer();
    if (sample == nullptr) return false;
    const std::int32_t count = std::min(sample->GetSize(), size);
    if (count < 1) return false;
    std::memcpy(sample->GetPointer(), from, static_cast<std::size_t>(count));
    sample->SetActualDataLength(count);
    sample->SetSyncPoint(true);
    if (Deliver(*sample, start, stop, wait, result) != S_OK) return false;
    from += count, size -= count;
    start = stop;  // what does not fit one sample has its length in the first
  }
  return true;
}

}  // namespace pantiq
