#include "pantiq/flow/PQChangeRate.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>

#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

struct Out {
  std::vector<int> bytes;
  int number;
  std::int64_t begin, end;
  bool dated;
};

struct ChangeRate : testing::Test {
  TestSource source;
  TPQChangeRate rate;
  TestSink sink;
  std::vector<Out> out;
  std::int64_t announced = -1;

  void SetUp() override {
    ASSERT_TRUE(source.OutputPin.Connect(rate.InputPin).Ok());
    ASSERT_TRUE(rate.OutputPin.Connect(sink.InputPin).Ok());
    sink.on_op = [&](IJCNotifyOperation& op) {
      if (auto* start = JCOperation<TJCStartFrameOperation>(op)) announced = start->FrameDelay;
      if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
        const TPQImageBuffer frame(*supplied->Buffer);
        out.push_back({Bytes(frame), frame.GetTimeCode().GetFrame(), frame.GetTimeStamp().GetBegin(),
                       frame.GetTimeStamp().GetEnd(), frame.GetDateTime().GetAvailable()});
      }
    };
  }
  void Send(const std::vector<int>& bytes, int number, int width = 1, TPQVideoFormat format = vfRGB24) {
    PQImageRef frame =
        PQMakeRef<TPQImageBuffer>(width, static_cast<int>(bytes.size()) / (width * PQPixelSize(format)), format);
    std::copy(bytes.begin(), bytes.end(), frame->Write());
    frame->GetTimeCode().SetFrame(number);
    frame->GetDateTime().SetTime(1);
    source.OutputPin.SubmitBuffer(frame);
  }
};

// The rate change written down again, frame by frame, with buffers that hold values.
struct Slow {
  double in, out, step, lead = 0, in_time = 0, out_time = 0;
  std::vector<std::vector<double>> buffers;
  std::vector<double> previous;
  double* where = nullptr;
  int last = -1;  // the buffer that is the previous frame; -1: `previous`
  Slow(double in_rate, double out_rate) : in(in_rate), out(out_rate), step(1.0 / (out_rate / in_rate)) {
    buffers.resize(static_cast<std::size_t>(std::ceil(out_rate / in_rate)));
  }
  static double Byte(double a, double wa, double b, double wb) {
    const double v = (a * wa + b * wb) * (1.0 / (wa + wb));
    return v <= 0 ? 0 : v >= 255 ? 255 : std::nearbyint(v);
  }
  std::vector<std::vector<int>> Feed(const std::vector<int>& frame) {
    std::vector<std::vector<int>> sent;
    if (previous.empty()) previous.assign(frame.begin(), frame.end());
    in_time += 1.0 / in;
    if (out > in) {
      double weight = 0;
      int submitted = 0;
      for (int i = 0; i < static_cast<int>(buffers.size()); ++i) {
        weight += step;
        std::vector<double> made;
        const std::vector<double>& from = last < 0 ? previous : buffers[static_cast<std::size_t>(last)];
        for (std::size_t k = 0; k < frame.size(); ++k) made.push_back(Byte(from[k], 1 - weight, frame[k], weight));
        buffers[static_cast<std::size_t>(i)] = made;
        if (i + 1 < static_cast<int>(buffers.size()) || lead >= 1.0 / out) {
          sent.emplace_back(made.begin(), made.end());
          out_time += 1.0 / out;
          submitted = i;
        }
        lead = in_time - out_time;
      }
      last = submitted;
    } else {
      if (lead >= 1.0 / out) {
        const double weight = std::min(std::max(lead / (1.0 / out) - 1.0, 0.0), 1.0);
        std::vector<int> made;
        for (std::size_t k = 0; k < frame.size(); ++k)
          made.push_back(static_cast<int>(Byte(previous[k], 1 - weight, frame[k], weight)));
        sent.push_back(made);
        out_time += 1.0 / out;
      }
      lead = in_time - out_time;
      previous.assign(frame.begin(), frame.end());
    }
    return sent;
  }
};

