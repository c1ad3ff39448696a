#include "pantiq/core/PQCommonFilter.h"

#include <algorithm>
#include <cstring>

namespace pantiq {

constinit const PQClassTag TPQCommonFilter::kTag{"TPQCommonFilter", &TComponent::kTag};
constinit const PQClassTag TPQCommonROIFilter::kTag{"TPQCommonROIFilter", &TPQCommonFilter::kTag};
constinit const PQClassTag TPQCommonROISizeFilter::kTag{"TPQCommonROISizeFilter", &TPQCommonROIFilter::kTag};
constinit const PQClassTag TPQCommonROIMatrixFilter::kTag{"TPQCommonROIMatrixFilter", &TPQCommonROIFilter::kTag};
constinit const PQClassTag TPQCommonROIMatrixFilterIntermidiate::kTag{"TPQCommonROIMatrixFilterIntermidiate",
                                                                      &TPQCommonROIMatrixFilter::kTag};

// --- TPQCommonFilter ------------------------------------------------------------------------------------------------

const PQClassInfo& TPQCommonFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQCommonFilter>("TPQCommonFilter", "PQCommonFilter",
                                  "Base of filters with one image in and one image out.")
          .Inherits<TComponent>()
          .Property("Enabled", &TPQCommonFilter::GetEnabled, &TPQCommonFilter::SetEnabled, PQDefault(true),
                    PQActs::NextFrame, "False lets frames pass unfiltered.")
          .Pin("InputPin", &TPQCommonFilter::InputPin, "Frames in.")
          .Pin("OutputPin", &TPQCommonFilter::OutputPin, "Frames out.")
          .Done();
  return info;
}

TPQCommonFilter::TPQCommonFilter(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQCommonFilter::SourceDispatch>(this)),
      InputPin(*this, JCDispatch::To<&TPQCommonFilter::SinkDispatch>(this)) {
  OutputPin.AddShareLock(lock_);
  InputPin.AddShareLock(lock_);
  OutputPin.FunctionSinkPins.Add(InputPin, true);
}

TPQCommonFilter::~TPQCommonFilter() = default;

void TPQCommonFilter::BeforeDestruction() {
  InputPin.Disconnect();
  OutputPin.Disconnect();
  TComponent::BeforeDestruction();
}

void TPQCommonFilter::SetEnabled(bool enabled) {
  auto section = lock_.WriteLock();
  enabled_.store(enabled, std::memory_order_relaxed);
}

TJCNotifyResult TPQCommonFilter::SourceDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  return InputPin.IsConnected() ? InputPin.Notify(op, flags) : TJCNotifyResult{};
}

TJCNotifyResult TPQCommonFilter::SinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  if (frame_mutex_ == nullptr) [[likely]] {
    return DispatchDown(op, flags);
  }
  JCFrameMutex::Guard guard(*frame_mutex_);
  return DispatchDown(op, flags);
}

TJCNotifyResult TPQCommonFilter::DispatchDown(IJCNotifyOperation& op, TJCNotifyFlags flags) {
  if (&op.Tag() == &TJCSuppliedBufferOperation::kTag) {  // nearly always; the classes exclude one another
    return BufferOperation(static_cast<TJCSuppliedBufferOperation&>(op), flags);
  }
  if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
    std::int32_t width = start->Width, height = start->Height;
    SetSizeRate(width, height, start->FrameDelay);
    Reset();
    return OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(width, height, start->FrameDelay, start->Format), flags);
  }
  if (JCOperation<TJCStartPumpOperation>(op) != nullptr) {
    StartPump();
    return {};
  }
  if (JCOperation<TJCStopOperation>(op) != nullptr) {
    return OptionalStop() ? TJCNotifyResult{} : OutputPin.Notify(op, flags);
  }
  if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
    PumpRequest(*request, flags);
    return {};
  }
  return OutputPin.Notify(op, flags);
}

