#include "pantiq/platform/PQMediaReader.h"

#include <cstdlib>
#include <thread>

#include "platform/MediaFixture.h"

namespace pantiq::test {
namespace {

using PQMediaReaderTest = MediaTest;

struct Form {
  const char* name;
  ClipForm clip;
};

// What the writer made comes back: every frame in its place, its stamps, its rate, the sound's length.
TEST_F(PQMediaReaderTest, ReadsWhatTheWriterWrote) {
  const Form forms[] = {
      {"a.asf", {320, 240, 25, 400000, 44100, 2}},
      {"b.wmv", {320, 240, 30, 333667, 16000, 1}},
      {"silent.asf", {320, 240, 20, 200000, 0}},
      {"odd.asf", {321, 241, 12, 400000, 48000, 2}},
      {"c.mkv", {320, 240, 25, 400000, 44100, 2}},
      {"d.mp4", {320, 240, 25, 400000, 48000, 1}},
      {"e.avi", {320, 240, 25, 400000, 44100, 2}},
      {"odd.mp4", {321, 241, 25, 400000, 44100, 2}},
      {"odd.mkv", {321, 241, 25, 333333, 0}},
      {"film.asf", {128, 96, 24, 416667, 96000, 6}},
      {"noindex.asf", {320, 240, 25, 500000, 22050, 2, false}},
  };
  for (const Form& form : forms) {
    SCOPED_TRACE(form.name);
    const std::string path = folder.File(form.name);
    ASSERT_EQ(MakeClip(*module, path, form.clip), "");
    PQPlatformResult result;
    const auto reader = module->CreateReader(result);
    Consumer consumer;
    result = consumer.Open(*reader, path);
    ASSERT_TRUE(result.Ok()) << result.detail;
    EXPECT_EQ(consumer.video_props.width, form.clip.width);
    EXPECT_EQ(consumer.video_props.height, form.clip.height);
    EXPECT_NEAR(static_cast<double>(consumer.video_props.time_per_frame), static_cast<double>(form.clip.period), 1.0);
    EXPECT_EQ(consumer.audio >= 0, form.clip.sample_rate > 0);
    EXPECT_NEAR(static_cast<double>(reader->GetDuration()), static_cast<double>(form.clip.frames * form.clip.period),
                1.5e6);
    ASSERT_TRUE(reader->Start(0, 0, 1.0).Ok());
    consumer.Wait();
    EXPECT_TRUE(reader->Stop().Ok());
    EXPECT_TRUE(consumer.error.Ok()) << consumer.error.detail;
    const auto frames = consumer.Of(consumer.video);
    ASSERT_EQ(frames.size(), static_cast<std::size_t>(form.clip.frames));
    for (int i = 0; i < form.clip.frames; ++i) {
      const Delivered& frame = frames[static_cast<std::size_t>(i)];
      EXPECT_EQ(frame.number, i);
      EXPECT_LE(std::llabs(frame.time - i * form.clip.period), 10000) << "frame " << i;
    }
    if (form.clip.sample_rate > 0) {
      std::size_t bytes = 0;
      for (const Delivered& block : consumer.Of(consumer.audio)) bytes += block.size;
      const double seconds =
          static_cast<double>(bytes) / consumer.audio_props.block_align / consumer.audio_props.sample_rate;
      // Encoders add a block of silence at either end.
      EXPECT_NEAR(seconds, static_cast<double>(form.clip.frames * form.clip.period) / 1e7, 0.2);
    }
  }
}

TEST_F(PQMediaReaderTest, FramesComeInTheReceiversMemory) {
  const std::string path = folder.File("own.asf");
  ASSERT_EQ(MakeClip(*module, path, {320, 240, 10, 400000, 0}), "");
  PQPlatformResult result;
  const auto reader = module->CreateReader(result);
  Consumer consumer;
  consumer.give_memory = true;
  ASSERT_TRUE(consumer.Open(*reader, path).Ok());
  ASSERT_TRUE(reader->Start(0, 0, 1.0).Ok());
  consumer.Wait();
  (void)reader->Stop();
  const auto frames = consumer.Of(consumer.video);
  ASSERT_EQ(frames.size(), 10u);
  int own = 0;
  for (const Delivered& frame : frames) own += frame.own ? 1 : 0;
  EXPECT_GE(own, 9);  // the very first one may still be held by the sink that found the file's form
}

TEST_F(PQMediaReaderTest, BadFilesAreRefusedWithAReason) {
  const std::string good = folder.File("good.asf");
  ASSERT_EQ(MakeClip(*module, good, {320, 240, 10, 400000, 44100}), "");
  WriteFile(folder.File("empty.asf"), "");
  std::string text;
  for (int i = 0; i < 400; ++i) text += "this is a text file and no video\n";
  WriteFile(folder.File("text.asf"), text);
  WriteFile(folder.File("header.asf"), ReadFile(good).substr(0, 200));
  for (const char* name : {"missing.asf", "", "empty.asf", "text.asf", "header.asf"}) {
    SCOPED_TRACE(name);
    PQPlatformResult result;
    const auto reader = module->CreateReader(result);
    Consumer consumer;
    result = consumer.Open(*reader, folder.File(name));  // the empty name is the folder itself
    EXPECT_FALSE(result.Ok());
    EXPECT_GT(result.detail.size(), folder.File(name).size() + 2) << result.detail;
    int count = -1;
    EXPECT_FALSE(reader->GetOutputCount(count).Ok());
    EXPECT_FALSE(reader->Start(0, 0, 1.0).Ok());
  }
}

TEST_F(PQMediaReaderTest, ATruncatedFilePlaysWhatIsThere) {
  const std::string good = folder.File("good.asf"), cut = folder.File("cut.asf");
  ASSERT_EQ(MakeClip(*module, good, {320, 240, 50, 400000, 44100}), "");
  const std::string bytes = ReadFile(good);
  WriteFile(cut, bytes.substr(0, bytes.size() / 2));
  PQPlatformResult result;
  const auto reader = module->CreateReader(result);
  Consumer consumer;
  ASSERT_TRUE(consumer.Open(*reader, cut).Ok());
  ASSERT_TRUE(reader->Start(0, 0, 1.0).Ok());
  consumer.Wait();
  const auto frames = consumer.Of(consumer.video);
  EXPECT_GT(frames.size(), 5u);
  EXPECT_LT(frames.size(), 50u);
}

// Started again after a stop in the middle, after the end, and in a part of the file.
TEST_F(PQMediaReaderTest, StartsAgainAndInTheMiddle) {
  const std::string path = folder.File("again.asf");
  ASSERT_EQ(MakeClip(*module, path, {320, 240, 60, 400000, 44100}), "");
  PQPlatformResult result;
  const auto reader = module->CreateReader(result);
  Consumer consumer;
  ASSERT_TRUE(consumer.Open(*reader, path).Ok());
  EXPECT_TRUE(reader->IsSeekable());
  ASSERT_TRUE(reader->Start(0, 0, 1.0).Ok());
  EXPECT_FALSE(reader->Start(0, 0, 1.0).Ok()) << "it runs already";
  consumer.WaitForSamples(3);
  ASSERT_TRUE(reader->Stop().Ok());
  for (int round = 0; round < 2; ++round) {
    {
      const std::lock_guard lock(consumer.mutex);
      consumer.samples.clear();
      consumer.ended = 0;
    }
    ASSERT_TRUE(reader->Start(0, 0, 1.0).Ok());
    consumer.Wait();
    EXPECT_EQ(consumer.Of(consumer.video).size(), 60u);
    ASSERT_TRUE(reader->Stop().Ok());
  }
  {
    const std::lock_guard lock(consumer.mutex);
    consumer.samples.clear();
    consumer.ended = 0;
  }
  ASSERT_TRUE(reader->Start(10000000, 8000000, 1.0).Ok());
  consumer.Wait();
  const auto part = consumer.Of(consumer.video);
  ASSERT_FALSE(part.empty());
  EXPECT_EQ(part.front().number, 25);
  EXPECT_NEAR(static_cast<double>(part.size()), 20.0, 1.0);
}

TEST_F(PQMediaReaderTest, AWaitingConsumerHoldsItBackAndAReleasedOneLetsItStop) {
  const std::string path = folder.File("held.asf");
  ASSERT_EQ(MakeClip(*module, path, {320, 240, 100, 400000, 44100}), "");
  PQPlatformResult result;
  const auto reader = module->CreateReader(result);
  Consumer consumer;
  std::mutex gate;
  std::unique_lock closed(gate);
  consumer.on_sample = [&](int output) {
    if (output == consumer.video) const std::lock_guard pass(gate);
  };
  ASSERT_TRUE(consumer.Open(*reader, path).Ok());
  ASSERT_TRUE(reader->Start(0, 0, 1.0).Ok());
  while (consumer.Of(consumer.video).empty()) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(consumer.Of(consumer.video).size(), 1u);
  closed.unlock();
  EXPECT_TRUE(reader->Stop().Ok());
  const std::size_t count = consumer.Of(consumer.video).size();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(consumer.Of(consumer.video).size(), count) << "nothing comes after a stop";
}

TEST_F(PQMediaReaderTest, PauseHoldsAndResumeGoesOn) {
  const std::string path = folder.File("pause.asf");
  ASSERT_EQ(MakeClip(*module, path, {320, 240, 60, 400000, 0}), "");
  PQPlatformResult result;
  const auto reader = module->CreateReader(result);
  Consumer consumer;
  EXPECT_FALSE(reader->Pause().Ok());
  ASSERT_TRUE(consumer.Open(*reader, path).Ok());
  ASSERT_TRUE(reader->SetUserProvidedClock(false).Ok());  // 2.4 seconds at its own pace
  ASSERT_TRUE(reader->Start(0, 0, 1.0).Ok());
  consumer.WaitForSamples(3);
  ASSERT_TRUE(reader->Pause().Ok());
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const std::size_t held = consumer.Of(consumer.video).size();
  EXPECT_LT(held, 30u);
  ASSERT_TRUE(reader->SetUserProvidedClock(true).Ok());
  ASSERT_TRUE(reader->Resume().Ok());
  consumer.Wait();
  EXPECT_EQ(consumer.Of(consumer.video).size(), 60u);
}

// Files of other programs, with what readers trip over.
TEST_F(PQMediaReaderTest, ReadsForeignFiles) {
  if (!HaveProgram("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
  const std::string source = "-f lavfi -i testsrc2=size=320x240:rate=25:duration=1 ";
  const std::string sound = "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=1 ";
  struct Foreign {
    const char* name;
    std::string arguments;
    int width, height, notes;
    bool audio;
  };
  const Foreign files[] = {
      {"bframes.mp4", source + sound + "-c:v libx264 -bf 2 -pix_fmt yuv420p -c:a aac ", 320, 240, 0, true},
      {"ntsc.mkv", "-f lavfi -i testsrc2=size=320x240:rate=30000/1001:duration=1 -c:v ffv1 ", 320, 240, 0, false},
      {"wide.mp4", source + "-c:v libx264 -pix_fmt yuv420p -aspect 8:3 ", 640, 240, 1, false},
      {"deep.mkv", source + "-c:v ffv1 -pix_fmt yuv420p10le ", 320, 240, 1, false},
      {"rotated.mp4", "-i " + folder.File("bframes.mp4") + " -an -c copy -metadata:s:v rotate=90 ", 240, 320, 0, false},
      {"odd.mkv",
       "-f lavfi -i testsrc2=size=322x242:rate=25:duration=1 -vf crop=321:241:0:0:exact=1,format=yuv444p "
       "-c:v ffv1 ",
       321, 241, 0, false},
      {"alpha.mkv", source + "-vf 'format=yuva420p,geq=lum=lum(X\\,Y):a=X' -c:v ffv1 ", 320, 240, 0, false},
      {"uneven.mkv", source + "-vf 'select=lt(mod(n\\,5)\\,3)' -vsync vfr -c:v ffv1 ", 320, 240, 0, false},
      {"sound.mkv", sound + "-c:a flac ", 0, 0, 0, true},
  };
  for (const Foreign& file : files) {
    SCOPED_TRACE(file.name);
    const std::string path = folder.File(file.name);
    if (!RunFfmpeg(file.arguments + path)) continue;  // this ffmpeg cannot make it
    PQPlatformResult result;
    const auto reader = module->CreateReader(result);
    Consumer consumer;
    result = consumer.Open(*reader, path);
    ASSERT_TRUE(result.Ok()) << result.detail;
    EXPECT_EQ(consumer.video >= 0, file.width > 0);
    EXPECT_EQ(consumer.audio >= 0, file.audio);
    EXPECT_EQ(consumer.video_props.width, file.width);
    EXPECT_EQ(consumer.video_props.height, file.height);
    EXPECT_EQ(static_cast<int>(consumer.video_props.notes.size()), file.notes);
    ASSERT_TRUE(reader->Start(0, 0, 1.0).Ok());
    consumer.Wait();
    if (file.width == 0) continue;
    const auto frames = consumer.Of(consumer.video);
    const std::int64_t period = consumer.video_props.time_per_frame;
    if (std::string(file.name) == "uneven.mkv") {  // three of five, each at its own time
      ASSERT_EQ(frames.size(), 15u);
      for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_LE(std::llabs(frames[i].time - static_cast<std::int64_t>(i / 3 * 5 + i % 3) * 400000), 10000) << i;
      }
      continue;
    }
    EXPECT_EQ(period, std::string(file.name) == "ntsc.mkv" ? 333667 : 400000);
    EXPECT_EQ(frames.size(), std::string(file.name) == "ntsc.mkv" ? 30u : 25u);
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_LE(std::llabs(frames[i].time - static_cast<std::int64_t>(i) * period), 10000) << "frame " << i;
    }
  }
}

}  // namespace
}  // namespace pantiq::test
