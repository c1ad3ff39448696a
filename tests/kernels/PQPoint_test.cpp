// Point operations and histograms: worked values, order of checks, all variants.
#include "pantiq/kernels/PQPoint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "kernels/PQCheck.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {
namespace {

using check::CheckCase;
using check::CheckShape;
using u8 = std::uint8_t;
using Bytes = std::vector<u8>;
using Twist = std::vector<float>;  // twelve

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

const float (*Rows(const Twist& t))[4] { return reinterpret_cast<const float(*)[4]>(t.data()); }

TEST(PQPoint, TwistOfOnePixel) {
  struct Case {
    const char* what;
    Twist twist;
    Bytes in, out;
  };
  const float tiny = std::ldexp(1.0f, -24);
  const Case cases[] = {
      {"identity", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}, {0, 77, 255}, {0, 77, 255}},
      {"channels change places, negative", {0, 0, 1, 0, 1, 0, 0, 0, 0, -1, 0, 255}, {1, 2, 3}, {3, 1, 253}},
      {"halves to even", {0, 0, 0, 2.5f, 0, 0, 0, 3.5f, 0, 0, 0, 0.5f}, {9, 9, 9}, {2, 4, 0}},
      {"halves from products", {0.5f, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 0.5f, 1}, {5, 7, 255}, {2, 4, 128}},
      {"just below a half", {0, 0, 0, 0.5f - tiny / 2, 0, 0, 0, 254.49998f, 0, 0, 0, 254.5f}, {0, 0, 0}, {0, 254, 254}},
      {"limits", {0, 0, 0, 254.6f, 0, 0, 0, 1e9f, 0, 0, 0, -0.0f}, {0, 0, 0}, {255, 255, 0}},
      {"beyond 32 bits", {3e7f, 0, 0, 0, 0, -3e7f, 0, 0, 1e30f, 1e30f, -1e30f, 0}, {255, 255, 255}, {255, 0, 255}},
      {"an offset beyond 32 bits", {0, 0, 0, 3e9f, 0, 0, 0, -3e9f, 0, 0, 0, kInfinity}, {9, 9, 9}, {255, 0, 255}},
      {"infinite", {kInfinity, 0, 0, 0, 0, -kInfinity, 0, 0, kInfinity, -kInfinity, 0, 0}, {1, 1, 1}, {255, 0, 0}},
      {"not a number", {kInfinity, 0, 0, 0, 0, kNaN, 0, 0, 0, 0, 0, kNaN}, {0, 7, 7}, {0, 0, 0}},
      // 2^24 + 1 rounds back to 2^24: the order of the terms and the rounding after each show.
      {"left to right", {16777216, 1, -16777216, 0, 16777216, -16777216, 1, 0, 1, 1, 1, 0}, {1, 1, 1}, {0, 1, 3}},
      {"offset last", {16777216, -16777216, 0, 1, 16777216, 0, -16777216, 3, 0, 0, 0, 0}, {1, 1, 1}, {1, 3, 0}},
      // 0.1f * 3 in single precision is 0.3f + 2^-26 * ...; fused with the next term it would leave a remainder.
      {"unfused", {0.1f, 1, 0, -3.3f, 5e7f * 0.1f, 0, 0, -15000000, 0, 0, 0, 0}, {3, 3, 0}, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto check = [&](const auto& run) {
      for (const int count : {1, 7, 64, 65, 131}) {
        Bytes in, expected;
        for (int i = 0; i < count; ++i) {
          in.insert(in.end(), c.in.begin(), c.in.end());
          expected.insert(expected.end(), c.out.begin(), c.out.end());
        }
        EXPECT_EQ(run(in, IppiSize{count, 1}), expected);
      }
    };
    PQ_FOR_EACH_VARIANT(ippiColorTwist32f_8u_C3R, [&](auto kernel) {
      check([&](Bytes& in, IppiSize roi) {
        Bytes out(in.size());
        EXPECT_EQ(kernel(in.data(), 1000, out.data(), 1000, roi, Rows(c.twist)), 0);
        return out;
      });
    });
    PQ_FOR_EACH_VARIANT(ippiColorTwist32f_8u_C3IR, [&](auto kernel) {
      check([&](Bytes& in, IppiSize roi) {
        EXPECT_EQ(kernel(in.data(), 1000, roi, Rows(c.twist)), 0);
        return in;
      });
    });
  }
}

TEST(PQPoint, TwistIgnoresTheCallersRounding) {
  const Twist twist = {0.299f, 0.587f, 0.114f, 0, 0.333f, 0.333f, 0.333f, 0, 1.1f, 0, 0.7f, -30.5f};
  check::Random random(3);
  Bytes in(300), expected(300), out(300);
  for (u8& b : in) b = random.Byte();
  ASSERT_EQ(_px_ippiColorTwist32f_8u_C3R(in.data(), 300, expected.data(), 300, {100, 1}, Rows(twist)), 0);
  PQ_FOR_EACH_VARIANT(ippiColorTwist32f_8u_C3R, [&](auto kernel) {
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
      std::fesetround(mode);
      const IppStatus status = kernel(in.data(), 300, out.data(), 300, {100, 1}, Rows(twist));
      const int after = std::fegetround();
      std::fesetround(FE_TONEAREST);
      EXPECT_EQ(status, 0);
      EXPECT_EQ(after, mode);
      EXPECT_EQ(out, expected);
    }
  });
}

