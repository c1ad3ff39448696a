#include "pantiq/flow/PQQueuedSwitch.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"

namespace pantiq {

constinit const PQClassTag TPQQueuedInputQueuing::kTag{"TPQQueuedInputQueuing", &TPersistent::kTag};
constinit const PQClassTag TPQQueuedInputItem::kTag{"TPQQueuedInputItem", &TCollectionItem::kTag};
constinit const PQClassTag TPQQueuedInputs::kTag{"TPQQueuedInputs", &TCollection::kTag};
constinit const PQClassTag TPQQueuedSwitch::kTag{"TPQQueuedSwitch", &TComponent::kTag};

// --- channel --------------------------------------------------------------------------------------------------------

// What a channel is to the streams. It outlives its item as long as somebody walks over the channels.
class PQQueuedChannel {
 public:
  explicit PQQueuedChannel(TPQQueuedSwitch& owner)
      : switch_(owner),
        queuing(lock),
        InputPin(owner, JCDispatch::To<&PQQueuedChannel::VideoSinkDispatch>(this)),
        AudioInputPin(owner, JCDispatch::To<&PQQueuedChannel::AudioSinkDispatch>(this)) {}

  TJCNotifyResult VideoSinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  TJCNotifyResult AudioSinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

  TPQQueuedSwitch& Switch() const { return switch_; }
  bool Active() const { return switch_.IsActive(*this); }
  int GetActiveStreamsCount() const { return (video_seen.load() ? 1 : 0) + (audio_seen.load() ? 1 : 0); }
  PQOperationRef GetVideoBuffer() {
    const TPQQueuedInputQueuingValues how = queuing.Get();
    return how.enabled || !how.preserve_last_frame ? VideoQueue.Pop() : VideoQueue.Peek();
  }
  void Flush() {
    VideoQueue.Clear();
    AudioQueue.Clear();
  }

 private:
  TPQQueuedSwitch& switch_;
  TJCObject lock;

 public:
  TPQQueuedInputQueuing queuing;
  std::atomic<int> index{-1};  // among the channels
  std::atomic<std::int32_t> threshold_max{100}, threshold_min{30};
  TPQQueuedSwitch::Event on_threshold_min, on_threshold_max;  // under the switch's mutex
  TRWOperationList VideoQueue, AudioQueue;
  std::atomic<bool> video_started{false}, audio_started{false};  // the stream is live
  std::atomic<bool> video_seen{false}, audio_seen{false};        // it counts among the active streams
  std::atomic<bool> paused{false};
  TPQJCImageSinkPin InputPin;
  THTJCAudioSinkPin AudioInputPin;
};

TJCNotifyResult PQQueuedChannel::VideoSinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op,
                                                   TJCNotifyFlags flags) {
  if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
    video_started.store(true);
    video_seen.store(true);
    if (Active()) switch_.ChannelVideoStart(*start, flags);
    paused.store(false);
  } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
    video_started.store(false);
    if (Active()) switch_.ChannelVideoStop();
  } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
    switch_.RequestPump(*request, flags);
  } else if (JCOperation<TJCStartPumpOperation>(op) != nullptr) {
    if (Active()) switch_.StartPump();
  } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    PQImageRef frame = supplied->Buffer ? PQMakeRef<TPQImageBuffer>(*supplied->Buffer) : PQMakeRef<TPQImageBuffer>();
    const int depth = VideoQueue.Push(PQMakeRef<TJCSuppliedBufferOperation>(std::move(frame)), !queuing.GetEnabled());
    switch_.VideoBufferAdded();
    if (depth > threshold_max.load()) switch_.Fire(switch_.GetEvent(on_threshold_max), "OnThresholdMax");
  } else if (JCOperation<TJCRWPauseOperation>(op) != nullptr) {
    paused.store(true);
    switch_.OutputPin.Notify(op, flags);
    switch_.AudioOutputPin.Notify(op, flags);
  } else if (JCOperation<TJCRWResumeOperation>(op) != nullptr) {
    paused.store(false);
    switch_.AudioOutputPin.Notify(op, flags);
  }
  return {};
}

