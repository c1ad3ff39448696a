#include "pantiq/filters/PQUniformNoise.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQUniformNoise::kTag{"TPQUniformNoise", &TPQCommonNoiseFilter::kTag};

const PQClassInfo& TPQUniformNoise::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQUniformNoise>("TPQUniformNoise", "PQUniformNoise", "Adds evenly distributed noise.")
          .Inherits<TPQCommonNoiseFilter>()
          .Property("Low", &TPQUniformNoise::GetLow, &TPQUniformNoise::SetLow, PQDefault(0), PQActs::NextFrame, "Least value that is added; takes High along when it passes it.")
          .Property("High", &TPQUniformNoise::GetHigh, &TPQUniformNoise::SetHigh, PQDefault(255), PQActs::NextFrame, "Greatest value that is added; takes Low along when it passes it.")
          .Done();
  return info;
}

void TPQUniformNoise::SetLow(std::uint8_t low) {
  auto section = Lock().WriteLock();
  low_.store(low, std::memory_order_relaxed);
  if (low > GetHigh()) high_.store(low, std::memory_order_relaxed);
}

void TPQUniformNoise::SetHigh(std::uint8_t high) {
  auto section = Lock().WriteLock();
  high_.store(high, std::memory_order_relaxed);
  if (high < GetLow()) low_.store(high, std::memory_order_relaxed);
}

void TPQUniformNoise::AddNoise(std::uint8_t* pixels, int step, IppiSize roi, std::uint16_t& seed) {
  PQ_SLOT(ippiAddRandUniform_Direct_8u_C3IR)(pixels, step, roi, GetLow(), GetHigh(), seed);
}

void PQUniformNoise::Register() {
  const PQClassInfo* const classes[] = {&TPQUniformNoise::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
