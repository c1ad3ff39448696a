#include "pantiq/kernels/PQWarp.h"

#include <cmath>

namespace pantiq {
namespace warp {
namespace {

using sampling::Point;
using sampling::Warp;
using Matrix = double[3][3];
using Form = double[2][4];

// The difference of two products is no larger than what rounding leaves of it.
bool Vanishes(double product1, double product2) {
  const double larger = std::fmax(std::fabs(product1), std::fabs(product2));
  return !(std::fabs(product1 - product2) > 1e-12 * larger) || larger <= 1e-200;
}

// Checks that the two transforms share; sets the rectangle's corners and the quadrangle.
IppStatus CheckTransform(TPQImageRect rect, const double (*quad)[2], const double* coeffs, Point (&low_high)[2],
                         Point (&q)[4]) {
  if (quad == nullptr || coeffs == nullptr) return ippStsNullPtrErr;
  if (rect.x < 0 || rect.y < 0 || rect.width < 1 || rect.height < 1) return ippStsSizeErr;
  for (int i = 0; i < 4; ++i) q[i] = {quad[i][0], quad[i][1]};
  if (sampling::CheckQuad(q) < 0) return ippStsQuadErr;
  if (rect.width < 2 || rect.height < 2) return ippStsRectErr;
  low_high[0] = {static_cast<double>(rect.x), static_cast<double>(rect.y)};
  low_high[1] = {rect.x + (rect.width - 1.0), rect.y + (rect.height - 1.0)};
  return ippStsNoErr;
}

__attribute__((noinline)) IppStatus PerspectiveRounded(TPQImageRect rect, const double (*quad)[2], double* coeffs) {
  Point corner[2], q[4];
  if (const IppStatus status = CheckTransform(rect, quad, coeffs, corner, q)) return status;
  const double x0 = corner[0].x, y0 = corner[0].y, x1 = corner[1].x, y1 = corner[1].y;
  const double dx1 = q[2].x - q[1].x, dx2 = q[3].x - q[2].x, dx3 = q[0].x - q[3].x;
  const double dy1 = q[2].y - q[1].y, dy2 = q[3].y - q[2].y, dy3 = q[0].y - q[3].y;
  const double k = 1 / (dx2 * dy1 - dx1 * dy2);
  const double g = (dy2 * (dx3 + dx1) - (dy3 + dy1) * dx2) * k;
  const double h = (dy1 * (dx3 + dx1) - dx1 * (dy3 + dy1)) * k;
  const double sx = 1 / (x1 - x0), sy = 1 / (y1 - y0);
  const double a = (q[1].x * g + q[1].x - q[0].x) * sx, d = (q[1].y - q[0].y + q[1].y * g) * sx, large_g = sx * g;
  const double b = (q[3].x * h - dx3) * sy, e = (q[3].y * h - dy3) * sy, large_h = h * sy;
  const double all[9] = {a,       b,       q[0].x - x0 * a - y0 * b,       d, e, q[0].y - x0 * d - y0 * e,
                         large_g, large_h, 1 - x0 * large_g - y0 * large_h};
  for (int i = 0; i < 9; ++i) coeffs[i] = all[i];
  return ippStsNoErr;
}

__attribute__((noinline)) IppStatus BilinearRounded(TPQImageRect rect, const double (*quad)[2], double* coeffs) {
  Point corner[2], q[4];
  if (const IppStatus status = CheckTransform(rect, quad, coeffs, corner, q)) return status;
  const double x0 = corner[0].x, y0 = corner[0].y, x1 = corner[1].x, y1 = corner[1].y;
  const double k = 1 / ((x1 - x0) * (y1 - y0));
  const auto solve = [&](double q0, double q1, double q2, double q3, double* row) {
    row[0] = ((q0 - q1) + (q2 - q3)) * k;
    row[1] = ((q1 - q0) * y1 + (q3 - q2) * y0) * k;
    row[2] = ((q3 - q0) * x1 + (q1 - q2) * x0) * k;
    row[3] = q0 - row[1] * x0 - row[2] * y0 - row[0] * x0 * y0;
  };
  solve(q[0].x, q[1].x, q[2].x, q[3].x, coeffs);
  solve(q[0].y, q[1].y, q[2].y, q[3].y, coeffs + 4);
  return ippStsNoErr;
}

void Adjoint(const Matrix& m, Matrix& out) {
  const double a = m[0][0], b = m[0][1], c = m[0][2], d = m[1][0], e = m[1][1], f = m[1][2], g = m[2][0], h = m[2][1],
               i = m[2][2];
  const Matrix rows = {{e * i - h * f, h * c - b * i, b * f - e * c},
                       {g * f - d * i, i * a - g * c, c * d - f * a},
                       {d * h - g * e, g * b - h * a, e * a - d * b}};
  __builtin_memcpy(out, rows, sizeof rows);
}

// The determinant; 0 also where rounding leaves nothing of it.
double Determinant(const Matrix& m) {
  const double plus[3] = {m[0][0] * m[1][1] * m[2][2], m[0][1] * m[1][2] * m[2][0], m[0][2] * m[1][0] * m[2][1]};
  const double minus[3] = {m[0][2] * m[1][1] * m[2][0], m[0][1] * m[1][0] * m[2][2], m[0][0] * m[1][2] * m[2][1]};
  double sum = 0, size = 0;
  for (int i = 0; i < 3; ++i) {
    sum += plus[i] - minus[i];
    size += std::fabs(plus[i]) + std::fabs(minus[i]);
  }
  return std::fabs(sum) > 1e-12 * size ? sum : 0;
}

Point Project(const Matrix& m, double x, double y) {
  const double w = m[2][0] * x + m[2][1] * y + m[2][2];
  return {(m[0][0] * x + m[0][1] * y + m[0][2]) / w, (m[1][0] * x + m[1][1] * y + m[1][2]) / w};
}

// The corners of the clipped source rectangle, in the order that goes round.
void Corners(const Warp& warp, Point (&corner)[4]) {
  const double left = warp.left, top = warp.top, right = warp.right, bottom = warp.bottom;
  const Point all[4] = {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
  for (int i = 0; i < 4; ++i) corner[i] = all[i];
}

// A Back form's quadrangle serves the smooth border alone; without one nothing is smoothed.
void TakeQuad(Warp& warp, const Point (&quad)[4]) {
  if (sampling::CheckQuad(quad) >= 0) sampling::SetQuad(warp, quad);
  warp.everywhere = true;
}

__attribute__((noinline)) IppStatus DrawPerspective(Warp& warp, bool back, sampling::DrawFunction draw,
                                                    TPQImageRect srcRoi, const Matrix& given) {
  if (!sampling::Finite(given[0], 9)) return ippStsCoeffErr;
  const double determinant = Determinant(given);
  if (determinant == 0 || !sampling::Finite(&determinant, 1)) return ippStsCoeffErr;
  if (const IppStatus status = sampling::ClipSource(warp, srcRoi)) return status;
  Matrix other;
  Adjoint(given, other);
  if (!sampling::Finite(other[0], 9)) return ippStsCoeffErr;
  const Matrix& forward = back ? other : given;
  const Matrix& inverse = back ? given : other;
  Point corner[4], quad[4];
  Corners(warp, corner);
  for (int i = 0; i < 4; ++i) quad[i] = Project(forward, corner[i].x, corner[i].y);
  if (back) {
    TakeQuad(warp, quad);
  } else if (const IppStatus status = sampling::SetQuad(warp, quad)) {
    return status;
  }
  warp.map = sampling::Map::kPerspective;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) warp.m[i][j] = inverse[i][j];
  }
  // A point of the source with the divisor w comes back with the divisor determinant / w.
  const double x = (warp.left + 0.5 * (warp.right - warp.left)), y = (warp.top + 0.5 * (warp.bottom - warp.top));
  const double w = forward[2][0] * x + forward[2][1] * y + forward[2][2];
  warp.sign = w == 0 ? 0 : (w > 0) == (determinant > 0) ? 1 : -1;
  return sampling::Run(warp, draw);
}

// The form's Jacobian is constant * (1, x, y); true where all three vanish.
bool Singular(const Form& f) {
  return Vanishes(f[0][1] * f[1][2], f[0][2] * f[1][1]) && Vanishes(f[0][0] * f[1][2], f[1][0] * f[0][2]) &&
         Vanishes(f[1][0] * f[0][1], f[0][0] * f[1][1]);
}

Point Apply(const Form& f, double x, double y) {
  return {f[0][0] * x * y + f[0][1] * x + f[0][2] * y + f[0][3], f[1][0] * x * y + f[1][1] * x + f[1][2] * y + f[1][3]};
}

__attribute__((noinline)) IppStatus DrawBilinear(Warp& warp, bool back, sampling::DrawFunction draw,
                                                 TPQImageRect srcRoi, const Form& form) {
  if (!sampling::Finite(form[0], 8) || Singular(form)) return ippStsCoeffErr;
  if (const IppStatus status = sampling::ClipSource(warp, srcRoi)) return status;
  Point corner[4], quad[4];
  Corners(warp, corner);
  if (!back) {
    for (int i = 0; i < 4; ++i) quad[i] = Apply(form, corner[i].x, corner[i].y);
    if (const IppStatus status = sampling::SetQuad(warp, quad)) return status;
    warp.map = sampling::Map::kBilinear;
    warp.solver = sampling::MakeSolver(form, corner[0], warp.orientation);
    return sampling::Run(warp, draw);
  }
  warp.map = sampling::Map::kDirect;
  for (int i = 0; i < 2; ++i) {
    for (int j = 0; j < 4; ++j) warp.m[i][j] = form[i][j];
  }
  // Where the source's corners come from: solved with the root that belongs to the middle of the destination rectangle.
  const double x = 0.5 * warp.dst_left + 0.5 * warp.dst_right, y = 0.5 * warp.dst_top + 0.5 * warp.dst_bottom;
  const double jacobian = (form[0][0] * y + form[0][1]) * (form[1][0] * x + form[1][2]) -
                          (form[0][0] * x + form[0][2]) * (form[1][0] * y + form[1][1]);
  const Point start{static_cast<double>(warp.dst_left), static_cast<double>(warp.dst_top)};
  const sampling::Solver solver = sampling::MakeSolver(form, start, jacobian > 0 ? 1 : 0);
  for (int i = 0; i < 4; ++i) quad[i] = sampling::Solve(solver, corner[i].x, corner[i].y);
  TakeQuad(warp, quad);
  return sampling::Run(warp, draw);
}

}  // namespace

IppStatus Perspective(bool back, int channels, sampling::DrawFunction draw, const std::uint8_t* src, IppiSize srcSize,
                      int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, TPQImageRect dstRoi,
                      const double (*coeffs)[3], int interpolation) {
  if (coeffs == nullptr) return ippStsNullPtrErr;
  Warp warp;
  if (const IppStatus status =
          sampling::CheckPictures(warp, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, interpolation, channels)) {
    return status;
  }
  Matrix m;
  __builtin_memcpy(m, coeffs, sizeof m);
  const int mode = PQRoundToNearest();
  const IppStatus status = DrawPerspective(warp, back, draw, srcRoi, m);
  PQRestoreRounding(mode);
  return status;
}

IppStatus Bilinear(bool back, int channels, sampling::DrawFunction draw, const std::uint8_t* src, IppiSize srcSize,
                   int srcStep, TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, TPQImageRect dstRoi,
                   const double (*coeffs)[4], int interpolation) {
  if (coeffs == nullptr) return ippStsNullPtrErr;
  Warp warp;
  if (const IppStatus status =
          sampling::CheckPictures(warp, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, interpolation, channels)) {
    return status;
  }
  Form form;
  __builtin_memcpy(form, coeffs, sizeof form);
  const int mode = PQRoundToNearest();
  const IppStatus status = DrawBilinear(warp, back, draw, srcRoi, form);
  PQRestoreRounding(mode);
  return status;
}

IppStatus PerspectiveTransform(TPQImageRect rect, const double (*quad)[2], double* coeffs) {
  const int mode = PQRoundToNearest();
  const IppStatus status = PerspectiveRounded(rect, quad, coeffs);
  PQRestoreRounding(mode);
  return status;
}

IppStatus BilinearTransform(TPQImageRect rect, const double (*quad)[2], double* coeffs) {
  const int mode = PQRoundToNearest();
  const IppStatus status = BilinearRounded(rect, quad, coeffs);
  PQRestoreRounding(mode);
  return status;
}

}  // namespace warp

PQ_DEFINE_WARPS(&sampling::DrawSpan, &sampling::DrawSpan)

}  // namespace pantiq
