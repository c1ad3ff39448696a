// The fixed-mask filters with vectors: one source for a6, w7 and t7.
//
// Every partial result fits 16 bits. Two bytes are interleaved and weighed by one multiply-add of bytes, which also
// widens them; packing puts the lanes back in order. Rows are walked in bands: for one vector of samples the source
// rows of a band pass downwards through registers, so that nothing but the pixels goes through memory.
#include "pantiq/kernels/PQFixedMask.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

#define PQ_MEMBER inline __attribute__((always_inline))

// Rows of a band.
constexpr int kBand = 8;

PQ_INLINE V WeighPairs(V bytes, V weights) {  // words: b0 * w0 + b1 * w1, signed weights
#if PQ_WIDE
  return _mm512_maddubs_epi16(bytes, weights);
#else
  return _mm256_maddubs_epi16(bytes, weights);
#endif
}
PQ_INLINE V MulHigh16(V a, V b) {
#if PQ_WIDE
  return _mm512_mulhi_epu16(a, b);
#else
  return _mm256_mulhi_epu16(a, b);
#endif
}
PQ_INLINE V Average16(V a, V b) {
#if PQ_WIDE
  return _mm512_avg_epu16(a, b);
#else
  return _mm256_avg_epu16(a, b);
#endif
}
template <int n>
PQ_INLINE V ShiftRight16(V a) {
#if PQ_WIDE
  return _mm512_srli_epi16(a, n);
#else
  return _mm256_srli_epi16(a, n);
#endif
}
template <int n>
PQ_INLINE V ShiftRightS16(V a) {
#if PQ_WIDE
  return _mm512_srai_epi16(a, n);
#else
  return _mm256_srai_epi16(a, n);
#endif
}
// a + 1 where x > y, signed; else a.
PQ_INLINE V AddIfGreater16(V a, V x, V y) {
#if PQ_WIDE
  return _mm512_mask_add_epi16(a, _mm512_cmpgt_epi16_mask(x, y), a, _mm512_set1_epi16(1));
#else
  return _mm256_sub_epi16(a, _mm256_cmpgt_epi16(x, y));
#endif
}

// A vector of bytes widened to words: the lower and the upper eight of every 16.
struct Words {
  V low, high;
};
PQ_INLINE Words operator+(Words a, Words b) { return {Add16(a.low, b.low), Add16(a.high, b.high)}; }
PQ_INLINE Words operator-(Words a, Words b) { return {Sub16(a.low, b.low), Sub16(a.high, b.high)}; }
PQ_INLINE Words Words0() { return {Zero(), Zero()}; }
PQ_INLINE Words Widen(V a) { return {Low8(a, Zero()), High8(a, Zero())}; }
PQ_INLINE Words Interleave(V a, V b) { return {Low8(a, b), High8(a, b)}; }
PQ_INLINE Words Weigh(Words bytes, int even, int odd) {
  const V w = Set16((even & 255) | (odd & 255) * 256);
  return {WeighPairs(bytes.low, w), WeighPairs(bytes.high, w)};
}
PQ_INLINE V Pack(Words a) { return PackU8(a.low, a.high); }
template <class F>
PQ_INLINE Words Each(Words a, F f) {
  return {f(a.low), f(a.high)};
}

// A filter takes rows from above: Feed the row that enters, at its sample below the output's; Out is the output row
// kReach rows higher. What Out gives before 2 * kReach + 1 rows have entered has no meaning.

// Sums of 1 1 1 or 1 2 1 along a row.
template <int kMiddle>
PQ_INLINE Words Sum3(const u8* p) {
  return Weigh(Interleave(Load(p - 3), Load(p)), 1, kMiddle) + Widen(Load(p + 3));
}

template <int kMiddle>
struct Horizontal {  // Prewitt 1, Sobel 2
  static constexpr int kReach = 1;
  Words a = Words0(), b = a, c = a;
  PQ_MEMBER void Feed(const u8* p) { a = b, b = c, c = Sum3<kMiddle>(p); }
  PQ_MEMBER V Out() const { return Pack(c - a); }
};

