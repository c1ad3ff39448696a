#include "pantiq/filters/PQColorMerge.h"

#include <algorithm>

#include "pantiq/filters/PQColorPlanes.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQFrameOffset::kTag{"TPQFrameOffset", &TPersistent::kTag};
constinit const PQClassTag TPQMergeChannels::kTag{"TPQMergeChannels", &TPersistent::kTag};
constinit const PQClassTag TPQColorMerge::kTag{"TPQColorMerge", &TPQMultiInput::kTag};

const PQClassInfo& TPQFrameOffset::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQFrameOffset>("TPQFrameOffset", "PQColorMerge", "Where a plane stands in the frame.")
          .Inherits<TPersistent>()
          .Property("X", &TPQFrameOffset::GetX, &TPQFrameOffset::SetX, PQDefault(0u), PQUseful(0u, 65535u),
                    PQActs::NextStart, PQUnit("pixels"), "Distance from the left edge.")
          .Property("Y", &TPQFrameOffset::GetY, &TPQFrameOffset::SetY, PQDefault(0u), PQUseful(0u, 65535u),
                    PQActs::NextStart, PQUnit("pixels"), "Distance from the upper edge.")
          .Done();
  return info;
}

const PQClassInfo& TPQMergeChannels::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQMergeChannels>("TPQMergeChannels", "PQColorMerge", "The offsets of the three planes.")
          .Inherits<TPersistent>()
          .Object("Channel1", &TPQMergeChannels::GetChannel1, PQActs::NextStart, "Offset of the first plane.")
          .Object("Channel2", &TPQMergeChannels::GetChannel2, PQActs::NextStart, "Offset of the second plane.")
          .Object("Channel3", &TPQMergeChannels::GetChannel3, PQActs::NextStart, "Offset of the third plane.")
          .Done();
  return info;
}

void TPQMergeChannels::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TPQMergeChannels>(&source);
  if (other == nullptr) {
    TPersistent::Assign(source);
    return;
  }
  TPQFrameOffsetValues values[3];
  for (int i = 0; i < 3; ++i) values[i] = other->channels_[i].Get();
  auto section = lock_.WriteLock();
  for (int i = 0; i < 3; ++i) channels_[i].Set(values[i]);
}

const PQClassInfo& TPQColorMerge::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQColorMerge>("TPQColorMerge", "PQColorMerge", "Puts three gray planes together into colour frames.")
          .Inherits<TPQMultiInput>()
          .Property("BackgroundColor", &TPQColorMerge::GetBackgroundColor, &TPQColorMerge::SetBackgroundColor,
                    PQDefault(TColor{0}), PQActs::NextFrame,
                    "What stands where no plane reaches: the low byte is channel 0 of ColorMode (for cmHLS the hue), the next "
                    "one channel 1, the third channel 2.")
          .Object("Channels", &TPQColorMerge::GetChannels, PQActs::NextStart, "Offset of each plane in the frame.")
          .Property("ColorMode", &TPQColorMerge::GetColorMode, &TPQColorMerge::SetColorMode, PQDefault(cmRGB),
                    PQActs::NextFrame,
                    "The colour space that the planes are channels of. The three inputs are named after its channels.")
          .Pin("InputPins", &TPQColorMerge::InputPins,
               "The planes, as gray frames. They are counted among the connected inputs: with the first one free, the second "
               "brings the first channel.")
          .Done();
  return info;
}

TPQColorMerge::TPQColorMerge(TComponent* owner)
    : TPQMultiInput(owner),
      InputPins(this, true),
      channels_(Lock()),
      output_(PQMakeRef<TPQImageBuffer>(600, 600, vfRGB24)) {
  output_->Clear();
  for (int i = 0; i < 3; ++i) {
    auto pin = std::make_unique<TPQJCQueuedImageSinkPin>(*this, JCDispatch::To<&TPQMultiInput::SinkDispatch>(this));
    AddInput(static_cast<TPQJCQueuedImageSinkPin&>(InputPins.Own(std::move(pin))));
  }
  UpdatePinNames();
}

void TPQColorMerge::SetBackgroundColor(TColor color) {
  auto section = Lock().WriteLock();
  background_.store(color, std::memory_order_relaxed);
}

void TPQColorMerge::SetColorMode(TPQColorMode mode) {
  auto section = Lock().WriteLock();
  if (mode == GetColorMode()) return;
  color_mode_.store(mode, std::memory_order_relaxed);
  UpdatePinNames();
}

void TPQColorMerge::UpdatePinNames() { PQNamePlanes(InputPins, GetColorMode()); }

