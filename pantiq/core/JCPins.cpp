#include "pantiq/core/JCPins.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>
#include <thread>
#include <utility>

#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq {

constinit const PQClassTag TJCPinObject::kTag{"TJCPinObject", &TJCObject::kTag};
constinit const PQClassTag TJCBasicPin::kTag{"TJCBasicPin", &TJCPinObject::kTag};
constinit const PQClassTag TJCPin::kTag{"TJCPin", &TJCBasicPin::kTag};
constinit const PQClassTag TJCSinkPin::kTag{"TJCSinkPin", &TJCPin::kTag};
constinit const PQClassTag TJCSourcePin::kTag{"TJCSourcePin", &TJCPin::kTag};
constinit const PQClassTag TJCPinList::kTag{"TJCPinList", &TJCObject::kTag};
constinit const PQClassTag TJCBoolSinkPin::kTag{"TJCBoolSinkPin", &TJCSinkPin::kTag};
constinit const PQClassTag TJCClockSinkPin::kTag{"TJCClockSinkPin", &TJCSinkPin::kTag};
constinit const PQClassTag TJCBoolSourcePin::kTag{"TJCBoolSourcePin", &TJCSourcePin::kTag};
constinit const PQClassTag TJCFloatSourcePin::kTag{"TJCFloatSourcePin", &TJCSourcePin::kTag};
constinit const PQClassTag TJCClockSourcePin::kTag{"TJCClockSourcePin", &TJCSourcePin::kTag};
constinit const PQClassTag TJCBoolStatePin::kTag{"TJCBoolStatePin", &TJCPin::kTag};
constinit const PQClassTag TJCFloatStatePin::kTag{"TJCFloatStatePin", &TJCPin::kTag};

const JCStreamType kJCBoolStream{{0x6d1f6a10, 0x0b5e, 0x4c55, {0x9a, 0x01, 0x50, 0x51, 0x53, 0x54, 0x00, 0x01}},
                                 "boolean"};
const JCStreamType kJCFloatStream{{0x6d1f6a10, 0x0b5e, 0x4c55, {0x9a, 0x01, 0x50, 0x51, 0x53, 0x54, 0x00, 0x02}},
                                  "float"};
const JCStreamType kJCClockStream{{0x6d1f6a10, 0x0b5e, 0x4c55, {0x9a, 0x01, 0x50, 0x51, 0x53, 0x54, 0x00, 0x03}},
                                  "clock"};

namespace {

struct Connection;

// The wires of a pin. A table that has been published does not change: calls walk it. Wires that are undone stay in it,
// dead, until the next connection makes a new one, so that disconnecting needs no memory.
struct Table {
  std::vector<PQRef<Connection>> wires;
  mutable const Table* retired = nullptr;  // the one that was replaced before this one
};

// Connecting and disconnecting are rare; one leaf mutex orders them. Nothing is called under it.
std::mutex& Topology() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}

}  // namespace

// What a pin's callers use while they are inside: it outlives the pin as long as one of them needs it.
class JCPinCore : public PQRefCounted {
 public:
  ~JCPinCore() override;
  std::atomic<int> in_flight{0};
  std::atomic<const Table*> table{nullptr};  // null: no connection
  std::atomic<int> wires{0};                 // those that are alive; changes under Topology()
  const Table* retired = nullptr;            // guarded by Topology()
  JCPinCore* next_grave = nullptr;           // of the thread that buried it

  // Replaces the table; the old one is freed as soon as no call can be walking it. Under Topology().
  void Publish(std::unique_ptr<const Table> fresh) noexcept;
  // A wire of this pin is dead. Under Topology().
  void LoseWire() noexcept {
    if (wires.fetch_sub(1, std::memory_order_relaxed) == 1) Publish(nullptr);
  }

 private:
  void FreeRetired() noexcept;
};

namespace {

void WaitForOthers(const JCPinCore& core);

// A wire. `alive` is cleared before anything else when it is undone. Who undid it waits for the calls under way over it
// at the end of a section.
struct Connection final : PQRefCounted, JCSectionWork {
  Connection(TJCPin* from, TJCPin* to) : source(from), sink(to) {}
  TJCPin* const source;
  TJCPin* const sink;
  std::atomic<bool> alive{true};
  PQRef<JCPinCore> ends[2];  // while it waits
  PQRef<Connection> next;    // undone by the same destructor
  TJCPin* Peer(const TJCPin* pin) const { return pin == source ? sink : source; }
  bool Alive() const { return alive.load(std::memory_order_relaxed); }  // under Topology()

