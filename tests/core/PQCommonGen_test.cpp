#include "pantiq/core/PQCommonGen.h"

#include <gtest/gtest.h>

#include <semaphore>
#include <stdexcept>
#include <thread>

#include "pantiq/core/RWThreads.h"
#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

class Ramp final : public TPQCommonGen {
 public:
  explicit Ramp(TComponent* owner = nullptr) : TPQCommonGen(owner) {}
  ~Ramp() override { BeforeDestructionOnce(); }
  std::atomic<int> made{0};
  bool fail = false;

 protected:
  void GenerateFrame(PQImageRef& buffer) override {
    ++made;
    if (fail) throw std::runtime_error("no frame");
    buffer->Clear();
  }
};

void WaitFor(const std::atomic<int>& count, int least) {
  while (count < least) std::this_thread::yield();
}

TEST(PQCommonGen, AnnouncesInOrderAndRunsOnItsOwnThread) {
  Ramp gen;
  TestSink sink;
  gen.GetImageSizeObject().Set({20, 10});
  gen.SetRate(500);
  gen.SetRate(-1);
  gen.SetRate(std::numeric_limits<double>::infinity());
  EXPECT_EQ(gen.GetRate(), 500);
  ASSERT_TRUE(gen.OutputPin.Connect(sink.InputPin).Ok());
  sink.InputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));
  WaitFor(sink.ops, 6);
  sink.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
  const int ops = sink.ops;
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(sink.ops, ops) << "nothing after the stop";
  EXPECT_EQ(sink.log[0], "TJCPumpRequestOperation");
  EXPECT_EQ(sink.log[1], "TJCStartFrameOperation 20x10 20000 0");
  EXPECT_EQ(sink.log[2], "TJCStartPumpOperation");
  EXPECT_EQ(sink.log[3], "frame 20x10 0");
  EXPECT_EQ(sink.log.back(), "TJCStopOperation");
}

TEST(PQCommonGen, AClaimedPumpMakesEveryFrameAndNests) {
  Ramp gen;
  TestSink sink;
  std::vector<int> codes;
  std::vector<std::int64_t> begins;
  int depth = 0, deepest = 0;
  sink.on_op = [&](IJCNotifyOperation& op) {
    if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
      request->Master = &sink, request->Kind = 3;
    } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      deepest = std::max(deepest, ++depth);
      TPQImageBuffer* frame = new TPQImageBuffer(*supplied->Buffer);
      auto held = PQRef<TPQImageBuffer>::Adopt(frame);
      codes.push_back(frame->GetTimeCode().GetFrame());
      begins.push_back(frame->GetTimeStamp().GetBegin());
      if (codes.size() % 10 != 0) sink.InputPin.MasterPump(&sink);  // from inside the frame's own way
      --depth;
    }
  };
  ASSERT_TRUE(gen.OutputPin.Connect(sink.InputPin).Ok());
  sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
  EXPECT_TRUE(codes.empty()) << "a claimed generator waits for pumps";
  sink.InputPin.MasterPump(&sink);
  EXPECT_EQ(codes, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(begins[9], 9 * 400000);
  EXPECT_EQ(deepest, 1) << "nested pumps are repeated, not nested";
  sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
  sink.InputPin.MasterPump(&sink);
  EXPECT_EQ(codes[10], 0) << "a new start counts from 0";
  sink.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
  sink.InputPin.MasterPump(&sink);
  EXPECT_EQ(codes.size(), 20u);
}

TEST(PQCommonGen, StopsStartsAndDiesInsideItsOwnFrame) {
  auto gen = std::make_unique<Ramp>();
  gen->SetRate(1000);
  TestSink sink;
  std::atomic<int> frames{0};
  sink.on_op = [&](IJCNotifyOperation& op) {
    if (JCOperation<TJCSuppliedBufferOperation>(op) == nullptr) return;
    const int n = ++frames;
    if (n == 3) sink.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
    if (n == 3) sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
    if (n == 6) gen.reset();
  };
  ASSERT_TRUE(gen->OutputPin.Connect(sink.InputPin).Ok());
  sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
  WaitFor(frames, 6);
  while (sink.InputPin.IsConnected()) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(frames, 6);
}

