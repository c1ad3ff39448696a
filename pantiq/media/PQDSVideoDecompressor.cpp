#include "pantiq/media/PQDSVideoDecompressor.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "pantiq/core/PQNumbers.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"

namespace pantiq {

using namespace PQGraphStep;

constinit const PQClassTag TPQDSVideoDecompressor::kTag{"TPQDSVideoDecompressor", &TComponent::kTag};

namespace {

constexpr std::int64_t kNominalLength = 0;  // of a frame: none is nominated, so its own counts
constexpr const char* kNoBinarySource = "Can't set binary source filter.";

std::int32_t Clamped(std::int64_t bytes) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(bytes, 0, std::numeric_limits<std::int32_t>::max()));
}

// Frames that are not compressed.
PQStreamForm RawForm(std::int32_t width, std::int32_t height) {
  PQStreamForm form;
  form.kind = PQStreamForm::Kind::Rgb24;
  form.temporal_compression = false;
  form.header.biWidth = width;
  form.header.biHeight = height;
  form.header.biPlanes = 1;
  form.header.biBitCount = 24;
  const std::int64_t row = (std::int64_t{width} * 3 + 3) / 4 * 4;
  form.sample_size = row * std::llabs(height);
  form.header.biSizeImage = static_cast<std::uint32_t>(form.sample_size);
  return form;
}

}  // namespace

const PQClassInfo& TPQDSVideoDecompressor::Class() {
  using T = TPQDSVideoDecompressor;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQDSVideoDecompressor", "PQDSVideoDecompressor",
                    "Makes frames of compressed blocks with a decoder of the media engine.")
          .Inherits<TComponent>()
          .Object("Graph", &T::GetGraph, PQActs::NextStart, "The graph that decompresses.")
          .Collection("Decompressions", &T::GetDecompressions, PQActs::NextStart,
                      "The compressors that may have made the blocks, to try in order. Without any, or if none can be "
                      "undone, blocks are taken for the pixels of frames.")
          .Property("Width", &T::GetWidth, &T::SetWidth, PQDefault(std::int32_t{240}),
                    PQUseful(std::int32_t{1}, std::int32_t{8192}), PQUnit("pixels"), PQActs::NextStart,
                    "Width of the frames.")
          .Property("Height", &T::GetHeight, &T::SetHeight, PQDefault(std::int32_t{180}),
                    PQUseful(std::int32_t{1}, std::int32_t{8192}), PQUnit("pixels"), PQActs::NextStart,
                    "Height of the frames.")
          .Pin("InputPin", &T::InputPin, "Compressed blocks in.")
          .Pin("OutputPin", &T::OutputPin, "Frames out.")
          .Gauge("Queued", &T::GetQueued, PQUnit("frames"), "Frames that wait to go out.")
          .Done();
  return info;
}

TPQDSVideoDecompressor::TPQDSVideoDecompressor(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQDSVideoDecompressor::SourceDispatch>(this)),
      InputPin(*this, JCDispatch::To<&TPQDSVideoDecompressor::SinkDispatch>(this)),
      queue_(nullptr),
      stream_(
          *this, lock_, [this] { queue_.End(); }, [this] { DestroyGraph(); }) {
  stream_.Attach(InputPin, OutputPin);
}

void TPQDSVideoDecompressor::BeforeDestruction() {
  stream_.Shutdown();
  TComponent::BeforeDestruction();
}

void TPQDSVideoDecompressor::SetWidth(std::int32_t width) {
  const auto section = lock_.WriteLock();
  width_.store(width, std::memory_order_relaxed);
}

void TPQDSVideoDecompressor::SetHeight(std::int32_t height) {
  const auto section = lock_.WriteLock();
  height_.store(height, std::memory_order_relaxed);
}

// --- what comes in --------------------------------------------------------------------------------------------------

TJCNotifyResult TPQDSVideoDecompressor::SourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op,
                                                       TJCNotifyFlags flags) {
  if (JCOperation<TJCStopOperation>(op) != nullptr) stream_.Abandon();
  return InputPin.IsConnected() ? InputPin.Notify(op, flags) : SinkDispatch(pin, id, op, flags);
}

TJCNotifyResult TPQDSVideoDecompressor::SinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op,
                                                     TJCNotifyFlags flags) {
  JCFrameMutex::Guard guard(stream_.FrameMutex());
  if (auto* start = JCOperation<TJCStartSampleRateOperation>(op)) return StartDecompression(*start, flags);
  if (JCOperation<TJCStopOperation>(op) != nullptr) {
    StopDecompression();
  } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op); supplied != nullptr && supplied->Buffer) {
    DoDecompression(*supplied->Buffer);
  }
  return {};
}

