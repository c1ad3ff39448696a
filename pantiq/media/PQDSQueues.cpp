#include "pantiq/media/PQDSQueues.h"

#include <algorithm>
#include <cstring>

#include "pantiq/core/PQFrameLoan.h"

namespace pantiq {

// --- TPQDSBufferQueue -----------------------------------------------------------------------------------------------

bool TPQDSBufferQueue::Add(std::int64_t start, std::int64_t stop, const void* data, std::size_t size) {
  auto node = std::make_unique<TPQDSBufferNode>();
  node->Start = start, node->Stop = stop;
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  node->Data.assign(bytes, bytes + size);
  std::unique_lock lock(mutex_);
  if (most_ > 0) changed_.wait(lock, [this] { return ended_ || queued_ < most_; });
  if (ended_) return false;
  queued_ += std::max<std::int64_t>(stop - start, 0);
  nodes_.push_back(std::move(node));
  return true;
}

std::unique_ptr<TPQDSBufferNode> TPQDSBufferQueue::Get() {
  const std::lock_guard lock(mutex_);
  if (nodes_.empty()) return nullptr;
  auto node = std::move(nodes_.front());
  nodes_.pop_front();
  queued_ -= std::max<std::int64_t>(node->Stop - node->Start, 0);
  changed_.notify_all();
  return node;
}

void TPQDSBufferQueue::WaitBelow(int most) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return ended_ || static_cast<int>(nodes_.size()) < most; });
}

void TPQDSBufferQueue::End() {
  std::list<std::unique_ptr<TPQDSBufferNode>> dropped;
  const std::lock_guard lock(mutex_);
  ended_ = true;
  dropped.swap(nodes_);
  queued_ = 0;
  changed_.notify_all();
}

void TPQDSBufferQueue::Rearm() {
  const std::lock_guard lock(mutex_);
  nodes_.clear();
  queued_ = 0;
  ended_ = false;
}

int TPQDSBufferQueue::ItemsCount() const {
  const std::lock_guard lock(mutex_);
  return static_cast<int>(nodes_.size());
}

std::int64_t TPQDSBufferQueue::Queued() const {
  const std::lock_guard lock(mutex_);
  return queued_;
}

// --- TPQVideoBufferQueueThread --------------------------------------------------------------------------------------

namespace {

// Rows of the sample into packed rows; what the sample does not hold becomes 0.
void CopyRows(const PQPlatformBlock& sample, std::uint8_t* to, std::int64_t row_bytes, std::int64_t rows) {
  const std::int64_t step = sample.step > 0 ? sample.step : row_bytes;
  for (std::int64_t y = 0; y < rows; ++y, to += row_bytes) {
    const std::int64_t from = y * step;
    const std::int64_t left = static_cast<std::int64_t>(sample.size) - from;
    const std::int64_t count = std::clamp<std::int64_t>(std::min(left, step), 0, row_bytes);
    if (count > 0) std::memcpy(to, sample.data + from, static_cast<std::size_t>(count));
    if (count < row_bytes) std::memset(to + count, 0, static_cast<std::size_t>(row_bytes - count));
  }
}

}  // namespace

void TPQVideoBufferQueueThread::SetSize(std::int32_t width, std::int32_t height, TPQVideoFormat format) {
  const std::lock_guard lock(mutex_);
  width_ = std::max(width, 0), height_ = std::max(height, 0), format_ = format;
}

std::shared_ptr<void> TPQVideoBufferQueueThread::AllocateFrame(std::int64_t step, std::int64_t rows,
                                                               std::uint8_t*& data) {
  return PQLendFrame(step, rows, data);
}

bool TPQVideoBufferQueueThread::PushBuffer(const PQPlatformBlock& sample, std::int64_t start, std::int64_t stop) {
  Entry entry{};
  entry.start = start, entry.stop = stop;
  {
    const std::lock_guard lock(mutex_);
    if (ended_) return false;
    entry.width = width_, entry.height = height_, entry.format = format_;
  }
  const std::int64_t row_bytes = std::int64_t{entry.width} * PQPixelSize(entry.format);
  if (sample.own && (sample.step == row_bytes || entry.height < 2)) {
    entry.block = PQTakeLentFrame(sample.keep_alive, sample.data, row_bytes, entry.height);
  }
  if (!entry.block) {
    entry.block = PQFrameBlock::Make(row_bytes, entry.height);
    CopyRows(sample, entry.block->Data(), row_bytes, entry.height);
  }
  {
    const std::lock_guard lock(mutex_);
    if (ended_) return false;
    entries_.push_back(std::move(entry));
  }
  if (notify_ != nullptr) notify_->Notify();
  return true;
}

PQImageRef TPQVideoBufferQueueThread::Get() {
  Entry entry{};
  {
    const std::lock_guard lock(mutex_);
    if (entries_.empty()) return {};
    entry = std::move(entries_.front());
    entries_.pop_front();
    taken_ = true;
    changed_.notify_all();
  }
  auto image = PQMakeRef<TPQImageBuffer>();
  image->SetStorage(std::move(entry.block), entry.width, entry.height, entry.format);
  image->GetTimeStamp().SetAvailable(true);
  image->GetTimeStamp().SetBegin(entry.start);
  image->GetTimeStamp().SetEnd(entry.stop);
  return image;
}

void TPQVideoBufferQueueThread::WaitTaken() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return taken_ || ended_; });
  taken_ = false;
}

void TPQVideoBufferQueueThread::End() {
  std::list<Entry> dropped;
  const std::lock_guard lock(mutex_);
  ended_ = taken_ = true;
  dropped.swap(entries_);
  changed_.notify_all();
}

void TPQVideoBufferQueueThread::Rearm() {
  const std::lock_guard lock(mutex_);
  entries_.clear();
  ended_ = taken_ = false;
}

int TPQVideoBufferQueueThread::ItemsCount() const {
  const std::lock_guard lock(mutex_);
  return static_cast<int>(entries_.size());
}

}  // namespace pantiq
