#include "pantiq/kernels/PQWiener.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfenv>
#include <cmath>
#include <limits>
#include <vector>

#include "kernels/PQCheck.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Kernel = decltype(&_px_ippiFilterWiener_8u_C3R);
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

struct Form {
  const char* name;
  int channels;
};
const Form kForms[] = {{"ippiFilterWiener_8u_C1R", 1}, {"ippiFilterWiener_8u_C3R", 3}};

Bytes Buffer(IppiSize roi, IppiSize mask) {
  int size = 0;
  EXPECT_EQ(ippiFilterWienerGetBufferSize(roi, mask, 3, &size), ippStsNoErr);
  EXPECT_GT(size, 0);
  return Bytes(static_cast<std::size_t>(size));
}

// The filter told once more in long double, where the noise is given.
Bytes Slow(const std::uint8_t* src, int step, IppiSize roi, IppiSize mask, TPoint anchor, int channels,
           const float* level) {
  Bytes out;
  for (int y = 0; y < roi.height; ++y) {
    for (int i = 0; i < roi.width * channels; ++i) {
      long double sum = 0, squares = 0;
      for (int r = 0; r < mask.height; ++r) {
        for (int c = 0; c < mask.width; ++c) {
          const int v = src[(y - anchor.y + r) * step + i + (c - anchor.x) * channels];
          sum += v, squares += v * v;
        }
      }
      const long double count = static_cast<long double>(mask.width) * mask.height, m = sum / count;
      const long double v = squares / count - m * m, n = std::min(level[i % channels], 1.0f) * 65025.0L;
      const int x = src[y * step + i];
      // Halves go to even in the mode that std::nearbyint finds.
      out.push_back(static_cast<std::uint8_t>(std::nearbyint(v <= n ? m : m + (v - n) / v * (x - m))));
    }
  }
  return out;
}

TEST(PQWiener, WorkedWindows) {
  // One sample of 100 among eight of 10: m = 20, v = 800, and with n = 200 the sample keeps three quarters of its way.
  Bytes src = {10, 10, 10, 10, 100, 10, 10, 10, 10};
  const IppiSize roi{1, 1}, three{3, 3};
  Bytes buffer = Buffer(roi, three);
  const auto run = [&](Kernel kernel, float level) {
    std::uint8_t out = 99;
    EXPECT_EQ(kernel(src.data() + 4, 3, &out, 1, roi, three, {1, 1}, &level, buffer.data()), ippStsNoErr);
    return static_cast<int>(out);
  };
  check::ForEachVariant<Kernel>("ippiFilterWiener_8u_C1R", [&](Kernel kernel) {
    EXPECT_EQ(run(kernel, 200.0f / 65025.0f), 80);
    EXPECT_EQ(run(kernel, 600.0f / 65025.0f), 40);
    EXPECT_EQ(run(kernel, 1.0f), 20);  // more noise than variance: the mean
    EXPECT_EQ(run(kernel, 1e30f), 20);
    EXPECT_EQ(run(kernel, 1e-30f), 100);
    for (const float level : {0.0f, -1.0f, kNan}) EXPECT_EQ(run(kernel, level), 20);  // estimated as 800
    src.assign(9, 7);
    EXPECT_EQ(run(kernel, 0.0f), 7);
    EXPECT_EQ(run(kernel, 0.5f), 7);
    src = {10, 10, 10, 10, 100, 10, 10, 10, 10};
    // Means on a half, of two samples, go to even: 2.5 and 3.5.
    for (const auto& [low, high, mean] : {std::array{2, 3, 2}, {3, 4, 4}, {0, 255, 128}, {0, 1, 0}}) {
      const std::uint8_t pair[2] = {static_cast<std::uint8_t>(low), static_cast<std::uint8_t>(high)};
      const float level = 0.9f;
      std::uint8_t out = 99;
      kernel(pair, 2, &out, 1, {1, 1}, {2, 1}, {0, 0}, &level, buffer.data());
      EXPECT_EQ(out, mean);
    }
  });
}

// Each channel has a noise of its own, given or estimated: a channel alone gives the same.
TEST(PQWiener, ChannelsStandAlone) {
  check::Random random(17);
  constexpr int kWidth = 70, kHeight = 20;
  const IppiSize roi{kWidth - 4, kHeight - 4}, mask{5, 5};
  Bytes src(kWidth * 3 * kHeight), buffer = Buffer(roi, mask);
  for (std::uint8_t& v : src) v = static_cast<std::uint8_t>(random.Byte() / 2);
  for (std::size_t i = 1; i < src.size(); i += 3) src[i] /= 4;
  const float levels[3] = {0.0f, 0.01f, -0.0f};
  PQ_FOR_EACH_VARIANT(ippiFilterWiener_8u_C3R, [&](Kernel kernel) {
    Bytes out(static_cast<std::size_t>(roi.width * 3 * roi.height));
    ASSERT_EQ(kernel(src.data() + kWidth * 6 + 6, kWidth * 3, out.data(), roi.width * 3, roi, mask, {2, 2}, levels,
                     buffer.data()),
              0);
    for (int c = 0; c < 3; ++c) {
      Bytes plane, alone(static_cast<std::size_t>(roi.width * roi.height));
      for (std::size_t i = static_cast<std::size_t>(c); i < src.size(); i += 3) plane.push_back(src[i]);
      _px_ippiFilterWiener_8u_C1R(plane.data() + kWidth * 2 + 2, kWidth, alone.data(), roi.width, roi, mask, {2, 2},
                                  &levels[c], buffer.data());
      for (std::size_t i = 0; i < alone.size(); ++i)
        ASSERT_EQ(out[i * 3 + static_cast<std::size_t>(c)], alone[i]) << c << ' ' << i;
    }
  });
}

