// Two images into one: worked values, all pairs of bytes under many weights, order of checks, all variants.
#include "pantiq/kernels/PQMix.h"

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
using Weights = std::pair<double, double>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(PQMix, KeyTakesPixelsInAnyRange) {
  const Bytes front = {10, 20, 30, 10, 20, 31, 9, 20, 30, 12, 22, 30, 13, 22, 30, 200, 0, 255, 201, 0, 255};
  const Bytes back = {1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 13, 14, 15, 16, 17, 18, 19, 21, 22, 23};
  const Bytes low = {10, 20, 30, 200, 0, 250, 0, 5, 0}, high = {12, 22, 30, 200, 0, 255, 255, 4, 255};  // the last: none
  const auto expected = [&](std::vector<int> from_back) {
    Bytes out = front;
    for (const int x : from_back) std::copy_n(back.begin() + 3 * x, 3, out.begin() + 3 * x);
    return out;
  };
  const std::pair<int, Bytes> cases[] = {
      {0, front}, {1, expected({0, 3})}, {2, expected({0, 3, 5})}, {3, expected({0, 3, 5})}};
  PQ_FOR_EACH_VARIANT(PQKeyRanges_8u_C3R, [&](auto kernel) {
    for (const auto& [ranges, result] : cases) {
      Bytes out(front.size());
      const u8* l = ranges == 0 ? nullptr : low.data();
      ASSERT_EQ(kernel(front.data(), 21, back.data(), 21, out.data(), 21, {7, 1}, l, high.data(), ranges), 0);
      EXPECT_EQ(out, result) << ranges;
      for (const Bytes* image : {&front, &back}) {  // in place of either
        Bytes same = *image;
        const u8* f = image == &front ? same.data() : front.data();
        const u8* b = image == &back ? same.data() : back.data();
        ASSERT_EQ(kernel(f, 21, b, 21, same.data(), 21, {7, 1}, l, high.data(), ranges), 0);
        EXPECT_EQ(same, result) << ranges;
      }
    }
  });
}

TEST(PQMix, KeyRangesByTheSlowForm) {
  check::Random random(11);
  for (int round = 0; round < 40; ++round) {
    const int width = random.Between(1, round % 4 == 0 ? 3000 : 300), ranges = random.Between(0, 12);
    const int shift = random.Below(64);  // of the destination in memory
    const int step = width * 3;
    Bytes front(step * 4), back(step * 4), low(ranges * 3), high(ranges * 3), expected;
    for (u8& b : front) b = static_cast<u8>(random.Between(0, 7) * 36);
    for (u8& b : back) b = random.Byte();
    for (std::size_t i = 0; i < low.size(); ++i) {
      low[i] = random.OneIn(4) ? 0 : random.Byte();
      high[i] = random.OneIn(4) ? 255 : static_cast<u8>(std::min(255, low[i] + random.Between(-2, 120)));
    }
    for (std::size_t i = 0; i < front.size(); i += 3) {
      bool taken = false;
      for (int r = 0; r < ranges; ++r) {
        int inside = 0;
        for (int c = 0; c < 3; ++c) inside += front[i + c] >= low[3 * r + c] && front[i + c] <= high[3 * r + c];
        taken = taken || inside == 3;
      }
      const Bytes& from = taken ? back : front;
      expected.insert(expected.end(), from.begin() + i, from.begin() + i + 3);
    }
    PQ_FOR_EACH_VARIANT(PQKeyRanges_8u_C3R, [&](auto kernel) {
      Bytes out(front.size() + shift);
      u8* const dst = out.data() + shift;
      ASSERT_EQ(kernel(front.data(), step, back.data(), step, dst, step, {width, 4}, low.data(), high.data(), ranges), 0);
      EXPECT_EQ(Bytes(dst, dst + expected.size()), expected) << width << " pixels, " << ranges << " ranges";
    });
  }
}

// The rule as it stands; volatile keeps each step rounded.
u8 SlowBlend(int first, int second, Weights w) {
  const volatile double sum = w.first + w.second, scale = 1.0 / sum, p = first * w.first, q = second * w.second;
  const volatile double both = p + q, v = both * scale;
  if (!(v > 0)) return 0;
  return v >= 255 ? 255 : static_cast<u8>(std::nearbyint(v));
}

