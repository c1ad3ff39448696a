#include "pantiq/filters/PQHistogramEqualize.h"

#include <algorithm>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQConvDispatcher.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQHistogramEqualize::kTag{"TPQHistogramEqualize", &TPQCommonFilter::kTag};

namespace {

constexpr int kLevels = 256;  // 0 to 255: the values 0 to 254 are counted

// What each value becomes: its place in the running sum of the histogram. `counts` has 256 entries, `n` is the number of
// pixels. The sum is kept in single precision, as counters of more than 2^24 pixels show.
void MakeTable(const int* counts, double n, std::uint8_t* table) {
  float sum = 0;
  for (int i = 0; i < 256; ++i) {
    sum += static_cast<float>(counts[i]);
    table[i] = static_cast<std::uint8_t>(pq_round(255.0 * sum / n));
  }
}

}  // namespace

const PQClassInfo& TPQHistogramEqualize::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQHistogramEqualize>("TPQHistogramEqualize", "PQHistogramEqualize",
                                       "Spreads the brightness of each frame over the whole range.")
          .Inherits<TPQCommonFilter>()
          .Done();
  return info;
}

void TPQHistogramEqualize::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  in->GetFormat() == vfGrayScale ? GrayScaleOperation(in, out) : RGBOperation(in, out);
}

void TPQHistogramEqualize::GrayScaleOperation(const PQImageRef& in, PQImageRef& out) {
  int counts[256] = {}, levels[kLevels];
  const std::uint8_t* source = in->Read();
  const IppiSize size = in->GetSize();
  PQ_SLOT(ippiHistogramEven_8u_C1R)(source, in->GetStep(), size, counts, levels, kLevels, 0, 255);
  std::uint8_t table[256];
  const std::int64_t n = std::int64_t{size.width} * size.height;
  MakeTable(counts, static_cast<double>(n), table);
  std::uint8_t* destination = out->Write();
  PQTable_8u_C1R(source, in->GetStep(), destination, out->GetStep(), size, table);
  destination[0] = source[0];
}

void TPQHistogramEqualize::RGBOperation(const PQImageRef& in, PQImageRef& out) {
  const IppiSize size = in->GetSize();
  const std::ptrdiff_t step = in->GetStep();
  const int row_step = static_cast<int>(step);
  const std::uint8_t* source = in->Read();
  std::uint8_t* work = out->Write();
  // Strips of rows stay in the nearest cache from one step to the next. The channels are not exchanged: the lightness is
  // the same either way, and they return as they came.
  const int strip = std::max(1, static_cast<int>(32768 / step));
  int total[256] = {};
  int counts[3][256], levels[kLevels];
  int* histograms[3] = {counts[0], counts[1], counts[2]};
  int* level_arrays[3] = {levels, levels, levels};
  int level_counts[3] = {kLevels, kLevels, kLevels}, lower[3] = {0, 0, 0}, upper[3] = {255, 255, 255};
  for (int y = 0; y < size.height; y += strip) {
    const IppiSize roi{size.width, std::min(strip, size.height - y)};
    std::uint8_t* const rows = work + y * step;
    PQ_SLOT(ippiRGBToHLS_8u_C3R)(source + y * step, row_step, rows, row_step, roi);
    PQ_SLOT(ippiHistogramEven_8u_C3R)(rows, row_step, roi, histograms, level_arrays, level_counts, lower, upper);
    for (int i = 0; i < kLevels - 1; ++i) total[i] += counts[1][i];
  }
  std::uint8_t table[256];
  MakeTable(total, static_cast<double>(std::int64_t{size.width} * size.height), table);
  for (int y = 0; y < size.height; y += strip) {
    const IppiSize roi{size.width, std::min(strip, size.height - y)};
    std::uint8_t* const rows = work + y * step;
    for (std::ptrdiff_t i = 1; i < roi.height * step; i += 3) rows[i] = table[rows[i]];
    PQ_SLOT(ippiHLSToRGB_8u_C3R)(rows, row_step, rows, row_step, roi);
  }
}

void PQHistogramEqualize::Register() {
  const PQClassInfo* const classes[] = {&TPQHistogramEqualize::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
