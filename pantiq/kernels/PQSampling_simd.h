// The vector form of the sampling engine (PQSampling.h), for the vector sources of rotate, shear and the warps. Same
// bytes as the plain form: positions are doubles, in the plain form's order; nearest and cubic repeat its operations;
// linear works in single precision and leaves pixels whose value lies within kDoubt of a rounding to the plain form.
//
// A span is drawn in chunks: positions of all its pixels, which of them are inside, then offsets, samples, results,
// each for the whole chunk, so that nothing waits for the loads of single pixels. Groups of kGroup pixels that are
// inside only in part go to the plain form.
#pragma once

#include "pantiq/kernels/PQSampling.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

// ---- vectors of doubles, floats and 32-bit numbers -----------------------------------------------------------------

#if PQ_WIDE
#define PQ_SI(name) _mm512_##name
using D = __m512d;  // half a group of positions
using F = __m512;   // a group
using DMask = __mmask8;
#else
#define PQ_SI(name) _mm256_##name
using D = __m256d;
using F = __m256;
using DMask = __m256d;
#endif
constexpr int kGroup = sizeof(F) / 4;
constexpr int kChunk = 128;
constexpr unsigned kAllInside = (1u << kGroup) - 1;

PQ_INLINE D LoadD(const double* p) { return PQ_SI(load_pd)(p); }
PQ_INLINE D SetD(double v) { return PQ_SI(set1_pd)(v); }
PQ_INLINE D Add(D a, D b) { return PQ_SI(add_pd)(a, b); }
PQ_INLINE D Sub(D a, D b) { return PQ_SI(sub_pd)(a, b); }
PQ_INLINE D Mul(D a, D b) { return PQ_SI(mul_pd)(a, b); }
PQ_INLINE D Div(D a, D b) { return PQ_SI(div_pd)(a, b); }
PQ_INLINE F LoadF(const float* p) { return PQ_SI(load_ps)(p); }
PQ_INLINE F SetF(float v) { return PQ_SI(set1_ps)(v); }
PQ_INLINE F Add(F a, F b) { return PQ_SI(add_ps)(a, b); }
PQ_INLINE F Sub(F a, F b) { return PQ_SI(sub_ps)(a, b); }
PQ_INLINE F Mul(F a, F b) { return PQ_SI(mul_ps)(a, b); }
PQ_INLINE F ToFloat(V a) { return PQ_SI(cvtepi32_ps)(a); }
PQ_INLINE V Truncate(F a) { return PQ_SI(cvttps_epi32)(a); }
#if PQ_WIDE
PQ_INLINE DMask GreaterEqual(D a, D b) { return _mm512_cmp_pd_mask(a, b, _CMP_GE_OQ); }
PQ_INLINE DMask Greater(D a, D b) { return _mm512_cmp_pd_mask(a, b, _CMP_GT_OQ); }
PQ_INLINE DMask Both(DMask a, DMask b) { return a & b; }
PQ_INLINE DMask Not(DMask a) { return static_cast<DMask>(~a); }
PQ_INLINE D Choose(DMask m, D yes, D no) { return _mm512_mask_blend_pd(m, no, yes); }
PQ_INLINE unsigned Bits(DMask m) { return m; }
PQ_INLINE D Abs(D a) { return _mm512_abs_pd(a); }
PQ_INLINE D SignOf(D a) { return _mm512_and_pd(a, SetD(-0.0)); }
PQ_INLINE D WithSign(D a, D sign) { return _mm512_or_pd(a, sign); }
PQ_INLINE D Negative(D a) { return _mm512_xor_pd(a, SetD(-0.0)); }
PQ_INLINE D MaxZero(D a) { return _mm512_max_pd(a, _mm512_setzero_pd()); }
PQ_INLINE D Limit(D a, D low, D high) { return _mm512_min_pd(_mm512_max_pd(a, low), high); }
PQ_INLINE D Root(D a) { return _mm512_sqrt_pd(a); }
PQ_INLINE D Iota() { return _mm512_setr_pd(0, 1, 2, 3, 4, 5, 6, 7); }
PQ_INLINE V Whole(D a, D b) {  // both halves of a group, truncated
  return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(a)), _mm512_cvttpd_epi32(b), 1);
}
PQ_INLINE F Narrow(D a, D b) {
  return _mm512_castpd_ps(_mm512_insertf64x4(_mm512_castps_pd(_mm512_castps256_ps512(_mm512_cvtpd_ps(a))),
                                             _mm256_castps_pd(_mm512_cvtpd_ps(b)), 1));
}
PQ_INLINE D LowWide(V a) { return _mm512_cvtepi32_pd(_mm512_castsi512_si256(a)); }
PQ_INLINE D HighWide(V a) { return _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(a, 1)); }
PQ_INLINE V MulInt(V a, V b) { return _mm512_mullo_epi32(a, b); }
PQ_INLINE V MinInt(V a, V b) { return _mm512_min_epi32(a, b); }
PQ_INLINE V MaxInt(V a, V b) { return _mm512_max_epi32(a, b); }
PQ_INLINE V SubInt(V a, V b) { return _mm512_sub_epi32(a, b); }
PQ_INLINE V ShiftRight(V a, int n) { return _mm512_srli_epi32(a, static_cast<unsigned>(n)); }
PQ_INLINE V ShiftLeft(V a, int n) { return _mm512_slli_epi32(a, static_cast<unsigned>(n)); }
PQ_INLINE bool AnySet(V a) { return _mm512_test_epi32_mask(a, a) != 0; }
PQ_INLINE bool AllWhole(D a) { return _mm512_cmp_pd_mask(_mm512_roundscale_pd(a, 8), a, _CMP_EQ_OQ) == 0xFF; }
PQ_INLINE F FromHalf(F a) {  // the distance from the nearest whole number
  return _mm512_abs_ps(_mm512_sub_ps(a, _mm512_roundscale_ps(a, 8)));
}
PQ_INLINE F Larger(F a, F b) { return _mm512_max_ps(a, b); }
PQ_INLINE unsigned Above(F a, float limit) { return _mm512_cmp_ps_mask(a, SetF(limit), _CMP_GT_OQ); }
// Where the second reaches the first: the second's place is the limit less one, the weight 1.
PQ_INLINE F ChooseAbove(V a, V limit, F yes, F no) {
  return _mm512_mask_blend_ps(_mm512_cmpgt_epi32_mask(a, limit), no, yes);
}
#else
PQ_INLINE DMask GreaterEqual(D a, D b) { return _mm256_cmp_pd(a, b, _CMP_GE_OQ); }
PQ_INLINE DMask Greater(D a, D b) { return _mm256_cmp_pd(a, b, _CMP_GT_OQ); }
PQ_INLINE DMask Both(DMask a, DMask b) { return _mm256_and_pd(a, b); }
PQ_INLINE DMask Not(DMask a) { return _mm256_xor_pd(a, _mm256_castsi256_pd(_mm256_set1_epi64x(-1))); }
PQ_INLINE D Choose(DMask m, D yes, D no) { return _mm256_blendv_pd(no, yes, m); }
PQ_INLINE unsigned Bits(DMask m) { return static_cast<unsigned>(_mm256_movemask_pd(m)); }
PQ_INLINE D Abs(D a) { return _mm256_andnot_pd(SetD(-0.0), a); }
PQ_INLINE D SignOf(D a) { return _mm256_and_pd(a, SetD(-0.0)); }
PQ_INLINE D WithSign(D a, D sign) { return _mm256_or_pd(a, sign); }
PQ_INLINE D Negative(D a) { return _mm256_xor_pd(a, SetD(-0.0)); }
PQ_INLINE D MaxZero(D a) { return _mm256_max_pd(a, _mm256_setzero_pd()); }
PQ_INLINE D Limit(D a, D low, D high) { return _mm256_min_pd(_mm256_max_pd(a, low), high); }
PQ_INLINE D Root(D a) { return _mm256_sqrt_pd(a); }
PQ_INLINE D Iota() { return _mm256_setr_pd(0, 1, 2, 3); }
PQ_INLINE V Whole(D a, D b) { return _mm256_set_m128i(_mm256_cvttpd_epi32(b), _mm256_cvttpd_epi32(a)); }
PQ_INLINE F Narrow(D a, D b) { return _mm256_set_m128(_mm256_cvtpd_ps(b), _mm256_cvtpd_ps(a)); }
PQ_INLINE D LowWide(V a) { return _mm256_cvtepi32_pd(_mm256_castsi256_si128(a)); }
PQ_INLINE D HighWide(V a) { return _mm256_cvtepi32_pd(_mm256_extracti128_si256(a, 1)); }
PQ_INLINE V MulInt(V a, V b) { return _mm256_mullo_epi32(a, b); }
PQ_INLINE V MinInt(V a, V b) { return _mm256_min_epi32(a, b); }
PQ_INLINE V MaxInt(V a, V b) { return _mm256_max_epi32(a, b); }
PQ_INLINE V SubInt(V a, V b) { return _mm256_sub_epi32(a, b); }
PQ_INLINE V ShiftRight(V a, int n) { return _mm256_srli_epi32(a, n); }
PQ_INLINE V ShiftLeft(V a, int n) { return _mm256_slli_epi32(a, n); }
PQ_INLINE bool AnySet(V a) { return !_mm256_testz_si256(a, a); }
PQ_INLINE bool AllWhole(D a) { return _mm256_movemask_pd(_mm256_cmp_pd(_mm256_round_pd(a, 8), a, _CMP_EQ_OQ)) == 15; }
PQ_INLINE F FromHalf(F a) { return _mm256_andnot_ps(SetF(-0.0f), _mm256_sub_ps(a, _mm256_round_ps(a, 8))); }
PQ_INLINE F Larger(F a, F b) { return _mm256_max_ps(a, b); }
PQ_INLINE unsigned Above(F a, float limit) {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a, SetF(limit), _CMP_GT_OQ)));
}
PQ_INLINE F ChooseAbove(V a, V limit, F yes, F no) {
  return _mm256_blendv_ps(no, yes, _mm256_castsi256_ps(_mm256_cmpgt_epi32(a, limit)));
}
#endif

