// gcc 12 takes the undefined vectors inside its own AVX-512 headers for a mistake of the caller.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop

#include <cstddef>

#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQNoise.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

using noise::kBlock;
using noise::kBlockTables;

#define PQ_INLINE static inline __attribute__((always_inline))

// ---- lanes of 32 bits ----------------------------------------------------------------------------------------------

#if defined(__AVX512VBMI__)
constexpr int kLanes = 16;
using Ints = __m512i;
using Floats = __m512;
PQ_INLINE Ints Load(const void* p) { return _mm512_loadu_si512(p); }
PQ_INLINE void Store(void* p, Ints v) { _mm512_storeu_si512(p, v); }
PQ_INLINE Ints Set(std::uint32_t v) { return _mm512_set1_epi32(static_cast<int>(v)); }
PQ_INLINE Ints Add(Ints a, Ints b) { return _mm512_add_epi32(a, b); }
PQ_INLINE Ints Sub(Ints a, Ints b) { return _mm512_sub_epi32(a, b); }
PQ_INLINE Ints Mul(Ints a, Ints b) { return _mm512_mullo_epi32(a, b); }
PQ_INLINE Ints And(Ints a, Ints b) { return _mm512_and_si512(a, b); }
PQ_INLINE Ints Or(Ints a, Ints b) { return _mm512_or_si512(a, b); }
PQ_INLINE Ints Xor(Ints a, Ints b) { return _mm512_xor_si512(a, b); }
PQ_INLINE Ints SignFill(Ints a) { return _mm512_srai_epi32(a, 31); }
PQ_INLINE Ints LastOfQuarter(Ints a) { return _mm512_shuffle_epi32(a, _MM_PERM_DDDD); }
PQ_INLINE Ints Spread(Ints a, int lane) { return _mm512_permutexvar_epi32(Set(static_cast<std::uint32_t>(lane)), a); }
PQ_INLINE unsigned Signs(Ints a) { return _mm512_movepi32_mask(a); }
#else
constexpr int kLanes = 8;
using Ints = __m256i;
using Floats = __m256;
PQ_INLINE Ints Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
PQ_INLINE void Store(void* p, Ints v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
PQ_INLINE Ints Set(std::uint32_t v) { return _mm256_set1_epi32(static_cast<int>(v)); }
PQ_INLINE Ints Add(Ints a, Ints b) { return _mm256_add_epi32(a, b); }
PQ_INLINE Ints Sub(Ints a, Ints b) { return _mm256_sub_epi32(a, b); }
PQ_INLINE Ints Mul(Ints a, Ints b) { return _mm256_mullo_epi32(a, b); }
PQ_INLINE Ints And(Ints a, Ints b) { return _mm256_and_si256(a, b); }
PQ_INLINE Ints Or(Ints a, Ints b) { return _mm256_or_si256(a, b); }
PQ_INLINE Ints Xor(Ints a, Ints b) { return _mm256_xor_si256(a, b); }
PQ_INLINE Ints SignFill(Ints a) { return _mm256_srai_epi32(a, 31); }
PQ_INLINE Ints LastOfQuarter(Ints a) { return _mm256_shuffle_epi32(a, 0xFF); }
PQ_INLINE Ints Spread(Ints a, int lane) {
  return _mm256_permutevar8x32_epi32(a, Set(static_cast<std::uint32_t>(lane)));
}
PQ_INLINE unsigned Signs(Ints a) { return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(a))); }
#endif
constexpr int kVectors = kBlock / kLanes;

// ---- the random numbers, kBlock at a time --------------------------------------------------------------------------

struct Source {
  Ints p, q, r;      // X[n-3] - borrow, X[n-2], X[n-1] in every lane
  Ints l[kVectors];  // L of the next block
};

PQ_INLINE void Start(Source& source, std::uint32_t seed) {
  const std::uint32_t x2 = seed * noise::kMultiplier + noise::kIncrement;
  source.p = Set(x2 * noise::kMultiplier + noise::kIncrement + 1);
  source.q = Set(x2);
  source.r = Set(seed);
  for (int v = 0; v < kVectors; ++v) source.l[v] = Load(kBlockTables.first_l + v * kLanes);
}

// What four borrows of the block, those of nibble kNibble of all its borrows, add to vector kVector. signs: the borrows
// of the vector that holds the nibble.
template <int kVector, int kNibble>
PQ_INLINE Ints Response(const unsigned (&signs)[kVectors]) {
  // A row of the tables is 16 lanes wide and they begin at every fourth draw from -12; 8 lanes are one half of a row.
  constexpr int kFirst = kVector * kLanes - kNibble * 4 + 12;
  constexpr bool kSecondHalf = kLanes == 8 && (kFirst / 8 % 2 == 1 || kFirst > 32);
  constexpr int kTable = (kSecondHalf ? kFirst - 8 : kFirst) / 4;
  // The nibble times the size of a row. Kept in a general register: the compiler would collect nibbles in vectors.
  constexpr int kShift = kNibble % (kLanes / 4) * 4 - 6;
  std::size_t row = signs[kNibble / (kLanes / 4)];
  row = (kShift < 0 ? row << (kShift < 0 ? -kShift : 0) : row >> (kShift < 0 ? 0 : kShift)) &
        15 * sizeof(kBlockTables.response[0][0]);
  __asm__("" : "+r"(row));
  const char* table = reinterpret_cast<const char*>(kBlockTables.response[kTable][0] + (kSecondHalf ? 8 : 0));
  return Load(table + row);
}

// What all borrows of nibbles kFrom to kTo - 1, an even number of them, add to vector kVector.
template <int kVector, int kFrom, int kTo>
PQ_INLINE Ints Responses(const unsigned (&signs)[kVectors]) {
  if constexpr (kTo - kFrom == 2) {
    return Add(Response<kVector, kFrom>(signs), Response<kVector, kFrom + 1>(signs));
  } else {
    constexpr int kMiddle = kFrom + (kTo - kFrom) / 4 * 2;
    return Add(Responses<kVector, kFrom, kMiddle>(signs), Responses<kVector, kMiddle, kTo>(signs));
  }
}

