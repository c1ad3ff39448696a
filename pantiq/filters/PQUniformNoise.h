// Adds evenly distributed noise to each sample.
#pragma once
#include "pantiq/filters/PQNoiseFilter.h"

namespace pantiq {

// Every sample gets a random value between Low and High added, 0 to 255 kept. Low never exceeds High: setting one beyond the
// other takes the other along.
class PQ_EXPORT TPQUniformNoise final : public TPQCommonNoiseFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQUniformNoise(TComponent* owner = nullptr) : TPQCommonNoiseFilter(owner) {}
  ~TPQUniformNoise() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::uint8_t GetLow() const { return low_.load(std::memory_order_relaxed); }
  void SetLow(std::uint8_t low);
  std::uint8_t GetHigh() const { return high_.load(std::memory_order_relaxed); }
  void SetHigh(std::uint8_t high);

 protected:
  void AddNoise(std::uint8_t* pixels, int step, IppiSize roi, std::uint16_t& seed) override;

 private:
  std::atomic<std::uint8_t> low_{0}, high_{255};
};

namespace PQUniformNoise {
PQ_EXPORT void Register();
}

}  // namespace pantiq
