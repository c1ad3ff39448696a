// What tests of media components wire them to: a sink that writes down what comes, on both pins, and a source that the
// test drives; a list of what was reported.
#pragma once
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/host/PQReport.h"

namespace pantiq::test {

inline void Start(TJCPin& sink) { sink.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0)); }
inline void StopUp(TJCPin& sink) { sink.Notify(*PQMakeRef<TJCStopOperation>()); }

struct SeenFrame {
  int width, height, frame, number;
  std::int64_t begin, end;
  std::uint8_t first;  // byte of the first pixel, last of the last
  std::uint8_t last;
};

class StreamSink final : public TComponent {
 public:
  explicit StreamSink(TComponent* owner = nullptr)
      : TComponent(owner),
        VideoPin(*this, JCDispatch::To<&StreamSink::Video>(this)),
        AudioPin(*this, JCDispatch::To<&StreamSink::Audio>(this)) {}
  ~StreamSink() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info =
        PQDescribe<StreamSink>("StreamSink", "TestStreams", "").Inherits<TComponent>().Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSinkPin VideoPin;
  THTJCAudioSinkPin AudioPin;

  // Claims the pump of its pins.
  bool claim = false;
  // Called with each operation, after it was written down, outside the sink's mutex.
  std::function<void(bool video, IJCNotifyOperation&)> on_op;

  std::vector<std::string> Log() {
    const std::lock_guard lock(mutex_);
    return log_;
  }
  std::vector<SeenFrame> Frames() {
    const std::lock_guard lock(mutex_);
    return frames_;
  }
  int AudioBlocks() {
    const std::lock_guard lock(mutex_);
    return audio_blocks_;
  }
  // Until this line has been written down `count` times.
  void WaitFor(const std::string& line, int count = 1) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] {
      int found = 0;
      for (const std::string& entry : log_) found += entry == line ? 1 : 0;
      return found >= count;
    });
  }
  void WaitForFrames(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return frames_.size() >= count; });
  }

 private:
  void BeforeDestruction() override {
    VideoPin.Disconnect();
    AudioPin.Disconnect();
  }
  TJCNotifyResult Video(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) { return Take(true, op); }
  TJCNotifyResult Audio(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) { return Take(false, op); }
  TJCNotifyResult Take(bool video, IJCNotifyOperation& op) {
    std::string line = video ? "v " : "a ";
    {
      const std::lock_guard lock(mutex_);
      if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
        if (video) {
          const auto image = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
          const int bytes = image->GetByteSize();
          frames_.push_back({image->GetWidth(), image->GetHeight(), image->GetTimeCode().GetFrame(),
                             image->GetSequenceStamp().GetBufferNumber(), image->GetTimeStamp().GetBegin(),
                             image->GetTimeStamp().GetEnd(), bytes > 0 ? image->Read()[0] : std::uint8_t{0},
                             bytes > 0 ? image->Read()[bytes - 1] : std::uint8_t{0}});
          line += "frame";
        } else {
          ++audio_blocks_;
          line += "block " + std::to_string(supplied->Buffer->GetCount());
        }
      } else if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
        line += "start " + std::to_string(start->Width) + " " + std::to_string(start->Height) + " " +
                std::to_string(start->FrameDelay);
      } else if (auto* wave = JCOperation<TJCStartWaveOperation>(op)) {
        line += "wave " + std::to_string(wave->Format.samples_per_second) + " " + std::to_string(wave->Format.channels);
      } else if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
        line += "request";
        if (claim) request->Master = this, request->Kind = 3;
      } else {
        line += op.Tag().Name();
      }
      log_.push_back(line);
      changed_.notify_all();
    }
    if (on_op) {
      const auto call = on_op;  // the call may end this object
      call(video, op);
    }
    return {};
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> log_;
  std::vector<SeenFrame> frames_;
  int audio_blocks_ = 0;
};

class StreamSource final : public TComponent {
 public:
  explicit StreamSource(TComponent* owner = nullptr)
      : TComponent(owner),
        VideoPin(*this, JCDispatch::To<&StreamSource::Up>(this)),
        AudioPin(*this, JCDispatch::To<&StreamSource::Up>(this)) {}
  ~StreamSource() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info =
        PQDescribe<StreamSource>("StreamSource", "TestStreams", "").Inherits<TComponent>().Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSourcePin VideoPin;
  THTJCAudioSourcePin AudioPin;

  void StartVideo(int width, int height, std::int64_t delay = 400000, TPQVideoFormat format = vfRGB24) {
    VideoPin.Notify(*PQMakeRef<TJCStartFrameOperation>(width, height, delay, format));
  }
  void StartAudio(int rate, int channels, int bits = 16) {
    THTWaveFormat format;
    format.samples_per_second = rate, format.channels = channels, format.bits_per_sample = bits;
    AudioPin.Notify(*PQMakeRef<TJCStartWaveOperation>(static_cast<double>(rate), format));
  }
  void SendFrame(int width, int height, TColor color, TPQVideoFormat format = vfRGB24) {
    auto image = PQMakeRef<TPQImageBuffer>(width, height, vfRGB24);
    image->Fill(color);
    image->SetFormat(format);
    VideoPin.SubmitBuffer(std::move(image));
  }
  // With a time stamp, and a sequence number if it is not negative.
  void SendStamped(std::int64_t begin, std::int64_t end, int number = -1) {
    auto image = PQMakeRef<TPQImageBuffer>(16, 8, vfRGB24);
    image->Fill(0);
    image->GetTimeStamp().SetAvailable(true);
    image->GetTimeStamp().SetBegin(begin);
    image->GetTimeStamp().SetEnd(end);
    if (number >= 0) image->GetSequenceStamp().SetBufferNumber(number);
    VideoPin.SubmitBuffer(std::move(image));
  }
  void SendSound(int samples, int channels, int rate = 48000) {
    auto sound = PQMakeRef<THTAudioBuffer>(samples, channels, 16);
    sound->SetFormat(rate);
    std::memset(sound->WriteData(), 0, static_cast<std::size_t>(sound->GetByteSize()));
    AudioPin.SubmitBuffer(std::move(sound));
  }

 private:
  void BeforeDestruction() override {
    VideoPin.Disconnect();
    AudioPin.Disconnect();
  }
  TJCNotifyResult Up(TJCPin&, const TGUID*, IJCNotifyOperation&, TJCNotifyFlags) { return {}; }
};

// What is reported while it lives.
class Reports {
 public:
  Reports() {
    SetReportListener([this](const PQReportEntry& entry) {
      const std::lock_guard lock(mutex_);
      entries_.push_back(entry);
    });
  }
  ~Reports() { SetReportListener({}); }
  std::vector<PQReportEntry> All() {
    const std::lock_guard lock(mutex_);
    return entries_;
  }
  std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const PQReportEntry& entry : All()) texts.push_back(entry.text);
    return texts;
  }
  void Clear() {
    const std::lock_guard lock(mutex_);
    entries_.clear();
  }

 private:
  std::mutex mutex_;
  std::vector<PQReportEntry> entries_;
};

}  // namespace pantiq::test
