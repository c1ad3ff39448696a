#include "pantiq/media/PQASFPlayer.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "pantiq/core/PQNumbers.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/media/PQStreamClock.h"

namespace pantiq {

constinit const PQClassTag TPQASFPlayer::kTag{"TPQASFPlayer", &TBXASFBasicPlayer::kTag};

namespace {

constexpr std::int64_t kStampPrecision = 10000;  // containers round stamps to whole milliseconds

}  // namespace

const PQClassInfo& TPQASFPlayer::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQASFPlayer>("TPQASFPlayer", "PQASFPlayer", "Plays a media file: video and sound.")
          .Inherits<TBXASFBasicPlayer>()
          .Pin("OutputPin", &TPQASFPlayer::OutputPin, "Frames of the file.")
          .Pin("AudioOutputPin", &TPQASFPlayer::AudioOutputPin, "Sound of the file.")
          .Done();
  return info;
}

TPQASFPlayer::TPQASFPlayer(TComponent* owner)
    : TBXASFBasicPlayer(owner),
      OutputPin(*this, JCDispatch::To<&TPQASFPlayer::DispatchOperation>(this)),
      AudioOutputPin(*this, JCDispatch::To<&TPQASFPlayer::DispatchOperation>(this)),
      video_queue_(&NotifyThread()) {
  OutputPin.AddShareLock(Lock());
  AudioOutputPin.AddShareLock(Lock());
}

void TPQASFPlayer::BeforeDestruction() {
  Shutdown();
  OutputPin.Stop();
  AudioOutputPin.Stop();
  OutputPin.Disconnect();
  AudioOutputPin.Disconnect();
  TBXASFBasicPlayer::BeforeDestruction();
}

TJCNotifyResult TPQASFPlayer::DispatchOperation(TJCPin& pin, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  if (JCOperation<TJCStartSampleRateOperation>(op) != nullptr) {
    IntStart(true);
  } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
    IntStop(true, false);
  } else if (auto* pump = JCOperation<TJCMasterPumpOperation>(op)) {
    MasterPump(pin, pump->Master, 1);
  } else if (JCOperation<TJCQueryStreamOperation>(op) != nullptr) {
    if (!GetEnabled()) {
      OutputPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
      AudioOutputPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
    }
  }
  return {};
}

// --- the file's streams ---------------------------------------------------------------------------------------------

void TPQASFPlayer::InitStreams() {
  int count = 0;
  if (Reader() == nullptr || !Reader()->GetOutputCount(count).Ok()) return;
  time_per_sample_ = 0;
  has_audio_.store(false);
  has_video_ = false;
  for (int i = 0; i < count; ++i) {
    PQMediaOutputProps props;
    if (!Reader()->GetOutputProps(i, props).Ok()) continue;
    if (props.major_type != PQMediaType::Video || props.subtype != PQMediaSubtype::Rgb24 ||
        props.format_type != PQMediaFormatType::VideoInfo) {
      continue;
    }
    video_output_ = i;
    has_video_ = true;
    width_.store(props.width);
    height_.store(props.height);
    frame_period_ = props.time_per_frame;
    time_per_sample_ = frame_period_;
    for (const std::string& note : props.notes) Report(this, PQSeverity::Note, note);
    break;
  }
  for (int i = 0; i < count; ++i) {
    PQMediaOutputProps props;
    if (!Reader()->GetOutputProps(i, props).Ok()) continue;
    if (props.major_type != PQMediaType::Audio || props.subtype != PQMediaSubtype::Pcm ||
        props.format_type != PQMediaFormatType::WaveFormat || props.block_align < 1) {
      continue;
    }
    audio_output_ = i;
    has_audio_.store(true);
    block_align_ = props.block_align;
    bits_per_sample_ = props.bits_per_sample;
    channels_ = props.channels;
    sample_rate_ = props.sample_rate;
    sample_size_ = props.sample_size;
    if (time_per_sample_ == 0) time_per_sample_ = GetDSTimePerSample(1024, sample_rate_);
    for (const std::string& note : props.notes) Report(this, PQSeverity::Note, note);
    break;
  }
  if (!has_video_) {
    video_output_ = -1;
    width_.store(0);
    height_.store(0);
    frame_period_ = 0;
  }
  if (!has_audio_.load()) audio_output_ = -1;
}

void TPQASFPlayer::IntOpen() { video_queue_.SetSize(width_.load(), height_.load(), vfRGB24); }

void TPQASFPlayer::EndQueues() {
  video_queue_.End();
  TBXASFBasicPlayer::EndQueues();
}

void TPQASFPlayer::RearmQueues() {
  video_queue_.Rearm();
  TBXASFBasicPlayer::RearmQueues();
}

