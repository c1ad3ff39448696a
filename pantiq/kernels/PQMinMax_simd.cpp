// Minimum and maximum: one source for a6, w7 and t7. Down the columns first, in blocks of as many rows as the mask is
// high: suffix extremes of the block, prefix extremes of the next (van Herk 1992), so three comparisons a row whatever
// the height. Then across: windows of up to 64 pixels grow by doubling in registers, and the rest is few loads that
// overlap. The region is cut into strips whose buffers stay in the cache.
#include "pantiq/kernels/PQWindowVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

template <bool kMax>
PQ_INLINE V Pick(V a, V b) {
  if constexpr (kMax) {
    return Max8(a, b);
  } else {
    return Min8(a, b);
  }
}

constexpr int kMaxLow = 9;  // masks up to this height are done in registers

// out[j][i] = extreme of rows[j][i] .. rows[j + kHeight - 1][i] for j below kHeight.
template <bool kMax, int kHeight>
__attribute__((noinline)) void DownLow(const u8* const* given_rows, u8* const* given_out, std::ptrdiff_t n) {
  // Pointers of our own: to the compiler a store of bytes might change those that were given.
  const u8* rows[2 * kHeight - 1];
  u8* out[kHeight];
#pragma GCC unroll 32
  for (int j = 0; j < 2 * kHeight - 1; ++j) rows[j] = given_rows[j];
#pragma GCC unroll 16
  for (int j = 0; j < kHeight; ++j) out[j] = given_out[j];
  WalkOver(
      n, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        V suffix[kHeight];
        suffix[kHeight - 1] = Load(rows[kHeight - 1] + i);
#pragma GCC unroll 16
        for (int j = kHeight - 2; j >= 0; --j) suffix[j] = Pick<kMax>(Load(rows[j] + i), suffix[j + 1]);
        Store(out[0] + i, suffix[0]);
        V prefix = Load(rows[kHeight] + i);
        Store(out[1] + i, Pick<kMax>(suffix[1], prefix));
#pragma GCC unroll 16
        for (int j = 2; j < kHeight; ++j) {
          prefix = Pick<kMax>(prefix, Load(rows[kHeight - 1 + j] + i));
          Store(out[j] + i, Pick<kMax>(suffix[j], prefix));
        }
      });
}

template <bool kMax>
void DownLow(int height, const u8* const* rows, u8* const* out, std::ptrdiff_t n) {
  switch (height) {
    case 2:
      return DownLow<kMax, 2>(rows, out, n);
    case 3:
      return DownLow<kMax, 3>(rows, out, n);
    case 4:
      return DownLow<kMax, 4>(rows, out, n);
    case 5:
      return DownLow<kMax, 5>(rows, out, n);
    case 6:
      return DownLow<kMax, 6>(rows, out, n);
    case 7:
      return DownLow<kMax, 7>(rows, out, n);
    case 8:
      return DownLow<kMax, 8>(rows, out, n);
    default:
      return DownLow<kMax, 9>(rows, out, n);
  }
}

constexpr int kBatch = 4;  // rows that are done together

// out[k] = extreme of above and rows[0] .. rows[k].
template <bool kMax, int kRows>
void Gather(const u8* above, const u8* const* given_rows, u8* const* given_out, std::ptrdiff_t n) {
  const u8* rows[kRows];
  u8* out[kRows];
#pragma GCC unroll 4
  for (int k = 0; k < kRows; ++k) rows[k] = given_rows[k], out[k] = given_out[k];
  WalkOver(
      n, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        V best = Load(above + i);
#pragma GCC unroll 4
        for (int k = 0; k < kRows; ++k) {
          best = Pick<kMax>(best, Load(rows[k] + i));
          Store(out[k] + i, best);
        }
      });
}

