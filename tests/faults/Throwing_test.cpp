// Neighbours that throw: whatever comes out of a sink or a source, at whatever operation, goes to the sender or is
// dropped where there is none; no lock stays taken, and the graph can be stopped, started again or destroyed.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQReport.h"
#include "support/AnyBench.h"
#include "support/FakeMedia.h"

namespace pantiq::test {
namespace {

struct Nothing {};

enum class Thrown { Exception, NoMemory, Foreign };

void Throw(Thrown what) {
  if (what == Thrown::Exception) throw std::runtime_error("a neighbour fails");
  if (what == Thrown::NoMemory) throw std::bad_alloc();
  throw Nothing();
}

// True if it threw.
template <class Work>
bool Throws(Work work) {
  try {
    work();
  } catch (...) {
    return true;
  }
  return false;
}

// Every lock of the component can be had by another thread. One that cannot hangs the test.
void LocksAreFree(Bench& bench) {
  EXPECT_EQ(JCSectionDepth(), 0);
  std::thread([&] {
    const auto global = JCGlobalLock().WriteLock();
    for (TJCPin* pin : JCPublishedPins(*bench.component)) {
      const auto section = pin->WriteLock();
    }
  }).join();
}

const PQClassTag* const kDown[] = {&TJCPumpRequestOperation::kTag,     &TJCStartFrameOperation::kTag,
                                   &TJCStartSampleRateOperation::kTag, &TJCStartPumpOperation::kTag,
                                   &TJCSuppliedBufferOperation::kTag,  &TJCStopOperation::kTag};
const PQClassTag* const kUp[] = {&TJCStartSampleRateOperation::kTag, &TJCMasterPumpOperation::kTag,
                                 &TJCStopOperation::kTag};

// The sums of what comes out of a whole stream.
class Stream {
 public:
  explicit Stream(const std::string& name) : name_(name), settings_(SettingsOf(name)) {
    if (name == "TPQColorMerge") bench.format = vfGrayScale;
    bench.on_op = [this](IJCNotifyOperation& op) {
      if (const auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
        if (name_ == "TPQTransparentColor") {
          ++sum_;
        } else if (name_ != "TPQQueuedSwitch") {
          sum_ = Mix(sum_, SumOf(*supplied->Buffer));
        } else if (PQCast<IPQImageBuffer>(supplied->Buffer.Get()) != nullptr) {
          sum_ = SumOf(*supplied->Buffer);
        }
      }
      if (at_ != nullptr && op.Tag().Is(*at_) && below_) {
        ++thrown;
        Throw(what_);
      }
    };
    bench.Build(name, settings_);
    for (const auto& feed : bench.feeds) {
      feed->on_op = [this](IJCNotifyOperation& op) {
        if (at_ == nullptr || !op.Tag().Is(*at_) || below_) return;
        ++thrown;
        Throw(what_);
      };
    }
  }
  void ThrowAt(const PQClassTag* at, Thrown what, bool below) { at_ = at, what_ = what, below_ = below; }
  // A stream from its start to its stop; each call by itself, as a sender goes on after an exception.
  int Play(int width, int height) {
    int caught = 0;
    caught += Throws([&] { bench.AskToStart(); });
    caught += Throws([&] { bench.Start(width, height); });
    for (int i = 0; i < 4; ++i) caught += Throws([&] { bench.Send<Nothing>(width, height, i); });
    caught += Throws([&] { bench.StopFromAbove(); });
    caught += Throws([&] { bench.StopFromBelow(); });
    return caught;
  }
  // The sum of a stream of its own, after one that settles what queues and delays may hold.
  std::uint64_t Sum() {
    ThrowAt(nullptr, Thrown::Exception, true);
    for (int round = 0; round < 2; ++round) {
      bench.Set(settings_);
      sum_ = 0;
      EXPECT_EQ(Play(14, 10), 0);
    }
    return sum_;
  }
  Bench bench;
  std::atomic<int> thrown{0};

