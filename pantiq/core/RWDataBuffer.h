// Data buffers: what streams carry. Reference counted; storage is shared between buffers until one of them writes.
//
// Threads. Several threads may read one buffer. A buffer is written, and its stamps are set, only by the component that
// owns it before it submits it; a buffer that has left is never written again through the same object.
#pragma once
#include <cstdint>
#include <type_traits>

#include "pantiq/core/PQFramePool.h"
#include "pantiq/core/PQPool.h"
#include "pantiq/host/PQClassTag.h"
#include "pantiq/host/PQRef.h"

namespace pantiq {

// Running number of a buffer in its stream.
class TRWSequenceStamp {
 public:
  bool GetAvailable() const { return available_; }
  void SetAvailable(bool available) { available_ = available; }
  std::int32_t GetBufferNumber() const { return number_; }
  void SetBufferNumber(std::int32_t number) { number_ = number, available_ = true; }

 private:
  std::int32_t number_ = 0;
  bool available_ = false;
};

// Presentation interval in units of 100 ns.
class TBXTimeStamp {
 public:
  bool GetAvailable() const { return available_; }
  void SetAvailable(bool available) { available_ = available; }
  std::int64_t GetBegin() const { return begin_; }
  void SetBegin(std::int64_t begin) { begin_ = begin; }
  std::int64_t GetEnd() const { return end_; }
  void SetEnd(std::int64_t end) { end_ = end; }

 private:
  std::int64_t begin_ = 0, end_ = 0;
  bool available_ = false;
};

class IRWDataBuffer : public PQRefCounted, public PQPooled {
 public:
  PQ_EXPORT static const PQClassTag kTag;
  const PQClassTag& Tag() const noexcept { return *tag_; }

  // Makes this buffer equal to the source: size, form, data and stamps. Shares the storage, copies nothing. A source of
  // another class of buffer leaves an empty buffer with the source's stamps. Assigning a buffer to itself does nothing.
  virtual void Assign(const IRWDataBuffer& source) = 0;
  // The implementing object, to be tested for its class with PQCast.
  virtual IRWDataBuffer* GetInstance() noexcept { return this; }
  // The whole data for reading; for overwriting, old contents not kept; for changing, old contents kept. The pointer is good
  // until the next call that writes, resizes or assigns.
  virtual const void* ReadData() const noexcept = 0;
  virtual void* WriteData() = 0;
  virtual void* ModifyData() = 0;
  virtual std::int32_t GetByteSize() const noexcept = 0;
  // Number of elements.
  virtual std::int32_t GetCount() const noexcept = 0;

  TRWSequenceStamp& GetSequenceStamp() noexcept { return sequence_; }
  const TRWSequenceStamp& GetSequenceStamp() const noexcept { return sequence_; }
  TBXTimeStamp& GetTimeStamp() noexcept { return time_; }
  const TBXTimeStamp& GetTimeStamp() const noexcept { return time_; }

 protected:
  explicit IRWDataBuffer(const PQClassTag& tag) noexcept : tag_(&tag) {}
  // Takes over the stamps.
  IRWDataBuffer(const PQClassTag& tag, const IRWDataBuffer& source) noexcept
      : tag_(&tag), sequence_(source.sequence_), time_(source.time_) {}

 private:
  const PQClassTag* tag_;
  TRWSequenceStamp sequence_;
  TBXTimeStamp time_;
};

using PQDataBufferRef = PQRef<IRWDataBuffer>;

// Elements of one size in shared storage. Base of all buffers that are no frames.
class PQ_EXPORT TRWGenericBuffer : public IRWDataBuffer {
 public:
  static const PQClassTag kTag;
  // `count` elements of `element_size` bytes, contents undefined. Negative counts as 0.
  TRWGenericBuffer(std::int32_t count, std::int32_t element_size) : TRWGenericBuffer(kTag, count, element_size) {}