// For each k in turn: running = extreme of running and rows[k], out[k] = extreme of suffix[k] and running. `fresh`: running
// holds nothing yet.
template <bool kMax, int kRows>
void Advance(const u8* const* given_rows, u8* running, bool fresh, const u8* const* given_suffix, u8* const* given_out,
             std::ptrdiff_t n) {
  const u8 *rows[kRows], *suffix[kRows];
  u8* out[kRows];
#pragma GCC unroll 4
  for (int k = 0; k < kRows; ++k) rows[k] = given_rows[k], suffix[k] = given_suffix[k], out[k] = given_out[k];
  const u8* const before = fresh ? rows[0] : running;
  const auto advance = [&](std::ptrdiff_t i) __attribute__((always_inline)) {
    V prefix = Load(before + i);
#pragma GCC unroll 4
    for (int k = 0; k < kRows; ++k) {
      prefix = Pick<kMax>(prefix, Load(rows[k] + i));
      Store(out[k] + i, Pick<kMax>(Load(suffix[k] + i), prefix));
    }
    return prefix;
  };
  // The last vector overlaps the one before, so it is done while running is as it was.
  const V last = advance(n - kV);
  for (std::ptrdiff_t i = 0; i + kV <= n; i += kV) Store(running + i, advance(i));
  Store(running + n - kV, last);
}

// out[i] = extreme of in[i], in[i + pitch] .. in[i + (kTaps - 2) * pitch], in[i + last].
template <bool kMax, int kTaps>
void Across(const u8* in, u8* out, std::ptrdiff_t n, std::ptrdiff_t pitch, std::ptrdiff_t last) {
  WalkOver(
      n, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        V best = Pick<kMax>(Load(in + i), Load(in + i + last));
#pragma GCC unroll 4
        for (int k = 1; k + 1 < kTaps; ++k) best = Pick<kMax>(best, Load(in + i + k * pitch));
        Store(out + i, best);
      });
}

// The same for neighbouring pixels, out of scratch memory.
template <bool kMax, int kTaps>
void AcrossNext(const u8* in, u8* out, std::ptrdiff_t n) {
  WalkOver(
      n, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        const V at0 = Load(in + i), at16 = Load(in + i + 16);
        V best = Pick<kMax>(at0, LoadedAt<3>(at0, at16));
        if constexpr (kTaps > 2) best = Pick<kMax>(best, LoadedAt<6>(at0, at16));
        if constexpr (kTaps > 3) best = Pick<kMax>(best, LoadedAt<9>(at0, at16));
        if constexpr (kTaps > 4) best = Pick<kMax>(best, LoadedAt<12>(at0, at16));
        Store(out + i, best);
      });
}

// Windows of 2^kLevels pixels, all in registers: every level makes windows twice as wide out of a vector and what is 3, 6,
// 12, 24, 48, 96 bytes further on, so that a row is loaded and stored once. h1 to h6 are what waits on each level for the
// vectors behind it.
//
// On t7 a vector is 64 bytes in a row. On a6 and w7 its two lanes walk through the two halves of the row: what is further
// on is then in the same lane of the next vectors, which saves exchanging the lanes.
#if PQ_WIDE
constexpr int kMostLevels = 6, kLeastDoubled = 6;
constexpr int kDelays[] = {0, 1, 2, 3, 4, 5, 7};  // vectors that wait, in all, by levels
template <int n>
PQ_INLINE V Further(V here, V next) {
  if constexpr (n % 4 == 0) return _mm512_alignr_epi32(next, here, n / 4);
  return LoadedAt<n>(here, After16(here, next));
}
#else
constexpr int kMostLevels = 5, kLeastDoubled = 12;
constexpr int kDelays[] = {0, 1, 2, 3, 5, 8, 14};
template <int n>
PQ_INLINE V Further(V here, V next) {
  return _mm256_alignr_epi8(next, here, n);
}
#endif

