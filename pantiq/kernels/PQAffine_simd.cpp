// gcc 12 takes the undefined vectors inside its own AVX-512 headers for a mistake of the caller.
#pragma GCC diagnostic ignored "-Wuninitialized"
#include "pantiq/kernels/PQAffine.h"
#include "pantiq/kernels/PQSampling_simd.h"

#include "pantiq/kernels/PQVec.h"

namespace pantiq {

IppStatus PQ_VARIANT(ippiGetRotateShift) PQ_PARAMS_RotateShift {
  return affine::RotateShift(xCenter, yCenter, angle, xShift, yShift);
}

#if PQ_WIDE || !PQ_MASKED  // no w7 entries
IppStatus PQ_VARIANT(ippiRotate_8u_C3R) PQ_PARAMS_Rotate {
  return affine::Rotate(3, &PQ_TARGET::DrawVectors<3>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, angle,
                        xShift, yShift, interpolation);
}

IppStatus PQ_VARIANT(ippiRotate_8u_C1R) PQ_PARAMS_Rotate {
  return affine::Rotate(1, &PQ_TARGET::DrawVectors<1>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, angle,
                        xShift, yShift, interpolation);
}

IppStatus PQ_VARIANT(ippiShear_8u_C3R) PQ_PARAMS_Shear {
  return affine::Shear(3, &PQ_TARGET::DrawVectors<3>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, xShear,
                       yShear, xShift, yShift, interpolation);
}

IppStatus PQ_VARIANT(ippiShear_8u_C1R) PQ_PARAMS_Shear {
  return affine::Shear(1, &PQ_TARGET::DrawVectors<1>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, xShear,
                       yShear, xShift, yShift, interpolation);
}
#endif

}  // namespace pantiq
