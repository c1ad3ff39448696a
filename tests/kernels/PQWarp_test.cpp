#include "pantiq/kernels/PQWarp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "kernels/PQCheck.h"
#include "kernels/PQSlowWarp.h"
#include "kernels/PQStripedPicture.h"

namespace pantiq {
namespace {

using Bytes = std::vector<std::uint8_t>;
using PerspectiveKernel = decltype(&_px_ippiWarpPerspective_8u_C3R);
using BilinearKernel = decltype(&_px_ippiWarpBilinear_8u_C3R);
using TransformKernel = decltype(&_px_ippiGetPerspectiveTransform);
constexpr int kSmooth = static_cast<int>(0x80000000u);

template <class Body>
void ForEachTransform(Body body) {
  PQ_FOR_EACH_VARIANT(ippiGetPerspectiveTransform, [&](TransformKernel kernel) { body(kernel, true); });
  PQ_FOR_EACH_VARIANT(ippiGetBilinearTransform, [&](TransformKernel kernel) { body(kernel, false); });
}

TEST(PQWarp, TransformsCarryCornersOntoCorners) {
  check::Random random(51);
  for (int number = 0; number < 200; ++number) {
    check::WarpFrame frame(random, 1, true);
    const TPQImageRect rect{random.Below(50), random.Below(50), random.Between(2, 300), random.Between(2, 200)};
    double quad[4][2];
    frame.DrawQuad(random, quad);
    ForEachTransform([&](TransformKernel kernel, bool perspective) {
      double k[9];
      ASSERT_EQ(kernel(rect, quad, k), 0);
      for (int i = 0; i < 4; ++i) {
        const double x = rect.x + (i == 1 || i == 2 ? rect.width - 1 : 0), y = rect.y + (i >= 2 ? rect.height - 1 : 0);
        const double w = perspective ? k[6] * x + k[7] * y + k[8] : 1;
        const double to_x = perspective ? (k[0] * x + k[1] * y + k[2]) / w : k[0] * x * y + k[1] * x + k[2] * y + k[3];
        const double to_y = perspective ? (k[3] * x + k[4] * y + k[5]) / w : k[4] * x * y + k[5] * x + k[6] * y + k[7];
        EXPECT_NEAR(to_x, quad[i][0], 1e-6) << "corner " << i;
        EXPECT_NEAR(to_y, quad[i][1], 1e-6) << "corner " << i;
      }
    });
  }
}

TEST(PQWarp, TransformsOfARectangleOntoItself) {
  const double quad[4][2] = {{3, 4}, {12, 4}, {12, 9}, {3, 9}};
  double k[9];
  PQ_FOR_EACH_VARIANT(ippiGetPerspectiveTransform, [&](TransformKernel kernel) {
    ASSERT_EQ(kernel({3, 4, 10, 6}, quad, k), 0);
    const double want[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(k[i], want[i], 1e-15) << i;
  });
  PQ_FOR_EACH_VARIANT(ippiGetBilinearTransform, [&](TransformKernel kernel) {
    ASSERT_EQ(kernel({3, 4, 10, 6}, quad, k), 0);
    const double want[8] = {0, 1, 0, 0, 0, 0, 1, 0};
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(k[i], want[i], 1e-14) << i;
  });
}

TEST(PQWarp, TransformStatuses) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  struct Row {
    const char* what;
    IppStatus status;
    TPQImageRect rect;
    double quad[4][2];
  };
  const Row rows[] = {
      {"x below 0", -6, {-1, 0, 1, 1}, {{0, 0}, {0, 0}, {5, 5}, {0, 5}}},
      {"height 0", -6, {0, 0, 1, 0}, {{0, 0}, {0, 0}, {5, 5}, {0, 5}}},
      {"two equal corners", -58, {0, 0, 1, 1}, {{0, 0}, {0, 0}, {5, 5}, {0, 5}}},
      {"three corners on a line", -58, {0, 0, 9, 9}, {{0, 0}, {2, 0}, {5, 0}, {0, 5}}},
      {"crossed", -58, {0, 0, 1, 1}, {{0, 0}, {5, 5}, {5, 0}, {0, 5}}},
      {"with a dent", -58, {0, 0, 9, 9}, {{0, 0}, {9, 0}, {2, 2}, {0, 9}}},
      {"not a number", -58, {0, 0, 9, 9}, {{0, 0}, {9, 0}, {9, nan}, {0, 9}}},
      {"infinite", -58, {0, 0, 9, 9}, {{0, 0}, {inf, 0}, {inf, 9}, {0, 9}}},
      {"width 1", -57, {0, 0, 1, 9}, {{0, 0}, {9, 0}, {9, 9}, {0, 9}}},
      {"height 1", -57, {0, 0, 9, 1}, {{0, 0}, {9, 0}, {9, 9}, {0, 9}}},
      {"mirrored", 0, {0, 0, 9, 9}, {{9, 0}, {0, 0}, {0, 9}, {9, 9}}},
      {"as large as an int", 0, {2147483647, 2147483647, 2147483647, 2147483647}, {{0, 0}, {9, 0}, {9, 9}, {0, 9}}},
  };
  ForEachTransform([&](TransformKernel kernel, bool) {
    double k[9];
    for (const Row& row : rows) {
      for (double& value : k) value = 5;
      EXPECT_EQ(kernel(row.rect, row.quad, k), row.status) << row.what;
      if (row.status != 0) {
        EXPECT_EQ(k[0], 5) << row.what;
      }
    }
    EXPECT_EQ(kernel({-1, 0, 1, 1}, nullptr, k), -8);
    EXPECT_EQ(kernel({-1, 0, 1, 1}, rows[0].quad, nullptr), -8);
  });
}

// Random frames through one kernel in both channel counts: px against the slow form, the variants against px.
// call(entry, frame, random, code) draws and gives the slow form's way to positions.
struct Drawn {
  IppStatus status;
  check::Locate locate;
};
template <class Kernel, class Draw>
void CheckWarp(const char* name3, const char* name1, Draw draw) {
  check::Random random(61);
  int drawn_in_all = 0;
  for (int number = 0; number < check::CaseCount(); ++number) {
    const int channels = random.OneIn(2) ? 3 : 1;
    check::WarpFrame frame(random, channels, random.OneIn(2));
    const PQKernelInfo* kernel = PQFindKernel(channels == 3 ? name3 : name1);
    const check::Random own = random;
    for (const bool smooth : {false, true}) {
      Bytes plain;
      IppStatus plain_status = 0;
      for (const PQVariant variant : check::RunnableVariants(*kernel)) {
        frame.Clear(77);
        check::Random same = own;
        const Drawn drawn = draw(reinterpret_cast<Kernel>(kernel->entries[static_cast<int>(variant)]), frame, same,
                                 frame.call.code | (smooth ? kSmooth : 0));
        if (variant == PQVariant::px) {
          plain = frame.Result();
          plain_status = drawn.status;
          random = same;
          int count = 0;
          if (!smooth && drawn.status >= 0) {
            ASSERT_TRUE(drawn.status == 0 || drawn.status == 30);
            const check::SlowWarp slow(frame.call, frame.src->data(), drawn.locate);
            ASSERT_TRUE(slow.Agrees(frame.dst->data(), 77, &count))
                << "case " << number << " code " << frame.call.code << " channels " << channels;
            ASSERT_TRUE(drawn.status == 0 || count == 0) << "status 30, but " << count << " pixels";
            drawn_in_all += count;
          } else if (drawn.status < 0) {
            EXPECT_EQ(plain, Bytes(plain.size(), 77)) << "status " << drawn.status;
          }
        } else {
          ASSERT_EQ(drawn.status, plain_status) << PQVariantName(variant);
          ASSERT_TRUE(frame.Result() == plain)
              << PQVariantName(variant) << " differs from px: case " << number << " code " << frame.call.code
              << " channels " << channels << (smooth ? " smooth" : "");
        }
      }
    }
  }
  EXPECT_GT(drawn_in_all, check::CaseCount() * 30) << "the cases draw too little to mean anything";
}

template <class Kernel, class Coefficients>
IppStatus Call(Kernel kernel, check::WarpFrame& f, const Coefficients& k, int code) {
  return kernel(f.src->data(), f.call.size, f.call.src_step, f.call.src_roi, f.dst->data(), f.call.dst_step,
                f.call.dst_roi, k, code);
}

// A quadrangle for the clipped rectangle of the frame; false if the transform refuses.
bool Solve(TransformKernel transform, check::WarpFrame& f, check::Random& random, double* k) {
  double quad[4][2];
  f.DrawQuad(random, quad);
  TPQImageRect rect = f.call.src_roi;
  rect.width = std::min(rect.width, f.call.size.width - rect.x);
  rect.height = std::min(rect.height, f.call.size.height - rect.y);
  return transform(rect, quad, k) == 0;
}

TEST(PQWarp, PerspectiveEqualsTheSlowForm) {
  CheckWarp<PerspectiveKernel>("ippiWarpPerspective_8u_C3R", "ippiWarpPerspective_8u_C1R",
                               [](PerspectiveKernel kernel, check::WarpFrame& f, check::Random& random, int code) {
                                 double k[3][3] = {};
                                 Solve(&_px_ippiGetPerspectiveTransform, f, random, k[0]);
                                 if (random.OneIn(4)) {  // the same map, told with another scale
                                   for (double& value : *reinterpret_cast<double(*)[9]>(k)) value *= -3;
                                 }
                                 return Drawn{Call(kernel, f, k, code), check::LocateByMatrix(k)};
                               });
}

TEST(PQWarp, PerspectiveBackEqualsTheSlowForm) {
  CheckWarp<PerspectiveKernel>("ippiWarpPerspectiveBack_8u_C3R", "ippiWarpPerspectiveBack_8u_C1R",
                               [](PerspectiveKernel kernel, check::WarpFrame& f, check::Random& random, int code) {
                                 double k[3][3] = {}, back[3][3];
                                 Solve(&_px_ippiGetPerspectiveTransform, f, random, k[0]);
                                 for (int i = 0; i < 3; ++i) {
                                   for (int j = 0; j < 3; ++j) {
                                     const int a = (j + 1) % 3, b = (j + 2) % 3, c = (i + 1) % 3, d = (i + 2) % 3;
                                     back[i][j] = k[a][c] * k[b][d] - k[a][d] * k[b][c];
                                   }
                                 }
                                 return Drawn{Call(kernel, f, back, code), check::LocateByMatrix(k)};
                               });
}

TEST(PQWarp, BilinearEqualsTheSlowForm) {
  CheckWarp<BilinearKernel>("ippiWarpBilinear_8u_C3R", "ippiWarpBilinear_8u_C1R",
                            [](BilinearKernel kernel, check::WarpFrame& f, check::Random& random, int code) {
                              double k[2][4] = {};
                              Solve(&_px_ippiGetBilinearTransform, f, random, k[0]);
                              TPQImageRect rect = f.call.src_roi;
                              rect.width = std::min(rect.width, f.call.size.width - rect.x);
                              rect.height = std::min(rect.height, f.call.size.height - rect.y);
                              return Drawn{Call(kernel, f, k, code), check::LocateByForm(k, rect)};
                            });
}

TEST(PQWarp, BilinearBackEqualsTheSlowForm) {
  CheckWarp<BilinearKernel>(
      "ippiWarpBilinearBack_8u_C3R", "ippiWarpBilinearBack_8u_C1R",
      [](BilinearKernel kernel, check::WarpFrame& f, check::Random& random, int code) {
        double k[2][4];
        for (int i = 0; i < 8; ++i) {
          const bool main = i == 1 || i == 6;  // what keeps the picture upright
          const double size = i % 4 == 0 ? 0.005 : i % 4 == 3 ? 8 : 0.4;
          k[i / 4][i % 4] = (main ? 0.8 : 0) + (random.OneIn(5) ? 0 : size * random.Between(-1000, 1000) / 1000);
        }
        const IppStatus status = Call(kernel, f, k, code);
        std::vector<check::Real> r(&k[0][0], &k[0][0] + 8);
        return Drawn{
            status, [r](int x, int y) -> std::optional<check::Spot> {
              return check::Spot{r[0] * x * y + r[1] * x + r[2] * y + r[3], r[4] * x * y + r[5] * x + r[6] * y + r[7]};
            }};
      });
}

// Quadrangles with no, one or two pairs of parallel sides, exactly and nearly, in both orientations: each side on the
// picture's side, so the corners carry the corners' values.
TEST(PQWarp, BilinearCases) {
  const double quads[][4][2] = {
      {{10, 5}, {80, 12}, {70, 55}, {3, 40}},          // none parallel
      {{10, 5}, {80, 5}, {60, 55}, {20, 55}},          // the first and the third
      {{10, 5}, {10, 55}, {70, 40}, {70, 20}},         // the same, upright and mirrored
      {{10, 5}, {80, 15}, {80, 45}, {10, 55}},         // the second and the fourth
      {{10, 5}, {80, 15}, {85, 55}, {15, 45}},         // both
      {{10, 5}, {80, 5 + 1e-11}, {60, 55}, {20, 55}},  // nearly
      {{10, 5}, {80, 15}, {80 + 1e-12, 45}, {10, 55}}, {{10, 5}, {80, 15}, {85, 55 + 1e-9}, {15, 45}},
      {{80, 5}, {10, 5}, {20, 55}, {60, 55}},  // mirrored
  };
  check::Random random(3);
  Bytes picture(40 * 30);
  random.Fill(picture.data(), picture.size());
  int number = 0;
  for (const auto& quad : quads) {
    double k[2][4];
    ASSERT_EQ(_px_ippiGetBilinearTransform({0, 0, 40, 30}, quad, k[0]), 0) << number;
    check::WarpCall call{1, {40, 30}, 40, {0, 0, 40, 30}, {90, 60}, 90, {0, 0, 90, 60}, 2};
    PQ_FOR_EACH_VARIANT(ippiWarpBilinear_8u_C1R, [&](BilinearKernel kernel) {
      Bytes out(90 * 60, 1);
      ASSERT_EQ(kernel(picture.data(), {40, 30}, 40, {0, 0, 40, 30}, out.data(), 90, {0, 0, 90, 60}, k, 2), 0);
      const check::SlowWarp slow(call, picture.data(), check::LocateByForm(k, {0, 0, 40, 30}));
      int drawn;
      EXPECT_TRUE(slow.Agrees(out.data(), 1, &drawn)) << "quadrangle " << number;
      EXPECT_GT(drawn, 1000) << "quadrangle " << number;
    });
    ++number;
  }
}

// Both orientations of the same flat shape smooth the same pixels.
TEST(PQWarp, SmoothBorderInBothOrientations) {
  const Bytes flat(16, 200);
  Bytes want = {200, 200, 200, 200, 0,   0,   0,  //
                100, 200, 200, 200, 100, 0,   0,  //
                0,   200, 200, 200, 200, 0,   0,  //
                0,   100, 200, 200, 200, 100, 0};
  const double quads[2][4][2] = {{{0, 0}, {3, 0}, {4.5, 3}, {1.5, 3}}, {{3, 0}, {0, 0}, {1.5, 3}, {4.5, 3}}};
  for (const auto& quad : quads) {
    double form[2][4], matrix[3][3];
    ASSERT_EQ(_px_ippiGetBilinearTransform({0, 0, 4, 4}, quad, form[0]), 0);
    ASSERT_EQ(_px_ippiGetPerspectiveTransform({0, 0, 4, 4}, quad, matrix[0]), 0);
    const TPQImageRect all{0, 0, 4, 4}, out_rect{0, 0, 7, 4};
    PQ_FOR_EACH_VARIANT(ippiWarpBilinear_8u_C1R, [&](BilinearKernel kernel) {
      Bytes out(28, 0);
      ASSERT_EQ(kernel(flat.data(), {4, 4}, 4, all, out.data(), 7, out_rect, form, 1 | kSmooth), 0);
      EXPECT_EQ(out, want);
    });
    PQ_FOR_EACH_VARIANT(ippiWarpPerspective_8u_C1R, [&](PerspectiveKernel kernel) {
      Bytes out(28, 0);
      ASSERT_EQ(kernel(flat.data(), {4, 4}, 4, all, out.data(), 7, out_rect, matrix, 1 | kSmooth), 0);
      EXPECT_EQ(out, want);
    });
  }
}

TEST(PQWarp, OrderOfChecks) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double same[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, zero[3][3] = {},
               bad[3][3] = {{nan, 0, 0}, {0, 1, 0}, {0, 0, 1}}, flat[3][3] = {{1, 2, 3}, {2, 4, 6}, {0, 0, 1}},
               far[3][3] = {{1, 0, 100}, {0, 1, 0}, {0, 0, 1}},
               line[3][3] = {{1, 0, 0}, {0, 1, 0}, {-1 / 3.5, 0, 1}};  // the corners do not make a convex shape
  struct Row {
    const char* what;
    IppStatus status;
    const double (*k)[3];
    IppiSize size;
    TPQImageRect src;
    int step;
    TPQImageRect dst;
    int code;
  };
  const TPQImageRect all{0, 0, 8, 8};
  const Row rows[] = {
      {"no coefficients", -8, nullptr, {0, 8}, all, 0, all, 3},
      {"size", -6, zero, {0, 8}, all, 0, all, 3},
      {"source y", -6, zero, {8, 8}, {0, -1, 8, 8}, 0, all, 3},
      {"destination x", -6, zero, {8, 8}, all, 0, {-1, 0, 8, 8}, 3},
      {"step", -14, zero, {8, 8}, all, 0, all, 3},
      {"code", -22, zero, {8, 8}, {8, 0, 8, 8}, 24, all, 16},
      {"all zero", -56, zero, {8, 8}, {8, 0, 8, 8}, 24, all, 1},
      {"singular", -56, flat, {8, 8}, {8, 0, 8, 8}, 24, all, 1},
      {"not a number", -56, bad, {8, 8}, {8, 0, 8, 8}, 24, all, 1},
      {"behind the picture", 29, same, {8, 8}, {0, 8, 8, 8}, 24, all, 1},
      {"one row inside", -57, same, {8, 8}, {0, 7, 8, 8}, 24, all, 1},
      {"picture of one row", -57, same, {8, 1}, {0, 0, 8, 8}, 24, all, 4},
      {"nothing to draw", 30, far, {8, 8}, all, 24, all, 2 | kSmooth},
      {"all", 0, same, {8, 8}, all, 24, all, 1},
  };
  Bytes picture(8 * 8 * 3), out(8 * 8 * 3);
  for (std::size_t i = 0; i < picture.size(); ++i) picture[i] = static_cast<std::uint8_t>(i);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const auto body = [&](PerspectiveKernel kernel) {
      std::fill(out.begin(), out.end(), 200);
      EXPECT_EQ(kernel(picture.data(), row.size, 24, row.src, out.data(), row.step, row.dst, row.k, row.code),
                row.status);
      EXPECT_EQ(out, row.status == 0 ? picture : Bytes(out.size(), 200));
    };
    PQ_FOR_EACH_VARIANT(ippiWarpPerspective_8u_C3R, body);
    PQ_FOR_EACH_VARIANT(ippiWarpPerspectiveBack_8u_C3R, body);
  }
  PQ_FOR_EACH_VARIANT(ippiWarpPerspective_8u_C3R, [&](PerspectiveKernel kernel) {
    EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, all, out.data(), 24, all, line, 1), -56);
  });
  const double none[2][4] = {}, still[2][4] = {{0, 1, 0, 0}, {0, 0, 1, 0}},
               crossed[2][4] = {{-0.4, 1, 0, 0}, {0, 0, 1, 0}};
  const auto bilinear = [&](BilinearKernel kernel) {
    EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, all, out.data(), 24, all, nullptr, 1), -8);
    EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, {8, 0, 8, 8}, out.data(), 24, all, none, 1), -56);
    EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, {8, 0, 8, 8}, out.data(), 24, all, still, 1), 29);
    EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, {0, 7, 8, 8}, out.data(), 24, all, still, 1), -57);
    for (const int code : {1, 2, 4}) {
      std::fill(out.begin(), out.end(), 200);
      EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, all, out.data(), 24, all, still, code), 0);
      EXPECT_EQ(out, picture) << "code " << code;
    }
  };
  PQ_FOR_EACH_VARIANT(ippiWarpBilinear_8u_C3R, bilinear);
  PQ_FOR_EACH_VARIANT(ippiWarpBilinearBack_8u_C3R, bilinear);
  PQ_FOR_EACH_VARIANT(ippiWarpBilinear_8u_C3R, [&](BilinearKernel kernel) {
    EXPECT_EQ(kernel(picture.data(), {8, 8}, 24, all, out.data(), 24, all, crossed, 1), -56);
  });
}

