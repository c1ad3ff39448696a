// A random graph of the components that need no platform, and what may happen to it: starts, stops, frames of any form,
// new connections, any published property written with any value, pumps, time that passes, destruction in any order.
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "pantiq/core/PQFramePool.h"
#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/core/RWThreads.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQBinaryStream.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQPicture.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/host/PQTextStream.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTargets.h"

namespace pantiq::fuzz {

namespace {

constexpr int kMostComponents = 10;
constexpr int kMostItems = 6;
constexpr int kFrames = 2000;  // that a graph may pass on in one input
constexpr std::int64_t kMostFrameBytes = 4 << 20;

constexpr int kDeepest = 3;  // calls that taps make inside calls

struct Thrown {};  // what a sink throws

class Bench;

// Both ends of a graph: gives and takes every kind of stream.
class Tap : public TComponent {
 public:
  explicit Tap(Bench& bench)
      : TComponent(nullptr),
        bench_(bench),
        Image(*this, Up()),
        Real(*this, Up()),
        Binary(*this, Up()),
        Audio(*this, Up()),
        Bool(*this),
        Float(*this),
        Clock(*this),
        ImageIn(*this, Down()),
        RealIn(*this, Down()),
        BinaryIn(*this, Down()),
        AudioIn(*this, Down()) {}
  ~Tap() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<Tap>("Tap", "FuzzGraph", "Both ends of a graph.")
                                         .Inherits<TComponent>()
                                         .Pin("Image", &Tap::Image)
                                         .Pin("Real", &Tap::Real)
                                         .Pin("Binary", &Tap::Binary)
                                         .Pin("Audio", &Tap::Audio)
                                         .Pin("Bool", &Tap::Bool)
                                         .Pin("Float", &Tap::Float)
                                         .Pin("Clock", &Tap::Clock)
                                         .Pin("ImageIn", &Tap::ImageIn)
                                         .Pin("RealIn", &Tap::RealIn)
                                         .Pin("BinaryIn", &Tap::BinaryIn)
                                         .Pin("AudioIn", &Tap::AudioIn)
                                         .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  std::atomic<bool> claims{true}, holds{false};

 private:
  JCDispatch Up() { return JCDispatch::To<&Tap::CameUp>(this); }
  JCDispatch Down() { return JCDispatch::To<&Tap::CameDown>(this); }
  TJCNotifyResult CameUp(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  TJCNotifyResult CameDown(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  void BeforeDestruction() override {
    for (TJCPin* pin : JCPublishedPins(*this)) pin->Disconnect();
  }
  Bench& bench_;

 public:
  TPQJCImageSourcePin Image;
  TRWJCRealSourcePin Real;
  TRWJCBinarySourcePin Binary;
  THTJCAudioSourcePin Audio;
  TJCBoolSourcePin Bool;
  TJCFloatSourcePin Float;
  TJCClockSourcePin Clock;
  TPQJCImageSinkPin ImageIn;
  TRWJCComboRealSinkPin RealIn;
  TRWJCBinarySinkPin BinaryIn;
  THTJCAudioSinkPin AudioIn;
};

const std::vector<const PQClassInfo*>& Classes() {
  static const std::vector<const PQClassInfo*> classes = [] {
    RegisterAll();
    std::vector<const PQClassInfo*> found;
    for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
      // Files, devices, codecs and plug-ins have targets of their own.
      bool outside = false;
      for (const char* start : {"TPQASF", "TPQDS", "TPQDMO", "TPQVideo", "TPQFreeFrame"}) {
        outside = outside || info->Name().starts_with(start);
      }
      if (!outside) found.push_back(info);
    }
    return found;
  }();
  return classes;
}

class Bench : public IJCPinProbe {
 public:
  explicit Bench(Input bytes) : in_(bytes) {}
  ~Bench() override {
    while (!components_.empty()) Destroy(order_ = (order_ * 5 + 3) % static_cast<int>(components_.size()));
  }

  void Run() {
    order_ = in_.Byte();
    for (int count = 1 + in_.Below(6); count > 0; --count) Create();
    WireChain();
    for (int steps = 0; in_.Left() > 0 && steps < 400; ++steps) Guarded([&] { Step(); });
  }

  // Runs what may fail as allocation and sinks may; everything else that is thrown is a fault.
  template <class Action>
  void Guarded(Action action) {
    try {
      action();
    } catch (const std::bad_alloc&) {
    } catch (const Thrown&) {
    }
  }

