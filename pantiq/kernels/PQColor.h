// Conversions between RGB and other colour spaces, and the split into planes.
//
// Width x height pixels of three channels, 8 bits each, steps in bytes. Channels stand in the order of the names: red
// first, but for Lab, where blue is. Source and destination are apart or exactly the same memory. Faults in the order
// in which they are found: a null source, destination or plane -8, width or height below 1 -6. Steps are not checked.
// Any thread.
//
// Notation: >> is arithmetic and rounds down; a byte takes the low eight bits; limited means limited to 0..255.
// Whatever the caller's rounding mode, floating arithmetic rounds to nearest. Results that end in exactly a half are
// rounded down where 0.499999 is added. Floating constants are those of single precision nearest to what is written,
// computed with in double precision. The way from XYZ to RGB in LUV and Lab is
//       R =  3.240479 X - 1.53715 Y - 0.498535 Z
//       G = -0.969256 X + 1.875991 Y + 0.041556 Z
//       B =  0.055648 X - 0.204043 Y + 1.057311 Z
//
// ippiRGBToYCbCr_8u_C3R, ippiYCbCrToRGB_8u_C3R
//   ITU-R BT.601, luma 16..235, integers of 2^-16:
//       Y  = (0x41CB R + 0x8106 G + 0x1917 B + 0x108000) >> 16
//       Cb = (-0x25E3 R - 0x4A7F G + 0x7062 B + 0x808000) >> 16
//       Cr = (0x7062 R - 0x5E35 G - 0x122D B + 0x808000) >> 16
//   The sums of Y are 0x108000..0xEBFBA8: bytes without a limit, as those of Cb and Cr are. Back, with
//   y = 0x129FC (Y - 16), u = Cb - 128, v = Cr - 128, each limited, sums -18139552..35019498:
//       R = (y + 0x19893 v) >> 16
//       G = (y - 0x645A u - 0xD021 v) >> 16
//       B = (y + 0x2045A u) >> 16
// ippiRGBToYUV_8u_C3R, ippiYUVToRGB_8u_C3R
//   The analogue PAL signals, integers of 2^-16, with t = 0x4C8B R + 0x9646 G + 0x1D2F B (0..255 * 65536):
//       Y = t >> 16
//       U = ((((65536 B - t + 0x7FFF) >> 16) * 0x7DF4) >> 16) + 128             17..239
//       V = limited ((((65536 R - t + 0x7FFF) >> 16) * 0xE083) >> 16) + 128
//   Back, with u = U - 128, v = V - 128, each limited:
//       R = (65536 Y + 0x123D7 v) >> 16
//       G = (65536 Y - 0x64DD u - 0x94BC v) >> 16
//       B = (65536 Y + 0x20831 u) >> 16
// ippiRGBToYCC_8u_C3R, ippiYCCToRGB_8u_C3R
//   Kodak Photo CD, with t = 0x1322 R + 0x2591 G + 0x74B B (0..255 * 16382):
//       Y  = ((t >> 10) * 0xB69) >> 16
//       C1 = ((((0x4000 B - t) >> 10) * 0x6FD) >> 16) + 156
//       C2 = ((((0x4000 R - t) >> 10) * 0x882) >> 16) + 137
//   Back, with p = 0x1D24 C2 - 0xF9844, q = 0x237C C1 - 0x159F90, each limited:
//       R = (0x15BC Y + p) >> 12
//       G = (0x15BC0 Y - 0x31A (q >> 8) - 0x824 (p >> 8)) >> 16
//       B = (0x15BC Y + q) >> 12
// ippiRGBToXYZ_8u_C3R, ippiXYZToRGB_8u_C3R
//   CIE 1931 from the primaries of ITU-R BT.709, integers of 2^-16:
//       X = (0x6996 R + 0x5B8A G + 0x2E30 B) >> 16
//       Y = (0x3671 R + 0xB714 G + 0x1279 B) >> 16
//       Z = limited (0x4F3 R + 0x1E83 G + 0xF342 B) >> 16
//   Back, each limited:
//       R = (0x33D90 X - 0x18982 Y - 0x7F9F Z) >> 16
//       G = (-0xF821 X + 0x1E040 Y + 0xAA3 Z) >> 16
//       B = (0xE3E X - 0x343C Y + 0x10EAB Z) >> 16
// ippiRGBToHLS_8u_C3R, ippiHLSToRGB_8u_C3R
//   With the channels divided by 255, mx and mn their greatest and least, d = mx - mn, s = mx + mn, l = s / 2, H and S
//   are 0 if d is 0, otherwise h = 60 (g - b) / d if r = mx, else 60 (b - r) / d + 120 if g = mx, else
//   60 (r - g) / d + 240; + 360 if negative;
//       H = trunc(h * 255 / 360 + 0.499999)
//       L = trunc(255 l + 0.499999)
//       S = trunc(255 d / (l > 0.5 ? 2 - s : s) + 0.499999)
//   Back, with h = H * 360 / 255, l = L / 255, s = S / 255: m2 = l > 0.5 ? l + s - s l : (1 + s) l, m1 = 2 l - m2; red
//   takes t = h + 120 (less 360 above 360), green t = h, blue t = h - 120 (360 more below 0), and each is
//   m1 + (m2 - m1) t / 60 below t = 60, m2 below 180, m1 + (m2 - m1) (240 - t) / 60 below 240, otherwise m1; all are l
//   if s is 0. The byte is trunc(255 * it + 0.499999).
// ippiRGBToHSV_8u_C3R, ippiHSVToRGB_8u_C3R
//   With mx, mn and d of the bytes, V = mx; H and S are 0 if d is 0, otherwise S = trunc(d / mx * 255 + 0.499999) and
//   the last of these that holds counts:
//       e = (G - B) / d                             if R = mx
//       e = 2 + (mx - R) / d - (mx - B) / d         if G = mx
//       e = (mx - G) / d + 4 - (mx - R) / d         if B = mx
//   H = trunc(e * 255 / 6 (255 more if negative) + 0.499999). Back, with s = S / 255: e = H * 360 / 255 / 60, 0 for H =
//   255; i = floor(e), f = e - i, p = (1 - s) V, q = (1 - s f) V, t = (1 - s (1 - f)) V; (R, G, B) is, from i = 0 to 5,
//   (V, t, p), (q, V, p), (p, V, t), (p, q, V), (t, p, V), (V, p, q), each trunc(it + 0.499999).
// ippiRGBToLUV_8u_C3R, ippiLUVToRGB_8u_C3R
//   CIE 1976 with the white point D65. kLuminance[i] is trunc(2.55 l + 0.5), where with Y = i / 255 l is 903.3 Y up to
//   Y = 0.008856 and 116 * cbrt(Y) - 16 above.
//       y = 0.212671 R + 0.71516 G + 0.072169 B,   Y = y / 255
//       X = (0.412453 R + 0.35758 G + 0.180423 B) / 255
//       Z = (0.019334 R + 0.119193 G + 0.950227 B) / 255
//       D = 15 Y + X + 3 Z,   u = 4 X / D,   v = 9 Y / D      u and v are 0 where the index of the table is
//       L = kLuminance[trunc(y + 0.499999)]
//       U = trunc((u - 0.197839) * 3.672316 L + 97.025429)
//       V = trunc((v - 0.468342) L * 4.961832 + 136.759552)
//   U and V as bytes. Back, each trunc(it + 0.499999) limited: l = L * 100 / 255, black below 0.00009;
//       Y = 255 (l < 7.999625 ? l / 903.3 : ((16 + l) / 116)^3)
//       u = (U * 354 / 255 - 134) / (13 l) + 0.1978394
//       v = (V * 262 / 255 - 140) / (13 l) + 0.4683422
//       t = Y / v,   X = 2.25 t u,   Z = (3 t - 5 Y) - X / 3
// ippiBGRToLab_8u_C3R, ippiLabToBGR_8u_C3R
//   CIE 1976 with the white point D65, f(w) = w <= 0.008856 ? 7.787 w + 0.137931 : w^0.33333334:
//       x = (0.412453 R + 0.35758 G + 0.180423 B) / 242.366
//       y = (0.212671 R + 0.71516 G + 0.072169 B) / 255
//       z = (0.019334 R + 0.119193 G + 0.950227 B) / 277.632
//       l = y <= 0.008856 ? 903.3 y : 116 f(y) - 16
//       L = trunc(l * 255 / 100 + 0.5)
//       a = trunc((f(x) - f(y)) * 500 + 128.5)
//       b = trunc((f(y) - f(z)) * 200 + 128.5)
//   a and b as bytes. Back, each trunc(it + 0.5) limited; there is no linear part near black on this way:
//       fy = (L * 100 / 255 + 16) / 116,   fx = fy + (a - 128) / 500,   fz = fy - (b - 128) / 200
//       X = 242.366 fx^3,   Y = 255 fy^3,   Z = 277.632 fz^3
// ippiCopy_8u_C3P3R
//   Channel k of every row to plane k, dst[k]; the three planes have one step and lie apart from each other and from
//   the source.
#pragma once

