// Resize: a rectangle of a picture scaled into another.
//
// ippiResize_8u_C3R, ippiResize_8u_C1R
//   Scales the rectangle srcRoi of a picture by xFactor and yFactor into the top left of the destination. src is pixel
//   (0, 0) of the picture of srcSize pixels, dst pixel (0, 0) of the destination; steps are bytes a row and of any
//   sign. Interpolation: 1 nearest neighbour, 2 linear, 4 cubic, 16 Lanczos, 8 area average (both factors at most 1).
//   Faults in the order in which they are found: src or dst null -8; a width or height of picture or rectangle below 1,
//   or the rectangle's x or y below 0: -6; its x or y behind the picture: 29 (a warning, nothing is done); dstSize
//   below 1: -6; a factor not above 0 or not finite: -23; another interpolation code, or 8 with a factor above 1: -22;
//   less than half a pixel of result on an axis: -201; no memory: -9. What is not written keeps its value. Lanczos on a
//   picture narrower or lower than 8 works as cubic, cubic below 4 as linear, linear below 2 as nearest. Round to
//   nearest is set during a call. Any thread.
//
// Extent. The rectangle is clipped to the picture; n is its extent on an axis, f the factor. The result has
// trunc(n * f + 0.0000001) pixels, at most dstSize; values of 0.5 up to 1 give one pixel.
//
// Positions of destination pixel i, relative to the rectangle, in doubles:
// - nearest: trunc((i + 0.5) * (1 / f)), at most n - 1.
// - linear, cubic, Lanczos: i * ((n - 1) / (n * f - 1)), or 0 where n * f is at most 1; k its whole part (at most n -
//   1), t the rest as a float. Corners fall on corners.
//
// Arithmetic, first along rows, then along columns; p are the samples of one channel:
// - linear: c1 = floor(t * 16384 + 0.5), c0 = 16384 - c1, r = (c0 * p[k] + c1 * p[k + 1] + 128) >> 8 (0..16320), then
//   (c0 * r0 + c1 * r1 + 0x80000) >> 20 (below 2^28 before the shift). From k = n - 1 on, the last sample alone.
// - cubic, floats: Newton's polynomial through the samples at -1, 0, 1, 2: a = 1 + t, b = t * a * 0.5,
//   c = (t - 1) * b / 3, d1 = p1 - p0, d2 = (p2 - p1) - d1, d3 = (p3 + (p1 - p2) - p2) - d2, value
//   p0 + a * d1 + b * d2 + c * d3, left to right. Along a row d1..d3 are exact (at most 8 * 255); the column adds 0.5,
//   truncates and clamps to 0..255. At the picture's edges the four samples are the nearest ones inside it and t leaves
//   0..1.
// - Lanczos, floats: six weights at u = -2 - t + n from a table of sinc(u) * sinc(u / 3) in steps of 1/100, linear
//   between its entries, divided by their sum; samples outside the picture get weight 0. The row sums in floats from
//   tap 0 up, the column in doubles, + 0.5, truncated and clamped.
// - area, doubles: the cell of pixel i is i / f to (i + 1) / f, clipped to the rectangle; the first and the last sample
//   count with their covered part. Rows are summed left to right, then the rows' sums from the top down, times
//   xFactor * yFactor, + 0.5, truncated, at most 255. A cell wider than the rectangle keeps that factor.
//
// Each source row in use is expanded once into a ring of row buffers; tables are made once a call.
#pragma once

#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {
namespace resize {

inline constexpr int kNearest = 1, kLinear = 2, kCubic = 4, kArea = 8, kLanczos = 16;

// One axis of a call. Extents are pixels.
struct Axis {
  int first;    // the rectangle's first pixel within the picture
  int n;        // the clipped rectangle's extent
  int picture;  // the picture's extent
  double factor;
  int extent;  // of the result
};

// A checked call. base is pixel (0, 0) of the picture.
struct Plan {
  const std::uint8_t* base;
  std::ptrdiff_t src_step;
  std::uint8_t* dst;
  std::ptrdiff_t dst_step;
  Axis x, y;
  int code;
};

// Checks the arguments and fills the plan. A status other than 0 goes back to the caller.
IppStatus MakePlan(Plan& plan, const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi,
                   std::uint8_t* dst, int dstStep, IppiSize dstSize, double xFactor, double yFactor, int interpolation);

// The samples under a destination pixel of the area average, both ends included, and what the ends count; equal ends
// count first_weight alone.
struct Cell {
  int first, last;
  double first_weight, last_weight;
};

// Tables of one axis, an entry for each pixel of the result; those that the interpolation does not use are null.
// Indices count pixels from the picture's start.
struct Table {
  int* index;           // nearest: the sample; otherwise the first of the samples
  int* weight;          // linear: the second sample's weight of 16384
  float (*abc)[3];      // cubic: a, b, c of the polynomial
  float (*lanczos)[6];  // Lanczos: the six weights
  Cell* cells;          // area
};

// Memory of a call, all in one piece.
struct Work {
  Table x, y;
  std::uint8_t* rows;  // row_count rows, row_bytes apart (a multiple of 64) and 64 bytes of slack behind the last
  std::ptrdiff_t row_bytes;
  std::uint8_t* extra;  // what else the caller asked for
  std::uint8_t* memory;
};

// Makes tables and room for row_count rows of row_bytes and for extra_bytes. False: no memory. ippsFree(work.memory).
bool MakeWork(Work& work, const Plan& plan, int row_count, std::int64_t row_bytes, std::int64_t extra_bytes);

// Linear: how far the second sample is behind the first. A rectangle of one pixel has no second sample.
static inline int PairDistance(const Axis& axis) { return axis.n > 1 ? 1 : 0; }

// One sample of a Lanczos column, exactly: sample i of six rows under six weights.
std::uint8_t LanczosColumn(const float* const* rows, std::ptrdiff_t i, const float* weights);

// The area average: a sum times the factors to the result; sample i of row y exactly, from the source.
std::uint8_t AreaValue(double scaled);
std::uint8_t AreaSample(const Plan& plan, const Work& work, int channels, int i, int y);

// The plain form of a checked call; channels are 1 or 3.
IppStatus Plain(const Plan& plan, int channels);

}  // namespace resize
}  // namespace pantiq
