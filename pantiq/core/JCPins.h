// Pins: where components are wired together.
//
// A source pin feeds any number of sink pins of its stream type; a sink pin has at most one source (a new one replaces
// it). State pins carry a value and may be wired to one another. Notify on a source hands an operation down to every
// connected sink, in connection order, on the calling thread; on a sink it hands it up to the source's owner.
//
// Threads. Notify runs on any thread, on several at once, and takes no lock: it walks an immutable snapshot of the
// connections. Connect and Disconnect may run beside it on any thread. After Disconnect nothing new arrives over the
// connection; calls of other threads that are under way are waited for, at the end of the calling thread's outermost
// lock section. A pin or a component may be destroyed on the thread that is inside a call to it.
#pragma once
#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "pantiq/core/JCStdTypes.h"
#include "pantiq/host/PQComponent.h"

namespace pantiq {

class TJCPin;
class TJCPinList;
class JCPinCore;
class JCProbeEnd;

// The identity of a kind of stream: one static object each, compared by address.
struct JCStreamType {
  TGUID id;
  const char* name;  // "image", "audio", ...
};

// A dispatch entry of a component: an object and one of its member functions.
class JCDispatch {
 public:
  JCDispatch() = default;
  // JCDispatch::To<&TPQCrop::SinkDispatch>(this)
  template <auto Method, class T>
  static JCDispatch To(T* self) {
    JCDispatch dispatch;
    dispatch.self_ = self;
    dispatch.call_ = [](void* object, TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) {
      return (static_cast<T*>(object)->*Method)(pin, id, op, flags);
    };
    return dispatch;
  }
  explicit operator bool() const { return call_ != nullptr; }
  TJCNotifyResult operator()(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) const {
    return call_(self_, pin, id, op, flags);
  }

 private:
  void* self_ = nullptr;
  TJCNotifyResult (*call_)(void*, TJCPin&, const TGUID*, IJCNotifyOperation&, TJCNotifyFlags) = nullptr;
};

// Watches the operations that arrive at one pin: how a run counts, times and limits a stream. Called on the threads
// that bring the operations.
class PQ_EXPORT IJCPinProbe {
 public:
  virtual ~IJCPinProbe() = default;
  // False: the operation does not reach the pin's owner.
  virtual bool Before(TJCPin& pin, IJCNotifyOperation& op) = 0;
  virtual void After(TJCPin& pin, IJCNotifyOperation& op) = 0;
  // Instead of After: the owner threw, and the exception goes on to the sender.
  virtual void Failed(TJCPin& pin, IJCNotifyOperation& op) noexcept { (void)pin, (void)op; }
};

// A lock carrier that belongs to a component.
class PQ_EXPORT TJCPinObject : public TJCObject {
 public:
  static const PQClassTag kTag;
  explicit TJCPinObject(TComponent& owner) : owner_(&owner) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  TComponent* GetOwnerComponent() const { return owner_; }

 private:
  TComponent* owner_;
};

class PQ_EXPORT TJCBasicPin : public TJCPinObject {
 public:
  static const PQClassTag kTag;
  using TJCPinObject::TJCPinObject;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  // The published name ("InputPin"), its place in a published list ("OutputPins.'Red'") or in a collection
  // ("InputChannels[0].InputPin"); empty if not published.
  virtual std::string GetName() const;
  // "Owner.InputPin"
  std::string GetFullName() const;
};

class PQ_EXPORT TJCPin : public TJCBasicPin {
 public:
  static const PQClassTag kTag;
  static constexpr bool kIsPinList = false;
  ~TJCPin() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }

  PQPinRole GetPinType() const { return role_; }
  const JCStreamType& GetStreamType() const { return *stream_; }
  const TGUID* GetConnectionID() const { return &stream_->id; }

  bool IsConnected() const noexcept;
  bool IsConnectedTo(const TJCPin& other) const;
  int GetConnectedPinCount() const;
  // In connection order; null outside 0..count-1. The pin stays valid only as long as the caller keeps it alive.
  TJCPin* GetConnectedPin(int index) const;
  // The source that a sink is connected to; null if it is none.
  TJCPin* GetSourcePin() const;

