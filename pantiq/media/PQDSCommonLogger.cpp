#include "pantiq/media/PQDSCommonLogger.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "pantiq/core/PQFrameLoan.h"

namespace pantiq {

constinit const PQClassTag TPQBaseCommonLogger::kTag{"TPQBaseCommonLogger", &TComponent::kTag};
constinit const PQClassTag TPQDSCommonLogger::kTag{"TPQDSCommonLogger", &TPQBaseCommonLogger::kTag};

namespace {

constexpr int kFrameLimit = 2000;                      // ms that a frame of the tail may take
constexpr int kCloseLimit = 500;                       // ms that any other end may take
constexpr auto kAudioLimit = std::chrono::seconds(1);  // that the first frame waits for the start of the sound

}  // namespace

// --- TPQBaseCommonLogger --------------------------------------------------------------------------------------------

const PQClassInfo& TPQBaseCommonLogger::Class() {
  using T = TPQBaseCommonLogger;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQBaseCommonLogger", "PQDSCommonLogger", "Base of components that record.")
          .Inherits<TComponent>()
          .Property(
              "FileName", &T::GetFileName, &T::SetFileName, PQDefault(""), PQBareValue{}, PQFile(PQFileUse::Write),
              PQActs::NextStart,
              "File to be written; it is replaced when the first frame comes. Nothing is recorded while it is empty.")
          .Property("Enabled", &T::GetEnabled, &T::SetEnabled, PQDefault(true), PQActs::NextStart,
                    "False records nothing.")
          .Pin("InputPin", &T::InputPin, "Frames in.")
          .Pin("AudioInputPin", &T::AudioInputPin, "Sound in; may be left unconnected.")
          .Done();
  return info;
}

TPQBaseCommonLogger::TPQBaseCommonLogger(TComponent* owner)
    : TComponent(owner),
      InputPin(*this, JCDispatch::To<&TPQBaseCommonLogger::VideoDispatch>(this)),
      AudioInputPin(*this, JCDispatch::To<&TPQBaseCommonLogger::AudioDispatch>(this)) {
  InputPin.AddShareLock(lock_);
  AudioInputPin.AddShareLock(lock_);
}

TPQBaseCommonLogger::~TPQBaseCommonLogger() = default;

std::string TPQBaseCommonLogger::GetFileName() const {
  auto section = lock_.ReadLock();
  return file_name_;
}

void TPQBaseCommonLogger::SetFileName(const std::string& name) {
  auto section = lock_.WriteLock();
  file_name_ = name;
}

void TPQBaseCommonLogger::SetEnabled(bool enabled) {
  auto section = lock_.WriteLock();
  enabled_.store(enabled, std::memory_order_relaxed);
}

// --- TPQDSCommonLogger ----------------------------------------------------------------------------------------------

const PQClassInfo& TPQDSCommonLogger::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQDSCommonLogger>("TPQDSCommonLogger", "PQDSCommonLogger",
                                    "Base of components that record with a graph.")
          .Inherits<TPQBaseCommonLogger>()
          .Object("Graph", &TPQDSCommonLogger::GetGraph, PQActs::NextStart, "The graph that records.")
          .Done();
  return info;
}

TPQDSCommonLogger::TPQDSCommonLogger(TComponent* owner)
    : TPQBaseCommonLogger(owner), graph_(*this, Lock(), {}), alive_(std::make_shared<std::atomic<bool>>(true)) {
  InputPin.SetConnectionChanged([this] {
    if (!InputPin.IsConnected()) Abandon();
  });
  AudioInputPin.SetConnectionChanged([this] {
    if (AudioInputPin.IsConnected()) return;
    AudioKnown();
    JCAtSectionEnd([this, alive = alive_] {
      if (!alive->load()) return;
      JCFrameMutex::Guard guard(frames_);
      EndAudio();
    });
  });
}

TPQDSCommonLogger::~TPQDSCommonLogger() = default;

void TPQDSCommonLogger::BeforeDestruction() {
  alive_->store(false);
  AudioKnown();
  if (const auto graph = graph_.GetInterface()) graph->Interrupt();
  InputPin.Disconnect();
  AudioInputPin.Disconnect();
  {
    JCFrameMutex::Guard guard(frames_);
    EndAVI(false);
  }
  TPQBaseCommonLogger::BeforeDestruction();
}

// Whoever waits inside the graph is released first; it holds the frame mutex.
void TPQDSCommonLogger::Abandon() {
  AudioKnown();
  if (const auto graph = graph_.GetInterface()) graph->Interrupt();
  JCAtSectionEnd([this, alive = alive_] {
    if (!alive->load()) return;
    JCFrameMutex::Guard guard(frames_);
    EndAVI(false);
  });
}

