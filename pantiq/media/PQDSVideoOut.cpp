#include "pantiq/media/PQDSVideoOut.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "pantiq/core/PQFrameLoan.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/media/PQStreamClock.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {

using namespace PQGraphStep;

constinit const PQClassTag TPQDSVideoOut::kTag{"TPQDSVideoOut", &TComponent::kTag};

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr const char* kNoStart = "Can't start render.";

constexpr auto kTailLimit = std::chrono::milliseconds(2000);  // that a proper end may take
constexpr std::uint64_t kLongestFrame = 36000000000;          // an hour; what says more is no duration
constexpr std::int64_t kShortestTick = 10000;                 // 100 ns
constexpr int kMostPumps = 100;                               // that wait for a source that is behind

bool IsStop(IJCNotifyOperation& op) { return JCOperation<TJCStopOperation>(op) != nullptr; }

bool Same(const THTWaveFormat& a, const THTWaveFormat& b) {
  return a.channels == b.channels && a.bits_per_sample == b.bits_per_sample &&
         a.samples_per_second == b.samples_per_second;
}

int RemainingMilliseconds(SteadyClock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now()).count();
  return static_cast<int>(std::max<std::int64_t>(left, 0));
}

}  // namespace

// What the graph tells comes on its own threads, which must not wait.
struct TPQDSVideoOut::Events {
  std::mutex mutex;
  std::deque<std::pair<long, PQPlatformResult>> told;
  TRWNotifyThread* thread = nullptr;
  std::function<void(long)> closure;
};

const PQClassInfo& TPQDSVideoOut::Class() {
  using T = TPQDSVideoOut;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQDSVideoOut", "PQDSVideoOut", "Shows video on a device and plays its sound.")
          .Inherits<TComponent>()
          .Object("DVFormat", &T::GetDVFormat, PQActs::NextStart,
                  "How digital video is encoded, for devices that take that.")
          .Object("Graph", &T::GetGraph, PQActs::NextStart, "The graph that plays.")
          .Object("VideoOutputDevice", &T::GetVideoOutputDevice, PQActs::NextStart, "The device that shows the video.")
          .Object("AudioOutputDevice", &T::GetAudioOutputDevice, PQActs::NextStart, "The device that plays the sound.")
          .Property("PumpPriority", &T::GetPumpPriority, &T::SetPumpPriority, PQDefault(std::int32_t{0}),
                    PQUseful(std::int32_t{0}, std::int32_t{100}), PQActs::NextStart,
                    "With EnableMasterPumping: wins over others that claim the pace with less.")
          .Property(
              "EnableMasterPumping", &T::GetEnableMasterPumping, &T::SetEnableMasterPumping, PQDefault(false),
              PQActs::NextStart,
              "The device's clock asks the source for each frame. False lets the source push, held back by the device.")
          .Gauge("VideoQueued", &T::GetVideoQueued, PQUnit("operations"),
                 "Frames that wait for the device or their sound.")
          .Gauge("AudioQueued", &T::GetAudioQueued, PQUnit("operations"),
                 "Sound that waits for the device or its frames.")
          .Gauge("FramesShown", &T::GetFramesShown, PQUnit("frames"),
                 "Frames that the device has shown since the start.")
          .Gauge("FramesDropped", &T::GetFramesDropped, PQUnit("frames"),
                 "Frames that the device left out: they came too late.")
          .Gauge("Lateness", &T::GetLateness, PQUnit("100 ns"),
                 "95 of 100 of the last frames came to the device no later than this after their time.")
          .Pin("InputPin", &T::InputPin, "Frames in.")
          .Pin("AudioInputPin", &T::AudioInputPin, "Sound in; may be left unconnected.")
          .Done();
  return info;
}

TPQDSVideoOut::TPQDSVideoOut(TComponent* owner)
    : TComponent(owner),
      InputPin(*this, JCDispatch::To<&TPQDSVideoOut::VideoDispatch>(this)),
      AudioInputPin(*this, JCDispatch::To<&TPQDSVideoOut::AudioDispatch>(this)),
      graph_(*this, lock_, {}),
      video_device_(lock_, [this] { OnDeviceChanged(); }),
      audio_device_(lock_, [this] { OnDeviceChanged(); }),
      events_(std::make_shared<Events>()),
      main_notify_(std::make_unique<TRWMainThreadNotify>([this] { MainThreadDataProcess(); })),
      alive_(std::make_shared<std::atomic<bool>>(true)) {
  InputPin.AddShareLock(lock_);
  AudioInputPin.AddShareLock(lock_);
  InputPin.SetConnectionChanged([this] {
    if (!InputPin.IsConnected()) Abandon();
  });
  AudioInputPin.SetConnectionChanged([this] {
    if (AudioInputPin.IsConnected()) return;
    JCAtSectionEnd([this, alive = alive_] {
      if (!alive->load()) return;
      Exclusively([this] {
        DropAll(audio_list_);
        audio_started_ = false;
        AudioIsOver();
        if (!video_running_.load()) TryStart();
      });
    });
  });
}

