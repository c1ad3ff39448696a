// Base kernels: hand-worked values, exhaustive arithmetic against slow forms written here, order of checks, and all
// variants against the plain one.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "kernels/PQCheck.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQDispatcher.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {
namespace {

using check::CheckCase;
using check::CheckShape;
using check::View;
using u8 = std::uint8_t;
using Bytes = std::vector<u8>;

// Rounds half to even at any rounding mode of the processor, saturates to a byte.
int RoundByte(double v) {
  if (std::isnan(v)) return 0;
  double whole = std::floor(v);
  const double rest = v - whole;
  if (rest > 0.5 || (rest == 0.5 && std::fmod(whole, 2) != 0)) whole += 1;
  return whole < 0 ? 0 : whole > 255 ? 255 : static_cast<int>(whole);
}

TEST(PQBase, ArithmeticIsExactForAllPairsAndScales) {
  Bytes a(65536), b(65536), out(65536);
  for (int i = 0; i < 65536; ++i) a[i] = static_cast<u8>(i), b[i] = static_cast<u8>(i >> 8);
  const auto run = [&](auto kernel, int scale, auto exact) {
    ASSERT_EQ(kernel(a.data(), 256, b.data(), 256, out.data(), 256, IppiSize{256, 256}, scale), 0);
    for (int i = 0; i < 65536; ++i) {
      const int want = RoundByte(exact(double(a[i]), double(b[i])) * std::ldexp(1.0, -scale));
      ASSERT_EQ(int(out[i]), want) << int(a[i]) << ", " << int(b[i]) << " at scale " << scale;
    }
  };
  for (const int scale : {0, 1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 40, -1, -2, -7, -8, -9, -16, -17, -60}) {
    PQ_FOR_EACH_VARIANT(ippiAdd_8u_C1RSfs,
                        [&](auto kernel) { run(kernel, scale, [](double x, double y) { return x + y; }); });
    PQ_FOR_EACH_VARIANT(ippiSub_8u_C1RSfs,
                        [&](auto kernel) { run(kernel, scale, [](double x, double y) { return y - x; }); });
    PQ_FOR_EACH_VARIANT(ippiMul_8u_C1RSfs,
                        [&](auto kernel) { run(kernel, scale, [](double x, double y) { return x * y; }); });
    PQ_FOR_EACH_VARIANT(ippiDiv_8u_C1RSfs, [&](auto kernel) {
      run(kernel, scale, [](double x, double y) { return x == 0 ? (y == 0 ? 0 : HUGE_VAL) : y / x; });
    });
  }
}

TEST(PQBase, HandWorkedValues) {
  const auto two = [](auto kernel, int x, int y, auto... more) {
    const u8 a = static_cast<u8>(x), b = static_cast<u8>(y);
    u8 out = 77;
    EXPECT_EQ(kernel(&a, 1, &b, 1, &out, 1, IppiSize{1, 1}, more...), 0);
    return int(out);
  };
  EXPECT_EQ(two(ippiAdd_8u_C1RSfs, 200, 100, 0), 255);
  EXPECT_EQ(two(ippiSub_8u_C1RSfs, 10, 30, 0), 20);  // second less first
  EXPECT_EQ(two(ippiSub_8u_C1RSfs, 30, 10, 0), 0);
  EXPECT_EQ(two(ippiMul_8u_C1RSfs, 16, 16, 0), 255);
  EXPECT_EQ(two(ippiMul_8u_C1RSfs, 15, 17, 0), 255);
  EXPECT_EQ(two(ippiMul_8u_C1RSfs, 3, 5, 1), 8);  // 7.5 to even
  EXPECT_EQ(two(ippiDiv_8u_C1RSfs, 2, 5, 0), 2);  // second over first: 2.5 to even
  EXPECT_EQ(two(ippiDiv_8u_C1RSfs, 2, 7, 0), 4);  // 3.5 to even
  EXPECT_EQ(two(ippiDiv_8u_C1RSfs, 0, 9, 0), 255);
  EXPECT_EQ(two(ippiDiv_8u_C1RSfs, 0, 0, 0), 0);
  EXPECT_EQ(two(ippiDiv_8u_C1RSfs, 0, 9, 30), 255);
  EXPECT_EQ(two(ippiAnd_8u_C1R, 0xF0, 0x3C), 0x30);
  EXPECT_EQ(two(ippiOr_8u_C1R, 0xF0, 0x3C), 0xFC);
  EXPECT_EQ(two(ippiXor_8u_C1R, 0xF0, 0x3C), 0xCC);
  EXPECT_EQ(two(ippiAbsDiff_8u_C1R, 3, 250), 247);
  EXPECT_EQ(two(ippiAbsDiff_8u_C1R, 250, 3), 247);
}

TEST(PQBase, SmallImages) {
  const Bytes image = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};  // two by two pixels of three channels
  Bytes out(12);
  const IppiSize roi{2, 2};
  ASSERT_EQ(ippiMirror_8u_C3R(image.data(), 6, out.data(), 6, roi, ippAxsHorizontal), 0);
  EXPECT_EQ(out, (Bytes{7, 8, 9, 10, 11, 12, 1, 2, 3, 4, 5, 6}));
  ASSERT_EQ(ippiMirror_8u_C3R(image.data(), 6, out.data(), 6, roi, ippAxsVertical), 0);
  EXPECT_EQ(out, (Bytes{4, 5, 6, 1, 2, 3, 10, 11, 12, 7, 8, 9}));
  ASSERT_EQ(ippiMirror_8u_C3R(image.data(), 6, out.data(), 6, roi, ippAxsBoth), 0);
  EXPECT_EQ(out, (Bytes{10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3}));
  ASSERT_EQ(ippiMirror_8u_C1R(image.data(), 4, out.data(), 4, {4, 3}, ippAxsVertical), 0);
  EXPECT_EQ(out, (Bytes{4, 3, 2, 1, 8, 7, 6, 5, 12, 11, 10, 9}));
  const int order[3] = {2, 0, 0};
  ASSERT_EQ(ippiSwapChannels_8u_C3R(image.data(), 6, out.data(), 6, roi, order), 0);
  EXPECT_EQ(out, (Bytes{3, 1, 1, 6, 4, 4, 9, 7, 7, 12, 10, 10}));
  out = image;
  ASSERT_EQ(ippiSwapChannels_8u_C3IR(out.data(), 6, roi, order), 0);
  EXPECT_EQ(out, (Bytes{3, 1, 1, 6, 4, 4, 9, 7, 7, 12, 10, 10}));
  const u8 value[3] = {7, 8, 9};
  ASSERT_EQ(ippiSet_8u_C3R(value, out.data(), 6, {1, 2}), 0);
  EXPECT_EQ(out, (Bytes{7, 8, 9, 6, 4, 4, 7, 8, 9, 12, 10, 10}));
  Bytes four(8, 200);
  ASSERT_EQ(ippiCopy_8u_C3AC4R(image.data(), 6, four.data(), 8, {2, 1}), 0);
  EXPECT_EQ(four, (Bytes{1, 2, 3, 200, 4, 5, 6, 200}));
  Bytes three(6);
  ASSERT_EQ(ippiCopy_8u_AC4C3R(four.data(), 8, three.data(), 6, {2, 1}), 0);
  EXPECT_EQ(three, (Bytes{1, 2, 3, 4, 5, 6}));
  ASSERT_EQ(ippiCopy_8u_C1C3R(image.data() + 10, 2, three.data() + 1, 6, {2, 1}), 0);
  EXPECT_EQ(three, (Bytes{1, 11, 3, 4, 12, 6}));
}