std::vector<Weights> ManyWeights() {
  std::vector<Weights> all = {
      {0.3, 0.7}, {0.5, 0.5}, {1, 1}, {0.25, 0.75}, {3, 7}, {2, 6}, {1, 15}, {-8, -8}, {0, 1}, {1, 0}, {0, -3},
      {-0.25, 1.25}, {1.25, -0.25}, {-0.5, 1.5}, {1.5, -0.5}, {-0.51, 1.51}, {-3, 1}, {100, -99}, {0.1, -0.1},
      {0, 0}, {1, -1}, {-1, 1}, {kInfinity, 1}, {1, -kInfinity}, {kInfinity, -kInfinity}, {kNaN, 1}, {1, kNaN},
      {1e308, 1e308}, {1e300, 2e300}, {5e-324, 5e-324}, {1e-300, 3e-300}, {1e-300, 1}, {1, 1e-17}, {1e99, 1e99},
      {0.5 + std::ldexp(1, -40), 0.5}, {0.5, 0.5 + std::ldexp(1, -52)}, {0.25 + std::ldexp(1, -16), 0.75},
      {1, 509}, {1, 510}, {1, 511},
  };
  check::Random random(23);
  const int count = check::CaseCount() / 5;
  for (int i = 0; i < count; ++i) {
    const double unit = static_cast<double>(random.Next() >> 11) * 0x1p-53;
    const int n = random.Between(2, 60), k = random.Between(0, n);
    switch (random.Below(5)) {
      case 0:
        all.emplace_back(unit, 1 - unit);
        break;
      case 1:
        all.emplace_back(double(k) / n, 1 - double(k) / n);
        break;
      case 2:
        all.emplace_back(k, n - k);
        break;
      case 3:
        all.emplace_back(2 * unit - 0.5, 1.5 - 2 * unit);
        break;
      default:
        all.emplace_back((random.Between(0, 64) - 16) / 32.0, double(k) / n);
    }
  }
  return all;
}

TEST(PQMix, BlendOfAllPairsOfBytes) {
  Bytes first(65536), second(65536), expected(65536), out(65536);
  for (int i = 0; i < 65536; ++i) first[i] = static_cast<u8>(i), second[i] = static_cast<u8>(i >> 8);
  // Also in an order where pairs that need care stand alone among others.
  check::Random random(5);
  for (int i = 65535; i > 32768; --i) {
    const int j = random.Between(0, i);
    std::swap(first[i], first[j]);
    std::swap(second[i], second[j]);
  }
  for (const Weights& w : ManyWeights()) {
    for (int i = 0; i < 65536; ++i) expected[i] = SlowBlend(first[i], second[i], w);
    PQ_FOR_EACH_VARIANT(PQBlend_8u_C1R, [&](auto kernel) {
      ASSERT_EQ(kernel(first.data(), 65536, second.data(), 65536, out.data(), 65536, {65536, 1}, w.first, w.second), 0);
      const auto at = std::mismatch(out.begin(), out.end(), expected.begin()).first - out.begin();
      EXPECT_EQ(at, 65536) << w.first << ", " << w.second << ": " << int(first[at]) << " and " << int(second[at])
                           << " give " << int(out[at]) << ", not " << int(expected[at]);
    });
  }
}

TEST(PQMix, BlendOfOnePair) {
  struct Case {
    int first, second;
    Weights weights;
    int result;
  };
  const Case cases[] = {
      {1, 2, {0.5, 0.5}, 2},     {2, 3, {0.5, 0.5}, 2},      {0, 2, {0.25, 0.75}, 2},  {2, 0, {0.25, 0.75}, 0},
      {100, 200, {1, 3}, 175},   {255, 0, {-0.25, 1.25}, 0}, {0, 255, {-1, 5}, 255},   {7, 9, {0, 0}, 0},
      {9, 7, {1, -1}, 255},      {7, 9, {1, -1}, 0},         {7, 9, {kNaN, 1}, 0},     {7, 7, {1e308, 1e308}, 0},
      {9, 0, {1, kInfinity}, 0}, {4, 0, {0.3, 0.7}, 1},      {60, 61, {0.9, 0.1}, 60},
  };
  PQ_FOR_EACH_VARIANT(PQBlend_8u_C1R, [&](auto kernel) {
    for (const Case& c : cases) {
      for (const int count : {1, 65, 4096}) {  // short images may go another way
        Bytes first(count, static_cast<u8>(c.first)), second(count, static_cast<u8>(c.second)), out(count);
        ASSERT_EQ(kernel(first.data(), 5000, second.data(), 5000, out.data(), 5000, {count, 1}, c.weights.first,
                         c.weights.second),
                  0);
        EXPECT_EQ(out, Bytes(count, static_cast<u8>(c.result)))
            << c.first << ", " << c.second << " by " << c.weights.first << ", " << c.weights.second;
      }
    }
  });
}

