#include "pantiq/kernels/PQResize.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

#include "kernels/PQCheck.h"
#include "kernels/PQStripedPicture.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ResizeKernel = decltype(&_px_ippiResize_8u_C3R);

// One call with its picture, in rows without padding.
struct Call {
  int channels = 3;
  IppiSize size{8, 8};
  TPQImageRect roi{0, 0, 8, 8};
  IppiSize out{8, 8};
  double x_factor = 1, y_factor = 1;
  int code = 1;
};

// ---- the arithmetic told once more: every sample from scratch, without tables, rings or row passes ------------------

class Slow {
 public:
  Slow(const Call& call, const Bytes& picture) : c_(call), p_(picture) {
    if (c_.code != 8) {
      const int least = std::min(c_.size.width, c_.size.height);
      if (c_.code == 16 && least < 8) c_.code = 4;
      if (c_.code == 4 && least < 4) c_.code = 2;
      if (least < 2) c_.code = 1;
    }
    n_[0] = std::min(c_.roi.width, c_.size.width - c_.roi.x);
    n_[1] = std::min(c_.roi.height, c_.size.height - c_.roi.y);
    for (int axis = 0; axis < 2; ++axis) {
      const double v = n_[axis] * Factor(axis) + 0.0000001;
      extent_[axis] = v >= Limit(axis) ? Limit(axis) : v >= 1 ? static_cast<int>(v) : v < 0.5 ? 0 : 1;
    }
  }
  int width() const { return extent_[0]; }
  int height() const { return extent_[1]; }

  int At(int x, int y, int channel) const {
    switch (c_.code) {
      case 1:
        return P(Nearest(0, x), Nearest(1, y), channel);
      case 8:
        return Area(x, y, channel);
      case 2:
        return Linear(x, y, channel);
      default:
        return Curve(x, y, channel);
    }
  }

 private:
  double Factor(int axis) const { return axis ? c_.y_factor : c_.x_factor; }
  int Limit(int axis) const { return axis ? c_.out.height : c_.out.width; }
  int First(int axis) const { return axis ? c_.roi.y : c_.roi.x; }
  int Picture(int axis) const { return axis ? c_.size.height : c_.size.width; }
  int P(int x, int y, int channel) const {
    return p_.at((static_cast<std::size_t>(y) * c_.size.width + x) * c_.channels + channel);
  }
  int Nearest(int axis, int i) const {
    const double position = std::floor((i + 0.5) * (1 / Factor(axis)));
    return First(axis) + static_cast<int>(std::min<double>(position, n_[axis] - 1));
  }
  double Position(int axis, int i) const {
    const double length = n_[axis] * Factor(axis);
    const double step = length > 1 ? (n_[axis] - 1) / (length - 1) : 0;
    return std::min<double>(i * step, n_[axis] - 1);
  }

  int Linear(int x, int y, int channel) const {
    int at[2], second[2], weight[2];
    for (int axis = 0; axis < 2; ++axis) {
      const double position = Position(axis, axis ? y : x), whole = std::floor(position);
      at[axis] = First(axis) + static_cast<int>(whole);
      second[axis] = std::min(at[axis] + 1, First(axis) + n_[axis] - 1);
      weight[axis] = static_cast<int>(std::floor(static_cast<float>(position - whole) * 16384.0 + 0.5));
    }
    const auto row = [&](int line) {
      return ((16384 - weight[0]) * P(at[0], line, channel) + weight[0] * P(second[0], line, channel) + 128) / 256;
    };
    return (row(at[1]) * (16384 - weight[1]) + row(second[1]) * weight[1] + (1 << 19)) / (1 << 20);
  }