TEST(PQPoint, GammaIsTheTransferFunction) {
  Bytes ramp(768), out(768);
  for (int i = 0; i < 768; ++i) ramp[i] = static_cast<u8>(i / 3);
  const auto expected = [](int i, bool forward) {
    const long double x = i / 255.0L;
    if (forward) return x < 0.018L ? i * 4.5L : 255 * (1.099L * std::pow(x, 0.45L) - 0.099L);
    return x < 0.081L ? i / 4.5L : 255 * std::pow((x + 0.099L) / 1.099L, 1 / 0.45L);
  };
  const auto compare = [&](bool forward) {
    for (int i = 0; i < 768; ++i) {
      ASSERT_EQ(out[i], static_cast<int>(std::nearbyint(expected(i / 3, forward)))) << i / 3 << ", " << forward;
    }
  };
  PQ_FOR_EACH_VARIANT(ippiGammaFwd_8u_C3R, [&](auto kernel) {
    ASSERT_EQ(kernel(ramp.data(), 768, out.data(), 768, {256, 1}), 0);
    compare(true);
    EXPECT_EQ(Bytes({out[3], out[9]}), Bytes({4, 14}));  // halves, to even
  });
  PQ_FOR_EACH_VARIANT(ippiGammaInv_8u_C3R, [&](auto kernel) {
    ASSERT_EQ(kernel(ramp.data(), 768, out.data(), 768, {256, 1}), 0);
    compare(false);
  });
  PQ_FOR_EACH_VARIANT(ippiGammaFwd_8u_C3IR, [&](auto kernel) {
    out = ramp;
    ASSERT_EQ(kernel(out.data(), 768, {256, 1}), 0);
    compare(true);
  });
  PQ_FOR_EACH_VARIANT(ippiGammaInv_8u_C3IR, [&](auto kernel) {
    out = ramp;
    ASSERT_EQ(kernel(out.data(), 768, {256, 1}), 0);
    compare(false);
  });
}

