// What the vector sources of the window kernels share, on top of PQVec.h.
#pragma once

#include "pantiq/kernels/PQBoxRank.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {

// Regions narrower than a vector go to the plain form.
PQ_INLINE bool IsNarrow(IppiSize roi) { return std::int64_t{roi.width} * 3 < kV; }

PQ_INLINE const u8* RowAt(const u8* base, int step, std::ptrdiff_t y) { return base + y * step; }
PQ_INLINE u8* RowAt(u8* base, int step, std::ptrdiff_t y) { return base + y * step; }

// Calls f(i) for i = 0, step, 2 * step ... so that [i, i + step) cover [0, n); the last call overlaps the one before.
// n is at least step.
template <class F>
PQ_INLINE void WalkOver(std::ptrdiff_t n, std::ptrdiff_t step, F f) {
  std::ptrdiff_t i = 0;
  for (; i + step <= n; i += step) f(i);
  if (i < n) f(n - step);
}

PQ_INLINE std::ptrdiff_t RoundUp(std::ptrdiff_t n, std::ptrdiff_t multiple) {
  return (n + multiple - 1) / multiple * multiple;
}

// Lanes of 16 bits: kV / 2 of them.
inline constexpr std::ptrdiff_t kL = kV / 2;
#if PQ_WIDE
PQ_INLINE V Widen(const u8* p) { return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))); }
PQ_INLINE V WidenLow(V a) { return _mm512_cvtepu8_epi16(_mm512_castsi512_si256(a)); }
PQ_INLINE V WidenHigh(V a) { return _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(a, 1)); }
PQ_INLINE V MulHigh16(V a, V b) { return _mm512_mulhi_epu16(a, b); }
PQ_INLINE V ShiftRight16(V a, __m128i n) { return _mm512_srl_epi16(a, n); }
// Words of at most 255 to bytes, in order.
PQ_INLINE V Narrow(V a, V b) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi16_epi8(a)), _mm512_cvtepi16_epi8(b), 1);
}
#else
PQ_INLINE V Widen(const u8* p) { return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
PQ_INLINE V WidenLow(V a) { return _mm256_cvtepu8_epi16(_mm256_castsi256_si128(a)); }
PQ_INLINE V WidenHigh(V a) { return _mm256_cvtepu8_epi16(_mm256_extracti128_si256(a, 1)); }
PQ_INLINE V MulHigh16(V a, V b) { return _mm256_mulhi_epu16(a, b); }
PQ_INLINE V ShiftRight16(V a, __m128i n) { return _mm256_srl_epi16(a, n); }
PQ_INLINE V Narrow(V a, V b) { return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8); }
#endif

// What Load(p + n) gives, n from 1 to 15, out of Load(p) and Load(p + 16): one load may serve several n. Reads up to 15
// bytes more than Load(p + n), so for scratch memory alone.
// After16 gives Load(p + 16) out of Load(p) and Load(p + kV).
#if PQ_WIDE
template <int n>
PQ_INLINE V LoadedAt(V at0, V at16) {
  return _mm512_alignr_epi8(at16, at0, n);
}
PQ_INLINE V After16(V here, V next) { return _mm512_alignr_epi64(next, here, 2); }
#else
template <int n>
PQ_INLINE V LoadedAt(V at0, V at16) {
  return _mm256_alignr_epi8(at16, at0, n);
}
PQ_INLINE V After16(V here, V next) { return _mm256_permute2x128_si256(here, next, 0x21); }
#endif

// Scratch memory at a multiple of 64 bytes.
struct Scratch64 {
  u8* raw;  // null: none to be had; given back with ippsFree
  u8* data;
};
PQ_INLINE Scratch64 MakeScratch64(std::int64_t bytes) {
  Scratch64 scratch;
  scratch.raw = PQScratch(bytes + 64);
  scratch.data = scratch.raw + (64 - reinterpret_cast<std::uintptr_t>(scratch.raw) % 64) % 64;
  return scratch;
}

// Medians of odd windows by their top left corner. MedianWindow (PQMedianWindow_simd.cpp) takes windows of up to 255
// samples and 15 columns and regions of kV pixels or more, MedianHistogram (PQMedianHistogram_simd.cpp) windows of up
// to 65535 samples and 255 rows.
bool TakesMedianWindow(IppiSize mask);
IppStatus MedianWindow(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask);
bool TakesMedianHistogram(IppiSize mask);
IppStatus MedianHistogram(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask);

}  // namespace PQ_TARGET
}  // namespace pantiq
