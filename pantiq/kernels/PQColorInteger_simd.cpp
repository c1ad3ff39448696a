// The colour conversions of integer arithmetic and the split into planes, with vectors: one source for a6, w7 and t7.
//
// Sums of products of bytes and 16-bit coefficients are made in 32 bits, two products at a time. A coefficient that
// does not fit 16 signed bits is lowered by a multiple of 65536, and that multiple of the channel is added after the
// shift: (x + 65536 k s) >> 16 = (x >> 16) + k s. One product by itself, shifted by 16, needs 16 bits only.
#include "pantiq/kernels/PQColorVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

// Two coefficients for the words 2i and 2i + 1.
PQ_INLINE V Pair(int even, int odd) {
  return Set32((even & 0xFFFF) | static_cast<int>(static_cast<unsigned>(odd) << 16));
}

// Words of two channels side by side, for 32-bit sums of their products, in the order that PackS16 puts right again.
struct Pairs {
  V low, high;
};
PQ_INLINE Pairs PairsOf(V a, V b) { return {Low16(a, b), High16(a, b)}; }

// (sum + add) >> shift as words; sums of products of one or two pairs.
PQ_INLINE V Weigh(Pairs x, V kx, Pairs y, V ky) {
  return PackS16(ShiftRightS32(Add32(PairSum32(x.low, kx), PairSum32(y.low, ky)), 16),
                 ShiftRightS32(Add32(PairSum32(x.high, kx), PairSum32(y.high, ky)), 16));
}
PQ_INLINE V Weigh(Pairs x, V kx) {
  return PackS16(ShiftRightS32(PairSum32(x.low, kx), 16), ShiftRightS32(PairSum32(x.high, kx), 16));
}
PQ_INLINE V WeighBy10(Pairs x, V kx, Pairs y, V ky) {
  return PackS16(ShiftRightS32(Add32(PairSum32(x.low, kx), PairSum32(y.low, ky)), 10),
                 ShiftRightS32(Add32(PairSum32(x.high, kx), PairSum32(y.high, ky)), 10));
}
PQ_INLINE V Twice(V a) { return Add16(a, a); }

// Runs f(words in, words out) on both halves of the three channels and packs the results, limited to bytes.
template <class F>
PQ_INLINE void ByWords(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width, F f) {
  ConvertRow(t, src, dst, width, [&](const V(&in)[3], V(&out)[3]) {
    V half[2][3];
#pragma GCC unroll 2
    for (int h = 0; h < 2; ++h) {
      const V words[3] = {HalfWords(in[0], h), HalfWords(in[1], h), HalfWords(in[2], h)};
      f(words, half[h]);
    }
    for (int k = 0; k < 3; ++k) out[k] = PackU8(half[0][k], half[1][k]);
  });
}

void RGBToYCbCr(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  const V y_rg = Pair(0x41CB, 0x8106 - 65536), y_b = Pair(0x1917, 0x108000 / 512);
  const V u_rg = Pair(-0x25E3, -0x4A7F), u_b = Pair(0x7062, 0x808000 / 512);
  const V v_rg = Pair(0x7062, -0x5E35), v_b = Pair(-0x122D, 0x808000 / 512);
  const V k512 = Set16(512);  // the constant terms are multiples of it
  ByWords(t, src, dst, width, [&](const V(&w)[3], V(&o)[3]) {
    const Pairs rg = PairsOf(w[0], w[1]), b = PairsOf(w[2], k512);
    o[0] = Add16(Weigh(rg, y_rg, b, y_b), w[1]);
    o[1] = Weigh(rg, u_rg, b, u_b);
    o[2] = Weigh(rg, v_rg, b, v_b);
  });
}

void YCbCrToRGB(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  // 0x129FC = 65536 + 10748, 0x2045A = 2 * 65536 + 1114, 0x19893 = 2 * 65536 - 26477, -0xD021 = -65536 + 12255.
  const V red = Pair(10748, -26477), blue = Pair(10748, 1114), green_u = Pair(10748, -25690), green_v = Pair(0, 12255);
  const V k16 = Set16(16), k128 = Set16(128);
  ByWords(t, src, dst, width, [&](const V(&w)[3], V(&o)[3]) {
    const V y = Sub16(w[0], k16), u = Sub16(w[1], k128), v = Sub16(w[2], k128);
    const Pairs yu = PairsOf(y, u), yv = PairsOf(y, v);
    o[0] = Add16(Weigh(yv, red), Add16(y, Twice(v)));
    o[1] = Add16(Weigh(yu, green_u, yv, green_v), Sub16(y, v));
    o[2] = Add16(Weigh(yu, blue), Add16(y, Twice(u)));
  });
}