// Coefficients of all magnitudes: some answer, nothing outside the pictures, no endless walk, all variants alike.
TEST(PQWarp, AnyNumbers) {
  check::Random random(78);
  for (int number = 0; number < check::CaseCount(); ++number) {
    check::WarpFrame frame(random, 3, false);
    double matrix[3][3], form[2][4];
    const int span = random.OneIn(2) ? 3 : 300;
    const auto any = [&] {
      if (random.OneIn(5)) return 0.0;
      return std::pow(10.0, random.Between(-span, span / 2)) * (random.Between(-1000, 1000) / 500.0);
    };
    for (auto& row : matrix) {
      for (double& value : row) value = any();
    }
    for (auto& row : form) {
      for (double& value : row) value = any();
    }
    const int code = frame.call.code | (random.OneIn(2) ? kSmooth : 0);
    const auto check = [&](const char* name, auto call) {
      Bytes plain;
      for (const PQVariant variant : check::RunnableVariants(*PQFindKernel(name))) {
        frame.Clear(77);
        call(PQFindKernel(name)->entries[static_cast<int>(variant)]);
        if (variant == PQVariant::px) plain = frame.Result();
        EXPECT_TRUE(plain == frame.Result()) << name << " " << PQVariantName(variant) << " case " << number;
      }
    };
    const auto perspective = [&](auto entry) { Call(reinterpret_cast<PerspectiveKernel>(entry), frame, matrix, code); };
    const auto bilinear = [&](auto entry) { Call(reinterpret_cast<BilinearKernel>(entry), frame, form, code); };
    check("ippiWarpPerspective_8u_C3R", perspective);
    check("ippiWarpPerspectiveBack_8u_C3R", perspective);
    check("ippiWarpBilinear_8u_C3R", bilinear);
    check("ippiWarpBilinearBack_8u_C3R", bilinear);
  }
}

