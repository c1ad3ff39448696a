#include "pantiq/core/JCPins.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

TEST(JCPins, ASourceDeliversInConnectionOrderAndJoinsResults) {
  TestSource source;
  TestSink a, b, c;
  std::string order;
  a.on_op = [&](IJCNotifyOperation&) { order += "a"; };
  b.on_op = [&](IJCNotifyOperation& op) {
    order += "b";
    if (order == "cab") source.OutputPin.Notify(op);  // the same connections again, from inside
  };
  c.on_op = [&](IJCNotifyOperation&) { order += "c"; };
  for (TestSink* sink : {&c, &a, &b}) ASSERT_TRUE(source.OutputPin.Connect(sink->InputPin).Ok());
  a.result.bits = 1;
  c.result.bits = 2;
  EXPECT_EQ(source.OutputPin.Notify(*PQMakeRef<TJCStopOperation>()).bits, 3);
  EXPECT_EQ(order, "cabcab");
}

TEST(JCPins, UnconnectedNotifyIsEmpty) {
  TestSource source;
  EXPECT_EQ(source.OutputPin.Notify(*PQMakeRef<TJCStopOperation>()).bits, 0);
  TestSink sink;
  EXPECT_EQ(sink.InputPin.Notify(*PQMakeRef<TJCStopOperation>()).bits, 0);
}

TEST(JCPins, ConnectingChecksDirectionTypeAndCycles) {
  TestSource source;
  TestSink sink, other;
  TRWJCBinarySinkPin binary(sink, {});
  PassFilter first, second;

  PQStatus status = sink.InputPin.Connect(other.InputPin);
  EXPECT_EQ(status.Code(), PQCode::Refused);
  EXPECT_NE(status.Text().find("both are sinks"), std::string::npos) << status.Text();
  status = source.OutputPin.Connect(binary);
  EXPECT_NE(status.Text().find("image"), std::string::npos) << status.Text();
  EXPECT_NE(status.Text().find("binary"), std::string::npos) << status.Text();

  EXPECT_TRUE(first.OutputPin.Connect(second.InputPin).Ok());
  status = second.OutputPin.Connect(first.InputPin);
  EXPECT_NE(status.Text().find("cycle"), std::string::npos) << status.Text();
  EXPECT_FALSE(first.OutputPin.Connect(first.InputPin).Ok());

  // From either end; a sink's new source replaces the old one.
  EXPECT_TRUE(sink.InputPin.Connect(source.OutputPin).Ok());
  TestSource newer;
  EXPECT_TRUE(newer.OutputPin.Connect(sink.InputPin).Ok());
  EXPECT_FALSE(source.OutputPin.IsConnected());
  EXPECT_EQ(sink.InputPin.GetSourcePin(), &newer.OutputPin);
  EXPECT_EQ(sink.InputPin.GetConnectedPinCount(), 1);
}

TEST(JCPins, NamesComeFromTheDescription) {
  PassFilter filter;
  ASSERT_TRUE(filter.SetName("blur").Ok());
  TestSink sink;
  ASSERT_TRUE(filter.OutputPin.Connect(sink.InputPin).Ok());
  EXPECT_EQ(filter.InputPin.GetName(), "InputPin");
  EXPECT_EQ(sink.InputPin.GetSaveName(), "blur.OutputPin");
}

TEST(JCPins, ASinkMayDisconnectOrDieInsideTheCall) {
  TestSource source;
  TestSink first, last;
  auto* dying = new TestSink;
  first.on_op = [&](IJCNotifyOperation&) { first.InputPin.Disconnect(); };
  dying->on_op = [&](IJCNotifyOperation&) {
    delete dying;
    dying = nullptr;
  };
  ASSERT_TRUE(source.OutputPin.Connect(first.InputPin).Ok());
  ASSERT_TRUE(source.OutputPin.Connect(dying->InputPin).Ok());
  ASSERT_TRUE(source.OutputPin.Connect(last.InputPin).Ok());
  source.OutputPin.Stop();
  EXPECT_EQ(dying, nullptr);
  EXPECT_EQ(last.ops, 1);
  source.OutputPin.Stop();
  EXPECT_EQ(first.ops, 1);
  EXPECT_EQ(last.ops, 2);
  // One that is disconnected before its turn is passed over.
  ASSERT_TRUE(source.OutputPin.Connect(first.InputPin).Ok());
  last.on_op = [&](IJCNotifyOperation&) { first.InputPin.Disconnect(); };
  source.OutputPin.Stop();
  EXPECT_EQ(last.ops, 3);
  EXPECT_EQ(first.ops, 1);
}

TEST(JCPins, ASourceMayDieInsideItsOwnCall) {
  auto source = std::make_unique<TestSource>();
  TestSink first, second;
  first.on_op = [&](IJCNotifyOperation&) { source.reset(); };
  ASSERT_TRUE(source->OutputPin.Connect(first.InputPin).Ok());
  ASSERT_TRUE(source->OutputPin.Connect(second.InputPin).Ok());
  source->OutputPin.Stop();
  EXPECT_EQ(first.ops, 1);
  EXPECT_EQ(second.ops, 0);
  EXPECT_FALSE(second.InputPin.IsConnected());
}