  static void WaitAtSectionEnd(PQRef<Connection> wire) noexcept { JCAtSectionEnd(*wire.Detach()); }
  void Run() noexcept override {
    const auto self = PQRef<Connection>::Adopt(this);
    for (PQRef<JCPinCore>& end : ends) {
      WaitForOthers(*end);
      end = {};
    }
  }
};

}  // namespace

JCPinCore::~JCPinCore() {
  delete table.load(std::memory_order_relaxed);
  FreeRetired();
}

void JCPinCore::FreeRetired() noexcept {
  while (retired != nullptr) {
    const Table* const old = std::exchange(retired, retired->retired);
    delete old;
  }
}

void JCPinCore::Publish(std::unique_ptr<const Table> fresh) noexcept {
  if (const Table* old = table.exchange(fresh.release(), std::memory_order_seq_cst)) {
    old->retired = std::exchange(retired, old);
  }
  if (in_flight.load(std::memory_order_seq_cst) == 0) FreeRetired();
}

namespace {

// The calls through pins that the calling thread is inside of, innermost first.
struct CallFrame;
constinit thread_local CallFrame* t_calls = nullptr;

// Cores of pins that died inside a call of this thread; released when its outermost call has ended.
constinit thread_local JCPinCore* t_graves = nullptr;

void Bury(PQRef<JCPinCore> core) noexcept {
  core->next_grave = t_graves;
  t_graves = core.Detach();
}

struct CallFrame {
  explicit CallFrame(JCPinCore& pin_core) : core(pin_core), up(t_calls) {
    core.in_flight.fetch_add(1, std::memory_order_seq_cst);
    t_calls = this;
  }
  ~CallFrame() {
    t_calls = up;
    core.in_flight.fetch_sub(1, std::memory_order_release);
    if (up == nullptr) {
      while (t_graves != nullptr) {
        const auto grave = PQRef<JCPinCore>::Adopt(t_graves);
        t_graves = grave->next_grave;
      }
    }
  }
  CallFrame(const CallFrame&) = delete;
  CallFrame& operator=(const CallFrame&) = delete;
  JCPinCore& core;
  CallFrame* const up;
};

int OwnCalls(const JCPinCore& core) {
  int calls = 0;
  for (const CallFrame* frame = t_calls; frame != nullptr; frame = frame->up) calls += &frame->core == &core;
  return calls;
}

struct SectionScope {
  SectionScope() { JCEnterSection(); }
  ~SectionScope() { JCLeaveSection(); }
  SectionScope(const SectionScope&) = delete;
  SectionScope& operator=(const SectionScope&) = delete;
};

// Waits until no other thread is inside a call through the core's pin. Disconnecting is rare and the wait short, so it
// polls and costs the frames nothing.
void WaitForOthers(const JCPinCore& core) {
  const int own = OwnCalls(core);
  for (int round = 0; core.in_flight.load(std::memory_order_seq_cst) > own; ++round) {
    if (round < 64) {
      std::this_thread::yield();
    } else {
      std::this_thread::sleep_for(std::chrono::microseconds(round < 256 ? 50 : 1000));
    }
  }
}

}  // namespace

// Waits for the calls that may be inside a probe.
class JCProbeEnd final : public PQRefCounted, public JCSectionWork {
 public:
  JCProbeEnd(const TJCPin* pin, PQRef<JCPinCore> core) : pin_(pin), core_(std::move(core)) {}
  void Run() noexcept override {
    const auto self = PQRef<JCProbeEnd>::Adopt(this);
    for (std::size_t i = 0;; ++i) {
      PQRef<JCPinCore> caller;
      {
        std::lock_guard guard(Topology());
        const Table* const table = core_->table.load(std::memory_order_relaxed);
        if (table == nullptr || i >= table->wires.size()) return;
        // A dead wire's calls are waited for by who undid it; its other end may be gone.
        if (const auto& wire = table->wires[i]; wire->Alive()) caller = wire->Peer(pin_)->core_;
      }
      if (caller) WaitForOthers(*caller);
    }
  }

