#include "pantiq/kernels/PQNoise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "kernels/PQCheck.h"

namespace pantiq {
namespace {

using NoiseKernel = decltype(&_px_ippiAddRandUniform_Direct_8u_C3IR);
using Bytes = std::vector<std::uint8_t>;

// A seed as callers keep it: declared 16 bits wide, four bytes large.
struct Seed {
  explicit Seed(std::uint32_t value) { std::memcpy(half, &value, sizeof value); }
  std::uint32_t Value() const {
    std::uint32_t value;
    std::memcpy(&value, half, sizeof value);
    return value;
  }
  alignas(4) std::uint16_t half[2];
};

// The random numbers told once more, slowly: every X ever drawn in one array, signed arithmetic, reduced by hand.
class SlowDraws {
 public:
  explicit SlowDraws(std::uint32_t seed) {
    const std::int64_t s1 = Wrap(seed * 69069LL + 1013904243), s2 = Wrap(s1 * 69069 + 1013904243);
    x_ = {s2, s1, seed};
  }
  std::int64_t Draw() {
    l_ = Wrap(l_ * 69069 + 1013904243);
    std::int64_t t = Wrap(x_[x_.size() - 2] - x_[x_.size() - 3] + borrow_);
    borrow_ = t >= kWrap / 2 ? -1 : 0;
    if (borrow_ < 0) t = Wrap(t - 18);
    x_.push_back(t);
    const std::int64_t r = Wrap(t + l_);
    return r >= kWrap / 2 ? r - kWrap : r;
  }
  std::uint32_t Last() const { return static_cast<std::uint32_t>(x_.back()); }