// --- what comes in --------------------------------------------------------------------------------------------------

TJCNotifyResult TPQDSCommonLogger::IntVideoDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op);
  if (supplied != nullptr) AwaitAudio();
  JCFrameMutex::Guard guard(frames_);
  if (supplied != nullptr) {
    if (supplied->Buffer) IntRenderImage(GetEnabled() || running_.load(), *supplied->Buffer);
  } else if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
    BeginVideo(start->Width, start->Height, start->FrameDelay, start->Format);
  } else if (JCOperation<TJCStopOperation>(op) != nullptr || JCOperation<TJCIgnoreStreamOperation>(op) != nullptr) {
    EndVideo();
  }
  return {};
}

TJCNotifyResult TPQDSCommonLogger::IntAudioDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  JCFrameMutex::Guard guard(frames_);
  if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    if (supplied->Buffer) IntRenderAudio(GetEnabled() || running_.load(), supplied->Buffer);
  } else if (auto* start = JCOperation<TJCStartWaveOperation>(op)) {
    BeginAudio(start->Format);
  } else if (JCOperation<TJCIgnoreStreamOperation>(op) != nullptr) {
    EndAudio();
  } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
    if (video_begun_) {
      EndAudio();
    } else {
      audio_begun_ = false;  // of a recording that is over, or never was
    }
  }
  return {};
}

// Before the frame mutex: the start of the sound needs it.
void TPQDSCommonLogger::AwaitAudio() {
  std::unique_lock lock(audio_mutex_);
  if (!audio_awaited_) return;
  audio_changed_.wait_for(lock, kAudioLimit, [this] { return !audio_awaited_; });
  audio_awaited_ = false;
}

void TPQDSCommonLogger::AudioKnown() {
  const std::lock_guard lock(audio_mutex_);
  audio_awaited_ = false;
  audio_changed_.notify_all();
}

void TPQDSCommonLogger::BeginVideo(std::int32_t width, std::int32_t height, std::int64_t period,
                                   TPQVideoFormat format) {
  if (running_.load() && recorded_name_ != GetFileName()) EndAVI(true);
  clock_.BeginAnew();
  if (running_.load()) {
    period_ = period;
    if (video_over_) video_over_ = false;
    return;
  }
  video_begun_ = failed_ = false;
  if (width < 1 || height < 1 || !GetEnabled()) return;
  width_ = width, height_ = height, period_ = period, frame_format_ = format;
  clock_.Reset();
  audio_samples_ = 0;
  size_told_ = audio_told_ = frame_told_ = false;
  video_begun_ = true, video_over_ = false;
  if (AudioInputPin.IsConnected() && !audio_begun_ && !audio_over_) {
    const std::lock_guard lock(audio_mutex_);
    audio_awaited_ = true;
    return;
  }
  StartGraph();
}

void TPQDSCommonLogger::BeginAudio(const THTWaveFormat& format) {
  if (running_.load()) {
    const bool same = format.channels == wave_format_.channels &&
                      format.bits_per_sample == wave_format_.bits_per_sample &&
                      format.samples_per_second == wave_format_.samples_per_second;
    if (!has_audio_ || !same || audio_over_) {
      Once(audio_told_, PQSeverity::Warning, "sound that begins or changes its form during a recording is left out");
    }
    return;
  }
  wave_format_ = format;
  audio_begun_ = true, audio_over_ = false;
  AudioKnown();
  if (video_begun_ && !failed_) StartGraph();
}

void TPQDSCommonLogger::StartGraph() {
  recorded_name_ = GetFileName();
  has_audio_ = HasAudioStream();
  failed_ = true;  // until the next start, unless it can be built
  try {
    failed_ = !BuildGraph();
  } catch (...) {
    DestroyGraph();
    throw;
  }
  if (failed_) DisconnectInterfaces();
}

void TPQDSCommonLogger::EndVideo() {
  AudioKnown();
  if (!video_begun_ || video_over_) return;
  video_over_ = true;
  if (running_.load()) {
    if (has_audio_ && !audio_over_) {
      if (const auto graph = graph_.GetInterface()) (void)graph->EndOfStream(video_source_);
      return;
    }
  }
  EndAVI(true);
}

void TPQDSCommonLogger::EndAudio() {
  AudioKnown();
  if (audio_over_) return;
  audio_over_ = true;
  if (!running_.load()) {
    // The video waits for what is known now.
    if (video_begun_ && !video_over_ && !failed_) StartGraph();
    return;
  }
  if (!has_audio_) return;
  if (const auto graph = graph_.GetInterface()) (void)graph->EndOfStream(audio_source_);
  if (video_over_) EndAVI(true);
}

// --- the end --------------------------------------------------------------------------------------------------------

