// Minimum and maximum: one source for a6, w7 and t7. Down the columns first, in blocks of as many rows as the mask is
// high: suffix extremes of the block, prefix extremes of the next (van Herk 1992), so three comparisons a row whatever
// the height. Then across, by windows that grow by a factor of up to five a pass. The region is cut into strips whose
// buffers stay in the cache.
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
void DownLow(const u8* const* rows, u8* const* out, std::ptrdiff_t n) {
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

// out = extreme of a and b.
template <bool kMax>
void Pair(const u8* a, const u8* b, u8* out, std::ptrdiff_t n) {
  WalkOver(
      n, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        Store(out + i, Pick<kMax>(Load(a + i), Load(b + i)));
      });
}

// running = extreme of running and row, out = extreme of suffix and the new running.
template <bool kMax>
void Advance(const u8* row, u8* running, const u8* suffix, u8* out, std::ptrdiff_t n) {
  WalkOver(
      n, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        const V prefix = Pick<kMax>(Load(running + i), Load(row + i));
        Store(running + i, prefix);
        Store(out + i, Pick<kMax>(Load(suffix + i), prefix));
      });
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

// The passes across for a mask's width: each makes windows of `length` pixels out of windows of `from` pixels.
struct Pass {
  int taps, from, length;
};
struct Passes {
  Pass pass[16];
  int count;
};
Passes PlanAcross(int width) {
  // As few passes as windows growing by five make it, then as few taps as that many passes allow.
  int count = 0;
  for (std::int64_t reach = 1; reach < width; reach *= 5) ++count;
  int taps = 2;
  const auto reach = [&](int by) {
    std::int64_t r = 1;
    for (int k = 0; k < count; ++k) r *= by;
    return r;
  };
  while (reach(taps) < width) ++taps;
  Passes plan;
  plan.count = 0;
  int length = 1;
  while (length < width) {
    const int parts = width / length + (width % length != 0);
    Pass& pass = plan.pass[plan.count++];
    pass.taps = parts <= taps ? parts : taps;
    pass.from = length;
    pass.length = parts <= taps ? width : length * taps;
    length = pass.length;
  }
  return plan;
}

// Some rows across: n output bytes each from n + (width - 1) * 3 bytes of `in`. A pass goes over all of the rows before the
// next one begins: what was just stored cannot be read at odd offsets until it has left the processor's store queue.
// temp: 2 * kBatch buffers of the size of an input row. scratch: the input lies in scratch memory.
constexpr int kBatch = 4;

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

constexpr std::ptrdiff_t kLowStrip = 3072, kTallMemory = 256 * 1024;

template <bool kMax>
IppStatus Extreme(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask) {
  const std::ptrdiff_t row_bytes = std::ptrdiff_t{roi.width} * 3, halo = std::ptrdiff_t{mask.width - 1} * 3;
  const int height = mask.height;
  // Strips of one width; the last one overlaps the one before.
  std::ptrdiff_t longest = kLowStrip + halo / 4;
  if (height > kMaxLow) {
    longest = kTallMemory / height;
    if (longest < 1024 + 4 * halo) longest = 1024 + 4 * halo;
  }
  const std::ptrdiff_t strips = (row_bytes + longest - 1) / longest;
  std::ptrdiff_t n = RoundUp((row_bytes + strips - 1) / strips, 64);
  if (n > row_bytes) n = row_bytes;
  const std::ptrdiff_t wide = n + halo, pitch = RoundUp(wide, 64) + 64;
  const int rows_kept = height == 1 ? 0 : height + 1 + kBatch;
  if (pitch > 0x7FFFFFFF / (std::int64_t{height} + 1 + 3 * kBatch)) return ippStsMemAllocErr;
  const Scratch64 scratch = MakeScratch64(pitch * (rows_kept + 2 * kBatch));
  if (scratch.raw == nullptr) return ippStsMemAllocErr;
  u8* const memory = scratch.data;
  u8* temp[2 * kBatch];
  for (int k = 0; k < 2 * kBatch; ++k) temp[k] = memory + k * pitch;
  u8* const kept = memory + 2 * kBatch * pitch;
  const Passes plan = PlanAcross(mask.width);

  for (std::ptrdiff_t x = 0; x < row_bytes; x += n) {
    if (x + n > row_bytes) x = row_bytes - n;
    const u8* const from = src + x;
    u8* const to = dst + x;
    if (height == 1) {
      for (int y = 0; y < roi.height; y += kBatch) {
        const int rows = roi.height - y < kBatch ? roi.height - y : kBatch;
        const u8* in[kBatch];
        u8* out[kBatch];
        for (int r = 0; r < rows; ++r) in[r] = RowAt(from, src_step, y + r), out[r] = RowAt(to, dst_step, y + r);
        RowsAcross<kMax>(plan, mask.width, in, false, out, rows, n, temp);
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
      for (int j = height - 2; j >= 0; --j) {
        u8* suffix = kept + std::ptrdiff_t{j} * pitch;
        Pair<kMax>(RowAt(from, src_step, y + j), above, suffix, wide);
        above = suffix;
      }
      for (int first = 0; first < count; first += kBatch) {
        const int batch = count - first < kBatch ? count - first : kBatch;
        const u8* down[kBatch];
        u8* results[kBatch];
        for (int r = 0; r < batch; ++r) {
          const int j = first + r;
          results[r] = RowAt(to, dst_step, y + j);
          down[r] = kept;
          if (j == 0) continue;
          const u8* next = RowAt(from, src_step, y + height - 1 + j);
          const u8* suffix = j + 1 < height ? kept + std::ptrdiff_t{j} * pitch : RowAt(from, src_step, y + j);
          u8* const result = mask.width > 1 ? running + (r + 1) * pitch : results[r];
          if (j == 1) __builtin_memcpy(running, next, static_cast<std::size_t>(wide));
          Advance<kMax>(next, running, suffix, result, wide);
          down[r] = result;
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
