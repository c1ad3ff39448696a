#include "pantiq/core/PQMultiInput.h"

#include <algorithm>

#include "pantiq/host/PQReport.h"

namespace pantiq {

constinit const PQClassTag TPQJCQueuedImageSinkPin::kTag{"TPQJCQueuedImageSinkPin", &TPQJCImageSinkPin::kTag};
constinit const PQClassTag TPQMultiInput::kTag{"TPQMultiInput", &TComponent::kTag};

const PQClassInfo& TPQMultiInput::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQMultiInput>("TPQMultiInput", "PQMultiInput", "Base of components with several image inputs.")
          .Inherits<TComponent>()
          .Pin("OutputPin", &TPQMultiInput::OutputPin, "Frames out.")
          .Done();
  return info;
}

TPQMultiInput::TPQMultiInput(TComponent* owner)
    : TComponent(owner), OutputPin(*this, JCDispatch::To<&TPQMultiInput::SourceDispatch>(this)) {
  OutputPin.AddShareLock(lock_);
}

void TPQMultiInput::BeforeDestruction() {
  {
    JCFrameMutex::Guard guard(frame_mutex_);
    try {
      IntStop();
    } catch (...) {  // the stop could not be made, or somebody below could not take it
      ReportCaught(this, "the stop at the end of a component failed");
    }
    pins_.Disconnect();
  }
  pins_.Clear();  // the descendant frees them before this list dies
  OutputPin.Disconnect();
  TComponent::BeforeDestruction();
}

void TPQMultiInput::AddInput(TPQJCQueuedImageSinkPin& pin) {
  pin.AddShareLock(lock_);
  OutputPin.FunctionSinkPins.Add(pin, true);
  try {
    pins_.Add(pin);
  } catch (...) {
    OutputPin.FunctionSinkPins.Remove(pin);
    throw;
  }
}

void TPQMultiInput::RemoveInput(TPQJCQueuedImageSinkPin& pin) {
  OutputPin.FunctionSinkPins.Remove(pin);
  pins_.Remove(pin);
}

std::vector<TPQJCQueuedImageSinkPin*> TPQMultiInput::Inputs() const {
  std::vector<TPQJCQueuedImageSinkPin*> inputs;
  for (TJCPin* pin : pins_.Pins()) inputs.push_back(static_cast<TPQJCQueuedImageSinkPin*>(pin));
  return inputs;
}

std::vector<TPQJCQueuedImageSinkPin*> TPQMultiInput::ConnectedInputs() const {
  std::vector<TPQJCQueuedImageSinkPin*> inputs = Inputs();
  std::erase_if(inputs, [](const TPQJCQueuedImageSinkPin* pin) { return !pin->IsConnected(); });
  return inputs;
}

TJCNotifyResult TPQMultiInput::SourceDispatch(TJCPin&, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  TJCNotifyResult result;
  bool sent = false;
  for (TJCPin* input : pins_.Pins()) {
    if (!input->IsConnected()) continue;
    sent = true;
    result |= input->Notify(op, flags);
  }
  if (sent) return result;
  if (JCOperation<TJCStartOperation>(op) != nullptr) OutputPin.Notify(*PQMakeRef<TJCPumpRequestOperation>(), flags);
  return SinkDispatch(OutputPin, id, op, flags);
}

TJCNotifyResult TPQMultiInput::SinkDispatch(TJCPin& pin, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  JCFrameMutex::Guard guard(frame_mutex_);
  auto* const input = PQCast<TPQJCQueuedImageSinkPin>(&pin);
  if (input == nullptr || pins_.IndexOf(*input) < 0) return OutputPin.Notify(op, flags);
  if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    if (supplied->Buffer) Supplied(*input, *supplied->Buffer);
    return {};
  }
  if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
    Start(*input, *start);
    return {};
  }
  if (JCOperation<TJCStopOperation>(op) != nullptr) {
    input->Started = false;
    TrySendStop();
    return {};
  }
  return OutputPin.Notify(op, flags);
}

void TPQMultiInput::Start(TPQJCQueuedImageSinkPin& pin, const TJCStartFrameOperation& start) {
  pin.Started = true;
  pin.Rate = start.Rate;
  pin.Format = start.Format;
  pin.Width = start.Width;
  pin.Height = start.Height;
  pin.FrameDelay = static_cast<std::int32_t>(start.FrameDelay);
  bool not_started = false;
  double rate = 0;
  std::int32_t width = 0, height = 0;
  for (const TPQJCQueuedImageSinkPin* input : ConnectedInputs()) {
    if (!input->Started) {
      not_started = true;
      continue;
    }
    width = std::max(width, input->Width);
    height = std::max(height, input->Height);
    rate = std::max(rate, input->Rate);
  }
  if (!Running && (StartIfNotAllRunning() || !not_started)) CalculateSendStart(rate, width, height);
}

void TPQMultiInput::Supplied(TPQJCQueuedImageSinkPin& pin, const IRWDataBuffer& buffer) {
  // What needs memory comes before anything changes: a frame that cannot be taken leaves the inputs in step.
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(buffer);
  frame->SetFormat(vfRGB24);
  const auto all = Inputs(), inputs = ConnectedInputs();
  pin.Buffer = std::move(frame);
  pin.HasFrame = true;
  bool not_started = false, same_rate = true, all_have_frames = true;
  double rate = 0;
  for (const TPQJCQueuedImageSinkPin* input : inputs) {
    not_started |= !input->Started;
    same_rate &= input->Rate == inputs.front()->Rate;
    rate = std::max(rate, input->Rate);
    all_have_frames &= input->HasFrame;
  }
  const bool due =
      (StartIfNotAllRunning() && not_started) || (all_have_frames && (same_rate || rate == pin.Rate));
  if (!due) return;
  const auto used = [&] {
    if (not_started || same_rate) {
      for (TPQJCQueuedImageSinkPin* input : all) input->HasFrame = false;
    } else {
      pin.HasFrame = false;
    }
  };
  try {
    CalculateSendOutput();
  } catch (...) {  // these frames are lost; the next ones belong together again
    used();
    throw;
  }
  used();
}

void TPQMultiInput::CalculateSendStart(double, std::int32_t, std::int32_t) { Running = true; }

void TPQMultiInput::TrySendStop() {
  if (!Running) return;
  if (GetStopOnAll()) {
    for (const TPQJCQueuedImageSinkPin* input : ConnectedInputs()) {
      if (input->Started) return;
    }
  }
  IntStop();
}

void TPQMultiInput::IntStop() { OutputPin.Stop(); }

}  // namespace pantiq