TEST(PQBase, CopiesTakeAnyStep) {
  const Bytes image = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  PQ_FOR_EACH_VARIANT(ippiCopy_8u_C3R, [&](auto kernel) {
    Bytes out(9);
    EXPECT_EQ(kernel(image.data(), 0, out.data(), 3, IppiSize{1, 3}), 0);
    EXPECT_EQ(out, (Bytes{1, 2, 3, 1, 2, 3, 1, 2, 3}));
    EXPECT_EQ(kernel(image.data() + 6, -3, out.data(), 3, IppiSize{1, 3}), 0);
    EXPECT_EQ(out, (Bytes{7, 8, 9, 4, 5, 6, 1, 2, 3}));
  });
}

// Two faults at once show the first of the order: pointers, region, steps, the kernel's own.
TEST(PQBase, OrderOfChecks) {
  u8 a[48] = {}, b[48] = {}, o[48] = {};
  const IppiSize good{2, 2}, empty{0, 2}, flat{2, -1};
  const u8 value[3] = {};
  const int order[3] = {0, 1, 2}, wrong[3] = {0, 3, 1};
  const auto image = [&](auto kernel, bool steps, auto... more) {
    EXPECT_EQ(kernel(nullptr, 8, o, 8, empty, more...), -8);
    EXPECT_EQ(kernel(a, 0, nullptr, 8, empty, more...), -8);
    EXPECT_EQ(kernel(a, 0, o, 0, flat, more...), -6);
    if (steps) {
      EXPECT_EQ(kernel(a, 0, o, 8, good, more...), -14);
      EXPECT_EQ(kernel(a, 8, o, -8, good, more...), -14);
    }
  };
  const auto pair = [&](auto kernel, auto... more) {
    EXPECT_EQ(kernel(nullptr, 8, b, 8, o, 8, empty, more...), -8);
    EXPECT_EQ(kernel(a, 8, nullptr, 8, o, 8, empty, more...), -8);
    EXPECT_EQ(kernel(a, 0, b, 8, nullptr, 8, empty, more...), -8);
    EXPECT_EQ(kernel(a, 0, b, 8, o, 8, empty, more...), -6);
    EXPECT_EQ(kernel(a, 0, b, 8, o, 8, good, more...), -14);
    EXPECT_EQ(kernel(a, 8, b, -1, o, 8, good, more...), -14);
    EXPECT_EQ(kernel(a, 8, b, 8, o, 0, good, more...), -14);
  };
#define PQ_EACH(name, ...) PQ_FOR_EACH_VARIANT(name, [&](auto kernel) { __VA_ARGS__; })
  PQ_EACH(ippiCopy_8u_C3R, image(kernel, false));
  PQ_EACH(ippiCopy_8u_C1R, image(kernel, false));
  PQ_EACH(ippiCopy_8u_AC4C3R, image(kernel, false));
  PQ_EACH(ippiCopy_8u_C3AC4R, image(kernel, false));
  PQ_EACH(ippiCopy_8u_C1C3R, image(kernel, false));
  PQ_EACH(ippiMirror_8u_C1R, image(kernel, true, 3));
  PQ_EACH(ippiMirror_8u_C3R, image(kernel, true, -1));
  PQ_EACH(ippiMirror_8u_C3R, EXPECT_EQ(kernel(a, 8, o, 8, good, 3), -21); EXPECT_EQ(kernel(a, 8, o, 8, good, -1), -21));
  PQ_EACH(ippiSwapChannels_8u_C3R, image(kernel, true, wrong));
  PQ_EACH(ippiSwapChannels_8u_C3R, EXPECT_EQ(kernel(a, 8, o, 8, good, wrong), -60);
          EXPECT_EQ(kernel(a, 0, o, 8, empty, nullptr), -8); EXPECT_EQ(kernel(a, 8, o, 8, good, order), 0));
  PQ_EACH(ippiSwapChannels_8u_C3IR, EXPECT_EQ(kernel(nullptr, 8, empty, order), -8);
          EXPECT_EQ(kernel(a, 0, empty, wrong), -6); EXPECT_EQ(kernel(a, 0, good, wrong), -14);
          EXPECT_EQ(kernel(a, 8, good, wrong), -60));
  PQ_EACH(ippiSet_8u_C3R, EXPECT_EQ(kernel(nullptr, o, 0, empty), -8); EXPECT_EQ(kernel(value, nullptr, 0, empty), -8);
          EXPECT_EQ(kernel(value, o, 0, empty), -6); EXPECT_EQ(kernel(value, o, 0, good), -14));
  PQ_EACH(ippiAdd_8u_C1RSfs, pair(kernel, 0));
  PQ_EACH(ippiAdd_8u_C3RSfs, pair(kernel, 1));
  PQ_EACH(ippiSub_8u_C1RSfs, pair(kernel, 0));
  PQ_EACH(ippiSub_8u_C3RSfs, pair(kernel, 0));
  PQ_EACH(ippiMul_8u_C1RSfs, pair(kernel, 0));
  PQ_EACH(ippiMul_8u_C3RSfs, pair(kernel, 0));
  PQ_EACH(ippiDiv_8u_C1RSfs, pair(kernel, 0));
  PQ_EACH(ippiDiv_8u_C3RSfs, pair(kernel, 0));
  PQ_EACH(ippiAnd_8u_C1R, pair(kernel));
  PQ_EACH(ippiAnd_8u_C3R, pair(kernel));
  PQ_EACH(ippiOr_8u_C1R, pair(kernel));
  PQ_EACH(ippiOr_8u_C3R, pair(kernel));
  PQ_EACH(ippiXor_8u_C1R, pair(kernel));
  PQ_EACH(ippiXor_8u_C3R, pair(kernel));
  PQ_EACH(ippiAbsDiff_8u_C1R, pair(kernel));
  PQ_EACH(ippiAnd_8u_C3IR, image(kernel, true));
  PQ_EACH(ippiOr_8u_C3IR, image(kernel, true));
  PQ_EACH(ippiNot_8u_C3IR, EXPECT_EQ(kernel(nullptr, 0, empty), -8); EXPECT_EQ(kernel(o, 0, empty), -6);
          EXPECT_EQ(kernel(o, 0, good), -14));
  PQ_EACH(ippsSet_8u, EXPECT_EQ(kernel(1, nullptr, 0), -8); EXPECT_EQ(kernel(1, o, 0), -6);
          EXPECT_EQ(kernel(1, o, -5), -6));
  int integers[2] = {};
  double reals[2] = {};
  PQ_EACH(ippsConvert_32s64f, EXPECT_EQ(kernel(nullptr, reals, 0), -8); EXPECT_EQ(kernel(integers, nullptr, 0), -8);
          EXPECT_EQ(kernel(integers, reals, 0), -6));
#undef PQ_EACH
  for (const u8 byte : o) ASSERT_EQ(byte, 0) << "a refused call wrote";
}

