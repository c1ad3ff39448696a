// The frames of a clip, taken apart into planes and put together again: what eight bits a channel cost in each colour space.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "media/TestStreams.h"
#include "pantiq/filters/PQColorMerge.h"
#include "pantiq/filters/PQColorSplit.h"
#include "pantiq/media/PQASFPlayer.h"
#include "pantiq/platform/PQModules.h"
#include "support/MakeClip.h"

namespace pantiq::test {
namespace {

// PANTIQ_CLIP names another clip than the made one.
TEST(PlanesOnTheClip, RoundTripInAllNineModes) {
  PQPlatformResult result;
  PQMediaModule* const module = LoadMediaModule(result);
  if (module == nullptr) GTEST_SKIP() << result.detail;
  TempFolder folder;
  std::string clip = folder.File("clip.asf");
  if (const char* name = std::getenv("PANTIQ_CLIP"); name != nullptr) {
    clip = name;
  } else {
    ASSERT_EQ(MakeClip(*module, clip, {.width = 160, .height = 96, .frames = 8}), "");
  }
  struct Mode {
    TPQColorMode mode;
    const char* name;
  };
  constexpr Mode kModes[] = {{cmRGB, "cmRGB"}, {cmHLS, "cmHLS"}, {cmHSV, "cmHSV"},     {cmYUV, "cmYUV"}, {cmLUV, "cmLUV"},
                             {cmXYZ, "cmXYZ"}, {cmYCC, "cmYCC"}, {cmYCbCr, "cmYCbCr"}, {cmLab, "cmLab"}};
  for (const Mode& mode : kModes) {
    TPQASFPlayer player;
    TPQColorSplit split;
    TPQColorMerge merge;
    StreamSink direct, joined;
    std::vector<PQImageRef> before;
    int frames = 0;
    std::array<int, 256> differences{};
    direct.on_op = [&](bool, IJCNotifyOperation& op) {
      if (auto* s = JCOperation<TJCSuppliedBufferOperation>(op)) before.push_back(PQMakeRef<TPQImageBuffer>(*s->Buffer));
    };
    joined.on_op = [&](bool, IJCNotifyOperation& op) {
      auto* s = JCOperation<TJCSuppliedBufferOperation>(op);
      if (s == nullptr) return;
      const auto after = PQMakeRef<TPQImageBuffer>(*s->Buffer);
      ASSERT_LT(static_cast<std::size_t>(frames), before.size());
      const PQImageRef& was = before[static_cast<std::size_t>(frames++)];
      was->SetFormat(vfRGB24);
      ASSERT_EQ(after->GetByteSize(), was->GetByteSize());
      for (int i = 0; i < was->GetByteSize(); ++i) ++differences[static_cast<std::size_t>(std::abs(after->Read()[i] - was->Read()[i]))];
    };
    split.SetColorMode(mode.mode);
    merge.SetColorMode(mode.mode);
    player.SetFileName(clip);
    ASSERT_TRUE(direct.VideoPin.Connect(player.OutputPin).Ok());  // first: it sees each frame before the split does
    ASSERT_TRUE(split.InputPin.Connect(player.OutputPin).Ok());
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(split.OutputPins.GetPin(i)->Connect(*merge.InputPins.GetPin(i)).Ok());
    ASSERT_TRUE(joined.VideoPin.Connect(merge.OutputPin).Ok());
    Start(direct.VideoPin);
    joined.WaitFor("v TJCStopOperation", 3);  // one for each plane
    EXPECT_EQ(static_cast<std::size_t>(frames), before.size());
    EXPECT_GE(frames, 8);
    int largest = 255;
    while (largest > 0 && differences[static_cast<std::size_t>(largest)] == 0) --largest;
    std::int64_t all = 0, near = 0;
    for (std::size_t d = 0; d < 256; ++d) all += differences[d], near += d <= 8 ? differences[d] : 0;
    std::printf("%-8s largest difference %3d, %.3f of the values within 8\n", mode.name, largest,
                static_cast<double>(near) / static_cast<double>(all));
    if (mode.mode == cmRGB) {
      EXPECT_EQ(largest, 0);
    }
    EXPECT_GE(static_cast<double>(near), 0.9 * static_cast<double>(all)) << mode.name;
  }
}

}  // namespace
}  // namespace pantiq::test