TEST(PQCommonGen, IdlesWithoutASinkAndSurvivesALostFrame) {
  Ramp gen;
  gen.SetRate(1000);
  gen.fail = true;
  {
    TestSink sink;
    ASSERT_TRUE(gen.OutputPin.Connect(sink.InputPin).Ok());
    sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
    WaitFor(gen.made, 3);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const int made = gen.made;
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_LE(gen.made, made + 1);
}

TEST(RWThreads, AClockThreadRunsOncePerClock) {
  std::atomic<int> runs{0};
  {
    TRWClockThread thread([&] {
      ++runs;
      if (runs == 2) throw 1;  // dropped
    });
    for (int i = 0; i < 50; ++i) thread.Clock();
    WaitFor(runs, 50);
    EXPECT_EQ(thread.Pending(), 0);
  }
  EXPECT_EQ(runs, 50);
}

TEST(RWThreads, ANotifyThreadCoalescesAndMayEndItself) {
  std::atomic<int> runs{0};
  std::unique_ptr<TRWNotifyThread> thread;
  thread = std::make_unique<TRWNotifyThread>([&] {
    if (runs == 1) thread.reset();
    ++runs;
  });
  TRWNotifyThread* raw = thread.get();
  raw->Notify();
  WaitFor(runs, 1);
  raw->Notify();
  WaitFor(runs, 2);
}

TEST(RWThreads, NotifiesThatComeDuringARunMakeOneMore) {
  std::counting_semaphore<> begun(0), may_end(0);
  TRWNotifyThread thread([&] {
    begun.release();
    may_end.acquire();
  });
  thread.Notify();
  begun.acquire();
  for (int i = 0; i < 5; ++i) thread.Notify();
  may_end.release();
  begun.acquire();
  may_end.release(100);
  EXPECT_FALSE(begun.try_acquire_for(std::chrono::milliseconds(10)));
}

TEST(RWThreads, AReleasedClockIsSilent) {
  std::atomic<int> ticks{0}, others{0};
  auto item = RWGetClockGen(1, [&] { ++ticks; }, nullptr);
  auto other = RWGetClockGen(0, [&] { ++others; }, nullptr);  // at least 1 ms
  WaitFor(ticks, 5);
  RWReleaseClockGen(item, nullptr);
  const int seen = ticks;
  WaitFor(others, others + 5);
  EXPECT_EQ(ticks, seen);
  RWReleaseClockGen(other, nullptr);
  RWReleaseClockGen(other, nullptr);
}

TEST(RWThreads, MainThreadNotifiesWaitForTheHost) {
  int runs = 0;
  TRWMainThreadNotify notify([&] { ++runs; });
  notify.Notify();  // nobody has ever pumped: at once
  EXPECT_EQ(runs, 1);
  ProcessMainThreadNotifies();
  std::thread([&] { notify.Notify(); }).join();
  EXPECT_EQ(runs, 1);
  ProcessMainThreadNotifies();
  EXPECT_EQ(runs, 2);
}

TEST(RWStreamTypes, OperationListsKeepTheirOrder) {
  TJCObject lock;
  TRWOperationList list(&lock);
  EXPECT_FALSE(list.Pop());
  EXPECT_FALSE(list.Peek());
  auto a = PQMakeRef<TJCStopOperation>();
  auto b = PQMakeRef<TRWInternalStopOperation>();
  EXPECT_EQ(list.Push(a), 1);
  EXPECT_EQ(list.Push(b), 2);
  list.PushBack(list.Pop());
  EXPECT_EQ(list.Peek(), a.Get());
  EXPECT_EQ(list.Push(b, true), 1);
  EXPECT_EQ(list.Pop(), b.Get());
  EXPECT_EQ(JCOperation<TJCStopOperation>(*b), nullptr) << "an internal stop is no stop";
  list.Lock();
  list.Unlock();
}

TEST(PQStreamTypes, StartsCarryRatesAndDelays) {
  TJCStartFrameOperation* start = new TJCStartFrameOperation(4, 3, 400000, vfRGB24);
  auto held = PQRef<TJCStartFrameOperation>::Adopt(start);
  EXPECT_EQ(start->Rate, 25.0f);
  EXPECT_EQ(start->SampleRate, 25.0);
  EXPECT_EQ(PQMakeRef<TJCStartFrameOperation>(4, 3, 0, vfRGB24)->Rate, 0.0f);
  EXPECT_EQ(PQMakeRef<TJCStartFrameOperation>(4, 3, 1LL << 40, vfRGB24)->FrameDelay, 2147483647);
  EXPECT_EQ(pq_delay(25.0), 400000);
  EXPECT_EQ(pq_delay(std::numeric_limits<double>::quiet_NaN()), 0);
  EXPECT_EQ(pq_round<int>(2.5), 2);
  EXPECT_EQ(pq_round<int>(-3.5), -4);
  EXPECT_EQ(pq_round<int>(1e300), 2147483647);
  EXPECT_EQ(pq_round<std::uint8_t>(-4.0), 0);
}

}  // namespace
}  // namespace pantiq
