// There and back through everything here that compresses video: how many frames came back, how far their stamps were
// off, how near the pictures are, how large the blocks. Prints tables in Markdown.
//
//   bench_round_trips CLIP [FRAMES]     a clip of real video; 50 frames
#include <algorithm>
#include <array>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "bench/support/Ends.h"
#include "pantiq/filters/PQResize.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/media/PQASFLogger.h"
#include "pantiq/media/PQASFPlayer.h"
#include "pantiq/media/PQDSCapDeviceList.h"
#include "pantiq/media/PQDSVideoCompressor.h"
#include "pantiq/media/PQDSVideoDecompressor.h"
#include "pantiq/media/PQVideoCompressor.h"
#include "pantiq/media/PQVideoDecompressor.h"
#include "pantiq/platform/PQModules.h"

namespace {

using namespace pantiq;

constexpr std::int64_t kPeriod = 400000;  // 100 ns
using Frames = std::vector<PQRef<TPQImageBuffer>>;

void Start(TJCPin& sink) { sink.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0)); }

// Keeps the frames, and knows the stream's end.
class Keeper final : public TComponent {
 public:
  explicit Keeper(std::size_t most = std::numeric_limits<std::size_t>::max())
      : InputPin(*this, JCDispatch::To<&Keeper::Dispatch>(this)), most_(most) {}
  ~Keeper() override { BeforeDestructionOnce(); }
  TPQJCImageSinkPin InputPin;

  void WaitForEnd() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return ended_ || frames_.size() >= most_; });
  }
  Frames Taken() {
    const std::lock_guard lock(mutex_);
    return frames_;
  }

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    const std::lock_guard lock(mutex_);
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      if (frames_.size() < most_) frames_.push_back(PQMakeRef<TPQImageBuffer>(*supplied->Buffer));
    } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
      ended_ = true;
    }
    changed_.notify_all();
    return {};
  }
  const std::size_t most_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Frames frames_;
  bool ended_ = false;
};

// Adds up the blocks that reach a pin.
class Sizes final : public IJCPinProbe {
 public:
  explicit Sizes(TJCPin& pin) : pin_(pin) { pin_.SetProbe(this); }
  ~Sizes() override { pin_.SetProbe(nullptr); }
  bool Before(TJCPin&, IJCNotifyOperation& op) override {
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) bytes += supplied->Buffer->GetByteSize();
    return true;
  }
  void After(TJCPin&, IJCNotifyOperation&) override {}
  std::int64_t bytes = 0;

 private:
  TJCPin& pin_;
};

// The first frames of the clip, in this size, stamped from 0 without gaps.
Frames Load(const std::string& clip, std::size_t count, int width, int height) {
  TPQASFPlayer player;
  TPQResize resize;
  Keeper keeper(count);
  player.SetFileName(clip);
  resize.GetOutputSize().SetWidth(width);
  resize.GetOutputSize().SetHeight(height);
  (void)resize.InputPin.Connect(player.OutputPin);
  (void)keeper.InputPin.Connect(resize.OutputPin);
  Start(keeper.InputPin);
  keeper.WaitForEnd();
  keeper.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
  Frames frames = keeper.Taken();
  for (std::size_t n = 0; n < frames.size(); ++n) {
    auto& stamp = frames[n]->GetTimeStamp();
    stamp.SetAvailable(true);
    stamp.SetBegin(static_cast<std::int64_t>(n) * kPeriod);
    stamp.SetEnd(stamp.GetBegin() + kPeriod);
    frames[n]->GetSequenceStamp().SetBufferNumber(static_cast<int>(n));
  }
  return frames;
}

void Send(bench::Source& source, const Frames& frames) {
  source.OutputPin.Notify(
      *PQMakeRef<TJCStartFrameOperation>(frames[0]->GetWidth(), frames[0]->GetHeight(), kPeriod, vfRGB24));
  for (const auto& frame : frames) source.OutputPin.SubmitBuffer(PQMakeRef<TPQImageBuffer>(*frame));
  source.OutputPin.Stop();
}

