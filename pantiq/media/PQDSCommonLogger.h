// TPQDSCommonLogger: the base of components that record a video stream and, if there is one, an audio stream with a
// graph.
//
// The graph is built when the video has begun and it is known whether there is sound: at once if AudioInputPin is not
// connected, else with the start of the sound, or with the first frame if no sound has come for a second by then. A
// stop that comes down ends that input; when all inputs have ended the recording is finished and its tail kept, for
// which at most two seconds are given. A disconnection or destruction closes it at once, with what half a second
// allows.
//
// A start while a recording runs is a change of format: the recorded size stays, frames of another size lie at the top
// left on black.
//
// Threads. Frames and sound may come on two threads; they are handled one at a time, and wait while the graph has
// enough to do. Every wait is ended by disconnection and destruction. Setters on any thread.
#pragma once
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/media/PQDSGraph.h"
#include "pantiq/media/PQStreamClock.h"

namespace pantiq {

// Inputs, file name and switch of every logger.
class PQ_EXPORT TPQBaseCommonLogger : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQBaseCommonLogger(TComponent* owner);
  ~TPQBaseCommonLogger() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSinkPin InputPin;
  THTJCAudioSinkPin AudioInputPin;

  std::string GetFileName() const;
  void SetFileName(const std::string& name);  // acts at the next start
  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled);  // acts at the next start

 protected:
  virtual TJCNotifyResult IntAudioDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op,
                                           TJCNotifyFlags flags) = 0;
  virtual TJCNotifyResult IntVideoDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op,
                                           TJCNotifyFlags flags) = 0;
  const TJCObject& Lock() const { return lock_; }

 private:
  TJCNotifyResult AudioDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) {
    return IntAudioDispatch(pin, id, op, flags);
  }
  TJCNotifyResult VideoDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) {
    return IntVideoDispatch(pin, id, op, flags);
  }
  std::string file_name_;  // under the lock
  std::atomic<bool> enabled_{true};
};

class PQ_EXPORT TPQDSCommonLogger : public TPQBaseCommonLogger {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQDSCommonLogger(TComponent* owner);
  ~TPQDSCommonLogger() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TDSGraph& GetGraph() { return graph_; }
  bool IsRunning() const { return running_.load(); }

 protected:
  TJCNotifyResult IntAudioDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) override;
  TJCNotifyResult IntVideoDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) override;
  // All of these are called with the frame mutex held.
  virtual void BeginVideo(std::int32_t width, std::int32_t height, std::int64_t period, TPQVideoFormat format);
  virtual void BeginAudio(const THTWaveFormat& format);
  // Ends the recording; `keep_tail` waits for what is inside.
  virtual void EndAVI(bool keep_tail);
  virtual bool HasVideoStream() const { return video_begun_; }
  virtual bool HasAudioStream() const { return audio_begun_ && !audio_over_; }
  // One frame, one block of sound; `enabled` false drops it.
  virtual void IntRenderImage(bool enabled, const IRWDataBuffer& frame);
  virtual void IntRenderAudio(bool enabled, const PQDataBufferRef& buffer);
  virtual void* GetFormHandle() { return nullptr; }
  // Makes the graph and runs it; true at once if it exists. On false the interfaces are given up by the caller.
  virtual bool BuildGraph() = 0;
  virtual void DestroyGraph();
  virtual void DisconnectInterfaces();
  void BeforeDestruction() override;

  // What BuildGraph reads and fills.
  TDSGraph graph_;
  TPQVideoFormat frame_format_ = vfRGB24;
  bool has_audio_ = false;
  THTWaveFormat wave_format_;
  std::int32_t width_ = 0, height_ = 0;
  std::int64_t period_ = 0;  // 100 ns
  PQFilterId writer_ = 0, video_source_ = 0, audio_source_ = 0;
  std::atomic<bool> running_{false};

 private:
  void StartGraph();
  void EndVideo();
  void EndAudio();
  void Abandon();
  void AwaitAudio();
  void AudioKnown();
  bool Sent(const PQPlatformResult& result);
  void Once(bool& told, PQSeverity severity, const std::string& text);

  JCFrameMutex frames_;
  std::string recorded_name_;
  bool video_begun_ = false, video_over_ = false, audio_begun_ = false, audio_over_ = false, failed_ = false;

  // Clocks of the recording, 100 ns from its beginning; sound counts its bytes.
  PQStreamClock clock_;
  std::int64_t audio_samples_ = 0;
  bool size_told_ = false, audio_told_ = false, frame_told_ = false;

  std::mutex audio_mutex_;  // a leaf: the first frame waits here for the start of the sound
  std::condition_variable audio_changed_;
  bool audio_awaited_ = false;
  std::shared_ptr<std::atomic<bool>> alive_;
};

}  // namespace pantiq