__attribute__((noinline, cold)) void StepOneByOne(Ints p, Ints q, Ints r, std::uint32_t* state, std::uint32_t* x) {
  alignas(64) std::uint32_t lanes[kLanes];
  std::uint32_t three[3];
  std::uint32_t block[kBlock];
  Store(lanes, p);
  three[0] = lanes[0];
  Store(lanes, q);
  three[1] = lanes[0];
  Store(lanes, r);
  three[2] = lanes[0];
  noise::StepBlock(three, block);
  __builtin_memcpy(state, three, sizeof three);
  __builtin_memcpy(x, block, sizeof block);
}

// The next kBlock numbers X.
PQ_INLINE void NextX(Source& source, Ints (&x)[kVectors]) {
  Ints z[kVectors], t[kVectors];
  Ints doubt = Set(0);
  for (int v = 0; v < kVectors; ++v) {
    const int at = v * kLanes;
    z[v] = Add(Add(Mul(source.p, Load(kBlockTables.p + at)), Mul(source.q, Load(kBlockTables.q + at))),
               Mul(source.r, Load(kBlockTables.r + at)));
    t[v] = Add(z[v], Load(kBlockTables.low + at));
    doubt = Or(doubt, Xor(t[v], Add(z[v], Load(kBlockTables.high + at))));
  }
  if (__builtin_expect(Signs(doubt) != 0, 0)) {
    std::uint32_t state[3];
    alignas(64) std::uint32_t block[kBlock];
    StepOneByOne(source.p, source.q, source.r, state, block);
    for (int v = 0; v < kVectors; ++v) x[v] = Load(block + v * kLanes);
    source.p = Set(state[0]);
    source.q = Set(state[1]);
    source.r = Set(state[2]);
    return;
  }
  unsigned signs[kVectors];
  for (int v = 0; v < kVectors; ++v) signs[v] = Signs(t[v]);
  constexpr int kNibbles = kLanes / 4;  // of a vector
  x[0] = Add(z[0], Responses<0, 0, kNibbles>(signs));
  if constexpr (kVectors == 4) {
    x[1] = Add(z[1], Responses<1, 0, 2 * kNibbles>(signs));
    x[2] = Add(z[2], Responses<2, 0, 3 * kNibbles>(signs));
  }
  constexpr int kLast = kVectors - 1;
  const Ints sum = Responses<kLast, 0, kVectors * kNibbles>(signs);
  x[kLast] = Add(z[kLast], sum);
  // The last three X, the first of them less the last borrow, start the next block.
  alignas(64) static constexpr std::uint32_t kThirdLast[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ~0u};
  const Ints borrow = And(LastOfQuarter(SignFill(t[kLast])), Load(kThirdLast + 16 - kLanes));
  const Ints last = Add(Sub(z[kLast], borrow), sum);
  source.p = Spread(last, kLanes - 3);
  source.q = Spread(last, kLanes - 2);
  source.r = Spread(last, kLanes - 1);
}

// The next kBlock draws, and the X behind them.
PQ_INLINE void NextDraws(Source& source, Ints (&x)[kVectors], Ints (&draws)[kVectors]) {
  NextX(source, x);
  for (int v = 0; v < kVectors; ++v) {
    draws[v] = Add(x[v], source.l[v]);
    source.l[v] = Add(Mul(source.l[v], Set(kBlockTables.l_multiplier)), Set(kBlockTables.l_increment));
  }
}

// ---- walking the picture -------------------------------------------------------------------------------------------

PQ_INLINE std::uint32_t LoadSeed(const std::uint16_t* seed) {
  std::uint32_t value;
  __builtin_memcpy(&value, seed, sizeof value);
  return value;
}

PQ_INLINE void StoreSeed(std::uint16_t* seed, std::uint32_t value) { __builtin_memcpy(seed, &value, sizeof value); }

// The next samples of the roi, row by row.
struct Walk {
  std::uint8_t* at;
  std::int64_t left;   // samples left in this row
  std::int64_t width;  // samples in a row
  std::ptrdiff_t step;
};

PQ_INLINE Walk MakeWalk(std::uint8_t* pixels, int step, IppiSize roi) {
  const std::int64_t width = std::int64_t{roi.width} * 3;
  return Walk{pixels, width, width, step};
}

PQ_INLINE int NextRun(Walk& walk, int wanted, std::uint8_t** run) {
  if (walk.left == 0) {
    walk.at += walk.step - walk.width;
    walk.left = walk.width;
  }
  const int length = walk.left < wanted ? static_cast<int>(walk.left) : wanted;
  *run = walk.at;
  walk.at += length;
  walk.left -= length;
  return length;
}

// ---- uniform noise -------------------------------------------------------------------------------------------------
//
// The noise of a draw R is the step function round(R * scale + offset). Its exact value D * R / 2^32 + (low + high) /
// 2, D = high - low, is a multiple of 2^-32, and what the two roundings and the constant change is below 3e-13; so it
// is floor(D * R / 2^32 + (low + high + 1) / 2) unless that argument is itself a whole number. In lanes the floor is
// taken from D * (R >> 16) + (D * (R & 65535) >> 16) + (low + high + 1) * 32768, whose upper half is the noise and
// whose lower half must be 0 where the argument is a whole number: such a block (one in two thousand) is done by the
// exact formula. With D below 0, D * R = -D * -R; the least R is raised by 1 first, which makes it negatable and
// changes no result.

constexpr int kUniformChunk = 2048;  // samples, a multiple of kBlock

__attribute__((noinline, cold)) void UniformExactly(const std::uint32_t* draws, std::uint8_t low, std::uint8_t high,
                                                    std::uint8_t* noise) {
  const double scale = (high - low) * 2.3283064365387e-10;
  const double offset = (low + high) * 0.5;
  for (int k = 0; k < kBlock; ++k) {
    noise[k] = static_cast<std::uint8_t>(noise::UniformNoise(static_cast<std::int32_t>(draws[k]), scale, offset));
  }
}

