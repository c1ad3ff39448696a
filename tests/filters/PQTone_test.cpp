// Gamma, twist, thresholds, gray, formats, adjustment, equalisation.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

#include "pantiq/filters/PQChangeFormat.h"
#include "pantiq/filters/PQColorTwist.h"
#include "pantiq/filters/PQGammaFilter.h"
#include "pantiq/filters/PQGrayScale.h"
#include "pantiq/filters/PQHistogramEqualize.h"
#include "pantiq/filters/PQImageAdjust.h"
#include "pantiq/filters/PQThreshold.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQConvDispatcher.h"
#include "pantiq/kernels/PQDispatcher.h"
#include "tests/filters/Chain.h"

namespace pantiq {
namespace {

std::vector<int> Pixel(int b, int g, int r) { return {b, g, r}; }

TEST(PQGammaFilter, ForwardAndInverse) {
  Chain<TPQGammaFilter> chain;
  PQImageRef frame = Frame({0, 1, 3, 10, 128, 255}, 2, 1);
  EXPECT_EQ(Bytes(*chain.Send(frame)), (std::vector<int>{0, 4, 14, 40, 180, 255})) << "halves go to the even neighbour";
  chain.filter.SetGammaType(gtInverse);
  EXPECT_EQ(Bytes(*chain.Send(frame)), (std::vector<int>{0, 0, 1, 2, 67, 255}));
  EXPECT_EQ(chain.Send(MakeFrame(4, 4, vfGrayScale))->GetFormat(), vfRGB24);
}

TEST(PQColorTwist, StartsBlackAndNamesPositions) {
  Chain<TPQColorTwist> chain;
  PQImageRef frame = Frame({10, 20, 30}, 1, 1);
  EXPECT_EQ(Bytes(*chain.Send(frame)), Pixel(0, 0, 0));
  TPQColorTwists& twists = chain.filter.GetColorTwists();
  twists.GetRedTwist().SetRed(1);  // byte 0 from byte 0
  twists.GetRedTwist().SetOffset(0.5f);
  twists.GetGreenTwist().SetBlue(2);  // byte 1 from byte 2
  twists.GetBlueTwist().SetOffset(400);
  EXPECT_EQ(Bytes(*chain.Send(frame)), Pixel(10, 60, 255)) << "10.5 goes to the even 10";
  twists.GetRedTwist().SetItem(4, 9);
  EXPECT_EQ(twists.GetRedTwist().GetItem(4), 0);
  twists.GetBlueTwist().SetItem(0, std::numeric_limits<float>::quiet_NaN());
  twists.GetGreenTwist().SetGreen(std::numeric_limits<float>::infinity());
  EXPECT_EQ(Bytes(*chain.Send(frame)), Pixel(10, 255, 0));

  TPQColorTwist other;
  other.SetColorTwists(twists);
  EXPECT_EQ(other.GetColorTwists().GetGreenTwist().GetBlue(), 2);
  other.GetColorTwists().GetRedTwist().Assign(twists.GetGreenTwist());
  EXPECT_EQ(other.GetColorTwists().GetRedTwist().GetBlue(), 2);
}

TEST(PQThreshold, EachLimitAndBoth) {
  Chain<TPQThreshold> chain;
  PQImageRef frame = Frame({0, 127, 128, 129, 254, 255}, 2, 1);
  chain.filter.GetThresholdBottom().SetEnabled(false);
  EXPECT_EQ(Bytes(*chain.Send(frame)), (std::vector<int>{0, 127, 128, 0, 0, 0}));
  chain.filter.GetThresholdTop().SetEnabled(false);
  EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame)) << "none: the frame passes";
  // The low byte of a colour is byte 0 of the pixel.
  chain.filter.GetThresholdBottom().SetEnabled(true);
  chain.filter.GetThresholdBottom().SetThreshold(0x0080FF);
  chain.filter.GetThresholdBottom().SetValue(0x030201);
  EXPECT_EQ(Bytes(*chain.Send(frame)), (std::vector<int>{1, 2, 128, 1, 254, 255}));
  chain.filter.GetThresholdTop().SetEnabled(true);
  chain.filter.GetThresholdTop().SetThreshold(0xFF80FF);
  chain.filter.GetThresholdTop().SetValue(0x060504);
  EXPECT_EQ(Bytes(*chain.Send(frame)), (std::vector<int>{1, 2, 128, 1, 5, 255}));
  chain.filter.GetThresholdTop().SetThreshold(0xFF7FFF);
  EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame)) << "low above high in one channel: refused";
}

