// The base kernels with vectors: one source for a6, w7 and t7.
#include "pantiq/kernels/PQBase.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

PQ_INLINE const u8* Row(const u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }
PQ_INLINE u8* Row(u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }

// The region as rows of n bytes; rows without padding in all images count as one long row.
struct Extent {
  std::ptrdiff_t n;
  int rows;
};
PQ_INLINE Extent Join(IppiSize roi, int channels, int step1, int step2, int step3) {
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * channels;
  if (step1 == n && step2 == n && step3 == n) return {n * roi.height, 1};
  return {n, roi.height};
}

void CopyRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, int channels) {
  const Extent e = Join(roi, channels, src_step, dst_step, dst_step);
  for (int y = 0; y < e.rows; ++y) {
    __builtin_memmove(Row(dst, dst_step, y), Row(src, src_step, y), static_cast<std::size_t>(e.n));
  }
}

// Columns of one channel change places: vectors are reversed and stored from the end.
PQ_INLINE V Reverse(V v) {
#if PQ_WIDE
  alignas(64) u8 t[64];
  for (int i = 0; i < 64; ++i) t[i] = static_cast<u8>(63 - i);
  return _mm512_permutexvar_epi8(Load(t), v);
#else
  const V r = Shuffle8(v, Lanes(_mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)));
  return _mm256_permute2x128_si256(r, r, 1);
#endif
}
PQ_INLINE void MirrorColumns1(const u8* p, u8* o, std::ptrdiff_t width) {
  std::ptrdiff_t x = 0;
  for (; x + kV <= width; x += kV) Store(o + width - kV - x, Reverse(Load(p + x)));
  if (x == width) return;
  if (width >= kV) {
    Store(o, Reverse(Load(p + width - kV)));
  } else {
    for (; x < width; ++x) o[width - 1 - x] = p[x];
  }
}

PQ_INLINE void MirrorColumns3(const Permute3& mirror, const u8* p, u8* o, std::ptrdiff_t width) {
  std::ptrdiff_t x = 0;
  for (; x + kV <= width; x += kV) ApplyPermute3(mirror, p + x * 3, o + (width - kV - x) * 3);
  if (x == width) return;
  if (width >= kV) {
    ApplyPermute3(mirror, p + (width - kV) * 3, o);
  } else {
    for (; x < width; ++x) {
      for (int c = 0; c < 3; ++c) o[(width - 1 - x) * 3 + c] = p[x * 3 + c];
    }
  }
}

template <int kChannels>
PQ_INLINE IppStatus MirrorImage(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, int axis) {
  if (const IppStatus status = PQCheckMirror(src, src_step, dst, dst_step, roi, axis)) return status;
  const auto reversed = [](int j, int pixels) { return (pixels - 1 - j / 3) * 3 + j % 3; };
  Permute3 mirror;
  if (kChannels == 3 && axis != ippAxsHorizontal) mirror = MakePermute3(reversed, true);
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, src_step, y);
    u8* o = Row(dst, dst_step, axis == ippAxsVertical ? y : roi.height - 1 - y);
    if (axis == ippAxsHorizontal) {
      __builtin_memmove(o, p, static_cast<std::size_t>(roi.width) * kChannels);
    } else if (kChannels == 1) {
      MirrorColumns1(p, o, roi.width);
    } else {
      MirrorColumns3(mirror, p, o, roi.width);
    }
  }
  return ippStsNoErr;
}

void SwapRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, const int* order) {
  const int own[3] = {order[0], order[1], order[2]};
  const Permute3 swap = MakePermute3([&own](int j, int) { return j / 3 * 3 + own[j % 3]; }, false);
  const Extent e = Join(roi, 3, src_step, dst_step, dst_step);
  for (int y = 0; y < e.rows; ++y) {
    WalkBlocks<3, 3>(Row(src, src_step, y), Row(dst, dst_step, y), e.n / 3,
                     [&swap](const u8* p, u8* o) { ApplyPermute3(swap, p, o); });
  }
}