void TPQCommonFilter::SetVideoFormat(PQImageRef& buffer) {
  if (buffer->GetFormat() != vfRGB24) buffer->SetFormat(vfRGB24);
}

TJCNotifyResult TPQCommonFilter::BufferOperation(TJCSuppliedBufferOperation& op, TJCNotifyFlags flags) {
  auto* const view = op.Buffer ? new TPQImageBuffer(*op.Buffer) : new TPQImageBuffer();
  const std::uint8_t* const pixels = view->Read();
  PQImageRef in = PQImageRef::Adopt(view);
  SetVideoFormat(in);
  const bool enabled = GetEnabled();
  PQImageRef out = !enabled || CanInline() ? in : PQImageRef::Adopt(new TPQImageBuffer(*in));
  bool send = true;
  InternalOperation(in, out, enabled, send);
  if (!send) return {};
  // A frame that passed unchanged goes on as the object that came.
  if (!enabled && out == in && in.Get() == view && view->Read() == pixels) {
    return OutputPin.Notify(op, flags);
  }
  return OutputPin.SubmitBuffer(std::move(out), flags);
}

void TPQCommonFilter::InternalOperation(const PQImageRef& in, PQImageRef& out, bool enabled, bool& /*send*/) {
  if (in->GetWidth() < 1 || in->GetHeight() < 1) {  // no pixels, no work
    out = in;
  } else if (enabled) {
    FilterInternalOperation(in, out);
  } else {
    ProcessDisabled(in, out);
  }
}

void TPQCommonFilter::FilterInternalOperation(const PQImageRef&, PQImageRef&) {}

void TPQCommonFilter::ProcessDisabled(const PQImageRef& in, PQImageRef& out) { out = in; }

void TPQCommonFilter::StartPump() { OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>()); }

bool TPQCommonFilter::OptionalStop() {
  Stop();
  return false;
}

void TPQCommonFilter::SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t /*frame_delay*/) {
  stream_width_.store(width, std::memory_order_relaxed);
  stream_height_.store(height, std::memory_order_relaxed);
}

void TPQCommonFilter::PumpRequest(TJCPumpRequestOperation& op, TJCNotifyFlags flags) { OutputPin.Notify(op, flags); }

void TPQCommonFilter::ReclaculateRoiAndOffset(IppiSize&, const std::uint8_t*&, const IPQImageBuffer&, std::uint8_t*&) {}

void TPQCommonFilter::ReclaculateRoiAndOffsetI(IppiSize& size, const IPQImageBuffer& buffer, std::uint8_t*& pointer) {
  const std::uint8_t* source = pointer;
  ReclaculateRoiAndOffset(size, source, buffer, pointer);
}

void TPQCommonFilter::RestoreBufferSize(const IPQImageBuffer& first, IPQImageBuffer& second) {
  second.SetSize(first.GetWidth(), first.GetHeight());
}

// --- TPQCommonROIFilter ---------------------------------------------------------------------------------------------

const PQClassInfo& TPQCommonROIFilter::Class() {
  static const PQClassInfo& info = PQDescribe<TPQCommonROIFilter>("TPQCommonROIFilter", "PQCommonFilter",
                                                                  "Base of filters that can work on a region.")
                                       .Inherits<TPQCommonFilter>()
                                       .Object("Region", &TPQCommonROIFilter::GetRegion, PQActs::NextFrame,
                                               "The part of the frame to work on; the rest passes unchanged.")
                                       .Done();
  return info;
}

TPQCommonROIFilter::TPQCommonROIFilter(TComponent* owner) : TPQCommonFilter(owner), region_(Lock()) {}