TBXASFBasicPlayer::Pace* TPQASFPlayer::PaceOf(const TJCPin& pin) {
  if (&pin == &OutputPin) return &video_pace_;
  return &pin == &AudioOutputPin ? &audio_pace_ : nullptr;
}

// --- start ----------------------------------------------------------------------------------------------------------

void TPQASFPlayer::IntStart(bool) {
  if (GetFileName().empty()) return;
  const unsigned run = BeginStart();
  if (run == 0) return;
  const auto alive = Alive();
  struct Leave {
    TPQASFPlayer* player;
    const std::atomic<bool>& alive;
    unsigned run;
    ~Leave() {
      if (alive.load()) player->EndStart(run);
    }
  } leave{this, *alive, run};
  // Each operation may come back with a stop, or end the player.
  const auto on = [&] { return alive->load() && IsCurrent(run); };

  if (!Open() || !on()) return;
  streaming_.store(0);
  video_ended_.store(!has_video_);
  audio_ended_.store(!has_audio_.load());
  ignore_sent_ = false;
  frame_number_ = 0;
  stamp_count_ = 0;
  blocks_sent_ = 0;
  RequestPump(OutputPin, video_pace_);
  if (on()) RequestPump(AudioOutputPin, audio_pace_);
  if (!on() || !StartReader(run)) return;
  SetRunning(run);
  const bool has_audio = has_audio_.load();
  OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
  if (has_audio && on()) AudioOutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
  if (on()) SendVideoFormat();
  if (has_audio && on()) SendAudioFormat();
  if (!has_audio && on()) {
    ignore_sent_ = true;
    AudioOutputPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
  }
  // Whoever starts a timer with the pump does so only once it knows the format.
  if (on()) OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
  if (has_audio && on()) AudioOutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
  if (!on()) return;
  streaming_.store(run);
  NotifyThread().Notify();
}

void TPQASFPlayer::SendVideoFormat() {
  OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(width_.load(), height_.load(), frame_period_, vfRGB24));
}

void TPQASFPlayer::SendAudioFormat() {
  THTWaveFormat format;
  format.channels = channels_;
  format.bits_per_sample = bits_per_sample_;
  format.samples_per_second = sample_rate_;
  AudioOutputPin.Notify(*PQMakeRef<TJCStartWaveOperation>(static_cast<double>(sample_rate_), format));
}

void TPQASFPlayer::IntPause() {
  if (has_video_) OutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
  if (has_audio_.load()) AudioOutputPin.Notify(*PQMakeRef<TJCRWPauseOperation>());
}

void TPQASFPlayer::IntResume() {
  if (has_video_) OutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
  if (has_audio_.load()) AudioOutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
}

// --- on the reader's threads ----------------------------------------------------------------------------------------

long TPQASFPlayer::OnSample(int output, std::int64_t time, std::int64_t duration, unsigned,
                            const PQPlatformBlock& sample, void*) {
  if (output == video_output_) {
    NewVideoBuffer(time, duration, sample);
  } else if (output == audio_output_) {
    NewAudioBuffer(time, duration, sample);
  }
  return 0;
}

void TPQASFPlayer::NewVideoBuffer(std::int64_t time, std::int64_t duration, const PQPlatformBlock& sample) {
  if (video_queue_.PushBuffer(sample, time, time + duration)) video_queue_.WaitTaken();
}

void TPQASFPlayer::NewAudioBuffer(std::int64_t time, std::int64_t duration, const PQPlatformBlock& sample) {
  if (audio_queue_.Add(time, time + duration, sample.data, sample.size)) NotifyThread().Notify();
}

// The next frames have another size: each carries its own, and the notify thread announces it when it gets there.
void TPQASFPlayer::OnOutputFormat(int output, const PQMediaOutputProps& props) {
  if (output == video_output_) video_queue_.SetSize(props.width, props.height, vfRGB24);
}

void TPQASFPlayer::OnOutputEnd(int output) {
  if (output == video_output_) video_ended_.store(true);
  if (output == audio_output_) audio_ended_.store(true);
  NotifyThread().Notify();
}

// --- on the notify thread -------------------------------------------------------------------------------------------

void TPQASFPlayer::NewThreadFrame(TPersistent*) {
  const unsigned run = streaming_.load();
  if (run == 0 || !IsCurrent(run)) return;
  const auto alive = Alive();
  const bool waiting = video_queue_.ItemsCount() > 0 || audio_queue_.ItemsCount() > 0;
  try {
    SendWaiting(run, *alive);
  } catch (...) {  // one is lost; those behind it, and the end, do not wait for a sample that may never come
    if (!alive->load()) return;
    ReportCaught(this, "a frame or a block of sound was lost");
    if (waiting) NotifyThread().Notify();
  }
}

