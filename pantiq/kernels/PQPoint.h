// Kernels that take every pixel by itself: colour twist, gamma, thresholds, tables; and the histograms.
//
// Images are width x height pixels of three channels (C3) or one (C1), 8 bits each; steps in bytes. Source and
// destination are apart or exactly the same memory. Any thread.
//
// ippiColorTwist32f_8u_C3R, ippiColorTwist32f_8u_C3IR
//   Channel k of the result is, in single precision, unfused, left to right,
//       v = twist[k][0] * s0 + twist[k][1] * s1 + twist[k][2] * s2 + twist[k][3]
//   0 for v <= 0 and for not-a-number, 255 for v >= 255, otherwise rounded to nearest, halves to even.
//   Faults in the order in which they are found: a null pointer -8, width or height below 1 -6, a step below 1 -14.
// ippiGammaFwd_8u_C3R, ippiGammaInv_8u_C3R, ippiGammaFwd_8u_C3IR, ippiGammaInv_8u_C3IR
//   Every sample through a table; x = sample / 255, the result is 255 * y rounded to nearest, halves to even. It is the
//   transfer function of ITU-R BT.709.
//       forward: y = 4.5 x below x = 0.018, otherwise 1.099 x^0.45 - 0.099
//       inverse: y = x / 4.5 below x = 0.081, otherwise ((x + 0.099) / 1.099)^(1 / 0.45)
//   Faults as of the twist.
// PQTable_8u_C1R
//   Every sample of one channel through the table's 256 bytes. Faults as of the twist.
// ippiThreshold_LTVal_8u_C3R, ippiThreshold_GTVal_8u_C3R, ippiThreshold_LTValGTVal_8u_C3R
//   Samples below (LT) or above (GT) their channel's threshold become that channel's value; the others, those equal to
//   it included, are copied. Where both are tested, above comes first. Thresholds and values are three bytes each.
//   Faults in the order in which they are found: a null image -8, width or height below 1 -6, a step below 1 -14, a
//   null array -8, and for both a low threshold above the high one in any channel -18.
// ippiHistogramEven_8u_C1R, ippiHistogramEven_8u_C3R, ippiHistogramRange_8u_C3R
//   hist[k] becomes the number of samples s with levels[k] <= s < levels[k + 1], for k from 0 to nLevels - 2; 0 where
//   the levels descend. C3 takes an array of three of each. Range takes the levels as they are; Even fills them first,
//   for all channels before any is counted: from lowerLevel to upperLevel in nLevels - 1 steps of (upperLevel -
//   lowerLevel) / (nLevels - 1), truncated towards zero, where the remainder makes the first steps longer by one.
//   (Where the truncated step is 0 and the remainder negative all levels are lowerLevel.) Faults in the order in which
//   they are found, of C1: a null pointer -8, width or height below 1 -6, step below 1 -14, nLevels below 2 -107. Of
//   C3: a null source or array -8; channel by channel a null histogram or level array -8 or nLevels below 2 -107; width
//   or height below 1 -6; step below 1 -14.
#pragma once

#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

static inline IppStatus PQCheckPoint(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  return src_step < 1 || dst_step < 1 ? ippStsStepErr : ippStsNoErr;
}

static inline IppStatus PQCheckTwist(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi,
                                     const void* twist) {
  return twist == nullptr ? ippStsNullPtrErr : PQCheckPoint(src, src_step, dst, dst_step, roi);
}

static inline IppStatus PQCheckThreshold(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi,
                                         const void* threshold, const void* value) {
  if (const IppStatus status = PQCheckPoint(src, src_step, dst, dst_step, roi)) return status;
  return threshold == nullptr || value == nullptr ? ippStsNullPtrErr : ippStsNoErr;
}

static inline IppStatus PQCheckThresholds(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi,
                                          const std::uint8_t* low, const void* low_value, const std::uint8_t* high,
                                          const void* high_value) {
  if (const IppStatus status = PQCheckThreshold(src, src_step, dst, dst_step, roi, low, low_value)) return status;
  if (high == nullptr || high_value == nullptr) return ippStsNullPtrErr;
  return low[0] > high[0] || low[1] > high[1] || low[2] > high[2] ? ippStsThresholdErr : ippStsNoErr;
}

static inline IppStatus PQCheckHistogram1(const void* src, int step, IppiSize roi, const void* hist, const void* levels,
                                          int n) {
  if (hist == nullptr || levels == nullptr) return ippStsNullPtrErr;
  if (const IppStatus status = PQCheckPoint(src, step, src, step, roi)) return status;
  return n < 2 ? ippStsHistoNofLevelsErr : ippStsNoErr;
}

static inline IppStatus PQCheckHistogram3(const void* src, int step, IppiSize roi, int* const* hist, int* const* levels,
                                          const int* n) {
  if (src == nullptr || hist == nullptr || levels == nullptr || n == nullptr) return ippStsNullPtrErr;
  for (int c = 0; c < 3; ++c) {
    if (hist[c] == nullptr || levels[c] == nullptr) return ippStsNullPtrErr;
    if (n[c] < 2) return ippStsHistoNofLevelsErr;
  }
  return PQCheckPoint(src, step, src, step, roi);
}

static inline IppStatus PQCheckTable(const std::uint8_t* src, int srcStep, const std::uint8_t* dst, int dstStep, IppiSize roi,
                                     const std::uint8_t* table) {
  return table == nullptr ? ippStsNullPtrErr : PQCheckPoint(src, srcStep, dst, dstStep, roi);
}

// What the variants share; defined in PQPoint_px.cpp.
namespace point {

extern const std::uint8_t kGammaForward[256];
extern const std::uint8_t kGammaInverse[256];

// The levels of the Even forms, n of them.
void FillLevels(int* levels, int n, int lower, int upper);

// The sums of the 256 counters within the levels.
void SumWithinLevels(const std::uint32_t (&counters)[256], int* hist, const int* levels, int n);

// Both for the three channels of the Even form.
void FillLevels3(int* const* levels, const int* n, const int* lower, const int* upper);
void SumWithinLevels3(const std::uint32_t (&counters)[3][256], int* const* hist, int* const* levels, const int* n);

}  // namespace point
}  // namespace pantiq
