// The base of generators: a source of frames without an input.
//
// A start from below runs IntStart: a pump request goes out, then the start of the stream, then the start of the pump. If
// somebody claimed the pump, one frame is made for each pump that arrives, on the caller's thread. Otherwise frames come at
// Rate on a thread of the generator's own, while OutputPin is connected. A stop from below ends it and a stop goes out.
//
// Frames are numbered from 0 at each start (time code and sequence stamp); frame n is stamped n * delay to (n + 1) * delay.
//
// Threads. Setters and dispatch on any thread; a start or stop may come from inside a frame's way down.
#pragma once
#include <atomic>
#include <memory>
#include <mutex>

#include "pantiq/core/PQRegion.h"
#include "pantiq/core/PQStreamTypes.h"

namespace pantiq {

class PQ_EXPORT TPQCommonGen : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCommonGen(TComponent* owner);
  ~TPQCommonGen() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSourcePin OutputPin;

  TPQSize& GetImageSizeObject() { return image_size_; }
  void SetImageSize(const TPQSize& size) { image_size_.Assign(size); }

  // Frames per second. A value that is not finite and above 0 is ignored.
  double GetRate() const { return rate_.load(std::memory_order_relaxed); }
  virtual void SetRate(double rate);

  virtual TJCNotifyResult DispatchOperation(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  // Sends a pump request; true if somebody claimed it.
  virtual bool RequestPump();
  virtual void IntStart();
  virtual void IntStop();
  // Fills the whole frame, which comes in vfRGB24 and of GetImageSize.
  virtual void GenerateFrame(PQImageRef& buffer) = 0;
  virtual TPQSize::Values GetImageSize() { return image_size_.Get(); }
  // Whether there is anybody to make frames for.
  virtual bool IsConnected() const { return OutputPin.IsConnected(); }
  void BeforeDestruction() override;
  const TJCObject& Lock() const { return lock_; }
  TPQSize& ImageSize() { return image_size_; }

 private:
  struct Loop;
  void SendFrame();
  void Pump();
  void EndLoop(bool wait_here = false);
  static void Run(const std::shared_ptr<Loop>& loop);

  TPQSize image_size_;
  std::atomic<double> rate_{25.0};
  std::atomic<bool> running_{false};
  std::atomic<const void*> master_{nullptr};  // who claimed the pump; compared, never dereferenced
  std::atomic<int> pumps_{0};                 // pumps that wait for the call that is making frames
  std::mutex state_mutex_;                    // a leaf: the loop's reference
  std::shared_ptr<Loop> loop_;
  std::atomic<std::int64_t> frame_number_{0}, delay_{400000};
};

}  // namespace pantiq
