// Point operations and histograms with vectors: one source for a6, w7 and t7.
#include "pantiq/kernels/PQPoint.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

PQ_INLINE const u8* Row(const u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }
PQ_INLINE u8* Row(u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }

// The region as rows of `width` pixels of three channels; rows without padding count as one long row.
struct Extent {
  std::ptrdiff_t width;
  int rows;
};
PQ_INLINE Extent Join(IppiSize roi, int step1, int step2) {
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * 3;
  if (step1 == n && step2 == n) return {static_cast<std::ptrdiff_t>(roi.width) * roi.height, 1};
  return {roi.width, roi.height};
}

// ---- Twist. Every product and sum is rounded as in the plain form: no fused operation. The conversion to integers
// rounds halves to even, gives the least integer for not-a-number and for what lies outside of 32 bits, and packing
// limits to 0..255. So only sums of 2^31 and above need a limit of their own; kLimit says whether there may be any.

#if PQ_WIDE
using F = __m512;
PQ_INLINE F SetF(float v) { return _mm512_set1_ps(v); }
PQ_INLINE F AddF(F a, F b) { return _mm512_add_ps(a, b); }
PQ_INLINE F MulF(F a, F b) { return _mm512_mul_ps(a, b); }
PQ_INLINE F FromInt(V v) { return _mm512_cvtepi32_ps(v); }
PQ_INLINE V Rounded(F v) { return _mm512_cvtps_epi32(v); }
PQ_INLINE F LimitF(F v) { return _mm512_min_ps(SetF(255.0f), v); }  // keeps not-a-number
#else
using F = __m256;
PQ_INLINE F SetF(float v) { return _mm256_set1_ps(v); }
PQ_INLINE F AddF(F a, F b) { return _mm256_add_ps(a, b); }
PQ_INLINE F MulF(F a, F b) { return _mm256_mul_ps(a, b); }
PQ_INLINE F FromInt(V v) { return _mm256_cvtepi32_ps(v); }
PQ_INLINE V Rounded(F v) { return _mm256_cvtps_epi32(v); }
PQ_INLINE F LimitF(F v) { return _mm256_min_ps(SetF(255.0f), v); }
#endif

struct TwistVectors {
  F t[3][4];
};

// Four pixels in every 16 bytes: channels as double words to bytes 0 to 3, 4 to 7, 8 to 11.
template <bool kLimit>
PQ_INLINE V TwistBytes(const TwistVectors& w, V s0, V s1, V s2) {
  const F f0 = FromInt(s0), f1 = FromInt(s1), f2 = FromInt(s2);
  V r[3];
  for (int k = 0; k < 3; ++k) {
    F v = AddF(AddF(AddF(MulF(w.t[k][0], f0), MulF(w.t[k][1], f1)), MulF(w.t[k][2], f2)), w.t[k][3]);
    if (kLimit) v = LimitF(v);
    r[k] = Rounded(v);
  }
  return PackU8(PackS16(r[0], r[1]), PackS16(r[2], r[2]));
}

#if PQ_WIDE
struct TwistPicks {
  V in[2][3];  // double words of 16 pixels that begin at byte 0 and at byte 16
  V out[3];    // output k takes bytes from the results of 16 pixels k and k + 1
};
PQ_INLINE TwistPicks MakeTwistPicks() {
  TwistPicks t;
  alignas(64) u8 b[64];
  for (int late = 0; late < 2; ++late) {
    for (int c = 0; c < 3; ++c) {
      for (int i = 0; i < 64; ++i) b[i] = static_cast<u8>(late * 16 + i / 4 * 3 + c);
      t.in[late][c] = Load(b);
    }
  }
  for (int k = 0; k < 3; ++k) {
    for (int i = 0; i < 64; ++i) {
      const int j = k * 64 + i - k * 48;  // byte of the 96 of the two results
      const int pixel = j % 48 / 3;
      b[i] = static_cast<u8>(j / 48 * 64 + pixel / 4 * 16 + j % 3 * 4 + pixel % 4);
    }
    t.out[k] = Load(b);
  }
  return t;
}

