// The base kernels in plain code: the reference of the other variants.
#include "pantiq/kernels/PQBase.h"

namespace pantiq {
namespace {

using u8 = std::uint8_t;

const u8* Row(const u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }
u8* Row(u8* base, int step, int y) { return base + static_cast<std::ptrdiff_t>(y) * step; }

void CopyRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, int channels) {
  const std::size_t bytes = static_cast<std::size_t>(roi.width) * static_cast<std::size_t>(channels);
  for (int y = 0; y < roi.height; ++y) {
    __builtin_memmove(Row(dst, dst_step, y), Row(src, src_step, y), bytes);
  }
}

void MirrorRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, int axis, int channels) {
  const std::ptrdiff_t width = roi.width;
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, src_step, y);
    u8* o = Row(dst, dst_step, axis == ippAxsVertical ? y : roi.height - 1 - y);
    if (axis == ippAxsHorizontal) {
      __builtin_memmove(o, p, static_cast<std::size_t>(width * channels));
      continue;
    }
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      for (int c = 0; c < channels; ++c) o[(width - 1 - x) * channels + c] = p[x * channels + c];
    }
  }
}

void SwapRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, const int* order) {
  const int o0 = order[0], o1 = order[1], o2 = order[2];
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = Row(src, src_step, y);
    u8* o = Row(dst, dst_step, y);
    for (int x = 0; x < roi.width; ++x, p += 3, o += 3) {
      const u8 a = p[o0], b = p[o1], c = p[o2];
      o[0] = a;
      o[1] = b;
      o[2] = c;
    }
  }
}

template <class F>
void MapRows(const u8* src1, int src1_step, const u8* src2, int src2_step, u8* dst, int dst_step, IppiSize roi,
             int channels, F f) {
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * channels;
  for (int y = 0; y < roi.height; ++y) {
    const u8 *a = Row(src1, src1_step, y), *b = Row(src2, src2_step, y);
    u8* o = Row(dst, dst_step, y);
    for (std::ptrdiff_t i = 0; i < n; ++i) o[i] = static_cast<u8>(f(a[i], b[i]));
  }
}

}  // namespace

IppStatus PQ_VARIANT(ippsSet_8u)(u8 value, u8* dst, int length) {
  if (const IppStatus status = PQCheckVector(dst, dst, length)) return status;
  __builtin_memset(dst, value, static_cast<std::size_t>(length));
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippsConvert_32s64f)(const int* src, double* dst, int length) {
  if (const IppStatus status = PQCheckVector(src, dst, length)) return status;
  for (int i = 0; i < length; ++i) dst[i] = src[i];
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiCopy_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  if (const IppStatus status = PQCheckCopy(src, dst, roi)) return status;
  CopyRows(src, srcStep, dst, dstStep, roi, 3);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiCopy_8u_C1R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) {
  if (const IppStatus status = PQCheckCopy(src, dst, roi)) return status;
  CopyRows(src, srcStep, dst, dstStep, roi, 1);
  return ippStsNoErr;
}

// Copies between pixels of different size: `take` of every src_pixel bytes to every dst_pixel bytes.
#define PQ_COPY_PIXELS(name, src_pixel, dst_pixel, take)                                       \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) { \
    if (const IppStatus status = PQCheckCopy(src, dst, roi)) return status;                    \
    for (int y = 0; y < roi.height; ++y) {                                                     \
      const u8* p = Row(src, srcStep, y);                                                      \
      u8* o = Row(dst, dstStep, y);                                                            \
      for (std::ptrdiff_t x = 0; x < roi.width; ++x) {                                         \
        for (int c = 0; c < take; ++c) o[x * dst_pixel + c] = p[x * src_pixel + c];            \
      }                                                                                        \
    }                                                                                          \
    return ippStsNoErr;                                                                        \
  }
PQ_COPY_PIXELS(ippiCopy_8u_AC4C3R, 4, 3, 3)
PQ_COPY_PIXELS(ippiCopy_8u_C3AC4R, 3, 4, 3)
PQ_COPY_PIXELS(ippiCopy_8u_C1C3R, 1, 3, 1)

IppStatus PQ_VARIANT(ippiSet_8u_C3R)(const u8 value[3], u8* dst, int dstStep, IppiSize roi) {
  if (const IppStatus status = PQCheckConstant(value, dst, dstStep, roi)) return status;
  const u8 a = value[0], b = value[1], c = value[2];
  for (int y = 0; y < roi.height; ++y) {
    u8* o = Row(dst, dstStep, y);
    for (int x = 0; x < roi.width; ++x, o += 3) {
      o[0] = a;
      o[1] = b;
      o[2] = c;
    }
  }
  return ippStsNoErr;
}

