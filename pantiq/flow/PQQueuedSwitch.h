// Plays channels of video and sound in turn.
#pragma once
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "pantiq/core/PQRegion.h"
#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/core/RWThreads.h"
#include "pantiq/host/PQCollection.h"

namespace pantiq {

class TPQQueuedSwitch;
class TPQQueuedInputs;
class PQQueuedChannel;

struct TPQQueuedInputQueuingValues {
  bool enabled;
  bool preserve_last_frame;
  bool operator==(const TPQQueuedInputQueuingValues&) const = default;
};

// How a channel keeps what arrives.
class PQ_EXPORT TPQQueuedInputQueuing final : public TPQGuardedNumbers<TPQQueuedInputQueuingValues> {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQQueuedInputQueuing(const TJCObject& lock) : TPQGuardedNumbers(lock, {false, false}, {}) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // False: a frame takes the place of what was waiting.
  bool GetEnabled() const { return Get().enabled; }
  void SetEnabled(bool enabled) {
    Update([&](Values& v) { v.enabled = enabled; });
  }
  // Without queuing: the last frame stays and leaves again with every one that arrives at any channel.
  bool GetPreserveLastFrame() const { return Get().preserve_last_frame; }
  void SetPreserveLastFrame(bool preserve) {
    Update([&](Values& v) { v.preserve_last_frame = preserve; });
  }
};

// Of the switch, on the thread that causes it. An exception is reported and goes no further.
using PQQueuedSwitchEvent = std::function<void(TPQQueuedSwitch& sender)>;

// A channel.
class PQ_EXPORT TPQQueuedInputItem final : public TCollectionItem {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQQueuedInputItem(TPQQueuedInputs* inputs);
  ~TPQQueuedInputItem() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Whether this is the channel that plays. Writing makes it that one, whatever is written.
  bool GetActive() const;
  void SetActive(bool active);
  // Frames waiting: above the maximum OnThresholdMax fires; below the minimum OnThresholdMin fires, and a switch that
  // sets the pace asks the channel for frames.
  std::int32_t GetThresholdMax() const;
  void SetThresholdMax(std::int32_t frames);
  std::int32_t GetThresholdMin() const;
  void SetThresholdMin(std::int32_t frames);
  TPQQueuedInputQueuing& GetQueuing();
  // On the switch's thread.
  void SetOnThresholdMin(PQQueuedSwitchEvent event);
  // On the sender's thread.
  void SetOnThresholdMax(PQQueuedSwitchEvent event);
  TPQJCImageSinkPin& GetInputPin();
  THTJCAudioSinkPin& GetAudioInputPin();
  // Frames and blocks of sound waiting now.
  std::int32_t GetVideoQueued() const;
  std::int32_t GetAudioQueued() const;

  // Moves the channel; in the lists of pins it changes places with the one there. Outside 0..count-1 nothing happens.
  void SetIndex(int index);
  // Drops what waits.
  void Flush();

 private:
  friend class TPQQueuedSwitch;
  std::shared_ptr<PQQueuedChannel> channel_;
};

class PQ_EXPORT TPQQueuedInputs final : public TCollection {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQQueuedInputs(TPQQueuedSwitch& owner) : switch_(owner) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  const PQClassInfo& ItemClassInfo() const override { return TPQQueuedInputItem::Class(); }

  TPQQueuedInputItem* Add() { return static_cast<TPQQueuedInputItem*>(TCollection::Add()); }
  TPQQueuedInputItem* GetItem(int index) const { return static_cast<TPQQueuedInputItem*>(TCollection::GetItem(index)); }
  // Makes the item at `index` equal to `source`.
  void SetItem(int index, const TPQQueuedInputItem& source);
  TPQQueuedSwitch& GetSwitch() const { return switch_; }

 protected:
  std::unique_ptr<TCollectionItem> CreateItem() override { return std::make_unique<TPQQueuedInputItem>(this); }
  void Update(TCollectionItem* item) override;

 private:
  TPQQueuedSwitch& switch_;
};

// Each channel's frames and sound are queued as they arrive, by reference. A thread of the switch takes them from the
// active channel and sends them out; when that channel's streams have stopped and its queues are empty, the next one
// becomes active, after the last the first. Downstream sees one continuous stream: the first channel's start announces
// it, and the stop of the last channel that runs ends it. What is queued then stays and leaves after the next start.
//
// The pace is set by the switch's own clock, one tick for each frame time of the stream, if it is the pump's master;
// otherwise by what arrives and by the pumps that come up. As master it asks every channel that has fewer than
// ThresholdMin frames waiting for one more at each tick.
//
// Threads. Operations come on the senders' threads. Channels are added, removed and moved by the owner-thread, also
// while streams run. Everything else may be called on any thread; destruction on the switch's own thread is allowed.
class PQ_EXPORT TPQQueuedSwitch final : public TComponent, public IPQPacer {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQQueuedSwitch(TComponent* owner = nullptr);
  ~TPQQueuedSwitch() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;  // of both output pins

