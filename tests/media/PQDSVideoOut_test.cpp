#include "pantiq/media/PQDSVideoOut.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "media/TestStreams.h"
#include "support/FakeOutput.h"

namespace pantiq::test {
namespace {

using Lines = std::vector<std::string>;

class VideoOutTest : public ::testing::Test {
 protected:
  void SetUp() override {
    out = std::make_unique<TPQDSVideoOut>();
    ASSERT_TRUE(out->InputPin.Connect(source.VideoPin).Ok());
  }
  void WireSound() { ASSERT_TRUE(out->AudioInputPin.Connect(source.AudioPin).Ok()); }
  template <class Operation>
  void Video() {
    source.VideoPin.Notify(*PQMakeRef<Operation>());
  }
  template <class Operation>
  void Audio() {
    source.AudioPin.Notify(*PQMakeRef<Operation>());
  }
  void SendStampedSound(int samples) {
    auto sound = PQMakeRef<THTAudioBuffer>(samples, 1, 16);
    sound->SetFormat(10000);
    auto* to = static_cast<std::uint8_t*>(sound->WriteData());
    for (int i = 0; i < sound->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>(i);
    sound->GetTimeStamp().SetAvailable(true);
    source.AudioPin.SubmitBuffer(std::move(sound));
  }
  FakeOutputModule module;
  FakeOutputState& state = module.state;
  Reports reports;
  StreamSource source;
  std::unique_ptr<TPQDSVideoOut> out;
};

const Lines kOpen = {"Enumerate video",          "CreateOutput",
                     "CreateCaptureBuilder",     "CreateGraph",
                     "SetFiltergraph",           "RegisterAdditionalFilters",
                     "Bind gst:element=screen",  "Add Video Render",
                     "QueryMediaControl",        "Create VideoSource",
                     "SetVideoSize 16 8 400000", "Add VideoSource"};
const Lines kSound = {"Create AudioSource", "SetAudioFormat 10000 1", "Add AudioSource"};
const Lines kSpeaker = {"Enumerate audio", "Bind gst:element=speaker", "Add Audio Render",
                        "Render AudioSource gst:element=speaker"};

Lines Join(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

TEST_F(VideoOutTest, BuildsInTheStatedOrder) {
  const Lines end = {"QueryMediaFilter", "Run"};
  source.StartVideo(0, 8);
  source.StartVideo(16, -1);
  EXPECT_TRUE(state.log.Calls().empty());
  source.StartVideo(16, 8);
  EXPECT_EQ(state.log.Calls(), Join({kOpen, {"Render VideoSource gst:element=screen"}, end}));
  EXPECT_TRUE(out->IsRunning());
  EXPECT_TRUE(out->GetGraph().IsRegistered());
  EXPECT_EQ(out->GetVideoOutputDevice().GetOpenDevice(), "A screen");
  EXPECT_TRUE(out->GetVC_DigitalVideo().ExtTransport);
  source.SendFrame(16, 8, 0x010203);
  source.VideoPin.Stop();
  EXPECT_FALSE(out->IsRunning());
  EXPECT_FALSE(out->GetGraph().IsRegistered());
  EXPECT_EQ(state.live.load(), 0);
  EXPECT_FALSE(out->GetVC_DigitalVideo().ExtTransport);
  ASSERT_EQ(state.Sent(true).size(), 1u);
  EXPECT_EQ(state.Sent(true)[0].bytes.size(), 16u * 8 * 3);
  EXPECT_EQ(state.Sent(true)[0].bytes[0], 1);
  EXPECT_EQ(state.log.Count("Drain"), 1) << "what is inside is shown to its end";

  // With sound, whichever announces itself first.
  WireSound();
  for (const bool sound_first : {false, true}) {
    state.log.Clear();
    if (sound_first) source.StartAudio(10000, 1);
    source.StartVideo(16, 8);
    EXPECT_EQ(out->IsRunning(), sound_first);
    if (!sound_first) source.StartAudio(10000, 1);
    EXPECT_TRUE(out->IsRunning());
    EXPECT_EQ(state.log.Calls(), Join({kOpen, kSound, {"Render VideoSource gst:element=screen"}, kSpeaker, end}));
    source.VideoPin.Stop();
    EXPECT_FALSE(out->IsRunning());
  }
  EXPECT_TRUE(reports.Texts().empty());
}

// A device that takes digital video only is given an encoder and a multiplexer.
TEST_F(VideoOutTest, DigitalVideo) {
  state.needs_dv = true;
  WireSound();
  TPQDVFormat& format = out->GetDVFormat();
  EXPECT_TRUE(format.GetUseCurrent());
  EXPECT_EQ(format.GetFormat(), dvfNTSC);
  source.StartAudio(10000, 1);
  source.StartVideo(16, 8);
  EXPECT_TRUE(out->IsRunning());
  EXPECT_EQ(state.log.Calls(),
            Join({kOpen,
                  kSound,
                  {"Render VideoSource gst:element=screen", "Create DVMux", "Add DV Mux", "Create DVEncoder",
                   "Add DV Encoder", "QueryDVEncoder", "Create ColorConverter", "Add Color Converter",
                   "Render VideoSource gst:element=screen", "Create AudioWrapper", "Add ACM Wrapper",
                   "Render AudioSource AudioWrapper DVMux", "QueryMediaFilter", "Run"}}));
  // The encoder's own values show while it is bound, and UseCurrent keeps them.
  EXPECT_EQ(format.GetFormat(), dvfPAL);
  EXPECT_EQ(format.GetEncoding(), dveDVSL);
  EXPECT_EQ(format.GetResolution(), dvr88);
  format.SetFormat(dvfNTSC);
  EXPECT_EQ(state.dv.format, 2001);
  EXPECT_EQ(format.GetFormat(), dvfPAL);
  format.SetUseCurrent(false);
  format.SetEncoding(static_cast<TPQDSDVEncoding>(9));
  EXPECT_EQ(state.dv.encoding, 2007) << "a value outside the set writes its first";
  state.dv.format = 1234;
  EXPECT_EQ(format.GetFormat(), dvfPAL) << "a code that nobody knows leaves the field as it was";
  source.VideoPin.Stop();
  state.dv.format = 2000;
  EXPECT_EQ(format.GetFormat(), dvfPAL) << "no encoder is bound";

  // A device of sound that was chosen by name stands beside the digital video; its sound is not multiplexed.
  out->GetAudioOutputDevice().SetDevice("A speaker");
  state.log.Clear();
  source.StartAudio(10000, 1);
  source.StartVideo(16, 8);
  EXPECT_EQ(state.log.Count("Create AudioWrapper"), 0);
  EXPECT_EQ(state.log.Count("Render AudioSource gst:element=speaker"), 1);
  EXPECT_EQ(state.dv.format, 2001) << "what was set is written";
}

struct Failure {
  const char* step;
  const char* text;  // null: no text of its own
};

class VideoOutFailureTest : public VideoOutTest {
 protected:
  void Check(const std::vector<Failure>& cases) {
    WireSound();
    for (const Failure& failing : cases) {
      SCOPED_TRACE(failing.step);
      state.log.FailStep(failing.step);
      reports.Clear();
      source.StartAudio(10000, 1);
      source.StartVideo(16, 8);
      EXPECT_FALSE(out->IsRunning());
      source.SendFrame(16, 8, 0);
      if (failing.text == nullptr) {
        EXPECT_TRUE(reports.All().empty());
      } else {
        ASSERT_EQ(reports.All().size(), 1u);
        EXPECT_EQ(reports.All()[0].text, failing.text);
        EXPECT_EQ(reports.All()[0].severity, PQSeverity::Error);
        EXPECT_EQ(reports.All()[0].component, out.get());
        EXPECT_NE(reports.All()[0].detail.find(failing.step), std::string::npos);
      }
      source.VideoPin.Stop();
      EXPECT_EQ(state.live.load(), 0);
      EXPECT_EQ(out->GetVideoQueued(), 0);
    }
    EXPECT_TRUE(state.Order().empty());
    state.log.FailStep("");
    source.StartAudio(10000, 1);
    source.StartVideo(16, 8);
    EXPECT_TRUE(out->IsRunning()) << "the next start builds anew";
  }
};

TEST_F(VideoOutFailureTest, EveryFailureHasItsText) {
  Check({
      {"CreateOutput", "The media engine does not start."},
      {"CreateCaptureBuilder", "Can't build DirectShow graph builder."},
      {"CreateGraph", nullptr},
      {"SetFiltergraph", "Can't build DirectShow graph builder."},
      {"Bind gst:element=screen", "Can't create video render filter."},
      {"Add Video Render", "Can't add video render filter."},
      {"QueryMediaControl", "Can't obtain IMediaControl."},
      {"Create VideoSource", "Can't set video source filter."},
      {"SetVideoSize 16 8 400000", "Can't set video source filter."},
      {"Add VideoSource", "Can't set video source filter."},
      {"Create AudioSource", "Can't set audio source filter."},
      {"SetAudioFormat 10000 1", "Can't set audio source filter."},
      {"Add AudioSource", "Can't set audio source filter."},
      {"Bind gst:element=speaker", "Can't create audio render filter."},
      {"Add Audio Render", "Can't add audio render filter."},
      {"Render AudioSource gst:element=speaker", "Can't render audio output."},
      {"QueryMediaFilter", "Can't obtain IMediaFilter."},
      {"Run", "Can't start render."},
  });
}

TEST_F(VideoOutFailureTest, DigitalVideoToo) {
  state.needs_dv = true;
  Check({
      {"Create DVMux", "Can't create DV Mux."},
      {"Create DVEncoder", "Can't create DV Encoder."},
      {"Render VideoSource gst:element=screen", "Can't render video output."},
      {"Create AudioWrapper", "Can't create ACM Wrapper."},
      {"Render AudioSource AudioWrapper DVMux", "Can't render audio output."},
  });
  source.VideoPin.Stop();
  for (const char* step :
       {"Add DV Mux", "Add DV Encoder", "QueryDVEncoder", "Create ColorConverter", "Add Color Converter"}) {
    state.log.FailStep(step);
    reports.Clear();
    source.StartAudio(10000, 1);
    source.StartVideo(16, 8);
    EXPECT_TRUE(out->IsRunning()) << step << " is no failure";
    EXPECT_TRUE(reports.All().empty());
    source.VideoPin.Stop();
  }
}

TEST_F(VideoOutTest, ChoosesDevices) {
  const auto bound = [&](const std::string& id) {
    state.log.Clear();
    reports.Clear();
    source.StartVideo(16, 8);
    const bool yes = state.log.Count("Bind " + id) == 1;
    source.VideoPin.Stop();
    return yes;
  };
  TDSVideoOutputDevice& device = out->GetVideoOutputDevice();
  EXPECT_TRUE(bound("gst:element=screen"));
  device.SetDevice("Another");
  EXPECT_TRUE(bound("gst:element=other"));
  device.SetDevice("gst:element=unlisted");
  EXPECT_TRUE(bound("gst:element=unlisted"));
  device.SetDevice("dEFAULT");
  TDSVideoOutputDeviceItems& items = device.GetAlternativeDevices();
  std::string name;
  items.GetNewDevice(name);
  EXPECT_EQ(name, "gst:element=screen");
  for (const char* next : {"gst:element=other", "gst:element=screen"}) {
    items.Add();
    items.GetItem(items.GetCount() - 1)->SetDevice(name);
    items.GetNewDevice(name);
    EXPECT_EQ(name, next) << "the one that the fewest items have";
  }
  items.GetItem(0)->SetDevice("Another");
  EXPECT_TRUE(bound("gst:element=other"));
  for (const char* nobody : {"None", "A scren"}) {
    device.SetDevice(nobody);
    EXPECT_FALSE(bound("gst:element=screen"));
    EXPECT_EQ(reports.Texts(), Lines{"Can't open the DV Device."});
  }
  device.SetDevice("Default");
  items.Clear();
  state.video.clear();
  EXPECT_FALSE(bound("gst:element=screen"));
  EXPECT_EQ(reports.Texts(), Lines{"Can't open the DV Device."});
  EXPECT_EQ(reports.All()[0].detail, "there are none");
  state.video = {{"gst:element=screen", "A screen", ""}};

  // No device of sound: the video does not wait for what nobody plays.
  WireSound();
  out->GetAudioOutputDevice().SetDevice("None");
  source.StartAudio(10000, 1);
  source.StartVideo(16, 8);
  for (int i = 0; i < 3; ++i) {
    source.SendFrame(16, 8, 0);
    SendStampedSound(400);
  }
  EXPECT_EQ(state.Order(), (Lines{"v 0 400000", "v 400000 800000", "v 800000 1200000"}));
  EXPECT_EQ(out->GetAudioQueued(), 0);
  // A device that is chosen while it plays is taken by the next start.
  device.SetDevice("gst:element=other");
  EXPECT_TRUE(out->IsRunning());
  source.StartVideo(16, 8);
  EXPECT_EQ(state.log.Count("Bind gst:element=other"), 1);
}

// Frames wait for their sound and sound for its frames, in the order of their times.
TEST_F(VideoOutTest, SoundAndFramesStayTogether) {
  WireSound();
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  EXPECT_FALSE(out->IsRunning()) << "a connected audio pin with no start holds the video back";
  EXPECT_EQ(out->GetVideoQueued(), 1);
  source.StartAudio(10000, 1);
  EXPECT_TRUE(out->IsRunning());
  EXPECT_TRUE(state.Order().empty()) << "the frame waits for the sound that goes with it";
  SendStampedSound(600);  // 60 ms
  EXPECT_EQ(state.Order(), (Lines{"a 0 600000", "v 0 400000"}));
  SendStampedSound(600);
  EXPECT_EQ(state.Order().size(), 2u) << "sound does not run ahead";
  source.SendFrame(16, 8, 0);
  source.SendFrame(16, 8, 0);
  EXPECT_EQ(state.Order(),
            (Lines{"a 0 600000", "v 0 400000", "v 400000 800000", "a 600000 1200000", "v 800000 1200000"}));

  // A block that is too long is split; what is left goes first when there is room again.
  state.audio_room.store(400);
  SendStampedSound(600);
  EXPECT_EQ(state.Order().back(), "a 1200000 1800000");
  EXPECT_EQ(state.Sent(false).back().bytes.size(), 400u);
  state.audio_room.store(0);
  source.SendFrame(16, 8, 0);
  EXPECT_EQ(out->GetAudioQueued(), 1) << "the rest waits behind the frames";
  EXPECT_EQ(state.Order().back(), "v 1200000 1600000");
  state.audio_room.store(1 << 20);
  SendStampedSound(10);
  const auto sound = state.Sent(false);
  ASSERT_GE(sound.size(), 4u);
  EXPECT_EQ(sound.back().begin, 1400000);
  EXPECT_EQ(sound.back().bytes.size(), 800u);
  EXPECT_EQ(sound.back().bytes[0], static_cast<std::uint8_t>(400)) << "the rest begins where the first part ended";
  source.AudioPin.Stop();
  EXPECT_FALSE(out->IsRunning()) << "the end of the sound is the end";

  // Sound without stamps counts frames.
  const std::size_t before = state.Order().size();
  source.StartVideo(16, 8);
  source.StartAudio(10000, 1);
  source.SendSound(100, 1, 10000);
  source.SendFrame(16, 8, 0);
  source.SendSound(100, 1, 10000);
  const Lines order = state.Order();
  EXPECT_EQ(Lines(order.begin() + static_cast<std::ptrdiff_t>(before), order.end()),
            (Lines{"a 0 400000", "v 0 400000", "a 400000 800000"}));
}

TEST_F(VideoOutTest, SoundThatDoesNotComeOrEnds) {
  WireSound();
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  Audio<TJCIgnoreStreamOperation>();
  EXPECT_TRUE(out->IsRunning());
  EXPECT_EQ(state.Order(), Lines{"v 0 400000"});
  EXPECT_EQ(state.log.Count("Create AudioSource"), 0);
  source.VideoPin.Stop();

  source.StartVideo(16, 8);
  EXPECT_FALSE(out->IsRunning()) << "each stream is asked anew";
  source.StartAudio(10000, 1);
  SendStampedSound(300);
  source.SendFrame(16, 8, 0);
  source.SendFrame(16, 8, 0);
  EXPECT_EQ(state.Order().size(), 3u);
  Audio<TJCIgnoreStreamOperation>();
  EXPECT_EQ(state.Order().back(), "v 400000 800000") << "sound that has ended holds no frame";
  EXPECT_EQ(state.log.Count("EndOfStream AudioSource"), 1);
  EXPECT_EQ(state.log.Count("Run"), 2);
  source.VideoPin.Stop();

  // Sound whose pin is unplugged.
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  EXPECT_FALSE(out->IsRunning());
  out->AudioInputPin.Disconnect();
  EXPECT_TRUE(out->IsRunning());
  source.SendFrame(16, 8, 0);
  EXPECT_EQ(state.Order().back(), "v 400000 800000");
}

TEST_F(VideoOutTest, WhatWaitsAtTheEndIsPlayed) {
  WireSound();
  source.StartVideo(16, 8);
  source.StartAudio(10000, 1);
  SendStampedSound(500);
  for (int i = 0; i < 4; ++i) source.SendFrame(16, 8, 0);
  EXPECT_EQ(out->GetVideoQueued(), 2);
  source.VideoPin.Stop();
  source.AudioPin.Stop();
  EXPECT_EQ(state.Order(),
            (Lines{"a 0 500000", "v 0 400000", "v 400000 800000", "v 800000 1200000", "v 1200000 1600000"}));
  EXPECT_EQ(state.log.Count("EndOfStream"), 2);
  EXPECT_EQ(state.log.Count("Drain"), 1);
  EXPECT_EQ(state.live.load(), 0);

  // A stop ends what is paused, too, and the next start plays.
  for (const bool by_sound : {false, true}) {
    source.StartAudio(10000, 1);
    source.StartVideo(16, 8);
    Audio<TJCRWPauseOperation>();
    source.SendFrame(16, 8, 0);
    by_sound ? source.AudioPin.Stop() : source.VideoPin.Stop();
    EXPECT_EQ(out->GetVideoQueued(), 0);
    EXPECT_FALSE(out->IsPaused());
    EXPECT_EQ(state.live.load(), 0);
  }
}

TEST_F(VideoOutTest, PausesAndResumes) {
  WireSound();
  source.StartAudio(10000, 1);
  source.StartVideo(16, 8);
  Audio<TJCRWPauseOperation>();
  SendStampedSound(400);
  source.SendFrame(16, 8, 0);
  source.SendFrame(16, 8, 0);
  Video<TJCRWResumeOperation>();
  EXPECT_TRUE(out->IsPaused()) << "the sound decides";
  EXPECT_TRUE(state.Order().empty());
  EXPECT_EQ(out->GetVideoQueued(), 3);
  Audio<TJCRWResumeOperation>();
  Audio<TJCRWResumeOperation>();
  EXPECT_EQ(state.Order(), (Lines{"a 0 400000", "v 0 400000"}));
  const Lines calls = state.log.Calls();
  EXPECT_EQ(Lines(calls.end() - 3, calls.end()), (Lines{"Run", "Pause", "Run"})) << "a second resume runs nothing";

  // What a host does for a person.
  out->Hold(true);
  EXPECT_TRUE(out->Step());
  out->Hold(false);
  EXPECT_FALSE(out->Step());
  EXPECT_EQ(out->GetVideoQueued(), 2) << "a frame, and what was behind it";
  out->Flush();
  EXPECT_EQ(out->GetVideoQueued(), 0);
  SendStampedSound(400);
  source.SendFrame(16, 8, 0);
  EXPECT_EQ(state.Order().size(), 2u) << "nothing comes through until the next start";
  out->Hold(true);
  source.StartVideo(16, 8);
  EXPECT_EQ(state.log.Calls().back(), "Hold");
  EXPECT_EQ(state.log.Count("CreateOutput"), 1) << "the device stays open";
  SendStampedSound(400);
  source.SendFrame(16, 8, 0);
  EXPECT_EQ(state.Order().back(), "v 0 400000");
}

TEST_F(VideoOutTest, FormatsAndSizes) {
  source.StartVideo(16, 8, 400000, vfYUY2);
  EXPECT_EQ(state.log.Count("Create VideoSource YUY2"), 1);
  source.SendFrame(16, 8, 0, vfYUY2);
  source.SendFrame(16, 8, 0);
  for (const FakeSent& frame : state.Sent(true)) EXPECT_EQ(frame.bytes.size(), 16u * 8 * 2);
  // A start without a stop: another size needs another graph, the same one does not.
  source.StartVideo(17, 8, 400000, vfYUY2);
  EXPECT_EQ(state.log.Count("Create VideoSource YUY2"), 1) << "half a pair of pixels goes as RGB";
  EXPECT_EQ(state.log.Count("CreateOutput"), 2);
  source.StartVideo(17, 8, 200000, vfYUY2);
  EXPECT_EQ(state.log.Count("CreateOutput"), 2);
  EXPECT_EQ(state.log.Count("Run"), 3);
  // A frame that is not what was announced lies at the top left; one without pixels is none.
  source.SendFrame(40, 4, 0x00ffffff, vfGrayScale);
  source.SendFrame(0, 0, 0);
  source.SendFrame(4, 40, 0x00ffffff);
  const auto sent = state.Sent(true);
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[2].begin, 0) << "a new start begins at 0";
  EXPECT_EQ(sent[2].end, 200000);
  ASSERT_EQ(sent[2].bytes.size(), 17u * 8 * 3);
  EXPECT_EQ(sent[2].bytes[17 * 3 * 4 - 1], 255);
  EXPECT_EQ(sent[2].bytes[17 * 3 * 4], 0);
  EXPECT_EQ(sent[3].bytes[11], 255);
  EXPECT_EQ(sent[3].bytes[12], 0);
  EXPECT_EQ(reports.All().size(), 1u) << "told once";
  // Stamps give durations; what cannot be one is a period.
  source.VideoPin.Stop();
  source.StartVideo(16, 8, 0);
  source.SendStamped(5000000, 5100000);
  source.SendStamped(7000000, 7000000);
  source.SendFrame(16, 8, 0);
  const Lines order = state.Order();
  EXPECT_EQ(Lines(order.end() - 3, order.end()), (Lines{"v 0 100000", "v 100000 500000", "v 500000 900000"}));
  // A frame without room goes back and is tried again with the next.
  state.refuse.store(1);
  source.SendFrame(16, 8, 0);
  EXPECT_EQ(out->GetVideoQueued(), 1);
  source.SendFrame(16, 8, 0);
  EXPECT_EQ(state.Order().back(), "v 1300000 1700000");
  // What no table names is passed over.
  Video<TJCQueryStreamOperation>();
  source.VideoPin.Notify(*PQMakeRef<TJCMasterPumpOperation>(nullptr));
  EXPECT_EQ(out->GetVideoQueued(), 0);
  Video<TRWInternalStopOperation>();
  EXPECT_EQ(state.live.load(), 0);
}

// --- the pump -------------------------------------------------------------------------------------------------------

// Gives one frame for each pump.
class PumpedSource final : public TComponent {
 public:
  explicit PumpedSource(TComponent* owner = nullptr)
      : TComponent(owner), OutputPin(*this, JCDispatch::To<&PumpedSource::Up>(this)) {}
  ~PumpedSource() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<PumpedSource>("PumpedSource", "Test", "").Inherits<TComponent>().Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSourcePin OutputPin;
  std::int64_t duration = 400000;
  void WaitFor(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return pumps_ >= count; });
  }
  int Pumps() {
    const std::lock_guard lock(mutex_);
    return pumps_;
  }

