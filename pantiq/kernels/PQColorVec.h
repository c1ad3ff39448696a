// What the vector sources of the colour conversions share; for them alone.
#pragma once

#include "pantiq/kernels/PQColor.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {

// Calls row(src, dst, width) for every row; rows without padding count as one long row.
template <class RowFunction>
PQ_INLINE IppStatus ConvertRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, RowFunction row) {
  if (const IppStatus status = PQCheckColor(src, dst, roi)) return status;
  const std::ptrdiff_t bytes = static_cast<std::ptrdiff_t>(roi.width) * 3;
  if (src_step == bytes && dst_step == bytes) {
    row(src, dst, static_cast<std::ptrdiff_t>(roi.width) * roi.height);
    return ippStsNoErr;
  }
  for (int y = 0; y < roi.height; ++y) {
    row(src + static_cast<std::ptrdiff_t>(y) * src_step, dst + static_cast<std::ptrdiff_t>(y) * dst_step, roi.width);
  }
  return ippStsNoErr;
}

// convert(in, out) takes three channels of kV pixels to three others.
template <class Convert>
PQ_INLINE void ConvertRow(const Interleave3& t, const u8* src, u8* dst, std::ptrdiff_t width, Convert convert) {
  WalkBlocks<3, 3>(src, dst, width, [&](const u8* p, u8* o) {
    V in[3], out[3];
    Split3(t, p, in);
    convert(in, out);
    Join3(t, o, out);
  });
}

// The 16-bit words of one half of a byte vector: of the lower or upper eight bytes of every 16.
PQ_INLINE V HalfWords(V bytes, int half) { return half ? High8(bytes, Zero()) : Low8(bytes, Zero()); }

#if PQ_WIDE
PQ_INLINE V MulHigh16(V a, V b) { return _mm512_mulhi_epi16(a, b); }  // (a * b) >> 16 of signed words
PQ_INLINE V Sub8(V a, V b) { return _mm512_sub_epi8(a, b); }
#else
PQ_INLINE V MulHigh16(V a, V b) { return _mm256_mulhi_epi16(a, b); }
PQ_INLINE V Sub8(V a, V b) { return _mm256_sub_epi8(a, b); }
#endif

}  // namespace PQ_TARGET
}  // namespace pantiq