 private:
  static constexpr std::int64_t kWrap = std::int64_t{1} << 32;
  static std::int64_t Wrap(std::int64_t v) { return ((v % kWrap) + kWrap) % kWrap; }
  std::vector<std::int64_t> x_;
  std::int64_t l_ = 1131199209;
  std::int64_t borrow_ = -1;
};

int HalfEven(double v) {
  const double down = std::floor(v), part = v - down;
  const int whole = static_cast<int>(down);
  return part > 0.5 || (part == 0.5 && whole % 2 != 0) ? whole + 1 : whole;
}

std::uint8_t Clamped(int v) { return static_cast<std::uint8_t>(std::clamp(v, 0, 255)); }

std::uint32_t SlowUniform(Bytes& samples, int low, int high, std::uint32_t seed) {
  SlowDraws draws(seed);
  for (std::uint8_t& sample : samples) {
    const double scale = (high - low) * 2.3283064365387e-10, offset = (low + high) * 0.5;
    sample = Clamped(sample + HalfEven(static_cast<double>(draws.Draw()) * scale + offset));
  }
  return draws.Last();
}

std::uint32_t SlowGauss(Bytes& samples, int mean, int std_dev, std::uint32_t seed) {
  SlowDraws draws(seed);
  for (std::size_t i = 0; i < samples.size(); i += 2) {
    double u, v, q;
    do {
      u = static_cast<double>(draws.Draw()) * 4.656612873077e-10;
      v = static_cast<double>(draws.Draw()) * 4.656612873077e-10;
      q = u * u + v * v;
    } while (q >= 1 || q == 0);
    const double f = std::sqrt(-2 * std::log(q) / q);
    samples[i] = Clamped(samples[i] + HalfEven(std_dev * f * u + mean));
    if (i + 1 < samples.size()) samples[i + 1] = Clamped(samples[i + 1] + HalfEven(std_dev * f * v + mean));
  }
  return draws.Last();
}

int SlowJaehne(int x, int y, int width, int height) {
  const double dx = x - (width - 1) / 2.0, dy = y - (height - 1) / 2.0;
  return static_cast<int>((1 + std::sin(6.283185307179586 * (dx * dx + dy * dy) / (4.0 * height))) * 127.99999);
}

Bytes Ramp(std::size_t count) {
  Bytes samples(count);
  for (std::size_t i = 0; i < count; ++i) samples[i] = static_cast<std::uint8_t>(i * 37 + 11);
  return samples;
}

// Runs `body` once for each variant of both noise kernels.
template <class Body>
void ForEachNoise(Body body) {
  PQ_FOR_EACH_VARIANT(ippiAddRandUniform_Direct_8u_C3IR, body);
  PQ_FOR_EACH_VARIANT(ippiAddRandGauss_Direct_8u_C3IR, body);
}

TEST(PQNoise, WorkedFrames) {
  struct Case {
    bool gauss;
    std::uint32_t seed;
    std::uint8_t a, b;
    Bytes expected;
    std::uint32_t next_seed;
  };
  const Bytes before = {10, 200, 0, 255, 128, 64, 3, 250, 90, 90, 90, 90};
  // clang-format off
  const Case cases[] = {
      {false, 0, 0, 40, {10, 205, 8, 255, 142, 94, 36, 255, 121, 112, 129, 112}, 0x28E671F5},
      {false, 0x12345678, 100, 20, {55, 250, 34, 255, 191, 89, 93, 255, 121, 164, 111, 173}, 0xD66B9254},
      {false, 0xFFFFFFFF, 0, 255, {38, 233, 82, 255, 246, 196, 15, 255, 143, 255, 255, 229}, 0x29DB2749},
      {true, 0, 0, 10, {0, 196, 0, 255, 135, 59, 19, 252, 95}, 0x28E671F5},
      {true, 0x12345678, 20, 60, {118, 255, 55, 245, 145, 126, 0, 247, 158}, 0xBB804977},
      {true, 0xFFFFFFFF, 7, 255, {0, 0, 0, 255, 255, 147, 0, 0, 160}, 0x5BE2D781},
  };
  // clang-format on
  for (const Case& c : cases) {
    const auto check = [&](NoiseKernel kernel) {
      Bytes pixels(before.begin(), before.begin() + static_cast<std::ptrdiff_t>(c.expected.size()));
      Seed seed(c.seed);
      const int width = static_cast<int>(c.expected.size() / 3);
      EXPECT_EQ(kernel(pixels.data(), width * 3, {width, 1}, c.a, c.b, seed.half[0]), ippStsNoErr);
      EXPECT_EQ(pixels, c.expected) << c.seed;
      EXPECT_EQ(seed.Value(), c.next_seed);
    };
    if (c.gauss) {
      PQ_FOR_EACH_VARIANT(ippiAddRandGauss_Direct_8u_C3IR, check);
    } else {
      PQ_FOR_EACH_VARIANT(ippiAddRandUniform_Direct_8u_C3IR, check);
    }
  }
}

TEST(PQNoise, SlowFormAgrees) {
  struct Case {
    int width, height, a, b;
    std::uint32_t seed;
  };
  // Odd counts leave half a pair; several rows carry pairs and sequences across their ends.
  const Case cases[] = {
      {1, 1, 0, 255, 1},     {1, 7, 255, 0, 0x80000000}, {3, 5, 9, 10, 77},       {43, 3, 200, 13, 0xDEADBEEF},
      {21, 1, 128, 128, 42}, {64, 2, 0, 1, 0xFFFFFFFE},  {101, 31, 3, 250, 12345}};
  for (const Case& c : cases) {
    const auto compare = [&](auto slow) {
      return [&, slow](NoiseKernel kernel) {
        Bytes expected = Ramp(static_cast<std::size_t>(c.width) * 3 * c.height), pixels = expected;
        const std::uint32_t next_seed = slow(expected, c.a, c.b, c.seed);
        Seed seed(c.seed);
        const auto a = static_cast<std::uint8_t>(c.a), b = static_cast<std::uint8_t>(c.b);
        EXPECT_EQ(kernel(pixels.data(), c.width * 3, {c.width, c.height}, a, b, seed.half[0]), ippStsNoErr);
        EXPECT_EQ(pixels, expected) << c.width << " x " << c.height;
        EXPECT_EQ(seed.Value(), next_seed);
      };
    };
    PQ_FOR_EACH_VARIANT(ippiAddRandUniform_Direct_8u_C3IR, compare(&SlowUniform));
    PQ_FOR_EACH_VARIANT(ippiAddRandGauss_Direct_8u_C3IR, compare(&SlowGauss));
  }
}

TEST(PQNoise, NoiseWithoutSpreadAddsAConstant) {
  struct Case {
    bool gauss;
    std::uint8_t a, b;
    int added;
  };
  for (const Case& c : {Case{false, 0, 0, 0}, Case{false, 17, 17, 17}, Case{false, 255, 255, 255}, Case{true, 0, 0, 0},
                        Case{true, 40, 0, 40}, Case{true, 255, 0, 255}}) {
    const auto check = [&](NoiseKernel kernel) {
      const Bytes before = Ramp(90 * 4);
      Bytes pixels = before;
      Seed seed(0xC0FFEE), again(0xC0FFEE);
      EXPECT_EQ(kernel(pixels.data(), 90, {30, 4}, c.a, c.b, seed.half[0]), ippStsNoErr);
      for (std::size_t i = 0; i < pixels.size(); ++i) ASSERT_EQ(pixels[i], Clamped(before[i] + c.added)) << i;
      EXPECT_NE(seed.Value(), 0xC0FFEEu);
      pixels = before;
      kernel(pixels.data(), 90, {30, 4}, 255, 3, again.half[0]);
      EXPECT_EQ(again.Value(), seed.Value());  // what is added has no part in the seed
    };
    if (c.gauss) {
      PQ_FOR_EACH_VARIANT(ippiAddRandGauss_Direct_8u_C3IR, check);
    } else {
      PQ_FOR_EACH_VARIANT(ippiAddRandUniform_Direct_8u_C3IR, check);
    }
  }
}

// Draws whose uniform noise is exactly half a level: a draw of 0, and draws that the constant lifts off the half by
// some 1e-13 to either side. And the least draw, which has no positive counterpart.
TEST(PQNoise, UniformEdges) {
  struct Case {
    std::uint32_t seed;
    int place;
    std::uint8_t low, high;
    int noise;
  };
  const Case cases[] = {
      {5947132, 15, 0, 1, 0},      {5947132, 15, 1, 2, 2},       {5947132, 15, 2, 1, 2},    {228565765, 3, 0, 255, 128},
      {228565765, 3, 254, 1, 128}, {965843, 11, 0, 128, 16},     {965843, 11, 128, 0, 112}, {3824068, 30, 1, 129, 14},
      {3200199, 19, 0, 128, 72},   {3200199, 19, 128, 0, 56},    {20723500, 37, 0, 2, 2},   {20723500, 37, 3, 1, 1},
      {0x508C2CA4, 0, 0, 255, 0},  {0x508C2CA4, 0, 255, 0, 255},
  };
  for (const Case& c : cases) {
    PQ_FOR_EACH_VARIANT(ippiAddRandUniform_Direct_8u_C3IR, [&](NoiseKernel kernel) {
      Bytes pixels(48 * 3), expected(48 * 3);
      Seed seed(c.seed);
      kernel(pixels.data(), 48 * 3, {48, 1}, c.low, c.high, seed.half[0]);
      SlowUniform(expected, c.low, c.high, c.seed);
      EXPECT_EQ(pixels[static_cast<std::size_t>(c.place)], c.noise)
          << c.seed << ' ' << int(c.low) << ' ' << int(c.high);
      EXPECT_EQ(pixels, expected);
    });
  }
}

TEST(PQNoise, ChecksInOrder) {
  std::uint8_t pixel[3] = {1, 2, 3};
  ForEachNoise([&](NoiseKernel kernel) {
    Seed seed(5);
    EXPECT_EQ(kernel(nullptr, 0, {0, 0}, 0, 9, seed.half[0]), ippStsNullPtrErr);
    // A caller in another language may pass no seed.
    using WithAddress = IppStatus (*)(std::uint8_t*, int, IppiSize, std::uint8_t, std::uint8_t, std::uint16_t*);
    const auto with_address = reinterpret_cast<WithAddress>(reinterpret_cast<void (*)()>(kernel));
    EXPECT_EQ(with_address(pixel, 0, {0, 0}, 0, 9, nullptr), ippStsNullPtrErr);
    EXPECT_EQ(kernel(pixel, 0, {0, 1}, 0, 9, seed.half[0]), ippStsSizeErr);
    EXPECT_EQ(kernel(pixel, -1, {1, 0}, 0, 9, seed.half[0]), ippStsSizeErr);
    EXPECT_EQ(kernel(pixel, 0, {1, 1}, 0, 9, seed.half[0]), ippStsStepErr);
    EXPECT_EQ(kernel(pixel, -3, {1, 1}, 0, 9, seed.half[0]), ippStsStepErr);
    EXPECT_EQ(seed.Value(), 5u);
  });
  PQ_FOR_EACH_VARIANT(ippiImageJaehne_8u_C3R, [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 0, {0, 0}), ippStsNullPtrErr);
    EXPECT_EQ(kernel(pixel, 0, {0, 0}), ippStsStepErr);
    EXPECT_EQ(kernel(pixel, -3, {1, 0}), ippStsStepErr);
    EXPECT_EQ(kernel(pixel, 3, {0, 1}), ippStsSizeErr);
    EXPECT_EQ(kernel(pixel, 3, {1, -1}), ippStsSizeErr);
  });
  EXPECT_EQ(pixel[0] * 100 + pixel[1] * 10 + pixel[2], 123);
}

