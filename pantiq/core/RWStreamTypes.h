// Generic, binary, real-number and audio streams: their operations, their pins, and the queue of operations.
#pragma once
#include <cstdint>
#include <list>
#include <memory>

#include "pantiq/core/JCPins.h"
#include "pantiq/core/RWDataBuffer.h"

namespace pantiq {

PQ_EXPORT extern const JCStreamType kRWBinaryStream, kRWRealStream, kHTAudioStream;

// --- operations -----------------------------------------------------------------------------------------------------

class PQ_EXPORT TJCStartSampleRateOperation : public TJCStartOperation {
 public:
  static const PQClassTag kTag;
  // `block_size` elements per buffer, 0 when free; `sample_rate` elements per second.
  TJCStartSampleRateOperation(std::int32_t block_size, double sample_rate) noexcept
      : TJCStartSampleRateOperation(kTag, block_size, sample_rate) {}
  std::int32_t BlockSize;
  double SampleRate;

 protected:
  TJCStartSampleRateOperation(const PQClassTag& tag, std::int32_t block_size, double sample_rate) noexcept
      : TJCStartOperation(tag), BlockSize(block_size), SampleRate(sample_rate) {}
};

// Start of a histogram-like stream: `block_size` levels, `sample_rate` levels times frames per second.
class PQ_EXPORT TJCStartIntensityOperation : public TJCStartSampleRateOperation {
 public:
  static const PQClassTag kTag;
  TJCStartIntensityOperation(std::int32_t block_size, double sample_rate) noexcept
      : TJCStartSampleRateOperation(kTag, block_size, sample_rate) {}
};

// Form of an audio stream: interleaved signed PCM, little endian.
struct THTWaveFormat {
  std::int32_t channels = 0;  // 1 to 8
  std::int32_t bits_per_sample = 16;
  std::int32_t samples_per_second = 0;
  std::int32_t BlockAlign() const { return channels * bits_per_sample / 8; }
};

// Start of an audio stream; keeps a copy of the format.
class PQ_EXPORT TJCStartWaveOperation : public TJCStartOperation {
 public:
  static const PQClassTag kTag;
  TJCStartWaveOperation(double rate, const THTWaveFormat& format) noexcept : TJCStartOperation(kTag), Format(format) {
    Rate = static_cast<float>(rate);
  }
  const THTWaveFormat Format;
};

// One buffer of a stream: a frame, a block of bytes, reals, audio.
class PQ_EXPORT TJCSuppliedBufferOperation final : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  explicit TJCSuppliedBufferOperation(PQDataBufferRef buffer) noexcept
      : TJCNotifyOperation(kTag), Buffer(std::move(buffer)) {}
  const PQDataBufferRef Buffer;
};

// A sample that comes alone.
class PQ_EXPORT TJCSuppliedRealOperation final : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  explicit TJCSuppliedRealOperation(double value) noexcept : TJCNotifyOperation(kTag), Value(value) {}
  const double Value;
};
class PQ_EXPORT TJCSuppliedSingleOperation final : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  explicit TJCSuppliedSingleOperation(float value) noexcept : TJCNotifyOperation(kTag), Value(value) {}
  const float Value;
};

// Hold and release of an audio or video feed.
class PQ_EXPORT TJCRWPauseOperation final : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCRWPauseOperation() noexcept : TJCNotifyOperation(kTag) {}
};
class PQ_EXPORT TJCRWResumeOperation final : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCRWResumeOperation() noexcept : TJCNotifyOperation(kTag) {}
};

// A stop that a component puts into an operation list for its own thread. No descendant of TJCStopOperation.
class PQ_EXPORT TRWInternalStopOperation final : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TRWInternalStopOperation() noexcept : TJCNotifyOperation(kTag) {}
};

// --- pins -----------------------------------------------------------------------------------------------------------

class PQ_EXPORT TRWJCSourcePin : public TJCSourcePin {
 public:
  static const PQClassTag kTag;
  using TJCSourcePin::TJCSourcePin;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  // Hands the buffer to every connected sink, inline. The buffer must not be written through the same object
  // afterwards.
  TJCNotifyResult SubmitBuffer(PQDataBufferRef buffer, TJCNotifyFlags flags = {}) {
    return Notify(*PQMakeRef<TJCSuppliedBufferOperation>(std::move(buffer)), flags);
  }
  // Sends a new stop.
  TJCNotifyResult Stop() { return Notify(*PQMakeRef<TJCStopOperation>()); }
  // The same at the end of a component: what fails is reported and goes no further.
  void StopAtEnd() noexcept;
};

