// A media module without an engine: a reader that plays a script and a graph that takes everything. Both write down
// each call, and fail at the n-th call or at a named step.
#pragma once
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "pantiq/platform/PQMediaModule.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq::test {

struct FakeSample {
  std::int64_t time = 0, duration = 400000;
  int width = 0, height = 0;  // of a frame; 0: as announced
  std::size_t bytes = 0;      // 0: what belongs to a frame of the size
  std::uint8_t fill = 0;
};

struct FakeOutput {
  PQMediaOutputProps props;
  std::vector<FakeSample> samples;
};

inline FakeOutput FakeVideo(int width, int height, std::int64_t period, int frames) {
  FakeOutput output;
  output.props.major_type = PQMediaType::Video, output.props.subtype = PQMediaSubtype::Rgb24;
  output.props.format_type = PQMediaFormatType::VideoInfo;
  output.props.width = width, output.props.height = height, output.props.time_per_frame = period;
  for (int i = 0; i < frames; ++i) {
    output.samples.push_back({i * period, period, 0, 0, 0, static_cast<std::uint8_t>(i)});
  }
  return output;
}

inline FakeOutput FakeAudio(int sample_rate, int channels, int blocks, int samples_a_block) {
  FakeOutput output;
  output.props.major_type = PQMediaType::Audio, output.props.subtype = PQMediaSubtype::Pcm;
  output.props.format_type = PQMediaFormatType::WaveFormat;
  output.props.sample_rate = sample_rate, output.props.channels = channels, output.props.bits_per_sample = 16;
  output.props.block_align = output.props.sample_size = channels * 2;
  const std::int64_t length = std::int64_t{10000000} * samples_a_block / sample_rate;
  for (int i = 0; i < blocks; ++i) {
    output.samples.push_back({i * length, length, 0, 0, static_cast<std::size_t>(samples_a_block * channels * 2),
                              static_cast<std::uint8_t>(i)});
  }
  return output;
}

// What was called, in order, and what shall fail.
class FakeLog {
 public:
  // Fails the step of this name; "" fails none.
  void FailStep(const std::string& name) {
    const std::lock_guard lock(mutex_);
    fail_step_ = name;
  }
  void FailAt(int call) {
    const std::lock_guard lock(mutex_);
    fail_at_ = call;
  }
  void Clear() {
    const std::lock_guard lock(mutex_);
    calls_.clear();
  }
  std::vector<std::string> Calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
  }
  int Count(const std::string& start) const {
    const std::lock_guard lock(mutex_);
    int count = 0;
    for (const std::string& call : calls_) count += call.rfind(start, 0) == 0 ? 1 : 0;
    return count;
  }
  PQPlatformResult Step(const std::string& name) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(name);
    if (name == fail_step_ || static_cast<int>(calls_.size()) == fail_at_) return {77, "the fake fails at " + name};
    return {};
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  std::string fail_step_;
  int fail_at_ = -1;
};

struct FakeSent {
  bool video = false;
  std::int64_t begin = 0, end = 0, step = 0;
  std::vector<std::uint8_t> bytes;
};

struct FakeState {
  FakeLog log;
  std::vector<FakeOutput> outputs;
  std::int64_t duration = 0;
  std::atomic<int> live{0};       // readers and graphs that exist
  std::atomic<bool> hold{false};  // sends wait until they are interrupted
  std::atomic<int> holding{0};    // sends that wait
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<FakeSent> sent;
  std::vector<FakeSent> Sent(bool video) {
    const std::lock_guard lock(mutex);
    std::vector<FakeSent> found;
    for (const FakeSent& block : sent) {
      if (block.video == video) found.push_back(block);
    }
    return found;
  }
};

