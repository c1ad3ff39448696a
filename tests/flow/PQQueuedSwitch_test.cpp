#include "pantiq/flow/PQQueuedSwitch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

#include "pantiq/host/PQReport.h"
#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

using Log = std::vector<std::string>;

// A source of frames and sound that a test drives.
struct Feed final : TComponent {
  Feed()
      : OutputPin(*this, JCDispatch::To<&Feed::Dispatch>(this)),
        AudioOutputPin(*this, JCDispatch::To<&Feed::AudioDispatch>(this)) {}
  ~Feed() override { BeforeDestructionOnce(); }
  TPQJCImageSourcePin OutputPin;
  THTJCAudioSourcePin AudioOutputPin;
  std::mutex mutex;
  Log came_up;
  std::function<void(IJCNotifyOperation&)> on_op;

  void Start(std::int64_t delay = 400000) {
    OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(2, 2, delay, vfRGB24));
  }
  void Frame(int number) {
    PQImageRef frame = PQMakeRef<TPQImageBuffer>(1, 1, vfGrayScale);
    frame->GetTimeCode().SetFrame(number);
    OutputPin.SubmitBuffer(std::move(frame));
  }
  void StartAudio() { AudioOutputPin.Notify(*PQMakeRef<TJCStartWaveOperation>(25.0, THTWaveFormat{2, 16, 48000})); }
  void Sound(int number) {
    auto sound = PQMakeRef<THTAudioBuffer>(number, 2, 16);
    AudioOutputPin.SubmitBuffer(std::move(sound));
  }
  void Pump(bool video) {
    (video ? static_cast<TRWJCSourcePin&>(OutputPin) : AudioOutputPin).Notify(*PQMakeRef<TJCStartPumpOperation>());
  }

 private:
  void BeforeDestruction() override {
    OutputPin.Disconnect();
    AudioOutputPin.Disconnect();
  }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    {
      std::lock_guard guard(mutex);
      came_up.push_back(op.Tag().Name());
    }
    if (on_op) on_op(op);
    return {};
  }
  TJCNotifyResult AudioDispatch(TJCPin&, const TGUID*, IJCNotifyOperation&, TJCNotifyFlags) { return {}; }
};

// What arrives, in words; on any thread.
struct Listener final : TComponent {
  Listener()
      : InputPin(*this, JCDispatch::To<&Listener::Dispatch>(this)),
        AudioInputPin(*this, JCDispatch::To<&Listener::Dispatch>(this)) {}
  ~Listener() override { BeforeDestructionOnce(); }
  TPQJCImageSinkPin InputPin;
  THTJCAudioSinkPin AudioInputPin;
  std::function<void(IJCNotifyOperation&)> on_op;
  Log Take() {
    std::lock_guard guard(mutex_);
    return std::exchange(log_, {});
  }

 private:
  void BeforeDestruction() override {
    InputPin.Disconnect();
    AudioInputPin.Disconnect();
  }
  TJCNotifyResult Dispatch(TJCPin& pin, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    std::string line = &pin == &AudioInputPin ? "audio " : "";
    if (const auto* start = JCOperation<TJCStartFrameOperation>(op)) {
      line += "start " + std::to_string(start->FrameDelay);
    } else if (const auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      line += &pin == &AudioInputPin
                  ? std::to_string(supplied->Buffer->GetCount())
                  : std::to_string(static_cast<const IPQImageBuffer&>(*supplied->Buffer).GetTimeCode().GetFrame());
    } else {
      line += op.Tag().Name() + 3;
    }
    {
      std::lock_guard guard(mutex_);
      log_.push_back(line);
    }
    if (on_op) on_op(op);
    return {};
  }
  std::mutex mutex_;
  Log log_;
};

struct QueuedSwitch : testing::Test {
  Feed a, b;
  Listener out;
  TPQQueuedSwitch mixer;
  TPQQueuedInputs& channels = mixer.GetInputChannels();

  void SetUp() override {
    for (Feed* feed : {&a, &b}) {
      TPQQueuedInputItem* item = channels.Add();
      item->GetQueuing().SetEnabled(true);
      ASSERT_TRUE(feed->OutputPin.Connect(item->GetInputPin()).Ok());
      ASSERT_TRUE(feed->AudioOutputPin.Connect(item->GetAudioInputPin()).Ok());
    }
    ASSERT_TRUE(mixer.OutputPin.Connect(out.InputPin).Ok());
  }
  Log Drained() {
    mixer.Drain();
    return out.Take();
  }
};

