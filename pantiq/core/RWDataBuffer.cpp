#include "pantiq/core/RWDataBuffer.h"

#include <algorithm>
#include <cstring>

namespace pantiq {

constinit const PQClassTag IRWDataBuffer::kTag{"IRWDataBuffer", nullptr};
constinit const PQClassTag TRWGenericBuffer::kTag{"TRWGenericBuffer", &IRWDataBuffer::kTag};
constinit const PQClassTag TRWBlockBuffer::kTag{"TRWBlockBuffer", &TRWGenericBuffer::kTag};
constinit const PQClassTag IRWRealBuffer::kTag{"IRWRealBuffer", &TRWGenericBuffer::kTag};
constinit const PQClassTag TRWRealBuffer::kTag{"TRWRealBuffer", &IRWRealBuffer::kTag};
constinit const PQClassTag IRWIntegerBuffer::kTag{"IRWIntegerBuffer", &TRWGenericBuffer::kTag};
constinit const PQClassTag TRWIntegerBuffer::kTag{"TRWIntegerBuffer", &IRWIntegerBuffer::kTag};
constinit const PQClassTag THTAudioBuffer::kTag{"THTAudioBuffer", &TRWGenericBuffer::kTag};

TRWGenericBuffer::TRWGenericBuffer(const PQClassTag& tag, std::int32_t count, std::int32_t element_size)
    : IRWDataBuffer(tag), element_size_(std::max(element_size, 1)) {
  SetCount(count);
}

void TRWGenericBuffer::SetCount(std::int32_t count) {
  count = std::max(count, 0);
  if (block_ && count == count_) return;
  block_ = PQFrameBlock::Make(element_size_, count);
  count_ = count;
}

void TRWGenericBuffer::Assign(const IRWDataBuffer& source) {
  if (&source == this) return;
  GetSequenceStamp() = source.GetSequenceStamp();
  GetTimeStamp() = source.GetTimeStamp();
  const auto* other = PQCast<const TRWGenericBuffer>(&source);
  if (other == nullptr || !source.Tag().Is(Tag())) {
    block_ = PQFrameBlock::Make(element_size_, 0);
    count_ = 0;
    return;
  }
  block_ = other->block_;
  count_ = other->count_;
  element_size_ = other->element_size_;
}

void* TRWGenericBuffer::WriteData() {
  if (!block_->IsSoleReference()) block_ = PQFrameBlock::Make(element_size_, count_);
  return block_->Data();
}

void* TRWGenericBuffer::ModifyData() {
  if (!block_->IsSoleReference()) {
    auto own = PQFrameBlock::Make(element_size_, count_);
    std::memcpy(own->Data(), block_->Data(), own->Bytes());
    PQFramePool::CountCopy(own->Bytes());
    block_ = std::move(own);
  }
  return block_->Data();
}

TRWBlockBuffer::TRWBlockBuffer(const void* data, std::int32_t bytes) : TRWGenericBuffer(kTag, bytes, 1) {
  if (GetCount() > 0) std::memcpy(WriteData(), data, static_cast<std::size_t>(GetCount()));
}

void THTAudioBuffer::Assign(const IRWDataBuffer& source) {
  if (&source == this) return;
  TRWGenericBuffer::Assign(source);
  if (const auto* other = PQCast<const THTAudioBuffer>(&source)) {
    channels_ = other->channels_, bits_ = other->bits_, rate_ = other->rate_;
  }
}

}  // namespace pantiq
