#include "pantiq/kernels/PQSampling.h"

#include <cmath>
#include <initializer_list>
#include <limits>

#include "pantiq/kernels/PQCubic.h"

namespace pantiq {
namespace sampling {
namespace {

constexpr double kTolerance = 1e-9;

double Slack(double limit) { return kTolerance * std::fmax(1.0, std::fabs(limit)); }

// Cuts the polygon at one side of the rectangle: what has axis coordinate * side >= limit * side stays.
int CutAt(const Point* in, int count, Point* out, bool vertical, double limit, double side) {
  int kept = 0;
  for (int i = 0; i < count; ++i) {
    const Point& p = in[i];
    const Point& q = in[i + 1 < count ? i + 1 : 0];
    const double a = vertical ? p.y : p.x, b = vertical ? q.y : q.x;
    const bool in_a = a * side >= limit * side, in_b = b * side >= limit * side;
    if (in_a) out[kept++] = p;
    if (in_a != in_b) {
      const double part = (limit - a) / (b - a);
      if (vertical) {
        out[kept++] = {p.x + (q.x - p.x) * part, limit};
      } else {
        out[kept++] = {limit, p.y + (q.y - p.y) * part};
      }
    }
  }
  return kept;
}

// The quadrangle within the destination rectangle, from its first point on. A convex quadrangle keeps at most 8
// corners.
void ClipPolygon(Warp& warp) {
  Point a[12], b[12];
  int count = 4;
  for (int i = 0; i < 4; ++i) a[i] = warp.quad[i];
  count = CutAt(a, count, b, false, warp.dst_left, 1);
  count = CutAt(b, count, a, false, warp.dst_right, -1);
  count = CutAt(a, count, b, true, warp.dst_top, 1);
  count = CutAt(b, count, warp.polygon, true, warp.dst_bottom, -1);
  warp.corners = count;
}

// First and last pixel of row y that may lie in the polygon; false: none. Rounded outwards.
bool RowSpan(const Warp& warp, int y, int* first, int* last) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const double slack = Slack(y);
  double least = kInfinity, most = -kInfinity;
  for (int i = 0; i < warp.corners; ++i) {
    const Point& p = warp.polygon[i];
    const Point& q = warp.polygon[i + 1 < warp.corners ? i + 1 : 0];
    const Point& upper = p.y <= q.y ? p : q;
    const Point& lower = p.y <= q.y ? q : p;
    if (upper.y > y + slack || lower.y < y - slack) continue;
    const double height = lower.y - upper.y;
    for (const double level : {y - slack, y + slack}) {
      const double part = level <= upper.y ? 0 : level >= lower.y ? 1 : (level - upper.y) / height;
      const double x = upper.x + (lower.x - upper.x) * part;
      least = std::fmin(least, x);
      most = std::fmax(most, x);
    }
  }
  if (!(least <= most)) return false;
  const double from = std::ceil(std::fmax(least - Slack(least), warp.dst_left));
  const double to = std::floor(std::fmin(most + Slack(most), warp.dst_right));
  if (!(from <= to)) return false;
  *first = static_cast<int>(from);
  *last = static_cast<int>(to);
  return true;
}

void SmoothPel(const Warp& warp, int x1, int y1, int x2, int y2, double a, double b) {
  const auto inside = [&](int x, int y) {
    return x >= warp.dst_left && x <= warp.dst_right && y >= warp.dst_top && y <= warp.dst_bottom;
  };
  if (!inside(x1, y1) || !inside(x2, y2)) return;
  std::uint8_t* p1 = warp.dst + y1 * warp.dst_step + std::ptrdiff_t{x1} * warp.channels;
  const std::uint8_t* p2 = warp.dst + y2 * warp.dst_step + std::ptrdiff_t{x2} * warp.channels;
  for (int c = 0; c < warp.channels; ++c) p1[c] = static_cast<std::uint8_t>(a * p1[c] + b * p2[c] + 0.5);
}

void SmoothEdge(const Warp& warp, const Point& p, const Point& q) {
  const double dx = q.x - p.x, dy = q.y - p.y, length = std::sqrt(dx * dx + dy * dy);
  if (!(std::fabs(dx) > kTolerance * length) || !(std::fabs(dy) > kTolerance * length)) return;
  const bool columns = std::fabs(dy) <= std::fabs(dx);
  const double from = columns ? p.x : p.y, along = columns ? dx : dy, across = columns ? dy : dx;
  const double low = std::ceil(std::fmin(from, columns ? q.x : q.y));
  const double high = std::floor(std::fmax(from, columns ? q.x : q.y));
  // Which neighbour lies outside: above or left of an edge, by its direction and the way the corners go round.
  const bool forward = along > 0;
  const bool upper_first = columns == (forward == (warp.orientation == 1));
  for (double u = low; u <= high; u += 1) {
    const double v = (u - from) * across / along + (columns ? p.y : p.x);
    const double lo = std::floor(v), hi = std::ceil(v);
    if (lo == hi || !(lo >= 0) || !(hi <= std::numeric_limits<int>::max())) continue;
    const double first = upper_first ? lo : hi, second = upper_first ? hi : lo;
    const double a = std::fabs(v - first), b = std::fabs(v - second);
    const int along_pixel = static_cast<int>(u), p1 = static_cast<int>(first), p2 = static_cast<int>(second);
    if (columns) {
      SmoothPel(warp, along_pixel, p1, along_pixel, p2, a, b);
    } else {
      SmoothPel(warp, p1, along_pixel, p2, along_pixel, a, b);
    }
  }
}

void SmoothBorder(Warp& warp) {
  if (!warp.has_quad) return;
  if (warp.everywhere) ClipPolygon(warp);
  if (warp.corners < 3) return;
  for (int i = 0; i < warp.corners; ++i) {
    SmoothEdge(warp, warp.polygon[i], warp.polygon[i + 1 < warp.corners ? i + 1 : 0]);
  }
}

// ---- positions and samples ----------------------------------------------------------------------------------------

struct RowTerms {
  double c[3];
  double d[2];
};

template <Map kMap>
RowTerms TermsOf(const Warp& warp, int y) {
  RowTerms row{};
  for (int i = 0; i < (kMap == Map::kPerspective ? 3 : 2); ++i) {
    if (kMap == Map::kDirect) {
      row.d[i] = warp.m[i][0] * y + warp.m[i][1];
      row.c[i] = warp.m[i][2] * y + warp.m[i][3];
    } else {
      row.c[i] = warp.m[i][1] * y + warp.m[i][2];
    }
  }
  return row;
}

template <Map kMap>
Point PositionAt(const Warp& warp, const RowTerms& row, int x, int y) {
  if (kMap == Map::kBilinear) return Solve(warp.solver, x, y);
  if (kMap == Map::kDirect) return {row.d[0] * x + row.c[0], row.d[1] * x + row.c[1]};
  const double n0 = warp.m[0][0] * x + row.c[0], n1 = warp.m[1][0] * x + row.c[1];
  if (kMap == Map::kAffine) return {n0, n1};
  const double n2 = warp.m[2][0] * x + row.c[2];
  if (!(n2 * warp.sign > 0)) {
    constexpr double kNowhere = std::numeric_limits<double>::infinity();
    return {kNowhere, kNowhere};
  }
  return {n0 / n2, n1 / n2};
}

const std::uint8_t* PixelAt(const Warp& warp, int i, int j) {
  return warp.src + j * warp.src_step + std::ptrdiff_t{i} * warp.channels;
}

// The first of two samples and the second's weight.
int Pair(double position, int extent, double* weight) {
  int i = static_cast<int>(position + 0.0000001);
  if (i >= extent - 1) {
    *weight = 1;
    return extent - 2;
  }
  *weight = position - i;
  return i;
}

// The first of four samples and the polynomial's coefficients.
int Four(double position, int extent, float (&abc)[3]) {
  int i = static_cast<int>(position) - 1;
  i = i < 0 ? 0 : i > extent - 4 ? extent - 4 : i;
  cubic::Weights(static_cast<float>(position - (i + 1)), abc);
  return i;
}

void SampleAt(const Warp& warp, Point at, std::uint8_t* out) {
  const int channels = warp.channels;
  if (warp.code == kNearest) {
    const std::uint8_t* p = PixelAt(warp, static_cast<int>(at.x + 0.5), static_cast<int>(at.y + 0.5));
    for (int c = 0; c < channels; ++c) out[c] = p[c];
  } else if (warp.code == kLinear) {
    double fx, fy;
    const int i = Pair(at.x, warp.size.width, &fx), j = Pair(at.y, warp.size.height, &fy);
    const std::uint8_t* p = PixelAt(warp, i, j);
    const std::uint8_t* q = p + warp.src_step;
    for (int c = 0; c < channels; ++c) {
      const double top = p[c] + (p[c + channels] - p[c]) * fx;
      const double bottom = q[c] + (q[c + channels] - q[c]) * fx;
      out[c] = static_cast<std::uint8_t>(0.5 + top + (bottom - top) * fy);
    }
  } else {
    float x_abc[3], y_abc[3];
    const int i = Four(at.x, warp.size.width, x_abc), j = Four(at.y, warp.size.height, y_abc);
    const std::uint8_t* p = PixelAt(warp, i, j);
    for (int c = 0; c < channels; ++c) {
      float row[4];
      for (int n = 0; n < 4; ++n) {
        const std::uint8_t* r = p + n * warp.src_step + c;
        row[n] = cubic::Value(r[0], r[channels], r[2 * channels], r[3 * channels], x_abc);
      }
      out[c] = cubic::Sample(cubic::Value(row[0], row[1], row[2], row[3], y_abc));
    }
  }
}

template <Map kMap>
bool DrawPixels(const Warp& warp, int y, int first, int last) {
  const RowTerms row = TermsOf<kMap>(warp, y);
  std::uint8_t* out = warp.dst + y * warp.dst_step + std::ptrdiff_t{first} * warp.channels;
  bool drawn = false;
  for (std::int64_t x = first; x <= last; ++x, out += warp.channels) {
    Point at = PositionAt<kMap>(warp, row, static_cast<int>(x), y);
    if (!(at.x >= warp.x_low && at.x <= warp.x_high && at.y >= warp.y_low && at.y <= warp.y_high)) continue;
    at.x = at.x < warp.left ? warp.left : at.x > warp.right ? warp.right : at.x;
    at.y = at.y < warp.top ? warp.top : at.y > warp.bottom ? warp.bottom : at.y;
    SampleAt(warp, at, out);
    drawn = true;
  }
  return drawn;
}

// |a| <= 1e-200, or a is nothing beside the two products that it is the difference of.
bool NearZero(double difference, double product1, double product2) {
  const double larger = std::fmax(std::fabs(product1), std::fabs(product2));
  return std::fabs(difference) <= 1e-200 || std::fabs(difference) <= 1e-12 * larger;
}

}  // namespace

bool Finite(const double* values, int count) {
  for (int i = 0; i < count; ++i) {
    if (!(std::fabs(values[i]) <= std::numeric_limits<double>::max())) return false;
  }
  return true;
}

int CheckQuad(const Point (&quad)[4]) {
  if (!Finite(&quad[0].x, 8)) return -4;
  int above = 0, below = 0;
  for (int i = 0; i < 4; ++i) {
    const Point &a = quad[i], &b = quad[(i + 1) & 3], &c = quad[(i + 2) & 3];
    const double cross = (b.x - a.x) * (c.y - b.y) - (c.x - b.x) * (b.y - a.y);
    if (cross == 0) return -5;
    above += cross > 0;
    below += cross < 0;
  }
  return above == 4 ? 1 : below == 4 ? 0 : -4;
}

IppStatus CheckPictures(Warp& warp, const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi,
                        std::uint8_t* dst, int dstStep, TPQImageRect dstRoi, int interpolation, int channels) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (srcSize.width < 1 || srcSize.height < 1 || srcRoi.x < 0 || srcRoi.y < 0 || srcRoi.width < 1 ||
      srcRoi.height < 1 || dstRoi.x < 0 || dstRoi.y < 0 || dstRoi.width < 1 || dstRoi.height < 1) {
    return ippStsSizeErr;
  }
  if (srcStep < 1 || dstStep < 1) return ippStsStepErr;
  constexpr unsigned kSmooth = 0x80000000u;
  const unsigned bits = static_cast<unsigned>(interpolation);
  warp.smooth = (bits & kSmooth) != 0;
  warp.code = static_cast<int>(bits & ~kSmooth);
  if (warp.code != kNearest && warp.code != kLinear && warp.code != kCubic) return ippStsInterpolationErr;
  const int least = srcSize.width < srcSize.height ? srcSize.width : srcSize.height;
  if (warp.code == kCubic && least < 4) warp.code = kLinear;
  if (least == 1) warp.code = kNearest;
  warp.src = src;
  warp.src_step = srcStep;
  warp.size = srcSize;
  warp.dst = dst;
  warp.dst_step = dstStep;
  warp.channels = channels;
  const auto end = [](int from, int extent) {
    constexpr int kMost = std::numeric_limits<int>::max() - 64;  // leaves room to count beyond
    const std::int64_t last = std::int64_t{from} + extent - 1;
    return last < kMost ? static_cast<int>(last) : kMost;
  };
  warp.dst_left = dstRoi.x;
  warp.dst_top = dstRoi.y;
  warp.dst_right = end(dstRoi.x, dstRoi.width);
  warp.dst_bottom = end(dstRoi.y, dstRoi.height);
  warp.has_quad = warp.everywhere = false;
  warp.corners = 0;
  return ippStsNoErr;
}

