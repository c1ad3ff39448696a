#include "pantiq/flow/PQChangeRate.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQChangeRate::kTag{"TPQChangeRate", &TPQCommonFilter::kTag};

const PQClassInfo& TPQChangeRate::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQChangeRate>("TPQChangeRate", "PQChangeRate",
                                "Converts a stream to another frame rate by blending frames.")
          .Inherits<TPQCommonFilter>()
          .Property("FrameRate", &TPQChangeRate::GetFrameRate, &TPQChangeRate::SetFrameRate, PQDefault(15.0),
                    PQUseful(1.0, 1000.0), PQUnit("frames/s"), PQActs::NextStart, PQBareValue(),
                    "Frames per second that leave.")
          .Done();
  return info;
}

TPQChangeRate::TPQChangeRate(TComponent* owner) : TPQCommonFilter(owner) {}

void TPQChangeRate::SetFrameRate(double rate) {
  auto section = Lock().WriteLock();
  frame_rate_.store(rate, std::memory_order_relaxed);
}

TJCNotifyResult TPQChangeRate::SinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  JCFrameMutex::Guard guard(frame_mutex_);
  if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
    Start(*start);
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
  if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) return BufferOperation(*supplied, flags);
  if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
    PumpRequest(*request, flags);
    return {};
  }
  return OutputPin.Notify(op, flags);
}

// Writes the period that leaves into the operation: later sinks of the same source are to see it.
void TPQChangeRate::Start(TJCStartFrameOperation& start) {
  const std::int64_t period = start.FrameDelay;
  const double input_rate =
      period < 1 ? 0.0 : static_cast<double>(pq_round<std::int64_t>(10000000.0 / static_cast<double>(period)));
  output_rate_ = GetFrameRate();
  silent_ = false;
  needed_ = 0;
  ++stream_;
  previous_ = {};
  buffers_.clear();
  counter_ = 0, input_time_ = 0, output_time_ = 0, lead_ = 0;
  if (input_rate < 1) {
    operation_ = froNone;
    return;
  }
  if (!std::isfinite(output_rate_) || output_rate_ <= 0) {
    operation_ = froNone;
    silent_ = true;
    start.FrameDelay = std::numeric_limits<std::int32_t>::max();
    return;
  }
  operation_ = output_rate_ > input_rate ? froUpSample : output_rate_ < input_rate ? froDownSample : froNone;
  const double ratio = output_rate_ / input_rate;
  if (operation_ == froUpSample) {
    needed_ = static_cast<std::size_t>(std::min(std::ceil(ratio), double{kMostBuffers}));
    weight_step_ = 1.0 / ratio;
  } else if (operation_ == froDownSample) {
    needed_ = 1;
  }
  input_interval_ = 1.0 / input_rate;
  output_interval_ = 1.0 / output_rate_;
  start.FrameDelay = pq_round<std::int32_t>(static_cast<double>(period) / ratio);
}

TJCNotifyResult TPQChangeRate::BufferOperation(TJCSuppliedBufferOperation& op, TJCNotifyFlags flags) {
  if (!op.Buffer || silent_) return {};
  if (operation_ == froNone) return OutputPin.SubmitBuffer(op.Buffer, flags);
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(*op.Buffer);
  SetVideoFormat(frame);
  const bool fits = previous_ && buffers_.size() >= needed_ && !buffers_.empty() &&
                    previous_->GetWidth() == frame->GetWidth() && previous_->GetHeight() == frame->GetHeight() &&
                    previous_->GetFormat() == frame->GetFormat();
  if (!fits || frame->GetTimeCode().GetFrame() == 0) {
    ReCreateFrameBufferArray();
    previous_ = frame;
    if (counter_ == 0 && input_time_ == 0) {
      origin_ = frame->GetTimeStamp().GetAvailable() ? frame->GetTimeStamp().GetBegin() : 0;
    }
  }
  input_time_ += input_interval_;
  return operation_ == froUpSample ? UpSample(frame, flags) : DownSample(frame, flags);
}

