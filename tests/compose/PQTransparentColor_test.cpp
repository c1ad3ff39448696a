#include "pantiq/compose/PQTransparentColor.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "tests/compose/Pair.h"

namespace pantiq {
namespace {

// The word of a pixel with this red, green and blue.
constexpr std::uint32_t Pixel(int red, int green, int blue) {
  return static_cast<std::uint32_t>(red << 16 | green << 8 | blue);
}

TEST(PQTransparentColor, RangesWithCrossedTolerances) {
  TPQTransparentColor key;
  TPQColorRanges& ranges = key.GetTransparentColors();
  EXPECT_EQ(ranges.GetOwner(), &key);
  EXPECT_FALSE(ranges.InRage(0)) << "no range, no colour";
  TPQColorRange& range = *ranges.Add();
  EXPECT_EQ(range.GetDisplayName(), "clGreen 5:5:5");
  EXPECT_TRUE(range.InRage(Pixel(5, 128, 0))) << "ready at birth";
  EXPECT_FALSE(range.InRage(Pixel(6, 128, 0)));

  struct Case {
    TPQColorRange::Values values;
    std::vector<std::uint32_t> in, out;
  };
  const Case cases[] = {
      {{0x0000ff, 5, 5, 5},
       {Pixel(250, 0, 0), Pixel(255, 5, 5), 0x77fa0000},
       {Pixel(249, 0, 0), Pixel(255, 6, 0), Pixel(255, 0, 6)}},
      {{0x102030, 0, 0, 20},
       {Pixel(0x30 - 20, 0x20, 0x10), Pixel(0x30 + 20, 0x20, 0x10)},
       {Pixel(0x30 - 21, 0x20, 0x10), Pixel(0x30 + 21, 0x20, 0x10), Pixel(0x30, 0x20, 0x11), Pixel(0x30, 0x21, 0x10)}},
      {{0x102030, 3, 0, 0}, {Pixel(0x30, 0x20, 0x13)}, {Pixel(0x33, 0x20, 0x10), Pixel(0x30, 0x20, 0x14)}},
      {{0x808080, 255, 255, 255}, {Pixel(0, 0, 0), Pixel(255, 255, 255)}, {}},
      {{0x808080, 2147483647, 2147483647, 2147483647}, {Pixel(0, 255, 0)}, {}},
      {{0x808080, -1, 0, 0}, {}, {Pixel(0x80, 0x80, 0x80), Pixel(0x80, 0x80, 0x7f)}},  // from 129 to 127
      {{0xff0000ff, 5, 5, 5}, {Pixel(255, 0, 0)}, {Pixel(0, 0, 0)}}};
  for (const Case& c : cases) {
    range.Set(c.values);
    for (const std::uint32_t pixel : c.in)
      EXPECT_TRUE(ranges.InRage(pixel)) << range.GetDisplayName() << " " << std::hex << pixel;
    for (const std::uint32_t pixel : c.out)
      EXPECT_FALSE(ranges.InRage(pixel)) << range.GetDisplayName() << " " << std::hex << pixel;
  }
  range.SetColor(0x0000fe), range.SetToleranceRed(-7), range.SetToleranceGreen(8), range.SetToleranceBlue(9);
  EXPECT_EQ(range.GetDisplayName(), "$000000FE -7:8:9");
  EXPECT_EQ(ranges.GetItem(1), nullptr);

  TPQTransparentColor other;
  other.SetTransparentColors(ranges);
  ranges.Clear();
  ASSERT_EQ(other.GetTransparentColors().GetCount(), 1);
  EXPECT_EQ(other.GetTransparentColors().GetItem(0)->GetDisplayName(), "$000000FE -7:8:9");
  other.GetTransparentColors().SetItem(0, *ranges.Add());
  other.GetTransparentColors().SetItem(7, *ranges.GetItem(0));
  EXPECT_EQ(other.GetTransparentColors().GetItem(0)->GetColor(), 0x8000u);
}

TEST(PQTransparentColor, TheBackgroundShowsThrough) {
  Pair<TPQTransparentColor> m;
  m.Start({3, 1}, {3, 1});
  const std::vector<int> front = {0, 128, 0, 1, 2, 3, 5, 123, 5}, back = {10, 11, 12, 13, 14, 15, 16, 17, 18};
  EXPECT_EQ(Bytes(*m.Send(Frame(front, 3, 1), Frame(back, 3, 1))), front) << "no colour is transparent";
  m.mix.GetTransparentColors().Add();
  const std::vector<int> keyed = {10, 11, 12, 1, 2, 3, 16, 17, 18};
  EXPECT_EQ(Bytes(*m.Send(Frame(front, 3, 1), Frame(back, 3, 1))), keyed);
  m.mix.SetEnabled(false);
  EXPECT_FALSE(m.mix.EnablePin.GetValue());
  EXPECT_EQ(Bytes(*m.Send(Frame(front, 3, 1), Frame(back, 3, 1))), keyed) << "Enabled is only stored";
  m.mix.GetTransparentColors().Add()->SetColor(0x030201);
  EXPECT_EQ(Bytes(*m.Send(Frame(front, 3, 1), Frame(back, 3, 1))), back) << "any of two ranges";
  m.mix.GetTransparentColors().Delete(0);
  EXPECT_EQ(Bytes(*m.Send(Frame(front, 3, 1), Frame(back, 3, 1))),
            (std::vector<int>{0, 128, 0, 13, 14, 15, 5, 123, 5}));
  m.mix.GetOffset().SetHorizontal(-1);  // beside the overlap the foreground is never transparent
  EXPECT_EQ(Bytes(*m.Send(Frame({3, 2, 1, 1, 2, 3, 20, 20, 20}, 3, 1), Frame(back, 3, 1))),
            (std::vector<int>{3, 2, 1, 10, 11, 12, 20, 20, 20}));
}

TEST(PQTransparentColor, EqualsPixelByPixel) {
  std::mt19937 random(3);
  Pair<TPQTransparentColor> m;
  for (int i = 0; i < 5; ++i) {
    m.mix.GetTransparentColors().Add()->Set({static_cast<TColor>(random()), static_cast<int>(random() % 90),
                                             static_cast<int>(random() % 90), static_cast<int>(random() % 90)});
  }
  m.Start({61, 17}, {61, 17});
  const PQImageRef front = MakeFrame(61, 17), back = MakeFrame(61, 17, vfRGB24, 99);
  std::uint8_t* const bytes = front->Modify();
  for (int i = 0; i < front->GetByteSize(); ++i) bytes[i] = static_cast<std::uint8_t>(random());
  const PQImageRef out = m.Send(front, back);
  int keyed = 0;
  for (int i = 0; i < 61 * 17; ++i) {
    const std::uint8_t* const p = front->Read() + 3 * i;
    const bool through = m.mix.GetTransparentColors().InRage(Pixel(p[2], p[1], p[0]));
    keyed += through;
    const std::uint8_t* const expected = through ? back->Read() + 3 * i : p;
    for (int c = 0; c < 3; ++c) ASSERT_EQ(out->Read()[3 * i + c], expected[c]) << i;
  }
  EXPECT_GT(keyed, 0);
  EXPECT_LT(keyed, 61 * 17);
}

TEST(PQTransparentColor, StopsEndHere) {
  Pair<TPQTransparentColor> m;
  m.StartBoth({2, 1}, {1, 1});
  m.one.OutputPin.Stop(), m.two.OutputPin.Stop();
  EXPECT_EQ(m.sink.log, std::vector<std::string>{"TJCStartFrameOperation 2x1 400000 0"});
  m.StartBoth({5, 5}, {5, 5});
  EXPECT_EQ(m.sink.log.size(), 1u) << "the output still runs";
  m.Send(Filled({5, 5}, 1), Filled({5, 5}, 2));
  EXPECT_EQ(m.sink.log.back(), "frame 2x1 0") << "in its first size";
}

TEST(PQTransparentColor, AValueOnThePinIsStored) {
  struct Switch final : TComponent {
    Switch() : OutputPin(*this) {}
    ~Switch() override { BeforeDestructionOnce(); }
    void BeforeDestruction() override { OutputPin.Disconnect(); }
    TJCBoolSourcePin OutputPin;
  } source;
  TPQTransparentColor key;
  ASSERT_TRUE(source.OutputPin.Connect(key.EnablePin).Ok());
  source.OutputPin.Send(false);
  EXPECT_FALSE(key.GetEnabled());
}

TEST(PQTransparentColor, RangesChangeWhileItRuns) {
  TestSource one, two;
  TestSink sink;
  sink.on_op = [](IJCNotifyOperation&) {};
  auto key = std::make_unique<TPQTransparentColor>();
  TPQTransparentColor spare;
  ASSERT_TRUE(one.OutputPin.Connect(key->InputPin).Ok());
  ASSERT_TRUE(two.OutputPin.Connect(key->BackgroundInputPin).Ok());
  ASSERT_TRUE(key->OutputPin.Connect(sink.InputPin).Ok());
  std::atomic<bool> end{false};
  std::vector<std::thread> threads;
  for (TestSource* source : {&one, &two}) {
    threads.emplace_back([source, &end] {
      source->Start(8, 4);
      while (!end) source->OutputPin.SubmitBuffer(MakeFrame(8, 4));
    });
  }
  for (int n = 0; sink.ops < 500 || n < 200; ++n) {
    TPQColorRanges& ranges = key->GetTransparentColors();
    if (ranges.GetCount() > 5) ranges.Delete(n % 5);
    ranges.Add()->SetColor(static_cast<TColor>(n));
    ranges.GetItem(0)->SetToleranceGreen(n % 200);
    if (n % 10 == 0) ranges.Assign(spare.GetTransparentColors());
    if (n % 7 == 0) spare.SetTransparentColors(ranges);
    std::this_thread::yield();
  }
  key.reset();
  end = true;
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace pantiq
