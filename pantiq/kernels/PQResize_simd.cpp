// Resize with vectors. The same bytes as the plain form: linear in its integers; cubic in its floats and its order of
// evaluation; the columns of Lanczos and the area average in single precision, where samples whose value lies too near
// to a rounding are computed again in doubles.
//
// t7 expands a source row in blocks of 16 samples of the result: what a block needs lies within 64 or 128 bytes of the
// row (from a table, once a call), and byte permutations bring each tap to its lane; where more lies under a block,
// rows are expanded sample by sample. a6 and w7 expand two pixels of three channels a vector, or fetch the taps of one
// channel first and compute eight samples at once. Columns are vectors everywhere.

// gcc 12 takes the undefined vectors inside its own AVX-512 headers for a mistake of the caller.
#pragma GCC diagnostic ignored "-Wuninitialized"
#include "pantiq/kernels/PQResize.h"

#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

using resize::Plan;
using resize::Work;

#if PQ_WIDE
#define PQ_SI(name) _mm512_##name
using F = __m512;
#else
#define PQ_SI(name) _mm256_##name
using F = __m256;
#endif
constexpr int kFloats = sizeof(F) / 4;

PQ_INLINE F LoadF(const float* p) { return PQ_SI(loadu_ps)(p); }
PQ_INLINE F SetF(float v) { return PQ_SI(set1_ps)(v); }
PQ_INLINE F Add(F a, F b) { return PQ_SI(add_ps)(a, b); }
PQ_INLINE F Sub(F a, F b) { return PQ_SI(sub_ps)(a, b); }
PQ_INLINE F Mul(F a, F b) { return PQ_SI(mul_ps)(a, b); }
PQ_INLINE F MulAdd(F a, F b, F c) { return PQ_SI(fmadd_ps)(a, b, c); }  // in functions named Fused alone
PQ_INLINE V Clamped(F v) { return PQ_SI(cvttps_epi32)(PQ_SI(min_ps)(PQ_SI(max_ps)(v, SetF(0)), SetF(255))); }
#if PQ_WIDE
PQ_INLINE F FromWhole(F a) { return _mm512_abs_ps(_mm512_sub_ps(a, _mm512_roundscale_ps(a, 8))); }
PQ_INLINE unsigned Above(F a, float limit) { return _mm512_cmp_ps_mask(a, SetF(limit), _CMP_GT_OQ); }
PQ_INLINE V PackWords(V a, V b) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), PackU8(a, b));
}
PQ_INLINE V PackInts(V a, V b, V c, V d) {
  return _mm512_permutexvar_epi32(_mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15),
                                  PackU8(PackS16(a, b), PackS16(c, d)));
}
#else
PQ_INLINE F FromWhole(F a) { return _mm256_andnot_ps(SetF(-0.0f), _mm256_sub_ps(a, _mm256_round_ps(a, 8))); }
PQ_INLINE unsigned Above(F a, float limit) {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a, SetF(limit), _CMP_GT_OQ)));
}
PQ_INLINE V PackWords(V a, V b) { return _mm256_permute4x64_epi64(PackU8(a, b), 0xD8); }
PQ_INLINE V PackInts(V a, V b, V c, V d) {
  return _mm256_permutevar8x32_epi32(PackU8(PackS16(a, b), PackS16(c, d)), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
#endif

// Not by a maximum: lanes behind a row's end may hold anything, and what is not a number would hide its neighbours.
PQ_INLINE bool AnyAbove(const F (&v)[4], float limit) {
  return (Above(v[0], limit) | Above(v[1], limit) | Above(v[2], limit) | Above(v[3], limit)) != 0;
}

PQ_INLINE const u8* RowAt(const Plan& plan, int y) { return plan.base + y * plan.src_step; }
PQ_INLINE u8* ResultAt(const Plan& plan, int y) { return plan.dst + y * plan.dst_step; }

// out[i] = f(i)[0 .. kV) for n samples; f may read beyond n.
template <class Make>
PQ_INLINE void WriteRow(u8* out, std::ptrdiff_t n, Make f) {
  std::ptrdiff_t i = 0;
  for (; i + kV <= n; i += kV) Store(out + i, f(i));
  if (i < n) {
#if PQ_WIDE
    StoreMasked(out + i, FirstBytes(n - i), f(i));
#else
    alignas(32) u8 last[kV];
    Store(last, f(i));
    __builtin_memcpy(out + i, last, static_cast<std::size_t>(n - i));
#endif
  }
}

// The rows of a destination row in expanded form; expand(row, buffer) makes one, each once.
template <class Sample, int kTaps, class Expand, class Draw>
PQ_INLINE void WalkRows(const Plan& plan, const Work& work, int taps, Expand expand, Draw draw) {
  Sample* rows[kTaps];
  int held[kTaps];
  for (int n = 0; n < kTaps; ++n) held[n] = -1;
  for (int y = 0; y < plan.y.extent; ++y) {
    for (int n = 0; n < kTaps; ++n) {
      const int row = work.y.index[y] + (n < taps ? n : 0), slot = row % kTaps;
      Sample* const buffer = reinterpret_cast<Sample*>(work.rows + work.row_bytes * slot);
      if (held[slot] != row) expand(RowAt(plan, row), buffer);
      held[slot] = row;
      rows[n] = buffer;
    }
    draw(y, rows);
  }
}

// ---- blocks of a row ----------------------------------------------------------------------------------------------

#if PQ_WIDE
// Tables of t7: where the bytes of a block of kSamples samples lie. Reads stay within the row's bytes.
constexpr int kSamples = 16;
struct Blocks {
  bool fits;  // every block's bytes lie within 128
  bool wide;  // some need more than 64
  int count;
  int* base;
  u8* index;        // 64 bytes a block: the first tap of sample s at byte 4 * s
  float* weights;   // taps or coefficients of a block's samples, kSamples of each
  VMask low, high;  // bytes of a row that may be read from a base on
};

PQ_INLINE std::int64_t BlocksBytes(const Plan& plan, int channels, int vectors) {
  const std::int64_t count = (std::int64_t{plan.x.extent} * channels + kSamples - 1) / kSamples;
  return count * (64 + 64 * vectors) + count * 4 + 192;
}

// taps: samples that a result needs, spread `distance` bytes apart. value(x, n): weight n of pixel x.
template <class Value>
PQ_INLINE Blocks MakeBlocks(const Plan& plan, const Work& work, int channels, int taps, int distance, int vectors,
                            Value value) {
  Blocks blocks = {};
  const std::int64_t samples = std::int64_t{plan.x.extent} * channels;
  const std::int64_t row = std::int64_t{plan.x.picture} * channels;
  blocks.count = static_cast<int>((samples + kSamples - 1) / kSamples);
  blocks.index = work.extra;
  blocks.weights = reinterpret_cast<float*>(work.extra + std::int64_t{blocks.count} * 64);
  blocks.base = reinterpret_cast<int*>(blocks.weights + std::int64_t{blocks.count} * kSamples * vectors);
  blocks.low = FirstBytes(row);
  blocks.high = row > 64 ? FirstBytes(row - 64) : 0;
  blocks.fits = row < (std::int64_t{1} << 30);
  if (!blocks.fits) return blocks;
  for (int pass = 0; pass < 2; ++pass) {
    for (int b = 0; b < blocks.count; ++b) {
      const int first = b * kSamples;
      const int last = first + kSamples < samples ? first + kSamples - 1 : static_cast<int>(samples) - 1;
      int base = work.x.index[first / channels] * channels;
      if (pass == 0) {
        const int span = (work.x.index[last / channels] + 1) * channels + (taps - 1) * distance - base;
        blocks.wide = blocks.wide || span > 64;
        blocks.fits = blocks.fits && span <= 128;
        continue;
      }
      const std::int64_t room = row - (blocks.wide ? 128 : 64);
      if (base > room) base = room > 0 ? static_cast<int>(room) : 0;
      blocks.base[b] = base;
      for (int s = 0; s < kSamples; ++s) {
        const int sample = first + s <= last ? first + s : last, x = sample / channels;
        u8* const index = blocks.index + b * 64 + s * 4;
        const int at = work.x.index[x] * channels + sample % channels - base;
        index[0] = static_cast<u8>(at);
        index[1] = 0;
        index[2] = static_cast<u8>(at + distance * (taps - 1));  // linear takes both in one vector
        index[3] = 0;
        for (int n = 0; n < vectors; ++n) {
          const float w = value(x, n);
          __builtin_memcpy(blocks.weights + (std::ptrdiff_t{b} * vectors + n) * kSamples + s, &w, 4);
        }
      }
    }
    if (!blocks.fits) return blocks;
  }
  return blocks;
}

// The bytes of block b, and bytes of them by index into the lanes that mask names.
template <bool kWide>
struct Window {
  V low, high;
};
template <bool kWide>
PQ_INLINE Window<kWide> LoadWindow(const Blocks blocks, const u8* row, int b) {
  const u8* p = row + blocks.base[b];
  return {LoadMasked(blocks.low, p), kWide ? LoadMasked(blocks.high, p + 64) : Zero()};
}
template <bool kWide>
PQ_INLINE V Pick(const Window<kWide>& w, VMask mask, V index) {
  return kWide ? _mm512_maskz_permutex2var_epi8(mask, w.low, index, w.high)
               : _mm512_maskz_permutexvar_epi8(mask, index, w.low);
}
constexpr VMask kLaneBytes = 0x1111111111111111, kPairBytes = 0x5555555555555555;

template <bool kWide>
PQ_INLINE V LinearSums(const Blocks blocks, const u8* row, int b) {
  const V pairs = Pick(LoadWindow<kWide>(blocks, row, b), kPairBytes, Load(blocks.index + std::ptrdiff_t{b} * 64));
  return Add32(PairSum32(pairs, Load(blocks.weights + std::ptrdiff_t{b} * kSamples)), Set32(0x80));
}

// Two blocks at once; the middle two bytes of each sum are the sum shifted right by 8.
template <bool kWide>
PQ_INLINE void ExpandLinear(const Blocks blocks, const u8* row, u16* out) {
  alignas(64) u8 middle[64];
  for (int i = 0; i < 64; ++i) middle[i] = static_cast<u8>(i / 2 * 4 + i % 2 + 1);
  const V order = Load(middle);
  for (int b = 0; b < blocks.count; b += 2) {
    const V second = LinearSums<kWide>(blocks, row, b + 1 < blocks.count ? b + 1 : b);
    Store(out + std::ptrdiff_t{b} * kSamples,
          _mm512_permutex2var_epi8(LinearSums<kWide>(blocks, row, b), order, second));
  }
}

template <bool kWide, int kChannels>
PQ_INLINE void ExpandCubic(const Blocks blocks, const u8* row, float* out) {
  for (int b = 0; b < blocks.count; ++b) {
    const Window<kWide> window = LoadWindow<kWide>(blocks, row, b);
    const V index = Load(blocks.index + std::ptrdiff_t{b} * 64);
    const float* w = blocks.weights + std::ptrdiff_t{b} * 3 * kSamples;
    const V p0 = Pick(window, kLaneBytes, index), p1 = Pick(window, kLaneBytes, Add32(index, Set32(kChannels))),
            p2 = Pick(window, kLaneBytes, Add32(index, Set32(2 * kChannels))),
            p3 = Pick(window, kLaneBytes, Add32(index, Set32(3 * kChannels)));
    // Differences of samples are the same in integers and in floats.
    const auto sub = [](V a, V c) { return _mm512_sub_epi32(a, c); };
    const V d1 = sub(p1, p0), d2 = sub(sub(p2, p1), d1), d3 = sub(sub(Add32(p3, sub(p1, p2)), p2), d2);
    const auto real = [](V a) { return _mm512_cvtepi32_ps(a); };
    F v = Add(real(p0), Mul(LoadF(w), real(d1)));
    v = Add(v, Mul(LoadF(w + kSamples), real(d2)));
    v = Add(v, Mul(LoadF(w + 2 * kSamples), real(d3)));
    _mm512_store_ps(out + std::ptrdiff_t{b} * kSamples, v);
  }
}

template <bool kWide, int kChannels>
PQ_INLINE void ExpandLanczos(const Blocks blocks, const u8* row, float* out) {
  for (int b = 0; b < blocks.count; ++b) {
    const Window<kWide> window = LoadWindow<kWide>(blocks, row, b);
    V index = Load(blocks.index + std::ptrdiff_t{b} * 64);
    const float* w = blocks.weights + std::ptrdiff_t{b} * 6 * kSamples;
    F sum = SetF(0);
    for (int n = 0; n < 6; ++n, index = Add32(index, Set32(kChannels))) {
      const F term = Mul(LoadF(w + n * kSamples), _mm512_cvtepi32_ps(Pick(window, kLaneBytes, index)));
      sum = n == 0 ? term : Add(sum, term);
    }
    _mm512_store_ps(out + std::ptrdiff_t{b} * kSamples, sum);
  }
}
#endif

#if !PQ_WIDE
// Tables of a6 and w7: weights in lanes. Three channels take four lanes a pixel (the last is idle), so a vector is two
// pixels; one channel takes a lane a pixel.
constexpr int kLanes = 8, kFetch = 64;

PQ_INLINE std::int64_t LanesBytes(const Plan& plan, int channels, int vectors) {
  return ((channels == 3 ? std::int64_t{plan.x.extent} * 4 : plan.x.extent) + kLanes) * 4 * vectors;
}

template <class Value>
PQ_INLINE const float* MakeLanes(const Plan& plan, const Work& work, int channels, int vectors, Value value) {
  float* const weights = reinterpret_cast<float*>(work.extra);
  const int share = channels == 3 ? 4 : 1;
  const std::int64_t blocks = (std::int64_t{plan.x.extent} * share + kLanes - 1) / kLanes;
  for (std::int64_t b = 0; b < blocks; ++b) {
    for (int lane = 0; lane < kLanes; ++lane) {
      const std::int64_t wanted = (b * kLanes + lane) / share;
      const int x = wanted < plan.x.extent ? static_cast<int>(wanted) : plan.x.extent - 1;
      for (int n = 0; n < vectors; ++n) weights[(b * vectors + n) * kLanes + lane] = value(x, n);
    }
  }
  return weights;
}

PQ_INLINE __m128i Bytes4(const u8* p) {
  int v;
  __builtin_memcpy(&v, p, 4);
  return _mm_cvtsi32_si128(v);
}

// 6, 12 or 16 bytes of two pixels, a half each; nothing else is read.
template <int kBytes>
PQ_INLINE V TwoPixels(const u8* p, const u8* q) {
  const auto load = [](const u8* from) {
    if (kBytes == 16) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    if (kBytes == 12) {
      int last;
      __builtin_memcpy(&last, from + 8, 4);
      return _mm_insert_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)), last, 2);
    }
    u16 last;
    __builtin_memcpy(&last, from + 4, 2);
    return _mm_insert_epi16(Bytes4(from), last, 2);
  };
  return _mm256_set_m128i(load(q), load(p));
}
PQ_INLINE F Tap(V bytes, int first) {  // bytes first .. first + 2 of each half, as floats
  const int o = first;
  return _mm256_cvtepi32_ps(
      Shuffle8(bytes, Lanes(_mm_setr_epi8(static_cast<char>(o), -1, -1, -1, static_cast<char>(o + 1), -1, -1, -1,
                                          static_cast<char>(o + 2), -1, -1, -1, -1, -1, -1, -1))));
}
PQ_INLINE F Newton(F p0, F p1, F p2, F p3, F a, F b, F c) {
  const F d1 = Sub(p1, p0), d2 = Sub(Sub(p2, p1), d1), d3 = Sub(Sub(Add(p3, Sub(p1, p2)), p2), d2);
  return Add(Add(Add(p0, Mul(a, d1)), Mul(b, d2)), Mul(c, d3));
}
PQ_INLINE void StoreTwo(float* out, F v) {
  _mm_storeu_ps(out, _mm256_castps256_ps128(v));
  _mm_storeu_ps(out + 3, _mm256_extractf128_ps(v, 1));
}

