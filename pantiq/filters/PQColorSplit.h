// Takes frames apart into three gray planes.
#pragma once
#include "pantiq/filters/PQColorPlanes.h"

namespace pantiq {

// Each output carries one channel of ColorMode as gray frames with the stamps of the frame; the pins are named after the
// channels. Gray frames in modes up to cmYUV are taken apart without conversion.
class PQ_EXPORT TPQColorSplit final : public TPQCommonPlaneSink {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQColorSplit(TComponent* owner = nullptr);
  ~TPQColorSplit() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 protected:
  void ProcessImage(PQImageRef buffer) override;
  // The start goes on as it came; so does the stop.
  void SendStart(TJCStartFrameOperation& start) override { NotifyOutputs(start); }
  void SendStop(TJCStopOperation& stop) override { NotifyOutputs(stop); }

};

namespace PQColorSplit {
PQ_EXPORT void Register();
}

}  // namespace pantiq