template <int kMiddle>
struct Vertical {  // Prewitt 1, Sobel 2
  static constexpr int kReach = 1;
  Words c = Words0(), above = c, pair = c;
  PQ_MEMBER void Feed(const u8* p) {
    const Words d = Weigh(Interleave(Load(p - 3), Load(p + 3)), 1, -1);
    above = pair, pair = c + d, c = d;
  }
  PQ_MEMBER V Out() const { return Pack(above + (kMiddle == 2 ? pair : c)); }
};

// kCentre * c - S9: the centre's row weighs -1, kCentre - 1, -1.
template <int kCentre>
struct Sharp3 {
  static constexpr int kReach = 1;
  Words sum = Words0(), middle = sum, next_middle = sum;
  PQ_MEMBER void Feed(const u8* p) {
    const Words pairs = Interleave(Load(p - 3), Load(p)), right = Widen(Load(p + 3));
    middle = next_middle;
    next_middle = Weigh(pairs, -1, kCentre - 1) - right - sum;  // less the row above; the row below comes next
    sum = Weigh(pairs, 1, 1) + right;
  }
  PQ_MEMBER V Out() const {
    const Words v = middle - sum;
    if constexpr (kCentre == 9) return Pack(v);
    return Pack(Each(v, [](V x) {  // for v below 1 the pack gives 0
      return ShiftRightS16<3>(Add16(Add16(x, Set16(3)), And(ShiftRight16<3>(x), Set16(1))));
    }));
  }
};

struct Gauss3 {
  static constexpr int kReach = 1;
  Words c = Words0(), above = c, pair = c;
  PQ_MEMBER void Feed(const u8* p) {
    const Words d = Sum3<2>(p);
    above = pair, pair = c + d, c = d;
  }
  PQ_MEMBER V Out() const {
    return Pack(Each(above + pair, [](V t) {
      return ShiftRight16<4>(Add16(Add16(t, Set16(7)), And(ShiftRight16<4>(t), Set16(1))));
    }));
  }
};

struct Lowpass3 {
  static constexpr int kReach = 1;
  Words c = Words0(), above = c, pair = c;
  PQ_MEMBER void Feed(const u8* p) {
    const Words d = Sum3<1>(p);
    above = pair, pair = c + d, c = d;
  }
  // ((S + 5) * 455) >> 12 is the upper half of (S + 5) * 7280.
  PQ_MEMBER V Out() const {
    return Pack(Each(above + c, [](V s) { return MulHigh16(Add16(s, Set16(5)), Set16(7280)); }));
  }
};

// The running total of five rows of 1 1 1 1 1, from a start where all are 0.
struct Total5 {
  static constexpr int kReach = 2;
  Words a = Words0(), b = a, c = a, d = a, e = a, total = a;
  PQ_MEMBER void Enter(Words sum) {
    total = total + (sum - a);
    a = b, b = c, c = d, d = e, e = sum;
  }
};

struct Lowpass5 : Total5 {
  PQ_MEMBER void Feed(const u8* p) {
    Enter(Weigh(Interleave(Load(p - 6), Load(p - 3)), 1, 1) + Weigh(Interleave(Load(p), Load(p + 3)), 1, 1) +
          Widen(Load(p + 6)));
  }
  // ((S + 13) * 10485) >> 18 is the upper half of (S + 13) * 10485, shifted by 2.
  PQ_MEMBER V Out() const {
    return Pack(Each(total, [](V s) { return ShiftRight16<2>(MulHigh16(Add16(s, Set16(13)), Set16(10485))); }));
  }
};

struct Hipass5 : Total5 {
  Words centre = a, next = a, third = a;
  PQ_MEMBER void Feed(const u8* p) {
    const Words pair = Interleave(Load(p), Load(p + 3));
    Enter(Weigh(Interleave(Load(p - 6), Load(p - 3)), 1, 1) + Weigh(pair, 1, 1) + Widen(Load(p + 6)));
    centre = next, next = third, third = Weigh(pair, 25, 0);
  }
  PQ_MEMBER V Out() const { return Pack(centre - total); }
};

