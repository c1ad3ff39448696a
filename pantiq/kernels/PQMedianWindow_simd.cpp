// Medians of larger windows: one source for a6, w7 and t7. A window's median is the number of thresholds t from 1 to
// 255 for which at least half of its samples are t or more, and for one t these counts are a box sum: down the columns
// one row enters and one leaves, across sums are added from shorter ones. So each threshold costs the same whatever the
// mask's area. Thresholds are tried by bisection on tiles of one channel: where all windows of a tile agree, a whole
// range is settled at once; a tile of ordinary pictures has some ten or twenty different medians.
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
PQ_INLINE V AddIfNotBelow(V count, V samples, V t) {
  return _mm512_mask_sub_epi8(count, _mm512_cmpge_epu8_mask(samples, t), count, Set8(-1));
}
PQ_INLINE V SubIfNotBelow(V count, V samples, V t) {
  return _mm512_mask_add_epi8(count, _mm512_cmpge_epu8_mask(samples, t), count, Set8(-1));
}
PQ_INLINE Set NotBelow8(V count, V rank) { return _mm512_cmpge_epu8_mask(count, rank); }
PQ_INLINE Set NotBelow16(V count0, V count1, V rank) {
  return _mm512_kunpackd(_mm512_cmpge_epu16_mask(count1, rank), _mm512_cmpge_epu16_mask(count0, rank));
}
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
PQ_INLINE V AddIfNotBelow(V count, V samples, V t) { return _mm256_sub_epi8(count, _mm256_cmpgt_epi8(samples, t)); }
PQ_INLINE V SubIfNotBelow(V count, V samples, V t) { return _mm256_add_epi8(count, _mm256_cmpgt_epi8(samples, t)); }
PQ_INLINE Set NotBelow8(V count, V rank) { return _mm256_cmpeq_epi8(_mm256_max_epu8(count, rank), count); }
PQ_INLINE Set NotBelow16(V count0, V count1, V rank) {  // counts stay below 32768
  const V below = _mm256_packs_epi16(_mm256_cmpgt_epi16(rank, count0), _mm256_cmpgt_epi16(rank, count1));
  return _mm256_xor_si256(_mm256_permute4x64_epi64(below, 0xD8), Set8(-1));
}
PQ_INLINE V CountSet(V a, Set s) { return _mm256_sub_epi8(a, s); }
#endif

// ---- one tile ------------------------------------------------------------------------------------------------------

// How a window's width is put together: from `parts` sums of `part` columns (8 bits), in larger windows by way of sums
// of `group` parts (16 bits).
struct Split {
  bool bytes;  // the whole count fits 8 bits
  int part, parts, rest;
  int group, groups, parts_left;
};

struct Tile {
  std::ptrdiff_t width, wide;  // output columns; columns with those the windows add, whole vectors
  std::ptrdiff_t pitch;        // of the plane's rows
  std::ptrdiff_t height;       // output rows
  int mask_height;
  int rank;
  Split split;
  const u8* plane;         // height + mask_height - 1 rows
  u8* levels;              // height rows of `pitch`: thresholds passed so far
  u8 *counts, *part_sums;  // a row each
  u16* group_sums;
};

struct Verdict {
  bool any, all;
};