TJCNotifyResult TPQDSVideoDecompressor::StartDecompression(TJCStartSampleRateOperation& start, TJCNotifyFlags flags) {
  const std::int32_t width = GetWidth(), height = GetHeight();
  period_ = pq_delay(start.SampleRate);
  block_size_ = start.BlockSize != 0 ? start.BlockSize : Clamped(std::int64_t{width} * height * 3);
  if (stream_.Interface() != nullptr) DestroyGraph();
  stream_.Begin([this] { NewThreadVideo(); });
  input_clock_ = output_clock_ = 0;
  frame_number_.store(0);
  resume_sent_.store(false);
  failure_told_ = false;
  size_told_.store(false);
  announced_width_.store(width), announced_height_.store(height);
  queue_.Rearm();
  queue_.SetSize(width, height, vfRGB24);
  if (!GetGraphI()) return {};
  if (stream_.IsAbandoned()) {  // meanwhile
    DestroyGraph();
    return {};
  }
  return OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(width, height, period_, vfRGB24), flags);
}

void TPQDSVideoDecompressor::StopDecompression() {
  stream_.Graph().Ending([this] {
    PQPlatformResult result;
    if (!stream_.KeepTail(
            binary_, [this] { return queue_.ItemsCount() == 0; }, result)) {
      Report(this, PQSeverity::Warning, "the last blocks could not be decompressed", result.code, result.detail);
    }
  });
  DestroyGraph();
  OutputPin.Stop();
}

// --- the graph ------------------------------------------------------------------------------------------------------

bool TPQDSVideoDecompressor::GetGraphI() {
  try {
    if (BuildGraph()) return true;
  } catch (...) {  // half built it takes nothing
    DestroyGraph();
    throw;
  }
  DisconnectInterfaces();
  return false;
}

bool TPQDSVideoDecompressor::BuildGraph() {
  TDSGraph& property = stream_.Graph();
  if (property.GetInterface() != nullptr) return true;
  callback_ = std::make_unique<TPQDSSampleGrabberCB>([this](const PQPlatformBlock& sample) { NewVideoBuffer(sample); });
  if (!property.CreateGraph()) return false;
  property.RegisterAdditionalFilters();
  const auto graph = stream_.Interface();
  if (!BuildFilters(*graph) || !FindDecoder(*graph)) return false;
  PQPlatformResult result = graph->SetBufferSamples(grabber_, false);
  if (result.Ok()) result = graph->SetOneShot(grabber_, false);
  if (result.Ok()) result = graph->SetCallback(grabber_, callback_.get());
  if (stream_.Graph().Failed(result, kNoGrabber)) return false;
  if (compressor_ == 0 && !RenderRaw(*graph)) return false;
  (void)graph->RemoveFilter(tmp_source_);
  if (compressor_ != 0) (void)graph->RemoveFilter(compressor_);
  tmp_source_ = compressor_ = 0;
  property.BeforeRun();
  result = graph->Run();
  if (!result.Ok()) {
    (void)graph->Stop();
    property.Error("Can't start decompressor.", result);
    return false;
  }
  (void)filter_->Pin().Active(graph, binary_);
  property.RegisterGraph();
  running_.store(true);
  return true;
}

