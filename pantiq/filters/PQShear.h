// Slants frames.
#pragma once
#include "pantiq/filters/PQMoveFilter.h"

namespace pantiq {

// An output narrower or lower than the input moves the picture out of sight and frames are black: the difference of the sizes
// counts as an unsigned number.
class PQ_EXPORT TPQShear final : public TPQCommonSmoothMoveFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQShear(TComponent* owner = nullptr) : TPQCommonSmoothMoveFilter(owner) {}
  ~TPQShear() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::int32_t GetXShear() const { return x_shear_.load(std::memory_order_relaxed); }
  void SetXShear(std::int32_t pixels);
  std::int32_t GetYShear() const { return y_shear_.load(std::memory_order_relaxed); }
  void SetYShear(std::int32_t pixels);

 protected:
  IppStatus MovePixels(const Move& move) override;

 private:
  std::atomic<std::int32_t> x_shear_{0}, y_shear_{0};
};

namespace PQShear {
PQ_EXPORT void Register();
}

}  // namespace pantiq
