#include "pantiq/kernels/PQBoxRank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cstdlib>
#include <functional>
#include <vector>

#include "kernels/PQCheck.h"
#include "pantiq/kernels/PQBorderRank.h"

namespace pantiq {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Window = decltype(&_px_ippiFilterBox_8u_C3R);
using Coded = decltype(&_px_ippiFilterMedianCross_8u_C3R);

constexpr const char* kWindowKernels[] = {"ippiFilterBox_8u_C3R", "ippiFilterMin_8u_C3R", "ippiFilterMax_8u_C3R",
                                          "ippiFilterMedian_8u_C3R"};
constexpr const char* kCodedKernels[] = {"ippiFilterMedianHoriz_8u_C3R", "ippiFilterMedianVert_8u_C3R",
                                         "ippiFilterMedianCross_8u_C3R", "ippiFilterMedianColor_8u_C3R"};

// A picture in rows without padding.
struct Picture {
  Picture(int w, int h, std::uint64_t seed) : width(w), height(h), bytes(static_cast<std::size_t>(w) * h * 3) {
    check::Random random(seed);
    random.Fill(bytes.data(), bytes.size());
  }
  int Step() const { return width * 3; }
  std::uint8_t* At(int x, int y) { return bytes.data() + static_cast<long>(y) * Step() + x * 3; }
  int width, height;
  Bytes bytes;
};

// The samples of one channel under the window whose top left is (x, y).
std::vector<int> Samples(Picture& p, int x, int y, IppiSize mask, int channel) {
  std::vector<int> v;
  for (int j = 0; j < mask.height; ++j) {
    for (int i = 0; i < mask.width; ++i) v.push_back(p.At(x + i, y + j)[channel]);
  }
  return v;
}

int Mean(const std::vector<int>& v, IppiSize mask) {
  std::uint64_t sum = 0;
  for (const int s : v) sum += static_cast<std::uint64_t>(s);
  const auto area = static_cast<double>(v.size());
  const float r = 1.0f / static_cast<float>(v.size());
  if (v.size() > 8100) return static_cast<int>(static_cast<double>(sum) * r + 9.000000318337698e-06f);
  if (mask.width == 3 && mask.height == 3) return static_cast<int>(sum * 29128 >> 18);
  if (v.size() == 1) return static_cast<int>(sum);
  // A multiplier of 12 bits: 1 / area in units of 2^-shift, the next integer above.
  int shift = 12;
  while (1.0 / area * (std::uint64_t{1} << shift) < 2048) ++shift;
  const auto multiplier = static_cast<std::uint64_t>((r - 1e-10) * static_cast<double>(std::uint64_t{1} << shift)) + 1;
  return static_cast<int>(sum * multiplier >> shift);
}

int Reference(const char* name, std::vector<int> v, IppiSize mask) {
  const std::string kernel = name;
  if (kernel == "ippiFilterBox_8u_C3R") return Mean(v, mask);
  std::sort(v.begin(), v.end());
  if (kernel == "ippiFilterMin_8u_C3R") return v.front();
  if (kernel == "ippiFilterMax_8u_C3R") return v.back();
  return v[v.size() / 2];
}

TEST(PQBoxRank, WindowsFromTheirSamples) {
  // Sizes on both sides of every change of algorithm.
  const IppiSize masks[] = {{1, 1},  {2, 1},  {1, 2},   {3, 3},   {5, 5},   {3, 1},  {5, 1},   {1, 3},   {1, 5},
                            {1, 7},  {7, 1},  {7, 7},   {3, 5},   {9, 3},   {13, 9}, {4, 7},   {11, 11}, {15, 15},
                            {17, 1}, {1, 21}, {16, 16}, {19, 13}, {21, 12}, {25, 2}, {31, 33}, {90, 90}, {91, 90}};
  int number = 0;
  for (const IppiSize mask : masks) {
    const bool large = mask.width > 50;
    const IppiSize roi = {large ? 24 : 70, large ? 2 : 5};
    Picture source(roi.width + mask.width - 1, roi.height + mask.height - 1, static_cast<std::uint64_t>(++number) * 4);
    for (const char* name : kWindowKernels) {
      if (std::string(name) == "ippiFilterMedian_8u_C3R" && (mask.width & mask.height & 1) == 0) continue;
      Bytes expected;
      for (int y = 0; y < roi.height; ++y) {
        for (int x = 0; x < roi.width; ++x) {
          for (int c = 0; c < 3; ++c) {
            expected.push_back(static_cast<std::uint8_t>(Reference(name, Samples(source, x, y, mask, c), mask)));
          }
        }
      }
      const TPoint anchor = {mask.width * 2 / 3, mask.height / 4};
      check::ForEachVariant<Window>(name, [&](Window kernel) {
        Bytes pixels(expected.size());
        EXPECT_EQ(kernel(source.At(anchor.x, anchor.y), source.Step(), pixels.data(), roi.width * 3, roi, mask, anchor),
                  ippStsNoErr);
        EXPECT_EQ(pixels, expected) << mask.width << " x " << mask.height;
      });
    }
  }
}

// The window around `p` that a code names: offsets in pixels, in reading order.
std::vector<TPoint> CodeWindow(const std::string& kernel, int code) {
  std::vector<TPoint> offsets;
  const int reach = code % 10 / 2;
  for (int y = -2; y <= 2; ++y) {
    for (int x = -2; x <= 2; ++x) {
      const bool in_box = std::abs(x) <= code / 10 / 2 && std::abs(y) <= reach;
      const bool cross = kernel == "ippiFilterMedianCross_8u_C3R";
      if (in_box && (!cross || x == 0 || y == 0)) offsets.push_back({x, y});
    }
  }
  return offsets;
}

TEST(PQBoxRank, CodedMediansFromTheirSamples) {
  const int codes[4][2] = {{31, 51}, {13, 15}, {33, 55}, {33, 55}};
  for (int k = 0; k < 4; ++k) {
    for (const int code : codes[k]) {
      for (int seed = 1; seed <= 8; ++seed) {
        const std::string name = kCodedKernels[k];
        const IppiSize roi = {150, 4};
        Picture source(roi.width + 4, roi.height + 4, static_cast<std::uint64_t>(seed) * 77);
        Bytes expected;
        for (int y = 0; y < roi.height; ++y) {
          for (int x = 0; x < roi.width; ++x) {
            std::vector<const std::uint8_t*> window;
            for (const TPoint o : CodeWindow(name, code)) window.push_back(source.At(x + 2 + o.x, y + 2 + o.y));
            if (k == 3) {
              const auto sum = [&](const std::uint8_t* a) {
                int total = 0;
                for (const std::uint8_t* b : window) {
                  for (int c = 0; c < 3; ++c) total += std::abs(a[c] - b[c]);
                }
                return total;
              };
              const std::uint8_t* best =
                  *std::min_element(window.begin(), window.end(),
                                    [&](const std::uint8_t* a, const std::uint8_t* b) { return sum(a) < sum(b); });
              expected.insert(expected.end(), best, best + 3);
            } else {
              for (int c = 0; c < 3; ++c) {
                std::vector<int> v;
                for (const std::uint8_t* p : window) v.push_back(p[c]);
                std::sort(v.begin(), v.end());
                expected.push_back(static_cast<std::uint8_t>(v[v.size() / 2]));
              }
            }
          }
        }
        check::ForEachVariant<Coded>(name.c_str(), [&](Coded kernel) {
          Bytes pixels(expected.size());
          EXPECT_EQ(kernel(source.At(2, 2), source.Step(), pixels.data(), roi.width * 3, roi, code), ippStsNoErr);
          EXPECT_EQ(pixels, expected) << code << " seed " << seed;
        });
      }
    }
  }
}

TEST(PQBoxRank, EqualSumsTakeTheFirstPixel) {
  for (const int code : {33, 55}) {
    const int side = code % 10, width = 130;
    Picture source(width + side - 1, side, 1);
    for (int y = 0; y < side; ++y) {
      for (int x = 0; x < source.width; ++x) {
        // As many colours as the window has columns, in diagonals: each is as often in a window as the others, and any
        // two are at a distance of two levels.
        const int color = (x + y) % side;
        std::uint8_t* p = source.At(x, y);
        p[0] = p[1] = p[2] = 100;
        p[color % 3] = color < 3 ? 101 : 99;
      }
    }
    PQ_FOR_EACH_VARIANT(ippiFilterMedianColor_8u_C3R, [&](Coded kernel) {
      Bytes pixels(static_cast<std::size_t>(width) * 3);
      kernel(source.At(side / 2, side / 2), source.Step(), pixels.data(), width * 3, {width, 1}, code);
      const Bytes expected(source.At(0, 0), source.At(0, 0) + width * 3);
      EXPECT_EQ(pixels, expected) << code;
    });
  }
}

TEST(PQBoxRank, WhiteInTheBox) {
  const Bytes white(8100 * 3 + 24 * 3, 255);
  // One pixel, rows that are three bytes apart: every area that is divided by a multiplication.
  for (int area = 1; area <= 8100; area += check::CaseCount() >= 500 ? 1 : 37) {
    std::uint8_t pixel[3] = {};
    ASSERT_EQ(_px_ippiFilterBox_8u_C3R(white.data(), 3, pixel, 3, {1, 1}, {1, area}, {0, 0}), ippStsNoErr);
    ASSERT_EQ(pixel[0], 255) << area;
  }
  struct Case {
    IppiSize mask;
    int white;
  };
  for (const Case& c : {Case{{3, 3}, 255}, Case{{90, 90}, 255}, Case{{256, 1}, 255}, Case{{1, 258}, 255},
                        Case{{63, 129}, 254}, Case{{91, 90}, 255}, Case{{12, 300}, 255}, Case{{20, 600}, 255}}) {
    PQ_FOR_EACH_VARIANT(ippiFilterBox_8u_C3R, [&](Window kernel) {
      Bytes pixels(40 * 3);
      kernel(white.data(), 3, pixels.data(), 120, {40, 1}, c.mask, {0, 0});
      EXPECT_EQ(pixels, Bytes(120, static_cast<std::uint8_t>(c.white))) << c.mask.width << " x " << c.mask.height;
    });
  }
}

TEST(PQBoxRank, BoxInEveryRoundingMode) {
  for (const IppiSize mask : {IppiSize{7, 7}, {31, 31}, {101, 101}}) {
    Picture source(60 + mask.width, 3 + mask.height, 3);
    PQ_FOR_EACH_VARIANT(ippiFilterBox_8u_C3R, [&](Window kernel) {
      Bytes expected(60 * 3 * 3), pixels(expected.size());
      kernel(source.At(0, 0), source.Step(), expected.data(), 180, {60, 3}, mask, {0, 0});
      for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(std::fesetround(mode), 0);
        kernel(source.At(0, 0), source.Step(), pixels.data(), 180, {60, 3}, mask, {0, 0});
        const int left = std::fegetround();
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(left, mode);
        EXPECT_EQ(pixels, expected) << mode;
      }
    });
  }
}

