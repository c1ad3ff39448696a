// A media module whose graphs of codecs write down each call, fail at the n-th call or at a named step, and give a
// sample for each one that is sent, on a thread of their own.
#pragma once
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/FakeMedia.h"

namespace pantiq::test {

struct FakeCodecState {
  FakeLog log;
  std::atomic<int> live{0};       // graphs that exist
  std::atomic<bool> hold{false};  // sends wait until they are interrupted
  std::atomic<bool> keep{false};  // nothing comes out before the end of the stream
  std::atomic<int> delivered{0};  // samples that the grabber's events have returned from
  int width = 16, height = 8;     // of the frames that blocks become
  std::vector<PQFilterInfo> filters;
  std::mutex mutex;
  std::condition_variable changed;
  int holding = 0;             // sends that wait
  std::vector<FakeSent> sent;  // what went in
  void WaitForHolding() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return holding > 0; });
  }
  std::vector<FakeSent> Sent() {
    const std::lock_guard lock(mutex);
    return sent;
  }
};

class FakeCodecGraph final : public PQCodecGraph {
 public:
  explicit FakeCodecGraph(FakeCodecState& state) : state_(state) { ++state_.live; }
  ~FakeCodecGraph() override {
    End();
    --state_.live;
  }
  PQPlatformResult CreateGraph() override { return Step("CreateGraph"); }
  PQPlatformResult RegisterAdditionalFilters() override { return Step("RegisterAdditionalFilters"); }
  PQPlatformResult CreateCaptureBuilder() override { return Step("CreateCaptureBuilder"); }
  PQPlatformResult QueryMediaControl() override { return Step("QueryMediaControl"); }
  PQPlatformResult QueryMediaFilter() override { return Step("QueryMediaFilter"); }
  PQPlatformResult SetFiltergraph() override { return Step("SetFiltergraph"); }
  PQPlatformResult CreateFilter(PQFilterKind kind, PQVideoSubtype subtype, PQFilterId& filter) override {
    const bool yuy2 = kind == PQFilterKind::VideoSource && subtype == PQVideoSubtype::Yuy2;
    const char* const names[] = {"source", "?", "?", "binary", "grabber", "null"};
    filter = Name(names[static_cast<int>(kind)]);
    return Step("Create " + Of(filter) + (yuy2 ? " YUY2" : ""));
  }
  PQPlatformResult AddFilter(PQFilterId, const std::string& name) override { return Step("Add " + name); }
  PQPlatformResult RemoveFilter(PQFilterId id) override { return Step("Remove " + Of(id)); }
  void DestroyDownstream(PQFilterId) override {}
  PQPlatformResult SetVideoSize(PQFilterId, int width, int height, std::int64_t period) override {
    return Step("SetVideoSize " + std::to_string(width) + " " + std::to_string(height) + " " + std::to_string(period));
  }
  PQPlatformResult BindToObject(const std::string& moniker, PQFilterId& filter) override {
    filter = Name("codec");
    return Step("Bind " + moniker);
  }
  PQPlatformResult ApplySettings(PQFilterId, const std::string& settings) override {
    return Step("ApplySettings " + settings);
  }
  PQPlatformResult SetMediaType(PQFilterId id, PQGrabberType type) override {
    const char* const names[] = {"any", "video", "rgb24"};
    return Step("SetMediaType " + Of(id) + " " + names[static_cast<int>(type)]);
  }
  PQPlatformResult SetBufferSamples(PQFilterId id, bool) override { return Step("SetBufferSamples " + Of(id)); }
  PQPlatformResult SetOneShot(PQFilterId id, bool) override { return Step("SetOneShot " + Of(id)); }
  PQPlatformResult SetCallback(PQFilterId id, PQGrabberEvents* events) override {
    events_ = events;
    return Step("SetCallback " + Of(id));
  }
  PQPlatformResult SetStreamForm(PQFilterId, const PQStreamForm& form) override {
    return Step(form.kind == PQStreamForm::Kind::Rgb24
                    ? "SetStreamForm rgb24 " + std::to_string(form.header.biSizeImage)
                    : "SetStreamForm " + form.text);
  }
  PQPlatformResult GetConnectionMediaType(PQFilterId id, PQStreamForm& form) override {
    form.kind = PQStreamForm::Kind::Coded;
    form.text = "learnt";
    return Step("GetConnectionMediaType " + Of(id));
  }
  PQPlatformResult DisconnectGetNextFilter(PQFilterId id, PQFilterId& next) override {
    next = Name("decoder");
    return Step("DisconnectGetNextFilter " + Of(id));
  }
  PQPlatformResult Render(PQFilterId from, PQFilterId via, PQFilterId to) override {
    return Step("Render " + Of(from) + (via != 0 ? " by " + Of(via) : "") + " " + Of(to));
  }
  PQPlatformResult Run() override {
    auto result = Step("Run");
    if (result.Ok()) thread_ = std::thread([this] { Deliver(); });
    return result;
  }
  PQPlatformResult Stop() override {
    auto result = Step("Stop");
    End();
    return result;
  }
  PQPlatformResult SendVideo(PQFilterId, const PQPlatformBlock& frame) override {
    return Send("SendVideo", frame, frame.size / 3, true);
  }
  PQPlatformResult SendBlock(PQFilterId, const PQPlatformBlock& block, bool wait) override {
    return Send("SendBlock", block, static_cast<std::size_t>(state_.width * state_.height * 3), wait);
  }
  PQPlatformResult EndOfStream(PQFilterId id) override {
    auto result = Step("EndOfStream " + Of(id));
    const std::lock_guard lock(state_.mutex);
    ended_ = true;
    state_.changed.notify_all();
    return result;
  }
  PQPlatformResult Drain(int) override {
    auto result = Step("Drain");
    if (!result.Ok()) return result;
    std::unique_lock lock(state_.mutex);
    state_.changed.wait(lock, [this] { return interrupted_ || (inside_.empty() && !delivering_); });
    return interrupted_ ? PQPlatformResult(kPlatformInterrupted, "interrupted") : PQPlatformResult();
  }
  void Interrupt() override {
    const std::lock_guard lock(state_.mutex);
    interrupted_ = true;
    state_.changed.notify_all();
  }

