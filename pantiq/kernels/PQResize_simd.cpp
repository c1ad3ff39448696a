#include "pantiq/kernels/PQResize.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

__attribute__((noinline)) IppStatus Resize(int channels, const std::uint8_t* src, IppiSize srcSize, int srcStep,
                                           TPQImageRect srcRoi, std::uint8_t* dst, int dstStep, IppiSize dstSize,
                                           double xFactor, double yFactor, int interpolation) {
  resize::Plan plan;
  if (const IppStatus status = resize::MakePlan(plan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor,
                                                yFactor, interpolation)) {
    return status;
  }
  return resize::Plain(plan, channels);
}

}  // namespace
}  // namespace PQ_TARGET

IppStatus PQ_VARIANT(ippiResize_8u_C3R) PQ_PARAMS_Resize {
  const int mode = PQRoundToNearest();
  const IppStatus status =
      PQ_TARGET::Resize(3, src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor, yFactor, interpolation);
  PQRestoreRounding(mode);
  return status;
}

IppStatus PQ_VARIANT(ippiResize_8u_C1R) PQ_PARAMS_Resize {
  const int mode = PQRoundToNearest();
  const IppStatus status =
      PQ_TARGET::Resize(1, src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor, yFactor, interpolation);
  PQRestoreRounding(mode);
  return status;
}

}  // namespace pantiq