template <bool kMax, int kLevels>
struct Doubler {
#if PQ_WIDE
  V h1 = Zero(), h2 = Zero(), h3 = Zero(), h4 = Zero(), h5 = Zero(), h6[2] = {Zero(), Zero()};
#else
  V h1 = Zero(), h2 = Zero(), h3 = Zero(), h4[2] = {Zero(), Zero()}, h5[3] = {Zero(), Zero(), Zero()};
  V h6[6] = {Zero(), Zero(), Zero(), Zero(), Zero(), Zero()};
#endif
  // Takes the next vector, gives the one of kDelays[kLevels] vectors before.
  inline __attribute__((always_inline)) V Push(V x) {
    V y = Pick<kMax>(h1, Further<3>(h1, x));
    h1 = x, x = y;
    y = Pick<kMax>(h2, Further<6>(h2, x));
    h2 = x, x = y;
    if constexpr (kLevels > 2) {
      y = Pick<kMax>(h3, Further<12>(h3, x));
      h3 = x, x = y;
    }
#if PQ_WIDE
    if constexpr (kLevels > 3) {
      y = Pick<kMax>(h4, Further<24>(h4, x));
      h4 = x, x = y;
    }
    if constexpr (kLevels > 4) {
      y = Pick<kMax>(h5, Further<48>(h5, x));
      h5 = x, x = y;
    }
    if constexpr (kLevels > 5) {
      y = Pick<kMax>(h6[0], Further<32>(h6[1], x));
      h6[0] = h6[1], h6[1] = x, x = y;
    }
#else
    if constexpr (kLevels > 3) {
      y = Pick<kMax>(h4[0], Further<8>(h4[1], x));
      h4[0] = h4[1], h4[1] = x, x = y;
    }
    if constexpr (kLevels > 4) {
      y = Pick<kMax>(h5[0], x);
      h5[0] = h5[1], h5[1] = h5[2], h5[2] = x, x = y;
    }
    if constexpr (kLevels > 5) {
      y = Pick<kMax>(h6[0], x);
      h6[0] = h6[1], h6[1] = h6[2], h6[2] = h6[3], h6[3] = h6[4], h6[4] = h6[5], h6[5] = x, x = y;
    }
#endif
    return x;
  }
};

// out[i] = extreme of the 2^kLevels pixels from in[i] on. Scratch memory alone: behind the row up to 323 bytes more are
// read (t7, 6 levels: 8 vectors of 64 bytes, of which the windows cover 189) and up to 63 written.
constexpr std::ptrdiff_t kBehind = 384;
template <bool kMax, int kLevels>
void Doubled(const u8* in, u8* out, std::ptrdiff_t n) {
  constexpr int kDelay = kDelays[kLevels];
  Doubler<kMax, kLevels> doubler;
  // In turns of six, since that brings what waits back to where it was.
#if PQ_WIDE
  for (int k = 0; k < kDelay; ++k) doubler.Push(Load(in + k * kV));
  in += kDelay * kV;
#pragma GCC unroll 6
  for (std::ptrdiff_t i = 0; i < n; i += kV) Store(out + i, doubler.Push(Load(in + i)));
#else
  const std::ptrdiff_t half = RoundUp((n + 1) / 2, 16);
  const auto load = [](const u8* low, const u8* high) __attribute__((always_inline)) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(low))),
                                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(high)), 1);
  };
  for (int k = 0; k < kDelay; ++k) doubler.Push(load(in + k * 16, in + half + k * 16));
  in += kDelay * 16;
#pragma GCC unroll 6
  for (std::ptrdiff_t i = 0; i < half; i += 16) {
    const V v = doubler.Push(load(in + i, in + half + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm256_castsi256_si128(v));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + half + i), _mm256_extracti128_si256(v, 1));
  }
#endif
}

template <bool kMax>
void Doubled(int levels, const u8* in, u8* out, std::ptrdiff_t n) {
  switch (levels) {
    case 2:
      return Doubled<kMax, 2>(in, out, n);
    case 3:
      return Doubled<kMax, 3>(in, out, n);
    case 4:
      return Doubled<kMax, 4>(in, out, n);
    case 5:
      return Doubled<kMax, 5>(in, out, n);
    default:
      return Doubled<kMax, 6>(in, out, n);
  }
}

