// The colour conversions LUV and Lab with vectors: one source for a6, w7 and t7.
//
// They compute in double precision, with factors drawn together and with fused operations, so intermediate values
// differ from the plain form's by some 1e-13. No result of the 2^24 colours lies that close to where it would change:
// the test of all colours is the proof. The way to Lab uses single precision and turns to doubles where that cannot
// decide; the cube roots there are coarser, some 2e-11, which is proved the same way.
//
// Double words of pixels stand in the order that PackS16 and PackU8 put right: quarter j of a block holds pixels 16 i +
// 4 j to 16 i + 4 j + 3 for every i.
#include "pantiq/kernels/PQColorVec.h"

namespace pantiq {
namespace PQ_TARGET {

#if PQ_WIDE
using D = __m512d;
using Ints = __m256i;   // as many as D holds
using Floats = __m512;  // twice as many
PQ_INLINE D SetD(double v) { return _mm512_set1_pd(v); }
PQ_INLINE D AddD(D a, D b) { return _mm512_add_pd(a, b); }
PQ_INLINE D SubD(D a, D b) { return _mm512_sub_pd(a, b); }
PQ_INLINE D MulD(D a, D b) { return _mm512_mul_pd(a, b); }
PQ_INLINE D DivD(D a, D b) { return _mm512_div_pd(a, b); }
PQ_INLINE D MaxD(D a, D b) { return _mm512_max_pd(a, b); }
PQ_INLINE D MinD(D a, D b) { return _mm512_min_pd(a, b); }
PQ_INLINE D FmaD(D a, D b, D c) { return _mm512_fmadd_pd(a, b, c); }
PQ_INLINE D FnmaD(D a, D b, D c) { return _mm512_fnmadd_pd(a, b, c); }  // c - a * b
PQ_INLINE D IfAboveD(D a, D bound, D above, D other) {
  return _mm512_mask_blend_pd(_mm512_cmp_pd_mask(a, bound, _CMP_GT_OQ), other, above);
}
PQ_INLINE D ToDouble(V ints, int half) {
  return _mm512_cvtepi32_pd(half ? _mm512_extracti64x4_epi64(ints, 1) : _mm512_castsi512_si256(ints));
}
PQ_INLINE D ToDouble(Floats v, int half) {
  return _mm512_cvtps_pd(half ? _mm512_extractf32x8_ps(v, 1) : _mm512_castps512_ps256(v));
}
PQ_INLINE V Truncated(D low, D high) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(low)), _mm512_cvttpd_epi32(high), 1);
}
PQ_INLINE Floats ToFloat(D low, D high) {
  return _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps(low)), _mm512_cvtpd_ps(high), 1);
}
PQ_INLINE Floats SetF(float v) { return _mm512_set1_ps(v); }
PQ_INLINE Floats SubF(Floats a, Floats b) { return _mm512_sub_ps(a, b); }
PQ_INLINE Floats IfAboveF(Floats a, Floats bound, Floats above, Floats other) {
  return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(a, bound, _CMP_GT_OQ), other, above);
}
PQ_INLINE Floats ToFloat(V ints) { return _mm512_cvtepi32_ps(ints); }
PQ_INLINE V Truncated(Floats v) { return _mm512_cvttps_epi32(v); }
PQ_INLINE Floats FromWhole(Floats v) { return _mm512_abs_ps(_mm512_sub_ps(v, _mm512_roundscale_ps(v, 0))); }
PQ_INLINE Floats MinF(Floats a, Floats b) { return _mm512_min_ps(a, b); }
PQ_INLINE bool AnyBelow(Floats a, float bound) { return _mm512_cmp_ps_mask(a, SetF(bound), _CMP_LT_OQ) != 0; }
PQ_INLINE Floats MulF(Floats a, Floats b) { return _mm512_mul_ps(a, b); }
PQ_INLINE Floats FmaF(Floats a, Floats b, Floats c) { return _mm512_fmadd_ps(a, b, c); }
PQ_INLINE Floats FnmaF(Floats a, Floats b, Floats c) { return _mm512_fnmadd_ps(a, b, c); }
PQ_INLINE Floats BitsToFloat(Floats v) { return _mm512_cvtepi32_ps(_mm512_castps_si512(v)); }
PQ_INLINE Floats FloatToBits(Floats v) { return _mm512_castsi512_ps(_mm512_cvtps_epi32(v)); }
#else
using D = __m256d;
using Floats = __m256;
PQ_INLINE D SetD(double v) { return _mm256_set1_pd(v); }
PQ_INLINE D AddD(D a, D b) { return _mm256_add_pd(a, b); }
PQ_INLINE D SubD(D a, D b) { return _mm256_sub_pd(a, b); }
PQ_INLINE D MulD(D a, D b) { return _mm256_mul_pd(a, b); }
PQ_INLINE D DivD(D a, D b) { return _mm256_div_pd(a, b); }
PQ_INLINE D MaxD(D a, D b) { return _mm256_max_pd(a, b); }
PQ_INLINE D MinD(D a, D b) { return _mm256_min_pd(a, b); }
PQ_INLINE D FmaD(D a, D b, D c) { return _mm256_fmadd_pd(a, b, c); }
PQ_INLINE D FnmaD(D a, D b, D c) { return _mm256_fnmadd_pd(a, b, c); }
PQ_INLINE D IfAboveD(D a, D bound, D above, D other) {
  return _mm256_blendv_pd(other, above, _mm256_cmp_pd(a, bound, _CMP_GT_OQ));
}
PQ_INLINE D ToDouble(V ints, int half) {
  return _mm256_cvtepi32_pd(half ? _mm256_extracti128_si256(ints, 1) : _mm256_castsi256_si128(ints));
}
PQ_INLINE D ToDouble(Floats v, int half) {
  return _mm256_cvtps_pd(half ? _mm256_extractf128_ps(v, 1) : _mm256_castps256_ps128(v));
}
PQ_INLINE V Truncated(D low, D high) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm256_cvttpd_epi32(low)), _mm256_cvttpd_epi32(high), 1);
}
PQ_INLINE Floats ToFloat(D low, D high) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(low)), _mm256_cvtpd_ps(high), 1);
}
PQ_INLINE Floats SetF(float v) { return _mm256_set1_ps(v); }
PQ_INLINE Floats SubF(Floats a, Floats b) { return _mm256_sub_ps(a, b); }
PQ_INLINE Floats IfAboveF(Floats a, Floats bound, Floats above, Floats other) {
  return _mm256_blendv_ps(other, above, _mm256_cmp_ps(a, bound, _CMP_GT_OQ));
}
PQ_INLINE Floats ToFloat(V ints) { return _mm256_cvtepi32_ps(ints); }
PQ_INLINE V Truncated(Floats v) { return _mm256_cvttps_epi32(v); }
PQ_INLINE Floats FromWhole(Floats v) {
  return _mm256_andnot_ps(SetF(-0.0f),
                          _mm256_sub_ps(v, _mm256_round_ps(v, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC)));
}
PQ_INLINE Floats MinF(Floats a, Floats b) { return _mm256_min_ps(a, b); }
PQ_INLINE bool AnyBelow(Floats a, float bound) {
  return _mm256_movemask_ps(_mm256_cmp_ps(a, SetF(bound), _CMP_LT_OQ)) != 0;
}
PQ_INLINE Floats MulF(Floats a, Floats b) { return _mm256_mul_ps(a, b); }
PQ_INLINE Floats FmaF(Floats a, Floats b, Floats c) { return _mm256_fmadd_ps(a, b, c); }
PQ_INLINE Floats FnmaF(Floats a, Floats b, Floats c) { return _mm256_fnmadd_ps(a, b, c); }
PQ_INLINE Floats BitsToFloat(Floats v) { return _mm256_cvtepi32_ps(_mm256_castps_si256(v)); }
PQ_INLINE Floats FloatToBits(Floats v) { return _mm256_castsi256_ps(_mm256_cvtps_epi32(v)); }
#endif

