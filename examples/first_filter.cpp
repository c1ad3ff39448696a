// A filter of one's own, from a graph on the command line to a frame: see docs/first-filter.md.
//
//   first_filter                     runs TPQJaehneGen ! TPQDarken ! PixelProbe and prints a pixel of the last frame
//   first_filter Shift=3             the same with a setting
#include <algorithm>
#include <cstdio>
#include <iostream>

#include "pantiq/core/PQCommonFilter.h"
#include "pantiq/core/PQGraphRun.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQRegistry.h"

using namespace pantiq;

// Halves the brightness of every sample, again and again. Gray frames come as colour.
class TPQDarken final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQDarken(TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~TPQDarken() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::uint8_t GetShift() const { return shift_.load(std::memory_order_relaxed); }
  void SetShift(std::uint8_t shift) {
    auto section = Lock().WriteLock();
    shift_.store(shift, std::memory_order_relaxed);
  }

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override {
    const int shift = std::min<int>(GetShift(), 8);  // a property is read once per frame
    const std::uint8_t* from = in->Read();
    std::uint8_t* to = out->Write();
    for (std::int32_t i = 0; i < in->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>(from[i] >> shift);
  }

 private:
  std::atomic<std::uint8_t> shift_{1};
};

constinit const PQClassTag TPQDarken::kTag{"TPQDarken", &TPQCommonFilter::kTag};

const PQClassInfo& TPQDarken::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQDarken>("TPQDarken", "PQDarken", "Halves the brightness, again and again.")
          .Inherits<TPQCommonFilter>()
          .Property("Shift", &TPQDarken::GetShift, &TPQDarken::SetShift, PQDefault(1), PQUseful(0, 7), PQActs::NextFrame,
                    "How often the brightness is halved.")
          .Done();
  return info;
}

// Remembers one pixel of each frame.
class PixelProbe final : public TComponent {
 public:
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<PixelProbe>("PixelProbe", "first_filter", "Remembers a pixel.")
                                         .Inherits<TComponent>()
                                         .Pin("InputPin", &PixelProbe::InputPin, "Frames in.")
                                         .Done();
    return info;
  }
  explicit PixelProbe(TComponent* owner = nullptr)
      : TComponent(owner), InputPin(*this, JCDispatch::To<&PixelProbe::Dispatch>(this)) {}
  ~PixelProbe() override { BeforeDestructionOnce(); }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSinkPin InputPin;
  TColor pixel = 0;

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op); supplied != nullptr && supplied->Buffer) {
      pixel = PQMakeRef<TPQImageBuffer>(*supplied->Buffer)->GetPixel(120, 90);
    }
    return {};
  }
};

int main(int argc, char** argv) {
  RegisterAll();
  const PQClassInfo* const mine[] = {&TPQDarken::Class(), &PixelProbe::Class()};
  RegisterComponents("My components", mine);

  PQGraph graph;
  std::vector<PQFault> faults;
  const std::string line = std::string("TPQJaehneGen ! TPQDarken ") + (argc > 1 ? argv[1] : "") + " ! PixelProbe Name=probe";
  if (!graph.ParseLaunch(line, faults)) {
    for (const PQFault& fault : faults) std::cerr << PQFaultText(fault, line) << '\n';
    return 2;
  }
  PQRunOptions options;
  options.frames = 10;
  const PQRunResult result = PQGraphRun(graph, options).Run();
  if (!result.status.Ok()) {
    std::cerr << result.status.Text() << '\n';
    return 1;
  }
  std::printf("%d frames, pixel at 120, 90: 0x%06X\n", static_cast<int>(result.frames),
              static_cast<PixelProbe*>(graph.Find("probe"))->pixel);
  return 0;
}