TEST_F(QueuedSwitch, PlaysItsChannelsInTurn) {
  int switches = 0;
  mixer.SetOnSwitch([&](TPQQueuedSwitch& sender) {
    EXPECT_EQ(&sender, &mixer);
    ++switches;
  });
  a.Start(), b.Start(333333);
  b.Frame(100), b.Frame(101);
  EXPECT_EQ(Drained(), Log{"start 400000"}) << "one stream, whatever the next channel announces";
  a.Frame(0), a.Frame(1);
  EXPECT_EQ(Drained(), (Log{"0", "1"}));
  EXPECT_EQ(channels.GetItem(1)->GetVideoQueued(), 2);
  a.OutputPin.Stop();
  b.Frame(102);  // a wake; b's queue goes out a frame for each of the wakes that were pending
  b.Frame(103);
  mixer.Drain();
  EXPECT_EQ(mixer.GetActiveChannelIndex(), 1);
  EXPECT_EQ(switches, 1);
  EXPECT_EQ(Drained(), (Log{"100", "101"}));
  for (int n = 104; n < 108; ++n) b.Frame(n);
  EXPECT_EQ(Drained(), (Log{"102", "103", "104", "105"}));
  b.OutputPin.Stop();
  EXPECT_EQ(Drained(), Log{"StopOperation"});
  EXPECT_EQ(channels.GetItem(1)->GetVideoQueued(), 2) << "what is queued stays";
  b.Start();
  b.Frame(108), b.Frame(109);
  EXPECT_EQ(Drained(), (Log{"start 400000", "106", "107"})) << "and leaves after the next start";
}

TEST_F(QueuedSwitch, GoesBackToTheFirstChannelAfterTheLastAndStaysWithAnOnlyOne) {
  a.Start(), b.Start();
  a.OutputPin.Stop();
  b.Frame(0);
  EXPECT_EQ(Drained(), (Log{"start 400000", "0"}));
  b.OutputPin.Stop();
  a.Start();
  a.Frame(1);  // wakes the switch, whose channel has ended
  EXPECT_EQ(Drained(), (Log{"StopOperation", "1"})) << "channel 0 was not the active one when it started";
  EXPECT_EQ(mixer.GetActiveChannelIndex(), 0);
  channels.Delete(1);
  int switches = 0;
  mixer.SetOnSwitch([&](TPQQueuedSwitch&) { ++switches; });
  a.OutputPin.Stop();
  a.Frame(2), a.Frame(3);
  mixer.Drain();
  EXPECT_EQ(switches, 0);
  EXPECT_EQ(mixer.GetActiveChannelIndex(), 0);
}

TEST_F(QueuedSwitch, WithoutQueuingAFrameTakesThePlaceOfTheLast) {
  channels.GetItem(1)->GetQueuing().SetEnabled(false);
  a.Start(), b.Start();
  b.Frame(0), b.Frame(1), b.Frame(2);
  EXPECT_EQ(channels.GetItem(1)->GetVideoQueued(), 1);
  mixer.SetActiveChannelIndex(0);
  EXPECT_EQ(channels.GetItem(1)->GetVideoQueued(), 0) << "cleared, for it is not the active one";
  EXPECT_EQ(Drained(), Log{"start 400000"});
}

TEST_F(QueuedSwitch, ThePreservedFrameLeavesAgainWithEachWake) {
  channels.GetItem(1)->GetQueuing().SetEnabled(false);
  channels.GetItem(1)->GetQueuing().SetPreserveLastFrame(true);
  a.Start(), b.Start();
  mixer.SetActiveChannelIndex(1);
  EXPECT_EQ(Drained(), Log{"start 400000"}) << "nothing to repeat yet";
  b.Frame(7);
  EXPECT_EQ(Drained(), Log{"7"});
  a.Frame(0), a.Frame(1);
  EXPECT_EQ(Drained(), (Log{"7", "7"}));
  mixer.SetActiveChannelIndex(0);
  Drained();
  b.Frame(8);
  Drained();
  mixer.SetActiveChannelIndex(1);  // goes out at once
  EXPECT_EQ(Drained(), Log{"8"});
}