// Quarter j of a byte vector as double words.
PQ_INLINE V Quarter(V bytes, int j) {
  const V words = HalfWords(bytes, j >> 1);
  return j & 1 ? High16(words, Zero()) : Low16(words, Zero());
}
PQ_INLINE V PackQuarters(const V (&q)[4]) { return PackU8(PackS16(q[0], q[1]), PackS16(q[2], q[3])); }

PQ_INLINE D Weighted(const D (&c)[3], double k0, double k1, double k2) {
  return FmaD(c[2], SetD(k2), FmaD(c[1], SetD(k1), MulD(c[0], SetD(k0))));
}
PQ_INLINE D Limited(D v) { return MinD(MaxD(v, SetD(0.0)), SetD(255.0)); }

// ---- LUV.

static __attribute__((noinline)) void FusedRGBToLUV(const Interleave3& t, const u8* src, u8* dst,
                                                    std::ptrdiff_t width) {
  using namespace color;
  // u = 4 X / D and v = 9 Y / D with numerators and D times 255. D is 0 for black alone, whose L is 0.
  constexpr double kDR = 15 * kYR + kXR + 3 * kZR, kDG = 15 * kYG + kXG + 3 * kZG, kDB = 15 * kYB + kXB + 3 * kZB;
  const Table256 luminance = MakeTable256(kLuminance);
  ConvertRow(t, src, dst, width, [&](const V(&in)[3], V(&out)[3]) {
    V index[4], u[4], v[4];
    D y[4][2];
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j) {
      const V q[3] = {Quarter(in[0], j), Quarter(in[1], j), Quarter(in[2], j)};
      for (int h = 0; h < 2; ++h) {
        const D c[3] = {ToDouble(q[0], h), ToDouble(q[1], h), ToDouble(q[2], h)};
        y[j][h] = Weighted(c, kYR, kYG, kYB);
      }
      index[j] = Truncated(AddD(y[j][0], SetD(kHalf)), AddD(y[j][1], SetD(kHalf)));
    }
    out[0] = LookUp(luminance, PackQuarters(index));
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j) {
      const V q[3] = {Quarter(in[0], j), Quarter(in[1], j), Quarter(in[2], j)}, ls = Quarter(out[0], j);
      D result[2][2];
      for (int h = 0; h < 2; ++h) {
        const D c[3] = {ToDouble(q[0], h), ToDouble(q[1], h), ToDouble(q[2], h)}, l = ToDouble(ls, h);
        const D scale = DivD(l, MaxD(Weighted(c, kDR, kDG, kDB), SetD(1e-3)));
        const D x = Weighted(c, 4 * kLuvUScale * kXR, 4 * kLuvUScale * kXG, 4 * kLuvUScale * kXB);
        result[0][h] = FmaD(x, scale, FnmaD(l, SetD(kLuvU * kLuvUScale), SetD(kLuvUOffset)));
        result[1][h] =
            FmaD(MulD(y[j][h], SetD(9 * kLuvVScale)), scale, FnmaD(l, SetD(kLuvV * kLuvVScale), SetD(kLuvVOffset)));
      }
      u[j] = Truncated(result[0][0], result[0][1]);
      v[j] = Truncated(result[1][0], result[1][1]);
    }
    out[1] = PackQuarters(u);
    out[2] = PackQuarters(v);
  });
}