TEST(PQNoise, RoundsToNearestInEveryMode) {
  const Bytes before = Ramp(300 * 3);
  const auto check = [&](auto run) {
    const Bytes expected = run();
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
      ASSERT_EQ(std::fesetround(mode), 0);
      const Bytes pixels = run();
      const int left = std::fegetround();
      std::fesetround(FE_TONEAREST);
      EXPECT_EQ(left, mode);
      EXPECT_EQ(pixels, expected) << mode;
    }
  };
  ForEachNoise([&](NoiseKernel kernel) {
    check([&] {
      Bytes pixels = before;
      Seed seed(31);
      kernel(pixels.data(), 300, {100, 3}, 3, 200, seed.half[0]);
      return pixels;
    });
  });
  PQ_FOR_EACH_VARIANT(ippiImageJaehne_8u_C3R, [&](auto kernel) {
    check([&] {
      Bytes pixels = before;
      kernel(pixels.data(), 300, {100, 3});
      return pixels;
    });
  });
}

TEST(PQNoise, VariantsAgree) {
  const auto run = [](NoiseKernel kernel, check::CheckCase& c) {
    const bool small = c.random.OneIn(4);
    const auto a = static_cast<std::uint8_t>(small ? c.random.Below(3) : c.random.Byte());
    const auto b = static_cast<std::uint8_t>(small ? c.random.Below(3) : c.random.Byte());
    Seed seed(static_cast<std::uint32_t>(c.random.Next()));
    const IppStatus status = kernel(c.dst.data, c.dst.step, c.roi, a, b, seed.half[0]);
    const std::uint32_t next = seed.Value();
    for (int i = 0; i < 4; ++i) c.extra.push_back(static_cast<std::uint8_t>(next >> 8 * i));
    return status;
  };
  const auto draw = [](auto kernel, check::CheckCase& c) { return kernel(c.dst.data, c.dst.step, c.roi); };
  // With free steps rows overlap, and what is drawn twice depends on the order of rows.
  for (const bool free_steps : {false, true}) {
    check::CheckShape shape;
    shape.in_place = true;
    shape.free_steps = free_steps;
    shape.max_width = 900;
    PQ_CHECK_VARIANTS(ippiAddRandUniform_Direct_8u_C3IR, shape, run);
    PQ_CHECK_VARIANTS(ippiAddRandGauss_Direct_8u_C3IR, shape, run);
    PQ_CHECK_VARIANTS(ippiImageJaehne_8u_C3R, shape, draw);
  }
}

