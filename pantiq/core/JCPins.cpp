#include "pantiq/core/JCPins.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "pantiq/host/PQCollection.h"
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

// A wire. `alive` is cleared before anything else when it is undone.
struct Connection : PQRefCounted {
  Connection(TJCPin* from, TJCPin* to) : source(from), sink(to) {}
  TJCPin* const source;
  TJCPin* const sink;
  std::atomic<bool> alive{true};
  TJCPin* Peer(const TJCPin* pin) const { return pin == source ? sink : source; }
};

using Table = std::vector<PQRef<Connection>>;

// Connecting and disconnecting are rare; one leaf mutex orders them. Nothing is called under it.
std::mutex& Topology() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}

}  // namespace

// What a pin's callers use while they are inside: it outlives the pin as long as one of them needs it.
class JCPinCore : public PQRefCounted {
 public:
  ~JCPinCore() override {
    delete table.load(std::memory_order_relaxed);
    for (const Table* old : retired) delete old;
  }
  std::atomic<int> in_flight{0};
  std::atomic<const Table*> table{nullptr};  // null: no connection
  std::vector<const Table*> retired;         // guarded by Topology()

  // Replaces the table; the old one is freed as soon as no call can be walking it. Under Topology().
  void Publish(std::unique_ptr<const Table> fresh) {
    if (fresh != nullptr && fresh->empty()) fresh.reset();
    if (const Table* old = table.exchange(fresh.release(), std::memory_order_seq_cst)) retired.push_back(old);
    if (in_flight.load(std::memory_order_seq_cst) == 0) {
      for (const Table* old : retired) delete old;
      retired.clear();
    }
  }
};