TJCNotifyResult PQQueuedChannel::AudioSinkDispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op,
                                                   TJCNotifyFlags flags) {
  if (auto* start = JCOperation<TJCStartWaveOperation>(op)) {
    audio_started.store(true);
    audio_seen.store(true);
    if (Active()) switch_.ChannelAudioStart(*start, flags);
  } else if (JCOperation<TJCIgnoreStreamOperation>(op) != nullptr) {
    if (Active()) switch_.SetIgnoreAudio();
  } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
    audio_started.store(false);
    if (Active()) switch_.ChannelAudioStop();
  } else if (JCOperation<TJCRWResumeOperation>(op) != nullptr) {
    if (Active()) switch_.ResumeAudio();
  } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
    if (request->Kind == 2 && request->Level > TPQQueuedSwitch::pump_level_) return {};
    request->Master = &switch_, request->Level = TPQQueuedSwitch::pump_level_, request->Kind = 3;
    switch_.is_master_.store(true);
  } else if (JCOperation<TJCStartPumpOperation>(op) != nullptr) {
    if (Active()) switch_.StartPump();
  } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
    if (switch_.ignore_audio_.load()) return {};
    if (supplied->Buffer && (Active() || queuing.GetEnabled())) {
      auto sound = PQMakeRef<THTAudioBuffer>(0, 0, 0);
      sound->Assign(*supplied->Buffer);
      AudioQueue.Push(PQMakeRef<TJCSuppliedBufferOperation>(std::move(sound)));
    }
    switch_.AudioBufferAdded();
  }
  return {};
}

// --- items ----------------------------------------------------------------------------------------------------------

const PQClassInfo& TPQQueuedInputQueuing::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQQueuedInputQueuing>("TPQQueuedInputQueuing", "PQQueuedSwitch", "How a channel keeps what arrives.")
          .Property("Enabled", &TPQQueuedInputQueuing::GetEnabled, &TPQQueuedInputQueuing::SetEnabled, PQDefault(false),
                    "True queues every frame; false lets a frame take the place of what was waiting.")
          .Property("PreserveLastFrame", &TPQQueuedInputQueuing::GetPreserveLastFrame,
                    &TPQQueuedInputQueuing::SetPreserveLastFrame, PQDefault(false),
                    "Without queuing: the last frame stays and leaves again each time that the switch is woken.")
          .Done();
  return info;
}

const PQClassInfo& TPQQueuedInputItem::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQQueuedInputItem>("TPQQueuedInputItem", "PQQueuedSwitch", "A channel of a queued switch.")
          .Inherits<TCollectionItem>()
          .Property("Active", &TPQQueuedInputItem::GetActive, &TPQQueuedInputItem::SetActive, PQDefault(false),
                    PQActs::Now, PQNotStored(), "Whether this channel plays; writing makes it the one that does.")
          .Property("ThresholdMax", &TPQQueuedInputItem::GetThresholdMax, &TPQQueuedInputItem::SetThresholdMax,
                    PQDefault(100), PQUseful(1, 1000), PQUnit("frames"),
                    "More frames waiting than this are told by an event.")
          .Property(
              "ThresholdMin", &TPQQueuedInputItem::GetThresholdMin, &TPQQueuedInputItem::SetThresholdMin, PQDefault(30),
              PQUseful(0, 100), PQUnit("frames"),
              "With fewer frames waiting than this the channel is asked for more, where the switch sets the pace.")
          .Object("Queuing", &TPQQueuedInputItem::GetQueuing, "How the channel keeps what arrives.")
          .Pin("InputPin", &TPQQueuedInputItem::GetInputPin, "Frames in.")
          .Pin("AudioInputPin", &TPQQueuedInputItem::GetAudioInputPin, "Sound in.")
          .Gauge("VideoQueued", &TPQQueuedInputItem::GetVideoQueued, PQUnit("frames"), "Frames waiting now.")
          .Gauge("AudioQueued", &TPQQueuedInputItem::GetAudioQueued, PQUnit("blocks"), "Blocks of sound waiting now.")
          .Done();
  return info;
}

