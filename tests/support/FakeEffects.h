// A media module that has effects and nothing else, without an engine. Everything is written down; any step can fail,
// or throw, by name or by number.
#pragma once
#include <atomic>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "pantiq/platform/PQMediaModule.h"
#include "pantiq/platform/PQModules.h"
#include "support/FakeMedia.h"

namespace pantiq::test {

inline constexpr const char* kFakeId = "{0481BCB6-5276-5FB3-9D86-3A9E130F5D19}";

struct FakeEffectState {
  FakeLog log;
  std::vector<PQEffectInfo> list = {
      {"{00000000-0000-0000-0000-000000000001}", "Another", "another", "fakes", ""},
      {kFakeId, "Invert", "invert", "fakes", ""},
      {"{00000000-0000-0000-0000-000000000002}", "Invert", "invert2", "fakes", ""},
  };
  PQEffectWay way = PQEffectWay::InPlace;
  int inputs = 1, outputs = 1;
  bool own_memory = true;      // copies lie in the memory of whoever takes them
  std::int64_t cut = 0;        // bytes that a copied frame is short of
  std::string throw_step;      // throws an exception
  std::string throw_any_step;  // throws something that is none
  std::atomic<int> live{0};
  std::vector<std::uint8_t> kept;  // what copies lie in otherwise
  const std::uint8_t* seen = nullptr;

  PQPlatformResult Step(const std::string& name) {
    auto result = log.Step(name);
    if (name == throw_step) throw std::runtime_error("the fake throws at " + name);
    if (name == throw_any_step) throw 5;
    return result;
  }
};

// Inverts every byte.
class FakeEffect final : public PQEffect {
 public:
  explicit FakeEffect(FakeEffectState& state) : state_(state) { ++state_.live; }
  ~FakeEffect() override { --state_.live; }
  PQPlatformResult GetStreamCount(int& inputs, int& outputs) override {
    inputs = state_.inputs, outputs = state_.outputs;
    return state_.Step("GetStreamCount");
  }
  PQPlatformResult GetSettings(std::vector<PQEffectSetting>&) override { return {}; }
  PQPlatformResult SetSettings(const std::string& settings) override { return state_.Step("SetSettings " + settings); }
  PQPlatformResult SetInputType(const PQEffectType& type) override { return Type("SetInputType ", type); }
  PQPlatformResult SetOutputType(const PQEffectType& type) override { return Type("SetOutputType ", type); }
  PQEffectWay Way() override { return state_.way; }
  PQPlatformResult Process(const PQPlatformBlock& frame) override {
    state_.seen = frame.data;
    auto result = state_.Step("Process");
    auto* const to = const_cast<std::uint8_t*>(frame.data);
    for (std::size_t i = 0; i < frame.size; ++i) to[i] = static_cast<std::uint8_t>(~to[i]);
    return result;
  }
  PQPlatformResult ProcessInput(const PQPlatformBlock& frame) override {
    state_.seen = frame.data;
    given_ = frame;
    return state_.Step("ProcessInput");
  }
  PQPlatformResult ProcessOutput(const PQFrameMemory& memory, PQPlatformBlock& frame) override {
    const std::int64_t rows = static_cast<std::int64_t>(given_.size) / given_.step;
    std::uint8_t* to = nullptr;
    frame = {};
    frame.step = given_.step, frame.size = given_.size - static_cast<std::size_t>(state_.cut);
    if (state_.own_memory) {
      frame.keep_alive = memory(given_.step, rows, to);
    } else {
      state_.kept.resize(given_.size);
      to = state_.kept.data();
    }
    for (std::size_t i = 0; i < given_.size; ++i) to[i] = static_cast<std::uint8_t>(~given_.data[i]);
    frame.data = to, frame.own = state_.own_memory;
    given_ = {};
    return state_.Step("ProcessOutput");
  }

 private:
  PQPlatformResult Type(const std::string& step, const PQEffectType& type) {
    return state_.Step(step + std::to_string(type.width) + "x" + std::to_string(type.height));
  }
  FakeEffectState& state_;
  PQPlatformBlock given_;
};

class FakeEffects final : public PQEffects {
 public:
  explicit FakeEffects(FakeEffectState& state) : state_(state) {}
  PQPlatformResult Enumerate(std::vector<PQEffectInfo>& effects) override {
    effects = state_.list;
    return state_.Step("Enumerate");
  }
  std::unique_ptr<PQEffect> Create(const std::string& id, PQPlatformResult& result) override {
    result = state_.Step("Create " + id);
    return result.Ok() ? std::make_unique<FakeEffect>(state_) : nullptr;
  }
  void MorePackages(std::vector<PQEffectPackage>& packages) override {
    packages = {{"one-package", "3 effects"}, {"two-package", "4 effects"}};
  }

 private:
  FakeEffectState& state_;
};

// Takes the place of the real module while it lives.
class FakeEffectModule final : public PQMediaModule {
 public:
  FakeEffectModule() { SetMediaModule(this); }
  ~FakeEffectModule() override { SetMediaModule(nullptr); }
  std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult&) override { return nullptr; }
  std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult&) override { return nullptr; }
  PQPlatformResult ResolveProfile(const PQRecordingRequest&, PQRecordingProfile&) override { return {}; }
  std::unique_ptr<PQEffects> CreateEffects(PQPlatformResult& result) override {
    result = state.Step("CreateEffects");
    return result.Ok() ? std::make_unique<FakeEffects>(state) : nullptr;
  }
  FakeEffectState state;
};

}  // namespace pantiq::test
