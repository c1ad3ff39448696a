// Arithmetic of the format conversions (manual: PQFormatKernels.h) and their checks; shared by all variants.
//
// Ranges: gray sum up to 16711680 + 32768; y -1220544 to 18231876, sums of the way to RGB -18139552 to 35019498; sums
// of the way to YUY2 1081344 to 15433824 (Y) and 1085026 to 15757726 (U, V): never negative, the shift gives a byte.
#pragma once

#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

static inline IppStatus PQCheckFormat(const void* src, const void* dst, IppiSize roi) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  return roi.width < 1 || roi.height < 1 ? ippStsSizeErr : ippStsNoErr;
}

static inline std::uint8_t PQGrayOf(int b, int g, int r) {
  return static_cast<std::uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
}

static inline int PQLumaOf(int b, int g, int r) { return (0x41CB * r + 0x8106 * g + 0x1917 * b + 0x108000) >> 16; }
static inline int PQCbOf(int b, int g, int r) { return (-0x25E3 * r - 0x4A7F * g + 0x7062 * b + 0x808000) >> 16; }
static inline int PQCrOf(int b, int g, int r) { return (0x7062 * r - 0x5E35 * g - 0x122D * b + 0x808000) >> 16; }

static inline std::uint8_t PQLimit(int v) { return static_cast<std::uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// One pixel to blue, green, red.
static inline void PQPixelOfYUV(int luma, int cb, int cr, std::uint8_t* bgr) {
  const int y = 0x129FC * (luma - 16), u = cb - 128, v = cr - 128;
  bgr[0] = PQLimit((y + 0x2045A * u) >> 16);
  bgr[1] = PQLimit((y - 0x645A * u - 0xD021 * v) >> 16);
  bgr[2] = PQLimit((y + 0x19893 * v) >> 16);
}

// The last pixel of an odd row: x is its column; src and dst are the rows.
static inline void PQLastPixelToRGB24(const std::uint8_t* src, std::uint8_t* dst, std::ptrdiff_t x) {
  PQPixelOfYUV(src[2 * x], src[2 * x + 1], x > 0 ? src[2 * x - 1] : 128, dst + 3 * x);
}
static inline void PQLastPixelToYUY2(const std::uint8_t* src, std::uint8_t* dst, std::ptrdiff_t x) {
  const std::uint8_t* p = src + 3 * x;
  dst[2 * x] = static_cast<std::uint8_t>(PQLumaOf(p[0], p[1], p[2]));
  dst[2 * x + 1] = static_cast<std::uint8_t>(PQCbOf(p[0], p[1], p[2]));
}

}  // namespace pantiq