  bool Before(TJCPin&, IJCNotifyOperation& op) override {
    const PQClassTag& tag = op.Tag();
    for (const PQClassTag* counted : {&TJCSuppliedBufferOperation::kTag, &TJCSuppliedRealOperation::kTag,
                                      &TJCSuppliedSingleOperation::kTag, &TJCMasterPumpOperation::kTag}) {
      if (tag.Is(*counted)) return budget_.fetch_sub(1, std::memory_order_relaxed) > 0;
    }
    return true;
  }
  void After(TJCPin&, IJCNotifyOperation&) override {}

  // An operation reached the end of the graph.
  void Arrived(Tap& tap, TJCPin& pin, IJCNotifyOperation& op) {
    if (const auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      if (supplied->Buffer) Touch(*supplied->Buffer);
      if (tap.holds && supplied->Buffer) {
        std::lock_guard guard(mutex_);
        held_.push_back(supplied->Buffer);
        if (held_.size() > 16) held_.pop_front();
      }
    } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op); request != nullptr && tap.claims) {
      request->Master = this, request->Kind = 3;
    }
    React(tap, &pin);
  }
  // An operation reached the beginning of the graph.
  void Returned(Tap& tap, TJCPin& pin, IJCNotifyOperation& op) {
    if (JCOperation<TJCMasterPumpOperation>(op) != nullptr && &pin == &tap.Image && budget_.load() > 0) {
      tap.Image.SubmitBuffer(PQMakeRef<TPQImageBuffer>(9, 7, vfRGB24));
      return;
    }
    if (JCOperation<TJCStartSampleRateOperation>(op) != nullptr && Mine() && depth_ < kDeepest && in_.OneIn(2)) {
      return Send(pin, StartFrame());
    }
    React(tap, nullptr);
  }

 private:
  static bool IsTap(const TComponent& component) { return &component.ClassInfo() == &Tap::Class(); }
  bool Mine() const { return std::this_thread::get_id() == thread_; }

  // What a sink or a source may do inside a call; on the thread that reads the input.
  void React(Tap& tap, TJCPin* sink) {
    if (!Mine() || depth_ >= kDeepest || in_.Left() == 0 || !in_.OneIn(8)) return;
    ++depth_;
    struct Leave {
      int& depth;
      ~Leave() { --depth; }
    } leave{depth_};
    switch (in_.Below(6)) {
      case 0:
        throw Thrown{};
      case 1:
        return components_.empty() ? void() : WriteTo(*in_.Pick(components_), 0);
      case 2:
        return sink != nullptr ? sink->Disconnect() : void();
      case 3:
        return sink != nullptr ? Send(*sink, PQMakeRef<TJCMasterPumpOperation>(this)) : void();
      case 4:
        return sink != nullptr ? Send(*sink, PQMakeRef<TJCStopOperation>()) : void();
      default:
        tap.holds = !tap.holds;
        if (sink != nullptr) Send(*sink, PQMakeRef<TJCStartSampleRateOperation>(0, 0));
    }
  }

  void Send(TJCPin& pin, PQOperationRef op) { pin.Notify(*op); }
  void SendFrom(PQOperationRef op) {
    for (const PQOwned<TComponent>& component : components_) {
      if (IsTap(*component)) return Send(static_cast<Tap&>(*component).Image, std::move(op));
    }
  }

  // Reads every byte: whoever made the buffer owns all that it announces.
  static void Touch(const IRWDataBuffer& buffer) {
    const auto* bytes = static_cast<const std::uint8_t*>(buffer.ReadData());
    Hold(buffer.GetByteSize() >= 0, "a buffer of negative size");
    Hold(bytes != nullptr || buffer.GetByteSize() == 0, "a buffer without data");
    unsigned sum = 0;
    for (int i = 0; i < buffer.GetByteSize(); ++i) sum += bytes[i];
    static std::atomic<unsigned> sink;
    sink.store(sum, std::memory_order_relaxed);
  }

