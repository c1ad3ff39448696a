#include "pantiq/core/PQMultiInput.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

// Two to three inputs; sends the frame of the first input that has one and logs what the base asks of it.
class Mixer final : public TPQMultiInput {
 public:
  explicit Mixer(int inputs = 2) : TPQMultiInput(nullptr), InputPins(this, true) {
    for (int i = 0; i < inputs; ++i) {
      auto* pin = new TPQJCQueuedImageSinkPin(*this, JCDispatch::To<&TPQMultiInput::SinkDispatch>(this));
      AddInput(*pin);
      InputPins.Add(*pin);
    }
  }
  ~Mixer() override { BeforeDestructionOnce(); }
  TJCSinkPinList InputPins;
  bool start_at_once = false, stop_on_all = true;
  std::string log;
  std::atomic<int> inside{0}, overlaps{0}, made{0};
  TPQJCQueuedImageSinkPin& Pin(int i) { return *static_cast<TPQJCQueuedImageSinkPin*>(InputPins.GetPin(i)); }

 protected:
  void CalculateSendStart(double rate, std::int32_t width, std::int32_t height) override {
    log += "start " + std::to_string(width) + "x" + std::to_string(height) + " " + std::to_string(static_cast<int>(rate)) + ";";
    OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(width, height, pq_delay(rate), vfRGB24));
    TPQMultiInput::CalculateSendStart(rate, width, height);
  }
  void CalculateSendOutput() override {
    if (inside++ != 0) ++overlaps;
    ++made;
    for (TPQJCQueuedImageSinkPin* pin : Inputs()) {
      if (pin->Buffer) {
        OutputPin.SubmitBuffer(PQMakeRef<TPQImageBuffer>(*pin->Buffer));
        break;
      }
    }
    --inside;
  }
  void IntStop() override {
    log += "stop;";
    TPQMultiInput::IntStop();
    Running = false;
  }
  bool GetStopOnAll() const override { return stop_on_all; }
  bool StartIfNotAllRunning() const override { return start_at_once; }
};

struct Bench {
  std::array<TestSource, 3> sources;
  Mixer mixer;
  TestSink sink;
  explicit Bench(int inputs = 2, int connected = 2) : mixer(inputs) {
    for (int i = 0; i < connected; ++i) {
      EXPECT_TRUE(sources[static_cast<std::size_t>(i)].OutputPin.Connect(mixer.Pin(i)).Ok());
    }
    EXPECT_TRUE(mixer.OutputPin.Connect(sink.InputPin).Ok());
  }
  // Frames made out of one frame on input i.
  int Send(std::size_t i, TPQVideoFormat format = vfRGB24) {
    const int before = mixer.made;
    sources[i].OutputPin.SubmitBuffer(MakeFrame(4, 2, format));
    return mixer.made - before;
  }
};

TEST(PQMultiInput, StartsWithTheLastInputAndStopsWithTheLast) {
  Bench b;
  b.sources[0].Start(64, 10, 400000, vfGrayScale);
  EXPECT_EQ(b.mixer.log, "");
  b.sources[1].Start(32, 48, 1000000);
  EXPECT_EQ(b.mixer.log, "start 64x48 25;") << "the largest of each";
  b.sources[1].Start(320, 480, 400000);
  EXPECT_EQ(b.mixer.log, "start 64x48 25;") << "a later start only changes the record of its pin";
  EXPECT_EQ(b.mixer.Pin(1).Width, 320);
  EXPECT_EQ(b.mixer.Pin(0).Format, vfGrayScale);
  b.sources[0].OutputPin.Stop();
  EXPECT_EQ(b.mixer.log, "start 64x48 25;");
  b.sources[1].OutputPin.Stop();
  EXPECT_EQ(b.mixer.log, "start 64x48 25;stop;");
  b.sources[1].OutputPin.Stop();
  EXPECT_EQ(b.mixer.log, "start 64x48 25;stop;") << "nothing runs any more";
  EXPECT_EQ(b.sink.log.back(), "TJCStopOperation");
}

TEST(PQMultiInput, StartsWithTheFirstAndStopsWithTheFirstIfAskedTo) {
  Bench b;
  b.mixer.start_at_once = true;
  b.mixer.stop_on_all = false;
  b.sources[1].Start(8, 8);
  EXPECT_EQ(b.mixer.log, "start 8x8 25;");
  EXPECT_EQ(b.Send(1), 1) << "the other input has not started";
  EXPECT_EQ(b.Send(1), 1);
  b.sources[0].Start(8, 8);
  EXPECT_EQ(b.Send(1), 0) << "now a whole set is needed";
  EXPECT_EQ(b.Send(0), 1);
  b.sources[0].OutputPin.Stop();
  EXPECT_EQ(b.mixer.log, "start 8x8 25;stop;");
}