// With W = 13 l, u = P / W and v = Q / W: t = Y W / Q, X = 2.25 Y P / Q, Z = 3 Y W / Q - 5 Y - 0.75 Y P / Q, so that
// one division by Q does it. Q is never 0. Where l is 0, Y is 0 and so are the three results.
static __attribute__((noinline)) void FusedLUVToRGB(const Interleave3& t, const u8* src, u8* dst,
                                                    std::ptrdiff_t width) {
  using namespace color;
  ConvertRow(t, src, dst, width, [&](const V(&in)[3], V(&out)[3]) {
    V rgb[3][4];
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j) {
      const V q[3] = {Quarter(in[0], j), Quarter(in[1], j), Quarter(in[2], j)};
      D result[3][2];
      for (int h = 0; h < 2; ++h) {
        const D l = MulD(ToDouble(q[0], h), SetD(100.0 / 255)), w = MulD(l, SetD(13.0));
        const D root = FmaD(l, SetD(1.0 / 116), SetD(16.0 / 116));
        const D y =
            IfAboveD(SetD(kLuvLinear), l, MulD(l, SetD(255 / kSlope)), MulD(MulD(MulD(root, SetD(255.0)), root), root));
        const D un = FmaD(w, SetD(kLuvBackU), FmaD(ToDouble(q[1], h), SetD(354.0 / 255), SetD(-134.0)));
        const D vn = FmaD(w, SetD(kLuvBackV), FmaD(ToDouble(q[2], h), SetD(262.0 / 255), SetD(-140.0)));
        const D y_q = DivD(y, vn), y_p = MulD(y_q, un), y_w = MulD(y_q, w);
        const auto row = [&](double kx, double ky, double kz) {
          return Limited(
              FmaD(y_p, SetD(2.25 * kx - 0.75 * kz), FmaD(y_w, SetD(3 * kz), FmaD(y, SetD(ky - 5 * kz), SetD(kHalf)))));
        };
        result[0][h] = row(kRX, kRY, kRZ);
        result[1][h] = row(kGX, kGY, kGZ);
        result[2][h] = row(kBX, kBY, kBZ);
      }
      for (int k = 0; k < 3; ++k) rgb[k][j] = Truncated(result[k][0], result[k][1]);
    }
    for (int k = 0; k < 3; ++k) out[k] = PackQuarters(rgb[k]);
  });
}

