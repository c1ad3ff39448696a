// The Wiener filter with vectors: one source for a6, w7 and t7.
//
// Sums and sums of squares of the mask's rows are kept for every column and slide down; a window adds its columns. In
// single precision, with D = count * x - S and K = n * count, a sample becomes x - D * K / max(N, K * count), which is
// S / count where the variance is below the noise. That is off by less than 2^-13; samples that close to a half are
// computed again as the plain form does.
#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQVec.h"
#include "pantiq/kernels/PQWiener.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

using Size = std::ptrdiff_t;
using u32 = std::uint32_t;

constexpr Size kLanes = kV / 4;

// Windows for which N fits 31 bits; a mask's width that is summed column by column.
constexpr Size kMostCells = 363;
constexpr int kMostColumns = 32;

#if PQ_WIDE
using Floats = __m512;
using Mask = unsigned;
PQ_INLINE V Bytes(const u8* p) { return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
PQ_INLINE V Mul32(V a, V b) { return _mm512_mullo_epi32(a, b); }
PQ_INLINE V Sub32(V a, V b) { return _mm512_sub_epi32(a, b); }
PQ_INLINE Floats ToFloats(V a) { return _mm512_cvtepi32_ps(a); }
PQ_INLINE V ToInts(Floats a) { return _mm512_cvtps_epi32(a); }
PQ_INLINE Floats LoadFloats(const float* p) { return _mm512_loadu_ps(p); }
PQ_INLINE Floats SetFloats(float f) { return _mm512_set1_ps(f); }
PQ_INLINE Floats MulF(Floats a, Floats b) { return _mm512_mul_ps(a, b); }
PQ_INLINE Floats DivF(Floats a, Floats b) { return _mm512_div_ps(a, b); }
PQ_INLINE Floats SubF(Floats a, Floats b) { return _mm512_sub_ps(a, b); }
PQ_INLINE Floats MaxF(Floats a, Floats b) { return _mm512_max_ps(a, b); }
PQ_INLINE Mask Less(Floats a, Floats b) { return _mm512_cmp_ps_mask(a, b, _CMP_LT_OQ); }
PQ_INLINE Mask FurtherThan(Floats a, float limit) {
  return _mm512_cmp_ps_mask(_mm512_abs_ps(a), SetFloats(limit), _CMP_GT_OQ);
}
PQ_INLINE Floats Choose(Mask m, Floats yes, Floats no) {
  return _mm512_mask_blend_ps(static_cast<__mmask16>(m), no, yes);
}
PQ_INLINE void StoreBytes(u8* p, V a) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm512_cvtepi32_epi8(a)); }
#else
using Floats = __m256;
using Mask = unsigned;
PQ_INLINE V Bytes(const u8* p) { return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
PQ_INLINE V Mul32(V a, V b) { return _mm256_mullo_epi32(a, b); }
PQ_INLINE V Sub32(V a, V b) { return _mm256_sub_epi32(a, b); }
PQ_INLINE Floats ToFloats(V a) { return _mm256_cvtepi32_ps(a); }
PQ_INLINE V ToInts(Floats a) { return _mm256_cvtps_epi32(a); }
PQ_INLINE Floats LoadFloats(const float* p) { return _mm256_loadu_ps(p); }
PQ_INLINE Floats SetFloats(float f) { return _mm256_set1_ps(f); }
PQ_INLINE Floats MulF(Floats a, Floats b) { return _mm256_mul_ps(a, b); }
PQ_INLINE Floats DivF(Floats a, Floats b) { return _mm256_div_ps(a, b); }
PQ_INLINE Floats SubF(Floats a, Floats b) { return _mm256_sub_ps(a, b); }
PQ_INLINE Floats MaxF(Floats a, Floats b) { return _mm256_max_ps(a, b); }
PQ_INLINE Mask Bits(Floats a) { return static_cast<Mask>(_mm256_movemask_ps(a)); }
PQ_INLINE Mask Less(Floats a, Floats b) { return Bits(_mm256_cmp_ps(a, b, _CMP_LT_OQ)); }
PQ_INLINE Mask FurtherThan(Floats a, float limit) {
  return Bits(_mm256_cmp_ps(_mm256_andnot_ps(SetFloats(-0.0f), a), SetFloats(limit), _CMP_GT_OQ));
}
PQ_INLINE Floats Choose(Mask m, Floats yes, Floats no) {
  const V bit = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
  return _mm256_blendv_ps(no, yes, _mm256_castsi256_ps(_mm256_cmpeq_epi32(And(Set32(static_cast<int>(m)), bit), bit)));
}
PQ_INLINE void StoreBytes(u8* p, V a) {
  const V words = _mm256_packs_epi32(a, a), bytes = _mm256_packus_epi16(words, words);
  const u32 low = static_cast<u32>(_mm256_extract_epi32(bytes, 0)),
            high = static_cast<u32>(_mm256_extract_epi32(bytes, 4));
  __builtin_memcpy(p, &low, 4);
  __builtin_memcpy(p + 4, &high, 4);
}
#endif

// What a call works on. corner: the window's top left for the region's first sample.
struct Job {
  const u8* src;
  const u8* corner;
  Size src_step;
  u8* dst;
  Size dst_step;
  IppiSize roi, mask;
  int channels;
  Size count;
  double noise[3];  // by channel; below 0: to be estimated
  u8* buffer;       // a multiple of 64
};

// Sums of columns. Windows of up to kMostPacked cells have both in one word, of samples lowered by 128: the squares
// (25 * 128^2 is below 2^19) and 2^19 times the sum, in `sum`. Words wrap on the way; a window's word is right.
struct Columns {
  u32 *sum, *squares;
  Size n;
};
constexpr Size kMostPacked = 25;
constexpr int kPackedShift = 19;

// Adds a row to the columns; takes another away if there is one.
template <bool kPacked>
void Slide(const Columns& c, const u8* in, const u8* out) {
  constexpr int kNone = kPacked ? 128 : 0, kLift = kPacked ? (1 << kPackedShift) - 256 : 0;
  u32* last = kPacked ? c.sum : c.squares;
  Size i = 0;
  for (; i + kLanes <= c.n; i += kLanes) {
    const V a = Bytes(in + i), b = out == nullptr ? Set32(kNone) : Bytes(out + i), d = Sub32(a, b);
    if constexpr (!kPacked) Store(c.sum + i, Add32(Load(c.sum + i), d));
    Store(last + i, Add32(Load(last + i), Mul32(d, Add32(Add32(a, b), Set32(kLift)))));
  }
  for (; i < c.n; ++i) {
    const u32 a = in[i], b = out == nullptr ? kNone : out[i];
    if constexpr (!kPacked) c.sum[i] += a - b;
    last[i] += (a - b) * (a + b + kLift);
  }
}

// Of samples lowered by kLow.
struct Sums {
  V sum, squares;
};
template <int kColumns>
constexpr bool kPackedFor = kColumns > 0;
template <int kColumns>
constexpr int kLow = kPackedFor<kColumns> ? 128 : 0;

// kColumns 0: `columns`, not packed.
template <int kChannels, int kColumns>
PQ_INLINE Sums AddColumns(const Columns& c, Size i, int columns) {
  const u32 *s = c.sum + i, *q = c.squares + i;
  if constexpr (kPackedFor<kColumns>) {
    V word = Load(s);
#pragma GCC unroll 8
    for (int k = 1; k < kColumns; ++k) word = Add32(word, Load(s + k * kChannels));
    return {ShiftRightS32(word, kPackedShift), And(word, Set32((1 << kPackedShift) - 1))};
  } else {
    Sums sums{Load(s), Load(q)};
    for (int k = 1; k < columns; ++k) {
      sums.sum = Add32(sums.sum, Load(s + k * kChannels));
      sums.squares = Add32(sums.squares, Load(q + k * kChannels));
    }
    return sums;
  }
}

PQ_INLINE V Numerator(const Sums& s, V count) { return Sub32(Mul32(s.squares, count), Mul32(s.sum, s.sum)); }

// Adds the numerators of m samples to the channels' totals.
template <int kChannels, int kColumns>
void TotalRow(const Job& job, const Columns& c, u32* numerators, Size m, PQWienerTotal* totals) {
  const V count = Set32(static_cast<int>(job.count));
  for (Size i = 0; i < m; i += kLanes) {
    Store(numerators + i, Numerator(AddColumns<kChannels, kColumns>(c, i, job.mask.width), count));
  }
  std::uint64_t t[kChannels] = {};
  for (Size i = 0; i < m; i += kChannels) {
    for (int k = 0; k < kChannels; ++k) t[k] += numerators[i + k];
  }
  for (int k = 0; k < kChannels; ++k) totals[k] += t[k];
}

// Sample i of the row again, as the plain form computes it.
template <int kChannels, int kColumns>
__attribute__((noinline)) u8 Again(const Job& job, const Columns& c, Size i, int x) {
  std::int64_t sum = 0, squares = 0;
  if constexpr (kPackedFor<kColumns>) {
    u32 word = 0;
    for (Size k = 0; k < kColumns; ++k) word += c.sum[i + k * kChannels];
    sum = static_cast<std::int32_t>(word) >> kPackedShift;
    squares = word & ((1u << kPackedShift) - 1);
  } else {
    for (Size k = 0; k < job.mask.width; ++k) sum += c.sum[i + k * kChannels], squares += c.squares[i + k * kChannels];
  }
  const PQWienerTotal numerator = PQWienerNumerator(job.count, sum, squares);  // lowered samples have the same
  return PQWienerSample(x, job.count, sum + kLow<kColumns> * job.count, numerator, job.noise[i % kChannels]);
}

// m samples from src to dst.
template <int kChannels, int kColumns>
void FilterRow(const Job& job, const Columns& c, const u8* src, u8* dst, Size m) {
  // K and K * count by lane; a vector that begins with channel k reads from k on.
  float k1[kLanes + 3], k2[kLanes + 3], k3[kLanes + 3];
  for (Size i = 0; i < kLanes + 3; ++i) {
    const double k = job.noise[i % kChannels] * static_cast<double>(job.count);
    k1[i] = static_cast<float>(k);
    k2[i] = static_cast<float>(k * static_cast<double>(job.count));
    k3[i] = k2[i] * 0.99999f;
  }
  const V count = Set32(static_cast<int>(job.count));
  const Floats one = SetFloats(1.0f), count_f = SetFloats(static_cast<float>(job.count));
  const bool even = job.count % 2 == 0;
  // Gives the lanes that must be computed again.
  const auto block = [&](Size i, const u8* p, u8* o) {
    const Size phase = i % kChannels;
    const Sums s = AddColumns<kChannels, kColumns>(c, i, job.mask.width);
    const V x = Bytes(p), sum = Add32(s.sum, Set32(kLow<kColumns> * static_cast<int>(job.count)));
    const Floats n = ToFloats(Numerator(s, count));
    const Floats below = MaxF(MaxF(n, LoadFloats(k2 + phase)), one);  // N is 0 or at least 1; where 0, so is D
    const Floats d = ToFloats(Sub32(Mul32(x, count), sum));
    Floats r = SubF(ToFloats(x), DivF(MulF(d, LoadFloats(k1 + phase)), below));
    Mask flat = 0;
    if (even) {
      // Only then may S / count lie on a half; the quotient of two integers finds it.
      flat = Less(n, LoadFloats(k3 + phase));
      r = Choose(flat, DivF(ToFloats(sum), count_f), r);
    }
    const V whole = ToInts(r);
    StoreBytes(o, whole);
    return FurtherThan(SubF(r, ToFloats(whole)), 0.5f - 1.0f / 8192) & ~flat;
  };
  Size i = 0;
  for (; i + kLanes <= m; i += kLanes) {
    for (Mask again = block(i, src + i, dst + i); again != 0; again &= again - 1) {
      const Size at = i + __builtin_ctz(again);
      dst[at] = Again<kChannels, kColumns>(job, c, at, src[at]);
    }
  }
  if (i < m) {
    u8 in[kLanes] = {}, out[kLanes];
    for (Size k = 0; k < m - i; ++k) in[k] = src[i + k];
    Mask again = block(i, in, out) & ((1u << (m - i)) - 1);
    for (; again != 0; again &= again - 1) {
      const Size k = __builtin_ctz(again);
      out[k] = Again<kChannels, kColumns>(job, c, i + k, in[k]);
    }
    for (Size k = 0; k < m - i; ++k) dst[i + k] = out[k];
  }
}

// Walks the region in strips: row(columns, y, i, m) for m samples from sample i of row y on.
template <int kChannels, bool kPacked, class Row>
PQ_INLINE void Walk(const Job& job, Row row) {
  const Size n = Size{job.roi.width} * kChannels;
  for (Size i = 0; i < n; i += kPQWienerStrip) {
    const Size m = n - i < kPQWienerStrip ? n - i : Size{kPQWienerStrip};
    const Size room = (m + Size{job.mask.width - 1} * kChannels + 2 * kLanes) / kLanes * kLanes;
    u32* sums = reinterpret_cast<u32*>(job.buffer);
    const Columns c = {sums, sums + room, m + Size{job.mask.width - 1} * kChannels};
    __builtin_memset(sums, 0, static_cast<std::size_t>(2 * room) * sizeof(u32));
    const u8* p = job.corner + i;
    for (int y = 0; y + 1 < job.mask.height; ++y) Slide<kPacked>(c, p + y * job.src_step, nullptr);
    for (int y = 0; y < job.roi.height; ++y) {
      Slide<kPacked>(c, p + (Size{y} + job.mask.height - 1) * job.src_step,
                     y == 0 ? nullptr : p + (y - 1) * job.src_step);
      row(c, sums + 2 * room, y, i, m);
    }
  }
}

template <int kChannels, int kColumns>
__attribute__((noinline)) void Run(Job& job) {
  bool estimate = false;
  for (int k = 0; k < kChannels; ++k) estimate |= job.noise[k] < 0;
  if (estimate) {
    PQWienerTotal totals[kChannels] = {};
    Walk<kChannels, kPackedFor<kColumns>>(job, [&](const Columns& c, u32* numerators, int, Size, Size m) {
      TotalRow<kChannels, kColumns>(job, c, numerators, m, totals);
    });
    for (int k = 0; k < kChannels; ++k) {
      if (job.noise[k] < 0) job.noise[k] = PQWienerMeanVariance(totals[k], job.count, job.roi);
    }
  }
  Walk<kChannels, kPackedFor<kColumns>>(job, [&](const Columns& c, u32*, int y, Size i, Size m) {
    FilterRow<kChannels, kColumns>(job, c, job.src + y * job.src_step + i, job.dst + y * job.dst_step + i, m);
  });
}

// Large masks: 64-bit sums that slide both ways, samples one by one in double.
template <int kChannels>
__attribute__((noinline)) void RunLarge(Job& job) {
  const Size n = Size{job.roi.width} * kChannels, reach = Size{job.mask.width - 1} * kChannels;
  // sample(y, i, sum, numerator) for every sample.
  const auto walk = [&](auto sample) {
    for (Size first = 0; first < n; first += kPQWienerStrip) {
      const Size m = n - first < kPQWienerStrip ? n - first : Size{kPQWienerStrip}, columns = m + reach;
      std::int64_t *sum = reinterpret_cast<std::int64_t*>(job.buffer), *squares = sum + columns;
      __builtin_memset(sum, 0, static_cast<std::size_t>(2 * columns) * sizeof(std::int64_t));
      const u8* p = job.corner + first;
      const auto slide = [&](const u8* row, int sign) {
        for (Size i = 0; i < columns; ++i) {
          sum[i] += sign * row[i];
          squares[i] += sign * (row[i] * row[i]);
        }
      };
      for (int y = 0; y + 1 < job.mask.height; ++y) slide(p + y * job.src_step, 1);
      for (int y = 0; y < job.roi.height; ++y) {
        slide(p + (Size{y} + job.mask.height - 1) * job.src_step, 1);
        if (y > 0) slide(p + (y - 1) * job.src_step, -1);
        for (int k = 0; k < kChannels; ++k) {
          std::int64_t s = 0, q = 0;
          for (Size i = k; i < reach; i += kChannels) s += sum[i], q += squares[i];
          for (Size i = k; i < m; i += kChannels) {
            s += sum[i + reach], q += squares[i + reach];
            sample(y, first + i, k, s, PQWienerNumerator(job.count, s, q));
            s -= sum[i], q -= squares[i];
          }
        }
      }
    }
  };
  bool estimate = false;
  for (int k = 0; k < kChannels; ++k) estimate |= job.noise[k] < 0;
  if (estimate) {
    PQWienerTotal totals[kChannels] = {};
    walk([&](int, Size, int k, std::int64_t, PQWienerTotal numerator) { totals[k] += numerator; });
    for (int k = 0; k < kChannels; ++k) {
      if (job.noise[k] < 0) job.noise[k] = PQWienerMeanVariance(totals[k], job.count, job.roi);
    }
  }
  walk([&](int y, Size i, int k, std::int64_t sum, PQWienerTotal numerator) {
    const int x = job.src[y * job.src_step + i];
    job.dst[y * job.dst_step + i] = PQWienerSample(x, job.count, sum, numerator, job.noise[k]);
  });
}

template <int kChannels>
void Wiener(const u8* src, Size src_step, u8* dst, Size dst_step, IppiSize roi, IppiSize mask, TPoint anchor,
            const float* noise, u8* buffer) {
  Job job = {src,
             src - anchor.y * src_step - Size{anchor.x} * kChannels,
             src_step,
             dst,
             dst_step,
             roi,
             mask,
             kChannels,
             Size{mask.width} * mask.height,
             {},
             buffer + (-reinterpret_cast<std::uintptr_t>(buffer) & 63)};
  const int mode = PQRoundToNearest();
  for (int k = 0; k < kChannels; ++k) job.noise[k] = PQWienerNoise(noise[k]);
  if (job.count > kMostCells || mask.width > kMostColumns) {
    RunLarge<kChannels>(job);
  } else if (mask.width == 3 && job.count <= kMostPacked) {
    Run<kChannels, 3>(job);
  } else if (mask.width == 5 && job.count <= kMostPacked) {
    Run<kChannels, 5>(job);
  } else {
    Run<kChannels, 0>(job);
  }
  PQRestoreRounding(mode);
}

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

#define PQ_WIENER(name, channels)                                                                                   \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, IppiSize maskSize,     \
                             TPoint anchor, const float noise[3], u8* buffer) {                                     \
    if (maskSize.width > kPQWienerWidest) {                                                                         \
      return _px_##name(src, srcStep, dst, dstStep, roi, maskSize, anchor, noise, buffer);                          \
    }                                                                                                               \
    if (const IppStatus status = PQCheckWiener(src, srcStep, dst, dstStep, roi, maskSize, anchor, noise, buffer)) { \
      return status;                                                                                                \
    }                                                                                                               \
    Wiener<channels>(src, srcStep, dst, dstStep, roi, maskSize, anchor, noise, buffer);                             \
    return ippStsNoErr;                                                                                             \
  }
PQ_WIENER(ippiFilterWiener_8u_C1R, 1)
PQ_WIENER(ippiFilterWiener_8u_C3R, 3)

IppStatus PQ_VARIANT(ippiFilterWienerGetBufferSize)(IppiSize roi, IppiSize maskSize, int, int* size) {
  return PQWienerBufferSize(roi, maskSize, size);
}

}  // namespace pantiq