void TPQASFPlayer::SendWaiting(unsigned run, const std::atomic<bool>& alive) {
  const auto global = JCGlobalLock().ReadLock();
  const auto section = Lock().WriteLock();
  int taken = 0;
  for (; taken < kMostEntries; ++taken) {
    PQImageRef image;
    std::unique_ptr<TPQDSBufferNode> node;
    if (video_pace_.MayGive()) image = video_queue_.Get();
    if (audio_pace_.MayGive()) node = audio_queue_.Get();
    if (!image && node == nullptr) break;
    if (image) {
      video_pace_.Given();
      if (!SendImage(std::move(image), run, alive)) return;
    }
    if (node != nullptr) {
      audio_pace_.Given();
      if (!SendAudio(std::move(node), run, alive)) return;
    }
  }
  if (taken == kMostEntries) NotifyThread().Notify();
  CheckEnd(run, alive);
}

// False once the run, or the player, is over.
bool TPQASFPlayer::SendImage(PQImageRef image, unsigned run, const std::atomic<bool>& alive) {
  if (image->GetWidth() != width_.load() || image->GetHeight() != height_.load()) {
    width_.store(image->GetWidth());
    height_.store(image->GetHeight());
    SendVideoFormat();
    if (!alive.load() || !IsCurrent(run)) return false;
  }
  StampImage(*image);
  OutputPin.SubmitBuffer(std::move(image));
  return alive.load() && IsCurrent(run);
}

// Frames of an even rate follow each other without gaps, at origin + n * period, as long as the container's stamps,
// which may be rounded to milliseconds, say the same. Where they do not, the container's stamp counts and begins a new
// origin.
void TPQASFPlayer::StampImage(IPQImageBuffer& image) {
  TBXTimeStamp& stamp = image.GetTimeStamp();
  const std::int64_t begin = stamp.GetBegin(), length = stamp.GetEnd() - begin;
  const std::int64_t period = frame_period_ > 0 ? frame_period_ : PQKnownPeriod(length);
  const std::int64_t expected = stamp_origin_ + stamp_count_ * period;
  if (stamp_count_ == 0 || frame_period_ < 1 || std::llabs(begin - expected) > kStampPrecision) {
    stamp_origin_ = begin;
    stamp_count_ = 0;
  }
  stamp.SetBegin(stamp_origin_ + stamp_count_ * period);
  stamp.SetEnd(stamp.GetBegin() + period);
  ++stamp_count_;
  image.GetTimeCode().SetFrame(frame_number_);
  image.GetSequenceStamp().SetBufferNumber(frame_number_);
  ++frame_number_;
}

bool TPQASFPlayer::SendAudio(std::unique_ptr<TPQDSBufferNode> node, unsigned run, const std::atomic<bool>& alive) {
  const auto samples = static_cast<std::int32_t>(node->Data.size() / static_cast<std::size_t>(block_align_));
  auto buffer = PQMakeRef<THTAudioBuffer>(samples, channels_, bits_per_sample_);
  buffer->SetFormat(sample_rate_);
  if (samples > 0) std::memcpy(buffer->WriteData(), node->Data.data(), static_cast<std::size_t>(buffer->GetByteSize()));
  buffer->GetTimeStamp().SetAvailable(true);
  buffer->GetTimeStamp().SetBegin(node->Start);
  buffer->GetTimeStamp().SetEnd(node->Stop);
  audio_queue_.DestroyBlock(node);
  AudioOutputPin.SubmitBuffer(std::move(buffer));
  if (!alive.load() || !IsCurrent(run)) return false;
  if (blocks_sent_ < 4) {
    ++blocks_sent_;
    if (blocks_sent_ == 3) {
      AudioOutputPin.Notify(*PQMakeRef<TJCRWResumeOperation>());
      return alive.load() && IsCurrent(run);
    }
  }
  return true;
}

// The reader tells an end after it has put its last sample into the queue, so the marks are read before the queues.
void TPQASFPlayer::CheckEnd(unsigned run, const std::atomic<bool>& alive) {
  const bool video_ended = video_ended_.load(), audio_ended = audio_ended_.load();
  const bool video_over = video_ended && video_queue_.ItemsCount() == 0;
  const bool audio_over = audio_ended && audio_queue_.ItemsCount() == 0;
  if (video_over && audio_over) {
    if (!EndRun(run)) return;
    if (has_video_ && frame_number_ == 0) {
      Report(this, PQSeverity::Warning,
             GetFileName() + ": ended without a frame, though it has a video stream; the file is damaged or cut short");
      if (!alive.load()) return;
    }
    AudioOutputPin.Stop();
    if (alive.load()) OutputPin.Stop();
  } else if (audio_over && !ignore_sent_) {
    ignore_sent_ = true;
    AudioOutputPin.Notify(*PQMakeRef<TJCIgnoreStreamOperation>());
  }
}

void PQASFPlayer::Register() {
  const PQClassInfo* const classes[] = {&TPQASFPlayer::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