TEST(PQMix, BlendIgnoresTheCallersRounding) {
  Bytes first(3000), second(3000), expected(3000), out(3000);
  check::Random random(3);
  for (u8& b : first) b = random.Byte();
  for (u8& b : second) b = random.Byte();
  for (int i = 0; i < 3000; ++i) expected[i] = SlowBlend(first[i], second[i], {0.3, 0.7});
  PQ_FOR_EACH_VARIANT(PQBlend_8u_C1R, [&](auto kernel) {
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
      for (const int count : {1000, 3000}) {
        std::fesetround(mode);
        const IppStatus status = kernel(first.data(), 3000, second.data(), 3000, out.data(), 3000, {count, 1}, 0.3, 0.7);
        const int after = std::fegetround();
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(after, mode);
        EXPECT_TRUE(std::equal(out.begin(), out.begin() + count, expected.begin()));
      }
    }
  });
}

TEST(PQMix, OrderOfChecks) {
  u8 a[64] = {}, b[64] = {};
  PQ_FOR_EACH_VARIANT(PQKeyRanges_8u_C3R, [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 0, a, 3, b, 3, {0, 1}, a, a, -1), -8);
    EXPECT_EQ(kernel(a, 0, nullptr, 3, b, 3, {0, 1}, a, a, -1), -8);
    EXPECT_EQ(kernel(a, 0, a, 3, nullptr, 3, {0, 1}, a, a, -1), -8);
    EXPECT_EQ(kernel(a, 0, a, 3, b, 3, {1, 0}, nullptr, a, 1), -6);
    EXPECT_EQ(kernel(a, 0, a, 3, b, 3, {1, 1}, nullptr, a, 1), -14);
    EXPECT_EQ(kernel(a, 3, a, -3, b, 3, {1, 1}, nullptr, a, 1), -14);
    EXPECT_EQ(kernel(a, 3, a, 3, b, 0, {1, 1}, nullptr, a, 1), -14);
    EXPECT_EQ(kernel(a, 3, a, 3, b, 3, {1, 1}, nullptr, a, 1), -8);
    EXPECT_EQ(kernel(a, 3, a, 3, b, 3, {1, 1}, a, nullptr, 1), -8);
    EXPECT_EQ(kernel(a, 3, a, 3, b, 3, {1, 1}, nullptr, nullptr, -1), -6);
  });
  PQ_FOR_EACH_VARIANT(PQBlend_8u_C1R, [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 0, a, 1, b, 1, {0, 1}, 1, 1), -8);
    EXPECT_EQ(kernel(a, 0, nullptr, 1, b, 1, {0, 1}, 1, 1), -8);
    EXPECT_EQ(kernel(a, 0, a, 1, nullptr, 1, {0, 1}, 1, 1), -8);
    EXPECT_EQ(kernel(a, 0, a, 1, b, 1, {1, 0}, 1, 1), -6);
    EXPECT_EQ(kernel(a, 0, a, 1, b, 1, {1, 1}, 1, 1), -14);
    EXPECT_EQ(kernel(a, 1, a, -1, b, 1, {1, 1}, 1, 1), -14);
    EXPECT_EQ(kernel(a, 1, a, 1, b, 0, {1, 1}, 1, 1), -14);
  });
}

TEST(PQMix, VariantsAgree) {
  // Sources, or the destination in place of one of them.
  const auto source = [](CheckCase& c, int k, int same) { return same == k ? c.dst : c.src[k]; };
  PQ_CHECK_VARIANTS(PQKeyRanges_8u_C3R, (CheckShape{.sources = 2}), [&](auto kernel, CheckCase& c) {
    u8 low[36], high[36];
    const int ranges = c.random.Between(0, 12), same = c.random.Below(4);
    c.random.Fill(low, sizeof low);
    c.random.Fill(high, sizeof high);
    for (int i = 0; i < 36; ++i) {
      if (low[i] > high[i] && !c.random.OneIn(8)) std::swap(low[i], high[i]);
    }
    const check::View front = source(c, 0, same), back = source(c, 1, same);
    return kernel(front.data, front.step, back.data, back.step, c.dst.data, c.dst.step, c.roi, low, high, ranges);
  });
  const std::vector<Weights> weights = ManyWeights();
  PQ_CHECK_VARIANTS(PQBlend_8u_C1R, (CheckShape{.sources = 2, .src_channels = 1, .dst_channels = 1}),
                    [&](auto kernel, CheckCase& c) {
                      const Weights& w = weights[c.random.Below(static_cast<int>(weights.size()))];
                      const int same = c.random.Below(4);
                      const check::View a = source(c, 0, same), b = source(c, 1, same);
                      return kernel(a.data, a.step, b.data, b.step, c.dst.data, c.dst.step, c.roi, w.first, w.second);
                    });
}

}  // namespace
}  // namespace pantiq
