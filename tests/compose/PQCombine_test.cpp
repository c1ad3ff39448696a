#include "pantiq/compose/PQCombine.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "pantiq/host/PQReport.h"
#include "tests/compose/Pair.h"

namespace pantiq {
namespace {

using Mix = Pair<TPQCombine>;

TEST(PQCombine, OperationsInTheirOrder) {
  const std::vector<int> a = {100, 30, 200, 0, 0, 255, 10, 7, 2, 3, 170, 128};
  const std::vector<int> b = {30, 100, 100, 5, 0, 0, 25, 7, 127, 7, 85, 129};
  const std::vector<std::pair<TPQCombineOperation, std::vector<int>>> table = {
      {coAdd, {130, 130, 255, 5, 0, 255, 35, 14, 129, 10, 255, 255}},
      {coSubtract, {0, 70, 0, 5, 0, 0, 15, 0, 125, 4, 0, 1}},
      {coMultiply, {255, 255, 255, 0, 0, 0, 250, 49, 254, 21, 255, 255}},
      {coDivide, {0, 3, 0, 255, 0, 0, 2, 1, 64, 2, 0, 1}},  // 25/10 goes to the even 2, 127/2 to 64, 100/200 to 0
      {coOr, {126, 126, 236, 5, 0, 255, 27, 7, 127, 7, 255, 129}},
      {coAnd, {4, 4, 64, 0, 0, 0, 8, 7, 2, 3, 0, 128}},
      {coXor, {122, 122, 172, 5, 0, 255, 19, 0, 125, 4, 255, 1}},
      {coAbsDiff, {70, 70, 100, 5, 0, 255, 15, 0, 125, 4, 85, 1}},
      {coCopy, b},
      {static_cast<TPQCombineOperation>(200), a}};
  Mix m;
  EXPECT_EQ(m.mix.GetCombineOperation(), coAdd);
  m.Start({2, 2}, {2, 2});
  for (const auto& [operation, expected] : table) {
    m.mix.SetCombineOperation(operation);
    EXPECT_EQ(Bytes(*m.Send(Frame(a, 2, 2), Frame(b, 2, 2))), expected) << int{operation};
  }
}

// --- Panes ----------------------------------------------------------------------------------------------------------

// A frame made with coAdd of images that hold 1 and 2, as text: rows apart by '|', '.' for the background.
std::string Drawn(const IPQImageBuffer& frame) {
  std::string text;
  for (int y = 0; y < frame.GetHeight(); ++y) {
    if (y > 0) text += '|';
    for (int x = 0; x < frame.GetWidth(); ++x) {
      const TColor color = frame.GetPixel(x, y);
      text += color == 0x090909 ? '.' : static_cast<char>('0' + (color & 0xff));
      EXPECT_EQ(color, (color & 0xff) * 0x010101u);
    }
  }
  return text;
}

struct PaneCase {
  IppiSize first, second;
  int x, y;
  TPQCombineSizeMode mode;
  std::string frame;
};

TEST(PQCombine, EveryPaneCase) {
  const PaneCase cases[] = {
      {{3, 2}, {3, 2}, 0, 0, smWrappingRect, "333|333"},
      {{3, 1}, {3, 1}, 1, 0, smWrappingRect, "2331"},
      {{3, 1}, {3, 1}, -1, 0, smWrappingRect, "1332"},
      {{1, 3}, {1, 3}, 0, 1, smWrappingRect, "2|3|3|1"},
      {{1, 3}, {1, 3}, 0, -1, smWrappingRect, "1|3|3|2"},
      {{2, 2}, {2, 2}, 1, 1, smWrappingRect, "22.|231|.11"},
      {{2, 2}, {2, 2}, -1, 1, smWrappingRect, ".22|132|11."},
      {{2, 2}, {2, 2}, 1, -1, smWrappingRect, ".11|231|22."},
      {{2, 2}, {2, 2}, -1, -1, smWrappingRect, "11.|132|.22"},
      {{4, 3}, {2, 1}, -1, -1, smWrappingRect, "1111|1331|1111"},
      {{1, 1}, {3, 3}, 1, 1, smWrappingRect, "222|232|222"},
      {{4, 1}, {2, 3}, -1, 1, smWrappingRect, ".22.|1331|.22."},
      {{2, 3}, {4, 1}, 1, -1, smWrappingRect, ".11.|2332|.11."},
      {{3, 3}, {2, 2}, -1, 1, smWrappingRect, ".22|133|111|111"},
      {{2, 1}, {2, 1}, 2, 0, smWrappingRect, "2211"},
      {{2, 1}, {2, 1}, -2, 0, smWrappingRect, "1122"},
      {{1, 2}, {1, 2}, 1, 2, smWrappingRect, "2.|2.|.1|.1"},
      {{2, 2}, {2, 2}, 1, 1, smIntersect, "3"},
      {{4, 3}, {2, 1}, -1, -1, smIntersect, "33"},
      {{2, 2}, {2, 2}, 1, 1, smVerticalIntersect, "2|3|1"},
      {{2, 2}, {2, 2}, 1, 1, smHorizontalIntersect, "231"},
      {{2, 2}, {2, 2}, 1, 1, smCustom, "22...|231..|.11..|....."},
      {{3, 1}, {0, 0}, 0, 0, smWrappingRect, "111"},
      {{0, 0}, {3, 1}, 0, 0, smWrappingRect, "222"},
      {{0, 0}, {3, 2}, 1, 1, smWrappingRect, "222|222"},
  };
  for (const PaneCase& c : cases) {
    SCOPED_TRACE(c.frame);
    Mix m;
    m.mix.SetBackgroundColor(0x090909);
    m.mix.GetOffset().SetHorizontal(c.x);
    m.mix.GetOffset().SetVertical(c.y);
    m.mix.GetFrameSize().SetSizeMode(c.mode);
    m.mix.GetFrameSize().SetWidth(5);
    m.mix.GetFrameSize().SetHeight(4);
    m.Start(c.first, c.second);
    const PQImageRef frame = m.Send(Filled(c.first, 0x010101), Filled(c.second, 0x020202));
    EXPECT_EQ(Drawn(*frame), c.frame);
    EXPECT_EQ(m.sink.log.front(), "TJCStartFrameOperation " + std::to_string(frame->GetWidth()) + "x" +
                                      std::to_string(frame->GetHeight()) + " 400000 0");
  }
}

TEST(PQCombine, ChangesKeepTheFrameAndAreCutToIt) {
  struct Change {
    int x, y;
    std::string frame;
  };
  const Change changes[] = {{0, 0, "333.|333.|...."},
                            {2, 0, "2231|2231|...."},
                            {-2, 0, "1132|1132|...."},
                            {0, 1, "222.|333.|111."},
                            {1, 1, "222.|2331|.111"},
                            {-1, -1, "111.|1332|.222"},
                            {-1, 1, ".222|1332|111."},
                            {3, 2, "222.|222.|...1"},
                            {4, 0, "222.|222.|...."},
                            {-4, 0, "111.|111.|...."},
                            {0, 3, "222.|222.|...."},
                            {0, -3, "111.|111.|...."},
                            {100, 100, "222.|222.|...."},
                            {2147483647, 0, "222.|222.|...."},
                            {-2147483647 - 1, -2147483647 - 1, "111.|111.|...."}};
  Mix m;
  m.mix.SetBackgroundColor(0x090909);
  m.mix.GetFrameSize().SetSizeMode(smCustom);
  m.mix.GetFrameSize().SetWidth(4);
  m.mix.GetFrameSize().SetHeight(3);
  m.Start({3, 2}, {3, 2});
  m.mix.GetFrameSize().SetWidth(100);  // for the next start
  for (const Change& c : changes) {
    m.mix.GetOffset().SetHorizontal(c.x);
    m.mix.GetOffset().SetVertical(c.y);
    EXPECT_EQ(Drawn(*m.Send(Filled({3, 2}, 0x010101), Filled({3, 2}, 0x020202))), c.frame) << c.x << ", " << c.y;
  }

  // Frames narrower than the parts: the cut goes through each of the columns and rows.
  const std::pair<IppiSize, std::string> cuts[] = {
      {{3, 3}, "222|233|.11"}, {{2, 2}, "22|23"}, {{1, 1}, "2"}, {{1, 3}, "2|2|."}};
  for (const auto& [size, expected] : cuts) {
    Mix cut;
    cut.mix.SetBackgroundColor(0x090909);
    cut.mix.GetFrameSize().SetSizeMode(smCustom);
    cut.mix.GetFrameSize().SetWidth(static_cast<std::uint32_t>(size.width));
    cut.mix.GetFrameSize().SetHeight(static_cast<std::uint32_t>(size.height));
    cut.mix.GetOffset().SetHorizontal(1);
    cut.mix.GetOffset().SetVertical(1);
    cut.Start({3, 2}, {3, 2});
    EXPECT_EQ(Drawn(*cut.Send(Filled({3, 2}, 0x010101), Filled({3, 2}, 0x020202))), expected);
  }

  // After a change the grid is whole whatever the mode, but right corners of image 2 show background without a
  // vertical extension.
  Mix quirk;
  quirk.mix.SetBackgroundColor(0x090909);
  quirk.mix.GetFrameSize().SetSizeMode(smHorizontalIntersect);
  quirk.Start({2, 3}, {3, 3});
  quirk.mix.GetOffset().SetVertical(1);
  EXPECT_EQ(Drawn(*quirk.Send(Filled({2, 3}, 0x010101), Filled({3, 3}, 0x020202))), "22.|332|332");
}

// The same by geometry: both images stand in the rectangle round them, and the frame is a window on it.
struct Model {
  IppiSize first, second, frame{0, 0};
  int x, y;
  TPQCombineSizeMode mode;

