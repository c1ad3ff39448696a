// Mixes two streams pixel by pixel.
#pragma once
#include "pantiq/compose/PQCommonCombine.h"

namespace pantiq {

// What becomes of a byte of image 1 (a) and of image 2 (b).
enum TPQCombineOperation : std::uint8_t {
  coAdd,       // a + b, at most 255
  coSubtract,  // b - a, at least 0
  coMultiply,  // a * b, at most 255
  coDivide,    // b / a, to nearest with halves to even; x / 0 is 255, 0 / 0 is 0
  coOr,
  coAnd,
  coXor,
  coAbsDiff,  // |a - b|
  coCopy      // b
};

template <>
struct PQEnumWords<TPQCombineOperation> {
  static constexpr std::string_view name = "TPQCombineOperation";
  static constexpr PQWord words[] = {
      {"coAdd", coAdd}, {"coSubtract", coSubtract}, {"coMultiply", coMultiply}, {"coDivide", coDivide}, {"coOr", coOr},
      {"coAnd", coAnd}, {"coXor", coXor},           {"coAbsDiff", coAbsDiff},   {"coCopy", coCopy}};
};

// Applies CombineOperation where image 1 (InputPins.Pin1) and image 2 (InputPins.Pin2) overlap.
class PQ_EXPORT TPQCombine final : public TPQCommonCombine {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCombine(TComponent* owner = nullptr);
  ~TPQCombine() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TJCSinkPinList InputPins;

  // Acts on the next frame. A number that is no operation shows image 1.
  TPQCombineOperation GetCombineOperation() const { return operation_.load(std::memory_order_relaxed); }
  void SetCombineOperation(TPQCombineOperation operation);

 protected:
  void DoCombineOp(const std::uint8_t* a, int a_step, const std::uint8_t* b, int b_step, std::uint8_t* dst,
                   int dst_step, IppiSize size, int pixel_size) override;

 private:
  std::atomic<TPQCombineOperation> operation_{coAdd};
};

namespace PQCombine {
PQ_EXPORT void Register();
}

}  // namespace pantiq
