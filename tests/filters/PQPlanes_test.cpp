// Frames to planes, numbers and histograms, and back.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <thread>

#include "pantiq/filters/PQColorMerge.h"
#include "pantiq/filters/PQColorSplit.h"
#include "pantiq/filters/PQColorsToReal.h"
#include "pantiq/filters/PQHistogram.h"
#include "pantiq/filters/PQRealToFrame.h"
#include "tests/filters/Chain.h"

namespace pantiq {
namespace {

constexpr TPQColorMode kModes[] = {cmRGB, cmHLS, cmHSV, cmYUV, cmLUV, cmXYZ, cmYCbCr, cmYCC, cmLab};

// Receives numbers: operations by name, blocks as lists.
class NumberSink final : public TComponent {
 public:
  NumberSink() : TComponent(nullptr), InputPin(*this, JCDispatch::To<&NumberSink::Dispatch>(this)) {}
  ~NumberSink() override { BeforeDestructionOnce(); }
  TRWJCComboRealSinkPin InputPin;
  std::vector<std::string> log;
  std::vector<std::vector<double>> blocks;
  std::vector<PQDataBufferRef> held;

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      const auto* block = PQCast<IRWRealBuffer>(supplied->Buffer.Get());
      blocks.emplace_back(block->Read(), block->Read() + block->GetCount());
      held.push_back(supplied->Buffer);
    } else if (auto* start = JCOperation<TJCStartSampleRateOperation>(op)) {
      log.push_back(std::string(op.Tag().Name()) + " " + std::to_string(start->BlockSize) + " " +
                    std::to_string(std::lround(start->SampleRate)));
    } else {
      log.push_back(op.Tag().Name());
    }
    return {};
  }
};

// A component with three outputs between a source and a sink on each output.
template <class Filter, class Sink>
struct Fan {
  TestSource source;
  Filter filter;
  Sink sinks[3];
  Fan() {
    EXPECT_TRUE(source.OutputPin.Connect(filter.InputPin).Ok());
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(filter.OutputPins.GetPin(i)->Connect(sinks[i].InputPin).Ok());
  }
  void Send(PQImageRef frame) { source.OutputPin.SubmitBuffer(std::move(frame)); }
};

TEST(PQColorSplit, PlanesOfEveryMode) {
  Fan<TPQColorSplit, TestSink> fan;
  EXPECT_EQ(fan.filter.OutputPins.GetPinName(2), "Blu");
  fan.source.Start(2, 1);
  PQImageRef frame = Frame({10, 20, 30, 40, 50, 60}, 2, 1);
  frame->GetTimeStamp().SetBegin(5);
  fan.Send(frame);
  EXPECT_EQ(fan.sinks[0].log, (std::vector<std::string>{"TJCStartFrameOperation 2x1 400000 0", "frame 2x1 2"}));
  EXPECT_EQ(Bytes(*fan.sinks[0].last), (std::vector<int>{30, 60})) << "red";
  EXPECT_EQ(Bytes(*fan.sinks[2].last), (std::vector<int>{10, 40})) << "blue";
  EXPECT_EQ(fan.sinks[1].last->GetTimeStamp().GetBegin(), 5);
  EXPECT_EQ(Bytes(*frame), (std::vector<int>{10, 20, 30, 40, 50, 60})) << "the sender's frame is left alone";
  // White and black, where every space has a known answer for the first plane.
  for (TPQColorMode mode : kModes) {
    fan.filter.SetColorMode(mode);
    fan.Send(Frame({255, 255, 255, 0, 0, 0}, 2, 1));
    const int lightness = mode == cmHLS ? 1 : mode == cmHSV ? 2 : 0;
    const std::vector<int> plane = Bytes(*fan.sinks[lightness].last);
    EXPECT_GE(plane[0], mode == cmYCC ? 180 : 235) << mode;
    EXPECT_LE(plane[1], 16) << mode;
  }
  EXPECT_EQ(fan.filter.OutputPins.GetPinName(0), "L*");
  fan.source.OutputPin.Stop();
  EXPECT_EQ(fan.sinks[2].log.back(), "TJCStopOperation");
}