 private:
  void BeforeDestruction() override { OutputPin.Disconnect(); }
  TJCNotifyResult Up(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (JCOperation<TJCMasterPumpOperation>(op) == nullptr) return {};
    auto image = PQMakeRef<TPQImageBuffer>(16, 8, vfRGB24);
    image->Fill(0);
    image->GetTimeStamp().SetAvailable(true);
    image->GetTimeStamp().SetEnd(duration);
    OutputPin.SubmitBuffer(std::move(image));
    const std::lock_guard lock(mutex_);
    ++pumps_;
    changed_.notify_all();
    return {};
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  int pumps_ = 0;
};

class VideoOutPumpTest : public VideoOutTest {
 protected:
  void SetUp() override {
    out = std::make_unique<TPQDSVideoOut>();
    ASSERT_TRUE(out->InputPin.Connect(pumped.OutputPin).Ok());
  }
  PQRef<TJCPumpRequestOperation> Request(int kind, int level) {
    auto request = PQMakeRef<TJCPumpRequestOperation>();
    request->Kind = static_cast<std::uint8_t>(kind), request->Level = level;
    pumped.OutputPin.Notify(*request);
    return request;
  }
  PumpedSource pumped;
};

TEST_F(VideoOutPumpTest, ClaimsThePump) {
  EXPECT_EQ(Request(0, 0)->Master, nullptr) << "only if it is told to";
  out->SetEnableMasterPumping(true);
  out->SetPumpPriority(5);
  EXPECT_EQ(Request(0, 9)->Master, out.get());
  EXPECT_EQ(Request(2, 9)->Kind, 3);
  EXPECT_EQ(Request(3, 5)->Master, nullptr);
  EXPECT_EQ(Request(3, 4)->Level, 5);
}

// The source stays within one frame of the device's clock for five minutes, whichever advice the clock gives.
TEST_F(VideoOutPumpTest, TheDevicesClockSetsThePace) {
  for (const bool periodic : {true, false}) {
    SCOPED_TRACE(periodic ? "periodic" : "one at a time");
    state.log.Clear();
    state.log.FailStep(periodic ? "" : "AdvisePeriodic 401000 400000");
    state.clock = std::make_shared<FakeClock>(state.log);
    out->SetEnableMasterPumping(true);
    (void)Request(0, 0);
    pumped.OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(16, 8, 400000, vfRGB24));
    EXPECT_EQ(state.clock->Advices(), 1);
    const int before = pumped.Pumps();
    pumped.OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
    pumped.WaitFor(before + 1);
    const int kTicks = 5 * 60 * 25;
    for (int tick = 1; tick <= kTicks; ++tick) {
      state.clock->Advance(400000);
      pumped.WaitFor(before + 1 + tick);
      if (!periodic) state.clock->WaitForAdvice();
    }
    EXPECT_EQ(pumped.Pumps(), before + 1 + kTicks) << "as many frames as ticks, and the first";
    EXPECT_EQ(state.log.Count("AdvisePeriodic"), 1) << "equal durations do not advise anew";
    EXPECT_EQ(state.log.Count("AdviseTime"), periodic ? 0 : kTicks + 1);
    // A quarter of a unit apart is the same; more is not.
    state.log.FailStep("");
    const int advised = state.log.Count("AdvisePeriodic");
    pumped.duration = 400003;
    state.clock->Advance(400000);
    pumped.WaitFor(before + 2 + kTicks);
    EXPECT_EQ(state.log.Count("AdvisePeriodic"), advised);
    pumped.duration = 200000;
    if (!periodic) state.clock->WaitForAdvice();
    state.clock->Advance(400000);
    pumped.WaitFor(before + 3 + kTicks);
    EXPECT_EQ(state.log.Count("AdvisePeriodic"), advised + 1);
    EXPECT_EQ(state.clock->Advices(), 1) << "the old advice is gone";
    pumped.duration = 400000;
    pumped.OutputPin.Stop();
    EXPECT_EQ(state.clock->Advices(), 0);
  }
}

TEST_F(VideoOutPumpTest, AHeldPictureAsksForNothing) {
  out->SetEnableMasterPumping(true);
  pumped.OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(16, 8, 0, vfRGB24));
  EXPECT_EQ(state.log.Calls().back(), "AdvisePeriodic 401000 400000") << "an unknown period";
  out->Pause();
  state.clock->Advance(400000 * 5);
  out->Resume();
  state.clock->Advance(400000);
  pumped.WaitFor(1);
  pumped.OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(16, 8, 3, vfRGB24));
  // The thread of a pump that has not returned takes up the start.
  while (state.log.Count("AdvisePeriodic") < 2) std::this_thread::yield();
  EXPECT_EQ(state.log.Count("AdvisePeriodic 2411000 10000"), 1) << "never faster than a millisecond";
}

