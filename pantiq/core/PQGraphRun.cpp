#include "pantiq/core/PQGraphRun.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "pantiq/core/PQCommonGen.h"
#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq {
namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// Every pin that an object publishes, also inside lists and collections.
void CollectPins(TPersistent& object, std::vector<TJCPin*>& pins) {
  const auto collect = [&](const PQProperty& property) {
    if (!property.object) return;
    TPersistent* part = property.object(object);
    if (part == nullptr) return;
    if (property.kind == PQKind::Pin) {
      if (auto* pin = PQCast<TJCPin>(part)) pins.push_back(pin);
    } else if (property.kind == PQKind::PinList) {
      if (auto* list = PQCast<TJCPinList>(part)) {
        for (TJCPin* pin : list->Pins()) pins.push_back(pin);
      }
    } else if (property.kind == PQKind::Collection) {
      if (auto* collection = PQCast<TCollection>(part)) {
        for (int i = 0; i < collection->GetCount(); ++i) CollectPins(*collection->GetItem(i), pins);
      }
    }
  };
  for (const PQProperty& property : object.ClassInfo().Properties()) collect(property);
  for (const PQProperty& property : object.InstanceProperties()) collect(property);
}

std::string NameOf(const TComponent& component) {
  return component.GetName().empty() ? component.ClassInfo().Name() : component.GetName();
}

// One component of the running graph.
struct Node {
  TComponent* component = nullptr;
  std::vector<TJCPin*> inputs, outputs;  // connected stream pins
  bool IsSource() const { return inputs.empty() && !outputs.empty(); }
  bool IsSink() const { return !inputs.empty() && outputs.empty(); }
  bool IsGenerator() const { return component->Tag().Is(TPQCommonGen::kTag); }
  std::atomic<std::int64_t> nanoseconds{0}, frames{0};
};

// Time measurement: what the calling thread is inside of, innermost last.
struct Timing {
  Node* node;
  Clock::time_point begin;
  Clock::duration inner{};
};
thread_local std::vector<Timing> t_timings;

void BeginTiming(Node* node) { t_timings.push_back({node, Clock::now(), {}}); }
void EndTiming() {
  const Timing timing = t_timings.back();
  t_timings.pop_back();
  const Clock::duration whole = Clock::now() - timing.begin;
  timing.node->nanoseconds.fetch_add(std::chrono::nanoseconds(whole - timing.inner).count(), std::memory_order_relaxed);
  if (!t_timings.empty()) t_timings.back().inner += whole;
}

}  // namespace

struct PQGraphRun::Impl {
  // Watches one connected input of the graph.
  struct Input final : IJCPinProbe {
    Impl* run = nullptr;
    Node* node = nullptr;
    TJCPin* pin = nullptr;
    Node* source = nullptr;  // the source that feeds it directly; null otherwise
    bool at_sink = false;
    bool counted = false;  // its buffers are the frames that a run counts: pictures, or blocks of numbers
    std::atomic<bool> pumped{false};  // this run is the master of its pump
    std::atomic<bool> started{false}, stopped{false}, full{false};
    std::atomic<std::int64_t> frames{0}, buffers{0}, first{-1}, position{0};

