// Colour conversions: results computed apart with exact fractions, order of checks, every colour in all variants.
#include "pantiq/kernels/PQColor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cstring>
#include <vector>

#include "kernels/PQCheck.h"

namespace pantiq {
namespace {

using check::CheckCase;
using check::CheckShape;
using u8 = std::uint8_t;
using Bytes = std::vector<u8>;
using Conversion = decltype(&_px_ippiRGBToHLS_8u_C3R);

const char* const kConversions[] = {
    "ippiRGBToHLS_8u_C3R", "ippiRGBToHSV_8u_C3R", "ippiRGBToLUV_8u_C3R",   "ippiRGBToYCC_8u_C3R",
    "ippiRGBToYUV_8u_C3R", "ippiBGRToLab_8u_C3R", "ippiRGBToYCbCr_8u_C3R", "ippiRGBToXYZ_8u_C3R",
    "ippiHLSToRGB_8u_C3R", "ippiXYZToRGB_8u_C3R", "ippiYCCToRGB_8u_C3R",   "ippiLUVToRGB_8u_C3R",
    "ippiLabToBGR_8u_C3R", "ippiYUVToRGB_8u_C3R", "ippiYCbCrToRGB_8u_C3R", "ippiHSVToRGB_8u_C3R"};

Bytes Convert(Conversion kernel, const Bytes& in) {
  Bytes out(in.size());
  EXPECT_EQ(kernel(in.data(), 0, out.data(), 0, {static_cast<int>(in.size() / 3), 1}), 0);
  return out;
}

TEST(PQColor, WorkedPixels) {
  // Black, white, gray, the corners, colours at large, and near black where tables and linear parts begin.
  const Bytes colors = {0,   0,   0, 255, 255, 255, 128, 128, 128, 255, 0, 0, 0, 255, 0, 0,   0,   255,
                        255, 255, 0, 10,  200, 90,  201, 33,  77,  0,   0, 6, 2, 1,   3, 254, 255, 253};
  const Bytes codes = {0,  0,  0,   0,   200, 100, 255, 255, 255, 255, 130, 40,  128, 128, 128, 20, 140, 60,
                       43, 90, 200, 100, 10,  220, 213, 255, 128, 7,   129, 127, 200, 128, 255, 1,  255, 3};
  struct Case {
    const char* name;
    const Bytes& in;
    Bytes out;
  };
  // clang-format off
  const Case cases[] = {
      {"ippiRGBToHLS_8u_C3R", colors, {0, 0, 0, 0, 255, 0, 0, 128, 0, 0, 127, 255, 85, 127, 255, 170, 127, 255, 42, 127, 255, 103, 105, 231, 244, 117, 183, 170, 3, 255, 191, 2, 127, 64, 254, 255}},
      {"ippiRGBToHSV_8u_C3R", colors, {0, 0, 0, 0, 0, 255, 0, 0, 128, 0, 255, 255, 85, 255, 255, 170, 255, 255, 42, 255, 255, 103, 242, 200, 244, 213, 201, 170, 255, 6, 191, 170, 3, 64, 2, 255}},
      {"ippiRGBToLUV_8u_C3R", colors, {0, 97, 136, 255, 97, 136, 194, 97, 136, 136, 223, 173, 224, 37, 241, 81, 90, 11, 248, 102, 240, 208, 50, 176, 153, 156, 124, 0, 97, 136, 9, 97, 133, 255, 96, 137}},
      {"ippiRGBToYCC_8u_C3R", colors, {0, 156, 137, 181, 156, 137, 91, 156, 137, 54, 122, 232, 106, 90, 57, 20, 254, 121, 161, 57, 152, 93, 138, 72, 62, 151, 196, 0, 158, 136, 1, 156, 137, 181, 155, 136}},
      {"ippiRGBToYCbCr_8u_C3R", colors, {16, 128, 128, 235, 128, 128, 126, 128, 128, 82, 90, 240, 145, 54, 34, 41, 240, 110, 210, 16, 146, 128, 108, 52, 92, 122, 199, 17, 131, 128, 17, 129, 128, 235, 127, 128}},
      {"ippiRGBToYUV_8u_C3R", colors, {0, 128, 128, 255, 128, 128, 128, 128, 128, 76, 90, 255, 149, 54, 0, 29, 239, 102, 225, 16, 153, 130, 107, 21, 88, 122, 227, 0, 130, 127, 1, 128, 128, 254, 127, 128}},
      {"ippiBGRToLab_8u_C3R", colors, {0, 128, 128, 255, 128, 128, 194, 128, 128, 82, 207, 20, 224, 42, 211, 136, 208, 195, 232, 80, 114, 214, 82, 200, 136, 174, 69, 12, 148, 135, 14, 137, 125, 255, 128, 128}},
      {"ippiRGBToXYZ_8u_C3R", colors, {0, 0, 0, 242, 254, 255, 121, 127, 139, 105, 54, 4, 91, 182, 30, 46, 18, 242, 196, 236, 35, 91, 151, 109, 108, 71, 80, 1, 0, 5, 1, 1, 3, 241, 254, 255}},
      {"ippiHLSToRGB_8u_C3R", codes, {0, 0, 0, 222, 178, 178, 255, 255, 255, 150, 110, 110, 64, 190, 192, 167, 138, 113, 159, 161, 19, 1, 19, 7, 255, 255, 255, 192, 87, 66, 180, 1, 255, 255, 255, 255}},
      {"ippiXYZToRGB_8u_C3R", codes, {0, 0, 0, 0, 255, 64, 255, 241, 231, 255, 0, 29, 154, 121, 116, 0, 245, 35, 0, 135, 195, 199, 0, 236, 234, 255, 95, 0, 240, 108, 255, 56, 254, 0, 255, 0}},
      {"ippiYCCToRGB_8u_C3R", codes, {0, 194, 0, 0, 15, 97, 255, 194, 255, 169, 255, 255, 157, 194, 111, 0, 105, 0, 173, 28, 0, 255, 121, 0, 255, 255, 255, 0, 30, 0, 255, 174, 209, 0, 82, 220}},
      {"ippiLUVToRGB_8u_C3R", codes, {0, 0, 0, 0, 0, 0, 255, 114, 0, 255, 171, 255, 101, 31, 52, 0, 16, 0, 3, 8, 0, 0, 55, 0, 255, 3, 131, 38, 0, 4, 213, 134, 0, 0, 1, 0}},
      {"ippiLabToBGR_8u_C3R", codes, {138, 7, 0, 6, 0, 14, 0, 16, 255, 255, 255, 0, 47, 47, 47, 47, 3, 0, 0, 9, 0, 0, 48, 0, 171, 0, 255, 1, 1, 1, 0, 131, 211, 133, 0, 0}},
      {"ippiYCbCrToRGB_8u_C3R", codes, {0, 135, 0, 0, 0, 126, 255, 125, 255, 137, 255, 255, 130, 130, 130, 0, 55, 28, 146, 0, 0, 244, 69, 0, 229, 179, 255, 0, 0, 0, 255, 110, 214, 0, 34, 238}},
      {"ippiYUVToRGB_8u_C3R", codes, {0, 124, 0, 0, 0, 146, 255, 131, 255, 154, 255, 255, 128, 128, 128, 0, 54, 44, 125, 16, 0, 204, 93, 0, 213, 162, 255, 5, 7, 9, 255, 126, 200, 0, 23, 255}},
      {"ippiHSVToRGB_8u_C3R", codes, {0, 0, 0, 100, 22, 22, 255, 0, 0, 40, 20, 20, 64, 127, 128, 60, 43, 27, 199, 200, 129, 211, 220, 214, 128, 0, 126, 127, 73, 63, 217, 127, 255, 3, 0, 0}},
  };
  // clang-format on
  for (const Case& c : cases) {
    check::ForEachVariant<Conversion>(c.name, [&](Conversion kernel) { EXPECT_EQ(Convert(kernel, c.in), c.out); });
  }
}

TEST(PQColor, TiesAndEdges) {
  // Two greatest channels: both spaces put yellow at 42.5, cyan at 127.5 and magenta at 212.5, and a half goes down.
  const Bytes ties = {255, 255, 0, 0, 255, 255, 255, 0, 255, 90, 90, 40, 40, 90, 90, 90, 40, 90};
  for (const char* name : {"ippiRGBToHLS_8u_C3R", "ippiRGBToHSV_8u_C3R"}) {
    check::ForEachVariant<Conversion>(name, [&](Conversion kernel) {
      const Bytes out = Convert(kernel, ties);
      EXPECT_EQ((Bytes{out[0], out[3], out[6], out[9], out[12], out[15]}), (Bytes{42, 127, 212, 42, 127, 212}));
    });
  }
  // Hue 255 is hue 0; no saturation is gray.
  for (const char* name : {"ippiHLSToRGB_8u_C3R", "ippiHSVToRGB_8u_C3R"}) {
    check::ForEachVariant<Conversion>(name, [&](Conversion kernel) {
      EXPECT_EQ(Convert(kernel, {255, 90, 200, 255, 200, 90}), Convert(kernel, {0, 90, 200, 0, 200, 90}));
    });
  }
  check::ForEachVariant<Conversion>("ippiHLSToRGB_8u_C3R", [](Conversion kernel) {
    EXPECT_EQ(Convert(kernel, {77, 140, 0}), (Bytes{140, 140, 140}));
  });
  check::ForEachVariant<Conversion>("ippiHSVToRGB_8u_C3R", [](Conversion kernel) {
    EXPECT_EQ(Convert(kernel, {77, 0, 140}), (Bytes{140, 140, 140}));
  });
  // LUV has no colour where its luminance is 0.
  check::ForEachVariant<Conversion>("ippiLUVToRGB_8u_C3R", [](Conversion kernel) {
    EXPECT_EQ(Convert(kernel, {0, 0, 255, 0, 255, 0, 0, 136, 136}), Bytes(9, 0));
  });
}

// YCC has a narrower range on its way back, and Z of a white is limited: these two do not keep grays.
TEST(PQColor, GraysStayGray) {
  Bytes gray(768);
  for (int i = 0; i < 768; ++i) gray[i] = static_cast<u8>(i / 3);
  struct Case {
    const char* there;
    const char* back;
    int error;
  };
  const Case cases[] = {
      {"ippiRGBToHLS_8u_C3R", "ippiHLSToRGB_8u_C3R", 0}, {"ippiRGBToHSV_8u_C3R", "ippiHSVToRGB_8u_C3R", 0},
      {"ippiRGBToYUV_8u_C3R", "ippiYUVToRGB_8u_C3R", 0}, {"ippiRGBToYCbCr_8u_C3R", "ippiYCbCrToRGB_8u_C3R", 1},
      {"ippiBGRToLab_8u_C3R", "ippiLabToBGR_8u_C3R", 1}, {"ippiRGBToLUV_8u_C3R", "ippiLUVToRGB_8u_C3R", 3}};
  for (const Case& c : cases) {
    Bytes code;
    check::ForEachVariant<Conversion>(c.there, [&](Conversion kernel) { code = Convert(kernel, gray); });
    check::ForEachVariant<Conversion>(c.back, [&](Conversion kernel) {
      const Bytes back = Convert(kernel, code);
      for (int i = 0; i < 768; ++i) ASSERT_LE(std::abs(back[i] - gray[i]), c.error) << i / 3;
    });
  }
}

TEST(PQColor, ChecksPointersThenRegion) {
  u8 a[16] = {}, b[16] = {};
  for (const char* name : kConversions) {
    check::ForEachVariant<Conversion>(name, [&](Conversion kernel) {
      EXPECT_EQ(kernel(nullptr, 3, b, 3, {0, 1}), -8);
      EXPECT_EQ(kernel(a, 3, nullptr, 3, {1, 0}), -8);
      EXPECT_EQ(kernel(a, 0, b, 0, {0, 1}), -6);
      EXPECT_EQ(kernel(a, 0, b, 0, {1, -1}), -6);
      EXPECT_EQ(kernel(a, 0, b, -9, {1, 1}), 0);
    });
  }
  const u8* planes[3] = {a, b, a + 8};
  PQ_FOR_EACH_VARIANT(ippiCopy_8u_C3P3R, [&](auto kernel) {
    EXPECT_EQ(kernel(nullptr, 3, planes, 1, {0, 1}), -8);
    EXPECT_EQ(kernel(b + 4, 3, nullptr, 1, {0, 1}), -8);
    for (int k = 0; k < 3; ++k) {
      const u8* gap[3] = {a, b, a + 8};
      gap[k] = nullptr;
      EXPECT_EQ(kernel(b + 4, 3, gap, 1, {0, 1}), -8);
    }
    EXPECT_EQ(kernel(b + 4, 0, planes, 0, {1, 0}), -6);
    EXPECT_EQ(kernel(b + 4, 0, planes, 0, {1, 1}), 0);
  });
}

// All 2^24 colours (a sparse grid under sanitizers), in all variants and, for some, in the caller's rounding modes.
TEST(PQColor, EveryColor) {
  const bool sparse = check::CaseCount() < 500;
  const int stride = sparse ? 17 : 1;
  Bytes colors, expected, out;
  for (int first = 0; first < 256; first += stride) {
    if (first % (sparse ? 1 : 16) == 0) colors.clear();  // 2^20 at once
    for (int second = 0; second < 256; second += stride) {
      for (int third = 0; third < 256; third += sparse ? 3 : 1) {
        colors.insert(colors.end(), {static_cast<u8>(third), static_cast<u8>(second), static_cast<u8>(first)});
      }
    }
    if (!sparse && first % 16 != 15) continue;
    expected.resize(colors.size());
    out.resize(colors.size());
    const IppiSize roi{static_cast<int>(colors.size() / 3), 1};
    for (const char* name : kConversions) {
      bool plain = true;
      check::ForEachVariant<Conversion>(name, [&](Conversion kernel) {
        Bytes& result = plain ? expected : out;
        const int mode = plain || first % 17 != 0 ? FE_TONEAREST : FE_UPWARD;
        std::fesetround(mode);
        const IppStatus status = kernel(colors.data(), 0, result.data(), 0, roi);
        const int after = std::fegetround();
        std::fesetround(FE_TONEAREST);
        ASSERT_EQ(status, 0);
        ASSERT_EQ(after, mode);
        if (!plain && std::memcmp(expected.data(), out.data(), out.size()) != 0) {
          const auto at = std::mismatch(out.begin(), out.end(), expected.begin()).first - out.begin();
          const u8* p = &colors[at / 3 * 3];
          FAIL() << int{p[0]} << ", " << int{p[1]} << ", " << int{p[2]} << ": channel " << at % 3 << " is "
                 << int{out[at]} << " for " << int{expected[at]};
        }
        plain = false;
      });
    }
  }
}

TEST(PQColor, VariantsAgree) {
  const CheckShape shape{.sources = 1, .free_steps = true, .cases = 0.3};
  for (const char* name : kConversions) {
    check::CheckVariants<Conversion>(name, shape, [](Conversion kernel, CheckCase& c) {
      return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi);
    });
    check::CheckVariants<Conversion>(
        name, CheckShape{.in_place = true, .cases = 0.2},
        [](Conversion kernel, CheckCase& c) { return kernel(c.dst.data, c.dst.step, c.dst.data, c.dst.step, c.roi); });
  }
  // The three planes stand in one row of the destination, one behind the other.
  PQ_CHECK_VARIANTS(ippiCopy_8u_C3P3R, (CheckShape{.sources = 1}), [](auto kernel, CheckCase& c) {
    const u8* planes[3] = {c.dst.data, c.dst.data + c.roi.width, c.dst.data + 2 * c.roi.width};
    return kernel(c.src[0].data, c.src[0].step, planes, c.dst.step, c.roi);
  });
}

// Planes and pixels without padding, where rows may be joined.
TEST(PQColor, PlanesHoldTheChannels) {
  for (const IppiSize roi : {IppiSize{1, 1}, {5, 3}, {32, 2}, {70, 9}, {700, 5}}) {
    const int count = roi.width * roi.height;
    Bytes pixels(3 * count), planes(3 * count);
    for (int i = 0; i < 3 * count; ++i) pixels[i] = static_cast<u8>(i * 7 + i / 256);
    PQ_FOR_EACH_VARIANT(ippiCopy_8u_C3P3R, [&](auto kernel) {
      const u8* dst[3] = {&planes[0], &planes[count], &planes[2 * count]};
      std::fill(planes.begin(), planes.end(), u8{0});
      ASSERT_EQ(kernel(pixels.data(), 3 * roi.width, dst, roi.width, roi), 0);
      for (int i = 0; i < 3 * count; ++i) ASSERT_EQ(planes[i % 3 * count + i / 3], pixels[i]) << i;
    });
  }
}

}  // namespace
}  // namespace pantiq