class FakeReader final : public PQMediaReader {
 public:
  explicit FakeReader(FakeState& state) : state_(state) { ++state_.live; }
  ~FakeReader() override {
    Close();
    --state_.live;
  }
  PQPlatformResult Open(const std::string& path, PQMediaReaderEvents* events) override {
    auto result = state_.log.Step("Open " + path);
    if (result.Ok()) events_ = events;
    return result;
  }
  void Close() override { End(); }
  PQPlatformResult GetOutputCount(int& count) override {
    count = static_cast<int>(state_.outputs.size());
    return state_.log.Step("GetOutputCount");
  }
  PQPlatformResult GetOutputProps(int output, PQMediaOutputProps& props) override {
    if (output < 0 || output >= static_cast<int>(state_.outputs.size())) return {kPlatformState, "no such output"};
    props = state_.outputs[static_cast<std::size_t>(output)].props;
    return {};
  }
  std::int64_t GetDuration() override { return state_.duration; }
  bool IsSeekable() override { return true; }
  PQPlatformResult SetUserProvidedClock(bool on) override {
    return state_.log.Step(on ? "SetUserProvidedClock" : "ClearUserProvidedClock");
  }
  PQPlatformResult Start(std::int64_t start, std::int64_t duration, double rate) override {
    auto result =
        state_.log.Step("Start " + std::to_string(start) + " " + std::to_string(duration) + " " + std::to_string(rate));
    if (!result.Ok()) return result;
    stop_ = false;
    for (std::size_t i = 0; i < state_.outputs.size(); ++i) {
      threads_.emplace_back([this, i] {
        try {
          Play(static_cast<int>(i));
        } catch (const std::bad_alloc&) {  // the fake's own: a reader that has no memory falls silent
        }
      });
    }
    return {};
  }
  PQPlatformResult Pause() override { return state_.log.Step("Pause"); }
  PQPlatformResult Resume() override { return state_.log.Step("Resume"); }
  PQPlatformResult Stop() override {
    auto result = state_.log.Step("Stop");
    End();
    return result;
  }
  void Interrupt() override {}

 private:
  void End() {
    stop_ = true;
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }
  void Play(int number) {
    const FakeOutput& output = state_.outputs[static_cast<std::size_t>(number)];
    PQMediaOutputProps props = output.props;
    for (const FakeSample& sample : output.samples) {
      if (stop_) return;
      if (sample.width > 0 && (sample.width != props.width || sample.height != props.height)) {
        props.width = sample.width, props.height = sample.height;
        events_->OnFormat(number, props);
      }
      const auto whole = static_cast<std::size_t>(props.width) * static_cast<std::size_t>(props.height) * 3;
      const auto memory =
          std::make_shared<std::vector<std::uint8_t>>(sample.bytes > 0 ? sample.bytes : whole, sample.fill);
      PQPlatformBlock block;
      block.data = memory->data(), block.size = memory->size(), block.step = std::int64_t{props.width} * 3;
      block.begin = sample.time, block.end = sample.time + sample.duration, block.keep_alive = memory;
      events_->OnSample(number, sample.time, sample.duration, 0, block);
    }
    if (!stop_) events_->OnEnd(number);
  }
  FakeState& state_;
  PQMediaReaderEvents* events_ = nullptr;
  std::atomic<bool> stop_{false};
  std::vector<std::thread> threads_;
};