// A row of five weighs on the five output rows around it, alike above and below: outer, inner, centre.
struct Five {
  Words pair2, pair1, middle;  // of the samples two pixels away, one pixel away, and the sample itself
  PQ_MEMBER explicit Five(const u8* p)
      : pair2(Interleave(Load(p - 6), Load(p + 6))),
        pair1(Interleave(Load(p - 3), Load(p + 3))),
        middle(Widen(Load(p))) {}
  PQ_MEMBER Words Sum(int w2, int w1, int w0) const {
    const Words s = Weigh(pair2, w2, w2) + Weigh(middle, w0, 0);
    return w1 == 0 ? s : s + Weigh(pair1, w1, w1);
  }
};

struct Laplace5 {
  static constexpr int kReach = 2;
  Words done = Words0(), next = done, second = done, third = done, fourth = done;  // output rows on their way
  PQ_MEMBER void Feed(const u8* p) {
    const Five row(p);
    const Words outer = row.Sum(-1, -3, -4), inner = row.Sum(-3, 0, 6), centre = row.Sum(-4, 6, 20);
    done = next + outer, next = second + inner, second = third + centre, third = fourth + inner, fourth = outer;
  }
  PQ_MEMBER V Out() const { return Pack(done); }
};

// T is x + c + z: the inner rows' sum (up to 65280), the centre row's (65025) and the outer rows' (15300). The result
// is floor((T + 285) / 571) for every T. u is T / 4 with an error from -1.25 to 0.25, and u * 459 >> 16 is the result
// or one less; the remainder of T, which is right modulo 2^16, tells which.
struct Gauss5 {
  static constexpr int kReach = 2;
  Words a0 = Words0(), a1 = a0, a2 = a0, a3 = a0, a4 = a0, b3 = a0, b4 = a0, x = a0, next_x = a0, c2 = a0, c3 = a0,
        c4 = a0;
  PQ_MEMBER void Feed(const u8* p) {
    const Five row(p);
    const Words inner = row.Sum(7, 31, 52);
    x = next_x, next_x = b3 + inner, b3 = b4, b4 = inner;
    a0 = a1, a1 = a2, a2 = a3, a3 = a4, a4 = row.Sum(2, 7, 12);
    c2 = c3, c3 = c4, c4 = row.Sum(12, 52, 127);
  }
  static PQ_MEMBER V Divide(V x, V c, V z) {
    const V u = Add16(ShiftRight16<1>(Average16(x, c)), ShiftRight16<2>(z));
    const V q = MulHigh16(u, Set16(459));
    const V rest = Sub16(Add16(Add16(x, c), z), Mul16(q, Set16(571)));
    return AddIfGreater16(q, rest, Set16(285));
  }
  PQ_MEMBER V Out() const {
    const Words z = a0 + a4;
    return PackU8(Divide(x.low, c2.low, z.low), Divide(x.high, c2.high, z.high));
  }
};

// kRows output rows of one vector; 0: `rows`.
template <class Filter, int kRows>
PQ_INLINE void Down(const u8* p, std::ptrdiff_t src_step, u8* o, std::ptrdiff_t dst_step, int rows) {
  Filter filter;
  p -= Filter::kReach * src_step;
#pragma GCC unroll 4
  for (int i = 0; i < 2 * Filter::kReach; ++i, p += src_step) filter.Feed(p);
  if constexpr (kRows > 0) {
#pragma GCC unroll 8
    for (int i = 0; i < kRows; ++i, p += src_step, o += dst_step) {
      filter.Feed(p);
      Store(o, filter.Out());
    }
  } else {
    for (int i = 0; i < rows; ++i, p += src_step, o += dst_step) {
      filter.Feed(p);
      Store(o, filter.Out());
    }
  }
}

