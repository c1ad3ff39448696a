#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

// The seed is four bytes wide behind its declared type.
struct alignas(4) Seed {
  std::uint16_t half[2];
};

PQ_BENCH(ippiAddRandUniform_Direct_8u_C3IR, 6, Seed seed{{12345, 7}};
         kernel(i.dst(), i.DstStep(3), kRoi, 0, 40, seed.half[0]));
PQ_BENCH(ippiAddRandGauss_Direct_8u_C3IR, 6, Seed seed{{12345, 7}};
         kernel(i.dst(), i.DstStep(3), kRoi, 0, 10, seed.half[0]));
PQ_BENCH(ippiImageJaehne_8u_C3R, 3, kernel(i.dst(), i.DstStep(3), kRoi));

}  // namespace
}  // namespace pantiq::bench