TPQQueuedInputItem::TPQQueuedInputItem(TPQQueuedInputs* inputs)
    : TCollectionItem(inputs), channel_(std::make_shared<PQQueuedChannel>(inputs->GetSwitch())) {
  TPQQueuedSwitch& owner = inputs->GetSwitch();
  owner.InputPins.Add(channel_->InputPin);
  owner.AudioInputPins.Add(channel_->AudioInputPin);
  owner.OutputPin.FunctionSinkPins.Add(channel_->InputPin, true);  // a switch that fed itself would not come to an end
  owner.AudioOutputPin.FunctionSinkPins.Add(channel_->AudioInputPin, true);
}

TPQQueuedInputItem::~TPQQueuedInputItem() {
  TPQQueuedSwitch& owner = channel_->Switch();
  owner.OutputPin.FunctionSinkPins.Remove(channel_->InputPin);
  owner.AudioOutputPin.FunctionSinkPins.Remove(channel_->AudioInputPin);
  owner.InputPins.Remove(channel_->InputPin);
  owner.AudioInputPins.Remove(channel_->AudioInputPin);
  channel_->InputPin.Disconnect();
  channel_->AudioInputPin.Disconnect();
  channel_->index.store(-1);
  channel_->Flush();
}

bool TPQQueuedInputItem::GetActive() const { return channel_->Active(); }
void TPQQueuedInputItem::SetActive(bool) {
  channel_->Switch().SetActiveChannel(*channel_);
}
std::int32_t TPQQueuedInputItem::GetThresholdMax() const { return channel_->threshold_max.load(); }
void TPQQueuedInputItem::SetThresholdMax(std::int32_t frames) { channel_->threshold_max.store(frames); }
std::int32_t TPQQueuedInputItem::GetThresholdMin() const { return channel_->threshold_min.load(); }
void TPQQueuedInputItem::SetThresholdMin(std::int32_t frames) { channel_->threshold_min.store(frames); }
TPQQueuedInputQueuing& TPQQueuedInputItem::GetQueuing() { return channel_->queuing; }
void TPQQueuedInputItem::SetOnThresholdMin(PQQueuedSwitchEvent event) {
  channel_->Switch().SetEvent(channel_->on_threshold_min, std::move(event));
}
void TPQQueuedInputItem::SetOnThresholdMax(PQQueuedSwitchEvent event) {
  channel_->Switch().SetEvent(channel_->on_threshold_max, std::move(event));
}
TPQJCImageSinkPin& TPQQueuedInputItem::GetInputPin() { return channel_->InputPin; }
THTJCAudioSinkPin& TPQQueuedInputItem::GetAudioInputPin() { return channel_->AudioInputPin; }
std::int32_t TPQQueuedInputItem::GetVideoQueued() const { return channel_->VideoQueue.ItemsCount(); }
std::int32_t TPQQueuedInputItem::GetAudioQueued() const { return channel_->AudioQueue.ItemsCount(); }
void TPQQueuedInputItem::Flush() { channel_->Flush(); }

void TPQQueuedInputItem::SetIndex(int index) {
  TCollection& items = *GetCollection();
  const int present = GetIndex();
  if (index < 0 || index >= items.GetCount() || index == present) return;
  TPQQueuedSwitch& owner = channel_->Switch();
  owner.InputPins.Swap(owner.InputPins.IndexOf(channel_->InputPin), index);
  owner.AudioInputPins.Swap(owner.AudioInputPins.IndexOf(channel_->AudioInputPin), index);
  items.Move(present, index);
}

const PQClassInfo& TPQQueuedInputs::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQQueuedInputs>("TPQQueuedInputs", "PQQueuedSwitch", "The channels of a queued switch.").Done();
  return info;
}

void TPQQueuedInputs::SetItem(int index, const TPQQueuedInputItem& source) {
  if (TPQQueuedInputItem* item = GetItem(index)) item->Assign(source);
}

void TPQQueuedInputs::Update(TCollectionItem* item) {
  if (item == nullptr) switch_.ChannelsChanged();
}

// --- the switch -----------------------------------------------------------------------------------------------------

