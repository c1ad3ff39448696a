// Adaptive noise reduction.
#pragma once
#include <memory>
#include <vector>

#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

struct TPQWienerNoiseNumbers {
  float channel[3];
  bool operator==(const TPQWienerNoiseNumbers&) const = default;
};
// The variance of the noise of each channel for intensities scaled to 0..1; 0 lets the filter estimate it.
class PQ_EXPORT TPQWienerNoiseLevels final : public TPQGuardedNumbers<TPQWienerNoiseNumbers> {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQWienerNoiseLevels(const TJCObject& lock) : TPQGuardedNumbers(lock, {{0, 0, 0}}, {}) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  float GetChannel1() const { return Get().channel[0]; }
  void SetChannel1(float level) { SetLevel(0, level); }
  float GetChannel2() const { return Get().channel[1]; }
  void SetChannel2(float level) { SetLevel(1, level); }
  float GetChannel3() const { return Get().channel[2]; }
  void SetChannel3(float level) { SetLevel(2, level); }

 private:
  void SetLevel(int i, float level) {
    Update([&](Values& v) { v.channel[i] = level; });
  }
};

// A pixel moves towards the mean of its neighbourhood, the more so the less the neighbourhood varies beyond the noise (Lim,
// Two-Dimensional Signal and Image Processing, 1990). Gray frames stay gray and use the first level.
class PQ_EXPORT TPQWienerFilter final : public TPQCommonROIMatrixFilterIntermidiate {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQWienerFilter(TComponent* owner = nullptr);
  ~TPQWienerFilter() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQWienerNoiseLevels& GetNoiseLevels() { return noise_levels_; }
  void SetNoiseLevels(const TPQWienerNoiseLevels& levels) { noise_levels_.Assign(levels); }

 protected:
  void SetVideoFormat(PQImageRef& buffer) override { AcceptGray(buffer); }
  void Stop() override;
  IppStatus PerformFilter(const std::uint8_t* source, int source_step, std::uint8_t* destination, int destination_step,
                          IppiSize roi, IppiSize mask, TPoint anchor, TPQVideoFormat format) override;

 private:
  using Work = std::vector<std::uint8_t>;
  TPQWienerNoiseLevels noise_levels_;
  std::shared_ptr<Work> work_;  // under the lock; a frame holds a reference of its own
};

namespace PQWienerFilter {
PQ_EXPORT void Register();
}

}  // namespace pantiq