TEST(PQPoint, ThresholdsOfEveryValue) {
  const u8 low[3] = {10, 0, 255}, low_value[3] = {1, 2, 3}, high[3] = {10, 200, 255}, high_value[3] = {91, 92, 93};
  Bytes ramp(768), out(768);
  for (int i = 0; i < 768; ++i) ramp[i] = static_cast<u8>(i / 3);
  PQ_FOR_EACH_VARIANT(ippiThreshold_LTVal_8u_C3R, [&](auto kernel) {
    ASSERT_EQ(kernel(ramp.data(), 768, out.data(), 768, {256, 1}, low, low_value), 0);
    for (int i = 0; i < 768; ++i) ASSERT_EQ(out[i], ramp[i] < low[i % 3] ? low_value[i % 3] : ramp[i]) << i;
  });
  PQ_FOR_EACH_VARIANT(ippiThreshold_GTVal_8u_C3R, [&](auto kernel) {
    ASSERT_EQ(kernel(ramp.data(), 768, out.data(), 768, {256, 1}, high, high_value), 0);
    for (int i = 0; i < 768; ++i) ASSERT_EQ(out[i], ramp[i] > high[i % 3] ? high_value[i % 3] : ramp[i]) << i;
  });
  PQ_FOR_EACH_VARIANT(ippiThreshold_LTValGTVal_8u_C3R, [&](auto kernel) {
    ASSERT_EQ(kernel(ramp.data(), 768, out.data(), 768, {256, 1}, low, low_value, high, high_value), 0);
    for (int i = 0; i < 768; ++i) {
      const int c = i % 3, s = ramp[i];
      ASSERT_EQ(out[i], s > high[c] ? high_value[c] : s < low[c] ? low_value[c] : s) << i;
    }
  });
}

TEST(PQPoint, LevelsOfTheHistogram) {
  struct Case {
    int n, lower, upper;
    std::vector<int> levels;
  };
  constexpr int kLeast = std::numeric_limits<int>::min(), kMost = std::numeric_limits<int>::max();
  const Case cases[] = {
      {2, 0, 256, {0, 256}},      {5, 0, 10, {0, 3, 6, 8, 10}},        {5, 10, 0, {10, 7, 4, 2, 0}},
      {5, 0, 3, {0, 1, 2, 3, 3}}, {5, 3, 0, {3, 3, 3, 3, 3}},  // the truncated step is 0: nothing descends
      {3, -5, -5, {-5, -5, -5}},  {2, kLeast, kMost, {kLeast, kMost}}, {3, kMost, kLeast, {kMost, -1, kLeast}},
  };
  u8 pixel[3] = {};
  int levels[5], hist[4];
  for (const Case& c : cases) {
    PQ_FOR_EACH_VARIANT(ippiHistogramEven_8u_C1R, [&](auto kernel) {
      ASSERT_EQ(kernel(pixel, 1, {1, 1}, hist, levels, c.n, c.lower, c.upper), 0);
      EXPECT_EQ(std::vector<int>(levels, levels + c.n), c.levels);
    });
    PQ_FOR_EACH_VARIANT(ippiHistogramEven_8u_C3R, [&](auto kernel) {
      int other_levels[2][2], other_hist[2];
      int* hists[3] = {other_hist, hist, other_hist + 1};
      int* all[3] = {other_levels[0], levels, other_levels[1]};
      int n[3] = {2, c.n, 2}, lower[3] = {0, c.lower, 0}, upper[3] = {9, c.upper, 9};
      ASSERT_EQ(kernel(pixel, 3, {1, 1}, hists, all, n, lower, upper), 0);
      EXPECT_EQ(std::vector<int>(levels, levels + c.n), c.levels);
    });
  }
}

