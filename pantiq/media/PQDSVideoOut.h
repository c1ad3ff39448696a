// TPQDSVideoOut: shows a video stream on a device and plays the sound that belongs to it.
//
// What comes in waits in two lists, one for each pin, until the device can take it: frames wait for the sound that goes
// with them and the other way round, so that neither runs ahead. With AudioInputPin connected the video waits until the
// sound has announced itself, or has said that it does not come. Nothing that waits is dropped before a stop; the
// depths of the lists can be read. A frame that the device has no room for is waited with for at most a second, which
// is how a source is held to the device's pace.
//
// With EnableMasterPumping the device's clock sets the pace: the component claims the pump, and asks for one frame each
// time the clock has moved by a frame's duration.
//
// A stop that comes down does not wait behind what cannot be played. It plays what waits and what is inside the device
// to its end, for at most two seconds. Disconnection and destruction end at once. A window that its user closes, or a
// device that is lost, ends the playing and is reported; whoever runs the graph then stops the source.
//
// Threads. Frames and sound may come on two threads; one thread at a time works on the lists, and an operation that
// comes meanwhile is taken up by it. Setters, Pause, Resume and what a host calls on any thread.
#pragma once
#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/core/RWThreads.h"
#include "pantiq/media/PQDSDevices.h"
#include "pantiq/media/PQDSGraph.h"
#include "pantiq/media/PQDVFormat.h"
#include "pantiq/platform/PQMediaOutput.h"

namespace pantiq {

// What the device offers beside taking the stream; all false where it offers nothing.
struct TDSDigitalVideo {
  bool ExtTransport = false, TimecodeReader = false, ExtDevice = false;
};

class PQ_EXPORT TPQDSVideoOut final : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQDSVideoOut(TComponent* owner = nullptr);
  ~TPQDSVideoOut() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSinkPin InputPin;
  THTJCAudioSinkPin AudioInputPin;

  TPQDVFormat& GetDVFormat() { return dv_format_; }
  TDSGraph& GetGraph() { return graph_; }
  TDSVideoOutputDevice& GetVideoOutputDevice() { return video_device_; }
  TDSAudioOutputDevice& GetAudioOutputDevice() { return audio_device_; }
  std::int32_t GetPumpPriority() const { return pump_priority_.load(); }
  void SetPumpPriority(std::int32_t priority) { pump_priority_.store(priority); }
  bool GetEnableMasterPumping() const { return enable_master_pumping_.load(); }
  void SetEnableMasterPumping(bool on) { enable_master_pumping_.store(on); }

  // Not published. False takes starts and frames and shows nothing.
  bool GetEnabled() const { return enabled_.load(); }
  void SetEnabled(bool on) { enabled_.store(on); }
  TDSDigitalVideo GetVC_DigitalVideo() const;
  void SetDigitalVideo(const TDSDigitalVideo& offer);

  bool IsRunning() const { return video_running_.load(); }
  bool IsPaused() const { return paused_.load(); }
  // Operations that wait, and what the device has done since the last start: frames shown and dropped, and how late
  // 95 of 100 of the last frames came at most (100 ns).
  std::int32_t GetVideoQueued() const { return video_list_.ItemsCount(); }
  std::int32_t GetAudioQueued() const { return audio_list_.ItemsCount(); }
  std::int64_t GetFramesShown() const { return Statistics().shown; }
  std::int64_t GetFramesDropped() const { return Statistics().dropped; }
  std::int64_t GetLateness() const { return Statistics().lateness_95; }

  // Ends the playing: the device stops, what waits goes on waiting.
  void Stop();
  // Holds picture and sound; what comes waits in the lists until Resume.
  void Pause();
  void Resume();

  // For a host that plays a file for a person. Hold keeps picture and sound where they are and lets the source wait
  // inside its call; whoever holds must release, flush or destroy this component before he waits for the source. Step
  // shows one frame more of what is held; false if nothing is held, or the step before is still under way.
  void Hold(bool on);
  bool Step();
  // Drops what waits in the lists and inside the device, and what comes until the next start. The window stays.
  void Flush();

  // Called with what ends the playing of its own accord; on a thread of the component.
  void SetOnEvent(std::function<void(long event)> closure);

 private:
  TJCNotifyResult VideoDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  TJCNotifyResult AudioDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  struct List final : TRWOperationList {
    std::atomic<int> stops{0};  // among what waits
  };
  void Arrived(List& list, IJCNotifyOperation& op);
  PQOperationRef Next(List& list);
  bool ObeyStops();
  static void DropEnded(List& list, bool stopped);
  static void DropAll(List& list);
  void ProcessStreams(bool main_thread);
  void Work();
  template <class Action>
  void Exclusively(Action action);
  void MainThreadDataProcess() { ProcessStreams(true); }
  bool IntVideoDispatch(PQOperationRef op);
  bool IntAudioDispatch(PQOperationRef op);
  void ClaimPump(TJCPumpRequestOperation& request);