// Calls body(x, p, q) for pairs of pixels; an odd last pixel is its own partner and writes one pixel beyond the row.
template <class Body>
PQ_INLINE void WalkPairs(const Plan& plan, const Work& work, const u8* row, Body body) {
  const int* const index = work.x.index;
  const int extent = plan.x.extent;
  for (int x = 0; x < extent; x += 2) {
    const int second = x + 1 < extent ? x + 1 : x;
    body(x, row + std::ptrdiff_t{index[x]} * 3, row + std::ptrdiff_t{index[second]} * 3);
  }
}

// Copies kFirst bytes at each pixel's first tap, and kSecond bytes behind them, into words of 32 bits, kFetch pixels at
// a time, then calls body(x, first words, second words) for each vector of them.
template <int kFirst, int kSecond, class Body>
PQ_INLINE void WalkFetched(const Plan& plan, const Work& work, const u8* row, Body body) {
  alignas(32) u8 first[kFetch * 4] = {}, second[kFetch * 4] = {};
  const int* const index = work.x.index;
  const int extent = plan.x.extent;
  for (int x = 0; x < extent; x += kFetch) {
    const int count = extent - x < kFetch ? extent - x : kFetch;
    for (int i = 0; i < count; ++i) {
      const u8* p = row + index[x + i];
      __builtin_memcpy(first + i * 4, p, kFirst);
      if (kSecond > 0) __builtin_memcpy(second + i * 4, p + kFirst, kSecond);
    }
    for (int i = 0; i < count; i += kLanes) body(x + i, LoadS(first + i * 4), LoadS(second + i * 4));
  }
}
PQ_INLINE F ByteOf(V words, int n) { return _mm256_cvtepi32_ps(And(_mm256_srli_epi32(words, 8 * n), Set32(255))); }