TEST(PQColorSplit, GrayFrames) {
  Fan<TPQColorSplit, TestSink> fan;
  const auto planes = [&](TPQColorMode mode) {
    fan.filter.SetColorMode(mode);
    fan.Send(Frame({7, 200}, 2, 1, vfGrayScale));
    std::vector<std::vector<int>> all;
    for (TestSink& sink : fan.sinks) all.push_back(Bytes(*sink.last));
    return all;
  };
  using V = std::vector<std::vector<int>>;
  EXPECT_EQ(planes(cmRGB), (V{{7, 200}, {7, 200}, {7, 200}}));
  EXPECT_EQ(planes(cmHLS), (V{{0, 0}, {7, 200}, {0, 0}}));
  EXPECT_EQ(planes(cmHSV), (V{{0, 0}, {0, 0}, {7, 200}}));
  EXPECT_EQ(planes(cmYUV), (V{{7, 200}, {128, 128}, {128, 128}}));
  EXPECT_EQ(planes(cmLab)[1], planes(cmLab)[2]) << "made colour first: no chroma";
}

// Frames before a start, of other sizes than announced, held by somebody: every plane is its own.
TEST(PQColorSplit, PlanesAreNeverRewritten) {
  Fan<TPQColorSplit, TestSink> fan;
  fan.Send(Frame({1, 2, 3}, 1, 1));
  PQImageRef first = fan.sinks[0].last;
  fan.source.Start(1, 1);
  fan.Send(Frame({9, 9}, 2, 1, vfGrayScale));
  fan.Send(MakeFrame(64, 48));
  EXPECT_EQ(fan.sinks[0].last->GetWidth(), 64);
  EXPECT_EQ(Bytes(*first), std::vector<int>{3});
  fan.Send(MakeFrame(0, 0));
  EXPECT_EQ(fan.sinks[2].last->GetWidth(), 0);
}

// The largest difference of the round trip is what eight bits a channel cost.
TEST(PQColorMerge, JoinsWhatTheSplitTookApart) {
  struct {
    TPQColorMode mode;
    int largest;
  } const cases[] = {{cmRGB, 0}, {cmHLS, 12}, {cmHSV, 12}, {cmYUV, 4}, {cmLUV, 60}, {cmXYZ, 90}, {cmYCbCr, 4}, {cmYCC, 10}, {cmLab, 40}};
  for (const auto& [mode, largest] : cases) {
    TestSource source;
    TPQColorSplit split;
    TPQColorMerge merge;
    TestSink sink;
    split.SetColorMode(mode);
    merge.SetColorMode(mode);
    ASSERT_TRUE(source.OutputPin.Connect(split.InputPin).Ok());
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(split.OutputPins.GetPin(i)->Connect(*merge.InputPins.GetPin(i)).Ok());
    ASSERT_TRUE(merge.OutputPin.Connect(sink.InputPin).Ok());
    source.Start(64, 64);
    PQImageRef frame = PQMakeRef<TPQImageBuffer>(64, 64, vfRGB24);
    std::uint8_t* to = frame->Write();
    for (int i = 0; i < 64 * 64; ++i) {  // moderate colours all over the cube
      to[3 * i] = static_cast<std::uint8_t>(40 + i % 16 * 10);
      to[3 * i + 1] = static_cast<std::uint8_t>(40 + i / 16 % 16 * 10);
      to[3 * i + 2] = static_cast<std::uint8_t>(40 + i / 256 * 10);
    }
    frame->GetTimeCode().SetFrame(3);
    source.OutputPin.SubmitBuffer(frame);
    ASSERT_TRUE(sink.last) << mode;
    EXPECT_EQ(sink.last->GetTimeCode().GetFrame(), 3);
    int difference = 0;
    for (int i = 0; i < frame->GetByteSize(); ++i) difference = std::max(difference, std::abs(frame->Read()[i] - sink.last->Read()[i]));
    EXPECT_LE(difference, largest) << mode;
  }
}

struct MergeBench {
  TestSource sources[3];
  TPQColorMerge merge;
  TestSink sink;
  explicit MergeBench(int first = 0, int last = 2) {
    for (int i = first; i <= last; ++i) EXPECT_TRUE(sources[i].OutputPin.Connect(*merge.InputPins.GetPin(i)).Ok());
    EXPECT_TRUE(merge.OutputPin.Connect(sink.InputPin).Ok());
  }
  void Send(int i, int value, int width, int height) {
    PQImageRef plane = PQMakeRef<TPQImageBuffer>(width, height, vfGrayScale);
    std::fill_n(plane->Write(), plane->GetByteSize(), static_cast<std::uint8_t>(value));
    sources[i].OutputPin.SubmitBuffer(plane);
  }
};

