// Stretches frames so that their corners come to other places.
#pragma once
#include "pantiq/filters/PQMoveFilter.h"

namespace pantiq {

enum TPQWarpType : std::uint8_t { wtBilinear, wtPerspective };
template <>
struct PQEnumWords<TPQWarpType> {
  static constexpr std::string_view name = "TPQWarpType";
  static constexpr PQWord words[] = {{"wtBilinear", 0}, {"wtPerspective", 1}};
};

// The rectangle stands in the middle of the output; its corners are moved by the four offsets. Corners that make no
// quadrangle give black frames.
class PQ_EXPORT TPQWarp final : public TPQCommonSmoothMoveFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQWarp(TComponent* owner = nullptr);
  ~TPQWarp() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  bool GetInverseTransform() const { return inverse_.load(std::memory_order_relaxed); }
  void SetInverseTransform(bool inverse);
  TPQWarpType GetWarpType() const { return warp_type_.load(std::memory_order_relaxed); }
  void SetWarpType(TPQWarpType type);
  TPQOffset& GetLeftTopOffset() { return left_top_; }
  TPQOffset& GetRightTopOffset() { return right_top_; }
  TPQOffset& GetLeftBottomOffset() { return left_bottom_; }
  TPQOffset& GetRightBottomOffset() { return right_bottom_; }

 protected:
  IppStatus MovePixels(const Move& move) override;
  bool IsIdentity(const Move& move) const override;

 private:
  // The four corners, in the order of the kernels: left top, right top, right bottom, left bottom.
  void Corners(const Move& move, double quad[4][2]) const;
  std::atomic<bool> inverse_{false};
  std::atomic<TPQWarpType> warp_type_{wtBilinear};
  TPQOffset left_top_, right_top_, left_bottom_, right_bottom_;
};

namespace PQWarp {
PQ_EXPORT void Register();
}

}  // namespace pantiq
