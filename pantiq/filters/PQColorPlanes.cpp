#include "pantiq/filters/PQColorPlanes.h"

#include <algorithm>
#include <memory>

#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQConvDispatcher.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQCommonPlaneSink::kTag{"TPQCommonPlaneSink", &TPQSinkFilter::kTag};

namespace {

using Conversion = IppStatus (*)(const std::uint8_t*, int, std::uint8_t*, int, IppiSize);
constexpr int kReverse[3] = {2, 1, 0};

// Null for cmRGB. The slots are read at the time of the call: they bind to a variant at their first one.
Conversion Forward(TPQColorMode mode) {
  switch (mode) {
    case cmHLS: return PQ_SLOT(ippiRGBToHLS_8u_C3R);
    case cmHSV: return PQ_SLOT(ippiRGBToHSV_8u_C3R);
    case cmYUV: return PQ_SLOT(ippiRGBToYUV_8u_C3R);
    case cmLUV: return PQ_SLOT(ippiRGBToLUV_8u_C3R);
    case cmXYZ: return PQ_SLOT(ippiRGBToXYZ_8u_C3R);
    case cmYCbCr: return PQ_SLOT(ippiRGBToYCbCr_8u_C3R);
    case cmYCC: return PQ_SLOT(ippiRGBToYCC_8u_C3R);
    case cmLab: return PQ_SLOT(ippiBGRToLab_8u_C3R);
    default: return nullptr;
  }
}

Conversion Inverse(TPQColorMode mode) {
  switch (mode) {
    case cmHLS: return PQ_SLOT(ippiHLSToRGB_8u_C3R);
    case cmHSV: return PQ_SLOT(ippiHSVToRGB_8u_C3R);
    case cmYUV: return PQ_SLOT(ippiYUVToRGB_8u_C3R);
    case cmLUV: return PQ_SLOT(ippiLUVToRGB_8u_C3R);
    case cmXYZ: return PQ_SLOT(ippiXYZToRGB_8u_C3R);
    case cmYCbCr: return PQ_SLOT(ippiYCbCrToRGB_8u_C3R);
    case cmYCC: return PQ_SLOT(ippiYCCToRGB_8u_C3R);
    case cmLab: return PQ_SLOT(ippiLabToBGR_8u_C3R);
    default: return nullptr;
  }
}

// Calls `work(first row, rows)` for strips that stay in the nearest cache from one kernel to the next.
template <class Work>
void ForStrips(IppiSize size, std::ptrdiff_t step, Work work) {
  if (size.width < 1 || size.height < 1) return;
  const int strip = std::max(1, static_cast<int>(49152 / step));
  for (int y = 0; y < size.height; y += strip) work(y, IppiSize{size.width, std::min(strip, size.height - y)});
}

}  // namespace

void PQForColorRows(const IPQImageBuffer& frame, TPQColorMode mode, const PQColorRows& rows) {
  const IppiSize size = frame.GetSize();
  const int step = frame.GetStep();
  const std::uint8_t* source = frame.Read();
  const Conversion convert = Forward(mode);
  std::unique_ptr<std::uint8_t[]> work;
  ForStrips(size, step, [&](std::ptrdiff_t y, IppiSize roi) {
    if (work == nullptr) work.reset(new std::uint8_t[static_cast<std::size_t>(roi.height * std::ptrdiff_t{step})]);
    const std::uint8_t* from = source + y * step;
    if (mode != cmLab) {
      ippiSwapChannels_8u_C3R(from, step, work.get(), step, roi, kReverse);
      from = work.get();
    }
    if (convert != nullptr) convert(from, step, work.get(), step, roi);
    rows(static_cast<std::int32_t>(y), work.get(), step, roi);
  });
}

void PQFromColorMode(IPQImageBuffer& frame, TPQColorMode mode) {
  std::uint8_t* const pixels = frame.Modify();
  const int step = frame.GetStep();
  const Conversion convert = Inverse(mode);
  ForStrips(frame.GetSize(), step, [&](std::ptrdiff_t y, IppiSize roi) {
    std::uint8_t* const rows = pixels + y * step;
    if (convert != nullptr) convert(rows, step, rows, step, roi);
    if (mode != cmLab) ippiSwapChannels_8u_C3IR(rows, step, roi, kReverse);
  });
}

void PQNamePlanes(TJCPinList& pins, TPQColorMode mode) {
  for (int i = 0; i < 3; ++i) pins.SetName(i, PQPlaneNames(mode)[i]);
}

void TPQCommonPlaneSink::SetColorMode(TPQColorMode mode) {
  auto section = Lock().WriteLock();
  if (mode == GetColorMode()) return;
  color_mode_.store(mode, std::memory_order_relaxed);
  UpdatePinNames();
}

}  // namespace pantiq
