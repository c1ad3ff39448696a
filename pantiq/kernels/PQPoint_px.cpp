// Point operations and histograms in plain code: the reference of the other variants.
#include "pantiq/kernels/PQPoint.h"

namespace pantiq {
namespace point {

// 255 times the transfer function of ITU-R BT.709 and its inverse, rounded; see PQPoint.h.
const std::uint8_t kGammaForward[256] = {
    // clang-format off
    0, 4, 9, 14, 18, 23, 27, 30, 34, 37, 40, 43, 46, 48, 51, 53, 55, 58, 60, 62, 64, 66, 68, 70, 72, 73, 75, 77, 78,
    80, 82, 83, 85, 86, 88, 89, 91, 92, 94, 95, 97, 98, 99, 101, 102, 103, 104, 106, 107, 108, 109, 111, 112, 113,
    114, 115, 116, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128, 129, 130, 131, 132, 133, 134, 135, 136, 137,
    138, 139, 140, 141, 142, 143, 144, 145, 146, 147, 147, 148, 149, 150, 151, 152, 153, 154, 154, 155, 156, 157, 158,
    159, 159, 160, 161, 162, 163, 164, 164, 165, 166, 167, 168, 168, 169, 170, 171, 171, 172, 173, 174, 174, 175, 176,
    177, 177, 178, 179, 180, 180, 181, 182, 182, 183, 184, 185, 185, 186, 187, 187, 188, 189, 189, 190, 191, 191, 192,
    193, 193, 194, 195, 195, 196, 197, 197, 198, 199, 199, 200, 201, 201, 202, 203, 203, 204, 205, 205, 206, 206, 207,
    208, 208, 209, 209, 210, 211, 211, 212, 213, 213, 214, 214, 215, 216, 216, 217, 217, 218, 218, 219, 220, 220, 221,
    221, 222, 223, 223, 224, 224, 225, 225, 226, 227, 227, 228, 228, 229, 229, 230, 230, 231, 232, 232, 233, 233, 234,
    234, 235, 235, 236, 236, 237, 238, 238, 239, 239, 240, 240, 241, 241, 242, 242, 243, 243, 244, 244, 245, 245, 246,
    246, 247, 247, 248, 248, 249, 249, 250, 251, 251, 252, 252, 253, 253, 254, 254, 255, 255,
    // clang-format on
};
const std::uint8_t kGammaInverse[256] = {
    // clang-format off
    0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 4, 5, 5, 5, 5, 6, 6, 6, 6, 7, 7, 7, 7, 8, 8, 8, 9, 9,
    9, 10, 10, 10, 11, 11, 11, 12, 12, 13, 13, 13, 14, 14, 15, 15, 15, 16, 16, 17, 17, 18, 18, 19, 19, 20, 20, 21, 21,
    22, 22, 23, 23, 24, 24, 25, 25, 26, 27, 27, 28, 28, 29, 30, 30, 31, 31, 32, 33, 33, 34, 35, 35, 36, 37, 37, 38,
    39, 40, 40, 41, 42, 43, 43, 44, 45, 46, 46, 47, 48, 49, 50, 51, 51, 52, 53, 54, 55, 56, 57, 57, 58, 59, 60, 61,
    62, 63, 64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79, 80, 81, 82, 83, 84, 85, 86, 88, 89, 90,
    91, 92, 93, 94, 96, 97, 98, 99, 100, 102, 103, 104, 105, 107, 108, 109, 110, 112, 113, 114, 116, 117, 118, 119,
    121, 122, 124, 125, 126, 128, 129, 130, 132, 133, 135, 136, 138, 139, 140, 142, 143, 145, 146, 148, 149, 151, 152,
    154, 155, 157, 158, 160, 162, 163, 165, 166, 168, 170, 171, 173, 174, 176, 178, 179, 181, 183, 184, 186, 188, 190,
    191, 193, 195, 197, 198, 200, 202, 204, 205, 207, 209, 211, 213, 214, 216, 218, 220, 222, 224, 226, 228, 229, 231,
    233, 235, 237, 239, 241, 243, 245, 247, 249, 251, 253, 255,
    // clang-format on
};

void FillLevels(int* levels, int n, int lower, int upper) {
  const std::int64_t range = std::int64_t{upper} - lower;
  const std::int64_t q = range / (n - 1);
  std::int64_t r = range % (n - 1);
  std::int64_t level = lower;
  levels[0] = lower;
  for (int k = 1; k < n; ++k) {
    level += q;
    if (q < 0 && r < 0) {
      --level;
      ++r;
    } else if (q >= 0 && r > 0) {
      ++level;
      --r;
    }
    levels[k] = static_cast<int>(level);
  }
}

void SumWithinLevels(const std::uint32_t (&counters)[256], int* hist, const int* levels, int n) {
  std::uint32_t below[257];  // samples below a value
  below[0] = 0;
  for (int v = 0; v < 256; ++v) below[v + 1] = below[v] + counters[v];
  const auto limit = [](int level) { return level < 0 ? 0 : level > 256 ? 256 : level; };
  int from = limit(levels[0]);
  for (int k = 0; k + 1 < n; ++k) {
    const int to = limit(levels[k + 1]);
    hist[k] = to > from ? static_cast<int>(below[to] - below[from]) : 0;
    from = to;
  }
}

void FillLevels3(int* const* levels, const int* n, const int* lower, const int* upper) {
  for (int c = 0; c < 3; ++c) FillLevels(levels[c], n[c], lower[c], upper[c]);
}

void SumWithinLevels3(const std::uint32_t (&counters)[3][256], int* const* hist, int* const* levels, const int* n) {
  for (int c = 0; c < 3; ++c) SumWithinLevels(counters[c], hist[c], levels[c], n[c]);
}

}  // namespace point

namespace {

using u8 = std::uint8_t;

const u8* Row(const u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }
u8* Row(u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }

u8 RoundTwist(float v) {
  v = v > 0.0f ? v : 0.0f;  // not-a-number too
  v = v < 255.0f ? v : 255.0f;
  const float up = v + 0.5f;
  const int n = static_cast<int>(up);
  return static_cast<u8>(n - ((n & 1) & static_cast<int>(static_cast<float>(n) == up)));
}

__attribute__((noinline)) void TwistRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi,
                                         const float twist[3][4]) {
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, src_step, y);
    u8* o = Row(dst, dst_step, y);
    for (int x = 0; x < roi.width; ++x, p += 3, o += 3) {
      const float s0 = p[0], s1 = p[1], s2 = p[2];
      for (int k = 0; k < 3; ++k) {
        const float* t = twist[k];
        o[k] = RoundTwist(t[0] * s0 + t[1] * s1 + t[2] * s2 + t[3]);
      }
    }
  }
}