// ---- positions ----------------------------------------------------------------------------------------------------

// What a chunk works on.
struct Chunk {
  alignas(64) double x[kChunk], y[kChunk];         // positions, on the limits where they were beyond
  alignas(64) int offset[kChunk], shift[kChunk];   // of the first sample, in bytes; how far it was moved into its row
  alignas(64) float fx[3][kChunk], fy[3][kChunk];  // linear: the weight; cubic: a, b, c
  alignas(64) u8 upper[kChunk * 8], lower[kChunk * 8], rows[4][kChunk * 4];  // samples, as the interpolation takes them
  unsigned inside[kChunk / 8];                                               // bits of a group's pixels
};

struct Terms {
  double c[3], d[2];
};

PQ_INLINE Terms RowTermsOf(const sampling::Warp& w, int y) {
  Terms t = {};
  for (int i = 0; i < 3; ++i) {
    if (w.map == sampling::Map::kDirect) {
      if (i < 2) {
        t.d[i] = w.m[i][0] * y + w.m[i][1];
        t.c[i] = w.m[i][2] * y + w.m[i][3];
      }
    } else if (i < 2 || w.map == sampling::Map::kPerspective) {
      t.c[i] = w.m[i][1] * y + w.m[i][2];
    }
  }
  return t;
}

