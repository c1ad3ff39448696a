#include "pantiq/kernels/PQAffine.h"

#include <cmath>

namespace pantiq {
namespace affine {
namespace {

constexpr double kPi = 3.14159265358979323846;

// 0 up to 360.
double Reduce(double angle) {
  double a = angle - 360 * std::trunc(angle / 360);
  if (a < 0) a += 360;
  return a >= 360 ? 0 : a;
}

struct Turn {
  double c, s;
};

// The exact values of quarter turns, otherwise cosine and sine of `radians`.
Turn TurnOf(double reduced, double radians) {
  if (reduced == 0) return {1, 0};
  if (reduced == 90) return {0, 1};
  if (reduced == 180) return {-1, 0};
  if (reduced == 270) return {0, -1};
  return {std::cos(radians), std::sin(radians)};
}

// Everything behind the first checks. m: the forward matrix.
IppStatus DrawAffine(sampling::Warp& warp, sampling::DrawFunction draw, TPQImageRect srcRoi, const double (&m)[2][3]) {
  if (!sampling::Finite(m[0], 6)) return ippStsCoeffErr;
  const double d = m[0][0] * m[1][1];
  const double t = std::fabs(d) > 1e-200 ? (d - m[0][1] * m[1][0]) / d : m[0][1] * m[1][0];
  const double determinant = d - m[0][1] * m[1][0];
  if (!(std::fabs(t) > 1e-12) || !sampling::Finite(&determinant, 1)) return ippStsCoeffErr;
  if (const IppStatus status = sampling::ClipSource(warp, srcRoi)) return status;
  const auto image = [&m](int x, int y) {
    return sampling::Point{m[0][0] * x + m[0][1] * y + m[0][2], m[1][0] * x + m[1][1] * y + m[1][2]};
  };
  if (const IppStatus status =
          sampling::SetQuad(warp, {image(warp.left, warp.top), image(warp.right, warp.top),
                                   image(warp.right, warp.bottom), image(warp.left, warp.bottom)})) {
    return status;
  }
  const double inverse[2][2] = {{m[1][1] / determinant, -m[0][1] / determinant},
                                {-m[1][0] / determinant, m[0][0] / determinant}};
  warp.map = sampling::Map::kAffine;
  for (int i = 0; i < 2; ++i) {
    warp.m[i][0] = inverse[i][0];
    warp.m[i][1] = inverse[i][1];
    warp.m[i][2] = -(inverse[i][0] * m[0][2] + inverse[i][1] * m[1][2]);
  }
  return sampling::Run(warp, draw);
}

__attribute__((noinline)) IppStatus RotateRounded(sampling::Warp& warp, sampling::DrawFunction draw,
                                                  TPQImageRect srcRoi, double angle, double xShift, double yShift) {
  const double a = Reduce(angle);
  const Turn turn = TurnOf(a, a / 180 * kPi);
  return DrawAffine(warp, draw, srcRoi, {{turn.c, turn.s, xShift}, {-turn.s, turn.c, yShift}});
}

__attribute__((noinline)) IppStatus ShearRounded(sampling::Warp& warp, sampling::DrawFunction draw, TPQImageRect srcRoi,
                                                 double xShear, double yShear, double xShift, double yShift) {
  return DrawAffine(warp, draw, srcRoi, {{1, xShear, xShift}, {yShear, 1, yShift}});
}

__attribute__((noinline)) IppStatus ShiftRounded(double xCenter, double yCenter, double angle, double* xShift,
                                                 double* yShift) {
  if (xShift == nullptr || yShift == nullptr) return ippStsNullPtrErr;
  const double given[3] = {xCenter, yCenter, angle};
  if (!sampling::Finite(given, 3)) return ippStsCoeffErr;
  const double a = Reduce(angle);
  if (a == 0) {
    *xShift = 0;
    *yShift = 0;
  } else if (a == 90) {
    *xShift = xCenter - yCenter;
    *yShift = xCenter + yCenter;
  } else if (a == 180) {
    *xShift = 2 * xCenter;
    *yShift = 2 * yCenter;
  } else if (a == 270) {
    *xShift = xCenter + yCenter;
    *yShift = yCenter - xCenter;
  } else {
    const double r = a * kPi / 180, c = std::cos(r), s = std::sin(r);
    *xShift = -yCenter * s - xCenter * c + xCenter;
    *yShift = xCenter * s - yCenter * c + yCenter;
  }
  return ippStsNoErr;
}

}  // namespace

IppStatus Rotate(int channels, sampling::DrawFunction draw, const std::uint8_t* src, IppiSize srcSize, int srcStep,
                 TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, TPQImageRect dstRoi, double angle, double xShift,
                 double yShift, int interpolation) {
  sampling::Warp warp;
  if (const IppStatus status =
          sampling::CheckPictures(warp, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, interpolation, channels)) {
    return status;
  }
  const int mode = PQRoundToNearest();
  const IppStatus status = RotateRounded(warp, draw, srcRoi, angle, xShift, yShift);
  PQRestoreRounding(mode);
  return status;
}

IppStatus Shear(int channels, sampling::DrawFunction draw, const std::uint8_t* src, IppiSize srcSize, int srcStep,
                TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, TPQImageRect dstRoi, double xShear, double yShear,
                double xShift, double yShift, int interpolation) {
  sampling::Warp warp;
  if (const IppStatus status =
          sampling::CheckPictures(warp, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, interpolation, channels)) {
    return status;
  }
  const int mode = PQRoundToNearest();
  const IppStatus status = ShearRounded(warp, draw, srcRoi, xShear, yShear, xShift, yShift);
  PQRestoreRounding(mode);
  return status;
}

IppStatus RotateShift(double xCenter, double yCenter, double angle, double* xShift, double* yShift) {
  const int mode = PQRoundToNearest();
  const IppStatus status = ShiftRounded(xCenter, yCenter, angle, xShift, yShift);
  PQRestoreRounding(mode);
  return status;
}

}  // namespace affine

IppStatus PQ_VARIANT(ippiGetRotateShift) PQ_PARAMS_RotateShift {
  return affine::RotateShift(xCenter, yCenter, angle, xShift, yShift);
}

IppStatus PQ_VARIANT(ippiRotate_8u_C3R) PQ_PARAMS_Rotate {
  return affine::Rotate(3, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, angle, xShift,
                        yShift, interpolation);
}

IppStatus PQ_VARIANT(ippiRotate_8u_C1R) PQ_PARAMS_Rotate {
  return affine::Rotate(1, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, angle, xShift,
                        yShift, interpolation);
}

IppStatus PQ_VARIANT(ippiShear_8u_C3R) PQ_PARAMS_Shear {
  return affine::Shear(3, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, xShear, yShear,
                       xShift, yShift, interpolation);
}

IppStatus PQ_VARIANT(ippiShear_8u_C1R) PQ_PARAMS_Shear {
  return affine::Shear(1, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, xShear, yShear,
                       xShift, yShift, interpolation);
}

}  // namespace pantiq
