// Box average: one source for a6 and t7 (the box has no w7 form). Column sums are kept from row to row. Across, sums of
// at most 257 samples fit 16 bits and are added from windows of three or four pixels; larger windows run along the row,
// one pixel's three channels in a vector, in 32 bits.
#include "pantiq/kernels/PQWindowVec.h"

#if PQ_WIDE || !PQ_MASKED

namespace pantiq {
namespace PQ_TARGET {
namespace {

// ---- column sums ---------------------------------------------------------------------------------------------------

// sums = of the first `height` rows.
template <class Sum>
void FirstColumns(const u8* src, int src_step, Sum* sums, std::ptrdiff_t n, int height) {
  for (std::ptrdiff_t i = 0; i < n; ++i) sums[i] = src[i];
  for (int y = 1; y < height; ++y) {
    const u8* row = RowAt(src, src_step, y);
    for (std::ptrdiff_t i = 0; i < n; ++i) sums[i] = static_cast<Sum>(sums[i] + row[i]);
  }
}

void MoveColumns(const u8* entering, const u8* leaving, u16* sums, std::ptrdiff_t n) {
  std::ptrdiff_t i = 0;
  for (; i + kL <= n; i += kL) Store(sums + i, Add16(Load(sums + i), Sub16(Widen(entering + i), Widen(leaving + i))));
  for (; i < n; ++i) sums[i] = static_cast<u16>(sums[i] + entering[i] - leaving[i]);
}

void MoveColumns(const u8* entering, const u8* leaving, std::uint32_t* sums, std::ptrdiff_t n) {
  for (std::ptrdiff_t i = 0; i < n; ++i) sums[i] += static_cast<std::uint32_t>(entering[i]) - leaving[i];
}

// ---- windows of at most 257 samples --------------------------------------------------------------------------------

// A window of `width` pixels as kParts windows of `part` pixels and kRest single pixels.
struct Split {
  int part, parts, rest;
};
Split SplitWidth(int width) {
  if (width <= 5) return {1, width, 0};
  if (width <= 15) return {3, width / 3, width % 3};
  return {4, width / 4, width % 4};
}
constexpr int kWidestSplit = 20;

template <int kParts>
void SumParts(const u16* in, u16* out, std::ptrdiff_t n) {
  WalkOver(
      n, kL, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        V sum = Load(in + i);
#pragma GCC unroll 4
        for (int k = 1; k < kParts; ++k) sum = Add16(sum, Load(in + i + 3 * k));
        Store(out + i, sum);
      });
}

struct Divisor16 {
  V multiplier;
  __m128i shift;
};
// (multiplier * S) >> shift with a shift of at least 16, or a multiplier that is shifted up to make it so.
PQ_INLINE Divisor16 MakeDivisor16(const PQBoxRule& rule) {
  const unsigned up = rule.shift < 16 ? 16 - rule.shift : 0;
  return {Set16(static_cast<int>(rule.multiplier << up)), _mm_cvtsi32_si128(static_cast<int>(rule.shift + up - 16))};
}

template <int kParts, int kRest>
void Finish16(const u16* parts, int part, const u16* singles, u8* out, std::ptrdiff_t n, const Divisor16& divisor) {
  const std::ptrdiff_t pitch = std::ptrdiff_t{part} * 3, rest = pitch * kParts;
  const auto window = [&](std::ptrdiff_t i) __attribute__((always_inline)) {
    V sum = Load(parts + i);
#pragma GCC unroll 5
    for (int k = 1; k < kParts; ++k) sum = Add16(sum, Load(parts + i + k * pitch));
#pragma GCC unroll 3
    for (int k = 0; k < kRest; ++k) sum = Add16(sum, Load(singles + i + rest + 3 * k));
    return ShiftRight16(MulHigh16(sum, divisor.multiplier), divisor.shift);
  };
  WalkOver(
      n,
      kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) { Store(out + i, Narrow(window(i), window(i + kL))); });
}

void Finish16(const Split& split, const u16* parts, const u16* singles, u8* out, std::ptrdiff_t n,
              const Divisor16& divisor) {
  const int part = split.part;
  switch (split.parts * 4 + split.rest) {
    case 4:
      return Finish16<1, 0>(parts, part, singles, out, n, divisor);
    case 8:
      return Finish16<2, 0>(parts, part, singles, out, n, divisor);
    case 9:
      return Finish16<2, 1>(parts, part, singles, out, n, divisor);
    case 10:
      return Finish16<2, 2>(parts, part, singles, out, n, divisor);
    case 12:
      return Finish16<3, 0>(parts, part, singles, out, n, divisor);
    case 13:
      return Finish16<3, 1>(parts, part, singles, out, n, divisor);
    case 14:
      return Finish16<3, 2>(parts, part, singles, out, n, divisor);
    case 16:
      return Finish16<4, 0>(parts, part, singles, out, n, divisor);
    case 17:
      return Finish16<4, 1>(parts, part, singles, out, n, divisor);
    case 18:
      return Finish16<4, 2>(parts, part, singles, out, n, divisor);
    case 19:
      return Finish16<4, 3>(parts, part, singles, out, n, divisor);
    default:
      return Finish16<5, 0>(parts, part, singles, out, n, divisor);
  }
}

IppStatus Small(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask,
                const PQBoxRule& rule) {
  const std::ptrdiff_t n = std::ptrdiff_t{roi.width} * 3, samples = n + std::ptrdiff_t{mask.width - 1} * 3;
  const std::ptrdiff_t pitch = RoundUp(samples, 64) + 64;
  u8* memory = PQScratch(pitch * 2 * std::ptrdiff_t{sizeof(u16)});
  if (memory == nullptr) return ippStsMemAllocErr;
  u16 *const columns = reinterpret_cast<u16*>(memory), *const part_sums = columns + pitch;
  const Split split = SplitWidth(mask.width);
  const Divisor16 divisor = MakeDivisor16(rule);
  const auto finish = [&](const u16* sums, int y) {
    const u16* parts = sums;
    if (split.part > 1) {
      const std::ptrdiff_t count = samples - std::ptrdiff_t{split.part - 1} * 3;
      if (split.part == 3) {
        SumParts<3>(sums, part_sums, count);
      } else {
        SumParts<4>(sums, part_sums, count);
      }
      parts = part_sums;
    }
    Finish16(split, parts, sums, RowAt(dst, dst_step, y), n, divisor);
  };
  if (mask.height == 3 && split.part == 1) {
    // Two output rows share the sum of the two source rows in their middle.
    for (int y = 0; y < roi.height; y += 2) {
      const bool two = y + 1 < roi.height;
      const u8 *a = RowAt(src, src_step, y), *b = a + src_step, *c = b + src_step, *d = two ? c + src_step : c;
      WalkOver(
          samples, kL, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
            const V middle = Add16(Widen(b + i), Widen(c + i));
            Store(columns + i, Add16(middle, Widen(a + i)));
            Store(part_sums + i, Add16(middle, Widen(d + i)));
          });
      finish(columns, y);
      if (two) finish(part_sums, y + 1);
    }
  } else {
    FirstColumns(src, src_step, columns, samples, mask.height);
    for (int y = 0; y < roi.height; ++y) {
      finish(columns, y);
      if (y + 1 < roi.height) {
        MoveColumns(RowAt(src, src_step, std::ptrdiff_t{y} + mask.height), RowAt(src, src_step, y), columns, samples);
      }
    }
  }
  ippsFree(memory);
  return ippStsNoErr;
}