// ---- Four channels and three.

void CopyRow43(const u8* p, u8* o, std::ptrdiff_t width) {
  std::ptrdiff_t x = 0;
#if PQ_WIDE
  // Byte j of the 192 of 64 pixels comes from byte j / 3 * 4 + j % 3 of 256; output k takes vectors k and k + 1.
  alignas(64) u8 t[kBlock];
  for (int j = 0; j < kBlock; ++j) t[j] = static_cast<u8>(j / 3 * 4 + j % 3 - j / 64 * 64);
  const V t0 = Load(t), t1 = Load(t + 64), t2 = Load(t + 128);
  for (; x + 64 <= width; x += 64, p += 256, o += 192) {
    const V a = Load(p), b = Load(p + 64), c = Load(p + 128), d = Load(p + 192);
    Store(o, _mm512_permutex2var_epi8(a, t0, b));
    Store(o + 64, _mm512_permutex2var_epi8(b, t1, c));
    Store(o + 128, _mm512_permutex2var_epi8(c, t2, d));
  }
  for (; x < width; x += 16, p += 64, o += 48) {
    const std::ptrdiff_t left = width - x < 16 ? width - x : 16;
    StoreMasked(o, FirstBytes(left * 3), _mm512_permutexvar_epi8(t0, LoadMasked(FirstBytes(left * 4), p)));
  }
#else
  // Eight pixels become 24 bytes; the store writes eight more, so four pixels must follow.
  const V pick = Lanes(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  const V close = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  for (; x + 11 <= width; x += 8, p += 32, o += 24) {
    Store(o, _mm256_permutevar8x32_epi32(Shuffle8(Load(p), pick), close));
  }
  for (; x < width; ++x, p += 4, o += 3) o[0] = p[0], o[1] = p[1], o[2] = p[2];
#endif
}

// Eight pixels a step on every target: half as many 64-byte steps took 1.1 times as long, bound by the memory. Lanes
// start at pixels 0 and 4; the upper one reads 16 bytes from byte 12 on, so two pixels must follow. The first pixels go
// singly up to a destination at a multiple of 32 bytes (16 bytes off it, a 1920 x 1080 image took 1.14 times as long).
void CopyRow34(const u8* p, u8* o, std::ptrdiff_t width) {
  const __m128i lane = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  const S spread = _mm256_broadcastsi128_si256(lane), alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
  const auto single = [&p, &o] {
    o[0] = p[0], o[1] = p[1], o[2] = p[2];
    p += 3, o += 4;
  };
  std::ptrdiff_t x = 0;
  for (; x < width && x < 8 && (reinterpret_cast<std::uintptr_t>(o) & 31) != 0; ++x) single();
  for (; x + 10 <= width; x += 8, p += 24, o += 32) {
    const S v = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))),
                                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12)), 1);
    Store(o, Or(Shuffle8(v, spread), And(LoadS(o), alpha)));
  }
  for (; x < width; ++x) single();
}

