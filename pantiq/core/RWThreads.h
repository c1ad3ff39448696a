// Threads and clocks of components. Every wait can be ended, an exception in a closure is dropped and the loop goes on,
// and after an object is released or destroyed its closure never runs again. Destroying from inside the closure is
// allowed.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>

#include "pantiq/core/JCStdTypes.h"

namespace pantiq {

using RWClosure = std::function<void()>;

// A worker that runs its closure once per Clock call; what is pending at the end is dropped.
class PQ_EXPORT TRWClockThread {
 public:
  explicit TRWClockThread(RWClosure closure);
  ~TRWClockThread();
  void Clock();
  // Ends the thread: no run begins afterwards. Waits for a run under way, unless called from it. May be called again.
  void Terminate();
  // Runs that were asked for and have not begun.
  int Pending() const;
  // Waits until the runs that were asked for before this call have ended; at once from the closure or after Terminate.
  void Drain() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// The same on an event: any number of SetEvent calls before the worker wakes make one run.
class PQ_EXPORT TRWEventClockThread {
 public:
  explicit TRWEventClockThread(RWClosure closure);
  ~TRWEventClockThread();
  void SetEvent();
  void Terminate();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// A thread that calls its closure after Notify; calls that come while it runs make it run once more.
class PQ_EXPORT TRWNotifyThread : public TRWEventClockThread {
 public:
  using TRWEventClockThread::TRWEventClockThread;
  void Notify() { SetEvent(); }
};

// Runs a closure on the main thread: at the host's next ProcessMainThreadNotifies, or on the caller if the host has
// never called it.
class PQ_EXPORT TRWMainThreadNotify {
 public:
  explicit TRWMainThreadNotify(RWClosure closure);
  ~TRWMainThreadNotify();
  void Notify();

 private:
  struct State;
  std::shared_ptr<State> state_;
};
PQ_EXPORT void ProcessMainThreadNotifies();

// A periodic clock: runs `closure` every `interval` milliseconds (at least 1), on an absolute schedule of the steady
// clock; missed ticks are dropped. Closures run on one thread for all clocks and should only wake others. `lock` guards
// the caller's own structures; it is not held while the closure runs.
class TRWClockGenItem;
PQ_EXPORT std::shared_ptr<TRWClockGenItem> RWGetClockGen(std::int32_t interval, RWClosure closure,
                                                         const TJCObject* lock);
// After it returns the closure does not run any more; from inside the closure: after that run.
PQ_EXPORT void RWReleaseClockGen(std::shared_ptr<TRWClockGenItem>& item, const TJCObject* lock);

// Time that only moves when it is told to, for tests. While it lives, RWGetClockGen makes clocks of this time; one
// lives at a time.
class PQ_EXPORT RWSimulatedClock {
 public:
  RWSimulatedClock();
  ~RWSimulatedClock();
  RWSimulatedClock(const RWSimulatedClock&) = delete;
  RWSimulatedClock& operator=(const RWSimulatedClock&) = delete;
  // Runs on the calling thread, in the order of their times, the closures that are due within the next `milliseconds`.
  void Advance(std::int32_t milliseconds);
  // Clocks that have not been released.
  int ItemsCount() const;

 private:
  class Table;
  std::shared_ptr<Table> table_;
};

}  // namespace pantiq