void RGBToYUV(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  // With n = 0x4C8B R + (0x9646 - 65536) G + 0x1D2F B, t is n + 65536 G.
  const V y_rg = Pair(0x4C8B, 0x9646 - 65536), y_b = Pair(0x1D2F, 0);
  const V minus_rg = Pair(-0x4C8B, 65536 - 0x9646), minus_b = Pair(-0x1D2F, 0x7FFF);
  const V one = Set16(1), k128 = Set16(128), u_scale = Set16(0x7DF4), v_scale = Set16(0xE083 - 65536);
  ByWords(t, src, dst, width, [&](const V(&w)[3], V(&o)[3]) {
    const Pairs rg = PairsOf(w[0], w[1]), b = PairsOf(w[2], one);
    o[0] = Add16(Weigh(rg, y_rg, b, y_b), w[1]);
    const V less = Sub16(Weigh(rg, minus_rg, b, minus_b), w[1]);
    const V u = Add16(w[2], less), v = Add16(w[0], less);
    o[1] = Add16(MulHigh16(u, u_scale), k128);
    o[2] = Add16(MulHigh16(v, v_scale), Add16(v, k128));
  });
}

void YUVToRGB(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  const V red = Set16(0x123D7 - 65536), blue = Set16(0x20831 - 2 * 65536), green = Pair(-0x64DD, 65536 - 0x94BC);
  const V k128 = Set16(128);
  ByWords(t, src, dst, width, [&](const V(&w)[3], V(&o)[3]) {
    const V y = w[0], u = Sub16(w[1], k128), v = Sub16(w[2], k128);
    o[0] = Add16(MulHigh16(v, red), Add16(y, v));
    o[1] = Add16(Weigh(PairsOf(u, v), green), Sub16(y, v));
    o[2] = Add16(MulHigh16(u, blue), Add16(y, Twice(u)));
  });
}

void RGBToYCC(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  const V y_rg = Pair(0x1322, 0x2591), y_b = Pair(0x74B, 0);
  const V b_rg = Pair(-0x1322, -0x2591), b_b = Pair(0x4000 - 0x74B, 0);
  const V r_rg = Pair(0x4000 - 0x1322, -0x2591), r_b = Pair(-0x74B, 0);
  const V y_scale = Set16(0xB69), c1_scale = Set16(0x6FD), c2_scale = Set16(0x882);
  const V c1_offset = Set16(156), c2_offset = Set16(137);
  ByWords(t, src, dst, width, [&](const V(&w)[3], V(&o)[3]) {
    const Pairs rg = PairsOf(w[0], w[1]), b = PairsOf(w[2], Zero());
    o[0] = MulHigh16(WeighBy10(rg, y_rg, b, y_b), y_scale);
    o[1] = Add16(MulHigh16(WeighBy10(rg, b_rg, b, b_b), c1_scale), c1_offset);
    o[2] = Add16(MulHigh16(WeighBy10(rg, r_rg, b, r_b), c2_scale), c2_offset);
  });
}

void YCCToRGB(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  // p and q of the manual, then red, blue and the green of 16 bits less 65536 Y.
  const V y_scale = Pair(0x15BC, 0), p_scale = Pair(0, 0x1D24), q_scale = Pair(0, 0x237C);
  const V p_offset = Set32(-0xF9844), q_offset = Set32(-0x159F90);
  const V green_y = Pair(0x15BC0 - 65536, 0), green_qp = Pair(-0x31A, -0x824);
  const auto third = [&](V y_c1, V y_c2, V& red, V& green, V& blue) {
    const V p = Add32(PairSum32(y_c2, p_scale), p_offset), q = Add32(PairSum32(y_c1, q_scale), q_offset);
    const V y = PairSum32(y_c1, y_scale);
    red = ShiftRightS32(Add32(y, p), 12);
    blue = ShiftRightS32(Add32(y, q), 12);
#if PQ_WIDE
    const V qp = _mm512_mask_blend_epi16(0xAAAAAAAAu, ShiftRightS32(q, 8), _mm512_slli_epi32(ShiftRightS32(p, 8), 16));
#else
    const V qp = _mm256_blend_epi16(ShiftRightS32(q, 8), _mm256_slli_epi32(ShiftRightS32(p, 8), 16), 0xAA);
#endif
    green = ShiftRightS32(Add32(PairSum32(y_c1, green_y), PairSum32(qp, green_qp)), 16);
  };
  ByWords(t, src, dst, width, [&](const V(&w)[3], V(&o)[3]) {
    const Pairs c1 = PairsOf(w[0], w[1]), c2 = PairsOf(w[0], w[2]);
    V r[2], g[2], b[2];
    third(c1.low, c2.low, r[0], g[0], b[0]);
    third(c1.high, c2.high, r[1], g[1], b[1]);
    o[0] = PackS16(r[0], r[1]);
    o[1] = Add16(PackS16(g[0], g[1]), w[0]);
    o[2] = PackS16(b[0], b[1]);
  });
}

