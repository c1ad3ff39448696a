#include "pantiq/platform/PQMediaGraph.h"

#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "platform/MediaFixture.h"

namespace pantiq::test {
namespace {

class PQMediaGraphTest : public MediaTest {
 protected:
  // Builds up to, but not with, Run.
  std::string Build(const std::string& path, int width = 320, int height = 240, int sample_rate = 0,
                    std::string video_codec = {}) {
    PQPlatformResult result;
    graph = module->CreateGraph(result);
    PQRecordingRequest request;
    request.file_name = path, request.width = width, request.height = height,
    request.video_codec = std::move(video_codec);
    result = module->ResolveProfile(request, profile);
    if (result.Ok()) result = graph->CreateGraph();
    if (result.Ok()) result = graph->CreateFilter(PQFilterKind::AsfWriter, PQVideoSubtype::Rgb24, writer);
    if (result.Ok()) result = graph->AddFilter(writer, "writer");
    if (result.Ok()) result = graph->SetFileName(writer, path);
    if (result.Ok()) result = graph->ConfigureUsingProfile(writer, profile);
    if (result.Ok() && sample_rate > 0) {
      result = graph->CreateFilter(PQFilterKind::AudioSource, PQVideoSubtype::Rgb24, audio);
      if (result.Ok()) result = graph->SetAudioFormat(audio, {sample_rate, 2, 16}, false, 1000);
      if (result.Ok()) result = graph->AddFilter(audio, "audio");
      if (result.Ok()) result = graph->Render(audio, 0, writer);
    }
    if (result.Ok()) result = graph->CreateFilter(PQFilterKind::VideoSource, PQVideoSubtype::Rgb24, video);
    if (result.Ok()) result = graph->SetVideoSize(video, width, height, 400000);
    if (result.Ok()) result = graph->AddFilter(video, "video");
    if (result.Ok()) result = graph->Render(video, 0, writer);
    return result.Ok() ? "" : "failed: " + result.detail;
  }
  PQPlatformResult Send(int number, int width = 320, int height = 240) {
    const auto memory = std::make_shared<std::vector<std::uint8_t>>(TestPicture(width, height, number));
    PQPlatformBlock block;
    block.data = memory->data(), block.size = memory->size(), block.step = width * 3;
    block.begin = number * std::int64_t{400000}, block.end = block.begin + 400000, block.keep_alive = memory;
    return graph->SendVideo(video, block);
  }
  int FramesIn(const std::string& path) {
    PQPlatformResult result;
    const auto reader = module->CreateReader(result);
    Consumer consumer;
    if (!consumer.Open(*reader, path).Ok() || !reader->Start(0, 0, 1.0).Ok()) return -1;
    consumer.Wait();
    return static_cast<int>(consumer.Of(consumer.video).size());
  }
  std::unique_ptr<PQMediaGraph> graph;
  PQRecordingProfile profile;
  PQFilterId writer = 0, audio = 0, video = 0;
};

TEST_F(PQMediaGraphTest, PathsThatCannotBeWrittenAreRefusedBeforeAnythingIsTouched) {
  WriteFile(folder.File("file"), "x");
  for (const char* name : {"", "no/such/folder/a.asf", "file/a.asf"}) {
    EXPECT_NE(Build(folder.File(name)), "") << name;
  }
  EXPECT_NE(Build(""), "");
  if (geteuid() != 0) {
    WriteFile(folder.File("locked.asf"), "old");
    chmod(folder.File("locked.asf").c_str(), 0444);
    EXPECT_NE(Build(folder.File("locked.asf")), "");
  }
  EXPECT_EQ(Build(folder.File("new.asf")), "");
  EXPECT_FALSE(std::filesystem::exists(folder.File("new.asf"))) << "proving a path leaves no file";
}

// What stands there is replaced by the first sample and by nothing before it.
TEST_F(PQMediaGraphTest, TheOldFileStaysUntilASampleComes) {
  const std::string path = folder.File("old.asf");
  WriteFile(path, "the old file");
  EXPECT_NE(Build(path, 321, 241, 0, "WMV2"), "") << "WMV2 takes no odd sizes";
  EXPECT_EQ(ReadFile(path), "the old file");
  ASSERT_EQ(Build(path), "");
  EXPECT_EQ(ReadFile(path), "the old file");
  ASSERT_TRUE(graph->Run().Ok());
  EXPECT_TRUE(graph->EndOfStream(video).Ok());
  EXPECT_TRUE(graph->Drain(5000).Ok());
  EXPECT_TRUE(graph->Stop().Ok());
  EXPECT_EQ(ReadFile(path), "the old file");
  ASSERT_EQ(Build(path), "");
  ASSERT_TRUE(graph->Run().Ok());
  ASSERT_TRUE(Send(0).Ok());
  EXPECT_TRUE(graph->EndOfStream(video).Ok());
  EXPECT_TRUE(graph->Drain(5000).Ok());
  EXPECT_EQ(FramesIn(path), 1);
}

// Sound that was announced and never comes holds up neither the frames nor the end of the file.
TEST_F(PQMediaGraphTest, MissingSoundHoldsUpNothing) {
  const std::string path = folder.File("mute.asf");
  ASSERT_EQ(Build(path, 320, 240, 44100), "");
  ASSERT_TRUE(graph->Run().Ok());
  for (int i = 0; i < 60; ++i) ASSERT_TRUE(Send(i).Ok());
  EXPECT_TRUE(graph->EndOfStream(audio).Ok());
  EXPECT_TRUE(graph->EndOfStream(video).Ok());
  const PQPlatformResult result = graph->Drain(20000);
  EXPECT_TRUE(result.Ok()) << result.detail;
  EXPECT_EQ(FramesIn(path), 60);
}

TEST_F(PQMediaGraphTest, AFullDiskEndsTheRecordingWithAReason) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "there is no /dev/full";
  ASSERT_EQ(Build("/dev/full"), "");
  ASSERT_TRUE(graph->Run().Ok());
  PQPlatformResult result;
  for (int i = 0; i < 1000 && result.Ok(); ++i) result = Send(i % 256);
  if (result.Ok()) {
    (void)graph->EndOfStream(video);
    result = graph->Drain(20000);
  }
  EXPECT_EQ(result.code, kPlatformIo) << result.detail;
}

TEST_F(PQMediaGraphTest, InterruptReleasesASender) {
  ASSERT_EQ(Build(folder.File("busy.asf"), 1280, 720), "");
  ASSERT_TRUE(graph->Run().Ok());
  std::atomic<bool> released{false};
  std::atomic<int> sent{0};
  std::thread sender([&] {
    PQPlatformResult result;
    for (int i = 0; i < 100000 && result.Ok(); ++i, ++sent) result = Send(i % 256, 1280, 720);
    released = result.code == kPlatformInterrupted;
  });
  while (sent < 3) std::this_thread::yield();  // the encoder has begun
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  graph->Interrupt();
  sender.join();
  EXPECT_TRUE(released);
  EXPECT_EQ(Send(0, 1280, 720).code, kPlatformInterrupted) << "until the next run";
  EXPECT_TRUE(graph->EndOfStream(video).Ok());
  EXPECT_TRUE(graph->Drain(20000).Ok()) << "the end can still be written";
  EXPECT_GT(FramesIn(folder.File("busy.asf")), 0);
}

TEST_F(PQMediaGraphTest, MemoryOfAFrameIsLetGo) {
  ASSERT_EQ(Build(folder.File("memory.asf")), "");
  ASSERT_TRUE(graph->Run().Ok());
  auto memory = std::make_shared<std::vector<std::uint8_t>>(TestPicture(320, 240, 1));
  const std::weak_ptr<std::vector<std::uint8_t>> watch = memory;
  PQPlatformBlock block;
  block.data = memory->data(), block.size = memory->size(), block.step = 320 * 3, block.end = 400000;
  block.keep_alive = std::move(memory);
  block.size -= 1;
  EXPECT_EQ(graph->SendVideo(video, block).code, kPlatformFormat) << "smaller than announced";
  block.size += 1;
  ASSERT_TRUE(graph->SendVideo(video, block).Ok());
  block = {};
  (void)graph->EndOfStream(video);
  EXPECT_TRUE(graph->Drain(20000).Ok());
  EXPECT_TRUE(watch.expired());
}

TEST_F(PQMediaGraphTest, StepsOutOfOrderAreRefused) {
  PQPlatformResult result;
  graph = module->CreateGraph(result);
  PQFilterId filter = 0;
  EXPECT_FALSE(graph->CreateFilter(PQFilterKind::VideoSource, PQVideoSubtype::Rgb24, filter).Ok());
  EXPECT_FALSE(graph->Run().Ok());
  ASSERT_TRUE(graph->CreateGraph().Ok());
  EXPECT_FALSE(graph->AddFilter(7, "none").Ok());
  ASSERT_TRUE(graph->CreateFilter(PQFilterKind::VideoSource, PQVideoSubtype::Rgb24, filter).Ok());
  EXPECT_FALSE(graph->SetFileName(filter, folder.File("a.asf")).Ok());
  EXPECT_FALSE(graph->Render(filter, 0, filter).Ok());
  EXPECT_FALSE(graph->SetVideoSize(filter, 0, 240, 400000).Ok());
  EXPECT_FALSE(graph->SendVideo(filter, {}).Ok());
  EXPECT_TRUE(graph->RemoveFilter(filter).Ok());
  EXPECT_FALSE(graph->RemoveFilter(filter).Ok());
  EXPECT_TRUE(graph->Stop().Ok());
}

TEST_F(PQMediaGraphTest, ProfilesSayWhatDoesNotGoTogether) {
  PQRecordingRequest request;
  request.file_name = "a.mp4";
  request.video_codec = "WMV2";
  PQPlatformResult result = module->ResolveProfile(request, profile);
  EXPECT_EQ(result.code, kPlatformFormat);
  EXPECT_NE(result.detail.find("mp4"), std::string::npos) << result.detail;
  request.video_codec = "auto", request.container = "ogg";
  EXPECT_FALSE(module->ResolveProfile(request, profile).Ok());
  request.container = "auto", request.file_name = "without_an_ending";
  ASSERT_TRUE(module->ResolveProfile(request, profile).Ok());
  EXPECT_EQ(profile.container, "asf");
  EXPECT_EQ(profile.video_codec, "WMV2");
  request.height = 241;
  ASSERT_TRUE(module->ResolveProfile(request, profile).Ok());
  EXPECT_EQ(profile.video_codec, "MP43");
}

}  // namespace
}  // namespace pantiq::test
