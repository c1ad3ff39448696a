#include "pantiq/media/PQASFPlayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "media/TestStreams.h"
#include "support/FakeMedia.h"

namespace pantiq::test {
namespace {

class PlayerTest : public ::testing::Test {
 protected:
  void SetUp() override { Make(); }
  void Make() {
    player = std::make_unique<TPQASFPlayer>();
    player->SetFileName("clip.asf");
    ASSERT_TRUE(sink.VideoPin.Connect(player->OutputPin).Ok());
    ASSERT_TRUE(sink.AudioPin.Connect(player->AudioOutputPin).Ok());
  }
  FakeModule module;
  FakeState& state = module.state;
  Reports reports;
  StreamSink sink;
  std::unique_ptr<TPQASFPlayer> player;
};

using Lines = std::vector<std::string>;

// The lines up to the first frame or block.
Lines Head(const Lines& log) {
  Lines head;
  for (const std::string& line : log) {
    if (line == "v frame" || line.rfind("a block", 0) == 0) break;
    head.push_back(line);
  }
  return head;
}

TEST_F(PlayerTest, OrderOfAStartWithSound) {
  state.outputs = {FakeVideo(16, 8, 400000, 3), FakeAudio(48000, 2, 6, 480)};
  state.duration = 1200000;
  sink.on_op = [&](bool, IJCNotifyOperation& op) {
    if (JCOperation<TJCStartWaveOperation>(op) != nullptr) Start(sink.AudioPin);  // it runs already
  };
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  EXPECT_EQ(Head(sink.Log()),
            (Lines{"v request", "a request", "v TJCStartPumpOperation", "a TJCStartPumpOperation",
                   "v start 16 8 400000", "a wave 48000 2", "v TJCStartPumpOperation", "a TJCStartPumpOperation"}));
  EXPECT_EQ(sink.Frames().size(), 3u);
  EXPECT_EQ(sink.AudioBlocks(), 6);
  const Lines log = sink.Log();
  // The third block is followed by the one resume; the end is told on the sound, then on the video.
  int blocks = 0, resumes = 0;
  for (const std::string& line : log) {
    blocks += line == "a block 480" ? 1 : 0;
    if (line != "a TJCRWResumeOperation") continue;
    ++resumes;
    EXPECT_EQ(blocks, 3);
  }
  EXPECT_EQ(resumes, 1);
  EXPECT_EQ(log[log.size() - 2], "a TJCStopOperation");
  EXPECT_EQ(log.back(), "v TJCStopOperation");
  EXPECT_EQ(player->GetFileDuration(), 1200000);
  EXPECT_FALSE(player->IsRunning());
  EXPECT_TRUE(reports.Texts().empty());
  player.reset();
  EXPECT_EQ(state.live.load(), 0);
}

TEST_F(PlayerTest, ReaderIsDrivenInTheStatedOrder) {
  state.outputs = {FakeVideo(16, 8, 400000, 1)};
  player->SetStartTime(5000);
  player->SetDuration(7000);
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  const Lines calls = state.log.Calls();
  EXPECT_EQ(Lines(calls.begin(), calls.begin() + 5), (Lines{"CreateReader", "Open clip.asf", "GetOutputCount",
                                                            "SetUserProvidedClock", "Start 5000 7000 1.000000"}));
  state.log.Clear();
  player->SetUserClock(true);
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation", 2);
  EXPECT_EQ(state.log.Count("ClearUserProvidedClock"), 1);
  state.log.Clear();
  player->SetClockMode(1);
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation", 3);
  EXPECT_EQ(state.log.Count("SetUserProvidedClock"), 1);
}

TEST_F(PlayerTest, WithoutSoundTheOtherEndIsToldToDoWithout) {
  state.outputs = {FakeVideo(16, 8, 400000, 2)};
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  EXPECT_EQ(Head(sink.Log()), (Lines{"v request", "a request", "v TJCStartPumpOperation", "v start 16 8 400000",
                                     "a TJCIgnoreStreamOperation", "v TJCStartPumpOperation"}));
  const Lines log = sink.Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), "a TJCStopOperation"), 1);
}