  // Ok, or why not: same direction, streams that differ, a cycle.
  PQStatus CanConnectTo(const TJCPin& other) const;
  bool IsCompatible(const TJCPin& other) const;
  // Wires the two pins, whichever is the source. What a sink was connected to before is disconnected. Connecting what
  // is connected does nothing.
  PQStatus Connect(TJCPin& other);
  // Undoes all connections, or the one to `other`. Needs no memory.
  void Disconnect() noexcept;
  void Disconnect(TJCPin& other) noexcept;

  // True if what this pin gives comes, through components, from what `other` receives.
  bool DependsOn(const TJCPin& other) const;
  bool DirectDependsOn(const TJCPin& other) const;

  // Hands the operation to every connected pin and joins what they return. Without a connection: nothing, empty.
  TJCNotifyResult Notify(IJCNotifyOperation& op, TJCNotifyFlags flags = {});

  // What a connected pin calls: runs the owner's dispatch entry.
  virtual TJCNotifyResult DispatchData(const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

  // For links in stored components: the full name of the source that this pin is connected to.
  std::string GetSaveName() const override;

  // One watcher, or none. Owner-thread; SetProbe(nullptr) waits for calls under way, like Disconnect.
  // Taking it away needs no memory.
  void SetProbe(IJCPinProbe* probe);

  // Called after a connection was made or undone, outside all locks.
  void SetConnectionChanged(std::function<void()> closure) { connection_changed_ = std::move(closure); }

 protected:
  TJCPin(TComponent& owner, PQPinRole role, const JCStreamType& stream, JCDispatch dispatch);
  // Runs on the new source side after a connection was made: state pins pass their value on.
  virtual void ConnectedNotify(TJCPin& other) { (void)other; }
  TJCNotifyResult Dispatch(const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) {
    return dispatch_ ? dispatch_(*this, id, op, flags) : TJCNotifyResult{};
  }

 private:
  friend class TJCPinList;
  friend class JCProbeEnd;
  friend class TJCFunctionSinkPinList;
  // Undoes the wires, all or those to `only`, and calls `undone` with each.
  template <class Undone>
  void IntDisconnect(const TJCPin* only, Undone undone) noexcept;
  PQRef<JCPinCore> core_;
  PQRef<JCProbeEnd> probe_end_;  // made with the probe, so that taking it away needs no memory
  JCDispatch dispatch_;
  const JCStreamType* stream_;
  PQPinRole role_;
  std::atomic<IJCPinProbe*> probe_{nullptr};
  TJCPinList* list_ = nullptr;                 // the list that names this pin
  std::vector<const TJCPin*> function_sinks_;  // sources: the sinks that the stream comes from
  std::function<void()> connection_changed_;
};

class PQ_EXPORT TJCSinkPin : public TJCPin {
 public:
  static const PQClassTag kTag;
  static constexpr PQPinRole kRole = PQPinRole::Sink;
  TJCSinkPin(TComponent& owner, const JCStreamType& stream, JCDispatch dispatch)
      : TJCPin(owner, PQPinRole::Sink, stream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};

// Names the sink pins that a source pin's stream comes from, so that chains can be walked through a component.
class PQ_EXPORT TJCFunctionSinkPinList {
 public:
  explicit TJCFunctionSinkPinList(TJCPin& source) : source_(&source) {}
  // `direct`: the same stream passes through; false: the stream is only derived from it. Both count as dependence.
  void Add(const TJCPin& sink, bool direct);
  void Remove(const TJCPin& sink);

