// Types, statuses and codes that all image kernels share.
//
// Kernels are plain functions on pixel memory; they know no frames, pins or locks. A source or destination pointer
// addresses the first pixel of the region (not of the image), a step is the distance in bytes between two vertically
// adjacent pixels, and sample c of pixel (x, y) lies at base + y * step + x * channels + c. Steps may be larger than a
// row. C1 is one sample a pixel; C3 is three interleaved samples in the order blue, green, red; C4 and AC4 are four.
// R: source and destination differ. IR: in place. Sfs: the exact result times 2^-scaleFactor, rounded once half to
// even, then saturated. Kernels raise nothing, lock nothing and keep no state: two threads may run one kernel on
// different buffers at the same time. They touch the region's rows, and read what a filter's window covers.
#pragma once

namespace pantiq {

// Result of a kernel: 0 done, negative an error (the destination is untouched), positive a warning.
using IppStatus = int;

inline constexpr IppStatus ippStsNoErr = 0;
inline constexpr IppStatus ippStsWrongIntersectROI = 29;       // geometry: the rectangle does not meet the image
inline constexpr IppStatus ippStsWrongIntersectQuad = 30;      // warps: no pixel of the destination lies in the quadrangle
inline constexpr IppStatus ippStsCpuNotSupported = 36;         // cache query: the processor does not tell
inline constexpr IppStatus ippStsCacheNotFound = 37;           // cache query: no known descriptor
inline constexpr IppStatus ippStsSizeErr = -6;                 // a width, height or length below 1
inline constexpr IppStatus ippStsNullPtrErr = -8;              // a required pointer is null
inline constexpr IppStatus ippStsMemAllocErr = -9;             // a temporary buffer could not be had
inline constexpr IppStatus ippStsStepErr = -14;                // a step below 1
inline constexpr IppStatus ippStsThresholdErr = -18;           // a lower threshold above its upper threshold
inline constexpr IppStatus ippStsMirrorFlipErr = -21;          // an axis other than 0, 1, 2
inline constexpr IppStatus ippStsInterpolationErr = -22;       // an interpolation code other than 1, 2, 4, 16
inline constexpr IppStatus ippStsResizeFactorErr = -23;        // a resize factor not above zero
inline constexpr IppStatus ippStsMaskSizeErr = -33;            // a mask size or code that the kernel does not take
inline constexpr IppStatus ippStsAnchorErr = -34;              // the anchor lies outside the mask
inline constexpr IppStatus ippStsStrideErr = -37;              // erode, dilate: a step too small for a row
inline constexpr IppStatus ippStsCoeffErr = -56;               // warps: coefficients that map nothing onto the destination
inline constexpr IppStatus ippStsRectErr = -57;                // warps: a rectangle narrower or lower than two pixels
inline constexpr IppStatus ippStsQuadErr = -58;                // warp transforms: a degenerate quadrangle
inline constexpr IppStatus ippStsZeroMaskValuesErr = -59;      // erode, dilate: a mask of zeros only
inline constexpr IppStatus ippStsChannelOrderErr = -60;        // a channel number other than 0, 1, 2
inline constexpr IppStatus ippStsHistoNofLevelsErr = -107;     // fewer than 2 histogram levels
inline constexpr IppStatus ippStsResizeNoOperationErr = -201;  // a resize target without pixels

// A region or a mask, in pixels.
struct IppiSize {
  int width;
  int height;
};

// An anchor inside a mask, in pixels from the mask's top left.
struct TPoint {
  int x;
  int y;
};

// A source or destination rectangle of the geometry kernels, in pixels.
struct TPQImageRect {
  int x;
  int y;
  int width;
  int height;
};

// Prepared masks of erode and dilate; opaque, owned by ippiMorphologyInitAlloc_8u_C3R and ippiMorphologyFree.
struct IppiMorphState;

// Mask size codes: the decimal digits are width and height. Masks given by code have their anchor in the middle.
enum IppiMaskSize : int {
  ippMskSize1x3 = 13,
  ippMskSize1x5 = 15,
  ippMskSize3x1 = 31,
  ippMskSize3x3 = 33,
  ippMskSize5x1 = 51,
  ippMskSize5x5 = 55,
};

// Axis of ippiMirror.
enum IppiAxis : int {
  ippAxsHorizontal = 0,  // top and bottom rows change places
  ippAxsVertical = 1,    // left and right columns change places
  ippAxsBoth = 2,
};

}  // namespace pantiq
