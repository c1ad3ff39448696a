#include "pantiq/media/PQDSQueues.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

namespace pantiq {
namespace {

PQPlatformBlock Sample(std::vector<std::uint8_t> bytes, std::int64_t step) {
  const auto memory = std::make_shared<std::vector<std::uint8_t>>(std::move(bytes));
  PQPlatformBlock block;
  block.data = memory->data(), block.size = memory->size(), block.step = step, block.keep_alive = memory;
  return block;
}

// A frame has the set size whatever the sample holds: what is missing is zero, what is too much is left out.
TEST(TPQVideoBufferQueueThread, FramesHaveTheSetSize) {
  TPQVideoBufferQueueThread queue(nullptr);
  queue.SetSize(2, 2, vfRGB24);
  const auto bytes = [&](std::vector<std::uint8_t> data, std::int64_t step) {
    EXPECT_TRUE(queue.PushBuffer(Sample(std::move(data), step), 10, 20));
    const PQImageRef image = queue.Get();
    EXPECT_EQ(image->GetWidth(), 2);
    EXPECT_EQ(image->GetHeight(), 2);
    EXPECT_EQ(image->GetTimeStamp().GetBegin(), 10);
    EXPECT_EQ(image->GetTimeStamp().GetEnd(), 20);
    EXPECT_TRUE(image->GetTimeStamp().GetAvailable());
    return std::vector<std::uint8_t>(image->Read(), image->Read() + image->GetByteSize());
  };
  using V = std::vector<std::uint8_t>;
  EXPECT_EQ(bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, 6), (V{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(bytes({1, 2, 3, 4, 5, 6, 99, 99, 7, 8, 9, 10, 11, 12, 99, 99}, 8),
            (V{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(bytes({1, 2, 3, 4, 5, 6, 7}, 6), (V{1, 2, 3, 4, 5, 6, 7, 0, 0, 0, 0, 0}));
  EXPECT_EQ(bytes(V(40, 5), 20), V(12, 5));
  EXPECT_EQ(bytes({}, 6), V(12, 0));
  EXPECT_FALSE(queue.Get()) << "nothing is left";
}

TEST(TPQVideoBufferQueueThread, FrameMemoryIsTakenOverWithoutACopy) {
  TPQVideoBufferQueueThread queue(nullptr);
  queue.SetSize(4, 2, vfRGB24);
  std::uint8_t* data = nullptr;
  std::shared_ptr<void> memory = TPQVideoBufferQueueThread::AllocateFrame(12, 2, data);
  ASSERT_NE(memory, nullptr);
  std::memset(data, 7, 24);
  PQPlatformBlock block;
  block.data = data, block.size = 24, block.step = 12, block.own = true, block.keep_alive = std::move(memory);
  ASSERT_TRUE(queue.PushBuffer(block, 0, 1));
  const PQImageRef image = queue.Get();
  EXPECT_EQ(image->Read(), data);
  EXPECT_EQ(image->Modify(), data) << "the platform holds nothing of it any more";
  // Memory of another form than the frame's is copied.
  memory = TPQVideoBufferQueueThread::AllocateFrame(16, 2, data);
  std::memset(data, 9, 32);
  block.data = data, block.size = 32, block.step = 16, block.keep_alive = std::move(memory);
  ASSERT_TRUE(queue.PushBuffer(block, 0, 1));
  const PQImageRef copied = queue.Get();
  EXPECT_NE(copied->Read(), data);
  EXPECT_EQ(copied->Read()[23], 9);
}

// The event is set by each taking and reset by each wait; an end sets it and lets nobody in.
TEST(TPQVideoBufferQueueThread, ProducersWaitUntilTheyAreTakenOrTheEnd) {
  TPQVideoBufferQueueThread queue(nullptr);
  queue.SetSize(1, 1, vfRGB24);
  std::atomic<int> passed{0};
  std::thread producer([&] {
    while (queue.PushBuffer(Sample({1, 2, 3}, 3), 0, 1)) {
      queue.WaitTaken();
      ++passed;
    }
  });
  for (int i = 0; i < 20;) {
    if (queue.Get()) ++i;
    EXPECT_LE(queue.ItemsCount(), 1);
    std::this_thread::yield();
  }
  queue.End();
  producer.join();
  EXPECT_GE(passed.load(), 20);
  EXPECT_FALSE(queue.Get());
  EXPECT_FALSE(queue.PushBuffer(Sample({1, 2, 3}, 3), 0, 1));
  queue.Rearm();
  EXPECT_TRUE(queue.PushBuffer(Sample({1, 2, 3}, 3), 0, 1));
}

TEST(TPQDSBufferQueue, HoldsAtMostItsTimeAndCopies) {
  TPQDSBufferQueue queue(100);
  std::vector<std::uint8_t> data{1, 2, 3};
  ASSERT_TRUE(queue.Add(0, 60, data.data(), data.size()));
  ASSERT_TRUE(queue.Add(60, 120, data.data(), data.size()));
  data[0] = 9;
  EXPECT_EQ(queue.Queued(), 120);
  std::atomic<bool> in{false};
  std::thread third([&] {
    queue.Add(120, 180, data.data(), data.size());
    in = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_FALSE(in.load());
  auto node = queue.Get();
  EXPECT_EQ(node->Data, (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(node->Stop, 60);
  queue.DestroyBlock(node);
  EXPECT_EQ(node, nullptr);
  third.join();
  EXPECT_EQ(queue.ItemsCount(), 2);
  bool refused = false;
  std::thread fourth([&] { refused = !queue.Add(180, 240, data.data(), data.size()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  queue.End();
  fourth.join();
  EXPECT_TRUE(refused);
  EXPECT_EQ(queue.Get(), nullptr);
  EXPECT_FALSE(queue.Add(0, 1, data.data(), 1));
  queue.Rearm();
  EXPECT_TRUE(queue.Add(0, 1, data.data(), 1));
}

}  // namespace
}  // namespace pantiq
