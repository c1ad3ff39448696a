// Medians of windows of up to 255 samples and 15 columns: one source for a6, w7 and t7. On tiles of one channel.
//
// The upper four bits of the medians: a window's median is t or more if at least half of its samples are, and for one t
// these counts are a box sum: down the columns one row enters and one leaves, across sums are added from shorter ones.
// The multiples of 16 are tried by bisection; where all windows of a tile agree, a whole range is settled at once.
// The lower four bits: one after the other, by counting each window's samples that are not below the candidate.
#include "pantiq/kernels/PQWindowVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

// ---- comparisons ---------------------------------------------------------------------------------------------------

// A set of bytes of a vector.
#if PQ_WIDE
using Set = VMask;
constexpr int kBias = 0;  // planes hold sample ^ kBias
PQ_INLINE Set NoBytes() { return 0; }
PQ_INLINE Set AllBytes() { return ~Set{0}; }
PQ_INLINE Set FirstOf(std::ptrdiff_t n) { return FirstBytes(n); }
PQ_INLINE Set Both(Set a, Set b) { return a & b; }
PQ_INLINE Set Either(Set a, Set b) { return a | b; }
PQ_INLINE Set Without(Set a, Set b) { return a & ~b; }
PQ_INLINE bool IsEmpty(Set a) { return a == 0; }
PQ_INLINE V ThresholdOf(int t) { return Set8(t); }
PQ_INLINE V ThresholdsOf(V t) { return t; }
PQ_INLINE V Where(Set s, V a, V b) { return _mm512_mask_blend_epi8(s, b, a); }
PQ_INLINE V AddIfNotBelow(V count, V samples, V t) {
  return _mm512_mask_sub_epi8(count, _mm512_cmpge_epu8_mask(samples, t), count, Set8(-1));
}
PQ_INLINE V SubIfNotBelow(V count, V samples, V t) {
  return _mm512_mask_add_epi8(count, _mm512_cmpge_epu8_mask(samples, t), count, Set8(-1));
}
PQ_INLINE Set NotBelow8(V count, V rank) { return _mm512_cmpge_epu8_mask(count, rank); }
PQ_INLINE V CountSet(V a, Set s) { return _mm512_mask_sub_epi8(a, s, a, Set8(-1)); }
#else
using Set = V;
constexpr int kBias = 128;
PQ_INLINE Set NoBytes() { return Zero(); }
PQ_INLINE Set AllBytes() { return Set8(-1); }
PQ_INLINE Set FirstOf(std::ptrdiff_t n) {
  alignas(32) u8 bytes[kV];
  for (std::ptrdiff_t i = 0; i < kV; ++i) bytes[i] = i < n ? 255 : 0;
  return Load(bytes);
}
PQ_INLINE Set Both(Set a, Set b) { return And(a, b); }
PQ_INLINE Set Either(Set a, Set b) { return Or(a, b); }
PQ_INLINE Set Without(Set a, Set b) { return _mm256_andnot_si256(b, a); }
PQ_INLINE bool IsEmpty(Set a) { return _mm256_testz_si256(a, a) != 0; }
PQ_INLINE V ThresholdOf(int t) { return Set8((t - 1) ^ kBias); }
PQ_INLINE V ThresholdsOf(V t) { return Xor(Add8(t, Set8(-1)), Set8(kBias)); }
PQ_INLINE V Where(Set s, V a, V b) { return _mm256_blendv_epi8(b, a, s); }
PQ_INLINE V AddIfNotBelow(V count, V samples, V t) { return _mm256_sub_epi8(count, _mm256_cmpgt_epi8(samples, t)); }
PQ_INLINE V SubIfNotBelow(V count, V samples, V t) { return _mm256_add_epi8(count, _mm256_cmpgt_epi8(samples, t)); }
PQ_INLINE Set NotBelow8(V count, V rank) { return _mm256_cmpeq_epi8(_mm256_max_epu8(count, rank), count); }
PQ_INLINE V CountSet(V a, Set s) { return _mm256_sub_epi8(a, s); }
#endif

// ---- one tile ------------------------------------------------------------------------------------------------------