// Positions of half a group; false bits: the map has none.
template <sampling::Map kMap>
PQ_INLINE void PositionsAt(const sampling::Warp& w, const Terms& t, int y, D x, D& sx, D& sy, DMask& valid) {
  if constexpr (kMap == sampling::Map::kDirect) {
    sx = Add(Mul(SetD(t.d[0]), x), SetD(t.c[0]));
    sy = Add(Mul(SetD(t.d[1]), x), SetD(t.c[1]));
  } else if constexpr (kMap == sampling::Map::kBilinear) {
    const sampling::Solver& s = w.solver;
    const double dy_all = y - s.origin.y;
    const D dx = Sub(x, SetD(s.origin.x)), dy = SetD(dy_all);
    const D a1 = Add(Mul(SetD(s.e), dx), SetD(s.k - s.a * dy_all));
    const D a0 = Sub(Mul(SetD(s.p.y), dx), SetD(s.p.x * dy_all));
    D root_t;
    if (s.linear) {
      root_t = Div(Negative(a0), a1);
    } else {
      const D square = Sub(Mul(a1, a1), Mul(SetD(s.four_a2), a0));
      const D h = Mul(SetD(-0.5), Add(a1, WithSign(Root(MaxZero(square)), SignOf(a1))));
      DMask same = GreaterEqual(a1, SetD(0));
      if (!s.positive) same = Not(same);
      root_t = Div(Choose(same, a0, h), Choose(same, h, SetD(s.a2)));
    }
    const D px = Add(Mul(SetD(s.a), root_t), SetD(s.p.x)), py = Add(Mul(SetD(s.e), root_t), SetD(s.p.y));
    const D nx = Sub(dx, Mul(SetD(s.q.x), root_t)), ny = Sub(dy, Mul(SetD(s.q.y), root_t));
    const DMask by_x = GreaterEqual(Abs(px), Abs(py));
    const D u = Add(SetD(s.start.x), Div(Choose(by_x, nx, ny), Choose(by_x, px, py))), v = Add(SetD(s.start.y), root_t);
    sx = s.swapped ? v : u;
    sy = s.swapped ? u : v;
  } else {
    sx = Add(Mul(SetD(w.m[0][0]), x), SetD(t.c[0]));
    sy = Add(Mul(SetD(w.m[1][0]), x), SetD(t.c[1]));
    if constexpr (kMap == sampling::Map::kPerspective) {
      const D n2 = Add(Mul(SetD(w.m[2][0]), x), SetD(t.c[2]));
      valid = Greater(Mul(n2, SetD(w.sign)), SetD(0));
      sx = Div(sx, n2);
      sy = Div(sy, n2);
    }
  }
}