// The passes across for a mask's width: each makes windows of `length` pixels out of windows of `from` pixels. The first
// may be one that doubles `levels` times.
struct Pass {
  int taps, from, length, levels;
};
struct Passes {
  Pass pass[16];
  int count;
};
Passes PlanAcross(int width) {
  Passes plan;
  plan.count = 0;
  int length = 1;
  if (width >= kLeastDoubled) {
    int levels = 2;
    while (levels < kMostLevels && (2 << levels) < width) ++levels;
    length = 1 << levels;
    plan.pass[plan.count++] = {2, 1, length, levels};
  }
  // As few passes as windows growing by five make it, then as few taps as that many passes allow.
  const auto reach = [&](int by, int count) {
    std::int64_t r = length;
    for (int k = 0; k < count; ++k) r *= by;
    return r;
  };
  int count = 0, taps = 2;
  while (reach(5, count) < width) ++count;
  while (reach(taps, count) < width) ++taps;
  while (length < width) {
    const int parts = width / length + (width % length != 0);
    Pass& pass = plan.pass[plan.count++];
    pass.taps = parts <= taps ? parts : taps;
    pass.from = length;
    pass.length = parts <= taps ? width : length * taps;
    pass.levels = 0;
    length = pass.length;
  }
  return plan;
}

// Some rows across: n output bytes each from n + (width - 1) * 3 bytes of `in`. A pass goes over all of the rows before the
// next one begins: what was just stored cannot be read at odd offsets until it has left the processor's store queue.
// temp: 2 * kBatch buffers of the size of an input row. scratch: the input lies in scratch memory, as doubling needs it.
template <bool kMax>
void RowsAcross(const Passes& plan, int width, const u8* const* in, bool scratch, u8* const* out, int rows,
                std::ptrdiff_t n, u8* const* temp) {
  for (int k = 0; k < plan.count; ++k) {
    const Pass& pass = plan.pass[k];
    const u8* const* from = k == 0 ? in : temp + kBatch * ((k - 1) & 1);
    u8* const* to = k + 1 == plan.count ? out : temp + kBatch * (k & 1);
    const std::ptrdiff_t count = n + std::ptrdiff_t{width - pass.length} * 3;
    const std::ptrdiff_t pitch = std::ptrdiff_t{pass.from} * 3, last = std::ptrdiff_t{pass.length - pass.from} * 3;
    for (int r = 0; r < rows; ++r) {
      const u8* const row = from[r];
      if (pass.levels > 0) {
        Doubled<kMax>(pass.levels, row, to[r], count);
        continue;
      }
      if ((scratch || k > 0) && pass.from == 1) {
        switch (pass.taps) {
          case 2:
            AcrossNext<kMax, 2>(row, to[r], count);
            break;
          case 3:
            AcrossNext<kMax, 3>(row, to[r], count);
            break;
          case 4:
            AcrossNext<kMax, 4>(row, to[r], count);
            break;
          default:
            AcrossNext<kMax, 5>(row, to[r], count);
        }
        continue;
      }
      switch (pass.taps) {
        case 2:
          Across<kMax, 2>(row, to[r], count, pitch, last);
          break;
        case 3:
          Across<kMax, 3>(row, to[r], count, pitch, last);
          break;
        case 4:
          Across<kMax, 4>(row, to[r], count, pitch, last);
          break;
        default:
          Across<kMax, 5>(row, to[r], count, pitch, last);
      }
    }
  }
}

// What strips overlap by and what waits in registers at a row's start make wide strips cheaper than small buffers: mask
// 101x101, 1920 x 1080, three strips of 240 KB 0.45 ns a pixel on a6, one of 650 KB 0.40.
constexpr std::ptrdiff_t kLowStrip = 3072, kTallMemory = 640 * 1024;