const PQClassInfo& TPQQueuedSwitch::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQQueuedSwitch>("TPQQueuedSwitch", "PQQueuedSwitch",
                                  "Plays channels of video and sound in turn, each queued until it is its turn.")
          .Inherits<TComponent>()
          .Collection("InputChannels", &TPQQueuedSwitch::GetInputChannels, PQActs::Now,
                      "The channels, in the order in which they play. A connection to the switch as such makes one.")
          .Property("ActiveChannelIndex", &TPQQueuedSwitch::GetActiveChannelIndex,
                    &TPQQueuedSwitch::SetActiveChannelIndex, PQDefault(0), PQUseful(0, 100), PQActs::Now, PQOrder(1),
                    "The channel that plays, from 0; kept within the channels, -1 if there are none.")
          .Pin("OutputPin", &TPQQueuedSwitch::OutputPin, "Frames of the channel that plays.")
          .Pin("AudioOutputPin", &TPQQueuedSwitch::AudioOutputPin, "Sound of the channel that plays.")
          .Pin("InputPins", &TPQQueuedSwitch::InputPins, PQNotStored(), "The channels' inputs for frames.")
          .Pin("AudioInputPins", &TPQQueuedSwitch::AudioInputPins, PQNotStored(), "The channels' inputs for sound.")
          .Property("Paused", &TPQQueuedSwitch::GetPaused, &TPQQueuedSwitch::SetPaused, PQDefault(false), PQActs::Now,
                    "True holds everything back; the queues go on growing.")
          .Done();
  return info;
}

TPQQueuedSwitch::TPQQueuedSwitch(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQQueuedSwitch::VideoDispatchOperation>(this)),
      AudioOutputPin(*this, JCDispatch::To<&TPQQueuedSwitch::AudioDispatchOperation>(this)),
      InputPins(this, false),
      AudioInputPins(this, false),
      clock_thread_([this] { OnThreadClockEvent(); }) {
  OutputPin.AddShareLock(lock_);
  AudioOutputPin.AddShareLock(lock_);
  InputPins.SetMakePin([this] { return &inputs_.Add()->GetInputPin(); });
  AudioInputPins.SetMakePin([this] { return &inputs_.Add()->GetAudioInputPin(); });
}

TPQQueuedSwitch::~TPQQueuedSwitch() {
  BeforeDestructionOnce();
  alive_->store(false);
}

void TPQQueuedSwitch::BeforeDestruction() {
  // The thread takes the locks below: it ends before they are held. From the thread itself, when its run has ended.
  clock_thread_.Terminate();
  RemoveTimer();
  {
    auto global = JCGlobalLock().WriteLock();
    auto section = OutputPin.WriteLock();
    OutputPin.StopAtEnd();
    AudioOutputPin.StopAtEnd();
    OutputPin.Disconnect();
    AudioOutputPin.Disconnect();
    video_pending_.store(0);
    audio_pending_.store(0);
    for (const ChannelRef& channel : *AllChannels()) {
      channel->InputPin.Disconnect();
      channel->AudioInputPin.Disconnect();
      channel->Flush();
    }
  }
  TComponent::BeforeDestruction();
}

void TPQQueuedSwitch::Loaded() {
  TComponent::Loaded();
  SetActiveChannelIndex(GetActiveChannelIndex());
}

// --- channels and events ---

std::shared_ptr<const TPQQueuedSwitch::Channels> TPQQueuedSwitch::AllChannels() const {
  std::lock_guard guard(mutex_);
  return channels_;
}

TPQQueuedSwitch::ChannelRef TPQQueuedSwitch::ActiveChannel() const {
  const auto channels = AllChannels();
  const std::int32_t index = active_index_.load();
  return index < 0 || index >= static_cast<std::int32_t>(channels->size())
             ? nullptr
             : (*channels)[static_cast<std::size_t>(index)];
}

bool TPQQueuedSwitch::IsActive(const PQQueuedChannel& channel) const {
  const int index = channel.index.load();
  return index >= 0 && index == active_index_.load();
}

void TPQQueuedSwitch::ChannelsChanged() {
  auto fresh = std::make_shared<Channels>();
  for (int i = 0; i < inputs_.GetCount(); ++i) fresh->push_back(inputs_.GetItem(i)->channel_);
  auto section = OutputPin.WriteLock();
  for (std::size_t i = 0; i < fresh->size(); ++i) (*fresh)[i]->index.store(static_cast<int>(i));
  std::shared_ptr<const Channels> old = std::move(fresh);  // released outside the mutex
  std::lock_guard guard(mutex_);
  channels_.swap(old);
}