  void Assign(const IRWDataBuffer& source) override;
  const void* ReadData() const noexcept override { return block_ ? block_->Data() : nullptr; }
  void* WriteData() override;
  void* ModifyData() override;
  std::int32_t GetByteSize() const noexcept override { return count_ * element_size_; }
  std::int32_t GetCount() const noexcept override { return count_; }
  std::int32_t GetElementSize() const noexcept { return element_size_; }
  // Another number of elements; what they hold is then undefined, unless the number did not change.
  void SetCount(std::int32_t count);

 protected:
  TRWGenericBuffer(const PQClassTag& tag, std::int32_t count, std::int32_t element_size);

 private:
  PQRef<PQFrameBlock> block_;
  std::int32_t count_ = 0;
  std::int32_t element_size_;
};

// Raw bytes.
class PQ_EXPORT TRWBlockBuffer final : public TRWGenericBuffer {
 public:
  static const PQClassTag kTag;
  explicit TRWBlockBuffer(std::int32_t bytes) : TRWGenericBuffer(kTag, bytes, 1) {}
  // A copy of `bytes` bytes at `data`.
  TRWBlockBuffer(const void* data, std::int32_t bytes);
  const std::uint8_t* Read() const noexcept { return static_cast<const std::uint8_t*>(ReadData()); }
  std::uint8_t* Write() { return static_cast<std::uint8_t*>(WriteData()); }
  std::uint8_t* Modify() { return static_cast<std::uint8_t*>(ModifyData()); }
};

// Typed elements. SetElement outside 0..count-1 is ignored, GetElement gives 0 there.
template <class Element>
class TRWTypedBuffer : public TRWGenericBuffer {
 public:
  const Element* Read() const noexcept { return static_cast<const Element*>(ReadData()); }
  Element* Write() { return static_cast<Element*>(WriteData()); }
  Element* Modify() { return static_cast<Element*>(ModifyData()); }
  Element GetElement(std::int32_t index) const noexcept { return index < 0 || index >= GetCount() ? Element{} : Read()[index]; }
  void SetElement(std::int32_t index, Element value) {
    if (index >= 0 && index < GetCount()) Modify()[index] = value;
  }

 protected:
  TRWTypedBuffer(const PQClassTag& tag, std::int32_t count) : TRWGenericBuffer(tag, count, sizeof(Element)) {}
};

class PQ_EXPORT IRWRealBuffer : public TRWTypedBuffer<double> {
 public:
  static const PQClassTag kTag;

 protected:
  using TRWTypedBuffer<double>::TRWTypedBuffer;
};
class PQ_EXPORT TRWRealBuffer final : public IRWRealBuffer {
 public:
  static const PQClassTag kTag;
  explicit TRWRealBuffer(std::int32_t count) : IRWRealBuffer(kTag, count) {}
};

class PQ_EXPORT IRWIntegerBuffer : public TRWTypedBuffer<std::int32_t> {
 public:
  static const PQClassTag kTag;

 protected:
  using TRWTypedBuffer<std::int32_t>::TRWTypedBuffer;
};
class PQ_EXPORT TRWIntegerBuffer final : public IRWIntegerBuffer {
 public:
  static const PQClassTag kTag;
  explicit TRWIntegerBuffer(std::int32_t count) : IRWIntegerBuffer(kTag, count) {}
};

// Interleaved signed PCM, little endian. `samples` counts sample frames; an element is one of them.
class PQ_EXPORT THTAudioBuffer final : public TRWGenericBuffer {
 public:
  static const PQClassTag kTag;
  THTAudioBuffer(std::int32_t samples, std::int32_t channels, std::int32_t bits_per_sample)
      : TRWGenericBuffer(kTag, samples, channels * (bits_per_sample / 8)), channels_(channels), bits_(bits_per_sample) {}
  std::int32_t GetSamples() const noexcept { return GetCount(); }
  std::int32_t GetChannels() const noexcept { return channels_; }
  std::int32_t GetBitsPerSample() const noexcept { return bits_; }
  std::int32_t GetSampleRate() const noexcept { return rate_; }
  // The rate in Hz that the samples are played at.
  void SetFormat(std::int32_t sample_rate) noexcept { rate_ = sample_rate; }
  void Assign(const IRWDataBuffer& source) override;

 private:
  std::int32_t channels_, bits_, rate_ = 0;
};

}  // namespace pantiq