#if defined(__AVX512VBMI__)
// Nonzero where a lane's lower half is 0.
PQ_INLINE bool AnyWhole(const Ints (&sum)[kVectors]) {
  const Ints half = Set(0xFFFF);
  return (_mm512_testn_epi32_mask(sum[0], half) | _mm512_testn_epi32_mask(sum[1], half)) != 0;
}
PQ_INLINE Ints ScaleDraw(Ints draw, Ints upper, Ints lower, Ints bias) {
  return Add(Add(_mm512_madd_epi16(draw, upper), bias), _mm512_mulhi_epu16(draw, lower));
}
PQ_INLINE Ints NegateDraw(Ints draw) { return Sub(Set(0), _mm512_max_epi32(draw, Set(0x80000001u))); }
// The third byte of every lane.
PQ_INLINE void StoreThirdBytes(std::uint8_t* noise, const Ints (&sum)[kVectors]) {
  alignas(64) static constexpr std::uint8_t kThird[64] = {2,  6,  10, 14,  18,  22,  26,  30,  34,  38, 42,
                                                          46, 50, 54, 58,  62,  66,  70,  74,  78,  82, 86,
                                                          90, 94, 98, 102, 106, 110, 114, 118, 122, 126};
  const Ints bytes = _mm512_permutex2var_epi8(sum[0], Load(kThird), sum[1]);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(noise), _mm512_castsi512_si256(bytes));
}
#else
PQ_INLINE bool AnyWhole(const Ints (&sum)[kVectors]) {
  const Ints least = _mm256_min_epu16(_mm256_min_epu16(sum[0], sum[1]), _mm256_min_epu16(sum[2], sum[3]));
  return !_mm256_testz_si256(_mm256_cmpeq_epi16(least, Set(0)), Set(0xFFFF));
}
PQ_INLINE Ints ScaleDraw(Ints draw, Ints upper, Ints lower, Ints bias) {
  return Add(Add(_mm256_madd_epi16(draw, upper), bias), _mm256_mulhi_epu16(draw, lower));
}
PQ_INLINE Ints NegateDraw(Ints draw) { return Sub(Set(0), _mm256_max_epi32(draw, Set(0x80000001u))); }
PQ_INLINE void StoreThirdBytes(std::uint8_t* noise, const Ints (&sum)[kVectors]) {
  const Ints ab = _mm256_packus_epi32(_mm256_srli_epi32(sum[0], 16), _mm256_srli_epi32(sum[1], 16));
  const Ints cd = _mm256_packus_epi32(_mm256_srli_epi32(sum[2], 16), _mm256_srli_epi32(sum[3], 16));
  const Ints order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  Store(noise, _mm256_permutevar8x32_epi32(_mm256_packus_epi16(ab, cd), order));
}
#endif

// dst[i] = min(dst[i] + noise[i], 255)
PQ_INLINE void AddBytes(std::uint8_t* dst, const std::uint8_t* noise, int n) {
  int i = 0;
#if defined(__AVX512VBMI__)
  for (; i + 64 <= n; i += 64) Store(dst + i, _mm512_adds_epu8(Load(dst + i), Load(noise + i)));
  if (i < n) {
    const __mmask64 tail = ~std::uint64_t{0} >> (64 - (n - i));
    _mm512_mask_storeu_epi8(
        dst + i, tail,
        _mm512_adds_epu8(_mm512_maskz_loadu_epi8(tail, dst + i), _mm512_maskz_loadu_epi8(tail, noise + i)));
  }
#else
  for (; i + 32 <= n; i += 32) Store(dst + i, _mm256_adds_epu8(Load(dst + i), Load(noise + i)));
  for (; i + 8 <= n; i += 8) {
    const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(dst + i));
    const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(noise + i));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + i), _mm_adds_epu8(a, b));
  }
  for (; i < n; ++i) {
    const int v = dst[i] + noise[i];
    dst[i] = static_cast<std::uint8_t>(v > 255 ? 255 : v);
  }
#endif
}

template <bool kReversed>
__attribute__((noinline)) void AddUniform(std::uint8_t* pixels, int step, IppiSize roi, std::uint8_t low,
                                          std::uint8_t high, std::uint16_t* seed) {
  const unsigned range = static_cast<unsigned>(kReversed ? low - high : high - low);
  const Ints upper = Set(range << 16), lower = Set(range);
  const Ints bias = Set((unsigned{low} + high + 1) << 15);
  Walk walk = MakeWalk(pixels, step, roi);
  alignas(64) std::uint8_t noise[kUniformChunk];
  alignas(64) std::uint32_t last[kBlock];
  Source source;
  Start(source, LoadSeed(seed));
  Ints x[kVectors], draws[kVectors], sum[kVectors];
  for (std::int64_t left = walk.width * roi.height; left > 0;) {
    const int chunk = left < kUniformChunk ? static_cast<int>(left) : kUniformChunk;
    for (int i = 0; i < chunk; i += kBlock) {
      NextDraws(source, x, draws);
      for (int v = 0; v < kVectors; ++v) {
        sum[v] = ScaleDraw(kReversed ? NegateDraw(draws[v]) : draws[v], upper, lower, bias);
      }
      StoreThirdBytes(noise + i, sum);
      if (__builtin_expect(AnyWhole(sum), 0)) {
        alignas(64) std::uint32_t block[kBlock];
        for (int v = 0; v < kVectors; ++v) Store(block + v * kLanes, draws[v]);
        UniformExactly(block, low, high, noise + i);
      }
    }
    left -= chunk;
    for (int used = 0; used < chunk;) {
      std::uint8_t* run;
      const int length = NextRun(walk, chunk - used, &run);
      AddBytes(run, noise + used, length);
      used += length;
    }
    if (left == 0) {
      for (int v = 0; v < kVectors; ++v) Store(last + v * kLanes, x[v]);
      StoreSeed(seed, last[(chunk - 1) % kBlock]);
    }
  }
}

// ---- Gaussian noise ------------------------------------------------------------------------------------------------
//
// Whether a pair is taken is decided by the exact formula in doubles. The noise is worked out in floats, and wherever
// the result comes so close to a half that the byte could be another one, by the exact formula. With e = 2^-24, the
// relative error of one rounding, and r = q - 1 (taken from doubles where q is near 1, else from the mantissa m of q):
// s = r / (r + 2) has 3.2 e, log(1 + r) = 2 (s + s^3/3 + s^5/5 + s^7/7) at |s| <= 0.1716 with the terms left out 5.7 e,
// and where q is halved n times first, adding -n ln 2 leaves at most 12.4 e, as the sum stays above 0.3466 while the
// parts' errors stay below 4 e. Dividing by q adds 2 e, the root halves it and adds 1 e, factor and draw add 4 e: 12.2
// e in all, below 2^-20. The guard is 2^-19 of the largest value that this f allows, plus 2^-24 for what the doubles of
// the exact formula round.

