#include "pantiq/media/PQDSVideoCompressor.h"

#include <utility>

#include "pantiq/core/PQFrameLoan.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"

namespace pantiq {

using namespace PQGraphStep;

constinit const PQClassTag TPQDSVideoCompressor::kTag{"TPQDSVideoCompressor", &TComponent::kTag};

namespace {

constexpr int kMostQueued = 64;             // blocks that wait before frames do
constexpr std::size_t kMostNumbers = 1024;  // of frames inside the graph

}  // namespace

const PQClassInfo& TPQDSVideoCompressor::Class() {
  using T = TPQDSVideoCompressor;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQDSVideoCompressor", "PQDSVideoCompressor",
                    "Compresses frames into blocks of bytes with an encoder of the media engine.")
          .Inherits<TComponent>()
          .Object("Graph", &T::GetGraph, PQActs::NextStart, "The graph that compresses.")
          .Collection(
              "Compressions", &T::GetCompressions, PQActs::NextStart,
              "Compressors to try, in order. Without any, or if none takes the frames, they are not compressed.")
          .Property("Enabled", &T::GetEnabled, &T::SetEnabled, PQDefault(true), PQActs::NextStart,
                    "False builds no graph: frames leave as they came.")
          .Pin("InputPin", &T::InputPin, "Frames in.")
          .Pin("OutputPin", &T::OutputPin, "Compressed blocks out.")
          .Gauge("Queued", &T::GetQueued, PQUnit("blocks"), "Blocks that wait to go out.")
          .Done();
  return info;
}

TPQDSVideoCompressor::TPQDSVideoCompressor(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQDSVideoCompressor::VideoSourceDispatch>(this)),
      InputPin(*this, JCDispatch::To<&TPQDSVideoCompressor::VideoSinkDispatch>(this)),
      stream_(
          *this, lock_, [this] { queue_.End(); }, [this] { DestroyGraph(); }) {
  stream_.Attach(InputPin, OutputPin);
}

void TPQDSVideoCompressor::BeforeDestruction() {
  stream_.Shutdown();
  TComponent::BeforeDestruction();
}

void TPQDSVideoCompressor::SetEnabled(bool enabled) {
  const auto section = lock_.WriteLock();
  enabled_.store(enabled, std::memory_order_relaxed);
}

void TPQDSVideoCompressor::Once(bool& told, PQSeverity severity, const std::string& text,
                                const PQPlatformResult& result) {
  if (told) return;
  told = true;
  Report(this, severity, text, result.code, result.detail);
}

// --- what comes in --------------------------------------------------------------------------------------------------

TJCNotifyResult TPQDSVideoCompressor::VideoSourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op,
                                                          TJCNotifyFlags flags) {
  if (JCOperation<TJCStopOperation>(op) != nullptr) stream_.Abandon();
  return InputPin.IsConnected() ? InputPin.Notify(op, flags) : VideoSinkDispatch(pin, id, op, flags);
}

TJCNotifyResult TPQDSVideoCompressor::VideoSinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op,
                                                        TJCNotifyFlags flags) {
  JCFrameMutex::Guard guard(stream_.FrameMutex());
  if (auto* start = JCOperation<TJCStartFrameOperation>(op)) return StartCompression(*start, flags);
  if (JCOperation<TJCStopOperation>(op) != nullptr) {
    StopCompression();
    return OutputPin.Notify(op, flags);
  }
  auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op);
  if (supplied == nullptr || !supplied->Buffer) return {};
  const IRWDataBuffer& buffer = *supplied->Buffer;
  if (stream_.Interface() != nullptr) {
    DoCompression(buffer);
    return {};
  }
  auto block = PQMakeRef<TRWBlockBuffer>(buffer.ReadData(), buffer.GetByteSize());
  block->GetSequenceStamp() = buffer.GetSequenceStamp();
  block->GetTimeStamp() = buffer.GetTimeStamp();
  return OutputPin.SubmitBuffer(std::move(block), flags);
}

TJCNotifyResult TPQDSVideoCompressor::StartCompression(TJCStartFrameOperation& start, TJCNotifyFlags flags) {
  if (start.Width < 1 || start.Height < 1) return {};
  clock_.Reset();
  width_ = start.Width, height_ = start.Height, period_ = start.FrameDelay, format_ = start.Format;
  blocks_sent_.store(0);
  size_told_ = frame_told_ = failure_told_ = false;
  if (stream_.Interface() != nullptr) DestroyGraph();
  stream_.Begin([this] { NewThreadVideo(); });
  if (!GetEnabled()) return OutputPin.Notify(start, flags);
  queue_.Rearm();
  if (!GetGraphI()) return {};
  if (stream_.IsAbandoned()) {  // meanwhile
    DestroyGraph();
    return {};
  }
  return OutputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(start.BlockSize, start.SampleRate), flags);
}

