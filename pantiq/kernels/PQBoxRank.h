// Windows whose size is chosen at run time, on three interleaved channels of 8 bits: box average, minimum, maximum,
// medians; and the medians of fixed shape, cross and colour.
//
// The window of output pixel (x, y) covers the source's columns x - anchor.x to x - anchor.x + mask.width - 1 and the
// rows y - anchor.y to y - anchor.y + mask.height - 1, relative to src. All of it must be readable for every pixel of
// the region: no border is made here. Region, mask and anchor are in pixels, steps in bytes. Source and destination are
// apart. Nothing depends on the caller's rounding mode. Any thread.
//
// Faults in the order in which they are found: a null pointer -8, a width or height of the region below 1 -6, a step
// below 1 -14 (the box looks at steps before the region), the mask -33, the anchor -34, no scratch memory -9.
// The mask is refused for a side below 1, for the median also an even one, and for a code that the kernel does not
// take; the anchor where it is negative or not below the mask. The destination is untouched then.
//
// ippiFilterBox_8u_C3R
//   The average. A is mask.width * mask.height in 64 bits, S the sum of the window's A samples of one channel.
//   - A above 8100: trunc(S * r + e) in doubles, r the float nearest to 1 / A, e the float 9.000000318337698e-06. S is
//     exact for every area. The result is within 0..255; white may come out as 254 (63 x 129 does).
//   - 3 x 3: (S * 29128) >> 18; S is at most 2295.
//   - Else get_shift_int(float 1 / A, shift, multiplier, 1) and the low 8 bits of (multiplier * S) >> shift. The
//     multiplier is below 4096 but for A = 1 (4096), S at most 255 * 8100, so the product stays below 2^32. The result
//     is within 0..255 and white stays white.
// ippiFilterMin_8u_C3R, ippiFilterMax_8u_C3R
//   The least and the greatest of the window, each channel by itself.
// ippiFilterMedian_8u_C3R
//   Of the window, each channel by itself: the value of rank A / 2 + 1 in ascending order. A, the number of its pixels,
//   is odd.
// ippiFilterMedianHoriz_8u_C3R, ippiFilterMedianVert_8u_C3R
//   The median of 3 or 5 pixels in a row (maskCode 31 or 51) or in a column (13 or 15), the anchor in the middle.
// ippiFilterMedianCross_8u_C3R
//   maskCode 33: the median of the pixel and its 4 neighbours (rank 3); 55: two more in each direction (rank 5 of 9).
// ippiFilterMedianColor_8u_C3R
//   The distance of two pixels is |dB| + |dG| + |dR|; the pixel of the 3 x 3 (maskCode 33) or 5 x 5 (55) window with
//   the least sum of distances to the others is copied, all channels together; of several the first in reading order,
//   top left first. Sums are at most 8 * 765 and 24 * 765.
#pragma once

#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

static inline IppStatus PQCheckWindowMask(IppiSize mask, TPoint anchor, bool odd) {
  if (mask.width < 1 || mask.height < 1) return ippStsMaskSizeErr;
  if (odd && (mask.width & mask.height & 1) == 0) return ippStsMaskSizeErr;
  if (anchor.x < 0 || anchor.x >= mask.width || anchor.y < 0 || anchor.y >= mask.height) return ippStsAnchorErr;
  return ippStsNoErr;
}

static inline IppStatus PQCheckBox(const std::uint8_t* src, int src_step, const std::uint8_t* dst, int dst_step,
                                   IppiSize roi, IppiSize mask, TPoint anchor) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (src_step < 1 || dst_step < 1) return ippStsStepErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  return PQCheckWindowMask(mask, anchor, false);
}

static inline IppStatus PQCheckRankImages(const std::uint8_t* src, int src_step, const std::uint8_t* dst, int dst_step,
                                          IppiSize roi) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  if (src_step < 1 || dst_step < 1) return ippStsStepErr;
  return ippStsNoErr;
}

static inline IppStatus PQCheckRank(const std::uint8_t* src, int src_step, const std::uint8_t* dst, int dst_step,
                                    IppiSize roi, IppiSize mask, TPoint anchor, bool odd) {
  if (const IppStatus status = PQCheckRankImages(src, src_step, dst, dst_step, roi)) return status;
  return PQCheckWindowMask(mask, anchor, odd);
}

static inline IppStatus PQCheckRankCode(const std::uint8_t* src, int src_step, const std::uint8_t* dst, int dst_step,
                                        IppiSize roi, int code, int code1, int code2) {
  if (const IppStatus status = PQCheckRankImages(src, src_step, dst, dst_step, roi)) return status;
  return code == code1 || code == code2 ? ippStsNoErr : ippStsMaskSizeErr;
}

// Scratch memory; null also when the size does not fit what ippsMalloc_8u takes.
static inline std::uint8_t* PQScratch(std::int64_t bytes) {
  return bytes > 0x7FFFFFFF ? nullptr : ippsMalloc_8u(static_cast<int>(bytes));
}

// The median's source pointer for a window whose anchor is its middle.
static inline const std::uint8_t* PQCentred(const std::uint8_t* src, int src_step, IppiSize mask, TPoint anchor) {
  return src + (mask.width / 2 - anchor.x) * std::ptrdiff_t{3} +
         std::ptrdiff_t{src_step} * (mask.height / 2 - anchor.y);
}

// How the box divides, by the area of its mask.
struct PQBoxRule {
  bool in_doubles;
  double reciprocal, nudge;  // in doubles
  unsigned multiplier;       // else: (multiplier * S) >> shift
  unsigned shift;
};
// Round to nearest must be set.
static inline PQBoxRule PQMakeBoxRule(IppiSize mask) {
  PQBoxRule rule = {};
  const std::int64_t area = std::int64_t{mask.width} * mask.height;
  const float reciprocal = static_cast<float>(1.0 / static_cast<double>(area));
  rule.in_doubles = area > 8100;
  rule.reciprocal = reciprocal;
  rule.nudge = 9.000000318337698e-06f;
  if (mask.width == 3 && mask.height == 3) {
    rule.multiplier = 29128;
    rule.shift = 18;
  } else if (!rule.in_doubles) {
    get_shift_int(reciprocal, &rule.shift, &rule.multiplier, 1);
  }
  return rule;
}

}  // namespace pantiq