void TPQDSVideoOut::BeforeDestruction() {
  alive_->store(false);
  {
    const std::lock_guard lock(drain_mutex_);
    ended_ = true;
  }
  if (const auto graph = Graph()) graph->Interrupt();
  InputPin.Disconnect();
  AudioInputPin.Disconnect();
  {
    // A build that was under way may have started the graph again.
    std::unique_lock lock(drain_mutex_);
    while (draining_ && drainer_ != std::this_thread::get_id()) {
      lock.unlock();
      if (const auto graph = Graph()) graph->Interrupt();
      lock.lock();
      drain_changed_.wait_for(lock, std::chrono::milliseconds(10));
    }
  }
  main_notify_.reset();
  std::shared_ptr<TRWClockThread> clock_thread;
  std::shared_ptr<TRWEventClockThread> event_clock_thread;
  {
    const std::lock_guard lock(clock_mutex_);
    clock_thread = clock_thread_, event_clock_thread = event_clock_thread_;
  }
  if (event_clock_thread != nullptr) event_clock_thread->Terminate();
  if (clock_thread != nullptr) clock_thread->Terminate();
  {
    const std::lock_guard lock(events_->mutex);
    events_->thread = nullptr;
    events_->closure = nullptr;
  }
  if (event_thread_ != nullptr) event_thread_->Terminate();
  IntStop(false, nullptr);
  TComponent::BeforeDestruction();
}

std::shared_ptr<PQMediaOutput> TPQDSVideoOut::Graph() const {
  const std::lock_guard lock(graph_mutex_);
  return output_;
}

PQOutputStatistics TPQDSVideoOut::Statistics() const {
  const auto graph = Graph();
  return graph != nullptr ? graph->GetStatistics() : PQOutputStatistics();
}

TDSDigitalVideo TPQDSVideoOut::GetVC_DigitalVideo() const {
  const std::lock_guard lock(graph_mutex_);
  return digital_video_;
}

void TPQDSVideoOut::SetDigitalVideo(const TDSDigitalVideo& offer) {
  const std::lock_guard lock(graph_mutex_);
  digital_video_ = offer;
}

void TPQDSVideoOut::SetOnEvent(std::function<void(long event)> closure) {
  const std::lock_guard lock(events_->mutex);
  events_->closure = std::move(closure);
}

// --- what comes in --------------------------------------------------------------------------------------------------

TJCNotifyResult TPQDSVideoOut::VideoDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  // Whoever asks for the pace reads the answer when its call returns.
  if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
    ClaimPump(*request);
    return {};
  }
  Arrived(video_list_, op);
  return {};
}

TJCNotifyResult TPQDSVideoOut::AudioDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  if (JCOperation<TJCRWPauseOperation>(op) != nullptr) {
    Pause();
  } else if (JCOperation<TJCRWResumeOperation>(op) != nullptr) {
    Resume();
  } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
    ClaimPump(*request);
  } else {
    Arrived(audio_list_, op);
  }
  return {};
}

void TPQDSVideoOut::Arrived(List& list, IJCNotifyOperation& op) {
  const bool stop = IsStop(op);
  if (stop) list.stops.fetch_add(1);
  try {
    list.Push(PQOperationRef(&op));
  } catch (...) {
    if (stop) list.stops.fetch_sub(1);
    throw;
  }
  if (paused_.load() && !stop) return;
  const bool waiting = data_waiting_.load();
  {
    const std::lock_guard lock(drain_mutex_);
    drain_wanted_ = true;
    if (draining_ || notify_pending_ || ended_) return;
    if (waiting) {
      notify_pending_ = true;
    } else {
      draining_ = true;
      drainer_ = std::this_thread::get_id();
    }
  }
  if (waiting) {
    main_notify_->Notify();
  } else {
    Work();
  }
}

void TPQDSVideoOut::ProcessStreams(bool) {
  {
    const std::lock_guard lock(drain_mutex_);
    drain_wanted_ = true;
    if (draining_ || ended_) return;
    draining_ = true;
    drainer_ = std::this_thread::get_id();
  }
  Work();
}

// As the one who works on the lists, until there is nothing more to do; then gives that up.
void TPQDSVideoOut::Work() {
  const auto leave = [this] {
    draining_ = notify_pending_ = false;
    drainer_ = {};
    drain_changed_.notify_all();
  };
  try {
    for (;;) {
      {
        const std::lock_guard lock(drain_mutex_);
        drain_wanted_ = false;
      }
      for (bool consumed = true; consumed;) {
        consumed = false;
        if (PQOperationRef op = Next(video_list_)) consumed = IntVideoDispatch(std::move(op));
        if (PQOperationRef op = Next(audio_list_)) consumed = IntAudioDispatch(std::move(op)) || consumed;
        consumed = consumed || ObeyStops();
      }
      data_waiting_.store(false);
      const std::lock_guard lock(drain_mutex_);
      if (drain_wanted_ && !ended_) continue;
      leave();
      return;
    }
  } catch (...) {  // no memory: whoever sent the operation hears of it, and the next one goes on
    const std::lock_guard lock(drain_mutex_);
    leave();
    throw;
  }
}

