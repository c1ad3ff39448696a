// The format conversions with vectors: one source for a6, w7 and t7.
//
// Products of a byte and a coefficient of 2^-16 are made two at a time as sums of 16-bit products. A coefficient that
// does not fit 16 signed bits is lowered by a multiple of 65536, and that multiple of the sample is added after the
// shift by 16: (x + 65536 k s) >> 16 = (x >> 16) + k s.
#include "pantiq/kernels/PQFormat.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

// Two coefficients for the words 2i and 2i + 1.
PQ_INLINE V Pair(int even, int odd) {
  return Set32((even & 0xFFFF) | static_cast<int>(static_cast<unsigned>(odd) << 16));
}

// (a.x + b.y) >> 16 of pair sums, as words in the order that Low16 and High16 took apart.
PQ_INLINE V Weigh(V a_low, V a_high, V b_low, V b_high, V x, V y) {
  return PackS16(ShiftRightS32(Add32(PairSum32(a_low, x), PairSum32(b_low, y)), 16),
                 ShiftRightS32(Add32(PairSum32(a_high, x), PairSum32(b_high, y)), 16));
}

// kV pixels as words, for one half of the 16 bytes of every lane: pairs (R, G) and (B, 512). The constant terms are
// multiples of 512 and ride on the second.
struct Words {
  V green, rg_low, rg_high, b_low, b_high;
};
PQ_INLINE Words WordsOf(const V (&bgr)[3], bool high) {
  const V z = Zero(), k512 = Set16(512);
  const V b = high ? High8(bgr[0], z) : Low8(bgr[0], z);
  const V g = high ? High8(bgr[1], z) : Low8(bgr[1], z);
  const V r = high ? High8(bgr[2], z) : Low8(bgr[2], z);
  return {g, Low16(r, g), High16(r, g), Low16(b, k512), High16(b, k512)};
}
PQ_INLINE V WeighWords(const Words& w, V rg, V b) { return Weigh(w.rg_low, w.rg_high, w.b_low, w.b_high, rg, b); }

void GrayRow(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  const V rg = Pair(19595, 38470 - 65536), b = Pair(7471, 32768 / 512);
  WalkBlocks<3, 1>(src, dst, width, [&](const u8* p, u8* o) {
    V bgr[3], half[2];
    Split3(t, p, bgr);
    for (int h = 0; h < 2; ++h) {
      const Words w = WordsOf(bgr, h == 1);
      half[h] = Add16(WeighWords(w, rg, b), w.green);
    }
    Store(o, PackU8(half[0], half[1]));
  });
}

void ReplicateRow(const u8* src, u8* dst, std::ptrdiff_t width) {
#if PQ_WIDE
  alignas(64) u8 third[kBlock];
  for (int j = 0; j < kBlock; ++j) third[j] = static_cast<u8>(j / 3);
  const V t0 = Load(third), t1 = Load(third + 64), t2 = Load(third + 128);
  WalkBlocks<1, 3>(src, dst, width, [&](const u8* p, u8* o) {
    const V v = Load(p);
    Store(o, _mm512_permutexvar_epi8(t0, v));
    Store(o + 64, _mm512_permutexvar_epi8(t1, v));
    Store(o + 128, _mm512_permutexvar_epi8(t2, v));
  });
#else
  alignas(32) u8 third[kBlock];
  for (int j = 0; j < kBlock; ++j) third[j] = static_cast<u8>(j / 3 % 16);
  const V t0 = Load(third), t1 = Load(third + 32), t2 = Load(third + 64);
  WalkBlocks<1, 3>(src, dst, width, [&](const u8* p, u8* o) {
    const V v = Load(p);
    Store(o, Shuffle8(_mm256_permute2x128_si256(v, v, 0x00), t0));
    Store(o + 32, Shuffle8(v, t1));
    Store(o + 64, Shuffle8(_mm256_permute2x128_si256(v, v, 0x11), t2));
  });
#endif
}

// 2 * kV bytes of YUY2 so that lane l of x[0] holds pixels 16 l to 16 l + 7 and of x[1] the next eight: packing then
// leaves the pixels in order. And back.
PQ_INLINE void LoadPairs(const u8* p, V (&x)[2]) {
  const V a = Load(p), b = Load(p + kV);
#if PQ_WIDE
  x[0] = _mm512_permutex2var_epi64(a, _mm512_setr_epi64(0, 1, 4, 5, 8, 9, 12, 13), b);
  x[1] = _mm512_permutex2var_epi64(a, _mm512_setr_epi64(2, 3, 6, 7, 10, 11, 14, 15), b);
#else
  x[0] = _mm256_permute2x128_si256(a, b, 0x20);
  x[1] = _mm256_permute2x128_si256(a, b, 0x31);
#endif
}
PQ_INLINE void StorePairs(u8* o, V low, V high) {
#if PQ_WIDE
  Store(o, _mm512_permutex2var_epi64(low, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), high));
  Store(o + kV, _mm512_permutex2var_epi64(low, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), high));
#else
  Store(o, _mm256_permute2x128_si256(low, high, 0x20));
  Store(o + kV, _mm256_permute2x128_si256(low, high, 0x31));
#endif
}

// Four pixels of every lane as pairs of words (Y, chroma): bytes y, c, y + 2, c, y + 4, c + 4, y + 6, c + 4.
#define PQ_PICK(y, c) Lanes(_mm_setr_epi8(y, -1, c, -1, y + 2, -1, c, -1, y + 4, -1, c + 4, -1, y + 6, -1, c + 4, -1))

