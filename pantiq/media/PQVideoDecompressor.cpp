#include "pantiq/media/PQVideoDecompressor.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "pantiq/core/PQNumbers.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {

constinit const PQClassTag TPQVideoDecompressor::kTag{"TPQVideoDecompressor", &TComponent::kTag};

namespace {

// Rows are stored from the top whatever the sign of the height says. The smallest number has no opposite.
std::int32_t RowsOf(const BITMAPINFOHEADER& header) {
  const std::int64_t rows = std::llabs(static_cast<std::int64_t>(header.biHeight));
  return static_cast<std::int32_t>(std::min<std::int64_t>(rows, std::numeric_limits<std::int32_t>::max()));
}

// The frames as the codec gives them: whatever was announced, they come in 24 bits.
BITMAPINFOHEADER AsCodecGives(BITMAPINFOHEADER header) {
  header.biHeight = RowsOf(header);
  header.biBitCount = 24;
  return header;
}

// Whether frames of this form can be made: of a known format, packed, of a size that a codec is to be asked for.
bool CanHold(const BITMAPINFOHEADER& header) {
  const std::int32_t rows = RowsOf(header);
  return PQBitCountToVideoFormat(header.biBitCount) != vfUnspecified && header.biWidth >= 1 &&
         header.biWidth <= kMostCodecSide && rows >= 1 && rows <= kMostCodecSide &&
         std::int64_t{3} * header.biWidth * rows <= std::numeric_limits<std::int32_t>::max();
}

}  // namespace

const PQClassInfo& TPQVideoDecompressor::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQVideoDecompressor>("TPQVideoDecompressor", "PQVideoDecompressor",
                                       "Makes frames of compressed blocks.")
          .Inherits<TComponent>()
          .Collection("Decompressions", &TPQVideoDecompressor::GetDecompressions, PQActs::NextStart,
                      "Codecs to try, in order, for blocks that no compressor has announced.")
          .Property("Enabled", &TPQVideoDecompressor::GetEnabled, &TPQVideoDecompressor::SetEnabled, PQDefault(true),
                    PQActs::NextStart, "False opens no codec: blocks are taken for the pixels of frames.")
          .Property("Width", &TPQVideoDecompressor::GetWidth, &TPQVideoDecompressor::SetWidth,
                    PQDefault(std::int32_t{240}), PQUseful(std::int32_t{1}, std::int32_t{8192}), PQUnit("pixels"),
                    PQActs::NextStart,
                    "Width of frames that no compressor has announced; without a codec, of what blocks are taken for.")
          .Property("Height", &TPQVideoDecompressor::GetHeight, &TPQVideoDecompressor::SetHeight,
                    PQDefault(std::int32_t{180}), PQUseful(std::int32_t{1}, std::int32_t{8192}), PQUnit("pixels"),
                    PQActs::NextStart, "Their height.")
          .Property("VideoFormat", &TPQVideoDecompressor::GetVideoFormat, &TPQVideoDecompressor::SetVideoFormat,
                    PQDefault(vfRGB24), PQActs::NextStart, "Format that such frames are announced with.")
          .Pin("InputPin", &TPQVideoDecompressor::InputPin, "Compressed blocks in.")
          .Pin("OutputPin", &TPQVideoDecompressor::OutputPin, "Frames out.")
          .Pin("EnablePin", &TPQVideoDecompressor::EnablePin, "Sets Enabled.")
          .Done();
  return info;
}

TPQVideoDecompressor::TPQVideoDecompressor(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQVideoDecompressor::VideoSourceDispatch>(this)),
      InputPin(*this, JCDispatch::To<&TPQVideoDecompressor::VideoSinkDispatch>(this)),
      EnablePin(*this, [this](bool value) { OnEnableEvent(value); }),
      images_{PQMakeRef<TPQImageBuffer>(form_.width, form_.height, vfRGB24),
              PQMakeRef<TPQImageBuffer>(form_.width, form_.height, vfRGB24)} {
  OutputPin.AddShareLock(lock_);
  InputPin.AddShareLock(lock_);
  EnablePin.AddShareLock(lock_);
  OutputPin.FunctionSinkPins.Add(InputPin, true);
}

