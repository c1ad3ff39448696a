#include "pantiq/media/PQVideoCompressor.h"

#include <algorithm>
#include <limits>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {

constinit const PQClassTag TPQVideoCompressor::kTag{"TPQVideoCompressor", &TComponent::kTag};

namespace {

// The frames as the codec gets them: whatever was announced, they are turned into 24 bits.
BITMAPINFOHEADER AsCodecSees(BITMAPINFOHEADER header) {
  header.biBitCount = 24;
  return header;
}

}  // namespace

const PQClassInfo& TPQVideoCompressor::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQVideoCompressor>("TPQVideoCompressor", "PQVideoCompressor",
                                     "Compresses each frame into a block of bytes.")
          .Inherits<TComponent>()
          .Collection("Compressions", &TPQVideoCompressor::GetCompressions, PQActs::NextStart,
                      "Codecs to try, in order. Without any, or if none opens, the first that takes the frames: MJPG.")
          .Property("Enabled", &TPQVideoCompressor::GetEnabled, &TPQVideoCompressor::SetEnabled, PQDefault(true),
                    PQActs::NextStart, "False opens no codec: frames pass as they are.")
          .Pin("InputPin", &TPQVideoCompressor::InputPin, "Frames in.")
          .Pin("OutputPin", &TPQVideoCompressor::OutputPin, "Compressed blocks out; frames while there is no codec.")
          .Pin("EnablePin", &TPQVideoCompressor::EnablePin, "Sets Enabled.")
          .Done();
  return info;
}

TPQVideoCompressor::TPQVideoCompressor(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQVideoCompressor::VideoSourceDispatch>(this)),
      InputPin(*this, JCDispatch::To<&TPQVideoCompressor::VideoSinkDispatch>(this)),
      EnablePin(*this, [this](bool value) { OnEnableEvent(value); }) {
  OutputPin.AddShareLock(lock_);
  InputPin.AddShareLock(lock_);
  EnablePin.AddShareLock(lock_);
  OutputPin.FunctionSinkPins.Add(InputPin, true);
}

void TPQVideoCompressor::BeforeDestruction() {
  InputPin.Disconnect();
  {
    JCFrameMutex::Guard guard(frame_mutex_);
    try {
      StopCompression();
    } catch (...) {  // the stop could not be made, or somebody below could not take it
      ReportCaught(this, "the stop at the end of a component failed");
    }
  }
  OutputPin.Disconnect();
  EnablePin.Disconnect();
  TComponent::BeforeDestruction();
}

TJCNotifyResult TPQVideoCompressor::VideoSourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op,
                                                        TJCNotifyFlags flags) {
  return InputPin.IsConnected() ? InputPin.Notify(op, flags) : VideoSinkDispatch(pin, id, op, flags);
}

TJCNotifyResult TPQVideoCompressor::VideoSinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op,
                                                      TJCNotifyFlags flags) {
  JCFrameMutex::Guard guard(frame_mutex_);
  if (auto* start = JCOperation<TJCStartFrameOperation>(op)) return StartCompression(*start, flags);
  if (JCOperation<TJCStopOperation>(op) != nullptr) {
    StopCompression();
  } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    return DoCompression(*supplied, flags);
  }
  return {};
}

// --- start and stop -------------------------------------------------------------------------------------------------

TJCNotifyResult TPQVideoCompressor::StartCompression(TJCStartFrameOperation& start, TJCNotifyFlags flags) {
  if (handle_ != 0) StopCompression();
  try {
    OpenCodec(start);
  } catch (...) {  // half open it takes no frames
    if (handle_ != 0) DeallocateCompression();
    throw;
  }
  if (handle_ == 0) return OutputPin.Notify(start, flags);
  return OutputPin.Notify(
      *PQMakeRef<TPQStartVideoCompressionOperation>(start.BlockSize, start.Rate, tag_, input_, output_), flags);
}