// ---- larger windows ------------------------------------------------------------------------------------------------

PQ_INLINE __m128i Four(const u16* p) {
  return _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}
PQ_INLINE __m128i Four(const std::uint32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// sums[3 * x + c] for the row's windows. Reads and writes one sample behind the last.
template <class Sum>
void RunAcross(const Sum* columns, std::int32_t* sums, int width, int mask_width) {
  __m128i window = _mm_setzero_si128();
  for (int i = 0; i < mask_width; ++i) window = _mm_add_epi32(window, Four(columns + 3 * std::ptrdiff_t{i}));
  const Sum* entering = columns + 3 * std::ptrdiff_t{mask_width};
  for (int x = 0; x < width; ++x, columns += 3, entering += 3, sums += 3) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sums), window);
    window = _mm_add_epi32(window, _mm_sub_epi32(Four(entering), Four(columns)));
  }
}

#if PQ_WIDE
using Words = __m512i;  // 16 numbers of 32 bits
PQ_INLINE Words LoadWords(const std::int32_t* p) { return _mm512_loadu_si512(p); }
PQ_INLINE void StoreBytes(u8* p, Words v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm512_cvtepi32_epi8(v)); }
constexpr int kWords = 16;
struct DivideWhole {
  Words multiplier;
  __m128i shift;
  PQ_INLINE Words Of(const DivideWhole& d, const std::int32_t* p) {
    return _mm512_srl_epi32(_mm512_mullo_epi32(LoadWords(p), d.multiplier), d.shift);
  }
};
PQ_INLINE DivideWhole MakeWhole(const PQBoxRule& rule) {
  return {_mm512_set1_epi32(static_cast<int>(rule.multiplier)), _mm_cvtsi32_si128(static_cast<int>(rule.shift))};
}
struct DivideDouble {
  __m512d reciprocal, nudge;
  PQ_INLINE __m256i Half(const DivideDouble& d, const std::int32_t* p) {
    const __m512d sums = _mm512_cvtepi32_pd(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
    return _mm512_cvttpd_epi32(_mm512_add_pd(_mm512_mul_pd(sums, d.reciprocal), d.nudge));
  }
  PQ_INLINE Words Of(const DivideDouble& d, const std::int32_t* p) {
    return _mm512_inserti64x4(_mm512_castsi256_si512(Half(d, p)), Half(d, p + 8), 1);
  }
};
PQ_INLINE DivideDouble MakeDouble(const PQBoxRule& rule) {
  return {_mm512_set1_pd(rule.reciprocal), _mm512_set1_pd(rule.nudge)};
}
#else
using Words = __m256i;  // 8 numbers of 32 bits
PQ_INLINE Words LoadWords(const std::int32_t* p) { return LoadS(p); }
PQ_INLINE void StoreBytes(u8* p, Words v) {
  const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packus_epi16(words, words));
}
constexpr int kWords = 8;
struct DivideWhole {
  Words multiplier;
  __m128i shift;
  PQ_INLINE Words Of(const DivideWhole& d, const std::int32_t* p) {
    return _mm256_srl_epi32(_mm256_mullo_epi32(LoadWords(p), d.multiplier), d.shift);
  }
};
PQ_INLINE DivideWhole MakeWhole(const PQBoxRule& rule) {
  return {_mm256_set1_epi32(static_cast<int>(rule.multiplier)), _mm_cvtsi32_si128(static_cast<int>(rule.shift))};
}
struct DivideDouble {
  __m256d reciprocal, nudge;
  PQ_INLINE __m128i Half(const DivideDouble& d, const std::int32_t* p) {
    const __m256d sums = _mm256_cvtepi32_pd(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    return _mm256_cvttpd_epi32(_mm256_add_pd(_mm256_mul_pd(sums, d.reciprocal), d.nudge));
  }
  PQ_INLINE Words Of(const DivideDouble& d, const std::int32_t* p) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(Half(d, p)), Half(d, p + 4), 1);
  }
};
PQ_INLINE DivideDouble MakeDouble(const PQBoxRule& rule) {
  return {_mm256_set1_pd(rule.reciprocal), _mm256_set1_pd(rule.nudge)};
}
#endif

