// gcc 12 takes the undefined vectors inside its own AVX-512 headers for a mistake of the caller.
#pragma GCC diagnostic ignored "-Wuninitialized"
#include "pantiq/kernels/PQSampling_simd.h"
#include "pantiq/kernels/PQWarp.h"

namespace pantiq {

IppStatus PQ_VARIANT(ippiGetPerspectiveTransform) PQ_PARAMS_Transform {
  return warp::PerspectiveTransform(rect, quad, coeffs);
}

IppStatus PQ_VARIANT(ippiGetBilinearTransform) PQ_PARAMS_Transform {
  return warp::BilinearTransform(rect, quad, coeffs);
}

IppStatus PQ_VARIANT(ippiWarpPerspective_8u_C3R) PQ_PARAMS_Perspective {
  return warp::Perspective(false, 3, &PQ_TARGET::DrawVectors<3>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi,
                           coeffs, interpolation);
}

IppStatus PQ_VARIANT(ippiWarpPerspective_8u_C1R) PQ_PARAMS_Perspective {
  return warp::Perspective(false, 1, &PQ_TARGET::DrawVectors<1>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi,
                           coeffs, interpolation);
}

IppStatus PQ_VARIANT(ippiWarpPerspectiveBack_8u_C3R) PQ_PARAMS_Perspective {
  return warp::Perspective(true, 3, &PQ_TARGET::DrawVectors<3>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi,
                           coeffs, interpolation);
}

IppStatus PQ_VARIANT(ippiWarpPerspectiveBack_8u_C1R) PQ_PARAMS_Perspective {
  return warp::Perspective(true, 1, &PQ_TARGET::DrawVectors<1>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi,
                           coeffs, interpolation);
}

IppStatus PQ_VARIANT(ippiWarpBilinear_8u_C3R) PQ_PARAMS_Bilinear {
  return warp::Bilinear(false, 3, &PQ_TARGET::DrawVectors<3>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi,
                        coeffs, interpolation);
}

IppStatus PQ_VARIANT(ippiWarpBilinear_8u_C1R) PQ_PARAMS_Bilinear {
  return warp::Bilinear(false, 1, &PQ_TARGET::DrawVectors<1>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi,
                        coeffs, interpolation);
}

IppStatus PQ_VARIANT(ippiWarpBilinearBack_8u_C3R) PQ_PARAMS_Bilinear {
  return warp::Bilinear(true, 3, &PQ_TARGET::DrawVectors<3>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi,
                        coeffs, interpolation);
}

IppStatus PQ_VARIANT(ippiWarpBilinearBack_8u_C1R) PQ_PARAMS_Bilinear {
  return warp::Bilinear(true, 1, &PQ_TARGET::DrawVectors<1>, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi,
                        coeffs, interpolation);
}

}  // namespace pantiq
