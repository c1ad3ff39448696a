// Computes a frame with the frame before it.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// What becomes of a byte of the present frame (in) and of the one before (prev).
enum TPQFrameChangeOperation : std::uint8_t {
  fcoAdd,          // in + prev, at most 255
  fcoSubtractOld,  // prev - in, at least 0
  fcoSubtractNew,  // in - prev, at least 0
  fcoMultiply,     // in * prev, at most 255
  fcoDivideOld,    // prev / in, to nearest with halves to even; x / 0 is 255, 0 / 0 is 0
  fcoDivideNew,    // in / prev
  fcoOr,
  fcoAnd,
  fcoXor,
  fcoAbsDiff  // |in - prev|
};

template <>
struct PQEnumWords<TPQFrameChangeOperation> {
  static constexpr std::string_view name = "TPQFrameChangeOperation";
  static constexpr PQWord words[] = {{"fcoAdd", fcoAdd},
                                     {"fcoSubtractOld", fcoSubtractOld},
                                     {"fcoSubtractNew", fcoSubtractNew},
                                     {"fcoMultiply", fcoMultiply},
                                     {"fcoDivideOld", fcoDivideOld},
                                     {"fcoDivideNew", fcoDivideNew},
                                     {"fcoOr", fcoOr},
                                     {"fcoAnd", fcoAnd},
                                     {"fcoXor", fcoXor},
                                     {"fcoAbsDiff", fcoAbsDiff}};
};

// The frame before is the one that came in, not what went out. The first frame after a start passes unchanged, and so
// does one whose size or format differs from the one before. Gray frames stay gray. While Enabled is false no frame is
// kept.
class PQ_EXPORT TPQFrameChange final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQFrameChange(TComponent* owner = nullptr);
  ~TPQFrameChange() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Acts on the next frame. With a number that is no operation frames pass unchanged.
  TPQFrameChangeOperation GetFrameChangeOperation() const { return operation_.load(std::memory_order_relaxed); }
  void SetFrameChangeOperation(TPQFrameChangeOperation operation);

 protected:
  void SetVideoFormat(PQImageRef& buffer) override { AcceptGray(buffer); }
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;
  void Reset() override;

 private:
  std::atomic<TPQFrameChangeOperation> operation_{fcoAbsDiff};
  // Under the frame mutex:
  PQRef<TPQImageBuffer> previous_;
  bool have_previous_ = false;
};

namespace PQFrameChange {
PQ_EXPORT void Register();
}

}  // namespace pantiq