  void Create() {
    if (components_.size() >= kMostComponents) return;
    PQOwned<TComponent> component;
    if (in_.OneIn(4)) {
      component.reset(new Tap(*this));
    } else {
      component.reset(in_.Pick(Classes())->Create(nullptr));
    }
    Hold(component->SetName("c" + std::to_string(number_++)).Ok(), "a name was refused");
    Watch(*component);
    components_.push_back(std::move(component));
  }
  void Watch(TComponent& component) {
    for (TJCPin* pin : JCPublishedPins(component)) pin->SetProbe(this);
  }
  void Destroy(int index) {
    if (components_.empty()) return;
    const auto at = components_.begin() + index;
    PQOwned<TComponent> component = std::move(*at);
    components_.erase(at);
    const int depth = std::exchange(depth_, kDeepest);  // nothing is thrown into a destructor
    component.reset();
    depth_ = depth;
  }

  // Source to sink in order of creation, as most graphs are; every open end gets a tap.
  void WireChain() {
    if (components_.size() < kMostComponents) {
      components_.insert(components_.begin(), PQOwned<TComponent>(new Tap(*this)));
      components_.push_back(PQOwned<TComponent>(new Tap(*this)));
      for (PQOwned<TComponent>* tap : {&components_.front(), &components_.back()}) {
        Hold((*tap)->SetName("c" + std::to_string(number_++)).Ok(), "a name was refused");
        Watch(**tap);
      }
    }
    for (std::size_t i = 0; i + 1 < components_.size(); ++i) {
      std::vector<TJCPin*> from = JCPublishedPins(*components_[i]), to = JCPublishedPins(*components_[i + 1]);
      for (TJCPin* source : from) {
        for (TJCPin* sink : to) {
          if (!sink->IsConnected() && sink->IsCompatible(*source) && source->GetPinType() == PQPinRole::Source) {
            source->Connect(*sink).Ok();
          }
        }
      }
    }
  }

  TJCPin* AnyPin() {
    if (components_.empty()) return nullptr;
    const std::vector<TJCPin*> pins = JCPublishedPins(*in_.Pick(components_));
    return pins.empty() ? nullptr : in_.Pick(pins);
  }

  void Step() {
    if (components_.empty()) Create();
    switch (in_.Below(16)) {
      case 0:
        return Create();
      case 1:
        return components_.size() > 1 ? Destroy(in_.Below(static_cast<int>(components_.size()))) : void();
      case 2:
      case 3: {
        TJCPin *a = AnyPin(), *b = AnyPin();
        if (a == nullptr || b == nullptr) return;
        a->Connect(*b).Ok();
        for (PQOwned<TComponent>& component : components_) Watch(*component);
        return;
      }
      case 4: {
        if (TJCPin* pin = AnyPin()) pin->Disconnect();
        return;
      }
      case 5:
        return clock_.Advance(in_.Below(200));
      case 6:
        return RoundTrip(*in_.Pick(components_));
      case 7:
      case 8:
      case 9:
        return WriteTo(*in_.Pick(components_), 0);
      case 10: {
        if (TJCPin* pin = AnyPin()) Send(*pin, AnyOperation());
        return;
      }
      default: {
        // Most of what happens to a graph is frames.
        if (in_.OneIn(4)) SendFrom(StartFrame());
        return SendFrom(PQMakeRef<TJCSuppliedBufferOperation>(Frame()));
      }
    }
  }

