#include "pantiq/kernels/PQAffine.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>
#include <vector>

#include "kernels/PQCheck.h"
#include "kernels/PQSlowWarp.h"
#include "kernels/PQStripedPicture.h"

namespace pantiq {
namespace {

using Bytes = std::vector<std::uint8_t>;
using RotateKernel = decltype(&_px_ippiRotate_8u_C3R);
using ShearKernel = decltype(&_px_ippiShear_8u_C3R);
constexpr int kSmooth = static_cast<int>(0x80000000u);

TEST(PQAffine, RotateShift) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Row {
    double x, y, angle, x_shift, y_shift;
  };
  const double c30 = std::sqrt(3) / 2;
  const Row rows[] = {
      {2, 3, 0, 0, 0},
      {2, 3, 360, 0, 0},
      {2, 3, -720, 0, 0},
      {2, 3, 90, -1, 5},
      {2, 3, 450, -1, 5},
      {2, 3, 180, 4, 6},
      {2, 3, -180, 4, 6},
      {2, 3, 270, 5, 1},
      {2, 3, -90, 5, 1},
      {2, 3, -1e-300, 0, 0},  // reduces to 360, which is 0
      {2, 3, 30, -3 * 0.5 - 2 * c30 + 2, 2 * 0.5 - 3 * c30 + 3},
      {2, 3, -330, -3 * 0.5 - 2 * c30 + 2, 2 * 0.5 - 3 * c30 + 3},
  };
  PQ_FOR_EACH_VARIANT(ippiGetRotateShift, [&](auto kernel) {
    double x = 0, y = 0;
    for (const Row& row : rows) {
      ASSERT_EQ(kernel(row.x, row.y, row.angle, &x, &y), 0);
      EXPECT_NEAR(x, row.x_shift, 1e-14) << row.angle;
      EXPECT_NEAR(y, row.y_shift, 1e-14) << row.angle;
    }
    x = y = 7;
    EXPECT_EQ(kernel(1, 1, 30, nullptr, &y), -8);
    EXPECT_EQ(kernel(nan, 1, 30, &x, nullptr), -8);
    for (const double bad : {nan, std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
      EXPECT_EQ(kernel(bad, 1, 30, &x, &y), -56);
      EXPECT_EQ(kernel(1, bad, 30, &x, &y), -56);
      EXPECT_EQ(kernel(1, 1, bad, &x, &y), -56);
    }
    EXPECT_EQ(x, 7);
    EXPECT_EQ(y, 7);
  });
}

// The matrix that a call stands for, as the slow form takes it.
void Matrix(double (&m)[3][3], double a, double b, double c, double d, double e, double f) {
  const double rows[3][3] = {{a, b, c}, {d, e, f}, {0, 0, 1}};
  std::copy(&rows[0][0], &rows[0][0] + 9, &m[0][0]);
}

// Runs `call(kernel)` for all variants of both channel counts on random frames; the plain form against the slow one,
// the others against the plain.
template <class Kernel, class Draw>
void CheckAffine(const char* name3, const char* name1, Draw draw) {
  check::Random random(41);
  int drawn_in_all = 0;
  for (int number = 0; number < check::CaseCount(); ++number) {
    const int channels = random.OneIn(2) ? 3 : 1;
    check::WarpFrame frame(random, channels, random.OneIn(2));
    const PQKernelInfo* kernel = PQFindKernel(channels == 3 ? name3 : name1);
    const check::Random own = random;
    Bytes plain;
    IppStatus plain_status = 0;
    for (const bool smooth : {false, true}) {
      for (const PQVariant variant : check::RunnableVariants(*kernel)) {
        frame.Clear(77);
        double m[3][3];
        check::Random same = own;
        const IppStatus status = draw(reinterpret_cast<Kernel>(kernel->entries[static_cast<int>(variant)]), frame, same,
                                      frame.call.code | (smooth ? kSmooth : 0), m);
        if (variant == PQVariant::px) {
          plain = frame.Result();
          plain_status = status;
          random = same;
          int drawn = 0;
          if (status == 0 && !smooth) {
            const check::SlowWarp slow(frame.call, frame.src->data(), check::LocateByMatrix(m));
            ASSERT_TRUE(slow.Agrees(frame.dst->data(), 77, &drawn))
                << "case " << number << " code " << frame.call.code << " channels " << channels;
            drawn_in_all += drawn;
          } else if (status != 0) {
            EXPECT_EQ(plain, Bytes(plain.size(), 77)) << "status " << status;
          }
        } else {
          ASSERT_EQ(status, plain_status) << PQVariantName(variant);
          ASSERT_TRUE(frame.Result() == plain)
              << PQVariantName(variant) << " differs from px: case " << number << " code " << frame.call.code
              << " channels " << channels << (smooth ? " smooth" : "");
        }
      }
    }
  }
  EXPECT_GT(drawn_in_all, check::CaseCount() * 10) << "the cases draw too little to mean anything";
}

TEST(PQAffine, RotateEqualsTheSlowForm) {
  CheckAffine<RotateKernel>(
      "ippiRotate_8u_C3R", "ippiRotate_8u_C1R",
      [](RotateKernel kernel, check::WarpFrame& f, check::Random& random, int code, double(&m)[3][3]) {
        const double angle = random.OneIn(3) ? 90.0 * random.Between(-5, 5) : random.Between(-72000, 72000) / 100.0;
        const auto [w, h] = f.call.size;
        double x_shift, y_shift;
        _px_ippiGetRotateShift((w - 1) * 0.5, (h - 1) * 0.5, angle, &x_shift, &y_shift);
        if (random.OneIn(2)) x_shift += random.Between(-40, 40), y_shift += random.Between(-30, 30) * 0.5;
        double whole = std::fmod(angle, 360), c = std::cos(angle * M_PI / 180), s = std::sin(angle * M_PI / 180);
        if (std::fmod(whole, 90) == 0) c = std::round(c), s = std::round(s);
        Matrix(m, c, s, x_shift, -s, c, y_shift);
        return kernel(f.src->data(), f.call.size, f.call.src_step, f.call.src_roi, f.dst->data(), f.call.dst_step,
                      f.call.dst_roi, angle, x_shift, y_shift, code);
      });
}

TEST(PQAffine, ShearEqualsTheSlowForm) {
  CheckAffine<ShearKernel>(
      "ippiShear_8u_C3R", "ippiShear_8u_C1R",
      [](ShearKernel kernel, check::WarpFrame& f, check::Random& random, int code, double(&m)[3][3]) {
        const auto shear = [&] { return random.OneIn(3) ? 0.0 : random.Between(-1500, 1500) / 1000.0; };
        const double x = shear(), y = shear(), dx = random.Between(-40, 40) * 0.5, dy = random.Between(-300, 300) * 0.1;
        Matrix(m, 1, x, dx, y, 1, dy);
        return kernel(f.src->data(), f.call.size, f.call.src_step, f.call.src_roi, f.dst->data(), f.call.dst_step,
                      f.call.dst_roi, x, y, dx, dy, code);
      });
}

TEST(PQAffine, FourQuarterTurnsComeBack) {
  constexpr int kSide = 19;
  check::Random random(9);
  Bytes picture(kSide * kSide * 3);
  random.Fill(picture.data(), picture.size());
  for (const int code : {1, 2, 4, 1 | kSmooth}) {
    PQ_FOR_EACH_VARIANT(ippiRotate_8u_C3R, [&](RotateKernel kernel) {
      Bytes from = picture, to;
      for (int turn = 0; turn < 4; ++turn) {
        to.assign(picture.size(), 0);
        double x, y;
        _px_ippiGetRotateShift(9, 9, 90, &x, &y);
        ASSERT_EQ(kernel(from.data(), {kSide, kSide}, kSide * 3, {0, 0, kSide, kSide}, to.data(), kSide * 3,
                         {0, 0, kSide, kSide}, 90, x, y, code),
                  0);
        if (turn == 0) {
          EXPECT_EQ(to[(kSide - 1) * kSide * 3], picture[0]) << "top left goes to bottom left";
        }
        from = to;
      }
      EXPECT_EQ(to, picture) << "code " << code;
      ASSERT_EQ(kernel(picture.data(), {kSide, kSide}, kSide * 3, {0, 0, kSide, kSide}, to.data(), kSide * 3,
                       {0, 0, kSide, kSide}, -360, 0, 0, code),
                0);
      EXPECT_EQ(to, picture) << "no turn";
    });
  }
}

// A flat square slanted by half a pixel a row: the pixels just outside the slanted sides become half of it.
TEST(PQAffine, SmoothBorderWorked) {
  const Bytes flat(4 * 4, 200);
  const Bytes hard = {200, 200, 200, 200, 0,   0, 0,  //
                      0,   200, 200, 200, 0,   0, 0,  //
                      0,   200, 200, 200, 200, 0, 0,  //
                      0,   0,   200, 200, 200, 0, 0};
  Bytes smooth = hard;
  smooth[7] = smooth[11] = smooth[22] = smooth[26] = 100;
  PQ_FOR_EACH_VARIANT(ippiShear_8u_C1R, [&](ShearKernel kernel) {
    Bytes out(7 * 4, 0);
    ASSERT_EQ(kernel(flat.data(), {4, 4}, 4, {0, 0, 4, 4}, out.data(), 7, {0, 0, 7, 4}, 0.5, 0, 0, 0, 1), 0);
    EXPECT_EQ(out, hard);
    out.assign(out.size(), 0);
    ASSERT_EQ(kernel(flat.data(), {4, 4}, 4, {0, 0, 4, 4}, out.data(), 7, {0, 0, 7, 4}, 0.5, 0, 0, 0, 1 | kSmooth), 0);
    EXPECT_EQ(out, smooth);
    // Nothing outside the destination rectangle is written, nor read.
    out.assign(out.size(), 0);
    ASSERT_EQ(kernel(flat.data(), {4, 4}, 4, {0, 0, 4, 4}, out.data(), 7, {1, 0, 3, 4}, 0.5, 0, 0, 0, 1 | kSmooth), 0);
    for (int y = 0; y < 4; ++y) {
      for (const int x : {0, 4, 5, 6}) EXPECT_EQ(out[y * 7 + x], 0) << x << ", " << y;
    }
  });
}

TEST(PQAffine, OrderOfChecks) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  struct Row {
    const char* what;
    IppStatus status;
    bool null;
    IppiSize size;
    TPQImageRect src;
    int step;
    TPQImageRect dst;
    double x, y, x_shift;
    int code;
  };
  const TPQImageRect all{0, 0, 8, 8};
  const Row rows[] = {
      {"null", -8, true, {0, 8}, all, 0, all, 1, 1, 0, 3},
      {"size", -6, false, {0, 8}, all, 0, all, 1, 1, 0, 3},
      {"source x", -6, false, {8, 8}, {-1, 0, 8, 8}, 0, all, 1, 1, 0, 3},
      {"source height", -6, false, {8, 8}, {0, 0, 8, 0}, 0, all, 1, 1, 0, 3},
      {"destination y", -6, false, {8, 8}, all, 0, {0, -1, 8, 8}, 1, 1, 0, 3},
      {"destination width", -6, false, {8, 8}, all, 0, {0, 0, 0, 8}, 1, 1, 0, 3},
      {"step", -14, false, {8, 8}, all, 0, all, 1, 1, 0, 3},
      {"code 3", -22, false, {8, 8}, all, 24, all, 1, 1, 0, 3},
      {"code 8", -22, false, {8, 8}, all, 24, all, 1, 1, 0, 8},
      {"code 16", -22, false, {8, 8}, all, 24, all, 1, 1, 0, 16},
      {"bit 31 alone", -22, false, {8, 8}, all, 24, all, 1, 1, 0, kSmooth},
      {"bit 30", -22, false, {8, 8}, all, 24, all, 1, 1, 0, 0x40000001},
      {"no inverse", -56, false, {8, 8}, {8, 0, 8, 8}, 24, all, 1, 1, 0, 1},
      {"not a number", -56, false, {8, 8}, {8, 0, 8, 8}, 24, all, nan, 0, 0, 1},
      {"infinite", -56, false, {8, 8}, {8, 0, 8, 8}, 24, all, 0, 0, inf, 1},
      {"behind the picture", 29, false, {8, 8}, {8, 0, 8, 8}, 24, all, 0.5, 0, 0, 1},
      {"one column inside", -57, false, {8, 8}, {7, 0, 8, 8}, 24, all, 0.5, 0, 0, 1},
      {"picture of one column", -57, false, {1, 8}, {0, 0, 8, 8}, 24, all, 0.5, 0, 0, 4},
      {"flat beyond doubles", -56, false, {8, 8}, all, 24, all, 1e300, 1e300, 0, 1},
      {"nothing to draw", 30, false, {8, 8}, all, 24, all, 0, 0, 8, 1},
      {"nothing to draw, far away", 30, false, {8, 8}, all, 24, all, 0.5, 0.25, -1e15, 2 | kSmooth},
      {"rectangles as large as an int",
       0,
       false,
       {8, 8},
       {2, 2, 2147483647, 2147483647},
       24,
       {4, 4, 2147483647, 2147483647},
       0,
       0,
       0,
       2},
  };
  Bytes picture(8 * 8 * 3, 9), out(8 * 8 * 3);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const auto body = [&](ShearKernel kernel) {
      std::fill(out.begin(), out.end(), 200);
      EXPECT_EQ(kernel(picture.data(), row.size, 24, row.src, row.null ? nullptr : out.data(), row.step, row.dst, row.x,
                       row.y, row.x_shift, 0, row.code),
                row.status);
      if (row.status != 0) {
        EXPECT_EQ(out, Bytes(out.size(), 200));
      }
    };
    PQ_FOR_EACH_VARIANT(ippiShear_8u_C3R, body);
    PQ_FOR_EACH_VARIANT(ippiShear_8u_C1R, body);
  }
  PQ_FOR_EACH_VARIANT(ippiRotate_8u_C3R, [&](RotateKernel kernel) {
    for (const double bad : {nan, inf, -inf}) {
      EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, all, out.data(), 24, all, bad, 0, 0, 1), -56);
      EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, all, out.data(), 24, all, 30, bad, 0, 1), -56);
    }
    EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, all, out.data(), 24, all, 1e300, 0, 0, 1) % 30, 0);
  });
}

