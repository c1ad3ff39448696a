// The Wiener filter in plain code: the reference of the other variants. It has no use for the work buffer.
#include "pantiq/kernels/PQWiener.h"

#include "pantiq/kernels/PQRounding.h"

namespace pantiq {
namespace {

using u8 = std::uint8_t;

struct Window {
  std::int64_t sum = 0;
  PQWienerTotal numerator = 0;
};

// p: the window's top left.
Window Look(const u8* p, int step, IppiSize mask, int channels) {
  std::int64_t sum = 0, squares = 0;
  for (int y = 0; y < mask.height; ++y, p += step) {
    for (std::ptrdiff_t x = 0; x < mask.width; ++x) {
      const int v = p[x * channels];
      sum += v;
      squares += v * v;
    }
  }
  return {sum, PQWienerNumerator(static_cast<std::int64_t>(mask.width) * mask.height, sum, squares)};
}

// Not inlined, so that the rounding mode is set around all of it.
__attribute__((noinline)) void Filter(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask,
                                      TPoint anchor, const float* noise, int channels) {
  const std::int64_t count = static_cast<std::int64_t>(mask.width) * mask.height;
  const u8* corner =
      src - static_cast<std::ptrdiff_t>(anchor.y) * src_step - static_cast<std::ptrdiff_t>(anchor.x) * channels;
  for (int c = 0; c < channels; ++c) {
    double n = PQWienerNoise(noise[c]);
    const auto each_sample = [&](auto body) {
      for (int y = 0; y < roi.height; ++y) {
        for (std::ptrdiff_t x = 0; x < roi.width; ++x) body(y, x * channels + c);
      }
    };
    const auto at = [&](int y, std::ptrdiff_t i) {
      return Look(corner + static_cast<std::ptrdiff_t>(y) * src_step + i, src_step, mask, channels);
    };
    if (n < 0) {
      PQWienerTotal total = 0;
      each_sample([&](int y, std::ptrdiff_t i) { total += at(y, i).numerator; });
      n = PQWienerMeanVariance(total, count, roi);
    }
    each_sample([&](int y, std::ptrdiff_t i) {
      const Window w = at(y, i);
      const int x = src[static_cast<std::ptrdiff_t>(y) * src_step + i];
      dst[static_cast<std::ptrdiff_t>(y) * dst_step + i] = PQWienerSample(x, count, w.sum, w.numerator, n);
    });
  }
}

}  // namespace

#define PQ_WIENER(name, channels)                                                                                   \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, IppiSize maskSize,     \
                             TPoint anchor, const float noise[3], u8* buffer) {                                     \
    if (const IppStatus status = PQCheckWiener(src, srcStep, dst, dstStep, roi, maskSize, anchor, noise, buffer)) { \
      return status;                                                                                                \
    }                                                                                                               \
    const int mode = PQRoundToNearest();                                                                            \
    Filter(src, srcStep, dst, dstStep, roi, maskSize, anchor, noise, channels);                                     \
    PQRestoreRounding(mode);                                                                                        \
    return ippStsNoErr;                                                                                             \
  }
PQ_WIENER(ippiFilterWiener_8u_C1R, 1)
PQ_WIENER(ippiFilterWiener_8u_C3R, 3)

IppStatus PQ_VARIANT(ippiFilterWienerGetBufferSize)(IppiSize roi, IppiSize maskSize, int, int* size) {
  return PQWienerBufferSize(roi, maskSize, size);
}

}  // namespace pantiq