void TPQDSCommonLogger::EndAVI(bool keep_tail) {
  const auto graph = graph_.GetInterface();
  if (running_.load() && graph != nullptr) {
    for (const PQFilterId source : {audio_source_, video_source_}) {
      if (source != 0) graph_.Ending([&] { (void)graph->EndOfStream(source); });
    }
    graph_.Ending([&] {
      const PQPlatformResult result = graph->Drain(keep_tail ? kFrameLimit : kCloseLimit);
      if (result.Ok()) return;
      // What was to be kept is lost; other ends lose by what they are.
      const PQSeverity severity = keep_tail ? PQSeverity::Error : PQSeverity::Warning;
      Report(this, severity, "the end of " + recorded_name_ + " could not be written", result.code, result.detail);
    });
  }
  DestroyGraph();
  video_begun_ = video_over_ = audio_begun_ = audio_over_ = failed_ = has_audio_ = false;
}

void TPQDSCommonLogger::DestroyGraph() {
  graph_.Ending([this] {
    if (const auto graph = graph_.GetInterface()) (void)graph->Stop();
  });
  graph_.UnregisterGraph();
  running_.store(false);
  DisconnectInterfaces();
}

void TPQDSCommonLogger::DisconnectInterfaces() {
  graph_.ReleaseGraph();
  writer_ = video_source_ = audio_source_ = 0;
}

// --- frames and sound -----------------------------------------------------------------------------------------------

void TPQDSCommonLogger::Once(bool& told, PQSeverity severity, const std::string& text) {
  if (told) return;
  told = true;
  Report(this, severity, text);
}

// False once the graph takes nothing more; the recording is then closed as far as it goes.
bool TPQDSCommonLogger::Sent(const PQPlatformResult& result) {
  if (result.Ok()) return true;
  if (result.code == kPlatformInterrupted) return false;
  Report(this, PQSeverity::Error, "recording to " + recorded_name_ + " stopped", result.code, result.detail);
  DestroyGraph();
  failed_ = true;
  return false;
}

void TPQDSCommonLogger::IntRenderImage(bool enabled, const IRWDataBuffer& frame) {
  if (!enabled || !video_begun_ || video_over_ || failed_) return;
  if (!running_.load()) {  // no sound has come
    StartGraph();
    if (!running_.load()) return;
  }
  const auto graph = graph_.GetInterface();
  if (graph == nullptr) return;
  auto image = PQMakeRef<TPQImageBuffer>(frame);
  if (image->GetWidth() < 1 || image->GetHeight() < 1) {
    Once(frame_told_, PQSeverity::Warning, "frames without pixels are left out");
    return;
  }
  image->SetFormat(frame_format_);
  if (image->GetWidth() != width_ || image->GetHeight() != height_) {
    Once(size_told_, PQSeverity::Warning,
         "a frame of " + std::to_string(image->GetWidth()) + " by " + std::to_string(image->GetHeight()) +
             " came into a recording of " + std::to_string(width_) + " by " + std::to_string(height_) +
             ": it lies at the top left");
    image = PQOnPage(*image, width_, height_);
  }
  PQPlatformBlock block;
  clock_.Next(frame, period_, block.begin, block.end);
  block.data = image->Read();
  block.step = image->GetStep();
  block.size = static_cast<std::size_t>(image->GetByteSize());
  block.keep_alive = PQHoldFrame(image->Storage());
  Sent(graph->SendVideo(video_source_, block));
}

void TPQDSCommonLogger::IntRenderAudio(bool enabled, const PQDataBufferRef& buffer) {
  if (!enabled || !running_.load() || !has_audio_ || audio_over_) return;
  const auto graph = graph_.GetInterface();
  const auto* sound = PQCast<const THTAudioBuffer>(buffer.Get());
  if (graph == nullptr || sound == nullptr || sound->GetSamples() < 1) return;
  if (sound->GetChannels() != wave_format_.channels || sound->GetBitsPerSample() != wave_format_.bits_per_sample) {
    Once(audio_told_, PQSeverity::Warning, "sound that begins or changes its form during a recording is left out");
    return;
  }
  const std::int64_t rate = std::max(wave_format_.samples_per_second, 1);
  const auto clock = [rate](std::int64_t samples) {
    return samples / rate * 10000000 + samples % rate * 10000000 / rate;
  };
  PQPlatformBlock block;
  block.begin = clock(audio_samples_);
  audio_samples_ += sound->GetSamples();
  block.end = clock(audio_samples_);
  block.data = static_cast<const std::uint8_t*>(sound->ReadData());
  block.size = static_cast<std::size_t>(sound->GetByteSize());
  block.keep_alive = std::make_shared<PQDataBufferRef>(buffer);
  Sent(graph->SendAudio(audio_source_, block));
}

}  // namespace pantiq