TEST(PQGrayScale, AnnouncesWhatCameAndSendsGray) {
  Chain<TPQGrayScale> chain;
  chain.source.Start(2, 1);
  EXPECT_EQ(chain.sink.log.back(), "TJCStartFrameOperation 2x1 400000 0");
  PQImageRef out = chain.Send(Frame({0, 0, 255, 255, 255, 255}, 2, 1));
  EXPECT_EQ(out->GetFormat(), vfGrayScale);
  EXPECT_EQ(Bytes(*out), (std::vector<int>{76, 255}));
  EXPECT_EQ(Bytes(*chain.Send(MakeFrame(16, 16, vfGrayScale))), Bytes(*MakeFrame(16, 16, vfGrayScale)));
}

TEST(PQChangeFormat, EveryFormatToEvery) {
  Chain<TPQChangeFormat> chain;
  chain.filter.SetFormat(vfUnspecified);
  EXPECT_EQ(chain.filter.GetFormat(), vfRGB24);
  for (TPQVideoFormat from : {vfRGB24, vfYUY2, vfGrayScale}) {
    for (TPQVideoFormat to : {vfRGB24, vfYUY2, vfGrayScale}) {
      chain.filter.SetFormat(to);
      PQImageRef frame = MakeFrame(6, 3, vfRGB24, 40);
      frame->SetFormat(from);
      frame->GetTimeStamp().SetBegin(77);
      PQImageRef out = chain.Send(frame);
      EXPECT_EQ(out->GetFormat(), to);
      EXPECT_EQ(out->GetTimeStamp().GetBegin(), 77);
      PQImageRef expected = PQMakeRef<TPQImageBuffer>(*frame);
      expected->SetFormat(vfRGB24);
      expected->SetFormat(to);
      EXPECT_EQ(Bytes(*out), Bytes(*expected));
    }
  }
}

// The whole frame through one kernel after the other, as the component's strips must give it.
std::vector<int> Adjusted(const IPQImageBuffer& frame, const float first[3][4], const float second[3][4]) {
  const int order[3] = {2, 1, 0}, step = frame.GetStep();
  const IppiSize size = frame.GetSize();
  std::vector<std::uint8_t> a(static_cast<std::size_t>(frame.GetByteSize())), b = a;
  ippiSwapChannels_8u_C3R(frame.Read(), step, a.data(), step, size, order);
  PQ_SLOT(ippiRGBToHLS_8u_C3R)(a.data(), step, b.data(), step, size);
  PQ_SLOT(ippiColorTwist32f_8u_C3R)(b.data(), step, a.data(), step, size, first);
  PQ_SLOT(ippiHLSToRGB_8u_C3R)(a.data(), step, b.data(), step, size);
  ippiColorTwist32f_8u_C3IR(b.data(), step, size, second);
  return {b.begin(), b.end()};
}

TEST(PQImageAdjust, StartValuesGiveTheRoundTripAndSettersTheirCells) {
  Chain<TPQImageAdjust> chain;
  PQImageRef frame = MakeFrame(300, 200);
  float first[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}, second[3][4] = {{0, 0, 1, 0}, {0, 1, 0, 0}, {1, 0, 0, 0}};
  EXPECT_EQ(Bytes(*chain.Send(frame)), Adjusted(*frame, first, second));
  EXPECT_EQ(Bytes(*chain.Send(Frame({0, 0, 255}, 1, 1))), Pixel(0, 0, 254)) << "the order of channels stays";

  chain.filter.SetBrightness(10);
  chain.filter.SetHue(0);  // the cell that Brightness wrote last
  first[1][3] = first[2][3] = 10;
  EXPECT_EQ(Bytes(*chain.Send(frame)), Adjusted(*frame, first, second));
  chain.filter.SetContrast(1.5f);
  chain.filter.SetSaturation(0.25f);
  chain.filter.SetLightness(1.25f);
  chain.filter.SetHue(-40);
  second[0][2] = second[1][1] = second[2][0] = 1.5f;
  first[2][2] = 0.25f, first[1][1] = 1.25f, first[0][3] = -40;
  EXPECT_EQ(Bytes(*chain.Send(frame)), Adjusted(*frame, first, second));
}

