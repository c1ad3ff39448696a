#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

#define PQ_CONVERSION(name) PQ_BENCH(name, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi))
PQ_CONVERSION(ippiRGBToHLS_8u_C3R);
PQ_CONVERSION(ippiRGBToHSV_8u_C3R);
PQ_CONVERSION(ippiRGBToLUV_8u_C3R);
PQ_CONVERSION(ippiRGBToYCC_8u_C3R);
PQ_CONVERSION(ippiRGBToYCbCr_8u_C3R);
PQ_CONVERSION(ippiRGBToYUV_8u_C3R);
PQ_CONVERSION(ippiBGRToLab_8u_C3R);
PQ_CONVERSION(ippiRGBToXYZ_8u_C3R);
PQ_CONVERSION(ippiHLSToRGB_8u_C3R);
PQ_CONVERSION(ippiXYZToRGB_8u_C3R);
PQ_CONVERSION(ippiYCCToRGB_8u_C3R);
PQ_CONVERSION(ippiLUVToRGB_8u_C3R);
PQ_CONVERSION(ippiLabToBGR_8u_C3R);
PQ_CONVERSION(ippiYCbCrToRGB_8u_C3R);
PQ_CONVERSION(ippiYUVToRGB_8u_C3R);
PQ_CONVERSION(ippiHSVToRGB_8u_C3R);

void SplitPlanes(decltype(&_px_ippiCopy_8u_C3P3R) kernel, Images& i) {
  const int step = i.DstStep(1), plane = step * kRoi.height;
  const std::uint8_t* planes[3] = {i.dst(), i.dst() + plane, i.dst() + 2 * plane};
  kernel(i.src(3), i.SrcStep(3), planes, step, kRoi);
}
PQ_BENCH(ippiCopy_8u_C3P3R, 6, SplitPlanes(kernel, i));

}  // namespace
}  // namespace pantiq::bench
