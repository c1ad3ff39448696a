// Gives frames another size.
#pragma once
#include "pantiq/filters/PQMoveFilter.h"

namespace pantiq {

// The region, or the whole frame, fills OutputSize; the two axes are independent of one another.
class PQ_EXPORT TPQResize final : public TPQCommonMoveFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQResize(TComponent* owner = nullptr) : TPQCommonMoveFilter(owner) {}
  ~TPQResize() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 protected:
  IppStatus MovePixels(const Move& move) override;
  bool LeavesPixels() const override { return false; }
};

namespace PQResize {
PQ_EXPORT void Register();
}

}  // namespace pantiq