#define PQ_MIRROR(name, channels)                                                                        \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, int axis) { \
    if (const IppStatus status = PQCheckMirror(src, srcStep, dst, dstStep, roi, axis)) return status;    \
    MirrorRows(src, srcStep, dst, dstStep, roi, axis, channels);                                         \
    return ippStsNoErr;                                                                                  \
  }
PQ_MIRROR(ippiMirror_8u_C1R, 1)
PQ_MIRROR(ippiMirror_8u_C3R, 3)

IppStatus PQ_VARIANT(ippiSwapChannels_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                              const int order[3]) {
  if (const IppStatus status = PQCheckSwap(src, srcStep, dst, dstStep, roi, order)) return status;
  SwapRows(src, srcStep, dst, dstStep, roi, order);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiSwapChannels_8u_C3IR)(u8* srcDst, int step, IppiSize roi, const int order[3]) {
  if (const IppStatus status = PQCheckSwap(srcDst, step, srcDst, step, roi, order)) return status;
  SwapRows(srcDst, step, srcDst, step, roi, order);
  return ippStsNoErr;
}

#define PQ_SCALED(name, channels, formula)                                                                       \
  IppStatus PQ_VARIANT(name)(const u8* src1, int src1Step, const u8* src2, int src2Step, u8* dst, int dstStep,   \
                             IppiSize roi, int scaleFactor) {                                                    \
    if (const IppStatus status = PQCheckThree(src1, src1Step, src2, src2Step, dst, dstStep, roi)) return status; \
    MapRows(src1, src1Step, src2, src2Step, dst, dstStep, roi, channels,                                         \
            [scaleFactor](int a, int b) { return formula; });                                                    \
    return ippStsNoErr;                                                                                          \
  }
PQ_SCALED(ippiAdd_8u_C1RSfs, 1, PQScaleSample(a + b, scaleFactor))
PQ_SCALED(ippiAdd_8u_C3RSfs, 3, PQScaleSample(a + b, scaleFactor))
PQ_SCALED(ippiSub_8u_C1RSfs, 1, PQScaleSample(b > a ? b - a : 0, scaleFactor))
PQ_SCALED(ippiSub_8u_C3RSfs, 3, PQScaleSample(b > a ? b - a : 0, scaleFactor))
PQ_SCALED(ippiMul_8u_C1RSfs, 1, PQScaleSample(a* b, scaleFactor))
PQ_SCALED(ippiMul_8u_C3RSfs, 3, PQScaleSample(a* b, scaleFactor))
PQ_SCALED(ippiDiv_8u_C1RSfs, 1, PQDivideSample(a, b, scaleFactor))
PQ_SCALED(ippiDiv_8u_C3RSfs, 3, PQDivideSample(a, b, scaleFactor))

#define PQ_LOGIC(name, channels, formula)                                                                        \
  IppStatus PQ_VARIANT(name)(const u8* src1, int src1Step, const u8* src2, int src2Step, u8* dst, int dstStep,   \
                             IppiSize roi) {                                                                     \
    if (const IppStatus status = PQCheckThree(src1, src1Step, src2, src2Step, dst, dstStep, roi)) return status; \
    MapRows(src1, src1Step, src2, src2Step, dst, dstStep, roi, channels, [](int a, int b) { return formula; });  \
    return ippStsNoErr;                                                                                          \
  }
PQ_LOGIC(ippiAnd_8u_C1R, 1, a& b)
PQ_LOGIC(ippiAnd_8u_C3R, 3, a& b)
PQ_LOGIC(ippiOr_8u_C1R, 1, a | b)
PQ_LOGIC(ippiOr_8u_C3R, 3, a | b)
PQ_LOGIC(ippiXor_8u_C1R, 1, a ^ b)
PQ_LOGIC(ippiXor_8u_C3R, 3, a ^ b)
PQ_LOGIC(ippiAbsDiff_8u_C1R, 1, a > b ? a - b : b - a)

#define PQ_LOGIC_IN_PLACE(name, formula)                                                                         \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* srcDst, int srcDstStep, IppiSize roi) {             \
    if (const IppStatus status = PQCheckTwo(src, srcStep, srcDst, srcDstStep, roi)) return status;               \
    MapRows(src, srcStep, srcDst, srcDstStep, srcDst, srcDstStep, roi, 3, [](int a, int b) { return formula; }); \
    return ippStsNoErr;                                                                                          \
  }
PQ_LOGIC_IN_PLACE(ippiAnd_8u_C3IR, a& b)
PQ_LOGIC_IN_PLACE(ippiOr_8u_C3IR, a | b)

IppStatus PQ_VARIANT(ippiNot_8u_C3IR)(u8* srcDst, int step, IppiSize roi) {
  if (const IppStatus status = PQCheckOne(srcDst, step, roi)) return status;
  MapRows(srcDst, step, srcDst, step, srcDst, step, roi, 3, [](int a, int) { return 255 - a; });
  return ippStsNoErr;
}

}  // namespace pantiq