int TPQColorMerge::IndexOf(const TJCPin& pin) const {
  const auto inputs = ConnectedInputs();
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i] == &pin) return static_cast<int>(i);
  }
  return -1;
}

TJCNotifyResult TPQColorMerge::SinkDispatch(TJCPin& pin, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  JCFrameMutex::Guard guard(FrameMutex());
  const int index = IndexOf(pin);
  if (index < 0) return OutputPin.Notify(op, flags);
  if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    if (supplied->Buffer) ProcessImage(*PQMakeRef<TPQImageBuffer>(*supplied->Buffer), index);
    return {};
  }
  if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
    Start(index, *start);
    return {};
  }
  if (JCOperation<TJCStartSampleRateOperation>(op) != nullptr) return {};
  if (JCOperation<TJCStopOperation>(op) != nullptr) planes_[index].started = planes_[index].received = false;
  return OutputPin.Notify(op, flags);
}

void TPQColorMerge::FindMaxFrameSize(int index, const TJCStartFrameOperation& start, std::int64_t& width,
                                     std::int64_t& height) {
  const TPQFrameOffsetValues at = channels_.Channel(index).Get();
  planes_[index] = {start.Width, start.Height, at.x, at.y, true, planes_[index].received};
  width = height = 0;
  for (int i = 0; i < 3; ++i) {  // rows stand at the offsets of now, columns at those of the start
    width = std::max(width, std::int64_t{planes_[i].width} + planes_[i].x);
    height = std::max(height, std::int64_t{planes_[i].height} + channels_.Channel(i).GetY());
  }
}

void TPQColorMerge::Start(int index, const TJCStartFrameOperation& start) {
  std::int64_t width, height;
  FindMaxFrameSize(index, start, width, height);
  const bool fits = width <= 65535 && height <= 65535 && width * height * 3 <= 2147483647;
  const auto area = static_cast<double>(width) * static_cast<double>(height);
  const double k = start.SampleRate / area;
  const std::int64_t delay = pq_round<std::int64_t>(area / k);
  width = std::min<std::int64_t>(width, 2147483647), height = std::min<std::int64_t>(height, 2147483647);
  OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(static_cast<std::int32_t>(width), static_cast<std::int32_t>(height),
                                                      delay, vfRGB24));
  output_ = {};
  if (!fits) return;
  output_ = PQMakeRef<TPQImageBuffer>(static_cast<std::int32_t>(width), static_cast<std::int32_t>(height), vfRGB24);
  FillBackground();
}

void TPQColorMerge::FillBackground() {
  const TColor color = GetBackgroundColor();
  const std::uint8_t bytes[3] = {static_cast<std::uint8_t>(color), static_cast<std::uint8_t>(color >> 8),
                                 static_cast<std::uint8_t>(color >> 16)};
  ippiSet_8u_C3R(bytes, output_->Write(), output_->GetStep(), output_->GetSize());
}

void TPQColorMerge::ProcessImage(const IPQImageBuffer& buffer, int index) {
  Plane& plane = planes_[index];
  if (!output_) return;
  if (plane.started && !plane.received) {
    const IppiSize roi{
        static_cast<int>(std::min<std::int64_t>(std::min(plane.width, buffer.GetWidth()), std::int64_t{output_->GetWidth()} - plane.x)),
        static_cast<int>(std::min<std::int64_t>(std::min(plane.height, buffer.GetHeight()), std::int64_t{output_->GetHeight()} - plane.y))};
    if (roi.width > 0 && roi.height > 0) {
      std::uint8_t* const to =
          output_->Modify() + index + std::ptrdiff_t{3} * plane.x + static_cast<std::ptrdiff_t>(plane.y) * output_->GetStep();
      ippiCopy_8u_C1C3R(buffer.Read(), buffer.GetStep(), to, output_->GetStep(), roi);
    }
    if (std::none_of(planes_, planes_ + 3, [](const Plane& p) { return p.received; })) PQCopyStamps(buffer, *output_);
    plane.received = true;
  }
  const int connected = std::min<int>(3, static_cast<int>(ConnectedInputs().size()));
  for (int i = 0; i < connected; ++i) {
    if (planes_[i].started && !planes_[i].received) return;
  }
  for (Plane& p : planes_) p.received = false;
  PQImageRef frame = output_;
  output_ = PQMakeRef<TPQImageBuffer>(frame->GetWidth(), frame->GetHeight(), vfRGB24);
  FillBackground();
  PQFromColorMode(*frame, GetColorMode());
  OutputPin.SubmitBuffer(std::move(frame));
}

void PQColorMerge::Register() {
  const PQClassInfo* const classes[] = {&TPQColorMerge::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