  int Side() {
    switch (in_.Below(8)) {
      case 0:
        return 0;
      case 1:
        return 1;
      case 2:
        return 1 + in_.Below(180);
      default:
        return 2 + in_.Below(24);
    }
  }
  PQImageRef Frame() {
    PQImageRef frame = PQMakeRef<TPQImageBuffer>(Side(), Side(), static_cast<TPQVideoFormat>(in_.Below(4)));
    std::uint8_t* const to = frame->Write();
    unsigned seed = in_.Byte();
    for (int i = 0; i < frame->GetByteSize(); ++i)
      to[i] = static_cast<std::uint8_t>((seed = seed * 1103515245 + 12345) >> 16);
    frame->GetTimeCode().SetFrame(in_.OneIn(4) ? static_cast<std::int32_t>(in_.Integer()) : frame_number_++);
    if (in_.OneIn(2)) {
      TBXTimeStamp& stamp = frame->GetTimeStamp();
      stamp.SetAvailable(true);
      stamp.SetBegin(in_.Integer()), stamp.SetEnd(in_.OneIn(2) ? in_.Integer() : stamp.GetBegin());
    }
    return frame;
  }
  PQOperationRef StartFrame() {
    const bool odd = in_.OneIn(6);
    const auto side = [&] { return odd ? static_cast<std::int32_t>(in_.Integer()) : Side(); };
    const std::int32_t width = side(), height = side();
    return PQMakeRef<TJCStartFrameOperation>(width, height, in_.OneIn(3) ? in_.Integer() : 400000,
                                             static_cast<TPQVideoFormat>(in_.Below(4)));
  }
  PQDataBufferRef Block() {
    const int count = in_.Below(300);
    PQDataBufferRef buffer;
    switch (in_.Below(4)) {
      case 0:
        buffer = PQMakeRef<TRWRealBuffer>(count);
        break;
      case 1:
        buffer = PQMakeRef<TRWIntegerBuffer>(count);
        break;
      case 2:
        buffer = PQMakeRef<TRWBlockBuffer>(count);
        break;
      default:
        buffer = PQMakeRef<THTAudioBuffer>(count, 1 + in_.Below(8), 16);
    }
    auto* const to = static_cast<std::uint8_t*>(buffer->WriteData());
    for (int i = 0; i < buffer->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>(i * 37 + count);
    return buffer;
  }
  PQOperationRef AnyOperation() {
    switch (in_.Below(22)) {
      case 0:
        return PQMakeRef<TJCStartOperation>();
      case 1:
        return PQMakeRef<TJCStopOperation>();
      case 2:
        return PQMakeRef<TJCPumpRequestOperation>();
      case 3:
        return PQMakeRef<TJCStartPumpOperation>();
      case 4:
        return PQMakeRef<TJCMasterPumpOperation>(this);
      case 5:
        return PQMakeRef<TJCQueryStreamOperation>();
      case 6:
        return PQMakeRef<TJCIgnoreStreamOperation>();
      case 7:
        return PQMakeRef<TJCBoolOperation>(in_.OneIn(2));
      case 8:
        return PQMakeRef<TJCFloatOperation>(static_cast<float>(in_.Float()));
      case 9:
        return PQMakeRef<TJCClockOperation>();
      case 10:
        return PQMakeRef<TJCStartSampleRateOperation>(static_cast<std::int32_t>(in_.Integer()), in_.Float());
      case 11:
        return PQMakeRef<TJCStartIntensityOperation>(static_cast<std::int32_t>(in_.Integer()), in_.Float());
      case 12:
        return PQMakeRef<TJCStartWaveOperation>(in_.Float(),
                                                THTWaveFormat{in_.Below(9), in_.Below(33), in_.Below(48001)});
      case 13:
        return PQMakeRef<TJCSuppliedRealOperation>(in_.Float());
      case 14:
        return PQMakeRef<TJCSuppliedSingleOperation>(static_cast<float>(in_.Float()));
      case 15:
        return PQMakeRef<TJCRWPauseOperation>();
      case 16:
        return PQMakeRef<TJCRWResumeOperation>();
      case 17:
        return PQMakeRef<TRWInternalStopOperation>();
      case 18:
        return PQMakeRef<TJCSuppliedBufferOperation>(Block());
      case 19:
        return PQMakeRef<TJCSuppliedBufferOperation>(Frame());
      default:
        return StartFrame();
    }
  }

  // Sets a published property of the component, or of something inside it.
  void WriteTo(TPersistent& object, int depth) {
    const std::vector<PQProperty> properties = PQAllProperties(object);
    if (properties.empty()) return;
    const PQProperty& property = in_.Pick(properties);
    if (property.kind == PQKind::Picture) return WritePicture(*PQCast<TPicture>(property.object(object)));
    if (property.kind == PQKind::Collection) return WriteItems(*PQCast<TCollection>(property.object(object)), depth);
    if (property.kind == PQKind::Object && depth < 4) return WriteTo(*property.object(object), depth + 1);
    if (property.get == nullptr) return;
    if (property.set != nullptr && !property.gauge) PQSetProperty(object, property, Value(property)).Ok();
    const PQValue value = property.get(object);
    if (!property.stored) return;
    PQValue again;
    const std::string text = PQFormatValue(property, value);
    Hold(PQParseValue(property, text, again).Ok() && again == value,
         property.name + " = " + text + " does not read back");
  }
  void WriteItems(TCollection& items, int depth) {
    switch (in_.Below(6)) {
      case 0:
        return items.Delete(in_.Below(8) - 1);
      case 1:
        return in_.OneIn(4) ? items.Clear() : items.Move(in_.Below(8) - 1, in_.Below(8) - 1);
      case 2:
      case 3:
        return items.GetCount() < kMostItems ? void(items.Add()) : void();
      default:
        if (TCollectionItem* item = items.GetItem(in_.Below(std::max(items.GetCount(), 1)))) WriteTo(*item, depth + 1);
    }
  }
  void WritePicture(TPicture& picture) {
    switch (in_.Below(4)) {
      case 0:
        return picture.Clear();
      case 1:
        picture.SetStored(PQValue(in_.Bytes(64))).Ok();
        return;
      default:
        picture.SetBitmap(TBitmap(Side(), Side()));
    }
  }
  PQValue Value(const PQProperty& property) {
    switch (property.kind) {
      case PQKind::Boolean:
        return PQValue(in_.OneIn(2));
      case PQKind::Enumeration:
      case PQKind::Set:
        if (!property.words.empty() && !in_.OneIn(8)) return PQValue(in_.Pick(property.words).value);
        return PQValue(in_.Integer());
      case PQKind::Integer:
        if (in_.OneIn(8)) return PQValue(in_.OneIn(2) ? property.low : property.high);
        if (const std::int64_t* high = property.useful_high.Int(); high != nullptr && in_.OneIn(8))
          return PQValue(*high);
        return PQValue(in_.Integer());
      case PQKind::Float:
        if (const double* high = property.useful_high.Float(); high != nullptr && in_.OneIn(8)) return PQValue(*high);
        return PQValue(in_.Float());
      case PQKind::String:
        return PQValue(in_.Text(12));
      case PQKind::Binary:
        return PQValue(PQBytes(in_.Bytes(64)));
      case PQKind::List: {
        PQValue::List list;
        for (int count = in_.Below(12); count > 0; --count) {
          list.push_back(in_.OneIn(8)   ? PQValue(in_.Text(6))
                         : in_.OneIn(8) ? PQValue(in_.Float())
                                        : PQValue(in_.Integer()));
        }
        return PQValue(std::move(list));
      }
      default:
        return {};
    }
  }

  // What is written of a component reads back the same, in both stream forms.
  void RoundTrip(const TComponent& whole) {
    const TComponent* const component = &whole;
    if (IsTap(*component)) return;
    PQOwned<TComponent> from_text(component->ClassInfo().Create(nullptr)),
        from_bytes(component->ClassInfo().Create(nullptr)), assigned(component->ClassInfo().Create(nullptr));
    std::vector<PQTextLink> links;
    std::vector<PQBinaryLink> binary_links;
    std::vector<PQFault> faults;
    assigned->Assign(*component);
    const std::string text = PQWriteText(*assigned);
    PQReadText(text, *from_text, links, faults);
    Hold(faults.empty(), "what was written does not read: " + (faults.empty() ? text : faults.front().text));
    Hold(PQWriteText(*from_text) == text, "written again it differs:\n" + text + "---\n" + PQWriteText(*from_text));
    Hold(PQReadBinary(PQWriteBinary(*assigned), *from_bytes, binary_links, faults),
         "what was written in binary does not read");
    Hold(PQWriteText(*from_bytes) == text,
         "written in binary it differs:\n" + text + "---\n" + PQWriteText(*from_bytes));
    PQWriteText(*component);
    PQWriteBinary(*component);
  }

  FuzzInput in_;
  const std::thread::id thread_ = std::this_thread::get_id();
  std::atomic<int> budget_{kFrames};
  int depth_ = 0, number_ = 0, frame_number_ = 0, order_ = 0;
  RWSimulatedClock clock_;
  std::mutex mutex_;
  std::deque<PQDataBufferRef> held_;
  std::vector<PQOwned<TComponent>> components_;
};

TJCNotifyResult Tap::CameUp(TJCPin& pin, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  bench_.Returned(*this, pin, op);
  return {};
}
TJCNotifyResult Tap::CameDown(TJCPin& pin, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  bench_.Arrived(*this, pin, op);
  return {};
}

}  // namespace

void FuzzGraph(Input bytes) {
  SetReportListener([](const PQReportEntry&) {});  // so that the texts are built
  PQFramePool::SetMostBytes(kMostFrameBytes);
  {
    Bench bench(bytes);
    bench.Run();
  }
  PQFramePool::SetMostBytes(PQFrameBlock::kMostBytes);
  SetReportListener({});
}

}  // namespace pantiq::fuzz