TEST(PQPoint, HistogramCountsWithinLevels) {
  const Bytes samples = {0, 1, 1, 254, 255, 255, 7, 7, 7};
  int levels[257], hist[256];
  PQ_FOR_EACH_VARIANT(ippiHistogramEven_8u_C1R, [&](auto kernel) {
    // 256 levels from 0 to 255: the value 255 is the end of the last interval and not counted.
    ASSERT_EQ(kernel(samples.data(), 9, {9, 1}, hist, levels, 256, 0, 255), 0);
    EXPECT_EQ(hist[0], 1);
    EXPECT_EQ(hist[1], 2);
    EXPECT_EQ(hist[7], 3);
    EXPECT_EQ(hist[254], 1);
    int sum = 0;
    for (int k = 0; k < 255; ++k) sum += hist[k];
    EXPECT_EQ(sum, 7);
    ASSERT_EQ(kernel(samples.data(), 9, {9, 1}, hist, levels, 257, 0, 256), 0);
    EXPECT_EQ(hist[255], 2);
    // Descending, and far outside the values.
    ASSERT_EQ(kernel(samples.data(), 9, {9, 1}, hist, levels, 3, 256, 0), 0);
    EXPECT_EQ(std::vector<int>(hist, hist + 2), (std::vector<int>{0, 0}));
    ASSERT_EQ(kernel(samples.data(), 9, {9, 1}, hist, levels, 4, -3000, 3000), 0);
    EXPECT_EQ(std::vector<int>(hist, hist + 3), (std::vector<int>{0, 9, 0}));
  });
  // The three channels in one level array: all are filled, then all counted with the last one's.
  PQ_FOR_EACH_VARIANT(ippiHistogramEven_8u_C3R, [&](auto kernel) {
    int counts[3][1], *hists[3] = {counts[0], counts[1], counts[2]}, *shared[3] = {levels, levels, levels};
    int n[3] = {2, 2, 2}, lower[3] = {0, 0, 200}, upper[3] = {9, 9, 256};
    ASSERT_EQ(kernel(samples.data(), 9, {3, 1}, hists, shared, n, lower, upper), 0);
    EXPECT_EQ((std::vector<int>{counts[0][0], counts[1][0], counts[2][0]}), (std::vector<int>{1, 1, 1}));
  });
  // Given levels, unordered and different for each channel: pixels (0, 1, 1), (254, 255, 255), (7, 7, 7).
  PQ_FOR_EACH_VARIANT(ippiHistogramRange_8u_C3R, [&](auto kernel) {
    int a[3] = {0, 8, 3}, b[2] = {-9, 9999}, c[4] = {255, 256, 1, 8}, counts[3][3];
    int *hists[3] = {counts[0], counts[1], counts[2]}, *given[3] = {a, b, c}, n[3] = {3, 2, 4};
    ASSERT_EQ(kernel(samples.data(), 9, {3, 1}, hists, given, n), 0);
    EXPECT_EQ((std::vector<int>{counts[0][0], counts[0][1], counts[1][0]}), (std::vector<int>{2, 0, 3}));
    EXPECT_EQ(std::vector<int>(counts[2], counts[2] + 3), (std::vector<int>{1, 0, 2}));
  });
}