 private:
  const TJCPin* const pin_;  // only compared
  const PQRef<JCPinCore> core_;
};

// --- names ----------------------------------------------------------------------------------------------------------

namespace {

// Visits the published pins with their paths until `visit` answers true.
template <class Visit>
bool WalkPins(TPersistent& object, const PQProperty* held_by, const std::string& before, const Visit& visit) {
  for (const PQProperty& property : PQAllProperties(object, held_by)) {
    TPersistent* const part = property.object ? property.object(object) : nullptr;
    if (part == nullptr) continue;
    const bool listed = held_by != nullptr && held_by->kind == PQKind::PinList;
    const std::string path = before + (listed ? PQQuote(property.name) : property.name);
    if (property.kind == PQKind::Pin) {
      if (auto* pin = PQCast<TJCBasicPin>(part); pin != nullptr && visit(*pin, path)) return true;
    } else if (property.kind == PQKind::PinList || property.kind == PQKind::Object) {
      if (WalkPins(*part, &property, path + ".", visit)) return true;
    } else if (auto* collection = property.kind == PQKind::Collection ? PQCast<TCollection>(part) : nullptr) {
      for (int i = 0; i < collection->GetCount(); ++i) {
        if (WalkPins(*collection->GetItem(i), nullptr, path + "[" + std::to_string(i) + "].", visit)) return true;
      }
    }
  }
  return false;
}

}  // namespace

std::string TJCBasicPin::GetName() const {
  std::string name;
  WalkPins(*GetOwnerComponent(), nullptr, {}, [&](const TJCBasicPin& pin, const std::string& path) {
    if (&pin == this) name = path;
    return &pin == this;
  });
  return name;
}

std::vector<TJCPin*> JCPublishedPins(TPersistent& object) {
  std::vector<TJCPin*> pins;
  WalkPins(object, nullptr, {}, [&](TJCBasicPin& basic, const std::string&) {
    auto* const pin = PQCast<TJCPin>(&basic);
    if (pin != nullptr && std::find(pins.begin(), pins.end(), pin) == pins.end()) pins.push_back(pin);
    return false;
  });
  return pins;
}

std::string TJCBasicPin::GetFullName() const {
  const TComponent* owner = GetOwnerComponent();
  const std::string& name = owner->GetName();
  return (name.empty() ? owner->ClassInfo().Name() : name) + "." + GetName();
}

// --- connections ----------------------------------------------------------------------------------------------------

TJCPin::TJCPin(TComponent& owner, PQPinRole role, const JCStreamType& stream, JCDispatch dispatch)
    : TJCBasicPin(owner), core_(PQMakeRef<JCPinCore>()), dispatch_(dispatch), stream_(&stream), role_(role) {}

namespace {

void TellOfConnections(const std::function<void()>& changed) noexcept {
  if (!changed) return;
  try {
    changed();
  } catch (...) {  // a list that should have grown or shrunk does so with the next change
    ReportCaught(nullptr, "a change of connections was not followed");
  }
}

}  // namespace

template <class Undone>
void TJCPin::IntDisconnect(const TJCPin* only, Undone undone) noexcept {
  const SectionScope section;
  bool any = false;
  // As many as there are now: what a closure connects anew stays.
  for (int left = GetConnectedPinCount(); left > 0; --left) {
    PQRef<Connection> wire;
    TJCPin* peer = nullptr;
    {
      std::lock_guard guard(Topology());
      const Table* const table = core_->table.load(std::memory_order_relaxed);
      if (table == nullptr) break;
      for (const auto& candidate : table->wires) {
        if (!candidate->Alive() || (only != nullptr && candidate->Peer(this) != only)) continue;
        wire = candidate;
        break;
      }
      if (!wire) break;
      peer = wire->Peer(this);
      wire->alive.store(false, std::memory_order_release);
      wire->ends[0] = core_, wire->ends[1] = peer->core_;
      core_->LoseWire();
      peer->core_->LoseWire();
    }
    any = true;
    TellOfConnections(peer->connection_changed_);
    undone(std::move(wire));
  }
  if (any) TellOfConnections(connection_changed_);
}