// ---- Lab.

// w^0.33333334, linear near black, of x, y and z; one after the other they would wait for their own steps. z, the
// reciprocal cube root, comes from the bits of w and one step in single precision, good to 2e-5. With h = 1 - w z^3 the
// cube root is w z^2 (1 + 2 / 3 h + 5 / 9 h^2), taken in double precision. The exponent is larger than a third by e =
// 9.93e-9, which adds e * r * log(w) = 3 e r log(r) to the root r: a polynomial, 2e-11 at most from it where the root
// is in use.
constexpr int kRoots = 3;
PQ_INLINE void LabRoots(const D (&w)[kRoots][2], D (&f)[kRoots][2]) {
  Floats x[kRoots], z[kRoots], h[kRoots], root[kRoots], more[kRoots];
#define PQ_EACH for (int k = 0; k < kRoots; ++k)
  PQ_EACH x[k] = ToFloat(w[k][0], w[k][1]);
  PQ_EACH z[k] = FloatToBits(FnmaF(BitsToFloat(x[k]), SetF(1.0f / 3), SetF(1419967104.0f)));
  PQ_EACH h[k] = MulF(z[k], z[k]);
  PQ_EACH h[k] = MulF(h[k], z[k]);
  PQ_EACH h[k] = FnmaF(h[k], x[k], SetF(1.0f));
  PQ_EACH more[k] = FmaF(h[k], SetF(14.0f / 81), SetF(2.0f / 9));
  PQ_EACH more[k] = FmaF(h[k], more[k], SetF(1.0f / 3));
  PQ_EACH h[k] = MulF(z[k], h[k]);
  PQ_EACH z[k] = FmaF(h[k], more[k], z[k]);
  PQ_EACH root[k] = MulF(MulF(z[k], x[k]), z[k]);
  PQ_EACH more[k] = FmaF(root[k], SetF(1.4499432162158143e-08f), SetF(-5.144827661638951e-08f));
  PQ_EACH more[k] = FmaF(root[k], more[k], SetF(8.601906975190131e-08f));
  PQ_EACH more[k] = FmaF(root[k], more[k], SetF(-4.5490004895207774e-08f));
  PQ_EACH more[k] = FmaF(root[k], more[k], SetF(-3.5738453963096576e-09f));
#pragma GCC unroll 2
  for (int i = 0; i < 2; ++i) {
    D zd[kRoots], z2[kRoots], hd[kRoots], r[kRoots];
    PQ_EACH zd[k] = ToDouble(z[k], i);
    PQ_EACH z2[k] = MulD(zd[k], zd[k]);
    PQ_EACH r[k] = MulD(z2[k], w[k][i]);
    PQ_EACH hd[k] = FnmaD(r[k], zd[k], SetD(1.0));
    PQ_EACH z2[k] = FmaD(hd[k], SetD(5.0 / 9), SetD(2.0 / 3));
    PQ_EACH hd[k] = MulD(r[k], hd[k]);
    PQ_EACH r[k] = AddD(r[k], ToDouble(more[k], i));
    PQ_EACH r[k] = FmaD(hd[k], z2[k], r[k]);
    PQ_EACH f[k][i] = IfAboveD(w[k][i], SetD(color::kLabLinear), r[k],
                               FmaD(w[k][i], SetD(color::kLabSlope), SetD(color::kLabOffset)));
  }
#undef PQ_EACH
}