  // Cubic and Lanczos: the line through the samples at integer positions `from`... as a function of the position.
  static float Newton(const float* p, float t) {
    const float a = 1 + t, b = t * a * 0.5f, c = (t - 1) * b / 3;
    const float d1 = p[1] - p[0], d2 = (p[2] - p[1]) - d1, d3 = (p[3] + (p[1] - p[2]) - p[2]) - d2;
    return p[0] + a * d1 + b * d2 + c * d3;
  }
  static float Table(int i) {
    if (i == 0) return 1;
    if (i % 100 == 0) return 0;
    const double u = i * 0.01, pi = std::acos(-1.0);
    return static_cast<float>(std::sin(pi * u) * std::sin(pi * u / 3) * 3 / std::pow(pi * u, 2));
  }
  void Weights(int axis, int i, int* start, float* w) const {
    const double position = Position(axis, i), whole = std::floor(position);
    const float t = static_cast<float>(position - whole);
    *start = First(axis) + static_cast<int>(whole) - 2;
    float sum = 0;
    for (int n = 0; n < 6; ++n) {
      const float u = -2 - t + n, s = std::fabs(u) * 100;
      const bool out = std::fabs(u) >= 3 || *start + n < 0 || *start + n >= Picture(axis);
      const int k = static_cast<int>(s);
      w[n] = out ? 0 : Table(k) + (Table(k + 1) - Table(k)) * (s - k);
      sum += w[n];
    }
    for (int n = 0; n < 6; ++n) w[n] /= sum;
  }
  int Curve(int x, int y, int channel) const {
    if (c_.code == 16) {
      int left, top;
      float wx[6], wy[6];
      Weights(0, x, &left, wx);
      Weights(1, y, &top, wy);
      double sum = 0;
      for (int j = 0; j < 6; ++j) {
        if (top + j < 0 || top + j >= c_.size.height) continue;
        float row = 0;
        for (int i = 0; i < 6; ++i) {
          if (left + i >= 0 && left + i < c_.size.width) row += wx[i] * P(left + i, top + j, channel);
        }
        sum += static_cast<double>(row) * wy[j];
      }
      return std::clamp(static_cast<int>(std::trunc(sum + 0.5)), 0, 255);
    }
    int start[2];
    float t[2];
    for (int axis = 0; axis < 2; ++axis) {
      const double position = Position(axis, axis ? y : x);
      const int wanted = First(axis) + static_cast<int>(position) - 1;
      start[axis] = std::clamp(wanted, 0, Picture(axis) - 4);
      t[axis] = static_cast<float>(position - std::floor(position) + (wanted - start[axis]));
    }
    float column[4];
    for (int j = 0; j < 4; ++j) {
      float row[4];
      for (int i = 0; i < 4; ++i) row[i] = static_cast<float>(P(start[0] + i, start[1] + j, channel));
      column[j] = Newton(row, t[0]);
    }
    return std::clamp(static_cast<int>(Newton(column, t[1]) + 0.5f), 0, 255);
  }

  int Area(int x, int y, int channel) const {
    const auto cover = [&](int axis, int i, int k) {  // how much of sample k pixel i covers
      const double step = 1 / Factor(axis), low = std::max<double>(i * step, k),
                   high = std::min<double>((i + 1) * step, k + 1);
      return std::max(0.0, high - low);
    };
    double sum = 0;
    for (int j = 0; j < n_[1]; ++j) {
      if (cover(1, y, j) == 0) continue;
      double row = 0;
      for (int i = 0; i < n_[0]; ++i) row += cover(0, x, i) * P(c_.roi.x + i, c_.roi.y + j, channel);
      sum += cover(1, y, j) * row;
    }
    return std::min(255, static_cast<int>(sum * (c_.x_factor * c_.y_factor) + 0.5));
  }

  Call c_;
  const Bytes& p_;
  int n_[2], extent_[2];
};

ResizeKernel Entry(const char* name, PQVariant variant) {
  return reinterpret_cast<ResizeKernel>(PQFindKernel(name)->entries[static_cast<int>(variant)]);
}