// Whole frames: what a block of draws, a guard or a redone sample gets wrong once in a million samples shows here.
TEST(PQNoise, VariantsAgreeOnLongRuns) {
  constexpr int kWidth = 1920, kHeight = 1080;
  const auto compare = [](const char* name, std::uint8_t a, std::uint8_t b, std::uint32_t start) {
    const Bytes before = Ramp(std::size_t{kWidth} * 3 * kHeight);
    Bytes expected, pixels;
    std::uint32_t next_seed = 0;
    check::ForEachVariant<NoiseKernel>(name, [&](NoiseKernel kernel) {
      pixels = before;
      Seed seed(start);
      kernel(pixels.data(), kWidth * 3, {kWidth, kHeight}, a, b, seed.half[0]);
      if (expected.empty()) {
        expected.swap(pixels);
        next_seed = seed.Value();
        return;
      }
      EXPECT_EQ(std::memcmp(pixels.data(), expected.data(), expected.size()), 0)
          << int(a) << ' ' << int(b) << " seed " << start;
      EXPECT_EQ(seed.Value(), next_seed);
    });
  };
  check::Random random(2024);
  const int frames = std::max(2, check::CaseCount() / 20);
  for (int frame = 0; frame < frames; ++frame) {
    const std::uint8_t a = random.Byte(), b = frame % 3 == 0 ? 10 : random.Byte();
    const auto seed = static_cast<std::uint32_t>(random.Next());
    compare("ippiAddRandUniform_Direct_8u_C3IR", a, b, seed);
    compare("ippiAddRandGauss_Direct_8u_C3IR", a, b, seed);
  }
}