// Sound that ends early lets the other end go on: one ignore, after its last block.
TEST_F(PlayerTest, SoundThatEndsEarlyIsTold) {
  state.outputs = {FakeVideo(16, 8, 400000, 40), FakeAudio(48000, 2, 2, 480)};
  sink.on_op = [](bool video, IJCNotifyOperation& op) {
    if (video && JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  };
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  const Lines log = sink.Log();
  const auto ignore = std::find(log.begin(), log.end(), "a TJCIgnoreStreamOperation");
  ASSERT_NE(ignore, log.end());
  EXPECT_EQ(std::count(log.begin(), log.end(), "a TJCIgnoreStreamOperation"), 1);
  EXPECT_EQ(std::count(ignore, log.end(), "a block 480"), 0);
  EXPECT_EQ(sink.Frames().size(), 40u);
}

// Streams of other kinds are passed over; sound alone takes its time from its rate and still starts the video, without
// size.
TEST_F(PlayerTest, SoundAloneAndForeignStreams) {
  FakeOutput other = FakeVideo(16, 8, 400000, 3);
  other.props.subtype = PQMediaSubtype::Other;
  FakeOutput text;
  state.outputs = {text, other, FakeAudio(44100, 1, 2, 441)};
  Start(sink.AudioPin);
  sink.WaitFor("v TJCStopOperation");
  const Lines log = sink.Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), "v start 0 0 0"), 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "a block 441"), 2);
  EXPECT_TRUE(sink.Frames().empty());
}

// More than eleven entries need more than one wake-up of the thread, also when nothing wakes it any more.
TEST_F(PlayerTest, NothingStaysBehind) {
  state.outputs = {FakeVideo(16, 8, 400000, 60), FakeAudio(48000, 2, 150, 480)};
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  const auto frames = sink.Frames();
  ASSERT_EQ(frames.size(), 60u);
  for (int i = 0; i < 60; ++i) {
    EXPECT_EQ(frames[static_cast<std::size_t>(i)].frame, i);
    EXPECT_EQ(frames[static_cast<std::size_t>(i)].number, i);
    EXPECT_EQ(frames[static_cast<std::size_t>(i)].first, i);
  }
  EXPECT_EQ(sink.AudioBlocks(), 150);
}

// Stamps rounded to milliseconds are the even rate behind them; a real gap begins a new count.
TEST_F(PlayerTest, StampsFollowTheRateWithoutAccumulation) {
  FakeOutput video = FakeVideo(16, 8, 333667, 0);
  for (int i = 0; i < 300; ++i) video.samples.push_back({(i * 333667 + 5000) / 10000 * 10000, 330000, 0, 0, 0, 0});
  video.samples.push_back({300 * 333667 + 5000000, 330000, 0, 0, 0, 0});
  state.outputs = {video};
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  const auto frames = sink.Frames();
  ASSERT_EQ(frames.size(), 301u);
  for (std::int64_t i = 0; i < 300; ++i) {
    ASSERT_EQ(frames[static_cast<std::size_t>(i)].begin, i * 333667);
    ASSERT_EQ(frames[static_cast<std::size_t>(i)].end, (i + 1) * 333667);
  }
  EXPECT_EQ(frames[300].begin, 300 * 333667 + 5000000);
}

TEST_F(PlayerTest, FramesOfAChangedSizeAreAnnounced) {
  FakeOutput video = FakeVideo(16, 8, 400000, 2);
  video.samples.push_back({800000, 400000, 8, 4, 0, 2});
  video.samples.push_back({1200000, 400000, 8, 4, 0, 3});
  state.outputs = {video};
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  Lines log = sink.Log();
  log.erase(std::remove_if(log.begin(), log.end(), [](const std::string& line) { return line[0] == 'a'; }), log.end());
  EXPECT_EQ(log, (Lines{"v request", "v TJCStartPumpOperation", "v start 16 8 400000", "v TJCStartPumpOperation",
                        "v frame", "v frame", "v start 8 4 400000", "v frame", "v frame", "v TJCStopOperation"}));
  EXPECT_EQ(sink.Frames()[3].width, 8);
  EXPECT_EQ(sink.Frames()[3].last, 3);
}