// One quarter in double precision.
static __attribute__((noinline)) void FusedExactLab(const V (&q)[3], V (&lab)[3]) {
  using namespace color;
  D w[3][2], f[3][2], result[3][2];
  for (int h = 0; h < 2; ++h) {
    const D c[3] = {ToDouble(q[0], h), ToDouble(q[1], h), ToDouble(q[2], h)};
    w[0][h] = Weighted(c, kXB / kLabX, kXG / kLabX, kXR / kLabX);
    w[1][h] = Weighted(c, kYB / 255, kYG / 255, kYR / 255);
    w[2][h] = Weighted(c, kZB / kLabZ, kZG / kLabZ, kZR / kLabZ);
  }
  LabRoots(w, f);
  for (int h = 0; h < 2; ++h) {
    result[0][h] = IfAboveD(w[1][h], SetD(kLabLinear), FmaD(f[1][h], SetD(116 * 2.55), SetD(0.5 - 16 * 2.55)),
                            FmaD(w[1][h], SetD(kSlope * 2.55), SetD(0.5)));
    result[1][h] = FmaD(SubD(f[0][h], f[1][h]), SetD(500.0), SetD(128.5));
    result[2][h] = FmaD(SubD(f[1][h], f[2][h]), SetD(200.0), SetD(128.5));
  }
  for (int k = 0; k < 3; ++k) lab[k] = Truncated(result[k][0], result[k][1]);
}

// The three values of a quarter before they are truncated, in single precision: some 3e-5 wrong. Where one of them is
// closer than kLabDoubt to a whole number the quarter is made again in double precision.
constexpr float kLabDoubt = 2e-4f;
PQ_INLINE void LabInSingle(const V (&q)[3], Floats (&lab)[3]) {
  using namespace color;
  const auto single = [](double v) { return SetF(static_cast<float>(v)); };
  const Floats b = ToFloat(q[0]), g = ToFloat(q[1]), r = ToFloat(q[2]);
  Floats w[kRoots], z[kRoots], h[kRoots], f[kRoots], series[kRoots];
#define PQ_EACH for (int k = 0; k < kRoots; ++k)
  w[0] = FmaF(r, single(kXR / kLabX), FmaF(g, single(kXG / kLabX), MulF(b, single(kXB / kLabX))));
  w[1] = FmaF(r, single(kYR / 255), FmaF(g, single(kYG / 255), MulF(b, single(kYB / 255))));
  w[2] = FmaF(r, single(kZR / kLabZ), FmaF(g, single(kZG / kLabZ), MulF(b, single(kZB / kLabZ))));
  PQ_EACH z[k] = FloatToBits(FnmaF(BitsToFloat(w[k]), SetF(1.0f / 3), SetF(1419967104.0f)));
  PQ_EACH h[k] = MulF(z[k], z[k]);
  PQ_EACH h[k] = MulF(h[k], z[k]);
  PQ_EACH h[k] = FnmaF(h[k], w[k], SetF(1.0f));
  PQ_EACH series[k] = FmaF(h[k], SetF(14.0f / 81), SetF(2.0f / 9));
  PQ_EACH series[k] = FmaF(h[k], series[k], SetF(1.0f / 3));
  PQ_EACH h[k] = MulF(z[k], h[k]);
  PQ_EACH z[k] = FmaF(h[k], series[k], z[k]);
  // The root of the last step, w z^2 (1 + 2 / 3 h).
  PQ_EACH f[k] = MulF(MulF(z[k], z[k]), w[k]);
  PQ_EACH h[k] = FnmaF(f[k], z[k], SetF(1.0f));
  PQ_EACH h[k] = MulF(h[k], SetF(2.0f / 3));
  PQ_EACH f[k] = FmaF(f[k], h[k], f[k]);
  PQ_EACH f[k] = IfAboveF(w[k], single(kLabLinear), f[k], FmaF(w[k], single(kLabSlope), single(kLabOffset)));
#undef PQ_EACH
  lab[0] = IfAboveF(w[1], single(kLabLinear), FmaF(f[1], single(116 * 2.55), single(0.5 - 16 * 2.55)),
                    FmaF(w[1], single(kSlope * 2.55), SetF(0.5f)));
  lab[1] = FmaF(SubF(f[0], f[1]), SetF(500.0f), SetF(128.5f));
  lab[2] = FmaF(SubF(f[1], f[2]), SetF(200.0f), SetF(128.5f));
}