TEST(PQBase, VariantsAgree) {
  const auto one = [](auto kernel, CheckCase& c) {
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi);
  };
  const auto copy = [](int from, int to) {
    return CheckShape{.sources = 1, .src_channels = from, .dst_channels = to, .free_steps = true};
  };
  PQ_CHECK_VARIANTS(ippiCopy_8u_C3R, copy(3, 3), one);
  PQ_CHECK_VARIANTS(ippiCopy_8u_C1R, copy(1, 1), one);
  PQ_CHECK_VARIANTS(ippiCopy_8u_AC4C3R, copy(4, 3), one);
  PQ_CHECK_VARIANTS(ippiCopy_8u_C3AC4R, copy(3, 4), one);
  CheckShape into = copy(1, 3);  // ends at the last pixel's byte of the channel
  into.dst_row = [](int width) { return width * 3 - 2; };
  PQ_CHECK_VARIANTS(ippiCopy_8u_C1C3R, into, one);

  const CheckShape same{.sources = 1};
  const auto mirror = [](auto kernel, CheckCase& c) {
    const int axis = c.random.Below(3);
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi, axis);
  };
  PQ_CHECK_VARIANTS(ippiMirror_8u_C3R, same, mirror);
  PQ_CHECK_VARIANTS(ippiMirror_8u_C1R, (CheckShape{.sources = 1, .src_channels = 1, .dst_channels = 1}), mirror);
  PQ_CHECK_VARIANTS(ippiSwapChannels_8u_C3R, same, [](auto kernel, CheckCase& c) {
    const int order[3] = {c.random.Below(3), c.random.Below(3), c.random.Below(3)};
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi, order);
  });
  PQ_CHECK_VARIANTS(ippiSwapChannels_8u_C3IR, CheckShape{}, [](auto kernel, CheckCase& c) {
    const int order[3] = {c.random.Below(3), c.random.Below(3), c.random.Below(3)};
    return kernel(c.dst.data, c.dst.step, c.roi, order);
  });
  PQ_CHECK_VARIANTS(ippiSet_8u_C3R, CheckShape{}, [](auto kernel, CheckCase& c) {
    const u8 value[3] = {c.random.Byte(), c.random.Byte(), c.random.Byte()};
    return kernel(value, c.dst.data, c.dst.step, c.roi);
  });
  PQ_CHECK_VARIANTS(ippiNot_8u_C3IR, CheckShape{},
                    [](auto kernel, CheckCase& c) { return kernel(c.dst.data, c.dst.step, c.roi); });
  PQ_CHECK_VARIANTS(ippiAnd_8u_C3IR, same, one);
  PQ_CHECK_VARIANTS(ippiOr_8u_C3IR, same, one);
  PQ_CHECK_VARIANTS(ippsSet_8u, (CheckShape{.dst_channels = 1}),
                    [](auto kernel, CheckCase& c) { return kernel(c.random.Byte(), c.dst.data, c.roi.width); });
  PQ_CHECK_VARIANTS(ippsConvert_32s64f, (CheckShape{.sources = 1, .src_channels = 4, .dst_channels = 8}),
                    [](auto kernel, CheckCase& c) {
                      alignas(8) int in[300];
                      alignas(8) double out[300];
                      std::memcpy(in, c.src[0].data, c.roi.width * sizeof(int));
                      const IppStatus status = kernel(in, out, c.roi.width);
                      for (int i = 0; i < c.roi.width; ++i) EXPECT_EQ(out[i], static_cast<double>(in[i]));
                      return status;
                    });
}