IppStatus ClipSource(Warp& warp, TPQImageRect srcRoi) {
  if (srcRoi.x >= warp.size.width || srcRoi.y >= warp.size.height) return ippStsWrongIntersectROI;
  const int width = srcRoi.width < warp.size.width - srcRoi.x ? srcRoi.width : warp.size.width - srcRoi.x;
  const int height = srcRoi.height < warp.size.height - srcRoi.y ? srcRoi.height : warp.size.height - srcRoi.y;
  if (width < 2 || height < 2) return ippStsRectErr;
  warp.left = srcRoi.x;
  warp.top = srcRoi.y;
  warp.right = srcRoi.x + width - 1;
  warp.bottom = srcRoi.y + height - 1;
  warp.x_low = warp.left - Slack(warp.left);
  warp.x_high = warp.right + Slack(warp.right);
  warp.y_low = warp.top - Slack(warp.top);
  warp.y_high = warp.bottom + Slack(warp.bottom);
  return ippStsNoErr;
}

IppStatus SetQuad(Warp& warp, const Point (&quad)[4]) {
  const int orientation = CheckQuad(quad);
  if (orientation < 0) return ippStsCoeffErr;
  for (int i = 0; i < 4; ++i) warp.quad[i] = quad[i];
  warp.orientation = orientation;
  warp.has_quad = true;
  return ippStsNoErr;
}

