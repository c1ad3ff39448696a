// The real engine: a file through filters into a file, with ends at every time.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
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

// Two recordings of other programs behind one another in one file, of two sizes: each frame comes in its own.
TEST_F(ClipToClip, AFileWhoseSizeChanges) {
  const auto clip = [&](const char* size, const char* name) {
    return RunFfmpeg(std::string("-f lavfi -i testsrc2=size=") + size +
                     ":rate=25:duration=1 -c:v libx264 -pix_fmt yuv420p " + folder.File(name));
  };
  if (!HaveProgram("ffmpeg") || !clip("320x240", "large.mp4") || !clip("200x160", "small.mp4"))
    GTEST_SKIP() << "there is no ffmpeg that makes such files";
  WriteFile(folder.File("list"), "file large.mp4\nfile small.mp4\n");
  ASSERT_TRUE(RunFfmpeg("-f concat -i " + folder.File("list") + " -c copy " + folder.File("both.mkv")));
  const Content content = Play(folder.File("both.mkv"));
  ASSERT_EQ(content.frames.size(), 50u);
  for (std::size_t i = 0; i < content.frames.size(); ++i) {
    EXPECT_EQ(content.frames[i].width, i < 25 ? 320 : 200) << i;
    EXPECT_EQ(content.frames[i].height, i < 25 ? 240 : 160) << i;
    EXPECT_LE(std::abs(content.frames[i].begin - static_cast<std::int64_t>(i) * 400000), 10000) << i;
  }
}

// Bytes of a file changed here and there: it is refused with a reason, or what can be read is, and it ends.
TEST_F(ClipToClip, CorruptFilesEnd) {
  std::uint32_t seed = 1;
  const auto random = [&seed](std::size_t limit) {
    seed = seed * 1664525 + 1013904223;
    return static_cast<std::size_t>(seed >> 8) % limit;
  };
  int played = 0;
  for (const char* name : {"x.asf", "x.mp4", "x.mkv", "x.avi"}) {
    ASSERT_EQ(MakeClip(*module, folder.File(name), {320, 240, 25, 400000, 44100, 2}), "");
    const std::string good = ReadFile(folder.File(name));
    for (int round = 0; round < 6; ++round) {
      SCOPED_TRACE(std::string(name) + " " + std::to_string(round));
      std::string bad = good;
      const std::size_t from = round < 3 ? 0 : bad.size() / 4;  // in the head, too; or in the pictures only
      for (int i = 0; i < 8 << round; ++i) {
        bad[from + random(bad.size() - from)] = static_cast<char>(random(256));
      }
      const std::string path = folder.File("bad." + std::string(name + 2));
      WriteFile(path, bad);
      reports.Clear();
      const Content content = Play(path);
      played += content.frames.empty() ? 0 : 1;
      EXPECT_LE(content.frames.size(), 60u);
      EXPECT_TRUE(!content.frames.empty() || !reports.All().empty()) << "nothing came, and nothing was said";
    }
  }
  EXPECT_GE(played, 12);
}

