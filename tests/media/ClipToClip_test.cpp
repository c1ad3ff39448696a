// The real engine: a file through filters into a file, with ends at every time.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "media/TestStreams.h"
#include "pantiq/filters/PQMirror.h"
#include "pantiq/media/PQASFLogger.h"
#include "pantiq/media/PQASFPlayer.h"
#include "pantiq/platform/PQModules.h"
#include "support/MakeClip.h"

namespace pantiq::test {
namespace {

// Knows when the stream of a pin has ended, and how many frames it has had.
class Watch final : public IJCPinProbe {
 public:
  explicit Watch(TJCPin& pin) : pin_(pin) { pin_.SetProbe(this); }
  ~Watch() override { pin_.SetProbe(nullptr); }
  bool Before(TJCPin&, IJCNotifyOperation&) override { return true; }
  void After(TJCPin&, IJCNotifyOperation& op) override {
    const std::lock_guard lock(mutex_);
    if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) ++frames_;
    if (JCOperation<TJCStopOperation>(op) != nullptr) ++stops_;
    changed_.notify_all();
  }
  void WaitForStops(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return stops_ >= count; });
  }
  void WaitForFrames(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return frames_ >= count; });
  }

 private:
  TJCPin& pin_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int frames_ = 0, stops_ = 0;
};

class ClipToClip : public ::testing::Test {
 protected:
  void SetUp() override {
    PQPlatformResult result;
    module = LoadMediaModule(result);
    if (module == nullptr) GTEST_SKIP() << result.detail;
    Make();
  }
  void Make() {
    player = std::make_unique<TPQASFPlayer>();
    mirror = std::make_unique<TPQMirror>();
    logger = std::make_unique<TPQASFLogger>();
    mirror->SetMirrorType(mtVertical);
    ASSERT_TRUE(mirror->InputPin.Connect(player->OutputPin).Ok());
    ASSERT_TRUE(logger->InputPin.Connect(mirror->OutputPin).Ok());
    ASSERT_TRUE(logger->AudioInputPin.Connect(player->AudioOutputPin).Ok());
  }
  // Until the last stream has ended: the recording is closed then.
  void RunToTheEnd(bool with_sound) {
    Watch picture(logger->InputPin), sound(logger->AudioInputPin);
    Start(logger->InputPin);
    Start(logger->AudioInputPin);
    picture.WaitForStops(1);
    if (with_sound) sound.WaitForStops(1);
  }
  struct Content {
    std::vector<SeenFrame> frames;
    std::vector<int> numbers;
    double sound = 0;  // seconds
    std::int64_t period = 0;
  };
  // Plays the file by itself.
  Content Play(const std::string& path) {
    TPQASFPlayer reader;
    StreamSink sink;
    Content content;
    std::int64_t samples = 0;
    int rate = 1;
    sink.on_op = [&](bool video, IJCNotifyOperation& op) {
      auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op);
      if (auto* wave = JCOperation<TJCStartWaveOperation>(op)) rate = wave->Format.samples_per_second;
      if (supplied == nullptr) return;
      if (!video) {
        samples += supplied->Buffer->GetCount();
        return;
      }
      const auto image = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
      content.numbers.push_back(NumberOf(image->Read(), image->GetStep(), image->GetWidth()));
    };
    reader.SetFileName(path);
    EXPECT_TRUE(sink.VideoPin.Connect(reader.OutputPin).Ok());
    EXPECT_TRUE(sink.AudioPin.Connect(reader.AudioOutputPin).Ok());
    Start(sink.VideoPin);
    if (!reader.IsRunning() && sink.Log().size() < 3) return content;  // it did not open
    sink.WaitFor("v TJCStopOperation");
    content.frames = sink.Frames();
    content.sound = static_cast<double>(samples) / rate;
    content.period = reader.GetFramePeriod();
    return content;
  }
  // The number of a picture whose strip was flipped.
  static int Flipped(int number) {
    int flipped = 0;
    for (int bit = 0; bit < 8; ++bit) flipped |= ((number >> bit) & 1) << (7 - bit);
    return flipped;
  }
  PQMediaModule* module = nullptr;
  TempFolder folder;
  Reports reports;
  std::unique_ptr<TPQASFPlayer> player;
  std::unique_ptr<TPQMirror> mirror;
  std::unique_ptr<TPQASFLogger> logger;
};

TEST_F(ClipToClip, KeepsEveryFrameAndTheSound) {
  const struct {
    const char* name;
    ClipForm form;
    const char* output;
  } clips[] = {
      {"a.asf", {320, 240, 60, 333667, 44100, 2}, "a_out.asf"},
      {"b.asf", {320, 240, 40, 400000, 0, 0}, "b_out.asf"},
      {"c.asf", {322, 242, 50, 500000, 16000, 1}, "c_out.mkv"},
      {"d.asf", {321, 241, 30, 400000, 48000, 2}, "d_out.mp4"},
      {"e.mp4", {320, 240, 50, 400000, 48000, 2}, "e_out.avi"},
  };
  for (const auto& clip : clips) {
    SCOPED_TRACE(clip.name);
    ASSERT_EQ(MakeClip(*module, folder.File(clip.name), clip.form), "");
    player->SetFileName(folder.File(clip.name));
    logger->SetFileName(folder.File(clip.output));
    RunToTheEnd(clip.form.sample_rate != 0);
    EXPECT_FALSE(logger->IsRunning());
    for (const std::string& text : reports.Texts()) ADD_FAILURE() << text;
    const Content content = Play(folder.File(clip.output));
    ASSERT_EQ(content.numbers.size(), static_cast<std::size_t>(clip.form.frames));
    for (int i = 0; i < clip.form.frames; ++i) {
      EXPECT_EQ(content.numbers[static_cast<std::size_t>(i)], Flipped(i));
      EXPECT_LE(std::abs(content.frames[static_cast<std::size_t>(i)].begin - i * clip.form.period), 10000);
    }
    EXPECT_NEAR(static_cast<double>(content.period), static_cast<double>(clip.form.period), 1.0);
    const double seconds =
        clip.form.sample_rate == 0 ? 0 : clip.form.frames * static_cast<double>(clip.form.period) / 1e7;
    EXPECT_NEAR(content.sound, seconds, 0.3);
  }
}