constexpr int kPairChunk = 1024;

struct GaussScale {
  Floats factor;  // standard deviation times the scale of a draw
  Ints mean;      // in both halves of a lane
};

#if defined(__AVX512VBMI__)
PQ_INLINE Floats SetF(float v) { return _mm512_set1_ps(v); }
PQ_INLINE Floats AddF(Floats a, Floats b) { return _mm512_add_ps(a, b); }
PQ_INLINE Floats SubF(Floats a, Floats b) { return _mm512_sub_ps(a, b); }
PQ_INLINE Floats MulF(Floats a, Floats b) { return _mm512_mul_ps(a, b); }
PQ_INLINE Floats DivF(Floats a, Floats b) { return _mm512_div_ps(a, b); }
PQ_INLINE Floats SqrtF(Floats a) { return _mm512_sqrt_ps(a); }
PQ_INLINE Floats ToFloats(Ints a) { return _mm512_cvtepi32_ps(a); }
PQ_INLINE Floats AsFloats(Ints a) { return _mm512_castsi512_ps(a); }
PQ_INLINE Ints AsInts(Floats a) { return _mm512_castps_si512(a); }
PQ_INLINE Floats Round(Floats a) { return _mm512_roundscale_ps(a, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC); }
PQ_INLINE Ints Truncate(Floats a) { return _mm512_cvttps_epi32(a); }
PQ_INLINE Floats LargestAbs(Floats a, Floats b) { return _mm512_max_ps(_mm512_abs_ps(a), _mm512_abs_ps(b)); }
template <int kBits>
PQ_INLINE Ints ShiftRight(Ints a) {
  return _mm512_srai_epi32(a, kBits);
}
template <int kBits>
PQ_INLINE Ints ShiftLeft(Ints a) {
  return _mm512_slli_epi32(a, kBits);
}
// if_zero where key is 0, else other.
PQ_INLINE Floats Pick(Ints key, Floats if_zero, Floats other) {
  return _mm512_mask_mov_ps(other, _mm512_testn_epi32_mask(key, key), if_zero);
}
PQ_INLINE unsigned Above0(Floats a) { return _mm512_cmp_ps_mask(a, SetF(0), _CMP_GT_OQ); }
PQ_INLINE unsigned NotBelow(Floats a, Floats b) { return _mm512_cmp_ps_mask(a, b, _CMP_NLT_UQ); }
PQ_INLINE Ints Pack16(Ints low, Ints high) { return _mm512_mask_blend_epi16(0xAAAAAAAA, low, ShiftLeft<16>(high)); }
PQ_INLINE Ints Add16(Ints a, Ints b) { return _mm512_add_epi16(a, b); }
PQ_INLINE void Unzip(Ints a, Ints b, Ints* even, Ints* odd) {
  *even = _mm512_permutex2var_epi32(a, _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30), b);
  *odd = _mm512_permutex2var_epi32(a, _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31), b);
}
using Doubles = __m512d;
PQ_INLINE Doubles SetD(double v) { return _mm512_set1_pd(v); }
PQ_INLINE Doubles AddD(Doubles a, Doubles b) { return _mm512_add_pd(a, b); }
PQ_INLINE Doubles SubD(Doubles a, Doubles b) { return _mm512_sub_pd(a, b); }
PQ_INLINE Doubles MulD(Doubles a, Doubles b) { return _mm512_mul_pd(a, b); }
PQ_INLINE Doubles LowD(Ints a) { return _mm512_cvtepi32_pd(_mm512_castsi512_si256(a)); }
PQ_INLINE Doubles HighD(Ints a) { return _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(a, 1)); }
PQ_INLINE Floats JoinD(Doubles low, Doubles high) {
  return _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps(low)), _mm512_cvtpd_ps(high), 1);
}
PQ_INLINE void StoreTaken(std::int16_t* to, unsigned taken, Ints v) {
  Store(to, _mm512_maskz_compress_epi32(static_cast<__mmask16>(taken), v));
}
#else
PQ_INLINE Floats SetF(float v) { return _mm256_set1_ps(v); }
PQ_INLINE Floats AddF(Floats a, Floats b) { return _mm256_add_ps(a, b); }
PQ_INLINE Floats SubF(Floats a, Floats b) { return _mm256_sub_ps(a, b); }
PQ_INLINE Floats MulF(Floats a, Floats b) { return _mm256_mul_ps(a, b); }
PQ_INLINE Floats DivF(Floats a, Floats b) { return _mm256_div_ps(a, b); }
PQ_INLINE Floats SqrtF(Floats a) { return _mm256_sqrt_ps(a); }
PQ_INLINE Floats ToFloats(Ints a) { return _mm256_cvtepi32_ps(a); }
PQ_INLINE Floats AsFloats(Ints a) { return _mm256_castsi256_ps(a); }
PQ_INLINE Ints AsInts(Floats a) { return _mm256_castps_si256(a); }
PQ_INLINE Floats Round(Floats a) { return _mm256_round_ps(a, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC); }
PQ_INLINE Ints Truncate(Floats a) { return _mm256_cvttps_epi32(a); }
PQ_INLINE Floats LargestAbs(Floats a, Floats b) {
  const Floats sign = SetF(-0.0f);
  return _mm256_max_ps(_mm256_andnot_ps(sign, a), _mm256_andnot_ps(sign, b));
}
template <int kBits>
PQ_INLINE Ints ShiftRight(Ints a) {
  return _mm256_srai_epi32(a, kBits);
}
template <int kBits>
PQ_INLINE Ints ShiftLeft(Ints a) {
  return _mm256_slli_epi32(a, kBits);
}
PQ_INLINE Floats Pick(Ints key, Floats if_zero, Floats other) {
  return _mm256_blendv_ps(other, if_zero, AsFloats(_mm256_cmpeq_epi32(key, Set(0))));
}
PQ_INLINE unsigned Above0(Floats a) {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a, SetF(0), _CMP_GT_OQ)));
}
PQ_INLINE unsigned NotBelow(Floats a, Floats b) {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_NLT_UQ)));
}
PQ_INLINE Ints Pack16(Ints low, Ints high) { return _mm256_blend_epi16(low, ShiftLeft<16>(high), 0xAA); }
PQ_INLINE Ints Add16(Ints a, Ints b) { return _mm256_add_epi16(a, b); }
PQ_INLINE void Unzip(Ints a, Ints b, Ints* even, Ints* odd) {
  const Floats e = _mm256_shuffle_ps(AsFloats(a), AsFloats(b), 0x88),
               o = _mm256_shuffle_ps(AsFloats(a), AsFloats(b), 0xDD);
  *even = _mm256_permute4x64_epi64(AsInts(e), 0xD8);
  *odd = _mm256_permute4x64_epi64(AsInts(o), 0xD8);
}
using Doubles = __m256d;
PQ_INLINE Doubles SetD(double v) { return _mm256_set1_pd(v); }
PQ_INLINE Doubles AddD(Doubles a, Doubles b) { return _mm256_add_pd(a, b); }
PQ_INLINE Doubles SubD(Doubles a, Doubles b) { return _mm256_sub_pd(a, b); }
PQ_INLINE Doubles MulD(Doubles a, Doubles b) { return _mm256_mul_pd(a, b); }
PQ_INLINE Doubles LowD(Ints a) { return _mm256_cvtepi32_pd(_mm256_castsi256_si128(a)); }
PQ_INLINE Doubles HighD(Ints a) { return _mm256_cvtepi32_pd(_mm256_extracti128_si256(a, 1)); }
PQ_INLINE Floats JoinD(Doubles low, Doubles high) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(low)), _mm256_cvtpd_ps(high), 1);
}
#if defined(__AVX512VL__)
PQ_INLINE void StoreTaken(std::int16_t* to, unsigned taken, Ints v) {
  Store(to, _mm256_maskz_compress_epi32(static_cast<__mmask8>(taken), v));
}
#else
// Which lanes a bit mask takes, in order.
struct TakenLanes {
  std::uint8_t lane[256][8];
};
constexpr TakenLanes MakeTakenLanes() {
  TakenLanes table{};
  for (int mask = 0; mask < 256; ++mask) {
    for (int lane = 0, n = 0; lane < 8; ++lane) {
      if (mask >> lane & 1) table.lane[mask][n++] = static_cast<std::uint8_t>(lane);
    }
  }
  return table;
}
alignas(64) constexpr TakenLanes kTakenLanes = MakeTakenLanes();
PQ_INLINE void StoreTaken(std::int16_t* to, unsigned taken, Ints v) {
  const __m128i lanes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kTakenLanes.lane[taken]));
  Store(to, _mm256_permutevar8x32_epi32(v, _mm256_cvtepu8_epi32(lanes)));
}
#endif
#endif

