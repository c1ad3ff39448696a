// Two images into one with vectors: one source for a6, w7 and t7.
#include "pantiq/kernels/PQMix.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

PQ_INLINE const u8* Row(const u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }
PQ_INLINE u8* Row(u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }

// Two sources and a destination as `rows` rows of `bytes`; rows without padding count as one long row.
struct Rows {
  const u8 *first, *second;
  u8* dst;
  int first_step, second_step, dst_step;
  std::ptrdiff_t bytes;
  int rows;
};
PQ_INLINE Rows MakeRows(const u8* first, int first_step, const u8* second, int second_step, u8* dst, int dst_step,
                        std::ptrdiff_t bytes, int rows) {
  if (first_step == bytes && second_step == bytes && dst_step == bytes) bytes *= rows, rows = 1;
  return {first, second, dst, first_step, second_step, dst_step, bytes, rows};
}

// f(first, second, dst) for every kStep bytes of a row, a multiple of kUnit; the last, shorter piece of a row goes through
// buffers. On t7 so does a first one, after which stores are aligned: 1920 x 1080 in rows off a line by 16 bytes, mean of
// two images, 0.28 ns a pixel without.
template <std::ptrdiff_t kStep, int kUnit, class F>
PQ_INLINE void WalkRows(const Rows& r, F f) {
  for (int y = 0; y < r.rows; ++y) {
    const u8* p = Row(r.first, r.first_step, y);
    const u8* q = Row(r.second, r.second_step, y);
    u8* o = Row(r.dst, r.dst_step, y);
    std::ptrdiff_t n = r.bytes;
    const auto piece = [&](std::ptrdiff_t count) __attribute__((always_inline)) {
      alignas(64) u8 a[kStep] = {}, b[kStep] = {}, t[kStep];
      __builtin_memcpy(a, p, static_cast<std::size_t>(count));
      __builtin_memcpy(b, q, static_cast<std::size_t>(count));
      f(a, b, t);
      __builtin_memcpy(o, t, static_cast<std::size_t>(count));
      p += count, q += count, o += count, n -= count;
    };
#if PQ_WIDE
    std::ptrdiff_t head = -reinterpret_cast<std::intptr_t>(o) & 63;
    while (head % kUnit != 0) head += 64;
    if (head > 0 && n >= 16 * kStep) piece(head);
#endif
    for (; n >= kStep; n -= kStep, p += kStep, q += kStep, o += kStep) f(p, q, o);
    if (n > 0) piece(n);
  }
}

void CopyRows(const u8* src, int src_step, const Rows& r) {
  if (src == r.dst) return;
  for (int y = 0; y < r.rows; ++y) {
    __builtin_memcpy(Row(r.dst, r.dst_step, y), Row(src, src_step, y), static_cast<std::size_t>(r.bytes));
  }
}

// ---- Key ranges. A sample is in low..high where sample - low, as a byte, is at most high - low.

struct Range {
  V low[3], span[3];
};
PQ_INLINE bool IsEmpty(const u8* low, const u8* high) {
  return low[0] > high[0] || low[1] > high[1] || low[2] > high[2];
}
PQ_INLINE void MakeRange(Range& r, const u8* low, const u8* high) {
  for (int c = 0; c < 3; ++c) {
    r.low[c] = Set8(low[c]);
    r.span[c] = Set8(high[c] - low[c]);
  }
}

#if PQ_WIDE
using Pixels = VMask;  // a bit a pixel
PQ_INLINE Pixels NoPixels() { return 0; }
PQ_INLINE bool Any(Pixels m) { return m != 0; }
PQ_INLINE Pixels AddWithin(Pixels m, const Range& r, const V (&c)[3]) {
  VMask in = _mm512_cmple_epu8_mask(_mm512_sub_epi8(c[0], r.low[0]), r.span[0]);
  in = _mm512_mask_cmple_epu8_mask(in, _mm512_sub_epi8(c[1], r.low[1]), r.span[1]);
  return m | _mm512_mask_cmple_epu8_mask(in, _mm512_sub_epi8(c[2], r.low[2]), r.span[2]);
}
#else
using Pixels = V;  // 255 or 0 a pixel
PQ_INLINE Pixels NoPixels() { return Zero(); }
PQ_INLINE bool Any(Pixels m) { return _mm256_testz_si256(m, m) == 0; }
PQ_INLINE V AtMost(V a, V b) { return _mm256_cmpeq_epi8(Min8(a, b), a); }
PQ_INLINE Pixels AddWithin(Pixels m, const Range& r, const V (&c)[3]) {
  V in = AtMost(_mm256_sub_epi8(c[0], r.low[0]), r.span[0]);
  in = And(in, AtMost(_mm256_sub_epi8(c[1], r.low[1]), r.span[1]));
  return Or(m, And(in, AtMost(_mm256_sub_epi8(c[2], r.low[2]), r.span[2])));
}
#endif