 public:
  TPQJCImageSourcePin OutputPin;
  THTJCAudioSourcePin AudioOutputPin;
  TJCSinkPinList InputPins, AudioInputPins;  // of all channels; a connection to the list as such makes a channel

  TPQQueuedInputs& GetInputChannels() { return inputs_; }
  void SetInputChannels(const TPQQueuedInputs& inputs) { inputs_.Assign(inputs); }
  std::int32_t GetActiveChannelIndex() const { return active_index_.load(); }
  // Kept within 0..channels-1; -1 without channels. Channels without queuing that are not active lose what waits.
  void SetActiveChannelIndex(std::int32_t index);
  // After the switch went on to another channel by itself; on the switch's thread.
  void SetOnSwitch(PQQueuedSwitchEvent event);
  bool GetPaused() const { return paused_.load(); }
  void SetPaused(bool paused);

  TJCNotifyResult VideoDispatchOperation(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  TJCNotifyResult AudioDispatchOperation(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

  void Loaded() override;
  void Drain() override { clock_thread_.Drain(); }
  int Waiting(const TJCPin& input) const override;

 protected:
  void BeforeDestruction() override;

 private:
  friend class PQQueuedChannel;
  friend class TPQQueuedInputItem;
  friend class TPQQueuedInputs;
  using ChannelRef = std::shared_ptr<PQQueuedChannel>;
  using Channels = std::vector<ChannelRef>;
  using Event = std::shared_ptr<const PQQueuedSwitchEvent>;

  std::shared_ptr<const Channels> AllChannels() const;
  ChannelRef ActiveChannel() const;
  bool IsActive(const PQQueuedChannel& channel) const;
  void ChannelsChanged();
  void SetActiveChannel(const PQQueuedChannel& channel);
  void ClearIdleChannels();
  // An event may be exchanged while it fires.
  void Fire(const Event& event, const char* name);
  Event GetEvent(const Event& event) const;
  void SetEvent(Event& event, PQQueuedSwitchEvent fresh);

  void ChannelVideoStart(TJCStartFrameOperation& op, TJCNotifyFlags flags);
  void ChannelAudioStart(TJCStartOperation& op, TJCNotifyFlags flags);
  void ChannelVideoStop();
  void ChannelAudioStop();
  void StartPump();
  void CreateTimer();
  void RemoveTimer();
  void Clock();
  void RequestPump(TJCPumpRequestOperation& op, TJCNotifyFlags flags);
  void VideoBufferAdded();
  void AudioBufferAdded();
  void SetIgnoreAudio();
  void ResumeAudio();
  void OnThreadClockEvent();
  void SubmitFrame(JCReadSection& section);
  void Stop();
  void MasterPump(TJCMasterPumpOperation& op, TJCNotifyFlags flags);
  TJCNotifyResult DispatchUp(bool video, IJCNotifyOperation& op, TJCNotifyFlags flags);

  std::atomic<bool> video_running_{false}, audio_running_{false}, pump_started_{false}, audio_resumed_{false};
  std::atomic<std::int32_t> video_pending_{0}, audio_pending_{0};
  std::atomic<bool> is_master_{false};
  static constexpr std::int32_t pump_level_ = 0;
  std::atomic<std::int32_t> frame_delay_{0};  // 100 ns
  std::atomic<bool> ignore_audio_{false}, paused_{false};
  std::atomic<std::int32_t> active_index_{0};

  TJCObject clock_lock_;
  std::shared_ptr<TRWClockGenItem> clock_gen_;  // under the clock lock

  mutable std::mutex mutex_;  // a leaf: nothing is called under it. It guards the list of channels and the events.
  std::shared_ptr<const Channels> channels_ = std::make_shared<Channels>();
  Event on_switch_;
  const std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);

  TPQQueuedInputs inputs_{*this};
  TRWClockThread clock_thread_;
};

namespace PQQueuedSwitch {
PQ_EXPORT void Register();
}

}  // namespace pantiq