void YUY2Row(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  // 76284 = 65536 + 10748, 132186 = 2 * 65536 + 1114, 104595 = 2 * 65536 - 26477, -53281 = -65536 + 12255.
  const V yu = Pair(10748, 1114), yv = Pair(10748, -26477), gu = Pair(10748, -25690), gv = Pair(0, 12255);
  const V once_twice = Pair(1, 2), less = Pair(1, -1), bias = Pair(16, 128);
  const V pick_u[2] = {PQ_PICK(0, 1), PQ_PICK(8, 9)}, pick_v[2] = {PQ_PICK(0, 3), PQ_PICK(8, 11)};
  WalkBlocks<2, 3>(src, dst, width, [&](const u8* p, u8* o) {
    V x[2], blue[4], green[4], red[4];
    LoadPairs(p, x);
#pragma GCC unroll 4
    for (int q = 0; q < 4; ++q) {
      const V u = Sub16(Shuffle8(x[q >> 1], pick_u[q & 1]), bias), v = Sub16(Shuffle8(x[q >> 1], pick_v[q & 1]), bias);
      blue[q] = Add32(ShiftRightS32(PairSum32(u, yu), 16), PairSum32(u, once_twice));
      red[q] = Add32(ShiftRightS32(PairSum32(v, yv), 16), PairSum32(v, once_twice));
      green[q] = Add32(ShiftRightS32(Add32(PairSum32(u, gu), PairSum32(v, gv)), 16), PairSum32(v, less));
    }
    const V bgr[3] = {PackU8(PackS16(blue[0], blue[1]), PackS16(blue[2], blue[3])),
                      PackU8(PackS16(green[0], green[1]), PackS16(green[2], green[3])),
                      PackU8(PackS16(red[0], red[1]), PackS16(red[2], red[3]))};
    Join3(t, o, bgr);
  });
}

// (c0 + c1 + 1) >> 1 of the two bytes of every word.
PQ_INLINE V MeanOfPairs(V c) {
#if PQ_WIDE
  return _mm512_avg_epu16(_mm512_maddubs_epi16(c, Set8(1)), Zero());
#else
  return _mm256_avg_epu16(_mm256_maddubs_epi16(c, Set8(1)), Zero());
#endif
}
PQ_INLINE V ShiftLeft16By8(V a) {
#if PQ_WIDE
  return _mm512_slli_epi16(a, 8);
#else
  return _mm256_slli_epi16(a, 8);
#endif
}

void RGB24Row(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width) {
  const V y_rg = Pair(0x41CB, 0x8106 - 65536), y_b = Pair(0x1917, 0x108000 / 512);
  const V u_rg = Pair(-0x25E3, -0x4A7F), u_b = Pair(0x7062, 0x808000 / 512);
  const V v_rg = Pair(0x7062, -0x5E35), v_b = Pair(-0x122D, 0x808000 / 512);
  WalkBlocks<3, 2>(src, dst, width, [&](const u8* p, u8* o) {
    V bgr[3], y[2], u[2], v[2];
    Split3(t, p, bgr);
    for (int h = 0; h < 2; ++h) {
      const Words w = WordsOf(bgr, h == 1);
      y[h] = Add16(WeighWords(w, y_rg, y_b), w.green);
      u[h] = WeighWords(w, u_rg, u_b);
      v[h] = WeighWords(w, v_rg, v_b);
    }
    const V luma = PackU8(y[0], y[1]);
    const V chroma = Or(MeanOfPairs(PackU8(u[0], u[1])), ShiftLeft16By8(MeanOfPairs(PackU8(v[0], v[1]))));
    StorePairs(o, Low8(luma, chroma), High8(luma, chroma));
  });
}

template <class F>
PQ_INLINE IppStatus ConvertRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, F row) {
  if (const IppStatus status = PQCheckFormat(src, dst, roi)) return status;
  for (int y = 0; y < roi.height; ++y) {
    row(src + static_cast<std::ptrdiff_t>(y) * src_step, dst + static_cast<std::ptrdiff_t>(y) * dst_step, roi.width);
  }
  return ippStsNoErr;
}

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

IppStatus PQ_VARIANT(PQRGB24ToGray)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  const Interleave3 t = MakeInterleave3();
  return ConvertRows(src, srcStep, dst, dstStep, roi,
                     [&t](const u8* p, u8* o, std::ptrdiff_t width) { GrayRow(t, p, o, width); });
}

IppStatus PQ_VARIANT(PQGrayToRGB24)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return ConvertRows(src, srcStep, dst, dstStep, roi, ReplicateRow);
}

IppStatus PQ_VARIANT(PQYUY2ToRGB24)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  const Interleave3 t = MakeInterleave3();
  return ConvertRows(src, srcStep, dst, dstStep, roi, [&t](const u8* p, u8* o, std::ptrdiff_t width) {
    YUY2Row(t, p, o, width & ~std::ptrdiff_t{1});
    if (width & 1) PQLastPixelToRGB24(p, o, width - 1);
  });
}

IppStatus PQ_VARIANT(PQRGB24ToYUY2)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  const Interleave3 t = MakeInterleave3();
  return ConvertRows(src, srcStep, dst, dstStep, roi, [&t](const u8* p, u8* o, std::ptrdiff_t width) {
    RGB24Row(t, p, o, width & ~std::ptrdiff_t{1});
    if (width & 1) PQLastPixelToYUY2(p, o, width - 1);
  });
}

}  // namespace pantiq