constexpr int kReady = 8;  // ranges that stand ready as vectors; further ones are spread anew for every block

// ready: those of the first kReady ranges that can take a pixel.
PQ_INLINE void KeyRows(const Rows& rows, const Range* ready, int count, const u8* low, const u8* high, int ranges) {
  const Interleave3 t = MakeInterleave3();
#if PQ_WIDE
  alignas(64) u8 pick[kBlock];
  for (int i = 0; i < kBlock; ++i) pick[i] = static_cast<u8>(i / 3);
  const V picks[3] = {Load(pick), Load(pick + 64), Load(pick + 128)};
#endif
  WalkRows<kBlock, 3>(
      rows, [&](const u8* p, const u8* q, u8* o) __attribute__((always_inline)) {
        V c[3];
        Split3(t, p, c);
        Pixels m = NoPixels();
        for (int i = 0; i < count; ++i) m = AddWithin(m, ready[i], c);
        for (int i = kReady; i < ranges; ++i) {
          if (IsEmpty(low + 3 * i, high + 3 * i)) continue;
          Range r;
          MakeRange(r, low + 3 * i, high + 3 * i);
          m = AddWithin(m, r, c);
        }
        const V a[3] = {Load(p), Load(p + kV), Load(p + 2 * kV)};
        if (!Any(m)) {  // then the back need not be read
          for (int k = 0; k < 3; ++k) Store(o + k * kV, a[k]);
          return;
        }
#if PQ_WIDE
        const V wide = _mm512_movm_epi8(m);
        V out[3];
        for (int k = 0; k < 3; ++k) {
          const VMask from_back = _mm512_movepi8_mask(_mm512_permutexvar_epi8(picks[k], wide));
          out[k] = _mm512_mask_blend_epi8(from_back, a[k], Load(q + k * kV));
        }
#else
        alignas(32) u8 mask[kBlock];
        const V same[3] = {m, m, m};
        Join3(t, mask, same);
        V out[3];
        for (int k = 0; k < 3; ++k) {
          out[k] = _mm256_blendv_epi8(a[k], Load(q + k * kV), Load(mask + k * kV));
        }
#endif
        for (int k = 0; k < 3; ++k) Store(o + k * kV, out[k]);
      });
}

// ---- Blend.
//
// With W = firstWeight / (firstWeight + secondWeight) the exact mean is second + d * W, d = first - second. For W from
// -0.5 to 0.5 (the sources change places for W up to 1.5) the double rule lies within 1e-12 of it: each of its six
// roundings is off by at most 2^-53 of values that stay below 2 * 255. So wherever d * W is not that close to a half,
// the result is second + round(d * W), limited to a byte. Words compute it as (d * M + 2^14) >> 15, M = round(W * 2^15).
// For all 511 differences the plan looks whether that holds; those where it does not, or where d * W is a half but for
// 1e-11, have (d * M) mod 2^15 next to 2^14: within `window` of it. Samples in the window go by the double rule.
// Where weights and sum are such that nothing is rounded at all, halves are known to go to even.

enum class Way { kSecond, kAverage, kToEven, kPlain, kWindow, kDouble };

struct Plan {
  Way way;
  bool swapped;
  int multiplier, window;
};

PQ_INLINE bool IsPowerOfTwo(double v) {
  std::uint64_t bits;
  __builtin_memcpy(&bits, &v, sizeof bits);
  return (bits & 0xFFFFFFFFFFFFFu) == 0;
}
// A multiple of 2^-20 below 2^20: 8 more bits fit well into a double.
PQ_INLINE bool IsShort(double v) {
  const double scaled = v * 0x1p20;
  return scaled > -0x1p40 && scaled < 0x1p40 && static_cast<double>(static_cast<std::int64_t>(scaled)) == scaled;
}
PQ_INLINE std::int64_t Floor(double v) {
  const std::int64_t n = static_cast<std::int64_t>(v);
  return n - (static_cast<double>(n) > v);
}