TJCPin::~TJCPin() {
  if (list_ != nullptr) list_->Remove(*this);
  connection_changed_ = nullptr;
  // Now, not at the end of the section: after this the pin is gone.
  PQRef<Connection> undone;
  IntDisconnect(nullptr, [&undone](PQRef<Connection> wire) {
    wire->next = std::move(undone);
    undone = std::move(wire);
  });
  while (undone) {
    PQRef<Connection> next = std::move(undone->next);
    undone.Detach()->Run();
    undone = std::move(next);
  }
  WaitForOthers(*core_);
  if (OwnCalls(*core_) > 0) Bury(core_);
}

bool TJCPin::IsConnected() const noexcept { return core_->table.load(std::memory_order_acquire) != nullptr; }

bool TJCPin::IsConnectedTo(const TJCPin& other) const {
  std::lock_guard guard(Topology());
  const Table* table = core_->table.load(std::memory_order_relaxed);
  return table != nullptr && std::any_of(table->wires.begin(), table->wires.end(),
                                         [&](const auto& wire) { return wire->Alive() && wire->Peer(this) == &other; });
}

int TJCPin::GetConnectedPinCount() const { return core_->wires.load(std::memory_order_relaxed); }

TJCPin* TJCPin::GetConnectedPin(int index) const {
  std::lock_guard guard(Topology());
  const Table* table = core_->table.load(std::memory_order_relaxed);
  if (table == nullptr) return nullptr;
  for (const auto& wire : table->wires) {
    if (wire->Alive() && index-- == 0) return wire->Peer(this);
  }
  return nullptr;
}

// The source of a sink whose table this is. Under Topology().
static TJCPin* SourceIn(const Table* table, const TJCPin* sink) {
  if (table == nullptr) return nullptr;
  for (const auto& wire : table->wires) {
    if (wire->Alive() && wire->sink == sink) return wire->source;
  }
  return nullptr;
}

TJCPin* TJCPin::GetSourcePin() const {
  std::lock_guard guard(Topology());
  return SourceIn(core_->table.load(std::memory_order_relaxed), this);
}

bool TJCPin::IsCompatible(const TJCPin& other) const {
  const bool roles = role_ == PQPinRole::State || other.role_ == PQPinRole::State || role_ != other.role_;
  return roles && stream_ == other.stream_;
}

bool TJCPin::DirectDependsOn(const TJCPin& other) const {
  std::lock_guard guard(Topology());
  return std::find(function_sinks_.begin(), function_sinks_.end(), &other) != function_sinks_.end();
}

bool TJCPin::DependsOn(const TJCPin& other) const {
  // Upwards from this source: its function sinks, their sources, and so on. A pin is walked once; none may go meanwhile.
  std::vector<const TJCPin*> sources{this};
  std::lock_guard guard(Topology());
  for (std::size_t i = 0; i < sources.size(); ++i) {
    for (const TJCPin* sink : sources[i]->function_sinks_) {
      if (sink == &other) return true;
      const TJCPin* source = SourceIn(sink->core_->table.load(std::memory_order_relaxed), sink);
      if (source != nullptr && std::find(sources.begin(), sources.end(), source) == sources.end())
        sources.push_back(source);
    }
  }
  return false;
}

PQStatus TJCPin::CanConnectTo(const TJCPin& other) const {
  if (this == &other) {
    return {PQCode::Refused, "cannot connect " + GetFullName() + " to itself"};
  }
  if (role_ == other.role_ && role_ != PQPinRole::State) {
    const char* kind = role_ == PQPinRole::Sink ? "sinks (inputs)" : "sources (outputs)";
    return {PQCode::Refused, "cannot connect " + GetFullName() + " to " + other.GetFullName() + ": both are " + kind +
                                 "; expected one source and one sink"};
  }
  if (stream_ != other.stream_) {
    return {PQCode::Refused, "cannot connect " + GetFullName() + " (" + stream_->name + ") to " + other.GetFullName() +
                                 " (" + other.stream_->name + "): expected pins of the same stream type"};
  }
  const TJCPin& source = other.role_ == PQPinRole::Source || role_ == PQPinRole::Sink ? other : *this;
  const TJCPin& sink = &source == this ? other : *this;
  if (source.role_ == PQPinRole::Source && source.DependsOn(sink)) {
    return {PQCode::Refused, "cannot connect " + source.GetFullName() + " to " + sink.GetFullName() +
                                 ": the stream would feed itself (a cycle)"};
  }
  return {};
}