// The head of a list, taken; empty if there is none, or while the picture is paused.
PQOperationRef TPQDSVideoOut::Next(List& list) {
  if (paused_.load()) return {};
  PQOperationRef op = list.Pop();
  if (op && IsStop(*op)) list.stops.fetch_sub(1);
  return op;
}

// A stop does not wait behind what cannot be played.
bool TPQDSVideoOut::ObeyStops() {
  if (audio_list_.stops.load() > 0) {
    video_started_ = audio_started_ = false;
  } else if (video_list_.stops.load() == 0) {
    return false;
  }
  IntStop(true, nullptr);
  return true;
}

// What belongs to a stream that ends now: all up to its stop, if that has come, else what comes before a new start.
// `stopped`: its stop has been taken already.
void TPQDSVideoOut::DropEnded(List& list, bool stopped) {
  const bool through_stop = !stopped && list.stops.load() > 0;
  while (const PQOperationRef op = list.Peek()) {
    const bool stop = IsStop(*op);
    if (!through_stop && (stop || JCOperation<TJCStartOperation>(*op) != nullptr)) return;
    (void)list.Pop();
    if (stop) {
      list.stops.fetch_sub(1);
      return;
    }
  }
}

void TPQDSVideoOut::DropAll(List& list) {
  while (const PQOperationRef op = list.Pop()) {
    if (IsStop(*op)) list.stops.fetch_sub(1);
  }
}

// Runs the action while nobody else works on the lists.
template <class Action>
void TPQDSVideoOut::Exclusively(Action action) {
  {
    std::unique_lock lock(drain_mutex_);
    if (draining_ && drainer_ == std::this_thread::get_id()) {
      lock.unlock();
      action();
      return;
    }
    drain_changed_.wait(lock, [this] { return !draining_; });
    draining_ = true;
    drainer_ = std::this_thread::get_id();
  }
  try {
    action();
  } catch (...) {
    const std::lock_guard lock(drain_mutex_);
    draining_ = false;
    drainer_ = {};
    drain_changed_.notify_all();
    throw;
  }
  Work();
}

void TPQDSVideoOut::ClaimPump(TJCPumpRequestOperation& request) {
  if (!enable_master_pumping_.load()) return;
  const std::int32_t priority = pump_priority_.load();
  if (request.Kind == 3 && request.Level >= priority) return;
  request.Master = this, request.Level = priority, request.Kind = 3;
  master_pumping_.store(true);
}

// True if the operation was consumed; otherwise it is back at the head of its list.
bool TPQDSVideoOut::IntVideoDispatch(PQOperationRef op) {
  if (auto* start = JCOperation<TJCStartFrameOperation>(*op)) {
    video_started_ = true;
    if (!enabled_.load()) return true;
    BeginVideo(start->Width, start->Height, start->Format, start->FrameDelay);
    master_pumping_.store(true);
  } else if (JCOperation<TJCStartPumpOperation>(*op) != nullptr) {
    // The source may answer inside the call, and must not do so inside its own.
    if (master_pumping_.load()) PostPump();
  } else if (JCOperation<TRWInternalStopOperation>(*op) != nullptr) {
    DestroyGraph();
    video_wanted_ = audio_wanted_ = false;
  } else if (JCOperation<TJCStopOperation>(*op) != nullptr) {
    IntStop(true, &video_list_);
  } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(*op)) {
    if (enabled_.load() && supplied->Buffer) return RenderImage(op, *supplied->Buffer);
  }
  return true;
}

bool TPQDSVideoOut::IntAudioDispatch(PQOperationRef op) {
  if (JCOperation<TJCIgnoreStreamOperation>(*op) != nullptr) {
    audio_ignored_ = true;
    AudioIsOver();
    if (!video_running_.load()) TryStart();
  } else if (auto* start = JCOperation<TJCStartWaveOperation>(*op)) {
    audio_started_ = true;
    audio_ignored_ = false;
    wave_format_ = start->Format;
    BeginAudio();
  } else if (JCOperation<TJCStopOperation>(*op) != nullptr) {
    video_started_ = audio_started_ = false;
    IntStop(true, &audio_list_);
  } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(*op)) {
    if (!supplied->Buffer) return true;
    if (!audio_wanted_) {
      if (wave_format_.samples_per_second < 1 || !enabled_.load()) return true;  // nobody has said what it is
      BeginAudio();
      data_waiting_.store(true);
      audio_list_.PushBack(std::move(op));
      return true;
    }
    return RenderAudio(op, supplied->Buffer);
  }
  return true;
}

// --- start ----------------------------------------------------------------------------------------------------------

void TPQDSVideoOut::BeginVideo(std::int32_t width, std::int32_t height, TPQVideoFormat format, std::int64_t period) {
  if (width < 1 || height < 1) return;
  width_ = width, height_ = height, format_ = format;
  period_ = PQKnownPeriod(period);
  video_wanted_ = true;
  TryStart();
}