// How a window's width is put together: from `parts` sums of `part` columns and `rest` single ones.
struct Split {
  int part, parts, rest;
};

struct Tile {
  std::ptrdiff_t width, wide;  // output columns; columns with those the windows add, whole vectors
  std::ptrdiff_t pitch;        // of the plane's rows
  std::ptrdiff_t height;       // output rows
  int mask_height;
  int rank;
  const u8* plane;         // height + mask_height - 1 rows
  u8* levels;              // height rows of `pitch`: thresholds passed so far
  u8 *counts, *part_sums;  // a row each
};

struct Verdict {
  bool any, all;
};

// Calls f(place, in) for the vectors of all rows of outputs, `in` the bytes that count.
template <class F>
PQ_INLINE void ForOutputs(const Tile& tile, F f) {
  const std::ptrdiff_t whole = tile.width / kV * kV;
  const Set rest = FirstOf(tile.width - whole);
  for (std::ptrdiff_t row = 0; row < tile.height * tile.pitch; row += tile.pitch) {
    for (std::ptrdiff_t x = 0; x < whole; x += kV) f(row + x, AllBytes());
    if (whole < tile.width) f(row + whole, rest);
  }
}

template <int kParts>
PQ_INLINE void SumParts(const u8* in, u8* out, std::ptrdiff_t n) {
  for (std::ptrdiff_t x = 0; x < n; x += kV) {
    V sum = Load(in + x);
#pragma GCC unroll 4
    for (int k = 1; k < kParts; ++k) sum = Add8(sum, Load(in + x + k));
    Store(out + x, sum);
  }
}

// Adds 1 to the level of each pixel whose median is t or more. Each pass goes through the
// whole tile before the next one reads what it has stored.
template <int kPart, int kParts, int kRest>
Verdict Try(const Tile& tile, int t) {
  const V threshold = ThresholdOf(t);
  const std::ptrdiff_t pitch = tile.pitch, all = tile.height * pitch;
  for (std::ptrdiff_t x = 0; x < tile.wide; x += kV) {
    const u8 *entering = tile.plane + x, *leaving = tile.plane + x;
    u8* counts = tile.counts + x;
    V count = Zero();
    for (int y = 0; y + 1 < tile.mask_height; ++y, entering += pitch) {
      count = AddIfNotBelow(count, Load(entering), threshold);
    }
    for (std::ptrdiff_t y = 0; y < tile.height; ++y, entering += pitch, leaving += pitch, counts += pitch) {
      count = AddIfNotBelow(count, Load(entering), threshold);
      Store(counts, count);
      count = SubIfNotBelow(count, Load(leaving), threshold);
    }
  }
  Set any = NoBytes(), missing = NoBytes();
  const auto settle = [&](u8 * levels, Set passed, Set in) __attribute__((always_inline)) {
    any = Either(any, Both(passed, in));
    missing = Either(missing, Without(in, passed));
    Store(levels, CountSet(Load(levels), passed));
  };
  const V rank = Set8(tile.rank);
  const u8* parts = tile.counts;
  if constexpr (kPart > 1) {
    SumParts<kPart>(tile.counts, tile.part_sums, all);
    parts = tile.part_sums;
  }
  ForOutputs(
      tile, [&](std::ptrdiff_t x, Set in) __attribute__((always_inline)) {
        V sum = Load(parts + x);
#pragma GCC unroll 5
        for (int k = 1; k < kParts; ++k) sum = Add8(sum, Load(parts + x + k * kPart));
#pragma GCC unroll 3
        for (int k = 0; k < kRest; ++k) sum = Add8(sum, Load(tile.counts + x + kParts * kPart + k));
        settle(tile.levels + x, NotBelow8(sum, rank), in);
      });
  return {!IsEmpty(any), IsEmpty(missing)};
}

using TryFunction = Verdict (*)(const Tile&, int);

