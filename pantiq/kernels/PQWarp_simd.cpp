#include "pantiq/kernels/PQWarp.h"

namespace pantiq {

IppStatus PQ_VARIANT(ippiGetPerspectiveTransform) PQ_PARAMS_Transform {
  return warp::PerspectiveTransform(rect, quad, coeffs);
}

IppStatus PQ_VARIANT(ippiGetBilinearTransform) PQ_PARAMS_Transform {
  return warp::BilinearTransform(rect, quad, coeffs);
}

IppStatus PQ_VARIANT(ippiWarpPerspective_8u_C3R) PQ_PARAMS_Perspective {
  return warp::Perspective(false, 3, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs,
                           interpolation);
}

IppStatus PQ_VARIANT(ippiWarpPerspective_8u_C1R) PQ_PARAMS_Perspective {
  return warp::Perspective(false, 1, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs,
                           interpolation);
}

IppStatus PQ_VARIANT(ippiWarpPerspectiveBack_8u_C3R) PQ_PARAMS_Perspective {
  return warp::Perspective(true, 3, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs,
                           interpolation);
}

IppStatus PQ_VARIANT(ippiWarpPerspectiveBack_8u_C1R) PQ_PARAMS_Perspective {
  return warp::Perspective(true, 1, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs,
                           interpolation);
}

IppStatus PQ_VARIANT(ippiWarpBilinear_8u_C3R) PQ_PARAMS_Bilinear {
  return warp::Bilinear(false, 3, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs,
                        interpolation);
}

IppStatus PQ_VARIANT(ippiWarpBilinear_8u_C1R) PQ_PARAMS_Bilinear {
  return warp::Bilinear(false, 1, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs,
                        interpolation);
}

IppStatus PQ_VARIANT(ippiWarpBilinearBack_8u_C3R) PQ_PARAMS_Bilinear {
  return warp::Bilinear(true, 3, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs,
                        interpolation);
}

IppStatus PQ_VARIANT(ippiWarpBilinearBack_8u_C1R) PQ_PARAMS_Bilinear {
  return warp::Bilinear(true, 1, &sampling::DrawSpan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstRoi, coeffs,
                        interpolation);
}

}  // namespace pantiq
