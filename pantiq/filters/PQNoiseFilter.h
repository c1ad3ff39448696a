// What the two noise filters share: the seed, and the frame path around a kernel that adds noise in place.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// The kernels read and write a 32-bit seed. Its high half is the published Seed, its low half the current seed: 0 until the
// first start, which sets it to Seed. Every frame moves both on, so Seed reads differently after a frame, and a start begins
// the noise anew from what Seed is at that moment.
class PQ_EXPORT TPQCommonNoiseFilter : public TPQCommonROIFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  bool CanInline() const override { return true; }

  std::uint16_t GetSeed() const;
  // Writes the published half alone; the current half follows at the next start.
  void SetSeed(std::uint16_t seed);

 protected:
  explicit TPQCommonNoiseFilter(TComponent* owner);
  // Adds noise to a C3 region in place; `seed` addresses the low half of the 32-bit seed.
  virtual void AddNoise(std::uint8_t* pixels, int step, IppiSize roi, std::uint16_t& seed) = 0;
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) final;
  void Reset() override;

 private:
  std::uint32_t seed_ = 31192u << 16;  // under the write lock
  bool seed_set_ = false;              // SetSeed came while a frame was worked on
};

}  // namespace pantiq
