// What the warps should draw, found another way: for each destination pixel the forward map is solved on its own, in
// long doubles, and sampled from scratch. Where a position or a value lies so near to a decision that rounding may turn
// it, both answers count.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "kernels/PQCheck.h"

namespace pantiq::check {

using Real = long double;

struct Spot {
  Real x, y;
};

// One call of a warp with its pictures; rows may have room behind them.
struct WarpCall {
  int channels = 3;
  IppiSize size{};
  int src_step = 0;
  TPQImageRect src_roi{};
  IppiSize out{};  // memory of the destination
  int dst_step = 0;
  TPQImageRect dst_roi{};
  int code = 1;
};

// The position in the source that a destination pixel has; nothing where there is none.
using Locate = std::function<std::optional<Spot>(int x, int y)>;

// x = (a u + b v + c) / (g u + h v + i) and y likewise, for the (u, v) that gives (x, y): two equations.
inline Locate LocateByMatrix(const double (&m)[3][3]) {
  std::vector<Real> k(&m[0][0], &m[0][0] + 9);
  return [k](int x, int y) -> std::optional<Spot> {
    const Real a = k[0] - x * k[6], b = k[1] - x * k[7], p = x * k[8] - k[2];
    const Real d = k[3] - y * k[6], e = k[4] - y * k[7], q = y * k[8] - k[5];
    const Real det = a * e - b * d;
    if (det == 0) return std::nullopt;
    return Spot{(p * e - b * q) / det, (a * q - p * d) / det};
  };
}

// The same for the bilinear form, by Newton's iteration from the middle of the rectangle; nothing where it does not
// settle.
inline Locate LocateByForm(const double (&f)[2][4], TPQImageRect rect) {
  std::vector<Real> k(&f[0][0], &f[0][0] + 8);
  return [k, rect](int x, int y) -> std::optional<Spot> {
    Real u = rect.x + rect.width * 0.5L, v = rect.y + rect.height * 0.5L;
    for (int round = 0; round < 60; ++round) {
      const Real rx = k[0] * u * v + k[1] * u + k[2] * v + k[3] - x, ry = k[4] * u * v + k[5] * u + k[6] * v + k[7] - y;
      const Real xu = k[0] * v + k[1], xv = k[0] * u + k[2], yu = k[4] * v + k[5], yv = k[4] * u + k[6];
      const Real det = xu * yv - xv * yu;
      if (det == 0) return std::nullopt;
      const Real du = (rx * yv - ry * xv) / det, dv = (xu * ry - yu * rx) / det;
      u -= du;
      v -= dv;
      if (std::fabs(du) + std::fabs(dv) < 1e-12L) return Spot{u, v};
    }
    return std::nullopt;
  };
}

class SlowWarp {
 public:
  SlowWarp(const WarpCall& call, const std::uint8_t* picture, Locate locate)
      : c_(call), p_(picture), locate_(std::move(locate)) {
    right_ = std::min<std::int64_t>(c_.size.width, std::int64_t{c_.src_roi.x} + c_.src_roi.width) - 1;
    bottom_ = std::min<std::int64_t>(c_.size.height, std::int64_t{c_.src_roi.y} + c_.src_roi.height) - 1;
    if (c_.code == 4 && std::min(c_.size.width, c_.size.height) < 4) c_.code = 2;
  }

  // Compares a destination that held `before` everywhere. True if all is well; reports the first difference.
  bool Agrees(const std::uint8_t* dst, std::uint8_t before, int* drawn) const {
    *drawn = 0;
    for (int y = 0; y < c_.out.height; ++y) {
      for (int x = 0; x < c_.out.width; ++x) {
        const std::uint8_t* pixel = dst + static_cast<std::ptrdiff_t>(y) * c_.dst_step + x * c_.channels;
        const bool in_rect = x >= c_.dst_roi.x && y >= c_.dst_roi.y && x - c_.dst_roi.x < c_.dst_roi.width &&
                             y - c_.dst_roi.y < c_.dst_roi.height;
        const std::optional<Spot> at = in_rect ? locate_(x, y) : std::nullopt;
        bool sure_in = false, maybe = false;
        if (at) {
          const Real margin =
              std::min(std::min(at->x - c_.src_roi.x, right_ - at->x), std::min(at->y - c_.src_roi.y, bottom_ - at->y));
          sure_in = margin > 1e-7L;
          maybe = !sure_in && margin > -1e-7L;
        }
        bool untouched = true, sampled = sure_in || maybe;
        for (int c = 0; c < c_.channels; ++c) {
          untouched = untouched && pixel[c] == before;
          sampled = sampled && Fits(*at, c, pixel[c]);
        }
        *drawn += sure_in || (maybe && sampled);
        if (sure_in ? sampled : maybe ? sampled || untouched : untouched) continue;
        ADD_FAILURE() << "pixel " << x << ", " << y << " is " << int(pixel[0]) << ", position "
                      << (at ? static_cast<double>(at->x) : NAN) << ", " << (at ? static_cast<double>(at->y) : NAN)
                      << (sure_in ? " (inside)" : " (outside)") << ", nearest value "
                      << (sure_in ? Value(*at, 0) : static_cast<Real>(-1));
        return false;
      }
    }
    return true;
  }

 private:
  int P(int x, int y, int channel) const {
    return p_[static_cast<std::ptrdiff_t>(y) * c_.src_step + static_cast<std::ptrdiff_t>(x) * c_.channels + channel];
  }
  static Real Clamped(Real v, Real low, Real high) { return v < low ? low : v > high ? high : v; }