void TPQDSVideoOut::BeginAudio() {
  audio_time_ = 0;
  audio_wanted_ = true;
  TryStart();
}

// No more sound comes: the frames do not wait for it any longer.
void TPQDSVideoOut::AudioIsOver() {
  audio_wanted_ = false;
  const auto graph = Graph();
  if (graph != nullptr && audio_source_ != 0) (void)graph->EndOfStream(audio_source_);
}

// Whether the open graph was built for something else.
bool TPQDSVideoOut::IsOutdated() const {
  if (device_changed_.load() || width_ != source_width_ || height_ != source_height_ || format_ != built_format_)
    return true;
  if (!audio_wanted_ || audio_device_.IsNone()) return false;
  return audio_source_ == 0 || !Same(wave_format_, source_wave_);
}

void TPQDSVideoOut::TryStart() {
  if (!video_wanted_ || (AudioInputPin.IsConnected() && !audio_ignored_ && !audio_wanted_)) return;
  const std::lock_guard control(control_mutex_);
  if (opened_ && IsOutdated()) {
    const bool pumping = master_pumping_.load();
    DestroyGraph();
    master_pumping_.store(pumping);  // what was claimed is claimed
  }
  if (!Open() || !StartRun()) return;
  video_running_.store(true);
  Advise(period_);
}

bool TPQDSVideoOut::Open() {
  if (opened_) return true;
  device_changed_.store(false);
  std::string name, device;
  PQPlatformResult result;
  if (!video_device_.GetMoniker(name, device, result)) {
    graph_.Error("Can't open the DV Device.", result);
    return false;
  }
  try {
    if (!InitCaptureFilters(device) || !BuildGraph()) {
      FreeFilters();
      return false;
    }
    video_device_.SetOpenDevice(name);
  } catch (...) {  // half built it shows nothing
    graph_.UnregisterGraph();
    Disconnect();
    throw;
  }
  opened_ = graph_built_ = true;
  return true;
}

bool TPQDSVideoOut::InitCaptureFilters(const std::string& device) {
  FreeFilters();
  PQPlatformResult result;
  PQMediaModule* const module = LoadMediaModule(result);
  if (module == nullptr) {
    graph_.Error("The media engine is not installed.", result);
    return false;
  }
  std::shared_ptr<PQMediaOutput> graph = module->CreateOutput(result);
  if (graph == nullptr || !result.Ok()) {
    graph_.Error("The media engine does not start.", result);
    return false;
  }
  {
    const std::lock_guard lock(graph_mutex_);
    output_ = graph;
  }
  if (graph_.Failed(graph->CreateCaptureBuilder(), kNoBuilder)) return false;
  if (!graph->CreateGraph().Ok()) return false;
  if (graph_.Failed(graph->SetFiltergraph(), kNoBuilder)) return false;
  (void)graph->RegisterAdditionalFilters();
  if (graph_.Failed(graph->BindDevice(PQDeviceCategory::VideoRenderer, device, render_),
             "Can't create video render filter.")) {
    return false;
  }
  return !graph_.Failed(graph->AddFilter(render_, "Video Render"), "Can't add video render filter.");
}

bool TPQDSVideoOut::CreateAudioRender() {
  const auto graph = Graph();
  std::string name, device;
  PQPlatformResult result;
  if (audio_device_.GetMoniker(name, device, result)) {
    result = graph->BindDevice(PQDeviceCategory::AudioRenderer, device, audio_render_);
  }
  if (graph_.Failed(result, "Can't create audio render filter.")) return false;
  if (graph_.Failed(graph->AddFilter(audio_render_, "Audio Render"), "Can't add audio render filter.")) return false;
  audio_device_.SetOpenDevice(name);
  return true;
}

bool TPQDSVideoOut::BuildGraph() {
  const auto graph = Graph();
  if (graph == nullptr || !IntBuildGraph(*graph)) return false;
  graph_.RegisterGraph();
  graph_.BeforeRun();
  return true;
}

