// Benchmarks of the kernels: one row for each kernel and variant that this processor can run, named
// "ippiAnd_8u_C3R/t7", and one "ippiAnd_8u_C3R/copy" that copies memory of the same traffic.
//
// Images are 1920 x 1080 in rows with room at their ends, as in a frame with a border; per_pixel is the processor time
// a pixel, bytes_per_second what must move at least, each byte counted once.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "pantiq/kernels/PQImageDefs.h"
#include "pantiq/kernels/PQKernelRegistry.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq::bench {

inline constexpr IppiSize kRoi{1920, 1080};
inline constexpr int kMargin = 16;  // readable pixels around the sources' region

// What a call works on: two sources of four bytes a pixel at most inside their margins, and a destination; each
// with room for eight bytes a pixel. All hold
// smooth shading with mild noise.
struct Images {
  Images();
  const std::uint8_t* src(int channels) const { return Inner(first, channels); }
  const std::uint8_t* src2(int channels) const { return Inner(second, channels); }
  static int SrcStep(int channels) { return (kRoi.width + 2 * kMargin) * channels; }
  static int DstStep(int channels) { return kRoi.width * channels; }
  std::uint8_t* dst() { return out.data() + kShift; }

  std::vector<std::uint8_t> first, second, out;

 private:
  // Starts that do not share their place within a page: equal ones make loads wait for stores.
  static constexpr int kShift = 2688;
  const std::uint8_t* Inner(const std::vector<std::uint8_t>& image, int channels) const {
    return image.data() + (&image == &second ? 1344 : 0) + SrcStep(channels) * kMargin + kMargin * channels;
  }
};
Images& TheImages();

// Adds the rows of one kernel. bytes_per_pixel: what must move for a pixel, read and written.
void AddRows(const char* name, double bytes_per_pixel, const std::function<void(PQVariant)>& call);

template <class Entry, class Call>
int AddKernel(const char* name, double bytes_per_pixel, Call call) {
  AddRows(name, bytes_per_pixel, [name, call](PQVariant variant) {
    static const PQKernelInfo* kernel = PQFindKernel(name);
    call(reinterpret_cast<Entry>(kernel->entries[static_cast<int>(variant)]), TheImages());
  });
  return 0;
}

}  // namespace pantiq::bench

// PQ_BENCH(ippiNot_8u_C3IR, 6, kernel(i.dst(), i.DstStep(3), kRoi)); at namespace scope inside pantiq::bench.
#define PQ_BENCH(name, bytes_per_pixel, ...)                                         \
  [[maybe_unused]] static const int bench_##name = AddKernel<decltype(&_px_##name)>( \
      #name, bytes_per_pixel, [](decltype(&_px_##name) kernel, [[maybe_unused]] Images& i) { __VA_ARGS__; })