TEST(PQNoise, JaehneFrames) {
  PQ_FOR_EACH_VARIANT(ippiImageJaehne_8u_C3R, [](auto kernel) {
    std::uint8_t one[3] = {};
    EXPECT_EQ(kernel(one, 3, {1, 1}), ippStsNoErr);
    EXPECT_EQ(Bytes(one, one + 3), Bytes(3, 127));
    // 3 x 1: dx * dx / 4 of a turn at the sides is a whole quarter. 1 x 2: 1/32 of a turn.
    std::uint8_t three[9] = {};
    EXPECT_EQ(kernel(three, 9, {3, 1}), ippStsNoErr);
    EXPECT_EQ(Bytes(three, three + 9), (Bytes{255, 255, 255, 127, 127, 127, 255, 255, 255}));
    std::uint8_t two[6] = {};
    EXPECT_EQ(kernel(two, 3, {1, 2}), ippStsNoErr);
    EXPECT_EQ(Bytes(two, two + 6), Bytes(6, 152));  // 128 * (1 + sin 11.25 degrees) = 152.97
    for (const auto& [width, height] : {std::pair{37, 37}, {96, 64}, {33, 70}, {130, 9}, {71, 4}, {200, 1}}) {
      Bytes pixels(static_cast<std::size_t>(width) * height * 3);
      EXPECT_EQ(kernel(pixels.data(), width * 3, {width, height}), ippStsNoErr);
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          const std::uint8_t* p = pixels.data() + (y * width + x) * 3;
          const int expected = SlowJaehne(x, y, width, height);
          ASSERT_TRUE(p[0] == expected && p[1] == expected && p[2] == expected)
              << width << " x " << height << " at " << x << ", " << y << ": " << int(p[0]) << " for " << expected;
          ASSERT_EQ(p[0], pixels[static_cast<std::size_t>(((height - 1 - y) * width + width - 1 - x) * 3)]);
        }
      }
    }
  });
}

// The tuned forms take values from a table; wide and low pictures reach angles where the plain form's roundings decide
// the value.
TEST(PQNoise, JaehneSizes) {
  std::vector<std::pair<int, int>> sizes = {{1920, 1080}, {1919, 1079}, {1280, 721}, {721, 1280}, {63, 2},
                                            {64, 3},      {65, 5000},   {128, 4096}, {5000, 65},  {30001, 3},
                                            {60001, 3},   {60001, 5},   {99999, 1},  {100000, 2}, {140001, 7},
                                            {200001, 9},  {600000, 1},  {33, 1}};
  if (check::CaseCount() >= 500) sizes.insert(sizes.end(), {{4096, 2160}, {2160, 4096}, {3841, 2161}});
  check::Random random(7);
  for (int i = 0; i < check::CaseCount() / 5; ++i) {
    const bool wide = random.OneIn(3);
    sizes.emplace_back(random.Between(32, wide ? 80000 : 800), random.Between(1, wide ? 12 : 500));
  }
  Bytes expected, pixels;
  for (const auto& [width, height] : sizes) {
    const std::size_t size = static_cast<std::size_t>(width) * height * 3;
    expected.clear();
    PQ_FOR_EACH_VARIANT(ippiImageJaehne_8u_C3R, [&, width = width, height = height](auto kernel) {
      pixels.assign(size, 1);
      ASSERT_EQ(kernel(pixels.data(), width * 3, {width, height}), ippStsNoErr);
      if (expected.empty()) {
        expected.swap(pixels);
        return;
      }
      EXPECT_EQ(std::memcmp(pixels.data(), expected.data(), size), 0) << width << " x " << height;
    });
  }
}

}  // namespace
}  // namespace pantiq