TEST(PQWiener, SlowFormAgrees) {
  check::Random random(23);
  for (const Form& form : kForms) {
    for (const IppiSize mask : {IppiSize{3, 3}, {5, 5}, {4, 2}, {1, 7}, {9, 1}, {1, 1}, {25, 20}}) {
      const int width = random.Between(1, 60), height = random.Between(1, 12), c = form.channels;
      const int step = (width + mask.width - 1) * c;
      Bytes src(static_cast<std::size_t>(step * (height + mask.height - 1)));
      random.Fill(src.data(), src.size());
      const TPoint anchor{random.Below(mask.width), random.Below(mask.height)};
      const std::uint8_t* first = src.data() + anchor.y * step + anchor.x * c;
      const float levels[3] = {0.013f, 0.00021f, 0.2f};
      const Bytes expected = Slow(first, step, {width, height}, mask, anchor, c, levels);
      Bytes buffer = Buffer({width, height}, mask);
      check::ForEachVariant<Kernel>(form.name, [&](Kernel kernel) {
        Bytes out(expected.size());
        ASSERT_EQ(kernel(first, step, out.data(), width * c, {width, height}, mask, anchor, levels, buffer.data()), 0);
        EXPECT_EQ(out, expected) << mask.width << " x " << mask.height;
      });
    }
  }
}

TEST(PQWiener, ChecksInOrder) {
  const IppiSize none{0, 0}, one{1, 1};
  Bytes buffer = Buffer(one, {3, 3});
  const std::uint8_t src[27] = {};
  std::uint8_t out[3] = {1, 2, 3};
  const float levels[3] = {};
  for (const Form& form : kForms) {
    check::ForEachVariant<Kernel>(form.name, [&](Kernel kernel) {
      EXPECT_EQ(kernel(nullptr, 0, out, 0, none, none, {-1, 0}, levels, buffer.data()), ippStsNullPtrErr);
      EXPECT_EQ(kernel(src, 0, nullptr, 0, none, none, {-1, 0}, levels, buffer.data()), ippStsNullPtrErr);
      EXPECT_EQ(kernel(src, 0, out, 0, none, none, {-1, 0}, nullptr, buffer.data()), ippStsNullPtrErr);
      EXPECT_EQ(kernel(src, 0, out, 0, none, none, {-1, 0}, levels, nullptr), ippStsNullPtrErr);
      EXPECT_EQ(kernel(src, 0, out, 0, {1, 0}, none, {-1, 0}, levels, buffer.data()), ippStsSizeErr);
      EXPECT_EQ(kernel(src, 0, out, 1, one, none, {-1, 0}, levels, buffer.data()), ippStsStepErr);
      EXPECT_EQ(kernel(src, 1, out, -1, one, none, {-1, 0}, levels, buffer.data()), ippStsStepErr);
      EXPECT_EQ(kernel(src, 1, out, 1, one, {0, 3}, {-1, 0}, levels, buffer.data()), ippStsMaskSizeErr);
      EXPECT_EQ(kernel(src, 1, out, 1, one, {0x7FFFFFFF, 0}, {-1, 0}, levels, buffer.data()), ippStsMaskSizeErr);
      EXPECT_EQ(kernel(src, 1, out, 1, one, {3, 3}, {3, 0}, levels, buffer.data()), ippStsAnchorErr);
      EXPECT_EQ(kernel(src, 1, out, 1, one, {3, 3}, {0, -1}, levels, buffer.data()), ippStsAnchorErr);
    });
  }
  EXPECT_EQ(out[0] * 100 + out[1] * 10 + out[2], 123);
  PQ_FOR_EACH_VARIANT(ippiFilterWienerGetBufferSize, [&](auto query) {
    int size = 0;
    EXPECT_EQ(query(none, none, 3, nullptr), ippStsNullPtrErr);
    EXPECT_EQ(query(none, none, 3, &size), ippStsSizeErr);
    EXPECT_EQ(query(one, none, 3, &size), ippStsMaskSizeErr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(query({0x7FFFFFFF, 0x7FFFFFFF}, {0x7FFFFFFF, 0x7FFFFFFF}, 3, &size), ippStsNoErr);
    EXPECT_GT(size, 0);
  });
}

TEST(PQWiener, RoundsToNearestInEveryMode) {
  check::Random random(41);
  Bytes src(80 * 3 * 12), buffer = Buffer({76, 8}, {5, 5});
  for (std::uint8_t& v : src) v = static_cast<std::uint8_t>(random.Byte() / 3);
  PQ_FOR_EACH_VARIANT(ippiFilterWiener_8u_C3R, [&](Kernel kernel) {
    const float levels[3] = {0.0f, 0.01f, 0.02f};
    const auto run = [&] {
      Bytes out(76 * 3 * 8);
      kernel(src.data() + 2 * 240 + 6, 240, out.data(), 228, {76, 8}, {5, 5}, {2, 2}, levels, buffer.data());
      return out;
    };
    const Bytes expected = run();
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
      ASSERT_EQ(std::fesetround(mode), 0);
      const Bytes out = run();
      const int left = std::fegetround();
      std::fesetround(FE_TONEAREST);
      EXPECT_EQ(left, mode);
      EXPECT_EQ(out, expected) << mode;
    }
  });
}

