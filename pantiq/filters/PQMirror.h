// Flips each frame about an axis.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

enum TPQMirrorType : std::uint8_t {
  mtHorizontal,  // top and bottom rows change places
  mtVertical,    // left and right columns change places
  mtBoth
};
template <>
struct PQEnumWords<TPQMirrorType> {
  static constexpr std::string_view name = "TPQMirrorType";
  static constexpr PQWord words[] = {{"mtHorizontal", 0}, {"mtVertical", 1}, {"mtBoth", 2}};
};

// Gray frames stay gray.
class PQ_EXPORT TPQMirror final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQMirror(TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~TPQMirror() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQMirrorType GetMirrorType() const { return mirror_type_.load(std::memory_order_relaxed); }
  void SetMirrorType(TPQMirrorType type);

 protected:
  void SetVideoFormat(PQImageRef& buffer) override { AcceptGray(buffer); }
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;

 private:
  std::atomic<TPQMirrorType> mirror_type_{mtHorizontal};
};

namespace PQMirror {
PQ_EXPORT void Register();
}

}  // namespace pantiq