void RGBToXYZ(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  const V x_rg = Pair(0x6996, 0x5B8A), x_b = Pair(0x2E30, 0);
  const V y_rg = Pair(0x3671, 0xB714 - 65536), y_b = Pair(0x1279, 0);
  const V z_rg = Pair(0x4F3, 0x1E83), z_b = Pair(0xF342 - 65536, 0);
  ByWords(t, src, dst, width, [&](const V(&w)[3], V(&o)[3]) {
    const Pairs rg = PairsOf(w[0], w[1]), b = PairsOf(w[2], Zero());
    o[0] = Weigh(rg, x_rg, b, x_b);
    o[1] = Add16(Weigh(rg, y_rg, b, y_b), w[1]);
    o[2] = Add16(Weigh(rg, z_rg, b, z_b), w[2]);
  });
}

void XYZToRGB(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  const V r_xy = Pair(0x33D90 - 3 * 65536, -0x18982 + 2 * 65536), r_z = Pair(-0x7F9F, 0);
  const V g_xy = Pair(-0xF821 + 65536, 0x1E040 - 2 * 65536), g_z = Pair(0xAA3, 0);
  const V b_xy = Pair(0xE3E, -0x343C), b_z = Pair(0x10EAB - 65536, 0);
  ByWords(t, src, dst, width, [&](const V(&w)[3], V(&o)[3]) {
    const Pairs xy = PairsOf(w[0], w[1]), z = PairsOf(w[2], Zero());
    const V twice = Twice(Sub16(w[0], w[1]));  // 2 X - 2 Y
    o[0] = Add16(Weigh(xy, r_xy, z, r_z), Add16(twice, w[0]));
    o[1] = Sub16(Weigh(xy, g_xy, z, g_z), Sub16(twice, w[0]));
    o[2] = Add16(Weigh(xy, b_xy, z, b_z), w[2]);
  });
}

#if PQ_WIDE || !PQ_MASKED
void SplitRow(const Interleave3& t, const u8* src, u8* const (&dst)[3], std::ptrdiff_t width) {
  V c[3];
  std::ptrdiff_t x = 0;
  for (; x + kV <= width; x += kV) {
    Split3(t, src + 3 * x, c);
    for (int k = 0; k < 3; ++k) Store(dst[k] + x, c[k]);
  }
  if (x == width) return;
  if (width >= kV) {
    x = width - kV;
    Split3(t, src + 3 * x, c);
    for (int k = 0; k < 3; ++k) Store(dst[k] + x, c[k]);
    return;
  }
  for (; x < width; ++x) {
    for (int k = 0; k < 3; ++k) dst[k][x] = src[3 * x + k];
  }
}
#endif

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

#define PQ_CONVERSION(name)                                                                                   \
  IppStatus PQ_VARIANT(ippi##name##_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) { \
    const Interleave3 t = MakeInterleave3();                                                                  \
    return ConvertRows(src, srcStep, dst, dstStep, roi,                                                       \
                       [&t](const u8* p, u8* o, std::ptrdiff_t width) { name(t, p, o, width); });             \
  }
PQ_CONVERSION(RGBToYCbCr)
PQ_CONVERSION(YCbCrToRGB)
PQ_CONVERSION(RGBToYUV)
PQ_CONVERSION(YUVToRGB)
PQ_CONVERSION(RGBToYCC)
PQ_CONVERSION(YCCToRGB)
PQ_CONVERSION(RGBToXYZ)
PQ_CONVERSION(XYZToRGB)
#undef PQ_CONVERSION

#if PQ_WIDE || !PQ_MASKED  // no w7 entry
IppStatus PQ_VARIANT(ippiCopy_8u_C3P3R)(const u8* src, int srcStep, const u8* const* dst, int dstStep, IppiSize roi) {
  if (const IppStatus status = PQCheckPlanes(src, dst, roi)) return status;
  const Interleave3 t = MakeInterleave3();
  std::ptrdiff_t width = roi.width;
  int rows = roi.height;
  if (srcStep == 3 * width && dstStep == width) width *= rows, rows = 1;
  for (int y = 0; y < rows; ++y) {
    u8* planes[3];
    for (int k = 0; k < 3; ++k) planes[k] = const_cast<u8*>(dst[k]) + static_cast<std::ptrdiff_t>(y) * dstStep;
    SplitRow(t, src + static_cast<std::ptrdiff_t>(y) * srcStep, planes, width);
  }
  return ippStsNoErr;
}
#endif

}  // namespace pantiq