void TPQDSVideoCompressor::StopCompression() {
  stream_.Graph().Ending([this] {
    PQPlatformResult result;
    if (!stream_.KeepTail(
            source_, [this] { return queue_.ItemsCount() == 0; }, result)) {
      Report(this, PQSeverity::Warning, "the last frames could not be compressed", result.code, result.detail);
    }
  });
  DestroyGraph();
}

// --- the graph ------------------------------------------------------------------------------------------------------

bool TPQDSVideoCompressor::GetGraphI() {
  try {
    if (BuildGraph()) return true;
  } catch (...) {  // half built it takes nothing
    DestroyGraph();
    throw;
  }
  DisconnectInterfaces();
  return false;
}

bool TPQDSVideoCompressor::BuildGraph() {
  TDSGraph& property = stream_.Graph();
  callback_ = std::make_unique<TPQDSSampleGrabberCB>([this](const PQPlatformBlock& sample) { NewVideoBuffer(sample); });
  if (!property.CreateGraph()) return false;
  property.RegisterAdditionalFilters();
  property.RegisterGraph();
  const auto graph = stream_.Interface();
  PQPlatformResult result;
  const auto failed = [&](const char* text) { return property.Failed(result, text); };  // the step before it

  result = graph->CreateCaptureBuilder();
  if (failed(kNoBuilder)) return false;
  result = graph->QueryMediaControl();
  if (failed(kNoControl)) return false;
  result = graph->SetFiltergraph();
  if (failed(kNoBuilder)) return false;
  // Half a pair of pixels exists in no encoder's input: odd widths are compressed from RGB.
  if (format_ != vfYUY2 || width_ % 2 != 0) format_ = vfRGB24;
  const PQVideoSubtype subtype = format_ == vfYUY2 ? PQVideoSubtype::Yuy2 : PQVideoSubtype::Rgb24;
  result = graph->CreateFilter(PQFilterKind::VideoSource, subtype, source_);
  if (failed(kNoVideoSource)) return false;
  result = graph->SetVideoSize(source_, width_, height_, period_);
  if (failed(kNoVideoSource)) return false;
  result = graph->AddFilter(source_, "VideoSource");
  if (failed(kNoVideoSource)) return false;
  if (!graph->CreateFilter(PQFilterKind::SampleGrabber, subtype, grabber_).Ok()) return false;
  result = graph->SetBufferSamples(grabber_, false);
  if (result.Ok()) result = graph->SetOneShot(grabber_, false);
  if (result.Ok()) result = graph->SetCallback(grabber_, callback_.get());
  if (failed(kNoGrabber)) return false;
  result = graph->SetMediaType(grabber_, PQGrabberType::Video);
  if (failed(kNoGrabberFormat)) return false;

  std::string wanted, used;
  PQPlatformResult why;  // the first choice was not taken
  for (const TDSCompressionChoice& choice : compressions_.Choices()) {
    const std::string moniker = choice.GetMoniker();
    if (moniker.empty()) continue;
    const auto refused = [&] {
      if (why.Ok()) wanted = choice.compressor, why = result;
      compressor_ = 0;
    };
    result = graph->BindToObject(moniker, compressor_);
    if (result.Ok()) result = graph->AddFilter(compressor_, "VideoCompressor");
    if (!result.Ok()) {
      refused();
      continue;
    }
    result = graph->Render(source_, 0, compressor_);
    if (!result.Ok()) {
      (void)graph->RemoveFilter(compressor_);
      refused();
      continue;
    }
    const PQPlatformResult settings = choice.ApplySettings(*graph, compressor_);
    result = graph->AddFilter(grabber_, "SampleGrabler");
    if (failed(kNoGrabber)) return false;
    result = graph->Render(compressor_, 0, grabber_);
    if (result.Ok()) {
      (void)choice.ApplySettings(*graph, compressor_);
      if (!settings.Ok()) property.Warning("The settings of '" + choice.compressor + "' can't be applied.", settings);
      used = choice.compressor;
      break;
    }
    (void)graph->RemoveFilter(compressor_);
    (void)graph->RemoveFilter(grabber_);
    refused();
    if (result.code == kPlatformInterrupted) return false;
  }
  PQReportChoices(property, wanted, why, used);
  if (compressor_ == 0) {
    result = graph->AddFilter(grabber_, "SampleGrabler");
    if (failed(kNoGrabber)) return false;
    result = graph->Render(source_, 0, grabber_);
    if (failed(kNoVideoOutput)) return false;
  }
  property.BeforeRun();
  result = graph->Run();
  if (!result.Ok()) {
    (void)graph->Stop();
    property.Error(kNoLogger, result);
    return false;
  }
  property.RegisterGraph();
  running_.store(true);
  return true;
}