PQStatus TJCPin::Connect(TJCPin& other) {
  PQStatus status = CanConnectTo(other);
  if (!status.Ok()) return status;
  TJCPin& source = other.role_ == PQPinRole::Source || role_ == PQPinRole::Sink ? other : *this;
  TJCPin& sink = &source == this ? other : *this;
  if (source.IsConnectedTo(sink)) return {};
  const SectionScope section;  // what the closures put off runs when nothing here is in use any more
  for (;;) {
    if (sink.role_ == PQPinRole::Sink) sink.Disconnect();
    auto wire = PQMakeRef<Connection>(&source, &sink);
    std::lock_guard guard(Topology());
    if (sink.role_ == PQPinRole::Sink && sink.core_->table.load(std::memory_order_relaxed) != nullptr) continue;
    const auto with_wire = [&wire](const TJCPin& pin) {
      auto fresh = std::make_unique<Table>();
      const Table* const old = pin.core_->table.load(std::memory_order_relaxed);
      fresh->wires.reserve((old != nullptr ? old->wires.size() : 0) + 1);
      if (old != nullptr) {
        std::copy_if(old->wires.begin(), old->wires.end(), std::back_inserter(fresh->wires),
                     [](const auto& other) { return other->Alive(); });
      }
      fresh->wires.push_back(wire);
      return fresh;
    };
    std::unique_ptr<const Table> tables[2] = {with_wire(source), with_wire(sink)};  // both, or no connection is made
    for (TJCPin* pin : {&source, &sink}) {
      pin->core_->wires.fetch_add(1, std::memory_order_relaxed);
      pin->core_->Publish(std::move(tables[pin == &sink]));
    }
    break;
  }
  try {
    source.ConnectedNotify(sink);
    if (source.connection_changed_) source.connection_changed_();
    if (sink.connection_changed_) sink.connection_changed_();
  } catch (...) {  // a connection with all that follows from it, or none
    source.Disconnect(sink);
    throw;
  }
  return {};
}

// Calls under way on other threads may hold locks that this thread's sections keep from them: wait after the last one.
void TJCPin::Disconnect() noexcept { IntDisconnect(nullptr, Connection::WaitAtSectionEnd); }
void TJCPin::Disconnect(TJCPin& other) noexcept { IntDisconnect(&other, Connection::WaitAtSectionEnd); }

std::string TJCPin::GetSaveName() const {
  const TJCPin* source = GetSourcePin();
  return source == nullptr ? std::string() : source->GetFullName();
}

void TJCPin::SetProbe(IJCPinProbe* probe) {
  if (probe != nullptr) probe_end_ = PQMakeRef<JCProbeEnd>(this, core_);
  probe_.store(probe, std::memory_order_release);
  if (probe != nullptr || !probe_end_) return;
  JCAtSectionEnd(*probe_end_.Detach());
}

// --- the way of an operation ----------------------------------------------------------------------------------------

TJCNotifyResult TJCPin::Notify(IJCNotifyOperation& op, TJCNotifyFlags flags) {
  TJCNotifyResult result;
  CallFrame frame(*core_);
  const Table* table = frame.core.table.load(std::memory_order_seq_cst);
  if (table == nullptr) return result;
  const TGUID* id = &stream_->id;
  const TJCPin* self = this;  // only compared after the first call: this pin may die in it
  for (const auto& wire : table->wires) {
    if (!wire->alive.load(std::memory_order_acquire)) continue;
    result |= wire->Peer(self)->DispatchData(id, op, flags);
  }
  return result;
}

TJCNotifyResult TJCPin::DispatchData(const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  IJCPinProbe* probe = probe_.load(std::memory_order_acquire);
  if (probe == nullptr) [[likely]] {
    return Dispatch(id, op, flags);
  }
  if (!probe->Before(*this, op)) return {};
  TJCNotifyResult result;
  try {
    result = Dispatch(id, op, flags);
  } catch (...) {
    probe->Failed(*this, op);
    throw;
  }
  probe->After(*this, op);
  return result;
}