// A stop in the middle closes a file that plays; the same components record again.
TEST_F(ClipToClip, AStopInTheMiddleLeavesAFileThatPlays) {
  ASSERT_EQ(MakeClip(*module, folder.File("long.asf"), {320, 240, 250, 400000, 44100, 2}), "");
  player->SetFileName(folder.File("long.asf"));
  for (int round = 0; round < 3; ++round) {
    const std::string output = folder.File("cut" + std::to_string(round) + ".asf");
    logger->SetFileName(output);
    Watch watch(logger->InputPin);
    Start(logger->InputPin);
    watch.WaitForFrames(20 + 15 * round);
    StopUp(logger->InputPin);
    EXPECT_FALSE(player->IsRunning());
    player->OutputPin.Stop();
    player->AudioOutputPin.Stop();
    EXPECT_FALSE(logger->IsRunning());
    const Content content = Play(output);
    ASSERT_GE(content.numbers.size(), static_cast<std::size_t>(20 + 15 * round));
    for (std::size_t i = 0; i < content.numbers.size(); ++i)
      EXPECT_EQ(content.numbers[i], Flipped(static_cast<int>(i)));
    EXPECT_GT(content.sound, 0.5);
  }
  for (const std::string& text : reports.Texts()) ADD_FAILURE() << text;
}

// Each of the three dies while the stream runs, in every order.
TEST_F(ClipToClip, AnyOfThemMayDieWhileItRuns) {
  ASSERT_EQ(MakeClip(*module, folder.File("long.asf"), {64, 48, 250, 400000, 44100, 2}), "");
  for (int round = 0; round < 6; ++round) {
    player->SetFileName(folder.File("long.asf"));
    logger->SetFileName(folder.File("dying.asf"));
    {
      Watch watch(logger->InputPin);
      Start(logger->InputPin);
      watch.WaitForFrames(20 + round);  // more than the graph holds
    }
    if (round % 3 == 0) player.reset();
    if (round % 3 == 1) mirror.reset();
    if (round % 3 == 2) logger.reset();
    if (round >= 3) mirror.reset();
    logger.reset();
    player.reset();
    mirror.reset();
    EXPECT_GT(Play(folder.File("dying.asf")).numbers.size(), 0u) << "what was written plays";
    Make();
  }
}

TEST_F(ClipToClip, WhatCannotBeReadOrWrittenIsToldAndTheOldFileStays) {
  ASSERT_EQ(MakeClip(*module, folder.File("good.asf"), {320, 240, 10, 400000, 0}), "");
  WriteFile(folder.File("text.asf"), "no video at all");
  WriteFile(folder.File("old.asf"), "the old file");
  logger->SetFileName(folder.File("old.asf"));
  for (const char* name : {"text.asf", "missing.asf"}) {
    reports.Clear();
    player->SetFileName(folder.File(name));
    Start(logger->InputPin);
    EXPECT_FALSE(player->IsRunning());
    ASSERT_EQ(reports.All().size(), 1u) << name;
    EXPECT_EQ(reports.All()[0].text, "cannot open " + folder.File(name));
    EXPECT_FALSE(reports.All()[0].detail.empty());
  }
  EXPECT_EQ(ReadFile(folder.File("old.asf")), "the old file");
  reports.Clear();
  player->SetFileName(folder.File("good.asf"));
  const std::string bad = folder.File("no/folder/out.asf");
  logger->SetFileName(bad);
  RunToTheEnd(false);
  ASSERT_EQ(reports.All().size(), 1u);
  EXPECT_EQ(reports.All()[0].text, "Can't create file : " + bad + " .");
  EXPECT_NE(reports.All()[0].detail.find("No such file"), std::string::npos) << reports.All()[0].detail;
}

TEST_F(ClipToClip, APartOfTheFile) {
  ASSERT_EQ(MakeClip(*module, folder.File("long.asf"), {320, 240, 100, 400000, 44100, 2}), "");
  player->SetFileName(folder.File("long.asf"));
  player->SetStartTime(20000000);
  player->SetDuration(12000000);
  logger->SetFileName(folder.File("part.asf"));
  RunToTheEnd(true);
  const Content content = Play(folder.File("part.asf"));
  ASSERT_FALSE(content.numbers.empty());
  EXPECT_EQ(content.numbers.front(), Flipped(50));
  EXPECT_NEAR(static_cast<double>(content.numbers.size()), 30.0, 1.0);
  EXPECT_EQ(content.frames.front().begin, 0);
}

}  // namespace
}  // namespace pantiq::test
