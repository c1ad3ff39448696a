// Arithmetic and argument checks of the Wiener filter; its manual is PQBaseKernels.h. All variants share this file.
//
// For a window of count cells with sum S and sum of squares Q: the numerator N = count * Q - S * S is an exact integer
// (0 to count^2 * 255^2 / 4); m = S / count and v = N / (count * count) in double. The noise n of a channel is
// level * 65025, or, for a level of 0, the mean of v: the exact sum of N over the region, divided by
// (count * count) * (width * height) in double. A sample x becomes m where v <= n, else m + (v - n) / v * (x - m),
// rounded to nearest with halves to even.
#pragma once

#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

// A sum of numerators over a region.
__extension__ using PQWienerTotal = unsigned __int128;

// The work buffer holds kPQWienerCell bytes for each sample of a strip's row: a strip of kPQWienerStrip samples and
// the mask's columns, of which no more than kPQWienerWidest count. Wider masks do without.
inline constexpr int kPQWienerStrip = 1536;
inline constexpr int kPQWienerCell = 16;
inline constexpr int kPQWienerWidest = 1 << 20;

static inline IppStatus PQCheckWiener(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi,
                                      IppiSize mask, TPoint anchor, const float* noise, const void* buffer) {
  if (src == nullptr || dst == nullptr || noise == nullptr || buffer == nullptr) return ippStsNullPtrErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  if (src_step < 1 || dst_step < 1) return ippStsStepErr;
  if (mask.width < 1 || mask.height < 1) return ippStsMaskSizeErr;
  if (anchor.x < 0 || anchor.x >= mask.width || anchor.y < 0 || anchor.y >= mask.height) return ippStsAnchorErr;
  return ippStsNoErr;
}

static inline IppStatus PQWienerBufferSize(IppiSize roi, IppiSize mask, int* size) {
  if (size == nullptr) return ippStsNullPtrErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  if (mask.width < 1 || mask.height < 1) return ippStsMaskSizeErr;
  const int columns = mask.width < kPQWienerWidest ? mask.width : kPQWienerWidest;
  *size = (kPQWienerStrip + 3 * columns + 64) * kPQWienerCell + 64;
  return ippStsNoErr;
}

// n of a level; below 0 where it is to be estimated.
static inline double PQWienerNoise(float level) {
  if (!(level > 0.0f)) return -1.0;
  return level < 1.0f ? static_cast<double>(level) * 65025.0 : 65025.0;
}

static inline PQWienerTotal PQWienerNumerator(std::int64_t count, std::int64_t sum, std::int64_t squares) {
  if (count <= 1 << 22) return static_cast<PQWienerTotal>(count * squares - sum * sum);  // below 2^61
  return static_cast<PQWienerTotal>(count) * static_cast<PQWienerTotal>(squares) -
         static_cast<PQWienerTotal>(sum) * static_cast<PQWienerTotal>(sum);
}

static inline double PQWienerMeanVariance(PQWienerTotal total, std::int64_t count, IppiSize roi) {
  const double cells = static_cast<double>(count) * static_cast<double>(count);
  return static_cast<double>(total) / (cells * static_cast<double>(static_cast<std::int64_t>(roi.width) * roi.height));
}

// In rounding to nearest.
static inline std::uint8_t PQWienerSample(int x, std::int64_t count, std::int64_t sum, PQWienerTotal numerator,
                                          double n) {
  const double mean = static_cast<double>(sum) / static_cast<double>(count);
  const double v = static_cast<double>(numerator) / (static_cast<double>(count) * static_cast<double>(count));
  const double value = v <= n ? mean : mean + (v - n) / v * (static_cast<double>(x) - mean);
  constexpr double kToWhole = 6755399441055744.0;  // 1.5 * 2^52: adding it drops the fraction, halves to even
  const double whole = (value + kToWhole) - kToWhole;
  return static_cast<std::uint8_t>(whole < 0.0 ? 0.0 : whole > 255.0 ? 255.0 : whole);
}

}  // namespace pantiq