// Two images; the destination may be one of them.
TEST(PQBase, VariantsAgreeOnTwoImages) {
  const auto plain = [](auto kernel, CheckCase& c, auto... more) {
    View first = c.src[0], second = c.src[1];
    const int alias = c.random.Below(4);
    if (alias == 0) first = c.dst;
    if (alias == 1) second = c.dst;
    return kernel(first.data, first.step, second.data, second.step, c.dst.data, c.dst.step, c.roi, more...);
  };
  const auto scaled = [&plain](auto kernel, CheckCase& c) {
    const int scale = c.random.OneIn(2) ? 0 : c.random.Between(-18, 20);
    return plain(kernel, c, scale);
  };
  const CheckShape c1{.sources = 2, .src_channels = 1, .dst_channels = 1}, c3{.sources = 2};
  PQ_CHECK_VARIANTS(ippiAdd_8u_C1RSfs, c1, scaled);
  PQ_CHECK_VARIANTS(ippiAdd_8u_C3RSfs, c3, scaled);
  PQ_CHECK_VARIANTS(ippiSub_8u_C1RSfs, c1, scaled);
  PQ_CHECK_VARIANTS(ippiSub_8u_C3RSfs, c3, scaled);
  PQ_CHECK_VARIANTS(ippiMul_8u_C1RSfs, c1, scaled);
  PQ_CHECK_VARIANTS(ippiMul_8u_C3RSfs, c3, scaled);
  PQ_CHECK_VARIANTS(ippiDiv_8u_C1RSfs, c1, scaled);
  PQ_CHECK_VARIANTS(ippiDiv_8u_C3RSfs, c3, scaled);
  PQ_CHECK_VARIANTS(ippiAnd_8u_C1R, c1, plain);
  PQ_CHECK_VARIANTS(ippiAnd_8u_C3R, c3, plain);
  PQ_CHECK_VARIANTS(ippiOr_8u_C1R, c1, plain);
  PQ_CHECK_VARIANTS(ippiOr_8u_C3R, c3, plain);
  PQ_CHECK_VARIANTS(ippiXor_8u_C1R, c1, plain);
  PQ_CHECK_VARIANTS(ippiXor_8u_C3R, c3, plain);
  PQ_CHECK_VARIANTS(ippiAbsDiff_8u_C1R, c1, plain);
}

// Results do not depend on the caller's rounding mode.
TEST(PQBase, RoundingModeOfTheCallerDoesNotMatter) {
  u8 a[64], b[64], want[64], out[64];
  for (int i = 0; i < 64; ++i) a[i] = 2 + i % 7, b[i] = static_cast<u8>(i * 5 + 1);
  const IppiSize roi{64, 1};
  PQ_FOR_EACH_VARIANT(ippiDiv_8u_C1RSfs, [&](auto kernel) {
    ASSERT_EQ(kernel(a, 64, b, 64, want, 64, roi, 1), 0);
    for (unsigned mode = 1; mode < 4; ++mode) {
      const unsigned old = _ipp_set_rc_ssx(mode);
      const IppStatus status = kernel(a, 64, b, 64, out, 64, roi, 1);
      _ipp_set_cw_ssx(old);
      ASSERT_EQ(status, 0);
      EXPECT_EQ(std::memcmp(out, want, 64), 0) << "rounding mode " << mode;
    }
  });
}

}  // namespace
}  // namespace pantiq