void TPQQueuedSwitch::ClearIdleChannels() {
  const auto channels = AllChannels();
  for (const ChannelRef& channel : *channels) {
    if (!IsActive(*channel) && !channel->queuing.GetEnabled()) channel->VideoQueue.Clear();
  }
}

void TPQQueuedSwitch::SetActiveChannelIndex(std::int32_t index) {
  if (IsLoading()) {  // the channels may come later
    active_index_.store(index);
    return;
  }
  const auto count = static_cast<std::int32_t>(AllChannels()->size());
  index = std::min(std::max(index, 0), count - 1);
  active_index_.store(index);
  if (const ChannelRef active = ActiveChannel()) {
    const TPQQueuedInputQueuingValues how = active->queuing.Get();
    if (!how.enabled && how.preserve_last_frame) VideoBufferAdded();
  }
  ClearIdleChannels();
}

void TPQQueuedSwitch::SetActiveChannel(const PQQueuedChannel& channel) {
  active_index_.store(channel.index.load());
  ClearIdleChannels();
}

TPQQueuedSwitch::Event TPQQueuedSwitch::GetEvent(const Event& event) const {
  std::lock_guard guard(mutex_);
  return event;
}

void TPQQueuedSwitch::SetEvent(Event& event, PQQueuedSwitchEvent fresh) {
  Event made = fresh ? std::make_shared<const PQQueuedSwitchEvent>(std::move(fresh)) : nullptr;
  std::lock_guard guard(mutex_);
  event.swap(made);
}

void TPQQueuedSwitch::SetOnSwitch(PQQueuedSwitchEvent event) { SetEvent(on_switch_, std::move(event)); }

void TPQQueuedSwitch::Fire(const Event& event, const char* name) {
  if (event == nullptr) return;
  const auto alive = alive_;
  const auto told = [&](const char* what) {
    if (alive->load())
      Report(this, PQSeverity::Warning, std::string(name) + " threw an exception, which is dropped", 0, what);
  };
  try {
    (*event)(*this);
  } catch (const std::exception& error) {
    told(error.what());
  } catch (...) {
    told("");
  }
}

// --- starts, stops, pump ---

void TPQQueuedSwitch::ChannelVideoStart(TJCStartFrameOperation& op, TJCNotifyFlags flags) {
  auto section = OutputPin.WriteLock();
  if (video_running_.load()) return;
  frame_delay_.store(static_cast<std::int32_t>(op.FrameDelay));
  OutputPin.Notify(op, flags);
  video_running_.store(true);
}

void TPQQueuedSwitch::ChannelAudioStart(TJCStartOperation& op, TJCNotifyFlags flags) {
  auto section = OutputPin.WriteLock();
  if (audio_running_.load()) return;
  AudioOutputPin.Notify(op, flags);
  audio_running_.store(true);
  ignore_audio_.store(false);
  audio_resumed_.store(false);
}

void TPQQueuedSwitch::ChannelVideoStop() {
  auto section = OutputPin.WriteLock();
  const auto channels = AllChannels();
  if (std::any_of(channels->begin(), channels->end(),
                  [](const auto& channel) { return channel->video_started.load(); })) {
    return;
  }
  video_pending_.store(0);
  OutputPin.Stop();
  video_running_.store(false);
  if (audio_running_.load()) return;
  pump_started_.store(false);
  RemoveTimer();
}

void TPQQueuedSwitch::ChannelAudioStop() {
  auto section = OutputPin.WriteLock();
  const auto channels = AllChannels();
  if (std::any_of(channels->begin(), channels->end(),
                  [](const auto& channel) { return channel->audio_started.load(); })) {
    return;
  }
  audio_pending_.store(0);
  AudioOutputPin.Stop();
  audio_running_.store(false);
  audio_resumed_.store(false);
  if (video_running_.load()) return;
  pump_started_.store(false);
  RemoveTimer();
}

void TPQQueuedSwitch::StartPump() {
  auto section = OutputPin.WriteLock();
  if (!video_running_.load()) return;
  if (!audio_running_.load() && AudioOutputPin.IsConnected() && !ignore_audio_.load()) return;
  if (!pump_started_.load()) {
    OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
    AudioOutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
    CreateTimer();
  }
  pump_started_.store(true);
}

