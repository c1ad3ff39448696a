#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

// The whole picture onto a quadrangle that fills most of the destination, linear.
constexpr TPQImageRect kAll{0, 0, kRoi.width, kRoi.height};
constexpr double kQuad[4][2] = {{230, 54}, {1824, 22}, {1632, 1048}, {58, 972}};
constexpr double kBackQuad[4][2] = {{20, 10}, {1890, 30}, {1900, 1060}, {10, 1050}};

struct Coefficients {
  Coefficients() {
    _px_ippiGetPerspectiveTransform(kAll, kQuad, matrix[0]);
    _px_ippiGetBilinearTransform(kAll, kQuad, form[0]);
    _px_ippiGetPerspectiveTransform(kAll, kBackQuad, back_matrix[0]);
    _px_ippiGetBilinearTransform(kAll, kBackQuad, back_form[0]);
  }
  double matrix[3][3], form[2][4], back_matrix[3][3], back_form[2][4];
};
const Coefficients& Of() {
  static const Coefficients coefficients;
  return coefficients;
}

PQ_BENCH(ippiGetPerspectiveTransform, 0, double k[9]; kernel(kAll, kQuad, k));
PQ_BENCH(ippiGetBilinearTransform, 0, double k[8]; kernel(kAll, kQuad, k));
PQ_BENCH(ippiWarpPerspective_8u_C3R, 6,
         kernel(i.src(3), kRoi, i.SrcStep(3), kAll, i.dst(), i.DstStep(3), kAll, Of().matrix, 2));
PQ_BENCH(ippiWarpPerspective_8u_C1R, 2,
         kernel(i.src(1), kRoi, i.SrcStep(1), kAll, i.dst(), i.DstStep(1), kAll, Of().matrix, 2));
PQ_BENCH(ippiWarpPerspectiveBack_8u_C3R, 6,
         kernel(i.src(3), kRoi, i.SrcStep(3), kAll, i.dst(), i.DstStep(3), kAll, Of().back_matrix, 2));
PQ_BENCH(ippiWarpPerspectiveBack_8u_C1R, 2,
         kernel(i.src(1), kRoi, i.SrcStep(1), kAll, i.dst(), i.DstStep(1), kAll, Of().back_matrix, 2));
PQ_BENCH(ippiWarpBilinear_8u_C3R, 6,
         kernel(i.src(3), kRoi, i.SrcStep(3), kAll, i.dst(), i.DstStep(3), kAll, Of().form, 2));
PQ_BENCH(ippiWarpBilinear_8u_C1R, 2,
         kernel(i.src(1), kRoi, i.SrcStep(1), kAll, i.dst(), i.DstStep(1), kAll, Of().form, 2));
PQ_BENCH(ippiWarpBilinearBack_8u_C3R, 6,
         kernel(i.src(3), kRoi, i.SrcStep(3), kAll, i.dst(), i.DstStep(3), kAll, Of().back_form, 2));
PQ_BENCH(ippiWarpBilinearBack_8u_C1R, 2,
         kernel(i.src(1), kRoi, i.SrcStep(1), kAll, i.dst(), i.DstStep(1), kAll, Of().back_form, 2));

}  // namespace
}  // namespace pantiq::bench
