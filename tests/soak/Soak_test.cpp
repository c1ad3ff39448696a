// Every component that needs no platform, in one graph that keeps its own rate: nothing grows, no frame is missing, no
// stamp drifts. An hour with PANTIQ_TEST_LONG (PANTIQ_SOAK_SECONDS sets another length), a few seconds without.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "pantiq/core/PQGraphRun.h"
#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/filters/PQImageGen.h"
#include "pantiq/host/PQRegistry.h"

namespace pantiq {
namespace {

constexpr double kPeriod = 400000;          // 25 frames per second
constexpr std::int64_t kPrecision = 10000;  // 1 ms
constexpr double kLongEnough = 60;          // seconds until what a run holds says something
constexpr std::int64_t kMostGrowth = 1 << 20;

const std::set<std::string> kNeedPlatform = {"TPQASFLogger",         "TPQASFPlayer",           "TPQDMOEffect",
                                             "TPQDSVideoCompressor", "TPQDSVideoDecompressor", "TPQDSVideoOut",
                                             "TPQFreeFrame",         "TPQVideoCompressor",     "TPQVideoDecompressor"};

// Counts frames, and holds their stamps against the first one's.
class Gauge final : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<Gauge>("gauge", "Soak_test", "Counts frames and looks at their stamps.")
                                         .Inherits<TComponent>()
                                         .Pin("InputPin", &Gauge::InputPin, "Frames.")
                                         .Done();
    return info;
  }
  explicit Gauge(TComponent* owner) : TComponent(owner), InputPin(*this, JCDispatch::To<&Gauge::Dispatch>(this)) {}
  ~Gauge() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQJCImageSinkPin InputPin;
  double period = kPeriod;  // 100 ns; what the stamps are held against
  std::int64_t frames = 0, first = 0, worst = 0, unstamped = 0;

 private:
  void BeforeDestruction() override {
    InputPin.Disconnect();
    TComponent::BeforeDestruction();
  }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    JCFrameMutex::Guard guard(mutex_);
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      const TBXTimeStamp& stamp = supplied->Buffer->GetTimeStamp();
      unstamped += stamp.GetAvailable() ? 0 : 1;
      if (frames == 0) first = stamp.GetBegin();
      const std::int64_t off =
          std::llabs(stamp.GetBegin() - first - std::llround(static_cast<double>(frames) * period));
      worst = std::max<std::int64_t>(worst, off);
      ++frames;
    }
    return {};
  }
  JCFrameMutex mutex_;
};
constinit const PQClassTag Gauge::kTag{"gauge", &TComponent::kTag};

std::int64_t ResidentBytes() {
  long pages = 0, resident = 0;
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  if (file == nullptr) return 0;
  if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
  std::fclose(file);
  return static_cast<std::int64_t>(resident) * sysconf(_SC_PAGESIZE);
}

// What a graph holds, looked at five times a second.
struct Watch final : IPQRunObserver {
  std::vector<std::int64_t> held;
  std::string notes;
  void OnNote(const std::string& text) override { notes += text + "\n"; }
  void OnProgress(const PQRunProgress&) override { held.push_back(ResidentBytes()); }
  // The most of the second tenth, and of the last.
  std::int64_t Growth() const {
    const auto tenth = static_cast<std::ptrdiff_t>(held.size() / 10);
    const auto early = std::max_element(held.begin() + tenth, held.begin() + 2 * tenth);
    return *std::max_element(held.end() - tenth, held.end()) - *early;
  }
};

// The rate converter comes last: the period that it announces stands in the start that later branches see.
constexpr char kGraph[] = R"(
TPQJaehneGen Name=a Rate=25 ImageSize.Width=96 ImageSize.Height=64
TPQImageGen Name=b Rate=25

a ! TPQUniformNoise High=40 ! TPQGaussNoise ! TPQBoxFilter FilterMode=bfmMedian ! TPQFixedFilter FilterType=ftSharpen !
  TPQMorphFilter ! TPQImageAdjust Contrast=10 ! TPQGammaFilter ! TPQColorTwist ! TPQWienerFilter ! gauge Name=points