// --- lists ----------------------------------------------------------------------------------------------------------

void TJCFunctionSinkPinList::Add(const TJCPin& sink, bool /*direct*/) {
  std::lock_guard guard(Topology());
  source_->function_sinks_.push_back(&sink);
}

void TJCFunctionSinkPinList::Remove(const TJCPin& sink) {
  std::lock_guard guard(Topology());
  std::erase(source_->function_sinks_, &sink);
}

TJCPinList::~TJCPinList() { Clear(); }

int TJCPinList::Add(TJCPin& pin, std::string name) {
  std::lock_guard guard(mutex_);
  entries_.push_back({&pin, std::move(name)});
  pin.list_ = this;
  return static_cast<int>(entries_.size()) - 1;
}

TJCPin& TJCPinList::Own(std::unique_ptr<TJCPin> pin) {
  Add(*pin);
  return *pin.release();
}

void TJCPinList::Remove(TJCPin& pin) {
  bool listed = false;
  {
    std::lock_guard guard(mutex_);
    listed = std::erase_if(entries_, [&](const Entry& entry) { return entry.pin == &pin; }) > 0;
    if (listed && pin.list_ == this) pin.list_ = nullptr;
  }
  if (listed && owns_) delete &pin;
}

void TJCPinList::Clear() {
  std::vector<Entry> entries;
  {
    std::lock_guard guard(mutex_);
    entries.swap(entries_);
    for (const Entry& entry : entries) {
      if (entry.pin->list_ == this) entry.pin->list_ = nullptr;  // it may be named by another list
    }
  }
  if (!owns_) return;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) delete entry->pin;
}

int TJCPinList::GetCount() const {
  std::lock_guard guard(mutex_);
  return static_cast<int>(entries_.size());
}

TJCPin* TJCPinList::GetPin(int index) const {
  std::lock_guard guard(mutex_);
  return index < 0 || index >= static_cast<int>(entries_.size()) ? nullptr
                                                                 : entries_[static_cast<std::size_t>(index)].pin;
}

int TJCPinList::IndexOf(const TJCPin& pin) const {
  std::lock_guard guard(mutex_);
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i].pin == &pin) return static_cast<int>(i);
  }
  return -1;
}

std::string TJCPinList::GetPinName(int index) const {
  std::lock_guard guard(mutex_);
  if (index < 0 || index >= static_cast<int>(entries_.size())) return {};
  const std::string& name = entries_[static_cast<std::size_t>(index)].name;
  return name.empty() ? "Pin" + std::to_string(index + 1) : name;
}

void TJCPinList::SetName(int index, std::string name) {
  std::lock_guard guard(mutex_);
  if (index >= 0 && index < static_cast<int>(entries_.size()))
    entries_[static_cast<std::size_t>(index)].name = std::move(name);
}

void TJCPinList::Swap(int a, int b) {
  std::lock_guard guard(mutex_);
  const int count = static_cast<int>(entries_.size());
  if (a < 0 || b < 0 || a >= count || b >= count) return;
  std::swap(entries_[static_cast<std::size_t>(a)], entries_[static_cast<std::size_t>(b)]);
}

TJCPin* TJCPinList::FindPin(std::string_view name) const {
  for (int i = 0; i < GetCount(); ++i) {
    if (GetPinName(i) == name) return GetPin(i);
  }
  return nullptr;
}

TJCPin* TJCPinList::FirstFree() const {
  for (TJCPin* pin : Pins()) {
    if (!pin->IsConnected()) return pin;
  }
  return nullptr;
}

TJCPin* TJCPinList::FreePin() {
  TJCPin* const pin = FirstFree();
  return pin == nullptr && make_ ? make_() : pin;
}

std::vector<TJCPin*> TJCPinList::Pins() const {
  std::lock_guard guard(mutex_);
  std::vector<TJCPin*> pins;
  pins.reserve(entries_.size());
  for (const Entry& entry : entries_) pins.push_back(entry.pin);
  return pins;
}

void TJCPinList::Disconnect() noexcept {
  const SectionScope section;  // a list that shrinks does so when the walk is over
  for (int i = 0; i < GetCount(); ++i) {
    if (TJCPin* const pin = GetPin(i)) pin->Disconnect();
  }
}