 private:
  TJCPin* source_;
};

class PQ_EXPORT TJCSourcePin : public TJCPin {
 public:
  static const PQClassTag kTag;
  static constexpr PQPinRole kRole = PQPinRole::Source;
  TJCSourcePin(TComponent& owner, const JCStreamType& stream, JCDispatch dispatch)
      : TJCPin(owner, PQPinRole::Source, stream, dispatch), FunctionSinkPins(*this) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  TJCFunctionSinkPinList FunctionSinkPins;
};

// An ordered set of pins under one published property.
class PQ_EXPORT TJCPinList : public TJCObject {
 public:
  static const PQClassTag kTag;
  static constexpr bool kIsPinList = true;
  static constexpr PQPinRole kRole = PQPinRole::None;
  // `owns`: removing a pin destroys it, and so does the list's destruction.
  TJCPinList(TComponent* owner, bool owns) : owner_(owner), owns_(owns) {}
  ~TJCPinList() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }

  // An unnamed pin is called "Pin1", "Pin2", ... by its place.
  int Add(TJCPin& pin, std::string name = {});
  // For lists that own their pins: the pin is the list's, or gone if it could not be listed.
  TJCPin& Own(std::unique_ptr<TJCPin> pin);
  void Remove(TJCPin& pin);
  void Clear();
  int GetCount() const;
  // Null outside 0..count-1.
  TJCPin* GetPin(int index) const;
  int IndexOf(const TJCPin& pin) const;  // -1 if it is not listed
  std::string GetPinName(int index) const;
  void SetName(int index, std::string name);
  void Swap(int a, int b);
  // By name; null if there is none.
  TJCPin* FindPin(std::string_view name) const;
  // The first pin without a connection; null if there is none.
  TJCPin* FirstFree() const;
  // The same, and if there is none what SetMakePin adds: how a graph that only names the list gets its pins.
  TJCPin* FreePin();
  // `make` adds a pin to the list and answers it, or null.
  void SetMakePin(std::function<TJCPin*()> make) { make_ = std::move(make); }
  TComponent* GetOwnerComponent() const { return owner_; }
  // A snapshot for walking without a lock.
  std::vector<TJCPin*> Pins() const;
  // Disconnects every listed pin.
  void Disconnect() noexcept;

 private:
  struct Entry {
    TJCPin* pin;
    std::string name;
  };
  TComponent* owner_;
  bool owns_;
  mutable std::mutex mutex_;  // a leaf: nothing is called under it
  std::vector<Entry> entries_;
  std::function<TJCPin*()> make_;
};

// Every pin that an object publishes: its own, then those of its lists, parts and items, in order of declaration. A pin
// that is published twice comes once.
PQ_EXPORT std::vector<TJCPin*> JCPublishedPins(TPersistent& object);

// Pin lists with a direction, as components publish them.
class PQ_EXPORT TJCSinkPinList : public TJCPinList {
 public:
  static constexpr PQPinRole kRole = PQPinRole::Sink;
  using TJCPinList::TJCPinList;
};
class PQ_EXPORT TJCSourcePinList : public TJCPinList {
 public:
  static constexpr PQPinRole kRole = PQPinRole::Source;
  using TJCPinList::TJCPinList;
};

// Keeps a list between `least` and `most` pins: connecting the last free pin adds one, free pins at the end beyond one
// are removed. Changes are made after the connection that causes them, never inside a pin's own call; connections may
// change on several threads. Owner-thread: making and ending this object.
class PQ_EXPORT TJCPinListOwner {
 public:
  using Factory = std::function<std::unique_ptr<TJCPin>()>;
  // The list must own its pins and outlive this object. `leaving` runs before a pin is removed.
  TJCPinListOwner(TJCPinList& list, int least, int most, Factory make, std::function<void(TJCPin& pin)> leaving = {});
  ~TJCPinListOwner();
  TJCPinListOwner(const TJCPinListOwner&) = delete;
  TJCPinListOwner& operator=(const TJCPinListOwner&) = delete;