template <bool kLimit>
PQ_INLINE void TwistRow(const TwistPicks& t, const TwistVectors& w, const u8* src, u8* dst, std::ptrdiff_t width) {
  constexpr VMask kFourth = 0x1111111111111111u;
  WalkBlocks<3, 3>(src, dst, width, [&](const u8* p, u8* o) {
    V r[4];
#pragma GCC unroll 4
    for (int q = 0; q < 4; ++q) {
      const V x = Load(p + (q == 3 ? 128 : q * 48));
      const V* pick = t.in[q == 3 ? 1 : 0];
      r[q] = TwistBytes<kLimit>(w, _mm512_maskz_permutexvar_epi8(kFourth, pick[0], x),
                                _mm512_maskz_permutexvar_epi8(kFourth, pick[1], x),
                                _mm512_maskz_permutexvar_epi8(kFourth, pick[2], x));
    }
    Store(o, _mm512_permutex2var_epi8(r[0], t.out[0], r[1]));
    Store(o + 64, _mm512_permutex2var_epi8(r[1], t.out[1], r[2]));
    Store(o + 128, _mm512_permutex2var_epi8(r[2], t.out[2], r[3]));
  });
}
#else
struct TwistPicks {
  V in[3], out, close;
};
PQ_INLINE TwistPicks MakeTwistPicks() {
  return {{Lanes(_mm_setr_epi8(0, -1, -1, -1, 3, -1, -1, -1, 6, -1, -1, -1, 9, -1, -1, -1)),
           Lanes(_mm_setr_epi8(1, -1, -1, -1, 4, -1, -1, -1, 7, -1, -1, -1, 10, -1, -1, -1)),
           Lanes(_mm_setr_epi8(2, -1, -1, -1, 5, -1, -1, -1, 8, -1, -1, -1, 11, -1, -1, -1))},
          Lanes(_mm_setr_epi8(0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, -1, -1, -1, -1)),
          _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7)};
}

// Eight pixels; reads 28 bytes.
template <bool kLimit>
PQ_INLINE V TwistEight(const TwistPicks& t, const TwistVectors& w, const u8* p) {
  const V x = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))),
                                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12)), 1);
  const V r = TwistBytes<kLimit>(w, Shuffle8(x, t.in[0]), Shuffle8(x, t.in[1]), Shuffle8(x, t.in[2]));
  return _mm256_permutevar8x32_epi32(Shuffle8(r, t.out), t.close);
}

template <bool kLimit>
PQ_INLINE void TwistRow(const TwistPicks& t, const TwistVectors& w, const u8* src, u8* dst, std::ptrdiff_t width) {
  std::ptrdiff_t x = 0;
  for (; x + 10 <= width; x += 8) {
    const V r = TwistEight<kLimit>(t, w, src + 3 * x);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 3 * x), _mm256_castsi256_si128(r));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 3 * x + 16), _mm256_extracti128_si256(r, 1));
  }
  for (; x < width; x += 8) {
    alignas(32) u8 in[32] = {}, out[32];
    const std::size_t bytes = static_cast<std::size_t>(width - x < 8 ? width - x : 8) * 3;
    __builtin_memcpy(in, src + 3 * x, bytes);
    Store(out, TwistEight<kLimit>(t, w, in));
    __builtin_memcpy(dst + 3 * x, out, bytes);
  }
}
#endif

template <bool kLimit>
__attribute__((noinline)) void TwistRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi,
                                         const float twist[3][4]) {
  const TwistPicks picks = MakeTwistPicks();
  TwistVectors w;
  for (int k = 0; k < 3; ++k) {
    for (int i = 0; i < 4; ++i) w.t[k][i] = SetF(twist[k][i]);
  }
  const Extent e = Join(roi, src_step, dst_step);
  for (int y = 0; y < e.rows; ++y) TwistRow<kLimit>(picks, w, Row(src, src_step, y), Row(dst, dst_step, y), e.width);
}