// Redoes the pairs of mask `which` by the exact formula; gives the pairs that are dropped after all (q is 0).
__attribute__((noinline, cold)) unsigned GaussExactly(Ints draw1, Ints draw2, unsigned which, std::uint8_t mean,
                                                      std::uint8_t std_dev, std::uint32_t* noise) {
  alignas(64) std::int32_t first[kLanes], second[kLanes];
  Store(first, draw1);
  Store(second, draw2);
  unsigned dropped = 0;
  for (int lane = 0; lane < kLanes; ++lane) {
    if ((which >> lane & 1) == 0) continue;
    int pair[2];
    if (noise::GaussNoise(first[lane], second[lane], mean, std_dev, pair)) {
      noise[lane] = (static_cast<std::uint32_t>(pair[0]) & 0xFFFF) | static_cast<std::uint32_t>(pair[1]) << 16;
    } else {
      dropped |= 1u << lane;
    }
  }
  return dropped;
}

constexpr int kGroups = kVectors / 2;  // of kLanes pairs in a block

// -2 * log(q) for q below 1, from q and rest = 1 - q. Groups are worked on side by side, as each is one long chain.
PQ_INLINE void MinusTwoLog(const Floats (&q)[kGroups], const Floats (&rest)[kGroups], Floats (&result)[kGroups]) {
  Ints n[kGroups];
  Floats r[kGroups], s[kGroups], s2[kGroups], series[kGroups];
  for (int g = 0; g < kGroups; ++g) {  // q = m * 2^n with m between the roots of 1/2 and 2
    n[g] = ShiftRight<23>(Sub(AsInts(q[g]), Set(0x3F3504F3)));
    const Floats m = AsFloats(Sub(AsInts(q[g]), ShiftLeft<23>(n[g])));
    r[g] = Pick(n[g], SubF(SetF(0), rest[g]), SubF(m, SetF(1)));
  }
  for (int g = 0; g < kGroups; ++g) s[g] = DivF(r[g], AddF(r[g], SetF(2)));
  for (int g = 0; g < kGroups; ++g) s2[g] = MulF(s[g], s[g]);
  for (int g = 0; g < kGroups; ++g) series[g] = AddF(SetF(1.0f / 5), MulF(s2[g], SetF(1.0f / 7)));
  for (int g = 0; g < kGroups; ++g) series[g] = AddF(SetF(1.0f / 3), MulF(s2[g], series[g]));
  for (int g = 0; g < kGroups; ++g) series[g] = AddF(s[g], MulF(s[g], MulF(s2[g], series[g])));
  for (int g = 0; g < kGroups; ++g) {
    result[g] = AddF(MulF(series[g], SetF(-4)), MulF(ToFloats(n[g]), SetF(-1.38629436f)));
  }
}

