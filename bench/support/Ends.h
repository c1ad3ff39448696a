// What benchmarks of components have in common: a source and a sink to put them between, a picture, clocks, the median.
#pragma once
#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

#include "pantiq/core/PQStreamTypes.h"

namespace pantiq::bench {

using Clock = std::chrono::steady_clock;

inline double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// CPU time of the calling thread, or of all threads of the process.
inline double CpuSeconds(clockid_t whose = CLOCK_PROCESS_CPUTIME_ID) {
  timespec time{};
  clock_gettime(whose, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

inline double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

// A frame in which neighbours differ and rows do not repeat.
inline PQRef<TPQImageBuffer> Picture(int width, int height, int seed = 0) {
  PQRef<TPQImageBuffer> frame = PQMakeRef<TPQImageBuffer>(width, height, vfRGB24);
  std::uint8_t* to = frame->Write();
  for (int i = 0; i < frame->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>(i * 7 + i / 5000 + seed);
  return frame;
}

struct Source final : TComponent {
  Source() : OutputPin(*this, {}) {}
  ~Source() override { BeforeDestructionOnce(); }
  void BeforeDestruction() override { OutputPin.Disconnect(); }
  TPQJCImageSourcePin OutputPin;
};

struct Sink final : TComponent {
  Sink() : InputPin(*this, JCDispatch::To<&Sink::Dispatch>(this)) {}
  ~Sink() override { BeforeDestructionOnce(); }
  void BeforeDestruction() override { InputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    came += JCOperation<TJCSuppliedBufferOperation>(op) != nullptr;
    return {};
  }
  TPQJCImageSinkPin InputPin;
  long came = 0;  // frames
};

}  // namespace pantiq::bench
