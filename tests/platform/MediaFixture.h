// The real media module for a test, and a consumer that writes down what a reader delivers.
#pragma once
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <vector>

#include "pantiq/platform/PQModules.h"
#include "support/MakeClip.h"

namespace pantiq::test {

class MediaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    PQPlatformResult result;
    module = LoadMediaModule(result);
    if (module == nullptr) GTEST_SKIP() << result.detail;
  }
  PQMediaModule* module = nullptr;
  TempFolder folder;
};

struct Delivered {
  int output;
  std::int64_t time, duration;
  std::size_t size;
  int number;  // of the picture
  bool own;
};

class Consumer : public PQMediaReaderEvents {
 public:
  // Opens the file and looks up the outputs.
  PQPlatformResult Open(PQMediaReader& reader, const std::string& path) {
    PQPlatformResult result = reader.Open(path, this);
    if (result.Ok()) {
      (void)reader.GetOutputCount(outputs);
      for (int i = 0; i < outputs; ++i) {
        PQMediaOutputProps props;
        (void)reader.GetOutputProps(i, props);
        if (props.major_type == PQMediaType::Video) video = i, video_props = props;
        if (props.major_type == PQMediaType::Audio) audio = i, audio_props = props;
      }
    }
    return result;
  }
  // Until every output has ended.
  void Wait() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return ended >= outputs; });
  }
  void WaitForSamples(std::size_t count) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return samples.size() >= count; });
  }
  std::vector<Delivered> Of(int output) {
    const std::lock_guard lock(mutex);
    std::vector<Delivered> found;
    for (const Delivered& sample : samples) {
      if (sample.output == output) found.push_back(sample);
    }
    return found;
  }

  void OnSample(int output, std::int64_t time, std::int64_t duration, unsigned,
                const PQPlatformBlock& sample) override {
    Delivered delivered{output, time, duration, sample.size, -1, sample.own};
    if (output == video && video_props.width >= 64 && video_props.height >= 16) {
      delivered.number = NumberOf(sample.data, sample.step, video_props.width);
    }
    {
      const std::lock_guard lock(mutex);
      samples.push_back(delivered);
      changed.notify_all();
    }
    if (on_sample) on_sample(output);
  }
  void OnFormat(int, const PQMediaOutputProps&) override { ++formats; }
  void OnEnd(int) override {
    const std::lock_guard lock(mutex);
    ++ended;
    changed.notify_all();
  }
  void OnError(const PQPlatformResult& result) override {
    const std::lock_guard lock(mutex);
    error = result;
  }
  std::shared_ptr<void> AllocateFrame(std::int64_t step, std::int64_t rows, std::uint8_t*& data) override {
    if (!give_memory) return nullptr;
    const auto size = static_cast<std::size_t>((step * rows + 63) / 64 * 64);
    std::shared_ptr<void> memory(std::aligned_alloc(64, size), std::free);
    data = static_cast<std::uint8_t*>(memory.get());
    return memory;
  }

  int outputs = 0, video = -1, audio = -1;
  PQMediaOutputProps video_props, audio_props;
  bool give_memory = false;
  std::function<void(int)> on_sample;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Delivered> samples;
  int ended = 0;
  std::atomic<int> formats{0};
  PQPlatformResult error;
};

}  // namespace pantiq::test