IppStatus CallKernel(ResizeKernel kernel, const Call& c, const std::uint8_t* src, std::uint8_t* dst) {
  return kernel(src, c.size, c.size.width * c.channels, c.roi, dst, c.out.width * c.channels, c.out, c.x_factor,
                c.y_factor, c.code);
}

// All variants of one call against the slow form, on memory that ends at guard pages; what lies outside the result
// keeps its bytes.
void Check(const Call& c, const Bytes& picture) {
  check::GuardedBlock src(picture.size(), true);
  std::copy(picture.begin(), picture.end(), src.data());
  const Slow slow(c, picture);
  const char* name = c.channels == 3 ? "ippiResize_8u_C3R" : "ippiResize_8u_C1R";
  for (const PQVariant variant : check::RunnableVariants(*PQFindKernel(name))) {
    check::GuardedBlock dst(static_cast<std::size_t>(c.out.width) * c.out.height * c.channels, true);
    std::fill(dst.data(), dst.data() + dst.size(), 77);
    const IppStatus status = CallKernel(Entry(name, variant), c, src.data(), dst.data());
    if (slow.width() == 0 || slow.height() == 0) {
      ASSERT_EQ(status, ippStsResizeNoOperationErr);
      continue;
    }
    ASSERT_EQ(status, ippStsNoErr);
    for (int y = 0; y < c.out.height; ++y) {
      for (int x = 0; x < c.out.width; ++x) {
        for (int channel = 0; channel < c.channels; ++channel) {
          const int want = x < slow.width() && y < slow.height() ? slow.At(x, y, channel) : 77;
          ASSERT_EQ(dst.data()[(static_cast<std::size_t>(y) * c.out.width + x) * c.channels + channel], want)
              << PQVariantName(variant) << " code " << c.code << " channels " << c.channels << " at " << x << ", " << y
              << " channel " << channel << "; picture " << c.size.width << " by " << c.size.height << ", rectangle "
              << c.roi.x << ", " << c.roi.y << ", " << c.roi.width << ", " << c.roi.height << ", destination "
              << c.out.width << " by " << c.out.height << ", factors " << c.x_factor << ", " << c.y_factor;
        }
      }
    }
  }
}

TEST(PQResize, EqualsTheSlowForm) {
  check::Random random(31);
  constexpr int kCodes[] = {1, 2, 4, 8, 16};
  // Factors with whole steps, with steps between, ends that fall just beside a pixel, and changes of scale.
  constexpr double kFactors[] = {1, 0.5, 0.25, 1.0 / 3, 0.37, 0.1, 0.999, 2, 3, 1.7, 4.25, 0.75, 0.0625};
  for (int number = 0; number < check::CaseCount(); ++number) {
    Call c;
    c.channels = random.OneIn(2) ? 3 : 1;
    c.code = kCodes[random.Below(5)];
    const int most = random.OneIn(8) ? 150 : 40;
    c.size = {random.OneIn(4) ? random.Between(1, 9) : random.Between(1, most),
              random.OneIn(4) ? random.Between(1, 9) : random.Between(1, 30)};
    c.roi = {random.Below(c.size.width), random.Below(c.size.height), 0, 0};
    if (random.OneIn(2)) c.roi.x = c.roi.y = 0;
    c.roi.width = random.Between(1, c.size.width + 2);
    c.roi.height = random.Between(1, c.size.height + 2);
    const auto factor = [&] {
      double f = random.OneIn(3) ? 0.03 + random.Below(100000) / 33333.0 : kFactors[random.Below(13)];
      return c.code == 8 && f > 1 ? 1 / f : f;
    };
    c.x_factor = factor();
    c.y_factor = random.OneIn(3) ? factor() : c.x_factor;
    c.out = {random.OneIn(4) ? random.Between(1, 90)
                             : std::max(1, static_cast<int>(c.roi.width * c.x_factor) + random.Between(-1, 2)),
             random.OneIn(4) ? random.Between(1, 40)
                             : std::max(1, static_cast<int>(c.roi.height * c.y_factor) + random.Between(-1, 2))};
    Bytes picture(static_cast<std::size_t>(c.size.width) * c.size.height * c.channels);
    random.Fill(picture.data(), picture.size());
    Check(c, picture);
    if (HasFatalFailure()) return;
  }
}