TEST(PQBoxRank, ChecksInOrder) {
  std::uint8_t in[3] = {}, out[3] = {1, 2, 3};
  for (const char* name : kWindowKernels) {
    const bool box = name == kWindowKernels[0], median = name == kWindowKernels[3];
    check::ForEachVariant<Window>(name, [&](Window kernel) {
      EXPECT_EQ(kernel(nullptr, 0, out, 0, {0, 0}, {0, 0}, {-1, 0}), ippStsNullPtrErr);
      EXPECT_EQ(kernel(in, 0, nullptr, 0, {0, 0}, {0, 0}, {-1, 0}), ippStsNullPtrErr);
      EXPECT_EQ(kernel(in, 0, out, 3, {0, 1}, {0, 0}, {-1, 0}), box ? ippStsStepErr : ippStsSizeErr);
      EXPECT_EQ(kernel(in, 3, out, 0, {1, 0}, {0, 0}, {-1, 0}), box ? ippStsStepErr : ippStsSizeErr);
      EXPECT_EQ(kernel(in, 3, out, -3, {1, 1}, {0, 0}, {-1, 0}), ippStsStepErr);
      EXPECT_EQ(kernel(in, 3, out, 3, {1, 0}, {0, 0}, {-1, 0}), ippStsSizeErr);
      EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, {0, 1}, {-1, 0}), ippStsMaskSizeErr);
      EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, {1, -1}, {0, 0}), ippStsMaskSizeErr);
      for (const TPoint anchor : {TPoint{-1, 0}, {3, 0}, {0, -1}, {0, 5}}) {
        EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, {3, 5}, anchor), ippStsAnchorErr);
      }
      EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, {1, 1}, {1, 0}), ippStsAnchorErr);
      if (!median) return;
      EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, {2, 3}, {9, 0}), ippStsMaskSizeErr);
      EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, {3, 2}, {9, 0}), ippStsMaskSizeErr);
      EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, {1, 1000000001}, {0, 0}), ippStsMemAllocErr);
    });
  }
  // A mask whose scratch memory no allocation can have.
  for (const char* name : {kWindowKernels[0], kWindowKernels[1], kWindowKernels[2]}) {
    check::ForEachVariant<Window>(name, [&](Window kernel) {
      EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, {1000000000, 1}, {0, 0}), ippStsMemAllocErr);
    });
  }
  const int codes[4][2] = {{31, 51}, {13, 15}, {33, 55}, {33, 55}};
  for (int k = 0; k < 4; ++k) {
    check::ForEachVariant<Coded>(kCodedKernels[k], [&](Coded kernel) {
      EXPECT_EQ(kernel(nullptr, 0, out, 3, {0, 1}, 0), ippStsNullPtrErr);
      EXPECT_EQ(kernel(in, 0, out, 3, {0, 1}, 0), ippStsSizeErr);
      EXPECT_EQ(kernel(in, 0, out, 3, {1, 1}, 0), ippStsStepErr);
      for (const int code : {0, 3, 13, 15, 31, 33, 35, 51, 53, 55, 77}) {
        if (code == codes[k][0] || code == codes[k][1]) continue;
        EXPECT_EQ(kernel(in, 3, out, 3, {1, 1}, code), ippStsMaskSizeErr) << code;
      }
    });
  }
  EXPECT_EQ(out[0] * 100 + out[1] * 10 + out[2], 123);
}