// One plane into every third byte. Blocks write up to two bytes behind their last pixel's, so a pixel must follow.
void CopyRow13(const u8* p, u8* o, std::ptrdiff_t width) {
  std::ptrdiff_t x = 0;
#if PQ_WIDE
  const VMask third0 = 0x9249249249249249u, third1 = 0x4924924924924924u, third2 = 0x2492492492492492u;
  alignas(64) u8 t[kBlock];
  for (int j = 0; j < kBlock; ++j) t[j] = static_cast<u8>(j / 3);
  const V t0 = Load(t), t1 = Load(t + 64), t2 = Load(t + 128);
  for (; x + 64 < width; x += 64, p += 64, o += 192) {
    const V v = Load(p);
    Store(o, _mm512_mask_permutexvar_epi8(Load(o), third0, t0, v));
    Store(o + 64, _mm512_mask_permutexvar_epi8(Load(o + 64), third1, t1, v));
    Store(o + 128, _mm512_mask_permutexvar_epi8(Load(o + 128), third2, t2, v));
  }
  const std::ptrdiff_t left = width - x;  // 1 to 64
  const V v = LoadMasked(FirstBytes(left), p);
  StoreMasked(o, third0 & FirstBytes(left * 3), _mm512_permutexvar_epi8(t0, v));
  if (left > 21) StoreMasked(o + 64, third1 & FirstBytes(left * 3 - 64), _mm512_permutexvar_epi8(t1, v));
  if (left > 42) StoreMasked(o + 128, third2 & FirstBytes(left * 3 - 128), _mm512_permutexvar_epi8(t2, v));
#else
  // 16 pixels in both lanes; the 48 bytes are one vector and a half.
  const V t0 = _mm256_setr_epi8(0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1, -1, 5, -1, -1, 6, -1, -1, 7, -1, -1,
                                8, -1, -1, 9, -1, -1, 10, -1);
  const __m128i t1 = _mm_setr_epi8(-1, 11, -1, -1, 12, -1, -1, 13, -1, -1, 14, -1, -1, 15, -1, -1);
  const V keep = _mm256_cmpgt_epi8(Zero(), t0);
  const __m128i keep1 = _mm_cmpgt_epi8(_mm_setzero_si128(), t1);
  for (; x + 16 < width; x += 16, p += 16, o += 48) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i* upper = reinterpret_cast<__m128i*>(o + 32);
    Store(o, Or(And(Load(o), keep), Shuffle8(Lanes(v), t0)));
    _mm_storeu_si128(upper, _mm_or_si128(_mm_and_si128(_mm_loadu_si128(upper), keep1), _mm_shuffle_epi8(v, t1)));
  }
  for (; x < width; ++x) *o = *p++, o += 3;
#endif
}

template <class F>
PQ_INLINE IppStatus CopyPixels(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, F f) {
  if (const IppStatus status = PQCheckCopy(src, dst, roi)) return status;
  for (int y = 0; y < roi.height; ++y) f(Row(src, src_step, y), Row(dst, dst_step, y), roi.width);
  return ippStsNoErr;
}

// ---- Two images. The formulas at scale 0 are vectors; other scales run the plain formula.

template <class F>
PQ_INLINE void MapRows(const u8* src1, int src1_step, const u8* src2, int src2_step, u8* dst, int dst_step,
                       IppiSize roi, int channels, F f) {
  const Extent e = Join(roi, channels, src1_step, src2_step, dst_step);
  for (int y = 0; y < e.rows; ++y) {
    MapRow2(Row(src1, src1_step, y), Row(src2, src2_step, y), Row(dst, dst_step, y), e.n, f);
  }
}

template <class F>
PQ_INLINE void PlainRows(const u8* src1, int src1_step, const u8* src2, int src2_step, u8* dst, int dst_step,
                         IppiSize roi, int channels, F f) {
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * channels;
  for (int y = 0; y < roi.height; ++y) {
    const u8 *a = Row(src1, src1_step, y), *b = Row(src2, src2_step, y);
    u8* o = Row(dst, dst_step, y);
    for (std::ptrdiff_t i = 0; i < n; ++i) o[i] = static_cast<u8>(f(a[i], b[i]));
  }
}

// Products of 16 bits, limited to 255 before the pack, which takes words as signed.
PQ_INLINE S MulSat8(S a, S b) {
  const S z = _mm256_setzero_si256(), top = _mm256_set1_epi16(255);
  return PackU8(Min16(Mul16(Low8(a, z), Low8(b, z)), top), Min16(Mul16(High8(a, z), High8(b, z)), top));
}

