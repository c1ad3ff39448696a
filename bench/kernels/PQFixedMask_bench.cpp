#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

#define PQ_FIXED(name) PQ_BENCH(name, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi))
PQ_FIXED(ippiFilterPrewittHoriz_8u_C3R);
PQ_FIXED(ippiFilterPrewittVert_8u_C3R);
PQ_FIXED(ippiFilterSobelHoriz_8u_C3R);
PQ_FIXED(ippiFilterSobelVert_8u_C3R);
PQ_FIXED(ippiFilterRobertsDown_8u_C3R);
PQ_FIXED(ippiFilterRobertsUp_8u_C3R);
PQ_FIXED(ippiFilterSharpen_8u_C3R);

// The larger mask, which costs more.
#define PQ_FIXED_CODE(name) PQ_BENCH(name, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, 55))
PQ_FIXED_CODE(ippiFilterLaplace_8u_C3R);
PQ_FIXED_CODE(ippiFilterGauss_8u_C3R);
PQ_FIXED_CODE(ippiFilterHipass_8u_C3R);
PQ_FIXED_CODE(ippiFilterLowpass_8u_C3R);

}  // namespace
}  // namespace pantiq::bench