 private:
  static constexpr std::size_t kRoom = 8;  // samples inside
  struct Sample {
    std::vector<std::uint8_t> bytes;
    std::int64_t begin, end;
  };
  PQFilterId Name(const std::string& name) {
    names_.push_back(name);
    return static_cast<PQFilterId>(names_.size());
  }
  std::string Of(PQFilterId id) const {
    return id >= 1 && id <= static_cast<int>(names_.size()) ? names_[static_cast<std::size_t>(id) - 1] : "none";
  }
  PQPlatformResult Step(const std::string& name) { return state_.log.Step(name); }
  PQPlatformResult Send(const char* name, const PQPlatformBlock& block, std::size_t out, bool wait) {
    auto result = Step(name);
    if (!result.Ok()) return result;
    std::unique_lock lock(state_.mutex);
    if (state_.hold.load() && wait) {
      ++state_.holding;
      state_.changed.notify_all();
      state_.changed.wait(lock, [this] { return interrupted_ || !state_.hold.load(); });
      --state_.holding;
    }
    if (wait && !state_.keep.load()) {
      state_.changed.wait(lock, [this] { return interrupted_ || inside_.size() < kRoom; });
    }
    if (interrupted_) return {kPlatformInterrupted, "interrupted"};
    FakeSent sent;
    sent.begin = block.begin, sent.end = block.end, sent.step = block.step;
    sent.bytes.assign(block.data, block.data + block.size);
    inside_.push_back({std::vector<std::uint8_t>(out, sent.bytes.front()), block.begin, block.end});
    state_.sent.push_back(std::move(sent));
    state_.changed.notify_all();
    return {};
  }
  void Deliver() {
    std::unique_lock lock(state_.mutex);
    for (;;) {
      state_.changed.wait(lock, [this] { return stopping_ || (!inside_.empty() && (ended_ || !state_.keep.load())); });
      if (stopping_) return;
      const Sample sample = std::move(inside_.front());
      inside_.pop_front();
      state_.changed.notify_all();
      delivering_ = true;
      lock.unlock();
      PQPlatformBlock block;
      block.data = sample.bytes.data(), block.size = sample.bytes.size();
      block.begin = sample.begin, block.end = sample.end;
      events_->SampleCB(block);
      ++state_.delivered;
      lock.lock();
      delivering_ = false;
      state_.changed.notify_all();
    }
  }
  void End() {
    {
      const std::lock_guard lock(state_.mutex);
      interrupted_ = stopping_ = true;
      state_.changed.notify_all();
    }
    if (thread_.joinable()) thread_.join();
  }
  FakeCodecState& state_;
  std::vector<std::string> names_;
  PQGrabberEvents* events_ = nullptr;
  std::thread thread_;
  // Under the state's mutex:
  std::deque<Sample> inside_;
  bool interrupted_ = false, stopping_ = false, ended_ = false, delivering_ = false;
};

// Takes the place of the real module while it lives.
class FakeCodecModule final : public PQMediaModule {
 public:
  FakeCodecModule() { SetMediaModule(this); }
  ~FakeCodecModule() override { SetMediaModule(nullptr); }
  std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult& result) override {
    result = {kPlatformMissing, "the fake has no reader"};
    return nullptr;
  }
  std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult& result) override {
    result = {kPlatformMissing, "the fake does not record"};
    return nullptr;
  }
  std::unique_ptr<PQCodecGraph> CreateCodecGraph(PQPlatformResult& result) override {
    result = {};
    return std::make_unique<FakeCodecGraph>(state);
  }
  PQPlatformResult EnumFilters(PQFilterCategory, std::vector<PQFilterInfo>& filters) override {
    filters = state.filters;
    return {};
  }
  PQPlatformResult ResolveProfile(const PQRecordingRequest&, PQRecordingProfile&) override {
    return {kPlatformMissing, "the fake does not record"};
  }
  FakeCodecState state;
};

}  // namespace pantiq::test
