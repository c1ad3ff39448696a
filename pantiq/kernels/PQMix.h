// Kernels that make one image of two.
//
// Images are width x height pixels, steps in bytes. The destination is apart from both sources or exactly the same
// memory as one of them. Any thread.
//
// PQKeyRanges_8u_C3R
//   low and high hold three bytes for each range, in the order of a pixel's channels. A pixel of dst is back's where
//   for any range low <= front <= high in all three channels, else front's. A range whose low is above its high in any
//   channel takes no pixel. Without ranges dst becomes front, and low and high may be null. Faults in the order in
//   which they are found: a null image -8, width or height below 1 -6, a step below 1 -14, ranges without their arrays
//   -8, a negative number of ranges -6.
// PQBlend_8u_C1R
//   The weighted mean of two images. Every byte becomes, in double precision, unfused, in this order,
//       v = (first * firstWeight + second * secondWeight) * scale
//       scale = 1 / (firstWeight + secondWeight)
//   0 for v <= 0 and for not-a-number, 255 for v >= 255, otherwise rounded to nearest, halves to even. The weights may
//   be any numbers. Faults in the order in which they are found: a null image -8, width or height below 1 -6, a step
//   below 1 -14.
#pragma once

#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

static inline IppStatus PQCheckMix(const void* first, int first_step, const void* second, int second_step,
                                   const void* dst, int dst_step, IppiSize roi) {
  if (first == nullptr || second == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  return first_step < 1 || second_step < 1 || dst_step < 1 ? ippStsStepErr : ippStsNoErr;
}

static inline IppStatus PQCheckKeyRanges(const void* front, int front_step, const void* back, int back_step,
                                         const void* dst, int dst_step, IppiSize roi, const void* low, const void* high,
                                         int ranges) {
  if (const IppStatus s = PQCheckMix(front, front_step, back, back_step, dst, dst_step, roi)) return s;
  if (ranges > 0 && (low == nullptr || high == nullptr)) return ippStsNullPtrErr;
  return ranges < 0 ? ippStsSizeErr : ippStsNoErr;
}

}  // namespace pantiq
