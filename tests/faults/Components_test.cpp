// Every class of the palette that needs no platform, in a graph of its own, with each of its allocations failing.
#include <gtest/gtest.h>

#include "Faults.h"
#include "pantiq/design/PQRegister.h"
#include "support/AnyBench.h"

namespace pantiq::test {
namespace {

// Builds, starts, sends, changes the size, stops and starts again; whatever failed, a graph that was built then gives
// the frames that it always gives.
void Life(Trial& trial, const std::string& name, const std::string& settings) {
  Bench bench;
  if (name == "TPQColorMerge") bench.format = vfGrayScale;
  std::uint64_t sum = 0;
  bool watched = false;
  const auto watch = [&](IJCNotifyOperation& op) {
    const Undisturbed own;
    if (!watched) return;
    if (const auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      // Sound and frames leave a queue on its own thread, after what it still held: the last frame is the same.
      // The key keeps the plan of its first start for ever: its frames are counted.
      if (name == "TPQTransparentColor") {
        ++sum;
      } else if (name != "TPQQueuedSwitch") {
        sum = Mix(sum, SumOf(*supplied->Buffer));
      } else if (PQCast<IPQImageBuffer>(supplied->Buffer.Get()) != nullptr) {
        sum = SumOf(*supplied->Buffer);
      }
    }
  };
  {
    const Undisturbed own;
    bench.on_op = watch;
  }
  if (!trial.Step("build", [&] { bench.Build(name, settings); })) {
    if (!trial.Persistent()) trial.Calm();
    return;
  }
  const auto play = [&](const char* what, int width, int height, int frames) {
    trial.Step(what, [&] { bench.AskToStart(); });
    trial.Step(what, [&] { bench.Start(width, height); });
    for (int i = 0; i < frames; ++i) trial.Step(what, [&] { bench.Send<Undisturbed>(width, height, i); });
  };
  play("the first stream", 12, 8, 4);
  play("another size", 17, 9, 3);
  trial.Step("a setting", [&] { bench.Set(settings); });
  trial.Step("a stop from above", [&] { bench.StopFromAbove(); });
  trial.Step("a stop from below", [&] { bench.StopFromBelow(); });
  play("a second start", 12, 8, 3);
  if (trial.Persistent()) return;  // it ends while nothing can be had
  trial.Calm();
  trial.Step("stop", [&] { bench.StopFromAbove(), bench.StopFromBelow(); });
  trial.Step("set again", [&] { bench.Set(settings); });
  play("settle", 12, 8, 3);
  trial.Step("stop again", [&] { bench.StopFromAbove(), bench.StopFromBelow(); });
  trial.Step("set once more", [&] { bench.Set(settings); });
  watched = true;
  play("the last stream", 14, 10, 6);
  trial.Saw(sum);
}

class Components : public testing::Test {
 protected:
  static void SetUpTestSuite() { RegisterAll(); }
  static void TearDownTestSuite() { std::printf("%s\n", FaultsInjected().c_str()); }
};

TEST_F(Components, EveryAllocationOfEveryClassMayFail) {
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
    if (NeedsAPlatform(info->Name())) continue;
    const std::string settings = SettingsOf(info->Name());
    EveryAllocation(info->Name(), [&](Trial& trial) { Life(trial, info->Name(), settings); });
  }
}

}  // namespace
}  // namespace pantiq::test