template <sampling::Map kMap>
__attribute__((noinline)) void FindPositions(const sampling::Warp& w, int y, int x, int count, Chunk& chunk) {
  const Terms terms = RowTermsOf(w, y);
  constexpr int kHalf = kGroup / 2;
  const D x_low = SetD(w.x_low), x_high = SetD(w.x_high), y_low = SetD(w.y_low), y_high = SetD(w.y_high);
  const D left = SetD(w.left), right = SetD(w.right), top = SetD(w.top), bottom = SetD(w.bottom);
  for (int i = 0; i < count; i += kGroup) {
    unsigned bits = 0;
    for (int half = 0; half < 2; ++half) {
      const int at = i + half * kHalf;
      D sx, sy;
      DMask valid = GreaterEqual(SetD(0), SetD(0));
      PositionsAt<kMap>(w, terms, y, Add(SetD(static_cast<double>(x) + at), Iota()), sx, sy, valid);
      const DMask in_x = Both(GreaterEqual(sx, x_low), GreaterEqual(x_high, sx));
      const DMask in_y = Both(GreaterEqual(sy, y_low), GreaterEqual(y_high, sy));
      bits |= Bits(Both(valid, Both(in_x, in_y))) << (half * kHalf);
      PQ_SI(store_pd)(chunk.x + at, Limit(sx, left, right));
      PQ_SI(store_pd)(chunk.y + at, Limit(sy, top, bottom));
    }
    chunk.inside[i / kGroup] = bits;
  }
}

PQ_INLINE void FindPositions(const sampling::Warp& w, int y, int x, int count, Chunk& chunk) {
  switch (w.map) {
    case sampling::Map::kAffine:
      return FindPositions<sampling::Map::kAffine>(w, y, x, count, chunk);
    case sampling::Map::kPerspective:
      return FindPositions<sampling::Map::kPerspective>(w, y, x, count, chunk);
    case sampling::Map::kDirect:
      return FindPositions<sampling::Map::kDirect>(w, y, x, count, chunk);
    case sampling::Map::kBilinear:
      return FindPositions<sampling::Map::kBilinear>(w, y, x, count, chunk);
  }
}

// ---- results ------------------------------------------------------------------------------------------------------

// A group's pixels from one number (0..255) a pixel.
PQ_INLINE void StoreOne(u8* out, V v) {
#if PQ_WIDE
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm512_cvtepi32_epi8(v));
#else
  const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
#endif
}

// A group's pixels of three channels from b | g << 8 | r << 16.
PQ_INLINE void StoreThree(u8* out, V v) {
#if PQ_WIDE
  alignas(64) static constexpr u8 kOrder[64] = {0,  1,  2,  4,  5,  6,  8,  9,  10, 12, 13, 14, 16, 17, 18, 20,
                                                21, 22, 24, 25, 26, 28, 29, 30, 32, 33, 34, 36, 37, 38, 40, 41,
                                                42, 44, 45, 46, 48, 49, 50, 52, 53, 54, 56, 57, 58, 60, 61, 62};
  StoreMasked(out, (VMask{1} << 48) - 1, _mm512_permutexvar_epi8(Load(kOrder), v));
#else
  const V packed = _mm256_permutevar8x32_epi32(
      Shuffle8(v, Lanes(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1))),
      _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 6, 6));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm256_extracti128_si256(packed, 1));
#endif
}

// ---- nearest ------------------------------------------------------------------------------------------------------

template <int kChannels>
__attribute__((noinline)) void SampleNearest(const sampling::Warp& w, Chunk& chunk, int from, int to, u8* out) {
  const D half = SetD(0.5);
  const V step = Set32(static_cast<int>(w.src_step));
  for (int i = from; i < to; i += kGroup) {
    const V column = Whole(Add(LoadD(chunk.x + i), half), Add(LoadD(chunk.x + i + kGroup / 2), half));
    const V row = Whole(Add(LoadD(chunk.y + i), half), Add(LoadD(chunk.y + i + kGroup / 2), half));
    const V bytes = kChannels == 1 ? column : Add32(column, Add32(column, column));
    Store(chunk.offset + i, Add32(MulInt(row, step), bytes));
  }
  for (int i = from; i < to; ++i, out += kChannels) {
    const u8* p = w.src + chunk.offset[i];
    if (kChannels == 3) {
      u16 low;
      __builtin_memcpy(&low, p, 2);
      const u8 high = p[2];
      __builtin_memcpy(out, &low, 2);
      out[2] = high;
    } else {
      *out = *p;
    }
  }
}

