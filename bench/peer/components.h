// Pantiq's side of the rows that time what single components do with a frame.
#pragma once
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "pantiq/filters/PQHistogramEqualize.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq_chain.h"

namespace subject {

inline bench::Fn bind_components(const std::string& kernel, const std::string& variant, const Work& w, const Params&) {
  using namespace pantiq;
  const IppiSize roi{w.width, w.height};
  if (kernel == "TPQTransparentColor pixels") {
    static constexpr std::uint8_t kLow[4][3] = {{0, 120, 0}, {200, 0, 0}, {60, 60, 60}, {0, 0, 180}};
    static constexpr std::uint8_t kHigh[4][3] = {{90, 140, 90}, {255, 100, 100}, {80, 90, 100}, {110, 60, 255}};
    const int ranges = variant == "one range" ? 1 : 4;
    return [w, roi, ranges] {
      PQKeyRanges_8u_C3R(w.src.data, w.src.step, w.src2.data, w.src2.step, w.dst.data, w.dst.step, roi, kLow[0], kHigh[0],
                         ranges);
    };
  }
  if (kernel == "TPQChangeRate BlendBuffers") {
    const IppiSize bytes{w.width * w.channels, w.height};
    return [w, bytes] {
      PQBlend_8u_C1R(w.src.data, w.src.step, w.src2.data, w.src2.step, w.dst.data, w.dst.step, bytes, 0.3, 0.7);
    };
  }
  if (kernel == "TPQHistogramEqualize gray") {
    auto frame = PQMakeRef<TPQImageBuffer>(w.width, w.height, vfGrayScale);
    std::uint8_t* const pixels = frame->Write();
    for (int y = 0; y < w.height; ++y) {
      std::memcpy(pixels + std::ptrdiff_t{y} * frame->GetStep(), w.src.data + std::ptrdiff_t{y} * w.src.step,
                  static_cast<std::size_t>(w.width));
    }
    subject_chain::Filters filters;
    filters.push_back(PQMake<TPQHistogramEqualize>());
    auto chain = std::make_shared<subject_chain::Chain>(std::move(filters), std::move(frame));
    return [chain] { chain->Push(); };
  }
  return {};
}

}  // namespace subject