double Decibel(TPQImageBuffer& a, TPQImageBuffer& b) {
  double sum = 0;
  for (int y = 0; y < a.GetHeight(); ++y) {
    const std::uint8_t *p = a.Read() + y * a.GetStep(), *q = b.Read() + y * b.GetStep();
    for (int x = 0; x < 3 * a.GetWidth(); ++x) sum += (p[x] - q[x]) * (p[x] - q[x]);
  }
  if (sum == 0) return std::numeric_limits<double>::infinity();
  return 10 * std::log10(255.0 * 255 * 3 * a.GetWidth() * a.GetHeight() / sum);
}

std::string Row(const std::string& name, const Frames& sent, const Frames& came, std::int64_t bytes) {
  char text[200];
  double least = std::numeric_limits<double>::infinity(), sum = 0;
  std::int64_t farthest = 0;
  const std::size_t both = std::min(sent.size(), came.size());
  for (std::size_t n = 0; n < both; ++n) {
    if (came[n]->GetWidth() != sent[n]->GetWidth() || came[n]->GetHeight() != sent[n]->GetHeight()) {
      return "| " + name + " | another size came back | | | |\n";
    }
    const double decibel = Decibel(*sent[n], *came[n]);
    least = std::min(least, decibel);
    sum += decibel;
    farthest = std::max(farthest, std::abs(came[n]->GetTimeStamp().GetBegin() - sent[n]->GetTimeStamp().GetBegin()));
  }
  std::snprintf(text, sizeof text, "| %s | %zu of %zu | %.2f ms | ", name.c_str(), came.size(), sent.size(),
                static_cast<double>(farthest) / 1e4);
  std::string row = text;
  if (both == 0) return row + "| |\n";
  if (std::isinf(least)) {
    row += "every byte";
  } else {
    std::snprintf(text, sizeof text, std::isinf(sum) ? "%.1f dB" : "%.1f dB, mean %.1f", least,
                  sum / static_cast<double>(both));
    row += text;
  }
  std::snprintf(text, sizeof text, " | %lld |\n", static_cast<long long>(bytes) / static_cast<long long>(sent.size()));
  return row + text;
}

const char* kHead = "| frames back | stamps off by | the worst picture | bytes a frame |\n|---|---|---|---|---|\n";

class Trips {
 public:
  Trips(std::string clip, std::size_t count) : clip_(std::move(clip)), count_(count) {
    SetReportListener([this](const PQReportEntry& entry) {
      const std::lock_guard lock(mutex_);
      said_ = entry.text + (entry.detail.empty() ? "" : " (" + entry.detail + ")");
    });
  }
  ~Trips() { SetReportListener({}); }

  void Codecs() {
    PQPlatformResult result;
    std::vector<PQCodecEntry> codecs;
    if (PQCodecManager* manager = LoadCodecManager(result)) result = manager->ListCodecs(codecs);
    std::printf("## Codecs of TPQVideoCompressor\n\n| tag %s", kHead);
    for (const PQCodecEntry& codec : codecs) {
      if (codec.encoder.empty()) continue;
      const std::string tag = PQFourCCText(codec.tag);
      const Frames& sent = tag == "dvsd" ? Clip(720, 576) : Clip(352, 288);
      bench::Source source;
      TPQVideoCompressor compressor;
      TPQVideoDecompressor decompressor;
      Keeper keeper;
      (void)compressor.GetCompressions().Add();
      (void)compressor.GetCompressions().GetItem(0)->SetFourCC(tag);
      (void)compressor.InputPin.Connect(source.OutputPin);
      (void)decompressor.InputPin.Connect(compressor.OutputPin);
      (void)keeper.InputPin.Connect(decompressor.OutputPin);
      Sizes sizes(decompressor.InputPin);
      Say(tag, sent, source, keeper, sizes);
    }
  }

