// TPQVideoCompressor: frames in, compressed blocks out, by a codec of the platform. Without a codec the stream passes
// as it is.
//
// Threads. Starts, stops and frames come on the threads that send them and never overlap; setters on any thread.
#pragma once
#include <atomic>

#include "pantiq/media/PQVideoCompression.h"

namespace pantiq {

class PQ_EXPORT TPQVideoCompressor final : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQVideoCompressor(TComponent* owner = nullptr);
  ~TPQVideoCompressor() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TRWJCBinarySourcePin OutputPin;
  TPQJCImageSinkPin InputPin;
  TJCBoolSinkPin EnablePin;

  // Tried in order at each start; if none opens, any codec that takes the frames.
  TPQVideoCompressionItems& GetCompressions() { return compressions_; }
  void SetCompressions(const TPQVideoCompressionItems& items) { compressions_.Assign(items); }
  // False: no codec is opened at the next start. One that runs goes on.
  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled) { enabled_.store(enabled, std::memory_order_relaxed); }
  // What arrives at EnablePin.
  void OnEnableEvent(bool value) { SetEnabled(value); }
  // Kept for applications that call it; does nothing.
  void SetCompressorIdnex(int index) { (void)index; }

  TJCNotifyResult VideoSinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  // What comes up: on, through InputPin; without a source there the compressor takes it itself.
  TJCNotifyResult VideoSourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  void BeforeDestruction() override;

 private:
  TJCNotifyResult StartCompression(TJCStartFrameOperation& start, TJCNotifyFlags flags);
  void StopCompression();
  void DeallocateCompression() noexcept;
  template <class Call>
  void Guarded(Call call) noexcept;
  void OpenCodec(const TJCStartFrameOperation& start);
  TJCNotifyResult DoCompression(TJCSuppliedBufferOperation& op, TJCNotifyFlags flags);
  void FindCodec();
  // Everything between the codec's opening and the first frame. False with a result if a step fails.
  bool BeginCompression(PQPlatformResult& result);
  // The block of a frame; null with a result if there is none.
  PQRef<TRWBlockBuffer> Compress(const IRWDataBuffer& buffer, PQPlatformResult& result);

  TPQVideoCompressionItems compressions_{lock_};
  std::atomic<bool> enabled_{true};

  // Under the frame mutex:
  JCFrameMutex frame_mutex_;
  PQCodecManager* manager_ = nullptr;
  PQCodecHandle handle_ = 0;
  std::uint32_t tag_ = 0;
  BITMAPINFOHEADER input_, output_;
  std::uint32_t quality_ = 0;
  std::size_t capacity_ = 0;  // bytes
  PQCodecMemory memory_ = 0;
  std::uint8_t* block_ = nullptr;
  std::uint32_t frame_counter_ = 0;
  bool told_failure_ = false;  // of a frame, once a start
};

namespace PQVideoCompressor {
PQ_EXPORT void Register();
}

}  // namespace pantiq
