// Components of the platform, over fakes of it: each of their allocations fails, and each call to the platform.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "Faults.h"
#include "pantiq/design/PQRegister.h"
#include "support/AnyBench.h"
#include "support/FakeCodec.h"
#include "support/FakeCodecGraph.h"
#include "support/FakeEffects.h"
#include "support/FakeMedia.h"
#include "support/FakeOutput.h"

namespace pantiq::test {
namespace {

struct Plain {};

// A stream through a component, whatever fails on its way; then another one in which nothing does. Answers how many
// buffers that one brought.
template <class Making>
void Stream(Bench& bench, const std::function<void()>& until_over) {
  const auto attempt = [](auto work) {
    try {
      work();
    } catch (const std::bad_alloc&) {
    }
  };
  attempt([&] { bench.AskToStart(); });
  attempt([&] { bench.Start(16, 8); });
  for (int i = 0; i < 3; ++i) attempt([&] { bench.Send<Making>(16, 8, i); });
  if (until_over) until_over();
  attempt([&] { bench.StopFromAbove(); });
  attempt([&] { bench.StopFromBelow(); });
}

class OverFakes : public testing::Test {
 protected:
  static void SetUpTestSuite() { RegisterAll(); }

  // The n-th call to the platform fails, for every n until none is left to fail. After each: the next start goes well.
  void EveryCall(FakeLog& log, const std::string& name, const std::string& settings,
                 const std::function<std::size_t()>& result, const std::function<void()>& until_over = {}) {
    SCOPED_TRACE(name);
    int failures = 0;
    for (int nth = 1; nth < 500; ++nth) {
      SCOPED_TRACE(nth);
      Bench bench;
      bench.Build(name, settings);
      log.Clear();
      log.FailAt(nth);
      Stream<Plain>(bench, until_over);
      const int calls = static_cast<int>(log.Calls().size());
      log.FailAt(-1);
      if (nth > calls) break;
      ++failures;
      const std::size_t before = result();
      Stream<Plain>(bench, until_over);
      EXPECT_GT(result(), before) << "after call " << nth << " failed ("
                                  << log.Calls().at(static_cast<std::size_t>(nth) - 1) << ") nothing comes through";
      if (nth % 3 == 0) bench.component.reset();  // with its neighbours still there
    }
    std::printf("%s: %d calls failed\n", name.c_str(), failures);
    EXPECT_GT(failures, 5);
  }
};

// The life of a component with each allocation failing; then it does what it always does. `settle` waits for what the
// platform's threads do.
void Life(Trial& trial, const char* name, const char* settings, const std::function<std::uint64_t()>& done,
          const std::function<void(Bench&)>& settle = {}) {
  Bench bench;
  if (!trial.Step("build", [&] { bench.Build(name, settings); })) {
    if (!trial.Persistent()) trial.Calm();
    return;
  }
  const auto play = [&](const char* what) {
    trial.Step(what, [&] { bench.AskToStart(); });
    trial.Step(what, [&] { bench.Start(16, 8); });
    for (int i = 0; i < 3; ++i) trial.Step(what, [&] { bench.Send<Undisturbed>(16, 8, i); });
    if (settle && !trial.Failed()) settle(bench);
    trial.Step(what, [&] { bench.StopFromAbove(); });
    trial.Step(what, [&] { bench.StopFromBelow(); });
  };
  play("the first stream");
  trial.Step("a setting", [&] { bench.Set(settings); });
  play("a second stream");
  if (trial.Persistent()) return;
  trial.Calm();
  const std::uint64_t before = done();
  trial.Step("set again", [&] { bench.Set(settings); });
  trial.Step("start", [&] { bench.AskToStart(); });
  trial.Step("start", [&] { bench.Start(16, 8); });
  for (int i = 0; i < 3; ++i) trial.Step("a frame", [&] { bench.Send<Undisturbed>(16, 8, i); });
  if (settle) settle(bench);
  trial.Step("stop", [&] { bench.StopFromAbove(), bench.StopFromBelow(); });
  trial.Saw(done() - before);
}

constexpr const char* kCodec = "Compressions\n  item\n    FourCC = 'FAKE'\n  end\n";
constexpr const char* kEncoder = "Compressions\n  item\n    Compressor = 'gst:element=aenc'\n  end\n";

TEST_F(OverFakes, EveryAllocationMayFail) {
  EveryAllocation("TPQVideoCompressor", [](Trial& trial) {
    std::optional<FakeCodecs> codecs;
    {
      const Undisturbed own;
      codecs.emplace();
    }
    Life(trial, "TPQVideoCompressor", kCodec, [&] { return codecs->numbers.size(); });
  });
  EveryAllocation("TPQVideoDecompressor", [](Trial& trial) {
    std::optional<FakeCodecs> codecs;
    {
      const Undisturbed own;
      codecs.emplace();
    }
    Life(trial, "TPQVideoDecompressor", "", [&] { return 1u; });
  });
  EveryAllocation("TPQASFLogger", [](Trial& trial) {
    std::optional<FakeModule> module;
    {
      const Undisturbed own;
      module.emplace();
    }
    Life(trial, "TPQASFLogger", "FileName = 'out.asf'\n", [&] { return module->state.sent.size(); });
  });
  EveryAllocation("TPQDSVideoOut", [](Trial& trial) {
    std::optional<FakeOutputModule> module;
    {
      const Undisturbed own;
      module.emplace();
    }
    Life(trial, "TPQDSVideoOut", "", [&] { return 1u; });
    const Undisturbed own;
    EXPECT_EQ(module->state.live.load(), 0);
  });
  EveryAllocation("TPQDMOEffect", [](Trial& trial) {
    std::optional<FakeEffectModule> module;
    {
      const Undisturbed own;
      module.emplace();
    }
    static const std::string settings = std::string("DMOInfo = ('") + kFakeId + "' 'Invert')\n";
    Life(trial, "TPQDMOEffect", settings.c_str(),
         [&] { return static_cast<std::uint64_t>(module->state.log.Count("Process")); });
  });
  EveryAllocation("TPQDSVideoCompressor", [](Trial& trial) {
    std::optional<FakeCodecModule> module;
    {
      const Undisturbed own;
      module.emplace();
      module->state.filters = {{"gst:element=aenc", "An encoder"}};
    }
    Life(trial, "TPQDSVideoCompressor", kEncoder, [&] { return module->state.sent.size(); });
  });
  EveryAllocation("TPQDSVideoDecompressor", [](Trial& trial) {
    std::optional<FakeCodecModule> module;
    {
      const Undisturbed own;
      module.emplace();
    }
    Life(trial, "TPQDSVideoDecompressor", "", [&] { return 1u; });
  });
  EveryAllocation("TPQASFPlayer", [](Trial& trial) {
    std::optional<FakeModule> module;
    {
      const Undisturbed own;
      module.emplace();
      module->state.outputs = {FakeVideo(16, 8, 400000, 3), FakeAudio(8000, 2, 3, 320)};
      module->state.duration = 1200000;
    }
    Life(trial, "TPQASFPlayer", "FileName = 'in.asf'\n", [&] { return 1u; });
  });
}

#ifdef PANTIQ_EXAMPLE_PLUGINS
TEST_F(OverFakes, EveryAllocationOfAPlugInsHostMayFail) {
  const std::string file = "FilterFileName = '" PANTIQ_EXAMPLE_PLUGINS "/waves.so'\n";
  EveryAllocation("TPQFreeFrame", [&](Trial& trial) { Life(trial, "TPQFreeFrame", file.c_str(), [] { return 1u; }); });
}
#endif

TEST_F(OverFakes, EveryCallOfALoggerMayFail) {
  FakeModule module;
  EveryCall(module.state.log, "TPQASFLogger", "FileName = 'out.asf'\n", [&] { return module.state.Sent(true).size(); });
  EXPECT_EQ(module.state.live.load(), 0);
}

TEST_F(OverFakes, EveryCallOfAScreenMayFail) {
  FakeOutputModule module;
  EveryCall(module.state.log, "TPQDSVideoOut", "", [&] { return module.state.Sent(true).size(); });
  EXPECT_EQ(module.state.live.load(), 0);
}

TEST_F(OverFakes, EveryCallOfACodecMayFail) {
  FakeCodecs codecs;
  EveryCall(codecs.log, "TPQVideoCompressor", kCodec, [&] { return codecs.numbers.size(); });
  EXPECT_EQ(codecs.open, 0);
  EXPECT_EQ(codecs.allocated, 0);
}

TEST_F(OverFakes, EveryCallOfACodecGraphMayFail) {
  FakeCodecModule module;
  module.state.filters = {{"gst:element=aenc", "An encoder"}};
  EveryCall(module.state.log, "TPQDSVideoCompressor",
            "Compressions\n  item\n    Compressor = 'gst:element=aenc'\n  end\n",
            [&] { return module.state.Sent().size(); });
  EXPECT_EQ(module.state.live.load(), 0);
}

TEST_F(OverFakes, EveryCallOfAnEffectMayFail) {
  FakeEffectModule module;
  EveryCall(module.state.log, "TPQDMOEffect", std::string("DMOInfo = ('") + kFakeId + "' 'Invert')\n",
            [&] { return static_cast<std::size_t>(module.state.log.Count("Process")); });
  EXPECT_EQ(module.state.live.load(), 0);
}

}  // namespace
}  // namespace pantiq::test