#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

static inline IppStatus PQCheckColor(const void* src, const void* dst, IppiSize roi) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  return roi.width < 1 || roi.height < 1 ? ippStsSizeErr : ippStsNoErr;
}

static inline IppStatus PQCheckPlanes(const void* src, const std::uint8_t* const* dst, IppiSize roi) {
  if (dst == nullptr || dst[0] == nullptr || dst[1] == nullptr || dst[2] == nullptr) return ippStsNullPtrErr;
  return PQCheckColor(src, dst, roi);
}

// What the variants share; defined in PQColor_px.cpp.
namespace color {

// The luminance of LUV: trunc(2.55 l + 0.5) with Y = i / 255, l = 903.3 Y up to Y = 0.008856 and 116 * cbrt(Y) - 16
// above.
extern const std::uint8_t kLuminance[256];

// Constants of single precision, as double.
#define PQ_SINGLE(name, value) inline constexpr double name = static_cast<double>(value##f)
PQ_SINGLE(kHalf, 0.499999);
PQ_SINGLE(kXR, 0.412453);
PQ_SINGLE(kXG, 0.35758);
PQ_SINGLE(kXB, 0.180423);
PQ_SINGLE(kYR, 0.212671);
PQ_SINGLE(kYG, 0.71516);
PQ_SINGLE(kYB, 0.072169);
PQ_SINGLE(kZR, 0.019334);
PQ_SINGLE(kZG, 0.119193);
PQ_SINGLE(kZB, 0.950227);
PQ_SINGLE(kRX, 3.240479);
PQ_SINGLE(kRY, -1.53715);
PQ_SINGLE(kRZ, -0.498535);
PQ_SINGLE(kGX, -0.969256);
PQ_SINGLE(kGY, 1.875991);
PQ_SINGLE(kGZ, 0.041556);
PQ_SINGLE(kBX, 0.055648);
PQ_SINGLE(kBY, -0.204043);
PQ_SINGLE(kBZ, 1.057311);
PQ_SINGLE(kLuvU, 0.197839);
PQ_SINGLE(kLuvUScale, 3.672316);
PQ_SINGLE(kLuvUOffset, 97.025429);
PQ_SINGLE(kLuvV, 0.468342);
PQ_SINGLE(kLuvVScale, 4.961832);
PQ_SINGLE(kLuvVOffset, 136.759552);
PQ_SINGLE(kLuvBlack, 0.00009);
PQ_SINGLE(kLuvLinear, 7.999625);
PQ_SINGLE(kLuvBackU, 0.1978394);
PQ_SINGLE(kLuvBackV, 0.4683422);
PQ_SINGLE(kSlope, 903.3);
PQ_SINGLE(kLabX, 242.366);
PQ_SINGLE(kLabZ, 277.632);
PQ_SINGLE(kLabLinear, 0.008856);
PQ_SINGLE(kLabSlope, 7.787);
PQ_SINGLE(kLabOffset, 0.137931);
PQ_SINGLE(kLabPower, 0.33333334);
#undef PQ_SINGLE

}  // namespace color
}  // namespace pantiq
