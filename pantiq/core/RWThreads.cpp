#include "pantiq/core/RWThreads.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace pantiq {
namespace {

// One worker thread: waits until `pending` is above 0, runs the closure, and so on until it is told to end.
struct Worker {
  explicit Worker(RWClosure work, bool coalesce) : closure(std::move(work)), coalescing(coalesce) {}

  std::mutex mutex;
  std::condition_variable wake;
  RWClosure closure;
  const bool coalescing;
  int pending = 0;
  bool ending = false;
  std::thread thread;

  static void Run(const std::shared_ptr<Worker>& self) {
    for (;;) {
      {
        std::unique_lock guard(self->mutex);
        self->wake.wait(guard, [&] { return self->ending || self->pending > 0; });
        if (self->ending) return;
        self->pending = self->coalescing ? 0 : self->pending - 1;
      }
      try {
        self->closure();
      } catch (...) {  // an exception drops this item, never the thread
      }
    }
  }

  void Post() {
    std::lock_guard guard(mutex);
    if (ending) return;
    ++pending;
    wake.notify_one();
  }

  void End() {
    {
      std::lock_guard guard(mutex);
      ending = true;
      pending = 0;
      wake.notify_all();
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

TRWClockThread::TRWClockThread(RWClosure closure)
    : state_(std::make_shared<State>(State{StartWorker(std::move(closure), false)})) {}
TRWClockThread::~TRWClockThread() { Terminate(); }
void TRWClockThread::Clock() { state_->worker->Post(); }
void TRWClockThread::Terminate() { state_->worker->End(); }
int TRWClockThread::Pending() const {
  std::lock_guard guard(state_->worker->mutex);
  return state_->worker->pending;
}

struct TRWEventClockThread::State {
  std::shared_ptr<Worker> worker;
};

TRWEventClockThread::TRWEventClockThread(RWClosure closure)
    : state_(std::make_shared<State>(State{StartWorker(std::move(closure), true)})) {}
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
  for (auto& call : calls) call();
}

// --- clocks ---------------------------------------------------------------------------------------------------------

class TRWClockGenItem {
 public:
  using Clock = std::chrono::steady_clock;
  TRWClockGenItem(Clock::duration every, RWClosure work) : interval(every), closure(std::move(work)) {}
  const Clock::duration interval;
  const RWClosure closure;
  Clock::time_point next;
  bool released = false;  // under the generator's mutex
};

namespace {

// One thread for all clocks; it starts with the first and sleeps while there is none.
class ClockGenerator {
 public:
  using Clock = TRWClockGenItem::Clock;

  static ClockGenerator& The() {
    static auto* const generator = new ClockGenerator;  // never destroyed, like its thread
    return *generator;
  }

  void Add(const std::shared_ptr<TRWClockGenItem>& item) {
    std::lock_guard guard(mutex_);
    item->next = Clock::now() + item->interval;
    items_.push_back(item);
    if (!started_) {
      started_ = true;
      std::thread([this] { Run(); }).detach();
    }
    changed_.notify_all();
  }

  void Remove(const std::shared_ptr<TRWClockGenItem>& item) {
    std::unique_lock guard(mutex_);
    item->released = true;
    std::erase(items_, item);
    changed_.notify_all();
    if (std::this_thread::get_id() == thread_) return;  // from inside a closure
    changed_.wait(guard, [&] { return running_ != item; });
  }

 private:
  void Run() {
    std::unique_lock guard(mutex_);
    thread_ = std::this_thread::get_id();
    for (;;) {
      if (items_.empty()) {
        changed_.wait(guard);
        continue;
      }
      auto due = *std::min_element(items_.begin(), items_.end(), [](const auto& a, const auto& b) { return a->next < b->next; });
      const auto now = Clock::now();
      if (due->next > now) {
        const auto until = due->next;
        due.reset();
        changed_.wait_until(guard, until);
        continue;
      }
      do due->next += due->interval;
      while (due->next <= now);  // missed ticks are dropped
      running_ = due;
      guard.unlock();
      try {
        due->closure();
      } catch (...) {
      }
      guard.lock();
      running_.reset();
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::shared_ptr<TRWClockGenItem>> items_;
  std::shared_ptr<TRWClockGenItem> running_;
  std::thread::id thread_;
  bool started_ = false;
};

}  // namespace

std::shared_ptr<TRWClockGenItem> RWGetClockGen(std::int32_t interval, RWClosure closure, const TJCObject* /*lock*/) {
  auto item = std::make_shared<TRWClockGenItem>(std::chrono::milliseconds(std::max(interval, 1)), std::move(closure));
  ClockGenerator::The().Add(item);
  return item;
}

void RWReleaseClockGen(std::shared_ptr<TRWClockGenItem>& item, const TJCObject* /*lock*/) {
  if (!item) return;
  ClockGenerator::The().Remove(item);
  item.reset();
}

}  // namespace pantiq
