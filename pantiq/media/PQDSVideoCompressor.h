// TPQDSVideoCompressor: frames in, compressed blocks out, by a graph with a compressor filter of the platform.
//
// A start builds the graph and runs it; what comes out of it waits in a queue for the notify thread, which hands the
// blocks down. Frames wait while graph or queue have enough to do. A stop that comes down keeps what is inside, for
// which at most two seconds are given; a stop from below, a new start, a disconnection and destruction drop it at once.
//
// Threads. Starts, stops and frames come on the threads that send them, one at a time; setters on any thread.
#pragma once
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/media/PQDSCodecStream.h"
#include "pantiq/media/PQDSQueues.h"

namespace pantiq {

class PQ_EXPORT TPQDSVideoCompressor final : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQDSVideoCompressor(TComponent* owner = nullptr);
  ~TPQDSVideoCompressor() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TRWJCBinarySourcePin OutputPin;
  TPQJCImageSinkPin InputPin;

  TDSGraph& GetGraph() { return stream_.Graph(); }
  void SetGraph(const TDSGraph& graph) { stream_.Graph().Assign(graph); }
  // Tried in order at each start; without any, or if none takes the frames, blocks hold the frames as they are.
  TPQDSVideoCompressionItems& GetCompressions() { return compressions_; }
  void SetCompressions(const TPQDSVideoCompressionItems& items) { compressions_.Assign(items); }
  // False at the start: no graph is built, start and frames go out as they came.
  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled);
  // Blocks that wait to go out.
  std::int32_t GetQueued() const { return queue_.ItemsCount(); }
  bool IsRunning() const { return running_.load(); }

  TJCNotifyResult VideoSinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  // What comes up: on, through InputPin; without a source there the compressor takes it itself.
  TJCNotifyResult VideoSourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  void BeforeDestruction() override;

 private:
  TJCNotifyResult StartCompression(TJCStartFrameOperation& start, TJCNotifyFlags flags);
  void StopCompression();
  void DoCompression(const IRWDataBuffer& buffer);
  bool GetGraphI();
  bool BuildGraph();
  void DestroyGraph();
  void DisconnectInterfaces();
  void NewVideoBuffer(const PQPlatformBlock& sample);  // on a thread of the graph
  void NewThreadVideo();
  void SendWaiting(const std::atomic<bool>& alive);  // on the notify thread
  void SendData(PQRef<TRWBlockBuffer> buffer, const std::atomic<bool>& alive);
  void Once(bool& told, PQSeverity severity, const std::string& text, const PQPlatformResult& result = {});

  TPQDSVideoCompressionItems compressions_{lock_};
  std::atomic<bool> enabled_{true};
  std::atomic<bool> running_{false}, resume_sent_{false};
  std::atomic<int> blocks_sent_{0};
  TPQDSBufferQueue queue_;

  std::mutex numbers_mutex_;  // a leaf
  struct Number {
    std::int64_t begin;
    std::int32_t number;
  };
  std::deque<Number> numbers_;  // of the frames that are inside the graph

  // Under the frame mutex:
  std::int32_t width_ = 0, height_ = 0;
  std::int64_t period_ = 0;  // 100 ns
  TPQVideoFormat format_ = vfRGB24;
  PQStreamClock clock_;
  bool size_told_ = false, frame_told_ = false, failure_told_ = false;
  std::unique_ptr<TPQDSSampleGrabberCB> callback_;
  PQFilterId source_ = 0, compressor_ = 0, grabber_ = 0;

  TPQDSCodecStream stream_;
};

namespace PQDSVideoCompressor {
PQ_EXPORT void Register();
}

}  // namespace pantiq