bool TPQDSVideoOut::IntBuildGraph(PQMediaOutput& graph) {
  if (graph_.Failed(graph.QueryMediaControl(), kNoControl)) return false;

  // Half a pair of pixels exists in no device's input: frames of odd width go as RGB.
  source_format_ = format_ == vfYUY2 && width_ % 2 == 0 ? vfYUY2 : vfRGB24;
  const PQVideoSubtype subtype = source_format_ == vfYUY2 ? PQVideoSubtype::Yuy2 : PQVideoSubtype::Rgb24;
  if (graph_.Failed(graph.CreateFilter(PQOutputFilter::VideoSource, subtype, video_source_), kNoVideoSource)) return false;
  if (graph_.Failed(graph.SetVideoSize(video_source_, width_, height_, period_), kNoVideoSource)) return false;
  if (graph_.Failed(graph.AddFilter(video_source_, "VideoSource"), kNoVideoSource)) return false;
  source_width_ = width_, source_height_ = height_, built_format_ = format_;

  if (audio_wanted_ && !audio_device_.IsNone()) {
    const PQAudioFormat format{wave_format_.samples_per_second, wave_format_.channels, wave_format_.bits_per_sample};
    if (graph_.Failed(graph.CreateFilter(PQOutputFilter::AudioSource, subtype, audio_source_), kNoAudioSource)) return false;
    if (graph_.Failed(graph.SetAudioFormat(audio_source_, format), kNoAudioSource)) return false;
    if (graph_.Failed(graph.AddFilter(audio_source_, "AudioSource"), kNoAudioSource)) return false;
    source_wave_ = wave_format_;
  }
  const bool default_audio = audio_device_.IsDefault();
  if (!default_audio && !audio_device_.IsNone() && !CreateAudioRender()) return false;

  const PQDigitalVideoOffer offer = graph.QueryDigitalVideo(render_);
  SetDigitalVideo({offer.transport, offer.timecode_reader, offer.device});

  bool audio_wired = false;
  if (!graph.Render(video_source_, 0, render_).Ok()) {
    // The device needs digital video, and the graph is given what that takes.
    PQFilterId mux = 0, encoder = 0, converter = 0, wrapper = 0;
    if (graph_.Failed(graph.CreateFilter(PQOutputFilter::DVMux, subtype, mux), "Can't create DV Mux.")) return false;
    (void)graph.AddFilter(mux, "DV Mux");
    if (graph_.Failed(graph.CreateFilter(PQOutputFilter::DVEncoder, subtype, encoder), "Can't create DV Encoder."))
      return false;
    (void)graph.AddFilter(encoder, "DV Encoder");
    if (graph.QueryDVEncoder(encoder).Ok()) {
      dv_format_.BindEncoder(Graph(), encoder);
      dv_format_.ApplyFormats();
    }
    if (graph.CreateFilter(PQOutputFilter::ColorConverter, subtype, converter).Ok()) {
      (void)graph.AddFilter(converter, "Color Converter");
    }
    if (graph_.Failed(graph.Render(video_source_, 0, render_), kNoVideoOutput)) return false;
    if (audio_wanted_ && default_audio) {
      if (graph_.Failed(graph.CreateFilter(PQOutputFilter::AudioWrapper, subtype, wrapper), "Can't create ACM Wrapper."))
        return false;
      (void)graph.AddFilter(wrapper, "ACM Wrapper");
      if (audio_source_ != 0) {
        if (graph_.Failed(graph.Render(audio_source_, wrapper, mux), kNoAudioOutput)) return false;
        audio_wired = true;
      }
    }
  }
  if (!audio_wired && audio_source_ != 0) {
    if (audio_render_ == 0 && !CreateAudioRender()) return false;
    if (graph_.Failed(graph.Render(audio_source_, 0, audio_render_), kNoAudioOutput)) return false;
  }

  if (event_thread_ == nullptr) {
    event_thread_ = std::make_unique<TRWNotifyThread>([this] { OnEvents(); });
    const std::lock_guard lock(events_->mutex);
    events_->thread = event_thread_.get();
  }
  graph.SetMediaEvent([events = events_](long code, const PQPlatformResult& why) {
    const std::lock_guard lock(events->mutex);
    if (events->thread == nullptr) return;
    try {
      events->told.emplace_back(code, why);
    } catch (...) {  // nothing is thrown through the platform's code
      ReportCaught(nullptr, "an event of the output device was lost");
    }
    events->thread->Notify();
  });
  return !graph_.Failed(graph.QueryMediaFilter(), "Can't obtain IMediaFilter.");
}

bool TPQDSVideoOut::StartRun() {
  video_time_ = audio_time_ = 0;
  Unadvise();
  size_told_ = sound_told_ = false;
  const auto graph = Graph();
  if (graph == nullptr) {
    graph_.Error(kNoStart, {kPlatformState, "there is no graph"});
    return false;
  }
  if (video_running_.exchange(false)) (void)graph->Stop();
  flushing_.store(false);
  const PQPlatformResult result = graph->Run();
  if (!result.Ok()) {
    (void)graph->Stop();
    graph_.Error(kNoStart, result);
    return false;
  }
  if (held_.load()) (void)graph->Pause(true);
  const std::lock_guard lock(clock_mutex_);
  clock_ = enable_master_pumping_.load() ? graph->GetClock() : nullptr;
  return true;
}

// --- end ------------------------------------------------------------------------------------------------------------

// `taken`: the list whose stop it is, if that was taken from it. What was sent for a later start stays.
void TPQDSVideoOut::IntStop(bool keep_tail, const List* taken) {
  if (keep_tail) {
    graph_.Ending([this] {
      if (video_running_.load() && !paused_.load() && !held_.load() && !flushing_.load()) PlayTail();
    });
    DropEnded(video_list_, taken == &video_list_);
    DropEnded(audio_list_, taken == &audio_list_);
  } else {
    DropAll(video_list_);
    DropAll(audio_list_);
  }
  paused_.store(false);
  video_started_ = audio_started_ = audio_ignored_ = false;
  DestroyGraph();
  video_wanted_ = audio_wanted_ = false;
  wave_format_ = {};
  width_ = height_ = 0;
}