TEST_F(QueuedSwitch, TellsOfTheThresholdsAndDropsWhatAListenerThrows) {
  int above = 0, below = 0;
  std::vector<std::string> told;
  SetReportListener([&](const PQReportEntry& entry) { told.push_back(entry.text + ": " + entry.detail); });
  channels.GetItem(1)->SetOnThresholdMax([&](TPQQueuedSwitch&) {
    ++above;
    throw std::runtime_error("too many");
  });
  channels.GetItem(0)->SetThresholdMin(1);
  channels.GetItem(0)->SetOnThresholdMin([&](TPQQueuedSwitch&) {
    ++below;
    throw std::runtime_error("too few");
  });
  mixer.SetPaused(true);
  a.Start(), b.Start();
  for (int n = 0; n < 100; ++n) b.Frame(n);
  EXPECT_EQ(above, 0);
  b.Frame(100);
  EXPECT_EQ(above, 1) << "101 frames";
  a.Frame(0), a.Frame(1);
  EXPECT_EQ(Drained(), Log{"start 400000"}) << "paused";
  mixer.SetPaused(false);
  a.Frame(2);
  a.Frame(3);
  a.Frame(4);
  EXPECT_EQ(Drained(), (Log{"0", "1", "2"}));
  a.Frame(5), a.Frame(6);
  mixer.Drain();
  EXPECT_EQ(below, 0);
  channels.GetItem(0)->SetThresholdMin(3);
  a.Frame(7);
  mixer.Drain();
  SetReportListener({});
  EXPECT_EQ(below, 1) << "two wait";
  EXPECT_EQ(out.Take(), (Log{"3", "4", "5"})) << "nothing is lost";
  ASSERT_EQ(told.size(), 2u);
  EXPECT_EQ(told[0], "OnThresholdMax threw an exception, which is dropped: too many");
}

TEST_F(QueuedSwitch, SetsThePaceByItsOwnClock) {
  RWSimulatedClock clock;
  channels.GetItem(0)->SetThresholdMin(2);
  channels.GetItem(1)->SetThresholdMin(1);
  auto request = PQMakeRef<TJCPumpRequestOperation>();
  a.OutputPin.Notify(*request);
  EXPECT_EQ(request->Master, &mixer);
  EXPECT_EQ(request->Kind, 3);
  EXPECT_EQ(out.Take(), Log{"PumpRequestOperation"}) << "downstream is asked first";
  int next = 0;
  a.on_op = [&](IJCNotifyOperation& op) {
    if (const auto* pump = JCOperation<TJCMasterPumpOperation>(op)) {
      EXPECT_EQ(pump->Master, &mixer);
      if (next < 3) a.Frame(next++);
    }
  };
  a.Start();
  EXPECT_EQ(clock.ItemsCount(), 0);
  a.Pump(true);
  EXPECT_EQ(clock.ItemsCount(), 1);
  EXPECT_EQ(out.Take(), (Log{"start 400000", "StartPumpOperation"}));
  a.Pump(true);
  EXPECT_EQ(Drained(), Log{}) << "once";
  for (const Log& wanted : {Log{}, Log{"0"}, Log{"1"}, Log{"2"}, Log{}}) {
    clock.Advance(39);
    EXPECT_EQ(Drained(), Log{}) << "a frame time is 40 ms";
    clock.Advance(1);
    EXPECT_EQ(Drained(), wanted);
  }
  a.OutputPin.Stop();
  EXPECT_EQ(clock.ItemsCount(), 0);
  EXPECT_EQ(out.Take(), Log{"StopOperation"});
}

TEST_F(QueuedSwitch, WaitsForItsSoundBeforeThePumpAndSendsBoth) {
  ASSERT_TRUE(mixer.AudioOutputPin.Connect(out.AudioInputPin).Ok());
  a.Start();
  a.Pump(true);
  EXPECT_EQ(out.Take(), Log{"start 400000"});
  a.StartAudio();
  a.Pump(false);
  EXPECT_EQ(out.Take(), (Log{"audio StartWaveOperation", "StartPumpOperation", "audio StartPumpOperation"}));
  a.AudioOutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
  a.AudioOutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
  EXPECT_EQ(out.Take(), Log{"audio RWResumeOperation"}) << "once in a stream";
  a.Frame(0);
  EXPECT_EQ(Drained(), Log{"0"});
  a.Sound(5);
  EXPECT_EQ(Drained(), Log{"audio 5"});
  a.OutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  EXPECT_EQ(out.Take(), (Log{"RWPauseOperation", "audio RWPauseOperation"}));
  a.Frame(1);
  EXPECT_EQ(Drained(), Log{});
  a.OutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
  EXPECT_EQ(out.Take(), Log{"audio RWResumeOperation"});
  a.Frame(2);
  EXPECT_EQ(Drained(), (Log{"1", "2"})) << "two streams: two of each at a wake";
  a.AudioOutputPin.Stop();
  a.OutputPin.Stop();
  EXPECT_EQ(Drained(), (Log{"audio StopOperation", "StopOperation"}));
}

