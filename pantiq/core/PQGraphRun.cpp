#include "pantiq/core/PQGraphRun.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <functional>
#include <limits>
#include <mutex>
#include <thread>
#include <utility>

#include "pantiq/core/PQCommonGen.h"
#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQPath.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq {
namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

std::string NameOf(const TComponent& component) {
  return component.GetName().empty() ? component.ClassInfo().Name() : component.GetName();
}

// One component of the running graph.
struct Node {
  TComponent* component = nullptr;
  IPQPacer* pacer = nullptr;             // if it is one
  std::vector<TJCPin*> inputs, outputs;  // connected stream pins
  bool IsSource() const { return inputs.empty() && !outputs.empty(); }
  bool IsSink() const { return !inputs.empty() && outputs.empty(); }
  bool IsGenerator() const { return component->Tag().Is(TPQCommonGen::kTag); }
  std::atomic<std::int64_t> nanoseconds{0}, frames{0};
};

// A change in the middle of the stream.
struct Moment {
  std::int64_t time = 0;  // 100 ns
  std::string text;       // for messages
  TComponent* component = nullptr;
  std::function<PQStatus()> act;
  bool begun = false;             // under the mutex of the moments
  std::atomic<bool> done{false};  // no frame waits for it any more
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
    bool counted = false;             // its buffers are the frames that a run counts: pictures, or blocks of numbers
    std::atomic<bool> pumped{false};  // this run is the master of its pump
    std::atomic<bool> held{false};    // its stop waits until the pacer has passed on what it has
    std::vector<Moment*> moments;     // that frames here bring about, in order
    std::atomic<bool> started{false}, stopped{false}, full{false};
    std::atomic<bool> ignored{false};  // its source has said that nothing will come
    std::atomic<std::int64_t> frames{0}, buffers{0}, first{-1}, position{0};

