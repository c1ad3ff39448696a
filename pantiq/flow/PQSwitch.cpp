#include "pantiq/flow/PQSwitch.h"

#include "pantiq/host/PQRegistry.h"

namespace pantiq {

constinit const PQClassTag TPQSwitch::kTag{"TPQSwitch", &TComponent::kTag};

const PQClassInfo& TPQSwitch::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQSwitch>("TPQSwitch", "PQSwitch", "A gate on an image stream, worked by a property or by a pin.")
          .Inherits<TComponent>()
          .Pin("OutputPin", &TPQSwitch::OutputPin, "What passes.")
          .Pin("InputPin", &TPQSwitch::InputPin, "Frames in.")
          .Pin("EnabledPin", &TPQSwitch::EnabledPin, "Opens the gate by true and closes it by false.")
          .Property("Enabled", &TPQSwitch::GetEnabled, &TPQSwitch::SetEnabled, PQDefault(true), PQActs::Now,
                    "False drops the frames. A start that comes meanwhile goes out when the gate opens.")
          .Property("ResetOnEnable", &TPQSwitch::GetResetOnEnable, &TPQSwitch::SetResetOnEnable, PQDefault(false),
                    PQActs::Now, "True announces the stream anew each time that the gate opens.")
          .Done();
  return info;
}

TPQSwitch::TPQSwitch(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQSwitch::SourceDispatch>(this)),
      InputPin(*this, JCDispatch::To<&TPQSwitch::SinkDispatch>(this)),
      EnabledPin(*this, [this](bool value) { OnEnableEvent(value); }) {
  OutputPin.FunctionSinkPins.Add(InputPin, true);
  InputPin.AddShareLock(lock_);
}

void TPQSwitch::BeforeDestruction() {
  EnabledPin.Disconnect();
  InputPin.Disconnect();
  OutputPin.Disconnect();
  TComponent::BeforeDestruction();
}

bool TPQSwitch::GetEnabled() const {
  std::lock_guard guard(mutex_);
  return enabled_;
}

void TPQSwitch::SetEnabled(bool enabled) {
  const TGUID* id = nullptr;
  PQRef<TJCStartFrameOperation> start;
  {
    std::lock_guard guard(mutex_);
    if (enabled == enabled_) return;
    enabled_ = enabled;
    if (!enabled) {
      passes_.store(false);
      return;
    }
    if (GetResetOnEnable() || pending_start_) {
      id = start_.id;
      start = PQMakeRef<TJCStartFrameOperation>(start_.width, start_.height, start_.delay, start_.format);
    } else {
      passes_.store(true);
    }
  }
  if (start) SinkDispatch(OutputPin, id, *start, {});
}

TJCNotifyResult TPQSwitch::SinkDispatch(TJCPin&, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
    {
      std::lock_guard guard(mutex_);
      start_ = {id, start->Width, start->Height, static_cast<std::int32_t>(start->FrameDelay), start->Format};
      pending_start_ = !enabled_;
      if (!enabled_) return {};
    }
    const TJCNotifyResult result = OutputPin.Notify(op, flags);
    std::lock_guard guard(mutex_);
    passes_.store(enabled_ && !pending_start_);
    return result;
  }
  if (JCOperation<TJCStartPumpOperation>(op) != nullptr) {
    StartPump();
    return {};
  }
  if (JCOperation<TJCStopOperation>(op) != nullptr) return OutputPin.Notify(op, flags);
  if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    return passes_.load(std::memory_order_acquire) ? OutputPin.SubmitBuffer(supplied->Buffer, flags)
                                                   : TJCNotifyResult{};
  }
  if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) PumpRequest(*request, flags);
  return {};
}

TJCNotifyResult TPQSwitch::SourceDispatch(TJCPin&, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  if (InputPin.IsConnected()) return InputPin.Notify(op, flags);
  if (JCOperation<TJCStartOperation>(op) != nullptr) OutputPin.Notify(*PQMakeRef<TJCPumpRequestOperation>());
  return SinkDispatch(OutputPin, id, op, flags);
}

void TPQSwitch::StartPump() { OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>()); }

void TPQSwitch::PumpRequest(TJCPumpRequestOperation& op, TJCNotifyFlags flags) { OutputPin.Notify(op, flags); }

void PQSwitch::Register() {
  const PQClassInfo* const classes[] = {&TPQSwitch::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
