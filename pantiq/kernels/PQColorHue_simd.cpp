// The colour conversions by hue with vectors: one source for a6, w7 and t7.
//
// With channels and results as whole numbers, every result of HLS and HSV is a fraction of whole numbers. Its
// denominator is at most 2 * 255 on the way from RGB and 255 or 65025 on the way back, so results that are not halves
// keep a known distance from the halves, and single precision decides them all:
//   hue        H = 85 N / (2 d) + {0, 85, 170, 255}, N the difference of the two channels that are not the sector's
//   saturation S = 255 d / mx (HSV) or 255 d / min(mx + mn, 510 - mx - mn) (HLS)
// Back, 6 H = 255 i + F gives the sector i and the place F within it (H = 255 counts as 0). One channel is the
// greatest, one the least and one, with w = F in even sectors and 255 - F in odd ones, between:
//   HSV: V, V - S V / 255 and V - S V (255 - w) / 65025
//   HLS, with D = S min(L, 255 - L): L + D / 255, L - D / 255 and L + D (2 w - 255) / 65025
// Odd denominators leave no halves. A fraction of 65025 keeps 7.69e-6 from them, and a correctly rounded quotient below
// 256 is at most 7.63e-6 wrong.
#include "pantiq/kernels/PQColorVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

#if PQ_WIDE
using F = __m512;
using M = __mmask64;
PQ_INLINE F SetF(float v) { return _mm512_set1_ps(v); }
PQ_INLINE F SubF(F a, F b) { return _mm512_sub_ps(a, b); }
PQ_INLINE F MulF(F a, F b) { return _mm512_mul_ps(a, b); }
PQ_INLINE F DivF(F a, F b) { return _mm512_div_ps(a, b); }
PQ_INLINE F FromInt(V v) { return _mm512_cvtepi32_ps(v); }
PQ_INLINE V Rounded(F v) { return _mm512_cvtps_epi32(v); }
PQ_INLINE M Equal8(V a, V b) { return _mm512_cmpeq_epi8_mask(a, b); }
PQ_INLINE M AtLeast8(V a, V b) { return _mm512_cmpge_epu8_mask(a, b); }
PQ_INLINE V Pick(M m, V yes, V no) { return _mm512_mask_blend_epi8(m, no, yes); }
PQ_INLINE V PickByTop(V m, V yes, V no) { return Pick(_mm512_movepi8_mask(m), yes, no); }  // the top bit of every byte
PQ_INLINE V CountOne(V count, M m) { return _mm512_mask_add_epi8(count, m, count, Set8(1)); }
PQ_INLINE V PackS8(V a, V b) { return _mm512_packs_epi16(a, b); }
PQ_INLINE V ShiftRight16By8(V a) { return _mm512_srli_epi16(a, 8); }
PQ_INLINE V ShiftLeft16By7(V a) { return _mm512_slli_epi16(a, 7); }
#else
using F = __m256;
using M = V;
PQ_INLINE F SetF(float v) { return _mm256_set1_ps(v); }
PQ_INLINE F SubF(F a, F b) { return _mm256_sub_ps(a, b); }
PQ_INLINE F MulF(F a, F b) { return _mm256_mul_ps(a, b); }
PQ_INLINE F DivF(F a, F b) { return _mm256_div_ps(a, b); }
PQ_INLINE F FromInt(V v) { return _mm256_cvtepi32_ps(v); }
PQ_INLINE V Rounded(F v) { return _mm256_cvtps_epi32(v); }
PQ_INLINE M Equal8(V a, V b) { return _mm256_cmpeq_epi8(a, b); }
PQ_INLINE M AtLeast8(V a, V b) { return _mm256_cmpeq_epi8(Max8(a, b), a); }
PQ_INLINE V Pick(M m, V yes, V no) { return _mm256_blendv_epi8(no, yes, m); }
PQ_INLINE V PickByTop(V m, V yes, V no) { return _mm256_blendv_epi8(no, yes, m); }
PQ_INLINE V CountOne(V count, M m) { return Sub8(count, m); }
PQ_INLINE V PackS8(V a, V b) { return _mm256_packs_epi16(a, b); }
PQ_INLINE V ShiftRight16By8(V a) { return _mm256_srli_epi16(a, 8); }
PQ_INLINE V ShiftLeft16By7(V a) { return _mm256_slli_epi16(a, 7); }
#endif