void TPQVideoCompressor::OpenCodec(const TJCStartFrameOperation& start) {
  if (GetEnabled()) {
    frame_counter_ = 0;
    told_failure_ = false;
    const std::int32_t bits = PQVideoFormatToBitCount(start.Format);
    if (bits != -1) {
      input_ = BITMAPINFOHEADER();
      input_.biWidth = start.Width;
      input_.biHeight = start.Height;
      input_.biPlanes = 1;
      input_.biBitCount = static_cast<std::uint16_t>(bits);
      output_ = input_;
      output_.biBitCount = 0;
      FindCodec();
    }
  }
  if (PQPlatformResult result; handle_ != 0 && !BeginCompression(result)) {
    Report(this, PQSeverity::Warning, "The codec '" + PQFourCCText(tag_) + "' doesn't start; frames pass as they are.",
           result.code, result.detail);
    StopCompression();
  }
}

void TPQVideoCompressor::FindCodec() {
  PQPlatformResult result;
  manager_ = LoadCodecManager(result);
  const auto size_fits = [](std::int32_t side) { return side >= 1 && side <= kMostCodecSide; };
  if (manager_ != nullptr && (!size_fits(input_.biWidth) || !size_fits(input_.biHeight))) {
    result = {kPlatformFormat, "frames of " + std::to_string(input_.biWidth) + " by " +
                                   std::to_string(input_.biHeight) + " pixels; a side has 1 to " +
                                   std::to_string(kMostCodecSide)};
  } else if (manager_ != nullptr) {
    const BITMAPINFOHEADER input = AsCodecSees(input_);
    const auto take_tag = [this] {
      PQCodecInfo info;
      if (manager_->ICGetInfo(handle_, info).Ok()) tag_ = info.fccHandler;
    };
    PQPlatformResult first;  // why the first choice was not taken
    std::uint32_t wanted = 0;
    for (const auto& choice : compressions_.Choices()) {
      tag_ = choice.tag;
      output_.biCompression = tag_;
      result = manager_->ICLocate(kVideoCodecType, tag_, input, nullptr, kCodecCompress, handle_);
      if (!result.Ok()) handle_ = 0;
      quality_ = choice.quality;
      if (handle_ != 0) {
        if (tag_ == 0) take_tag();
        break;
      }
      if (first.Ok()) first = result, wanted = tag_;
    }
    const bool chosen = handle_ != 0;
    if (!chosen) {
      result = manager_->ICLocate(kVideoCodecType, 0, input, nullptr, kCodecCompress, handle_);
      if (!result.Ok()) handle_ = 0;
      if (handle_ != 0) take_tag();
      quality_ = 0;
    }
    if (handle_ != 0) {
      if (!first.Ok()) {
        Report(this, chosen ? PQSeverity::Note : PQSeverity::Warning,
               "The codec '" + PQFourCCText(wanted) + "' can't be opened; '" + PQFourCCText(tag_) + "' compresses.",
               first.code, first.detail + "; pantiq list --codecs shows what works here");
      }
      return;
    }
    if (!first.Ok()) result = first;
  }
  Report(this, PQSeverity::Warning, "No codec can be opened; frames pass as they are.", result.code, result.detail);
}

bool TPQVideoCompressor::BeginCompression(PQPlatformResult& result) {
  const BITMAPINFOHEADER input = AsCodecSees(input_);
  result = manager_->ICCompressGetFormat(handle_, input, output_);
  if (!result.Ok()) return false;
  result = manager_->ICCompressGetSize(handle_, input, output_, capacity_);
  if (!result.Ok()) return false;
  capacity_ = std::min<std::size_t>(capacity_, std::numeric_limits<std::int32_t>::max());
  result = manager_->GlobalAlloc(capacity_, memory_);
  if (!result.Ok()) memory_ = 0;
  if (memory_ != 0) result = manager_->GlobalLock(memory_, block_);
  if (!result.Ok() || memory_ == 0 || block_ == nullptr) {
    if (result.Ok()) result = {kPlatformFailed, "no memory for blocks of " + std::to_string(capacity_) + " bytes"};
    block_ = nullptr;
    return false;
  }
  result = manager_->ICCompressBegin(handle_, input, output_);
  return result.Ok();
}

