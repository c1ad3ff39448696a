// The argument lists of the table in slots.def, by name: PQ_PARAMS_<signature> declares them, PQ_ARGS_<signature>
// passes them on. Every kernel of the table returns an IppStatus.
#pragma once

#include <cstddef>
#include <cstdint>

#include "pantiq/kernels/PQImageDefs.h"

#define PQ_PARAMS_Image (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi)
#define PQ_ARGS_Image (src, srcStep, dst, dstStep, roi)

#define PQ_PARAMS_ImageCode \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, int maskCode)
#define PQ_ARGS_ImageCode (src, srcStep, dst, dstStep, roi, maskCode)

#define PQ_PARAMS_Window \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, IppiSize mask, TPoint anchor)
#define PQ_ARGS_Window (src, srcStep, dst, dstStep, roi, mask, anchor)

#define PQ_PARAMS_Morphology                                                                                     \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, const std::uint8_t* mask, \
   IppiSize maskSize, TPoint anchor)
#define PQ_ARGS_Morphology (src, srcStep, dst, dstStep, roi, mask, maskSize, anchor)

#define PQ_PARAMS_MorphologyInit \
  (int roiWidth, const int* mask, IppiSize maskSize, TPoint anchor, IppiMorphState*& state)
#define PQ_ARGS_MorphologyInit (roiWidth, mask, maskSize, anchor, state)

#define PQ_PARAMS_MorphologyFree (IppiMorphState * &state)
#define PQ_ARGS_MorphologyFree (state)

#define PQ_PARAMS_Twist \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, const float twist[3][4])
#define PQ_ARGS_Twist (src, srcStep, dst, dstStep, roi, twist)

#define PQ_PARAMS_TwistInPlace (std::uint8_t * srcDst, int step, IppiSize roi, const float twist[3][4])
#define PQ_ARGS_TwistInPlace (srcDst, step, roi, twist)

#define PQ_PARAMS_ThresholdBoth                                                                   \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi,            \
   const std::uint8_t* thresholdLT, const std::uint8_t* valueLT, const std::uint8_t* thresholdGT, \
   const std::uint8_t* valueGT)
#define PQ_ARGS_ThresholdBoth (src, srcStep, dst, dstStep, roi, thresholdLT, valueLT, thresholdGT, valueGT)

#define PQ_PARAMS_Threshold                                                                                           \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, const std::uint8_t* threshold, \
   const std::uint8_t* value)
#define PQ_ARGS_Threshold (src, srcStep, dst, dstStep, roi, threshold, value)

#define PQ_PARAMS_InPlace (std::uint8_t * srcDst, int step, IppiSize roi)
#define PQ_ARGS_InPlace (srcDst, step, roi)

// The seed is four bytes wide whatever its declared type: the kernels read and write 32 bits through it.
#define PQ_PARAMS_Noise \
  (std::uint8_t * srcDst, int step, IppiSize roi, std::uint8_t a, std::uint8_t b, std::uint16_t& seed)
#define PQ_ARGS_Noise (srcDst, step, roi, a, b, seed)

#define PQ_PARAMS_Fill (std::uint8_t value, std::uint8_t * dst, int length)
#define PQ_ARGS_Fill (value, dst, length)

#define PQ_PARAMS_Planes \
  (const std::uint8_t* src, int srcStep, const std::uint8_t* const* dst, int dstStep, IppiSize roi)
#define PQ_ARGS_Planes (src, srcStep, dst, dstStep, roi)

#define PQ_PARAMS_Histogram3                                                                                 \
  (const std::uint8_t* src, int step, IppiSize roi, int** hist, int** levels, int* nLevels, int* lowerLevel, \
   int* upperLevel)
#define PQ_ARGS_Histogram3 (src, step, roi, hist, levels, nLevels, lowerLevel, upperLevel)

#define PQ_PARAMS_Histogram1 \
  (const std::uint8_t* src, int step, IppiSize roi, int* hist, int* levels, int nLevels, int lowerLevel, int upperLevel)
#define PQ_ARGS_Histogram1 (src, step, roi, hist, levels, nLevels, lowerLevel, upperLevel)

#define PQ_PARAMS_RotateShift (double xCenter, double yCenter, double angle, double* xShift, double* yShift)
#define PQ_ARGS_RotateShift (xCenter, yCenter, angle, xShift, yShift)

#define PQ_PARAMS_Transform (TPQImageRect rect, const double quad[4][2], double* coeffs)
#define PQ_ARGS_Transform (rect, quad, coeffs)

#define PQ_PARAMS_Rotate                                                                                        \
  (const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, \
   TPQImageRect dstRoi, double angle, double xShift, double yShift, int interpolation)