// Calls f(x, in) for the vectors of a row of outputs, `in` the bytes that count.
template <class F>
PQ_INLINE void ForOutputs(const Tile& tile, F f) {
  std::ptrdiff_t x = 0;
  for (; x + kV <= tile.width; x += kV) f(x, AllBytes());
  if (x < tile.width) f(x, FirstOf(tile.width - x));
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

PQ_INLINE void SumParts(const u8* in, u8* out, std::ptrdiff_t n, int parts) {
  for (std::ptrdiff_t x = 0; x < n; x += kV) {
    V sum = Load(in + x);
    for (int k = 1; k < parts; ++k) sum = Add8(sum, Load(in + x + k));
    Store(out + x, sum);
  }
}

// Adds 1 to the level of each pixel whose median is t or more. kParts 0: counts of 16 bits.
template <int kPart, int kParts, int kRest>
Verdict Try(const Tile& tile, int t) {
  const V threshold = ThresholdOf(t);
  const Split& split = tile.split;
  __builtin_memset(tile.counts, 0, static_cast<std::size_t>(tile.wide));
  for (int y = 0; y + 1 < tile.mask_height; ++y) {
    const u8* entering = tile.plane + y * tile.pitch;
    for (std::ptrdiff_t x = 0; x < tile.wide; x += kV) {
      Store(tile.counts + x, AddIfNotBelow(Load(tile.counts + x), Load(entering + x), threshold));
    }
  }
  Set any = NoBytes(), missing = NoBytes();
  for (std::ptrdiff_t y = 0; y < tile.height; ++y) {
    const u8* entering = tile.plane + (y + tile.mask_height - 1) * tile.pitch;
    if (y == 0) {
      for (std::ptrdiff_t x = 0; x < tile.wide; x += kV) {
        Store(tile.counts + x, AddIfNotBelow(Load(tile.counts + x), Load(entering + x), threshold));
      }
    } else {
      const u8* leaving = tile.plane + (y - 1) * tile.pitch;
      for (std::ptrdiff_t x = 0; x < tile.wide; x += kV) {
        const V count = AddIfNotBelow(Load(tile.counts + x), Load(entering + x), threshold);
        Store(tile.counts + x, SubIfNotBelow(count, Load(leaving + x), threshold));
      }
    }
    u8* levels = tile.levels + y * tile.pitch;
    const auto settle = [&](std::ptrdiff_t x, Set passed, Set in) __attribute__((always_inline)) {
      any = Either(any, Both(passed, in));
      missing = Either(missing, Without(in, passed));
      Store(levels + x, CountSet(Load(levels + x), passed));
    };
    if constexpr (kParts > 0) {
      const V rank = Set8(tile.rank);
      const u8* parts = tile.counts;
      if constexpr (kPart > 1) {
        SumParts<kPart>(tile.counts, tile.part_sums, tile.wide);
        parts = tile.part_sums;
      }
      ForOutputs(
          tile, [&](std::ptrdiff_t x, Set in) __attribute__((always_inline)) {
            V sum = Load(parts + x);
#pragma GCC unroll 5
            for (int k = 1; k < kParts; ++k) sum = Add8(sum, Load(parts + x + k * kPart));
#pragma GCC unroll 3
            for (int k = 0; k < kRest; ++k) sum = Add8(sum, Load(tile.counts + x + kParts * kPart + k));
            settle(x, NotBelow8(sum, rank), in);
          });
    } else {
      const V rank = Set16(tile.rank);
      SumParts(tile.counts, tile.part_sums, tile.wide, split.part);
      const std::ptrdiff_t group_width = std::ptrdiff_t{split.group} * split.part;
      for (std::ptrdiff_t x = 0; x < tile.wide; x += kL) {
        V sum = Widen(tile.part_sums + x);
        for (int k = 1; k < split.group; ++k) sum = Add16(sum, Widen(tile.part_sums + x + k * split.part));
        Store(tile.group_sums + x, sum);
      }
      const auto window = [&](std::ptrdiff_t x) __attribute__((always_inline)) {
        V sum = Load(tile.group_sums + x);
        x += group_width;
        for (int k = 1; k < split.groups; ++k, x += group_width) sum = Add16(sum, Load(tile.group_sums + x));
        for (int k = 0; k < split.parts_left; ++k, x += split.part) sum = Add16(sum, Widen(tile.part_sums + x));
        for (int k = 0; k < split.rest; ++k, ++x) sum = Add16(sum, Widen(tile.counts + x));
        return sum;
      };
      ForOutputs(
          tile, [&](std::ptrdiff_t x, Set in)
                    __attribute__((always_inline)) { settle(x, NotBelow16(window(x), window(x + kL), rank), in); });
    }
  }
  return {!IsEmpty(any), IsEmpty(missing)};
}

using TryFunction = Verdict (*)(const Tile&, int);

TryFunction ChooseTry(const Split& split) {
  if (!split.bytes) return &Try<0, 0, 0>;
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

Split SplitWidth(IppiSize mask) {
  Split split = {};
  split.bytes = mask.width <= 15 && mask.width * mask.height <= 255;
  if (split.bytes) {
    split.part = mask.width <= 5 ? 1 : 3;
    split.parts = mask.width / split.part;
    split.rest = mask.width % split.part;
    return split;
  }
  const int most = 255 / mask.height;
  int part = 1;
  while (part < most && (part + 1) * (part + 1) <= mask.width) ++part;
  split.part = part;
  split.parts = mask.width / part;
  split.rest = mask.width % part;
  int group = 1;
  while ((group + 1) * (group + 1) <= split.parts) ++group;
  split.group = group;
  split.groups = split.parts / group;
  split.parts_left = split.parts % group;
  return split;
}

// Medians of a tile whose samples lie within low..high; levels hold median - base then, and base is the result.
int SettleTile(const Tile& tile, TryFunction try_threshold, int low, int high) {
  // Ranges of thresholds that are not settled: above .low, up to .high.
  struct Range {
    int low, high;
  };
  Range open[16];
  int count = 0, base = low;
  if (low < high) open[count++] = {low, high};
  while (count > 0) {
    const Range range = open[--count];
    const int t = range.low + (range.high - range.low + 1) / 2;
    const Verdict verdict = try_threshold(tile, t);
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

bool TakesMedianWindow(IppiSize mask) {
  return mask.height <= 255 && mask.width <= 1023 && mask.width * mask.height < 32768;
}

IppStatus MedianWindow(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask) {
  const std::ptrdiff_t halo = mask.width - 1;
  Tile tile = {};
  tile.width = RoundUp(halo + 96, 64) - halo;
  if (tile.width > roi.width) tile.width = roi.width;
  tile.wide = RoundUp(tile.width + halo, kV);
  tile.pitch = tile.wide + 64;
  tile.height = mask.height <= 15 ? 48 : mask.height <= 63 ? 64 : 128;
  if (tile.height > roi.height) tile.height = roi.height;
  tile.mask_height = mask.height;
  tile.rank = mask.width * mask.height / 2 + 1;
  tile.split = SplitWidth(mask);
  const TryFunction try_threshold = ChooseTry(tile.split);

  const std::ptrdiff_t rows = tile.height + mask.height - 1;
  u8* memory = PQScratch(tile.pitch * 3 * (rows + tile.height) + tile.pitch * 5);
  if (memory == nullptr) return ippStsMemAllocErr;
  u8* planes = memory;
  u8* const levels = planes + tile.pitch * 3 * rows;
  tile.counts = levels + tile.pitch * 3 * tile.height;
  tile.part_sums = tile.counts + tile.pitch;
  tile.group_sums = reinterpret_cast<u16*>(tile.part_sums + tile.pitch);
  __builtin_memset(memory, 0, static_cast<std::size_t>(tile.pitch * 3 * (rows + tile.height) + tile.pitch * 5));
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
      V base[3];
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
        base[k] = Set8(SettleTile(tile, try_threshold, low, high));
      }
      for (std::ptrdiff_t j = 0; j < tile.height; ++j) {
        const u8* from = levels + j * tile.pitch;
        u8* to = RowAt(dst, dst_step, y + j) + x * 3;
        WalkOver(
            tile.width, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
              V c[3];
              for (int k = 0; k < 3; ++k) c[k] = Add8(Load(from + k * tile.height * tile.pitch + i), base[k]);
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