TEST(PQResize, VariantsAgreeOnWideRows) {
  const auto cases = [](int channels) {
    return [channels](ResizeKernel kernel, check::CheckCase& c) {
      constexpr double kFactors[] = {0.5, 0.37, 2, 1, 1.5, 0.2, 1.0 / 3, 3.01, 0.93};
      constexpr int kCodes[] = {1, 2, 4, 8, 16};
      const int code = kCodes[c.random.Below(5)];
      double x = kFactors[c.random.Below(9)], y = c.random.OneIn(2) ? x : kFactors[c.random.Below(9)];
      if (code == 8) x = std::min(x, 1.0), y = std::min(y, 1.0);
      const IppiSize out{c.roi.width, c.roi.height};
      // The source is as large as the harness made it; the destination holds what fits.
      (void)channels;
      return kernel(c.src[0].data, c.roi, c.src[0].step, {0, 0, c.roi.width, c.roi.height}, c.dst.data, c.dst.step, out,
                    x, y, code);
    };
  };
  PQ_CHECK_VARIANTS(ippiResize_8u_C3R,
                    (check::CheckShape{.sources = 1, .free_steps = true, .max_width = 1200, .max_height = 30}),
                    cases(3));
  PQ_CHECK_VARIANTS(
      ippiResize_8u_C1R,
      (check::CheckShape{
          .sources = 1, .src_channels = 1, .dst_channels = 1, .free_steps = true, .max_width = 2000, .max_height = 30}),
      cases(1));
}

// Work memory that holds numbers which are none, behind rows shorter than a vector: they may not hide a sample that has
// to be computed again.
TEST(PQResize, WhatTheMemoryHeldDoesNotMatter) {
  check::Random random(32);
  for (int number = 0; number < check::CaseCount(); ++number) {
    Call c;
    c.channels = 1;
    c.code = random.OneIn(2) ? 8 : 16;
    c.size = {random.Between(20, 63), random.Between(8, 14)};
    c.roi = {0, 0, c.size.width, c.size.height};
    c.out = c.size;
    // Two samples under most cells, weighted in hundredths: with multiples of 50 every second average is a half but for
    // rounding, and single and double precision go different ways.
    c.x_factor = 0.93;
    c.y_factor = c.code == 8 ? 1 : 0.5 + random.Below(100) / 100.0;
    Bytes picture(static_cast<std::size_t>(c.size.width) * c.size.height), plain;
    for (std::uint8_t& sample : picture) sample = static_cast<std::uint8_t>(50 * random.Below(6));
    PQ_FOR_EACH_VARIANT(ippiResize_8u_C1R, [&](ResizeKernel kernel) {
      for (const int size : {4000, 9000, 16000, 24000}) {
        std::uint8_t* const used = ippsMalloc_8u(size);
        std::fill(used, used + size, 255);
        ippsFree(used);
      }
      Bytes out(picture.size());
      ASSERT_EQ(CallKernel(kernel, c, picture.data(), out.data()), 0);
      if (plain.empty()) plain = out;
      ASSERT_TRUE(out == plain) << "case " << number << " code " << c.code << " factors " << c.x_factor << ", "
                                << c.y_factor << " width " << c.size.width;
    });
    if (HasFatalFailure()) return;
  }
}

