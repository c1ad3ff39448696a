#include "pantiq/core/RWThreads.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "pantiq/host/PQReport.h"

namespace pantiq {
namespace {

// One worker thread: waits until `pending` is above 0, runs the closure, and so on until it is told to end.
struct Worker {
  explicit Worker(RWClosure work, bool coalesce) : closure(std::move(work)), coalescing(coalesce) {}

  std::mutex mutex;
  std::condition_variable wake;
  RWClosure closure;
  const bool coalescing;
  std::condition_variable ran;
  int pending = 0;
  std::uint64_t asked = 0, done = 0;  // runs; what is coalesced counts as done
  bool ending = false;
  std::thread thread;

  static void Run(const std::shared_ptr<Worker>& self) {
    std::unique_lock guard(self->mutex);
    for (;;) {
      self->wake.wait(guard, [&] { return self->ending || self->pending > 0; });
      if (self->ending) return;
      const int taken = self->coalescing ? self->pending : 1;
      self->pending -= taken;
      guard.unlock();
      try {
        self->closure();
      } catch (...) {  // an exception drops this item, never the thread
      }
      guard.lock();
      self->done += static_cast<std::uint64_t>(taken);
      self->ran.notify_all();
    }
  }

  void Post() {
    std::lock_guard guard(mutex);
    if (ending) return;
    ++pending, ++asked;
    wake.notify_one();
  }

  void Drain() {
    std::unique_lock guard(mutex);
    if (thread.get_id() == std::this_thread::get_id()) return;
    const std::uint64_t all = asked;
    ran.wait(guard, [&] { return ending || done >= all; });
  }

  void End() {
    {
      std::lock_guard guard(mutex);
      ending = true;
      pending = 0;
      wake.notify_all();
      ran.notify_all();
    }
    if (!thread.joinable()) return;
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();  // ends itself: the state lives until its loop has left
    } else {
      thread.join();
    }
  }
};

std::shared_ptr<Worker> StartWorker(RWClosure closure, bool coalesce) {
  auto worker = std::make_shared<Worker>(std::move(closure), coalesce);
  worker->thread = std::thread([worker] { Worker::Run(worker); });
  return worker;
}

}  // namespace

struct TRWClockThread::State {
  std::shared_ptr<Worker> worker;
};

// What needs memory comes before the thread, which nobody could end otherwise.
TRWClockThread::TRWClockThread(RWClosure closure) : state_(std::make_shared<State>()) {
  state_->worker = StartWorker(std::move(closure), false);
}
TRWClockThread::~TRWClockThread() { Terminate(); }
void TRWClockThread::Clock() { state_->worker->Post(); }
void TRWClockThread::Terminate() { state_->worker->End(); }
int TRWClockThread::Pending() const {
  std::lock_guard guard(state_->worker->mutex);
  return state_->worker->pending;
}

void TRWClockThread::Drain() const { state_->worker->Drain(); }

struct TRWEventClockThread::State {
  std::shared_ptr<Worker> worker;
};

TRWEventClockThread::TRWEventClockThread(RWClosure closure) : state_(std::make_shared<State>()) {
  state_->worker = StartWorker(std::move(closure), true);
}
TRWEventClockThread::~TRWEventClockThread() { Terminate(); }
void TRWEventClockThread::SetEvent() { state_->worker->Post(); }
void TRWEventClockThread::Terminate() { state_->worker->End(); }

// --- main thread ----------------------------------------------------------------------------------------------------

struct TRWMainThreadNotify::State {
  std::mutex mutex;  // held while the closure runs, so that the end waits for it
  RWClosure closure;
  void Run() {
    std::lock_guard guard(mutex);
    if (closure) closure();
  }
};

namespace {

struct MainQueue {
  std::mutex mutex;
  bool pumped = false;
  std::deque<std::function<void()>> calls;
};

MainQueue& TheMainQueue() {
  static auto* const queue = new MainQueue;
  return *queue;
}

}  // namespace

TRWMainThreadNotify::TRWMainThreadNotify(RWClosure closure) : state_(std::make_shared<State>()) {
  state_->closure = std::move(closure);
}

TRWMainThreadNotify::~TRWMainThreadNotify() {
  std::lock_guard guard(state_->mutex);
  state_->closure = nullptr;
}

void TRWMainThreadNotify::Notify() {
  MainQueue& queue = TheMainQueue();
  {
    std::lock_guard guard(queue.mutex);
    if (queue.pumped) {
      queue.calls.push_back([state = state_] { state->Run(); });
      return;
    }
  }
  state_->Run();
}

void ProcessMainThreadNotifies() {
  MainQueue& queue = TheMainQueue();
  std::deque<std::function<void()>> calls;
  {
    std::lock_guard guard(queue.mutex);
    queue.pumped = true;
    calls.swap(queue.calls);
  }
  for (auto& call : calls) {
    try {
      call();
    } catch (...) {  // the others get their turn
      ReportCaught(nullptr, "a call on the main thread failed");
    }
  }
}

// --- clocks ---------------------------------------------------------------------------------------------------------

namespace {
class ClockTable;
}

