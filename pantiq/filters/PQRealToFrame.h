// Turns a stream of real numbers into gray frames.
#pragma once
#include <atomic>

#include "pantiq/core/PQStreamTypes.h"

namespace pantiq {

// Numbers fill frames row by row, each rounded to the nearest integer of which the low eight bits count: 256 is stored as 0,
// -1 as 255. The frame rate is the input's sample rate over the size of a frame.
//
// The pump: what is pumped from below goes up, unless frames that came in one block are still outstanding. Numbers that
// do not fill the frame that was asked for ask for more.
//
// Threads. Numbers and starts never overlap. Pumps from below pass on any thread; one that comes while numbers are being
// worked on goes up after them, on the thread that brought them.
class PQ_EXPORT TPQRealToFrame final : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQRealToFrame(TComponent* owner = nullptr);
  ~TPQRealToFrame() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSourcePin OutputPin;
  TRWJCComboRealSinkPin InputPin;

  // 0 is stored as 1.
  std::uint32_t GetWidth() const { return width_.load(std::memory_order_relaxed); }
  void SetWidth(std::uint32_t width);
  std::uint32_t GetHight() const { return hight_.load(std::memory_order_relaxed); }
  void SetHight(std::uint32_t hight);
  // Kept for applications; the stream takes its rate from the input.
  std::uint32_t GetFramePerSec() const { return frame_per_sec_.load(std::memory_order_relaxed); }
  void SetFramePerSec(std::uint32_t rate);

  TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  TJCNotifyResult SourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 private:
  void BeforeDestruction() override;
  TJCNotifyResult Receive(IJCNotifyOperation& op, TJCNotifyFlags flags);
  void Start(const TJCStartSampleRateOperation& start);
  void ProcessImage(const double* samples, std::int64_t count);
  void SendFrame();
  void MasterPump(const void* master);
  // Sends a pump up as soon as no numbers are being worked on.
  void AskForMore();
  // Whether there was one.
  static bool TakeOne(std::atomic<int>& count);
  void SendPumps();

  JCFrameMutex frame_mutex_;
  std::atomic<std::uint32_t> width_{240}, hight_{180}, frame_per_sec_{30};
  // Under the frame mutex:
  PQImageRef frame_;  // the frame in the making; none before a start or if it would be too large
  std::int64_t position_ = 0, number_ = 0, delay_ = 0;
  // Any thread:
  std::atomic<int> outstanding_{0};  // frames sent for which no pump has come
  // Pumps that went up and for which no frame has come. Numbers that nobody below waits for, those of a source that another
  // of its sinks pumps, must not ask for more: each part of a frame would, and the source would never come to an end.
  std::atomic<int> wanted_{0};
  std::atomic<const void*> pump_value_{nullptr};
  std::atomic<bool> just_started_{false};
  std::atomic<int> working_{0}, pumps_{0};
  std::atomic<bool> pumping_{false};
};

namespace PQRealToFrame {
PQ_EXPORT void Register();
}

}  // namespace pantiq
