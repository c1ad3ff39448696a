// Linear filters with fixed 3 x 3 and 5 x 5 masks: edges, smoothing, sharpening. Three interleaved channels, each
// filtered alike and on its own: a neighbour one pixel to the right lies three bytes further on.
//
// roi is in pixels, steps in bytes, maskCode is 33 or 55. Source and destination are apart. The kernels read one pixel
// (3 x 3) or two (5 x 5) beyond the region on every side; the caller makes these readable. Faults in the order in which
// they are found: a null pointer -8, width or height below 1 -6, a step below 1 -14, another mask code -33, no memory
// for the temporary rows -9. The destination is untouched then. Any thread.
//
// S9, S25: sums of the 3 x 3 and 5 x 5 window. c: its centre. Masks lie over the image as written, rows from the one
// above. clamp: to 0..255. The factors 29382, 455 and 10485 stand for divisions by 571, 9 and 25 and decide last bits.
//
// ippiFilterPrewittHoriz_8u_C3R
//       clamp(-1 -1 -1 / 0 0 0 / 1 1 1)             -765..765 before the clamp
// ippiFilterPrewittVert_8u_C3R
//       clamp(1 0 -1 / 1 0 -1 / 1 0 -1)             -765..765 before the clamp
// ippiFilterSobelHoriz_8u_C3R
//       clamp(-1 -2 -1 / 0 0 0 / 1 2 1)             -1020..1020 before the clamp
// ippiFilterSobelVert_8u_C3R
//       clamp(1 0 -1 / 2 0 -2 / 1 0 -1)             -1020..1020 before the clamp
// ippiFilterRobertsDown_8u_C3R
//       max(0, p(x, y) - p(x - 1, y - 1))
// ippiFilterRobertsUp_8u_C3R
//       max(0, p(x, y) - p(x + 1, y - 1))
// ippiFilterSharpen_8u_C3R
//   An eighth of 17 c - S9, halves to even:
//       v = 17 c - S9                               -2040..4080
//       clamp((v + bit 3 of v + 3) >> 3)
// ippiFilterLaplace_8u_C3R
//       33: clamp(9 c - S9)                         -2040..2040 before the clamp
//       55: clamp(-1 -3 -4 -3 -1 /
//                 -3  0  6  0 -3 /
//                 -4  6 20  6 -4 /
//                 -3  0  6  0 -3 /
//                 -1 -3 -4 -3 -1)                   -11220..11220 before the clamp
// ippiFilterGauss_8u_C3R
//   A sixteenth, halves to even, and a 571st:
//       33: T of 1 2 1 / 2 4 2 / 1 2 1              0..4080
//           (T + bit 4 of T + 7) >> 4
//       55: T of  2  7  12  7  2 /
//                 7 31  52 31  7 /
//                12 52 127 52 12 /
//                 7 31  52 31  7 /
//                 2  7  12  7  2                    0..145605
//           ((T + 286) * 29382) >> 24               the product below 2^32
// ippiFilterHipass_8u_C3R
//       33: clamp(9 c - S9)                         -2040..2040 before the clamp
//       55: clamp(25 c - S25)                       -6120..6120 before the clamp
// ippiFilterLowpass_8u_C3R
//       33: ((S9 + 5) * 455) >> 12                  at most 255
//       55: ((S25 + 13) * 10485) >> 18              at most 255
#pragma once

#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

static inline IppStatus PQCheckFixed(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  return src_step < 1 || dst_step < 1 ? ippStsStepErr : ippStsNoErr;
}

static inline IppStatus PQCheckFixedCode(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi,
                                         int mask_code) {
  if (const IppStatus status = PQCheckFixed(src, src_step, dst, dst_step, roi)) return status;
  return mask_code == ippMskSize3x3 || mask_code == ippMskSize5x5 ? ippStsNoErr : ippStsMaskSizeErr;
}

}  // namespace pantiq