TEST(PQImageAdjust, PinsCarryTheValues) {
  TPQImageAdjust a, b;
  ASSERT_TRUE(a.HuePin.Connect(b.HuePin).Ok());
  a.SetHue(12);
  EXPECT_EQ(b.GetHue(), 12);
  b.SetHue(-3);
  EXPECT_EQ(a.GetHue(), -3);
  a.SetHue(std::numeric_limits<float>::quiet_NaN());
  EXPECT_TRUE(std::isnan(b.GetHue())) << "and nothing goes round for ever";
  ASSERT_TRUE(a.BrightnessPin.Connect(b.SaturationPin).Ok());
  a.SetBrightness(0.5f);
  EXPECT_EQ(b.GetSaturation(), 0.5f);
  EXPECT_EQ(b.SaturationPin.GetValue(), 0.5f);
}

TEST(PQImageAdjust, SettingsChangeWhileFramesRun) {
  Chain<TPQImageAdjust> chain;
  chain.sink.on_op = [](IJCNotifyOperation&) {};
  std::atomic<bool> end{false};
  std::thread frames([&] {
    while (!end) chain.source.OutputPin.SubmitBuffer(MakeFrame(33, 9));
  });
  for (int i = 0; i < 500; ++i) chain.filter.SetHue(static_cast<float>(i)), chain.filter.SetContrast(1);
  end = true;
  frames.join();
}

TEST(PQHistogramEqualize, Gray) {
  Chain<TPQHistogramEqualize> chain;
  const auto send = [&](const std::vector<int>& bytes) {
    return Bytes(*chain.Send(Frame(bytes, static_cast<int>(bytes.size()), 1, vfGrayScale)));
  };
  EXPECT_EQ(send({9, 9, 9, 9}), (std::vector<int>{9, 255, 255, 255})) << "the first pixel of the frame is left out";
  EXPECT_EQ(send({255, 255, 255}), (std::vector<int>{255, 0, 0})) << "255 is not counted";
  EXPECT_EQ(send({10, 20, 30, 40}), (std::vector<int>{10, 128, 191, 255})) << "127.5 goes to the even 128";
  PQImageRef two = PQMakeRef<TPQImageBuffer>(2, 2, vfGrayScale);
  std::fill_n(two->Write(), 4, std::uint8_t{7});
  EXPECT_EQ(Bytes(*chain.Send(two)), (std::vector<int>{7, 255, 255, 255})) << "the first pixel of later rows is not";
  EXPECT_EQ(chain.Send(MakeFrame(0, 0, vfGrayScale))->GetWidth(), 0);
}

TEST(PQHistogramEqualize, Colour) {
  Chain<TPQHistogramEqualize> chain;
  PQImageRef white = PQMakeRef<TPQImageBuffer>(40, 30, vfRGB24);
  white->Fill(0xffffff);
  EXPECT_EQ(Bytes(*chain.Send(white)), std::vector<int>(3600, 0));
  white->Fill(0x404040);
  EXPECT_EQ(Bytes(*chain.Send(white)), std::vector<int>(3600, 255));
  // A frame of many strips against one histogram of all of it.
  PQImageRef frame = MakeFrame(1000, 90);
  std::vector<std::uint8_t> hls(static_cast<std::size_t>(frame->GetByteSize()));
  const int step = frame->GetStep();
  PQ_SLOT(ippiRGBToHLS_8u_C3R)(frame->Read(), step, hls.data(), step, frame->GetSize());
  int counts[256] = {};
  for (std::size_t i = 1; i < hls.size(); i += 3) counts[hls[i]] += hls[i] < 255;
  std::uint8_t table[256];
  double sum = 0;
  for (int i = 0; i < 256; ++i) table[i] = static_cast<std::uint8_t>(std::nearbyint(255 * (sum += counts[i]) / 90000));
  for (std::size_t i = 1; i < hls.size(); i += 3) hls[i] = table[hls[i]];
  std::vector<std::uint8_t> expected(hls.size());
  PQ_SLOT(ippiHLSToRGB_8u_C3R)(hls.data(), step, expected.data(), step, frame->GetSize());
  EXPECT_EQ(Bytes(*chain.Send(frame)), std::vector<int>(expected.begin(), expected.end()));
}

}  // namespace
}  // namespace pantiq
