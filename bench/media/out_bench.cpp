// Video on a display: frames shown and dropped at 60 frames per second, and how late they came; then how close a source
// stays to the device's clock when that asks for the frames.
//
//   bench_out [SECONDS [DEVICE]]     60 seconds; the default device, which needs a display
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "bench/support/Ends.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/media/PQDSVideoOut.h"

namespace {

using namespace pantiq;
using bench::Clock;
using bench::CpuSeconds;
using bench::Seconds;

constexpr int kWidth = 640, kHeight = 480, kRate = 60;
constexpr std::int64_t kPeriod = 166667;  // 100 ns
constexpr int kPictures = 16;
constexpr double kPumpedSeconds = 20;

class Source final : public TComponent {
 public:
  explicit Source(TComponent* owner = nullptr)
      : TComponent(owner), OutputPin(*this, JCDispatch::To<&Source::Up>(this)) {
    for (int n = 0; n < kPictures; ++n) {
      auto picture = PQMakeRef<TPQImageBuffer>(kWidth, kHeight, vfRGB24);
      std::uint8_t* to = picture->Write();
      for (int i = 0; i < picture->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>(i / 3 % kWidth + 16 * n);
      pictures_.push_back(std::move(picture));
    }
  }
  ~Source() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<Source>("Source", "out_bench", "").Inherits<TComponent>().Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSourcePin OutputPin;

  void Start() { OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(kWidth, kHeight, kPeriod, vfRGB24)); }
  void Send(int number) {
    // A view of its own: the storage is shared, the stamps are not.
    auto frame = PQMakeRef<TPQImageBuffer>(*pictures_[static_cast<std::size_t>(number % kPictures)]);
    OutputPin.SubmitBuffer(std::move(frame));
  }
  // Pumped for so long: how far, in frames, the source was from the clock at the most.
  double Pumped(double seconds, int& frames) {
    std::unique_lock lock(mutex_);
    const auto until =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    changed_.wait_until(lock, until, [] { return false; });
    frames = pumps_;
    return farthest_;
  }

 private:
  void BeforeDestruction() override { OutputPin.Disconnect(); }
  TJCNotifyResult Up(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (JCOperation<TJCMasterPumpOperation>(op) == nullptr) return {};
    int number = 0;
    {
      const std::lock_guard lock(mutex_);
      if (pumps_ == 0) first_ = Clock::now();
      number = pumps_++;
      farthest_ = std::max(farthest_, std::abs(Seconds(first_) * 1e7 / static_cast<double>(kPeriod) - number));
    }
    Send(number);
    return {};
  }
  std::vector<PQRef<TPQImageBuffer>> pictures_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Clock::time_point first_;
  int pumps_ = 0;
  double farthest_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 60;
  std::atomic<bool> failed{false};
  SetReportListener([&](const PQReportEntry& entry) {
    std::fprintf(stderr, "%s (%s)\n", entry.text.c_str(), entry.detail.c_str());
    if (entry.severity == PQSeverity::Error) failed.store(true);
  });
  {
    Source source;
    TPQDSVideoOut out;
    if (argc > 2) out.GetVideoOutputDevice().SetDevice(argv[2]);
    (void)out.InputPin.Connect(source.OutputPin);
    source.Start();
    if (failed.load()) return 1;
    const int frames = static_cast<int>(std::lround(seconds * kRate));
    const double cpu = CpuSeconds();
    const auto begin = Clock::now();
    for (int i = 0; i < frames && !failed.load(); ++i) source.Send(i);
    const double elapsed = Seconds(begin);
    const auto shown = static_cast<long long>(out.GetFramesShown()),
               dropped = static_cast<long long>(out.GetFramesDropped());
    std::printf(
        "%dx%d at %d frames per second on %s: %d frames sent in %.2f s, %lld shown, %lld dropped, %.1f%% of a core\n",
        kWidth, kHeight, kRate, out.GetVideoOutputDevice().GetOpenDevice().c_str(), frames, elapsed, shown, dropped,
        100 * (CpuSeconds() - cpu) / elapsed);
    std::printf("lateness at the device, 95th percentile of the last frames: %.2f ms\n",
                static_cast<double>(out.GetLateness()) / 1e4);
    source.OutputPin.Stop();
  }
  {
    Source source;
    TPQDSVideoOut out;
    if (argc > 2) out.GetVideoOutputDevice().SetDevice(argv[2]);
    out.SetEnableMasterPumping(true);
    (void)out.InputPin.Connect(source.OutputPin);
    source.Start();
    source.OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
    int frames = 0;
    const double farthest = source.Pumped(std::min(seconds, kPumpedSeconds), frames);
    const auto dropped = static_cast<long long>(out.GetFramesDropped());
    const double late = static_cast<double>(out.GetLateness()) / 1e4;
    out.InputPin.Disconnect();
    std::printf(
        "pumped by the device's clock for %.0f s: %d frames, %.2f frames from the clock at the most, %lld dropped, "
        "lateness 95th percentile %.2f ms\n",
        std::min(seconds, kPumpedSeconds), frames, farthest, dropped, late);
  }
  SetReportListener({});
  return failed.load() ? 1 : 0;
}