__attribute__((noinline)) Plan MakePlan(double first_weight, double second_weight, std::ptrdiff_t bytes) {
  constexpr Plan kExact = {Way::kDouble, false, 0, 0};
  const double sum = first_weight + second_weight, size = __builtin_fabs(sum);
  if (!(size > 1e-100 && __builtin_fabs(first_weight) < 1e100 && __builtin_fabs(second_weight) < 1e100)) return kExact;
  double w = first_weight / sum;
  Plan plan = {Way::kPlain, w > 0.5, 0, 0};
  if (plan.swapped) w = second_weight / sum;
  if (!(w >= -0.5 && w <= 0.5)) return kExact;
  if (w == 0.0) {
    plan.way = Way::kSecond;
    return plan;
  }
  if (bytes < 2048) return kExact;  // not worth a plan
  const double scaled = w * 0x1p15;
  plan.multiplier = static_cast<int>(Floor(scaled + 0.5));
  if (IsShort(first_weight) && IsShort(second_weight) && IsPowerOfTwo(sum) && plan.multiplier == scaled) {
    plan.way = w == 0.5 ? Way::kAverage : Way::kToEven;
    return plan;
  }
  for (int d = -255; d <= 255; ++d) {
    const double exact = d * w + 0.5;
    const std::int64_t rounded = Floor(exact);
    const double above = exact - static_cast<double>(rounded);  // 0: a half
    const int product = d * plan.multiplier, off = (product & 0x7FFF) - 0x4000;
    if ((product + 0x4000) >> 15 != rounded || above < 1e-11 || above > 1 - 1e-11) {
      plan.way = Way::kWindow;
      if (plan.window < off) plan.window = off;
      if (plan.window < -off) plan.window = -off;
    }
  }
  // The arithmetic of the window takes this much; far more than there can be.
  return plan.window < 0x1000 ? plan : kExact;
}

struct Weights {
  double first, second, scale;
};

// The double rule. kLimit: results may lie outside of 32 bits or be no number.
#if PQ_WIDE
template <bool kLimit>
PQ_INLINE __m256i Exact8(const Weights& w, __m256i a, __m256i b) {
  const __m512d p = _mm512_mul_pd(_mm512_cvtepi32_pd(a), _mm512_set1_pd(w.first));
  const __m512d q = _mm512_mul_pd(_mm512_cvtepi32_pd(b), _mm512_set1_pd(w.second));
  __m512d v = _mm512_mul_pd(_mm512_add_pd(p, q), _mm512_set1_pd(w.scale));
  if (kLimit) v = _mm512_min_pd(_mm512_max_pd(v, _mm512_setzero_pd()), _mm512_set1_pd(255.0));
  return _mm512_cvtpd_epi32(v);
}
template <bool kLimit>
PQ_INLINE __m128i Exact16(const Weights& w, __m128i a, __m128i b) {
  const V x = _mm512_cvtepu8_epi32(a), y = _mm512_cvtepu8_epi32(b);
  const __m256i low = Exact8<kLimit>(w, _mm512_castsi512_si256(x), _mm512_castsi512_si256(y));
  const __m256i high = Exact8<kLimit>(w, _mm512_extracti64x4_epi64(x, 1), _mm512_extracti64x4_epi64(y, 1));
  const V both = _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
  return _mm512_cvtusepi32_epi8(kLimit ? both : _mm512_max_epi32(both, Zero()));
}
template <bool kLimit>
PQ_INLINE V Exact(const Weights& w, V a, V b) {
  V r = _mm512_castsi128_si512(Exact16<kLimit>(w, _mm512_castsi512_si128(a), _mm512_castsi512_si128(b)));
  r = _mm512_inserti32x4(
      r, Exact16<kLimit>(w, _mm512_extracti32x4_epi32(a, 1), _mm512_extracti32x4_epi32(b, 1)), 1);
  r = _mm512_inserti32x4(
      r, Exact16<kLimit>(w, _mm512_extracti32x4_epi32(a, 2), _mm512_extracti32x4_epi32(b, 2)), 2);
  return _mm512_inserti32x4(
      r, Exact16<kLimit>(w, _mm512_extracti32x4_epi32(a, 3), _mm512_extracti32x4_epi32(b, 3)), 3);
}
#else
template <bool kLimit>
PQ_INLINE __m128i Exact4(const Weights& w, __m128i a, __m128i b) {
  const __m256d p = _mm256_mul_pd(_mm256_cvtepi32_pd(a), _mm256_set1_pd(w.first));
  const __m256d q = _mm256_mul_pd(_mm256_cvtepi32_pd(b), _mm256_set1_pd(w.second));
  __m256d v = _mm256_mul_pd(_mm256_add_pd(p, q), _mm256_set1_pd(w.scale));
  if (kLimit) v = _mm256_min_pd(_mm256_max_pd(v, _mm256_setzero_pd()), _mm256_set1_pd(255.0));
  return _mm256_cvtpd_epi32(v);
}
template <bool kLimit>
PQ_INLINE __m128i Exact8(const Weights& w, __m128i a, __m128i b) {  // words
  return _mm_packs_epi32(Exact4<kLimit>(w, _mm_cvtepu8_epi32(a), _mm_cvtepu8_epi32(b)),
                         Exact4<kLimit>(w, _mm_cvtepu8_epi32(_mm_srli_si128(a, 4)),
                                        _mm_cvtepu8_epi32(_mm_srli_si128(b, 4))));
}
template <bool kLimit>
PQ_INLINE __m128i Exact16(const Weights& w, __m128i a, __m128i b) {
  return _mm_packus_epi16(Exact8<kLimit>(w, a, b),
                          Exact8<kLimit>(w, _mm_unpackhi_epi64(a, a), _mm_unpackhi_epi64(b, b)));
}
template <bool kLimit>
PQ_INLINE V Exact(const Weights& w, V a, V b) {
  const __m128i low = Exact16<kLimit>(w, _mm256_castsi256_si128(a), _mm256_castsi256_si128(b));
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(low),
      Exact16<kLimit>(w, _mm256_extracti128_si256(a, 1), _mm256_extracti128_si256(b, 1)), 1);
}
#endif