    bool Before(TJCPin&, IJCNotifyOperation& op) override {
      if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
        if (!Admit(*supplied)) return false;
        if (!moments.empty() && supplied->Buffer) run->Reach(*this, supplied->Buffer->GetTimeStamp());
        run->arrivals.fetch_add(1);
        if (run->waits_for_arrival.load()) run->Wake();
      } else if (JCOperation<TJCStartOperation>(op) != nullptr) {
        started.store(true);
        stopped.store(false);
        held.store(false);
      } else if (JCOperation<TJCIgnoreStreamOperation>(op) != nullptr) {
        ignored.store(true);
      } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
        if (node->pacer != nullptr && !run->ending.load() && node->pacer->Waiting(*pin) > 0) {
          held.store(true);
          run->Wake();
          return false;
        }
      } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
        if (!run->may_pump || request->Kind == 3) {
          // The pace is somebody else's.
        } else if (at_sink && counted) {
          request->Master = run, request->Kind = 3, request->Level = 0;
        } else if (node->pacer != nullptr) {
          request->Master = run, request->Kind = 2, request->Level = std::numeric_limits<std::int32_t>::max();
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

    void Failed(TJCPin&, IJCNotifyOperation&) noexcept override {
      if (run->options.measure) EndTiming();
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
  std::atomic<bool> waits_for_arrival{false}, ending{false};
  std::vector<std::unique_ptr<Moment>> moments;  // in the order of their times
  std::recursive_mutex moments_mutex;            // one thread at a time brings them about; one may send a frame

  std::atomic<bool> stop{false};  // all that a signal handler touches
  std::mutex mutex;
  std::condition_variable wake;
  bool woken = false;
  PQStatus failure;  // under the mutex
  // Made before anything may go wrong: what ends a run, and what is said when there is no memory to say more.
  const PQRef<TJCStopOperation> stop_op = PQMakeRef<TJCStopOperation>();
  PQStatus no_memory{PQCode::Failed, "the run failed: there was no memory to say more"};

  void Wake() {
    std::lock_guard guard(mutex);
    woken = true;
    wake.notify_all();
  }

  void Note(const std::string& text) {
    if (observer != nullptr) observer->OnNote(text);
  }

  // Inside a catch block: what was caught ends the run.
  void FailCaught() noexcept {
    try {
      std::string what = "an exception of an unknown class";
      try {
        throw;
      } catch (const std::exception& error) {
        what = error.what();
      } catch (...) {
      }
      Fail({PQCode::Failed, "the run failed: " + what});
    } catch (...) {
      Fail(std::move(no_memory));
    }
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
      node->pacer = dynamic_cast<IPQPacer*>(component);
      for (TJCPin* pin : JCPublishedPins(*component)) {
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
    for (const auto& moment : moments) {
      const Node* node = FindNode(moment->component);
      for (const auto& input : inputs) {
        const TJCPin* peer = input->pin->GetSourcePin();
        const bool fed = node->inputs.empty() && peer != nullptr && peer->GetOwnerComponent() == moment->component;
        if (input->node == node || fed) input->moments.push_back(moment.get());
      }
    }
    // Generators alone are asked for frames; a file's reader paces itself, unless what it feeds keeps frames.
    const auto any = [this](auto test) {
      return std::any_of(nodes.begin(), nodes.end(), [&](const auto& n) { return test(*n); });
    };
    const bool counts =
        std::any_of(inputs.begin(), inputs.end(), [](const auto& input) { return input->at_sink && input->counted; });
    may_pump = !options.realtime && counts &&
               (any([](const Node& n) { return n.pacer != nullptr && !n.inputs.empty(); }) ||
                !any([](const Node& n) { return n.IsSource() && !n.IsGenerator(); }));
  }

  // Brings about what is due before a frame of this time.
  void Reach(const Input& input, const TBXTimeStamp& stamp) {
    if (!stamp.GetAvailable()) return;
    for (Moment* moment : input.moments) {
      if (moment->time > stamp.GetBegin()) return;
      if (moment->done.load()) continue;
      std::lock_guard guard(moments_mutex);
      if (std::exchange(moment->begun, true)) continue;
      if (PQStatus status = moment->act(); !status.Ok()) Fail(std::move(status));
      moment->done.store(true);
    }
  }

  void Fail(PQStatus status) {
    {
      std::lock_guard guard(mutex);
      if (failure.Ok()) failure = std::move(status);
    }
    Wake();
  }

  // Lets those stops go that have nothing more to wait for. True if some still wait.
  bool ReleaseStops() {
    bool waiting = false;
    for (const auto& input : inputs) {
      if (!input->held.load()) continue;
      if (input->node->pacer->Waiting(*input->pin) > 0) {
        waiting = true;
      } else if (input->held.exchange(false)) {
        input->pin->DispatchData(input->pin->GetConnectionID(), *PQMakeRef<TJCStopOperation>(), {});
      }
    }
    return waiting;
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

  // Asks each sink's sources to begin. A sink that has been answered already, through another one, is left out: a
  // second request would start the source anew.
  void Start() {
    for (const auto& input : inputs) {
      if (!input->at_sink || input->started.load() || input->ignored.load() || stop.load()) continue;
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
    const std::int64_t before = arrivals.load();
    for (const auto& input : inputs) {
      if (!input->pumped || input->full.load() || input->stopped.load()) continue;
      std::vector<Node*> sources;
      if (options.measure) {
        SourcesOf(*input->node, sources);
        std::erase_if(sources, [](const Node* node) { return !node->IsSource(); });
        if (!sources.empty()) BeginTiming(sources.front());
      }
      static_cast<TRWJCSinkPin*>(input->pin)->MasterPump(this);
      if (!sources.empty()) EndTiming();
    }
    for (const auto& node : nodes) {
      if (may_pump && node->pacer != nullptr) node->pacer->Drain();
    }
    return arrivals.load() > before;
  }

  // The figures that an object and the items of its collections show.
  void Gauges(TPersistent& object, const Node& node, const std::string& before, PQRunProgress& progress) {
    for (const PQProperty& property : object.ClassInfo().Properties()) {
      if (property.kind == PQKind::Collection) {
        const auto* items = PQCast<TCollection>(property.object(object));
        for (int i = 0; items != nullptr && i < items->GetCount(); ++i) {
          Gauges(*items->GetItem(i), node, property.name + "[" + std::to_string(i) + "].", progress);
        }
      }
      if (!property.gauge || property.kind != PQKind::Integer) continue;
      const PQValue value = property.get(object);
      if (property.name == "FileDuration") {
        progress.duration = std::max(progress.duration, static_cast<double>(*value.Int()) / 1e7);
      } else {
        progress.gauges.push_back({NameOf(*node.component), before + property.name, *value.Int()});
      }
    }
  }

  void Progress(Clock::time_point begin, Clock::time_point now, std::int64_t& last_frames, Clock::time_point& last) {
    PQRunProgress progress;
    for (const auto& input : inputs) {
      if (!input->at_sink) continue;
      progress.frames = std::max(progress.frames, input->frames.load());
      progress.position = std::max(progress.position, static_cast<double>(input->position.load()) / 1e7);
    }
    progress.elapsed = Seconds(now - begin);
    progress.frames_per_second =
        static_cast<double>(progress.frames - last_frames) / std::max(Seconds(now - last), 1e-9);
    last_frames = progress.frames;
    last = now;
    for (const auto& node : nodes) Gauges(*node->component, *node, {}, progress);
    if (observer != nullptr) observer->OnProgress(progress);
  }

  void Loop(Clock::time_point begin) {
    std::int64_t last_frames = 0;
    Clock::time_point last = begin;
    const auto every = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(std::max(options.progress_every, 0.01)));
    while (!Over()) {
      const auto due = last + every;
      const std::int64_t before = arrivals.load();
      const bool moved = Pump(), held = ReleaseStops();
      if (!moved) {
        // A signal handler cannot wake anybody: look at its flag now and then, and at what a held stop waits for.
        const auto pause = std::chrono::milliseconds(held ? 1 : 50);
        waits_for_arrival.store(may_pump);
        {
          std::unique_lock guard(mutex);
          wake.wait_until(guard, std::min(due, Clock::now() + pause),
                          [&] { return woken || (may_pump && arrivals.load() > before); });
          woken = false;
        }
        waits_for_arrival.store(false);
      }
      const auto now = Clock::now();
      if (now >= due) Progress(begin, now, last_frames, last);
    }
    Progress(begin, Clock::now(), last_frames, last);
  }

  // Sources first, so that nothing new comes; then what still waits for its stream's end hears of it, from the sources
  // down.
  void End() {
    ending.store(true);
    // Who cannot take a stop keeps nobody else from it.
    const auto guarded = [this](auto send) {
      try {
        send();
      } catch (...) {
        FailCaught();
      }
    };
    if (!SourcesEnded()) {
      for (const auto& input : inputs) {
        if (input->at_sink) guarded([&] { input->pin->Notify(*stop_op); });
      }
    }
    for (const bool at_sink : {false, true}) {
      for (const auto& input : inputs) {
        if ((at_sink ? input->at_sink : input->source != nullptr) && input->started.load() && !input->stopped.load()) {
          guarded([&] { input->pin->DispatchData(input->pin->GetConnectionID(), *stop_op, {}); });
        }
      }
    }
    TakeProbesAway();
    for (const auto& moment : moments) {
      if (!moment->done.load())
        Note(moment->text + " did not happen: the stream ended before it reached " + NameOf(*moment->component));
    }
  }

  void TakeProbesAway() noexcept {
    for (const auto& input : inputs) input->pin->SetProbe(nullptr);
  }

  PQStatus At(double seconds, std::string_view what);
};

// What can be told now is told now: the component, the property, the value's form.
PQStatus PQGraphRun::Impl::At(double seconds, std::string_view what) {
  const std::size_t equals = what.find('=');
  const std::string_view path = what.substr(0, equals);
  const std::size_t point = path.find_first_of(".[");
  const std::string name(path.substr(0, point));
  auto moment = std::make_unique<Moment>();
  char time[32];
  std::snprintf(time, sizeof time, "%.9g", seconds);
  moment->text = "at " + std::string(time) + " s " + std::string(what);
  moment->time = static_cast<std::int64_t>(seconds * 1e7 + 0.5);
  const auto refuse = [&](const std::string& text) { return PQStatus(PQCode::BadValue, moment->text + ": " + text); };
  PQStatus status;
  moment->component = graph.Find(name);
  if (moment->component == nullptr) {
    (void)graph.FindPin(path, PQPinRole::None, &status);
    return refuse(status.Text());
  }
  if (point == std::string_view::npos || path[point] != '.' || point + 1 == path.size()) {
    return refuse("the property or pin is missing; expected " + name + ".Property=value or " + name + ".Pin");
  }
  std::vector<PQPathStep> steps;
  if (status = PQParsePath(path.substr(point + 1), steps); !status.Ok()) return refuse(status.Text());
  PQPathEnd end;
  PQFault fault;
  if (!PQFollowPath(*moment->component, steps, false, end, fault)) return refuse(name + "." + fault.text);
  auto* const pin = end.property.kind == PQKind::Pin ? PQCast<TJCPin>(end.property.object(*end.object)) : nullptr;
  if (end.property.kind == PQKind::PinList || (pin != nullptr && pin->GetPinType() == PQPinRole::Source)) {
    return refuse("nothing can be sent to " + std::string(path) + "; expected a property, or a pin that takes a value");
  }
  const std::string_view text = equals == std::string_view::npos ? std::string_view() : what.substr(equals + 1);
  PQRef<IJCNotifyOperation> op;
  if (pin != nullptr) {
    PQProperty like;  // of the pin's values
    like.name = path;
    like.kind = &pin->GetStreamType() == &kJCBoolStream ? PQKind::Boolean : PQKind::Float;
    PQValue value;
    if (&pin->GetStreamType() == &kJCClockStream) {
      if (equals != std::string_view::npos)
        return refuse("a clock takes no value; expected " + std::string(path) + " alone");
      op = PQMakeRef<TJCClockOperation>();
    } else if (&pin->GetStreamType() != &kJCBoolStream && &pin->GetStreamType() != &kJCFloatStream) {
      return refuse(std::string(path) + " takes " + pin->GetStreamType().name +
                    " streams; expected a pin for a clock, a boolean or a number");
    } else if (equals == std::string_view::npos) {
      return refuse("the value is missing; expected " + std::string(path) + "=" +
                    (like.kind == PQKind::Boolean ? "true" : "0.5"));
    } else if (status = PQParseValue(like, text, value); !status.Ok()) {
      return refuse(status.Text());
    } else if (like.kind == PQKind::Boolean) {
      op = PQMakeRef<TJCBoolOperation>(*value.Bool());
    } else {
      op = PQMakeRef<TJCFloatOperation>(static_cast<float>(*value.Float()));
    }
    moment->act = [pin, op] {
      pin->DispatchData(pin->GetConnectionID(), *op, {});
      return PQStatus();
    };
  } else {
    if (equals == std::string_view::npos)
      return refuse("the value is missing; expected " + std::string(path) + "=" + PQExpected(end.property));
    if (!end.property.set) return refuse(std::string(path) + " takes no value; expected a property that can be set");
    PQValue value;
    if (status = PQParseValue(end.property, text, value); !status.Ok()) return refuse(status.Text());
    moment->act = [end, value, before = moment->text] {
      PQStatus set = PQSetProperty(*end.object, end.property, value);
      return set.Ok() ? set : PQStatus(set.Code(), before + ": " + set.Text());
    };
  }
  const auto later = std::upper_bound(moments.begin(), moments.end(), moment->time,
                                      [](std::int64_t t, const auto& m) { return t < m->time; });
  moments.insert(later, std::move(moment));
  return {};
}

PQGraphRun::PQGraphRun(PQGraph& graph, PQRunOptions options, IPQRunObserver* observer)
    : impl_(std::make_unique<Impl>(graph, options, observer)) {}

PQGraphRun::~PQGraphRun() = default;

void PQGraphRun::RequestStop() noexcept { impl_->stop.store(true); }

void PQGraphRun::Fail(PQStatus status) { impl_->Fail(std::move(status)); }

PQStatus PQGraphRun::At(double seconds, std::string_view what) { return impl_->At(seconds, what); }

PQRunResult PQGraphRun::Run() {
  PQRunResult result;
  const auto begin = Clock::now();
  struct Probes {  // no pin keeps a probe of a run that is over, however it ends
    Impl& impl;
    ~Probes() { impl.TakeProbesAway(); }
  } const probes{*impl_};
  t_timings.clear();  // what another run of this thread left when it failed
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
  } catch (...) {
    impl_->FailCaught();
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