// ---- linear -------------------------------------------------------------------------------------------------------

// Between the single-precision value and the exact one lie less than 6e-5 (255 times the rounding of the weights,
// 2^-25, and of four results below 256, 2^-17 each).
constexpr float kDoubt = 0.5f - 1e-4f;

// Whole parts and weights of a group on one axis. limit: the picture's last coordinate.
PQ_INLINE V PairsAt(const double* positions, int limit, float* weights, bool& exact) {
  const D tiny = SetD(0.0000001);
  const D low = LoadD(positions), high = LoadD(positions + kGroup / 2);
  const V whole = Whole(Add(low, tiny), Add(high, tiny));
  const D low_part = Sub(low, LowWide(whole)), high_part = Sub(high, HighWide(whole));
  const D parts = SetD(64);
  exact = exact && AllWhole(Mul(low_part, parts)) && AllWhole(Mul(high_part, parts));
  const V last = Set32(limit - 1);
  PQ_SI(store_ps)(weights, ChooseAbove(whole, last, SetF(1), Narrow(low_part, high_part)));
  return MinInt(whole, last);
}

PQ_INLINE F FusedLerp(F a, F b, F t) { return PQ_SI(fmadd_ps)(Sub(b, a), t, a); }

template <int kChannels>
PQ_INLINE void Linear(const sampling::Warp& w, Chunk& chunk, int y, int x, int from, int to, u8* out) {
  const V step = Set32(static_cast<int>(w.src_step));
  const V room = Set32(w.size.width * 3 - 8);  // the last place in a row where 8 bytes may be read
  bool exact[kChunk / 8];
  for (int i = from; i < to; i += kGroup) {
    bool whole = true;
    const V column = PairsAt(chunk.x + i, w.size.width - 1, chunk.fx[0] + i, whole);
    const V row = MulInt(PairsAt(chunk.y + i, w.size.height - 1, chunk.fy[0] + i, whole), step);
    exact[i / kGroup] = whole;
    if (kChannels == 1) {
      Store(chunk.offset + i, Add32(row, column));
    } else {
      const V wanted = Add32(column, Add32(column, column)), first = MinInt(wanted, room);
      Store(chunk.offset + i, Add32(row, first));
      Store(chunk.shift + i, ShiftLeft(SubInt(wanted, first), 3));
    }
  }
  for (int i = from; i < to; ++i) {
    const u8* p = w.src + chunk.offset[i];
    if (kChannels == 1) {
      u16 pair;
      __builtin_memcpy(&pair, p, 2);
      const std::uint32_t a = pair;
      __builtin_memcpy(&pair, p + w.src_step, 2);
      const std::uint32_t b = pair;
      __builtin_memcpy(chunk.upper + i * 4, &a, 4);
      __builtin_memcpy(chunk.lower + i * 4, &b, 4);
    } else {
      std::uint64_t a, b;
      __builtin_memcpy(&a, p, 8);
      __builtin_memcpy(&b, p + w.src_step, 8);
      a >>= chunk.shift[i];
      b >>= chunk.shift[i];
      __builtin_memcpy(chunk.upper + i * 8, &a, 8);
      __builtin_memcpy(chunk.lower + i * 8, &b, 8);
    }
  }
  for (int i = from; i < to; i += kGroup) {
    const F fx = LoadF(chunk.fx[0] + i), fy = LoadF(chunk.fy[0] + i), half = SetF(0.5f);
    F doubt = SetF(0);
    V result = Zero();
    V upper[2], lower[2];
    if constexpr (kChannels == 3) {
      upper[0] = Load(chunk.upper + i * 8);
      upper[1] = Load(chunk.upper + i * 8 + kV);
      lower[0] = Load(chunk.lower + i * 8);
      lower[1] = Load(chunk.lower + i * 8 + kV);
#if !PQ_WIDE
      // Low and high halves of the 8 bytes of all pixels, in order.
      const V order = _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7);
      const auto halves = [&](V(&v)[2]) {
        const V a = _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(v[0]), _mm256_castsi256_ps(v[1]), 0x88));
        const V b = _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(v[0]), _mm256_castsi256_ps(v[1]), 0xDD));
        v[0] = _mm256_permutevar8x32_epi32(a, order);
        v[1] = _mm256_permutevar8x32_epi32(b, order);
      };
      halves(upper);
      halves(lower);