void TPQCommonROIFilter::ReclaculateRoiAndOffset(IppiSize& size, const std::uint8_t*& source,
                                                 const IPQImageBuffer& buffer, std::uint8_t*& destination) {
  if (!region_.GetEnabled()) return;
  const TPQRectRegion::Values region = region_.Get();
  if (!region.enabled) return;
  const int x = std::min<int>(region.left, size.width - 1);
  const int y = std::min<int>(region.top, size.height - 1);
  const int width = std::min<int>(size.width - x, region.width);
  const int height = std::min<int>(size.height - y, region.height);
  if (size.width < 1 || size.height < 1 || width < 1 || height < 1) {
    size = {0, 0};
    return;
  }
  const std::ptrdiff_t pixel = buffer.GetPixelSize();
  const std::ptrdiff_t offset = std::ptrdiff_t{y} * size.width * pixel + x * pixel;
  source += offset;
  destination += offset;
  size = {width, height};
}

void TPQCommonROIFilter::CopyRim(const IPQImageBuffer& in, std::uint8_t* written, const std::uint8_t* destination,
                                 IppiSize roi) {
  const std::uint8_t* const first = in.Read();
  const std::ptrdiff_t step = in.GetStep(), offset = destination - written;
  const std::ptrdiff_t top = offset / step, left = offset % step;
  const std::ptrdiff_t bottom = top + roi.height, right = left + std::ptrdiff_t{roi.width} * in.GetPixelSize();
  const auto copy = [&](std::ptrdiff_t from, std::ptrdiff_t to) {
    if (to > from) std::memcpy(written + from, first + from, static_cast<std::size_t>(to - from));
  };
  copy(0, top * step);
  for (std::ptrdiff_t y = top; y < bottom; ++y) {
    copy(y * step, y * step + left);
    copy(y * step + right, (y + 1) * step);
  }
  copy(bottom * step, std::ptrdiff_t{in.GetHeight()} * step);
}

// --- TPQCommonROISizeFilter -----------------------------------------------------------------------------------------

const PQClassInfo& TPQCommonROISizeFilter::Class() {
  static const PQClassInfo& info = PQDescribe<TPQCommonROISizeFilter>("TPQCommonROISizeFilter", "PQCommonFilter",
                                                                      "Base of filters that change the size.")
                                       .Inherits<TPQCommonROIFilter>()
                                       .Property("Interpolation", &TPQCommonROISizeFilter::GetInterpolation,
                                                 &TPQCommonROISizeFilter::SetInterpolation, PQDefault(imLinear),
                                                 PQActs::NextFrame, "How values between pixels are found.")
                                       .Object("OutputSize", &TPQCommonROISizeFilter::GetOutputSize, PQActs::NextStart,
                                               "Size of the output; 0 keeps the input's size on that axis.")
                                       .Done();
  return info;
}

TPQCommonROISizeFilter::TPQCommonROISizeFilter(TComponent* owner)
    : TPQCommonROIFilter(owner), output_size_(Lock(), 0, 0) {}

void TPQCommonROISizeFilter::SetInterpolation(TPQInterpolation interpolation) {
  auto section = Lock().WriteLock();
  interpolation_.store(std::min(interpolation, imLanczos), std::memory_order_relaxed);
}

void TPQCommonROISizeFilter::SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay) {
  const TPQSize::Values wanted = output_size_.Get();
  if (wanted.width != 0) width = wanted.width;
  if (wanted.height != 0) height = wanted.height;
  TPQCommonROIFilter::SetSizeRate(width, height, frame_delay);
}

void TPQCommonROISizeFilter::ProcessDisabled(const PQImageRef& in, PQImageRef& out) {
  const std::int32_t width = StreamWidth(), height = StreamHeight();
  if (width < 1 || height < 1 || (in->GetWidth() == width && in->GetHeight() == height)) {
    out = in;
    return;
  }
  out = PQOnPage(*in, width, height);
}

// --- TPQCommonROIMatrixFilter ---------------------------------------------------------------------------------------

namespace {

TPQAnchor::Values CentreOf(const TPQSize::Values& mask) {
  return {static_cast<std::uint16_t>(mask.width / 2), static_cast<std::uint16_t>(mask.height / 2)};
}

}  // namespace