// What waits goes into the device, and neither stream holds the other any more; then the device plays it to its end.
void TPQDSVideoOut::PlayTail() {
  const auto graph = Graph();
  if (graph == nullptr) return;
  const auto deadline = SteadyClock::now() + kTailLimit;
  const auto next = [](const TRWOperationList& list) -> PQOperationRef {
    PQOperationRef op = list.Peek();
    return op && JCOperation<TJCSuppliedBufferOperation>(*op) != nullptr ? op : PQOperationRef();
  };
  for (bool more = true; more && SteadyClock::now() < deadline;) {
    more = false;
    const PQOperationRef sound = SoundPlays() ? next(audio_list_) : PQOperationRef();
    if (sound && audio_time_ <= video_time_) {
      const PQDataBufferRef& data = JCOperation<TJCSuppliedBufferOperation>(*sound)->Buffer;
      const auto* block = PQCast<const THTAudioBuffer>(data.Get());
      more = block == nullptr || !IsAnnounced(*block) || IntRenderAudio(*block, data) == block->GetByteSize();
      if (more) (void)audio_list_.Pop();
      continue;
    }
    if (const PQOperationRef frame = next(video_list_)) {
      const PQDataBufferRef& data = JCOperation<TJCSuppliedBufferOperation>(*frame)->Buffer;
      more = !data || SendImage(*data);
      if (more) (void)video_list_.Pop();
    } else if (sound) {
      video_time_ = audio_time_;
      more = true;
    }
  }
  (void)graph->EndOfStream(video_source_);
  if (audio_source_ != 0) (void)graph->EndOfStream(audio_source_);
  (void)graph->Drain(RemainingMilliseconds(deadline));
}

void TPQDSVideoOut::Stop() {
  {
    const std::lock_guard control(control_mutex_);
    graph_.Ending([this] {
      if (const auto graph = Graph()) (void)graph->Stop();
    });
    video_running_.store(false);
  }
  graph_.Ending([this] { Unadvise(); });
  {
    const std::lock_guard lock(clock_mutex_);
    clock_.reset();
  }
  master_pumping_.store(false);
}

void TPQDSVideoOut::Pause() {
  const std::lock_guard control(control_mutex_);
  if (paused_.exchange(true)) return;
  const auto graph = Graph();
  if (graph != nullptr && video_running_.load()) (void)graph->Pause(false);
}

void TPQDSVideoOut::Resume() {
  {
    const std::lock_guard control(control_mutex_);
    if (!paused_.exchange(false)) return;
    const auto graph = Graph();
    if (graph != nullptr && video_running_.load()) {
      (void)graph->Run();
      if (held_.load()) (void)graph->Pause(true);
    }
  }
  ProcessStreams(false);
}

void TPQDSVideoOut::Hold(bool on) {
  const std::lock_guard control(control_mutex_);
  if (held_.exchange(on) == on || paused_.load()) return;
  const auto graph = Graph();
  if (graph == nullptr || !video_running_.load()) return;
  (void)(on ? graph->Pause(true) : graph->Run());
}

bool TPQDSVideoOut::Step() {
  const std::lock_guard control(control_mutex_);
  const auto graph = Graph();
  return graph != nullptr && held_.load() && video_running_.load() && graph->Step().Ok();
}

void TPQDSVideoOut::Flush() {
  flushing_.store(true);
  if (const auto graph = Graph()) graph->Interrupt();
  Exclusively([this] {
    DropAll(video_list_);
    DropAll(audio_list_);
  });
}

void TPQDSVideoOut::FreeFilters() {
  dv_format_.BindEncoder(nullptr, 0);
  std::shared_ptr<PQMediaOutput> graph;  // dies outside the mutex
  {
    const std::lock_guard lock(graph_mutex_);
    graph.swap(output_);
    digital_video_ = {};
  }
  render_ = audio_render_ = video_source_ = audio_source_ = 0;
}

void TPQDSVideoOut::Disconnect() {
  FreeFilters();
  video_device_.CloseDevice();
  audio_device_.CloseDevice();
  opened_ = graph_built_ = false;
  const std::lock_guard lock(events_->mutex);
  events_->told.clear();  // by a graph that is gone
}

void TPQDSVideoOut::DestroyGraph() {
  const std::lock_guard control(control_mutex_);
  if (!graph_built_) return;
  Stop();
  graph_.UnregisterGraph();
  Disconnect();
}

// Whoever waits in the device is released first; it works on the lists.
void TPQDSVideoOut::Abandon() {
  if (const auto graph = Graph()) graph->Interrupt();
  JCAtSectionEnd([this, alive = alive_] {
    if (!alive->load()) return;
    if (const auto graph = Graph()) graph->Interrupt();
    Exclusively([this] { IntStop(false, nullptr); });
  });
}

// --- frames and sound -----------------------------------------------------------------------------------------------