#endif
    } else {
      upper[0] = Load(chunk.upper + i * 4);
      lower[0] = Load(chunk.lower + i * 4);
    }
    for (int c = 0; c < kChannels; ++c) {
      const V low_byte = Set32(255);
      V p0, p1, q0, q1;
      if constexpr (kChannels == 1) {
        p0 = And(upper[0], low_byte);
        p1 = ShiftRight(upper[0], 8);
        q0 = And(lower[0], low_byte);
        q1 = ShiftRight(lower[0], 8);
      } else {
#if PQ_WIDE
        const V at =
            Add32(Set32(c), _mm512_setr_epi32(0, 8, 16, 24, 32, 40, 48, 56, 64, 72, 80, 88, 96, 104, 112, 120));
        const V behind = Add32(at, Set32(3));
        constexpr VMask kFirst = 0x1111111111111111;
        p0 = _mm512_maskz_permutex2var_epi8(kFirst, upper[0], at, upper[1]);
        p1 = _mm512_maskz_permutex2var_epi8(kFirst, upper[0], behind, upper[1]);
        q0 = _mm512_maskz_permutex2var_epi8(kFirst, lower[0], at, lower[1]);
        q1 = _mm512_maskz_permutex2var_epi8(kFirst, lower[0], behind, lower[1]);
#else
        const auto byte = [&](const V(&v)[2], int n) { return And(ShiftRight(v[n / 4], n % 4 * 8), low_byte); };
        p0 = byte(upper, c);
        p1 = byte(upper, c + 3);
        q0 = byte(lower, c);
        q1 = byte(lower, c + 3);
#endif
      }
      const F top = FusedLerp(ToFloat(p0), ToFloat(p1), fx), bottom = FusedLerp(ToFloat(q0), ToFloat(q1), fx);
      const F value = FusedLerp(top, bottom, fy);
      doubt = Larger(doubt, FromHalf(value));
      result = Or(result, ShiftLeft(Truncate(Add(value, half)), 8 * c));
    }
    u8* const to_pixels = out + (i - from) * kChannels;
    if (kChannels == 3) {
      StoreThree(to_pixels, result);
    } else {
      StoreOne(to_pixels, result);
    }
    // Weights in 64ths make every step exact; halves then round up as they should.
    unsigned doubtful = exact[i / kGroup] ? 0 : Above(doubt, kDoubt);
    for (; doubtful != 0; doubtful &= doubtful - 1) {
      const int at = x + i + __builtin_ctz(doubtful);
      sampling::DrawSpan(w, y, at, at);
    }
  }
}

}  // namespace

[[maybe_unused]] static __attribute__((noinline)) void FusedLinearOne(const sampling::Warp& w, Chunk& chunk, int y,
                                                                      int x, int from, int to, u8* out) {
  Linear<1>(w, chunk, y, x, from, to, out);
}
[[maybe_unused]] static __attribute__((noinline)) void FusedLinearThree(const sampling::Warp& w, Chunk& chunk, int y,
                                                                        int x, int from, int to, u8* out) {
  Linear<3>(w, chunk, y, x, from, to, out);
}