template <int kChannels>
PQ_INLINE void ExpandLinear(const Plan& plan, const Work& work, const float* weights, const u8* row, u16* out) {
  const V half = Set32(0x80);
  if constexpr (kChannels == 3) {
    const V pairs = Lanes(_mm_setr_epi8(0, -1, 3, -1, 1, -1, 4, -1, 2, -1, 5, -1, -1, -1, -1, -1));
    WalkPairs(plan, work, row, [&](int x, const u8* p, const u8* q) {
      const V both = PairSum32(Shuffle8(TwoPixels<6>(p, q), pairs), Load(weights + std::ptrdiff_t{x} * 4));
      const V sum = _mm256_srli_epi32(Add32(both, half), 8), words = PackS16(sum, sum);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + std::ptrdiff_t{x} * 3), _mm256_castsi256_si128(words));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + std::ptrdiff_t{x} * 3 + 3), _mm256_extracti128_si256(words, 1));
    });
  } else {
    const V pairs = Lanes(_mm_setr_epi8(0, -1, 1, -1, 4, -1, 5, -1, 8, -1, 9, -1, 12, -1, 13, -1));
    WalkFetched<2, 0>(plan, work, row, [&](int x, V taps, V) {
      const V sum = _mm256_srli_epi32(Add32(PairSum32(Shuffle8(taps, pairs), Load(weights + x)), half), 8);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x),
                       _mm256_castsi256_si128(_mm256_permute4x64_epi64(PackS16(sum, sum), 0xD8)));
    });
  }
}

