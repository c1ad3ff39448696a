// A thin layer over the vector instructions, for the *_simd sources alone: one vector type V a target, the loops that
// walk rows with it, and byte permutations of three-channel pixels. Everything has internal linkage; nothing here
// touches a byte outside [pointer, pointer + count).
//
// V is 64 bytes on t7 and 32 bytes on a6 and w7; S is 32 bytes everywhere. Rows of S end with one vector that overlaps
// the last full one; its result is computed before the row's first store, so that a destination may be the same memory
// as a source.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#define PQ_INLINE static inline __attribute__((always_inline))

#ifdef __AVX512VBMI__
#define PQ_WIDE 1  // t7
#else
#define PQ_WIDE 0
#endif
#ifdef __AVX512BW__
#define PQ_MASKED 1  // w7, t7
#else
#define PQ_MASKED 0
#endif

namespace pantiq {
namespace PQ_TARGET {

using u8 = std::uint8_t;
using u16 = std::uint16_t;

// S is 32 bytes on every target: for kernels that only stream memory, where 64-byte accesses off their alignment cost
// more than they save (two images at 1920 x 1080, rows off a line: 0.097 to 0.115 ns a pixel with 64-byte vectors, see
// bench_kernels).
using S = __m256i;
#if PQ_WIDE
using V = __m512i;
#else
using V = __m256i;
#endif

PQ_INLINE S LoadS(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
PQ_INLINE void Store(void* p, S v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
#if PQ_MASKED
using SMask = __mmask32;
PQ_INLINE SMask FirstBytesS(std::ptrdiff_t n) { return n >= 32 ? ~SMask{0} : (SMask{1} << n) - 1; }
PQ_INLINE S LoadMasked(SMask m, const void* p) { return _mm256_maskz_loadu_epi8(m, p); }
PQ_INLINE void StoreMasked(void* p, SMask m, S v) { _mm256_mask_storeu_epi8(p, m, v); }
#endif
#if PQ_WIDE
using VMask = __mmask64;
PQ_INLINE V Load(const void* p) { return _mm512_loadu_si512(p); }
PQ_INLINE void Store(void* p, V v) { _mm512_storeu_si512(p, v); }
PQ_INLINE V Zero() { return _mm512_setzero_si512(); }
PQ_INLINE V Set8(int v) { return _mm512_set1_epi8(static_cast<char>(v)); }
PQ_INLINE V Set16(int v) { return _mm512_set1_epi16(static_cast<short>(v)); }
PQ_INLINE V Set32(int v) { return _mm512_set1_epi32(v); }
PQ_INLINE VMask FirstBytes(std::ptrdiff_t n) { return n >= 64 ? ~VMask{0} : (VMask{1} << n) - 1; }
PQ_INLINE V LoadMasked(VMask m, const void* p) { return _mm512_maskz_loadu_epi8(m, p); }
PQ_INLINE void StoreMasked(void* p, VMask m, V v) { _mm512_mask_storeu_epi8(p, m, v); }
#define PQ_OP2_WIDE(name, intrinsic) \
  PQ_INLINE V name(V a, V b) { return _mm512_##intrinsic(a, b); }
#else
PQ_INLINE V Load(const void* p) { return LoadS(p); }
PQ_INLINE V Zero() { return _mm256_setzero_si256(); }
PQ_INLINE V Set8(int v) { return _mm256_set1_epi8(static_cast<char>(v)); }
PQ_INLINE V Set16(int v) { return _mm256_set1_epi16(static_cast<short>(v)); }
PQ_INLINE V Set32(int v) { return _mm256_set1_epi32(v); }
#define PQ_OP2_WIDE(name, intrinsic)
#endif

#define PQ_OP2(name, intrinsic)                                   \
  PQ_INLINE S name(S a, S b) { return _mm256_##intrinsic(a, b); } \
  PQ_OP2_WIDE(name, intrinsic)
PQ_INLINE S And(S a, S b) { return _mm256_and_si256(a, b); }
PQ_INLINE S Or(S a, S b) { return _mm256_or_si256(a, b); }
PQ_INLINE S Xor(S a, S b) { return _mm256_xor_si256(a, b); }
PQ_OP2_WIDE(And, and_si512)
PQ_OP2_WIDE(Or, or_si512)
PQ_OP2_WIDE(Xor, xor_si512)
PQ_OP2(AddSat8, adds_epu8)  // names end in the width of the numbers; saturated where they say so
PQ_OP2(SubSat8, subs_epu8)
PQ_OP2(Min8, min_epu8)
PQ_OP2(Max8, max_epu8)
PQ_OP2(Add8, add_epi8)
PQ_OP2(Add16, add_epi16)
PQ_OP2(Sub16, sub_epi16)
PQ_OP2(Min16, min_epu16)
PQ_OP2(Mul16, mullo_epi16)
PQ_OP2(Add32, add_epi32)
PQ_OP2(PairSum32, madd_epi16)  // a0 * b0 + a1 * b1 of signed words
PQ_OP2(Low8, unpacklo_epi8)    // within each 16 bytes
PQ_OP2(High8, unpackhi_epi8)
PQ_OP2(Low16, unpacklo_epi16)
PQ_OP2(High16, unpackhi_epi16)
PQ_OP2(PackU8, packus_epi16)  // signed words to bytes, saturated
PQ_OP2(PackS16, packs_epi32)  // signed double words to words, saturated
PQ_OP2(Shuffle8, shuffle_epi8)
#undef PQ_OP2
#undef PQ_OP2_WIDE
#if PQ_WIDE
PQ_INLINE V ShiftRightS32(V a, int n) { return _mm512_srai_epi32(a, static_cast<unsigned>(n)); }
PQ_INLINE V Lanes(__m128i a) { return _mm512_broadcast_i32x4(a); }
#else
PQ_INLINE V ShiftRightS32(V a, int n) { return _mm256_srai_epi32(a, n); }
PQ_INLINE V Lanes(__m128i a) { return _mm256_broadcastsi128_si256(a); }
#endif

inline constexpr std::ptrdiff_t kV = sizeof(V);  // bytes of a vector, and pixels of a block of three vectors
inline constexpr std::ptrdiff_t kBlock = 3 * kV;
inline constexpr std::ptrdiff_t kS = sizeof(S);

// dst[i] = f(a[i]) for n bytes; f maps S to S. dst may be a.
template <class F>
PQ_INLINE void MapRow(const u8* a, u8* dst, std::ptrdiff_t n, F f) {
  if (n < kS) {
#if PQ_MASKED
    const SMask m = FirstBytesS(n);
    StoreMasked(dst, m, f(LoadMasked(m, a)));
#else
    alignas(32) u8 t[kS] = {};
    for (std::ptrdiff_t i = 0; i < n; ++i) t[i] = a[i];
    Store(t, f(LoadS(t)));
    for (std::ptrdiff_t i = 0; i < n; ++i) dst[i] = t[i];
#endif
    return;
  }
  const S last = f(LoadS(a + n - kS));
  std::ptrdiff_t i = 0;
  for (; i + 2 * kS <= n; i += 2 * kS) {
    const S x = f(LoadS(a + i)), y = f(LoadS(a + i + kS));
    Store(dst + i, x);
    Store(dst + i + kS, y);
  }
  if (i + kS <= n) Store(dst + i, f(LoadS(a + i)));
  Store(dst + n - kS, last);
}

// dst[i] = f(a[i], b[i]) for n bytes. dst may be a or b.
template <class F>
PQ_INLINE void MapRow2(const u8* a, const u8* b, u8* dst, std::ptrdiff_t n, F f) {
  if (n < kS) {
#if PQ_MASKED
    const SMask m = FirstBytesS(n);
    StoreMasked(dst, m, f(LoadMasked(m, a), LoadMasked(m, b)));
#else
    alignas(32) u8 t[kS] = {}, s[kS] = {};
    for (std::ptrdiff_t i = 0; i < n; ++i) t[i] = a[i], s[i] = b[i];
    Store(t, f(LoadS(t), LoadS(s)));
    for (std::ptrdiff_t i = 0; i < n; ++i) dst[i] = t[i];
#endif
    return;
  }
  const S last = f(LoadS(a + n - kS), LoadS(b + n - kS));
  std::ptrdiff_t i = 0;
  for (; i + 2 * kS <= n; i += 2 * kS) {
    const S x = f(LoadS(a + i), LoadS(b + i)), y = f(LoadS(a + i + kS), LoadS(b + i + kS));
    Store(dst + i, x);
    Store(dst + i + kS, y);
  }
  if (i + kS <= n) Store(dst + i, f(LoadS(a + i), LoadS(b + i)));
  Store(dst + n - kS, last);
}

// A byte permutation of blocks of kV pixels of three channels (3 * kV bytes), the same for every block.
// On t7 any byte of the block may come from any other; on a6 and w7 each half of the block (16 pixels) is permuted
// alike within itself, and `swap_halves` exchanges the halves.
struct Permute3 {
#if PQ_WIDE
  V from01[3], from2[3];
  VMask take2[3];
#else
  V from[3][3];  // [output][input]
  bool swap_halves;
#endif
};

// from(j) names the source byte of byte j in a group of `pixels` pixels; mirrored groups exchange their halves.
template <class From>
PQ_INLINE Permute3 MakePermute3(From from, [[maybe_unused]] bool mirrored) {
  Permute3 p;
#if PQ_WIDE
  alignas(64) u8 a[kBlock], b[kBlock];
  for (int k = 0; k < 3; ++k) {
    p.take2[k] = 0;
    for (int j = 0; j < kV; ++j) {
      const int s = from(static_cast<int>(k * kV) + j, 64);
      a[k * kV + j] = static_cast<u8>(s & 127);
      b[k * kV + j] = static_cast<u8>(s & 63);
      if (s >= 128) p.take2[k] |= VMask{1} << j;
    }
    p.from01[k] = Load(a + k * kV);
    p.from2[k] = Load(b + k * kV);
  }
#else
  for (int k = 0; k < 3; ++k) {
    for (int i = 0; i < 3; ++i) {
      alignas(16) u8 a[16];
      for (int j = 0; j < 16; ++j) {
        const int s = from(k * 16 + j, 16) - i * 16;
        a[j] = static_cast<u8>(s >= 0 && s < 16 ? s : 128);
      }
      p.from[k][i] = Lanes(_mm_load_si128(reinterpret_cast<const __m128i*>(a)));
    }
  }
  p.swap_halves = mirrored;
#endif
  return p;
}

// One block; reads all of it before it writes.
PQ_INLINE void ApplyPermute3(const Permute3& p, const u8* src, u8* dst) {
  const V a = Load(src), b = Load(src + kV), c = Load(src + 2 * kV);
#if PQ_WIDE
  for (int k = 0; k < 3; ++k) {
    Store(dst + k * kV,
          _mm512_mask_permutexvar_epi8(_mm512_permutex2var_epi8(a, p.from01[k], b), p.take2[k], p.from2[k], c));
  }
#else
  // Low lanes hold the first 48 bytes, high lanes the second.
  V x[3] = {_mm256_blend_epi32(a, b, 0xF0), _mm256_permute2x128_si256(a, c, 0x21), _mm256_blend_epi32(b, c, 0xF0)};
  V o[3];
  for (int k = 0; k < 3; ++k) {
    o[k] = Or(Or(Shuffle8(x[0], p.from[k][0]), Shuffle8(x[1], p.from[k][1])), Shuffle8(x[2], p.from[k][2]));
  }
  if (p.swap_halves) {
    Store(dst, _mm256_permute2x128_si256(o[0], o[1], 0x31));
    Store(dst + kV, _mm256_permute2x128_si256(o[2], o[0], 0x21));
    Store(dst + 2 * kV, _mm256_permute2x128_si256(o[1], o[2], 0x20));
  } else {
    Store(dst, _mm256_permute2x128_si256(o[0], o[1], 0x20));
    Store(dst + kV, _mm256_blend_epi32(o[2], o[0], 0xF0));
    Store(dst + 2 * kV, _mm256_permute2x128_si256(o[1], o[2], 0x31));
  }
#endif
}

// Three interleaved channels of kV pixels to three vectors, and back.
struct Interleave3 {
#if PQ_WIDE
  Permute3 split, join;
#endif
};
PQ_INLINE Interleave3 MakeInterleave3() {
  Interleave3 t;
#if PQ_WIDE
  t.split = MakePermute3([](int j, int) { return j % 64 * 3 + j / 64; }, false);
  t.join = MakePermute3([](int j, int) { return j % 3 * 64 + j / 3; }, false);
#endif
  return t;
}

#if PQ_WIDE
PQ_INLINE void Split3(const Interleave3& t, const u8* p, V (&c)[3]) {
  const V x = Load(p), y = Load(p + kV), z = Load(p + 2 * kV);
  for (int k = 0; k < 3; ++k) {
    c[k] = _mm512_mask_permutexvar_epi8(_mm512_permutex2var_epi8(x, t.split.from01[k], y), t.split.take2[k],
                                        t.split.from2[k], z);
  }
}
PQ_INLINE void Join3(const Interleave3& t, u8* p, const V (&c)[3]) {
  for (int k = 0; k < 3; ++k) {
    Store(p + k * kV, _mm512_mask_permutexvar_epi8(_mm512_permutex2var_epi8(c[0], t.join.from01[k], c[1]),
                                                   t.join.take2[k], t.join.from2[k], c[2]));
  }
}
#else
// Every third byte belongs to one channel; with 16 bytes a lane the channels rotate by one from lane to lane, so three
// vectors are sorted by blends and one shuffle each.
PQ_INLINE V Third(int phase) {
  alignas(32) u8 m[32];
  for (int i = 0; i < 32; ++i) m[i] = i % 3 == phase ? 255 : 0;
  return Load(m);
}
PQ_INLINE void Split3(const Interleave3&, const u8* p, V (&c)[3]) {
  const V x = Load(p), y = Load(p + 32), z = Load(p + 64);
  const V low = _mm256_permute2x128_si256(x, z, 0x20), high = _mm256_permute2x128_si256(x, z, 0x31);
  const V third2 = Third(2), third1 = Third(1);
  c[0] = _mm256_blendv_epi8(_mm256_blendv_epi8(low, high, third2), y, third1);
  c[1] = _mm256_blendv_epi8(_mm256_blendv_epi8(high, low, third1), y, third2);
  c[2] = _mm256_blendv_epi8(_mm256_blendv_epi8(y, low, third2), high, third1);
  c[0] = Shuffle8(c[0], Lanes(_mm_setr_epi8(0, 3, 6, 9, 12, 15, 2, 5, 8, 11, 14, 1, 4, 7, 10, 13)));
  c[1] = Shuffle8(c[1], Lanes(_mm_setr_epi8(1, 4, 7, 10, 13, 0, 3, 6, 9, 12, 15, 2, 5, 8, 11, 14)));
  c[2] = Shuffle8(c[2], Lanes(_mm_setr_epi8(2, 5, 8, 11, 14, 1, 4, 7, 10, 13, 0, 3, 6, 9, 12, 15)));
}
PQ_INLINE void Join3(const Interleave3&, u8* p, const V (&c)[3]) {
  const V b = Shuffle8(c[0], Lanes(_mm_setr_epi8(0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10, 5)));
  const V g = Shuffle8(c[1], Lanes(_mm_setr_epi8(5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10)));
  const V r = Shuffle8(c[2], Lanes(_mm_setr_epi8(10, 5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15)));
  const V m0 = Lanes(_mm_setr_epi8(0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0));
  const V m1 = Lanes(_mm_setr_epi8(0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0));
  const V x = _mm256_blendv_epi8(_mm256_blendv_epi8(b, g, m1), r, m0);
  const V y = _mm256_blendv_epi8(_mm256_blendv_epi8(g, r, m1), b, m0);
  const V z = _mm256_blendv_epi8(_mm256_blendv_epi8(r, b, m1), g, m0);
  Store(p, _mm256_permute2x128_si256(x, y, 0x20));
  Store(p + 32, _mm256_permute2x128_si256(z, x, 0x30));
  Store(p + 64, _mm256_permute2x128_si256(y, z, 0x31));
}
#endif

// A table of 256 bytes, and its entries for kV samples at once.
#if PQ_WIDE
struct Table256 {
  V part[4];
};
PQ_INLINE Table256 MakeTable256(const u8* table) {
  return {{Load(table), Load(table + 64), Load(table + 128), Load(table + 192)}};
}
PQ_INLINE V LookUp(const Table256& t, V x) {
  return _mm512_mask_blend_epi8(_mm512_movepi8_mask(x), _mm512_permutex2var_epi8(t.part[0], x, t.part[1]),
                                _mm512_permutex2var_epi8(t.part[2], x, t.part[3]));
}
#else
struct Table256 {
  V part[16];
};
PQ_INLINE Table256 MakeTable256(const u8* table) {
  Table256 t;
  for (int k = 0; k < 16; ++k) {
    t.part[k] = Lanes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table + 16 * k)));
  }
  return t;
}
// Sixteen lookups by the low half of a sample, then a choice by each of the four upper bits.
PQ_INLINE V LookUp(const Table256& t, V x) {
  const V low = And(x, Set8(15));
  const V x1 = _mm256_slli_epi16(x, 1), x2 = _mm256_slli_epi16(x, 2), x3 = _mm256_slli_epi16(x, 3);
  V r[4];
#pragma GCC unroll 4
  for (int k = 0; k < 4; ++k) {
    const V* p = t.part + 4 * k;
    const V a = _mm256_blendv_epi8(Shuffle8(p[0], low), Shuffle8(p[1], low), x3);
    const V b = _mm256_blendv_epi8(Shuffle8(p[2], low), Shuffle8(p[3], low), x3);
    r[k] = _mm256_blendv_epi8(a, b, x2);
  }
  return _mm256_blendv_epi8(_mm256_blendv_epi8(r[0], r[1], x1), _mm256_blendv_epi8(r[2], r[3], x1), x);
}
#endif

// Walks a row of `width` pixels in blocks of kV: f(src, dst) reads kV * sizes and writes kV * sizes bytes. The last,
// shorter block goes through a buffer. dst may be src, if their pixel sizes agree.
template <int kSrcBytes, int kDstBytes, class F>
PQ_INLINE void WalkBlocks(const u8* src, u8* dst, std::ptrdiff_t width, F f) {
  std::ptrdiff_t x = 0;
  for (; x + kV <= width; x += kV) f(src + x * kSrcBytes, dst + x * kDstBytes);
  if (x < width) {
    alignas(64) u8 in[kV * kSrcBytes] = {}, out[kV * kDstBytes];
    __builtin_memcpy(in, src + x * kSrcBytes, static_cast<std::size_t>((width - x) * kSrcBytes));
    f(in, out);
    __builtin_memcpy(dst + x * kDstBytes, out, static_cast<std::size_t>((width - x) * kDstBytes));
  }
}

}  // namespace PQ_TARGET
}  // namespace pantiq