void TPQVideoDecompressor::BeforeDestruction() {
  InputPin.Disconnect();
  {
    JCFrameMutex::Guard guard(frame_mutex_);
    try {
      StopDecompression();
    } catch (...) {  // the stop could not be made, or somebody below could not take it
      ReportCaught(this, "the stop at the end of a component failed");
    }
  }
  OutputPin.Disconnect();
  EnablePin.Disconnect();
  TComponent::BeforeDestruction();
}

TPQVideoDecompressor::StreamForm TPQVideoDecompressor::Form() const {
  const auto section = lock_.ReadLock();
  return form_;
}

void TPQVideoDecompressor::SetWidth(std::int32_t width) {
  const auto section = lock_.WriteLock();
  form_.width = width;
}

void TPQVideoDecompressor::SetHeight(std::int32_t height) {
  const auto section = lock_.WriteLock();
  form_.height = height;
}

void TPQVideoDecompressor::SetVideoFormat(TPQVideoFormat format) {
  const auto section = lock_.WriteLock();
  form_.format = format;
}

TJCNotifyResult TPQVideoDecompressor::VideoSourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op,
                                                          TJCNotifyFlags flags) {
  return InputPin.IsConnected() ? InputPin.Notify(op, flags) : VideoSinkDispatch(pin, id, op, flags);
}

TJCNotifyResult TPQVideoDecompressor::VideoSinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op,
                                                        TJCNotifyFlags flags) {
  JCFrameMutex::Guard guard(frame_mutex_);
  if (auto* announced = JCOperation<TPQStartVideoCompressionOperation>(op)) {
    return StartVideoDecompression(*announced, flags);
  }
  if (auto* frames = JCOperation<TJCStartFrameOperation>(op)) return StartRetransmittion(*frames, flags);
  if (auto* start = JCOperation<TJCStartSampleRateOperation>(op)) return StartDecompression(start->Rate, flags);
  if (JCOperation<TJCStopOperation>(op) != nullptr) {
    StopDecompression();
  } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op); supplied != nullptr && supplied->Buffer) {
    return DoDecompression(*supplied->Buffer, flags);
  }
  return {};
}

// --- start and stop -------------------------------------------------------------------------------------------------

// A codec that an exception leaves half open takes no blocks.
struct TPQVideoDecompressor::HalfOpen {
  explicit HalfOpen(TPQVideoDecompressor& decompressor) : owner(decompressor) {}
  ~HalfOpen() {
    if (owner.handle_ != 0 && !owner.begun_) owner.DisconnectDecompression();
  }
  TPQVideoDecompressor& owner;
};

void TPQVideoDecompressor::BeginStream() {
  if (handle_ != 0) StopDecompression();
  frame_number_ = 0;
  told_ = false;
}

TJCNotifyResult TPQVideoDecompressor::StartDecompression(float rate, TJCNotifyFlags flags) {
  BeginStream();
  const HalfOpen half_open(*this);
  const StreamForm form = Form();
  const std::int32_t bits = PQVideoFormatToBitCount(form.format);
  if (!GetEnabled() || bits == -1) return {};
  output_ = BITMAPINFOHEADER();
  output_.biWidth = form.width;
  output_.biHeight = form.height;
  output_.biPlanes = 1;
  output_.biBitCount = static_cast<std::uint16_t>(bits);
  input_ = output_;
  input_.biBitCount = 0;
  if (!AssertUncompressed(245)) return {};
  PQPlatformResult result;
  manager_ = LoadCodecManager(result);
  if (manager_ != nullptr) {
    result = {kPlatformFormat, "name a codec in Decompressions"};
    const BITMAPINFOHEADER output = AsCodecGives(output_);
    for (const auto& choice : decompressions_.Choices()) {
      tag_ = choice.tag;
      input_.biCompression = tag_;
      // To compress, on purpose: only so does the codec tell what its blocks look like.
      result = manager_->ICLocate(kVideoCodecType, tag_, output, nullptr, kCodecCompress, handle_);
      if (!result.Ok()) handle_ = 0;
      if (handle_ != 0) break;
    }
    if (handle_ != 0) {
      result = manager_->ICCompressGetFormat(handle_, output, input_);
      if (!result.Ok()) DisconnectDecompression();
    }
  }
  return BeginDecompression(rate, std::move(result), flags);
}