// Writes the noise of the pairs that are taken out of a block of draws, two 16-bit numbers a pair, without gaps; gives
// their number. Up to kLanes pairs behind them are overwritten.
PQ_INLINE int GaussBlock(const Ints (&draws)[kVectors], const GaussScale& scale, std::uint8_t mean,
                         std::uint8_t std_dev, std::int16_t* to) {
  const Doubles unit = SetD(4.656612873077e-10), one = SetD(1);
  Ints draw1[kGroups], draw2[kGroups];
  Floats q[kGroups], rest[kGroups], factor[kGroups];
  unsigned taken[kGroups], doubt[kGroups];
  for (int g = 0; g < kGroups; ++g) {
    Unzip(draws[2 * g], draws[2 * g + 1], &draw1[g], &draw2[g]);
    const Doubles u0 = MulD(LowD(draw1[g]), unit), u1 = MulD(HighD(draw1[g]), unit);
    const Doubles v0 = MulD(LowD(draw2[g]), unit), v1 = MulD(HighD(draw2[g]), unit);
    const Doubles q0 = AddD(MulD(u0, u0), MulD(v0, v0)), q1 = AddD(MulD(u1, u1), MulD(v1, v1));
    q[g] = JoinD(q0, q1);
    rest[g] = JoinD(SubD(one, q0), SubD(one, q1));  // in floats, but with all its digits
    taken[g] = Above0(rest[g]);
  }
  MinusTwoLog(q, rest, factor);
  for (int g = 0; g < kGroups; ++g) factor[g] = MulF(SqrtF(DivF(factor[g], q[g])), scale.factor);
  Ints pairs[kGroups];
  for (int g = 0; g < kGroups; ++g) {
    const Floats noise1 = MulF(factor[g], ToFloats(draw1[g])), noise2 = MulF(factor[g], ToFloats(draw2[g]));
    const Floats round1 = Round(noise1), round2 = Round(noise2);
    const Floats distance = LargestAbs(SubF(noise1, round1), SubF(noise2, round2));
    const Floats sure = SubF(SetF(0.5f - 0x1p-24f), MulF(factor[g], SetF(0x1p12f)));  // a draw is at most 2^31
    pairs[g] = Add16(Pack16(Truncate(round1), Truncate(round2)), scale.mean);
    doubt[g] = NotBelow(distance, sure) & taken[g];
  }
  int count = 0;
  for (int g = 0; g < kGroups; ++g) {
    if (__builtin_expect(doubt[g] != 0, 0)) {
      alignas(64) std::uint32_t lanes[kLanes];
      Store(lanes, pairs[g]);
      taken[g] &= ~GaussExactly(draw1[g], draw2[g], doubt[g], mean, std_dev, lanes);
      pairs[g] = Load(lanes);
    }
    StoreTaken(to + 2 * count, taken[g], pairs[g]);
    count += __builtin_popcount(taken[g]);
  }
  return count;
}

// dst[i] = clamp(dst[i] + noise[i], 0, 255)
PQ_INLINE void AddWords(std::uint8_t* dst, const std::int16_t* noise, int n) {
  int i = 0;
#if defined(__AVX512VBMI__)
  for (; i + 64 <= n; i += 64) {
    const Ints bytes = Load(dst + i);
    const Ints a = Add16(_mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes)), Load(noise + i));
    const Ints b = Add16(_mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1)), Load(noise + i + 32));
    const Ints order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    Store(dst + i, _mm512_permutexvar_epi64(order, _mm512_packus_epi16(a, b)));
  }
  for (; i < n; i += 32) {
    const __mmask32 tail = n - i < 32 ? (1u << (n - i)) - 1 : ~0u;
    const Ints a =
        Add16(_mm512_cvtepu8_epi16(_mm256_maskz_loadu_epi8(tail, dst + i)), _mm512_maskz_loadu_epi16(tail, noise + i));
    _mm512_mask_cvtusepi16_storeu_epi8(dst + i, tail, _mm512_max_epi16(a, Set(0)));
  }
#else
  for (; i + 32 <= n; i += 32) {
    const Ints bytes = Load(dst + i);
    const Ints a = Add16(_mm256_cvtepu8_epi16(_mm256_castsi256_si128(bytes)), Load(noise + i));
    const Ints b = Add16(_mm256_cvtepu8_epi16(_mm256_extracti128_si256(bytes, 1)), Load(noise + i + 16));
    Store(dst + i, _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
  }
  for (; i + 8 <= n; i += 8) {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(dst + i));
    const __m128i a =
        _mm_add_epi16(_mm_cvtepu8_epi16(bytes), _mm_loadu_si128(reinterpret_cast<const __m128i*>(noise + i)));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(a, a));
  }
  for (; i < n; ++i) {
    const int v = dst[i] + noise[i];
    dst[i] = static_cast<std::uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
  }
#endif
}

// The place, in a block, of the pair that is the taken-th one taken, counted from 1.
__attribute__((noinline, cold)) int FindPair(const std::uint32_t* draws, int taken) {
  for (int pair = 0; pair < kBlock / 2; ++pair) {
    int unused[2];
    if (noise::GaussNoise(static_cast<std::int32_t>(draws[2 * pair]), static_cast<std::int32_t>(draws[2 * pair + 1]), 0,
                          1, unused) &&
        --taken == 0) {
      return pair;
    }
  }
  return kBlock / 2 - 1;  // not reached: the block holds at least that many
}

__attribute__((noinline)) void AddGauss(std::uint8_t* pixels, int step, IppiSize roi, std::uint8_t mean,
                                        std::uint8_t std_dev, std::uint16_t* seed) {
  GaussScale scale;
  scale.factor = SetF(static_cast<float>(std_dev * 4.656612873077e-10));
  scale.mean = Set(mean * 0x10001u);
  Walk walk = MakeWalk(pixels, step, roi);
  alignas(64) std::int16_t noise[2 * (kPairChunk + kBlock)];
  alignas(64) std::uint32_t last_x[kBlock], last_draws[kBlock];
  Source source;
  Start(source, LoadSeed(seed));
  Ints x[kVectors], draws[kVectors], next_x[kVectors], next_draws[kVectors];
  NextDraws(source, next_x, next_draws);
  for (std::int64_t left = walk.width * roi.height; left > 0;) {
    const std::int64_t pairs_left = (left + 1) / 2;
    const int wanted = pairs_left < kPairChunk ? static_cast<int>(pairs_left) : kPairChunk;
    int count = 0, before = 0;
    while (count < wanted) {
      before = count;
      for (int v = 0; v < kVectors; ++v) {
        x[v] = next_x[v];
        draws[v] = next_draws[v];
      }
      NextDraws(source, next_x, next_draws);  // a block ahead: its long chain runs beside the work on this one
      count += GaussBlock(draws, scale, mean, std_dev, noise + 2 * count);
      for (int v = 0; v < kVectors; ++v) {
        Store(last_x + v * kLanes, x[v]);
        Store(last_draws + v * kLanes, draws[v]);
      }
    }
    if (count >= pairs_left) {
      StoreSeed(seed, last_x[2 * FindPair(last_draws, static_cast<int>(pairs_left) - before) + 1]);
      count = static_cast<int>(pairs_left);
    }
    const int samples = 2 * count < left ? 2 * count : static_cast<int>(left);
    left -= samples;
    for (int used = 0; used < samples;) {
      std::uint8_t* run;
      const int length = NextRun(walk, samples - used, &run);
      AddWords(run, noise + used, length);
      used += length;
    }
  }
}

