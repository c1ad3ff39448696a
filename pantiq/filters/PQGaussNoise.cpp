#include "pantiq/filters/PQGaussNoise.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQGaussNoise::kTag{"TPQGaussNoise", &TPQCommonNoiseFilter::kTag};

const PQClassInfo& TPQGaussNoise::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQGaussNoise>("TPQGaussNoise", "PQGaussNoise", "Adds normally distributed noise.")
          .Inherits<TPQCommonNoiseFilter>()
          .Property("Mean", &TPQGaussNoise::GetMean, &TPQGaussNoise::SetMean, PQDefault(0), PQActs::NextFrame, "Mean of the noise.")
          .Property("StDev", &TPQGaussNoise::GetStDev, &TPQGaussNoise::SetStDev, PQDefault(100), PQActs::NextFrame, "Standard deviation of the noise.")
          .Done();
  return info;
}

void TPQGaussNoise::SetMean(std::uint8_t mean) {
  auto section = Lock().WriteLock();
  mean_.store(mean, std::memory_order_relaxed);
}

void TPQGaussNoise::SetStDev(std::uint8_t st_dev) {
  auto section = Lock().WriteLock();
  st_dev_.store(st_dev, std::memory_order_relaxed);
}

void TPQGaussNoise::AddNoise(std::uint8_t* pixels, int step, IppiSize roi, std::uint16_t& seed) {
  PQ_SLOT(ippiAddRandGauss_Direct_8u_C3IR)(pixels, step, roi, GetMean(), GetStDev(), seed);
}

void PQGaussNoise::Register() {
  const PQClassInfo* const classes[] = {&TPQGaussNoise::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
