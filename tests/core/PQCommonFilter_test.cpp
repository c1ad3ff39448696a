#include "pantiq/core/PQCommonFilter.h"

#include <gtest/gtest.h>

#include <cstring>

#include "pantiq/core/PQSinkFilter.h"
#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

// Writes into the frame in place, remembers its life.
class Inverter final : public TPQCommonROIFilter {
 public:
  explicit Inverter(TComponent* owner = nullptr) : TPQCommonROIFilter(owner) {}
  ~Inverter() override { BeforeDestructionOnce(); }
  bool inline_ = false, swallow_stop = false, gray = false;
  std::string log;
  bool CanInline() const override { return inline_; }

 protected:
  void SetVideoFormat(PQImageRef& buffer) override { gray ? AcceptGray(buffer) : TPQCommonROIFilter::SetVideoFormat(buffer); }
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override {
    out->Assign(*in);
    IppiSize roi = in->GetSize();
    std::uint8_t* pixels = out->Modify();
    ReclaculateRoiAndOffsetI(roi, *in, pixels);
    for (int y = 0; y < roi.height; ++y) {
      for (int x = 0; x < roi.width * out->GetPixelSize(); ++x) pixels[y * out->GetStep() + x] ^= 0xff;
    }
  }
  void Reset() override { log += "reset " + std::to_string(StreamWidth()) + ";"; }
  bool OptionalStop() override {
    TPQCommonROIFilter::OptionalStop();
    return swallow_stop;
  }
  void Stop() override { log += "stop;"; }
};

template <class Filter>
struct Chain {
  TestSource source;
  Filter filter;
  TestSink sink;
  Chain() {
    EXPECT_TRUE(source.OutputPin.Connect(filter.InputPin).Ok());
    EXPECT_TRUE(filter.OutputPin.Connect(sink.InputPin).Ok());
  }
};

TEST(PQCommonFilter, PassesStartsStopsPumpsAndTheUnknown) {
  Chain<Inverter> chain;
  chain.source.Start(64, 48, 400000, vfGrayScale);
  chain.source.OutputPin.Notify(*PQMakeRef<TJCPumpRequestOperation>());
  chain.source.OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
  chain.source.OutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  chain.source.OutputPin.SubmitBuffer(MakeFrame(64, 48));
  chain.source.Start(32, 24);  // a change of size, without a stop
  chain.source.OutputPin.Stop();
  chain.source.OutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  chain.filter.swallow_stop = true;
  chain.source.OutputPin.Stop();
  EXPECT_EQ(chain.sink.log, (std::vector<std::string>{"TJCStartFrameOperation 64x48 400000 2", "TJCPumpRequestOperation",
                                                      "TJCStartPumpOperation", "TJCRWPauseOperation", "frame 64x48 0",
                                                      "TJCStartFrameOperation 32x24 400000 0", "TJCStopOperation",
                                                      "TJCRWPauseOperation"}));
  EXPECT_EQ(chain.filter.log, "reset 64;reset 32;stop;stop;");

  chain.sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
  chain.sink.InputPin.MasterPump(nullptr);
  EXPECT_EQ(chain.source.came_up, (std::vector<std::string>{"TJCStartOperation", "TJCMasterPumpOperation"}));
  chain.filter.InputPin.Disconnect();
  EXPECT_EQ(chain.sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>()).bits, 0);
}

TEST(PQCommonFilter, WorksOnACopyWhenOthersHoldTheFrame) {
  for (bool in_place : {false, true}) {
    Chain<Inverter> chain;
    chain.filter.inline_ = in_place;
    PQImageRef frame = MakeFrame(4, 2);
    frame->GetTimeCode().SetFrame(3);
    chain.source.OutputPin.SubmitBuffer(frame);
    EXPECT_EQ(frame->Read()[5], 5);
    ASSERT_TRUE(chain.sink.last);
    EXPECT_EQ(chain.sink.last->Read()[5], 250);
    EXPECT_EQ(chain.sink.last->GetTimeCode().GetFrame(), 3);
  }
}

TEST(PQCommonFilter, DisabledPassesTheObjectItself) {
  Chain<Inverter> chain;
  chain.filter.SetEnabled(false);
  const std::uint64_t copied = PQFramePool::CopiedBytes();
  PQImageRef frame = MakeFrame(4, 2);
  chain.source.OutputPin.SubmitBuffer(frame);
  EXPECT_EQ(chain.sink.last_object, frame.Get());
  EXPECT_EQ(PQFramePool::CopiedBytes(), copied);
  // A gray frame is still made acceptable, and then it is another object.
  PQImageRef gray = MakeFrame(4, 2, vfGrayScale);
  chain.source.OutputPin.SubmitBuffer(gray);
  EXPECT_NE(chain.sink.last_object, gray.Get());
  EXPECT_EQ(chain.sink.last->GetFormat(), vfRGB24);
  EXPECT_EQ(Bytes(*chain.sink.last)[5], 1);
}