template <int kChannels>
PQ_INLINE void ExpandCubic(const Plan& plan, const Work& work, const float* weights, const u8* row, float* out) {
  if constexpr (kChannels == 3) {
    WalkPairs(plan, work, row, [&](int x, const u8* p, const u8* q) {
      const V v = TwoPixels<12>(p, q);
      const float* w = weights + std::ptrdiff_t{x} * 12;
      StoreTwo(out + std::ptrdiff_t{x} * 3,
               Newton(Tap(v, 0), Tap(v, 3), Tap(v, 6), Tap(v, 9), LoadF(w), LoadF(w + 8), LoadF(w + 16)));
    });
  } else {
    WalkFetched<4, 0>(plan, work, row, [&](int x, V taps, V) {
      const float* w = weights + std::ptrdiff_t{x} * 3;
      _mm256_storeu_ps(out + x, Newton(ByteOf(taps, 0), ByteOf(taps, 1), ByteOf(taps, 2), ByteOf(taps, 3), LoadF(w),
                                       LoadF(w + 8), LoadF(w + 16)));
    });
  }
}

template <int kChannels>
PQ_INLINE void ExpandLanczos(const Plan& plan, const Work& work, const float* weights, const u8* row, float* out) {
  if constexpr (kChannels == 3) {
    WalkPairs(plan, work, row, [&](int x, const u8* p, const u8* q) {
      const V v = TwoPixels<16>(p, q), last = TwoPixels<16>(p + 2, q + 2);
      const float* w = weights + std::ptrdiff_t{x} * 24;
      F sum = Mul(LoadF(w), Tap(v, 0));
      for (int n = 1; n < 6; ++n) sum = Add(sum, Mul(LoadF(w + n * 8), n == 5 ? Tap(last, 13) : Tap(v, n * 3)));
      StoreTwo(out + std::ptrdiff_t{x} * 3, sum);
    });
  } else {
    WalkFetched<4, 2>(plan, work, row, [&](int x, V taps, V rest) {
      const float* w = weights + std::ptrdiff_t{x} * 6;
      F sum = Mul(LoadF(w), ByteOf(taps, 0));
      for (int n = 1; n < 6; ++n) {
        sum = Add(sum, Mul(LoadF(w + n * 8), n < 4 ? ByteOf(taps, n) : ByteOf(rest, n - 4)));
      }
      _mm256_storeu_ps(out + x, sum);
    });
  }
}
#endif

// ---- nearest ------------------------------------------------------------------------------------------------------

template <int kChannels>
PQ_INLINE void CopySamples(const Plan& plan, const Work& work, const u8* row, u8* out) {
  const int* const index = work.x.index;
  const int extent = plan.x.extent, last = plan.x.picture - 1;
  int x = 0;
  if (kChannels == 3) {  // four bytes a pixel, where the fourth is still in the row
    for (; x < extent - 1 && index[x] < last; ++x, out += 3) {
      __builtin_memcpy(out, row + std::ptrdiff_t{index[x]} * 3, 4);
    }
  }
  for (; x < extent; ++x, out += kChannels) {
    const u8* p = row + std::ptrdiff_t{index[x]} * kChannels;
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

#if PQ_WIDE
// Blocks of 64 bytes of the result from up to 256 bytes of a row.
struct ByteBlocks {
  int loads;  // 1, 2 or 4; 0: a block's bytes lie further apart
  int count;
  int* base;
  u8* index;
  VMask readable[4];
};

PQ_INLINE ByteBlocks MakeByteBlocks(const Plan& plan, const Work& work, int channels) {
  ByteBlocks blocks = {};
  const std::int64_t bytes = std::int64_t{plan.x.extent} * channels, row = std::int64_t{plan.x.picture} * channels;
  if (row >= std::int64_t{1} << 30) return blocks;
  blocks.count = static_cast<int>((bytes + 63) / 64);
  blocks.index = work.extra;
  blocks.base = reinterpret_cast<int*>(work.extra + std::int64_t{blocks.count} * 64);
  for (int k = 0; k < 4; ++k) blocks.readable[k] = row > 64 * k ? FirstBytes(row - 64 * k) : 0;
  int most = 0;
  for (int pass = 0; pass < 2; ++pass) {
    for (int b = 0; b < blocks.count; ++b) {
      const int first = b * 64, last = first + 64 < bytes ? first + 63 : static_cast<int>(bytes) - 1;
      int base = work.x.index[first / channels] * channels;
      if (pass == 0) {
        const int span = (work.x.index[last / channels] + 1) * channels - base;
        most = span > most ? span : most;
        continue;
      }
      const std::int64_t room = row - 64 * blocks.loads;
      if (base > room) base = room > 0 ? static_cast<int>(room) : 0;
      blocks.base[b] = base;
      for (int s = 0; s < 64; ++s) {
        const int byte = first + s <= last ? first + s : last;
        blocks.index[first + s] = static_cast<u8>(work.x.index[byte / channels] * channels + byte % channels - base);
      }
    }
    if (most > 256) return blocks;
    blocks.loads = most <= 64 ? 1 : most <= 128 ? 2 : 4;
  }
  return blocks;
}

template <int kLoads>
PQ_INLINE void CopyBlocks(const ByteBlocks blocks, const u8* row, u8* out, std::ptrdiff_t bytes) {
  WriteRow(out, bytes, [&](std::ptrdiff_t i) {
    const u8* p = row + blocks.base[i / 64];
    const V index = Load(blocks.index + i);
    const V a = LoadMasked(blocks.readable[0], p);
    if (kLoads == 1) return _mm512_permutexvar_epi8(index, a);
    const V near = _mm512_permutex2var_epi8(a, index, LoadMasked(blocks.readable[1], p + 64));
    if (kLoads == 2) return near;
    const V far = _mm512_permutex2var_epi8(LoadMasked(blocks.readable[2], p + 128), index,
                                           LoadMasked(blocks.readable[3], p + 192));
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), near, far);
  });
}
#endif