namespace {

// ---- cubic --------------------------------------------------------------------------------------------------------

// The first of four samples, moved into the picture, and the polynomial's coefficients.
PQ_INLINE V FoursAt(const double* positions, int extent, float (*abc)[kChunk], int i) {
  const D low = LoadD(positions), high = LoadD(positions + kGroup / 2);
  const V one = Set32(1);
  const V first = MinInt(MaxInt(SubInt(Whole(low, high), one), Zero()), Set32(extent - 4)), second = Add32(first, one);
  const F t = Narrow(Sub(low, LowWide(second)), Sub(high, HighWide(second)));
  const F a = Add(SetF(1), t), b = Mul(Mul(t, a), SetF(0.5f));
  PQ_SI(store_ps)(abc[0] + i, a);
  PQ_SI(store_ps)(abc[1] + i, b);
  PQ_SI(store_ps)(abc[2] + i, PQ_SI(div_ps)(Mul(Sub(t, SetF(1)), b), SetF(3)));
  return first;
}

PQ_INLINE F Newton(F p0, F p1, F p2, F p3, F a, F b, F c) {
  const F d1 = Sub(p1, p0), d2 = Sub(Sub(p2, p1), d1), d3 = Sub(Sub(Add(p3, Sub(p1, p2)), p2), d2);
  return Add(Add(Add(p0, Mul(a, d1)), Mul(b, d2)), Mul(c, d3));
}

PQ_INLINE V CubicResult(F v) { return Truncate(PQ_SI(min_ps)(PQ_SI(max_ps)(Add(v, SetF(0.5f)), SetF(0)), SetF(255))); }

__attribute__((noinline)) void CubicOne(const sampling::Warp& w, Chunk& chunk, int from, int to, u8* out) {
  const V step = Set32(static_cast<int>(w.src_step));
  for (int i = from; i < to; i += kGroup) {
    const V column = FoursAt(chunk.x + i, w.size.width, chunk.fx, i);
    Store(chunk.offset + i, Add32(column, MulInt(FoursAt(chunk.y + i, w.size.height, chunk.fy, i), step)));
  }
  for (int i = from; i < to; ++i) {
    const u8* p = w.src + chunk.offset[i];
    for (int r = 0; r < 4; ++r) __builtin_memcpy(chunk.rows[r] + i * 4, p + r * w.src_step, 4);
  }
  for (int i = from; i < to; i += kGroup) {
    const F a = LoadF(chunk.fx[0] + i), b = LoadF(chunk.fx[1] + i), c = LoadF(chunk.fx[2] + i);
    const V low_byte = Set32(255);
    F row[4];
    for (int r = 0; r < 4; ++r) {
      const V v = Load(chunk.rows[r] + i * 4);
      row[r] = Newton(ToFloat(And(v, low_byte)), ToFloat(And(ShiftRight(v, 8), low_byte)),
                      ToFloat(And(ShiftRight(v, 16), low_byte)), ToFloat(ShiftRight(v, 24)), a, b, c);
    }
    StoreOne(out + (i - from), CubicResult(Newton(row[0], row[1], row[2], row[3], LoadF(chunk.fy[0] + i),
                                                  LoadF(chunk.fy[1] + i), LoadF(chunk.fy[2] + i))));
  }
}

// Bytes n * 3 + shift .. of 16 to the lanes of a pixel's channels.
struct Spread {
  alignas(64) u8 order[5][4][16];
};
constexpr Spread MakeSpread() {
  Spread s{};
  for (int shift = 0; shift < 5; ++shift) {
    for (int n = 0; n < 4; ++n) {
      for (int b = 0; b < 16; ++b) {
        s.order[shift][n][b] = static_cast<u8>(b % 4 == 0 && b < 12 ? n * 3 + shift + b / 4 : 128);
      }
    }
  }
  return s;
}
constexpr Spread kSpread = MakeSpread();

// Three channels: a vector holds the four channel lanes (the last is idle) of kRows source rows of one pixel; then rows
// and pixels change places and kRows pixels are finished together.
__attribute__((noinline)) void CubicThree(const sampling::Warp& w, Chunk& chunk, int from, int to, u8* out) {
  constexpr int kRows = kV / 16;
  const V step = Set32(static_cast<int>(w.src_step));
  const V room = Set32(w.size.width * 3 - 16);  // the last place in a row where 16 bytes may be read
  for (int i = from; i < to; i += kGroup) {
    const V column = FoursAt(chunk.x + i, w.size.width, chunk.fx, i);
    const V wanted = Add32(column, Add32(column, column)), first = MinInt(wanted, room);
    Store(chunk.shift + i, SubInt(wanted, first));
    Store(chunk.offset + i, Add32(first, MulInt(FoursAt(chunk.y + i, w.size.height, chunk.fy, i), step)));
  }
  for (int i = from; i < to; i += kRows) {
    F lines[kRows][4 / kRows];  // [pixel][rows of it]
    for (int k = 0; k < kRows; ++k) {
      const u8* p = w.src + chunk.offset[i + k];
      const auto* order = kSpread.order[chunk.shift[i + k]];
      const F a = SetF(chunk.fx[0][i + k]), b = SetF(chunk.fx[1][i + k]), c = SetF(chunk.fx[2][i + k]);
      for (int part = 0; part < 4 / kRows; ++part) {
        const auto load = [&](int r) {
          return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + (part * kRows + r) * w.src_step));
        };
        V v;
#if PQ_WIDE
        v = _mm512_castsi128_si512(load(0));
        v = _mm512_inserti32x4(v, load(1), 1);
        v = _mm512_inserti32x4(v, load(2), 2);
        v = _mm512_inserti32x4(v, load(3), 3);
#else
        v = _mm256_inserti128_si256(_mm256_castsi128_si256(load(0)), load(1), 1);
#endif
        const auto sample = [&](int n) {
          return ToFloat(Shuffle8(v, Lanes(_mm_load_si128(reinterpret_cast<const __m128i*>(order[n])))));
        };
        lines[k][part] = Newton(sample(0), sample(1), sample(2), sample(3), a, b, c);
      }
    }
    F row[4];
#if PQ_WIDE
    const F ab = _mm512_shuffle_f32x4(lines[0][0], lines[1][0], 0x44),
            cd = _mm512_shuffle_f32x4(lines[2][0], lines[3][0], 0x44);
    const F ef = _mm512_shuffle_f32x4(lines[0][0], lines[1][0], 0xEE),
            gh = _mm512_shuffle_f32x4(lines[2][0], lines[3][0], 0xEE);
    row[0] = _mm512_shuffle_f32x4(ab, cd, 0x88);
    row[1] = _mm512_shuffle_f32x4(ab, cd, 0xDD);
    row[2] = _mm512_shuffle_f32x4(ef, gh, 0x88);
    row[3] = _mm512_shuffle_f32x4(ef, gh, 0xDD);
    const V each = _mm512_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3);
    const auto weight = [&](int n) {
      return _mm512_permutexvar_ps(each, _mm512_castps128_ps512(_mm_loadu_ps(chunk.fy[n] + i)));
    };