 private:
  using Self = std::atomic<TJCPinListOwner*>;
  void Adjust();
  void AdjustOnce();
  TJCPinList& list_;
  const int least_, most_;
  const Factory make_;
  const std::function<void(TJCPin&)> leaving_;
  const std::shared_ptr<Self> self_;  // null once this object is gone: what was put off asks it
  std::atomic<int> wanted_{0};
};

// --- Values ---------------------------------------------------------------------------------------------------------

PQ_EXPORT extern const JCStreamType kJCBoolStream, kJCFloatStream, kJCClockStream;

// Receives booleans; the closure runs with each.
class PQ_EXPORT TJCBoolSinkPin : public TJCSinkPin {
 public:
  static const PQClassTag kTag;
  TJCBoolSinkPin(TComponent& owner, std::function<void(bool)> on_value)
      : TJCSinkPin(owner, kJCBoolStream, {}), on_value_(std::move(on_value)) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  TJCNotifyResult DispatchData(const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) override;

 private:
  std::function<void(bool)> on_value_;
};

// Receives clock ticks; the closure runs with each.
class PQ_EXPORT TJCClockSinkPin : public TJCSinkPin {
 public:
  static const PQClassTag kTag;
  TJCClockSinkPin(TComponent& owner, std::function<void()> on_clock)
      : TJCSinkPin(owner, kJCClockStream, {}), on_clock_(std::move(on_clock)) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  TJCNotifyResult DispatchData(const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) override;

 private:
  std::function<void()> on_clock_;
};

class PQ_EXPORT TJCBoolSourcePin : public TJCSourcePin {
 public:
  static const PQClassTag kTag;
  explicit TJCBoolSourcePin(TComponent& owner) : TJCSourcePin(owner, kJCBoolStream, {}) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  void Send(bool value) { Notify(*PQMakeRef<TJCBoolOperation>(value)); }
};
class PQ_EXPORT TJCFloatSourcePin : public TJCSourcePin {
 public:
  static const PQClassTag kTag;
  explicit TJCFloatSourcePin(TComponent& owner) : TJCSourcePin(owner, kJCFloatStream, {}) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  void Send(float value) { Notify(*PQMakeRef<TJCFloatOperation>(value)); }
};
class PQ_EXPORT TJCClockSourcePin : public TJCSourcePin {
 public:
  static const PQClassTag kTag;
  explicit TJCClockSourcePin(TComponent& owner) : TJCSourcePin(owner, kJCClockStream, {}) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  void Clock() { Notify(*PQMakeRef<TJCClockOperation>()); }
};

// A value that is shared with every connected state pin. SetValue stores and passes on a value that differs in its bits
// and never runs the pin's own closure; a value that arrives is stored, the closure runs, and it is passed on. A new
// connection passes the value of the pin that Connect was called as source.
template <class Value, class Operation>
class PQ_EXPORT TJCStatePin : public TJCPin {
 public:
  static constexpr PQPinRole kRole = PQPinRole::State;
  Value GetValue() const {
    auto section = ReadLock();
    return value_;
  }
  void SetValue(Value value);
  TJCNotifyResult DispatchData(const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) override;

 protected:
  TJCStatePin(TComponent& owner, const JCStreamType& stream, std::function<void(Value)> on_value, Value initial)
      : TJCPin(owner, PQPinRole::State, stream, {}), on_value_(std::move(on_value)), value_(initial) {}
  void ConnectedNotify(TJCPin& other) override;

 private:
  bool Store(Value value);
  std::function<void(Value)> on_value_;
  Value value_;
};

class PQ_EXPORT TJCBoolStatePin : public TJCStatePin<bool, TJCBoolOperation> {
 public:
  static const PQClassTag kTag;
  TJCBoolStatePin(TComponent& owner, std::function<void(bool)> on_value, bool initial)
      : TJCStatePin(owner, kJCBoolStream, std::move(on_value), initial) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};
class PQ_EXPORT TJCFloatStatePin : public TJCStatePin<float, TJCFloatOperation> {
 public:
  static const PQClassTag kTag;
  TJCFloatStatePin(TComponent& owner, std::function<void(float)> on_value, float initial)
      : TJCStatePin(owner, kJCFloatStream, std::move(on_value), initial) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};

extern template class TJCStatePin<bool, TJCBoolOperation>;
extern template class TJCStatePin<float, TJCFloatOperation>;

}  // namespace pantiq
