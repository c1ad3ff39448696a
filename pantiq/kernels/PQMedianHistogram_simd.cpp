// Medians of large windows, at a cost that does not grow with the window (after Perreault and Hebert, Median Filtering
// in Constant Time, 2007): one source for a6, w7 and t7. Every column keeps a histogram of the mask's height of
// samples, in running counts: `upper` of the upper four bits, `lower[u]` of the lower four bits of the samples whose
// upper bits are u. A window's running counts are the sums of its columns'; a comparison with the rank finds the bits.
// The lower counts of a window are brought up to date only for the upper bits that are wanted.
#include "pantiq/kernels/PQWindowVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

struct alignas(16) Column {
  u8 lower[16][16];
  u8 upper[16];
};

// What one sample of value v adds to running counts: 1 from v on.
struct Steps {
  alignas(16) u8 from[16][16];
};

PQ_INLINE __m128i Load16(const u8* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
PQ_INLINE void Store16(u8* p, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(p), v); }
PQ_INLINE S Counts(const u8* p) { return _mm256_cvtepu8_epi16(Load16(p)); }

void Enter(Column& column, const Steps& steps, int v) {
  u8* lower = column.lower[v >> 4];
  Store16(lower, _mm_add_epi8(Load16(lower), Load16(steps.from[v & 15])));
  Store16(column.upper, _mm_add_epi8(Load16(column.upper), Load16(steps.from[v >> 4])));
}

PQ_INLINE void Replace(Column& column, const Steps& steps, int leaves, int enters) {
  u8* lower = column.lower[enters >> 4];
  Store16(lower, _mm_add_epi8(Load16(lower), Load16(steps.from[enters & 15])));
  lower = column.lower[leaves >> 4];
  Store16(lower, _mm_sub_epi8(Load16(lower), Load16(steps.from[leaves & 15])));
  const __m128i change = _mm_sub_epi8(Load16(steps.from[enters >> 4]), Load16(steps.from[leaves >> 4]));
  Store16(column.upper, _mm_add_epi8(Load16(column.upper), change));
}

// The number of running counts below the rank.
PQ_INLINE int CountBelow(S counts, S rank) {
  const S reached = _mm256_cmpeq_epi16(_mm256_min_epu16(counts, rank), rank);
  return 16 - __builtin_popcount(static_cast<unsigned>(_mm256_movemask_epi8(reached))) / 2;
}

PQ_INLINE S LowerOf(const Column* columns, int width, int upper) {
  S sum = Counts(columns[0].lower[upper]);
  for (int i = 1; i < width; ++i) sum = Add16(sum, Counts(columns[i].lower[upper]));
  return sum;
}

// One row of `n` medians of one channel; out has three samples a pixel.
void MedianRow(const Column* columns, int width, int rank, u8* out, std::ptrdiff_t n) {
  const S ranks = _mm256_set1_epi16(static_cast<short>(rank));
  alignas(32) u16 held[16][16];  // lower counts of windows that have been passed
  std::ptrdiff_t passed[16];     // which window
  for (std::ptrdiff_t& p : passed) p = -width;
  S upper = Counts(columns[0].upper);
  for (int i = 1; i < width; ++i) upper = Add16(upper, Counts(columns[i].upper));
  S lower = _mm256_setzero_si256();
  int current = -1;
  alignas(32) u16 running[17];
  running[0] = 0;
  for (std::ptrdiff_t x = 0;; ++x) {
    const int u = CountBelow(upper, ranks);
    Store(running + 1, upper);
    if (u == current) {
      lower = Sub16(Add16(lower, Counts(columns[x + width - 1].lower[u])), Counts(columns[x - 1].lower[u]));
    } else {
      if (current >= 0) {
        Store(held[current], lower);
        passed[current] = x - 1;
      }
      current = u;
      std::ptrdiff_t at = passed[u];
      if (2 * (x - at) >= width) {
        lower = LowerOf(columns + x, width, u);
      } else {
        lower = LoadS(held[u]);
        while (at < x) {
          ++at;
          lower = Sub16(Add16(lower, Counts(columns[at + width - 1].lower[u])), Counts(columns[at - 1].lower[u]));
        }
      }
    }
    const int missing = rank - running[u];
    *out = static_cast<u8>(u * 16 + CountBelow(lower, _mm256_set1_epi16(static_cast<short>(missing))));
    if (x + 1 == n) return;
    out += 3;
    upper = Sub16(Add16(upper, Counts(columns[x + width].upper)), Counts(columns[x].upper));
  }
}

constexpr std::ptrdiff_t kStrip = 1024;  // pixels; their columns' histograms stay in the second cache

}  // namespace

bool TakesMedianHistogram(IppiSize mask) { return mask.height <= 255 && mask.width <= 65535 / mask.height; }

IppStatus MedianHistogram(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask) {
  const std::ptrdiff_t strip = roi.width < kStrip ? roi.width : kStrip;
  const std::ptrdiff_t bytes = (strip + mask.width - 1) * std::ptrdiff_t{sizeof(Column)};
  u8* memory = PQScratch(bytes);
  if (memory == nullptr) return ippStsMemAllocErr;
  Column* const columns = reinterpret_cast<Column*>(memory);
  Steps steps;
  for (int v = 0; v < 16; ++v) {
    for (int i = 0; i < 16; ++i) steps.from[v][i] = i >= v ? 1 : 0;
  }
  const int rank = mask.width * mask.height / 2 + 1;
  for (std::ptrdiff_t x = 0; x < roi.width; x += strip) {
    const std::ptrdiff_t n = roi.width - x < strip ? roi.width - x : strip, count = n + mask.width - 1;
    for (int channel = 0; channel < 3; ++channel) {
      const u8* from = src + x * 3 + channel;
      u8* to = dst + x * 3 + channel;
      __builtin_memset(memory, 0, static_cast<std::size_t>(bytes));
      for (int j = 0; j < mask.height; ++j) {
        const u8* row = RowAt(from, src_step, j);
        for (std::ptrdiff_t i = 0; i < count; ++i) Enter(columns[i], steps, row[i * 3]);
      }
      for (int y = 0; y < roi.height; ++y) {
        MedianRow(columns, mask.width, rank, RowAt(to, dst_step, y), n);
        if (y + 1 == roi.height) break;
        const u8 *leaves = RowAt(from, src_step, y), *enters = RowAt(leaves, src_step, mask.height);
        for (std::ptrdiff_t i = 0; i < count; ++i) Replace(columns[i], steps, leaves[i * 3], enters[i * 3]);
      }
    }
  }
  ippsFree(memory);
  return ippStsNoErr;
}

}  // namespace PQ_TARGET
}  // namespace pantiq
