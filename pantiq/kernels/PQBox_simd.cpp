// Box average: one source for a6 and t7 (the box has no w7 form). Column sums are kept from row to row. Across, sums of
// at most 257 samples fit 16 bits and are added from windows of three or four pixels. In larger windows what enters and
// leaves from pixel to pixel is summed up along the row in 32 bits, in blocks of three vectors by shifts of 1, 2, 4 ...
// pixels.
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

// Sums of three or four pixels.
template <int kParts>
void SumParts(const u16* in, u16* out, std::ptrdiff_t n) {
  WalkOver(
      n, kL, [&](std::ptrdiff_t i) __attribute__((always_inline)) {
        const V at0 = Load(in + i), at16 = Load(in + i + 8);
        V sum = Add16(at0, Add16(LoadedAt<6>(at0, at16), LoadedAt<12>(at0, at16)));
        if constexpr (kParts == 4) sum = Add16(sum, Load(in + i + 9));
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

// The same for a window of three or five single pixels: their sums lie 6 bytes apart.
template <int kParts>
void Finish16Next(const u16* sums, u8* out, std::ptrdiff_t n, const Divisor16& divisor) {
  const auto window = [&](std::ptrdiff_t i) __attribute__((always_inline)) {
    const V at0 = Load(sums + i), at16 = Load(sums + i + 8);
    V sum = Add16(at0, Add16(LoadedAt<6>(at0, at16), LoadedAt<12>(at0, at16)));
    if constexpr (kParts == 5) {
      const V at32 = Load(sums + i + 16);
      sum = Add16(sum, Add16(LoadedAt<2>(at16, at32), LoadedAt<8>(at16, at32)));
    }
    return ShiftRight16(MulHigh16(sum, divisor.multiplier), divisor.shift);
  };
  WalkOver(
      n,
      kV, [&](std::ptrdiff_t i) __attribute__((always_inline)) { Store(out + i, Narrow(window(i), window(i + kL))); });
}

void Finish16(const Split& split, const u16* parts, const u16* singles, u8* out, std::ptrdiff_t n,
              const Divisor16& divisor) {
  const int part = split.part;
  if (part == 1 && split.parts == 3) return Finish16Next<3>(singles, out, n, divisor);
  if (part == 1 && split.parts == 5) return Finish16Next<5>(singles, out, n, divisor);
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
  const Scratch64 scratch = MakeScratch64(pitch * 2 * std::ptrdiff_t{sizeof(u16)});
  if (scratch.raw == nullptr) return ippStsMemAllocErr;
  u16 *const columns = reinterpret_cast<u16*>(scratch.data), *const part_sums = columns + pitch;
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
  ippsFree(scratch.raw);
  return ippStsNoErr;
}

// ---- larger windows ------------------------------------------------------------------------------------------------

// Numbers of 32 bits, kWords in a vector. A block is three vectors: kWords pixels.
#if PQ_WIDE
constexpr std::ptrdiff_t kWords = 16;
PQ_INLINE V LoadWords(const u16* p) {
  return _mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}
PQ_INLINE V LoadWords(const std::uint32_t* p) { return Load(p); }
PQ_INLINE V Sub32(V a, V b) { return _mm512_sub_epi32(a, b); }
// b moved up by n lanes, the last n of a before it.
template <int n>
PQ_INLINE V MoveUp(V b, V a) {
  return _mm512_alignr_epi32(b, a, 16 - n);
}
// In each lane the sum of its channel's samples up to that lane, within the block.
PQ_INLINE void ScanBlock(V (&v)[3]) {
  const V zero = Zero();
  v[2] = Add32(v[2], MoveUp<3>(v[2], v[1]));
  v[1] = Add32(v[1], MoveUp<3>(v[1], v[0]));
  v[0] = Add32(v[0], MoveUp<3>(v[0], zero));
  v[2] = Add32(v[2], MoveUp<6>(v[2], v[1]));
  v[1] = Add32(v[1], MoveUp<6>(v[1], v[0]));
  v[0] = Add32(v[0], MoveUp<6>(v[0], zero));
  v[2] = Add32(v[2], MoveUp<12>(v[2], v[1]));
  v[1] = Add32(v[1], MoveUp<12>(v[1], v[0]));
  v[0] = Add32(v[0], MoveUp<12>(v[0], zero));
  v[2] = Add32(v[2], MoveUp<8>(v[1], v[0]));
  v[1] = Add32(v[1], MoveUp<8>(v[0], zero));
}
PQ_INLINE V Permute32(V v, V from) { return _mm512_permutexvar_epi32(from, v); }
struct DivideWhole {
  V multiplier;
  __m128i shift;
};
PQ_INLINE DivideWhole MakeWhole(const PQBoxRule& rule) {
  return {Set32(static_cast<int>(rule.multiplier)), _mm_cvtsi32_si128(static_cast<int>(rule.shift))};
}
PQ_INLINE V Divide(const DivideWhole& d, V sums) {
  return _mm512_srl_epi32(_mm512_mullo_epi32(sums, d.multiplier), d.shift);
}
struct DivideDouble {
  __m512d reciprocal, nudge;
};
PQ_INLINE DivideDouble MakeDouble(const PQBoxRule& rule) {
  return {_mm512_set1_pd(rule.reciprocal), _mm512_set1_pd(rule.nudge)};
}
PQ_INLINE __m256i DivideHalf(const DivideDouble& d, __m256i sums) {
  return _mm512_cvttpd_epi32(_mm512_add_pd(_mm512_mul_pd(_mm512_cvtepi32_pd(sums), d.reciprocal), d.nudge));
}
PQ_INLINE V Divide(const DivideDouble& d, V sums) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(DivideHalf(d, _mm512_castsi512_si256(sums))),
                            DivideHalf(d, _mm512_extracti64x4_epi64(sums, 1)), 1);
}
PQ_INLINE void StoreBlock(u8* p, const V (&v)[3]) {
  for (int k = 0; k < 3; ++k) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p + k * 16), _mm512_cvtepi32_epi8(v[k]));
  }
}
#else
constexpr std::ptrdiff_t kWords = 8;
PQ_INLINE V LoadWords(const u16* p) {
  return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
PQ_INLINE V LoadWords(const std::uint32_t* p) { return Load(p); }
PQ_INLINE V Sub32(V a, V b) { return _mm256_sub_epi32(a, b); }
PQ_INLINE V Permute32(V v, V from) { return _mm256_permutevar8x32_epi32(v, from); }
// In each lane the sum of its channel's samples up to that lane, within the block.
PQ_INLINE void ScanBlock(V (&v)[3]) {
  const V zero = Zero(), by3 = _mm256_setr_epi32(5, 6, 7, 0, 1, 2, 3, 4),
          by6 = _mm256_setr_epi32(2, 3, 4, 5, 6, 7, 0, 1);
  V r[3];
  for (int k = 0; k < 3; ++k) r[k] = Permute32(v[k], by3);
  v[0] = Add32(v[0], _mm256_blend_epi32(zero, r[0], 0xF8));
  v[1] = Add32(v[1], _mm256_blend_epi32(r[0], r[1], 0xF8));
  v[2] = Add32(v[2], _mm256_blend_epi32(r[1], r[2], 0xF8));
  for (int k = 0; k < 3; ++k) r[k] = Permute32(v[k], by6);
  v[0] = Add32(v[0], _mm256_blend_epi32(zero, r[0], 0xC0));
  v[1] = Add32(v[1], _mm256_blend_epi32(r[0], r[1], 0xC0));
  v[2] = Add32(v[2], _mm256_blend_epi32(r[1], r[2], 0xC0));
  v[2] = Add32(v[2], _mm256_permute2x128_si256(v[0], v[1], 0x21));
  v[1] = Add32(v[1], _mm256_permute2x128_si256(v[0], v[0], 0x08));
}
struct DivideWhole {
  V multiplier;
  __m128i shift;
};
PQ_INLINE DivideWhole MakeWhole(const PQBoxRule& rule) {
  return {Set32(static_cast<int>(rule.multiplier)), _mm_cvtsi32_si128(static_cast<int>(rule.shift))};
}
PQ_INLINE V Divide(const DivideWhole& d, V sums) {
  return _mm256_srl_epi32(_mm256_mullo_epi32(sums, d.multiplier), d.shift);
}
struct DivideDouble {
  __m256d reciprocal, nudge;
};
PQ_INLINE DivideDouble MakeDouble(const PQBoxRule& rule) {
  return {_mm256_set1_pd(rule.reciprocal), _mm256_set1_pd(rule.nudge)};
}
PQ_INLINE __m128i DivideHalf(const DivideDouble& d, __m128i sums) {
  return _mm256_cvttpd_epi32(_mm256_add_pd(_mm256_mul_pd(_mm256_cvtepi32_pd(sums), d.reciprocal), d.nudge));
}
PQ_INLINE V Divide(const DivideDouble& d, V sums) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(DivideHalf(d, _mm256_castsi256_si128(sums))),
                                 DivideHalf(d, _mm256_extracti128_si256(sums, 1)), 1);
}
PQ_INLINE void StoreBlock(u8* p, const V (&v)[3]) {
  const V words = _mm256_packus_epi32(v[0], v[1]), rest = _mm256_packus_epi32(v[2], v[2]);
  const V bytes =
      _mm256_permutevar8x32_epi32(_mm256_packus_epi16(words, rest), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(bytes));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p + 16), _mm256_extracti128_si256(bytes, 1));
}
#endif