TEST(PQResize, FactorOneCopies) {
  check::Random random(5);
  for (const int code : {1, 2, 4, 8, 16}) {
    Call c;
    c.size = {37, 11};
    c.roi = {3, 2, 30, 9};
    c.out = {30, 9};
    c.code = code;
    Bytes picture(37 * 11 * 3);
    random.Fill(picture.data(), picture.size());
    PQ_FOR_EACH_VARIANT(ippiResize_8u_C3R, [&](ResizeKernel kernel) {
      Bytes out(30 * 9 * 3);
      ASSERT_EQ(CallKernel(kernel, c, picture.data(), out.data()), 0);
      for (int y = 0; y < 9; ++y) {
        EXPECT_TRUE(std::equal(&out[y * 90], &out[y * 90] + 90, &picture[((y + 2) * 37 + 3) * 3]))
            << code << " row " << y;
      }
    });
  }
}

TEST(PQResize, CornersFallOnCorners) {
  Bytes picture(20 * 20);
  check::Random random(6);
  random.Fill(picture.data(), picture.size());
  for (const int code : {2, 4, 16}) {
    for (const double factor : {0.4, 0.5, 1.35, 2.0, 7.0}) {
      const int n = static_cast<int>(20 * factor + 0.0000001);
      Call c{1, {20, 20}, {0, 0, 20, 20}, {n, n}, factor, factor, code};
      PQ_FOR_EACH_VARIANT(ippiResize_8u_C1R, [&](ResizeKernel kernel) {
        Bytes out(n * n);
        ASSERT_EQ(CallKernel(kernel, c, picture.data(), out.data()), 0);
        EXPECT_EQ(out[0], picture[0]);
        EXPECT_EQ(out[n - 1], picture[19]) << code << " factor " << factor;
        EXPECT_EQ(out[n * n - 1], picture[399]) << code << " factor " << factor;
      });
    }
  }
}

// One value everywhere stays that value; an average that would come out one off shows here.
TEST(PQResize, FlatPicturesStayFlat) {
  for (const int code : {1, 2, 4, 8, 16}) {
    for (const int value : {0, 1, 127, 254, 255}) {
      for (const double factor : {0.1, 0.37, 0.5, 1.0 / 3, 1.0, 1.9}) {
        if (code == 8 && factor > 1) continue;
        Call c{3, {50, 40}, {0, 0, 50, 40}, {95, 76}, factor, factor, code};
        const Bytes picture(50 * 40 * 3, static_cast<std::uint8_t>(value));
        const Slow slow(c, picture);
        PQ_FOR_EACH_VARIANT(ippiResize_8u_C3R, [&](ResizeKernel kernel) {
          Bytes out(95 * 76 * 3, 3);
          ASSERT_EQ(CallKernel(kernel, c, picture.data(), out.data()), 0);
          for (int y = 0; y < slow.height(); ++y) {
            for (int i = 0; i < slow.width() * 3; ++i) ASSERT_EQ(out[y * 95 * 3 + i], value) << code << " " << factor;
          }
        });
      }
    }
  }
}

