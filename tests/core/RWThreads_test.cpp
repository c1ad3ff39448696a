#include "pantiq/core/RWThreads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

namespace pantiq {
namespace {

TEST(RWSimulatedClock, RunsWhatIsDueInOrderOnTheCaller) {
  RWSimulatedClock clock;
  std::vector<std::string> ran;
  auto fast = RWGetClockGen(
      30, [&] { ran.push_back("fast"); }, nullptr);
  auto slow = RWGetClockGen(
      70,
      [&] {
        ran.push_back("slow");
        throw std::runtime_error("dropped");
      },
      nullptr);
  auto busy = RWGetClockGen(
      0, [] {}, nullptr);  // at least 1 ms
  EXPECT_EQ(clock.ItemsCount(), 3);
  clock.Advance(29);
  EXPECT_TRUE(ran.empty());
  clock.Advance(71);
  EXPECT_EQ(ran, (std::vector<std::string>{"fast", "fast", "slow", "fast"}));
  RWReleaseClockGen(fast, nullptr);
  EXPECT_EQ(fast, nullptr);
  clock.Advance(40);
  EXPECT_EQ(ran.size(), 5u);
  EXPECT_EQ(ran.back(), "slow");
  RWReleaseClockGen(slow, nullptr);
  RWReleaseClockGen(busy, nullptr);
}

TEST(RWSimulatedClock, AClosureMayReleaseItself) {
  RWSimulatedClock clock;
  int runs = 0;
  std::shared_ptr<TRWClockGenItem> item;
  item = RWGetClockGen(
      10, [&] { ++runs, RWReleaseClockGen(item, nullptr); }, nullptr);
  clock.Advance(100);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(clock.ItemsCount(), 0);
}

TEST(TRWClockThread, DrainsWhatWasAskedForBefore) {
  std::atomic<int> runs{0};
  TRWClockThread thread([&] {
    ++runs;
    throw 1;
  });
  thread.Drain();
  for (int i = 1; i <= 200; ++i) {
    thread.Clock();
    if (i % 10 != 0) continue;
    thread.Drain();
    EXPECT_EQ(runs, i);
  }
  thread.Terminate();
  thread.Clock();
  thread.Drain();
  EXPECT_EQ(runs, 200);
}

TEST(TRWClockThread, MayEndAndDrainFromItsOwnClosure) {
  std::unique_ptr<TRWClockThread> thread;
  std::atomic<bool> done{false};
  thread = std::make_unique<TRWClockThread>([&] {
    thread->Drain();
    thread.reset();
    done = true;
    done.notify_all();
  });
  thread->Clock();
  done.wait(false);
}

}  // namespace
}  // namespace pantiq
