#include "pantiq/media/PQDSCodecStream.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "pantiq/host/PQReport.h"

namespace pantiq {

using namespace std::chrono_literals;

namespace {

constexpr auto kTailLimit = 2000ms;  // that what is inside a graph, and in the queue behind it, may take

}  // namespace

// --- TPQDSCodecThread -----------------------------------------------------------------------------------------------

struct TPQDSCodecThread::State {
  std::mutex mutex;  // a leaf, but for the question whether a queue is empty
  std::condition_variable changed;
  bool busy = false;
  std::thread::id thread;
};

TPQDSCodecThread::TPQDSCodecThread(std::function<void()> closure)
    : state_(std::make_shared<State>()), thread_([state = state_, closure = std::move(closure)] {
        struct Leave {
          State& state;
          ~Leave() {
            const std::lock_guard lock(state.mutex);
            state.busy = false;
            state.thread = {};
            state.changed.notify_all();
          }
        };
        const auto held = state;  // the closure may end the component, and this
        {
          const std::lock_guard lock(held->mutex);
          held->busy = true;
          held->thread = std::this_thread::get_id();
        }
        const Leave leave{*held};
        closure();
      }) {}

bool TPQDSCodecThread::IsHere() const {
  const std::lock_guard lock(state_->mutex);
  return state_->thread == std::this_thread::get_id();
}

bool TPQDSCodecThread::WaitIdle(std::chrono::milliseconds limit, const std::function<bool()>& done,
                                const std::function<bool()>& over) {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, limit, [&] { return over() || (!state_->busy && done()); });
}

void TPQDSCodecThread::Leave() {
  const std::lock_guard lock(state_->mutex);
  state_->busy = false;
  state_->changed.notify_all();
}

void TPQDSCodecThread::Wake() {
  const std::lock_guard lock(state_->mutex);
  state_->changed.notify_all();
}

// --- TPQDSCodecStream -----------------------------------------------------------------------------------------------

TPQDSCodecStream::TPQDSCodecStream(TComponent& owner, const TJCObject& lock, std::function<void()> end_queue,
                                   std::function<void()> destroy)
    : owner_(owner),
      end_queue_(std::move(end_queue)),
      destroy_(std::move(destroy)),
      graph_(owner, lock, {},
             [](PQMediaModule& module, PQPlatformResult& result) -> std::shared_ptr<PQMediaGraph> {
               return module.CreateCodecGraph(result);
             }),
      alive_(std::make_shared<std::atomic<bool>>(true)) {}

void TPQDSCodecStream::Attach(TJCSinkPin& in, TJCSourcePin& out) {
  in_ = &in, out_ = &out;
  out.AddShareLock(graph_.GetLock());
  in.AddShareLock(graph_.GetLock());
  out.FunctionSinkPins.Add(in, true);
  in.SetConnectionChanged([this] {
    if (!in_->IsConnected()) Abandon();
  });
}

bool TPQDSCodecStream::IsNotifyThread() const {
  const TPQDSCodecThread* const thread = notify_.load();
  return thread != nullptr && thread->IsHere();
}

void TPQDSCodecStream::Notify() {
  if (TPQDSCodecThread* const thread = notify_.load()) thread->Notify();
}

void TPQDSCodecStream::Begin(std::function<void()> closure) {
  run_.fetch_add(1);
  if (thread_ == nullptr && !owner_.IsDesigning()) {
    thread_ = std::make_unique<TPQDSCodecThread>(std::move(closure));
    notify_.store(thread_.get());
  } else if (thread_ != nullptr && !thread_->IsHere()) {
    (void)thread_->WaitIdle(
        kTailLimit, [] { return true; }, [this] { return !alive_->load(); });
  }
  abandoned_.store(!alive_->load());
}

bool TPQDSCodecStream::KeepTail(PQFilterId source, const std::function<bool()>& queue_is_empty,
                                PQPlatformResult& result) {
  const auto graph = Interface();
  // The notify thread would wait for itself.
  if (graph == nullptr || IsAbandoned() || thread_ == nullptr || thread_->IsHere()) return true;
  const auto until = std::chrono::steady_clock::now() + kTailLimit;
  result = graph->EndOfStream(source);
  if (result.Ok()) result = graph->Drain(static_cast<int>(kTailLimit.count()));
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
  const bool empty = thread_->WaitIdle(std::max(left, 0ms), queue_is_empty, [this] { return IsAbandoned(); });
  if (IsAbandoned() || result.code == kPlatformInterrupted) return true;
  if (result.Ok() && !empty) result = {kPlatformTimeout, "what comes behind takes too long"};
  return result.Ok();
}

void TPQDSCodecStream::Release() {
  abandoned_.store(true);
  end_queue_();
  if (const auto graph = graph_.GetInterface()) graph->Interrupt();
  if (TPQDSCodecThread* const thread = notify_.load()) thread->Wake();
}

// Whoever waits inside is released first; it holds the frame mutex.
void TPQDSCodecStream::Abandon() {
  if (graph_.GetInterface() == nullptr) return;
  Release();
  JCAtSectionEnd([this, alive = alive_, run = run_.load()] {
    if (!alive->load()) return;
    // Whoever holds the frame path may wait for the notify thread.
    if (TPQDSCodecThread* const thread = notify_.load(); thread != nullptr && thread->IsHere()) thread->Leave();
    JCFrameMutex::Guard guard(frames_);
    if (run_.load() == run) destroy_();
  });
}

void TPQDSCodecStream::Shutdown() {
  in_->SetConnectionChanged({});
  alive_->store(false);
  Release();
  {
    JCFrameMutex::Guard guard(frames_);
    destroy_();
  }
  if (thread_ != nullptr) thread_->Terminate();
  in_->Disconnect();
  out_->Disconnect();
}

// --- helpers --------------------------------------------------------------------------------------------------------

void PQReportChoices(TDSGraph& graph, const std::string& wanted, const PQPlatformResult& why, const std::string& used) {
  if (why.Ok()) return;
  if (used.empty()) {
    graph.Warning("The compressor '" + wanted + "' can't be used, and no other; the stream is not compressed.", why);
  } else {
    graph.Warning("The compressor '" + wanted + "' can't be used; '" + used + "' is.", why);
  }
}

}  // namespace pantiq