// ---- the test picture ----------------------------------------------------------------------------------------------
//
// With A = 2 x - width + 1 and B = 2 y - height + 1 the angle is 2 pi (A * A + B * B) / (16 height): a value depends on
// N = A * A + B * B modulo 16 * height alone. All N of a picture are equal modulo 4, modulo 8 where both sizes are
// even, so a table of 4 or 2 * height entries holds all values; left and right, upper and lower half are mirror images.
//
// The stated formula takes the sine of an angle that its roundings have moved by up to 3 * 2^-53 of itself, so its
// values stray from the periodic ones by up to 128 * 2^-53 * (3 * largest angle + 4). An entry closer than four times
// that to a whole number is in doubt, and its pixels are worked out one by one; 0 is none of these numbers, as a value
// is never below it.

struct Rings {
  std::uint8_t* shade;    // 2 * period entries, the second half like the first
  std::uint8_t* doubt;    // the same of flags
  std::uint32_t* column;  // (A * A - its residue) / unit modulo period, for the left half's columns
  std::int64_t unit;      // 4 or 8
  std::int64_t period;    // 16 * height / unit
  bool any_doubt;
};

// What A * A + B * B leaves modulo `unit`: odd squares leave 1.
PQ_INLINE int Residue(int size) { return size % 2 == 0 ? 1 : 0; }

PQ_INLINE std::int64_t Phase(int at, int size, std::int64_t unit) {
  const std::int64_t a = 2 * std::int64_t{at} - size + 1;
  return (a * a - Residue(size)) / unit;
}

__attribute__((noinline)) void FillRings(Rings& rings, IppiSize roi, double doubtful) {
  const double residue = Residue(roi.width) + Residue(roi.height);
  const std::int64_t half = rings.period / 2;
  rings.any_doubt = false;
  for (std::int64_t k = 0; k < half; ++k) {
    const double squares = (static_cast<double>(rings.unit) * static_cast<double>(k) + residue) * 0.25;
    for (int turn = 0; turn < 2; ++turn) {  // half a period on, the sine has the other sign
      const double value = noise::JaehneShade(squares, turn == 0 ? 1 : -1, roi.height);
      const int shade = static_cast<int>(value);
      const double above = value - shade;
      const bool doubt = above > 1 - doubtful || (above < doubtful && shade > 0);
      const std::int64_t at = k + turn * half;
      rings.shade[at] = rings.shade[at + rings.period] = static_cast<std::uint8_t>(shade);
      rings.doubt[at] = rings.doubt[at + rings.period] = doubt;
      rings.any_doubt |= doubt;
    }
  }
  for (int x = 0; x < (roi.width + 1) / 2; ++x) {
    rings.column[x] = static_cast<std::uint32_t>(Phase(x, roi.width, rings.unit) % rings.period);
  }
}

// Which of the values of a group (one vector of bytes) the bytes of three output vectors show. With 256-bit vectors the
// numbers count within 16 values: the first vector shows the group's first 16, the last its last 16, the middle one
// both.
constexpr int kGroup = kLanes * 4;
struct SpreadOrder {
  std::uint8_t from_left[3][kGroup], from_right[3][kGroup];
};
constexpr SpreadOrder MakeSpreadOrder() {
  constexpr int kReach = kLanes == 16 ? 64 : 16;
  SpreadOrder order{};
  for (int i = 0; i < 3 * kGroup; ++i) {
    order.from_left[i / kGroup][i % kGroup] = static_cast<std::uint8_t>(i / 3 % kReach);
    order.from_right[i / kGroup][i % kGroup] = static_cast<std::uint8_t>(kReach - 1 - i / 3 % kReach);
  }
  return order;
}
alignas(64) constexpr SpreadOrder kSpreadOrder = MakeSpreadOrder();

PQ_INLINE void StoreTwice(std::uint8_t* a, std::uint8_t* b, Ints v) {
  Store(a, v);
  Store(b, v);
}

// Writes the values of a row's left half three times each into two rows, and mirrored into their right halves.
PQ_INLINE void SpreadRow(const std::uint8_t* line, int half, int width, std::uint8_t* upper, std::uint8_t* lower) {
  if (half < kGroup) {
    for (int x = 0; x < half; ++x) {
      for (int c = 0; c < 3; ++c) {
        upper[3 * x + c] = upper[3 * (width - 1 - x) + c] = line[x];
        lower[3 * x + c] = lower[3 * (width - 1 - x) + c] = line[x];
      }
    }
    return;
  }
  for (int x = 0;; x += kGroup) {
    if (x > half - kGroup) x = half - kGroup;  // the last group overlaps the one before
    const std::ptrdiff_t left = 3 * std::ptrdiff_t{x}, right = 3 * (std::ptrdiff_t{width} - x - kGroup);
    const Ints all = Load(line + x);
#if defined(__AVX512VBMI__)
    for (int i = 0; i < 3; ++i) {
      const Ints l = _mm512_permutexvar_epi8(Load(kSpreadOrder.from_left[i]), all);
      const Ints r = _mm512_permutexvar_epi8(Load(kSpreadOrder.from_right[i]), all);
      StoreTwice(upper + left + i * kGroup, lower + left + i * kGroup, l);
      StoreTwice(upper + right + i * kGroup, lower + right + i * kGroup, r);
    }
#else
    const Ints first = _mm256_permute2x128_si256(all, all, 0x00), second = _mm256_permute2x128_si256(all, all, 0x11);
    const Ints swapped = _mm256_permute2x128_si256(all, all, 0x01);
    const Ints from_left[3] = {first, all, second}, from_right[3] = {second, swapped, first};
    for (int i = 0; i < 3; ++i) {
      const Ints l = _mm256_shuffle_epi8(from_left[i], Load(kSpreadOrder.from_left[i]));
      const Ints r = _mm256_shuffle_epi8(from_right[i], Load(kSpreadOrder.from_right[i]));
      StoreTwice(upper + left + i * kGroup, lower + left + i * kGroup, l);
      StoreTwice(upper + right + i * kGroup, lower + right + i * kGroup, r);
    }
#endif
    if (x == half - kGroup) return;
  }
}

