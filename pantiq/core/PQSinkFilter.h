// The base of consumers: one image in, any number of outputs of the subclass's own kind.
//
// Threads. As in PQCommonFilter.h; starts, stops and frames never overlap.
#pragma once
#include "pantiq/core/PQStreamTypes.h"

namespace pantiq {

class PQ_EXPORT TPQSinkFilter : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQSinkFilter(TComponent* owner);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSinkPin InputPin;
  TJCSourcePinList OutputPins;  // owns its pins; the subclass adds them

  // A frame: ProcessImage. A frame start: SendStart, then IntStart. A stop: IntStop, then SendStop. Anything else goes out
  // on each output.
  virtual TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  // Operations that come up at an output: on, up through InputPin if it is connected.
  TJCNotifyResult SourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  // Makes ready for frames of this size.
  virtual void IntStart(std::int32_t width, std::int32_t height);
  virtual void IntStop() {}
  // One frame.
  virtual void ProcessImage(PQImageRef buffer) = 0;
  // Sends the start of the subclass's kind on each output.
  virtual void SendStart(TJCStartFrameOperation& start) = 0;
  // Sends a new stop on each output.
  virtual void SendStop(TJCStopOperation& op);
  // On each output, from the last to the first.
  void NotifyOutputs(IJCNotifyOperation& op, TJCNotifyFlags flags = {});
  // Makes one more output, for constructors. OutputPins owns it.
  template <class Pin>
  Pin& AddOutput() {
    auto pin = std::make_unique<Pin>(*this, JCDispatch::To<&TPQSinkFilter::SourceDispatch>(this));
    pin->AddShareLock(lock_);
    pin->FunctionSinkPins.Add(InputPin, false);
    return static_cast<Pin&>(OutputPins.Own(std::move(pin)));
  }
  void BeforeDestruction() override;
  const TJCObject& Lock() const { return lock_; }

 private:
  JCFrameMutex frame_mutex_;
};

}  // namespace pantiq
