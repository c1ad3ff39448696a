// A generator of the Jaehne test pattern: rings that grow denser from the centre.
#pragma once
#include "pantiq/core/PQCommonGen.h"

namespace pantiq {

// Every frame is the same.
class PQ_EXPORT TPQJaehneGen final : public TPQCommonGen {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQJaehneGen(TComponent* owner = nullptr) : TPQCommonGen(owner) {}
  ~TPQJaehneGen() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 protected:
  void GenerateFrame(PQImageRef& buffer) override;
};

namespace PQJaehneGen {
PQ_EXPORT void Register();
}

}  // namespace pantiq