TEST_F(QueuedSwitch, DoesWithoutASoundThatIsIgnored) {
  ASSERT_TRUE(mixer.AudioOutputPin.Connect(out.AudioInputPin).Ok());
  a.Start();
  a.AudioOutputPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
  a.Pump(true);
  EXPECT_EQ(out.Take(),
            (Log{"start 400000", "audio IgnoreStreamOperation", "StartPumpOperation", "audio StartPumpOperation"}));
  a.Sound(5);
  EXPECT_EQ(channels.GetItem(0)->GetAudioQueued(), 0);
}

TEST_F(QueuedSwitch, PassesOnWhatComesUp) {
  a.came_up.clear(), b.came_up.clear();
  out.InputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));
  out.InputPin.Notify(*PQMakeRef<TJCStartOperation>());  // of no rate: not for it
  out.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
  auto request = PQMakeRef<TJCPumpRequestOperation>();
  out.InputPin.Notify(*request);
  EXPECT_EQ(request->Kind, 0) << "its level is not above the request's";
  request->Level = -1;
  out.InputPin.Notify(*request);
  EXPECT_EQ(request->Kind, 2);
  EXPECT_EQ(request->Master, &mixer);
  const Log wanted = {"TJCStartSampleRateOperation", "TJCStopOperation", "TJCPumpRequestOperation",
                      "TJCPumpRequestOperation"};
  EXPECT_EQ(a.came_up, wanted);
  EXPECT_EQ(b.came_up, wanted);
}

TEST_F(QueuedSwitch, KeepsUpToAHundredForAnotherMaster) {
  a.Start(), b.Start();
  int next = 0;
  a.on_op = [&](IJCNotifyOperation& op) {
    if (JCOperation<TJCMasterPumpOperation>(op) != nullptr) a.Frame(next++);
  };
  mixer.SetPaused(true);
  for (int i = 0; i < 150; ++i) out.InputPin.MasterPump(&out);
  EXPECT_EQ(channels.GetItem(0)->GetVideoQueued(), 100);
}

TEST_F(QueuedSwitch, TheIndexStaysWithinTheChannels) {
  mixer.SetActiveChannelIndex(9);
  EXPECT_EQ(mixer.GetActiveChannelIndex(), 1);
  EXPECT_TRUE(channels.GetItem(1)->GetActive());
  channels.GetItem(0)->SetActive(false);  // whatever is written
  EXPECT_TRUE(channels.GetItem(0)->GetActive());
  mixer.SetActiveChannelIndex(-4);
  EXPECT_EQ(mixer.GetActiveChannelIndex(), 0);
  channels.GetItem(1)->SetIndex(0);
  EXPECT_EQ(channels.GetItem(0)->GetInputPin().GetSourcePin(), &b.OutputPin);
  EXPECT_EQ(mixer.InputPins.GetPin(0), &channels.GetItem(0)->GetInputPin());
  channels.GetItem(0)->SetIndex(7);
  EXPECT_EQ(mixer.InputPins.GetCount(), 2);
  channels.Clear();
  mixer.SetActiveChannelIndex(3);
  EXPECT_EQ(mixer.GetActiveChannelIndex(), -1);
  EXPECT_EQ(mixer.InputPins.GetCount(), 0);
  a.Frame(0);
  out.InputPin.MasterPump(&out);
  EXPECT_EQ(Drained(), Log{});
}

TEST_F(QueuedSwitch, APendingCountThatNoQueueCoversMakesOneRound) {
  int switches = 0;
  mixer.SetOnSwitch([&](TPQQueuedSwitch&) { ++switches; });
  a.StartAudio(), b.StartAudio();
  channels.GetItem(1)->GetQueuing().SetEnabled(false);
  b.Sound(4);  // counted, not queued
  mixer.Drain();
  a.AudioOutputPin.Stop(), b.Start(), b.OutputPin.Stop();
  b.AudioOutputPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
  b.AudioOutputPin.Stop();
  a.Frame(0);
  mixer.Drain();
  EXPECT_LE(switches, 3);
}

