#include <cstddef>
#include <cstdlib>
#include <utility>

#include "pantiq/kernels/PQBoxRank.h"

namespace pantiq {
namespace {

using u8 = std::uint8_t;

const u8* Row(const u8* base, int step, std::int64_t y) { return base + std::ptrdiff_t{step} * y; }
u8* Row(u8* base, int step, std::int64_t y) { return base + std::ptrdiff_t{step} * y; }

// ---- Box -----------------------------------------------------------------------------------------------------------

// Column sums of the mask's height, one for each sample that a row's windows touch; along the row one column enters and
// one leaves. `divide` makes a byte of a window's sum.
template <class Sum, class Divide>
IppStatus Blur(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask, Divide divide) {
  const std::int64_t samples = (std::int64_t{roi.width} + mask.width - 1) * 3;
  u8* memory = PQScratch((samples + 6) * std::int64_t{sizeof(Sum)});
  if (memory == nullptr) return ippStsMemAllocErr;
  Sum* columns = reinterpret_cast<Sum*>(memory);
  for (std::int64_t i = 0; i < samples; ++i) {
    columns[i] = 0;
    for (int y = 0; y < mask.height; ++y) columns[i] += Row(src, src_step, y)[i];
  }
  for (int y = 0; y < roi.height; ++y) {
    u8* out = Row(dst, dst_step, y);
    Sum sum[3] = {};
    for (std::int64_t i = 0; i < std::int64_t{mask.width} * 3; ++i) sum[i % 3] += columns[i];
    const Sum *leaving = columns, *entering = columns + std::int64_t{mask.width} * 3;
    for (int x = 0; x < roi.width; ++x) {
      for (int c = 0; c < 3; ++c) *out++ = divide(sum[c]);
      if (x + 1 == roi.width) break;
      for (int c = 0; c < 3; ++c) sum[c] += *entering++ - *leaving++;
    }
    if (y + 1 == roi.height) break;
    const u8 *row_in = Row(src, src_step, std::int64_t{y} + mask.height), *row_out = Row(src, src_step, y);
    for (std::int64_t i = 0; i < samples; ++i) columns[i] += static_cast<Sum>(row_in[i]) - row_out[i];
  }
  ippsFree(memory);
  return ippStsNoErr;
}

void Blur33(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, const PQBoxRule& rule) {
  for (int y = 0; y < roi.height; ++y) {
    const u8 *a = Row(src, src_step, y), *b = a + src_step, *c = b + src_step;
    u8* out = Row(dst, dst_step, y);
    for (std::ptrdiff_t i = 0; i < std::ptrdiff_t{roi.width} * 3; ++i) {
      unsigned sum = 0;
      for (int k = 0; k < 9; k += 3) sum += unsigned{a[i + k]} + b[i + k] + c[i + k];
      out[i] = static_cast<u8>((sum * rule.multiplier) >> rule.shift);
    }
  }
}

// Its own function: nothing of it may be moved to where another rounding mode holds.
__attribute__((noinline)) IppStatus Box(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi,
                                        IppiSize mask) {
  const PQBoxRule rule = PQMakeBoxRule(mask);
  if (rule.in_doubles) {
    return Blur<std::int64_t>(src, src_step, dst, dst_step, roi, mask, [&](std::int64_t sum) {
      return static_cast<u8>(static_cast<int>(static_cast<double>(sum) * rule.reciprocal + rule.nudge));
    });
  }
  if (mask.width == 3 && mask.height == 3) {
    Blur33(src, src_step, dst, dst_step, roi, rule);
    return ippStsNoErr;
  }
  return Blur<std::uint32_t>(src, src_step, dst, dst_step, roi, mask,
                             [&](std::uint32_t sum) { return static_cast<u8>((rule.multiplier * sum) >> rule.shift); });
}

// ---- Minimum, maximum ----------------------------------------------------------------------------------------------

struct Less {
  static bool Better(int a, int b) { return a < b; }
};
struct Greater {
  static bool Better(int a, int b) { return a > b; }
};

// One row's extremes across: a ring of the window's samples, scanned anew for each pixel.
template <class Order>
void ExtremeAcross(const u8* src, u8* out, int width, int* window, std::int64_t window_samples) {
  std::int64_t place = 0;
  for (; place < window_samples - 3; ++place) window[place] = *src++;
  for (int x = 0; x < width; ++x) {
    for (int c = 0; c < 3; ++c) window[place + c] = *src++;
    place = place + 3 == window_samples ? 0 : place + 3;
    for (int c = 0; c < 3; ++c) {
      int best = window[c];
      for (std::int64_t i = c + 3; i < window_samples; i += 3) {
        if (Order::Better(window[i], best)) best = window[i];
      }
      *out++ = static_cast<u8>(best);
    }
  }
}

// A ring of the last mask.height rows' extremes across; every output row takes the extremes down.
template <class Order>
IppStatus Extreme(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask) {
  const std::int64_t samples = std::int64_t{roi.width} * 3, ring_step = (samples + 31) / 32 * 32;
  const std::int64_t window_samples = std::int64_t{mask.width} * 3;
  u8* ring = ring_step > 0x7FFFFFFF / mask.height ? nullptr : PQScratch(ring_step * mask.height);
  if (ring == nullptr) return ippStsMemAllocErr;
  int* window = reinterpret_cast<int*>(PQScratch(window_samples * 4));
  if (window == nullptr) {
    ippsFree(ring);
    return ippStsMemAllocErr;
  }
  for (int y = 0; y + 1 < mask.height; ++y) {
    ExtremeAcross<Order>(Row(src, src_step, y), ring + ring_step * y, roi.width, window, window_samples);
  }
  int newest = mask.height - 1;
  for (int y = 0; y < roi.height; ++y) {
    ExtremeAcross<Order>(Row(src, src_step, std::int64_t{y} + mask.height - 1), ring + ring_step * newest, roi.width,
                         window, window_samples);
    u8* out = Row(dst, dst_step, y);
    for (std::int64_t i = 0; i < samples; ++i) {
      u8 best = ring[i];
      for (int k = 1; k < mask.height; ++k) {
        const u8 value = ring[ring_step * k + i];
        if (Order::Better(value, best)) best = value;
      }
      out[i] = best;
    }
    newest = newest + 1 == mask.height ? 0 : newest + 1;
  }
  ippsFree(window);
  ippsFree(ring);
  return ippStsNoErr;
}

template <class Order>
IppStatus ExtremeEntry(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask, TPoint anchor) {
  if (const IppStatus status = PQCheckRank(src, src_step, dst, dst_step, roi, mask, anchor, false)) return status;
  if (mask.width == 1 && mask.height == 1) return PQ_VARIANT(ippiCopy_8u_C3R)(src, src_step, dst, dst_step, roi);
  src -= std::ptrdiff_t{anchor.x} * 3 + std::ptrdiff_t{src_step} * anchor.y;
  return Extreme<Order>(src, src_step, dst, dst_step, roi, mask);
}

// ---- Medians -------------------------------------------------------------------------------------------------------

void Order2(int& a, int& b) {
  if (b < a) std::swap(a, b);
}
void Sort3(int (&v)[3]) {
  Order2(v[0], v[1]);
  Order2(v[1], v[2]);
  Order2(v[0], v[1]);
}
int Median3(int a, int b, int c) {
  Order2(a, b);
  Order2(b, c);
  return a > b ? a : b;
}
int Median5(int a, int b, int c, int d, int e) {
  Order2(a, b);
  Order2(c, d);
  // The least and the greatest of the four are not the median.
  const int low = a > c ? a : c, high = b < d ? b : d;
  return Median3(low, high, e);
}
// The median of nine in three ascending triples.
int Median9(const int (&p)[3], const int (&q)[3], const int (&r)[3]) {
  int low = p[0] > q[0] ? p[0] : q[0], high = p[2] < q[2] ? p[2] : q[2];
  if (r[0] > low) low = r[0];
  if (r[2] < high) high = r[2];
  return Median3(low, Median3(p[1], q[1], r[1]), high);
}

// Calls f(source sample, destination sample) for every sample.
template <class F>
void ForSamples(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, F f) {
  for (int y = 0; y < roi.height; ++y) {
    const u8* in = Row(src, src_step, y);
    u8* out = Row(dst, dst_step, y);
    for (std::ptrdiff_t i = 0; i < std::ptrdiff_t{roi.width} * 3; ++i) out[i] = static_cast<u8>(f(in + i));
  }
}

// Three or five samples at a distance of `pitch` bytes.
void MedianLine(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, std::ptrdiff_t pitch, int count) {
  if (count == 3) {
    ForSamples(src, src_step, dst, dst_step, roi, [=](const u8* p) { return Median3(p[-pitch], p[0], p[pitch]); });
  } else {
    ForSamples(src, src_step, dst, dst_step, roi,
               [=](const u8* p) { return Median5(p[-2 * pitch], p[-pitch], p[0], p[pitch], p[2 * pitch]); });
  }
}

// 3 x 3: a ring of three sorted columns.
void Median33(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  for (int channel = 0; channel < 3; ++channel) {
    for (int y = 0; y < roi.height; ++y) {
      const u8* in = Row(src, src_step, y) + channel - 3;
      u8* out = Row(dst, dst_step, y) + channel;
      int columns[3][3];
      const auto load = [&](int(&column)[3]) {
        column[0] = in[-std::ptrdiff_t{src_step}];
        column[1] = in[0];
        column[2] = in[src_step];
        Sort3(column);
        in += 3;
      };
      load(columns[0]);
      load(columns[1]);
      int next = 2;
      for (int x = 0; x < roi.width; ++x, out += 3) {
        load(columns[next]);
        next = next == 2 ? 0 : next + 1;
        *out = static_cast<u8>(Median9(columns[0], columns[1], columns[2]));
      }
    }
  }
}

// Any odd window wider than one pixel, by its top left: a histogram of the window and the count of samples at or below
// the median move along with it.
void MedianWindow(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask) {
  const std::int64_t rank = std::int64_t{mask.width} * mask.height / 2 + 1;
  const std::ptrdiff_t window = std::ptrdiff_t{mask.width} * 3;
  std::uint32_t bins[256] = {};
  for (int channel = 0; channel < 3; ++channel) {
    for (int y = 0; y < roi.height; ++y) {
      const u8* corner = Row(src, src_step, y) + channel;
      u8* out = Row(dst, dst_step, y) + channel;
      for (int j = 0; j < mask.height; ++j) {
        for (std::ptrdiff_t i = 0; i < window; i += 3) ++bins[Row(corner, src_step, j)[i]];
      }
      int median = 0;
      std::int64_t count = bins[0];  // samples at or below the median
      while (count < rank) count += bins[++median];
      *out = static_cast<u8>(median);
      for (int x = 1; x < roi.width; ++x) {
        for (int j = 0; j < mask.height; ++j) {
          const u8* row = Row(corner, src_step, j);
          const int leaves = row[0], enters = row[window];
          --bins[leaves];
          ++bins[enters];
          count += (enters <= median) - (leaves <= median);
        }
        corner += 3;
        if (count < rank) {
          while (count < rank) count += bins[++median];
        } else {
          while (count - bins[median] >= rank) count -= bins[median--];
        }
        out += 3;
        *out = static_cast<u8>(median);
      }
      for (int j = 0; j < mask.height; ++j) {
        for (std::ptrdiff_t i = 0; i < window; i += 3) bins[Row(corner, src_step, j)[i]] = 0;
      }
    }
  }
}

// One pixel wide: each column copied and sorted by bubble passes from the top down to its middle.
IppStatus MedianColumn(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, int height) {
  int* column = reinterpret_cast<int*>(PQScratch(std::int64_t{height} * 4));
  if (column == nullptr) return ippStsMemAllocErr;
  ForSamples(src, src_step, dst, dst_step, roi, [=](const u8* p) {
    for (int j = 0; j < height; ++j) column[j] = p[std::ptrdiff_t{src_step} * j];
    for (int last = height - 1; last >= height / 2; --last) {
      for (int j = 0; j < last; ++j) Order2(column[j], column[j + 1]);
    }
    return column[height / 2];
  });
  ippsFree(column);
  return ippStsNoErr;
}

// ---- Colour median -------------------------------------------------------------------------------------------------

int Distance(const u8* a, const u8* b) { return std::abs(a[0] - b[0]) + std::abs(a[1] - b[1]) + std::abs(a[2] - b[2]); }

template <int kSide>
void MedianColor(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  src -= std::ptrdiff_t{kSide / 2} * (3 + std::ptrdiff_t{src_step});
  for (int y = 0; y < roi.height; ++y) {
    u8* out = Row(dst, dst_step, y);
    for (int x = 0; x < roi.width; ++x, out += 3) {
      const u8* window[kSide * kSide];
      for (int k = 0; k < kSide * kSide; ++k) {
        window[k] = Row(src, src_step, std::int64_t{y} + k / kSide) + (std::ptrdiff_t{x} + k % kSide) * 3;
      }
      const u8* best = nullptr;
      int least = 0;
      for (const u8* pixel : window) {
        int sum = 0;
        for (const u8* other : window) sum += Distance(pixel, other);
        if (best == nullptr || sum < least) {
          best = pixel;
          least = sum;
        }
      }
      for (int c = 0; c < 3; ++c) out[c] = best[c];
    }
  }
}

}  // namespace

IppStatus PQ_VARIANT(ippiFilterBox_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                           IppiSize roi, IppiSize mask, TPoint anchor) {
  if (const IppStatus status = PQCheckBox(src, srcStep, dst, dstStep, roi, mask, anchor)) return status;
  src -= std::ptrdiff_t{anchor.x} * 3 + std::ptrdiff_t{srcStep} * anchor.y;
  const int mode = PQRoundToNearest();
  const IppStatus status = Box(src, srcStep, dst, dstStep, roi, mask);
  PQRestoreRounding(mode);
  return status;
}

IppStatus PQ_VARIANT(ippiFilterMin_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                           IppiSize roi, IppiSize mask, TPoint anchor) {
  return ExtremeEntry<Less>(src, srcStep, dst, dstStep, roi, mask, anchor);
}

IppStatus PQ_VARIANT(ippiFilterMax_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                           IppiSize roi, IppiSize mask, TPoint anchor) {
  return ExtremeEntry<Greater>(src, srcStep, dst, dstStep, roi, mask, anchor);
}

IppStatus PQ_VARIANT(ippiFilterMedian_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                              IppiSize roi, IppiSize mask, TPoint anchor) {
  if (const IppStatus status = PQCheckRank(src, srcStep, dst, dstStep, roi, mask, anchor, true)) return status;
  src = PQCentred(src, srcStep, mask, anchor);
  const int w = mask.width, h = mask.height;
  if (w == 1 && h == 1) return PQ_VARIANT(ippiCopy_8u_C3R)(src, srcStep, dst, dstStep, roi);
  if (h == 1 && (w == 3 || w == 5)) {
    MedianLine(src, srcStep, dst, dstStep, roi, 3, w);
  } else if (w == 1 && (h == 3 || h == 5)) {
    MedianLine(src, srcStep, dst, dstStep, roi, srcStep, h);
  } else if (w == 3 && h == 3) {
    Median33(src, srcStep, dst, dstStep, roi);
  } else {
    src -= std::ptrdiff_t{w / 2} * 3 + std::ptrdiff_t{srcStep} * (h / 2);
    if (w == 1) return MedianColumn(src, srcStep, dst, dstStep, roi, h);
    MedianWindow(src, srcStep, dst, dstStep, roi, mask);
  }
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiFilterMedianHoriz_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                   IppiSize roi, int maskCode) {
  if (const IppStatus status = PQCheckRankCode(src, srcStep, dst, dstStep, roi, maskCode, 31, 51)) return status;
  MedianLine(src, srcStep, dst, dstStep, roi, 3, maskCode / 10);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiFilterMedianVert_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                  IppiSize roi, int maskCode) {
  if (const IppStatus status = PQCheckRankCode(src, srcStep, dst, dstStep, roi, maskCode, 13, 15)) return status;
  MedianLine(src, srcStep, dst, dstStep, roi, srcStep, maskCode % 10);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiFilterMedianCross_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                   IppiSize roi, int maskCode) {
  if (const IppStatus status = PQCheckRankCode(src, srcStep, dst, dstStep, roi, maskCode, 33, 55)) return status;
  const std::ptrdiff_t step = srcStep;
  if (maskCode == 33) {
    ForSamples(src, srcStep, dst, dstStep, roi,
               [=](const u8* p) { return Median5(p[-step], p[-3], p[0], p[3], p[step]); });
  } else {
    ForSamples(src, srcStep, dst, dstStep, roi, [=](const u8* p) {
      int above[3] = {p[-2 * step], p[-step], p[-6]}, middle[3] = {p[-3], p[0], p[3]},
          below[3] = {p[6], p[step], p[2 * step]};
      Sort3(above);
      Sort3(middle);
      Sort3(below);
      return Median9(above, middle, below);
    });
  }
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiFilterMedianColor_8u_C3R)(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                   IppiSize roi, int maskCode) {
  if (const IppStatus status = PQCheckRankCode(src, srcStep, dst, dstStep, roi, maskCode, 33, 55)) return status;
  if (maskCode == 33) {
    MedianColor<3>(src, srcStep, dst, dstStep, roi);
  } else {
    MedianColor<5>(src, srcStep, dst, dstStep, roi);
  }
  return ippStsNoErr;
}

}  // namespace pantiq
