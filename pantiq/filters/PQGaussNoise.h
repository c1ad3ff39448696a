// Adds normally distributed noise to each sample.
#pragma once
#include "pantiq/filters/PQNoiseFilter.h"

namespace pantiq {

// Every sample gets a random value with the given mean and standard deviation added, 0 to 255 kept.
class PQ_EXPORT TPQGaussNoise final : public TPQCommonNoiseFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQGaussNoise(TComponent* owner = nullptr) : TPQCommonNoiseFilter(owner) {}
  ~TPQGaussNoise() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::uint8_t GetMean() const { return mean_.load(std::memory_order_relaxed); }
  void SetMean(std::uint8_t mean);
  std::uint8_t GetStDev() const { return st_dev_.load(std::memory_order_relaxed); }
  void SetStDev(std::uint8_t st_dev);

 protected:
  void AddNoise(std::uint8_t* pixels, int step, IppiSize roi, std::uint16_t& seed) override;

 private:
  std::atomic<std::uint8_t> mean_{0}, st_dev_{100};
};

namespace PQGaussNoise {
PQ_EXPORT void Register();
}

}  // namespace pantiq