TryFunction ChooseTry(const Split& split) {
  switch (split.part * 100 + split.parts * 10 + split.rest) {
    case 110:
      return &Try<1, 1, 0>;
    case 130:
      return &Try<1, 3, 0>;
    case 150:
      return &Try<1, 5, 0>;
    case 321:
      return &Try<3, 2, 1>;
    case 330:
      return &Try<3, 3, 0>;
    case 332:
      return &Try<3, 3, 2>;
    case 341:
      return &Try<3, 4, 1>;
    default:
      return &Try<3, 5, 0>;
  }
}

constexpr int kUnit = 16;  // of the thresholds that are tried on whole tiles

// Upper bits of a tile whose samples lie within low..high; the levels get them less what is returned.
int SettleTile(const Tile& tile, TryFunction try_threshold, int low, int high) {
  // Ranges of thresholds that are not settled: above .low, up to .high.
  struct Range {
    int low, high;
  };
  Range open[16];
  low /= kUnit;
  high /= kUnit;
  int count = 0, base = low;
  if (low < high) open[count++] = {low, high};
  while (count > 0) {
    const Range range = open[--count];
    const int t = range.low + (range.high - range.low + 1) / 2;
    const Verdict verdict = try_threshold(tile, t * kUnit);
    // All thresholds up to t hold everywhere (t itself is counted in the levels), or none from t on holds anywhere.
    if (verdict.all) {
      base += t - 1 - range.low;
    } else if (t - 1 > range.low) {
      open[count++] = {range.low, t - 1};
    }
    if (verdict.any && t < range.high) open[count++] = {t, range.high};
  }
  return base;
}

// The levels, upper bits less `base`, become medians. kWidth: of the mask.
template <int kWidth>
void Refine(const Tile& tile, int base) {
  const V rank = Set8(tile.rank), from = Set8(base);
  const std::ptrdiff_t pitch = tile.pitch;
  for (std::ptrdiff_t y = 0; y < tile.height; ++y) {
    const u8* const window = tile.plane + y * pitch;
    u8* const levels = tile.levels + y * pitch;
    for (std::ptrdiff_t x = 0; x < tile.width; x += kV) {
      V median = Add8(Load(levels + x), from);
      for (int k = 1; k < kUnit; k += k) median = Add8(median, median);
      for (int bit = kUnit / 2; bit > 0; bit /= 2) {
        const V candidate = Or(median, Set8(bit)), threshold = ThresholdsOf(candidate);
        V even = Zero(), odd = Zero();
        const u8* row = window + x;
        for (int j = 0; j < tile.mask_height; ++j, row += pitch) {
#pragma GCC unroll 16
          for (int i = 0; i < kWidth; i += 2) even = AddIfNotBelow(even, Load(row + i), threshold);
#pragma GCC unroll 16
          for (int i = 1; i < kWidth; i += 2) odd = AddIfNotBelow(odd, Load(row + i), threshold);
        }
        median = Where(NotBelow8(Add8(even, odd), rank), candidate, median);
      }
      Store(levels + x, median);
    }
  }
}

using RefineFunction = void (*)(const Tile&, int);

RefineFunction ChooseRefine(int width) {
  switch (width) {
    case 1:
      return &Refine<1>;
    case 3:
      return &Refine<3>;
    case 5:
      return &Refine<5>;
    case 7:
      return &Refine<7>;
    case 9:
      return &Refine<9>;
    case 11:
      return &Refine<11>;
    case 13:
      return &Refine<13>;
    default:
      return &Refine<15>;
  }
}

// Splits `columns` pixels of a row into three planes and widens the bounds of what they hold.
struct Bounds {
  V low[3], high[3];
};
void LoadRow(const Interleave3& interleave, const u8* row, std::ptrdiff_t columns, u8* const* planes, Bounds& bounds) {
  const V bias = Set8(kBias);
  const auto block = [&](const u8* from, std::ptrdiff_t x) __attribute__((always_inline)) {
    V c[3];
    Split3(interleave, from, c);
#pragma GCC unroll 3
    for (int k = 0; k < 3; ++k) {
      bounds.low[k] = Min8(bounds.low[k], c[k]);
      bounds.high[k] = Max8(bounds.high[k], c[k]);
      Store(planes[k] + x, Xor(c[k], bias));
    }
  };
  WalkOver(
      columns, kV, [&](std::ptrdiff_t x) __attribute__((always_inline)) { block(row + x * 3, x); });
}

}  // namespace