IppStatus Twist(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, const float twist[3][4]) {
  if (const IppStatus status = PQCheckTwist(src, src_step, dst, dst_step, roi, twist)) return status;
  // Three products below 2^20 * 255 and an offset stay below 2^31 in sum; not-a-number fails the comparison.
  bool small = true;
  for (int k = 0; k < 3; ++k) {
    for (int i = 0; i < 4; ++i) small = small && twist[k][i] > -1048576.0f && twist[k][i] < 1048576.0f;
  }
  const int mode = PQRoundToNearest();
  if (small) {
    TwistRows<false>(src, src_step, dst, dst_step, roi, twist);
  } else {
    TwistRows<true>(src, src_step, dst, dst_step, roi, twist);
  }
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

// ---- Gamma and tables.

// `bytes` a row, in `rows` rows.
void MapRows(const u8* table, const u8* src, int src_step, u8* dst, int dst_step, std::ptrdiff_t bytes, int rows) {
  const Table256 t = MakeTable256(table);
  const auto map = [&t](V x) { return LookUp(t, x); };
  if (src_step == bytes && dst_step == bytes) bytes *= rows, rows = 1;
  for (int y = 0; y < rows; ++y) {
    const u8* p = Row(src, src_step, y);
    u8* o = Row(dst, dst_step, y);
    std::ptrdiff_t n = bytes;
#if PQ_WIDE
    std::ptrdiff_t head = -reinterpret_cast<std::intptr_t>(o) & 63;  // stores are aligned after it
    if (head > n) head = n;
    if (head > 0) StoreMasked(o, FirstBytes(head), map(LoadMasked(FirstBytes(head), p)));
    p += head, o += head, n -= head;
    for (; n >= 128; n -= 128, p += 128, o += 128) {
      const V a = map(Load(p)), b = map(Load(p + 64));
      Store(o, a);
      Store(o + 64, b);
    }
    if (n >= 64) {
      Store(o, map(Load(p)));
      n -= 64, p += 64, o += 64;
    }
    if (n > 0) StoreMasked(o, FirstBytes(n), map(LoadMasked(FirstBytes(n), p)));
#else
    MapRow(p, o, n, map);
#endif
  }
}

IppStatus MapThrough(const u8 (&table)[256], const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  if (const IppStatus status = PQCheckPoint(src, src_step, dst, dst_step, roi)) return status;
  MapRows(table, src, src_step, dst, dst_step, std::ptrdiff_t{roi.width} * 3, roi.height);
  return ippStsNoErr;
}

// ---- Thresholds: what belongs to a channel repeats every three bytes, so three vectors hold it all.

#if !PQ_WIDE
struct Bytes3 {
  V v[3];
};
PQ_INLINE Bytes3 Repeat(const u8* bytes) {
  alignas(32) u8 t[kBlock];
  for (int i = 0; i < kBlock; ++i) t[i] = bytes[i % 3];
  return {{Load(t), Load(t + 32), Load(t + 64)}};
}
PQ_INLINE V AtLeast(V a, V b) { return _mm256_cmpeq_epi8(Max8(a, b), a); }  // unsigned a >= b

// dst = f(src, k) for the vectors k = 0, 1, 2 of every 96 bytes.
template <class Function>
PQ_INLINE void ThresholdRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, Function f) {
  const Extent e = Join(roi, src_step, dst_step);
  const std::ptrdiff_t n = e.width * 3;
  for (int y = 0; y < e.rows; ++y) {
    const u8* p = Row(src, src_step, y);
    u8* o = Row(dst, dst_step, y);
    if (n < kBlock) {
      alignas(32) u8 t[kBlock] = {};
      __builtin_memcpy(t, p, static_cast<std::size_t>(n));
      for (int k = 0; k < 3; ++k) Store(t + 32 * k, f(Load(t + 32 * k), k));
      __builtin_memcpy(o, t, static_cast<std::size_t>(n));
      continue;
    }
    V last[3];
    for (int k = 0; k < 3; ++k) last[k] = f(Load(p + n - kBlock + 32 * k), k);
    std::ptrdiff_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
      const V a = f(Load(p + i), 0), b = f(Load(p + i + 32), 1), c = f(Load(p + i + 64), 2);
      Store(o + i, a);
      Store(o + i + 32, b);
      Store(o + i + 64, c);
    }
    if (i < n) {
      for (int k = 0; k < 3; ++k) Store(o + n - kBlock + 32 * k, last[k]);
    }
  }
}
#endif