// Runs a window kernel with a drawn mask that touches two ends of the readable margin.
IppStatus RunInMargin(Window kernel, check::CheckCase& c, int margin, bool odd, bool tall) {
  const int most = 2 * margin + 1;
  const auto side = [&] {
    const int drawn = c.random.OneIn(3) ? c.random.Between(1, std::min(most, 7)) : c.random.Between(1, most);
    return odd ? drawn | 1 : drawn;
  };
  IppiSize mask = {side(), side()};
  if (tall) mask.height = most;
  if (c.random.OneIn(3)) mask.height = mask.width;
  const TPoint anchor = {c.random.Below(mask.width), c.random.Below(mask.height)};
  const int left = c.random.OneIn(2) ? 0 : most - mask.width, top = c.random.OneIn(2) ? 0 : most - mask.height;
  const std::uint8_t* src =
      c.src[0].data + static_cast<long>(top + anchor.y - margin) * c.src[0].step + (left + anchor.x - margin) * 3;
  return kernel(src, c.src[0].step, c.dst.data, c.dst.step, c.roi, mask, anchor);
}

TEST(PQBoxRank, WindowVariantsAgree) {
  for (const int margin : {3, 16, 60}) {
    check::CheckShape shape;
    shape.sources = 1;
    shape.margin = margin;
    shape.max_width = margin == 3 ? 1100 : 400;
    shape.max_height = margin == 16 ? 120 : 40;
    shape.cases = margin == 3 ? 0.6 : margin == 16 ? 0.3 : 0.06;
    for (const char* name : kWindowKernels) {
      const bool median = name == kWindowKernels[3];
      check::CheckVariants<Window>(name, shape, [&](Window kernel, check::CheckCase& c) {
        return RunInMargin(kernel, c, margin, median, false);
      });
    }
  }
  // Column sums of more than 16 bits, counts of more than 8.
  check::CheckShape shape;
  shape.sources = 1;
  shape.margin = 130;
  shape.max_width = 200;
  shape.max_height = 6;
  shape.cases = 0.02;
  for (const char* name : kWindowKernels) {
    const bool median = name == kWindowKernels[3];
    check::CheckVariants<Window>(
        name, shape, [&](Window kernel, check::CheckCase& c) { return RunInMargin(kernel, c, 130, median, true); });
  }
}