__attribute__((noinline, cold)) void RedoDoubtful(const Rings& rings, std::int64_t phase, int y, IppiSize roi, int half,
                                                  std::uint8_t* line) {
  for (int x = 0; x < half; ++x) {
    if (rings.doubt[phase + rings.column[x]]) line[x] = noise::JaehneValue(x, y, roi);
  }
}

constexpr int kRowsAtOnce = 4;

__attribute__((noinline)) void DrawRings(const Rings& rings, std::uint8_t* pixels, int step, IppiSize roi,
                                         std::uint8_t* lines, std::ptrdiff_t line_step) {
  const int half = (roi.width + 1) / 2, rows = (roi.height + 1) / 2;
  for (int y = 0; y < rows; y += kRowsAtOnce) {
    const std::uint8_t* shade[kRowsAtOnce];
    for (int i = 0; i < kRowsAtOnce; ++i) {
      const int row = y + i < rows ? y + i : rows - 1;
      shade[i] = rings.shade + Phase(row, roi.height, rings.unit) % rings.period;
    }
    std::uint8_t *const line0 = lines, *const line1 = lines + line_step, *const line2 = lines + 2 * line_step,
                        *const line3 = lines + 3 * line_step;
    for (int x = 0; x < half; ++x) {
      const std::uint32_t column = rings.column[x];
      line0[x] = shade[0][column];
      line1[x] = shade[1][column];
      line2[x] = shade[2][column];
      line3[x] = shade[3][column];
    }
    for (int i = 0; i < kRowsAtOnce && y + i < rows; ++i) {
      if (rings.any_doubt) RedoDoubtful(rings, shade[i] - rings.shade, y + i, roi, half, lines + i * line_step);
      SpreadRow(lines + i * line_step, half, roi.width, pixels + std::ptrdiff_t{y + i} * step,
                pixels + (std::ptrdiff_t{roi.height} - 1 - y - i) * step);
    }
  }
}

IppStatus DrawJaehne(std::uint8_t* pixels, int step, IppiSize roi) {
  constexpr int kNarrow = 32, kLarge = 1 << 24;
  const double width = roi.width, height = roi.height;
  const double angle = 6.283185307179586 / 16 * ((width - 1) * (width - 1) + (height - 1) * (height - 1)) / height;
  const double doubtful = 4 * 128 * 0x1p-53 * (3 * angle + 4);
  // Rows that overlap must be drawn in order.
  if (roi.width < kNarrow || roi.width > kLarge || roi.height > kLarge || step < std::int64_t{roi.width} * 3 ||
      doubtful > 0.05) {
    noise::JaehnePlain(pixels, step, roi);
    return ippStsNoErr;
  }
  Rings rings;
  rings.unit = roi.width % 2 == 0 && roi.height % 2 == 0 ? 8 : 4;
  rings.period = 16 * std::int64_t{roi.height} / rings.unit;
  const int half = (roi.width + 1) / 2;
  const int line_step = (half + 63) & ~63;
  const std::int64_t columns_size = (std::int64_t{half} * 4 + 63) & ~std::int64_t{63};
  const std::int64_t size = columns_size + 4 * rings.period + std::int64_t{line_step} * kRowsAtOnce;
  std::uint8_t* const memory = ippsMalloc_8u(static_cast<int>(size));  // below 2^29
  if (memory == nullptr) return ippStsMemAllocErr;
  rings.column = reinterpret_cast<std::uint32_t*>(memory);
  std::uint8_t* const lines = memory + columns_size;
  rings.shade = lines + std::ptrdiff_t{line_step} * kRowsAtOnce;
  rings.doubt = rings.shade + 2 * rings.period;
  FillRings(rings, roi, doubtful);
  DrawRings(rings, pixels, step, roi, lines, line_step);
  ippsFree(memory);
  return ippStsNoErr;
}

}  // namespace
}  // namespace PQ_TARGET

IppStatus PQ_VARIANT(ippiAddRandUniform_Direct_8u_C3IR)(std::uint8_t* srcDst, int step, IppiSize roi, std::uint8_t low,
                                                        std::uint8_t high, std::uint16_t& seed) {
  if (const IppStatus status = PQCheckNoise(srcDst, step, roi, &seed)) return status;
  const int mode = PQRoundToNearest();
  if (low <= high) {
    PQ_TARGET::AddUniform<false>(srcDst, step, roi, low, high, &seed);
  } else {
    PQ_TARGET::AddUniform<true>(srcDst, step, roi, low, high, &seed);
  }
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiAddRandGauss_Direct_8u_C3IR)(std::uint8_t* srcDst, int step, IppiSize roi, std::uint8_t mean,
                                                      std::uint8_t stdDev, std::uint16_t& seed) {
  if (const IppStatus status = PQCheckNoise(srcDst, step, roi, &seed)) return status;
  const int mode = PQRoundToNearest();
  PQ_TARGET::AddGauss(srcDst, step, roi, mean, stdDev, &seed);
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiImageJaehne_8u_C3R)(std::uint8_t* srcDst, int step, IppiSize roi) {
  if (const IppStatus status = PQCheckJaehne(srcDst, step, roi)) return status;
  const int mode = PQRoundToNearest();
  const IppStatus status = PQ_TARGET::DrawJaehne(srcDst, step, roi);
  PQRestoreRounding(mode);
  return status;
}

}  // namespace pantiq
