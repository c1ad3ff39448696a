// A media module with output devices and nothing else, without an engine. Every call is written down; any step can
// fail, by name or by number. Its clock stands still until a test moves it.
#pragma once
#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pantiq/platform/PQMediaModule.h"
#include "pantiq/platform/PQModules.h"
#include "support/FakeMedia.h"

namespace pantiq::test {

class FakeClock final : public PQReferenceClock {
 public:
  explicit FakeClock(FakeLog& log) : log_(log) {}
  PQPlatformResult GetTime(std::int64_t& now) override {
    const std::lock_guard lock(mutex_);
    now = now_;
    return {};
  }
  PQPlatformResult AdvisePeriodic(std::int64_t start, std::int64_t period, std::function<void()> tick,
                                  std::uint64_t& cookie) override {
    auto result = log_.Step("AdvisePeriodic " + std::to_string(start) + " " + std::to_string(period));
    if (result.Ok()) cookie = Add({start, period, std::move(tick)});
    return result;
  }
  PQPlatformResult AdviseTime(std::int64_t base, std::int64_t delay, std::function<void()> tick,
                              std::uint64_t& cookie) override {
    auto result = log_.Step("AdviseTime " + std::to_string(base) + " " + std::to_string(delay));
    if (result.Ok()) cookie = Add({base + delay, 0, std::move(tick)});
    return result;
  }
  void Unadvise(std::uint64_t cookie) override {
    (void)log_.Step("Unadvise");
    const std::lock_guard lock(mutex_);
    advices_.erase(cookie);
  }
  // Moves the clock and runs what became due, in order.
  void Advance(std::int64_t by) {
    std::unique_lock lock(mutex_);
    const std::int64_t until = now_ + by;
    for (;;) {
      auto next = advices_.end();
      for (auto at = advices_.begin(); at != advices_.end(); ++at) {
        if (at->second.due <= until && (next == advices_.end() || at->second.due < next->second.due)) next = at;
      }
      if (next == advices_.end()) break;
      now_ = std::max(now_, next->second.due);
      const auto tick = next->second.tick;
      if (next->second.period > 0) {
        next->second.due += next->second.period;
      } else {
        advices_.erase(next);
      }
      lock.unlock();
      tick();
      lock.lock();
    }
    now_ = until;
  }
  // Until somebody waits for the clock.
  void WaitForAdvice() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !advices_.empty(); });
  }
  int Advices() {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(advices_.size());
  }

 private:
  struct Advice {
    std::int64_t due, period;
    std::function<void()> tick;
  };
  std::uint64_t Add(Advice advice) {
    const std::lock_guard lock(mutex_);
    advices_[++last_] = std::move(advice);
    changed_.notify_all();
    return last_;
  }
  FakeLog& log_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::uint64_t, Advice> advices_;
  std::uint64_t last_ = 0;
  std::int64_t now_ = 1000;
};

struct FakeOutputState {
  FakeLog log;
  std::vector<PQOutputDevice> video = {{"gst:element=screen", "A screen", ""}, {"gst:element=other", "Another", ""}};
  std::vector<PQOutputDevice> audio = {{"gst:element=speaker", "A speaker", ""}};
  bool needs_dv = false;
  std::atomic<bool> hold{false};                 // frames find no room, and wait
  std::atomic<int> refuse{0};                    // so many frames find no room, at once
  std::atomic<std::size_t> audio_room{1 << 30};  // bytes that a block of sound finds
  std::atomic<int> live{0}, holding{0};
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<FakeSent> sent;
  PQOutputListener on_event;
  PQDVEncoderFormat dv{2001, 2009, 2015};
  std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>(log);

  std::vector<FakeSent> Sent(bool video_only) {
    const std::lock_guard lock(mutex);
    std::vector<FakeSent> found;
    for (const FakeSent& block : sent) {
      if (block.video == video_only) found.push_back(block);
    }
    return found;
  }
  // "v 0 400000", "a 0 210000": what was sent, in order.
  std::vector<std::string> Order() {
    const std::lock_guard lock(mutex);
    std::vector<std::string> order;
    for (const FakeSent& block : sent) {
      order.push_back((block.video ? "v " : "a ") + std::to_string(block.begin) + " " + std::to_string(block.end));
    }
    return order;
  }
  void WaitForHolding() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return holding.load() > 0; });
  }
  void Tell(long event, const std::string& why) {
    PQOutputListener told;
    {
      const std::lock_guard lock(mutex);
      told = on_event;
    }
    if (told) told(event, {kPlatformIo, why});
  }
};