TJCNotifyResult TPQChangeRate::UpSample(const PQImageRef& frame, TJCNotifyFlags flags) {
  TJCNotifyResult result;
  std::size_t last_submitted = 0;
  // A sink may throw, or begin the stream anew from inside: what is half done then does not stay.
  const unsigned stream = stream_;
  const PQImageRef previous = std::move(previous_);
  auto buffers = std::move(buffers_);
  buffers_.clear();
  const std::size_t count = buffers.size();
  double frame_weight = 0;
  for (std::size_t i = 0; i < count; ++i) {
    frame_weight += weight_step_;
    BlendBuffers(*previous, *frame, *buffers[i], frame_weight);
    if (i + 1 < count || lead_ >= output_interval_) {
      result |= Submit(*buffers[i], flags);
      if (stream != stream_) return result;
      output_time_ += output_interval_;
      ++counter_;
      if (last_submitted != i)
        buffers[last_submitted]->Assign(TPQImageBuffer());  // of a thousand, one stays in memory
      last_submitted = i;
    }
    lead_ = input_time_ - output_time_;
  }
  previous_ = buffers[last_submitted];
  buffers_ = std::move(buffers);
  return result;
}

TJCNotifyResult TPQChangeRate::DownSample(const PQImageRef& frame, TJCNotifyFlags flags) {
  TJCNotifyResult result;
  if (lead_ >= output_interval_) {
    const double frame_weight = std::clamp(lead_ / output_interval_ - 1.0, 0.0, 1.0);
    BlendBuffers(*previous_, *frame, *buffers_[0], frame_weight);
    result = Submit(*buffers_[0], flags);
    output_time_ += output_interval_;
    ++counter_;
  }
  lead_ = input_time_ - output_time_;
  previous_ = frame;
  return result;
}

// A frame that has left belongs to those that hold it: what goes out is a view, and the buffer's next Write parts from
// it.
TJCNotifyResult TPQChangeRate::Submit(const TPQImageBuffer& made, TJCNotifyFlags flags) {
  auto frame = PQMakeRef<TPQImageBuffer>(made);
  frame->GetTimeCode().SetFrame(counter_);
  frame->GetDateTime().SetAvailable(false);
  frame->GetSequenceStamp().SetBufferNumber(counter_);
  const double unit = 10000000.0 / output_rate_;
  frame->GetTimeStamp().SetBegin(origin_ + pq_round<std::int64_t>(counter_ * unit));
  frame->GetTimeStamp().SetEnd(origin_ + pq_round<std::int64_t>((counter_ + 1.0) * unit));
  frame->GetTimeStamp().SetAvailable(true);
  return OutputPin.SubmitBuffer(std::move(frame), flags);
}

void TPQChangeRate::BlendBuffers(const IPQImageBuffer& first, const IPQImageBuffer& second,
                                 TPQImageBuffer& destination, double second_weight) {
  const TPQImageBuffer old(first);  // keeps the pixels if `first` is the destination
  const IppiSize bytes{second.GetStep(), second.GetHeight()};
  destination.SetFormat(second.GetFormat());
  destination.SetSize(second.GetWidth(), second.GetHeight());
  std::uint8_t* const to = destination.Write();
  PQBlend_8u_C1R(old.Read(), old.GetStep(), second.Read(), second.GetStep(), to, destination.GetStep(), bytes,
                 1 - second_weight, second_weight);
}

void TPQChangeRate::ReCreateFrameBufferArray() {
  ++stream_;
  buffers_.clear();
  for (std::size_t i = 0; i < needed_; ++i) buffers_.push_back(PQMakeRef<TPQImageBuffer>());
}

void PQChangeRate::Register() {
  const PQClassInfo* const classes[] = {&TPQChangeRate::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