#else
    for (int part = 0; part < 2; ++part) {
      row[2 * part] = _mm256_permute2f128_ps(lines[0][part], lines[1][part], 0x20);
      row[2 * part + 1] = _mm256_permute2f128_ps(lines[0][part], lines[1][part], 0x31);
    }
    const auto weight = [&](int n) {
      return _mm256_set_m128(_mm_set1_ps(chunk.fy[n][i + 1]), _mm_set1_ps(chunk.fy[n][i]));
    };
#endif
    const V v = CubicResult(Newton(row[0], row[1], row[2], row[3], weight(0), weight(1), weight(2)));
    u8* const pixels = out + (i - from) * 3;
#if PQ_WIDE
    const __m128i packed = _mm_shuffle_epi8(_mm512_cvtepi32_epi8(v),
                                            _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    _mm_mask_storeu_epi8(pixels, 0xFFF, packed);
#else
    const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    const __m128i packed = _mm_shuffle_epi8(_mm_packus_epi16(words, words),
                                            _mm_setr_epi8(0, 1, 2, 4, 5, 6, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
    const std::uint64_t six = static_cast<std::uint64_t>(_mm_cvtsi128_si64(packed));
    __builtin_memcpy(pixels, &six, 6);
#endif
  }
}

// ---- spans --------------------------------------------------------------------------------------------------------

// Where 32-bit offsets and the loads of the samplers don't reach: pictures of 2^31 bytes, or too narrow ones.
template <int kChannels>
PQ_INLINE bool Suits(const sampling::Warp& w) {
  const std::int64_t bytes = w.src_step * (w.size.height - 1) + std::int64_t{w.size.width} * kChannels;
  return bytes < (std::int64_t{1} << 31) - 64 && w.size.width >= 8;
}

template <int kChannels>
bool DrawVectors(const sampling::Warp& w, int y, int first, int last) {
  if (last - first + 1 < kGroup || !Suits<kChannels>(w)) return sampling::DrawSpan(w, y, first, last);
  Chunk chunk;
  bool drawn = false;
  u8* const row = w.dst + y * w.dst_step;
  int x = first;
  while (x <= last) {
    int count = last - x + 1 < kChunk ? (last - x + 1) / kGroup * kGroup : kChunk;
    if (count == 0) {  // the last group overlaps the one before
      count = kGroup;
      x = last - kGroup + 1;
    }
    FindPositions(w, y, x, count, chunk);
    for (int i = 0; i < count;) {
      const unsigned inside = chunk.inside[i / kGroup];
      if (inside != kAllInside) {
        if (inside != 0) {
          sampling::DrawSpan(w, y, x + i, x + i + kGroup - 1);
          drawn = true;
        }
        i += kGroup;
        continue;
      }
      const int from = i;
      do i += kGroup;
      while (i < count && chunk.inside[i / kGroup] == kAllInside);
      drawn = true;
      u8* const out = row + (std::ptrdiff_t{x} + from) * kChannels;
      if (w.code == sampling::kNearest) {
        SampleNearest<kChannels>(w, chunk, from, i, out);
      } else if (w.code == sampling::kLinear) {
        (kChannels == 3 ? FusedLinearThree : FusedLinearOne)(w, chunk, y, x, from, i, out);
      } else if (kChannels == 3) {
        CubicThree(w, chunk, from, i, out);
      } else {
        CubicOne(w, chunk, from, i, out);
      }
    }
    x += count;
  }
  return drawn;
}

#undef PQ_SI

}  // namespace
}  // namespace PQ_TARGET
}  // namespace pantiq
