// Components of the platform, over fakes of it: each of their allocations fails, and each call to the platform.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
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
  EveryCall(codecs.log, "TPQVideoCompressor", "Compressions\n  item\n    FourCC = 'FAKE'\n  end\n",
            [&] { return codecs.numbers.size(); });
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