TEST(PQWarp, LargestPictures) {
  if (PQ_NO_STRIPES) GTEST_SKIP() << "the sanitizer's shadow of the mapping is too large";
  constexpr int kSide = 16384;
  check::Random random(8);
  Bytes line(kSide * 3);
  random.Fill(line.data(), line.size());
  const check::StripedPicture picture(kSide, line);
  const double shift = kSide - 64;
  const double matrix[3][3] = {{1, 0, shift}, {0, 1, shift}, {0, 0, 1}},
               form[2][4] = {{0, 1, 0, shift}, {0, 0, 1, shift}};
  for (const int code : {1, 2, 4}) {
    Bytes out(64 * 64 * 3);
    const auto same = [&] {
      for (int y = 0; y < 64; ++y) {
        ASSERT_TRUE(std::equal(&out[y * 192], &out[y * 192] + 192, &line[(kSide - 64) * 3]))
            << "code " << code << " row " << y;
      }
    };
    PQ_FOR_EACH_VARIANT(ippiWarpPerspectiveBack_8u_C3R, [&](PerspectiveKernel kernel) {
      ASSERT_EQ(kernel(picture.data(), {kSide, kSide}, kSide * 3, {0, 0, kSide, kSide}, out.data(), 192, {0, 0, 64, 64},
                       matrix, code),
                0);
      same();
    });
    PQ_FOR_EACH_VARIANT(ippiWarpBilinearBack_8u_C3R, [&](BilinearKernel kernel) {
      ASSERT_EQ(kernel(picture.data(), {kSide, kSide}, kSide * 3, {0, 0, kSide, kSide}, out.data(), 192, {0, 0, 64, 64},
                       form, code),
                0);
      same();
    });
  }
}

}  // namespace
}  // namespace pantiq