  bool Fits(Spot at, int channel, int got) const {
    at = {Clamped(at.x, c_.src_roi.x, right_), Clamped(at.y, c_.src_roi.y, bottom_)};
    if (c_.code == 1) {
      for (const Real ex : {-1e-7L, 1e-7L}) {
        for (const Real ey : {-1e-7L, 1e-7L}) {
          const int i = static_cast<int>(Clamped(std::floor(at.x + 0.5L + ex), c_.src_roi.x, right_));
          const int j = static_cast<int>(Clamped(std::floor(at.y + 0.5L + ey), c_.src_roi.y, bottom_));
          if (P(i, j, channel) == got) return true;
        }
      }
      return false;
    }
    const Real slack = c_.code == 2 ? 1e-4L : 2e-3L, v = Value(at, channel);
    return got >= std::floor(Clamped(v - slack, 0, 255.5L)) && got <= std::floor(Clamped(v + slack, 0, 255.5L));
  }

  // The value before it is truncated.
  Real Value(Spot at, int channel) const {
    at = {Clamped(at.x, c_.src_roi.x, right_), Clamped(at.y, c_.src_roi.y, bottom_)};
    const bool cubic = c_.code == 4;
    const int taps = cubic ? 4 : 2;
    const auto first = [&](Real position, int extent) {
      return static_cast<int>(Clamped(std::floor(position) - (cubic ? 1 : 0), 0, extent - taps));
    };
    const int i = first(at.x, c_.size.width), j = first(at.y, c_.size.height);
    // Lagrange's form of the polynomial through the taps.
    const auto weight = [&](int n, Real t) {
      Real w = 1;
      for (int k = 0; k < taps; ++k) {
        if (k != n) w *= (t - k) / (n - k);
      }
      return w;
    };
    Real sum = 0;
    for (int n = 0; n < taps; ++n) {
      for (int k = 0; k < taps; ++k) sum += weight(n, at.y - j) * weight(k, at.x - i) * P(i + k, j + n, channel);
    }
    return sum + 0.5L;
  }

  WarpCall c_;
  const std::uint8_t* p_;
  Locate locate_;
  Real right_, bottom_;
};

// A random call on a picture and a destination of random sizes, and its memory between guard pages.
struct WarpFrame {
  WarpFrame(Random& random, int channels, bool whole_picture) {
    call.channels = channels;
    const auto side = [&] { return random.OneIn(6) ? random.Between(2, 5) : random.Between(2, 70); };
    call.size = {side(), side()};
    call.src_roi = {0, 0, call.size.width, call.size.height};
    if (!whole_picture) {
      call.src_roi.x = random.Below(call.size.width - 1);
      call.src_roi.y = random.Below(call.size.height - 1);
      call.src_roi.width = random.Between(2, call.size.width);
      call.src_roi.height = random.Between(2, call.size.height);
    }
    call.out = {random.Between(1, 90), random.Between(1, 60)};
    call.dst_roi = {0, 0, call.out.width, call.out.height};
    if (random.OneIn(2)) {
      call.dst_roi.x = random.Below(call.out.width);
      call.dst_roi.y = random.Below(call.out.height);
      call.dst_roi.width = random.Between(1, call.out.width - call.dst_roi.x);
      call.dst_roi.height = random.Between(1, call.out.height - call.dst_roi.y);
    }
    call.code = 1 << random.Below(3);
    call.src_step = call.size.width * channels + (random.OneIn(2) ? 0 : random.Between(1, 20));
    call.dst_step = call.out.width * channels + (random.OneIn(2) ? 0 : random.Between(1, 20));
    src.emplace(call.size.width * channels, call.size.height, call.src_step, random.OneIn(2));
    dst.emplace(call.out.width * channels, call.out.height, call.dst_step, random.OneIn(2));
    random.Fill(src->block().data(), src->block().size());
  }

  void Clear(std::uint8_t value) { std::fill(dst->block().data(), dst->block().data() + dst->block().size(), value); }
  std::vector<std::uint8_t> Result() { return {dst->block().data(), dst->block().data() + dst->block().size()}; }

  // Corners of a convex quadrangle about the destination, in random rotation and orientation.
  void DrawQuad(Random& random, double (&quad)[4][2]) const {
    const auto part = [&] { return random.Below(1001) / 1000.0; };
    const double w = call.out.width, h = call.out.height, wide = 1 + 2 * part();
    const double cx = w * (0.2 + 0.6 * part()), cy = h * (0.2 + 0.6 * part());
    // Four directions, one in each quarter turn: any four points on an ellipse make a convex quadrangle.
    const double turn = random.OneIn(3) ? 0.785398163397448 : 6.283185307179586 * part();
    const bool left = random.OneIn(3);
    for (int i = 0; i < 4; ++i) {
      const double spread = random.OneIn(3) ? 0 : (part() - 0.5) * 1.2;
      const double angle = (turn + i * 1.5707963267948966 + spread) * (left ? -1 : 1);
      quad[i][0] = cx + std::cos(angle) * w * 0.6 * wide;
      quad[i][1] = cy + std::sin(angle) * h * 0.6 * wide;
      if (random.OneIn(3)) quad[i][0] = std::round(quad[i][0]), quad[i][1] = std::round(quad[i][1]);
    }
  }

  WarpCall call;
  std::optional<GuardedImage> src, dst;
};

}  // namespace pantiq::check