TEST(PQResize, OrderOfChecks) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  struct Row {
    const char* what;
    IppStatus status;
    bool null;
    IppiSize size;
    TPQImageRect roi;
    IppiSize out;
    double x, y;
    int code;
  };
  const Row rows[] = {
      {"null before all", -8, true, {0, 8}, {9, 0, 0, 1}, {0, 0}, 0, 1, 3},
      {"picture without columns", -6, false, {0, 8}, {9, 0, 1, 1}, {0, 0}, 0, 1, 3},
      {"picture without rows", -6, false, {8, 0}, {0, 9, 1, 1}, {0, 0}, 0, 1, 3},
      {"x below 0", -6, false, {8, 8}, {-1, 9, 1, 1}, {0, 0}, 0, 1, 3},
      {"empty rectangle", -6, false, {8, 8}, {9, 0, 1, 0}, {0, 0}, 0, 1, 3},
      {"rectangle behind the picture", 29, false, {8, 8}, {8, 0, 1, 1}, {0, 0}, 0, 1, 3},
      {"rectangle below the picture", 29, false, {8, 8}, {0, 8, 1, 1}, {0, 0}, 0, 1, 3},
      {"no destination width", -6, false, {8, 8}, {0, 0, 8, 8}, {0, 1}, 0, 1, 3},
      {"no destination height", -6, false, {8, 8}, {0, 0, 8, 8}, {1, 0}, 0, 1, 3},
      {"factor 0", -23, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 0, 1, 3},
      {"factor below 0", -23, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 1, -1, 3},
      {"factor not a number", -23, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 1, nan, 3},
      {"factor infinite", -23, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, inf, 1, 8},
      {"code", -22, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 0.01, 1, 3},
      {"code 0", -22, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 1, 1, 0},
      {"code 8 enlarges", -22, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 1, 1.01, 8},
      {"less than half a pixel", -201, false, {8, 8}, {0, 0, 1, 8}, {8, 8}, 0.1, 1, 2},
      {"less than half a row, area", -201, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 1, 0.01, 8},
      {"0.6 pixels", 0, false, {8, 8}, {0, 0, 6, 8}, {8, 8}, 0.1, 0.1, 16},
      {"rectangle as large as an int", 0, false, {8, 8}, {7, 7, 2147483647, 2147483647}, {8, 8}, 1, 1, 4},
      {"factors at the ends of the doubles", 0, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 1e308, 1e300, 4},
      {"tiny factor", -201, false, {8, 8}, {0, 0, 8, 8}, {8, 8}, 5e-324, 5e-324, 1},
  };
  Bytes picture(8 * 8 * 3, 9), out(8 * 8 * 3);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const auto body = [&](ResizeKernel kernel) {
      std::fill(out.begin(), out.end(), 200);
      EXPECT_EQ(kernel(row.null ? nullptr : picture.data(), row.size, 24, row.roi, out.data(), 24, row.out, row.x,
                       row.y, row.code),
                row.status);
      if (row.status != 0) {
        EXPECT_EQ(out, Bytes(out.size(), 200));
      }
    };
    PQ_FOR_EACH_VARIANT(ippiResize_8u_C3R, body);
    PQ_FOR_EACH_VARIANT(ippiResize_8u_C1R, body);
  }
}

// A picture of 16384 by 16384 pixels whose rows all are the same few pages: no index may overflow.
TEST(PQResize, LargestPictures) {
  if (PQ_NO_STRIPES) GTEST_SKIP() << "the sanitizer's shadow of the mapping is too large";
  constexpr int kSide = 16384, kStep = kSide * 3;
  check::Random random(8);
  Bytes line(kStep);
  random.Fill(line.data(), line.size());
  const check::StripedPicture picture(kSide, line);
  for (const int code : {1, 2, 4, 8, 16}) {
    // All rows are equal, so the result's rows are those of a low picture with the same columns.
    constexpr int kWide = 40;
    const int top = code == 8 ? kSide - 384 : 0;  // the area average reads every row that it is given
    const double x_factor = 40.0 / kSide, y_factor = 24.0 / (kSide - top);
    Call low{3, {kSide, 8}, {0, 0, kSide, 8}, {kWide, 8}, x_factor, 1, code};
    Bytes low_picture;
    for (int y = 0; y < 8; ++y) low_picture.insert(low_picture.end(), line.begin(), line.end());
    const Slow slow(low, low_picture);
    PQ_FOR_EACH_VARIANT(ippiResize_8u_C3R, [&](ResizeKernel kernel) {
      Bytes out(kWide * 24 * 3);
      ASSERT_EQ(kernel(picture.data(), {kSide, kSide}, kStep, {0, top, kSide, kSide - top}, out.data(), kWide * 3,
                       {kWide, 24}, x_factor, y_factor, code),
                0);
      for (int x = 0; x < kWide; ++x) {
        EXPECT_NEAR(out[(23 * kWide + x) * 3 + 1], slow.At(x, 3, 1), 1) << "code " << code << " column " << x;
      }
    });
  }
}

}  // namespace
}  // namespace pantiq