// Numbers of all magnitudes: some answer, nothing outside the pictures (which end at guard pages), no endless walk.
TEST(PQAffine, AnyNumbers) {
  check::Random random(77);
  for (int number = 0; number < check::CaseCount(); ++number) {
    check::WarpFrame frame(random, 3, false);
    const auto any = [&] {
      const double size = std::pow(10.0, random.Between(-320, 308));
      return (random.OneIn(2) ? size : random.Between(-3000, 3000) / 997.0) * (random.OneIn(2) ? 1 : -1);
    };
    const double x = any(), y = any(), dx = any(), dy = any();
    const int code = frame.call.code | (random.OneIn(2) ? kSmooth : 0);
    Bytes plain;
    PQ_FOR_EACH_VARIANT(ippiShear_8u_C3R, [&](ShearKernel kernel) {
      frame.Clear(77);
      kernel(frame.src->data(), frame.call.size, frame.call.src_step, frame.call.src_roi, frame.dst->data(),
             frame.call.dst_step, frame.call.dst_roi, x, y, dx, dy, code);
      if (plain.empty()) plain = frame.Result();
      EXPECT_EQ(plain == frame.Result(), true) << x << " " << y << " " << dx << " " << dy;
    });
  }
}

TEST(PQAffine, LargestPictures) {
  if (PQ_NO_STRIPES) GTEST_SKIP() << "the sanitizer's shadow of the mapping is too large";
  constexpr int kSide = 16384;
  check::Random random(8);
  Bytes line(kSide * 3);
  random.Fill(line.data(), line.size());
  const check::StripedPicture picture(kSide, line);
  for (const int code : {1, 2, 4}) {
    PQ_FOR_EACH_VARIANT(ippiRotate_8u_C3R, [&](RotateKernel kernel) {
      // Half a turn brings the last corner to the first.
      Bytes out(64 * 8 * 3);
      ASSERT_EQ(kernel(picture.data(), {kSide, kSide}, kSide * 3, {0, 0, kSide, kSide}, out.data(), 64 * 3,
                       {0, 0, 64, 8}, 180, kSide - 1, kSide - 1, code),
                0);
      for (int x = 0; x < 64; ++x) {
        for (int c = 0; c < 3; ++c) {
          ASSERT_EQ(out[(7 * 64 + x) * 3 + c], line[(kSide - 1 - x) * 3 + c]) << "code " << code << " column " << x;
        }
      }
    });
  }
}

TEST(PQAffine, RoundingModeOfTheCallerDoesNotMatter) {
  check::Random random(12);
  check::WarpFrame frame(random, 3, true);
  frame.call.dst_roi = {0, 0, frame.call.out.width, frame.call.out.height};
  PQ_FOR_EACH_VARIANT(ippiRotate_8u_C3R, [&](RotateKernel kernel) {
    Bytes results[2];
    for (int round = 0; round < 2; ++round) {
      frame.Clear(0);
      std::fesetround(round == 0 ? FE_TONEAREST : FE_UPWARD);
      kernel(frame.src->data(), frame.call.size, frame.call.src_step, frame.call.src_roi, frame.dst->data(),
             frame.call.dst_step, frame.call.dst_roi, 17, 3, 4, 4);
      EXPECT_EQ(std::fegetround(), round == 0 ? FE_TONEAREST : FE_UPWARD);
      std::fesetround(FE_TONEAREST);
      results[round] = frame.Result();
    }
    EXPECT_EQ(results[0], results[1]);
  });
}

}  // namespace
}  // namespace pantiq
