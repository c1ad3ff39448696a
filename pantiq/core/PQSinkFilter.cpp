#include "pantiq/core/PQSinkFilter.h"

namespace pantiq {

constinit const PQClassTag TPQSinkFilter::kTag{"TPQSinkFilter", &TComponent::kTag};

const PQClassInfo& TPQSinkFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQSinkFilter>("TPQSinkFilter", "PQSinkFilter", "Base of consumers with outputs of their own kind.")
          .Inherits<TComponent>()
          .Pin("InputPin", &TPQSinkFilter::InputPin, "Frames in.")
          .Pin("OutputPins", &TPQSinkFilter::OutputPins, "What is made of the frames.")
          .Done();
  return info;
}

TPQSinkFilter::TPQSinkFilter(TComponent* owner)
    : TComponent(owner),
      InputPin(*this, JCDispatch::To<&TPQSinkFilter::SinkDispatch>(this)),
      OutputPins(this, true) {
  InputPin.AddShareLock(lock_);
}

void TPQSinkFilter::BeforeDestruction() {
  InputPin.Disconnect();
  OutputPins.Disconnect();
  TComponent::BeforeDestruction();
}

TJCNotifyResult TPQSinkFilter::SinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  JCFrameMutex::Guard guard(frame_mutex_);
  if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    if (supplied->Buffer) ProcessImage(PQMakeRef<TPQImageBuffer>(*supplied->Buffer));
  } else if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
    SendStart(*start);
    IntStart(start->Width, start->Height);
  } else if (auto* stop = JCOperation<TJCStopOperation>(op)) {
    IntStop();
    SendStop(*stop);
  } else {
    NotifyOutputs(op, flags);
  }
  return {};
}

TJCNotifyResult TPQSinkFilter::SourceDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  return InputPin.IsConnected() ? InputPin.Notify(op, flags) : TJCNotifyResult{};
}

void TPQSinkFilter::IntStart(std::int32_t, std::int32_t) {}

void TPQSinkFilter::SendStop(TJCStopOperation&) { NotifyOutputs(*PQMakeRef<TJCStopOperation>()); }

void TPQSinkFilter::NotifyOutputs(IJCNotifyOperation& op, TJCNotifyFlags flags) {
  const auto pins = OutputPins.Pins();
  for (auto pin = pins.rbegin(); pin != pins.rend(); ++pin) (*pin)->Notify(op, flags);
}

}  // namespace pantiq