template <int kChannels>
void DrawNearest(const Plan& plan, const Work& work) {
  const std::ptrdiff_t bytes = std::ptrdiff_t{plan.x.extent} * kChannels;
  const bool apart = plan.dst_step >= bytes || plan.dst_step <= -bytes;  // rows of the result do not overlap
#if PQ_WIDE
  const ByteBlocks blocks = MakeByteBlocks(plan, work, kChannels);
#endif
  for (int y = 0; y < plan.y.extent; ++y) {
    u8* const out = ResultAt(plan, y);
    if (apart && y > 0 && work.y.index[y] == work.y.index[y - 1]) {
      __builtin_memcpy(out, ResultAt(plan, y - 1), static_cast<std::size_t>(bytes));
      continue;
    }
    const u8* row = RowAt(plan, work.y.index[y]);
#if PQ_WIDE
    if (blocks.loads == 1) {
      CopyBlocks<1>(blocks, row, out, bytes);
      continue;
    } else if (blocks.loads == 2) {
      CopyBlocks<2>(blocks, row, out, bytes);
      continue;
    } else if (blocks.loads == 4) {
      CopyBlocks<4>(blocks, row, out, bytes);
      continue;
    }
#endif
    CopySamples<kChannels>(plan, work, row, out);
  }
}

// ---- linear -------------------------------------------------------------------------------------------------------

template <int kChannels>
void DrawLinear(const Plan& plan, const Work& work) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  const int next = resize::PairDistance(plan.x) * kChannels;
  const auto weight = [&](int x, int) {
    const std::uint32_t second = static_cast<std::uint32_t>(work.x.weight[x]), both = (16384 - second) | second << 16;
    float bits;
    __builtin_memcpy(&bits, &both, 4);
    return bits;
  };
#if PQ_WIDE
  const Blocks blocks = MakeBlocks(plan, work, kChannels, 2, next, 1, weight);
#else
  const float* const weights = MakeLanes(plan, work, kChannels, 1, weight);
#endif
  WalkRows<u16, 2>(
      plan, work, 1 + resize::PairDistance(plan.y),
      [&](const u8* row, u16* out) {
#if PQ_WIDE
        if (blocks.fits) {
          if (blocks.wide) {
            ExpandLinear<true>(blocks, row, out);
          } else {
            ExpandLinear<false>(blocks, row, out);
          }
          return;
        }
#else
        if (next > 0) return ExpandLinear<kChannels>(plan, work, weights, row, out);
#endif
        for (int x = 0; x < plan.x.extent; ++x) {
          const u8* p = row + std::ptrdiff_t{work.x.index[x]} * kChannels;
          const int c1 = work.x.weight[x], c0 = 16384 - c1;
          for (int c = 0; c < kChannels; ++c) *out++ = static_cast<u16>((c0 * p[c] + c1 * p[c + next] + 0x80) >> 8);
        }
      },
      [&](int y, u16* const* r) {
        const int f = work.y.weight[y];
        const V weights = Set32((0x4000 - f) | f << 16), half = Set32(0x80000);
        WriteRow(ResultAt(plan, y), samples, [&](std::ptrdiff_t i) {
          V words[2];
          for (int k = 0; k < 2; ++k) {
            const V a = Load(r[0] + i + k * (kV / 2)), b = Load(r[1] + i + k * (kV / 2));
            const V low = ShiftRightS32(Add32(PairSum32(Low16(a, b), weights), half), 20);
            const V high = ShiftRightS32(Add32(PairSum32(High16(a, b), weights), half), 20);
            words[k] = PackS16(low, high);
          }
          return PackWords(words[0], words[1]);
        });
      });
}

// ---- cubic --------------------------------------------------------------------------------------------------------

[[maybe_unused]] PQ_INLINE float NewtonOne(float p0, float p1, float p2, float p3, const float* abc) {
  const float d1 = p1 - p0, d2 = (p2 - p1) - d1, d3 = (p3 + (p1 - p2) - p2) - d2;
  return p0 + abc[0] * d1 + abc[1] * d2 + abc[2] * d3;
}

template <int kChannels>
void DrawCubic(const Plan& plan, const Work& work) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  const auto weight = [&](int x, int n) { return work.x.abc[x][n]; };
#if PQ_WIDE
  const Blocks blocks = MakeBlocks(plan, work, kChannels, 4, kChannels, 3, weight);
#else
  const float* const weights = MakeLanes(plan, work, kChannels, 3, weight);
#endif
  WalkRows<float, 4>(
      plan, work, 4,
      [&](const u8* row, float* out) {
#if PQ_WIDE
        if (blocks.fits) {
          if (blocks.wide) {
            ExpandCubic<true, kChannels>(blocks, row, out);
          } else {
            ExpandCubic<false, kChannels>(blocks, row, out);
          }
          return;
        }
        for (int x = 0; x < plan.x.extent; ++x) {
          const u8* p = row + std::ptrdiff_t{work.x.index[x]} * kChannels;
          for (int c = 0; c < kChannels; ++c) {
            *out++ = NewtonOne(p[c], p[c + kChannels], p[c + 2 * kChannels], p[c + 3 * kChannels], work.x.abc[x]);
          }
        }
#else
        ExpandCubic<kChannels>(plan, work, weights, row, out);
#endif
      },
      [&](int y, float* const* r) {
        const F a = SetF(work.y.abc[y][0]), b = SetF(work.y.abc[y][1]), c = SetF(work.y.abc[y][2]), half = SetF(0.5f);
        WriteRow(ResultAt(plan, y), samples, [&](std::ptrdiff_t i) {
          V q[4];
          for (int k = 0; k < 4; ++k) {
            const std::ptrdiff_t at = i + k * kFloats;
            const F p0 = LoadF(r[0] + at), p1 = LoadF(r[1] + at), p2 = LoadF(r[2] + at), p3 = LoadF(r[3] + at);
            const F d1 = Sub(p1, p0), d2 = Sub(Sub(p2, p1), d1), d3 = Sub(Sub(Add(p3, Sub(p1, p2)), p2), d2);
            q[k] = Clamped(Add(Add(Add(Add(p0, Mul(a, d1)), Mul(b, d2)), Mul(c, d3)), half));
          }
          return PackInts(q[0], q[1], q[2], q[3]);
        });
      });
}

