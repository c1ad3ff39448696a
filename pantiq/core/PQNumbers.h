// Conversions between floats and integers that are defined for every value.
#pragma once
#include <cmath>
#include <cstdint>
#include <limits>

namespace pantiq {

// Nearest integer, halves to the even one, whatever the rounding mode; not-a-number gives 0; outside the type its nearest
// bound.
template <class Int = std::int32_t>
Int pq_round(double value) noexcept {
  if (std::isnan(value)) return 0;
  const double floor = std::floor(value);
  const double rest = value - floor;
  double nearest = floor;
  if (rest > 0.5 || (rest == 0.5 && std::fmod(floor, 2.0) != 0.0)) nearest = floor + 1;
  if (nearest <= static_cast<double>(std::numeric_limits<Int>::min())) return std::numeric_limits<Int>::min();
  if (nearest >= static_cast<double>(std::numeric_limits<Int>::max())) return std::numeric_limits<Int>::max();
  return static_cast<Int>(nearest);
}

// Frames per second from the time between frames in 100 ns; 0 for a delay below 1.
inline double pq_rate(std::int64_t delay) noexcept { return delay < 1 ? 0.0 : 10000000.0 / static_cast<double>(delay); }

// Time between frames in 100 ns from frames per second, to the nearest; 0 for a rate that is not finite and above 0.
inline std::int64_t pq_delay(double rate) noexcept {
  return std::isfinite(rate) && rate > 0 ? pq_round<std::int64_t>(10000000.0 / rate) : 0;
}

}  // namespace pantiq