// ---- Histograms. Increments of one counter wait for each other, so neighbours count in tables of their own. Their
// length keeps equal values of different tables off the same place within a page. Two tables a channel are the most
// that pays: 1920 x 1080 pixels of shading and mild noise, nanoseconds a pixel: 0.80 with one, 0.70 with two, 0.81 with
// four.

constexpr int kTable = 272;

void Count3(const u8* src, int step, IppiSize roi, std::uint32_t (&counters)[3][256]) {
  std::uint32_t tables[6][kTable] = {};
  const Extent e = Join(roi, step, step);
  for (int y = 0; y < e.rows; ++y) {
    const u8* p = Row(src, step, y);
    std::ptrdiff_t x = 0;
    for (; x + 2 <= e.width; x += 2, p += 6) {
#pragma GCC unroll 6
      for (int i = 0; i < 6; ++i) ++tables[i][p[i]];
    }
    if (x < e.width) {
      for (int c = 0; c < 3; ++c) ++tables[c][p[c]];
    }
  }
  for (int c = 0; c < 3; ++c) {
    for (int v = 0; v < 256; ++v) counters[c][v] = tables[c][v] + tables[c + 3][v];
  }
}

#if !PQ_WIDE
void Count1(const u8* src, int step, IppiSize roi, std::uint32_t (&counters)[256]) {
  std::uint32_t tables[8][kTable] = {};
  const bool joined = step == roi.width;
  const std::ptrdiff_t n = joined ? static_cast<std::ptrdiff_t>(roi.width) * roi.height : roi.width;
  for (int y = 0; y < (joined ? 1 : roi.height); ++y) {
    const u8* p = Row(src, step, y);
    std::ptrdiff_t x = 0;
    for (; x + 8 <= n; x += 8) {
#pragma GCC unroll 8
      for (int i = 0; i < 8; ++i) ++tables[i][p[x + i]];
    }
    for (; x < n; ++x) ++tables[0][p[x]];
  }
  for (int v = 0; v < 256; ++v) {
    counters[v] = tables[0][v];
    for (int i = 1; i < 8; ++i) counters[v] += tables[i][v];
  }
}
#endif

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

#if PQ_WIDE || !PQ_MASKED  // no w7 entry
IppStatus PQ_VARIANT(ippiColorTwist32f_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                               const float twist[3][4]) {
  return Twist(src, srcStep, dst, dstStep, roi, twist);
}
#endif

IppStatus PQ_VARIANT(ippiColorTwist32f_8u_C3IR)(u8* srcDst, int step, IppiSize roi, const float twist[3][4]) {
  return Twist(srcDst, step, srcDst, step, roi, twist);
}

IppStatus PQ_VARIANT(PQTable_8u_C1R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, const u8* table) {
  if (const IppStatus status = PQCheckTable(src, srcStep, dst, dstStep, roi, table)) return status;
  MapRows(table, src, srcStep, dst, dstStep, roi.width, roi.height);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiGammaFwd_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return MapThrough(point::kGammaForward, src, srcStep, dst, dstStep, roi);
}

IppStatus PQ_VARIANT(ippiGammaInv_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return MapThrough(point::kGammaInverse, src, srcStep, dst, dstStep, roi);
}

IppStatus PQ_VARIANT(ippiGammaFwd_8u_C3IR)(u8* srcDst, int step, IppiSize roi) {
  return MapThrough(point::kGammaForward, srcDst, step, srcDst, step, roi);
}