void TPQQueuedSwitch::CreateTimer() {
  auto section = clock_lock_.WriteLock();
  if (!is_master_.load() || clock_gen_ != nullptr || IsDestroying()) return;
  clock_gen_ = RWGetClockGen(
      frame_delay_.load() / 10000, [this] { Clock(); }, &clock_lock_);
}

void TPQQueuedSwitch::RemoveTimer() {
  std::shared_ptr<TRWClockGenItem> item;
  {
    auto section = clock_lock_.WriteLock();
    item.swap(clock_gen_);
  }
  RWReleaseClockGen(item, &clock_lock_);
}

void TPQQueuedSwitch::Clock() {
  if (!paused_.load()) clock_thread_.Clock();
}

void TPQQueuedSwitch::RequestPump(TJCPumpRequestOperation& op, TJCNotifyFlags flags) {
  if (video_running_.load()) return;
  auto section = OutputPin.WriteLock();
  OutputPin.Notify(op, flags);
  AudioOutputPin.Notify(op, flags);
  if (op.Kind != 3 || op.Level < pump_level_) op.Master = this, op.Level = pump_level_, op.Kind = 3;
  is_master_.store(op.Master == this);
}

void TPQQueuedSwitch::VideoBufferAdded() {
  video_pending_.fetch_add(1);
  if (!is_master_.load()) clock_thread_.Clock();
}

void TPQQueuedSwitch::AudioBufferAdded() {
  audio_pending_.fetch_add(1);
  if (!is_master_.load()) clock_thread_.Clock();
}

void TPQQueuedSwitch::SetIgnoreAudio() {
  ignore_audio_.store(true);
  AudioOutputPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
}

void TPQQueuedSwitch::ResumeAudio() {
  if (!audio_resumed_.exchange(true)) AudioOutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
}

void TPQQueuedSwitch::SetPaused(bool paused) {
  auto section = OutputPin.WriteLock();
  if (paused_.exchange(paused) == paused) return;
  if (paused) {
    AudioOutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  } else {
    AudioOutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
  }
}

// --- the thread ---

void TPQQueuedSwitch::OnThreadClockEvent() {
  const auto alive = alive_;
  if (!paused_.load()) {
    auto section = OutputPin.ReadLock();
    SubmitFrame(section);
  }
  if (!alive->load() || IsDestroying() || !is_master_.load()) return;
  auto global = JCGlobalLock().WriteLock();
  const auto channels = AllChannels();
  for (const ChannelRef& channel : *channels) {
    if (!is_master_.load() || channel->VideoQueue.ItemsCount() >= channel->threshold_min.load()) continue;
    channel->InputPin.MasterPump(this);
    if (!alive->load()) return;
    channel->AudioInputPin.MasterPump(this);
    if (!alive->load()) return;
  }
}

namespace {

// A stop may have set it to 0 meanwhile, and a frame that stays counts once and leaves often.
void CountDown(std::atomic<std::int32_t>& pending) {
  std::int32_t present = pending.load();
  while (present > 0 && !pending.compare_exchange_weak(present, present - 1)) {
  }
}

}  // namespace

// Everything that is called from here may change or end the switch: after each call what is needed is read anew.
// Events fire outside the hold, so that one which ends the switch waits for the calls of other threads.
void TPQQueuedSwitch::SubmitFrame(JCReadSection& section) {
  const auto alive = alive_;
  ChannelRef active = ActiveChannel();
  if (active == nullptr || active->paused.load()) return;
  for (std::size_t changes = 0; (video_pending_.load() > 0 || audio_pending_.load() > 0) && !paused_.load();
       ++changes) {
    active = ActiveChannel();
    if (active == nullptr) return;
    bool sent = false;
    const int streams = active->GetActiveStreamsCount();
    for (int i = 0; i < streams; ++i) {
      if (paused_.load()) return;
      if (const PQOperationRef frame = active->GetVideoBuffer()) {
        if (active->VideoQueue.ItemsCount() < active->threshold_min.load()) {
          section.Outside([&] { Fire(GetEvent(active->on_threshold_min), "OnThresholdMin"); });
          if (!alive->load()) return;
        }
        CountDown(video_pending_);
        sent = true;
        OutputPin.Notify(*frame);
        if (!alive->load()) return;
      }
      if (const PQOperationRef sound = active->AudioQueue.Pop()) {
        CountDown(audio_pending_);
        sent = true;
        AudioOutputPin.Notify(*sound);
        if (!alive->load()) return;
      }
    }
    if (sent || active->audio_started.load() || active->video_started.load()) return;
    active->video_seen.store(false);
    active->audio_seen.store(false);
    const auto count = AllChannels()->size();
    if (changes >= count) return;  // a round without a buffer: what is pending is in no queue
    const int ended = active->index.load();
    if (ended + 1 < static_cast<int>(count)) {
      SetActiveChannelIndex(ended + 1);
    } else if (ended == 0) {
      return;
    } else {
      SetActiveChannelIndex(0);
    }
    section.Outside([&] { Fire(GetEvent(on_switch_), "OnSwitch"); });
    if (!alive->load()) return;
  }
}