TEST(JCPins, DisconnectWaitsForCallsOfOtherThreads) {
  TestSource source;
  std::atomic<bool> go{true};
  std::thread sender([&] {
    while (go) source.OutputPin.Stop();
  });
  for (int i = 0; i < 300; ++i) {
    // The sink dies right after its disconnection while the sender is at work: a call that came late would be seen by the
    // sanitizers, and by the magic number.
    auto sink = std::make_unique<TestSink>();
    ASSERT_TRUE(source.OutputPin.Connect(sink->InputPin).Ok());
    while (sink->ops == 0) std::this_thread::yield();
  }
  go = false;
  sender.join();
}

TEST(JCPins, DisconnectInsideASectionWaitsAtItsEnd) {
  // The other thread's call needs the lock that this thread holds: waiting inside the section would never end.
  TestSource source;
  TestSink sink;
  TJCObject lock;
  std::atomic<bool> inside{false}, done{false};
  sink.on_op = [&](IJCNotifyOperation&) {
    inside = true;
    auto section = lock.WriteLock();
    done = true;
  };
  ASSERT_TRUE(source.OutputPin.Connect(sink.InputPin).Ok());
  std::thread sender;
  {
    auto section = lock.WriteLock();
    sender = std::thread([&] { source.OutputPin.Stop(); });
    while (!inside) std::this_thread::yield();
    sink.InputPin.Disconnect();
    EXPECT_FALSE(done);
  }
  EXPECT_TRUE(done);
  sender.join();
}

TEST(JCPins, StatePinsShareOneValueAndEndTheirEchoes) {
  TestSink owner;
  int a_calls = 0, b_calls = 0, c_calls = 0;
  TJCFloatStatePin a(owner, [&](float) { ++a_calls; }, 1.0f);
  TJCFloatStatePin b(owner, [&](float) { ++b_calls; }, 2.0f);
  TJCFloatStatePin c(owner, [&](float) { ++c_calls; }, 3.0f);
  ASSERT_TRUE(a.Connect(b).Ok());
  EXPECT_EQ(b.GetValue(), 1.0f);  // a new connection passes the value on
  ASSERT_TRUE(b.Connect(c).Ok());
  ASSERT_TRUE(c.Connect(a).Ok());  // a ring
  a_calls = b_calls = c_calls = 0;
  b.SetValue(7.5f);
  EXPECT_EQ(a.GetValue(), 7.5f);
  EXPECT_EQ(c.GetValue(), 7.5f);
  EXPECT_EQ(b_calls, 0);  // never its own closure
  EXPECT_EQ(a_calls, 1);
  EXPECT_EQ(c_calls, 1);
  b.SetValue(7.5f);
  EXPECT_EQ(a_calls, 1);
  b.SetValue(std::numeric_limits<float>::quiet_NaN());
  b.SetValue(std::numeric_limits<float>::quiet_NaN());
  EXPECT_EQ(a_calls, 2);  // equal bits are equal
}

TEST(JCPins, ValuePinsRunTheirClosures) {
  TestSink owner;
  std::vector<bool> values;
  int ticks = 0;
  TJCBoolSinkPin on(owner, [&](bool v) { values.push_back(v); });
  TJCClockSinkPin tick(owner, [&] { ++ticks; });
  TJCBoolSourcePin value(owner);
  TJCClockSourcePin clock(owner);
  TJCBoolStatePin state(owner, {}, false);
  ASSERT_TRUE(value.Connect(on).Ok());
  ASSERT_TRUE(clock.Connect(tick).Ok());
  EXPECT_FALSE(clock.Connect(on).Ok());
  value.Send(true);
  clock.Clock();
  clock.Clock();
  EXPECT_EQ(ticks, 2);
  ASSERT_TRUE(state.Connect(on).Ok());  // a state pin feeds a plain sink, which has one source
  state.SetValue(true);
  value.Send(true);
  EXPECT_EQ(values, (std::vector<bool>{true, false, true}));
}

TEST(JCPins, ListsNameFindSwapAndGrow) {
  TestSink owner;
  TestSource source;
  TJCSinkPinList list(&owner, true);
  TJCPinListOwner grows(list, 1, 3, [&] { return std::make_unique<TPQJCImageSinkPin>(owner, JCDispatch()); });
  ASSERT_EQ(list.GetCount(), 1);
  EXPECT_EQ(list.GetPinName(0), "Pin1");
  ASSERT_TRUE(source.OutputPin.Connect(*list.GetPin(0)).Ok());
  ASSERT_EQ(list.GetCount(), 2);
  ASSERT_TRUE(source.OutputPin.Connect(*list.GetPin(1)).Ok());
  ASSERT_TRUE(source.OutputPin.Connect(*list.GetPin(2)).Ok());
  EXPECT_EQ(list.GetCount(), 3);
  EXPECT_EQ(list.FirstFree(), nullptr);
  list.SetName(0, "L*");
  TJCPin* named = list.FindPin("L*");
  list.Swap(0, 1);
  EXPECT_EQ(list.IndexOf(*named), 1);
  EXPECT_EQ(list.GetPin(7), nullptr);
  list.Disconnect();
  EXPECT_EQ(list.GetCount(), 1);
}

}  // namespace
}  // namespace pantiq
