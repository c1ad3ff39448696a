// TPQVideoDecompressor: compressed blocks in, frames out. The form of the blocks comes with the start that a compressor
// sends; for a stream without one it is what Decompressions, Width, Height and VideoFormat say. Without a codec blocks
// are taken for the pixels of frames.
//
// Threads. Starts, stops and blocks come on the threads that send them and never overlap; setters on any thread.
#pragma once
#include <atomic>

#include "pantiq/media/PQVideoCompression.h"

namespace pantiq {

class PQ_EXPORT TPQVideoDecompressor final : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQVideoDecompressor(TComponent* owner = nullptr);
  ~TPQVideoDecompressor() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSourcePin OutputPin;
  TRWJCBinarySinkPin InputPin;
  TJCBoolSinkPin EnablePin;

  // Tried in order at the start of a stream that is not announced; its codec must also be able to compress.
  TPQVideoCompressionItems& GetDecompressions() { return decompressions_; }
  void SetDecompressions(const TPQVideoCompressionItems& items) { decompressions_.Assign(items); }
  // False: no codec is opened at the next start. One that runs goes on.
  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled) { enabled_.store(enabled, std::memory_order_relaxed); }
  // What arrives at EnablePin.
  void OnEnableEvent(bool value) { SetEnabled(value); }
  // Of a stream that is not announced, in pixels; also the size that blocks are taken for without a codec.
  std::int32_t GetWidth() const { return Form().width; }
  void SetWidth(std::int32_t width);
  std::int32_t GetHeight() const { return Form().height; }
  void SetHeight(std::int32_t height);
  // Format that a stream is announced with that was not announced itself.
  TPQVideoFormat GetVideoFormat() const { return Form().format; }
  void SetVideoFormat(TPQVideoFormat format);

  TJCNotifyResult VideoSinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  // What comes up: on, through InputPin; without a source there the decompressor takes it itself.
  TJCNotifyResult VideoSourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  void BeforeDestruction() override;

 private:
  struct StreamForm {
    std::int32_t width = 240, height = 180;
    TPQVideoFormat format = vfRGB24;
  };
  StreamForm Form() const;
  TJCNotifyResult StartDecompression(float rate, TJCNotifyFlags flags);
  TJCNotifyResult StartVideoDecompression(TPQStartVideoCompressionOperation& start, TJCNotifyFlags flags);
  TJCNotifyResult StartRetransmittion(TJCStartFrameOperation& start, TJCNotifyFlags flags);
  void StopDecompression();
  struct HalfOpen;
  void DisconnectDecompression() noexcept;
  TJCNotifyResult DoDecompression(const IRWDataBuffer& buffer, TJCNotifyFlags flags);
  // A new stream: numbers and complaints begin anew.
  void BeginStream();
  // The end of both starts: begins, and announces the frames. `result` says why there is no codec.
  TJCNotifyResult BeginDecompression(float rate, PQPlatformResult result, TJCNotifyFlags flags);
  // Whether frames come out of the codec as they must; reports if not. `line` is the place of the check.
  bool AssertUncompressed(int line);
  // Sends a view of the frame with the stamps of what it was made of.
  TJCNotifyResult Submit(const TPQImageBuffer& frame, const IRWDataBuffer& source, TJCNotifyFlags flags);
  void TellOnce(const std::string& text, const PQPlatformResult& result);

  TPQVideoCompressionItems decompressions_{lock_};
  std::atomic<bool> enabled_{true};
  StreamForm form_;  // under the lock

  // Under the frame mutex:
  JCFrameMutex frame_mutex_;
  PQCodecManager* manager_ = nullptr;
  PQCodecHandle handle_ = 0;
  bool begun_ = false;  // the codec takes blocks
  std::uint32_t tag_ = 0;
  BITMAPINFOHEADER input_, output_;
  const PQRef<TPQImageBuffer> images_[2];  // upside down, and the frame
  std::int32_t frame_number_ = 0;
  bool told_ = false;  // of a block, once a start
};

namespace PQVideoDecompressor {
PQ_EXPORT void Register();
}

}  // namespace pantiq