TEST(PQBoxRank, CodedVariantsAgree) {
  const int codes[4][2] = {{31, 51}, {13, 15}, {33, 55}, {33, 55}};
  for (int k = 0; k < 4; ++k) {
    for (const int code : codes[k]) {
      check::CheckShape shape;
      shape.sources = 1;
      shape.margin = k == 0 ? code / 20 : code % 10 / 2;
      shape.max_width = 700;
      shape.cases = k == 3 && code == 55 ? 0.3 : 0.6;
      check::CheckVariants<Coded>(kCodedKernels[k], shape, [&](Coded kernel, check::CheckCase& c) {
        return kernel(c.src[0].data, c.src[0].step, c.dst.data, c.dst.step, c.roi, code);
      });
    }
  }
}

TEST(PQBoxRank, BorderForms) {
  check::Random random(5);
  for (int number = 0; number < 40; ++number) {
    const IppiSize roi = {random.Between(1, 23), random.Between(1, 9)};
    const IppiSize mask = {random.Between(1, 30), random.Between(1, 12)};
    const TPoint anchor = {random.Below(mask.width), random.Below(mask.height)};
    Picture inner(roi.width, roi.height, static_cast<std::uint64_t>(number) + 50);
    // The same picture with its border made in place.
    Picture outer(roi.width + mask.width - 1, roi.height + mask.height - 1, 9);
    for (int y = 0; y < roi.height; ++y) {
      std::copy_n(inner.At(0, y), roi.width * 3, outer.At(anchor.x, anchor.y + y));
    }
    ASSERT_EQ(ippiCopyReplicateBorder_8u_C3IR(outer.At(anchor.x, anchor.y), outer.Step(), roi,
                                              {outer.width, outer.height}, anchor.y, anchor.x),
              ippStsNoErr);
    for (int y = 0; y < outer.height; ++y) {
      for (int x = 0; x < outer.width; ++x) {
        const std::uint8_t* nearest =
            inner.At(std::clamp(x - anchor.x, 0, roi.width - 1), std::clamp(y - anchor.y, 0, roi.height - 1));
        ASSERT_TRUE(std::equal(nearest, nearest + 3, outer.At(x, y))) << x << ", " << y;
      }
    }
    const auto compare = [&](Window with_border, Window kernel) {
      Bytes expected(inner.bytes.size()), pixels(inner.bytes.size());
      kernel(outer.At(anchor.x, anchor.y), outer.Step(), expected.data(), roi.width * 3, roi, mask, anchor);
      EXPECT_EQ(with_border(inner.At(0, 0), inner.Step(), pixels.data(), roi.width * 3, roi, mask, anchor),
                ippStsNoErr);
      EXPECT_EQ(pixels, expected) << mask.width << " x " << mask.height;
    };
    compare(&ippiFilterMinBorderReplicate_8u_C3R, &_px_ippiFilterMin_8u_C3R);
    compare(&ippiFilterMaxBorderReplicate_8u_C3R, &_px_ippiFilterMax_8u_C3R);
    // An ellipse lies inside its rectangle, and erosion mirrors dilation.
    Bytes least(inner.bytes.size()), eroded(least.size()), dilated(least.size());
    ippiFilterMinBorderReplicate_8u_C3R(inner.At(0, 0), inner.Step(), least.data(), inner.Step(), roi, mask, anchor);
    ownErodeEllipseBorderReplicate_8u_C3R(inner.At(0, 0), inner.Step(), eroded.data(), inner.Step(), roi, mask, anchor);
    for (std::uint8_t& b : inner.bytes) b = static_cast<std::uint8_t>(255 - b);
    ownDilateEllipseBorderReplicate_8u_C3R(inner.At(0, 0), inner.Step(), dilated.data(), inner.Step(), roi, mask,
                                           anchor);
    for (std::size_t i = 0; i < least.size(); ++i) {
      ASSERT_LE(least[i], eroded[i]);
      ASSERT_EQ(eroded[i] + dilated[i], 255);
    }
  }
}

