#include "pantiq/flow/PQDelay.h"

#include <gtest/gtest.h>

#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

struct Delay : testing::Test {
  TestSource source;
  TPQDelay delay;
  TestSink sink;
  std::vector<int> out;

  void SetUp() override {
    ASSERT_TRUE(source.OutputPin.Connect(delay.InputPin).Ok());
    ASSERT_TRUE(delay.OutputPin.Connect(sink.InputPin).Ok());
    sink.on_op = [&](IJCNotifyOperation& op) {
      if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
        out.push_back(static_cast<const IPQImageBuffer&>(*supplied->Buffer).GetTimeCode().GetFrame());
        sink.last = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
      }
    };
  }
  PQImageRef Send(int number, TPQVideoFormat format = vfRGB24) {
    PQImageRef frame = MakeFrame(4, 2, format, number);
    frame->GetTimeCode().SetFrame(number);
    source.OutputPin.SubmitBuffer(frame);
    return frame;
  }
};

TEST_F(Delay, FramesLeaveSoManyFramesLaterAndTheRestAfterTheNextStart) {
  delay.SetFrameDelay(3);
  for (int i = 0; i < 5; ++i) Send(i);
  EXPECT_EQ(out, (std::vector<int>{0, 1}));
  EXPECT_EQ(delay.GetFramesHeld(), 3);
  source.OutputPin.Stop();
  source.Start(4, 2);
  EXPECT_EQ(out.size(), 2u);
  Send(10);
  Send(11);
  EXPECT_EQ(out, (std::vector<int>{0, 1, 2, 3}));
}

TEST_F(Delay, PassesAtOnceWithNoneAndReleasesTheSurplusInOneBurst) {
  delay.SetFrameDelay(4);
  for (int i = 0; i < 4; ++i) Send(i);
  delay.SetFrameDelay(1);
  EXPECT_TRUE(out.empty());
  Send(4);
  EXPECT_EQ(out, (std::vector<int>{0, 1, 2, 3}));
  delay.SetFrameDelay(0);
  Send(5);
  EXPECT_EQ(out, (std::vector<int>{0, 1, 2, 3, 4, 5}));
  delay.SetFrameDelay(-7);  // counts as 0, reads back as it is
  Send(6);
  EXPECT_EQ(out.back(), 6);
  EXPECT_EQ(delay.GetFrameDelay(), -7);
}

TEST_F(Delay, MovesReferencesAndKeepsTheFormat) {
  delay.SetEnabled(false);  // of no meaning
  delay.SetFrameDelay(1);
  const PQImageRef first = Send(0, vfYUY2);
  Send(1);
  ASSERT_TRUE(sink.last);
  EXPECT_EQ(sink.last->Read(), first->Read()) << "the same storage";
  EXPECT_EQ(sink.last->GetFormat(), vfYUY2);
}

}  // namespace
}  // namespace pantiq