// A flash and a click in the middle of each second, recorded and played: how far apart they come, and where.
class Together : public ::testing::Test {
 protected:
  static constexpr int kFrames = 25;
  static constexpr std::int64_t kPeriod = 400000;
  void Record(const std::string& path, int seconds, int rate, TBXAudioCodec codec) {
    const int block = rate / kFrames;
    StreamSource source;
    TPQASFLogger logger;
    logger.SetFileName(path);
    logger.GetProfile().SetAudioCodec(codec);
    ASSERT_TRUE(logger.InputPin.Connect(source.VideoPin).Ok());
    ASSERT_TRUE(logger.AudioInputPin.Connect(source.AudioPin).Ok());
    source.StartVideo(64, 48, kPeriod);
    source.StartAudio(rate, 2);
    for (int n = 0; n < seconds * kFrames; ++n) {
      const bool mark = n % kFrames == kFrames / 2;
      source.SendFrame(64, 48, mark ? TColor(0xFFFFFF) : TColor(0));
      auto sound = PQMakeRef<THTAudioBuffer>(block, 2, 16);
      sound->SetFormat(rate);
      auto* to = reinterpret_cast<std::int16_t*>(sound->WriteData());
      for (int i = 0; i < 2 * block; ++i) to[i] = mark ? (i / 48 % 2 == 0 ? 16000 : -16000) : 0;
      source.AudioPin.SubmitBuffer(std::move(sound));
    }
    source.VideoPin.Stop();
    source.AudioPin.Stop();
  }
  // All times in 100 ns.
  struct Seen {
    std::vector<std::int64_t> flashes, clicks;
    std::int64_t frames = 0, farthest_stamp = 0;
  };
  Seen Play(const std::string& path, int rate) {
    TPQASFPlayer player;
    StreamSink sink;
    Seen seen;
    std::int64_t samples = 0, loud = -rate;
    sink.on_op = [&](bool video, IJCNotifyOperation& op) {
      auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op);
      if (supplied == nullptr) return;
      if (video) {
        const auto image = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
        const std::int64_t begin = image->GetTimeStamp().GetBegin();
        seen.farthest_stamp = std::max(seen.farthest_stamp, std::abs(begin - seen.frames++ * kPeriod));
        if (image->Read()[image->GetByteSize() / 2] > 128) seen.flashes.push_back(begin);
        return;
      }
      const auto* sound = PQCast<const THTAudioBuffer>(supplied->Buffer.Get());
      const auto* from = reinterpret_cast<const std::int16_t*>(sound->ReadData());
      for (int i = 0; i < sound->GetSamples(); ++i, ++samples) {
        if (std::abs(from[2 * i]) < 8000) continue;
        if (samples - loud > rate / 2) seen.clicks.push_back(samples * 10000000 / rate);
        loud = samples;
      }
    };
    player.SetFileName(path);
    EXPECT_TRUE(sink.VideoPin.Connect(player.OutputPin).Ok());
    EXPECT_TRUE(sink.AudioPin.Connect(player.AudioOutputPin).Ok());
    Start(sink.VideoPin);
    if (player.IsRunning() || sink.Log().size() >= 3) {
      sink.WaitFor("v TJCStopOperation");
      sink.WaitFor("a TJCStopOperation");
    }
    return seen;
  }
  TempFolder folder;
};

TEST_F(Together, FlashAndClickStayWithinAFrame) {
  PQPlatformResult result;
  if (LoadMediaModule(result) == nullptr) GTEST_SKIP() << result.detail;
  const bool long_set = std::getenv("PANTIQ_TEST_LONG") != nullptr;
  const struct {
    const char* name;
    TBXAudioCodec codec;
    int rate, seconds;
  } clips[] = {{"a.asf", baAuto, 44100, 60}, {"b.mp4", baAuto, 48000, 10}, {"c.mkv", baAuto, 48000, 10},
               {"d.avi", baAuto, 32000, 10}, {"e.asf", baWMA1, 32000, 5},  {"f.asf", baWMA2, 22050, 5},
               {"g.asf", baWMA2, 16000, 5}};
  for (const auto& clip : clips) {
    SCOPED_TRACE(clip.name);
    const int seconds = long_set ? 600 : clip.seconds;
    ASSERT_NO_FATAL_FAILURE(Record(folder.File(clip.name), seconds, clip.rate, clip.codec));
    const Seen seen = Play(folder.File(clip.name), clip.rate);
    EXPECT_EQ(seen.frames, seconds * kFrames);
    EXPECT_LE(seen.farthest_stamp, 10000);
    ASSERT_EQ(seen.flashes.size(), static_cast<std::size_t>(seconds));
    ASSERT_EQ(seen.clicks.size(), seen.flashes.size());
    std::int64_t apart = 0;
    for (std::size_t i = 0; i < seen.clicks.size(); ++i) {
      const std::int64_t frame = static_cast<std::int64_t>(i) * kFrames + kFrames / 2;
      EXPECT_LE(std::abs(seen.flashes[i] - frame * kPeriod), 10000);
      apart = std::max(apart, std::abs(seen.clicks[i] - seen.flashes[i]));
    }
    EXPECT_LT(apart, kPeriod / 10) << "the first " << seen.clicks[0] - seen.flashes[0] << ", the last "
                                   << seen.clicks.back() - seen.flashes.back();
  }
}

}  // namespace
}  // namespace pantiq::test