// --- what comes up ---

TJCNotifyResult TPQQueuedSwitch::VideoDispatchOperation(TJCPin&, const TGUID*, IJCNotifyOperation& op,
                                                        TJCNotifyFlags flags) {
  return DispatchUp(true, op, flags);
}

TJCNotifyResult TPQQueuedSwitch::AudioDispatchOperation(TJCPin&, const TGUID*, IJCNotifyOperation& op,
                                                        TJCNotifyFlags flags) {
  return DispatchUp(false, op, flags);
}

TJCNotifyResult TPQQueuedSwitch::DispatchUp(bool video, IJCNotifyOperation& op, TJCNotifyFlags flags) {
  const auto forward = [&] {
    TJCNotifyResult result;
    const auto channels = AllChannels();
    for (const ChannelRef& channel : *channels) {
      TJCPin& pin = video ? static_cast<TJCPin&>(channel->InputPin) : channel->AudioInputPin;
      result |= pin.Notify(op, flags);
    }
    return result;
  };
  if (JCOperation<TJCStartSampleRateOperation>(op) != nullptr) return forward();
  if (JCOperation<TJCStopOperation>(op) != nullptr) {
    Stop();
  } else if (auto* pump = JCOperation<TJCMasterPumpOperation>(op)) {
    MasterPump(*pump, flags);
  } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
    TJCNotifyResult result;
    if (video) result = forward();
    if (pump_level_ <= request->Level) return result;
    request->Master = this, request->Level = pump_level_, request->Kind = 2;
    is_master_.store(true);
    return result;
  }
  return {};
}

// A stop may come up from inside a frame. Sources answer it by ending their threads, which may be waiting for what this
// thread holds: it goes up when nothing is held.
void TPQQueuedSwitch::Stop() {
  is_master_.store(false);
  JCAtSectionEnd([channels = AllChannels(), alive = alive_, stop = PQMakeRef<TJCStopOperation>()] {
    for (const ChannelRef& channel : *channels) {
      if (!alive->load()) return;
      channel->InputPin.Notify(*stop);
    }
  });
}

void TPQQueuedSwitch::MasterPump(TJCMasterPumpOperation& op, TJCNotifyFlags flags) {
  if (is_master_.load()) return;
  const auto channels = AllChannels();
  for (const ChannelRef& channel : *channels) {
    if (channel->VideoQueue.ItemsCount() < 100) channel->InputPin.Notify(op, flags);
    if (channel->AudioQueue.ItemsCount() < 100) channel->AudioInputPin.Notify(op, flags);
  }
  clock_thread_.Clock();
}

int TPQQueuedSwitch::Waiting(const TJCPin& input) const {
  const auto channels = AllChannels();
  for (const ChannelRef& channel : *channels) {
    if (&input == &channel->AudioInputPin)
      return channel->Active() || channel->queuing.GetEnabled() ? channel->AudioQueue.ItemsCount() : 0;
    if (&input != &channel->InputPin) continue;
    const TPQQueuedInputQueuingValues how = channel->queuing.Get();
    const bool leaves = how.enabled || (channel->Active() && !how.preserve_last_frame);
    return leaves ? channel->VideoQueue.ItemsCount() : 0;
  }
  return 0;
}

void PQQueuedSwitch::Register() {
  const PQClassInfo* const classes[] = {&TPQQueuedSwitch::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