// ---- Lanczos ------------------------------------------------------------------------------------------------------

// A sum of six products with weights whose magnitudes add up to less than 2, of rows below 512: fused, six roundings of
// at most 2^-15. Samples within kLanczosDoubt of a half are computed again in doubles.
constexpr float kLanczosDoubt = 0.5f - 2.5e-4f;

}  // namespace

[[maybe_unused]] static __attribute__((noinline)) void FusedLanczosColumn(const float* const* r, const float* w,
                                                                          u8* out, std::ptrdiff_t samples) {
  const F half = SetF(0.5f);
  F weights[6];
  for (int n = 0; n < 6; ++n) weights[n] = SetF(w[n]);
  WriteRow(out, samples, [&](std::ptrdiff_t i) {
    V q[4];
    F doubt[4];
    for (int k = 0; k < 4; ++k) {
      F sum = Mul(LoadF(r[0] + i + k * kFloats), weights[0]);
      for (int n = 1; n < 6; ++n) sum = MulAdd(LoadF(r[n] + i + k * kFloats), weights[n], sum);
      doubt[k] = FromWhole(sum);
      q[k] = Clamped(Add(sum, half));
    }
    V bytes = PackInts(q[0], q[1], q[2], q[3]);
    if (__builtin_expect(AnyAbove(doubt, kLanczosDoubt), 0)) {
      alignas(64) u8 exact[kV];
      Store(exact, bytes);
      for (int k = 0; k < 4; ++k) {
        for (unsigned m = Above(doubt[k], kLanczosDoubt); m != 0; m &= m - 1) {
          const int at = k * kFloats + __builtin_ctz(m);
          if (i + at < samples) exact[at] = resize::LanczosColumn(r, i + at, w);
        }
      }
      bytes = Load(exact);
    }
    return bytes;
  });
}

namespace {

template <int kChannels>
void DrawLanczos(const Plan& plan, const Work& work) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  const auto weight = [&](int x, int n) { return work.x.lanczos[x][n]; };
#if PQ_WIDE
  const Blocks blocks = MakeBlocks(plan, work, kChannels, 6, kChannels, 6, weight);
#else
  const float* const weights = MakeLanes(plan, work, kChannels, 6, weight);
#endif
  WalkRows<float, 6>(
      plan, work, 6,
      [&](const u8* row, float* out) {
#if PQ_WIDE
        if (blocks.fits) {
          if (blocks.wide) {
            ExpandLanczos<true, kChannels>(blocks, row, out);
          } else {
            ExpandLanczos<false, kChannels>(blocks, row, out);
          }
          return;
        }
        for (int x = 0; x < plan.x.extent; ++x) {
          const u8* p = row + std::ptrdiff_t{work.x.index[x]} * kChannels;
          const float* w = work.x.lanczos[x];
          for (int c = 0; c < kChannels; ++c) {
            float sum = w[0] * p[c];
            for (int n = 1; n < 6; ++n) sum += w[n] * p[c + n * kChannels];
            *out++ = sum;
          }
        }
#else
        ExpandLanczos<kChannels>(plan, work, weights, row, out);
#endif
      },
      [&](int y, float* const* r) { FusedLanczosColumn(r, work.y.lanczos[y], ResultAt(plan, y), samples); });
}

// ---- area ---------------------------------------------------------------------------------------------------------

// Cells of exactly two by two samples: (sum + 2) >> 2.
template <int kChannels>
void DrawHalf(const Plan& plan) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  for (int y = 0; y < plan.y.extent; ++y) {
    const u8* a = RowAt(plan, plan.y.first + 2 * y) + std::ptrdiff_t{plan.x.first} * kChannels;
    const u8* b = a + plan.src_step;
    u8* out = ResultAt(plan, y);
    std::ptrdiff_t i = 0;
#if PQ_WIDE
    // kPixels pixels of the result from 2 * kPixels pixels a row: pairs of samples side by side, two vectors of them.
    constexpr int kPixels = kChannels == 3 ? 20 : 64, kBytes = kPixels * kChannels;
    alignas(64) u8 order[2][64] = {};
    for (int s = 0; s < kBytes; ++s) {
      order[s / 32][s % 32 * 2] = static_cast<u8>(s / kChannels * 2 * kChannels + s % kChannels);
      order[s / 32][s % 32 * 2 + 1] = static_cast<u8>(s / kChannels * 2 * kChannels + s % kChannels + kChannels);
    }
    const V first = Load(order[0]), second = Load(order[1]), ones = Set8(1), two = Set16(2);
    const auto pair_sum = [&](const u8* p, V index) {
      const V low = Load(p), high = LoadMasked(FirstBytes(2 * kBytes - 64), p + 64);
      return _mm512_maddubs_epi16(_mm512_permutex2var_epi8(low, index, high), ones);
    };
    for (; i + kBytes <= samples; i += kBytes) {
      const u8 *p = a + 2 * i, *q = b + 2 * i;
      const V low = _mm512_srli_epi16(Add16(Add16(pair_sum(p, first), pair_sum(q, first)), two), 2);
      const V high = _mm512_srli_epi16(Add16(Add16(pair_sum(p, second), pair_sum(q, second)), two), 2);
      StoreMasked(out + i, FirstBytes(kBytes), PackWords(low, high));
    }
#endif
    for (; i < samples; i += kChannels) {
      const u8 *p = a + 2 * i, *q = b + 2 * i;
      for (int c = 0; c < kChannels; ++c) {
        out[i + c] = static_cast<u8>((p[c] + p[c + kChannels] + q[c] + q[c + kChannels] + 2) >> 2);
      }
    }
  }
}

}  // namespace

