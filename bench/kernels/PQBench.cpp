#include "kernels/PQBench.h"

#include <cstdio>
#include <set>

namespace pantiq::bench {
namespace {

std::set<std::string>& Covered() {
  static std::set<std::string> names;
  return names;
}

void Count(benchmark::State& state, double bytes_per_pixel) {
  const double pixels = static_cast<double>(kRoi.width) * kRoi.height;
  state.SetBytesProcessed(
      static_cast<std::int64_t>(static_cast<double>(state.iterations()) * pixels * bytes_per_pixel));
  state.counters["ns_px"] =
      benchmark::Counter(pixels * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

Images::Images() {
  const std::size_t size = static_cast<std::size_t>(SrcStep(8)) * (kRoi.height + 2 * kMargin) + 8192;
  for (std::vector<std::uint8_t>* image : {&first, &second, &out}) {
    image->resize(size);
    std::uint32_t state = image == &second ? 77 : 12345;
    for (std::size_t k = 0; k < size; ++k) {
      state = state * 1664525u + 1013904223u;
      (*image)[k] = static_cast<std::uint8_t>((k / 24 + k / 9000) % 200 + (state >> 28));
    }
  }
}

Images& TheImages() {
  static Images images;
  return images;
}

void AddRows(const char* name, double bytes_per_pixel, const std::function<void(PQVariant)>& call) {
  Covered().insert(name);
  const PQKernelInfo* kernel = PQFindKernel(name);
  if (kernel == nullptr) return;
  for (int v = 0; v < kPQVariantCount; ++v) {
    const PQVariant variant = static_cast<PQVariant>(v);
    if (kernel->entries[v] == nullptr || !PQCanRun(variant)) continue;
    benchmark::RegisterBenchmark((std::string(name) + "/" + PQVariantName(variant)).c_str(),
                                 [call, variant, bytes_per_pixel](benchmark::State& state) {
                                   for (auto _ : state) call(variant);
                                   Count(state, bytes_per_pixel);
                                 });
  }
  benchmark::RegisterBenchmark((std::string(name) + "/copy").c_str(), [bytes_per_pixel](benchmark::State& state) {
    Images& i = TheImages();
    // Half of the traffic is read, half written; row by row as the kernels do.
    const std::size_t row = static_cast<std::size_t>(kRoi.width * bytes_per_pixel / 2);
    for (auto _ : state) {
      for (int y = 0; y < kRoi.height; ++y) {
        std::memcpy(i.dst() + y * row, i.first.data() + y * (row + 32), row);
        benchmark::ClobberMemory();
      }
    }
    Count(state, bytes_per_pixel);
  });
}

}  // namespace pantiq::bench

// Every landed kernel must have its rows.
int main(int argc, char** argv) {
  int missing = 0;
  for (const pantiq::PQKernelInfo& kernel : pantiq::PQKernels()) {
    if (pantiq::bench::Covered().count(kernel.name)) continue;
    std::fprintf(stderr, "no benchmark for %s: add it to bench/kernels/%s_bench.cpp\n", kernel.name, kernel.family);
    ++missing;
  }
  pantiq::bench::TheImages();  // made before anything is timed
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return missing == 0 ? 0 : 1;
}