IppStatus Twist(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, const float twist[3][4]) {
  if (const IppStatus status = PQCheckTwist(src, src_step, dst, dst_step, roi, twist)) return status;
  const int mode = PQRoundToNearest();
  TwistRows(src, src_step, dst, dst_step, roi, twist);
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

IppStatus MapThrough(const u8 (&table)[256], const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  if (const IppStatus status = PQCheckPoint(src, src_step, dst, dst_step, roi)) return status;
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * 3;
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, src_step, y);
    u8* o = Row(dst, dst_step, y);
    for (std::ptrdiff_t i = 0; i < n; ++i) o[i] = table[p[i]];
  }
  return ippStsNoErr;
}

// dst = f(src, low, low_value, high, high_value), all five bytes, where the last four repeat every three samples.
// Blocks of 48 samples, so that compilers take three vectors at once: there are processors that run this form for good.
constexpr int kRun = 48;
template <class F>
void ThresholdRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, const u8* low, const u8* low_value,
                   const u8* high, const u8* high_value, F f) {
  u8 tl[kRun], vl[kRun], th[kRun], vh[kRun];
  for (int i = 0; i < kRun; ++i) {
    tl[i] = low[i % 3];
    vl[i] = low_value[i % 3];
    th[i] = high[i % 3];
    vh[i] = high_value[i % 3];
  }
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * 3;
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, src_step, y);
    u8* o = Row(dst, dst_step, y);
    std::ptrdiff_t i = 0;
    for (; i + kRun <= n; i += kRun) {
      u8 block[kRun];
      for (int j = 0; j < kRun; ++j) block[j] = f(p[i + j], tl[j], vl[j], th[j], vh[j]);
      __builtin_memcpy(o + i, block, kRun);
    }
    for (int j = 0; i < n; ++i, ++j) o[i] = f(p[i], tl[j], vl[j], th[j], vh[j]);
  }
}

}  // namespace

IppStatus PQ_VARIANT(ippiColorTwist32f_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                               const float twist[3][4]) {
  return Twist(src, srcStep, dst, dstStep, roi, twist);
}

IppStatus PQ_VARIANT(ippiColorTwist32f_8u_C3IR)(u8* srcDst, int step, IppiSize roi, const float twist[3][4]) {
  return Twist(srcDst, step, srcDst, step, roi, twist);
}

IppStatus PQ_VARIANT(PQTable_8u_C1R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, const u8* table) {
  if (const IppStatus status = PQCheckTable(src, srcStep, dst, dstStep, roi, table)) return status;
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, srcStep, y);
    u8* o = Row(dst, dstStep, y);
    for (int i = 0; i < roi.width; ++i) o[i] = table[p[i]];
  }
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiGammaFwd_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return MapThrough(point::kGammaForward, src, srcStep, dst, dstStep, roi);
}

