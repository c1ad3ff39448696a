// Colour median: one source for a6, w7 and t7. Works down strips of planes. The distance of two pixels is computed once
// for all windows that hold both; the distances from a pixel to each column of the window's rows are summed once for
// all windows that hold both.
#include "pantiq/kernels/PQWindowVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

constexpr std::ptrdiff_t kStrip = 128;              // pixels of a strip with its borders, at most
constexpr std::ptrdiff_t kPlane = kStrip + 2 * kV;  // a plane's row: kV bytes of padding at either side

PQ_INLINE V Difference8(V a, V b) { return Or(SubSat8(a, b), SubSat8(b, a)); }

// The bytes of a where s is less than best, else those of b; a mask of kV bytes from two vectors of words.
#if PQ_WIDE
using Mask8 = VMask;
PQ_INLINE Mask8 Less16(V s0, V best0, V s1, V best1) {
  return _mm512_kunpackd(_mm512_cmplt_epu16_mask(s1, best1), _mm512_cmplt_epu16_mask(s0, best0));
}
PQ_INLINE V Choose8(Mask8 m, V a, V b) { return _mm512_mask_blend_epi8(m, b, a); }
#else
using Mask8 = V;
PQ_INLINE Mask8 Less16(V s0, V best0, V s1, V best1) {  // sums stay below 32768
  const V m = _mm256_packs_epi16(_mm256_cmpgt_epi16(best0, s0), _mm256_cmpgt_epi16(best1, s1));
  return _mm256_permute4x64_epi64(m, 0xD8);
}
PQ_INLINE V Choose8(Mask8 m, V a, V b) { return _mm256_blendv_epi8(b, a, m); }
#endif

template <int kSide>
struct Strip {
  static constexpr int kShifts = 2 * kSide - 1;  // differences of columns, from 1 - kSide
  static constexpr std::ptrdiff_t kMiddle = kSide - 1;

  alignas(64) u8 planes[kSide][3][kPlane];
  // distances[a][dy][kMiddle + dx][x]: from pixel x of row slot a to pixel x + dx, dy rows below.
  alignas(64) u16 distances[kSide][kSide][kShifts][kStrip];
  // to_column[r][kMiddle + dx][x]: from pixel x of the window's row r to the window's rows of column x + dx.
  alignas(64) u16 to_column[kSide][kShifts][kStrip];
  alignas(64) u16 slack[64];  // behind the last row, read with x + dx
};

// Splits `columns` pixels into the planes of a row slot.
template <int kSide>
void LoadRow(const Interleave3& interleave, Strip<kSide>& strip, int slot, const u8* row, std::ptrdiff_t columns) {
  u8* const plane[3] = {strip.planes[slot][0] + kV, strip.planes[slot][1] + kV, strip.planes[slot][2] + kV};
  std::ptrdiff_t x = 0;
  for (; x + kV <= columns; x += kV) {
    V c[3];
    Split3(interleave, row + x * 3, c);
    for (int k = 0; k < 3; ++k) Store(plane[k] + x, c[k]);
  }
  for (; x < columns; ++x) {
    for (int k = 0; k < 3; ++k) plane[k][x] = row[x * 3 + k];
  }
}

// Distances from the pixels of slot a to those of slot b, dy rows below.
template <int kSide>
void MeasureRows(Strip<kSide>& strip, int a, int b, int dy, std::ptrdiff_t wide) {
  for (int dx = dy == 0 ? 1 : 1 - kSide; dx < kSide; ++dx) {
    u16* out = strip.distances[a][dy][strip.kMiddle + dx];
    for (std::ptrdiff_t x = 0; x < wide; x += kV) {
      V low = Zero(), high = Zero();
#pragma GCC unroll 3
      for (int k = 0; k < 3; ++k) {
        const V d = Difference8(Load(strip.planes[a][k] + kV + x), Load(strip.planes[b][k] + kV + x + dx));
        low = Add16(low, WidenLow(d));
        high = Add16(high, WidenHigh(d));
      }
      Store(out + x, low);
      Store(out + x + kL, high);
    }
  }
}

