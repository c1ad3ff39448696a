#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

// Mask sides that every kernel meets; the comparison with other libraries goes through more of them.
#define PQ_WINDOW(name, side) \
  PQ_BENCH(name, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, {side, side}, {(side) / 2, (side) / 2}))
PQ_WINDOW(ippiFilterBox_8u_C3R, 31);
PQ_WINDOW(ippiFilterMin_8u_C3R, 9);
PQ_WINDOW(ippiFilterMax_8u_C3R, 31);
PQ_WINDOW(ippiFilterMedian_8u_C3R, 7);

#define PQ_RANK_CODE(name, code) PQ_BENCH(name, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, code))
PQ_RANK_CODE(ippiFilterMedianHoriz_8u_C3R, 31);
PQ_RANK_CODE(ippiFilterMedianVert_8u_C3R, 15);
PQ_RANK_CODE(ippiFilterMedianCross_8u_C3R, 55);
PQ_RANK_CODE(ippiFilterMedianColor_8u_C3R, 33);

}  // namespace
}  // namespace pantiq::bench