// Destroys the switch from inside the event, on the switch's own thread.
TEST(QueuedSwitchAlone, MayBeDestroyedFromItsEvent) {
  Feed a, b;
  std::atomic<bool> gone{false};
  PQOwned<TPQQueuedSwitch> mixer = PQMake<TPQQueuedSwitch>();
  ASSERT_TRUE(a.OutputPin.Connect(mixer->GetInputChannels().Add()->GetInputPin()).Ok());
  ASSERT_TRUE(b.OutputPin.Connect(mixer->GetInputChannels().Add()->GetInputPin()).Ok());
  a.Start(), b.Start();
  mixer->SetOnSwitch([&](TPQQueuedSwitch&) {
    mixer.reset();
    gone = true;
    gone.notify_all();
  });
  a.OutputPin.Stop();
  b.Frame(0);
  gone.wait(false);
}

int LongFrames() { return std::getenv("PANTIQ_TEST_LONG") != nullptr ? 100000 : 5000; }

// Two channels on threads of their own, another thread that pauses, every frame in order.
TEST_F(QueuedSwitch, DeliversEveryFrameInOrderWhateverTheTiming) {
  const int frames = LongFrames();
  std::atomic<bool> done{false};
  std::vector<int> got[2];
  out.on_op = [&](IJCNotifyOperation& op) {
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      const int number = static_cast<const IPQImageBuffer&>(*supplied->Buffer).GetTimeCode().GetFrame();
      got[number & 1].push_back(number >> 1);
    }
  };
  const auto feed = [&](Feed& from, int which) {
    std::mt19937 random(static_cast<unsigned>(which + 1));
    from.Start();
    for (int n = 0; n < frames; ++n) {
      from.Frame(n * 2 + which);
      if (random() % 64 == 0) {  // an ended channel hands over
        from.OutputPin.Stop();
        if (random() % 2 == 0) std::this_thread::yield();
        from.Start();
      }
    }
  };
  a.Start(), b.Start();
  std::thread first([&] { feed(a, 0); }), second([&] { feed(b, 1); });
  std::thread hand([&] {
    std::mt19937 random(9);
    while (!done) {
      mixer.SetPaused(random() % 4 == 0);
      if (random() % 8 == 0) mixer.SetActiveChannelIndex(static_cast<int>(random() % 2));
      std::this_thread::yield();
    }
    mixer.SetPaused(false);
  });
  first.join(), second.join();
  done = true;
  hand.join();
  mixer.Drain();
  for (const int which : {0, 1}) {
    const auto left = static_cast<std::size_t>(channels.GetItem(which)->GetVideoQueued());
    EXPECT_EQ(got[which].size() + left, static_cast<std::size_t>(frames)) << "what did not leave is queued";
    for (std::size_t n = 0; n < got[which].size(); ++n) ASSERT_EQ(got[which][n], static_cast<int>(n));
  }
  EXPECT_FALSE(got[0].empty() && got[1].empty());
}

// Stops, disconnections and destruction while frames and ticks run.
TEST(QueuedSwitchAlone, EndsAtAnyMoment) {
  std::mt19937 random(5);
  for (int round = 0; round < 24; ++round) {
    Feed a, b;
    Listener out;
    PQOwned<TPQQueuedSwitch> mixer = PQMake<TPQQueuedSwitch>();
    for (Feed* feed : {&a, &b}) {
      TPQQueuedInputItem* item = mixer->GetInputChannels().Add();
      item->GetQueuing().SetEnabled(round % 2 == 0);
      ASSERT_TRUE(feed->OutputPin.Connect(item->GetInputPin()).Ok());
      ASSERT_TRUE(feed->AudioOutputPin.Connect(item->GetAudioInputPin()).Ok());
    }
    ASSERT_TRUE(mixer->OutputPin.Connect(out.InputPin).Ok());
    ASSERT_TRUE(mixer->AudioOutputPin.Connect(out.AudioInputPin).Ok());
    std::atomic<bool> done{false};
    if (round % 3 == 0) a.OutputPin.Notify(*PQMakeRef<TJCPumpRequestOperation>());
    const auto run = [&](Feed& feed) {
      feed.Start(10000), feed.StartAudio(), feed.Pump(true);
      for (int n = 0; !done; ++n) {
        feed.Frame(n);
        if (n % 3 == 0) feed.Sound(n % 5);
        if (n % 100 == 99) feed.OutputPin.Stop(), feed.Start(10000);
      }
    };
    std::thread first([&] { run(a); }), second([&] { run(b); });
    for (unsigned i = 0; i < random() % 200; ++i) std::this_thread::yield();
    switch (round % 4) {
      case 0:
        break;
      case 1:
        mixer->GetInputChannels().Delete(0);
        break;
      case 2:
        out.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
        break;
      default:
        mixer->OutputPin.Disconnect();
    }
    mixer.reset();
    done = true;
    first.join(), second.join();
  }
}

}  // namespace
}  // namespace pantiq
