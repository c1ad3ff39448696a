// Resize, rotate, shear and warp as components: sizes, regions, formats. What the kernels compute is tested in tests/kernels.
#include <gtest/gtest.h>

#include <limits>

#include "pantiq/filters/PQResize.h"
#include "pantiq/filters/PQRotate.h"
#include "pantiq/filters/PQShear.h"
#include "pantiq/filters/PQWarp.h"
#include "tests/filters/Chain.h"

namespace pantiq {
namespace {

constexpr TPQVideoFormat kFormats[] = {vfRGB24, vfGrayScale};

// A smooth frame: neighbouring pixels are near one another.
PQImageRef Smooth(int width, int height, TPQVideoFormat format = vfRGB24) {
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(width, height, format);
  const int pixel = frame->GetPixelSize();
  std::uint8_t* to = frame->Write();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width * pixel; ++x) *to++ = static_cast<std::uint8_t>(20 + x / pixel * 3 + y * 2 + x % pixel);
  }
  return frame;
}

bool IsBlack(const IPQImageBuffer& frame) {
  for (int i = 0; i < frame.GetByteSize(); ++i) {
    if (frame.Read()[i] != 0) return false;
  }
  return true;
}

TEST(PQResize, FillsTheWantedSizeInEveryForm) {
  for (TPQVideoFormat format : kFormats) {
    Chain<TPQResize> chain;
    chain.filter.GetOutputSize().Set({16, 0});
    chain.source.Start(32, 24, 400000, format);
    EXPECT_EQ(chain.sink.log.back(), "TJCStartFrameOperation 16x24 400000 " + std::to_string(format));
    PQImageRef frame = Smooth(32, 24, format);
    for (auto form : {imNearest, imLinear, imCubic, imSuper, imLanczos}) {
      chain.filter.SetInterpolation(form);
      PQImageRef out = chain.Send(frame);
      ASSERT_EQ(out->GetFormat(), format);
      ASSERT_EQ(out->GetWidth(), 16);
      ASSERT_EQ(out->GetHeight(), 24);
      for (int x = 1; x < 15; ++x) EXPECT_NEAR(out->GetPixel(x, 9) & 255, frame->GetPixel(2 * x, 9) & 255, 4) << form;
    }
    chain.filter.GetOutputSize().Set({64, 48});
    chain.source.Start(32, 24, 400000, format);
    PQImageRef larger = chain.Send(frame);
    ASSERT_EQ(larger->GetWidth(), 64);
    EXPECT_NEAR(larger->GetPixel(40, 20) & 255, frame->GetPixel(20, 10) & 255, 4);
    chain.filter.SetInterpolation(imSuper);
    EXPECT_TRUE(IsBlack(*chain.Send(frame))) << "areas cannot make frames larger";
    EXPECT_EQ(chain.sink.last->GetWidth(), 64);
  }
}

TEST(PQResize, TheRegionFillsTheOutput) {
  Chain<TPQResize> chain;
  chain.filter.SetInterpolation(imNearest);
  chain.filter.GetOutputSize().Set({20, 20});
  chain.filter.GetRegion().Set({true, 5, 6, 10, 10});
  chain.source.Start(40, 30);
  PQImageRef frame = Smooth(40, 30), out = chain.Send(frame);
  for (int y = 0; y < 20; ++y) {
    for (int x = 0; x < 20; ++x) ASSERT_EQ(out->GetPixel(x, y), frame->GetPixel(5 + x / 2, 6 + y / 2));
  }
  chain.filter.GetRegion().Set({true, 60, 60, 10, 10});
  EXPECT_TRUE(IsBlack(*chain.Send(frame)));
  chain.filter.GetRegion().Set({true, 0, 0, 0, 10});
  EXPECT_TRUE(IsBlack(*chain.Send(frame)));
}

TEST(PQResize, WithoutAStartAndDisabled) {
  Chain<TPQResize> chain;
  PQImageRef frame = Smooth(9, 7);
  EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame)) << "no size is known yet";
  chain.filter.GetOutputSize().Set({12, 4});
  chain.source.Start(9, 7);
  chain.filter.SetEnabled(false);
  PQImageRef out = chain.Send(frame);
  EXPECT_EQ(out->GetWidth(), 12);
  EXPECT_EQ(out->GetPixel(8, 3), frame->GetPixel(8, 3));
  EXPECT_EQ(out->GetPixel(9, 0), 0u);
}

