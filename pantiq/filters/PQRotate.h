// Turns frames about their centre.
#pragma once
#include "pantiq/filters/PQMoveFilter.h"

namespace pantiq {

class PQ_EXPORT TPQRotate final : public TPQCommonSmoothMoveFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQRotate(TComponent* owner = nullptr) : TPQCommonSmoothMoveFilter(owner) {}
  ~TPQRotate() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  double GetAngle() const;
  void SetAngle(double angle);
  // False: the picture turns by Angle * pi / 180 degrees while its centre is placed for a turn by Angle degrees. True: it
  // turns by Angle degrees about its centre.
  bool GetTrueDegrees() const { return true_degrees_.load(std::memory_order_relaxed); }
  void SetTrueDegrees(bool degrees);

 protected:
  IppStatus MovePixels(const Move& move) override;

 private:
  double angle_ = 0, radians_ = 0;  // under the lock
  std::atomic<bool> true_degrees_{false};
};

namespace PQRotate {
PQ_EXPORT void Register();
}

}  // namespace pantiq