// The work buffer ends at a page that may not be touched.
void CheckMasks(int most, double cases, int width) {
  for (const Form& form : kForms) {
    check::CheckShape shape;
    shape.sources = 1;
    shape.src_channels = shape.dst_channels = form.channels;
    shape.margin = most - 1;
    shape.max_width = width;
    shape.max_height = 14;
    shape.cases = cases;
    check::CheckVariants<Kernel>(form.name, shape, [&](Kernel kernel, check::CheckCase& c) {
      const int odd = c.random.Below(4);
      IppiSize mask{c.random.Between(1, most), c.random.Between(1, most)};
      if (odd == 0) mask = {std::min(3, most), std::min(3, most)};
      if (odd == 1) mask = {std::min(5, most), std::min(5, most)};
      const TPoint anchor{c.random.Below(mask.width), c.random.Below(mask.height)};
      float levels[3];
      for (float& level : levels) {
        // Also levels near the variances of the pictures, where the two branches meet.
        level = c.random.OneIn(4) ? 0.0f
                                  : static_cast<float>(c.random.Between(1, 999)) * (c.random.OneIn(2) ? 1e-6f : 1e-4f);
      }
      int size = 0;
      ippiFilterWienerGetBufferSize(c.roi, mask, 3, &size);
      check::GuardedBlock buffer(static_cast<std::size_t>(size), c.random.OneIn(2));
      const auto move = [&](int side, int at) { return c.random.OneIn(2) ? most - side + at : at - (most - 1); };
      const int dx = move(mask.width, anchor.x), dy = move(mask.height, anchor.y);
      const std::uint8_t* src = c.src[0].data + static_cast<long>(dy) * c.src[0].step + dx * form.channels;
      return kernel(src, c.src[0].step, c.dst.data, c.dst.step, c.roi, mask, anchor, levels, buffer.data());
    });
  }
}

TEST(PQWiener, VariantsAgree) { CheckMasks(6, 0.4, 300); }
TEST(PQWiener, VariantsAgreeOnLargeMasks) { CheckMasks(36, 0.03, 60); }
TEST(PQWiener, VariantsAgreeOnWideRows) { CheckMasks(5, 0.03, 2500); }

// Enough samples to meet those that the tuned forms compute again.
TEST(PQWiener, VariantsAgreeOnFrames) {
  const int width = 1024, height = check::CaseCount() < 500 ? 16 : 200;
  const IppiSize roi{width - 6, height - 6};
  check::Random random(2);
  for (const IppiSize mask : {IppiSize{3, 3}, {5, 5}, {4, 4}, {2, 1}, {7, 7}}) {
    Bytes src(static_cast<std::size_t>(width * 3 * height)), buffer = Buffer(roi, mask), expected;
    for (std::size_t i = 0; i < src.size(); ++i) {
      const int noise = 1 << (i / 500 % 8);
      src[i] = static_cast<std::uint8_t>(
          std::clamp(static_cast<int>(i / 700 % 256) + random.Between(-noise, noise), 0, 255));
    }
    const float levels[3] = {0.0f, 0.002f, 0.0007f};
    PQ_FOR_EACH_VARIANT(ippiFilterWiener_8u_C3R, [&](Kernel kernel) {
      Bytes out(static_cast<std::size_t>(roi.width * 3 * roi.height));
      ASSERT_EQ(kernel(src.data() + width * 9 + 9, width * 3, out.data(), roi.width * 3, roi, mask,
                       {mask.width / 2, mask.height / 2}, levels, buffer.data()),
                0);
      if (expected.empty())
        expected.swap(out);
      else
        EXPECT_TRUE(out == expected) << mask.width << " x " << mask.height;
    });
  }
}

}  // namespace
}  // namespace pantiq
