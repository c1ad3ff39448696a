#include "pantiq/platform/PQMediaOutput.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <thread>

#include "platform/MediaFixture.h"

namespace pantiq::test {
namespace {

constexpr const char* kSink = "gst:element=fakesink";  // takes everything, at its time

// Counts what a clock or a graph tells.
class Counter {
 public:
  void Add() {
    const std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_all();
  }
  void WaitFor(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return count_ >= count; });
  }
  int Count() {
    const std::lock_guard lock(mutex_);
    return count_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

class OutputTest : public MediaTest {
 protected:
  void SetUp() override {
    MediaTest::SetUp();
    if (module == nullptr) return;
    output = module->CreateOutput(result);
    ASSERT_TRUE(output != nullptr) << result.detail;
  }
  // A graph from sources to devices that only look at the time.
  void Build(bool sound, const std::string& device = kSink) {
    ASSERT_TRUE(output->CreateCaptureBuilder().Ok());
    ASSERT_TRUE(output->CreateGraph().Ok());
    ASSERT_TRUE(output->SetFiltergraph().Ok());
    result = output->BindDevice(PQDeviceCategory::VideoRenderer, device, render);
    ASSERT_TRUE(result.Ok()) << result.detail;
    ASSERT_TRUE(output->AddFilter(render, "Video Render").Ok());
    ASSERT_TRUE(output->CreateFilter(PQOutputFilter::VideoSource, PQVideoSubtype::Rgb24, video).Ok());
    ASSERT_TRUE(output->SetVideoSize(video, 33, 16, kPeriod).Ok());
    ASSERT_TRUE(output->AddFilter(video, "VideoSource").Ok());
    if (sound) {
      ASSERT_TRUE(output->CreateFilter(PQOutputFilter::AudioSource, PQVideoSubtype::Rgb24, audio).Ok());
      ASSERT_TRUE(output->SetAudioFormat(audio, {48000, 2, 16}).Ok());
      ASSERT_TRUE(output->AddFilter(audio, "AudioSource").Ok());
    }
  }
  void Wire() {
    result = output->Render(video, 0, render);
    ASSERT_TRUE(result.Ok()) << result.detail;
    if (audio == 0) return;
    PQFilterId speaker = 0;
    ASSERT_TRUE(output->BindDevice(PQDeviceCategory::AudioRenderer, kSink, speaker).Ok());
    ASSERT_TRUE(output->AddFilter(speaker, "Audio Render").Ok());
    ASSERT_TRUE(output->Render(audio, 0, speaker).Ok());
  }
  PQPlatformResult SendFrame(int number) {
    const auto memory = std::make_shared<std::vector<std::uint8_t>>(33 * 3 * 16, std::uint8_t{0});
    PQPlatformBlock block;
    block.data = memory->data(), block.size = memory->size(), block.step = 33 * 3, block.keep_alive = memory;
    block.begin = number * kPeriod, block.end = block.begin + kPeriod;
    return output->SendVideo(video, block);
  }
  PQPlatformResult SendSound(int number, std::size_t& taken) {
    const auto memory = std::make_shared<std::vector<std::uint8_t>>(48000 / 25 * 4, std::uint8_t{0});
    PQPlatformBlock block;
    block.data = memory->data(), block.size = memory->size(), block.keep_alive = memory;
    block.begin = number * 400000, block.end = block.begin + 400000;
    return output->SendAudio(audio, block, taken);
  }
  static constexpr std::int64_t kPeriod = 100000;
  PQPlatformResult result;
  std::unique_ptr<PQMediaOutput> output;
  PQFilterId render = 0, video = 0, audio = 0;
};

TEST_F(OutputTest, PlaysAtTheDevicesPaceToTheEnd) {
  ASSERT_NO_FATAL_FAILURE(Build(true));
  ASSERT_NO_FATAL_FAILURE(Wire());
  EXPECT_EQ(SendFrame(0).code, kPlatformInterrupted) << "nothing runs";
  for (int run = 0; run < 2; ++run) {
    ASSERT_TRUE(output->Run().Ok());
    const auto clock = output->GetClock();
    ASSERT_TRUE(clock != nullptr);
    std::int64_t begin = 0, end = 0;
    (void)clock->GetTime(begin);
    std::size_t taken = 0;
    for (int i = 0; i < 40; ++i) {
      if (i % 4 == 0) {
        ASSERT_TRUE(SendSound(i / 4, taken).Ok());
        EXPECT_EQ(taken, 48000u / 25 * 4);
      }
      ASSERT_TRUE(SendFrame(i).Ok()) << i;
    }
    ASSERT_TRUE(output->EndOfStream(video).Ok());
    ASSERT_TRUE(output->EndOfStream(audio).Ok());
    result = output->Drain(20000);
    EXPECT_TRUE(result.Ok()) << result.detail;
    (void)clock->GetTime(end);
    EXPECT_GE(end - begin, 39 * kPeriod) << "the last frame is shown no sooner than its time";
    // Sound lets late frames be left out; each is one or the other.
    EXPECT_EQ(output->GetStatistics().shown + output->GetStatistics().dropped, 40);
    (void)output->Stop();
  }
}

TEST_F(OutputTest, WithoutSoundEveryFrameIsShown) {
  ASSERT_NO_FATAL_FAILURE(Build(false));
  ASSERT_NO_FATAL_FAILURE(Wire());
  ASSERT_TRUE(output->Run().Ok());
  for (int i = 0; i < 30; ++i) ASSERT_TRUE(SendFrame(i).Ok());
  ASSERT_TRUE(output->EndOfStream(video).Ok());
  ASSERT_TRUE(output->Drain(20000).Ok());
  EXPECT_EQ(output->GetStatistics().shown, 30);
  EXPECT_EQ(output->GetStatistics().dropped, 0);
}

TEST_F(OutputTest, PausesHoldsAndSteps) {
  ASSERT_NO_FATAL_FAILURE(Build(false));
  ASSERT_NO_FATAL_FAILURE(Wire());
  EXPECT_FALSE(output->Pause(false).Ok()) << "nothing runs";
  ASSERT_TRUE(output->Run().Ok());
  ASSERT_TRUE(SendFrame(0).Ok());
  EXPECT_FALSE(output->Step().Ok()) << "only what is paused goes frame by frame";
  ASSERT_TRUE(output->Pause(false).Ok());
  int sent = 1;
  PQPlatformResult refused;
  while ((refused = SendFrame(sent)).Ok()) ++sent;
  EXPECT_EQ(refused.code, kPlatformTimeout);
  EXPECT_LT(sent, 12) << "a paused graph fills up";
  // Held, a sender waits; steps make room for him.
  ASSERT_TRUE(output->Pause(true).Ok());
  Counter arrived;
  std::thread sender([&] {
    for (int i = 0; i < 3; ++i) {
      if (!SendFrame(sent++).Ok()) return;
      arrived.Add();
    }
  });
  for (int i = 0; i < 3; ++i) {
    while (output->Step().code == kPlatformTimeout) std::this_thread::yield();  // the one before is under way
    arrived.WaitFor(i + 1);
  }
  sender.join();
  // A waiting sender is released by the end of the hold, and by an interruption.
  std::thread waiting([&] { EXPECT_TRUE(SendFrame(sent++).Ok()); });
  ASSERT_TRUE(output->Run().Ok());
  waiting.join();
  ASSERT_TRUE(output->Pause(true).Ok());
  std::thread interrupted([&] {
    PQPlatformResult last;
    while ((last = SendFrame(sent++)).Ok()) {
    }
    EXPECT_EQ(last.code, kPlatformInterrupted);
  });
  output->Interrupt();
  interrupted.join();
  // After a stop everything begins at 0.
  ASSERT_TRUE(output->Stop().Ok());
  ASSERT_TRUE(output->Run().Ok());
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(SendFrame(i).Ok());
}

TEST_F(OutputTest, TheClockTicksOnceAndAgain) {
  ASSERT_NO_FATAL_FAILURE(Build(false));
  ASSERT_NO_FATAL_FAILURE(Wire());
  ASSERT_TRUE(output->Run().Ok());
  const auto clock = output->GetClock();
  ASSERT_TRUE(clock != nullptr);
  Counter ticks, once;
  std::int64_t now = 0, after = 0;
  std::uint64_t periodic = 0, single = 0;
  (void)clock->GetTime(now);
  ASSERT_TRUE(clock
                  ->AdvisePeriodic(
                      now + 50000, 50000, [&] { ticks.Add(); }, periodic)
                  .Ok());
  ASSERT_TRUE(clock
                  ->AdviseTime(
                      now, 120000, [&] { once.Add(); }, single)
                  .Ok());
  ticks.WaitFor(5);
  once.WaitFor(1);
  (void)clock->GetTime(after);
  EXPECT_GE(after - now, 5 * 50000);
  clock->Unadvise(periodic);
  const int count = ticks.Count();
  ASSERT_TRUE(clock
                  ->AdviseTime(
                      after, 200000, [&] { once.Add(); }, single)
                  .Ok());
  once.WaitFor(2);
  EXPECT_EQ(ticks.Count(), count) << "nothing comes after Unadvise";
  EXPECT_EQ(once.Count(), 2);
  EXPECT_FALSE(clock
                   ->AdvisePeriodic(
                       now, 0, [] {}, periodic)
                   .Ok());
  clock->Unadvise(4711);
}

// Digital video goes to a new file, and needs its encoder and multiplexer.
TEST_F(OutputTest, WritesDigitalVideo) {
  const std::string path = folder.File("new.dv");
  ASSERT_NO_FATAL_FAILURE(Build(true, "dv:" + path));
  EXPECT_FALSE(output->Render(video, 0, render).Ok()) << "the device does not take the stream as it is";
  PQFilterId mux = 0, encoder = 0, wrapper = 0;
  result = output->CreateFilter(PQOutputFilter::DVMux, PQVideoSubtype::Rgb24, mux);
  if (result.code == kPlatformMissing) GTEST_SKIP() << result.detail;
  ASSERT_TRUE(output->AddFilter(mux, "DV Mux").Ok());
  ASSERT_TRUE(output->CreateFilter(PQOutputFilter::DVEncoder, PQVideoSubtype::Rgb24, encoder).Ok());
  ASSERT_TRUE(output->AddFilter(encoder, "DV Encoder").Ok());
  ASSERT_TRUE(output->QueryDVEncoder(encoder).Ok());
  EXPECT_FALSE(output->QueryDVEncoder(mux).Ok());
  ASSERT_TRUE(output->SetDVFormat(encoder, {2001, 2007, 2012}).Ok());
  PQDVEncoderFormat format;
  ASSERT_TRUE(output->GetDVFormat(encoder, format).Ok());
  EXPECT_EQ(format.format, 2001);
  ASSERT_TRUE(output->CreateFilter(PQOutputFilter::AudioWrapper, PQVideoSubtype::Rgb24, wrapper).Ok());
  ASSERT_TRUE(output->AddFilter(wrapper, "ACM Wrapper").Ok());
  result = output->Render(video, 0, render);
  ASSERT_TRUE(result.Ok()) << result.detail;
  result = output->Render(audio, wrapper, mux);
  ASSERT_TRUE(result.Ok()) << result.detail;
  ASSERT_TRUE(output->Run().Ok());
  std::size_t taken = 0;
  for (int i = 0; i < 160; ++i) {  // more than the queues hold: nothing waits for an end
    if (i % 4 == 0) {
      ASSERT_TRUE(SendSound(i / 4, taken).Ok());
    }
    ASSERT_TRUE(SendFrame(i).Ok());
  }
  ASSERT_TRUE(output->EndOfStream(video).Ok());
  ASSERT_TRUE(output->EndOfStream(audio).Ok());
  result = output->Drain(30000);
  EXPECT_TRUE(result.Ok()) << result.detail;
  output.reset();
  const auto size = std::filesystem::file_size(path);
  EXPECT_GE(size, 39 * 144000u) << "1.6 s of 25 frames a second";
  EXPECT_EQ(size % 144000, 0u) << "whole frames";
  // What stands there stays.
  output = module->CreateOutput(result);
  ASSERT_TRUE(output->CreateGraph().Ok());
  EXPECT_EQ(output->BindDevice(PQDeviceCategory::VideoRenderer, "dv:" + path, render).code, kPlatformIo);
  EXPECT_EQ(std::filesystem::file_size(path), size);
}

TEST_F(OutputTest, BadDevicesAndBadInput) {
  ASSERT_TRUE(output->CreateGraph().Ok());
  for (const char* id : {"gst:element=nosuchsink", "gst:element=", "gst:device=Video/Sink/nobody",
                         "dv:", "dv:/no/such/folder/x.dv", "dv:/", "something"}) {
    result = output->BindDevice(PQDeviceCategory::VideoRenderer, id, render);
    EXPECT_FALSE(result.Ok()) << id;
    EXPECT_FALSE(result.detail.empty()) << id;
    EXPECT_EQ(render, 0);
  }
  EXPECT_FALSE(output->AddFilter(7, "x").Ok());
  EXPECT_FALSE(output->SetVideoSize(7, 1, 1, 1).Ok());
  EXPECT_FALSE(output->Render(1, 0, 2).Ok());
  EXPECT_FALSE(output->EndOfStream(-1).Ok());
  output = module->CreateOutput(result);
  ASSERT_NO_FATAL_FAILURE(Build(true));
  EXPECT_EQ(output->SetVideoSize(video, 0, 16, 1).code, kPlatformFormat);
  EXPECT_EQ(output->SetVideoSize(video, 16, 40000, 1).code, kPlatformFormat);
  EXPECT_EQ(output->SetAudioFormat(audio, {48000, 9, 16}).code, kPlatformFormat);
  EXPECT_EQ(output->SetAudioFormat(audio, {48000, 2, 8}).code, kPlatformFormat);
  ASSERT_NO_FATAL_FAILURE(Wire());
  ASSERT_TRUE(output->Run().Ok());
  PQPlatformBlock block;
  std::size_t taken = 9;
  EXPECT_EQ(output->SendVideo(video, block).code, kPlatformFormat);
  EXPECT_EQ(output->SendVideo(audio, block).code, kPlatformState);
  const std::uint8_t odd[3] = {};
  block.data = odd, block.size = sizeof odd;
  EXPECT_EQ(output->SendAudio(audio, block, taken).code, kPlatformFormat);
  EXPECT_EQ(taken, 0u);
}

TEST_F(OutputTest, ListsAndTriesDevices) {
  const auto devices = module->CreateOutputDevices(result);
  ASSERT_TRUE(devices != nullptr);
  for (const PQDeviceCategory category : {PQDeviceCategory::VideoRenderer, PQDeviceCategory::AudioRenderer}) {
    std::vector<PQOutputDevice> list;
    result = devices->Enumerate(category, list);
    EXPECT_EQ(result.Ok(), !list.empty());
    std::set<std::string> names;
    for (const PQOutputDevice& device : list) {
      EXPECT_TRUE(names.insert(device.name).second) << device.name;
      EXPECT_TRUE(device.id.starts_with("gst:")) << device.id;
    }
    const PQDeviceTrial trial = devices->Try(category, kSink);
    EXPECT_TRUE(trial.result.Ok()) << trial.result.detail;
    EXPECT_FALSE(trial.silent);
    EXPECT_EQ(devices->Try(category, "gst:element=nosuchsink").result.code, kPlatformMissing);
  }
}

}  // namespace
}  // namespace pantiq::test