// --- ends at any moment ---------------------------------------------------------------------------------------------

TEST_F(VideoOutTest, ClosedWindowsAndLostDevices) {
  const struct {
    long event;
    PQSeverity severity;
    const char* text;
  } cases[] = {{kOutputUserAbort, PQSeverity::Note, "the window was closed"},
               {kOutputDeviceLost, PQSeverity::Error, "the output device was lost"}};
  WireSound();
  for (const auto& ending : cases) {
    SCOPED_TRACE(ending.text);
    reports.Clear();
    state.log.Clear();
    std::mutex mutex;
    std::condition_variable changed;
    long heard = 0;
    out->SetOnEvent([&](long event) {
      const std::lock_guard lock(mutex);
      heard = event;
      changed.notify_all();
    });
    source.StartAudio(10000, 1);
    source.StartVideo(16, 8);
    for (int i = 0; i < 3; ++i) source.SendFrame(16, 8, 0);
    state.Tell(1, "something else");
    state.Tell(ending.event, "it is gone");
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [&] { return heard == ending.event; });
    }
    EXPECT_FALSE(out->IsRunning());
    EXPECT_EQ(out->GetVideoQueued(), 3) << "the lists are not cleared";
    EXPECT_EQ(state.log.Count("Stop"), 1);
    ASSERT_EQ(reports.All().size(), 1u);
    EXPECT_EQ(reports.All()[0].text, ending.text);
    EXPECT_EQ(reports.All()[0].severity, ending.severity);
    const std::size_t sent = state.Order().size();
    SendStampedSound(10);
    EXPECT_EQ(state.Order().size(), sent);
    source.VideoPin.Stop();
    source.AudioPin.Stop();
    out->Flush();
    EXPECT_EQ(out->GetVideoQueued() + out->GetAudioQueued(), 0);
    out->AudioInputPin.Disconnect();
    WireSound();
  }
}

