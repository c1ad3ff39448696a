// Medians by networks of minima and maxima: lines, cross, 3 x 3, 5 x 5; one source for a6, w7 and t7.
#include "pantiq/kernels/PQWindowVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

PQ_INLINE void Order2(V& a, V& b) {
  const V low = Min8(a, b);
  b = Max8(a, b);
  a = low;
}
PQ_INLINE V Median3(V a, V b, V c) { return Max8(Min8(a, b), Min8(Max8(a, b), c)); }
PQ_INLINE V Median5(V a, V b, V c, V d, V e) {
  Order2(a, b);
  Order2(c, d);
  return Median3(Max8(a, c), Min8(b, d), e);
}
PQ_INLINE void Sort3(V& a, V& b, V& c) {
  Order2(b, c);
  const V high = Max8(a, b);
  a = Min8(a, b);
  b = Min8(high, c);
  c = Max8(high, c);
}
PQ_INLINE void Sort5(V& a, V& b, V& c, V& d, V& e) {
  Order2(a, b);
  Order2(d, e);
  Order2(c, e);
  Order2(c, d);
  Order2(b, e);
  Order2(a, d);
  Order2(a, c);
  Order2(b, d);
  Order2(b, c);
}

// Calls f(samples) for the vectors of every row and stores what it gives.
template <class F>
PQ_INLINE void ForVectors(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, F f) {
  for (int y = 0; y < roi.height; ++y) {
    const u8* in = RowAt(src, src_step, y);
    u8* out = RowAt(dst, dst_step, y);
    WalkOver(
        std::ptrdiff_t{roi.width} * 3,
        kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) { Store(out + i, f(in + i)); });
  }
}

// Three or five samples at a distance of `pitch` bytes.
void MedianLine(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, std::ptrdiff_t pitch, int count) {
  if (count == 3) {
    ForVectors(
        src, src_step, dst, dst_step, roi, [=](const u8* p) __attribute__((always_inline)) {
          return Median3(Load(p - pitch), Load(p), Load(p + pitch));
        });
  } else {
    ForVectors(
        src, src_step, dst, dst_step, roi, [=](const u8* p) __attribute__((always_inline)) {
          return Median5(Load(p - 2 * pitch), Load(p - pitch), Load(p), Load(p + pitch), Load(p + 2 * pitch));
        });
  }
}

void Cross33(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  const std::ptrdiff_t step = src_step, n = std::ptrdiff_t{roi.width} * 3;
  for (int y = 0; y < roi.height; ++y) {
    const u8* in = RowAt(src, src_step, y);
    u8* out = RowAt(dst, dst_step, y);
    std::ptrdiff_t i = 0;
    // As long as what lies 16 bytes on is readable, too, the row's three neighbours come from two loads.
    for (; i + kV + 16 <= n; i += kV) {
      const u8* p = in + i;
      const V at0 = Load(p - 3), at16 = Load(p + 13);
      Store(out + i, Median5(Load(p - step), Load(p + step), at0, LoadedAt<6>(at0, at16), LoadedAt<3>(at0, at16)));
    }
    const auto plain = [&](std::ptrdiff_t at) __attribute__((always_inline)) {
      const u8* p = in + at;
      Store(out + at, Median5(Load(p - step), Load(p + step), Load(p - 3), Load(p + 3), Load(p)));
    };
    if (i + kV <= n) plain(i);
    plain(n - kV);
  }
}

void Cross55(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  const std::ptrdiff_t step = src_step;
  ForVectors(
      src, src_step, dst, dst_step, roi, [=](const u8* p) __attribute__((always_inline)) {
        V a = Load(p - 2 * step), b = Load(p - step), c = Load(p - 6), d = Load(p - 3), e = Load(p), f = Load(p + 3),
          g = Load(p + 6), h = Load(p + step), i = Load(p + 2 * step);
        Sort3(a, b, c);
        Sort3(d, e, f);
        Sort3(g, h, i);
        return Median3(Max8(Max8(a, d), g), Median3(b, e, h), Min8(Min8(c, f), i));
      });
}

constexpr std::ptrdiff_t kStrip = 3072;  // bytes of a strip; sorted columns of a strip stay in the first cache

// Cuts rows of n bytes into strips of one width, the last of which overlaps; n is a vector at least.
PQ_INLINE std::ptrdiff_t StripWidth(std::ptrdiff_t n) {
  const std::ptrdiff_t strips = (n + kStrip - 1) / kStrip, width = RoundUp((n + strips - 1) / strips, 64);
  return width < n ? width : n;
}