IppStatus PQ_VARIANT(ippiGammaInv_8u_C3IR)(u8* srcDst, int step, IppiSize roi) {
  return MapThrough(point::kGammaInverse, srcDst, step, srcDst, step, roi);
}

#if !PQ_WIDE  // no t7 entries
IppStatus PQ_VARIANT(ippiThreshold_LTVal_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                                 const u8* threshold, const u8* value) {
  if (const IppStatus s = PQCheckThreshold(src, srcStep, dst, dstStep, roi, threshold, value)) return s;
  const Bytes3 low = Repeat(threshold), fill = Repeat(value);
  ThresholdRows(src, srcStep, dst, dstStep, roi,
                [&](V x, int k) { return _mm256_blendv_epi8(fill.v[k], x, AtLeast(x, low.v[k])); });
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiThreshold_GTVal_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                                 const u8* threshold, const u8* value) {
  if (const IppStatus s = PQCheckThreshold(src, srcStep, dst, dstStep, roi, threshold, value)) return s;
  const Bytes3 high = Repeat(threshold), fill = Repeat(value);
  ThresholdRows(src, srcStep, dst, dstStep, roi,
                [&](V x, int k) { return _mm256_blendv_epi8(fill.v[k], x, AtLeast(high.v[k], x)); });
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiThreshold_LTValGTVal_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                                      const u8* thresholdLT, const u8* valueLT, const u8* thresholdGT,
                                                      const u8* valueGT) {
  if (const IppStatus s =
          PQCheckThresholds(src, srcStep, dst, dstStep, roi, thresholdLT, valueLT, thresholdGT, valueGT)) {
    return s;
  }
  const Bytes3 low = Repeat(thresholdLT), low_fill = Repeat(valueLT);
  const Bytes3 high = Repeat(thresholdGT), high_fill = Repeat(valueGT);
  ThresholdRows(src, srcStep, dst, dstStep, roi, [&](V x, int k) {
    const V lower = _mm256_blendv_epi8(low_fill.v[k], x, AtLeast(x, low.v[k]));
    return _mm256_blendv_epi8(high_fill.v[k], lower, AtLeast(high.v[k], x));
  });
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiHistogramEven_8u_C1R)(const u8* src, int step, IppiSize roi, int* hist, int* levels,
                                               int nLevels, int lowerLevel, int upperLevel) {
  if (const IppStatus status = PQCheckHistogram1(src, step, roi, hist, levels, nLevels)) return status;
  point::FillLevels(levels, nLevels, lowerLevel, upperLevel);
  std::uint32_t counters[256];
  Count1(src, step, roi, counters);
  point::SumWithinLevels(counters, hist, levels, nLevels);
  return ippStsNoErr;
}
#endif

IppStatus PQ_VARIANT(ippiHistogramEven_8u_C3R)(const u8* src, int step, IppiSize roi, int** hist, int** levels,
                                               int* nLevels, int* lowerLevel, int* upperLevel) {
  if (lowerLevel == nullptr || upperLevel == nullptr) return ippStsNullPtrErr;
  if (const IppStatus status = PQCheckHistogram3(src, step, roi, hist, levels, nLevels)) return status;
  point::FillLevels3(levels, nLevels, lowerLevel, upperLevel);
  std::uint32_t counters[3][256];
  Count3(src, step, roi, counters);
  point::SumWithinLevels3(counters, hist, levels, nLevels);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiHistogramRange_8u_C3R)(const u8* src, int step, IppiSize roi, int** hist, int** levels,
                                                int* nLevels) {
  if (const IppStatus status = PQCheckHistogram3(src, step, roi, hist, levels, nLevels)) return status;
  std::uint32_t counters[3][256];
  Count3(src, step, roi, counters);
  point::SumWithinLevels3(counters, hist, levels, nLevels);
  return ippStsNoErr;
}

}  // namespace pantiq