// slots[r]: the slot of the window's row r.
template <int kSide>
void SumColumns(Strip<kSide>& strip, const int* slots, std::ptrdiff_t wide) {
  for (int r = 0; r < kSide; ++r) {
    for (int dx = 1 - kSide; dx < kSide; ++dx) {
      const u16* from[kSide];
      int count = 0;
      for (int other = 0; other < kSide; ++other) {
        if (other == r && dx == 0) continue;
        const bool forward = other > r || (other == r && dx > 0);
        from[count++] = forward ? strip.distances[slots[r]][other - r][strip.kMiddle + dx]
                                : strip.distances[slots[other]][r - other][strip.kMiddle - dx] + dx;
      }
      u16* out = strip.to_column[r][strip.kMiddle + dx];
      if (count == kSide) {
        for (std::ptrdiff_t x = 0; x < wide; x += kL) {
          V sum = Load(from[0] + x);
#pragma GCC unroll 5
          for (int k = 1; k < kSide; ++k) sum = Add16(sum, Load(from[k] + x));
          Store(out + x, sum);
        }
      } else {
        for (std::ptrdiff_t x = 0; x < wide; x += kL) {
          V sum = Load(from[0] + x);
#pragma GCC unroll 5
          for (int k = 1; k < kSide - 1; ++k) sum = Add16(sum, Load(from[k] + x));
          Store(out + x, sum);
        }
      }
    }
  }
}

template <int kSide>
PQ_INLINE V WindowSum(const Strip<kSide>& strip, int row, int column, std::ptrdiff_t x) {
  V sum = Load(strip.to_column[row][strip.kMiddle - column] + x + column);
#pragma GCC unroll 5
  for (int k = 1; k < kSide; ++k) {
    sum = Add16(sum, Load(strip.to_column[row][strip.kMiddle - column + k] + x + column));
  }
  return sum;
}

template <int kSide>
void PickRow(const Interleave3& interleave, const Strip<kSide>& strip, const int* slots, u8* out, std::ptrdiff_t n) {
  WalkOver(
      n, kV, [&](std::ptrdiff_t x) __attribute__((always_inline)) {
        V best0 = Set16(0x7FFF), best1 = best0, color[3] = {Zero(), Zero(), Zero()};
        for (int row = 0; row < kSide; ++row) {
#pragma GCC unroll 5
          for (int column = 0; column < kSide; ++column) {
            const V s0 = WindowSum(strip, row, column, x), s1 = WindowSum(strip, row, column, x + kL);
            const Mask8 less = Less16(s0, best0, s1, best1);
            best0 = Min16(best0, s0);
            best1 = Min16(best1, s1);
            for (int k = 0; k < 3; ++k) {
              color[k] = Choose8(less, Load(strip.planes[slots[row]][k] + kV + x + column), color[k]);
            }
          }
        }
        Join3(interleave, out + x * 3, color);
      });
}

template <int kSide>
IppStatus MedianColor(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  u8* memory = PQScratch(sizeof(Strip<kSide>) + 64);
  if (memory == nullptr) return ippStsMemAllocErr;
  Strip<kSide>& strip =
      *reinterpret_cast<Strip<kSide>*>(memory + (64 - reinterpret_cast<std::uintptr_t>(memory) % 64) % 64);
  __builtin_memset(strip.planes, 0, sizeof strip.planes);
  const Interleave3 interleave = MakeInterleave3();
  src -= std::ptrdiff_t{kSide / 2} * (3 + std::ptrdiff_t{src_step});
  std::ptrdiff_t n = kStrip - (kSide - 1);
  if (n > roi.width) n = roi.width;
  const std::ptrdiff_t columns = n + kSide - 1, wide = RoundUp(columns, kV);
  for (std::ptrdiff_t x = 0; x < roi.width; x += n) {
    if (x + n > roi.width) x = roi.width - n;
    for (std::ptrdiff_t y = 0; y < std::ptrdiff_t{roi.height} + kSide - 1; ++y) {
      const int slot = static_cast<int>(y % kSide);
      LoadRow(interleave, strip, slot, RowAt(src, src_step, y) + x * 3, columns);
      for (int dy = 0; dy < kSide && dy <= y; ++dy) {
        MeasureRows(strip, static_cast<int>((y - dy) % kSide), slot, dy, wide);
      }
      if (y < kSide - 1) continue;
      int slots[kSide];
      for (int r = 0; r < kSide; ++r) slots[r] = static_cast<int>((y - (kSide - 1) + r) % kSide);
      SumColumns(strip, slots, wide);
      PickRow(interleave, strip, slots, RowAt(dst, dst_step, y - (kSide - 1)) + x * 3, n);
    }
  }
  ippsFree(memory);
  return ippStsNoErr;
}

}  // namespace
}  // namespace PQ_TARGET

IppStatus PQ_VARIANT(ippiFilterMedianColor_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                   IppiSize roi, int maskCode) {
  if (const IppStatus status = PQCheckRankCode(src, srcStep, dst, dstStep, roi, maskCode, 33, 55)) return status;
  if (roi.width < PQ_TARGET::kV) return _px_ippiFilterMedianColor_8u_C3R(src, srcStep, dst, dstStep, roi, maskCode);
  if (maskCode == 33) return PQ_TARGET::MedianColor<3>(src, srcStep, dst, dstStep, roi);
  return PQ_TARGET::MedianColor<5>(src, srcStep, dst, dstStep, roi);
}

}  // namespace pantiq