// Quotients in single precision. A quotient of two bytes (times a power of two) lies on a half or at least 1 / 510 of
// its scale away from one, so the rounded single keeps its side and exact halves stay exact; the conversion rounds to
// even by its own mode. b / 0 is an infinity or, for 0 / 0, not a number: the minimum with 255 and the maximum with 0
// give 255 and, since both take their second operand then, are ordered so that not-a-number becomes 0.
#if PQ_WIDE
using VF = __m512;
PQ_INLINE VF ToFloat(const u8* p) {
  return _mm512_cvtepi32_ps(_mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
}
PQ_INLINE void DivideVector(const u8* a, const u8* b, u8* o, VF scale) {
  VF q = _mm512_mul_ps(_mm512_div_ps(ToFloat(b), ToFloat(a)), scale);
  q = _mm512_min_ps(_mm512_max_ps(q, _mm512_setzero_ps()), _mm512_set1_ps(255));
  const V r = _mm512_cvt_roundps_epi32(q, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm512_cvtepi32_epi8(r));
}
PQ_INLINE VF SetFloat(float f) { return _mm512_set1_ps(f); }
inline constexpr std::ptrdiff_t kF = 16;
#else
using VF = __m256;
PQ_INLINE VF ToFloat(const u8* p) {
  return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
PQ_INLINE V Quotients(const u8* a, const u8* b, VF scale) {
  VF q = _mm256_mul_ps(_mm256_div_ps(ToFloat(b), ToFloat(a)), scale);
  q = _mm256_min_ps(_mm256_max_ps(q, _mm256_setzero_ps()), _mm256_set1_ps(255));
  return _mm256_cvttps_epi32(_mm256_round_ps(q, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC));
}
PQ_INLINE void DivideVector(const u8* a, const u8* b, u8* o, VF scale) {
  const V q = PackS16(Quotients(a, b, scale), Quotients(a + 8, b + 8, scale));  // words 0-3 8-11 4-7 12-15
  const V w = _mm256_permute4x64_epi64(q, 0xD8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(o),
                   _mm_packus_epi16(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1)));
}
PQ_INLINE VF SetFloat(float f) { return _mm256_set1_ps(f); }
inline constexpr std::ptrdiff_t kF = 16;
#endif

void DivideRow(const u8* a, const u8* b, u8* o, std::ptrdiff_t n, VF scale) {
  std::ptrdiff_t i = 0;
  for (; i + kF <= n; i += kF) DivideVector(a + i, b + i, o + i, scale);
  if (i < n) {
    u8 s[kF] = {}, t[kF] = {}, r[kF];
    for (std::ptrdiff_t k = 0; k < n - i; ++k) s[k] = a[i + k], t[k] = b[i + k];
    DivideVector(s, t, r, scale);
    for (std::ptrdiff_t k = 0; k < n - i; ++k) o[i + k] = r[k];
  }
}

PQ_INLINE IppStatus Divide(const u8* src1, int src1_step, const u8* src2, int src2_step, u8* dst, int dst_step,
                           IppiSize roi, int channels, int scale) {
  if (const IppStatus status = PQCheckThree(src1, src1_step, src2, src2_step, dst, dst_step, roi)) return status;
  // The limits of PQDivideSample; 2^-s by its exponent.
  const int s = scale < -16 ? -16 : scale > 9 ? 9 : scale;
  const float factor = s >= 0 ? 1.0f / static_cast<float>(1 << s) : static_cast<float>(1 << -s);
  const Extent e = Join(roi, channels, src1_step, src2_step, dst_step);
  for (int y = 0; y < e.rows; ++y) {
    DivideRow(Row(src1, src1_step, y), Row(src2, src2_step, y), Row(dst, dst_step, y), e.n, SetFloat(factor));
  }
  return ippStsNoErr;
}

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

IppStatus PQ_VARIANT(ippsSet_8u)(u8 value, u8* dst, int length) {
  if (const IppStatus status = PQCheckVector(dst, dst, length)) return status;
  __builtin_memset(dst, value, static_cast<std::size_t>(length));
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippsConvert_32s64f)(const int* src, double* dst, int length) {
  if (const IppStatus status = PQCheckVector(src, dst, length)) return status;
  for (int i = 0; i < length; ++i) dst[i] = src[i];
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiCopy_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  if (const IppStatus status = PQCheckCopy(src, dst, roi)) return status;
  CopyRows(src, srcStep, dst, dstStep, roi, 3);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiCopy_8u_C1R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  if (const IppStatus status = PQCheckCopy(src, dst, roi)) return status;
  CopyRows(src, srcStep, dst, dstStep, roi, 1);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiCopy_8u_AC4C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return CopyPixels(src, srcStep, dst, dstStep, roi, CopyRow43);
}

IppStatus PQ_VARIANT(ippiCopy_8u_C3AC4R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return CopyPixels(src, srcStep, dst, dstStep, roi, CopyRow34);
}

IppStatus PQ_VARIANT(ippiCopy_8u_C1C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return CopyPixels(src, srcStep, dst, dstStep, roi, CopyRow13);
}

IppStatus PQ_VARIANT(ippiSet_8u_C3R)(const u8 value[3], u8* dst, int dstStep, IppiSize roi) {
  if (const IppStatus status = PQCheckConstant(value, dst, dstStep, roi)) return status;
  alignas(64) u8 pattern[kBlock + kV];
  for (int i = 0; i < kBlock + kV; ++i) pattern[i] = value[i % 3];
  const V a = Load(pattern), b = Load(pattern + kV), c = Load(pattern + 2 * kV);
  const Extent e = Join(roi, 3, dstStep, dstStep, dstStep);
  for (int y = 0; y < e.rows; ++y) {
    u8* o = Row(dst, dstStep, y);
    std::ptrdiff_t i = 0;
    for (; i + kBlock <= e.n; i += kBlock) {
      Store(o + i, a);
      Store(o + i + kV, b);
      Store(o + i + 2 * kV, c);
    }
    for (; i + kV <= e.n; i += kV) Store(o + i, Load(pattern + i % 3));
    for (; i < e.n; ++i) o[i] = pattern[i % 3];
  }
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiMirror_8u_C1R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, int axis) {
  return MirrorImage<1>(src, srcStep, dst, dstStep, roi, axis);
}

IppStatus PQ_VARIANT(ippiMirror_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, int axis) {
  return MirrorImage<3>(src, srcStep, dst, dstStep, roi, axis);
}

IppStatus PQ_VARIANT(ippiSwapChannels_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                              const int order[3]) {
  if (const IppStatus status = PQCheckSwap(src, srcStep, dst, dstStep, roi, order)) return status;
  SwapRows(src, srcStep, dst, dstStep, roi, order);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiSwapChannels_8u_C3IR)(u8* srcDst, int step, IppiSize roi, const int order[3]) {
  if (const IppStatus status = PQCheckSwap(srcDst, step, srcDst, step, roi, order)) return status;
  SwapRows(srcDst, step, srcDst, step, roi, order);
  return ippStsNoErr;
}

#define PQ_SCALED(name, channels, at_scale_0, formula)                                                           \
  IppStatus PQ_VARIANT(name)(const u8* src1, int src1Step, const u8* src2, int src2Step, u8* dst, int dstStep,   \
                             IppiSize roi, int scaleFactor) {                                                    \
    if (const IppStatus status = PQCheckThree(src1, src1Step, src2, src2Step, dst, dstStep, roi)) return status; \
    if (scaleFactor == 0) {                                                                                      \
      MapRows(src1, src1Step, src2, src2Step, dst, dstStep, roi, channels, [](S a, S b) { return at_scale_0; }); \
    } else {                                                                                                     \
      PlainRows(src1, src1Step, src2, src2Step, dst, dstStep, roi, channels,                                     \
                [scaleFactor](int a, int b) { return PQScaleSample(formula, scaleFactor); });                    \
    }                                                                                                            \
    return ippStsNoErr;                                                                                          \
  }
PQ_SCALED(ippiAdd_8u_C1RSfs, 1, AddSat8(a, b), a + b)
PQ_SCALED(ippiAdd_8u_C3RSfs, 3, AddSat8(a, b), a + b)
PQ_SCALED(ippiSub_8u_C1RSfs, 1, SubSat8(b, a), (b > a ? b - a : 0))
PQ_SCALED(ippiSub_8u_C3RSfs, 3, SubSat8(b, a), (b > a ? b - a : 0))
PQ_SCALED(ippiMul_8u_C1RSfs, 1, MulSat8(a, b), a* b)
PQ_SCALED(ippiMul_8u_C3RSfs, 3, MulSat8(a, b), a* b)

IppStatus PQ_VARIANT(ippiDiv_8u_C1RSfs)(const u8* src1, int src1Step, const u8* src2, int src2Step, u8* dst,
                                        int dstStep, IppiSize roi, int scaleFactor) {
  return Divide(src1, src1Step, src2, src2Step, dst, dstStep, roi, 1, scaleFactor);
}

IppStatus PQ_VARIANT(ippiDiv_8u_C3RSfs)(const u8* src1, int src1Step, const u8* src2, int src2Step, u8* dst,
                                        int dstStep, IppiSize roi, int scaleFactor) {
  return Divide(src1, src1Step, src2, src2Step, dst, dstStep, roi, 3, scaleFactor);
}

#define PQ_LOGIC(name, channels, formula)                                                                        \
  IppStatus PQ_VARIANT(name)(const u8* src1, int src1Step, const u8* src2, int src2Step, u8* dst, int dstStep,   \
                             IppiSize roi) {                                                                     \
    if (const IppStatus status = PQCheckThree(src1, src1Step, src2, src2Step, dst, dstStep, roi)) return status; \
    MapRows(src1, src1Step, src2, src2Step, dst, dstStep, roi, channels, [](S a, S b) { return formula; });      \
    return ippStsNoErr;                                                                                          \
  }
PQ_LOGIC(ippiAnd_8u_C1R, 1, And(a, b))
PQ_LOGIC(ippiAnd_8u_C3R, 3, And(a, b))
PQ_LOGIC(ippiOr_8u_C1R, 1, Or(a, b))
PQ_LOGIC(ippiOr_8u_C3R, 3, Or(a, b))
PQ_LOGIC(ippiXor_8u_C1R, 1, Xor(a, b))
PQ_LOGIC(ippiXor_8u_C3R, 3, Xor(a, b))
PQ_LOGIC(ippiAbsDiff_8u_C1R, 1, Or(SubSat8(a, b), SubSat8(b, a)))

#define PQ_LOGIC_IN_PLACE(name, formula)                                                                     \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* srcDst, int srcDstStep, IppiSize roi) {         \
    if (const IppStatus status = PQCheckTwo(src, srcStep, srcDst, srcDstStep, roi)) return status;           \
    MapRows(src, srcStep, srcDst, srcDstStep, srcDst, srcDstStep, roi, 3, [](S a, S b) { return formula; }); \
    return ippStsNoErr;                                                                                      \
  }
PQ_LOGIC_IN_PLACE(ippiAnd_8u_C3IR, And(a, b))
PQ_LOGIC_IN_PLACE(ippiOr_8u_C3IR, Or(a, b))

IppStatus PQ_VARIANT(ippiNot_8u_C3IR)(u8* srcDst, int step, IppiSize roi) {
  if (const IppStatus status = PQCheckOne(srcDst, step, roi)) return status;
  const S ones = _mm256_set1_epi8(-1);
  const Extent e = Join(roi, 3, step, step, step);
  for (int y = 0; y < e.rows; ++y) {
    u8* row = Row(srcDst, step, y);
    MapRow(row, row, e.n, [ones](S a) { return Xor(a, ones); });
  }
  return ippStsNoErr;
}

}  // namespace pantiq
