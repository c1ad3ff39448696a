#include "ProgramSink.h"

#include "ChecksumSink.h"
#include "FramesSink.h"
#include "NumbersSink.h"
#include "Y4mSink.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"

namespace pantiq::app {

constinit const PQClassTag ProgramSink::kTag{"ProgramSink", &TComponent::kTag};
constinit const PQClassTag ImageSink::kTag{"ImageSink", &ProgramSink::kTag};

const PQClassInfo& ProgramSink::Class() {
  static const PQClassInfo& info =
      PQDescribe<ProgramSink>("ProgramSink", "ProgramSink", "Base of the program's own sinks.")
          .Inherits<TComponent>()
          .Done();
  return info;
}

const PQClassInfo& ImageSink::Class() {
  static const PQClassInfo& info =
      PQDescribe<ImageSink>("ImageSink", "ProgramSink", "Base of the program's sinks of frames.")
          .Inherits<ProgramSink>()
          .Pin("InputPin", &ImageSink::InputPin, "Frames in, of every format.")
          .Done();
  return info;
}

void RegisterSinks() {
  const PQClassInfo* const classes[] = {&ChecksumSink::Class(), &FramesSink::Class(), &NumbersSink::Class(),
                                        &Y4mSink::Class()};
  RegisterComponents(kProgramPage, classes);
}

std::string SizeText(const IPQImageBuffer& frame) {
  return std::to_string(frame.GetWidth()) + "x" + std::to_string(frame.GetHeight());
}

ProgramSink::ProgramSink(TComponent* owner, std::string file_name)
    : TComponent(owner), file_name_(std::move(file_name)) {}

std::string ProgramSink::GetFileName() const {
  auto section = lock_.ReadLock();
  return file_name_;
}

PQStatus ProgramSink::SetFileName(const std::string& name) {
  auto section = lock_.WriteLock();
  file_name_ = name;
  return {};
}

TJCNotifyResult ProgramSink::SinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  JCFrameMutex::Guard guard(mutex_);
  PQStatus status;
  if (auto* start = JCOperation<TJCStartOperation>(op)) {
    failed_ = false;
    status = Start(*start);
  } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
    status = Stop();
  } else if (!failed_) {
    status = Receive(op);
  }
  if (!status.Ok()) Fail(status);
  return {};
}

void ProgramSink::Fail(const PQStatus& status) {
  failed_ = true;
  Stop().IgnoreError();
  Report(this, PQSeverity::Error, status.Text());
}

void ProgramSink::Finish() {
  JCFrameMutex::Guard guard(mutex_);
  Stop().IgnoreError();
}

ImageSink::ImageSink(TComponent* owner, std::string file_name)
    : ProgramSink(owner, std::move(file_name)), InputPin(*this, JCDispatch::To<&ProgramSink::SinkDispatch>(this)) {
  InputPin.AddShareLock(Lock());
}

void ImageSink::BeforeDestruction() {
  InputPin.Disconnect();
  Finish();
  ProgramSink::BeforeDestruction();
}

PQStatus ImageSink::Start(TJCStartOperation& op) {
  if (auto* start = PQCast<TJCStartFrameOperation>(&op)) frame_delay_ = start->FrameDelay;
  return {};
}

PQStatus ImageSink::Receive(IJCNotifyOperation& op) {
  auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op);
  if (supplied == nullptr || !supplied->Buffer) return {};
  const auto* frame = PQCast<IPQImageBuffer>(supplied->Buffer.Get());
  if (frame == nullptr) return {};
  const PQRef<TPQImageBuffer> view = PQMakeRef<TPQImageBuffer>(*frame);  // shares the pixels
  PQStatus status = Frame(*view, number_);
  ++number_;
  return status;
}

}  // namespace pantiq::app