const PQClassInfo& TPQCommonROIMatrixFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQCommonROIMatrixFilter>("TPQCommonROIMatrixFilter", "PQCommonFilter",
                                           "Base of filters with a neighbourhood.")
          .Inherits<TPQCommonROIFilter>()
          .Object("MaskSize", &TPQCommonROIMatrixFilter::GetMaskSize, PQActs::NextFrame,
                  PQObjectDefaults{{{"Width", PQValue(3)}, {"Height", PQValue(3)}}}, "Size of the neighbourhood.")
          .Object("Anchor", &TPQCommonROIMatrixFilter::GetAnchor, PQActs::NextFrame,
                  PQObjectDefaults{{{"X", PQValue(1)}, {"Y", PQValue(1)}}},
                  "The cell of the neighbourhood that stands on the output pixel.")
          .Done();
  return info;
}

TPQCommonROIMatrixFilter::TPQCommonROIMatrixFilter(TComponent* owner)
    : TPQCommonROIFilter(owner),
      mask_size_(Lock(), 3, 3, [this] { MaskSizeChanged(); }),
      anchor_(
          Lock(), 1, 1, [this] { Changed(&anchor_); }, [this] { return CentreOf(mask_size_.Get()); }) {}

void TPQCommonROIMatrixFilter::MaskSizeChanged() {
  bool moved = false;
  TPQAnchor::Values centre{};
  {
    auto section = Lock().WriteLock();
    const TPQSize::Values mask = mask_size_.Get(), old = last_mask_;
    last_mask_ = mask;
    if (anchor_.Get() == CentreOf(old)) {
      centre = CentreOf(mask);
      moved = true;
    }
  }
  if (moved) anchor_.Set(centre);
  Changed(&mask_size_);
}

void TPQCommonROIMatrixFilter::GetMask(IppiSize& mask, TPoint& anchor) const {
  auto section = Lock().ReadLock();
  const TPQSize::Values size = mask_size_.Get();
  const TPQAnchor::Values at = anchor_.Get();
  mask = {size.width, size.height};
  anchor = {at.x, at.y};
}

void TPQCommonROIMatrixFilter::ReclaculateRoiAndOffsetInt(IppiSize& size, const std::uint8_t*& source,
                                                          const IPQImageBuffer& buffer, std::uint8_t*& destination,
                                                          IppiSize mask, TPoint anchor) {
  ReclaculateRoiAndOffset(size, source, buffer, destination);
  const int width = size.width - (mask.width - 1), height = size.height - (mask.height - 1);
  if (size.width < 1 || size.height < 1 || width < 1 || height < 1) {
    size = {0, 0};
    return;
  }
  const std::ptrdiff_t offset =
      std::ptrdiff_t{anchor.y} * buffer.GetStep() + std::ptrdiff_t{anchor.x} * buffer.GetPixelSize();
  source += offset;
  destination += offset;
  size = {width, height};
}

// --- TPQCommonROIMatrixFilterIntermidiate ---------------------------------------------------------------------------

void TPQCommonROIMatrixFilterIntermidiate::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  IppiSize mask;
  TPoint anchor;
  GetMask(mask, anchor);
  out->Assign(*in);
  IppiSize roi = in->GetSize();
  const std::uint8_t* const first = in->Read();
  std::uint8_t* const written = out->Write();
  const std::uint8_t* source = first;
  std::uint8_t* destination = written;
  const int step = in->GetStep();
  IppStatus status = ippStsAnchorErr;  // an anchor outside the mask would move the pointers out of the picture
  if (anchor.x < std::max(mask.width, 1) && anchor.y < std::max(mask.height, 1)) {
    ReclaculateRoiAndOffsetInt(roi, source, *in, destination, mask, anchor);
    status = PerformFilter(source, step, destination, out->GetStep(), roi, mask, anchor, in->GetFormat());
  }
  if (status < 0) {
    out->Assign(*in);
    return;
  }
  if (GetPreserveBufferData()) CopyRim(*in, written, destination, roi);
}

}  // namespace pantiq