 private:
  const std::string name_, settings_;
  std::atomic<const PQClassTag*> at_{nullptr};
  std::atomic<Thrown> what_{Thrown::Exception};
  std::atomic<bool> below_{true};
  std::atomic<std::uint64_t> sum_{0};
};

class Throwing : public testing::Test {
 protected:
  static void SetUpTestSuite() { RegisterAll(); }
};

TEST_F(Throwing, NeighboursOfEveryClass) {
  int cases = 0, thrown = 0;
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
    if (NeedsAPlatform(info->Name())) continue;
    SCOPED_TRACE(info->Name());
    const std::uint64_t expected = Stream(info->Name()).Sum();
    for (const bool below : {true, false}) {
      for (const PQClassTag* at : below ? std::span<const PQClassTag* const>(kDown) : kUp) {
        for (const Thrown what : {Thrown::Exception, Thrown::NoMemory, Thrown::Foreign}) {
          SCOPED_TRACE(std::string(below ? "a sink" : "a source") + " throws at " + at->Name());
          for (const bool destroyed_at_once : {false, true}) {
            Stream stream(info->Name());
            stream.ThrowAt(at, what, below);
            stream.Play(12, 8);
            ++cases, thrown += stream.thrown.load();
            LocksAreFree(stream.bench);
            if (!destroyed_at_once) EXPECT_EQ(stream.Sum(), expected);
          }
        }
      }
    }
  }
  std::printf("%d cases, %d exceptions\n", cases, thrown);
  EXPECT_GT(thrown, cases / 2);
}

// A generator that nobody asks has a thread of its own: there is no sender to tell, frames are lost one by one.
TEST_F(Throwing, AGeneratorsOwnThreadGoesOn) {
  for (const Thrown what : {Thrown::Exception, Thrown::NoMemory, Thrown::Foreign}) {
    std::mutex mutex;
    std::condition_variable changed;
    int frames = 0, told = 0;
    SetReportListener([&](const PQReportEntry& entry) {
      const std::lock_guard guard(mutex);
      told += entry.text == "a frame was lost";
    });
    {
      auto generator = PQCreateComponent("TPQJaehneGen");
      PQSetProperty(*generator, *generator->ClassInfo().Find("Rate"), PQValue(1000.0)).IgnoreError();
      Drain sink(kPQImageStream);
      sink.on_op = [&](IJCNotifyOperation& op) {
        if (JCOperation<TJCSuppliedBufferOperation>(op) == nullptr) return;
        std::unique_lock guard(mutex);
        ++frames;
        changed.notify_all();
        guard.unlock();
        Throw(what);
      };
      for (TJCPin* pin : JCPublishedPins(*generator)) ASSERT_TRUE(pin->Connect(sink.InputPin).Ok());
      sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
      std::unique_lock guard(mutex);
      changed.wait(guard, [&] { return frames >= 5; });
      guard.unlock();
      sink.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
    }
    SetReportListener({});
    EXPECT_GE(told, 4);
  }
}

// A player's frames come on its own thread, and after the last there is no other to wake it.
TEST_F(Throwing, APlayersStreamComesToItsEnd) {
  FakeModule module;
  module.state.outputs = {FakeVideo(16, 8, 400000, 4)};
  module.state.duration = 1600000;
  std::mutex mutex;
  std::condition_variable changed;
  int frames = 0, stops = 0;
  Bench bench;
  bench.Build("TPQASFPlayer", "FileName = 'in.asf'\n");
  for (const auto& drain : bench.drains) {
    drain->on_op = [&](IJCNotifyOperation& op) {
      const bool frame = JCOperation<TJCSuppliedBufferOperation>(op) != nullptr;
      {
        const std::lock_guard guard(mutex);
        frames += frame;
        stops += &op.Tag() == &TJCStopOperation::kTag;
        changed.notify_all();
      }
      if (frame) Throw(Thrown::Foreign);
    };
  }
  bench.AskToStart();
  std::unique_lock guard(mutex);
  changed.wait(guard, [&] { return stops > 0; });
  EXPECT_EQ(frames, 4);
}

}  // namespace
}  // namespace pantiq::test
