// Filters with masks of their own: edges, smoothing, sharpening, medians of a cross and of colours.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

enum TPQFixedMaskSize : std::uint8_t { fms3x3, fms5x5 };
template <>
struct PQEnumWords<TPQFixedMaskSize> {
  static constexpr std::string_view name = "TPQFixedMaskSize";
  static constexpr PQWord words[] = {{"fms3x3", 0}, {"fms5x5", 1}};
};

enum TPQFixedFilterType : std::uint8_t {
  ftPrewittHoriz,
  ftPrewittVert,
  ftSobelHoriz,
  ftSobelVert,
  ftRobertsDown,
  ftRobertsUp,
  ftLaplace,
  ftGauss,
  ftHipass,
  ftLowpass,
  ftSharpen,
  ftMedianCross,
  ftMedianColor
};
template <>
struct PQEnumWords<TPQFixedFilterType> {
  static constexpr std::string_view name = "TPQFixedFilterType";
  static constexpr PQWord words[] = {{"ftPrewittHoriz", 0}, {"ftPrewittVert", 1}, {"ftSobelHoriz", 2}, {"ftSobelVert", 3},
                                     {"ftRobertsDown", 4},  {"ftRobertsUp", 5},   {"ftLaplace", 6},    {"ftGauss", 7},
                                     {"ftHipass", 8},       {"ftLowpass", 9},     {"ftSharpen", 10},   {"ftMedianCross", 11},
                                     {"ftMedianColor", 12}};
};

// Frames in colour. The rim of the frame or region, up to three pixels wide, is not filtered; a frame too small for the mask
// passes as it is.
class PQ_EXPORT TPQFixedFilter final : public TPQCommonROIFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQFixedFilter(TComponent* owner = nullptr) : TPQCommonROIFilter(owner) {}
  ~TPQFixedFilter() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQFixedMaskSize GetMaskSize() const { return mask_size_.load(std::memory_order_relaxed); }
  void SetMaskSize(TPQFixedMaskSize size);
  TPQFixedFilterType GetFilterType() const { return filter_type_.load(std::memory_order_relaxed); }
  void SetFilterType(TPQFixedFilterType type);

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;
  void ReclaculateRoiAndOffset(IppiSize& size, const std::uint8_t*& source, const IPQImageBuffer& buffer,
                               std::uint8_t*& destination) override;

 private:
  void Clip(IppiSize& size, const std::uint8_t*& source, const IPQImageBuffer& buffer, std::uint8_t*& destination,
            TPQFixedFilterType type, TPQFixedMaskSize mask_size);
  std::atomic<TPQFixedMaskSize> mask_size_{fms3x3};
  std::atomic<TPQFixedFilterType> filter_type_{ftPrewittHoriz};
};

namespace PQFixedFilter {
PQ_EXPORT void Register();
}

}  // namespace pantiq
