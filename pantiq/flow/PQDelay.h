// Holds frames back.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// A frame leaves when the frame FrameDelay places behind it arrives. What is held when the stream stops stays and
// leaves before the frames of the next start; a shorter delay lets the surplus go with the next frame. Enabled is of no
// meaning here: frames pass in their own format. No pixel is copied.
class PQ_EXPORT TPQDelay final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQDelay(TComponent* owner = nullptr);
  ~TPQDelay() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Frames; what is below 0 counts as 0. Acts with the next frame.
  std::int32_t GetFrameDelay() const { return frame_delay_.load(std::memory_order_relaxed); }
  void SetFrameDelay(std::int32_t frames);
  // Frames held now.
  std::int32_t GetFramesHeld() const { return held_.ItemsCount(); }

 protected:
  TJCNotifyResult BufferOperation(TJCSuppliedBufferOperation& op, TJCNotifyFlags flags) override;

 private:
  std::atomic<std::int32_t> frame_delay_{30};
  TRWOperationList held_;
};

namespace PQDelay {
PQ_EXPORT void Register();
}

}  // namespace pantiq