TEST(PQPoint, OrderOfChecks) {
  u8 a[64] = {}, b[64] = {};
  const u8 zero[3] = {}, one[3] = {1, 1, 1}, odd[3] = {0, 0, 1};
  const Twist twist(12, 0.0f);
  const float(*t)[4] = Rows(twist);
  PQ_FOR_EACH_VARIANT(ippiColorTwist32f_8u_C3R, [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 0, b, 3, {0, 1}, t), -8);
    EXPECT_EQ(kernel(a, 3, nullptr, 3, {1, 1}, t), -8);
    EXPECT_EQ(kernel(a, 0, b, 3, {0, 1}, nullptr), -8);
    EXPECT_EQ(kernel(a, 0, b, 3, {0, 1}, t), -6);
    EXPECT_EQ(kernel(a, 3, b, 0, {1, -1}, t), -6);
    EXPECT_EQ(kernel(a, 0, b, 3, {1, 1}, t), -14);
    EXPECT_EQ(kernel(a, 3, b, -3, {1, 1}, t), -14);
  });
  PQ_FOR_EACH_VARIANT(ippiColorTwist32f_8u_C3IR, [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 0, {0, 1}, t), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, nullptr), -8);
    EXPECT_EQ(kernel(a, 0, {1, 0}, t), -6);
    EXPECT_EQ(kernel(a, 0, {1, 1}, t), -14);
  });
  const auto gamma = [&](auto kernel) {
    EXPECT_EQ(kernel(a, 0, nullptr, 0, {0, 1}), -8);
    EXPECT_EQ(kernel(a, 0, b, 0, {1, 0}), -6);
    EXPECT_EQ(kernel(a, 3, b, 0, {1, 1}), -14);
  };
  PQ_FOR_EACH_VARIANT(ippiGammaFwd_8u_C3R, gamma);
  PQ_FOR_EACH_VARIANT(ippiGammaInv_8u_C3R, gamma);
  PQ_FOR_EACH_VARIANT(PQTable_8u_C1R, [&](auto kernel) {
    EXPECT_EQ(kernel(a, 1, b, 1, {0, 1}, nullptr), -8);
    EXPECT_EQ(kernel(a, 0, b, 0, {0, 1}, a), -6);
    EXPECT_EQ(kernel(a, 1, b, 0, {1, 1}, a), -14);
  });
  const auto gamma_in_place = [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 0, {0, 1}), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}), -6);
    EXPECT_EQ(kernel(a, 0, {1, 1}), -14);
  };
  PQ_FOR_EACH_VARIANT(ippiGammaFwd_8u_C3IR, gamma_in_place);
  PQ_FOR_EACH_VARIANT(ippiGammaInv_8u_C3IR, gamma_in_place);
  const auto threshold = [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 0, b, 0, {0, 1}, zero, one), -8);
    EXPECT_EQ(kernel(a, 0, b, 0, {0, 1}, nullptr, one), -6);
    EXPECT_EQ(kernel(a, 0, b, 3, {1, 1}, nullptr, one), -14);
    EXPECT_EQ(kernel(a, 3, b, 3, {1, 1}, nullptr, one), -8);
    EXPECT_EQ(kernel(a, 3, b, 3, {1, 1}, zero, nullptr), -8);
  };
  PQ_FOR_EACH_VARIANT(ippiThreshold_LTVal_8u_C3R, threshold);
  PQ_FOR_EACH_VARIANT(ippiThreshold_GTVal_8u_C3R, threshold);
  PQ_FOR_EACH_VARIANT(ippiThreshold_LTValGTVal_8u_C3R, [&](auto kernel) {
    EXPECT_EQ(kernel(a, 0, b, 0, {0, 1}, one, one, zero, nullptr), -6);
    EXPECT_EQ(kernel(a, 3, b, 0, {1, 1}, one, one, zero, nullptr), -14);
    EXPECT_EQ(kernel(a, 3, b, 3, {1, 1}, one, one, zero, nullptr), -8);
    EXPECT_EQ(kernel(a, 3, b, 3, {1, 1}, one, one, nullptr, one), -8);
    EXPECT_EQ(kernel(a, 3, b, 3, {1, 1}, odd, one, zero, one), -18);
    EXPECT_EQ(kernel(a, 3, b, 3, {1, 1}, one, one, one, one), 0);
  });
  int hist[3][4], levels[3][4], one_level[3] = {4, 1, 4}, n[3] = {4, 4, 4}, lower[3] = {}, upper[3] = {9, 9, 9};
  PQ_FOR_EACH_VARIANT(ippiHistogramEven_8u_C1R, [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 0, {0, 1}, hist[0], levels[0], 1, 0, 9), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, nullptr, levels[0], 1, 0, 9), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, hist[0], nullptr, 1, 0, 9), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, hist[0], levels[0], 1, 0, 9), -6);
    EXPECT_EQ(kernel(a, 0, {1, 1}, hist[0], levels[0], 1, 0, 9), -14);
    EXPECT_EQ(kernel(a, 1, {1, 1}, hist[0], levels[0], 1, 0, 9), -107);
  });
  int *hists[3] = {hist[0], hist[1], hist[2]}, *lists[3] = {levels[0], levels[1], levels[2]};
  int* gap[3] = {hist[0], hist[1], nullptr};
  const auto histogram = [&](auto kernel, auto... more) {
    EXPECT_EQ(kernel(nullptr, 0, {0, 1}, hists, lists, one_level, more...), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, nullptr, lists, one_level, more...), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, hists, nullptr, one_level, more...), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, hists, lists, nullptr, more...), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, gap, lists, one_level, more...), -107);  // channel 1 before channel 2
    EXPECT_EQ(kernel(a, 0, {0, 1}, gap, lists, n, more...), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, hists, gap, n, more...), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, hists, lists, n, more...), -6);
    EXPECT_EQ(kernel(a, 0, {1, 1}, hists, lists, n, more...), -14);
  };
  PQ_FOR_EACH_VARIANT(ippiHistogramRange_8u_C3R, histogram);
  PQ_FOR_EACH_VARIANT(ippiHistogramEven_8u_C3R, [&](auto kernel) {
    histogram(kernel, &lower[0], &upper[0]);
    EXPECT_EQ(kernel(a, 0, {0, 1}, hists, lists, one_level, nullptr, upper), -8);
    EXPECT_EQ(kernel(a, 0, {0, 1}, hists, lists, one_level, lower, nullptr), -8);
  });
}

