// TPQASFPlayer: plays a media file into the stream world, video on OutputPin, sound on AudioOutputPin.
//
// A start from below opens the file, asks both pins who sets the pace, starts the reader and sends the formats. A pin
// whose pace is claimed gives one buffer for each pump; another one pushes, and the reader is held back by what
// downstream takes. Frames are numbered from 0 at each start (time code and sequence stamp) and stamped with their
// place in the file. Sound that ends early, or that a file does not have, is told by an ignore operation; the end of
// the file by a stop on the sound and then on the video.
#pragma once
#include <atomic>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/media/PQBXASFBasicPlayer.h"

namespace pantiq {

class PQ_EXPORT TPQASFPlayer final : public TBXASFBasicPlayer {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQASFPlayer(TComponent* owner = nullptr);
  ~TPQASFPlayer() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQJCImageSourcePin OutputPin;
  THTJCAudioSourcePin AudioOutputPin;

  // Operations that come back from downstream.
  TJCNotifyResult DispatchOperation(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

  std::int32_t GetVideoQueued() const override { return video_queue_.ItemsCount(); }

  // Of the open file: pixels, 100 ns.
  std::int32_t GetWidth() const { return width_.load(); }
  std::int32_t GetHeight() const { return height_.load(); }
  std::int64_t GetFramePeriod() const { return frame_period_; }

 protected:
  void IntStart(bool from_below) override;
  void IntOpen() override;
  void IntPause() override;
  void IntResume() override;
  void InitStreams() override;
  void NewThreadFrame(TPersistent* sender) override;
  void SendWaiting(unsigned run, const std::atomic<bool>& alive);
  long OnSample(int output, std::int64_t time, std::int64_t duration, unsigned flags, const PQPlatformBlock& sample,
                void* context) override;
  void OnOutputFormat(int output, const PQMediaOutputProps& props) override;
  void OnOutputEnd(int output) override;
  void EndQueues() override;
  void RearmQueues() override;
  Pace* PaceOf(const TJCPin& pin) override;
  void BeforeDestruction() override;

 private:
  void SendVideoFormat();
  void SendAudioFormat();
  void NewVideoBuffer(std::int64_t time, std::int64_t duration, const PQPlatformBlock& sample);
  void NewAudioBuffer(std::int64_t time, std::int64_t duration, const PQPlatformBlock& sample);
  bool SendImage(PQImageRef image, unsigned run, const std::atomic<bool>& alive);
  bool SendAudio(std::unique_ptr<TPQDSBufferNode> node, unsigned run, const std::atomic<bool>& alive);
  void StampImage(IPQImageBuffer& image);
  void CheckEnd(unsigned run, const std::atomic<bool>& alive);

  // Known once the file is open.
  int video_output_ = -1;
  TPQVideoBufferQueueThread video_queue_;
  std::atomic<std::int32_t> width_{0}, height_{0};
  std::int64_t frame_period_ = 0;  // 100 ns
  bool has_video_ = false;
  int audio_output_ = -1;
  std::int32_t channels_ = 0, bits_per_sample_ = 0, block_align_ = 0, sample_rate_ = 0, sample_size_ = 0;

  // One run.
  std::int32_t blocks_sent_ = 0;
  Pace video_pace_, audio_pace_;
  std::atomic<unsigned> streaming_{0};  // the run whose formats are out
  std::atomic<bool> video_ended_{false}, audio_ended_{false};
  bool ignore_sent_ = false;
  std::int32_t frame_number_ = 0;
  std::int64_t stamp_origin_ = 0, stamp_count_ = 0;  // frame n of an even run lies at origin + n * period
};

namespace PQASFPlayer {
PQ_EXPORT void Register();
}

}  // namespace pantiq