TEST_F(ChangeRate, BlendsByTheStatedWeights) {
  std::fesetround(FE_TONEAREST);
  for (const auto& [delay, in, out_rate] : {std::tuple<int, double, double>{400000, 25, 50},
                                            {400000, 25, 60},
                                            {400000, 25, 10},
                                            {166667, 60, 25},
                                            {333667, 30, 75},
                                            {400000, 25, 24.5},
                                            {400000, 25, 333}}) {
    SCOPED_TRACE(std::to_string(in) + " to " + std::to_string(out_rate));
    rate.SetFrameRate(out_rate);
    out.clear();
    source.Start(1, 2, delay);
    EXPECT_EQ(announced, std::llround(delay / (out_rate / in)));
    Slow slow(in, out_rate);
    std::vector<std::vector<int>> wanted;
    for (int n = 0; n < 40; ++n) {
      const std::vector<int> frame = {n * 37 % 256, 255, 0, n % 2 * 255, n * 5, 200 - n};
      Send(frame, n);
      for (auto& sent : slow.Feed(frame)) wanted.push_back(std::move(sent));
    }
    ASSERT_EQ(out.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      EXPECT_EQ(out[i].bytes, wanted[i]) << i;
      EXPECT_EQ(out[i].number, static_cast<int>(i));
      EXPECT_EQ(out[i].begin, std::llround(static_cast<double>(i) * 1e7 / out_rate));
      EXPECT_FALSE(out[i].dated);
    }
  }
}

TEST_F(ChangeRate, DoublesWithTheNewFrameLast) {
  rate.SetFrameRate(50);
  source.Start(1, 1);
  EXPECT_EQ(announced, 200000);
  Send({0, 0, 0}, 0);
  Send({100, 101, 255}, 1);
  ASSERT_EQ(out.size(), 4u);
  EXPECT_EQ(out[2].bytes, (std::vector<int>{50, 50, 128})) << "halves to even";
  EXPECT_EQ(out[3].bytes, (std::vector<int>{100, 101, 255}));
}

TEST_F(ChangeRate, PassesFramesAsTheyAreAtTheSameRate) {
  rate.SetFrameRate(30);
  source.Start(1, 1, 333667);
  EXPECT_EQ(announced, 333667);
  Send({1, 2, 3}, 17);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[0].number, 17);
  EXPECT_TRUE(out[0].dated);
  rate.SetFrameRate(60);  // acts at the next start
  Send({1, 2, 3}, 18);
  EXPECT_EQ(out.size(), 2u);
}

TEST_F(ChangeRate, TakesAStreamFromItsMiddleAndAChangeOfSize) {
  rate.SetFrameRate(50);
  source.Start(1, 1);
  Send({10, 10, 10}, 7);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(out[1].bytes, (std::vector<int>{10, 10, 10}));
  Send({1, 2, 3, 4, 5, 6}, 8, 2);
  EXPECT_EQ(out.back().bytes.size(), 6u);
  Send({9, 200}, 9, 2, vfGrayScale);
  EXPECT_EQ(out.back().bytes, (std::vector<int>{9, 200})) << "gray stays gray";
  Send({16, 128, 16, 128}, 10, 2, vfYUY2);
  EXPECT_EQ(out.back().bytes.size(), 6u) << "others become colour";
  Send({}, 11, 1);
}

TEST_F(ChangeRate, RatesThatAreNone) {
  for (const double wanted : {0.0, -5.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
    rate.SetFrameRate(wanted);
    source.Start(1, 1);
    EXPECT_EQ(announced, 2147483647);
    Send({1, 2, 3}, 0);
    EXPECT_TRUE(out.empty());
  }
  rate.SetFrameRate(25);
  for (const std::int64_t delay : {0, -3, 30000000}) {  // no rate, none, less than one a second
    out.clear();
    source.Start(1, 1, delay);
    EXPECT_EQ(announced, std::max<std::int64_t>(delay, 0));
    Send({1, 2, 3}, 0);
    EXPECT_EQ(out.size(), 1u);
  }
  rate.SetFrameRate(1e9);
  source.Start(1, 1);
  out.clear();
  Send({1, 2, 3}, 0);
  EXPECT_LE(out.size(), static_cast<std::size_t>(TPQChangeRate::kMostBuffers));
}

TEST_F(ChangeRate, FramesThatHaveLeftNeverChange) {
  rate.SetFrameRate(60);
  std::vector<PQImageRef> held;
  std::vector<std::vector<int>> then;
  sink.on_op = [&](IJCNotifyOperation& op) {
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      held.push_back(PQMakeRef<TPQImageBuffer>(*supplied->Buffer));
      then.push_back(Bytes(*held.back()));
    }
  };
  source.Start(1, 1);
  for (int n = 0; n < 20; ++n) Send({n * 10, n * 3, 255 - n}, n);
  ASSERT_GT(held.size(), 40u);
  for (std::size_t i = 0; i < held.size(); ++i) EXPECT_EQ(Bytes(*held[i]), then[i]);
}

}  // namespace
}  // namespace pantiq
