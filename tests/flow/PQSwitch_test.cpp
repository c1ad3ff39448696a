#include "pantiq/flow/PQSwitch.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

using Log = std::vector<std::string>;

struct Switch : testing::Test {
  TestSource source;
  TPQSwitch gate;
  TestSink sink;
  TJCBoolSourcePin knob{source};

  void SetUp() override {
    ASSERT_TRUE(source.OutputPin.Connect(gate.InputPin).Ok());
    ASSERT_TRUE(gate.OutputPin.Connect(sink.InputPin).Ok());
  }
  void Frame() { source.OutputPin.SubmitBuffer(MakeFrame(2, 2)); }
};

TEST_F(Switch, KeepsTheStartUntilItOpensAndAnnouncesAnewOnlyWhenAsked) {
  gate.SetEnabled(false);
  source.Start(4, 3, 333667, vfGrayScale);
  Frame();
  EXPECT_EQ(sink.log, Log{});
  gate.SetEnabled(true);
  EXPECT_EQ(sink.log, Log{"TJCStartFrameOperation 4x3 333667 2"});
  gate.SetEnabled(true);  // no change
  Frame();
  gate.SetEnabled(false);
  Frame();
  gate.SetEnabled(true);
  Frame();
  EXPECT_EQ(sink.log, (Log{"TJCStartFrameOperation 4x3 333667 2", "frame 2x2 0", "frame 2x2 0"}));
  gate.SetResetOnEnable(true);
  gate.SetEnabled(false);
  sink.log.clear();
  gate.SetEnabled(true);
  EXPECT_EQ(sink.log, Log{"TJCStartFrameOperation 4x3 333667 2"});
}

TEST_F(Switch, WithoutAStartSeenAnnouncesNothingBySize) {
  gate.SetResetOnEnable(true);
  gate.SetEnabled(false);
  float rate = -1;
  sink.on_op = [&](IJCNotifyOperation& op) {
    if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
      rate = start->Rate;
      EXPECT_EQ(start->Width, 0);
      EXPECT_EQ(start->Height, 0);
    }
  };
  gate.SetEnabled(true);
  EXPECT_EQ(rate, 0);
}

TEST_F(Switch, StopsAndPumpsPassTheClosedGateAndUnknownClassesEndThere) {
  gate.SetEnabled(false);
  source.OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
  source.OutputPin.Notify(*PQMakeRef<TJCPumpRequestOperation>());
  source.OutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  source.OutputPin.Stop();
  EXPECT_EQ(sink.log, (Log{"TJCStartPumpOperation", "TJCPumpRequestOperation", "TJCStopOperation"}));
}

TEST_F(Switch, IsWorkedByThePin) {
  ASSERT_TRUE(knob.Connect(gate.EnabledPin).Ok());
  knob.Send(false);
  EXPECT_FALSE(gate.GetEnabled());
  source.Start(1, 1);
  knob.Send(true);
  EXPECT_EQ(sink.log, Log{"TJCStartFrameOperation 1x1 400000 0"});
  knob.Disconnect();
}

TEST_F(Switch, AnswersAStartItselfWithoutASource) {
  gate.InputPin.Disconnect();
  sink.InputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(8, 6, 400000, vfRGB24));
  EXPECT_EQ(sink.log, (Log{"TJCPumpRequestOperation", "TJCStartFrameOperation 8x6 400000 0"}));
}

TEST_F(Switch, ClosedFromInsideItsStartStaysClosed) {
  int starts = 0, frames = 0;
  sink.on_op = [&](IJCNotifyOperation& op) {
    if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) ++frames;
    if (JCOperation<TJCStartFrameOperation>(op) == nullptr) return;
    ++starts;
    gate.SetEnabled(false);
  };
  source.Start(2, 2);
  Frame();
  EXPECT_EQ(starts, 1);
  EXPECT_EQ(frames, 0);
}

// Whoever opens and closes on another thread: no frame overtakes the start that announces it.
TEST_F(Switch, FramesNeverComeBeforeTheirStart) {
  std::atomic<bool> done{false};
  gate.SetResetOnEnable(true);
  gate.SetEnabled(false);
  std::atomic<int> starts{0}, frames{0}, early{0};
  sink.on_op = [&](IJCNotifyOperation& op) {
    if (JCOperation<TJCStartFrameOperation>(op) != nullptr) ++starts;
    if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) {
      ++frames;
      if (starts == 0) ++early;
    }
  };
  std::thread hand([&] {
    for (int i = 0; i < 300; ++i) gate.SetEnabled(i % 2 == 0);
    gate.SetEnabled(true);
    done = true;
  });
  source.Start(2, 2);
  while (!done) Frame();
  Frame();
  hand.join();
  EXPECT_EQ(early, 0);
  EXPECT_GT(frames, 0);
}

}  // namespace
}  // namespace pantiq