TEST(PQColorMerge, OffsetsMakeTheFrameLarger) {
  MergeBench b;
  b.merge.GetChannels().GetChannel1().SetX(1);
  b.merge.GetChannels().GetChannel3().SetY(2);
  b.merge.SetBackgroundColor(0x0A0B0C);  // channel 0 is 0C
  for (int i = 0; i < 3; ++i) b.sources[i].Start(2, 1);
  EXPECT_EQ(b.sink.log.back(), "TJCStartFrameOperation 3x3 3 0") << "the delay is of no use to receivers";
  for (int i = 0; i < 3; ++i) b.Send(i, 100 + i, 2, 1);
  PQImageRef out = b.sink.last;
  ASSERT_TRUE(out);
  EXPECT_EQ(out->GetPixel(0, 0), 0x0A650Cu) << "the background in the first and third channel";
  EXPECT_EQ(out->GetPixel(2, 0), 0x0A0B64u) << "the first plane is moved right";
  EXPECT_EQ(out->GetPixel(0, 2), 0x660B0Cu) << "the third is moved down";
}

TEST(PQColorMerge, WaitsForEveryStartedInputAndDropsSecondFrames) {
  MergeBench b;
  b.sources[0].Start(2, 2);
  b.sources[1].Start(2, 2);
  b.Send(0, 1, 2, 2);
  b.Send(0, 9, 2, 2);
  EXPECT_FALSE(b.sink.last);
  b.Send(1, 2, 2, 2);
  ASSERT_TRUE(b.sink.last);
  EXPECT_EQ(b.sink.last->GetPixel(0, 0), 0x000201u) << "the first frame of input 0; the third input does not hold it up";
  b.Send(0, 5, 2, 2);
  b.sources[1].OutputPin.Stop();
  EXPECT_EQ(b.sink.log.back(), "TJCStopOperation") << "forwarded at once";
  b.Send(0, 6, 2, 2);
  EXPECT_EQ(b.sink.last->GetPixel(0, 0), 0x000005u) << "a stopped input is not waited for";
}

TEST(PQColorMerge, CountsConnectedInputs) {
  MergeBench b(1, 2);
  b.merge.SetBackgroundColor(0x070000);
  b.sources[1].Start(1, 1);
  b.sources[2].Start(1, 1);
  b.Send(1, 50, 1, 1);
  b.Send(2, 60, 1, 1);
  ASSERT_TRUE(b.sink.last);
  EXPECT_EQ(b.sink.last->GetPixel(0, 0), 0x073C32u) << "the second input brings the first channel";
}

TEST(PQColorMerge, SizesThatDoNotFit) {
  MergeBench b(0, 0);
  b.Send(0, 1, 700, 700);  // before any start: the background at its first size
  ASSERT_TRUE(b.sink.last);
  EXPECT_EQ(b.sink.last->GetWidth(), 600);
  b.sources[0].Start(4, 4);
  b.Send(0, 3, 2, 9);  // smaller and higher than announced
  EXPECT_EQ(b.sink.last->GetPixel(1, 3) & 0xff, 3u);
  EXPECT_EQ(b.sink.last->GetPixel(2, 3) & 0xff, 0u);
  b.merge.GetChannels().GetChannel1().SetX(0xffffffff);
  b.merge.GetChannels().GetChannel1().SetY(0xffffffff);
  const auto frames = b.sink.log.size();
  b.sources[0].Start(4, 4);
  b.Send(0, 3, 4, 4);
  EXPECT_EQ(b.sink.log.size(), frames + 1) << "a start, and no frame of such a size";
  // Y lowered after the start: the plane stands where it was announced, clipped.
  MergeBench c(0, 1);
  c.merge.GetChannels().GetChannel1().SetY(5);
  c.sources[0].Start(2, 2);
  c.merge.GetChannels().GetChannel1().SetY(0);
  c.sources[1].Start(2, 2);
  c.Send(0, 1, 2, 2);
  c.Send(1, 2, 2, 2);
  ASSERT_TRUE(c.sink.last);
  EXPECT_EQ(c.sink.last->GetHeight(), 2);
  EXPECT_EQ(c.sink.last->GetPixel(0, 0), 0x000200u);
  c.sources[0].OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(0, 0, 0, vfRGB24));
  c.Send(0, 1, 2, 2);
}

