// Conversions between frame formats: hand-worked pixels, every colour, odd widths, all variants.
#include "pantiq/kernels/PQFormatKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kernels/PQCheck.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {
namespace {

using check::CheckCase;
using check::CheckShape;
using u8 = std::uint8_t;
using Bytes = std::vector<u8>;

TEST(PQFormat, HandWorkedPixels) {
  const auto convert = [](auto kernel, Bytes in, int width, int out_bytes) {
    Bytes out(out_bytes, 99);
    EXPECT_EQ(kernel(in.data(), 64, out.data(), 64, IppiSize{width, 1}), 0);
    return out;
  };
  // Blue, green, red.
  EXPECT_EQ(convert(PQRGB24ToGray, {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255}, 4, 4), (Bytes{29, 150, 76, 255}));
  EXPECT_EQ(convert(PQGrayToRGB24, {0, 7, 255}, 3, 9), (Bytes{0, 0, 0, 7, 7, 7, 255, 255, 255}));
  // Black, white; video red and blue; the sums go over and under the range.
  EXPECT_EQ(convert(PQYUY2ToRGB24, {16, 128, 235, 128}, 2, 6), (Bytes{0, 0, 0, 254, 254, 254}));
  EXPECT_EQ(convert(PQYUY2ToRGB24, {255, 255, 0, 255}, 2, 6), (Bytes{255, 125, 255, 237, 0, 184}));
  // The last pixel of an odd row: its U, the V of the pair before or 128.
  EXPECT_EQ(convert(PQYUY2ToRGB24, {16, 128}, 1, 3), (Bytes{0, 0, 0}));
  EXPECT_EQ(convert(PQYUY2ToRGB24, {255, 255}, 1, 3), convert(PQYUY2ToRGB24, {255, 255, 0, 128}, 1, 3));
  EXPECT_EQ(convert(PQYUY2ToRGB24, {16, 128, 16, 200, 100, 90}, 3, 9)[8],
            convert(PQYUY2ToRGB24, {100, 90, 100, 200}, 2, 6)[2]);
  EXPECT_EQ(convert(PQRGB24ToYUY2, {255, 255, 255, 0, 0, 0}, 2, 4), (Bytes{235, 128, 16, 128}));
  // Blue (41, 240, 110) and red (82, 90, 240): their U and V are halved upwards.
  EXPECT_EQ(convert(PQRGB24ToYUY2, {255, 0, 0, 0, 0, 255}, 2, 4), (Bytes{41, 165, 82, 175}));
  EXPECT_EQ(convert(PQRGB24ToYUY2, {255, 0, 0}, 1, 4), (Bytes{41, 240, 99, 99}));
}

TEST(PQFormat, GrayStaysGray) {
  Bytes gray(256), colour(768), back(256);
  for (int i = 0; i < 256; ++i) gray[i] = static_cast<u8>(i);
  ASSERT_EQ(PQGrayToRGB24(gray.data(), 256, colour.data(), 768, {256, 1}), 0);
  ASSERT_EQ(PQRGB24ToGray(colour.data(), 768, back.data(), 256, {256, 1}), 0);
  EXPECT_EQ(back, gray);
}

TEST(PQFormat, ChecksPointersThenRegion) {
  u8 a[16] = {}, b[16] = {};
  for (auto* kernel : {&PQRGB24ToGray, &PQGrayToRGB24, &PQYUY2ToRGB24, &PQRGB24ToYUY2}) {
    EXPECT_EQ(kernel(nullptr, 0, b, 0, {0, 1}), -8);
    EXPECT_EQ(kernel(a, 0, nullptr, 0, {0, 1}), -8);
    EXPECT_EQ(kernel(a, 0, b, 0, {0, 1}), -6);
    EXPECT_EQ(kernel(a, 0, b, 0, {1, 0}), -6);
  }
}

// The formulas, written once more in 64 bits and real division, over all 2^24 inputs (a sparse grid under sanitizers).
TEST(PQFormat, EveryInput) {
  const int stride = check::CaseCount() < 500 ? 17 : 1;
  Bytes pixels, out;
  const auto shift = [](long long v) { return v >= 0 ? v / 65536 : -((-v + 65535) / 65536); };
  const auto limit = [](long long v) { return static_cast<u8>(std::clamp(v, 0LL, 255LL)); };
  for (int first = 0; first < 256; first += stride) {
    pixels.clear();
    for (int second = 0; second < 256; second += stride) {
      for (int third = 0; third < 256; ++third) {
        pixels.insert(pixels.end(), {static_cast<u8>(third), static_cast<u8>(second), static_cast<u8>(first)});
      }
    }
    const int count = static_cast<int>(pixels.size() / 3);
    PQ_FOR_EACH_VARIANT(PQRGB24ToGray, [&](auto kernel) {
      out.assign(count, 0);
      ASSERT_EQ(kernel(pixels.data(), 0, out.data(), 0, IppiSize{count, 1}), 0);
      for (int i = 0; i < count; ++i) {
        const u8* p = &pixels[3 * i];
        ASSERT_EQ(out[i], shift(19595LL * p[2] + 38470LL * p[1] + 7471LL * p[0] + 32768)) << i << " of " << first;
      }
    });
    // The same three bytes as Y, U and V of two equal pixels, and as the two equal pixels of a pair.
    Bytes pairs(4 * count), doubled(6 * count);
    for (int i = 0; i < count; ++i) {
      const u8* p = &pixels[3 * i];
      pairs[4 * i] = pairs[4 * i + 2] = p[0];
      pairs[4 * i + 1] = p[1];
      pairs[4 * i + 3] = p[2];
      for (int k = 0; k < 6; ++k) doubled[6 * i + k] = p[k % 3];
    }
    PQ_FOR_EACH_VARIANT(PQYUY2ToRGB24, [&](auto kernel) {
      out.assign(6 * count, 0);
      ASSERT_EQ(kernel(pairs.data(), 0, out.data(), 0, IppiSize{2 * count, 1}), 0);
      for (int i = 0; i < count; ++i) {
        const long long y = 0x129FCLL * (pixels[3 * i] - 16), u = pixels[3 * i + 1] - 128, v = pixels[3 * i + 2] - 128;
        for (int k = 0; k < 2; ++k) {
          ASSERT_EQ(out[6 * i + 3 * k], limit(shift(y + 0x2045A * u))) << i << " of " << first;
          ASSERT_EQ(out[6 * i + 3 * k + 1], limit(shift(y - 0x645A * u - 0xD021 * v))) << i << " of " << first;
          ASSERT_EQ(out[6 * i + 3 * k + 2], limit(shift(y + 0x19893 * v))) << i << " of " << first;
        }
      }
    });
    PQ_FOR_EACH_VARIANT(PQRGB24ToYUY2, [&](auto kernel) {
      out.assign(4 * count, 0);
      ASSERT_EQ(kernel(doubled.data(), 0, out.data(), 0, IppiSize{2 * count, 1}), 0);
      for (int i = 0; i < count; ++i) {
        const long long b = pixels[3 * i], g = pixels[3 * i + 1], r = pixels[3 * i + 2];
        const long long y = shift(0x41CB * r + 0x8106 * g + 0x1917 * b + 0x108000);
        ASSERT_EQ(out[4 * i], y) << i << " of " << first;
        ASSERT_EQ(out[4 * i + 2], y) << i << " of " << first;
        ASSERT_EQ(out[4 * i + 1], shift(-0x25E3 * r - 0x4A7F * g + 0x7062 * b + 0x808000)) << i << " of " << first;
        ASSERT_EQ(out[4 * i + 3], shift(0x7062 * r - 0x5E35 * g - 0x122D * b + 0x808000)) << i << " of " << first;
      }
    });
  }
}

TEST(PQFormat, VariantsAgree) {
  const auto call = [](auto kernel, CheckCase& c) {
    return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi);
  };
  const auto shape = [](int from, int to) {
    return CheckShape{.sources = 1, .src_channels = from, .dst_channels = to, .free_steps = true};
  };
  PQ_CHECK_VARIANTS(PQRGB24ToGray, shape(3, 1), call);
  PQ_CHECK_VARIANTS(PQGrayToRGB24, shape(1, 3), call);
  PQ_CHECK_VARIANTS(PQYUY2ToRGB24, shape(2, 3), call);
  PQ_CHECK_VARIANTS(PQRGB24ToYUY2, shape(3, 2), call);
}

}  // namespace
}  // namespace pantiq
