// Gives frames another pixel format.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

class PQ_EXPORT TPQChangeFormat final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQChangeFormat(TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~TPQChangeFormat() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQVideoFormat GetFormat() const;
  // vfUnspecified is stored as vfRGB24.
  void SetFormat(TPQVideoFormat format);

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;

 private:
  TPQVideoFormat format_ = vfRGB24;
};

namespace PQChangeFormat {
PQ_EXPORT void Register();
}

}  // namespace pantiq
