// Takes frames apart into three gray planes.
#pragma once
#include "pantiq/core/PQSinkFilter.h"

namespace pantiq {

// Each output carries one channel of ColorMode as gray frames with the stamps of the frame; the pins are named after the
// channels. Gray frames in modes up to cmYUV are taken apart without conversion.
class PQ_EXPORT TPQColorSplit final : public TPQSinkFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQColorSplit(TComponent* owner = nullptr);
  ~TPQColorSplit() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQColorMode GetColorMode() const { return color_mode_.load(std::memory_order_relaxed); }
  void SetColorMode(TPQColorMode mode);

 protected:
  void ProcessImage(PQImageRef buffer) override;
  // The start goes on as it came; so does the stop.
  void SendStart(TJCStartFrameOperation& start) override { NotifyOutputs(start); }
  void SendStop(TJCStopOperation& stop) override { NotifyOutputs(stop); }

 private:
  void UpdatePinNames();
  std::atomic<TPQColorMode> color_mode_{cmRGB};
};

namespace PQColorSplit {
PQ_EXPORT void Register();
}

}  // namespace pantiq