PQ_INLINE V Inverted8(V a) { return Xor(a, Set8(255)); }

// Double words of one half of a word vector, words on top: value * 65536.
PQ_INLINE V TopWords(V words, int half) { return half ? High16(Zero(), words) : Low16(Zero(), words); }
PQ_INLINE V LowWords(V words, int half) { return half ? High16(words, Zero()) : Low16(words, Zero()); }

// What differs from nearest with halves to even: halves go down. All that are no halves keep at least 1 / 510.
PQ_INLINE V RoundedDown(F v) { return Rounded(SubF(v, SetF(0.001f))); }

// H of both spaces. d is not below 1.
PQ_INLINE V Hue(V r, V g, V b, V mx, V d) {
  const M is_red = Equal8(mx, r), is_green = Equal8(mx, g);
  const V first = Pick(is_red, g, Pick(is_green, b, r)), second = Pick(is_red, b, Pick(is_green, r, g));
  const V red = Pick(AtLeast8(g, b), Zero(), Set8(255));
  const V offset = Pick(is_red, red, Pick(is_green, Set8(85), Set8(170)));
  V words[2];
#pragma GCC unroll 2
  for (int h = 0; h < 2; ++h) {
    const V n = Mul16(Sub16(HalfWords(first, h), HalfWords(second, h)), Set16(85)), w = HalfWords(d, h);
    const V twice = Add16(w, w);
    words[h] = PackS16(RoundedDown(DivF(FromInt(TopWords(n, 0)), FromInt(TopWords(twice, 0)))),
                       RoundedDown(DivF(FromInt(TopWords(n, 1)), FromInt(TopWords(twice, 1)))));
  }
  return Add8(PackS8(words[0], words[1]), offset);
}

// 255 d / whole; whole is not below 1.
PQ_INLINE V Saturation(V d, V whole) {
  V words[2];
#pragma GCC unroll 2
  for (int h = 0; h < 2; ++h) {
    const V n = Mul16(HalfWords(d, h), Set16(255)), w = HalfWords(whole, h);
    words[h] = PackS16(RoundedDown(DivF(FromInt(LowWords(n, 0)), FromInt(LowWords(w, 0)))),
                       RoundedDown(DivF(FromInt(LowWords(n, 1)), FromInt(LowWords(w, 1)))));
  }
  return PackU8(words[0], words[1]);
}

PQ_INLINE void RGBToHLS(const V (&in)[3], V (&out)[3]) {
  const V mx = Max8(Max8(in[0], in[1]), in[2]), mn = Min8(Min8(in[0], in[1]), in[2]), d = Sub8(mx, mn);
  const V one = Set8(1);
  const V sum = Min8(AddSat8(mx, mn), AddSat8(Inverted8(mx), Inverted8(mn)));
  out[0] = Hue(in[0], in[1], in[2], mx, Max8(d, one));
  // A half goes down.
  V l[2];
  for (int h = 0; h < 2; ++h) {
    const V s = Add16(HalfWords(mx, h), HalfWords(mn, h));
#if PQ_WIDE
    l[h] = _mm512_srli_epi16(s, 1);
#else
    l[h] = _mm256_srli_epi16(s, 1);
#endif
  }
  out[1] = PackU8(l[0], l[1]);
  out[2] = Saturation(d, Max8(sum, one));
}

PQ_INLINE void RGBToHSV(const V (&in)[3], V (&out)[3]) {
  const V mx = Max8(Max8(in[0], in[1]), in[2]), mn = Min8(Min8(in[0], in[1]), in[2]), d = Sub8(mx, mn);
  const V one = Set8(1);
  out[0] = Hue(in[0], in[1], in[2], mx, Max8(d, one));
  out[1] = Saturation(d, Max8(mx, one));
  out[2] = mx;
}

// The sector i of a hue, and w.
PQ_INLINE void Place(V hue, V& sector, V& w) {
  const V h = Pick(Equal8(hue, Set8(255)), Zero(), hue);
  sector = Zero();
  constexpr int kBounds[5] = {43, 85, 128, 170, 213};
  for (const int bound : kBounds) sector = CountOne(sector, AtLeast8(h, Set8(bound)));
  const V twice = Add8(h, h);
  const V f = Add8(Add8(twice, Add8(twice, twice)), sector);  // 6 H - 255 i, modulo 256
  w = PickByTop(ShiftLeft16By7(sector), Inverted8(f), f);
}

