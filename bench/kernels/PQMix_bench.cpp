#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

// A key colour with room on both sides, as for a coloured wall.
constexpr std::uint8_t kLow[3] = {0, 120, 0}, kHigh[3] = {90, 140, 90};
PQ_BENCH(PQKeyRanges_8u_C3R, 9,
         kernel(i.src(3), i.SrcStep(3), i.src2(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, kLow, kHigh, 1));
// Three channels, and weights where one difference in ten gives a half.
PQ_BENCH(PQBlend_8u_C1R, 9,
         kernel(i.src(3), i.SrcStep(3), i.src2(3), i.SrcStep(3), i.dst(), i.DstStep(3), {kRoi.width * 3, kRoi.height}, 0.3,
                0.7));

}  // namespace
}  // namespace pantiq::bench
