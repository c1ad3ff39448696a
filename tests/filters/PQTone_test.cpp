// Gamma, twist, thresholds, gray, formats.
#include <gtest/gtest.h>

#include "pantiq/filters/PQChangeFormat.h"
#include "pantiq/filters/PQColorTwist.h"
#include "pantiq/filters/PQGammaFilter.h"
#include "pantiq/filters/PQGrayScale.h"
#include "pantiq/filters/PQThreshold.h"
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

}  // namespace
}  // namespace pantiq
