// A gate on an image stream.
#pragma once
#include <atomic>
#include <mutex>

#include "pantiq/core/PQStreamTypes.h"

namespace pantiq {

// Open, everything passes. Closed, frames are dropped and a start is kept until the gate opens, which then announces
// the stream; stops and the pump pass in any case. Operations of classes that it does not know end here, pause and
// resume too.
//
// Threads. Operations come on the senders' threads, without a lock. SetEnabled runs on any thread; a start that it
// sends goes out on that thread, before the first frame that passes.
class PQ_EXPORT TPQSwitch final : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQSwitch(TComponent* owner = nullptr);
  ~TPQSwitch() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSourcePin OutputPin;
  TPQJCImageSinkPin InputPin;
  TJCBoolSinkPin EnabledPin;

  bool GetEnabled() const;
  void SetEnabled(bool enabled);
  bool GetResetOnEnable() const { return reset_on_enable_.load(std::memory_order_relaxed); }
  void SetResetOnEnable(bool reset) { reset_on_enable_.store(reset, std::memory_order_relaxed); }

  // Operations that come up: on, through InputPin; without a source there the gate answers them itself.
  TJCNotifyResult SourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  void BeforeDestruction() override;

 private:
  void StartPump();
  void PumpRequest(TJCPumpRequestOperation& op, TJCNotifyFlags flags);
  void OnEnableEvent(bool value) { SetEnabled(value); }

  std::atomic<bool> passes_{true};  // frames; true only when what is announced has been
  std::atomic<bool> reset_on_enable_{false};

  mutable std::mutex mutex_;  // a leaf: nothing is called under it. It guards what follows.
  bool enabled_ = true;
  bool pending_start_ = false;
  struct {
    const TGUID* id = nullptr;
    std::int32_t width = 0, height = 0, delay = 0;
    TPQVideoFormat format = vfRGB24;
  } start_;  // the last one seen
};

namespace PQSwitch {
PQ_EXPORT void Register();
}

}  // namespace pantiq