#if PQ_WIDE
PQ_INLINE V MulRound16(V a, V b) { return _mm512_mulhrs_epi16(a, b); }
PQ_INLINE V Average8(V a, V b) { return _mm512_avg_epu8(a, b); }
PQ_INLINE V Sub8(V a, V b) { return _mm512_sub_epi8(a, b); }
#else
PQ_INLINE V MulRound16(V a, V b) { return _mm256_mulhrs_epi16(a, b); }
PQ_INLINE V Average8(V a, V b) { return _mm256_avg_epu8(a, b); }
PQ_INLINE V Sub8(V a, V b) { return _mm256_sub_epi8(a, b); }
#endif

// Half a vector as words, and two of those, limited, as bytes: on t7 in order, so that masks are in order too.
#if PQ_WIDE
PQ_INLINE V Words(V, const u8* p, int half) {
  return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32 * half)));
}
PQ_INLINE V Bytes(V low, V high) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), PackU8(low, high));
}
#else
PQ_INLINE V Words(V a, const u8*, int half) { return half ? High8(a, Zero()) : Low8(a, Zero()); }
PQ_INLINE V Bytes(V low, V high) { return PackU8(low, high); }
#endif

// Whether a difference is in the window, for the words of both halves, and r with the double rule for those that are.
#if PQ_WIDE
using Near = __mmask32;
PQ_INLINE Near IsNear(V z, V reach) { return _mm512_cmple_epu16_mask(z, reach); }
PQ_INLINE V PutExact(const Weights& w, Near low, Near high, V a, V b, V r) {
  const VMask m = _mm512_kunpackd(high, low);
  if (m == 0) return r;
  if (__builtin_popcountll(m) > 16) return _mm512_mask_mov_epi8(r, m, Exact<false>(w, a, b));
  const __m128i few = Exact16<false>(w, _mm512_castsi512_si128(_mm512_maskz_compress_epi8(m, a)),
                                     _mm512_castsi512_si128(_mm512_maskz_compress_epi8(m, b)));
  return _mm512_mask_expand_epi8(r, m, _mm512_castsi128_si512(few));
}
#else
using Near = V;
PQ_INLINE Near IsNear(V z, V reach) { return _mm256_cmpeq_epi16(Min16(z, reach), z); }
PQ_INLINE V PutExact(const Weights& w, Near low, Near high, V a, V b, V r) {
  // By the double rule all are right, so where one needs it all may have it.
  const V any = Or(low, high);
  return _mm256_testz_si256(any, any) ? r : Exact<false>(w, a, b);
}
#endif