// Columns of three, sorted, for two output rows.
struct Columns {
  V low[2], middle[2], high[2];
};
// From four rows; the two in the middle are put in order once for both output rows.
PQ_INLINE Columns SortColumns(const u8* a, const u8* b, const u8* c, const u8* d) {
  Columns columns;
  V low = Load(b), high = Load(c);
  Order2(low, high);
  const V outer[2] = {Load(a), Load(d)};
#pragma GCC unroll 2
  for (int k = 0; k < 2; ++k) {
    const V more = Max8(low, outer[k]);
    columns.low[k] = Min8(low, outer[k]);
    columns.middle[k] = Min8(more, high);
    columns.high[k] = Max8(more, high);
  }
  return columns;
}
PQ_INLINE V OfThree(V low0, V low1, V low2, V middle0, V middle1, V middle2, V high0, V high1, V high2) {
  return Median3(Max8(Max8(low0, low1), low2), Median3(middle0, middle1, middle2), Min8(Min8(high0, high1), high2));
}

// Sorted columns go from vector to vector in registers.
void Median33(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  const std::ptrdiff_t n = std::ptrdiff_t{roi.width} * 3;
  for (int y = 0; y < roi.height; y += 2) {
    const bool two = y + 1 < roi.height;
    const u8 *a = RowAt(src, src_step, std::ptrdiff_t{y} - 1) - 3, *b = a + src_step, *c = b + src_step,
             *d = two ? c + src_step : c;
    u8* const out[2] = {RowAt(dst, dst_step, y), RowAt(dst, dst_step, std::ptrdiff_t{y} + (two ? 1 : 0))};
    std::ptrdiff_t i = 0;
    if (2 * kV <= n + 6) {
      Columns here = SortColumns(a, b, c, d);
      for (; i + 2 * kV <= n + 6; i += kV) {
        const Columns next = SortColumns(a + i + kV, b + i + kV, c + i + kV, d + i + kV);
#pragma GCC unroll 2
        for (int k = 1; k >= 0; --k) {  // the first row last: both may be the same
          const V low16 = After16(here.low[k], next.low[k]), middle16 = After16(here.middle[k], next.middle[k]),
                  high16 = After16(here.high[k], next.high[k]);
          Store(out[k] + i,
                OfThree(here.low[k], LoadedAt<3>(here.low[k], low16), LoadedAt<6>(here.low[k], low16), here.middle[k],
                        LoadedAt<3>(here.middle[k], middle16), LoadedAt<6>(here.middle[k], middle16), here.high[k],
                        LoadedAt<3>(here.high[k], high16), LoadedAt<6>(here.high[k], high16)));
        }
        here = next;
      }
    }
    while (i < n) {
      if (i + kV > n) i = n - kV;
      const Columns p = SortColumns(a + i, b + i, c + i, d + i),
                    q = SortColumns(a + i + 3, b + i + 3, c + i + 3, d + i + 3),
                    r = SortColumns(a + i + 6, b + i + 6, c + i + 6, d + i + 6);
      for (int k = 1; k >= 0; --k) {
        Store(out[k] + i, OfThree(p.low[k], q.low[k], r.low[k], p.middle[k], q.middle[k], r.middle[k], p.high[k],
                                  q.high[k], r.high[k]));
      }
      i += kV;
    }
  }
}

// The median of 13 by dropping the least and the greatest of the first 8, then of 7 with one more ..., pairwise.
PQ_INLINE V Median13(const V (&value)[13]) {
  V kept[8];
#pragma GCC unroll 8
  for (int j = 0; j < 8; ++j) kept[j] = value[j];
#pragma GCC unroll 8
  for (int size = 8; size >= 3; --size) {
#pragma GCC unroll 8
    for (int j = 0; j + 1 < size; j += 2) Order2(kept[j], kept[j + 1]);
#pragma GCC unroll 8
    for (int j = 2; j < size; j += 2) Order2(kept[0], kept[j]);
#pragma GCC unroll 8
    for (int j = 1; j < size - 1; j += 2) Order2(kept[j], kept[size - 1]);
    kept[0] = size > 3 ? value[16 - size] : kept[size - 2];
  }
  return Max8(kept[0], kept[1]);
}