void TPQDSVideoCompressor::DestroyGraph() {
  queue_.End();
  stream_.Graph().Ending([this] {
    if (const auto graph = stream_.Interface()) (void)graph->Stop();
  });
  stream_.Graph().UnregisterGraph();
  running_.store(false);
  DisconnectInterfaces();
}

void TPQDSVideoCompressor::DisconnectInterfaces() {
  stream_.Graph().ReleaseGraph();
  source_ = compressor_ = grabber_ = 0;
  callback_.reset();
  const std::lock_guard lock(numbers_mutex_);
  numbers_.clear();
}

// --- frames ---------------------------------------------------------------------------------------------------------

void TPQDSVideoCompressor::DoCompression(const IRWDataBuffer& buffer) {
  const auto graph = stream_.Interface();
  if (graph == nullptr || stream_.IsAbandoned()) return;
  auto image = PQMakeRef<TPQImageBuffer>(buffer);
  if (image->GetWidth() < 1 || image->GetHeight() < 1) {
    Once(frame_told_, PQSeverity::Warning, "frames without pixels are left out");
    return;
  }
  image->SetFormat(format_);
  if (image->GetWidth() != width_ || image->GetHeight() != height_) {
    Once(size_told_, PQSeverity::Warning,
         "a frame of " + std::to_string(image->GetWidth()) + " by " + std::to_string(image->GetHeight()) +
             " came into a stream of " + std::to_string(width_) + " by " + std::to_string(height_) +
             ": it lies at the top left");
    image = PQOnPage(*image, width_, height_);
  }
  PQPlatformBlock block;
  clock_.Next(buffer, period_, block.begin, block.end);
  block.data = image->Read();
  block.step = image->GetStep();
  block.size = static_cast<std::size_t>(image->GetByteSize());
  block.keep_alive = PQHoldFrame(image->Storage());
  if (buffer.GetSequenceStamp().GetAvailable()) {
    const std::lock_guard lock(numbers_mutex_);
    numbers_.push_back({block.begin, buffer.GetSequenceStamp().GetBufferNumber()});
    if (numbers_.size() > kMostNumbers) numbers_.pop_front();
  }
  // The notify thread, should a frame come on it, is the one that makes room.
  if (!stream_.IsNotifyThread()) queue_.WaitBelow(kMostQueued);
  const PQPlatformResult result = graph->SendVideo(source_, block);
  if (!result.Ok() && result.code != kPlatformInterrupted) {
    Once(failure_told_, PQSeverity::Error, "compressing stopped; frames are dropped until the next start", result);
  }
}

// --- blocks ---------------------------------------------------------------------------------------------------------

void TPQDSVideoCompressor::NewVideoBuffer(const PQPlatformBlock& sample) {
  if (queue_.Add(sample.begin, sample.end, sample.data, sample.size)) stream_.Notify();
}

void TPQDSVideoCompressor::NewThreadVideo() {
  const auto alive = stream_.Alive();
  const bool waiting = queue_.ItemsCount() > 0;
  try {
    SendWaiting(*alive);
  } catch (...) {  // one is lost; those behind it do not wait for the next sample, which may never come
    if (alive->load()) {
      ReportCaught(this, "a block was lost");
      if (waiting) stream_.Notify();
    }
  }
}

void TPQDSVideoCompressor::SendWaiting(const std::atomic<bool>& alive) {
  for (int taken = 0; taken < kMostEntries; ++taken) {
    auto node = stream_.Locked([this] { return queue_.Get(); });
    if (node == nullptr) return;
    auto block = PQMakeRef<TRWBlockBuffer>(node->Data.data(), static_cast<std::int32_t>(node->Data.size()));
    block->GetTimeStamp().SetAvailable(true);
    block->GetTimeStamp().SetBegin(node->Start);
    block->GetTimeStamp().SetEnd(node->Stop);
    {
      const std::lock_guard lock(numbers_mutex_);
      for (auto at = numbers_.begin(); at != numbers_.end(); ++at) {
        if (at->begin != node->Start) continue;
        block->GetSequenceStamp().SetBufferNumber(at->number);
        numbers_.erase(at);
        break;
      }
    }
    queue_.DestroyBlock(node);
    SendData(std::move(block), alive);
    if (!alive.load()) return;
  }
  stream_.Notify();  // there may be more
}

void TPQDSVideoCompressor::SendData(PQRef<TRWBlockBuffer> buffer, const std::atomic<bool>& alive) {
  OutputPin.SubmitBuffer(std::move(buffer));
  if (!alive.load() || blocks_sent_.load() >= 3) return;
  if (blocks_sent_.fetch_add(1) + 1 == 3 && !resume_sent_.exchange(true)) {
    OutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
  }
}

void PQDSVideoCompressor::Register() {
  const PQClassInfo* const classes[] = {&TPQDSVideoCompressor::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
