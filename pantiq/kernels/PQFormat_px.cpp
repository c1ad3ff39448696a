// The format conversions in plain code: the reference of the other variants.
#include "pantiq/kernels/PQFormat.h"

namespace pantiq {
namespace {

using u8 = std::uint8_t;

template <class RowFunction>
IppStatus ConvertRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, RowFunction row) {
  if (const IppStatus status = PQCheckFormat(src, dst, roi)) return status;
  for (int y = 0; y < roi.height; ++y) {
    row(src + static_cast<std::ptrdiff_t>(y) * src_step, dst + static_cast<std::ptrdiff_t>(y) * dst_step, roi.width);
  }
  return ippStsNoErr;
}

}  // namespace

IppStatus PQ_VARIANT(PQRGB24ToGray)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return ConvertRows(src, srcStep, dst, dstStep, roi, [](const u8* p, u8* o, std::ptrdiff_t width) {
    for (std::ptrdiff_t x = 0; x < width; ++x) o[x] = PQGrayOf(p[3 * x], p[3 * x + 1], p[3 * x + 2]);
  });
}

IppStatus PQ_VARIANT(PQGrayToRGB24)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return ConvertRows(src, srcStep, dst, dstStep, roi, [](const u8* p, u8* o, std::ptrdiff_t width) {
    for (std::ptrdiff_t x = 0; x < width; ++x) o[3 * x] = o[3 * x + 1] = o[3 * x + 2] = p[x];
  });
}

IppStatus PQ_VARIANT(PQYUY2ToRGB24)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return ConvertRows(src, srcStep, dst, dstStep, roi, [](const u8* p, u8* o, std::ptrdiff_t width) {
    std::ptrdiff_t x = 0;
    for (; x + 2 <= width; x += 2) {
      const u8* q = p + 2 * x;
      PQPixelOfYUV(q[0], q[1], q[3], o + 3 * x);
      PQPixelOfYUV(q[2], q[1], q[3], o + 3 * x + 3);
    }
    if (x < width) PQLastPixelToRGB24(p, o, x);
  });
}

IppStatus PQ_VARIANT(PQRGB24ToYUY2)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return ConvertRows(src, srcStep, dst, dstStep, roi, [](const u8* p, u8* o, std::ptrdiff_t width) {
    std::ptrdiff_t x = 0;
    for (; x + 2 <= width; x += 2) {
      const u8* q = p + 3 * x;
      const int u = PQCbOf(q[0], q[1], q[2]) + PQCbOf(q[3], q[4], q[5]);
      const int v = PQCrOf(q[0], q[1], q[2]) + PQCrOf(q[3], q[4], q[5]);
      o[2 * x] = static_cast<u8>(PQLumaOf(q[0], q[1], q[2]));
      o[2 * x + 1] = static_cast<u8>((u + 1) >> 1);
      o[2 * x + 2] = static_cast<u8>(PQLumaOf(q[3], q[4], q[5]));
      o[2 * x + 3] = static_cast<u8>((v + 1) >> 1);
    }
    if (x < width) PQLastPixelToYUY2(p, o, x);
  });
}

}  // namespace pantiq
