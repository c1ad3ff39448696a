// What a component that joins two frames costs beside its bare kernel on the same pixels. Both sides run in turn, in
// blocks; the table has the medians and the median of the ratios of neighbouring blocks.
//
// The kernel writes over one frame again and again; "fresh" gives it, as the component has to, a new frame for each
// call out of the frame pool.
//
//   bench_combine [WIDTH HEIGHT [ROUNDS]]
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/support/Ends.h"
#include "pantiq/compose/PQCombine.h"
#include "pantiq/compose/PQFrameChange.h"
#include "pantiq/compose/PQTransparentColor.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace {

using namespace pantiq;
using namespace pantiq::bench;

int g_width = 1920, g_height = 1080, g_rounds = 41;

using Work = std::function<void()>;

// Microseconds of the calling thread for each of `repeats` calls.
double Timed(const Work& work, int repeats) {
  const double start = CpuSeconds(CLOCK_THREAD_CPUTIME_ID);
  for (int i = 0; i < repeats; ++i) work();
  return (CpuSeconds(CLOCK_THREAD_CPUTIME_ID) - start) * 1e6 / repeats;
}

struct Frames {
  PQImageRef a = Picture(g_width, g_height), b = Picture(g_width, g_height, 77), out = Picture(g_width, g_height);
};

using Kernel =
    std::function<void(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* dst, int step, IppiSize roi)>;

void Row(const std::string& name, Frames& f, const Work& component, const Kernel& kernel) {
  const int step = f.a->GetStep();
  const IppiSize roi = f.a->GetSize();
  const Work bare = [&] { kernel(f.a->Read(), f.b->Read(), f.out->Modify(), step, roi); };
  const Work fresh = [&] {
    TPQImageBuffer out(g_width, g_height, vfRGB24);
    kernel(f.a->Read(), f.b->Read(), out.Write(), step, roi);
  };
  component(), bare(), fresh();
  int repeats = 1;
  while (Timed(bare, repeats) * repeats < 4000) repeats *= 2;
  std::vector<double> times[3], ratios[2];
  const Work* const sides[3] = {&component, &bare, &fresh};
  for (int round = 0; round < g_rounds; ++round) {
    double t[3];
    for (int i = 0; i < 3; ++i) {  // who goes first changes
      const int side = (i + round) % 3;
      t[side] = Timed(*sides[side], repeats);
      times[side].push_back(t[side]);
    }
    ratios[0].push_back(t[0] / t[1]), ratios[1].push_back(t[0] / t[2]);
  }
  std::printf("%-22s %10.1f %10.1f %10.1f %9.3f %9.3f\n", name.c_str(), Median(times[0]), Median(times[1]),
              Median(times[2]), Median(ratios[0]), Median(ratios[1]));
}

// A component between two sources and a sink, both inputs started.
template <class Component>
struct Joined {
  Source one, two;
  Component component;
  Sink sink;
  Joined() {
    if constexpr (requires { component.InputPins; }) {
      one.OutputPin.Connect(*component.InputPins.GetPin(0)).IgnoreError();
      two.OutputPin.Connect(*component.InputPins.GetPin(1)).IgnoreError();
    } else {
      one.OutputPin.Connect(component.InputPin).IgnoreError();
      two.OutputPin.Connect(component.BackgroundInputPin).IgnoreError();
    }
    component.OutputPin.Connect(sink.InputPin).IgnoreError();
    for (Source* source : {&one, &two}) {
      source->OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(g_width, g_height, 400000, vfRGB24));
    }
  }
  void Push(const Frames& f) {
    one.OutputPin.SubmitBuffer(f.a);
    two.OutputPin.SubmitBuffer(f.b);
  }
};

void Combine(Frames& f) {
  Joined<TPQCombine> joined;
  const auto row = [&](TPQCombineOperation operation, const Kernel& kernel) {
    joined.component.SetCombineOperation(operation);
    Row(
        std::string(PQEnumWords<TPQCombineOperation>::words[operation].name), f, [&] { joined.Push(f); }, kernel);
  };
  const auto scaled = [&](TPQCombineOperation operation, auto kernel) {
    row(operation,
        [kernel](auto* a, auto* b, auto* to, int step, IppiSize roi) { kernel(a, step, b, step, to, step, roi, 0); });
  };
  const auto plain = [&](TPQCombineOperation operation, auto kernel) {
    row(operation,
        [kernel](auto* a, auto* b, auto* to, int step, IppiSize roi) { kernel(a, step, b, step, to, step, roi); });
  };
  scaled(coAdd, ippiAdd_8u_C3RSfs);
  scaled(coSubtract, ippiSub_8u_C3RSfs);
  scaled(coMultiply, ippiMul_8u_C3RSfs);
  scaled(coDivide, ippiDiv_8u_C3RSfs);
  plain(coOr, ippiOr_8u_C3R);
  plain(coAnd, ippiAnd_8u_C3R);
  plain(coXor, ippiXor_8u_C3R);
  row(coAbsDiff, [](auto* a, auto* b, auto* to, int step, IppiSize roi) {
    ippiAbsDiff_8u_C1R(a, step, b, step, to, step, {roi.width * 3, roi.height});
  });
  row(coCopy, [](auto*, auto* b, auto* to, int step, IppiSize roi) { ippiCopy_8u_C3R(b, step, to, step, roi); });
}

void Key(Frames& f) {
  Joined<TPQTransparentColor> joined;
  joined.component.GetTransparentColors().Add();
  const std::uint8_t low[3] = {0, 123, 0}, high[3] = {5, 133, 5};
  Row(
      "TPQTransparentColor", f, [&] { joined.Push(f); },
      [&](auto* a, auto* b, auto* to, int step, IppiSize roi) {
        PQKeyRanges_8u_C3R(a, step, b, step, to, step, roi, low, high, 1);
      });
}

void Change(Frames& f) {
  Source source;
  TPQFrameChange change;
  Sink sink;
  source.OutputPin.Connect(change.InputPin).IgnoreError();
  change.OutputPin.Connect(sink.InputPin).IgnoreError();
  source.OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(g_width, g_height, 400000, vfRGB24));
  bool second = false;
  Row(
      "TPQFrameChange", f,
      [&] {
        second = !second;
        source.OutputPin.SubmitBuffer(second ? f.b : f.a);
      },
      [](auto* a, auto* b, auto* to, int step, IppiSize roi) {
        ippiAbsDiff_8u_C1R(a, step, b, step, to, step, {roi.width * 3, roi.height});
      });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) g_width = std::atoi(argv[1]), g_height = std::atoi(argv[2]);
  if (argc > 3) g_rounds = std::atoi(argv[3]);
  if (g_width < 1 || g_height < 1 || g_width > 16384 || g_height > 16384 || g_rounds < 1) {
    std::fprintf(stderr, "bench_combine: expected WIDTH HEIGHT ROUNDS, each at least 1, sides at most 16384\n");
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  std::printf("%dx%d, %d rounds, microseconds a frame\n%-22s %10s %10s %10s %9s %9s\n", g_width, g_height, g_rounds, "",
              "component", "kernel", "fresh", "/ kernel", "/ fresh");
  Frames f;
  Combine(f);
  Key(f);
  Change(f);
}