void TPQVideoCompressor::StopCompression() {
  if (handle_ == 0) return;
  Guarded([this] { return manager_->ICCompressEnd(handle_); });
  DeallocateCompression();
  OutputPin.Stop();
}

template <class Call>
void TPQVideoCompressor::Guarded(Call call) noexcept {
  try {
    (void)call();
  } catch (...) {  // one call that fails keeps back none of the others
    ReportCaught(this, "a codec does not close properly");
  }
}

void TPQVideoCompressor::DeallocateCompression() noexcept {
  Guarded([this] { return manager_->ICClose(handle_); });
  if (memory_ != 0) {
    Guarded([this] { return manager_->GlobalUnlock(memory_); });
    Guarded([this] { return manager_->GlobalFree(memory_); });
  }
  handle_ = 0;
  capacity_ = 0;
  memory_ = 0;
  block_ = nullptr;
}

// --- frames ---------------------------------------------------------------------------------------------------------

TJCNotifyResult TPQVideoCompressor::DoCompression(TJCSuppliedBufferOperation& op, TJCNotifyFlags flags) {
  if (handle_ == 0) return OutputPin.Notify(op, flags);
  PQPlatformResult result(kPlatformFormat, "there is no frame");
  PQRef<TRWBlockBuffer> block;
  if (op.Buffer) block = Compress(*op.Buffer, result);
  ++frame_counter_;  // before anything comes back
  if (block) return OutputPin.SubmitBuffer(std::move(block), flags);
  if (!told_failure_) {
    told_failure_ = true;
    Report(this, PQSeverity::Warning, "A frame can't be compressed and passes as it is.", result.code, result.detail);
  }
  return OutputPin.Notify(op, flags);
}

PQRef<TRWBlockBuffer> TPQVideoCompressor::Compress(const IRWDataBuffer& buffer, PQPlatformResult& result) {
  const auto frame = PQMakeRef<TPQImageBuffer>(buffer);
  if (frame->GetWidth() != input_.biWidth || frame->GetHeight() != input_.biHeight) {
    result = {kPlatformFormat, "the frame has " + std::to_string(frame->GetWidth()) + " by " +
                                   std::to_string(frame->GetHeight()) + " pixels, announced were " +
                                   std::to_string(input_.biWidth) + " by " + std::to_string(input_.biHeight)};
    return {};
  }
  frame->SetFormat(vfRGB24);
  const auto copy = PQMakeRef<TPQImageBuffer>(*frame);
  const int step = frame->GetStep();
  const IppStatus status = ippiMirror_8u_C3R(frame->Read(), step, copy->Write(), step, frame->GetSize(), 0);
  if (frame->GetFormat() != vfRGB24 || status < 0) {
    result = {status, "the frame cannot be turned upside down"};
    return {};
  }
  PQPlatformBlock pixels;
  pixels.data = copy->Read();
  pixels.step = step;
  pixels.size = static_cast<std::size_t>(copy->GetByteSize());
  pixels.begin = copy->GetTimeStamp().GetBegin();
  pixels.end = copy->GetTimeStamp().GetEnd();
  std::uint32_t chunk_id = 0, result_flags = 0;
  result = manager_->ICCompress(handle_, 0, output_, {block_, capacity_}, AsCodecSees(input_), pixels, chunk_id,
                                result_flags, static_cast<std::int32_t>(frame_counter_), 0, quality_, nullptr, nullptr);
  if (!result.Ok()) return {};
  const std::size_t bytes = std::min<std::size_t>(output_.biSizeImage, capacity_);
  auto block = PQMakeRef<TRWBlockBuffer>(block_, static_cast<std::int32_t>(bytes));
  block->GetSequenceStamp() = frame->GetSequenceStamp();
  block->GetTimeStamp() = frame->GetTimeStamp();
  return block;
}

void PQVideoCompressor::Register() {
  const PQClassInfo* const classes[] = {&TPQVideoCompressor::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
