#include "pantiq/kernels/PQBorderRank.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "pantiq/kernels/PQBoxRank.h"

namespace pantiq {
namespace {

using u8 = std::uint8_t;

constexpr int kLargestEllipse = 16384;

// The half of the run of mask row j, both ends of the row less 2 * i: pixels i with |2 * i + 1 - width| up to it belong
// to the ellipse. Negative if none does.
std::int64_t EllipseReach(IppiSize mask, int j) {
  const std::int64_t w = mask.width, h = mask.height, v = 2 * std::int64_t{j} + 1 - h;
  const std::int64_t room = w * w * (h * h - v * v);  // u * u * h * h is at most this
  std::int64_t u = -1;
  for (std::int64_t next = (w - 1) % 2; next < w && next * next * h * h <= room; next += 2) u = next;
  return u;
}

// Extremes over rows of runs: run(j, first, last) gives the columns of the mask's row j, or first > last.
template <class Pick, class Run>
void Extreme(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask, TPoint anchor, Pick pick,
             Run run) {
  const auto clamp = [](std::int64_t v, int size) { return std::clamp<std::int64_t>(v, 0, size - 1); };
  for (int y = 0; y < roi.height; ++y) {
    u8* out = dst + std::ptrdiff_t{dst_step} * y;
    bool fresh = true;
    for (int j = 0; j < mask.height; ++j) {
      std::int64_t first, last;
      run(j, first, last);
      if (first > last) continue;
      const u8* row = src + std::ptrdiff_t{src_step} * clamp(std::int64_t{y} - anchor.y + j, roi.height);
      for (int x = 0; x < roi.width; ++x) {
        const std::int64_t left = clamp(x - anchor.x + first, roi.width), right = clamp(x - anchor.x + last, roi.width);
        for (int c = 0; c < 3; ++c) {
          u8 best = fresh ? row[left * 3 + c] : out[x * 3 + c];
          for (std::int64_t i = left; i <= right; ++i) best = pick(best, row[i * 3 + c]);
          out[x * 3 + c] = best;
        }
      }
      fresh = false;
    }
  }
}

const auto kLeast = [](u8 a, u8 b) { return std::min(a, b); };
const auto kGreatest = [](u8 a, u8 b) { return std::max(a, b); };

template <class Pick>
IppStatus OverRectangle(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask, TPoint anchor,
                        Pick pick) {
  if (const IppStatus status = PQCheckRank(src, src_step, dst, dst_step, roi, mask, anchor, false)) return status;
  Extreme(src, src_step, dst, dst_step, roi, mask, anchor, pick, [&](int, std::int64_t& first, std::int64_t& last) {
    first = 0;
    last = mask.width - 1;
  });
  return ippStsNoErr;
}

template <class Pick>
IppStatus OverEllipse(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, IppiSize mask, TPoint anchor,
                      Pick pick) {
  if (const IppStatus status = PQCheckRankImages(src, src_step, dst, dst_step, roi)) return status;
  if (mask.width > kLargestEllipse || mask.height > kLargestEllipse) return ippStsMaskSizeErr;
  if (const IppStatus status = PQCheckWindowMask(mask, anchor, false)) return status;
  Extreme(src, src_step, dst, dst_step, roi, mask, anchor, pick, [&](int j, std::int64_t& first, std::int64_t& last) {
    const std::int64_t reach = EllipseReach(mask, j);
    first = (mask.width - 1 - reach) / 2;
    last = reach < 0 ? first - 1 : (mask.width - 1 + reach) / 2;
  });
  return ippStsNoErr;
}

}  // namespace

IppStatus ippiCopyReplicateBorder_8u_C3IR(std::uint8_t* srcDst, int step, IppiSize srcRoi, IppiSize dstRoi,
                                          int topBorder, int leftBorder) {
  if (srcDst == nullptr) return ippStsNullPtrErr;
  const std::int64_t right = std::int64_t{dstRoi.width} - srcRoi.width - leftBorder;
  const std::int64_t below = std::int64_t{dstRoi.height} - srcRoi.height - topBorder;
  if (srcRoi.width < 1 || srcRoi.height < 1 || topBorder < 0 || leftBorder < 0 || right < 0 || below < 0) {
    return ippStsSizeErr;
  }
  if (step < 1) return ippStsStepErr;
  for (int y = 0; y < srcRoi.height; ++y) {
    u8* row = srcDst + std::ptrdiff_t{step} * y;
    u8* end = row + std::ptrdiff_t{srcRoi.width} * 3;
    for (std::ptrdiff_t x = 1; x <= leftBorder; ++x) std::memcpy(row - x * 3, row, 3);
    for (std::ptrdiff_t x = 0; x < right; ++x) std::memcpy(end + x * 3, end - 3, 3);
  }
  u8* const first = srcDst - std::ptrdiff_t{leftBorder} * 3;
  u8* const last = first + std::ptrdiff_t{step} * (srcRoi.height - 1);
  const std::size_t bytes = static_cast<std::size_t>(dstRoi.width) * 3;
  for (std::ptrdiff_t y = 1; y <= topBorder; ++y) std::memcpy(first - step * y, first, bytes);
  for (std::ptrdiff_t y = 1; y <= below; ++y) std::memcpy(last + step * y, last, bytes);
  return ippStsNoErr;
}

IppStatus ippiFilterMinBorderReplicate_8u_C3R(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                              IppiSize roi, IppiSize mask, TPoint anchor) {
  return OverRectangle(src, srcStep, dst, dstStep, roi, mask, anchor, kLeast);
}

IppStatus ippiFilterMaxBorderReplicate_8u_C3R(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                              IppiSize roi, IppiSize mask, TPoint anchor) {
  return OverRectangle(src, srcStep, dst, dstStep, roi, mask, anchor, kGreatest);
}

IppStatus ownErodeEllipseBorderReplicate_8u_C3R(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                IppiSize roi, IppiSize mask, TPoint anchor) {
  return OverEllipse(src, srcStep, dst, dstStep, roi, mask, anchor, kLeast);
}

IppStatus ownDilateEllipseBorderReplicate_8u_C3R(const std::uint8_t* src, int srcStep, std::uint8_t* dst, int dstStep,
                                                 IppiSize roi, IppiSize mask, TPoint anchor) {
  return OverEllipse(src, srcStep, dst, dstStep, roi, mask, anchor, kGreatest);
}

}  // namespace pantiq
