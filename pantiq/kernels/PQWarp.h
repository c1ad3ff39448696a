// Warps of a rectangle onto a quadrangle. How pixels are found and sampled is told in PQSampling.h.
//
// src and dst are pixel (0, 0) of their pictures, srcSize the source picture's size in pixels, steps bytes.
// Interpolation: 1 nearest, 2 linear, 4 cubic, with bit 31 the slanted edges of the result are smoothed. Cubic on a
// picture narrower or lower than 4 works as linear. Round to nearest is set during a call. Any thread.
//
// Faults of the warps in the order in which they are found: null -8; a size, width or height below 1, x or y below 0:
// -6; a step below 1: -14; another code: -22; coefficients that are singular, infinite or not a number: -56; srcRoi
// outside the picture: 29 (a warning); less than 2 by 2 pixels of it inside the picture: -57; a degenerate image of the
// rectangle (not the Back forms): -56; no pixel to draw: 30 (a warning).
//
// The inverse of a perspective is its adjoint; a divisor whose sign differs from the one at the rectangle's centre
// belongs to points behind the picture and draws nothing.
//
// ippiGetPerspectiveTransform, ippiGetBilinearTransform
//   The coefficients that carry the corners (x0, y0), (x1, y0), (x1, y1), (x0, y1) of the rectangle (x1 = x + width -
//   1, y1 = y + height - 1) onto the four points of quad, in this order. coeffs is 3 rows of 3, or 2 rows of 4,
//   doubles:
//   - perspective: (x, y) to ((a x + b y + c) / w, (d x + e y + f) / w), w = G x + H y + i; rows abc, def, GHi.
//   - bilinear: (x, y) to (a x y + b x + c y + d, e x y + f x + g y + h); rows abcd, efgh.
//
//   Faults in the order in which they are found: null -8; x or y below 0, width or height below 1: -6; a quadrangle
//   that is degenerate or not convex: -58; width or height of 1: -57. coeffs then keep their values.
// ippiWarpPerspective_8u_C3R, ippiWarpPerspective_8u_C1R, ippiWarpBilinear_8u_C3R, ippiWarpBilinear_8u_C1R
//   Maps the pixels of srcRoi by the coefficients. Only pixels inside the image of the clipped rectangle are written.
// ippiWarpPerspectiveBack_8u_C3R, ippiWarpPerspectiveBack_8u_C1R, ippiWarpBilinearBack_8u_C3R,
// ippiWarpBilinearBack_8u_C1R
//   The coefficients map destination pixels to their positions in the source; every pixel of dstRoi whose position lies
//   in the rectangle is written, whatever shape they make.
#pragma once

#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQSampling.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {
namespace warp {

// The kernels with their variant's drawing function; channels are 1 or 3.
IppStatus Perspective(bool back, int channels, sampling::DrawFunction draw, const std::uint8_t* src, IppiSize srcSize,
                      int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, TPQImageRect dstRoi,
                      const double (*coeffs)[3], int interpolation);
IppStatus Bilinear(bool back, int channels, sampling::DrawFunction draw, const std::uint8_t* src, IppiSize srcSize,
                   int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, TPQImageRect dstRoi,
                   const double (*coeffs)[4], int interpolation);
IppStatus PerspectiveTransform(TPQImageRect rect, const double (*quad)[2], double* coeffs);
IppStatus BilinearTransform(TPQImageRect rect, const double (*quad)[2], double* coeffs);

}  // namespace warp
}  // namespace pantiq

// The entries of one variant, all ten: they differ in how a span of three channels or of one is drawn.
#define PQ_DEFINE_WARPS(draw3, draw1)                                                                                  \
  IppStatus PQ_VARIANT(ippiGetPerspectiveTransform) PQ_PARAMS_Transform {                                              \
    return warp::PerspectiveTransform(rect, quad, coeffs);                                                             \
  }                                                                                                                    \
  IppStatus PQ_VARIANT(ippiGetBilinearTransform) PQ_PARAMS_Transform {                                                 \
    return warp::BilinearTransform(rect, quad, coeffs);                                                                \
  }                                                                                                                    \
  PQ_DEFINE_WARP(Perspective, false, 3, ippiWarpPerspective_8u_C3R, draw3)                                             \
  PQ_DEFINE_WARP(Perspective, false, 1, ippiWarpPerspective_8u_C1R, draw1)                                             \
  PQ_DEFINE_WARP(Perspective, true, 3, ippiWarpPerspectiveBack_8u_C3R, draw3)                                          \
  PQ_DEFINE_WARP(Perspective, true, 1, ippiWarpPerspectiveBack_8u_C1R, draw1)                                          \
  PQ_DEFINE_WARP(Bilinear, false, 3, ippiWarpBilinear_8u_C3R, draw3)                                                   \
  PQ_DEFINE_WARP(Bilinear, false, 1, ippiWarpBilinear_8u_C1R, draw1)                                                   \
  PQ_DEFINE_WARP(Bilinear, true, 3, ippiWarpBilinearBack_8u_C3R, draw3)                                                \
  PQ_DEFINE_WARP(Bilinear, true, 1, ippiWarpBilinearBack_8u_C1R, draw1)
#define PQ_DEFINE_WARP(kind, back, channels, name, draw)                                                               \
  IppStatus PQ_VARIANT(name) PQ_PARAMS_##kind {                                                                        \
    return warp::kind(back, channels, draw, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs, interpolation); \
  }