bool TPQDSVideoDecompressor::BuildFilters(PQCodecGraph& graph) {
  PQPlatformResult result = graph.CreateCaptureBuilder();
  if (stream_.Graph().Failed(result, kNoBuilder)) return false;
  result = graph.QueryMediaControl();
  if (stream_.Graph().Failed(result, kNoControl)) return false;
  result = graph.QueryMediaFilter();
  if (stream_.Graph().Failed(result, kNoControl)) return false;
  result = graph.SetFiltergraph();
  if (stream_.Graph().Failed(result, kNoBuilder)) return false;

  // Stands for a consumer of the compressor's own output; never part of the graph.
  TPQDSSampleGrabberCB test_callback{{}};
  PQFilterId test_grabber = 0;
  result = graph.CreateFilter(PQFilterKind::SampleGrabber, PQVideoSubtype::Rgb24, test_grabber);
  if (result.Ok()) result = graph.SetBufferSamples(test_grabber, false);
  if (result.Ok()) result = graph.SetOneShot(test_grabber, false);
  if (result.Ok()) result = graph.SetCallback(test_grabber, &test_callback);
  if (stream_.Graph().Failed(result, kNoGrabber)) return false;
  result = graph.SetMediaType(test_grabber, PQGrabberType::Any);
  if (stream_.Graph().Failed(result, kNoGrabberFormat)) return false;
  (void)graph.RemoveFilter(test_grabber);

  if (!graph.CreateFilter(PQFilterKind::SampleGrabber, PQVideoSubtype::Rgb24, grabber_).Ok()) return false;
  result = graph.SetMediaType(grabber_, PQGrabberType::Rgb24);
  if (stream_.Graph().Failed(result, kNoGrabberFormat)) return false;

  filter_ = std::make_unique<TMyFilter>("BinarySource", TMyFilter::kClassId);
  filter_->Pin().SetBlockSize(block_size_);
  const PQStreamForm none;
  (void)filter_->Pin().SetMediaType(&none);
  result = graph.CreateFilter(PQFilterKind::BinarySource, PQVideoSubtype::Rgb24, binary_);
  if (result.Ok()) result = graph.AddFilter(binary_, filter_->GetName());
  if (stream_.Graph().Failed(result, kNoBinarySource)) return false;

  result = graph.CreateFilter(PQFilterKind::VideoSource, PQVideoSubtype::Rgb24, tmp_source_);
  if (result.Ok()) result = graph.SetVideoSize(tmp_source_, GetWidth(), GetHeight(), period_);
  if (result.Ok()) result = graph.AddFilter(tmp_source_, "TmpVideoSource");
  if (stream_.Graph().Failed(result, kNoVideoSource)) return false;

  return graph.CreateFilter(PQFilterKind::NullRenderer, PQVideoSubtype::Rgb24, null_).Ok() &&
         graph.AddFilter(null_, "NULL Renderer").Ok();
}

// Wires the temporary source through a compressor into the grabber, learns what the blocks are, and puts the decoder,
// which has come in between, behind the binary source. False if the build is over.
bool TPQDSVideoDecompressor::FindDecoder(PQCodecGraph& graph) {
  std::string wanted, used;
  PQPlatformResult why;  // the first choice was not taken
  TMyBinarySourceStreamPin& pin = filter_->Pin();
  for (const TDSCompressionChoice& choice : decompressions_.Choices()) {
    const std::string moniker = choice.GetMoniker();
    if (moniker.empty()) continue;
    PQPlatformResult result = graph.BindToObject(moniker, compressor_);
    const auto refused = [&] {
      if (why.Ok()) wanted = choice.compressor, why = result;
      compressor_ = 0;
    };
    if (result.Ok()) result = graph.AddFilter(compressor_, "VideoCompressor");
    if (!result.Ok()) {
      refused();
      continue;
    }
    result = graph.Render(tmp_source_, 0, compressor_);
    if (!result.Ok()) {
      (void)graph.RemoveFilter(compressor_);
      refused();
      continue;
    }
    const PQPlatformResult settings = choice.ApplySettings(graph, compressor_);
    result = graph.AddFilter(grabber_, "SampleGrabler");
    if (stream_.Graph().Failed(result, kNoGrabber)) return false;
    result = graph.Render(compressor_, 0, grabber_);
    PQFilterId decoder = 0;
    if (result.Ok()) {
      PQStreamForm form;
      (void)graph.GetConnectionMediaType(compressor_, form);
      (void)pin.SetMediaType(&form);
      (void)graph.DisconnectGetNextFilter(compressor_, decoder);
      result = graph.SetStreamForm(binary_, form);
      if (result.Ok()) result = graph.Render(binary_, 0, decoder);
      if (result.Ok()) {
        result = graph.Render(grabber_, 0, null_);
        if (!result.Ok()) result = graph.Render(decoder, grabber_, null_);
      }
    }
    if (result.Ok()) {
      if (!settings.Ok()) {
        stream_.Graph().Warning("The settings of '" + choice.compressor + "' can't be applied.", settings);
      }
      used = choice.compressor;
      break;
    }
    (void)graph.RemoveFilter(compressor_);
    (void)graph.RemoveFilter(grabber_);
    if (decoder != 0) (void)graph.RemoveFilter(decoder);
    refused();
    if (result.code == kPlatformInterrupted) return false;
  }
  PQReportChoices(stream_.Graph(), wanted, why, used);
  return true;
}

bool TPQDSVideoDecompressor::RenderRaw(PQCodecGraph& graph) {
  const PQStreamForm form = RawForm(GetWidth(), GetHeight());
  (void)filter_->Pin().SetMediaType(&form);
  PQPlatformResult result = graph.SetStreamForm(binary_, form);
  if (result.Ok()) result = graph.AddFilter(grabber_, "SampleGrabler");
  if (stream_.Graph().Failed(result, kNoGrabber)) return false;
  result = graph.Render(binary_, 0, grabber_);
  if (stream_.Graph().Failed(result, kNoVideoOutput)) return false;
  (void)graph.Render(grabber_, 0, null_);
  return true;
}