// Frames wait in a device that takes nothing, and the end comes from another thread.
TEST_F(VideoOutTest, EndsWhileAFrameWaits) {
  enum class By { Unplugging, Stopping, Destroying, Flushing, Releasing };
  for (const By by : {By::Unplugging, By::Stopping, By::Flushing, By::Releasing, By::Destroying}) {
    SCOPED_TRACE(static_cast<int>(by));
    state.hold.store(false);
    source.StartVideo(16, 8);
    state.hold.store(true);
    std::thread sender([&] { source.SendFrame(16, 8, 0); });
    state.WaitForHolding();
    source.SendFrame(16, 8, 0);
    EXPECT_EQ(out->GetVideoQueued(), 1) << "others do not wait";
    switch (by) {
      case By::Unplugging:
        out->InputPin.Disconnect();
        break;
      case By::Stopping:
        out->Stop();
        break;
      case By::Flushing:
        out->Flush();
        break;
      case By::Releasing:
        source.VideoPin.Stop();
        state.hold.store(false);
        state.changed.notify_all();
        break;
      case By::Destroying:
        out.reset();
        break;
    }
    sender.join();
    if (by == By::Unplugging) {
      EXPECT_EQ(state.live.load(), 0);
      ASSERT_TRUE(out->InputPin.Connect(source.VideoPin).Ok());
    } else if (by == By::Releasing) {
      EXPECT_EQ(state.live.load(), 0);
    } else if (by == By::Stopping || by == By::Flushing) {
      EXPECT_EQ(out->GetVideoQueued(), 0);
      source.VideoPin.Stop();
    }
  }
  EXPECT_EQ(state.live.load(), 0);
}

