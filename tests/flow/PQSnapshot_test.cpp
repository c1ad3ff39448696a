#include "pantiq/flow/PQSnapshot.h"

#include <gtest/gtest.h>

#include <thread>

#include "pantiq/filters/PQCrop.h"
#include "pantiq/host/PQReport.h"
#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

struct Snapshot : testing::Test {
  TestSource source;
  TPQSnapshot snapshot;
  TestSink sink;
  TJCClockSourcePin button{source};
  std::vector<PQImageRef> out;

  void SetUp() override {
    ASSERT_TRUE(source.OutputPin.Connect(snapshot.InputPin).Ok());
    ASSERT_TRUE(snapshot.OutputPin.Connect(sink.InputPin).Ok());
    ASSERT_TRUE(button.Connect(snapshot.SnapshotPin).Ok());
    sink.on_op = [&](IJCNotifyOperation& op) {
      if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op))
        out.push_back(PQMakeRef<TPQImageBuffer>(*supplied->Buffer));
    };
    source.Start(2, 1);
  }
  void TearDown() override { button.Disconnect(); }
  void Send(int first, TPQVideoFormat format = vfRGB24) {
    PQImageRef frame = MakeFrame(2, 1, format, first);
    frame->GetTimeCode().SetFrame(first);
    source.OutputPin.SubmitBuffer(frame);
  }
};

TEST_F(Snapshot, SendsTheNewestFrameForEachPulse) {
  EXPECT_FALSE(snapshot.Snapshot());
  button.Clock();
  EXPECT_TRUE(out.empty());
  Send(10);
  Send(20);
  for (int i = 0; i < 3; ++i) button.Clock();
  ASSERT_EQ(out.size(), 3u);
  for (const PQImageRef& picture : out) EXPECT_EQ(Bytes(*picture), (std::vector<int>{20, 21, 22, 23, 24, 25}));
  source.Start(2, 1);
  EXPECT_FALSE(snapshot.Snapshot()) << "a start forgets";
}

TEST_F(Snapshot, RepeatsThePictureAtTheRateOfTheInput) {
  snapshot.SetPreserveFrameRate(true);
  Send(10);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(Bytes(*out[0]), std::vector<int>(6, 0)) << "black before the first pulse";
  EXPECT_EQ(out[0]->GetTimeCode().GetFrame(), 10);
  EXPECT_TRUE(snapshot.Snapshot());
  EXPECT_EQ(out.size(), 1u) << "the next frame carries it out";
  Send(20);
  Send(30);
  ASSERT_EQ(out.size(), 3u);
  EXPECT_EQ(Bytes(*out[1]), (std::vector<int>{10, 11, 12, 13, 14, 15}));
  EXPECT_EQ(Bytes(*out[2]), Bytes(*out[1]));
  EXPECT_EQ(out[2]->GetTimeCode().GetFrame(), 30) << "numbered like the stream";
  EXPECT_EQ(out[1]->GetTimeCode().GetFrame(), 20);
}

TEST_F(Snapshot, AfterAStopTheLastFrameCanBeFetchedOnce) {
  snapshot.SetPreserveFrameRate(true);
  Send(10);
  source.OutputPin.Stop();
  EXPECT_TRUE(snapshot.Snapshot());
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(Bytes(*out[1]), (std::vector<int>{10, 11, 12, 13, 14, 15}));
  EXPECT_FALSE(snapshot.Snapshot());
}

TEST_F(Snapshot, GrayFramesBecomePicturesInColour) {
  Send(7, vfGrayScale);
  button.Clock();
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(Bytes(*out[0]), (std::vector<int>{7, 7, 7, 8, 8, 8}));
}

// A crop announces its whole region, however small the frames are.
TEST_F(Snapshot, ASizeThatCannotBeMadeIsToldAndFramesGoOn) {
  TPQCrop crop;
  TPQRectRegion& region = crop.GetRegion();
  region.SetWidth(65535);
  region.SetHeight(65535);
  source.OutputPin.Disconnect();
  ASSERT_TRUE(source.OutputPin.Connect(crop.InputPin).Ok());
  ASSERT_TRUE(crop.OutputPin.Connect(snapshot.InputPin).Ok());
  std::vector<std::string> told;
  SetReportListener([&](const PQReportEntry& entry) { told.push_back(entry.text); });
  source.Start(2, 1);
  snapshot.SetPreserveFrameRate(true);
  Send(10);
  Send(20);
  EXPECT_TRUE(snapshot.Snapshot());
  Send(30);
  SetReportListener({});
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("65535 by 65535"), std::string::npos) << told[0];
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(Bytes(*out[0]), (std::vector<int>{20, 21, 22, 23, 24, 25}));
}

TEST_F(Snapshot, PulsesAndFramesOnTwoThreads) {
  sink.on_op = [&](IJCNotifyOperation& op) {
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      const TPQImageBuffer picture(*supplied->Buffer);
      const std::uint8_t* p = picture.Read();
      EXPECT_TRUE(p[1] == static_cast<std::uint8_t>(p[0] + 1) && p[5] == static_cast<std::uint8_t>(p[0] + 5))
          << "one frame";
    }
  };
  std::thread pulses([&] {
    for (int i = 0; i < 1000; ++i) button.Clock();
  });
  for (int i = 0; i < 1000; ++i) Send(i & 255);
  pulses.join();
}

}  // namespace
}  // namespace pantiq