static __attribute__((noinline)) void FusedBGRToLab(const Interleave3& t, const u8* src, u8* dst,
                                                    std::ptrdiff_t width) {
  ConvertRow(t, src, dst, width, [&](const V(&in)[3], V(&out)[3]) {
    V lab[3][4];
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j) {
      const V q[3] = {Quarter(in[0], j), Quarter(in[1], j), Quarter(in[2], j)};
      Floats single[3];
      LabInSingle(q, single);
      const Floats close = MinF(MinF(FromWhole(single[0]), FromWhole(single[1])), FromWhole(single[2]));
      if (__builtin_expect(AnyBelow(close, kLabDoubt), 0)) {
        V exact[3];
        FusedExactLab(q, exact);
        for (int k = 0; k < 3; ++k) lab[k][j] = exact[k];
      } else {
        for (int k = 0; k < 3; ++k) lab[k][j] = Truncated(single[k]);
      }
    }
    for (int k = 0; k < 3; ++k) out[k] = PackQuarters(lab[k]);
  });
}

static __attribute__((noinline)) void FusedLabToBGR(const Interleave3& t, const u8* src, u8* dst,
                                                    std::ptrdiff_t width) {
  using namespace color;
  ConvertRow(t, src, dst, width, [&](const V(&in)[3], V(&out)[3]) {
    V bgr[3][4];
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j) {
      const V q[3] = {Quarter(in[0], j), Quarter(in[1], j), Quarter(in[2], j)};
      D result[3][2];
      for (int h = 0; h < 2; ++h) {
        const D fy = FmaD(ToDouble(q[0], h), SetD(100.0 / 255 / 116), SetD(16.0 / 116));
        const D fx = AddD(fy, FmaD(ToDouble(q[1], h), SetD(1.0 / 500), SetD(-128.0 / 500)));
        const D fz = SubD(fy, FmaD(ToDouble(q[2], h), SetD(1.0 / 200), SetD(-128.0 / 200)));
        const D x = MulD(MulD(fx, fx), fx), y = MulD(MulD(fy, fy), fy), z = MulD(MulD(fz, fz), fz);
        const auto row = [&](double kx, double ky, double kz) {
          return FmaD(x, SetD(kx * kLabX), FmaD(y, SetD(ky * 255), FmaD(z, SetD(kz * kLabZ), SetD(0.5))));
        };
        result[0][h] = row(kBX, kBY, kBZ);
        result[1][h] = row(kGX, kGY, kGZ);
        result[2][h] = row(kRX, kRY, kRZ);
      }
      for (int k = 0; k < 3; ++k) bgr[k][j] = Truncated(result[k][0], result[k][1]);
    }
    for (int k = 0; k < 3; ++k) out[k] = PackQuarters(bgr[k]);  // limits
  });
}

}  // namespace PQ_TARGET

using namespace PQ_TARGET;

#define PQ_CONVERSION(name)                                                                                   \
  IppStatus PQ_VARIANT(ippi##name##_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) { \
    const int mode = PQRoundToNearest();                                                                      \
    const Interleave3 t = MakeInterleave3();                                                                  \
    const IppStatus status =                                                                                  \
        ConvertRows(src, srcStep, dst, dstStep, roi,                                                          \
                    [&t](const u8* p, u8* o, std::ptrdiff_t width) { Fused##name(t, p, o, width); });         \
    PQRestoreRounding(mode);                                                                                  \
    return status;                                                                                            \
  }
PQ_CONVERSION(RGBToLUV)
PQ_CONVERSION(LUVToRGB)
PQ_CONVERSION(BGRToLab)
PQ_CONVERSION(LabToBGR)
#undef PQ_CONVERSION

}  // namespace pantiq