// A claimed pace: one buffer for each pump, and no more credits than a hundred.
TEST_F(PlayerTest, AClaimedPumpSetsThePace) {
  state.outputs = {FakeVideo(16, 8, 400000, 200)};
  sink.claim = true;
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStartPumpOperation", 2);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_TRUE(sink.Frames().empty());
  for (int i = 0; i < 3; ++i) sink.VideoPin.MasterPump(&sink);
  sink.WaitForFrames(3);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(sink.Frames().size(), 3u);
  StopUp(sink.VideoPin);
  // Credits are counted while nothing can be taken.
  std::mutex gate;
  std::unique_lock closed(gate);
  sink.on_op = [&](bool video, IJCNotifyOperation& op) {
    if (video && JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) const std::lock_guard pass(gate);
  };
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStartPumpOperation", 4);
  sink.VideoPin.MasterPump(&sink);
  sink.WaitForFrames(4);
  for (int i = 0; i < 150; ++i) sink.VideoPin.MasterPump(&sink);
  closed.unlock();
  sink.WaitForFrames(104);
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(sink.Frames().size(), 104u);
}

TEST_F(PlayerTest, ADisabledPlayerAnswersAQueryWithIgnore) {
  sink.VideoPin.Notify(*PQMakeRef<TJCQueryStreamOperation>());
  EXPECT_TRUE(sink.Log().empty());
  player->SetEnabled(false);
  sink.VideoPin.Notify(*PQMakeRef<TJCQueryStreamOperation>());
  EXPECT_EQ(sink.Log(), (Lines{"v TJCIgnoreStreamOperation", "a TJCIgnoreStreamOperation"}));
}

// A failure sends nothing down, is told once with what the platform said, and leaves the player ready for another try.
TEST_F(PlayerTest, FailuresAreToldAndLeaveNothingBehind) {
  state.outputs = {FakeVideo(16, 8, 400000, 2)};
  player->SetFileName("");
  Start(sink.VideoPin);
  EXPECT_TRUE(sink.Log().empty());
  EXPECT_TRUE(reports.All().empty()) << "an empty name is silent";
  player->SetFileName("clip.asf");
  state.log.FailStep("Open clip.asf");
  Start(sink.VideoPin);
  EXPECT_TRUE(sink.Log().empty());
  ASSERT_EQ(reports.All().size(), 1u);
  EXPECT_EQ(reports.All()[0].text, "cannot open clip.asf");
  EXPECT_EQ(reports.All()[0].code, 77);
  EXPECT_NE(reports.All()[0].detail.find("the fake fails"), std::string::npos);
  state.log.FailStep("Start 0 0 1.000000");
  state.log.Clear();
  Start(sink.VideoPin);
  EXPECT_EQ(sink.Log(), (Lines{"v request", "a request"}));
  EXPECT_FALSE(player->IsRunning());
  const Lines calls = state.log.Calls();
  EXPECT_EQ(calls[calls.size() - 2], "Pause");
  EXPECT_EQ(calls.back(), "Stop");
  EXPECT_EQ(reports.All().size(), 2u);
  state.log.FailStep("");
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  EXPECT_EQ(sink.Frames().size(), 2u);
}

TEST_F(PlayerTest, AMissingModuleSaysWhatToInstall) {
  class Missing final : public PQMediaModule {
   public:
    std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult& result) override {
      result = {kPlatformMissing, "install gstreamer1.0-libav"};
      return nullptr;
    }
    std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult&) override { return nullptr; }
    PQPlatformResult ResolveProfile(const PQRecordingRequest&, PQRecordingProfile&) override { return {}; }
  } missing;
  SetMediaModule(&missing);
  Start(sink.VideoPin);
  SetMediaModule(&module);
  ASSERT_EQ(reports.All().size(), 1u);
  EXPECT_EQ(reports.All()[0].code, kPlatformMissing);
  EXPECT_EQ(reports.All()[0].detail, "install gstreamer1.0-libav");
}

TEST_F(PlayerTest, PauseAndResumeAreToldWhereStreamsExist) {
  state.outputs = {FakeVideo(16, 8, 400000, 200), FakeAudio(48000, 2, 2, 480)};
  sink.claim = true;
  player->Pause();
  Start(sink.VideoPin);
  sink.WaitFor("a TJCStartPumpOperation", 2);
  player->Pause();
  player->Resume();
  const Lines log = sink.Log();
  EXPECT_EQ(Lines(log.end() - 4, log.end()), (Lines{"v TJCRWPauseOperation", "a TJCRWPauseOperation",
                                                    "v TJCRWResumeOperation", "a TJCRWResumeOperation"}));
  EXPECT_EQ(state.log.Count("Pause"), 1);
  EXPECT_EQ(state.log.Count("Resume"), 1);
}