TEST(PQColorMerge, InputsOnThreeThreads) {
  MergeBench b;
  b.sink.on_op = [](IJCNotifyOperation&) {};
  for (TestSource& source : b.sources) source.Start(8, 8);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&b, i] {
      for (int n = 0; n < 200; ++n) {
        b.Send(i, n, 8, 8);
        if (n % 50 == 49) b.sources[i].Start(8, 8 + n);
      }
      b.sources[i].OutputPin.Stop();
    });
  }
  for (int n = 0; n < 9; ++n) b.merge.SetColorMode(kModes[n]), b.merge.SetBackgroundColor(static_cast<TColor>(n));
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(b.sink.ops, 3);
}

TEST(PQColorsToReal, LinesAndFrames) {
  Fan<TPQColorsToReal, NumberSink> fan;
  fan.source.Start(2, 2);
  EXPECT_EQ(fan.sinks[0].log.back(), "TJCStartSampleRateOperation 2 100");
  PQImageRef frame = Frame({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, 2, 2);
  using V = std::vector<std::vector<double>>;
  fan.Send(frame);
  EXPECT_EQ(fan.sinks[0].blocks, (V{{3, 6}, {9, 12}}));
  EXPECT_EQ(fan.sinks[2].blocks, (V{{1, 4}, {7, 10}}));
  fan.filter.SetScanMode(smFrame);
  fan.source.Start(2, 2);
  EXPECT_EQ(fan.sinks[0].log.back(), "TJCStartSampleRateOperation 4 100");
  fan.Send(frame);
  EXPECT_EQ(fan.sinks[1].blocks.back(), (std::vector<double>{2, 5, 8, 11}));
  fan.source.OutputPin.Stop();
  EXPECT_EQ(fan.sinks[0].log.back(), "TJCStopOperation");
  fan.Send(MakeFrame(0, 3));
  fan.source.Start(65535, 65535);
  EXPECT_EQ(fan.sinks[0].log.back().substr(0, 38), "TJCStartSampleRateOperation 2147483647");
}

TEST(PQColorsToReal, GrayFrames) {
  Fan<TPQColorsToReal, NumberSink> fan;
  const auto last = [&](TPQColorMode mode) {
    fan.filter.SetColorMode(mode);
    fan.Send(Frame({7, 200, 3, 4}, 2, 2, vfGrayScale));
    std::vector<std::vector<double>> all;
    for (NumberSink& sink : fan.sinks) all.push_back(sink.blocks.at(sink.blocks.size() - 2));  // the first row
    return all;
  };
  using V = std::vector<std::vector<double>>;
  EXPECT_EQ(last(cmRGB), (V{{7, 200}, {7, 200}, {7, 200}}));
  EXPECT_EQ(last(cmHLS), (V{{0, 0}, {7, 200}, {0, 0}}));
  EXPECT_EQ(last(cmHSV), (V{{0, 0}, {0, 0}, {7, 200}}));
  EXPECT_EQ(last(cmYUV), (V{{7, 200}, {128, 128}, {128, 128}}));
  EXPECT_EQ(last(cmLab)[1], last(cmLab)[2]);
  // Blocks that somebody holds stay as they were sent.
  const auto* first = PQCast<IRWRealBuffer>(fan.sinks[0].held.front().Get());
  EXPECT_EQ(first->Read()[1], 200);
}

TEST(PQHistogram, LevelsMoveOneAnother) {
  TPQHistogram h;
  h.SetLowerLevel(300);
  EXPECT_EQ(h.GetLowerLevel(), 255);
  EXPECT_EQ(h.GetUpperLevel(), 255);
  h.SetUpperLevel(100);
  EXPECT_EQ(h.GetLowerLevel(), 100);
  h.SetUpperLevel(65535);
  EXPECT_EQ(h.GetUpperLevel(), 255);
  EXPECT_EQ(h.GetLowerLevel(), 100);
}

TEST(PQHistogram, CountsEachChannel) {
  Fan<TPQHistogram, NumberSink> fan;
  fan.source.Start(2, 2);
  EXPECT_EQ(fan.sinks[0].log.back(), "TJCStartIntensityOperation 256 6400");
  PQImageRef frame = Frame({1, 2, 100, 1, 5, 100, 7, 8, 100, 10, 11, 255}, 2, 2);
  fan.Send(frame);
  EXPECT_EQ(fan.sinks[0].blocks.back()[100], 3);
  EXPECT_EQ(fan.sinks[0].blocks.back()[255], 1);
  EXPECT_EQ(fan.sinks[2].blocks.back()[1], 2);
  fan.filter.SetLowerLevel(100);
  fan.filter.SetUpperLevel(100);
  fan.Send(frame);
  EXPECT_EQ(fan.sinks[0].blocks.back(), std::vector<double>{3});
  EXPECT_EQ(fan.sinks[1].blocks.back(), std::vector<double>{0});
  // In another colour space: every pixel is counted once in each channel.
  fan.filter.SetLowerLevel(0);
  fan.filter.SetUpperLevel(255);
  for (TPQColorMode mode : kModes) {
    fan.filter.SetColorMode(mode);
    fan.Send(MakeFrame(640, 40));
    for (NumberSink& sink : fan.sinks) {
      double sum = 0;
      for (const double n : sink.blocks.back()) sum += n;
      EXPECT_EQ(sum, 640 * 40) << mode;
    }
  }
}

TEST(PQHistogram, GrayFrames) {
  Fan<TPQHistogram, NumberSink> fan;
  const PQImageRef gray = MakeFrame(320, 240, vfGrayScale);
  const auto last = [&](TPQColorMode mode, int k) -> const std::vector<double>& {
    fan.filter.SetColorMode(mode);
    fan.Send(gray);
    return fan.sinks[k].blocks.back();
  };
  const std::vector<double> flat(256, 300), none(256, 0);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(last(cmRGB, k), flat);
  EXPECT_EQ(last(cmHLS, 1), flat);
  EXPECT_EQ(last(cmHLS, 2), none);
  EXPECT_EQ(last(cmHSV, 2), flat);
  EXPECT_EQ(last(cmHSV, 0), none);
  EXPECT_EQ(last(cmYUV, 0), flat);
  for (int k : {1, 2}) EXPECT_EQ(last(cmYUV, k)[127], 76800);
  fan.filter.SetLowerLevel(200);  // no element 127 any more
  EXPECT_EQ(last(cmYUV, 1), std::vector<double>(56, 0));
  fan.Send(MakeFrame(0, 0));
}

// Sends numbers down; answers pumps with what `answer` holds.
class NumberSource final : public TComponent {
 public:
  NumberSource() : TComponent(nullptr), OutputPin(*this, JCDispatch::To<&NumberSource::Dispatch>(this)) {}
  ~NumberSource() override { BeforeDestructionOnce(); }
  TRWJCRealSourcePin OutputPin;
  int pumps = 0, nested = 0, depth = 0;
  std::function<void()> answer;
  void Start(double rate) { OutputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, rate)); }
  void Send(const std::vector<double>& values) {
    auto block = PQMakeRef<TRWRealBuffer>(static_cast<std::int32_t>(values.size()));
    std::copy(values.begin(), values.end(), block->Write());
    OutputPin.SubmitBuffer(std::move(block));
  }

 private:
  void BeforeDestruction() override { OutputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (JCOperation<TJCMasterPumpOperation>(op) == nullptr) return {};
    ++pumps;
    if (depth++ > 0) ++nested;
    if (answer) answer();
    --depth;
    return {};
  }
};