// Columns of five sorted, then the ranks of the five columns sorted across: in a matrix that is ascending both ways the
// median is among the 13 cells around the falling diagonal, and it is their median.
void Median55(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  const std::ptrdiff_t row_bytes = std::ptrdiff_t{roi.width} * 3, n = StripWidth(row_bytes);
  constexpr std::ptrdiff_t kPitch = kStrip + 128;
  alignas(64) u8 sorted[5][kPitch];
  for (std::ptrdiff_t x = 0; x < row_bytes; x += n) {
    if (x + n > row_bytes) x = row_bytes - n;
    for (int y = 0; y < roi.height; ++y) {
      const u8* in = RowAt(src, src_step, std::ptrdiff_t{y} - 2) + x - 6;
      const std::ptrdiff_t step = src_step;
      WalkOver(
          n + 12, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
            const u8* p = in + i;
            V a = Load(p), b = Load(p + step), c = Load(p + 2 * step), d = Load(p + 3 * step), e = Load(p + 4 * step);
            Sort5(a, b, c, d, e);
            Store(sorted[0] + i, a);
            Store(sorted[1] + i, b);
            Store(sorted[2] + i, c);
            Store(sorted[3] + i, d);
            Store(sorted[4] + i, e);
          });
      u8* out = RowAt(dst, dst_step, y) + x;
      WalkOver(
          n, kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
            V m[5][5];
#pragma GCC unroll 5
            for (int r = 0; r < 5; ++r) {
              const u8* p = sorted[r] + i;
#pragma GCC unroll 5
              for (int c = 0; c < 5; ++c) m[r][c] = Load(p + 3 * c);
              Sort5(m[r][0], m[r][1], m[r][2], m[r][3], m[r][4]);
            }
            const V middle[13] = {m[0][3], m[0][4], m[1][2], m[1][3], m[1][4], m[2][1], m[2][2],
                                  m[2][3], m[3][0], m[3][1], m[3][2], m[4][0], m[4][1]};
            Store(out + i, Median13(middle));
          });
    }
  }
}

}  // namespace
}  // namespace PQ_TARGET

IppStatus PQ_VARIANT(ippiFilterMedian_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                              IppiSize roi, IppiSize mask, TPoint anchor) {
  using namespace PQ_TARGET;
  if (const IppStatus status = PQCheckRank(src, srcStep, dst, dstStep, roi, mask, anchor, true)) return status;
  const int w = mask.width, h = mask.height;
  const bool line = (w == 1 && (h == 3 || h == 5)) || (h == 1 && (w == 3 || w == 5));
  const bool square = w == h && (w == 3 || w == 5), one = w == 1 && h == 1;
  const bool by_window = roi.width >= kV && TakesMedianWindow(mask);
  const bool taken = one || (line || square ? !IsNarrow(roi) : by_window || TakesMedianHistogram(mask));
  if (!taken) return _px_ippiFilterMedian_8u_C3R(src, srcStep, dst, dstStep, roi, mask, anchor);
  src = PQCentred(src, srcStep, mask, anchor);
  if (one) return PQ_VARIANT(ippiCopy_8u_C3R)(src, srcStep, dst, dstStep, roi);
  if (line) {
    MedianLine(src, srcStep, dst, dstStep, roi, h == 1 ? 3 : srcStep, h == 1 ? w : h);
  } else if (square && w == 3) {
    Median33(src, srcStep, dst, dstStep, roi);
  } else if (square) {
    Median55(src, srcStep, dst, dstStep, roi);
  } else {
    src -= std::ptrdiff_t{w / 2} * 3 + std::ptrdiff_t{srcStep} * (h / 2);
    return by_window ? MedianWindow(src, srcStep, dst, dstStep, roi, mask)
                     : MedianHistogram(src, srcStep, dst, dstStep, roi, mask);
  }
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiFilterMedianHoriz_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                   IppiSize roi, int maskCode) {
  if (const IppStatus status = PQCheckRankCode(src, srcStep, dst, dstStep, roi, maskCode, 31, 51)) return status;
  if (PQ_TARGET::IsNarrow(roi)) return _px_ippiFilterMedianHoriz_8u_C3R(src, srcStep, dst, dstStep, roi, maskCode);
  PQ_TARGET::MedianLine(src, srcStep, dst, dstStep, roi, 3, maskCode / 10);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiFilterMedianVert_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                  IppiSize roi, int maskCode) {
  if (const IppStatus status = PQCheckRankCode(src, srcStep, dst, dstStep, roi, maskCode, 13, 15)) return status;
  if (PQ_TARGET::IsNarrow(roi)) return _px_ippiFilterMedianVert_8u_C3R(src, srcStep, dst, dstStep, roi, maskCode);
  PQ_TARGET::MedianLine(src, srcStep, dst, dstStep, roi, srcStep, maskCode % 10);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiFilterMedianCross_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                   IppiSize roi, int maskCode) {
  if (const IppStatus status = PQCheckRankCode(src, srcStep, dst, dstStep, roi, maskCode, 33, 55)) return status;
  if (PQ_TARGET::IsNarrow(roi)) return _px_ippiFilterMedianCross_8u_C3R(src, srcStep, dst, dstStep, roi, maskCode);
  if (maskCode == 33) {
    PQ_TARGET::Cross33(src, srcStep, dst, dstStep, roi);
  } else {
    PQ_TARGET::Cross55(src, srcStep, dst, dstStep, roi);
  }
  return ippStsNoErr;
}

}  // namespace pantiq
