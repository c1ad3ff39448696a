// Gamma correction.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

enum TPQGammaType : std::uint8_t {
  gtForward,  // linear light to video values
  gtInverse   // video values to linear light
};
template <>
struct PQEnumWords<TPQGammaType> {
  static constexpr std::string_view name = "TPQGammaType";
  static constexpr PQWord words[] = {{"gtForward", 0}, {"gtInverse", 1}};
};

class PQ_EXPORT TPQGammaFilter final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQGammaFilter(TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~TPQGammaFilter() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQGammaType GetGammaType() const { return gamma_type_.load(std::memory_order_relaxed); }
  void SetGammaType(TPQGammaType type);

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;

 private:
  std::atomic<TPQGammaType> gamma_type_{gtForward};
};

namespace PQGammaFilter {
PQ_EXPORT void Register();
}

}  // namespace pantiq