TJCPinListOwner::TJCPinListOwner(TJCPinList& list, int least, int most, Factory make,
                                 std::function<void(TJCPin&)> leaving)
    : list_(list),
      least_(least),
      most_(most),
      make_(std::move(make)),
      leaving_(std::move(leaving)),
      self_(std::make_shared<Self>(this)) {
  Adjust();
}

TJCPinListOwner::~TJCPinListOwner() { self_->store(nullptr); }

// A change that comes while another thread (or this one) adjusts is taken up by that one.
void TJCPinListOwner::Adjust() {
  if (wanted_.fetch_add(1) != 0) return;
  for (int seen = 1; seen != 0;) {
    seen = wanted_.load();
    try {
      AdjustOnce();
    } catch (...) {  // the next change tries again
      wanted_.store(0);
      throw;
    }
    seen = wanted_.fetch_sub(seen) - seen;
  }
}

void TJCPinListOwner::AdjustOnce() {
  const auto is_free = [this](int back) {
    const TJCPin* pin = list_.GetPin(list_.GetCount() - back);
    return pin != nullptr && !pin->IsConnected();
  };
  while (list_.GetCount() < least_ || (list_.GetCount() < most_ && !is_free(1))) {
    auto pin = make_();
    try {
      pin->SetConnectionChanged([self = self_] {
        JCAtSectionEnd([self] {
          if (TJCPinListOwner* owner = self->load()) owner->Adjust();
        });
      });
      list_.Add(*pin);
    } catch (...) {
      if (leaving_) leaving_(*pin);
      throw;
    }
    (void)pin.release();  // it is the list's
  }
  while (list_.GetCount() > least_ && is_free(1) && is_free(2)) {
    TJCPin& pin = *list_.GetPin(list_.GetCount() - 1);
    if (leaving_) leaving_(pin);
    list_.Remove(pin);
  }
}

// --- values ---------------------------------------------------------------------------------------------------------

TJCNotifyResult TJCBoolSinkPin::DispatchData(const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  if (const auto* value = JCOperation<TJCBoolOperation>(op); value != nullptr && on_value_) on_value_(value->Value);
  return {};
}

TJCNotifyResult TJCClockSinkPin::DispatchData(const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  if (JCOperation<TJCClockOperation>(op) != nullptr && on_clock_) on_clock_();
  return {};
}

namespace {

// Pins of a ring whose values two threads set at the same time would send both values round without an end.
class Hop {
 public:
  Hop() { ++count; }
  ~Hop() { --count; }
  bool IsOneTooMany() const { return count > kMost; }

 private:
  static constexpr int kMost = 64;  // values of state pins that one thread sends on inside each other
  static thread_local int count;
};
thread_local int Hop::count = 0;

}  // namespace

template <class Value, class Operation>
bool TJCStatePin<Value, Operation>::Store(Value value) {
  auto section = WriteLock();
  if (std::memcmp(&value_, &value, sizeof value) == 0) return false;
  value_ = value;
  return true;
}

template <class Value, class Operation>
void TJCStatePin<Value, Operation>::SetValue(Value value) {
  const Hop hop;
  if (Store(value) && !hop.IsOneTooMany()) Notify(*PQMakeRef<Operation>(value));
}

template <class Value, class Operation>
TJCNotifyResult TJCStatePin<Value, Operation>::DispatchData(const TGUID*, IJCNotifyOperation& op,
                                                            TJCNotifyFlags flags) {
  const auto* value = JCOperation<Operation>(op);
  const Hop hop;
  if (value == nullptr || !Store(value->Value)) return {};
  if (on_value_) on_value_(value->Value);
  return hop.IsOneTooMany() ? TJCNotifyResult{} : Notify(op, flags);
}

template <class Value, class Operation>
void TJCStatePin<Value, Operation>::ConnectedNotify(TJCPin& other) {
  other.DispatchData(GetConnectionID(), *PQMakeRef<Operation>(GetValue()), {});
}

template class TJCStatePin<bool, TJCBoolOperation>;
template class TJCStatePin<float, TJCFloatOperation>;

}  // namespace pantiq