bool TPQDSVideoOut::RenderImage(const PQOperationRef& op, const IRWDataBuffer& data) {
  if (flushing_.load()) return true;
  if (video_source_ == 0 || (SoundPlays() && video_time_ >= audio_time_) || !SendImage(data)) {
    video_list_.PushBack(op);
    return false;
  }
  return true;
}

// False if the device has no room now.
bool TPQDSVideoOut::SendImage(const IRWDataBuffer& data) {
  const auto graph = Graph();
  if (graph == nullptr) return false;
  auto image = PQMakeRef<TPQImageBuffer>(data);
  if (image->GetWidth() < 1 || image->GetHeight() < 1) return true;
  const TBXTimeStamp& stamp = data.GetTimeStamp();
  std::int64_t duration = period_;
  if (stamp.GetAvailable()) {
    const auto length = static_cast<std::uint64_t>(stamp.GetEnd()) - static_cast<std::uint64_t>(stamp.GetBegin());
    if (length >= 1 && length <= kLongestFrame) duration = static_cast<std::int64_t>(length);
  }
  Advise(duration);

  image->SetFormat(source_format_);
  if (image->GetWidth() != source_width_ || image->GetHeight() != source_height_) {
    if (!size_told_) {
      size_told_ = true;
      Report(this, PQSeverity::Warning,
             "a frame of " + std::to_string(image->GetWidth()) + " by " + std::to_string(image->GetHeight()) +
                 " came where " + std::to_string(source_width_) + " by " + std::to_string(source_height_) +
                 " was announced: it lies at the top left");
    }
    image = PQOnPage(*image, source_width_, source_height_);
  }
  PQPlatformBlock block;
  block.begin = video_time_;
  block.end = video_time_ + duration;
  block.data = image->Read();
  block.step = image->GetStep();
  block.size = static_cast<std::size_t>(image->GetByteSize());
  block.keep_alive = PQHoldFrame(image->Storage());
  if (graph->SendVideo(video_source_, block).code == kPlatformTimeout) return false;
  video_time_ += duration;
  return true;
}

bool TPQDSVideoOut::RenderAudio(const PQOperationRef& op, const PQDataBufferRef& data) {
  if (flushing_.load() || !enabled_.load() || audio_device_.IsNone()) return true;
  const auto* sound = PQCast<const THTAudioBuffer>(data.Get());
  if (sound == nullptr || sound->GetSamples() < 1) return true;
  if (audio_source_ == 0 || audio_time_ > video_time_) {
    audio_list_.PushBack(op);
    return false;
  }
  if (!IsAnnounced(*sound)) {
    if (!sound_told_) {
      sound_told_ = true;
      Report(this, PQSeverity::Warning, "sound in another form than was announced is left out");
    }
    return true;
  }
  const std::int32_t taken = IntRenderAudio(*sound, data);
  if (taken >= sound->GetByteSize() || flushing_.load()) return true;
  if (taken == 0) {
    audio_list_.PushBack(op);
    return false;
  }
  // What is left goes first when there is room again.
  const std::int32_t samples = taken / source_wave_.BlockAlign();
  auto rest = PQMakeRef<THTAudioBuffer>(sound->GetSamples() - samples, sound->GetChannels(), sound->GetBitsPerSample());
  rest->SetFormat(sound->GetSampleRate());
  std::memcpy(rest->WriteData(), static_cast<const std::uint8_t*>(sound->ReadData()) + taken,
              static_cast<std::size_t>(rest->GetByteSize()));
  rest->GetTimeStamp() = sound->GetTimeStamp();
  rest->GetSequenceStamp() = sound->GetSequenceStamp();
  audio_list_.PushBack(PQMakeRef<TJCSuppliedBufferOperation>(std::move(rest)));
  return true;
}

bool TPQDSVideoOut::IsAnnounced(const THTAudioBuffer& sound) const {
  return sound.GetChannels() == source_wave_.channels && sound.GetBitsPerSample() == source_wave_.bits_per_sample;
}

// Sends what the device takes now; how many bytes that were. The sound's clock moves by their length or, for a block
// without a stamp, by the frame period for the whole of it.
std::int32_t TPQDSVideoOut::IntRenderAudio(const THTAudioBuffer& sound, const PQDataBufferRef& data) {
  const auto graph = Graph();
  if (graph == nullptr) return 0;
  const std::int64_t bytes_per_second =
      std::max<std::int64_t>(std::int64_t{source_wave_.samples_per_second} * source_wave_.BlockAlign(), 1);
  const std::int64_t size = sound.GetByteSize();
  if (size < 1) return 0;
  const auto length = [&](std::int64_t bytes) {
    return sound.GetTimeStamp().GetAvailable() ? bytes * 10000000 / bytes_per_second : period_ * bytes / size;
  };
  PQPlatformBlock block;
  block.begin = audio_time_;
  block.end = audio_time_ + length(size);
  block.data = static_cast<const std::uint8_t*>(sound.ReadData());
  block.size = static_cast<std::size_t>(size);
  block.keep_alive = std::make_shared<PQDataBufferRef>(data);
  std::size_t taken = 0;
  (void)graph->SendAudio(audio_source_, block, taken);
  audio_time_ += length(static_cast<std::int64_t>(taken));
  return static_cast<std::int32_t>(taken);
}

