#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

PQ_BENCH(ippiGammaFwd_8u_C3R, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi));
PQ_BENCH(ippiGammaInv_8u_C3R, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi));
PQ_BENCH(ippiGammaFwd_8u_C3IR, 6, kernel(i.dst(), i.DstStep(3), kRoi));
PQ_BENCH(ippiGammaInv_8u_C3IR, 6, kernel(i.dst(), i.DstStep(3), kRoi));

// A change of colour with every coefficient in use.
constexpr float kTwist[3][4] = {{0.9f, 0.15f, -0.05f, 3.5f}, {0.1f, 0.8f, 0.1f, -2.0f}, {-0.02f, 0.2f, 0.85f, 1.25f}};
PQ_BENCH(ippiColorTwist32f_8u_C3R, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, kTwist));
PQ_BENCH(ippiColorTwist32f_8u_C3IR, 6, kernel(i.dst(), i.DstStep(3), kRoi, kTwist));

constexpr std::uint8_t kLow[3] = {40, 60, 80}, kDark[3] = {0, 1, 2}, kHigh[3] = {200, 180, 160},
                       kLight[3] = {255, 254, 253};
PQ_BENCH(ippiThreshold_LTVal_8u_C3R, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, kLow, kDark));
PQ_BENCH(ippiThreshold_GTVal_8u_C3R, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, kHigh, kLight));
PQ_BENCH(ippiThreshold_LTValGTVal_8u_C3R, 6,
         kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, kLow, kDark, kHigh, kLight));

struct Counts {
  int hist[3][256], levels[3][257];
  int *hists[3] = {hist[0], hist[1], hist[2]}, *lists[3] = {levels[0], levels[1], levels[2]};
  int n[3] = {257, 257, 257}, lower[3] = {0, 0, 0}, upper[3] = {256, 256, 256};
};
Counts& TheCounts() {
  static Counts counts;
  return counts;
}
PQ_BENCH(ippiHistogramEven_8u_C1R, 1,
         kernel(i.src(1), i.SrcStep(1), kRoi, TheCounts().hist[0], TheCounts().levels[0], 257, 0, 256));
PQ_BENCH(ippiHistogramEven_8u_C3R, 3,
         kernel(i.src(3), i.SrcStep(3), kRoi, TheCounts().hists, TheCounts().lists, TheCounts().n, TheCounts().lower,
                TheCounts().upper));
PQ_BENCH(PQTable_8u_C1R, 1, kernel(i.src(1), i.SrcStep(1), i.dst(), i.DstStep(1), kRoi, i.src(1)));
// The levels that the row before has filled, or zeros: counting costs the same.
PQ_BENCH(ippiHistogramRange_8u_C3R, 3,
         kernel(i.src(3), i.SrcStep(3), kRoi, TheCounts().hists, TheCounts().lists, TheCounts().n));

}  // namespace
}  // namespace pantiq::bench
