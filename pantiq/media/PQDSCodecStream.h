// What the two components with a graph of codecs have in common: where samples leave the graph, the thread that hands
// them on, the graph's life.
#pragma once
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "pantiq/core/JCPins.h"
#include "pantiq/core/PQSimpleImageBuffer.h"
#include "pantiq/core/RWThreads.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/media/PQDSGraph.h"
#include "pantiq/media/PQDSVideoCompression.h"
#include "pantiq/media/PQStreamClock.h"
#include "pantiq/platform/PQCodecGraph.h"

namespace pantiq {

// Hands a grabber's samples to a closure, on a thread of the graph.
class TPQDSSampleGrabberCB final : public PQGrabberEvents {
 public:
  explicit TPQDSSampleGrabberCB(std::function<void(const PQPlatformBlock& sample)> closure)
      : closure_(std::move(closure)) {}
  void SampleCB(const PQPlatformBlock& sample) override {
    try {
      if (closure_) closure_(sample);
    } catch (...) {  // nothing is thrown through the platform's code
      ReportCaught(nullptr, "a sample was lost");
    }
  }

 private:
  const std::function<void(const PQPlatformBlock&)> closure_;
};

// A notify thread that others can wait for.
class TPQDSCodecThread {
 public:
  explicit TPQDSCodecThread(std::function<void()> closure);
  void Notify() { thread_.Notify(); }
  void Terminate() { thread_.Terminate(); }
  // Whether the caller is this thread.
  bool IsHere() const;
  // Until the closure does not run and `done` says yes, or `over` does, at most that long; false after the limit. Both
  // are asked again whenever the closure has run, and after Wake.
  bool WaitIdle(std::chrono::milliseconds limit, const std::function<bool()>& done, const std::function<bool()>& over);
  // On this thread: what the closure does from here on is nobody's business.
  void Leave();
  void Wake();

 private:
  struct State;
  const std::shared_ptr<State> state_;
  TRWNotifyThread thread_;
};

// The graph of a component from a start to its end.
//
// Everything but Abandon belongs to the owner's frame path and is called with its frame mutex held.
class TPQDSCodecStream {
 public:
  // `end_queue` ends the queue behind the grabber, so that nothing waits any more; `destroy` takes the graph down,
  // called with the frame mutex held.
  TPQDSCodecStream(TComponent& owner, const TJCObject& lock, std::function<void()> end_queue,
                   std::function<void()> destroy);

  // The owner's pins: one lock, one stream, whose end a disconnection of `in` is.
  void Attach(TJCSinkPin& in, TJCSourcePin& out);

  TDSGraph& Graph() { return graph_; }
  std::shared_ptr<PQCodecGraph> Interface() const {
    return std::static_pointer_cast<PQCodecGraph>(graph_.GetInterface());
  }
  JCFrameMutex& FrameMutex() { return frames_; }
  // Wakes the notify thread, if there is one. Any thread.
  void Notify();

  // A stream begins: makes the notify thread at the first time, waits until it has let go of the last stream. Not at
  // design time.
  void Begin(std::function<void()> closure);
  // What is inside, and in the queue, goes on its way, for at most two seconds; false if it did not.
  bool KeepTail(PQFilterId source, const std::function<bool()>& queue_is_empty, PQPlatformResult& result);
  // Ends at once: releases whoever waits and takes the graph down as soon as the frame path is free. Any thread.
  void Abandon();
  bool IsAbandoned() const { return abandoned_.load(); }
  // The component dies: as Abandon, for ever; its pins are disconnected.
  void Shutdown();
  // Runs the action under the owner's lock. The notify thread holds it for this alone, never while something goes down:
  // who ends the component there waits for the calls of other threads.
  template <class Action>
  auto Locked(Action action) {
    const auto section = graph_.GetLock().WriteLock();
    return action();
  }

  // False once the component has died; a copy outlives it.
  std::shared_ptr<const std::atomic<bool>> Alive() const { return alive_; }
  // Whether the caller is the notify thread, which must not wait for itself.
  bool IsNotifyThread() const;

 private:
  void Release();
  TComponent& owner_;
  TJCSinkPin* in_ = nullptr;
  TJCSourcePin* out_ = nullptr;
  const std::function<void()> end_queue_, destroy_;
  TDSGraph graph_;
  JCFrameMutex frames_;
  std::unique_ptr<TPQDSCodecThread> thread_;
  std::atomic<TPQDSCodecThread*> notify_{nullptr};  // the same, for those who do not hold the frame mutex
  std::atomic<bool> abandoned_{false};
  std::atomic<unsigned> run_{0};
  const std::shared_ptr<std::atomic<bool>> alive_;
};

// Reports why the first choice was not taken: `used` names what was taken instead, empty if nothing was.
void PQReportChoices(TDSGraph& graph, const std::string& wanted, const PQPlatformResult& why, const std::string& used);

}  // namespace pantiq
