#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

// An ellipse of 7 x 7.
constexpr std::uint8_t kMask[] = {0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 1, 1, 1, 0, 0, 1, 1, 1, 1, 1, 0, 1, 1, 1, 1,
                                  1, 1, 1, 0, 1, 1, 1, 1, 1, 0, 0, 1, 1, 1, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0};
#define PQ_MORPHOLOGY(name, channels) \
  PQ_BENCH(name, 2 * channels,        \
           kernel(i.src(channels), i.SrcStep(channels), i.dst(), i.DstStep(channels), kRoi, kMask, {7, 7}, {3, 3}))
PQ_MORPHOLOGY(ippiErode_8u_C3R, 3);
PQ_MORPHOLOGY(ippiErode_8u_C1R, 1);
PQ_MORPHOLOGY(ippiDilate_8u_C3R, 3);
PQ_MORPHOLOGY(ippiDilate_8u_C1R, 1);

// Not by pixels: a record for a row of the picture, made and given back.
constexpr int kCells[9] = {0, 1, 0, 1, 1, 1, 0, 1, 0};
PQ_BENCH(ippiMorphologyInitAlloc_8u_C3R, 0, IppiMorphState* state = nullptr;
         kernel(kRoi.width, kCells, {3, 3}, {1, 1}, state); _px_ippiMorphologyFree(state));
PQ_BENCH(ippiMorphologyFree, 0, IppiMorphState* state = nullptr;
         _px_ippiMorphologyInitAlloc_8u_C3R(kRoi.width, kCells, {3, 3}, {1, 1}, state); kernel(state));

}  // namespace
}  // namespace pantiq::bench