// Rows weighted and summed for all columns of the rectangle, floats.
static __attribute__((noinline)) void FusedAreaRows(const Plan& plan, const resize::Cell& rows, int channels,
                                                    float* out) {
  const std::ptrdiff_t bytes = std::ptrdiff_t{plan.x.n} * channels;
  const u8* top = RowAt(plan, rows.first) + std::ptrdiff_t{plan.x.first} * channels;
  const int count = rows.last - rows.first + 1;
  const F first = SetF(static_cast<float>(rows.first_weight)), last = SetF(static_cast<float>(rows.last_weight));
  constexpr int kAtOnce = 4 * kFloats;
  const auto widen = [](const u8* p) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
#if PQ_WIDE
    return _mm512_cvtepi32_ps(_mm512_cvtepu8_epi32(v));
#else
    return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(v));
#endif
  };
  std::ptrdiff_t i = 0;
  for (; i + kAtOnce + 16 <= bytes; i += kAtOnce) {
    F sum[4];
    const u8* p = top + i;
    for (int k = 0; k < 4; ++k) sum[k] = Mul(first, widen(p + k * kFloats));
    for (int row = 1; row < count; ++row) {
      p += plan.src_step;
      if (row < count - 1) {
        for (int k = 0; k < 4; ++k) sum[k] = Add(sum[k], widen(p + k * kFloats));
      } else {
        for (int k = 0; k < 4; ++k) sum[k] = MulAdd(last, widen(p + k * kFloats), sum[k]);
      }
    }
    for (int k = 0; k < 4; ++k) PQ_SI(storeu_ps)(out + i + k * kFloats, sum[k]);
  }
  for (; i < bytes; ++i) {
    const u8* p = top + i;
    float sum = static_cast<float>(rows.first_weight) * *p;
    for (int row = 1; row < count; ++row) {
      p += plan.src_step;
      sum += (row < count - 1 ? 1 : static_cast<float>(rows.last_weight)) * *p;
    }
    out[i] = sum;
  }
}

// The weights of the columns, `taps` for each pixel and 0 behind a cell's end, so that every pixel takes the same
// steps. taps is 0 where cells are too wide for that.
constexpr int kMostTaps = 16;
struct AreaTaps {
  int taps;
  float* weights;
};
PQ_INLINE int AreaTapCount(const Plan& plan, int channels) {
  const double step = 1 / plan.x.factor;
  if (!(step < kMostTaps - 2)) return 0;
  const int taps = static_cast<int>(step) + 2;
  return channels == 3 ? taps : (taps + 3) / 4 * 4;
}

// Columns of these sums: floats of the result, not yet multiplied by the factors.
template <int kChannels>
PQ_INLINE void AreaColumns(const Plan& plan, const Work& work, const AreaTaps table, const float* sums, float* out) {
  const int taps = table.taps;
  const float* w = table.weights;
  const resize::Cell* const cells = work.x.cells;
  const int extent = plan.x.extent, left = plan.x.first;
  const auto at = [=](int x) { return sums + std::ptrdiff_t{cells[x].first - left} * kChannels; };
  if (taps == 0) {
    for (int x = 0; x < extent; ++x) {
      const resize::Cell& cell = cells[x];
      for (int c = 0; c < kChannels; ++c) {
        const float* p = at(x) + c;
        float sum = static_cast<float>(cell.first_weight) * *p;
        for (int k = cell.first + 1; k < cell.last; ++k) sum += *(p += kChannels);
        if (cell.last > cell.first) sum += static_cast<float>(cell.last_weight) * p[kChannels];
        *out++ = sum;
      }
    }
  } else if (kChannels == 3) {  // four lanes, the last idle
    for (int x = 0; x < extent; ++x, w += taps, out += 3) {
      const float* p = at(x);
      __m128 sum = _mm_mul_ps(_mm_broadcast_ss(w), _mm_loadu_ps(p));
      for (int k = 1; k < taps; ++k) sum = _mm_fmadd_ps(_mm_broadcast_ss(w + k), _mm_loadu_ps(p + 3 * k), sum);
      _mm_storeu_ps(out, sum);
    }
  } else {  // four taps a vector, four pixels at a time; the table goes on behind the last pixel
    for (int x = 0; x < extent; x += 4, out += 4) {
      __m128 sum[4];
      for (int j = 0; j < 4; ++j, w += taps) {
        const float* p = at(x + j < extent ? x + j : x);
        sum[j] = _mm_mul_ps(_mm_loadu_ps(w), _mm_loadu_ps(p));
        for (int k = 4; k < taps; k += 4) sum[j] = _mm_fmadd_ps(_mm_loadu_ps(w + k), _mm_loadu_ps(p + k), sum[j]);
      }
      _mm_storeu_ps(out, _mm_hadd_ps(_mm_hadd_ps(sum[0], sum[1]), _mm_hadd_ps(sum[2], sum[3])));
    }
  }
}
static __attribute__((noinline)) void FusedAreaColumns3(const Plan& plan, const Work& work, const AreaTaps table,
                                                        const float* sums, float* out) {
  AreaColumns<3>(plan, work, table, sums, out);
}
static __attribute__((noinline)) void FusedAreaColumns1(const Plan& plan, const Work& work, const AreaTaps table,
                                                        const float* sums, float* out) {
  AreaColumns<1>(plan, work, table, sums, out);
}