template <Way kWay>
__attribute__((noinline)) void BlendRows(const Rows& rows, const Plan& plan, const Weights& weights) {
  const Weights w = weights;
  const V one = Set16(1), multiplier = Set16(plan.multiplier), doubled = Set16(2 * plan.multiplier);
  const V half = Set16(0x8000), from = Set16(0x8000 + 2 * plan.window), reach = Set16(4 * plan.window);
  WalkRows<kV, 1>(
      rows, [&](const u8* p, const u8* q, u8* o) __attribute__((always_inline)) {
        const V a = Load(p), b = Load(q);
        if constexpr (kWay == Way::kDouble) {
          Store(o, Exact<true>(w, a, b));
        } else if constexpr (kWay == Way::kAverage) {
          const V up = Average8(a, b);  // halves up; where that is odd, one less
          Store(o, Sub8(up, And(And(up, Xor(a, b)), Set8(1))));
        } else {
          V r[2];
          [[maybe_unused]] Near near[2];
          for (int k = 0; k < 2; ++k) {
            const V base = Words(b, q, k), d = Sub16(Words(a, p, k), base);
            r[k] = Add16(base, MulRound16(d, multiplier));
            if constexpr (kWay == Way::kToEven) {
              const V is_half = Xor(Min16(Xor(Mul16(d, doubled), half), one), one);
              r[k] = Sub16(r[k], And(r[k], is_half));
            }
            if constexpr (kWay == Way::kWindow) {
              near[k] = IsNear(Add16(Mul16(d, doubled), from), reach);
            }
          }
          V result = Bytes(r[0], r[1]);
          if constexpr (kWay == Way::kWindow) result = PutExact(w, near[0], near[1], a, b, result);
          Store(o, result);
        }
      });
}

// Plans and blends; apart, so that nothing is computed before the rounding mode is set.
__attribute__((noinline)) void Blend(const Rows& given, double first_weight, double second_weight) {
  Rows rows = given;
  Weights w = {first_weight, second_weight, 1.0 / (first_weight + second_weight)};
  const Plan plan = MakePlan(first_weight, second_weight, rows.bytes * rows.rows);
  if (plan.swapped) {  // sums do not depend on the order
    rows.first = given.second, rows.first_step = given.second_step, rows.second = given.first;
    rows.second_step = given.first_step, w.first = second_weight, w.second = first_weight;
  }
  switch (plan.way) {
    case Way::kSecond:
      return CopyRows(rows.second, rows.second_step, rows);
    case Way::kAverage:
      return BlendRows<Way::kAverage>(rows, plan, w);
    case Way::kToEven:
      return BlendRows<Way::kToEven>(rows, plan, w);
    case Way::kPlain:
      return BlendRows<Way::kPlain>(rows, plan, w);
    case Way::kWindow:
      return BlendRows<Way::kWindow>(rows, plan, w);
    case Way::kDouble:
      return BlendRows<Way::kDouble>(rows, plan, w);
  }
}

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

IppStatus PQ_VARIANT(PQKeyRanges_8u_C3R)(const u8* front, int frontStep, const u8* back, int backStep, u8* dst,
                                         int dstStep, IppiSize roi, const u8* low, const u8* high, int ranges) {
  if (const IppStatus s = PQCheckKeyRanges(front, frontStep, back, backStep, dst, dstStep, roi, low, high, ranges)) {
    return s;
  }
  const Rows rows =
      MakeRows(front, frontStep, back, backStep, dst, dstStep, std::ptrdiff_t{roi.width} * 3, roi.height);
  Range ready[kReady];
  int count = 0;
  for (int i = 0; i < ranges && i < kReady; ++i) {
    if (!IsEmpty(low + 3 * i, high + 3 * i)) MakeRange(ready[count++], low + 3 * i, high + 3 * i);
  }
  if (count == 0 && ranges <= kReady) {
    CopyRows(front, frontStep, rows);
  } else {
    KeyRows(rows, ready, count, low, high, ranges);
  }
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(PQBlend_8u_C1R)(const u8* first, int firstStep, const u8* second, int secondStep, u8* dst,
                                     int dstStep, IppiSize roi, double firstWeight, double secondWeight) {
  if (const IppStatus s = PQCheckMix(first, firstStep, second, secondStep, dst, dstStep, roi)) return s;
  const Rows rows = MakeRows(first, firstStep, second, secondStep, dst, dstStep, roi.width, roi.height);
  const int mode = PQRoundToNearest();
  Blend(rows, firstWeight, secondWeight);
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

}  // namespace pantiq