// Rows that are shorter than a vector go through a buffer.
template <class Filter>
void Narrow(const u8* src, std::ptrdiff_t src_step, u8* dst, std::ptrdiff_t dst_step, std::ptrdiff_t n, int rows) {
  constexpr std::ptrdiff_t kReach = Filter::kReach, kStep = kV + 6 * kReach;
  alignas(64) u8 in[(kBand + 2 * kReach) * kStep] = {}, out[kBand * kV];
  for (std::ptrdiff_t i = -kReach; i < rows + kReach; ++i) {
    __builtin_memcpy(in + (i + kReach) * kStep, src + i * src_step - 3 * kReach,
                     static_cast<std::size_t>(n + 6 * kReach));
  }
  Down<Filter, 0>(in + kReach * kStep + 3 * kReach, kStep, out, kV, rows);
  for (int i = 0; i < rows; ++i) __builtin_memcpy(dst + i * dst_step, out + i * kV, static_cast<std::size_t>(n));
}

template <class Filter>
IppStatus Run(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * 3, ss = src_step, ds = dst_step;
  for (int y = 0; y < roi.height; y += kBand, src += kBand * ss, dst += kBand * ds) {
    const int rows = roi.height - y < kBand ? roi.height - y : kBand;
    if (n < kV) {
      Narrow<Filter>(src, ss, dst, ds, n, rows);
      continue;
    }
    for (std::ptrdiff_t i = 0; i < n; i += kV) {
      const std::ptrdiff_t at = i + kV <= n ? i : n - kV;  // the last vector overlaps the one before
      if (rows == kBand) {
        Down<Filter, kBand>(src + at, ss, dst + at, ds, rows);
      } else {
        Down<Filter, 0>(src + at, ss, dst + at, ds, rows);
      }
    }
  }
  return ippStsNoErr;
}

// The second sample lies d bytes from the first and a row higher.
void Roberts(const u8* src, std::ptrdiff_t src_step, u8* dst, std::ptrdiff_t dst_step, IppiSize roi, int d) {
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * 3;
  for (int y = 0; y < roi.height; ++y, src += src_step, dst += dst_step) {
    MapRow2(src, src + d - src_step, dst, n, [](S a, S b) { return SubSat8(a, b); });
  }
}

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

#define PQ_FIXED(name, ...)                                                                    \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) { \
    if (const IppStatus status = PQCheckFixed(src, srcStep, dst, dstStep, roi)) return status; \
    return Run<__VA_ARGS__>(src, srcStep, dst, dstStep, roi);                                  \
  }
PQ_FIXED(ippiFilterPrewittHoriz_8u_C3R, Horizontal<1>)
PQ_FIXED(ippiFilterPrewittVert_8u_C3R, Vertical<1>)
PQ_FIXED(ippiFilterSobelHoriz_8u_C3R, Horizontal<2>)
PQ_FIXED(ippiFilterSobelVert_8u_C3R, Vertical<2>)
PQ_FIXED(ippiFilterSharpen_8u_C3R, Sharp3<17>)

#define PQ_ROBERTS(name, d)                                                                    \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) { \
    if (const IppStatus status = PQCheckFixed(src, srcStep, dst, dstStep, roi)) return status; \
    Roberts(src, srcStep, dst, dstStep, roi, d);                                               \
    return ippStsNoErr;                                                                        \
  }
PQ_ROBERTS(ippiFilterRobertsDown_8u_C3R, -3)
PQ_ROBERTS(ippiFilterRobertsUp_8u_C3R, 3)

#define PQ_FIXED_CODE(name, filter3, filter5)                                                                \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, int maskCode) { \
    if (const IppStatus status = PQCheckFixedCode(src, srcStep, dst, dstStep, roi, maskCode)) return status; \
    if (maskCode == ippMskSize3x3) return Run<filter3>(src, srcStep, dst, dstStep, roi);                     \
    return Run<filter5>(src, srcStep, dst, dstStep, roi);                                                    \
  }
PQ_FIXED_CODE(ippiFilterLaplace_8u_C3R, Sharp3<9>, Laplace5)
PQ_FIXED_CODE(ippiFilterGauss_8u_C3R, Gauss3, Gauss5)
PQ_FIXED_CODE(ippiFilterHipass_8u_C3R, Sharp3<9>, Hipass5)
PQ_FIXED_CODE(ippiFilterLowpass_8u_C3R, Lowpass3, Lowpass5)

}  // namespace pantiq