// Where the channels of a vector find the sums of the pixel before the block, in its last three lanes.
struct Carry {
  V from[3];
};
PQ_INLINE Carry MakeCarry() {
  Carry carry;
  for (int k = 0; k < 3; ++k) {
    alignas(64) std::int32_t lanes[kWords];
    for (int i = 0; i < kWords; ++i) lanes[i] = static_cast<int>(kWords) - 3 + (k * static_cast<int>(kWords) + i) % 3;
    carry.from[k] = Load(lanes);
  }
  return carry;
}

// One output row. columns: sums of the row's columns, behind one pixel of zeros and before a block that may be read.
template <class Sum, class Divisor>
void RowAcross(const Sum* columns, u8* out, std::ptrdiff_t width, int mask_width, const Carry& carry,
               const Divisor& divisor) {
  // The window of the pixel before the first.
  std::uint32_t first[3] = {};
  for (std::ptrdiff_t i = 0; i + 1 < mask_width; ++i) {
    for (int c = 0; c < 3; ++c) first[c] += columns[i * 3 + c];
  }
  alignas(64) std::uint32_t lanes[kWords] = {};
  for (int c = 0; c < 3; ++c) lanes[kWords - 3 + c] = first[c];
  V before = Load(lanes);
  const Sum *leaving = columns - 3, *entering = columns + (std::ptrdiff_t{mask_width} - 1) * 3;
  const auto block = [&](u8 * to) __attribute__((always_inline)) {
    V sums[3];
#pragma GCC unroll 3
    for (int k = 0; k < 3; ++k) sums[k] = Sub32(LoadWords(entering + k * kWords), LoadWords(leaving + k * kWords));
    ScanBlock(sums);
#pragma GCC unroll 3
    for (int k = 0; k < 3; ++k) sums[k] = Add32(sums[k], Permute32(before, carry.from[k]));
    before = sums[2];
#pragma GCC unroll 3
    for (int k = 0; k < 3; ++k) sums[k] = Divide(divisor, sums[k]);
    StoreBlock(to, sums);
    leaving += 3 * kWords;
    entering += 3 * kWords;
  };
  std::ptrdiff_t x = 0;
  for (; x + kWords <= width; x += kWords) block(out + x * 3);
  if (x < width) {
    u8 last[3 * kWords];
    block(last);
    __builtin_memcpy(out + x * 3, last, static_cast<std::size_t>(width - x) * 3);
  }
}

