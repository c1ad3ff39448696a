#include "pantiq/media/PQASFLogger.h"

#include <gtest/gtest.h>

#include <thread>

#include "media/TestStreams.h"
#include "support/FakeMedia.h"

namespace pantiq::test {
namespace {

using Lines = std::vector<std::string>;

class LoggerTest : public ::testing::Test {
 protected:
  void SetUp() override { Make(); }
  void Make() {
    logger = std::make_unique<TPQASFLogger>();
    logger->SetFileName("out.asf");
    ASSERT_TRUE(logger->InputPin.Connect(source.VideoPin).Ok());
  }
  void WireSound() { ASSERT_TRUE(logger->AudioInputPin.Connect(source.AudioPin).Ok()); }
  // The calls up to the first sample.
  Lines Built() {
    Lines built;
    for (const std::string& call : state.log.Calls()) {
      if (call.rfind("Send", 0) == 0) break;
      built.push_back(call);
    }
    return built;
  }
  FakeModule module;
  FakeState& state = module.state;
  Reports reports;
  StreamSource source;
  std::unique_ptr<TPQASFLogger> logger;
};

const Lines kWriterSteps = {"ResolveProfile",       "CreateGraph",       "RegisterAdditionalFilters",
                            "CreateCaptureBuilder", "QueryMediaControl", "SetFiltergraph",
                            "Create AsfWriter",     "Add ASF Writer",    "QueryFileSink",
                            "SetFileName out.asf",  "QueryAsfConfig",    "ConfigureUsingProfile",
                            "SetIndexMode"};
const Lines kSoundSteps = {"Create AudioSource", "SetAudioFormat 48000 2 16 false 1000", "Add AudioSource",
                           "Render 2 0 1"};

Lines Join(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST_F(LoggerTest, BuildsInTheStatedOrder) {
  source.StartVideo(16, 8);
  EXPECT_EQ(Built(), Join(kWriterSteps, {"Create VideoSource", "SetVideoSize 16 8 400000", "Add VideoSource",
                                         "Render 2 0 1", "Run"}));
  EXPECT_TRUE(logger->IsRunning());
  EXPECT_TRUE(logger->GetGraph().IsRegistered());
  source.VideoPin.Stop();
  EXPECT_FALSE(logger->IsRunning());
  EXPECT_EQ(state.live.load(), 0);
  // Sound is wired ahead of the video, whichever begins first.
  WireSound();
  for (const bool sound_first : {false, true}) {
    state.log.Clear();
    if (sound_first) source.StartAudio(48000, 2);
    source.StartVideo(16, 8);
    EXPECT_EQ(logger->IsRunning(), sound_first);
    if (!sound_first) source.StartAudio(48000, 2);
    EXPECT_EQ(Built(), Join(Join(kWriterSteps, kSoundSteps), {"Create VideoSource", "SetVideoSize 16 8 400000",
                                                              "Add VideoSource", "Render 3 0 1", "Run"}));
    source.AudioPin.Stop();
    EXPECT_TRUE(logger->IsRunning());
    source.VideoPin.Stop();
    EXPECT_FALSE(logger->IsRunning());
  }
  EXPECT_TRUE(reports.Texts().empty());
}

// Each step that fails ends the build with its own text and leaves nothing; the next start builds anew.
TEST_F(LoggerTest, EveryFailureHasItsText) {
  const struct {
    const char* step;
    const char* text;  // null: no text of its own
  } cases[] = {
      {"CreateGraph", nullptr},
      {"CreateCaptureBuilder", "Can't build DirectShow graph builder."},
      {"QueryMediaControl", "Can't obtain IMediaControl."},
      {"SetFiltergraph", "Can't build DirectShow graph builder."},
      {"Create AsfWriter", "Can't create ASF writer."},
      {"Add ASF Writer", "Can't create ASF writer."},
      {"QueryFileSink", "Can't create ASF writer."},
      {"SetFileName out.asf", "Can't create file : out.asf ."},
      {"QueryAsfConfig", "Can't configure ASF writer."},
      {"ConfigureUsingProfile", "Can't configure ASF writer."},
      {"Create AudioSource", "Can't set audio source filter."},
      {"SetAudioFormat 48000 2 16 false 1000", "Can't set audio source filter."},
      {"Add AudioSource", "Can't set audio source filter."},
      {"Render 2 0 1", "Can't render audio output."},
      {"Create VideoSource", "Can't set video source filter."},
      {"SetVideoSize 16 8 400000", "Can't set video source filter."},
      {"Add VideoSource", "Can't set video source filter."},
      {"Render 3 0 1", "Can't render video output."},
      {"Run", "Can't start logger."},
  };
  WireSound();
  for (const auto& failing : cases) {
    SCOPED_TRACE(failing.step);
    state.log.FailStep(failing.step);
    reports.Clear();
    source.StartVideo(16, 8);
    source.StartAudio(48000, 2);
    source.SendFrame(16, 8, 0);
    source.SendSound(480, 2);
    EXPECT_FALSE(logger->IsRunning());
    EXPECT_EQ(state.live.load(), 0);
    if (failing.text == nullptr) {
      EXPECT_TRUE(reports.All().empty());
    } else {
      ASSERT_EQ(reports.All().size(), 1u);
      EXPECT_EQ(reports.All()[0].text, failing.text);
      EXPECT_EQ(reports.All()[0].severity, PQSeverity::Error);
      EXPECT_EQ(reports.All()[0].code, 77);
      EXPECT_EQ(reports.All()[0].component, logger.get());
      EXPECT_NE(reports.All()[0].detail.find(failing.step), std::string::npos);
    }
    source.AudioPin.Stop();
    source.VideoPin.Stop();
  }
  EXPECT_EQ(state.log.Count("Send"), 0);
  state.log.FailStep("");
  source.StartVideo(16, 8);
  source.StartAudio(48000, 2);
  EXPECT_TRUE(logger->IsRunning());
}

TEST_F(LoggerTest, SilentAndOptionalFailures) {
  logger->SetFileName("");
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  EXPECT_TRUE(reports.All().empty()) << "an empty name is silent";
  EXPECT_TRUE(state.log.Calls().empty());
  source.VideoPin.Stop();
  logger->SetFileName("out.asf");
  logger->SetEnabled(false);
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  EXPECT_TRUE(state.log.Calls().empty()) << "a disabled logger records nothing";
  source.VideoPin.Stop();
  logger->SetEnabled(true);
  source.StartVideo(0, 0);
  EXPECT_TRUE(state.log.Calls().empty()) << "a video without size is none";
  state.log.FailStep("SetIndexMode");
  source.StartVideo(16, 8);
  EXPECT_TRUE(logger->IsRunning());
  ASSERT_EQ(reports.All().size(), 1u);
  EXPECT_EQ(reports.All()[0].text, "Can't set frame indexing.");
  EXPECT_EQ(reports.All()[0].severity, PQSeverity::Warning);
  source.VideoPin.Stop();
  logger->SetFrameIndexing(false);
  state.log.Clear();
  source.StartVideo(16, 8);
  EXPECT_EQ(state.log.Count("SetIndexMode"), 0);
  source.VideoPin.Stop();
  reports.Clear();
  state.log.FailStep("ResolveProfile");
  source.StartVideo(16, 8);
  EXPECT_FALSE(logger->IsRunning());
  EXPECT_EQ(reports.Texts(), (Lines{"The recording profile cannot be loaded."})) << "the profile's own words";
}

TEST_F(LoggerTest, TheProfileIsLoadedAtEachStart) {
  logger->GetProfile().SetVideoCodec(bvMP43);
  logger->GetProfile().SetQuality(40);
  source.StartVideo(17, 9, 333667);
  EXPECT_EQ(module.last_request.video_codec, "MP43");
  EXPECT_EQ(module.last_request.quality, 40);
  EXPECT_EQ(module.last_request.container, "auto");
  EXPECT_EQ(module.last_request.file_name, "out.asf");
  EXPECT_EQ(module.last_request.width, 17);
  source.VideoPin.Stop();
  TPQASFLogger other;
  other.GetProfile().SetContainer(bcMKV);
  logger->SetProfile(other.GetProfile());
  source.StartVideo(17, 9, 333667);
  EXPECT_EQ(module.last_request.container, "mkv");
  EXPECT_EQ(module.last_request.quality, 85);
}

TEST_F(LoggerTest, ANotificationRunsOnceTheGraphIsWired) {
  Lines seen;
  logger->GetGraph().SetBeforeRun([&](TComponent& owner) {
    EXPECT_EQ(&owner, logger.get());
    seen = state.log.Calls();
  });
  source.StartVideo(16, 8);
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.back(), "Render 2 0 1");
}

// Frames of the announced format go without a copy of their pixels, others are converted, others of size are laid on
// black.
TEST_F(LoggerTest, FramesArriveAsAnnounced) {
  source.StartVideo(4, 2);
  source.SendFrame(4, 2, 0x030201);
  source.SendFrame(2, 1, 0x060504);
  source.SendFrame(6, 4, 0x090807);
  source.SendFrame(4, 2, 0x0a0a0a, vfGrayScale);
  auto sent = state.Sent(true);
  ASSERT_EQ(sent.size(), 4u);
  using V = std::vector<std::uint8_t>;
  EXPECT_EQ(sent[0].bytes, (V{3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1}));
  EXPECT_EQ(sent[1].bytes, (V{6, 5, 4, 6, 5, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(sent[2].bytes, (V{9, 8, 7, 9, 8, 7, 9, 8, 7, 9, 8, 7, 9, 8, 7, 9, 8, 7, 9, 8, 7, 9, 8, 7}));
  EXPECT_EQ(sent[3].bytes, V(24, 10));
  EXPECT_EQ(sent[0].step, 12);
  EXPECT_EQ(reports.All().size(), 1u) << "one report of the size";
  source.VideoPin.Stop();
  source.StartVideo(4, 2, 400000, vfYUY2);
  EXPECT_EQ(state.log.Count("Create VideoSource YUY2"), 1);
  source.SendFrame(4, 2, 0);
  sent = state.Sent(true);
  ASSERT_EQ(sent.size(), 5u);
  EXPECT_EQ(sent[4].step, 8);
  EXPECT_EQ(sent[4].bytes.size(), 16u);
}

// The recording's clock: lengths and positive gaps; lost frames leave no hole; a source that begins anew does not go
// back.
TEST_F(LoggerTest, ClockOfTheVideo) {
  source.StartVideo(16, 8, 400000);
  source.SendStamped(5000000, 5400000);  // where the first one lies does not matter
  source.SendStamped(5400000, 5800000);
  source.SendStamped(6000000, 6400000);        // a gap of 200000
  source.SendStamped(6300000, 6700000);        // an overlap counts as none
  source.SendStamped(9000000, 9400000, 10);    // a gap again, the first with a number
  source.SendStamped(12000000, 12400000, 20);  // frames were lost
  source.SendStamped(12600000, 13000000, 21);  // none lost: a gap of 200000
  source.SendStamped(0, 400000, 22);           // begins anew
  source.SendFrame(16, 8, 0);                  // without a stamp
  std::vector<std::pair<std::int64_t, std::int64_t>> times;
  for (const FakeSent& frame : state.Sent(true)) times.emplace_back(frame.begin, frame.end);
  const std::vector<std::pair<std::int64_t, std::int64_t>> expected = {
      {0, 400000},        {400000, 800000},   {1000000, 1400000}, {1400000, 1800000}, {1800000, 2200000},
      {2200000, 2600000}, {2800000, 3200000}, {3200000, 3600000}, {3600000, 4000000}};
  EXPECT_EQ(times, expected);
}

TEST_F(LoggerTest, ClockOfTheSoundCountsSamples) {
  WireSound();
  source.StartVideo(16, 8);
  source.StartAudio(44100, 1);
  for (int i = 0; i < 3; ++i) source.SendSound(1000, 1, 44100);
  source.SendSound(100, 2, 44100);  // another form is left out, once told
  const auto sent = state.Sent(false);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].begin, 0);
  EXPECT_EQ(sent[0].end, 226757);
  EXPECT_EQ(sent[2].begin, 453514);
  EXPECT_EQ(sent[2].end, 680272);
  EXPECT_EQ(sent[2].bytes.size(), 2000u);
  EXPECT_EQ(reports.All().size(), 1u);
}

// Sound that is done without, ends early or never comes holds up nothing.
TEST_F(LoggerTest, SoundThatIsMissing) {
  WireSound();
  source.StartVideo(16, 8);
  EXPECT_FALSE(logger->IsRunning());
  source.AudioPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
  EXPECT_TRUE(logger->IsRunning());
  EXPECT_EQ(state.log.Count("Create AudioSource"), 0);
  source.SendFrame(16, 8, 0);
  source.VideoPin.Stop();
  EXPECT_FALSE(logger->IsRunning());
  state.log.Clear();
  source.StartVideo(16, 8);
  source.StartAudio(48000, 2);
  source.SendSound(480, 2);
  source.AudioPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
  EXPECT_EQ(state.log.Count("EndOfStream 2"), 1) << "the writer waits for no more sound";
  source.SendSound(480, 2);
  EXPECT_EQ(state.Sent(false).size(), 1u);
  EXPECT_TRUE(logger->IsRunning());
  source.VideoPin.Stop();
  EXPECT_FALSE(logger->IsRunning());
  EXPECT_EQ(state.log.Count("Drain 2000"), 1);
  // Announced by its connection and never started: the first frame waits a moment and goes.
  state.log.Clear();
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  EXPECT_TRUE(logger->IsRunning());
  EXPECT_EQ(state.log.Count("SendVideo"), 1);
  source.StartAudio(48000, 2);
  source.SendSound(480, 2);
  EXPECT_EQ(state.Sent(false).size(), 1u) << "it is too late for this recording";
}

TEST_F(LoggerTest, AProperStopKeepsTheTailAndOthersCloseSoon) {
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  state.log.Clear();
  source.VideoPin.Stop();
  EXPECT_EQ(state.log.Calls(), (Lines{"EndOfStream 2", "Drain 2000", "Stop"}));
  EXPECT_EQ(state.live.load(), 0);
  source.StartVideo(16, 8);
  state.log.Clear();
  logger->InputPin.Disconnect();
  EXPECT_EQ(state.log.Count("Drain 500"), 1);
  EXPECT_EQ(state.live.load(), 0);
  ASSERT_TRUE(logger->InputPin.Connect(source.VideoPin).Ok());
  source.StartVideo(16, 8);
  state.log.Clear();
  logger.reset();
  EXPECT_EQ(state.log.Count("Drain 500"), 1);
  EXPECT_EQ(state.live.load(), 0);
}

TEST_F(LoggerTest, ATailThatIsLostIsAnError) {
  for (const bool proper : {true, false}) {
    reports.Clear();
    state.log.FailStep(proper ? "Drain 2000" : "Drain 500");
    source.StartVideo(16, 8);
    source.SendFrame(16, 8, 0);
    if (proper) {
      source.VideoPin.Stop();
    } else {
      logger->InputPin.Disconnect();
    }
    ASSERT_EQ(reports.All().size(), 1u);
    EXPECT_EQ(reports.All()[0].text, "the end of " + logger->GetFileName() + " could not be written");
    EXPECT_EQ(reports.All()[0].severity, proper ? PQSeverity::Error : PQSeverity::Warning);
    EXPECT_EQ(state.live.load(), 0);
  }
}

// A start in between is a change of format, not a new file; a new name is a new file.
TEST_F(LoggerTest, AStartWhileItRunsGoesOn) {
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  source.StartVideo(8, 4);
  source.SendFrame(8, 4, 0xffffff);
  EXPECT_EQ(state.log.Count("Run"), 1);
  EXPECT_EQ(state.Sent(true).back().bytes.size(), 16u * 8 * 3);
  logger->SetFileName("second.asf");
  source.StartVideo(8, 4);
  EXPECT_EQ(state.log.Count("Drain 2000"), 1);
  EXPECT_EQ(state.log.Count("SetFileName second.asf"), 1);
  EXPECT_EQ(state.log.Count("SetVideoSize 8 4"), 1);
}

TEST_F(LoggerTest, AFailingGraphEndsTheRecordingWithOneReport) {
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  state.log.FailStep("SendVideo");
  for (int i = 0; i < 5; ++i) source.SendFrame(16, 8, 0);
  EXPECT_FALSE(logger->IsRunning());
  EXPECT_EQ(state.live.load(), 0);
  EXPECT_EQ(reports.Texts(), (Lines{"recording to out.asf stopped"}));
  state.log.FailStep("");
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  EXPECT_TRUE(logger->IsRunning());
}

// A frame that waits inside the graph is released by a disconnection and by the logger's end.
TEST_F(LoggerTest, AWaitingFrameIsReleased) {
  for (const bool by_end : {false, true}) {
    source.StartVideo(16, 8);
    state.hold = true;
    std::thread sender([&] { source.SendFrame(16, 8, 0); });
    while (state.holding.load() == 0) std::this_thread::yield();
    if (by_end) {
      logger.reset();
    } else {
      source.VideoPin.Disconnect();
    }
    sender.join();
    EXPECT_EQ(state.live.load(), 0);
    state.hold = false;
    if (!by_end) {
      ASSERT_TRUE(logger->InputPin.Connect(source.VideoPin).Ok());
    }
  }
  EXPECT_TRUE(reports.All().empty());
}

TEST_F(LoggerTest, DiesInsideAFrame) {
  WireSound();
  source.StartVideo(16, 8);
  source.StartAudio(48000, 2);
  logger->GetGraph().SetBeforeRun({});
  source.SendFrame(16, 8, 0);
  std::thread sound([&] {
    for (int i = 0; i < 200; ++i) source.SendSound(48, 2);
  });
  for (int i = 0; i < 20; ++i) source.SendFrame(16, 8, 0);
  logger.reset();
  sound.join();
  EXPECT_EQ(state.live.load(), 0);
}

}  // namespace
}  // namespace pantiq::test