Solver MakeSolver(const double (&form)[2][4], Point start, int orientation) {
  Solver s{};
  s.a = form[0][0];
  s.e = form[1][0];
  // The form's coefficients with s and t counted from start.
  Point p{form[0][1] + s.a * start.y, form[1][1] + s.e * start.y};
  Point q{form[0][2] + s.a * start.x, form[1][2] + s.e * start.x};
  s.origin = {form[0][3] + form[0][1] * start.x + form[0][2] * start.y + s.a * start.x * start.y,
              form[1][3] + form[1][1] * start.x + form[1][2] * start.y + s.e * start.x * start.y};
  const bool q_parallel = NearZero(s.a * q.y - s.e * q.x, s.a * q.y, s.e * q.x);
  const bool p_parallel = NearZero(s.a * p.y - s.e * p.x, s.a * p.y, s.e * p.x);
  s.linear = q_parallel || p_parallel;
  s.swapped = !q_parallel && p_parallel;
  s.p = s.swapped ? q : p;
  s.q = s.swapped ? p : q;
  s.start = s.swapped ? Point{start.y, start.x} : start;
  s.a2 = s.a * s.q.y - s.e * s.q.x;
  s.four_a2 = 4 * s.a2;
  s.k = s.p.x * s.q.y - s.q.x * s.p.y;
  s.positive = (orientation == 1) != s.swapped;
  return s;
}