// Red, green and blue of the greatest, the middle and the least by sector.
PQ_INLINE void ByRole(V sector, V greatest, V middle, V least, V (&rgb)[3]) {
  constexpr char x = -1;
  const V greatest_is[3] = {Lanes(_mm_setr_epi8(x, 0, 0, 0, 0, x, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
                            Lanes(_mm_setr_epi8(0, x, x, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
                            Lanes(_mm_setr_epi8(0, 0, 0, x, x, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0))};
  const V middle_is[3] = {Lanes(_mm_setr_epi8(0, x, 0, 0, x, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
                          Lanes(_mm_setr_epi8(x, 0, 0, x, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
                          Lanes(_mm_setr_epi8(0, 0, x, 0, 0, x, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0))};
  for (int k = 0; k < 3; ++k) {
    rgb[k] =
        PickByTop(Shuffle8(greatest_is[k], sector), greatest, PickByTop(Shuffle8(middle_is[k], sector), middle, least));
  }
}

// a / 255 rounded, for words up to 65025.
PQ_INLINE V Over255(V a) {
  const V up = Add16(a, Set16(128));
  return ShiftRight16By8(Add16(up, ShiftRight16By8(up)));
}

PQ_INLINE void HLSToRGB(const V (&in)[3], V (&out)[3]) {
  V sector, w;
  Place(in[0], sector, w);
  const V l = in[1], room = Min8(l, Inverted8(l));
  const F denominator = SetF(65025.0f);
  V rest[2], step[2];
#pragma GCC unroll 2
  for (int h = 0; h < 2; ++h) {
    const V d = Mul16(HalfWords(in[2], h), HalfWords(room, h)), ws = HalfWords(w, h);
    const V e = Sub16(Add16(ws, ws), Set16(255));
    rest[h] = Over255(d);
    step[h] = PackS16(Rounded(DivF(FromInt(PairSum32(LowWords(d, 0), LowWords(e, 0))), denominator)),
                      Rounded(DivF(FromInt(PairSum32(LowWords(d, 1), LowWords(e, 1))), denominator)));
  }
  const V r = PackU8(rest[0], rest[1]);
  ByRole(sector, Add8(l, r), Add8(l, PackS8(step[0], step[1])), Sub8(l, r), out);
}

PQ_INLINE void HSVToRGB(const V (&in)[3], V (&out)[3]) {
  V sector, w;
  Place(in[0], sector, w);
  const V v = in[2], away = Inverted8(w);
  const F denominator = SetF(65025.0f);
  V rest[2], step[2];
#pragma GCC unroll 2
  for (int h = 0; h < 2; ++h) {
    const V s = HalfWords(in[1], h), vs = HalfWords(v, h), sw = Mul16(s, HalfWords(away, h));
    rest[h] = Over255(Mul16(s, vs));
    V q[2];
    for (int k = 0; k < 2; ++k) {
      q[k] = Rounded(DivF(MulF(FromInt(LowWords(sw, k)), FromInt(LowWords(vs, k))), denominator));
    }
    step[h] = PackS16(q[0], q[1]);
  }
  ByRole(sector, v, Sub8(v, PackU8(step[0], step[1])), Sub8(v, PackU8(rest[0], rest[1])), out);
}

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

#define PQ_CONVERSION(name)                                                                                          \
  static                                                                                                             \
      __attribute__((noinline)) void name##Row(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) { \
    ConvertRow(t, src, dst, width, [](const V(&in)[3], V(&out)[3]) { name(in, out); });                              \
  }                                                                                                                  \
  IppStatus PQ_VARIANT(ippi##name##_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {        \
    const int mode = PQRoundToNearest();                                                                             \
    const Interleave3 t = MakeInterleave3();                                                                         \
    const IppStatus status =                                                                                         \
        ConvertRows(src, srcStep, dst, dstStep, roi,                                                                 \
                    [&t](const u8* p, u8* o, std::ptrdiff_t width) { name##Row(t, p, o, width); });                  \
    PQRestoreRounding(mode);                                                                                         \
    return status;                                                                                                   \
  }
PQ_CONVERSION(RGBToHLS)
PQ_CONVERSION(HLSToRGB)
PQ_CONVERSION(RGBToHSV)
PQ_CONVERSION(HSVToRGB)
#undef PQ_CONVERSION

}  // namespace pantiq