class TRWClockGenItem {
 public:
  using Clock = std::chrono::steady_clock;
  TRWClockGenItem(std::shared_ptr<ClockTable> its_table, Clock::duration every, RWClosure work)
      : table(std::move(its_table)), interval(every), closure(std::move(work)) {}
  const std::shared_ptr<ClockTable> table;
  const Clock::duration interval;
  const RWClosure closure;
  Clock::time_point next;  // under the table's mutex
};

namespace {

using ClockItem = std::shared_ptr<TRWClockGenItem>;

// The clocks of one time. Who keeps that time runs what is due.
class ClockTable {
 public:
  using Clock = TRWClockGenItem::Clock;
  virtual ~ClockTable() = default;

  virtual void Add(const ClockItem& item) {
    std::lock_guard guard(mutex_);
    item->next = Now() + item->interval;
    items_.push_back(item);
    changed_.notify_all();
  }

  // After it the closure does not run any more.
  void Remove(const ClockItem& item) {
    std::unique_lock guard(mutex_);
    std::erase(items_, item);
    changed_.notify_all();
    if (running_ == item && std::this_thread::get_id() == runner_) return;  // from inside the closure
    changed_.wait(guard, [&] { return running_ != item; });
  }

  int Count() const {
    std::lock_guard guard(mutex_);
    return static_cast<int>(items_.size());
  }

 protected:
  // With the mutex held:
  virtual Clock::time_point Now() const = 0;
  // Null if there is none.
  ClockItem First() const {
    const auto first =
        std::min_element(items_.begin(), items_.end(), [](const auto& a, const auto& b) { return a->next < b->next; });
    return first == items_.end() ? nullptr : *first;
  }
  // Runs an item's closure without the mutex; ticks that `now` has passed are dropped.
  void Run(const ClockItem& item, Clock::time_point now, std::unique_lock<std::mutex>& guard) {
    do item->next += item->interval;
    while (item->next <= now);
    running_ = item;
    runner_ = std::this_thread::get_id();
    guard.unlock();
    try {
      item->closure();
    } catch (...) {
    }
    guard.lock();
    running_.reset();
    changed_.notify_all();
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;

 private:
  std::vector<ClockItem> items_;
  ClockItem running_;
  std::thread::id runner_;
};

// One thread for all clocks of real time; it starts with the first and sleeps while there is none.
class RealClocks final : public ClockTable {
 public:
  static const std::shared_ptr<ClockTable>& The() {
    static auto* const table =
        new std::shared_ptr<ClockTable>(std::make_shared<RealClocks>());  // never destroyed, like its thread
    return *table;
  }

  void Add(const ClockItem& item) override {
    {
      std::lock_guard guard(mutex_);
      if (!started_) std::thread([this] { Loop(); }).detach();
      started_ = true;  // if it could not be started the next clock tries again
    }
    ClockTable::Add(item);
  }

 private:
  Clock::time_point Now() const override { return Clock::now(); }

  void Loop() {
    std::unique_lock guard(mutex_);
    for (;;) {
      const ClockItem due = First();
      if (due == nullptr) {
        changed_.wait(guard);
      } else if (const auto now = Clock::now(); due->next > now) {
        changed_.wait_until(guard, due->next);
      } else {
        Run(due, now, guard);
      }
    }
  }

  bool started_ = false;
};

// The table that new clocks go to.
struct Present {
  std::mutex mutex;
  std::shared_ptr<ClockTable> table;  // null: real time
};
Present& ThePresent() {
  static auto* const present = new Present;
  return *present;
}

}  // namespace

class RWSimulatedClock::Table final : public ClockTable {
 public:
  void Advance(Clock::duration by) {
    std::unique_lock guard(mutex_);
    const Clock::time_point until = now_ + by;
    for (ClockItem due = First(); due != nullptr && due->next <= until; due = First()) {
      now_ = std::max(now_, due->next);
      Run(due, now_, guard);
    }
    now_ = until;
  }

 private:
  Clock::time_point Now() const override { return now_; }
  Clock::time_point now_;
};

RWSimulatedClock::RWSimulatedClock() : table_(std::make_shared<Table>()) {
  std::lock_guard guard(ThePresent().mutex);
  ThePresent().table = table_;
}

RWSimulatedClock::~RWSimulatedClock() {
  std::lock_guard guard(ThePresent().mutex);
  ThePresent().table.reset();
}

void RWSimulatedClock::Advance(std::int32_t milliseconds) { table_->Advance(std::chrono::milliseconds(milliseconds)); }
int RWSimulatedClock::ItemsCount() const { return table_->Count(); }

std::shared_ptr<TRWClockGenItem> RWGetClockGen(std::int32_t interval, RWClosure closure, const TJCObject* /*lock*/) {
  std::shared_ptr<ClockTable> table;
  {
    std::lock_guard guard(ThePresent().mutex);
    table = ThePresent().table;
  }
  if (table == nullptr) table = RealClocks::The();
  auto item =
      std::make_shared<TRWClockGenItem>(table, std::chrono::milliseconds(std::max(interval, 1)), std::move(closure));
  table->Add(item);
  return item;
}

void RWReleaseClockGen(std::shared_ptr<TRWClockGenItem>& item, const TJCObject* /*lock*/) {
  if (!item) return;
  item->table->Remove(item);
  item.reset();
}

}  // namespace pantiq
