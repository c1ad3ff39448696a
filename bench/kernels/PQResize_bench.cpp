#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

// From half the picture's height and width to all of it, linear.
constexpr IppiSize kHalf{kRoi.width / 2, kRoi.height / 2};

PQ_BENCH(ippiResize_8u_C3R, 3.75,
         kernel(i.src(3), kHalf, i.SrcStep(3), {0, 0, kHalf.width, kHalf.height}, i.dst(), i.DstStep(3), kRoi, 2, 2,
                2));
PQ_BENCH(ippiResize_8u_C1R, 1.25,
         kernel(i.src(1), kHalf, i.SrcStep(1), {0, 0, kHalf.width, kHalf.height}, i.dst(), i.DstStep(1), kRoi, 2, 2,
                2));

}  // namespace
}  // namespace pantiq::bench