TEST(PQCommonFilter, FramesWithoutPixelsAndForeignBuffersPass) {
  Chain<Inverter> chain;
  chain.source.OutputPin.SubmitBuffer(PQMakeRef<TPQImageBuffer>(0, 5, vfRGB24));
  chain.source.OutputPin.SubmitBuffer(PQMakeRef<TRWBlockBuffer>(16));
  chain.source.OutputPin.SubmitBuffer(nullptr);
  EXPECT_EQ(chain.sink.log, (std::vector<std::string>{"frame 0x5 0", "frame 0x0 0", "frame 0x0 0"}));
}

TEST(PQCommonROIFilter, TheRegionIsClippedToTheFrame) {
  struct Case {
    int left, top, width, height;
    int x0, y0, x1, y1;  // what is changed
  };
  const Case cases[] = {
      {1, 1, 2, 2, 1, 1, 3, 3},        // inside
      {3, 2, 100, 100, 3, 2, 6, 5},    // clipped right and below
      {99, 1, 10, 10, 5, 1, 6, 5},     // beyond the right: the last column
      {0, 77, 65535, 65535, 0, 4, 6, 5},
      {2, 2, 0, 3, 0, 0, 0, 0},        // empty
  };
  for (const Case& c : cases) {
    for (bool gray : {false, true}) {
      Chain<Inverter> chain;
      chain.filter.gray = true;
      chain.filter.GetRegion().Set({true, static_cast<std::uint16_t>(c.left), static_cast<std::uint16_t>(c.top),
                                    static_cast<std::uint16_t>(c.width), static_cast<std::uint16_t>(c.height)});
      PQImageRef frame = MakeFrame(6, 5, gray ? vfGrayScale : vfRGB24);
      chain.source.OutputPin.SubmitBuffer(frame);
      const int pixel = gray ? 1 : 3;
      for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 6 * pixel; ++x) {
          const bool inside = y >= c.y0 && y < c.y1 && x / pixel >= c.x0 && x / pixel < c.x1;
          const int before = frame->Read()[y * 6 * pixel + x];
          ASSERT_EQ(chain.sink.last->Read()[y * 6 * pixel + x], inside ? before ^ 0xff : before)
              << "left " << c.left << " top " << c.top << " at " << x << "," << y;
        }
      }
    }
  }
}

class Doubler final : public TPQCommonROISizeFilter {
 public:
  explicit Doubler(TComponent* owner = nullptr) : TPQCommonROISizeFilter(owner) {}
  ~Doubler() override { BeforeDestructionOnce(); }

 protected:
  void FilterInternalOperation(const PQImageRef&, PQImageRef& out) override {
    out->SetSize(StreamWidth(), StreamHeight());
    out->Fill(0x010203);
  }
};

TEST(PQCommonROISizeFilter, AnnouncesItsSizeAndKeepsItWhenDisabled) {
  Chain<Doubler> chain;
  chain.filter.GetOutputSize().Set({8, 0});  // each axis alone
  chain.source.Start(4, 3);
  chain.source.OutputPin.SubmitBuffer(MakeFrame(4, 3));
  chain.filter.SetEnabled(false);
  chain.source.OutputPin.SubmitBuffer(MakeFrame(4, 3));
  EXPECT_EQ(chain.sink.log, (std::vector<std::string>{"TJCStartFrameOperation 8x3 400000 0", "frame 8x3 0", "frame 8x3 0"}));
  EXPECT_EQ(chain.sink.last->Read()[24 + 11], 23) << "the input at the top left";
  EXPECT_EQ(chain.sink.last->Read()[24 + 12], 0) << "black beside it";
  chain.filter.SetInterpolation(static_cast<TPQInterpolation>(200));
  EXPECT_EQ(chain.filter.GetInterpolation(), imLanczos);
}

// Copies the roi of the source plus one, so that what was covered can be told.
class Marker final : public TPQCommonROIMatrixFilterIntermidiate {
 public:
  explicit Marker(TComponent* owner = nullptr) : TPQCommonROIMatrixFilterIntermidiate(owner) {}
  ~Marker() override { BeforeDestructionOnce(); }
  int changes = 0, calls = 0;
  IppiSize seen_roi{}, seen_mask{};
  IppStatus answer = 0;

 protected:
  void Changed(TPersistent*) override { ++changes; }
  IppStatus PerformFilter(const std::uint8_t* source, int source_step, std::uint8_t* destination, int destination_step,
                          IppiSize roi, IppiSize mask, TPoint, TPQVideoFormat) override {
    ++calls;
    seen_roi = roi, seen_mask = mask;
    if (answer < 0) return answer;
    if (roi.width < 1) return ippStsSizeErr;
    for (int y = 0; y < roi.height; ++y) {
      for (int x = 0; x < roi.width * 3; ++x) {
        destination[y * destination_step + x] = static_cast<std::uint8_t>(source[y * source_step + x] + 100);
      }
    }
    return 0;
  }
};