Point Solve(const Solver& s, double x, double y) {
  const double dx = x - s.origin.x, dy = y - s.origin.y;
  const double a1 = s.e * dx + (s.k - s.a * dy);
  const double a0 = s.p.y * dx - s.p.x * dy;
  double t;
  if (s.linear) {
    t = -a0 / a1;
  } else {
    const double square = a1 * a1 - s.four_a2 * a0;
    const double h = -0.5 * (a1 + std::copysign(std::sqrt(square > 0 ? square : 0), a1));
    const bool same = (a1 >= 0) == s.positive;
    t = (same ? a0 : h) / (same ? h : s.a2);
  }
  const double px = s.a * t + s.p.x, py = s.e * t + s.p.y;
  const double nx = dx - s.q.x * t, ny = dy - s.q.y * t;
  const bool by_x = std::fabs(px) >= std::fabs(py);
  const double u = s.start.x + (by_x ? nx : ny) / (by_x ? px : py), v = s.start.y + t;
  return s.swapped ? Point{v, u} : Point{u, v};
}

bool DrawSpan(const Warp& warp, int y, int first, int last) {
  switch (warp.map) {
    case Map::kAffine:
      return DrawPixels<Map::kAffine>(warp, y, first, last);
    case Map::kPerspective:
      return DrawPixels<Map::kPerspective>(warp, y, first, last);
    case Map::kDirect:
      return DrawPixels<Map::kDirect>(warp, y, first, last);
    default:
      return DrawPixels<Map::kBilinear>(warp, y, first, last);
  }
}

IppStatus Run(Warp& warp, DrawFunction draw) {
  bool drawn = false;
  if (warp.everywhere) {
    for (int y = warp.dst_top; y <= warp.dst_bottom; ++y) drawn |= draw(warp, y, warp.dst_left, warp.dst_right);
  } else {
    ClipPolygon(warp);
    double upper = warp.dst_bottom, lower = warp.dst_top;
    for (int i = 0; i < warp.corners; ++i) {
      upper = std::fmin(upper, warp.polygon[i].y);
      lower = std::fmax(lower, warp.polygon[i].y);
    }
    if (warp.corners > 0 && upper <= lower) {
      const int from = static_cast<int>(std::ceil(std::fmax(upper - Slack(upper), warp.dst_top)));
      const int to = static_cast<int>(std::floor(std::fmin(lower + Slack(lower), warp.dst_bottom)));
      int first, last;
      for (int y = from; y <= to; ++y) {
        if (RowSpan(warp, y, &first, &last)) drawn |= draw(warp, y, first, last);
      }
    }
  }
  if (!drawn) return ippStsWrongIntersectQuad;
  if (warp.smooth) SmoothBorder(warp);
  return ippStsNoErr;
}

}  // namespace sampling
}  // namespace pantiq