class FakeScreen final : public PQMediaOutput {
 public:
  explicit FakeScreen(FakeOutputState& state) : state_(state) { ++state_.live; }
  ~FakeScreen() override {
    const std::lock_guard lock(state_.mutex);
    state_.on_event = nullptr;
    --state_.live;
  }
  PQPlatformResult CreateCaptureBuilder() override { return Step("CreateCaptureBuilder"); }
  PQPlatformResult CreateGraph() override { return Step("CreateGraph"); }
  PQPlatformResult SetFiltergraph() override { return Step("SetFiltergraph"); }
  PQPlatformResult RegisterAdditionalFilters() override { return Step("RegisterAdditionalFilters"); }
  PQPlatformResult BindDevice(PQDeviceCategory, const std::string& id, PQFilterId& filter) override {
    return Make("Bind " + id, filter);
  }
  PQPlatformResult QueryMediaControl() override { return Step("QueryMediaControl"); }
  PQPlatformResult CreateFilter(PQOutputFilter kind, PQVideoSubtype subtype, PQFilterId& filter) override {
    const char* const names[] = {"VideoSource", "AudioSource", "DVMux", "DVEncoder", "ColorConverter", "AudioWrapper"};
    if (kind == PQOutputFilter::DVMux) mux_ = true;
    const bool yuy2 = kind == PQOutputFilter::VideoSource && subtype == PQVideoSubtype::Yuy2;
    return Make(std::string("Create ") + names[static_cast<int>(kind)] + (yuy2 ? " YUY2" : ""), filter);
  }
  PQPlatformResult AddFilter(PQFilterId, const std::string& name) override { return Step("Add " + name); }
  PQPlatformResult SetVideoSize(PQFilterId, int width, int height, std::int64_t period) override {
    return Step("SetVideoSize " + std::to_string(width) + " " + std::to_string(height) + " " + std::to_string(period));
  }
  PQPlatformResult SetAudioFormat(PQFilterId, const PQAudioFormat& format) override {
    return Step("SetAudioFormat " + std::to_string(format.sample_rate) + " " + std::to_string(format.channels));
  }
  PQDigitalVideoOffer QueryDigitalVideo(PQFilterId) override { return {true, false, true}; }
  PQPlatformResult QueryDVEncoder(PQFilterId) override { return Step("QueryDVEncoder"); }
  PQPlatformResult GetDVFormat(PQFilterId, PQDVEncoderFormat& format) override {
    const std::lock_guard lock(state_.mutex);
    format = state_.dv;
    return {};
  }
  PQPlatformResult SetDVFormat(PQFilterId, const PQDVEncoderFormat& format) override {
    const std::lock_guard lock(state_.mutex);
    state_.dv = format;
    return {};
  }
  PQPlatformResult Render(PQFilterId from, PQFilterId via, PQFilterId to) override {
    auto result = Step("Render " + names_[from] + (via != 0 ? " " + names_[via] : "") + " " + names_[to]);
    if (result.Ok() && state_.needs_dv && !mux_) result = {kPlatformFormat, "digital video only"};
    return result;
  }
  void SetMediaEvent(PQOutputListener on_event) override {
    const std::lock_guard lock(state_.mutex);
    state_.on_event = std::move(on_event);
  }
  PQPlatformResult QueryMediaFilter() override { return Step("QueryMediaFilter"); }
  PQPlatformResult Run() override {
    auto result = Step("Run");
    const std::lock_guard lock(state_.mutex);
    interrupted_ = !result.Ok();
    return result;
  }
  PQPlatformResult Pause(bool senders_wait) override { return Step(senders_wait ? "Hold" : "Pause"); }
  PQPlatformResult Stop() override {
    Interrupt();
    return Step("Stop");
  }
  PQPlatformResult Step() override { return Step("Step"); }
  std::shared_ptr<PQReferenceClock> GetClock() override { return state_.clock; }
  PQOutputStatistics GetStatistics() override {
    const std::lock_guard lock(state_.mutex);
    return {static_cast<std::int64_t>(state_.sent.size()), 0, 0};
  }
  PQPlatformResult SendVideo(PQFilterId, const PQPlatformBlock& frame) override {
    std::unique_lock lock(state_.mutex);
    if (state_.hold.load()) {
      ++state_.holding;
      state_.changed.notify_all();
      state_.changed.wait(lock, [this] { return interrupted_ || !state_.hold.load(); });
      --state_.holding;
    }
    if (interrupted_) return {kPlatformInterrupted, "interrupted"};
    if (state_.refuse.load() > 0) {
      --state_.refuse;
      return {kPlatformTimeout, "no room"};
    }
    Keep(true, frame, frame.size);
    return {};
  }
  PQPlatformResult SendAudio(PQFilterId, const PQPlatformBlock& block, std::size_t& taken) override {
    const std::lock_guard lock(state_.mutex);
    taken = 0;
    if (interrupted_) return {kPlatformInterrupted, "interrupted"};
    taken = std::min(block.size, state_.audio_room.load());
    if (taken > 0) Keep(false, block, taken);
    return {};
  }
  PQPlatformResult EndOfStream(PQFilterId source) override { return Step("EndOfStream " + names_[source]); }
  PQPlatformResult Drain(int limit) override { return Step(limit > 0 ? "Drain" : "Drain late"); }
  void Interrupt() override {
    const std::lock_guard lock(state_.mutex);
    interrupted_ = true;
    state_.changed.notify_all();
  }

