// Arithmetic and argument checks of the base kernels; their manual is PQBaseKernels.h. All variants share this file.
//
// Ranges: sums 0..510, differences -255..255, products 0..65025. Scaling by 2^-s, s > 0: (v + 2^(s-1) - 1 + bit s of v)
// >> s rounds half to even; v is below 2^16, so s above 17 acts as 17 (gives 0) and needs 18 bits. s < 0: v << -s,
// where 8 places saturate everything but 0, 24 bits. Quotients: n = src2 * 2^max(-s, 0), d = src1 * 2^max(s, 0), with s
// limited to -16..9 (2^16 / 255 is above 255; 255 / 2^9 is below one half), 24 bits.
//
// ippsSet_8u
//   length bytes of value. Faults in the order in which they are found: null -8, length below 1 -6.
#pragma once

#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

static inline bool PQEmpty(IppiSize roi) { return roi.width < 1 || roi.height < 1; }

// Order of all checks: pointers, region (or length), steps, the kernel's own.
static inline IppStatus PQCheckCopy(const void* src, const void* dst, IppiSize roi) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  return PQEmpty(roi) ? ippStsSizeErr : ippStsNoErr;
}

static inline IppStatus PQCheckOne(const void* dst, int step, IppiSize roi) {
  if (dst == nullptr) return ippStsNullPtrErr;
  if (PQEmpty(roi)) return ippStsSizeErr;
  return step < 1 ? ippStsStepErr : ippStsNoErr;
}

static inline IppStatus PQCheckTwo(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi) {
  if (const IppStatus status = PQCheckCopy(src, dst, roi)) return status;
  return src_step < 1 || dst_step < 1 ? ippStsStepErr : ippStsNoErr;
}

static inline IppStatus PQCheckThree(const void* src1, int src1_step, const void* src2, int src2_step, const void* dst,
                                     int dst_step, IppiSize roi) {
  if (src1 == nullptr || src2 == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (PQEmpty(roi)) return ippStsSizeErr;
  return src1_step < 1 || src2_step < 1 || dst_step < 1 ? ippStsStepErr : ippStsNoErr;
}

static inline IppStatus PQCheckConstant(const std::uint8_t* value, const void* dst, int step, IppiSize roi) {
  return value == nullptr ? ippStsNullPtrErr : PQCheckOne(dst, step, roi);
}

static inline IppStatus PQCheckMirror(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi,
                                      int axis) {
  if (const IppStatus status = PQCheckTwo(src, src_step, dst, dst_step, roi)) return status;
  return axis < ippAxsHorizontal || axis > ippAxsBoth ? ippStsMirrorFlipErr : ippStsNoErr;
}

static inline IppStatus PQCheckSwap(const void* src, int src_step, const void* dst, int dst_step, IppiSize roi,
                                    const int* order) {
  if (order == nullptr) return ippStsNullPtrErr;
  if (const IppStatus status = PQCheckTwo(src, src_step, dst, dst_step, roi)) return status;
  for (int k = 0; k < 3; ++k) {
    if (order[k] < 0 || order[k] > 2) return ippStsChannelOrderErr;
  }
  return ippStsNoErr;
}

static inline IppStatus PQCheckVector(const void* src, const void* dst, int length) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  return length < 1 ? ippStsSizeErr : ippStsNoErr;
}

// v * 2^-scale for v of 0 to 65025, half to even, saturated.
static inline int PQScaleSample(int v, int scale) {
  int r;
  if (scale > 0) {
    const int s = scale < 17 ? scale : 17;
    r = (v + (1 << (s - 1)) - 1 + ((v >> s) & 1)) >> s;
  } else {
    r = v << (scale > -8 ? -scale : 8);
  }
  return r < 255 ? r : 255;
}

// b / a * 2^-scale, half to even, saturated; 0 / 0 is 0, b / 0 is 255.
static inline int PQDivideSample(int a, int b, int scale) {
  if (a == 0) return b == 0 ? 0 : 255;
  const int s = scale < -16 ? -16 : scale > 9 ? 9 : scale;
  const int n = s < 0 ? b << -s : b, d = s > 0 ? a << s : a;
  const int q = n / d, twice = 2 * (n % d);
  const int r = q + (twice > d || (twice == d && (q & 1)) ? 1 : 0);
  return r < 255 ? r : 255;
}

}  // namespace pantiq