class PQ_EXPORT TRWJCSinkPin : public TJCSinkPin {
 public:
  static const PQClassTag kTag;
  using TJCSinkPin::TJCSinkPin;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  // Asks the source for one frame in the name of `master`.
  TJCNotifyResult MasterPump(const void* master) { return Notify(*PQMakeRef<TJCMasterPumpOperation>(master)); }
};

class PQ_EXPORT TRWJCBinarySinkPin : public TRWJCSinkPin {
 public:
  static const PQClassTag kTag;
  TRWJCBinarySinkPin(TComponent& owner, JCDispatch dispatch) : TRWJCSinkPin(owner, kRWBinaryStream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};
class PQ_EXPORT TRWJCBinarySourcePin : public TRWJCSourcePin {
 public:
  static const PQClassTag kTag;
  TRWJCBinarySourcePin(TComponent& owner, JCDispatch dispatch) : TRWJCSourcePin(owner, kRWBinaryStream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};
// Takes reals in blocks or alone.
class PQ_EXPORT TRWJCComboRealSinkPin : public TRWJCSinkPin {
 public:
  static const PQClassTag kTag;
  TRWJCComboRealSinkPin(TComponent& owner, JCDispatch dispatch) : TRWJCSinkPin(owner, kRWRealStream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};
class PQ_EXPORT TRWJCRealSourcePin : public TRWJCSourcePin {
 public:
  static const PQClassTag kTag;
  TRWJCRealSourcePin(TComponent& owner, JCDispatch dispatch) : TRWJCSourcePin(owner, kRWRealStream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};
class PQ_EXPORT THTJCAudioSinkPin : public TRWJCSinkPin {
 public:
  static const PQClassTag kTag;
  THTJCAudioSinkPin(TComponent& owner, JCDispatch dispatch) : TRWJCSinkPin(owner, kHTAudioStream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};
class PQ_EXPORT THTJCAudioSourcePin : public TRWJCSourcePin {
 public:
  static const PQClassTag kTag;
  THTJCAudioSourcePin(TComponent& owner, JCDispatch dispatch) : TRWJCSourcePin(owner, kHTAudioStream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};

// --- pace -----------------------------------------------------------------------------------------------------------

// A component that keeps buffers and passes them on by a thread of its own, at a clock's or a pump's pace.
class PQ_EXPORT IPQPacer {
 public:
  virtual ~IPQPacer() = default;
  // Waits until what the thread was asked for before this call is done. Not under a lock; at once on that thread.
  virtual void Drain() = 0;
  // Buffers that came in at this input and would stay behind if its stream stopped now.
  virtual int Waiting(const TJCPin& input) const = 0;
};

// --- queue of operations --------------------------------------------------------------------------------------------

using PQOperationRef = PQRef<IJCNotifyOperation>;

// A first-in first-out queue of operations. Any thread. With a lock object the list uses that object's lock, so that
// one component's structures share one lock; without, a lock of its own.
class PQ_EXPORT TRWOperationList {
 public:
  explicit TRWOperationList(const TJCObject* lock = nullptr) {
    if (lock != nullptr) lock_.AddShareLock(*lock);
  }
  // Appends; `clear_first` drops the contents before. Returns the count after it.
  int Push(PQOperationRef op, bool clear_first = false);
  // Puts an operation back at the head.
  void PushBack(PQOperationRef op);
  // Takes the head; empty if there is none.
  PQOperationRef Pop();
  // The head, left in place; empty if there is none.
  PQOperationRef Peek() const;
  int ItemsCount() const;
  void Clear();
  // Holds the lock across several calls, on one thread.
  void Lock() const { lock_.BeginWrite(); }
  void Unlock() const noexcept { lock_.EndWrite(); }

 private:
  TJCObject lock_;
  std::list<PQOperationRef> items_;  // an empty one holds no memory: clearing needs none
};

}  // namespace pantiq