// --- the device's clock ---------------------------------------------------------------------------------------------

void TPQDSVideoOut::PostPump() {
  std::shared_ptr<TRWClockThread> thread;
  {
    const std::lock_guard lock(clock_mutex_);
    if (!alive_->load()) return;
    if (clock_thread_ == nullptr) clock_thread_ = std::make_shared<TRWClockThread>([this] { OnThreadClockEvent(); });
    thread = clock_thread_;
  }
  thread->Clock();
}

void TPQDSVideoOut::Advise(std::int64_t duration) {
  const std::lock_guard lock(clock_mutex_);
  if (clock_ == nullptr || (advised_ && duration / 4 == period_in_effect_ / 4)) return;
  if (cookie_ != 0) clock_->Unadvise(std::exchange(cookie_, 0));
  if (clock_thread_ == nullptr) clock_thread_ = std::make_shared<TRWClockThread>([this] { OnThreadClockEvent(); });
  std::int64_t now = 0;
  (void)clock_->GetTime(now);
  period_in_effect_ = duration;
  advised_ = true;
  const std::int64_t period = std::max(duration, kShortestTick);
  const auto tick = [thread = std::weak_ptr(clock_thread_)] {
    const auto worker = thread.lock();
    if (worker != nullptr && worker->Pending() < kMostPumps) worker->Clock();
  };
  if (clock_->AdvisePeriodic(now + period, period, tick, cookie_).Ok()) return;
  if (event_clock_thread_ == nullptr) {
    event_clock_thread_ = std::make_shared<TRWEventClockThread>([this] { OnThreadEventClockEvent(); });
  }
  clock_origin_ = now;
  clock_sum_ = period;
  (void)clock_->AdviseTime(
      now, period,
      [thread = std::weak_ptr(event_clock_thread_)] {
        if (const auto worker = thread.lock()) worker->SetEvent();
      },
      cookie_);
}

void TPQDSVideoOut::Unadvise() {
  const std::lock_guard lock(clock_mutex_);
  if (clock_ != nullptr && cookie_ != 0) clock_->Unadvise(cookie_);
  cookie_ = 0;
  advised_ = false;
  period_in_effect_ = clock_origin_ = clock_sum_ = 0;
}

void TPQDSVideoOut::OnThreadClockEvent() {
  if (paused_.load() || held_.load()) return;
  const auto global = JCGlobalLock().WriteLock();
  InputPin.MasterPump(this);
}

// Makes periodic advice of the advice for one time that the clock gives: each is counted from the time that the last
// one was for, so that lateness does not add up.
void TPQDSVideoOut::OnThreadEventClockEvent() {
  const std::lock_guard lock(clock_mutex_);
  if (clock_ == nullptr || !advised_ || clock_thread_ == nullptr) return;
  if (clock_thread_->Pending() < kMostPumps) clock_thread_->Clock();
  std::int64_t now = 0;
  (void)clock_->GetTime(now);
  if (cookie_ != 0) clock_->Unadvise(std::exchange(cookie_, 0));
  const std::int64_t period = std::max(period_in_effect_, kShortestTick);
  if (clock_origin_ + clock_sum_ + period <= now) clock_origin_ = now - clock_sum_;
  (void)clock_->AdviseTime(
      clock_origin_ + clock_sum_, period,
      [thread = std::weak_ptr(event_clock_thread_)] {
        if (const auto worker = thread.lock()) worker->SetEvent();
      },
      cookie_);
  clock_sum_ += period;
}

// --- what the graph tells -------------------------------------------------------------------------------------------

void TPQDSVideoOut::OnEvents() {
  for (;;) {
    std::pair<long, PQPlatformResult> event;
    {
      const std::lock_guard lock(events_->mutex);
      if (events_->thread == nullptr || events_->told.empty()) return;
      event = std::move(events_->told.front());
      events_->told.pop_front();
    }
    GraphEvent(event.first, event.second);
    std::function<void(long)> closure;
    {
      const std::lock_guard lock(events_->mutex);
      closure = events_->closure;
    }
    if (closure) closure(event.first);
  }
}

void TPQDSVideoOut::GraphEvent(long code, const PQPlatformResult& why) {
  if (code == kOutputUserAbort) {
    DoAborted();
  } else if (code == kOutputDeviceLost) {
    DoDeviceLost(why);
  }
}

void TPQDSVideoOut::DoAborted() {
  Stop();
  Report(this, PQSeverity::Note, "the window was closed", kOutputUserAbort);
}

void TPQDSVideoOut::DoDeviceLost(const PQPlatformResult& why) {
  Stop();
  Report(this, PQSeverity::Error, "the output device was lost", why.code, why.detail);
}

void PQDSVideoOut::Register() {
  const PQClassInfo* const classes[] = {&TPQDSVideoOut::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