#define PQ_ARGS_Rotate (src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, angle, xShift, yShift, interpolation)

#define PQ_PARAMS_Shear                                                                                         \
  (const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, \
   TPQImageRect dstRoi, double xShear, double yShear, double xShift, double yShift, int interpolation)
#define PQ_ARGS_Shear \
  (src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, xShear, yShear, xShift, yShift, interpolation)

#define PQ_PARAMS_Perspective                                                                                   \
  (const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, \
   TPQImageRect dstRoi, const double coeffs[3][3], int interpolation)
#define PQ_ARGS_Perspective (src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs, interpolation)

#define PQ_PARAMS_Bilinear                                                                                      \
  (const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, \
   TPQImageRect dstRoi, const double coeffs[2][4], int interpolation)
#define PQ_ARGS_Bilinear (src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs, interpolation)

#define PQ_PARAMS_Resize                                                                                        \
  (const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, \
   IppiSize dstSize, double xFactor, double yFactor, int interpolation)
#define PQ_ARGS_Resize (src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor, yFactor, interpolation)

// Signatures of the kernels without a slot.
#define PQ_PARAMS_Wiener                                                                                              \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, IppiSize maskSize,             \
   TPoint anchor, const float noise[3], std::uint8_t* buffer)
#define PQ_ARGS_Wiener (src, srcStep, dst, dstStep, roi, maskSize, anchor, noise, buffer)

#define PQ_PARAMS_WienerSize (IppiSize roi, IppiSize maskSize, int channels, int* size)
#define PQ_ARGS_WienerSize (roi, maskSize, channels, size)

#define PQ_PARAMS_Constant (const std::uint8_t value[3], std::uint8_t* dst, int dstStep, IppiSize roi)
#define PQ_ARGS_Constant (value, dst, dstStep, roi)

#define PQ_PARAMS_Mirror (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, int axis)
#define PQ_ARGS_Mirror (src, srcStep, dst, dstStep, roi, axis)

#define PQ_PARAMS_Swap \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, const int order[3])
#define PQ_ARGS_Swap (src, srcStep, dst, dstStep, roi, order)

#define PQ_PARAMS_SwapInPlace (std::uint8_t * srcDst, int step, IppiSize roi, const int order[3])
#define PQ_ARGS_SwapInPlace (srcDst, step, roi, order)

#define PQ_PARAMS_Two                                                                                              \
  (const std::uint8_t* src1, int src1Step, const std::uint8_t* src2, int src2Step, std::uint8_t* dst, int dstStep, \
   IppiSize roi)
#define PQ_ARGS_Two (src1, src1Step, src2, src2Step, dst, dstStep, roi)

#define PQ_PARAMS_TwoScaled                                                                                        \
  (const std::uint8_t* src1, int src1Step, const std::uint8_t* src2, int src2Step, std::uint8_t* dst, int dstStep, \
   IppiSize roi, int scaleFactor)
#define PQ_ARGS_TwoScaled (src1, src1Step, src2, src2Step, dst, dstStep, roi, scaleFactor)

#define PQ_PARAMS_TwoInPlace (const std::uint8_t* src, int srcStep, std::uint8_t* srcDst, int srcDstStep, IppiSize roi)
#define PQ_ARGS_TwoInPlace (src, srcStep, srcDst, srcDstStep, roi)

#define PQ_PARAMS_Convert (const int* src, double* dst, int length)
#define PQ_ARGS_Convert (src, dst, length)

#define PQ_PARAMS_Table \
  (const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep, IppiSize roi, const std::uint8_t* table)
#define PQ_ARGS_Table (src, srcStep, dst, dstStep, roi, table)

#define PQ_PARAMS_HistogramRange \
  (const std::uint8_t* src, int step, IppiSize roi, int** hist, int** levels, int* nLevels)
#define PQ_ARGS_HistogramRange (src, step, roi, hist, levels, nLevels)

#define PQ_PARAMS_KeyRanges                                                                                        \
  (const std::uint8_t* front, int frontStep, const std::uint8_t* back, int backStep, std::uint8_t* dst, int dstStep, \
   IppiSize roi, const std::uint8_t* low, const std::uint8_t* high, int ranges)
#define PQ_ARGS_KeyRanges (front, frontStep, back, backStep, dst, dstStep, roi, low, high, ranges)

#define PQ_PARAMS_Blend                                                                                    \
  (const std::uint8_t* first, int firstStep, const std::uint8_t* second, int secondStep, std::uint8_t* dst, \
   int dstStep, IppiSize roi, double firstWeight, double secondWeight)
#define PQ_ARGS_Blend (first, firstStep, second, secondStep, dst, dstStep, roi, firstWeight, secondWeight)