IppStatus PQ_VARIANT(ippiGammaInv_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  return MapThrough(point::kGammaInverse, src, srcStep, dst, dstStep, roi);
}

IppStatus PQ_VARIANT(ippiGammaFwd_8u_C3IR)(u8* srcDst, int step, IppiSize roi) {
  return MapThrough(point::kGammaForward, srcDst, step, srcDst, step, roi);
}

IppStatus PQ_VARIANT(ippiGammaInv_8u_C3IR)(u8* srcDst, int step, IppiSize roi) {
  return MapThrough(point::kGammaInverse, srcDst, step, srcDst, step, roi);
}

IppStatus PQ_VARIANT(ippiThreshold_LTVal_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                                 const u8* threshold, const u8* value) {
  if (const IppStatus s = PQCheckThreshold(src, srcStep, dst, dstStep, roi, threshold, value)) return s;
  ThresholdRows(src, srcStep, dst, dstStep, roi, threshold, value, threshold, value,
                [](u8 s, u8 low, u8 value, u8, u8) { return s < low ? value : s; });
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiThreshold_GTVal_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                                 const u8* threshold, const u8* value) {
  if (const IppStatus s = PQCheckThreshold(src, srcStep, dst, dstStep, roi, threshold, value)) return s;
  ThresholdRows(src, srcStep, dst, dstStep, roi, threshold, value, threshold, value,
                [](u8 s, u8, u8, u8 high, u8 value) { return s > high ? value : s; });
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiThreshold_LTValGTVal_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                                      const u8* thresholdLT, const u8* valueLT, const u8* thresholdGT,
                                                      const u8* valueGT) {
  if (const IppStatus s =
          PQCheckThresholds(src, srcStep, dst, dstStep, roi, thresholdLT, valueLT, thresholdGT, valueGT)) {
    return s;
  }
  ThresholdRows(src, srcStep, dst, dstStep, roi, thresholdLT, valueLT, thresholdGT, valueGT,
                [](u8 s, u8 low, u8 low_value, u8 high, u8 high_value) {
                  const u8 lower = s < low ? low_value : s;
                  return s > high ? high_value : lower;
                });
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiHistogramEven_8u_C1R)(const u8* src, int step, IppiSize roi, int* hist, int* levels,
                                               int nLevels, int lowerLevel, int upperLevel) {
  if (const IppStatus status = PQCheckHistogram1(src, step, roi, hist, levels, nLevels)) return status;
  point::FillLevels(levels, nLevels, lowerLevel, upperLevel);
  // Equal neighbours would wait for each other in one table; with this length, tables do not stand in each other's way.
  std::uint32_t tables[4][272] = {};
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, step, y);
    int x = 0;
    for (; x + 8 <= roi.width; x += 8) {
      for (int k = 0; k < 8; ++k) ++tables[k & 3][p[x + k]];
    }
    for (; x < roi.width; ++x) ++tables[0][p[x]];
  }
  std::uint32_t counters[256];
  for (int v = 0; v < 256; ++v) counters[v] = tables[0][v] + tables[1][v] + tables[2][v] + tables[3][v];
  point::SumWithinLevels(counters, hist, levels, nLevels);
  return ippStsNoErr;
}

namespace {

void Count3(const u8* src, int step, IppiSize roi, std::uint32_t (&counters)[3][256]) {
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, step, y);
    for (int x = 0; x < roi.width; ++x, p += 3) {
      for (int c = 0; c < 3; ++c) ++counters[c][p[c]];
    }
  }
}

}  // namespace

IppStatus PQ_VARIANT(ippiHistogramEven_8u_C3R)(const u8* src, int step, IppiSize roi, int** hist, int** levels,
                                               int* nLevels, int* lowerLevel, int* upperLevel) {
  if (lowerLevel == nullptr || upperLevel == nullptr) return ippStsNullPtrErr;
  if (const IppStatus status = PQCheckHistogram3(src, step, roi, hist, levels, nLevels)) return status;
  point::FillLevels3(levels, nLevels, lowerLevel, upperLevel);
  std::uint32_t counters[3][256] = {};
  Count3(src, step, roi, counters);
  point::SumWithinLevels3(counters, hist, levels, nLevels);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiHistogramRange_8u_C3R)(const u8* src, int step, IppiSize roi, int** hist, int** levels,
                                                int* nLevels) {
  if (const IppStatus status = PQCheckHistogram3(src, step, roi, hist, levels, nLevels)) return status;
  std::uint32_t counters[3][256] = {};
  Count3(src, step, roi, counters);
  point::SumWithinLevels3(counters, hist, levels, nLevels);
  return ippStsNoErr;
}

}  // namespace pantiq