class FakeGraph final : public PQMediaGraph {
 public:
  explicit FakeGraph(FakeState& state) : state_(state) { ++state_.live; }
  ~FakeGraph() override { --state_.live; }
  PQPlatformResult CreateGraph() override { return state_.log.Step("CreateGraph"); }
  PQPlatformResult RegisterAdditionalFilters() override { return state_.log.Step("RegisterAdditionalFilters"); }
  PQPlatformResult CreateCaptureBuilder() override { return state_.log.Step("CreateCaptureBuilder"); }
  PQPlatformResult QueryMediaControl() override { return state_.log.Step("QueryMediaControl"); }
  PQPlatformResult SetFiltergraph() override { return state_.log.Step("SetFiltergraph"); }
  PQPlatformResult CreateFilter(PQFilterKind kind, PQVideoSubtype subtype, PQFilterId& filter) override {
    const char* const names[] = {"VideoSource", "AudioSource", "AsfWriter"};
    const bool yuy2 = kind == PQFilterKind::VideoSource && subtype == PQVideoSubtype::Yuy2;
    filter = ++filters_;
    return state_.log.Step(std::string("Create ") + names[static_cast<int>(kind)] + (yuy2 ? " YUY2" : ""));
  }
  PQPlatformResult AddFilter(PQFilterId, const std::string& name) override { return state_.log.Step("Add " + name); }
  PQPlatformResult RemoveFilter(PQFilterId) override { return state_.log.Step("Remove"); }
  void DestroyDownstream(PQFilterId) override { (void)state_.log.Step("DestroyDownstream"); }
  PQPlatformResult QueryFileSink(PQFilterId) override { return state_.log.Step("QueryFileSink"); }
  PQPlatformResult SetFileName(PQFilterId, const std::string& path) override {
    return state_.log.Step("SetFileName " + path);
  }
  PQPlatformResult QueryAsfConfig(PQFilterId) override { return state_.log.Step("QueryAsfConfig"); }
  PQPlatformResult ConfigureUsingProfile(PQFilterId, const PQRecordingProfile&) override {
    return state_.log.Step("ConfigureUsingProfile");
  }
  PQPlatformResult SetIndexMode(PQFilterId, bool on) override {
    return state_.log.Step(on ? "SetIndexMode" : "ClearIndexMode");
  }
  PQPlatformResult SetAudioFormat(PQFilterId, const PQAudioFormat& format, bool flag, int milliseconds) override {
    return state_.log.Step("SetAudioFormat " + std::to_string(format.sample_rate) + " " +
                           std::to_string(format.channels) + " " + std::to_string(format.bits_per_sample) +
                           (flag ? " true " : " false ") + std::to_string(milliseconds));
  }
  PQPlatformResult SetVideoSize(PQFilterId, int width, int height, std::int64_t period) override {
    return state_.log.Step("SetVideoSize " + std::to_string(width) + " " + std::to_string(height) + " " +
                           std::to_string(period));
  }
  PQPlatformResult Render(PQFilterId from, PQFilterId via, PQFilterId to) override {
    return state_.log.Step("Render " + std::to_string(from) + " " + std::to_string(via) + " " + std::to_string(to));
  }
  PQPlatformResult Run() override { return state_.log.Step("Run"); }
  PQPlatformResult Stop() override {
    Interrupt();
    return state_.log.Step("Stop");
  }
  PQPlatformResult SendVideo(PQFilterId, const PQPlatformBlock& frame) override { return Send(true, frame); }
  PQPlatformResult SendAudio(PQFilterId, const PQPlatformBlock& block) override { return Send(false, block); }
  PQPlatformResult EndOfStream(PQFilterId source) override {
    return state_.log.Step("EndOfStream " + std::to_string(source));
  }
  PQPlatformResult Drain(int limit) override { return state_.log.Step("Drain " + std::to_string(limit)); }
  void Interrupt() override {
    const std::lock_guard lock(state_.mutex);
    interrupted_ = true;
    state_.changed.notify_all();
  }

 private:
  PQPlatformResult Send(bool video, const PQPlatformBlock& block) {
    auto result = state_.log.Step(video ? "SendVideo" : "SendAudio");
    std::unique_lock lock(state_.mutex);
    if (!result.Ok()) return result;
    if (state_.hold.load()) {
      ++state_.holding;
      state_.changed.wait(lock, [this] { return interrupted_ || !state_.hold.load(); });
      --state_.holding;
    }
    if (interrupted_) return {kPlatformInterrupted, "interrupted"};
    state_.sent.push_back({video, block.begin, block.end, block.step, {block.data, block.data + block.size}});
    return {};
  }
  FakeState& state_;
  int filters_ = 0;
  bool interrupted_ = false;
};

// Takes the place of the real module while it lives.
class FakeModule final : public PQMediaModule {
 public:
  FakeModule() { SetMediaModule(this); }
  ~FakeModule() override { SetMediaModule(nullptr); }
  std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult& result) override {
    result = state.log.Step("CreateReader");
    return result.Ok() ? std::make_unique<FakeReader>(state) : nullptr;
  }
  std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult& result) override {
    result = {};
    return std::make_unique<FakeGraph>(state);
  }
  PQPlatformResult ResolveProfile(const PQRecordingRequest& request, PQRecordingProfile& profile) override {
    last_request = request;
    profile.container = "asf";
    return state.log.Step("ResolveProfile");
  }
  FakeState state;
  PQRecordingRequest last_request;
};

}  // namespace pantiq::test
