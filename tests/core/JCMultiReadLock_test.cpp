#include "pantiq/core/JCMultiReadLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <thread>
#include <vector>

#include "pantiq/core/JCStdTypes.h"

namespace pantiq {
namespace {

using namespace std::chrono_literals;

struct Locked : TJCObject {};

TEST(JCMultiReadLock, OneThreadNestsInEveryOrder) {
  Locked object;
  {
    auto a = object.ReadLock();
    auto b = object.ReadLock();
    auto c = object.WriteLock();  // the only reader upgrades at once
    auto d = object.WriteLock();
    auto e = object.ReadLock();
    auto f = object.WriteLock();
  }
  {
    auto a = object.WriteLock();
    auto b = object.ReadLock();
  }
  // Nothing is left held: another thread gets the write lock.
  std::thread([&] { auto section = object.WriteLock(); }).join();
}

TEST(JCMultiReadLock, ReadersRunTogetherAndWritersAlone) {
  Locked object;
  std::latch both(2);
  auto reader = [&] {
    auto section = object.ReadLock();
    both.arrive_and_wait();  // ends only if two readers are inside at once
  };
  std::thread a(reader), b(reader);
  a.join();
  b.join();

  int value = 0;  // not atomic: the lock has to order the writers
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        auto section = object.WriteLock();
        ++value;
      }
    });
  }
  for (auto& thread : writers) thread.join();
  EXPECT_EQ(value, 8000);
}

TEST(JCMultiReadLock, TwoUpgradersDoNotBlockEachOther) {
  Locked object;
  int value = 0;
  std::latch reading(2);
  auto upgrade = [&] {
    auto read = object.ReadLock();
    reading.arrive_and_wait();
    {
      auto write = object.WriteLock();
      ++value;
    }
    // The read hold is back: a writer stays out until it ends.
    const int seen = value;
    std::this_thread::yield();
    EXPECT_EQ(value, seen == 1 ? value : 2);
  };
  std::thread a(upgrade), b(upgrade);
  a.join();
  b.join();
  EXPECT_EQ(value, 2);
}

TEST(JCMultiReadLock, AReaderPassesWaitingWriters) {
  Locked object;
  std::atomic<bool> waiting{false}, written{false};
  std::thread writer;
  {
    auto outer = object.ReadLock();
    writer = std::thread([&] {
      waiting = true;
      auto section = object.WriteLock();
      written = true;
    });
    while (!waiting) std::this_thread::yield();
    std::this_thread::sleep_for(20ms);
    auto inner = object.ReadLock();  // would hang if it queued behind the writer
    EXPECT_FALSE(written);
  }
  writer.join();
  EXPECT_TRUE(written);
}

TEST(JCMultiReadLock, SharedLocksAreOne) {
  Locked owner, joined;
  joined.AddShareLock(owner);
  std::atomic<bool> got{false};
  std::thread other;
  {
    auto section = owner.WriteLock();
    other = std::thread([&] {
      auto inner = joined.ReadLock();
      got = true;
    });
    std::this_thread::sleep_for(20ms);
    auto mine = joined.WriteLock();  // the same thread is inside already
    EXPECT_FALSE(got);
  }
  other.join();
  EXPECT_TRUE(got);
}

TEST(JCMultiReadLock, WorkWaitsForTheEndOfTheOutermostSection) {
  Locked a, b;
  std::string order;
  {
    auto outer = a.ReadLock();
    {
      auto inner = b.WriteLock();
      JCAtSectionEnd([&] { order += "1"; });
      JCAtSectionEnd([&] { order += "2"; });
    }
    order += "inside ";
  }
  JCAtSectionEnd([&] { order += "3"; });
  EXPECT_EQ(order, "inside 123");
}

}  // namespace
}  // namespace pantiq
