#include "kernels/PQBench.h"

namespace pantiq::bench {
namespace {

constexpr IppiSize kMask{5, 5};
constexpr float kLevels[3] = {0.02f, 0.02f, 0.02f};

std::uint8_t* WorkBuffer() {
  static std::vector<std::uint8_t> buffer;
  int size = 0;
  _px_ippiFilterWienerGetBufferSize(kRoi, kMask, 3, &size);
  buffer.resize(static_cast<std::size_t>(size));
  return buffer.data();
}

#define PQ_WIENER(name, channels)                                                                                   \
  PQ_BENCH(name, 2 * channels,                                                                                      \
           kernel(i.src(channels), i.SrcStep(channels), i.dst(), i.DstStep(channels), kRoi, kMask, {2, 2}, kLevels, \
                  WorkBuffer()))
PQ_WIENER(ippiFilterWiener_8u_C1R, 1);
PQ_WIENER(ippiFilterWiener_8u_C3R, 3);

// Not by pixels.
PQ_BENCH(ippiFilterWienerGetBufferSize, 0, int size = 0; kernel(kRoi, kMask, 3, &size); benchmark::DoNotOptimize(size));

}  // namespace
}  // namespace pantiq::bench
