// Two images into one in plain code: the reference of the other variants.
#include "pantiq/kernels/PQMix.h"

namespace pantiq {
namespace {

using u8 = std::uint8_t;

const u8* Row(const u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }
u8* Row(u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }

bool Within(const u8* pixel, const u8* low, const u8* high, int ranges) {
  for (int i = 0; i < ranges; ++i, low += 3, high += 3) {
    if (low[0] <= pixel[0] && pixel[0] <= high[0] && low[1] <= pixel[1] && pixel[1] <= high[1] && low[2] <= pixel[2] &&
        pixel[2] <= high[2]) {
      return true;
    }
  }
  return false;
}

u8 RoundByte(double v) {
  v = v > 0.0 ? v : 0.0;  // not-a-number too
  v = v < 255.0 ? v : 255.0;
  v += 0x1p52;  // the last bit now counts ones, so this rounds
  std::uint64_t bits;
  __builtin_memcpy(&bits, &v, sizeof bits);
  return static_cast<u8>(bits);
}

__attribute__((noinline)) void BlendRows(const u8* first, int first_step, const u8* second, int second_step, u8* dst,
                                         int dst_step, IppiSize roi, double first_weight, double second_weight) {
  const double scale = 1.0 / (first_weight + second_weight);
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(first, first_step, y);
    const u8* q = Row(second, second_step, y);
    u8* o = Row(dst, dst_step, y);
    for (int x = 0; x < roi.width; ++x) o[x] = RoundByte((p[x] * first_weight + q[x] * second_weight) * scale);
  }
}

}  // namespace

IppStatus PQ_VARIANT(PQKeyRanges_8u_C3R)(const u8* front, int frontStep, const u8* back, int backStep, u8* dst,
                                         int dstStep, IppiSize roi, const u8* low, const u8* high, int ranges) {
  if (const IppStatus s = PQCheckKeyRanges(front, frontStep, back, backStep, dst, dstStep, roi, low, high, ranges)) {
    return s;
  }
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(front, frontStep, y);
    const u8* q = Row(back, backStep, y);
    u8* o = Row(dst, dstStep, y);
    for (int x = 0; x < roi.width; ++x, p += 3, q += 3, o += 3) {
      const u8* from = Within(p, low, high, ranges) ? q : p;
      for (int c = 0; c < 3; ++c) o[c] = from[c];
    }
  }
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(PQBlend_8u_C1R)(const u8* first, int firstStep, const u8* second, int secondStep, u8* dst,
                                     int dstStep, IppiSize roi, double firstWeight, double secondWeight) {
  if (const IppStatus s = PQCheckMix(first, firstStep, second, secondStep, dst, dstStep, roi)) return s;
  const int mode = PQRoundToNearest();
  BlendRows(first, firstStep, second, secondStep, dst, dstStep, roi, firstWeight, secondWeight);
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

}  // namespace pantiq
