#include "pantiq/filters/PQRealToFrame.h"

#include <algorithm>
#include <bit>
#include <cfenv>

#include "pantiq/host/PQRegistry.h"

namespace pantiq {

constinit const PQClassTag TPQRealToFrame::kTag{"TPQRealToFrame", &TComponent::kTag};

namespace {

// Nearest integers, halves to even, low eight bits.
void StoreRounded(const double* samples, std::int64_t count, std::uint8_t* to) {
  if (std::fegetround() != FE_TONEAREST) {
    for (std::int64_t i = 0; i < count; ++i) to[i] = static_cast<std::uint8_t>(pq_round<std::int64_t>(samples[i]));
    return;
  }
  // 1.5 * 2^52 has room for the integer in its low bits, so the addition rounds.
  constexpr double kShift = 6755399441055744.0;
  for (std::int64_t i = 0; i < count; ++i) {
    const double v = samples[i];
    to[i] = v > -2147483648.0 && v < 2147483647.0 ? static_cast<std::uint8_t>(std::bit_cast<std::uint64_t>(v + kShift))
                                                  : static_cast<std::uint8_t>(pq_round<std::int64_t>(v));
  }
}

}  // namespace

const PQClassInfo& TPQRealToFrame::Class() {
  using T = TPQRealToFrame;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQRealToFrame", "PQRealToFrame", "Turns a stream of real numbers into gray frames.")
          .Inherits<TComponent>()
          .Property("Width", &T::GetWidth, &T::SetWidth, PQDefault(240u), PQUseful(1u, 65535u), PQActs::NextStart,
                    PQUnit("pixels"), "Width of the frames; 0 counts as 1.")
          .Property("Hight", &T::GetHight, &T::SetHight, PQDefault(180u), PQUseful(1u, 65535u), PQActs::NextStart,
                    PQUnit("pixels"), "Height of the frames; 0 counts as 1.")
          .Property("FramePerSec", &T::GetFramePerSec, &T::SetFramePerSec, PQDefault(30u), PQUseful(1u, 1000u),
                    PQActs::NextStart, PQUnit("frames per second"),
                    "Kept for applications: the frame rate is the input's sample rate over the size of a frame.")
          .Pin("InputPin", &T::InputPin, "Real numbers, in blocks or single.")
          .Pin("OutputPin", &T::OutputPin, "Gray frames out.")
          .Done();
  return info;
}

TPQRealToFrame::TPQRealToFrame(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQRealToFrame::SourceDispatch>(this)),
      InputPin(*this, JCDispatch::To<&TPQRealToFrame::SinkDispatch>(this)) {
  OutputPin.AddShareLock(lock_);
  InputPin.AddShareLock(lock_);
  OutputPin.FunctionSinkPins.Add(InputPin, false);
}

void TPQRealToFrame::BeforeDestruction() {
  InputPin.Disconnect();
  OutputPin.Disconnect();
  TComponent::BeforeDestruction();
}

void TPQRealToFrame::SetWidth(std::uint32_t width) {
  auto section = lock_.WriteLock();
  width_.store(std::max(width, 1u), std::memory_order_relaxed);
}

void TPQRealToFrame::SetHight(std::uint32_t hight) {
  auto section = lock_.WriteLock();
  hight_.store(std::max(hight, 1u), std::memory_order_relaxed);
}

void TPQRealToFrame::SetFramePerSec(std::uint32_t rate) {
  auto section = lock_.WriteLock();
  frame_per_sec_.store(std::max(rate, 1u), std::memory_order_relaxed);
}

TJCNotifyResult TPQRealToFrame::SourceDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  if (auto* pump = JCOperation<TJCMasterPumpOperation>(op)) {
    MasterPump(pump->Master);
    return {};
  }
  return InputPin.IsConnected() ? InputPin.Notify(op, flags) : TJCNotifyResult{};
}

TJCNotifyResult TPQRealToFrame::SinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  struct Working {
    explicit Working(TPQRealToFrame& self) : self_(self) { ++self_.working_; }
    ~Working() { --self_.working_; }
    TPQRealToFrame& self_;
  };
  TJCNotifyResult result;
  {
    Working working(*this);
    JCFrameMutex::Guard guard(frame_mutex_);
    result = Receive(op, flags);
  }
  SendPumps();
  return result;
}