  void Encoders() {
    TPQDSCapDeviceList list;
    (void)list.EnumFilters(PQFilterCategory::VideoCompressors);
    std::printf("\n## Encoders of TPQDSVideoCompressor\n\n| encoder %s", kHead);
    const Frames& sent = Clip(352, 288);
    for (int i = 0; i < list.GetCount(); ++i) {
      const std::string& encoder = list.GetItem(i).moniker;
      PQCompressorTrial trial;
      if (!PQTryCompressor(encoder, "", trial).Ok() || !trial.Usable()) continue;
      bench::Source source;
      TPQDSVideoCompressor compressor;
      TPQDSVideoDecompressor decompressor;
      Keeper keeper;
      (void)compressor.GetCompressions().Add();
      compressor.GetCompressions().GetItem(0)->SetCompressor(encoder);
      (void)decompressor.GetDecompressions().Add();
      decompressor.GetDecompressions().GetItem(0)->SetCompressor(encoder);
      decompressor.SetWidth(sent[0]->GetWidth());
      decompressor.SetHeight(sent[0]->GetHeight());
      (void)compressor.InputPin.Connect(source.OutputPin);
      (void)decompressor.InputPin.Connect(compressor.OutputPin);
      (void)keeper.InputPin.Connect(decompressor.OutputPin);
      Sizes sizes(decompressor.InputPin);
      Say(encoder.substr(encoder.find('=') + 1), sent, source, keeper, sizes);
    }
  }

  void Files() {
    std::printf("\n## Files of TPQASFLogger\n\n| file %s", kHead);
    const std::string folder =
        (std::filesystem::temp_directory_path() / ("pantiq-trips-" + std::to_string(std::rand()))).string();
    std::filesystem::create_directories(folder);
    const struct {
      const char* ending;
      std::vector<TBXVideoCodec> codecs;
    } kinds[] = {{"asf", {bvWMV2, bvWMV1, bvMP43}},
                 {"mkv", {bvH264, bvMPEG4, bvMP43}},
                 {"mp4", {bvH264, bvMPEG4}},
                 {"avi", {bvMPEG4, bvMP43}}};
    const Frames& sent = Clip(352, 288);
    for (const auto& kind : kinds) {
      for (const TBXVideoCodec codec : kind.codecs) {
        const std::string path = folder + "/clip." + kind.ending;
        {
          bench::Source source;
          TPQASFLogger logger;
          logger.SetFileName(path);
          logger.GetProfile().SetVideoCodec(codec);
          (void)logger.InputPin.Connect(source.OutputPin);
          Send(source, sent);
        }
        TPQASFPlayer player;
        Keeper keeper;
        player.SetFileName(path);
        (void)keeper.InputPin.Connect(player.OutputPin);
        Start(keeper.InputPin);
        if (player.IsRunning()) keeper.WaitForEnd();
        std::error_code error;
        const auto bytes = static_cast<std::int64_t>(std::filesystem::file_size(path, error));
        const std::string name =
            std::string(kind.ending) + ", " + std::string(PQEnumWords<TBXVideoCodec>::words[codec].name);
        std::printf("%s", Row(name, sent, keeper.Taken(), error ? 0 : bytes).c_str());
        std::fflush(stdout);
        std::filesystem::remove(path, error);
      }
    }
    std::error_code error;
    std::filesystem::remove_all(folder, error);
  }

 private:
  const Frames& Clip(int width, int height) {
    for (const Frames& clip : clips_) {
      if (clip[0]->GetWidth() == width) return clip;
    }
    clips_.push_back(Load(clip_, count_, width, height));
    if (clips_.back().size() != count_) {
      std::fprintf(stderr, "round_trips: %s: %zu of %zu frames: %s\n", clip_.c_str(), clips_.back().size(), count_,
                   said_.c_str());
      std::exit(1);
    }
    return clips_.back();
  }

  void Say(const std::string& name, const Frames& sent, bench::Source& source, Keeper& keeper, const Sizes& sizes) {
    {
      const std::lock_guard lock(mutex_);
      said_.clear();
    }
    Send(source, sent);
    keeper.WaitForEnd();
    std::string said;
    {
      const std::lock_guard lock(mutex_);
      said = said_;
    }
    if (said.empty()) {
      std::printf("%s", Row("`" + name + "`", sent, keeper.Taken(), sizes.bytes).c_str());
    } else {
      std::printf("| `%s` | %s | | | |\n", name.c_str(), said.c_str());
    }
    std::fflush(stdout);
  }

  const std::string clip_;
  const std::size_t count_;
  std::vector<Frames> clips_;
  std::mutex mutex_;
  std::string said_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench_round_trips CLIP [FRAMES]\n");
    return 2;
  }
  Trips trips(argv[1], argc > 2 ? static_cast<std::size_t>(std::max(1, std::atoi(argv[2]))) : 50);
  trips.Codecs();
  trips.Encoders();
  trips.Files();
  return 0;
}