template <class Divide>
void FinishWords(const std::int32_t* sums, u8* out, std::ptrdiff_t n, const Divide& divide) {
  WalkOver(
      n, kWords, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        StoreBytes(out + i, Divide::Of(divide, sums + i));
      });
}

template <class Sum>
IppStatus Large(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask,
                const PQBoxRule& rule) {
  const std::ptrdiff_t n = std::ptrdiff_t{roi.width} * 3, samples = n + std::ptrdiff_t{mask.width - 1} * 3;
  // One pixel and more behind the last window is read, too.
  const std::ptrdiff_t column_bytes = RoundUp((samples + 16) * std::ptrdiff_t{sizeof(Sum)}, 64);
  u8* memory = PQScratch(column_bytes + (n + 16) * 4);
  if (memory == nullptr) return ippStsMemAllocErr;
  Sum* columns = reinterpret_cast<Sum*>(memory);
  std::int32_t* sums = reinterpret_cast<std::int32_t*>(memory + column_bytes);
  for (int i = 0; i < 16; ++i) columns[samples + i] = 0;
  const DivideWhole whole = MakeWhole(rule);
  const DivideDouble in_doubles = MakeDouble(rule);
  FirstColumns(src, src_step, columns, samples, mask.height);
  for (int y = 0; y < roi.height; ++y) {
    RunAcross(columns, sums, roi.width, mask.width);
    if (rule.in_doubles) {
      FinishWords(sums, RowAt(dst, dst_step, y), n, in_doubles);
    } else {
      FinishWords(sums, RowAt(dst, dst_step, y), n, whole);
    }
    if (y + 1 < roi.height) {
      MoveColumns(RowAt(src, src_step, std::ptrdiff_t{y} + mask.height), RowAt(src, src_step, y), columns, samples);
    }
  }
  ippsFree(memory);
  return ippStsNoErr;
}

// Its own function: nothing of it may be moved to where another rounding mode holds.
__attribute__((noinline)) IppStatus Box(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi,
                                        IppiSize mask) {
  const PQBoxRule rule = PQMakeBoxRule(mask);
  const std::int64_t area = std::int64_t{mask.width} * mask.height;
  if (area > 1 && area <= 257 && mask.width <= kWidestSplit) {
    return Small(src, src_step, dst, dst_step, roi, mask, rule);
  }
  if (mask.height <= 257) return Large<u16>(src, src_step, dst, dst_step, roi, mask, rule);
  return Large<std::uint32_t>(src, src_step, dst, dst_step, roi, mask, rule);
}

}  // namespace
}  // namespace PQ_TARGET

IppStatus PQ_VARIANT(ippiFilterBox_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                           IppiSize roi, IppiSize mask, TPoint anchor) {
  if (const IppStatus status = PQCheckBox(src, srcStep, dst, dstStep, roi, mask, anchor)) return status;
  // Above this area a window's sum does not fit 32 bits.
  if (PQ_TARGET::IsNarrow(roi) || std::int64_t{mask.width} * mask.height > 0x7FFFFFFF / 255) {
    return _px_ippiFilterBox_8u_C3R(src, srcStep, dst, dstStep, roi, mask, anchor);
  }
  src -= std::ptrdiff_t{anchor.x} * 3 + std::ptrdiff_t{srcStep} * anchor.y;
  const int mode = PQRoundToNearest();
  const IppStatus status = PQ_TARGET::Box(src, srcStep, dst, dstStep, roi, mask);
  PQRestoreRounding(mode);
  return status;
}

}  // namespace pantiq

#endif