    bool Before(TJCPin&, IJCNotifyOperation& op) override {
      if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
        run->arrivals.fetch_add(1, std::memory_order_relaxed);
        if (!Admit(*supplied)) return false;
      } else if (JCOperation<TJCStartOperation>(op) != nullptr) {
        started.store(true);
        stopped.store(false);
      } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
        if (at_sink && counted && run->may_pump && request->Kind != 3) {
          request->Master = run, request->Kind = 3, request->Level = 0;
        }
      }
      if (run->options.measure) BeginTiming(node);
      return true;
    }

    void After(TJCPin&, IJCNotifyOperation& op) override {
      if (run->options.measure) EndTiming();
      if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) {
        node->frames.fetch_add(1, std::memory_order_relaxed);
        if (at_sink && counted && run->options.frames > 0 && frames.load() >= run->options.frames) {
          full.store(true);
          run->Wake();
        }
      } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
        if (at_sink) pumped = request->Master == run;
      } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
        stopped.store(true);
        run->Wake();
      }
    }

    // Whether a buffer goes on: limits at the sinks, the left-out beginning at the sources.
    bool Admit(const TJCSuppliedBufferOperation& supplied) {
      const TBXTimeStamp* stamp = supplied.Buffer ? &supplied.Buffer->GetTimeStamp() : nullptr;
      const bool timed = stamp != nullptr && stamp->GetAvailable();
      if (source != nullptr && run->skip_before > 0 && timed && stamp->GetBegin() < run->skip_before) return false;
      if (!at_sink) return true;
      if (full.load()) return false;
      if (timed) {
        std::int64_t unset = -1;
        first.compare_exchange_strong(unset, stamp->GetBegin());
        if (run->options.seconds > 0 &&
            static_cast<double>(stamp->GetBegin() - first.load()) >= run->options.seconds * 1e7 - 0.5) {
          full.store(true);
          run->Wake();
          return false;
        }
        if (!counted && run->ImagesFull(*node)) return false;
        position.store(std::max(position.load(), stamp->GetEnd()));
      }
      (counted ? frames : buffers).fetch_add(1);
      return true;
    }
  };

  Impl(PQGraph& the_graph, PQRunOptions the_options, IPQRunObserver* the_observer)
      : graph(the_graph), options(the_options), observer(the_observer) {}

  PQGraph& graph;
  const PQRunOptions options;
  IPQRunObserver* const observer;
  std::vector<std::unique_ptr<Node>> nodes;
  std::vector<std::unique_ptr<Input>> inputs;
  bool may_pump = false;
  std::int64_t skip_before = 0;
  std::atomic<std::int64_t> arrivals{0};  // buffers at any input, also those that are left out

  std::atomic<bool> stop{false};  // all that a signal handler touches
  std::mutex mutex;
  std::condition_variable wake;
  bool woken = false;
  PQStatus failure;  // under the mutex

  void Wake() {
    std::lock_guard guard(mutex);
    woken = true;
    wake.notify_all();
  }

  void Note(const std::string& text) {
    if (observer != nullptr) observer->OnNote(text);
  }

  bool Failed() {
    std::lock_guard guard(mutex);
    return !failure.Ok();
  }

  // At a sink with several inputs: whether its pictures have reached their limit, so that its sound may end too.
  bool ImagesFull(const Node& node) const {
    bool any = false;
    for (const auto& input : inputs) {
      if (input->node != &node || !input->counted) continue;
      any = true;
      if (!input->full.load()) return false;
    }
    return any;
  }

  Node* FindNode(const TComponent* component) const {
    for (const auto& node : nodes) {
      if (node->component == component) return node.get();
    }
    return nullptr;
  }

  // All sources that the stream at this input comes from.
  void SourcesOf(const Node& node, std::vector<Node*>& found) const {
    for (const TJCPin* pin : node.inputs) {
      const TJCPin* peer = pin->GetSourcePin();
      Node* up = peer != nullptr ? FindNode(peer->GetOwnerComponent()) : nullptr;
      if (up == nullptr || std::find(found.begin(), found.end(), up) != found.end()) continue;
      found.push_back(up);
      SourcesOf(*up, found);
    }
  }

  void Survey() {
    for (TComponent* component : graph.GetComponents()) {
      auto node = std::make_unique<Node>();
      node->component = component;
      std::vector<TJCPin*> pins;
      CollectPins(*component, pins);
      for (TJCPin* pin : pins) {
        if (!pin->IsConnected()) continue;
        if (pin->Tag().Is(TRWJCSinkPin::kTag)) node->inputs.push_back(pin);
        if (pin->Tag().Is(TRWJCSourcePin::kTag)) node->outputs.push_back(pin);
      }
      nodes.push_back(std::move(node));
    }
    for (const auto& node : nodes) {
      for (TJCPin* pin : node->inputs) {
        auto input = std::make_unique<Input>();
        input->run = this;
        input->node = node.get();
        input->pin = pin;
        input->at_sink = node->IsSink();
        input->counted = pin->Tag().Is(TPQJCImageSinkPin::kTag) || pin->Tag().Is(TRWJCComboRealSinkPin::kTag);
        const TJCPin* peer = pin->GetSourcePin();
        Node* up = peer != nullptr ? FindNode(peer->GetOwnerComponent()) : nullptr;
        if (up != nullptr && up->IsSource()) input->source = up;
        inputs.push_back(std::move(input));
      }
    }
    // Generators alone are asked for frames; a file's reader paces itself.
    may_pump = !options.realtime && std::none_of(nodes.begin(), nodes.end(), [](const auto& node) {
      return node->IsSource() && !node->IsGenerator();
    });
  }

  PQStatus Prepare() {
    Survey();
    if (std::none_of(nodes.begin(), nodes.end(), [](const auto& node) { return node->IsSource(); })) {
      return {PQCode::Refused, "the graph has no source: expected a component with a connected output and no input"};
    }
    if (options.from > 0) {
      const auto from = static_cast<std::int64_t>(options.from * 1e7 + 0.5);
      for (const auto& node : nodes) {
        if (!node->IsSource()) continue;
        if (const PQProperty* start = node->component->ClassInfo().Find("StartTime")) {
          PQStatus status = PQSetProperty(*node->component, *start, PQValue(from));
          if (!status.Ok()) return status;
        } else {
          skip_before = from;
        }
      }
    }
    for (const auto& input : inputs) input->pin->SetProbe(input.get());
    return {};
  }

  // Asks each sink's sources to begin. A sink that has been answered already, through another one, is left out: a second
  // request would start the source anew.
  void Start() {
    for (const auto& input : inputs) {
      if (!input->at_sink || input->started.load() || stop.load()) continue;
      input->pin->Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));
    }
  }

  void SayWhatIsWorthKnowing() {
    for (const auto& node : nodes) {
      if (!node->IsSource()) continue;
      if (node->IsGenerator() && options.frames == 0 && options.seconds == 0) {
        Note(NameOf(*node->component) + " has no end: the run goes on until it is stopped");
      }
      const PQProperty* has_audio = node->component->ClassInfo().Find("HasAudio");
      if (has_audio != nullptr && has_audio->gauge) {
        const PQValue value = has_audio->get(*node->component);
        const bool wired = std::any_of(node->outputs.begin(), node->outputs.end(),
                                       [](const TJCPin* pin) { return pin->Tag().Is(THTJCAudioSourcePin::kTag); });
        if (value.Bool() != nullptr && *value.Bool() && !wired) {
          Note("the sound of " + NameOf(*node->component) + " goes nowhere: its AudioOutputPin is not connected");
        }
      }
    }
  }

  bool SourcesEnded() const {
    bool any = false;
    for (const auto& input : inputs) {
      if (input->source == nullptr) continue;
      any = true;
      if (!input->stopped.load()) return false;
    }
    return any;
  }

  bool SinksFull() const {
    bool any = false;
    for (const auto& input : inputs) {
      if (!input->at_sink || !input->counted) continue;
      any = true;
      if (!input->full.load()) return false;
    }
    return any;
  }

  bool Over() { return stop.load() || SourcesEnded() || SinksFull() || Failed(); }

  // One frame for every sink whose pump this run owns; false if there is none, or nothing came of it.
  bool Pump() {
    bool moved = false;
    for (const auto& input : inputs) {
      if (!input->pumped || input->full.load() || input->stopped.load()) continue;
      const std::int64_t before = arrivals.load();
      std::vector<Node*> sources;
      if (options.measure) {
        SourcesOf(*input->node, sources);
        std::erase_if(sources, [](const Node* node) { return !node->IsSource(); });
        if (!sources.empty()) BeginTiming(sources.front());
      }
      static_cast<TRWJCSinkPin*>(input->pin)->MasterPump(this);
      if (!sources.empty()) EndTiming();
      moved = moved || arrivals.load() > before;
    }
    return moved;
  }

  void Progress(Clock::time_point begin, Clock::time_point now, std::int64_t& last_frames, Clock::time_point& last) {
    PQRunProgress progress;
    for (const auto& input : inputs) {
      if (!input->at_sink) continue;
      progress.frames = std::max(progress.frames, input->frames.load());
      progress.position = std::max(progress.position, static_cast<double>(input->position.load()) / 1e7);
    }
    progress.elapsed = Seconds(now - begin);
    progress.frames_per_second = static_cast<double>(progress.frames - last_frames) / std::max(Seconds(now - last), 1e-9);
    last_frames = progress.frames;
    last = now;
    for (const auto& node : nodes) {
      for (const PQProperty& property : node->component->ClassInfo().Properties()) {
        if (!property.gauge || property.kind != PQKind::Integer) continue;
        const PQValue value = property.get(*node->component);
        if (property.name == "FileDuration") {
          progress.duration = std::max(progress.duration, static_cast<double>(*value.Int()) / 1e7);
        } else {
          progress.gauges.push_back({NameOf(*node->component), property.name, *value.Int()});
        }
      }
    }
    if (observer != nullptr) observer->OnProgress(progress);
  }

  void Loop(Clock::time_point begin) {
    std::int64_t last_frames = 0;
    Clock::time_point last = begin;
    const auto every = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(std::max(options.progress_every, 0.01)));
    while (!Over()) {
      const auto due = last + every;
      if (!Pump()) {
        // A signal handler cannot wake anybody: look at its flag now and then.
        std::unique_lock guard(mutex);
        wake.wait_until(guard, std::min(due, Clock::now() + std::chrono::milliseconds(50)), [this] { return woken; });
        woken = false;
      }
      const auto now = Clock::now();
      if (now >= due) Progress(begin, now, last_frames, last);
    }
    Progress(begin, Clock::now(), last_frames, last);
  }

  // Sources first, so that nothing new comes; then what still waits for its stream's end hears of it, from the sources down.
  void End() {
    if (!SourcesEnded()) {
      for (const auto& input : inputs) {
        if (input->at_sink) input->pin->Notify(*PQMakeRef<TJCStopOperation>());
      }
    }
    for (const bool at_sink : {false, true}) {
      for (const auto& input : inputs) {
        if ((at_sink ? input->at_sink : input->source != nullptr) && input->started.load() && !input->stopped.load()) {
          input->pin->DispatchData(input->pin->GetConnectionID(), *PQMakeRef<TJCStopOperation>(), {});
        }
      }
    }
    for (const auto& input : inputs) input->pin->SetProbe(nullptr);
  }
};

