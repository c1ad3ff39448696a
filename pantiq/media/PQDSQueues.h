// Where samples cross from a platform's threads into the stream world: the platform pushes and waits, a notify thread
// takes. Every wait ends when the queue is ended; an ended queue refuses what comes until it is armed again.
#pragma once
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "pantiq/core/PQSimpleImageBuffer.h"
#include "pantiq/core/RWThreads.h"
#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

inline constexpr int kMostEntries = 11;  // that one wake-up of a notify thread takes

// A sample in memory of its own.
struct TPQDSBufferNode {
  std::int64_t Start = 0, Stop = 0;  // 100 ns
  std::vector<std::uint8_t> Data;
};

// Samples in order. Any thread.
class PQ_EXPORT TPQDSBufferQueue {
 public:
  // Add waits while more than `most` of stream time (100 ns) is queued; 0 means that it never waits.
  explicit TPQDSBufferQueue(std::int64_t most = 0) : most_(most) {}

  // Copies the sample to the tail. False if the queue is ended, also if it ends during the wait.
  bool Add(std::int64_t start, std::int64_t stop, const void* data, std::size_t size);
  // The oldest node; empty if there is none.
  std::unique_ptr<TPQDSBufferNode> Get();
  // Gives the node's memory back; the pointer is empty afterwards.
  void DestroyBlock(std::unique_ptr<TPQDSBufferNode>& node) { node.reset(); }

  // Waits until less than `most` nodes are queued, or the queue ends.
  void WaitBelow(int most);

  void End();    // wakes everybody, drops what is queued
  void Rearm();  // empty and open again
  int ItemsCount() const;
  std::int64_t Queued() const;  // stream time of what waits, 100 ns

 private:
  const std::int64_t most_;
  mutable std::mutex mutex_;  // a leaf
  std::condition_variable changed_;
  std::list<std::unique_ptr<TPQDSBufferNode>> nodes_;
  std::int64_t queued_ = 0;
  bool ended_ = false;
};

// Frames on their way from the platform. Wakes the notify thread with each one. Any thread.
class PQ_EXPORT TPQVideoBufferQueueThread {
 public:
  // The thread may be null; it must outlive the queue's use.
  explicit TPQVideoBufferQueueThread(TRWNotifyThread* notify) : notify_(notify) {}

  // Form of the frames that are pushed from now on. What is queued keeps its own.
  void SetSize(std::int32_t width, std::int32_t height, TPQVideoFormat format);

  // Memory that PushBuffer takes over without a copy: for a reader's AllocateFrame. Null if there is none to be had.
  static std::shared_ptr<void> AllocateFrame(std::int64_t step, std::int64_t rows, std::uint8_t*& data);

  // Takes a sample with its stamps and wakes the notify thread. A sample that is smaller than the size leaves zeros, of
  // a larger one the rest is left out. False if the queue is ended.
  bool PushBuffer(const PQPlatformBlock& sample, std::int64_t start, std::int64_t stop);

  // The oldest entry as a frame of the size that was set when it was pushed, its time stamp set; empty if there is
  // none.
  PQImageRef Get();

  // Waits, without a limit, until an entry has been taken since the last wait, or the queue ends.
  void WaitTaken();

  void End();
  void Rearm();
  void Terminate() { End(); }
  int ItemsCount() const;

 private:
  struct Entry {
    PQRef<PQFrameBlock> block;
    std::int32_t width, height;
    TPQVideoFormat format;
    std::int64_t start, stop;
  };
  TRWNotifyThread* const notify_;
  mutable std::mutex mutex_;  // a leaf
  std::condition_variable changed_;
  std::list<Entry> entries_;
  std::int32_t width_ = 0, height_ = 0;
  TPQVideoFormat format_ = vfRGB24;
  bool taken_ = false;  // the event: set by each Get that gave an entry, and by the end
  bool ended_ = false;
};

}  // namespace pantiq