TJCNotifyResult TPQVideoDecompressor::StartVideoDecompression(TPQStartVideoCompressionOperation& start,
                                                              TJCNotifyFlags flags) {
  BeginStream();
  const HalfOpen half_open(*this);
  if (!GetEnabled()) return {};
  input_ = start.OutputHeader;
  output_ = start.InputHeader;
  tag_ = start.FourCC;
  if (!AssertUncompressed(330)) return {};
  input_.biCompression = tag_;
  PQPlatformResult result;
  manager_ = LoadCodecManager(result);
  if (manager_ != nullptr) {
    BITMAPINFOHEADER output = AsCodecGives(output_);
    result = manager_->ICLocate(kVideoCodecType, tag_, input_, &output, kCodecDecompress, handle_);
    if (!result.Ok()) handle_ = 0;
    if (handle_ == 0) {
      PQPlatformResult again = manager_->ICLocate(kVideoCodecType, tag_, input_, nullptr, kCodecDecompress, handle_);
      if (!again.Ok()) handle_ = 0;
      if (manager_->ICCompressGetFormat(handle_, input_, output).Ok()) output_ = output;
      PQCodecInfo info;
      if (manager_->ICGetInfo(handle_, info).Ok()) tag_ = info.fccHandler;
      if (handle_ != 0) result = {};
    }
  }
  return BeginDecompression(start.Rate, std::move(result), flags);
}

TJCNotifyResult TPQVideoDecompressor::BeginDecompression(float rate, PQPlatformResult result, TJCNotifyFlags flags) {
  if (handle_ != 0 && !CanHold(output_)) {
    result = {kPlatformFormat, "frames of " + std::to_string(output_.biWidth) + " by " +
                                   std::to_string(output_.biHeight) + " pixels of " +
                                   std::to_string(output_.biBitCount) + " bits were announced"};
    DisconnectDecompression();
  }
  if (handle_ != 0) {
    result = manager_->ICDecompressBegin(handle_, input_, AsCodecGives(output_));
    if (!result.Ok()) DisconnectDecompression();
    begun_ = handle_ != 0;
  }
  if (handle_ == 0) {
    Report(this, PQSeverity::Warning, "No codec can be opened; no frames are announced.", result.code, result.detail);
    return {};
  }
  const std::int64_t delay =
      std::isfinite(rate) && rate > 0 ? pq_round<std::int64_t>(1.0 / (1000.0 * static_cast<double>(rate))) : 0;
  return OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(input_.biWidth, RowsOf(input_), delay,
                                                             PQBitCountToVideoFormat(output_.biBitCount)),
                          flags);
}

bool TPQVideoDecompressor::AssertUncompressed(int line) {
  if (output_.biCompression == 0) return true;
  Report(this, PQSeverity::Error, "Assertion failure", kPlatformFormat,
         "PQVideoDecompressor, line " + std::to_string(line) + ": the frames before compression are announced as '" +
             PQFourCCText(output_.biCompression) + "'; only plain pixels can be made");
  return false;
}

TJCNotifyResult TPQVideoDecompressor::StartRetransmittion(TJCStartFrameOperation& start, TJCNotifyFlags flags) {
  BeginStream();
  return OutputPin.Notify(start, flags);
}

void TPQVideoDecompressor::StopDecompression() {
  if (handle_ != 0) {
    try {
      (void)manager_->ICDecompressEnd(handle_);
    } catch (...) {
      ReportCaught(this, "a codec does not end properly");
    }
    DisconnectDecompression();
  }
  OutputPin.Stop();
}