void TPQDSVideoDecompressor::DestroyGraph() {
  queue_.End();
  if (filter_ != nullptr) filter_->Pin().Inactive();
  stream_.Graph().Ending([this] {
    if (const auto graph = stream_.Interface()) (void)graph->Stop();
  });
  stream_.Graph().UnregisterGraph();
  running_.store(false);
  DisconnectInterfaces();
}

void TPQDSVideoDecompressor::DisconnectInterfaces() {
  stream_.Graph().Ending([this] { stream_.Graph().DestroyDownstream(binary_); });
  stream_.Graph().ReleaseGraph();
  binary_ = tmp_source_ = null_ = compressor_ = grabber_ = 0;
  filter_.reset();
  callback_.reset();
}

// --- blocks and frames ----------------------------------------------------------------------------------------------

void TPQDSVideoDecompressor::DoDecompression(const IRWDataBuffer& buffer) {
  if (filter_ == nullptr || !running_.load() || stream_.IsAbandoned()) return;
  const TBXTimeStamp& stamp = buffer.GetTimeStamp();
  const std::int64_t length = stamp.GetAvailable() ? stamp.GetEnd() - stamp.GetBegin() : 0;
  const std::int64_t start = input_clock_;
  input_clock_ += length > 0 ? length : PQKnownPeriod(period_);
  PQPlatformResult result;
  // The notify thread, should a block come on it, is the one that makes room.
  if (filter_->Pin().Send(buffer.ReadData(), buffer.GetByteSize(), start, input_clock_, !stream_.IsNotifyThread(),
                          result)) {
    return;
  }
  if (result.code == kPlatformInterrupted || failure_told_) return;
  failure_told_ = true;
  Report(this, PQSeverity::Error, "a block can't be decompressed and is dropped", result.code, result.detail);
}

// Frames follow each other without gaps, each as long as its block.
void TPQDSVideoDecompressor::NewVideoBuffer(const PQPlatformBlock& sample) {
  std::int64_t length = sample.end - sample.begin;
  if (kNominalLength / 4 > length / 4) length = kNominalLength;
  if (sample.step > 0) {
    const std::int64_t row = std::int64_t{announced_width_.load()} * 3, rows = announced_height_.load();
    const bool fits =
        sample.step >= row && sample.step <= row + 3 && static_cast<std::int64_t>(sample.size) == sample.step * rows;
    if (!fits && !size_told_.exchange(true)) {
      Report(this, PQSeverity::Warning, "the blocks hold frames of another size than Width by Height", kPlatformFormat,
             "about " + std::to_string(sample.step / 3) + " by " +
                 std::to_string(static_cast<std::int64_t>(sample.size) / sample.step) + " pixels; " +
                 std::to_string(row / 3) + " by " + std::to_string(rows) + " are taken, what is missing is black");
    }
  }
  const std::int64_t start = output_clock_;
  output_clock_ = start + length;
  if (!queue_.PushBuffer(sample, start, output_clock_)) return;
  stream_.Notify();
  queue_.WaitTaken();
}

void TPQDSVideoDecompressor::NewThreadVideo() {
  const auto alive = stream_.Alive();
  const bool waiting = queue_.ItemsCount() > 0;
  try {
    SendWaiting(*alive);
  } catch (...) {  // one is lost; those behind it do not wait for the next sample, which may never come
    if (alive->load()) {
      ReportCaught(this, "a frame was lost");
      if (waiting) stream_.Notify();
    }
  }
}

void TPQDSVideoDecompressor::SendWaiting(const std::atomic<bool>& alive) {
  for (int taken = 0; taken < kMostEntries; ++taken) {
    PQImageRef image = stream_.Locked([this] { return queue_.Get(); });
    if (!image) return;
    const std::int32_t number = frame_number_.fetch_add(1);
    image->GetTimeCode().SetFrame(number);
    image->GetSequenceStamp().SetBufferNumber(number);
    OutputPin.SubmitBuffer(std::move(image));
    if (!alive.load()) return;
    if (!resume_sent_.exchange(true)) OutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
    if (!alive.load()) return;
  }
  stream_.Notify();  // there may be more
}

void PQDSVideoDecompressor::Register() {
  const PQClassInfo* const classes[] = {&TPQDSVideoDecompressor::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