template <class Sum>
IppStatus Large(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask,
                const PQBoxRule& rule) {
  const std::ptrdiff_t samples = (std::ptrdiff_t{roi.width} + mask.width - 1) * 3;
  constexpr std::ptrdiff_t kBefore = 32, kBehind = 3 * kWords;
  u8* memory = PQScratch((samples + kBefore + kBehind) * std::ptrdiff_t{sizeof(Sum)});
  if (memory == nullptr) return ippStsMemAllocErr;
  Sum* const columns = reinterpret_cast<Sum*>(memory) + kBefore;
  for (std::ptrdiff_t i = 1; i <= 3; ++i) columns[-i] = 0;
  for (std::ptrdiff_t i = 0; i < kBehind; ++i) columns[samples + i] = 0;
  const Carry carry = MakeCarry();
  const DivideWhole whole = MakeWhole(rule);
  const DivideDouble in_doubles = MakeDouble(rule);
  FirstColumns(src, src_step, columns, samples, mask.height);
  for (int y = 0; y < roi.height; ++y) {
    u8* out = RowAt(dst, dst_step, y);
    if (rule.in_doubles) {
      RowAcross(columns, out, roi.width, mask.width, carry, in_doubles);
    } else {
      RowAcross(columns, out, roi.width, mask.width, carry, whole);
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