namespace {

// The calls through pins that the calling thread is inside of, innermost first.
struct CallFrame;
constinit thread_local CallFrame* t_calls = nullptr;

// Cores of pins that died inside a call of this thread; released when its outermost call has ended.
std::vector<PQRef<JCPinCore>>& Graveyard() {
  thread_local std::vector<PQRef<JCPinCore>> cores;
  return cores;
}
constinit thread_local bool t_graves = false;

struct CallFrame {
  explicit CallFrame(JCPinCore& pin_core) : core(pin_core), up(t_calls) {
    core.in_flight.fetch_add(1, std::memory_order_seq_cst);
    t_calls = this;
  }
  ~CallFrame() {
    t_calls = up;
    core.in_flight.fetch_sub(1, std::memory_order_release);
    if (up == nullptr && t_graves) {
      t_graves = false;
      Graveyard().clear();
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

TJCPin::~TJCPin() {
  if (list_ != nullptr) list_->Remove(*this);
  connection_changed_ = nullptr;
  // Now, not at the end of the section: after this the pin is gone.
  for (const auto& core : IntDisconnect(nullptr)) WaitForOthers(*core);
  WaitForOthers(*core_);
  if (OwnCalls(*core_) > 0) {
    Graveyard().push_back(core_);
    t_graves = true;
  }
}

bool TJCPin::IsConnected() const noexcept { return core_->table.load(std::memory_order_acquire) != nullptr; }

bool TJCPin::IsConnectedTo(const TJCPin& other) const {
  std::lock_guard guard(Topology());
  const Table* table = core_->table.load(std::memory_order_relaxed);
  return table != nullptr &&
         std::any_of(table->begin(), table->end(), [&](const auto& wire) { return wire->Peer(this) == &other; });
}

int TJCPin::GetConnectedPinCount() const {
  std::lock_guard guard(Topology());
  const Table* table = core_->table.load(std::memory_order_relaxed);
  return table == nullptr ? 0 : static_cast<int>(table->size());
}

TJCPin* TJCPin::GetConnectedPin(int index) const {
  std::lock_guard guard(Topology());
  const Table* table = core_->table.load(std::memory_order_relaxed);
  if (table == nullptr || index < 0 || index >= static_cast<int>(table->size())) return nullptr;
  return (*table)[static_cast<std::size_t>(index)]->Peer(this);
}

TJCPin* TJCPin::GetSourcePin() const {
  std::lock_guard guard(Topology());
  const Table* table = core_->table.load(std::memory_order_relaxed);
  if (table == nullptr) return nullptr;
  for (const auto& wire : *table) {
    if (wire->sink == this) return wire->source;
  }
  return nullptr;
}

bool TJCPin::IsCompatible(const TJCPin& other) const {
  const bool roles = role_ == PQPinRole::State || other.role_ == PQPinRole::State || role_ != other.role_;
  return roles && stream_ == other.stream_;
}

bool TJCPin::DirectDependsOn(const TJCPin& other) const {
  return std::find(function_sinks_.begin(), function_sinks_.end(), &other) != function_sinks_.end();
}

bool TJCPin::DependsOn(const TJCPin& other) const {
  // Upwards from this source: its function sinks, their sources, and so on. A pin is walked once.
  std::vector<const TJCPin*> sources{this};
  for (std::size_t i = 0; i < sources.size(); ++i) {
    if (sources[i]->DirectDependsOn(other)) return true;
    for (const TJCPin* sink : sources[i]->function_sinks_) {
      const TJCPin* source = sink->GetSourcePin();
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
    for (TJCPin* pin : {&source, &sink}) {
      const Table* old = pin->core_->table.load(std::memory_order_relaxed);
      auto fresh = old != nullptr ? std::make_unique<Table>(*old) : std::make_unique<Table>();
      fresh->push_back(wire);
      pin->core_->Publish(std::move(fresh));
    }
    break;
  }
  source.ConnectedNotify(sink);
  if (source.connection_changed_) source.connection_changed_();
  if (sink.connection_changed_) sink.connection_changed_();
  return {};
}

namespace {

// Calls under way on other threads may hold locks that this thread's sections keep from them: wait after the last one.
void WaitAtSectionEnd(std::vector<PQRef<JCPinCore>> cores) {
  if (cores.empty()) return;
  JCAtSectionEnd([cores = std::move(cores)] {
    for (const auto& core : cores) WaitForOthers(*core);
  });
}

}  // namespace

void TJCPin::Disconnect() { WaitAtSectionEnd(IntDisconnect(nullptr)); }
void TJCPin::Disconnect(TJCPin& other) { WaitAtSectionEnd(IntDisconnect(&other)); }

std::vector<PQRef<JCPinCore>> TJCPin::IntDisconnect(const TJCPin* only) {
  const SectionScope section;
  std::vector<PQRef<JCPinCore>> cores;
  std::vector<TJCPin*> peers;
  {
    std::lock_guard guard(Topology());
    const Table* table = core_->table.load(std::memory_order_relaxed);
    if (table == nullptr) return cores;
    cores.push_back(core_);
    auto own = std::make_unique<Table>();
    std::vector<PQRef<Connection>> undone;
    for (const auto& wire : *table) {
      (only == nullptr || wire->Peer(this) == only ? undone : *own).push_back(wire);
    }
    for (const auto& wire : undone) {
      wire->alive.store(false, std::memory_order_release);
      TJCPin* peer = wire->Peer(this);
      auto fresh = std::make_unique<Table>();
      if (const Table* theirs = peer->core_->table.load(std::memory_order_relaxed)) {
        for (const auto& other : *theirs) {
          if (!(other == wire)) fresh->push_back(other);
        }
      }
      peer->core_->Publish(std::move(fresh));
      cores.push_back(peer->core_);
      peers.push_back(peer);
    }
    core_->Publish(std::move(own));
  }
  if (!peers.empty() && connection_changed_) connection_changed_();
  for (TJCPin* peer : peers) {
    if (peer->connection_changed_) peer->connection_changed_();
  }
  return cores;
}

std::string TJCPin::GetSaveName() const {
  const TJCPin* source = GetSourcePin();
  return source == nullptr ? std::string() : source->GetFullName();
}

void TJCPin::SetProbe(IJCPinProbe* probe) {
  probe_.store(probe, std::memory_order_release);
  if (probe != nullptr) return;
  std::vector<PQRef<JCPinCore>> cores;
  {
    std::lock_guard guard(Topology());
    if (const Table* table = core_->table.load(std::memory_order_relaxed)) {
      for (const auto& wire : *table) cores.push_back(wire->Peer(this)->core_);
    }
  }
  WaitAtSectionEnd(std::move(cores));
}

// --- the way of an operation ----------------------------------------------------------------------------------------

TJCNotifyResult TJCPin::Notify(IJCNotifyOperation& op, TJCNotifyFlags flags) {
  TJCNotifyResult result;
  CallFrame frame(*core_);
  const Table* table = frame.core.table.load(std::memory_order_seq_cst);
  if (table == nullptr) return result;
  const TGUID* id = &stream_->id;
  const TJCPin* self = this;  // only compared after the first call: this pin may die in it
  for (const auto& wire : *table) {
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
  const TJCNotifyResult result = Dispatch(id, op, flags);
  probe->After(*this, op);
  return result;
}

// --- lists ----------------------------------------------------------------------------------------------------------

void TJCFunctionSinkPinList::Add(const TJCPin& sink, bool /*direct*/) { source_->function_sinks_.push_back(&sink); }
void TJCFunctionSinkPinList::Remove(const TJCPin& sink) { std::erase(source_->function_sinks_, &sink); }

TJCPinList::~TJCPinList() { Clear(); }

int TJCPinList::Add(TJCPin& pin, std::string name) {
  std::lock_guard guard(mutex_);
  pin.list_ = this;
  entries_.push_back({&pin, std::move(name)});
  return static_cast<int>(entries_.size()) - 1;
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

void TJCPinList::Disconnect() {
  const SectionScope section;  // a list that shrinks does so when the walk is over
  for (TJCPin* pin : Pins()) pin->Disconnect();
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
    AdjustOnce();
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
    pin->SetConnectionChanged([self = self_] {
      JCAtSectionEnd([self] {
        if (TJCPinListOwner* owner = self->load()) owner->Adjust();
      });
    });
    list_.Add(*pin.release());
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

template <class Value, class Operation>
bool TJCStatePin<Value, Operation>::Store(Value value) {
  auto section = WriteLock();
  if (std::memcmp(&value_, &value, sizeof value) == 0) return false;
  value_ = value;
  return true;
}

template <class Value, class Operation>
void TJCStatePin<Value, Operation>::SetValue(Value value) {
  if (Store(value)) Notify(*PQMakeRef<Operation>(value));
}

template <class Value, class Operation>
TJCNotifyResult TJCStatePin<Value, Operation>::DispatchData(const TGUID*, IJCNotifyOperation& op,
                                                            TJCNotifyFlags flags) {
  const auto* value = JCOperation<Operation>(op);
  if (value == nullptr || !Store(value->Value)) return {};
  if (on_value_) on_value_(value->Value);
  return Notify(op, flags);
}

template <class Value, class Operation>
void TJCStatePin<Value, Operation>::ConnectedNotify(TJCPin& other) {
  other.DispatchData(GetConnectionID(), *PQMakeRef<Operation>(GetValue()), {});
}

template class TJCStatePin<bool, TJCBoolOperation>;
template class TJCStatePin<float, TJCFloatOperation>;

}  // namespace pantiq