template <bool kMax>
IppStatus Extreme(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask) {
  const std::ptrdiff_t row_bytes = std::ptrdiff_t{roi.width} * 3, halo = std::ptrdiff_t{mask.width - 1} * 3;
  const int height = mask.height;
  const Passes plan = PlanAcross(mask.width);
  const bool doubles = plan.count > 0 && plan.pass[0].levels > 0;
  // Strips of one width; the last one overlaps the one before.
  std::ptrdiff_t longest = kLowStrip + halo / 4;
  if (height > kMaxLow) {
    longest = kTallMemory / height;
    if (longest < 1024 + 4 * halo) longest = 1024 + 4 * halo;
  }
  const std::ptrdiff_t strips = (row_bytes + longest - 1) / longest;
  std::ptrdiff_t n = RoundUp((row_bytes + strips - 1) / strips, 64);
  if (n > row_bytes) n = row_bytes;
  const std::ptrdiff_t wide = n + halo, pitch = RoundUp(wide, 64) + (doubles ? kBehind : 64);
  const int rows_kept = height == 1 ? 0 : height + 1 + kBatch;
  if (pitch > 0x7FFFFFFF / (std::int64_t{height} + 1 + 3 * kBatch)) return ippStsMemAllocErr;
  const Scratch64 scratch = MakeScratch64(pitch * (rows_kept + 2 * kBatch));
  if (scratch.raw == nullptr) return ippStsMemAllocErr;
  u8* const memory = scratch.data;
  u8* temp[2 * kBatch];
  for (int k = 0; k < 2 * kBatch; ++k) temp[k] = memory + k * pitch;
  u8* const kept = memory + 2 * kBatch * pitch;

  for (std::ptrdiff_t x = 0; x < row_bytes; x += n) {
    if (x + n > row_bytes) x = row_bytes - n;
    const u8* const from = src + x;
    u8* const to = dst + x;
    if (height == 1) {
      for (int y = 0; y < roi.height; y += kBatch) {
        const int rows = roi.height - y < kBatch ? roi.height - y : kBatch;
        const u8* in[kBatch];
        u8* out[kBatch];
        for (int r = 0; r < rows; ++r) {
          in[r] = RowAt(from, src_step, y + r), out[r] = RowAt(to, dst_step, y + r);
          if (doubles) {
            u8* const copy = temp[kBatch + r];
            __builtin_memcpy(copy, in[r], static_cast<std::size_t>(wide));
            in[r] = copy;
          }
        }
        RowsAcross<kMax>(plan, mask.width, in, doubles, out, rows, n, temp);
      }
      continue;
    }
    const std::ptrdiff_t last_row = std::ptrdiff_t{roi.height} + height - 2;
    for (std::ptrdiff_t y = 0; y < roi.height; y += height) {
      const int count = static_cast<int>(roi.height - y < height ? roi.height - y : height);
      if (height <= kMaxLow) {
        // Behind the last output row the last source row is repeated, and the results are dropped.
        const u8* rows[2 * kMaxLow - 1];
        u8* out[kMaxLow];
        for (int j = 0; j < 2 * height - 1; ++j) {
          rows[j] = RowAt(from, src_step, y + j < last_row ? y + j : last_row);
        }
        for (int j = 0; j < height; ++j) {
          out[j] = mask.width > 1 ? kept + j * pitch : j < count ? RowAt(to, dst_step, y + j) : temp[0];
        }
        DownLow<kMax>(height, rows, out, wide);
        if (mask.width == 1) continue;
        for (int j = 0; j < count; j += kBatch) {
          const int batch = count - j < kBatch ? count - j : kBatch;
          u8* results[kBatch];
          for (int r = 0; r < batch; ++r) results[r] = RowAt(to, dst_step, y + j + r);
          RowsAcross<kMax>(plan, mask.width, out + j, true, results, batch, n, temp);
        }
        continue;
      }
      // kept[j]: extreme of the block's rows from j on; kept[height]: of the next block's rows so far.
      u8* const running = kept + std::ptrdiff_t{height} * pitch;
      const u8* above = RowAt(from, src_step, y + height - 1);
      for (int j = height - 2; j >= 0;) {
        const int batch = j + 1 < kBatch ? 1 : kBatch;
        const u8* rows[kBatch];
        u8* suffixes[kBatch];
        for (int r = 0; r < batch; ++r, --j) {
          rows[r] = RowAt(from, src_step, y + j);
          suffixes[r] = kept + std::ptrdiff_t{j} * pitch;
        }
        if (batch == kBatch) {
          Gather<kMax, kBatch>(above, rows, suffixes, wide);
        } else {
          Gather<kMax, 1>(above, rows, suffixes, wide);
        }
        above = suffixes[batch - 1];
      }
      // The block's first row is done, the others are so by batches.
      for (int first = 0, batch = 1; first < count; first += batch) {
        batch = first == 0 ? 1 : count - first < kBatch ? 1 : kBatch;
        const u8 *down[kBatch] = {kept}, *rows[kBatch], *suffixes[kBatch];
        u8 *results[kBatch], *reduced[kBatch];
        for (int r = 0; r < batch; ++r) {
          const int j = first + r;
          results[r] = RowAt(to, dst_step, y + j);
          if (j == 0) continue;
          rows[r] = RowAt(from, src_step, y + height - 1 + j);
          suffixes[r] = j + 1 < height ? kept + std::ptrdiff_t{j} * pitch : RowAt(from, src_step, y + j);
          reduced[r] = mask.width > 1 ? running + (r + 1) * pitch : results[r];
          down[r] = reduced[r];
        }
        if (first > 0 && batch == kBatch) {
          Advance<kMax, kBatch>(rows, running, first == 1, suffixes, reduced, wide);
        } else if (first > 0) {
          Advance<kMax, 1>(rows, running, first == 1, suffixes, reduced, wide);
        }
        if (mask.width > 1) {
          RowsAcross<kMax>(plan, mask.width, down, true, results, batch, n, temp);
        } else if (first == 0) {
          __builtin_memcpy(results[0], kept, static_cast<std::size_t>(n));
        }
      }
    }
  }
  ippsFree(scratch.raw);
  return ippStsNoErr;
}

}  // namespace
}  // namespace PQ_TARGET

