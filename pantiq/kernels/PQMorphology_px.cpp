// Erosion and dilation in plain code: the reference of the other variants.
#include "pantiq/kernels/PQMorphology.h"

namespace pantiq {
namespace {

using u8 = std::uint8_t;

// One output row; src is the window's top left for the row's first pixel.
template <bool kGreatest, int kChannels>
void Row(const u8* src, int src_step, u8* dst, int width, const u8* mask, int mask_width, int mask_height) {
  for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(width) * kChannels; ++i) {
    int best = kGreatest ? 0 : 255;
    const u8* cell = mask;
    for (int y = 0; y < mask_height; ++y) {
      const u8* p = src + static_cast<std::ptrdiff_t>(y) * src_step + i;
      for (int x = 0; x < mask_width; ++x, ++cell, p += kChannels) {
        if (*cell != 0 && (kGreatest ? *p > best : *p < best)) best = *p;
      }
    }
    dst[i] = static_cast<u8>(best);
  }
}

void Erode_8u_C1S(const u8* src, int src_step, u8* dst, int width, const u8* mask, int mask_width, int mask_height) {
  Row<false, 1>(src, src_step, dst, width, mask, mask_width, mask_height);
}
void Erode_8u_C3S(const u8* src, int src_step, u8* dst, int width, const u8* mask, int mask_width, int mask_height) {
  Row<false, 3>(src, src_step, dst, width, mask, mask_width, mask_height);
}
void Dilate_8u_C1S(const u8* src, int src_step, u8* dst, int width, const u8* mask, int mask_width, int mask_height) {
  Row<true, 1>(src, src_step, dst, width, mask, mask_width, mask_height);
}
void Dilate_8u_C3S(const u8* src, int src_step, u8* dst, int width, const u8* mask, int mask_width, int mask_height) {
  Row<true, 3>(src, src_step, dst, width, mask, mask_width, mask_height);
}

}  // namespace

#define PQ_MORPHOLOGY(name, channels, row)                                                                             \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, const u8* mask,           \
                             IppiSize maskSize, TPoint anchor) {                                                       \
    if (const IppStatus status = PQCheckMorphology(src, srcStep, dst, dstStep, roi, mask, maskSize, anchor, channels)) \
      return status;                                                                                                   \
    src -= anchor.x * std::ptrdiff_t{channels} + static_cast<std::ptrdiff_t>(anchor.y) * srcStep;                      \
    for (int y = 0; y < roi.height; ++y, src += srcStep, dst += dstStep) {                                             \
      row(src, srcStep, dst, roi.width, mask, maskSize.width, maskSize.height);                                        \
    }                                                                                                                  \
    return ippStsNoErr;                                                                                                \
  }
PQ_MORPHOLOGY(ippiErode_8u_C1R, 1, Erode_8u_C1S)
PQ_MORPHOLOGY(ippiErode_8u_C3R, 3, Erode_8u_C3S)
PQ_MORPHOLOGY(ippiDilate_8u_C1R, 1, Dilate_8u_C1S)
PQ_MORPHOLOGY(ippiDilate_8u_C3R, 3, Dilate_8u_C3S)

IppStatus PQ_VARIANT(ippiMorphologyInitAlloc_8u_C3R)(int roiWidth, const int* mask, IppiSize maskSize, TPoint anchor,
                                                     IppiMorphState*& state) {
  return ownMorphologyInitAlloc(1, 3, roiWidth, mask, maskSize, anchor, &state, 2, nullptr);
}

IppStatus PQ_VARIANT(ippiMorphologyFree)(IppiMorphState*& state) { return PQFreeMorphology(state); }

}  // namespace pantiq