// Coefficients of several kinds: usual ones, halves, one of a row, huge ones, special values.
Twist RandomTwist(check::Random& random) {
  Twist t(12);
  const int kind = random.Below(5);
  for (int i = 0; i < 12; ++i) {
    const float unit = static_cast<float>(random.Between(-1000, 1000)) / 500.0f;
    switch (kind) {
      case 0:
        t[i] = i % 4 == 3 ? unit * 100 : unit;
        break;
      case 1:
        t[i] = static_cast<float>(random.Between(-8, 8)) * 0.25f;
        break;
      case 2:
        t[i] = i % 4 == 3 || i % 4 == i / 4 ? unit : 0.0f;
        break;
      case 3:
        t[i] = std::ldexp(unit, random.Between(0, 40));
        break;
      default:
        t[i] = random.OneIn(6) ? kNaN : random.OneIn(6) ? kInfinity : unit;
    }
  }
  return t;
}

TEST(PQPoint, VariantsAgree) {
  const CheckShape two{.sources = 1}, in_place{.in_place = true};
  const auto image = [](auto kernel, CheckCase& c) {
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi);
  };
  const auto own = [](auto kernel, CheckCase& c) { return kernel(c.dst.data, c.dst.step, c.roi); };
  PQ_CHECK_VARIANTS(ippiGammaFwd_8u_C3R, two, image);
  PQ_CHECK_VARIANTS(ippiGammaInv_8u_C3R, two, image);
  PQ_CHECK_VARIANTS(ippiGammaFwd_8u_C3IR, in_place, own);
  PQ_CHECK_VARIANTS(ippiGammaInv_8u_C3IR, in_place, own);
  CheckShape gray = two;
  gray.src_channels = gray.dst_channels = 1;
  PQ_CHECK_VARIANTS(PQTable_8u_C1R, gray, [](auto kernel, CheckCase& c) {
    std::uint8_t table[256];
    c.random.Fill(table, sizeof table);
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi, table);
  });
  PQ_CHECK_VARIANTS(ippiColorTwist32f_8u_C3R, two, [](auto kernel, CheckCase& c) {
    const Twist t = RandomTwist(c.random);
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi, Rows(t));
  });
  PQ_CHECK_VARIANTS(ippiColorTwist32f_8u_C3IR, in_place, [](auto kernel, CheckCase& c) {
    const Twist t = RandomTwist(c.random);
    return kernel(c.dst.data, c.dst.step, c.roi, Rows(t));
  });
  const auto threshold = [](auto kernel, CheckCase& c) {
    u8 t[3], v[3];
    c.random.Fill(t, 3);
    c.random.Fill(v, 3);
    if (c.random.OneIn(3)) return kernel(c.dst.data, c.dst.step, c.dst.data, c.dst.step, c.roi, t, v);
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi, t, v);
  };
  PQ_CHECK_VARIANTS(ippiThreshold_LTVal_8u_C3R, two, threshold);
  PQ_CHECK_VARIANTS(ippiThreshold_GTVal_8u_C3R, two, threshold);
  PQ_CHECK_VARIANTS(ippiThreshold_LTValGTVal_8u_C3R, two, [](auto kernel, CheckCase& c) {
    u8 a[3], b[3], v[3], w[3];
    c.random.Fill(a, 3);
    c.random.Fill(b, 3);
    c.random.Fill(v, 3);
    c.random.Fill(w, 3);
    if (!c.random.OneIn(8)) {
      for (int k = 0; k < 3; ++k) {
        if (a[k] > b[k]) std::swap(a[k], b[k]);
      }
    }
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi, a, v, b, w);
  });
}