a ! TPQMirror ! TPQRotate Angle=20 ! TPQShear XShear=4 ! TPQResize OutputSize.Width=80 OutputSize.Height=50 ! TPQWarp !
  TPQCrop Region.Width=40 Region.Height=30 ! gauge Name=places
a ! TPQGrayScale ! TPQHistogramEqualize ! TPQThreshold ! TPQChangeFormat Format=vfRGB24 ! gauge Name=formats
a ! TPQDelay FrameDelay=5 ! TPQFrameChange ! gauge Name=delayed
a ! TPQSwitch ! TPQSnapshot PreserveFrameRate=true ! gauge Name=snapshot
a ! TPQQueuedSwitch ! gauge Name=queued
a ! TPQColorSplit Name=split ! TPQColorMerge Name=merge ! gauge Name=planes
split.OutputPins[1] ! merge.InputPins[1]
split.OutputPins[2] ! merge.InputPins[2]
a ! TPQColorsToReal ! TPQRealToFrame Width=96 Hight=64 FramePerSec=25 ! gauge Name=numbers
a ! TPQCombine Name=combine ! gauge Name=combined
b ! combine.InputPins[1]
a ! TPQTransparentColor Name=over ! TPQApplyMask ! gauge Name=over1
b ! over.BackgroundInputPin
a ! TPQHistogram
a ! TPQChangeRate FrameRate=30 ! gauge Name=rate
)";

TEST(Soak, NothingGrowsOrDriftsOrIsLost) {
  RegisterAll();
  const PQClassInfo* const mine[] = {&Gauge::Class()};
  RegisterComponents("Soak", mine);

  double seconds = std::getenv("PANTIQ_TEST_LONG") != nullptr ? 3600 : 4;
  if (const char* wanted = std::getenv("PANTIQ_SOAK_SECONDS")) seconds = std::atof(wanted);

  PQGraph graph;
  std::vector<PQFault> faults;
  const bool parsed = graph.ParseLaunch(kGraph, faults);
  for (const PQFault& fault : faults) ADD_FAILURE() << PQFaultText(fault, kGraph);
  ASSERT_TRUE(parsed);

  std::set<std::string> used;
  for (TComponent* component : graph.GetComponents()) used.insert(component->ClassInfo().Name());
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
    const std::string name(info->Name());
    EXPECT_TRUE(used.count(name) > 0 || kNeedPlatform.count(name) > 0) << name << " is not in the graph";
  }
  std::vector<std::uint8_t> picture(90 * 60 * 3, 90);
  PQCast<TPQImageGen>(graph.Find("b"))->GetPicture().SetPixels(90, 60, picture.data(), 90 * 3);

  PQCast<Gauge>(graph.Find("rate"))->period = 1e7 / 30;

  Watch watch;
  PQRunOptions options;
  options.realtime = true;
  options.seconds = seconds;
  const PQRunResult result = PQGraphRun(graph, options, &watch).Run();
  EXPECT_TRUE(result.status.Ok()) << result.status.Text();
  EXPECT_EQ(watch.notes, "");

  for (TComponent* component : graph.GetComponents()) {
    const auto* gauge = PQCast<Gauge>(component);
    if (gauge == nullptr) continue;
    SCOPED_TRACE(gauge->GetName());
    EXPECT_NEAR(static_cast<double>(gauge->frames), seconds * 1e7 / gauge->period, 1.0) << "frames";
    EXPECT_LE(gauge->worst, kPrecision) << gauge->frames << " frames";
    EXPECT_EQ(gauge->unstamped, 0);
  }
  if (seconds >= kLongEnough) {
    ASSERT_GE(watch.held.size(), 20u);
    std::printf("%.0f s: %lld bytes more at the end\n", seconds, static_cast<long long>(watch.Growth()));
    EXPECT_LE(watch.Growth(), kMostGrowth);
  }
}

}  // namespace
}  // namespace pantiq