void TPQVideoDecompressor::DisconnectDecompression() noexcept {
  try {
    (void)manager_->ICClose(handle_);
  } catch (...) {
    ReportCaught(this, "a codec does not close properly");
  }
  handle_ = 0;
  begun_ = false;
}

// --- blocks ---------------------------------------------------------------------------------------------------------

TJCNotifyResult TPQVideoDecompressor::DoDecompression(const IRWDataBuffer& buffer, TJCNotifyFlags flags) {
  const auto* const data = static_cast<const std::uint8_t*>(buffer.ReadData());
  const std::int32_t bytes = data != nullptr ? buffer.GetByteSize() : 0;
  TPQImageBuffer &first = *images_[0], &second = *images_[1];
  if (handle_ == 0) {
    const StreamForm form = Form();
    const std::int64_t whole = std::max<std::int64_t>(form.width, 0) * std::max<std::int64_t>(form.height, 0);
    if (whole > std::numeric_limits<std::int32_t>::max() / 3) {
      TellOnce("Frames of Width by Height are larger than a frame can be; blocks are dropped.",
               {kPlatformFormat, std::to_string(form.width) + " by " + std::to_string(form.height) + " pixels"});
      return {};
    }
    first.SetFormat(vfRGB24);
    first.SetSize(form.width, form.height);
    const std::int32_t wanted = first.GetByteSize();
    if (bytes != wanted) {
      TellOnce("A block is not as large as a frame of Width by Height.",
               {kPlatformFormat, std::to_string(bytes) + " bytes, a frame has " + std::to_string(wanted) +
                                     "; set Width and Height to the size of the frames"});
    }
    if (wanted > 0) {
      std::uint8_t* const pixels = first.Write();
      const std::int32_t taken = std::min(bytes, wanted);
      if (taken > 0) std::memcpy(pixels, data, static_cast<std::size_t>(taken));
      std::memset(pixels + taken, 0, static_cast<std::size_t>(wanted - taken));
    }
    return Submit(first, buffer, flags);
  }
  first.SetSize(output_.biWidth, RowsOf(output_));
  second.SetSize(output_.biWidth, RowsOf(output_));
  input_.biSizeImage = static_cast<std::uint32_t>(bytes);
  const int step = first.GetStep();
  const PQCodecPicture picture{first.Write(), step, static_cast<std::size_t>(first.GetByteSize())};
  PQPlatformResult result = manager_->ICDecompress(handle_, 0, input_, data, AsCodecGives(output_), picture);
  if (result.Ok()) {
    result.code = std::min<long>(ippiMirror_8u_C3R(first.Read(), step, second.Write(), step, first.GetSize(), 0), 0);
  }
  if (!result.Ok()) {
    TellOnce("A block can't be decompressed and is dropped.", result);
    return {};
  }
  return Submit(second, buffer, flags);
}

TJCNotifyResult TPQVideoDecompressor::Submit(const TPQImageBuffer& frame, const IRWDataBuffer& source,
                                             TJCNotifyFlags flags) {
  const auto view = PQMakeRef<TPQImageBuffer>(frame);  // the next block is drawn into memory that nobody holds
  view->GetSequenceStamp() = source.GetSequenceStamp();
  view->GetTimeStamp() = source.GetTimeStamp();
  // A block knows its place in the stream; what is a frame already knows more.
  std::int32_t number = frame_number_;
  if (source.GetSequenceStamp().GetAvailable()) number = source.GetSequenceStamp().GetBufferNumber();
  view->GetTimeCode().SetFrame(number);
  if (const auto* const image = PQCast<const IPQImageBuffer>(&source)) {
    view->GetTimeCode() = image->GetTimeCode();
    view->GetDateTime() = image->GetDateTime();
  }
  ++frame_number_;
  return OutputPin.SubmitBuffer(view, flags);
}

void TPQVideoDecompressor::TellOnce(const std::string& text, const PQPlatformResult& result) {
  if (told_) return;
  told_ = true;
  Report(this, PQSeverity::Warning, text, result.code, result.detail);
}

void PQVideoDecompressor::Register() {
  const PQClassInfo* const classes[] = {&TPQVideoDecompressor::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