 private:
  PQPlatformResult Step(const std::string& name) { return state_.log.Step(name); }
  PQPlatformResult Make(const std::string& name, PQFilterId& filter) {
    auto result = Step(name);
    filter = result.Ok() ? ++filters_ : 0;
    names_[filter] = name.substr(name.find(' ') + 1);
    return result;
  }
  void Keep(bool video, const PQPlatformBlock& block, std::size_t size) {
    state_.sent.push_back({video, block.begin, block.end, block.step, {block.data, block.data + size}});
    state_.changed.notify_all();
  }
  FakeOutputState& state_;
  int filters_ = 0;
  bool interrupted_ = true, mux_ = false;
  std::map<PQFilterId, std::string> names_;
};

class FakeDevices final : public PQOutputDevices {
 public:
  explicit FakeDevices(FakeOutputState& state) : state_(state) {}
  PQPlatformResult Enumerate(PQDeviceCategory category, std::vector<PQOutputDevice>& devices) override {
    devices = category == PQDeviceCategory::VideoRenderer ? state_.video : state_.audio;
    if (devices.empty()) return {kPlatformMissing, "there are none"};
    return state_.log.Step(category == PQDeviceCategory::VideoRenderer ? "Enumerate video" : "Enumerate audio");
  }
  PQDeviceTrial Try(PQDeviceCategory, const std::string&) override { return {}; }

 private:
  FakeOutputState& state_;
};

// Takes the place of the real module while it lives.
class FakeOutputModule final : public PQMediaModule {
 public:
  FakeOutputModule() { SetMediaModule(this); }
  ~FakeOutputModule() override { SetMediaModule(nullptr); }
  std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult&) override { return nullptr; }
  std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult&) override { return nullptr; }
  PQPlatformResult ResolveProfile(const PQRecordingRequest&, PQRecordingProfile&) override { return {}; }
  std::unique_ptr<PQMediaOutput> CreateOutput(PQPlatformResult& result) override {
    result = state.log.Step("CreateOutput");
    return result.Ok() ? std::make_unique<FakeScreen>(state) : nullptr;
  }
  std::unique_ptr<PQOutputDevices> CreateOutputDevices(PQPlatformResult& result) override {
    result = {};
    return std::make_unique<FakeDevices>(state);
  }
  FakeOutputState state;
};

}  // namespace pantiq::test
