#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

// The whole picture turned by 30 degrees about its middle, or slanted, linear; of the picture's pixels not all are
// drawn.
constexpr TPQImageRect kAll{0, 0, kRoi.width, kRoi.height};
constexpr double kXShift = -269.75 - 830.93 + 959.5, kYShift = 479.75 - 467.21 + 539.5;

PQ_BENCH(ippiGetRotateShift, 0, double x; double y; kernel(10, 20, 30, &x, &y));
PQ_BENCH(ippiRotate_8u_C3R, 6,
         kernel(i.src(3), kRoi, i.SrcStep(3), kAll, i.dst(), i.DstStep(3), kAll, 30, kXShift, kYShift, 2));
PQ_BENCH(ippiRotate_8u_C1R, 2,
         kernel(i.src(1), kRoi, i.SrcStep(1), kAll, i.dst(), i.DstStep(1), kAll, 30, kXShift, kYShift, 2));
PQ_BENCH(ippiShear_8u_C3R, 6,
         kernel(i.src(3), kRoi, i.SrcStep(3), kAll, i.dst(), i.DstStep(3), kAll, 0.2, 0.1, -40, -20, 2));
PQ_BENCH(ippiShear_8u_C1R, 2,
         kernel(i.src(1), kRoi, i.SrcStep(1), kAll, i.dst(), i.DstStep(1), kAll, 0.2, 0.1, -40, -20, 2));

}  // namespace
}  // namespace pantiq::bench