TEST(PQRotate, TurnsAboutTheCentreInTrueDegrees) {
  for (TPQVideoFormat format : kFormats) {
    Chain<TPQRotate> chain;
    chain.filter.SetTrueDegrees(true);
    chain.filter.SetInterpolation(imNearest);
    chain.source.Start(9, 9);
    PQImageRef frame = Smooth(9, 9, format);
    EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame));
    chain.filter.SetAngle(90);
    PQImageRef out = chain.Send(frame);
    ASSERT_EQ(out->GetFormat(), format);
    EXPECT_EQ(out->GetPixel(4, 4), frame->GetPixel(4, 4));
    EXPECT_EQ(out->GetPixel(0, 8), frame->GetPixel(0, 0)) << "counter-clockwise";
    for (int i = 0; i < 3; ++i) out = chain.Send(out);
    EXPECT_EQ(Bytes(*out), Bytes(*frame)) << "four quarter turns";
    chain.filter.SetAngle(std::numeric_limits<double>::quiet_NaN());
    EXPECT_TRUE(IsBlack(*chain.Send(frame)));
    chain.filter.SetAngle(0);
    chain.filter.SetInterpolation(imSuper);
    EXPECT_TRUE(IsBlack(*chain.Send(frame))) << "no such form here";
  }
}

// Without TrueDegrees the kernel is given radians and the shift is made for degrees: both stay as they are.
TEST(PQRotate, KeepsTheArithmeticOfOlderGraphs) {
  Chain<TPQRotate> old, same;
  old.filter.SetAngle(180);
  old.filter.SetInterpolation(imLinear);
  same.filter.SetInterpolation(imLinear);
  old.source.Start(64, 48);
  PQImageRef frame = Smooth(64, 48), out = old.Send(frame);
  EXPECT_EQ(out->GetPixel(0, 0), 0u) << "moved by (64, 48) and turned by 3.14 degrees only";
  EXPECT_NE(Bytes(*out), Bytes(*same.Send(frame)));
}

TEST(PQShear, SlantsAboutTheMiddle) {
  Chain<TPQShear> chain;
  chain.filter.SetInterpolation(imNearest);
  chain.source.Start(20, 20);
  PQImageRef frame = Smooth(20, 20);
  EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame));
  chain.filter.SetXShear(10);
  PQImageRef out = chain.Send(frame);
  EXPECT_EQ(out->GetPixel(10, 10), frame->GetPixel(10, 10)) << "the middle row stays";
  EXPECT_EQ(out->GetPixel(14, 18), frame->GetPixel(10, 18)) << "4 pixels right, 8 rows below the middle";
  chain.filter.GetOutputSize().Set({10, 20});
  chain.source.Start(20, 20);
  EXPECT_TRUE(IsBlack(*chain.Send(frame))) << "a narrower output takes the picture out of sight";
  chain.filter.SetYShear(std::numeric_limits<std::int32_t>::min());
  chain.Send(frame);
}

TEST(PQWarp, IdentityOffsetsAndRegion) {
  for (TPQVideoFormat format : kFormats) {
    Chain<TPQWarp> chain;
    chain.source.Start(24, 20);
    PQImageRef frame = Smooth(24, 20, format);
    for (auto type : {wtBilinear, wtPerspective}) {
      for (bool inverse : {false, true}) {
        chain.filter.SetWarpType(type);
        chain.filter.SetInverseTransform(inverse);
        EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame));
        chain.filter.GetRightBottomOffset().Set({-6, -5});
        PQImageRef out = chain.Send(frame);
        ASSERT_EQ(out->GetFormat(), format);
        EXPECT_EQ(out->GetWidth(), 24);
        EXPECT_EQ(out->GetPixel(0, 0), frame->GetPixel(0, 0)) << "this corner is not moved";
        if (!inverse) {
          EXPECT_EQ(out->GetPixel(23, 19), 0u);
        }
        chain.filter.GetRightBottomOffset().Set({0, 0});
      }
    }
    // Corners that make no quadrangle.
    chain.filter.GetRightBottomOffset().Set({-24, -20});
    EXPECT_TRUE(IsBlack(*chain.Send(frame)));
    chain.filter.GetLeftTopOffset().Set({2147483647, -2147483647 - 1});
    chain.Send(frame);
  }
}

TEST(PQWarp, ARegionStandsInTheMiddle) {
  Chain<TPQWarp> chain;
  chain.filter.SetInterpolation(imNearest);
  chain.filter.GetRegion().Set({true, 4, 6, 8, 8});
  chain.source.Start(24, 20);
  PQImageRef out = chain.Send(Smooth(24, 20));
  EXPECT_EQ(out->GetPixel(7, 5), 0u);
  EXPECT_NE(out->GetPixel(8, 6), 0u);
  EXPECT_NE(out->GetPixel(15, 13), 0u);
  EXPECT_EQ(out->GetPixel(17, 14), 0u);
}

}  // namespace
}  // namespace pantiq
