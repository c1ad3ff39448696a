// Public kernels without a slot, memory helpers and small tools of the kernels.
//
// Everything here is callable from any thread. The image kernels bind to a processor variant at their first call, as
// slots do (PQDispatcher.h); afterwards a call costs one load and one jump. Unless told otherwise a kernel checks
// pointers (null: -8), then the region (width or height below 1: -6), then steps (below 1: -14), and touches nothing
// when it refuses. Sources and destination are either apart or, for the kernels of two images and of one pixel at a
// time, exactly the same memory. Steps are in bytes, regions in pixels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "pantiq/PQExport.h"
#include "pantiq/kernels/PQImageDefs.h"
#include "pantiq/kernels/PQSignatures.h"

namespace pantiq {

// ---- Copies. Steps are not checked: zero and negative ones work.

// width x height pixels of three (C3) or one (C1) channels.
PQ_EXPORT IppStatus ippiCopy_8u_C3R PQ_PARAMS_Image;
PQ_EXPORT IppStatus ippiCopy_8u_C1R PQ_PARAMS_Image;
// Four channels to three: the fourth is left out.
PQ_EXPORT IppStatus ippiCopy_8u_AC4C3R PQ_PARAMS_Image;
// Three channels to four: the fourth of the destination stays as it is.
PQ_EXPORT IppStatus ippiCopy_8u_C3AC4R PQ_PARAMS_Image;
// One channel into one of three: dst points at the first pixel's byte of the wanted channel; the bytes between stay as
// they are and nothing behind the last pixel's byte is touched.
PQ_EXPORT IppStatus ippiCopy_8u_C1C3R PQ_PARAMS_Image;

// ---- Fill, mirror, channel order.

// Every pixel of three channels becomes value[0], value[1], value[2].
PQ_EXPORT IppStatus ippiSet_8u_C3R PQ_PARAMS_Constant;
// axis 0: row y goes to row height - 1 - y; 1: column x to column width - 1 - x; 2: both. Any other axis, checked
// last: -21. Source and destination are apart.
PQ_EXPORT IppStatus ippiMirror_8u_C1R PQ_PARAMS_Mirror;
PQ_EXPORT IppStatus ippiMirror_8u_C3R PQ_PARAMS_Mirror;
// Destination channel k takes source channel order[k], 0 to 2 (checked last, -60); an order may repeat a channel.
PQ_EXPORT IppStatus ippiSwapChannels_8u_C3R PQ_PARAMS_Swap;
PQ_EXPORT IppStatus ippiSwapChannels_8u_C3IR PQ_PARAMS_SwapInPlace;

// ---- Arithmetic of two images, sample by sample: the exact result times 2^-scaleFactor, rounded once to nearest with
// halves to even, saturated to 0..255. Any scale factor is taken.

PQ_EXPORT IppStatus ippiAdd_8u_C1RSfs PQ_PARAMS_TwoScaled;  // src1 + src2
PQ_EXPORT IppStatus ippiAdd_8u_C3RSfs PQ_PARAMS_TwoScaled;
PQ_EXPORT IppStatus ippiSub_8u_C1RSfs PQ_PARAMS_TwoScaled;  // src2 - src1: the second less the first
PQ_EXPORT IppStatus ippiSub_8u_C3RSfs PQ_PARAMS_TwoScaled;
PQ_EXPORT IppStatus ippiMul_8u_C1RSfs PQ_PARAMS_TwoScaled;  // src1 * src2
PQ_EXPORT IppStatus ippiMul_8u_C3RSfs PQ_PARAMS_TwoScaled;
PQ_EXPORT IppStatus ippiDiv_8u_C1RSfs PQ_PARAMS_TwoScaled;  // src2 / src1; 0 / 0 is 0, x / 0 is 255, at any scale
PQ_EXPORT IppStatus ippiDiv_8u_C3RSfs PQ_PARAMS_TwoScaled;

// ---- Logic and difference, sample by sample.

PQ_EXPORT IppStatus ippiAnd_8u_C1R PQ_PARAMS_Two;  // src1 and src2, bit by bit
PQ_EXPORT IppStatus ippiAnd_8u_C3R PQ_PARAMS_Two;
PQ_EXPORT IppStatus ippiOr_8u_C1R PQ_PARAMS_Two;  // src1 or src2, bit by bit
PQ_EXPORT IppStatus ippiOr_8u_C3R PQ_PARAMS_Two;
PQ_EXPORT IppStatus ippiXor_8u_C1R PQ_PARAMS_Two;  // src1 xor src2, bit by bit
PQ_EXPORT IppStatus ippiXor_8u_C3R PQ_PARAMS_Two;
PQ_EXPORT IppStatus ippiAbsDiff_8u_C1R PQ_PARAMS_Two;      // |src1 - src2|
PQ_EXPORT IppStatus ippiAnd_8u_C3IR PQ_PARAMS_TwoInPlace;  // srcDst = srcDst and src
PQ_EXPORT IppStatus ippiOr_8u_C3IR PQ_PARAMS_TwoInPlace;   // srcDst = srcDst or src
PQ_EXPORT IppStatus ippiNot_8u_C3IR PQ_PARAMS_InPlace;     // 255 - srcDst

// ---- Point operations.

// The colour twist of ippiColorTwist32f_8u_C3R in place: the manual is PQPoint.h.
PQ_EXPORT IppStatus ippiColorTwist32f_8u_C3IR PQ_PARAMS_TwistInPlace;
// Counts samples between given levels, channel by channel: the manual is PQPoint.h.
PQ_EXPORT IppStatus ippiHistogramRange_8u_C3R PQ_PARAMS_HistogramRange;
// Every sample of one channel through a table of 256 bytes: the manual is PQPoint.h.
PQ_EXPORT IppStatus PQTable_8u_C1R PQ_PARAMS_Table;

// ---- Two images into one: the manual is PQMix.h.

// Where a pixel of `front` lies in one of `ranges` ranges of colours, that of `back`, else its own.
PQ_EXPORT IppStatus PQKeyRanges_8u_C3R PQ_PARAMS_KeyRanges;
// The weighted mean of two images, in double precision.
PQ_EXPORT IppStatus PQBlend_8u_C1R PQ_PARAMS_Blend;

// ---- Medians in one line.

// Median of 3 or 5 pixels in a row (codes 31, 51) or in a column (codes 13, 15): the manual is PQBoxRank.h.
PQ_EXPORT IppStatus ippiFilterMedianHoriz_8u_C3R PQ_PARAMS_ImageCode;
PQ_EXPORT IppStatus ippiFilterMedianVert_8u_C3R PQ_PARAMS_ImageCode;

// ---- Adaptive smoothing.

// The Wiener filter, local and adaptive: with the mean m and the variance v of the mask's window round a sample x, and
// the noise n of its channel, the sample becomes m where v <= n, else m + (v - n) / v * (x - m), in double, to nearest
// with halves to even (Lim, Two-Dimensional Signal and Image Processing, 1990). The window of pixel (x, y) covers
// columns x - anchor.x to x - anchor.x + maskSize.width - 1, rows alike; the caller makes all of it readable. Source
// and destination are apart.
// noise: a level for each channel (C3: blue, green, red), the variance of the noise where samples are taken as 0..1, so
// n = level * 65025; above 1 acts as 1. A level of 0 or below, or not a number, has n estimated as the mean of v over
// the region. buffer: of the size that ippiFilterWienerGetBufferSize gives for this region and mask, used during the
// call alone. Checks: pointers, region, steps, mask sides below 1 (-33), an anchor outside the mask (-34).
PQ_EXPORT IppStatus ippiFilterWiener_8u_C1R PQ_PARAMS_Wiener;  // C1 reads one level of noise.
PQ_EXPORT IppStatus ippiFilterWiener_8u_C3R PQ_PARAMS_Wiener;
// Bytes of the work buffer, above 0, the same for one channel and for three. Null -8, region -6, mask -33.
PQ_EXPORT IppStatus ippiFilterWienerGetBufferSize PQ_PARAMS_WienerSize;

// ---- Vectors.

// length integers to 64-bit floats, exactly. Null: -8; length below 1: -6.
PQ_EXPORT IppStatus ippsConvert_32s64f PQ_PARAMS_Convert;
// length bytes of 0; for another value there is the slot ippsSet_8u (PQDispatcher.h). Null: -8; length below 1: -6.
PQ_EXPORT IppStatus ippsZero_8u(std::uint8_t* dst, int length);
// length floats. Null: -8; length below 1: -6.
PQ_EXPORT IppStatus ippsCopy_32f(const float* src, float* dst, int length);

// ---- Memory. Scratch buffers of a kernel are taken and given back within its call, also on failure.

// Uninitialised memory for length samples at a multiple of 32 bytes; null if length is below 1 or memory runs out.
PQ_EXPORT std::uint8_t* ippsMalloc_8u(int length);
PQ_EXPORT std::int32_t* ippsMalloc_32s(int length);
PQ_EXPORT float* ippsMalloc_32f(int length);
// Gives back what ippsMalloc_* gave; null is ignored.
PQ_EXPORT void ippsFree(void* pointer);

// Without checks. Bytes; ownsSet_32s counts words of 32 bits.
PQ_EXPORT void ownsCopy_8u(const std::uint8_t* src, std::uint8_t* dst, std::size_t bytes);
PQ_EXPORT void ownsZero_8u(std::uint8_t* dst, std::size_t bytes);
PQ_EXPORT void ownsSet_32s(std::int32_t value, std::int32_t* dst, std::size_t count);

// ---- Rounding. A kernel that rounds by the processor's mode sets round-to-nearest first and restores the mode after:
//   unsigned old = _ipp_set_rc_ssx(0); ...; if (old & 0x6000) _ipp_set_cw_ssx(old);
// They act on the calling thread alone. On processors without these registers they do nothing and give 0.

// x87 control word: replaces the bits in mask by value; gives the old word. (0, 0xC00): round to nearest.
PQ_EXPORT unsigned _ipp_set_rcpc_fpu(unsigned value, unsigned mask);
PQ_EXPORT void _ipp_set_cw_fpu(unsigned word);
// SSE control register: sets the two-bit rounding field (0 nearest, 1 down, 2 up, 3 to zero); gives the old register.
PQ_EXPORT unsigned _ipp_set_rc_ssx(unsigned value);
PQ_EXPORT void _ipp_set_cw_ssx(unsigned word);

// ---- Cache query.

// 1 if the processor answers CPUID, else 0.
PQ_EXPORT int ipp_has_cpuid();
// The largest cache in bytes that the processor's leaf 2 descriptors tell. 0: found; 36: not a processor that has them
// (figure 0); 37: no known descriptor (figure 0); null pointer: -8. Found out once.
PQ_EXPORT IppStatus ippGetMaxCacheSizeB(int* size);
// The figure of ippGetMaxCacheSizeB, 0 on failure.
PQ_EXPORT int owncvGetCacheSize();
// What ippGetMaxCacheSizeB makes of a processor: its highest leaf, its 12 letters of vendor and the four registers
// (EAX, EBX, ECX, EDX) of leaf 2. A register with its top bit set is empty; the low byte of EAX must be 1.
PQ_EXPORT IppStatus PQDecodeCacheSize(unsigned highest_leaf, const char vendor[12], const std::uint32_t registers[4],
                                      int* size);

// ---- Reciprocals.

// Turns a reciprocal into an integer multiplier and a right shift: x * value is about x * multiplier >> shift.
// value 1 gives 4096 and 12 if count is 1, else 65536 and 24. Otherwise v = value * (2^32 - 0.49998998641967773)
// truncated to 32 bits (in double; below 0 and not-a-number give 0, 2^32 and above 2^32 - 1), shifted left n times
// until its top bit is set, at most 24 times; multiplier and shift are (v >> 20) + 1 and n + 12 if count is 1, else
// v >> 8 and n + 24. The pointers must not be null.
PQ_EXPORT void get_shift_int(float value, unsigned* shift, unsigned* multiplier, int count);

}  // namespace pantiq