TEST_F(VideoOutTest, StartsStopsAndPausesFromManyThreads) {
  WireSound();
  out->SetEnableMasterPumping(true);
  std::atomic<bool> over{false};
  std::thread video([&] {
    for (int i = 0; i < 300; ++i) {
      source.StartVideo(16, i % 7 == 0 ? 8 : 16);
      Video<TJCStartPumpOperation>();
      for (int frame = 0; frame < 4; ++frame) source.SendFrame(16, 8, 0);
      if (i % 3 == 0) source.VideoPin.Stop();
    }
    over.store(true);
  });
  std::thread audio([&] {
    while (!over.load()) {
      source.StartAudio(10000, 1);
      SendStampedSound(100);
      Audio<TJCRWPauseOperation>();
      Audio<TJCRWResumeOperation>();
      Audio<TJCIgnoreStreamOperation>();
    }
  });
  std::thread person([&] {
    while (!over.load()) {
      out->Stop();
      state.clock->Advance(400000);
      state.Tell(kOutputDeviceLost, "gone");
      out->GetVideoOutputDevice().SetDevice("Another");
      out->GetVideoOutputDevice().SetDevice("Default");
      (void)out->GetDVFormat().GetFormat();
      (void)out->GetFramesShown();
      out->Flush();
    }
  });
  video.join();
  audio.join();
  person.join();
  out->Resume();
  source.VideoPin.Stop();
  out.reset();
  EXPECT_EQ(state.live.load(), 0);
  EXPECT_EQ(state.clock->Advices(), 0);
}

}  // namespace
}  // namespace pantiq::test