TJCNotifyResult TPQRealToFrame::Receive(IJCNotifyOperation& op, TJCNotifyFlags flags) {
  if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    if (const auto* block = PQCast<IRWRealBuffer>(supplied->Buffer.Get())) ProcessImage(block->Read(), block->GetCount());
    return {};
  }
  if (auto* real = JCOperation<TJCSuppliedRealOperation>(op)) {
    ProcessImage(&real->Value, 1);
    return {};
  }
  if (auto* single = JCOperation<TJCSuppliedSingleOperation>(op)) {
    const double value = single->Value;
    ProcessImage(&value, 1);
    return {};
  }
  if (auto* start = JCOperation<TJCStartSampleRateOperation>(op)) {
    Start(*start);
    return {};
  }
  return OutputPin.Notify(op, flags);
}

void TPQRealToFrame::Start(const TJCStartSampleRateOperation& start) {
  position_ = number_ = 0;
  outstanding_ = wanted_ = 0;
  pump_value_ = nullptr;
  just_started_ = true;
  const std::uint32_t width = GetWidth(), hight = GetHight();
  delay_ = std::min<std::int64_t>(pq_delay(start.SampleRate / (static_cast<double>(width) * hight)), 2147483647);
  frame_ = {};
  const bool fits = width <= 65535 && hight <= 65535 && std::uint64_t{width} * hight <= 2147483647;
  const auto w = static_cast<std::int32_t>(std::min(width, 2147483647u));
  const auto h = static_cast<std::int32_t>(std::min(hight, 2147483647u));
  if (fits) frame_ = PQMakeRef<TPQImageBuffer>(w, h, vfGrayScale);
  OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(w, h, delay_, vfRGB24));
}

void TPQRealToFrame::ProcessImage(const double* samples, std::int64_t count) {
  if (!frame_) return;
  bool sent = false;
  while (count > 0 && frame_) {  // a start that comes from below replaces the frame
    const std::int64_t part = std::min(count, frame_->GetByteSize() - position_);
    StoreRounded(samples, part, (position_ == 0 ? frame_->Write() : frame_->Modify()) + position_);
    samples += part, count -= part, position_ += part;
    if (position_ < frame_->GetByteSize()) break;
    ++outstanding_;
    SendFrame();
    sent = true;
  }
  if (!sent && pump_value_.load() != nullptr && wanted_.load() > 0) AskForMore();
  TakeOne(outstanding_);
}

void TPQRealToFrame::SendFrame() {
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(frame_->GetWidth(), frame_->GetHeight(), vfGrayScale);
  std::swap(frame, frame_);
  position_ = 0;
  frame->GetTimeCode().SetFrame(static_cast<std::int32_t>(number_));
  frame->GetSequenceStamp().SetBufferNumber(static_cast<std::int32_t>(number_));
  if (delay_ > 0) {
    frame->GetTimeStamp().SetBegin(number_ * delay_);
    frame->GetTimeStamp().SetEnd((number_ + 1) * delay_);
    frame->GetTimeStamp().SetAvailable(true);
  }
  ++number_;
  TakeOne(wanted_);
  pumps_ = 0;  // the parts of this frame have asked for the rest of it; it is here
  OutputPin.SubmitBuffer(std::move(frame));
}

void TPQRealToFrame::MasterPump(const void* master) {
  pump_value_ = master;
  const bool first = just_started_.exchange(false);
  if (!first && TakeOne(outstanding_)) return;
  ++wanted_;
  AskForMore();
}

bool TPQRealToFrame::TakeOne(std::atomic<int>& count) {
  int open = count.load();
  while (open > 0) {
    if (count.compare_exchange_weak(open, open - 1)) return true;
  }
  return false;
}

void TPQRealToFrame::AskForMore() {
  ++pumps_;
  SendPumps();
}

// A source may answer a pump at once, with numbers that make a sink pump again: such a pump is only counted, and the call
// that is already pumping sends it, so nothing nests. The same holds for pumps that come while numbers are worked on.
void TPQRealToFrame::SendPumps() {
  while (working_.load() == 0 && pumps_.load() > 0) {
    if (pumping_.exchange(true)) return;
    while (working_.load() == 0) {
      int open = pumps_.load();
      if (open <= 0) break;
      if (pumps_.compare_exchange_strong(open, open - 1)) InputPin.MasterPump(pump_value_.load());
    }
    pumping_ = false;
  }
}

void PQRealToFrame::Register() {
  const PQClassInfo* const classes[] = {&TPQRealToFrame::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