PQGraphRun::PQGraphRun(PQGraph& graph, PQRunOptions options, IPQRunObserver* observer)
    : impl_(std::make_unique<Impl>(graph, options, observer)) {}

PQGraphRun::~PQGraphRun() = default;

void PQGraphRun::RequestStop() noexcept { impl_->stop.store(true); }

void PQGraphRun::Fail(PQStatus status) {
  {
    std::lock_guard guard(impl_->mutex);
    if (impl_->failure.Ok()) impl_->failure = std::move(status);
  }
  impl_->Wake();
}

PQRunResult PQGraphRun::Run() {
  PQRunResult result;
  const auto begin = Clock::now();
  result.status = impl_->Prepare();
  if (!result.status.Ok()) return result;
  try {
    impl_->Start();
    const bool answered = std::any_of(impl_->inputs.begin(), impl_->inputs.end(),
                                      [](const auto& input) { return input->started.load(); });
    if (!answered && !impl_->stop.load()) {
      Fail({PQCode::Failed, "no source answered the start: nothing to run"});
    } else {
      impl_->SayWhatIsWorthKnowing();
      if (impl_->observer != nullptr) impl_->observer->OnStarted();
      impl_->Loop(begin);
    }
  } catch (const std::exception& error) {
    Fail({PQCode::Failed, std::string("the run failed: ") + error.what()});
  }
  impl_->End();
  {
    std::lock_guard guard(impl_->mutex);
    result.status = impl_->failure;
  }
  result.stopped = impl_->stop.load();
  result.elapsed = Seconds(Clock::now() - begin);
  for (const auto& node : impl_->nodes) {
    if (node->IsSink()) {
      PQSinkCount count{NameOf(*node->component)};
      for (const auto& input : impl_->inputs) {
        if (input->node != node.get()) continue;
        count.frames += input->frames.load();
        count.buffers += input->buffers.load();
      }
      result.frames = std::max(result.frames, count.frames);
      result.sinks.push_back(std::move(count));
    }
    if (impl_->options.measure) {
      result.times.push_back({NameOf(*node->component), node->component->ClassInfo().Name(), node->frames.load(),
                              static_cast<double>(node->nanoseconds.load()) * 1e-9});
    }
  }
  return result;
}

}  // namespace pantiq