namespace {

// Whether a cell's extents keep the single-precision sums within `doubt` of the exact ones; whole steps below 2^24 make
// the sums themselves exact.
struct AreaLimits {
  float doubt;
  bool exact;
};
PQ_INLINE AreaLimits LimitsOf(const Plan& plan) {
  const double x = 1 / plan.x.factor, y = 1 / plan.y.factor;
  const double terms = x + y + 12;
  if (!(terms < 400)) return {1, false};
  const bool whole = x == static_cast<int>(x) && y == static_cast<int>(y);
  return {static_cast<float>(255 * terms * 6e-8), whole && x * y < 65000};
}

template <int kChannels>
void DrawArea(const Plan& plan, const Work& work, AreaLimits limits) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  float* const sums = reinterpret_cast<float*>(work.rows);
  float* const line = reinterpret_cast<float*>(work.extra);
  const AreaTaps table{AreaTapCount(plan, kChannels), line + ((samples + 64 + 15) & ~std::ptrdiff_t{15})};
  for (int x = 0; table.taps > 0 && x < plan.x.extent; ++x) {
    const resize::Cell& cell = work.x.cells[x];
    float* const w = table.weights + std::ptrdiff_t{x} * table.taps;
    for (int k = 0; k < table.taps; ++k) w[k] = cell.first + k < cell.last ? 1.0f : 0.0f;
    if (cell.last > cell.first) w[cell.last - cell.first] = static_cast<float>(cell.last_weight);
    w[0] = static_cast<float>(cell.first_weight);
  }
  if (table.taps > 0) {  // what the last vectors read beyond the table and the sums
    for (int k = 0; k < 4 * kMostTaps; ++k) table.weights[std::ptrdiff_t{plan.x.extent} * table.taps + k] = 0;
  }
  for (int k = 0; k < 64; ++k) sums[std::ptrdiff_t{plan.x.n} * kChannels + k] = 0;
  const double norm = plan.x.factor * plan.y.factor;
  const F scale = SetF(static_cast<float>(norm)), half = SetF(0.5f);
  const float doubt_from = 0.5f - limits.doubt;
  for (int y = 0; y < plan.y.extent; ++y) {
    FusedAreaRows(plan, work.y.cells[y], kChannels, sums);
    (kChannels == 3 ? FusedAreaColumns3 : FusedAreaColumns1)(plan, work, table, sums, line);
    WriteRow(ResultAt(plan, y), samples, [&](std::ptrdiff_t i) {
      V q[4];
      F doubt[4];
      for (int k = 0; k < 4; ++k) {
        const F v = Mul(LoadF(line + i + k * kFloats), scale);
        doubt[k] = FromWhole(v);
        q[k] = Clamped(Add(v, half));
      }
      V bytes = PackInts(q[0], q[1], q[2], q[3]);
      if (__builtin_expect(AnyAbove(doubt, doubt_from), 0)) {
        alignas(64) u8 again[kV];
        Store(again, bytes);
        for (int k = 0; k < 4; ++k) {
          for (unsigned m = Above(doubt[k], doubt_from); m != 0; m &= m - 1) {
            const int at = k * kFloats + __builtin_ctz(m);
            if (i + at >= samples) break;
            again[at] = limits.exact ? resize::AreaValue(line[i + at] * norm)
                                     : resize::AreaSample(plan, work, kChannels, static_cast<int>(i + at), y);
          }
        }
        bytes = Load(again);
      }
      return bytes;
    });
  }
}

// ---- a call -------------------------------------------------------------------------------------------------------

PQ_INLINE std::int64_t TableBytes(const Plan& plan, int channels, int vectors) {
#if PQ_WIDE
  return BlocksBytes(plan, channels, vectors);
#else
  return LanesBytes(plan, channels, vectors);
#endif
}

template <int kChannels>
PQ_INLINE IppStatus Draw(const Plan& plan) {
  const std::int64_t samples = (std::int64_t{plan.x.extent} * kChannels + 63) & ~std::int64_t{63};
  const AreaLimits limits = LimitsOf(plan);
  if (plan.code == resize::kArea) {
    if (plan.x.factor == 0.5 && plan.y.factor == 0.5 && plan.x.n >= 2 && plan.y.n >= 2) {
      DrawHalf<kChannels>(plan);
      return ippStsNoErr;
    }
    if (limits.doubt >= 0.1f) return resize::Plain(plan, kChannels);
  }
  const std::int64_t slack = PQ_WIDE ? 0 : 64;  // samples that pairs of pixels write beyond the row
  std::int64_t row_bytes = (samples + slack) * 4, extra = 0;
  int rows = 0;
  if (plan.code == resize::kNearest) {
    extra = samples + (samples / 64 + 1) * 4 + 64;
  } else if (plan.code == resize::kLinear) {
    rows = 2;
    row_bytes = (samples + slack) * 2;
    extra = TableBytes(plan, kChannels, 1);
  } else if (plan.code == resize::kCubic) {
    rows = 4;
    extra = TableBytes(plan, kChannels, 3);
  } else if (plan.code == resize::kLanczos) {
    rows = 6;
    extra = TableBytes(plan, kChannels, 6);
  } else {
    rows = 1;
    row_bytes = (std::int64_t{plan.x.n} * kChannels + 64) * 4;
    extra = (samples + 96 + std::int64_t{AreaTapCount(plan, kChannels)} * plan.x.extent + 4 * kMostTaps) * 4;
  }
  Work work;
  if (!resize::MakeWork(work, plan, rows, row_bytes, extra)) return ippStsMemAllocErr;
  switch (plan.code) {
    case resize::kNearest:
      DrawNearest<kChannels>(plan, work);
      break;
    case resize::kLinear:
      DrawLinear<kChannels>(plan, work);
      break;
    case resize::kCubic:
      DrawCubic<kChannels>(plan, work);
      break;
    case resize::kLanczos:
      DrawLanczos<kChannels>(plan, work);
      break;
    default:
      DrawArea<kChannels>(plan, work, limits);
  }
  ippsFree(work.memory);
  return ippStsNoErr;
}

template <int kChannels>
__attribute__((noinline)) IppStatus Resize(const u8* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi, u8* dst,
                                           int dstStep, IppiSize dstSize, double xFactor, double yFactor,
                                           int interpolation) {
  Plan plan;
  if (const IppStatus status = resize::MakePlan(plan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor,
                                                yFactor, interpolation)) {
    return status;
  }
  return Draw<kChannels>(plan);
}

}  // namespace
}  // namespace PQ_TARGET

IppStatus PQ_VARIANT(ippiResize_8u_C3R) PQ_PARAMS_Resize {
  const int mode = PQRoundToNearest();
  const IppStatus status =
      PQ_TARGET::Resize<3>(src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor, yFactor, interpolation);
  PQRestoreRounding(mode);
  return status;
}

IppStatus PQ_VARIANT(ippiResize_8u_C1R) PQ_PARAMS_Resize {
  const int mode = PQRoundToNearest();
  const IppStatus status =
      PQ_TARGET::Resize<1>(src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor, yFactor, interpolation);
  PQRestoreRounding(mode);
  return status;
}

}  // namespace pantiq
