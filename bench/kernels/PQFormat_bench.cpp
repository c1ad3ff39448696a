#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

#define PQ_FORMAT(name, from, to) \
  PQ_BENCH(name, from + to, kernel(i.src(from), i.SrcStep(from), i.dst(), i.DstStep(to), kRoi))
PQ_FORMAT(PQRGB24ToGray, 3, 1);
PQ_FORMAT(PQGrayToRGB24, 1, 3);
PQ_FORMAT(PQYUY2ToRGB24, 2, 3);
PQ_FORMAT(PQRGB24ToYUY2, 3, 2);

}  // namespace
}  // namespace pantiq::bench
