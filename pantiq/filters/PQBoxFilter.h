// Average, minimum, maximum or median over a rectangle round each pixel.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

enum TPQBoxFilterMode : std::uint8_t { bfmAverage, bfmMin, bfmMax, bfmMedian };
template <>
struct PQEnumWords<TPQBoxFilterMode> {
  static constexpr std::string_view name = "TPQBoxFilterMode";
  static constexpr PQWord words[] = {{"bfmAverage", 0}, {"bfmMin", 1}, {"bfmMax", 2}, {"bfmMedian", 3}};
};

// Frames in colour. A median wants odd sides: with an even one frames pass unfiltered.
class PQ_EXPORT TPQBoxFilter final : public TPQCommonROIMatrixFilterIntermidiate {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQBoxFilter(TComponent* owner = nullptr);
  ~TPQBoxFilter() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQBoxFilterMode GetFilterMode() const { return filter_mode_.load(std::memory_order_relaxed); }
  void SetFilterMode(TPQBoxFilterMode mode);

 protected:
  IppStatus PerformFilter(const std::uint8_t* source, int source_step, std::uint8_t* destination, int destination_step,
                          IppiSize roi, IppiSize mask, TPoint anchor, TPQVideoFormat format) override;

 private:
  std::atomic<TPQBoxFilterMode> filter_mode_{bfmAverage};
};

namespace PQBoxFilter {
PQ_EXPORT void Register();
}

}  // namespace pantiq
