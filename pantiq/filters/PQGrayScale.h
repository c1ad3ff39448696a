// Turns frames into gray ones.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// The output has one channel, and what is downstream sees a gray format. Luma as IPQImageBuffer::SetFormat computes it.
class PQ_EXPORT TPQGrayScale final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQGrayScale(TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~TPQGrayScale() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;
};

namespace PQGrayScale {
PQ_EXPORT void Register();
}

}  // namespace pantiq
