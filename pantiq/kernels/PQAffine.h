// Rotate and shear. How pixels are found and sampled is told in PQSampling.h.
//
// src and dst are pixel (0, 0) of their pictures, srcSize the source picture's size in pixels, steps bytes.
// Interpolation: 1 nearest, 2 linear, 4 cubic, with bit 31 the slanted edges of the result are smoothed. Cubic on a
// picture narrower or lower than 4 works as linear. Pixels whose position is outside the source rectangle are not
// touched; nothing outside dstRoi is. Round to nearest is set during a call. Any thread.
//
// Faults of rotate and shear in the order in which they are found: null -8; a size, width or height below 1, x or y
// below 0: -6; a step below 1: -14; another code: -22; coefficients without an inverse, infinite or not a number: -56;
// srcRoi outside the picture: 29 (a warning); less than 2 by 2 pixels of it inside the picture: -57; a degenerate image
// of the rectangle: -56; no pixel of dstRoi to draw: 30 (a warning).
//
// The inverse: with d = m00 * m11 - m01 * m10, rows (m11 / d, -m01 / d) and (-m10 / d, m00 / d), and as third column
// what carries the shift to (0, 0).
//
// ippiGetRotateShift
//   The shifts with which ippiRotate_8u_C3R turns a picture by angle degrees about (xCenter, yCenter), in pixels. The
//   angle is reduced to 0 up to 360. 0, 90, 180 and 270 degrees are exact; otherwise with r = a * pi / 180, c = cos r,
//   s = sin r:
//       xShift = -yCenter * s - xCenter * c + xCenter
//       yShift =  xCenter * s - yCenter * c + yCenter
//   Faults: a null pointer -8; an argument that is infinite or not a number -56. The shifts then keep their values.
// ippiRotate_8u_C3R, ippiRotate_8u_C1R
//   Maps the pixels (x, y) of srcRoi to (c * x + s * y + xShift, -s * x + c * y + yShift), c and s the cosine and sine
//   of angle / 180 * pi; 0, 90, 180 and 270 degrees are exact.
// ippiShear_8u_C3R, ippiShear_8u_C1R
//   Maps the pixels (x, y) of srcRoi to (x + xShear * y + xShift, yShear * x + y + yShift).
#pragma once

#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQSampling.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {
namespace affine {

// The kernels with their variant's drawing function; channels are 1 or 3.
IppStatus Rotate(int channels, sampling::DrawFunction draw, const std::uint8_t* src, IppiSize srcSize, int srcStep,
                 TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, TPQImageRect dstRoi, double angle, double xShift,
                 double yShift, int interpolation);
IppStatus Shear(int channels, sampling::DrawFunction draw, const std::uint8_t* src, IppiSize srcSize, int srcStep,
                TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, TPQImageRect dstRoi, double xShear, double yShear,
                double xShift, double yShift, int interpolation);
IppStatus RotateShift(double xCenter, double yCenter, double angle, double* xShift, double* yShift);

}  // namespace affine
}  // namespace pantiq
