#include "pantiq/compose/PQFrameChange.h"

#include <gtest/gtest.h>

#include "tests/compose/Pair.h"

namespace pantiq {
namespace {

struct Change {
  TestSource source;
  TPQFrameChange filter;
  TestSink sink;
  Change() {
    EXPECT_TRUE(source.OutputPin.Connect(filter.InputPin).Ok());
    EXPECT_TRUE(filter.OutputPin.Connect(sink.InputPin).Ok());
    source.Start(2, 1);
  }
  std::vector<int> Send(const std::vector<int>& bytes, int width, TPQVideoFormat format = vfRGB24) {
    source.OutputPin.SubmitBuffer(Frame(bytes, width, 1, format));
    EXPECT_EQ(sink.last->GetFormat(), format);
    return Bytes(*sink.last);
  }
};

TEST(PQFrameChange, OperationsInTheirOrder) {
  const std::vector<int> before = {10, 30, 200, 0, 5, 0}, now = {30, 10, 100, 7, 0, 0};
  const std::pair<TPQFrameChangeOperation, std::vector<int>> table[] = {
      {fcoAdd, {40, 40, 255, 7, 5, 0}},
      {fcoSubtractOld, {0, 20, 100, 0, 5, 0}},
      {fcoSubtractNew, {20, 0, 0, 7, 0, 0}},
      {fcoMultiply, {255, 255, 255, 0, 0, 0}},
      {fcoDivideOld, {0, 3, 2, 0, 255, 0}},
      {fcoDivideNew, {3, 0, 0, 255, 0, 0}},
      {fcoOr, {30, 30, 236, 7, 5, 0}},
      {fcoAnd, {10, 10, 64, 0, 0, 0}},
      {fcoXor, {20, 20, 172, 7, 5, 0}},
      {fcoAbsDiff, {20, 20, 100, 7, 5, 0}},
      {static_cast<TPQFrameChangeOperation>(10), now}};
  for (const auto& [operation, expected] : table) {
    SCOPED_TRACE(int{operation});
    Change c;
    EXPECT_EQ(c.filter.GetFrameChangeOperation(), fcoAbsDiff);
    c.filter.SetFrameChangeOperation(operation);
    EXPECT_EQ(c.Send(before, 2), before) << "the first frame passes";
    EXPECT_EQ(c.Send(now, 2), expected);
    c.source.Start(6, 1);
    EXPECT_EQ(c.Send(before, 6, vfGrayScale), before) << "the first after a new start";
    EXPECT_EQ(c.Send(now, 6, vfGrayScale), expected);
    c.source.Start(6, 1);
    EXPECT_EQ(c.Send(before, 6, vfGrayScale), before) << "also one of the same form";
  }
}

TEST(PQFrameChange, TheFrameBeforeIsTheOneThatCameIn) {
  Change c;
  c.filter.SetFrameChangeOperation(fcoSubtractNew);
  c.Send({10, 10, 10}, 1);
  EXPECT_EQ(c.Send({30, 30, 30}, 1), (std::vector<int>{20, 20, 20}));
  EXPECT_EQ(c.Send({35, 30, 20}, 1), (std::vector<int>{5, 0, 0})) << "the difference of two source frames";

  // Another size or format begins anew.
  EXPECT_EQ(c.Send({9, 9, 9, 9, 9, 9}, 2), std::vector<int>(6, 9));
  EXPECT_EQ(c.Send({9, 9, 9, 9, 9, 11}, 2), (std::vector<int>{0, 0, 0, 0, 0, 2}));
  EXPECT_EQ(c.Send({4, 4}, 2, vfGrayScale), (std::vector<int>{4, 4}));
  EXPECT_EQ(c.Send({5, 4}, 2, vfGrayScale), (std::vector<int>{1, 0}));
  c.source.OutputPin.SubmitBuffer(PQMakeRef<TPQImageBuffer>());
  EXPECT_EQ(c.sink.log.back(), "frame 0x0 0");
  EXPECT_EQ(c.Send({6, 4}, 2, vfGrayScale), (std::vector<int>{1, 0})) << "a frame without pixels leaves no trace";

  // While it is off nothing is kept.
  c.filter.SetEnabled(false);
  EXPECT_EQ(c.Send({100, 100}, 2, vfGrayScale), (std::vector<int>{100, 100}));
  c.filter.SetEnabled(true);
  EXPECT_EQ(c.Send({7, 7}, 2, vfGrayScale), (std::vector<int>{1, 3}));
}

TEST(PQFrameChange, SourcesStayAsTheyAre) {
  Change c;
  const PQImageRef one = Frame({1, 2, 3}, 1, 1), two = Frame({9, 9, 9}, 1, 1);
  c.source.OutputPin.SubmitBuffer(one);
  c.source.OutputPin.SubmitBuffer(two);
  EXPECT_EQ(Bytes(*c.sink.last), (std::vector<int>{8, 7, 6}));
  EXPECT_EQ(Bytes(*one), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(Bytes(*two), (std::vector<int>{9, 9, 9}));
}

}  // namespace
}  // namespace pantiq