  void BeginVideo(std::int32_t width, std::int32_t height, TPQVideoFormat format, std::int64_t period);
  void BeginAudio();
  void TryStart();
  bool Open();
  bool InitCaptureFilters(const std::string& device);
  bool CreateAudioRender();
  bool BuildGraph();
  bool IntBuildGraph(PQMediaOutput& graph);
  bool StartRun();
  void FreeFilters();
  void Disconnect();
  void DestroyGraph();
  void IntStop(bool keep_tail, const List* taken);
  void PlayTail();
  void Abandon();
  void AudioIsOver();

  bool RenderImage(const PQOperationRef& op, const IRWDataBuffer& data);
  bool RenderAudio(const PQOperationRef& op, const PQDataBufferRef& data);
  bool SendImage(const IRWDataBuffer& data);
  std::int32_t IntRenderAudio(const THTAudioBuffer& sound, const PQDataBufferRef& data);
  bool IsAnnounced(const THTAudioBuffer& sound) const;
  bool SoundPlays() const { return audio_wanted_ && audio_source_ != 0; }
  bool IsOutdated() const;

  void PostPump();
  void Advise(std::int64_t duration);
  void Unadvise();
  void OnThreadClockEvent();
  void OnThreadEventClockEvent();
  void GraphEvent(long code, const PQPlatformResult& why);
  void OnEvents();
  void DoAborted();
  void DoDeviceLost(const PQPlatformResult& why);
  void OnDeviceChanged() { device_changed_.store(true); }
  void BeforeDestruction() override;
  std::shared_ptr<PQMediaOutput> Graph() const;
  PQOutputStatistics Statistics() const;

  TDSGraph graph_;
  TPQDVFormat dv_format_;
  TDSVideoOutputDevice video_device_;
  TDSAudioOutputDevice audio_device_;
  std::atomic<std::int32_t> pump_priority_{0};
  std::atomic<bool> enable_master_pumping_{false}, enabled_{true};

  // Of whoever works on the lists.
  List video_list_, audio_list_;
  std::int32_t width_ = 0, height_ = 0;
  TPQVideoFormat format_ = vfRGB24;
  std::int64_t period_ = 0;
  std::int64_t video_time_ = 0, audio_time_ = 0;  // 100 ns that were sent
  THTWaveFormat wave_format_;
  bool video_wanted_ = false, audio_wanted_ = false, video_started_ = false, audio_started_ = false;
  bool audio_ignored_ = false, opened_ = false, graph_built_ = false, size_told_ = false, sound_told_ = false;
  // What the graph was built for.
  std::int32_t source_width_ = 0, source_height_ = 0;
  TPQVideoFormat source_format_ = vfRGB24, built_format_ = vfRGB24;
  THTWaveFormat source_wave_;
  PQFilterId render_ = 0, audio_render_ = 0, video_source_ = 0, audio_source_ = 0;
  std::atomic<bool> paused_{false}, held_{false}, master_pumping_{false}, data_waiting_{false};
  std::atomic<bool> video_running_{false};
  std::atomic<bool> device_changed_{false}, flushing_{false};

  // Building, running, pausing and stopping the platform's graph. Not held while samples are sent.
  std::recursive_mutex control_mutex_;
  mutable std::mutex graph_mutex_;  // leaves: references
  std::shared_ptr<PQMediaOutput> output_;
  TDSDigitalVideo digital_video_;

  // The device's clock.
  std::mutex clock_mutex_;  // calls of the clock; its closures never take it
  std::shared_ptr<PQReferenceClock> clock_;
  std::uint64_t cookie_ = 0;
  bool advised_ = false;
  std::int64_t period_in_effect_ = 0, clock_origin_ = 0, clock_sum_ = 0;
  std::shared_ptr<TRWClockThread> clock_thread_;
  std::shared_ptr<TRWEventClockThread> event_clock_thread_;

  std::mutex drain_mutex_;  // a leaf
  std::condition_variable drain_changed_;
  bool draining_ = false, drain_wanted_ = false, notify_pending_ = false, ended_ = false;
  std::thread::id drainer_;

  struct Events;
  std::shared_ptr<Events> events_;
  std::unique_ptr<TRWNotifyThread> event_thread_;
  std::unique_ptr<TRWMainThreadNotify> main_notify_;
  std::shared_ptr<std::atomic<bool>> alive_;
};

namespace PQDSVideoOut {
PQ_EXPORT void Register();
}

}  // namespace pantiq
