#include "pantiq/kernels/PQFixedMask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kernels/PQCheck.h"

namespace pantiq {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Plain = decltype(&_px_ippiFilterSharpen_8u_C3R);
using Coded = decltype(&_px_ippiFilterGauss_8u_C3R);

// A filter told as a mask over 5 x 5 and the last step from its sum to a sample.
struct Filter {
  const char* name;
  int code;  // 0: the kernel takes none
  int mask[5][5];
  int (*last)(int sum);
};

int Clamp(int v) { return std::clamp(v, 0, 255); }
int HalfEven(int v, int by) {
  const int down = v / by - (v % by < 0 ? 1 : 0), part = v - down * by;
  return Clamp(down + (part * 2 > by || (part * 2 == by && down % 2 != 0) ? 1 : 0));
}

const Filter kFilters[] = {
    {"ippiFilterPrewittHoriz_8u_C3R", 0, {{}, {0, -1, -1, -1}, {}, {0, 1, 1, 1}, {}}, Clamp},
    {"ippiFilterPrewittVert_8u_C3R", 0, {{}, {0, 1, 0, -1}, {0, 1, 0, -1}, {0, 1, 0, -1}, {}}, Clamp},
    {"ippiFilterSobelHoriz_8u_C3R", 0, {{}, {0, -1, -2, -1}, {}, {0, 1, 2, 1}, {}}, Clamp},
    {"ippiFilterSobelVert_8u_C3R", 0, {{}, {0, 1, 0, -1}, {0, 2, 0, -2}, {0, 1, 0, -1}, {}}, Clamp},
    {"ippiFilterRobertsDown_8u_C3R", 0, {{}, {0, -1}, {0, 0, 1}, {}, {}}, Clamp},
    {"ippiFilterRobertsUp_8u_C3R", 0, {{}, {0, 0, 0, -1}, {0, 0, 1}, {}, {}}, Clamp},
    {"ippiFilterSharpen_8u_C3R",
     0,
     {{}, {0, -1, -1, -1}, {0, -1, 16, -1}, {0, -1, -1, -1}, {}},
     [](int v) { return HalfEven(v, 8); }},
    {"ippiFilterLaplace_8u_C3R", 33, {{}, {0, -1, -1, -1}, {0, -1, 8, -1}, {0, -1, -1, -1}, {}}, Clamp},
    {"ippiFilterHipass_8u_C3R", 33, {{}, {0, -1, -1, -1}, {0, -1, 8, -1}, {0, -1, -1, -1}, {}}, Clamp},
    {"ippiFilterGauss_8u_C3R",
     33,
     {{}, {0, 1, 2, 1}, {0, 2, 4, 2}, {0, 1, 2, 1}, {}},
     [](int t) { return HalfEven(t, 16); }},
    {"ippiFilterLowpass_8u_C3R",
     33,
     {{}, {0, 1, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}, {}},
     [](int s) { return (s + 5) * 455 / 4096; }},
    {"ippiFilterLaplace_8u_C3R",
     55,
     {{-1, -3, -4, -3, -1}, {-3, 0, 6, 0, -3}, {-4, 6, 20, 6, -4}, {-3, 0, 6, 0, -3}, {-1, -3, -4, -3, -1}},
     Clamp},
    {"ippiFilterHipass_8u_C3R",
     55,
     {{-1, -1, -1, -1, -1}, {-1, -1, -1, -1, -1}, {-1, -1, 24, -1, -1}, {-1, -1, -1, -1, -1}, {-1, -1, -1, -1, -1}},
     Clamp},
    {"ippiFilterGauss_8u_C3R",
     55,
     {{2, 7, 12, 7, 2}, {7, 31, 52, 31, 7}, {12, 52, 127, 52, 12}, {7, 31, 52, 31, 7}, {2, 7, 12, 7, 2}},
     [](int t) { return static_cast<int>((static_cast<std::int64_t>(t) + 286) * 29382 / 16777216); }},
    {"ippiFilterLowpass_8u_C3R",
     55,
     {{1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}},
     [](int s) { return (s + 13) * 10485 / 262144; }},
};

// body(call) for each variant; call(src, step, dst, step, roi).
template <class Body>
void ForEachVariantOf(const Filter& filter, Body body) {
  if (filter.code == 0) {
    check::ForEachVariant<Plain>(filter.name, body);
  } else {
    check::ForEachVariant<Coded>(filter.name, [&](Coded kernel) {
      body([&](const std::uint8_t* src, int src_step, std::uint8_t* dst, int dst_step, IppiSize roi) {
        return kernel(src, src_step, dst, dst_step, roi, filter.code);
      });
    });
  }
}

// A picture with two pixels around its region on every side.
struct Picture {
  Picture(int width, int height)
      : roi{width, height}, step((width + 4) * 3), data(static_cast<std::size_t>(step) * (height + 4)) {}
  std::uint8_t& At(int x, int y, int channel) {
    return data[static_cast<std::size_t>((y + 2) * step + (x + 2) * 3 + channel)];
  }
  const std::uint8_t* first() const { return data.data() + 2 * step + 6; }
  IppiSize roi;
  int step;
  Bytes data;
};

// Runs every variant of the filter on the picture and compares with its mask.
void CheckByMask(const Filter& filter, Picture& picture) {
  const IppiSize roi = picture.roi;
  Bytes expected;
  for (int y = 0; y < roi.height; ++y) {
    for (int i = 0; i < roi.width * 3; ++i) {
      int sum = 0;
      for (int r = 0; r < 5; ++r) {
        for (int c = 0; c < 5; ++c) sum += filter.mask[r][c] * picture.At(i / 3 + c - 2, y + r - 2, i % 3);
      }
      expected.push_back(static_cast<std::uint8_t>(filter.last(sum)));
    }
  }
  ForEachVariantOf(filter, [&](auto kernel) {
    Bytes out(expected.size(), 99);
    EXPECT_EQ(kernel(picture.first(), picture.step, out.data(), roi.width * 3, roi), ippStsNoErr);
    for (std::size_t i = 0; i < out.size(); ++i) {
      ASSERT_EQ(out[i], expected[i]) << filter.code << ", sample " << i % (roi.width * 3) << " of row "
                                     << i / (roi.width * 3) << " of " << roi.width << " x " << roi.height;
    }
  });
}

TEST(PQFixedMask, AgreesWithTheMask) {
  check::Random random(31);
  for (const Filter& filter : kFilters) {
    for (const auto& [width, height] : {std::pair{1, 1}, {1, 9}, {5, 3}, {22, 17}, {64, 8}, {107, 12}}) {
      Picture picture(width, height);
      random.Fill(picture.data.data(), picture.data.size());
      CheckByMask(filter, picture);
      for (std::uint8_t& v : picture.data) v = random.Byte();
      CheckByMask(filter, picture);
    }
  }
}

// Windows whose sums meet every value near every output level: a slow slope with noise of one level. The last bits of
// the divisions show here, and the ends: sums of 0 and of 255 throughout.
TEST(PQFixedMask, EveryLevelOfTheDivisions) {
  check::Random random(5);
  for (const Filter& filter : kFilters) {
    for (const int noise : {1, 2, 9}) {
      Picture picture(256, check::CaseCount() < 500 ? 4 : 40);
      for (int y = -2; y < picture.roi.height + 2; ++y) {
        for (int i = -6; i < (picture.roi.width + 2) * 3; ++i) {
          const int x = (i + 6) / 3 - 2;
          picture.At(x, y, (i + 6) % 3) = static_cast<std::uint8_t>(Clamp(x + random.Between(-noise, noise)));
        }
      }
      CheckByMask(filter, picture);
    }
  }
}

TEST(PQFixedMask, ConstantImages) {
  for (const Filter& filter : kFilters) {
    int weight = 0;
    for (const auto& row : filter.mask) {
      for (const int w : row) weight += w;
    }
    for (const int level : {0, 1, 200, 255}) {
      Picture picture(7, 4);
      std::fill(picture.data.begin(), picture.data.end(), static_cast<std::uint8_t>(level));
      ForEachVariantOf(filter, [&](auto kernel) {
        Bytes out(7 * 4 * 3, 99);
        kernel(picture.first(), picture.step, out.data(), 21, picture.roi);
        EXPECT_EQ(out, Bytes(out.size(), static_cast<std::uint8_t>(weight == 0 ? 0 : level))) << filter.code;
      });
    }
  }
}

// One window each: halves, constants that are no rounded reciprocals, signs.
TEST(PQFixedMask, WorkedWindows) {
  struct Case {
    const char* name;
    int code;
    int x, y, value;  // the one sample that isn't 0
    int expected;
  };
  const Case cases[] = {
      {"ippiFilterGauss_8u_C3R", 33, 0, 0, 2, 0},     // T = 8, a half, to 0
      {"ippiFilterGauss_8u_C3R", 33, 0, 0, 6, 2},     // T = 24, to 2
      {"ippiFilterGauss_8u_C3R", 33, 1, 1, 24, 2},    // T = 24
      {"ippiFilterGauss_8u_C3R", 33, 1, 0, 4, 0},     // T = 8
      {"ippiFilterGauss_8u_C3R", 55, 2, 2, 142, 0},   // T = 284
      {"ippiFilterGauss_8u_C3R", 55, 2, 2, 143, 1},   // T = 286; (T + 286) / 571 is above 1
      {"ippiFilterGauss_8u_C3R", 55, 1, 0, 255, 23},  // T = 13260
      {"ippiFilterGauss_8u_C3R", 55, 0, 0, 255, 57},  // T = 32385
      {"ippiFilterSharpen_8u_C3R", 0, 1, 0, 4, 0},    // v = -4
      {"ippiFilterSharpen_8u_C3R", 0, 0, 0, 1, 2},    // v = 16
      {"ippiFilterSharpen_8u_C3R", 0, 0, 0, 200, 255},
      {"ippiFilterLowpass_8u_C3R", 33, 1, 1, 4, 0},  // 9 * 455 is one below 4096
      {"ippiFilterLowpass_8u_C3R", 33, 1, 1, 5, 1},
      {"ippiFilterLowpass_8u_C3R", 55, 2, 0, 12, 0},  // 25 * 10485 is below 2^18, 26 * 10485 above
      {"ippiFilterLowpass_8u_C3R", 55, 2, 0, 13, 1},
      {"ippiFilterPrewittHoriz_8u_C3R", 0, 1, 1, 70, 70},
      {"ippiFilterPrewittHoriz_8u_C3R", 0, 1, -1, 70, 0},
      {"ippiFilterPrewittVert_8u_C3R", 0, -1, 1, 70, 70},
      {"ippiFilterPrewittVert_8u_C3R", 0, 1, 1, 70, 0},
      {"ippiFilterSobelHoriz_8u_C3R", 0, 0, 1, 70, 140},
      {"ippiFilterSobelVert_8u_C3R", 0, -1, 0, 200, 255},
      {"ippiFilterRobertsDown_8u_C3R", 0, 0, 0, 9, 9},
      {"ippiFilterRobertsDown_8u_C3R", 0, -1, -1, 9, 0},
      {"ippiFilterLaplace_8u_C3R", 55, 1, 0, 10, 60},
      {"ippiFilterLaplace_8u_C3R", 55, 2, 0, 10, 0},
      {"ippiFilterHipass_8u_C3R", 55, 0, 0, 10, 240},
  };
  for (const Case& c : cases) {
    const Filter filter{c.name, c.code, {}, nullptr};
    Picture picture(1, 1);
    for (int channel = 0; channel < 3; ++channel) picture.At(c.x, c.y, channel) = static_cast<std::uint8_t>(c.value);
    ForEachVariantOf(filter, [&](auto kernel) {
      Bytes out(3, 99);
      kernel(picture.first(), picture.step, out.data(), 3, picture.roi);
      EXPECT_EQ(out, Bytes(3, static_cast<std::uint8_t>(c.expected)))
          << c.code << ' ' << c.x << ' ' << c.y << ' ' << c.value;
    });
  }
}

TEST(PQFixedMask, ChecksInOrder) {
  Picture picture(1, 1);
  std::uint8_t out[3] = {1, 2, 3};
  for (const Filter& filter : kFilters) {
    ForEachVariantOf(filter, [&](auto kernel) {
      const std::uint8_t* src = picture.first();
      EXPECT_EQ(kernel(nullptr, 0, out, 0, {0, 0}), ippStsNullPtrErr);
      EXPECT_EQ(kernel(src, 0, nullptr, 0, {0, 0}), ippStsNullPtrErr);
      EXPECT_EQ(kernel(src, 0, out, 3, {0, 1}), ippStsSizeErr);
      EXPECT_EQ(kernel(src, 15, out, 0, {1, -1}), ippStsSizeErr);
      EXPECT_EQ(kernel(src, 0, out, 3, {1, 1}), ippStsStepErr);
      EXPECT_EQ(kernel(src, 15, out, -3, {1, 1}), ippStsStepErr);
    });
    if (filter.code == 0) continue;
    check::ForEachVariant<Coded>(filter.name, [&](Coded kernel) {
      EXPECT_EQ(kernel(picture.first(), 15, out, 0, {1, 1}, 31), ippStsStepErr);
      for (const int code : {31, 13, 0, 3, 5, 44, -33}) {
        EXPECT_EQ(kernel(picture.first(), 15, out, 3, {1, 1}, code), ippStsMaskSizeErr) << code;
      }
    });
  }
  EXPECT_EQ(out[0] * 100 + out[1] * 10 + out[2], 123);
}

TEST(PQFixedMask, VariantsAgree) {
  for (const Filter& filter : kFilters) {
    check::CheckShape shape;
    shape.sources = 1;
    shape.margin = filter.code == 55 ? 2 : 1;
    shape.cases = 0.5;
    if (filter.code == 0) {
      check::CheckVariants<Plain>(filter.name, shape, [](Plain kernel, check::CheckCase& c) {
        return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi);
      });
    } else {
      check::CheckVariants<Coded>(filter.name, shape, [&](Coded kernel, check::CheckCase& c) {
        return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi, filter.code);
      });
    }
  }
}

}  // namespace
}  // namespace pantiq
