// The engine of rotate, shear and the warps: quadrangles, spans of rows, positions in the source, sampling.
//
// A kernel checks its arguments with CheckPictures and ClipSource, sets a Warp up, and hands it to Run with the drawing
// function of its variant. Everything but the drawing is shared by all variants.
//
// Pixels. A destination pixel is drawn if it lies in the destination rectangle, in the span of its row (the quadrangle
// clipped to that rectangle, rounded outwards), and if its position in the source lies in the clipped source rectangle,
// first to last coordinate on both axes. A position up to 1e-9 * max(1, |limit|) outside a limit counts as inside and
// is put on the limit: with an exact comparison rounding would lose lines of edge pixels.
//
// Positions (x, y destination pixel, all doubles, no fused operations, in this order):
//   affine:       sx = m00 * x + (m01 * y + m02), sy likewise.
//   perspective:  n0 = m00 * x + (m01 * y + m02), n1, n2 likewise; sx = n0 / n2, sy = n1 / n2; not inside where n2 *
//                 sign is not above 0.
//   direct:       the bilinear form itself, sx = (b0 * y + b1) * x + (b2 * y + b3), sy likewise.
//   bilinear:     the bilinear form solved for the position; see Solver.
//
// Samples at (sx, sy):
//   nearest: i = trunc(sx + 0.5), j = trunc(sy + 0.5).
//   linear: i = trunc(sx + 0.0000001), fx = sx - i, and where i reaches the picture's last column i = width - 2 and fx
//   =
//     1; j and fy likewise. top = p00 + (p01 - p00) * fx, bottom = p10 + (p11 - p10) * fx, trunc(0.5 + top + (bottom -
//     top) * fy), in doubles, left to right; always within 0..255.
//   cubic: PQCubic.h, i = trunc(sx), the four columns from i - 1 moved to lie in the picture, t = sx less the second of
//     them as a float; rows first, then the column; + 0.5, truncated, clamped.
//
// The smooth border writes the pixel just outside each edge of the clipped quadrangle that is not parallel to an axis,
// within the destination rectangle: trunc(a * p1 + b * p2 + 0.5) in doubles from that pixel p1 and its neighbour p2
// across the edge, a and b their distances from the edge.
#pragma once

#include <cstddef>
#include <cstdint>

#include "pantiq/kernels/PQImageDefs.h"

namespace pantiq {
namespace sampling {

inline constexpr int kNearest = 1, kLinear = 2, kCubic = 4;

struct Point {
  double x, y;
};

// 1: all cross products of neighbouring edges above 0, 0: all below; -5: one is 0, -4: signs differ (not convex), or
// one is not a number.
int CheckQuad(const Point (&quad)[4]);

enum class Map { kAffine, kPerspective, kDirect, kBilinear };

// Solves x = a s t + p.x s + q.x t + origin.x, y = e s t + p.y s + q.y t + origin.y for (s, t). With X = x - origin.x,
// Y = y - origin.y, t is a root of (a q.y - e q.x) t^2 + (e X - a Y + k) t + (p.y X - p.x Y), k = p.x q.y - q.x p.y:
//   A1 = e X + (k - a Y), A0 = p.y X - p.x Y
//   linear (the sides q are parallel): t = -A0 / A1
//   otherwise: h = -0.5 * (A1 + copysign(sqrt(max(A1 * A1 - 4 * a2 * A0, 0)), A1)), t = A0 / h where A1 has the sign of
//   the quadrangle's orientation, h / a2 elsewhere; never a difference of nearly equal numbers.
// Then s = (X - q.x t) / (a t + p.x) or (Y - q.y t) / (e t + p.y), whichever divisor is larger.
// swapped: s and t have changed places (the sides p are parallel).
struct Solver {
  double a, e, a2, four_a2, k;
  Point p, q, origin;
  Point start;  // what s and t count from, in source coordinates
  bool linear, swapped, positive;
};

struct Warp {
  const std::uint8_t* src;  // pixel (0, 0) of the picture
  std::ptrdiff_t src_step;
  IppiSize size;
  std::uint8_t* dst;  // pixel (0, 0) of the destination
  std::ptrdiff_t dst_step;
  int channels;
  int code;
  bool smooth;
  int left, top, right, bottom;                  // the clipped source rectangle's first and last coordinates
  double x_low, x_high, y_low, y_high;           // the same with their tolerance
  int dst_left, dst_top, dst_right, dst_bottom;  // the destination rectangle's first and last coordinates

  Map map;
  double m[3][4];  // affine, perspective: rows of three; direct: two rows of four
  double sign;     // perspective: of the divisor where pixels are drawn; 0: nowhere
  Solver solver;

  bool has_quad;  // the Back forms may have none: then every pixel of the rectangle is looked at
  bool everywhere;
  Point quad[4];
  int orientation;
  Point polygon[12];  // the quadrangle clipped to the destination rectangle
  int corners;
};

// The checks before the coefficients: pointers -8, sizes and rectangles -6, steps -14, interpolation code -22. Fills
// what the arguments give; the code falls back to 1 where a side of the picture is 1, cubic to linear where one is
// below 4.
IppStatus CheckPictures(Warp& warp, const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi,
                        std::uint8_t* dst, int dstStep, TPQImageRect dstRoi, int interpolation, int channels);
// After the coefficients: the rectangle outside the picture 29, clipped below two pixels -57.
IppStatus ClipSource(Warp& warp, TPQImageRect srcRoi);
// Sets the quadrangle; -56 where it is not convex.
IppStatus SetQuad(Warp& warp, const Point (&quad)[4]);
// Makes a solver for the form (rows a, b, c, d and e, f, g, h) that is to be solved for positions counted from start;
// orientation as CheckQuad gives it.
Solver MakeSolver(const double (&form)[2][4], Point start, int orientation);
// The position that the solver finds for (x, y).
Point Solve(const Solver& solver, double x, double y);

// A row of the destination: draws its pixels first to last that are inside; true if there was one. The plain form,
// exact for every argument; the vector forms take it for what they don't handle.
bool DrawSpan(const Warp& warp, int y, int first, int last);

using DrawFunction = bool (*)(const Warp& warp, int y, int first, int last);

// Draws all rows and the smooth border. 30 if no pixel was drawn.
IppStatus Run(Warp& warp, DrawFunction draw);

// True for numbers that are neither infinite nor not a number.
bool Finite(const double* values, int count);

}  // namespace sampling
}  // namespace pantiq