// Stops at every place of a stream, from below and from inside a frame; starts again after each.
TEST_F(PlayerTest, StopsAnywhereAndStartsAgain) {
  state.outputs = {FakeVideo(16, 8, 400000, 100000), FakeAudio(48000, 2, 100000, 480)};
  for (std::size_t round = 1; round <= 20; ++round) {
    const std::size_t before = sink.Frames().size();
    Start(round % 2 == 0 ? static_cast<TJCPin&>(sink.VideoPin) : sink.AudioPin);
    sink.WaitForFrames(before + round);
    StopUp(sink.VideoPin);
    EXPECT_FALSE(player->IsRunning());
    const std::size_t after = sink.Frames().size();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(sink.Frames().size(), after) << "no frame follows a stop";
    EXPECT_EQ(sink.Frames()[before].frame, 0) << "numbers begin anew";
  }
  std::atomic<bool> stopped{false};
  sink.on_op = [&](bool video, IJCNotifyOperation& op) {
    if (!video || JCOperation<TJCSuppliedBufferOperation>(op) == nullptr || stopped.exchange(true)) return;
    StopUp(sink.VideoPin);
  };
  const std::size_t before = sink.Frames().size();
  Start(sink.VideoPin);
  sink.WaitForFrames(before + 1);
  while (player->IsRunning()) std::this_thread::yield();
  EXPECT_EQ(sink.Frames().size(), before + 1);
}

// A stop that comes while the formats go out leaves nothing running.
TEST_F(PlayerTest, AStopInsideTheStartEndsIt) {
  state.outputs = {FakeVideo(16, 8, 400000, 100)};
  sink.on_op = [&](bool video, IJCNotifyOperation& op) {
    if (video && JCOperation<TJCStartFrameOperation>(op) != nullptr) StopUp(sink.VideoPin);
  };
  Start(sink.VideoPin);
  EXPECT_FALSE(player->IsRunning());
  EXPECT_EQ(sink.Log().back(), "v start 16 8 400000");
  sink.on_op = {};
  Start(sink.VideoPin);
  sink.WaitFor("v TJCStopOperation");
  EXPECT_EQ(sink.Frames().size(), 100u);
}

TEST_F(PlayerTest, DiesWhileItRuns) {
  state.outputs = {FakeVideo(16, 8, 400000, 100000), FakeAudio(48000, 2, 100000, 480)};
  for (int round = 0; round < 10; ++round) {
    const std::size_t before = sink.Frames().size();
    Start(sink.VideoPin);
    sink.WaitForFrames(before + 3);
    player.reset();
    EXPECT_EQ(state.live.load(), 0);
    const Lines log = sink.Log();
    EXPECT_EQ(log[log.size() - 2], "v TJCStopOperation");
    EXPECT_EQ(log.back(), "a TJCStopOperation");
    Make();
  }
  // From inside a frame's way down.
  std::atomic<bool> done{false};
  sink.on_op = [&](bool video, IJCNotifyOperation& op) {
    if (!video || JCOperation<TJCSuppliedBufferOperation>(op) == nullptr || done) return;
    player.reset();
    done = true;
  };
  Start(sink.VideoPin);
  while (!done) std::this_thread::yield();
  EXPECT_EQ(state.live.load(), 0);
}

// Starts, stops and pumps from several threads at once.
TEST_F(PlayerTest, StandsStartsAndStopsFromSeveralThreads) {
  state.outputs = {FakeVideo(16, 8, 400000, 50), FakeAudio(48000, 2, 50, 480)};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 60; ++i) {
        if ((i + t) % 3 == 0) {
          StopUp(sink.VideoPin);
        } else {
          Start(t % 2 == 0 ? static_cast<TJCPin&>(sink.VideoPin) : sink.AudioPin);
        }
        sink.VideoPin.MasterPump(&sink);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  StopUp(sink.VideoPin);
  player.reset();
  EXPECT_EQ(state.live.load(), 0);
}

}  // namespace
}  // namespace pantiq::test