IppStatus PQ_VARIANT(ippiFilterMin_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                           IppiSize roi, IppiSize mask, TPoint anchor) {
  if (const IppStatus status = PQCheckRank(src, srcStep, dst, dstStep, roi, mask, anchor, false)) return status;
  if (PQ_TARGET::IsNarrow(roi)) return _px_ippiFilterMin_8u_C3R(src, srcStep, dst, dstStep, roi, mask, anchor);
  if (mask.width == 1 && mask.height == 1) return PQ_VARIANT(ippiCopy_8u_C3R)(src, srcStep, dst, dstStep, roi);
  src -= std::ptrdiff_t{anchor.x} * 3 + std::ptrdiff_t{srcStep} * anchor.y;
  return PQ_TARGET::Extreme<false>(src, srcStep, dst, dstStep, roi, mask);
}

IppStatus PQ_VARIANT(ippiFilterMax_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                           IppiSize roi, IppiSize mask, TPoint anchor) {
  if (const IppStatus status = PQCheckRank(src, srcStep, dst, dstStep, roi, mask, anchor, false)) return status;
  if (PQ_TARGET::IsNarrow(roi)) return _px_ippiFilterMax_8u_C3R(src, srcStep, dst, dstStep, roi, mask, anchor);
  if (mask.width == 1 && mask.height == 1) return PQ_VARIANT(ippiCopy_8u_C3R)(src, srcStep, dst, dstStep, roi);
  src -= std::ptrdiff_t{anchor.x} * 3 + std::ptrdiff_t{srcStep} * anchor.y;
  return PQ_TARGET::Extreme<true>(src, srcStep, dst, dstStep, roi, mask);
}

}  // namespace pantiq