struct RealBench {
  NumberSource source;
  TPQRealToFrame filter;
  TestSink sink;
  RealBench() {
    EXPECT_TRUE(source.OutputPin.Connect(filter.InputPin).Ok());
    EXPECT_TRUE(filter.OutputPin.Connect(sink.InputPin).Ok());
  }
};

TEST(PQRealToFrame, FillsFramesAndKeepsTheRest) {
  RealBench b;
  b.filter.SetWidth(0);
  EXPECT_EQ(b.filter.GetWidth(), 1u);
  b.filter.SetWidth(2);
  b.filter.SetHight(2);
  b.source.Send({1, 2, 3, 4, 5});
  EXPECT_TRUE(b.sink.log.empty()) << "no frame before a start";
  b.source.Start(100);
  EXPECT_EQ(b.sink.log.back(), "TJCStartFrameOperation 2x2 400000 0");
  b.source.Send({0.5, 1.5, 2.49, 256, -1, 255.5, 1e300, std::nan(""), 9, 8});
  EXPECT_EQ(b.sink.log.size(), 3u) << "two frames, half a frame is kept";
  EXPECT_EQ(b.sink.last->GetFormat(), vfGrayScale);
  EXPECT_EQ(Bytes(*b.sink.last), (std::vector<int>{255, 0, 255, 0})) << "no clamp; 255.5 goes to 256";
  EXPECT_EQ(b.sink.last->GetTimeStamp().GetBegin(), 400000);
  b.source.OutputPin.Notify(*PQMakeRef<TJCSuppliedSingleOperation>(7.0f));
  b.source.OutputPin.Notify(*PQMakeRef<TJCSuppliedRealOperation>(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ(Bytes(*b.sink.last), (std::vector<int>{9, 8, 7, 0}));
  b.source.OutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  EXPECT_EQ(b.sink.log.back(), "TJCRWPauseOperation");
  b.source.Send({1});
  b.source.Start(100);
  b.source.Send({1, 2, 3, 4});
  EXPECT_EQ(Bytes(*b.sink.last), (std::vector<int>{1, 2, 3, 4})) << "a start begins a frame";
  EXPECT_EQ(b.sink.last->GetTimeStamp().GetBegin(), 0) << "and counts anew";
  b.source.Start(0);
  EXPECT_EQ(b.sink.log.back(), "TJCStartFrameOperation 2x2 0 0");
  b.filter.SetWidth(4000000000u);
  b.source.Start(1);
  b.source.Send({1, 2, 3, 4, 5});
  EXPECT_EQ(b.sink.log.back().substr(0, 22), "TJCStartFrameOperation") << "no frame of such a size";
}

TEST(PQRealToFrame, PassesPumpsUnlessFramesAreOutstanding) {
  RealBench b;
  b.filter.SetWidth(2);
  b.filter.SetHight(1);
  b.source.Start(50);
  int master = 0;
  b.sink.InputPin.MasterPump(&master);
  EXPECT_EQ(b.source.pumps, 1);
  b.source.Send({1, 2, 3, 4, 5, 6});  // three frames for one pump: two are outstanding
  b.sink.InputPin.MasterPump(&master);
  b.sink.InputPin.MasterPump(&master);
  EXPECT_EQ(b.source.pumps, 1);
  b.sink.InputPin.MasterPump(&master);
  EXPECT_EQ(b.source.pumps, 2);
  b.source.Send({1});  // not a whole frame: asks for more by itself
  EXPECT_EQ(b.source.pumps, 3);
}

// A source that answers each pump at once with one number: 100,000 of them, and no call nests.
TEST(PQRealToFrame, PumpsDoNotNest) {
  RealBench b;
  b.filter.SetWidth(1000);
  b.filter.SetHight(100);
  b.source.Start(50);
  b.source.answer = [&] { b.source.OutputPin.Notify(*PQMakeRef<TJCSuppliedRealOperation>(b.source.pumps)); };
  int master = 0;
  b.sink.InputPin.MasterPump(&master);
  EXPECT_EQ(b.source.pumps, 100000);
  EXPECT_EQ(b.source.nested, 0);
  ASSERT_TRUE(b.sink.last);
  EXPECT_EQ(b.sink.last->Read()[999], 1000 % 256);
}

// A source that answers a pump with a whole frame in many blocks: each block but the last asks for more, and that must not
// make the source run on for ever.
TEST(PQRealToFrame, WhatAFrameAskedForEndsWithIt) {
  RealBench b;
  b.filter.SetWidth(4);
  b.filter.SetHight(3);
  b.source.Start(50);
  b.source.answer = [&] {
    for (int row = 0; row < 3 && b.source.pumps < 100; ++row) b.source.Send({1, 2, 3, 4});
  };
  int master = 0;
  for (int n = 1; n <= 3; ++n) {
    b.sink.InputPin.MasterPump(&master);
    EXPECT_EQ(b.source.pumps, n);
    EXPECT_EQ(b.sink.log.size(), 1u + static_cast<std::size_t>(n)) << "one frame for each pump";
  }
}

TEST(PQRealToFrame, GivesBackWhatColorsToRealMade) {
  TestSource source;
  TPQColorsToReal numbers;
  TPQRealToFrame frames;
  TestSink sink;
  frames.SetWidth(31);
  frames.SetHight(17);
  ASSERT_TRUE(source.OutputPin.Connect(numbers.InputPin).Ok());
  ASSERT_TRUE(numbers.OutputPins.GetPin(1)->Connect(frames.InputPin).Ok());
  ASSERT_TRUE(frames.OutputPin.Connect(sink.InputPin).Ok());
  for (auto scan : {smLine, smFrame}) {
    numbers.SetScanMode(scan);
    source.Start(31, 17);
    EXPECT_EQ(sink.log.back(), "TJCStartFrameOperation 31x17 400000 0");
    source.OutputPin.SubmitBuffer(MakeFrame(31, 17, vfGrayScale));
    EXPECT_EQ(Bytes(*sink.last), Bytes(*MakeFrame(31, 17, vfGrayScale)));
  }
}

}  // namespace
}  // namespace pantiq