TEST(PQBoxRank, EllipseOfADot) {
  // One white pixel dilated shows the mask.
  Picture dot(9, 9, 1);
  std::fill(dot.bytes.begin(), dot.bytes.end(), 0);
  *dot.At(4, 4) = 255;
  Bytes pixels(dot.bytes.size());
  ASSERT_EQ(ownDilateEllipseBorderReplicate_8u_C3R(dot.At(0, 0), dot.Step(), pixels.data(), dot.Step(), {9, 9}, {7, 5},
                                                   {3, 2}),
            ippStsNoErr);
  std::string shape;
  for (int y = 2; y < 7; ++y) {
    for (int x = 1; x < 8; ++x) shape += pixels[static_cast<std::size_t>(y * 27 + x * 3)] != 0 ? '#' : '.';
  }
  EXPECT_EQ(shape,
            ".#####."
            "#######"
            "#######"
            "#######"
            ".#####.");
  // Of a slim one the outermost rows hold no cell.
  ASSERT_EQ(ownDilateEllipseBorderReplicate_8u_C3R(dot.At(0, 0), dot.Step(), pixels.data(), dot.Step(), {9, 9}, {2, 8},
                                                   {1, 4}),
            ippStsNoErr);
  shape.clear();
  for (int y = 1; y < 9; ++y) {
    for (int x = 4; x < 6; ++x) shape += pixels[static_cast<std::size_t>(y * 27 + x * 3)] != 0 ? '#' : '.';
  }
  EXPECT_EQ(shape, "..############..");
  std::uint8_t byte[3] = {};
  EXPECT_EQ(ippiCopyReplicateBorder_8u_C3IR(nullptr, 0, {0, 0}, {0, 0}, 0, 0), ippStsNullPtrErr);
  EXPECT_EQ(ippiCopyReplicateBorder_8u_C3IR(byte, 0, {1, 1}, {1, 1}, 0, 1), ippStsSizeErr);
  EXPECT_EQ(ippiCopyReplicateBorder_8u_C3IR(byte, 0, {1, 1}, {1, 1}, 0, 0), ippStsStepErr);
  EXPECT_EQ(ownErodeEllipseBorderReplicate_8u_C3R(byte, 3, byte, 3, {1, 1}, {16385, 1}, {0, 0}), ippStsMaskSizeErr);
}

}  // namespace
}  // namespace pantiq
