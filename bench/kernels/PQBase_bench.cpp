#include <string>

#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

PQ_BENCH(ippsSet_8u, 1, for (int y = 0; y < kRoi.height; ++y) kernel(77, i.dst() + y * kRoi.width, kRoi.width));
PQ_BENCH(
    ippsConvert_32s64f, 12, for (int y = 0; y < kRoi.height; ++y) {
      kernel(reinterpret_cast<const int*>(i.first.data()) + 2000 * y % 1000000, reinterpret_cast<double*>(i.out.data()),
             kRoi.width);
    });

#define PQ_IMAGE(name, from, to) \
  PQ_BENCH(name, from + to, kernel(i.src(from), i.SrcStep(from), i.dst(), i.DstStep(to), kRoi))
PQ_IMAGE(ippiCopy_8u_C3R, 3, 3);
PQ_IMAGE(ippiCopy_8u_C1R, 1, 1);
PQ_IMAGE(ippiCopy_8u_AC4C3R, 4, 3);
PQ_IMAGE(ippiCopy_8u_C3AC4R, 3, 4);
PQ_BENCH(ippiCopy_8u_C1C3R, 7, kernel(i.src(1), i.SrcStep(1), i.dst() + 1, i.DstStep(3), kRoi));

constexpr std::uint8_t kValue[3] = {10, 20, 30};
constexpr int kOrder[3] = {2, 1, 0};
PQ_BENCH(ippiSet_8u_C3R, 3, kernel(kValue, i.dst(), i.DstStep(3), kRoi));
PQ_BENCH(ippiMirror_8u_C1R, 2, kernel(i.src(1), i.SrcStep(1), i.dst(), i.DstStep(1), kRoi, ippAxsVertical));
PQ_BENCH(ippiMirror_8u_C3R, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, ippAxsVertical));
PQ_BENCH(ippiSwapChannels_8u_C3R, 6, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi, kOrder));
PQ_BENCH(ippiSwapChannels_8u_C3IR, 6, kernel(i.dst(), i.DstStep(3), kRoi, kOrder));

#define PQ_TWO(name, channels, ...)                                                                     \
  PQ_BENCH(name, 3 * channels,                                                                          \
           kernel(i.src(channels), i.SrcStep(channels), i.src2(channels), i.SrcStep(channels), i.dst(), \
                  i.DstStep(channels), kRoi __VA_OPT__(, ) __VA_ARGS__))
PQ_TWO(ippiAdd_8u_C1RSfs, 1, 0);
PQ_TWO(ippiAdd_8u_C3RSfs, 3, 0);
PQ_TWO(ippiSub_8u_C1RSfs, 1, 0);
PQ_TWO(ippiSub_8u_C3RSfs, 3, 0);
PQ_TWO(ippiMul_8u_C1RSfs, 1, 0);
PQ_TWO(ippiMul_8u_C3RSfs, 3, 0);
PQ_TWO(ippiDiv_8u_C1RSfs, 1, 0);
PQ_TWO(ippiDiv_8u_C3RSfs, 3, 0);
PQ_TWO(ippiAnd_8u_C1R, 1);
PQ_TWO(ippiAnd_8u_C3R, 3);
PQ_TWO(ippiOr_8u_C1R, 1);
PQ_TWO(ippiOr_8u_C3R, 3);
PQ_TWO(ippiXor_8u_C1R, 1);
PQ_TWO(ippiXor_8u_C3R, 3);
PQ_TWO(ippiAbsDiff_8u_C1R, 1);

PQ_BENCH(ippiAnd_8u_C3IR, 9, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi));
PQ_BENCH(ippiOr_8u_C3IR, 9, kernel(i.src(3), i.SrcStep(3), i.dst(), i.DstStep(3), kRoi));
PQ_BENCH(ippiNot_8u_C3IR, 6, kernel(i.dst(), i.DstStep(3), kRoi));

}  // namespace
}  // namespace pantiq::bench
