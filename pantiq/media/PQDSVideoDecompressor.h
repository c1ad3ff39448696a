// TPQDSVideoDecompressor: compressed blocks in, frames out, by a graph that undoes what a compressor filter of the
// platform does. What the blocks are is learnt from the compressor, so the same one must be named that made them.
//
// A start builds the graph and runs it; a frame that comes out of it waits until the notify thread has taken it. Blocks
// wait while the graph has enough to do. A stop that comes down keeps what is inside, for which at most two seconds are
// given; a stop from below, a new start, a disconnection and destruction drop it at once.
//
// Threads. Starts, stops and blocks come on the threads that send them, one at a time; setters on any thread.
#pragma once
#include <atomic>
#include <memory>
#include <mutex>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/media/PQDSBinarySource.h"
#include "pantiq/media/PQDSCodecStream.h"
#include "pantiq/media/PQDSQueues.h"

namespace pantiq {

class PQ_EXPORT TPQDSVideoDecompressor final : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQDSVideoDecompressor(TComponent* owner = nullptr);
  ~TPQDSVideoDecompressor() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSourcePin OutputPin;
  TRWJCBinarySinkPin InputPin;

  TDSGraph& GetGraph() { return stream_.Graph(); }
  void SetGraph(const TDSGraph& graph) { stream_.Graph().Assign(graph); }
  // Compressors, tried in order at each start; without any, or if none can be undone, blocks are taken for the pixels
  // of frames, blue, green, red, top row first.
  TPQDSVideoCompressionItems& GetDecompressions() { return decompressions_; }
  void SetDecompressions(const TPQDSVideoCompressionItems& items) { decompressions_.Assign(items); }
  // Size of the frames, pixels.
  std::int32_t GetWidth() const { return width_.load(std::memory_order_relaxed); }
  void SetWidth(std::int32_t width);
  std::int32_t GetHeight() const { return height_.load(std::memory_order_relaxed); }
  void SetHeight(std::int32_t height);
  // Frames that wait to go out.
  std::int32_t GetQueued() const { return queue_.ItemsCount(); }
  bool IsRunning() const { return running_.load(); }

  TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  // What comes up: on, through InputPin; without a source there the decompressor takes it itself.
  TJCNotifyResult SourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  void BeforeDestruction() override;

 private:
  TJCNotifyResult StartDecompression(TJCStartSampleRateOperation& start, TJCNotifyFlags flags);
  void StopDecompression();
  void DoDecompression(const IRWDataBuffer& buffer);
  bool GetGraphI();
  bool BuildGraph();
  // Step by step with the errors that end the build; false then.
  bool BuildFilters(PQCodecGraph& graph);
  bool FindDecoder(PQCodecGraph& graph);
  bool RenderRaw(PQCodecGraph& graph);
  void DestroyGraph();
  void DisconnectInterfaces();
  void NewVideoBuffer(const PQPlatformBlock& sample);  // on a thread of the graph
  void NewThreadVideo();
  void SendWaiting(const std::atomic<bool>& alive);  // on the notify thread

  TPQDSVideoCompressionItems decompressions_{lock_};
  std::atomic<std::int32_t> width_{240}, height_{180};
  std::atomic<bool> running_{false}, resume_sent_{false};
  std::atomic<std::int32_t> frame_number_{0};
  std::atomic<std::int32_t> announced_width_{0}, announced_height_{0};
  std::atomic<bool> size_told_{false};
  TPQVideoBufferQueueThread queue_;

  // Of a thread of the graph, while it runs:
  std::int64_t output_clock_ = 0;

  // Under the frame mutex:
  std::int32_t block_size_ = 0;  // bytes
  std::int64_t period_ = 0, input_clock_ = 0;
  bool failure_told_ = false;
  std::unique_ptr<TPQDSSampleGrabberCB> callback_;
  std::unique_ptr<TMyFilter> filter_;
  PQFilterId binary_ = 0, tmp_source_ = 0, null_ = 0, compressor_ = 0, grabber_ = 0;

  TPQDSCodecStream stream_;
};

namespace PQDSVideoDecompressor {
PQ_EXPORT void Register();
}

}  // namespace pantiq