TEST(PQMultiInput, EqualRatesGiveOneFrameForEachSet) {
  Bench b(3);  // the third input is free and takes no part
  b.sources[0].Start(4, 2);
  b.sources[1].Start(4, 2);
  EXPECT_EQ(b.Send(0), 0);
  EXPECT_EQ(b.Send(0), 0);
  EXPECT_EQ(b.Send(1, vfGrayScale), 1);
  EXPECT_EQ(b.mixer.Pin(1).Buffer->GetFormat(), vfRGB24) << "whatever came in";
  EXPECT_EQ(b.Send(1), 0);
  EXPECT_EQ(b.Send(0), 1);
}

TEST(PQMultiInput, TheFastestInputSetsThePace) {
  Bench b;
  b.sources[0].Start(4, 2, 400000);
  b.sources[1].Start(4, 2, 1000000);
  EXPECT_EQ(b.Send(0), 0);
  EXPECT_EQ(b.Send(1), 0) << "the slower input makes no frame";
  EXPECT_EQ(b.Send(0), 1);
  EXPECT_EQ(b.Send(0), 1) << "the slower one's last frame is used again";
  EXPECT_EQ(b.Send(1), 0);
  EXPECT_EQ(b.Send(0), 1);

  Bench c;  // rates that differ in the last bit differ
  c.sources[0].Start(4, 2, 400000);
  auto start = PQMakeRef<TJCStartFrameOperation>(4, 2, 400000, vfRGB24);
  start->Rate = std::nextafterf(start->Rate, 0);
  c.sources[1].OutputPin.Notify(*start);
  EXPECT_EQ(c.Send(1), 0);
  EXPECT_EQ(c.Send(0), 1);
  EXPECT_EQ(c.Send(0), 1);
}

TEST(PQMultiInput, OneConnectedInputGoesStraightThrough) {
  Bench b(2, 1);
  EXPECT_EQ(b.Send(0), 1) << "a frame before any start";
  b.sources[0].Start(4, 2);
  EXPECT_EQ(b.Send(0), 1);
  b.sources[0].OutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  EXPECT_EQ(b.sink.log.back(), "TJCRWPauseOperation");
  b.sources[0].OutputPin.SubmitBuffer(PQMakeRef<TRWBlockBuffer>(10));  // no frame: an empty one
  EXPECT_EQ(b.sink.log.back(), "frame 0x0 0");
}

TEST(PQMultiInput, OperationsFromBelowGoUpEveryInputOrDownAgain) {
  Bench b;
  b.sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
  EXPECT_EQ(b.sources[0].came_up, std::vector<std::string>{"TJCStartOperation"});
  EXPECT_EQ(b.sources[1].came_up, std::vector<std::string>{"TJCStartOperation"});

  Bench none(2, 0);
  none.sink.InputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(9, 9, 400000, vfRGB24));
  none.sink.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
  EXPECT_EQ(none.sink.log, (std::vector<std::string>{"TJCPumpRequestOperation", "TJCStartFrameOperation 9x9 400000 0",
                                                     "TJCStopOperation"}));
  EXPECT_EQ(none.mixer.Pin(0).Width, 0) << "what comes up touches no input's record";
}

TEST(PQMultiInput, InputsOnSeveralThreadsNeverOverlap) {
  constexpr int kFrames = 300;
  Bench b(3, 3);
  b.sink.on_op = [](IJCNotifyOperation&) {};
  for (TestSource& source : b.sources) source.Start(4, 2);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < 3; ++i) {
    threads.emplace_back([&b, i] {
      for (int n = 0; n < kFrames; ++n) b.sources[i].OutputPin.SubmitBuffer(MakeFrame(4, 2));
      b.sources[i].OutputPin.Stop();
    });
  }
  std::thread starts([&b] {
    for (int n = 0; n < kFrames; ++n) b.sink.InputPin.Notify(*PQMakeRef<TJCMasterPumpOperation>(nullptr));
  });
  for (std::thread& thread : threads) thread.join();
  starts.join();
  EXPECT_EQ(b.mixer.overlaps, 0);
  EXPECT_GE(b.mixer.made, 1);
  EXPECT_LE(b.mixer.made, kFrames) << "never more than one output for a set";
  EXPECT_EQ(b.mixer.log, "start 4x2 25;stop;");
}

TEST(PQMultiInput, DiesWhileItsInputsRun) {
  for (int round = 0; round < 20; ++round) {
    std::array<TestSource, 2> sources;
    TestSink sink;
    sink.on_op = [](IJCNotifyOperation&) {};
    auto mixer = std::make_unique<Mixer>();
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(sources[static_cast<std::size_t>(i)].OutputPin.Connect(mixer->Pin(i)).Ok());
    ASSERT_TRUE(mixer->OutputPin.Connect(sink.InputPin).Ok());
    std::atomic<bool> end{false};
    std::vector<std::thread> threads;
    for (TestSource& source : sources) {
      threads.emplace_back([&source, &end] {
        source.Start(4, 2);
        while (!end) source.OutputPin.SubmitBuffer(MakeFrame(4, 2));
      });
    }
    while (sink.ops < 5) std::this_thread::yield();
    mixer.reset();
    end = true;
    for (std::thread& thread : threads) thread.join();
  }
}

}  // namespace
}  // namespace pantiq