TEST(PQPoint, HistogramVariantsAgree) {
  const auto keep = [](CheckCase& c, const std::vector<int>& values) {
    const u8* bytes = reinterpret_cast<const u8*>(values.data());
    c.extra.insert(c.extra.end(), bytes, bytes + values.size() * sizeof(int));
  };
  PQ_CHECK_VARIANTS(ippiHistogramEven_8u_C1R, (CheckShape{.sources = 1, .src_channels = 1, .dst_channels = 0}),
                    [&](auto kernel, CheckCase& c) {
                      const int n = c.random.Between(2, 400);
                      const int lower = c.random.Between(-50, 300), upper = c.random.Between(-50, 300);
                      std::vector<int> hist(n - 1, -1), levels(n, -1);
                      const IppStatus status =
                          kernel(c.src[0].data, c.src[0].step, c.roi, hist.data(), levels.data(), n, lower, upper);
                      keep(c, hist);
                      keep(c, levels);
                      return status;
                    });
  const CheckShape shape{.sources = 1, .dst_channels = 0};
  PQ_CHECK_VARIANTS(ippiHistogramEven_8u_C3R, shape, [&](auto kernel, CheckCase& c) {
    std::vector<int> hist[3], levels[3];
    int n[3], lower[3], upper[3], *h[3], *l[3];
    for (int k = 0; k < 3; ++k) {
      n[k] = c.random.OneIn(2) ? 257 : c.random.Between(2, 400);
      lower[k] = n[k] == 257 ? 0 : c.random.Between(-50, 300);
      upper[k] = n[k] == 257 ? 256 : c.random.Between(-50, 300);
      hist[k].assign(n[k] - 1, -1);
      levels[k].assign(n[k], -1);
      h[k] = hist[k].data();
      l[k] = levels[k].data();
    }
    const IppStatus status = kernel(c.src[0].data, c.src[0].step, c.roi, h, l, n, lower, upper);
    for (int k = 0; k < 3; ++k) keep(c, hist[k]);
    return status;
  });
  PQ_CHECK_VARIANTS(ippiHistogramRange_8u_C3R, shape, [&](auto kernel, CheckCase& c) {
    std::vector<int> hist[3], levels[3];
    int n[3], *h[3], *l[3];
    for (int k = 0; k < 3; ++k) {
      n[k] = c.random.Between(2, 300);
      hist[k].assign(n[k] - 1, -1);
      for (int i = 0; i < n[k]; ++i) levels[k].push_back(c.random.Between(-20, 280));
      if (c.random.OneIn(2)) std::sort(levels[k].begin(), levels[k].end());
      h[k] = hist[k].data();
      l[k] = levels[k].data();
    }
    const IppStatus status = kernel(c.src[0].data, c.src[0].step, c.roi, h, l, n);
    for (int k = 0; k < 3; ++k) keep(c, hist[k]);
    return status;
  });
}

}  // namespace
}  // namespace pantiq