TEST(PQCommonROIMatrixFilter, ClipsForTheMaskAndKeepsTheRim) {
  for (int fill : {0x00, 0xEE}) {  // what a fresh block held must not show
    PQFramePool::SetFillByte(fill);
    Chain<Marker> chain;
    chain.filter.GetMaskSize().Set({5, 3});
    EXPECT_EQ(chain.filter.GetAnchor().GetX(), 2) << "an anchor in the middle follows";
    EXPECT_EQ(chain.filter.GetAnchor().GetY(), 1);
    EXPECT_EQ(chain.filter.changes, 2);
    PQImageRef frame = MakeFrame(10, 6);
    chain.source.OutputPin.SubmitBuffer(frame);
    EXPECT_EQ(chain.filter.seen_roi.width, 6);
    EXPECT_EQ(chain.filter.seen_roi.height, 4);
    for (int y = 0; y < 6; ++y) {
      for (int x = 0; x < 30; ++x) {
        const bool covered = y >= 1 && y < 5 && x >= 6 && x < 24;
        ASSERT_EQ(chain.sink.last->Read()[y * 30 + x], static_cast<std::uint8_t>(y * 30 + x + (covered ? 100 : 0)));
      }
    }
    // Refused by the kernel, too small for the mask, an anchor outside: the frame goes on as it came.
    chain.filter.answer = ippStsMaskSizeErr;
    chain.source.OutputPin.SubmitBuffer(frame);
    EXPECT_EQ(Bytes(*chain.sink.last), Bytes(*frame));
    chain.filter.answer = 0;
    chain.source.OutputPin.SubmitBuffer(MakeFrame(4, 2));
    EXPECT_EQ(chain.filter.seen_roi.width, 0);
    EXPECT_EQ(Bytes(*chain.sink.last), Bytes(*MakeFrame(4, 2)));
    const int calls = chain.filter.calls;
    chain.filter.GetAnchor().Set({60000, 60000});
    chain.source.OutputPin.SubmitBuffer(frame);
    EXPECT_EQ(chain.filter.calls, calls);
    EXPECT_EQ(Bytes(*chain.sink.last), Bytes(*frame));
    chain.filter.GetMaskSize().Set({7, 7});
    EXPECT_EQ(chain.filter.GetAnchor().GetX(), 60000) << "any other anchor stays";
    chain.filter.GetAnchor().Set({3, 60000});
    chain.filter.GetMaskSize().Set({9, 9});
    EXPECT_EQ(chain.filter.GetAnchor().GetX(), 3) << "also one in the middle of one side alone";
    PQFramePool::SetFillByte(-1);
  }
}

class Counter final : public TPQSinkFilter {
 public:
  explicit Counter(TComponent* owner = nullptr) : TPQSinkFilter(owner) {
    for (const char* name : {"Red", "Green"}) {
      OutputPins.Add(*new TRWJCRealSourcePin(*this, JCDispatch::To<&Counter::SourceDispatch>(this)), name);
    }
  }
  ~Counter() override { BeforeDestructionOnce(); }
  std::string log;

 protected:
  void IntStart(std::int32_t width, std::int32_t) override { log += "start " + std::to_string(width) + ";"; }
  void IntStop() override { log += "stop;"; }
  void ProcessImage(PQImageRef buffer) override { log += "frame " + std::to_string(buffer->GetWidth()) + ";"; }
  void SendStart(TJCStartFrameOperation&) override { NotifyOutputs(*PQMakeRef<TJCStartIntensityOperation>(256, 1.0)); }
};

TEST(PQSinkFilter, FollowsItsForm) {
  TestSource source;
  Counter counter;
  TestSink owner;
  std::vector<std::string> out;
  struct Real {
    std::vector<std::string>& out;
    TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
      out.push_back(op.Tag().Name());
      return {};
    }
  } real{out};
  TRWJCComboRealSinkPin red(owner, JCDispatch::To<&Real::Dispatch>(&real)), green(owner, JCDispatch::To<&Real::Dispatch>(&real));
  ASSERT_TRUE(source.OutputPin.Connect(counter.InputPin).Ok());
  ASSERT_TRUE(counter.OutputPins.FindPin("Red")->Connect(red).Ok());
  ASSERT_TRUE(counter.OutputPins.GetPin(1)->Connect(green).Ok());
  EXPECT_EQ(red.GetSaveName(), "TPQSinkFilter.OutputPins.'Red'");
  source.Start(9, 4);
  source.OutputPin.SubmitBuffer(MakeFrame(9, 4));
  source.OutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  source.OutputPin.Stop();
  EXPECT_EQ(counter.log, "start 9;frame 9;stop;");
  EXPECT_EQ(out, (std::vector<std::string>{"TJCStartIntensityOperation", "TJCStartIntensityOperation", "TJCRWPauseOperation",
                                           "TJCRWPauseOperation", "TJCStopOperation", "TJCStopOperation"}));
  red.Notify(*PQMakeRef<TJCStartOperation>());
  EXPECT_EQ(source.came_up, (std::vector<std::string>{"TJCStartOperation"}));
}

}  // namespace
}  // namespace pantiq
