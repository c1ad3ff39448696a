// Spreads the brightness of each frame over the whole range.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// Colour frames: the lightness of HLS is equalised. Gray frames stay gray; their pixel (0, 0) keeps its value. Value 255 is
// not counted: a white frame has an empty histogram and becomes black.
class PQ_EXPORT TPQHistogramEqualize final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQHistogramEqualize(TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~TPQHistogramEqualize() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 protected:
  void SetVideoFormat(PQImageRef& buffer) override { AcceptGray(buffer); }
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;

 private:
  void GrayScaleOperation(const PQImageRef& in, PQImageRef& out);
  void RGBOperation(const PQImageRef& in, PQImageRef& out);
};

namespace PQHistogramEqualize {
PQ_EXPORT void Register();
}

}  // namespace pantiq