bool TakesMedianWindow(IppiSize mask) { return mask.width <= 15 && mask.height <= 255 / mask.width; }

// Output pixels of a tile, about; smaller ones have fewer different medians, larger ones share more borders.
constexpr std::ptrdiff_t kTileWidth = 96, kTileHeight = 12;

IppStatus MedianWindow(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask) {
  const std::ptrdiff_t halo = mask.width - 1;
  Tile tile = {};
  tile.width = RoundUp(halo + kTileWidth, 64) - halo;
  if (tile.width > roi.width) tile.width = roi.width;
  tile.wide = RoundUp(tile.width + halo, kV);
  tile.pitch = tile.wide + 64;
  tile.height = kTileHeight + mask.height / 2;
  if (tile.height > roi.height) tile.height = roi.height;
  tile.mask_height = mask.height;
  tile.rank = mask.width * mask.height / 2 + 1;
  const int part = mask.width <= 5 ? 1 : 3;
  const TryFunction try_threshold = ChooseTry({part, mask.width / part, mask.width % part});
  const RefineFunction refine = ChooseRefine(mask.width);

  const std::ptrdiff_t rows = tile.height + mask.height - 1;
  const std::ptrdiff_t sums = tile.pitch * (tile.height + 1) * 2;
  const std::ptrdiff_t bytes = tile.pitch * 3 * (rows + tile.height) + sums;
  u8* memory = PQScratch(bytes);
  if (memory == nullptr) return ippStsMemAllocErr;
  u8* planes = memory;
  u8* const levels = planes + tile.pitch * 3 * rows;
  tile.counts = levels + tile.pitch * 3 * tile.height;
  tile.part_sums = tile.counts + tile.pitch * (tile.height + 1);
  __builtin_memset(memory, 0, static_cast<std::size_t>(bytes));
  const Interleave3 interleave = MakeInterleave3();

  for (std::ptrdiff_t y = 0; y < roi.height; y += tile.height) {
    if (y + tile.height > roi.height) y = roi.height - tile.height;
    for (std::ptrdiff_t x = 0; x < roi.width; x += tile.width) {
      if (x + tile.width > roi.width) x = roi.width - tile.width;
      Bounds bounds;
      for (int k = 0; k < 3; ++k) bounds.low[k] = Set8(255), bounds.high[k] = Zero();
      for (std::ptrdiff_t j = 0; j < rows; ++j) {
        u8* const row_planes[3] = {planes + j * tile.pitch, planes + (rows + j) * tile.pitch,
                                   planes + (2 * rows + j) * tile.pitch};
        LoadRow(interleave, RowAt(src, src_step, y + j) + x * 3, tile.width + halo, row_planes, bounds);
      }
      __builtin_memset(levels, 0, static_cast<std::size_t>(tile.pitch * 3 * tile.height));
      for (int k = 0; k < 3; ++k) {
        alignas(64) u8 lows[kV], highs[kV];
        Store(lows, bounds.low[k]);
        Store(highs, bounds.high[k]);
        int low = 255, high = 0;
        for (std::ptrdiff_t i = 0; i < kV; ++i) {
          if (lows[i] < low) low = lows[i];
          if (highs[i] > high) high = highs[i];
        }
        tile.plane = planes + k * rows * tile.pitch;
        tile.levels = levels + k * tile.height * tile.pitch;
        refine(tile, SettleTile(tile, try_threshold, low, high));
      }
      for (std::ptrdiff_t j = 0; j < tile.height; ++j) {
        const u8* from = levels + j * tile.pitch;
        u8* to = RowAt(dst, dst_step, y + j) + x * 3;
        WalkOver(
            tile.width, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
              V c[3];
              for (int k = 0; k < 3; ++k) c[k] = Load(from + k * tile.height * tile.pitch + i);
              Join3(interleave, to + i * 3, c);
            });
      }
    }
  }
  ippsFree(memory);
  return ippStsNoErr;
}

}  // namespace PQ_TARGET
}  // namespace pantiq