  static int Span(int at1, int size1, int at2, int size2) { return std::max(at1 + size1, at2 + size2); }
  static int Common(int at1, int size1, int at2, int size2) {
    return std::min(at1 + size1, at2 + size2) - std::max(at1, at2);
  }
  bool Overlaps() const {
    return Common(At1(x), first.width, At2(x), second.width) >= 0 &&
           Common(At1(y), first.height, At2(y), second.height) >= 0;
  }
  static int At1(int offset) { return std::max(offset, 0); }
  static int At2(int offset) { return std::max(-offset, 0); }
  bool Wide() const { return mode == smWrappingRect || mode == smHorizontalIntersect; }
  bool High() const { return mode == smWrappingRect || mode == smVerticalIntersect; }
  void SetFrame(IppiSize custom) {
    if (!Overlaps()) return;
    frame = {
        Wide() ? Span(At1(x), first.width, At2(x), second.width) : Common(At1(x), first.width, At2(x), second.width),
        High() ? Span(At1(y), first.height, At2(y), second.height)
               : Common(At1(y), first.height, At2(y), second.height)};
    if (mode == smCustom) frame = custom;
  }
  // -1: background; otherwise the byte.
  int Byte(const IPQImageBuffer& a, const IPQImageBuffer& b, int px, int py, int channel, bool at_start) const {
    if (at_start && Overlaps() && mode != smCustom) {  // the window begins where what is shown does
      if (!Wide()) px += std::max(At1(x), At2(x));
      if (!High()) py += std::max(At1(y), At2(y));
    }
    const int ax = px - At1(x), ay = py - At1(y), bx = px - At2(x), by = py - At2(y);
    const bool in_a = ax >= 0 && ax < first.width && ay >= 0 && ay < first.height;
    const bool in_b = bx >= 0 && bx < second.width && by >= 0 && by < second.height;
    const auto at = [channel](const IPQImageBuffer& image, int left, int top) {
      return int{image.Read()[top * image.GetStep() + left * 3 + channel]};
    };
    if (in_a && in_b) return at(a, ax, ay) ^ at(b, bx, by);
    if (in_b) {
      const bool corner = Overlaps() && bx >= At1(x) - At2(x) + first.width &&
                          (by < At1(y) - At2(y) || by >= At1(y) - At2(y) + first.height);
      const bool extends_down = High() || mode == smCustom;
      return corner && !extends_down ? -1 : at(b, bx, by);
    }
    return in_a ? at(a, ax, ay) : -1;
  }
};

PQImageRef Noise(std::mt19937& random, IppiSize size) {
  auto frame = PQMakeRef<TPQImageBuffer>(size.width, size.height, vfRGB24);
  std::uint8_t* const to = frame->Write();
  for (int i = 0; i < frame->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>(random());
  return frame;
}

TEST(PQCombine, AnyLayoutIsThatOfTheGeometry) {
  PQFramePool::SetFillByte(0xee);  // what nobody drew would show
  std::mt19937 random(6);
  const auto number = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
  for (int round = 0; round < 4000; ++round) {
    Mix m;
    m.mix.SetCombineOperation(coXor);
    m.mix.SetBackgroundColor(0x0c0b0a);
    Model model{};
    const IppiSize custom{number(0, 25), number(0, 25)};
    const auto check = [&](bool at_start) {
      const PQImageRef a = Noise(random, model.first), b = Noise(random, model.second);
      const PQImageRef out = m.Send(a, b);
      ASSERT_EQ(out->GetWidth(), model.frame.width);
      ASSERT_EQ(out->GetHeight(), model.frame.height);
      for (int y = 0; y < model.frame.height; ++y) {
        for (int i = 0; i < model.frame.width * 3; ++i) {
          const int expected = model.Byte(*a, *b, i / 3, y, i % 3, at_start);
          ASSERT_EQ(out->Read()[y * out->GetStep() + i], expected < 0 ? 0x0c - i % 3 : expected)
              << i << " of row " << y;
        }
      }
    };
    const auto set = [&] {
      model.x = number(-13, 13), model.y = number(-13, 13);
      model.mode = static_cast<TPQCombineSizeMode>(number(0, 4));
      m.mix.GetOffset().SetHorizontal(model.x);
      m.mix.GetOffset().SetVertical(model.y);
      m.mix.GetFrameSize().SetSizeMode(model.mode);
      model.first = {number(0, 12), number(0, 12)}, model.second = {number(0, 12), number(0, 12)};
    };
    set();
    m.mix.GetFrameSize().SetWidth(static_cast<std::uint32_t>(custom.width));
    m.mix.GetFrameSize().SetHeight(static_cast<std::uint32_t>(custom.height));
    // The start before this one was without a second image, and may have set a frame, too.
    Model earlier = model;
    earlier.second = {0, 0};
    earlier.SetFrame(custom);
    model.frame = earlier.frame;
    model.SetFrame(custom);
    m.Start(model.first, model.second);
    SCOPED_TRACE(testing::Message() << "round " << round << ": " << model.first.width << "x" << model.first.height
                                    << " and " << model.second.width << "x" << model.second.height << " at " << model.x
                                    << ", " << model.y << ", mode " << int{model.mode});
    check(true);
    if (HasFatalFailure()) return;
    set();  // and the pictures' sizes change without a start
    check(false);
    if (HasFatalFailure()) return;
  }
  PQFramePool::SetFillByte(-1);
}

TEST(PQCombine, NoFrameIsCopied) {
  Mix m;
  m.Start({40, 30}, {30, 40});
  m.mix.GetOffset().SetHorizontal(-3);
  const PQImageRef a = MakeFrame(40, 30), b = MakeFrame(30, 40);
  const std::uint64_t before = PQFramePool::CopiedBytes();
  for (int i = 0; i < 3; ++i) m.Send(a, b);
  EXPECT_EQ(PQFramePool::CopiedBytes(), before);
}

// --- Streams --------------------------------------------------------------------------------------------------------

TEST(PQCombine, StartsWithTheFirstInputAndStopsWithTheLast) {
  Mix m;
  m.one.Start(4, 3);
  EXPECT_EQ(m.sink.log, std::vector<std::string>{"TJCStartFrameOperation 4x3 400000 0"});
  m.one.OutputPin.SubmitBuffer(Filled({4, 3}, 0x030303));
  EXPECT_EQ(m.sink.log.back(), "frame 4x3 0") << "the other input has not started";
  EXPECT_EQ(m.sink.last->GetPixel(3, 2), 0x030303u);
  m.two.Start(2, 2, 500000);
  EXPECT_EQ(m.sink.log.size(), 2u) << "no second start";
  m.two.OutputPin.SubmitBuffer(Filled({2, 2}, 0x050505));
  EXPECT_EQ(m.sink.log.size(), 2u) << "a whole set is needed now";
  m.one.OutputPin.SubmitBuffer(Filled({4, 3}, 0x030303));
  EXPECT_EQ(m.sink.last->GetPixel(1, 1), 0x080808u);
  EXPECT_EQ(m.sink.last->GetPixel(2, 1), 0x030303u);

  // A stopped input shows the background in its size.
  m.mix.SetBackgroundColor(0x101010);
  m.one.OutputPin.Stop();
  m.two.OutputPin.SubmitBuffer(Filled({2, 2}, 0x050505));
  EXPECT_EQ(m.sink.last->GetPixel(1, 1), 0x151515u);
  EXPECT_EQ(m.sink.last->GetPixel(3, 2), 0x101010u);
  m.two.OutputPin.Stop();
  EXPECT_EQ(m.sink.log.back(), "TJCStopOperation");

  m.sink.log.clear();
  m.two.Start(2, 2, 500000);
  EXPECT_EQ(m.sink.log, std::vector<std::string>{"TJCStartFrameOperation 4x3 400000 0"})
      << "sizes and delay as remembered";

  Mix second_first;  // the delay is that of image 1
  second_first.two.Start(2, 2, 500000);
  EXPECT_EQ(second_first.sink.log, std::vector<std::string>{"TJCStartFrameOperation 2x2 0 0"});
}

TEST(PQCombine, ASetterOfTheSameValuePlansAnewToo) {
  Mix m;
  m.mix.GetFrameSize().SetSizeMode(smIntersect);
  m.mix.GetOffset().SetHorizontal(1);
  m.Start({3, 1}, {3, 1});
  EXPECT_EQ(Drawn(*m.Send(Filled({3, 1}, 0x010101), Filled({3, 1}, 0x020202))), "33");
  m.mix.GetOffset().SetHorizontal(1);
  EXPECT_EQ(Drawn(*m.Send(Filled({3, 1}, 0x010101), Filled({3, 1}, 0x020202))), "23");
}

TEST(PQCombine, PicturesThatAreMissingOrBroken) {
  Mix m;
  m.Start({2, 2}, {2, 2});
  m.one.OutputPin.SubmitBuffer(PQMakeRef<TRWBlockBuffer>(10));  // no picture: one without pixels
  m.two.OutputPin.SubmitBuffer(Filled({2, 2}, 0x040404));
  EXPECT_EQ(Bytes(*m.sink.last), std::vector<int>(12, 4));
  m.one.OutputPin.SubmitBuffer({});
  m.one.OutputPin.SubmitBuffer(Frame({7, 8, 9, 10}, 2, 2, vfGrayScale));
  m.two.OutputPin.SubmitBuffer(PQMakeRef<TPQImageBuffer>());
  EXPECT_EQ(Bytes(*m.sink.last), (std::vector<int>{7, 7, 7, 8, 8, 8, 9, 9, 9, 10, 10, 10}));
  m.one.Start(-5, 65535);
  m.one.Start(2147483647, 2147483647);  // no frame can have this size
  m.one.OutputPin.Stop();
  m.two.OutputPin.SubmitBuffer(Filled({2, 2}, 0x040404));
  EXPECT_EQ(Bytes(*m.sink.last), std::vector<int>(12, 4));

  Mix before;  // frames before any start, into frames without a size
  before.Send(Filled({2, 2}, 1), Filled({2, 2}, 2));
  EXPECT_EQ(before.sink.log, (std::vector<std::string>{"frame 0x0 0", "frame 0x0 0"}));
}

TEST(PQCombine, SizesThatCannotBeAreTold) {
  std::vector<std::string> told;
  SetReportListener([&](const PQReportEntry& entry) { told.push_back(entry.text); });
  Mix m;
  m.mix.GetFrameSize().SetSizeMode(smCustom);
  m.mix.GetFrameSize().SetWidth(4294967295u);
  m.mix.GetFrameSize().SetHeight(3);
  m.one.Start(2, 2);
  m.one.OutputPin.SubmitBuffer(Filled({2, 2}, 1));
  EXPECT_EQ(m.sink.log, std::vector<std::string>{"TJCStartFrameOperation 2147483647x3 400000 0"}) << "no frame";

  Mix apart;  // an image that has not started has no size
  apart.mix.GetOffset().SetHorizontal(5);
  apart.one.Start(10, 10);
  apart.one.OutputPin.SubmitBuffer(Filled({10, 10}, 1));
  EXPECT_EQ(apart.sink.log, (std::vector<std::string>{"TJCStartFrameOperation 0x0 400000 0", "frame 0x0 0"}));
  SetReportListener({});
  EXPECT_EQ(told, (std::vector<std::string>{"frames of 4294967295 by 3 pixels are too large, none goes out",
                                            "frames of 0 by 0 pixels go out"}));
}

TEST(PQCombine, BackgroundOfTheSystem) {
  Mix m;
  m.mix.GetFrameSize().SetSizeMode(smCustom);
  m.Start({1, 1}, {1, 1});
  const std::pair<TColor, TColor> colors[] = {{0x80000005, 0xffffff}, {0x8000000f, 0xf0f0f0}, {0x80000018, 0xe1ffff},
                                              {0x80000019, 0},        {0xffffffff, 0},        {0x00123456, 0x123456}};
  for (const auto& [color, expected] : colors) {
    m.mix.SetBackgroundColor(color);
    EXPECT_EQ(m.Send(Filled({1, 1}, 1), Filled({1, 1}, 1))->GetPixel(1, 1), expected) << std::hex << color;
  }
}

TEST(PQCombine, StampsAreThoseOfTheNewestFrame) {
  const auto stamped = [](int number) {
    auto frame = Filled({1, 1}, 0);
    frame->GetTimeCode().SetFrame(number);
    frame->GetSequenceStamp().SetBufferNumber(number);
    frame->GetTimeStamp().SetAvailable(true);
    frame->GetTimeStamp().SetBegin(number * 400000);
    frame->GetTimeStamp().SetEnd(number * 400000 + 400000);
    frame->GetDateTime().SetTime(5);
    return frame;
  };
  Mix m;
  m.Start({1, 1}, {1, 1});
  m.Send(stamped(10), stamped(20));
  EXPECT_EQ(m.sink.last->GetTimeCode().GetFrame(), 10);
  EXPECT_EQ(m.sink.last->GetSequenceStamp().GetBufferNumber(), 10);
  EXPECT_EQ(m.sink.last->GetTimeStamp().GetBegin(), 4000000);
  EXPECT_EQ(m.sink.last->GetTimeStamp().GetEnd(), 4400000);
  EXPECT_FALSE(m.sink.last->GetDateTime().GetAvailable());

  Mix faster;  // image 2 sets the pace
  faster.one.Start(1, 1, 1000000);
  faster.two.Start(1, 1, 400000);
  faster.Send(stamped(1), stamped(30));
  faster.two.OutputPin.SubmitBuffer(stamped(31));
  EXPECT_EQ(faster.sink.last->GetTimeCode().GetFrame(), 31);
}

TEST(PQCombine, PartsAreAssignedFromTheirOwnKindAlone) {
  TPQCombine a, b;
  a.GetFrameSize().SetSizeMode(smVerticalIntersect);
  a.GetFrameSize().SetWidth(7);
  a.GetFrameSize().SetSizeMode(static_cast<TPQCombineSizeMode>(9));
  a.GetOffset().SetVertical(-3);
  b.SetFrameSize(a.GetFrameSize());
  b.SetOffset(a.GetOffset());
  EXPECT_EQ(b.GetFrameSize().GetSizeMode(), smVerticalIntersect);
  EXPECT_EQ(b.GetFrameSize().GetWidth(), 7u);
  EXPECT_EQ(b.GetFrameSize().GetHeight(), 180u);
  EXPECT_EQ(b.GetOffset().GetVertical(), -3);
  b.GetFrameSize().Assign(TPQCombine().GetOffset());
  b.GetOffset().Assign(a);
  EXPECT_EQ(b.GetFrameSize().GetWidth(), 7u);
  EXPECT_EQ(b.GetOffset().GetVertical(), -3);
  for (const auto mode : {smIntersect, smWrappingRect, smVerticalIntersect, smHorizontalIntersect, smCustom}) {
    a.GetFrameSize().SetSizeMode(mode);
    EXPECT_EQ(a.GetFrameSize().GetSizeMode(), mode);
  }
}

TEST(PQCombine, EndsAtAnyMoment) {
  for (int round = 0; round < 12; ++round) {
    TestSource one, two;
    TestSink sink;
    sink.on_op = [](IJCNotifyOperation&) {};
    auto mix = std::make_unique<TPQCombine>();
    ASSERT_TRUE(one.OutputPin.Connect(InputOf(*mix, 0)).Ok());
    ASSERT_TRUE(two.OutputPin.Connect(InputOf(*mix, 1)).Ok());
    ASSERT_TRUE(mix->OutputPin.Connect(sink.InputPin).Ok());
    std::atomic<bool> end{false}, halt{false};
    std::vector<std::thread> threads;
    for (TestSource* source : {&one, &two}) {
      threads.emplace_back([source, &end] {
        for (int n = 0; !end; ++n) {
          if (n % 16 == 0) source->Start(3 + n % 5, 4);
          source->OutputPin.SubmitBuffer(MakeFrame(3 + n % 7, 4));
          if (n % 64 == 63) source->OutputPin.Stop();
        }
      });
    }
    std::thread setter([&] {
      for (int n = 0; !halt; ++n) {
        mix->GetOffset().SetHorizontal(n % 9 - 4);
        mix->GetFrameSize().SetSizeMode(static_cast<TPQCombineSizeMode>(n % 5));
        mix->SetCombineOperation(static_cast<TPQCombineOperation>(n % 9));
        mix->SetBackgroundColor(static_cast<TColor>(n));
        sink.InputPin.Notify(*PQMakeRef<TJCMasterPumpOperation>(nullptr));
      }
    });
    while (sink.ops < 100) std::this_thread::yield();
    if (round % 3 == 0) InputOf(*mix, 0).Disconnect();
    halt = true;
    setter.join();
    if (round % 3 == 1) mix->OutputPin.Disconnect();
    mix.reset();
    end = true;
    for (std::thread& thread : threads) thread.join();
  }
}

}  // namespace
}  // namespace pantiq
