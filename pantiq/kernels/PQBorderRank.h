// Minimum and maximum that make their own border, and the border by itself. Three interleaved channels of 8 bits, steps
// in bytes, any thread; plain code on every processor.
//
// Nothing outside the region is read: where a window reaches over its edge, the nearest pixel of the region stands in.
// So masks may be larger than the region. The window of pixel (x, y) covers x - anchor.x to x - anchor.x + width - 1
// and y - anchor.y to y - anchor.y + height - 1. Source and destination are apart.
// Errors, in this order: a null pointer -8, a width or height of the region below 1 -6, a step below 1 -14, a side of
// the mask below 1 -33, an anchor outside the mask -34. Then nothing is written.
#pragma once

#include "pantiq/PQExport.h"
#include "pantiq/kernels/PQSignatures.h"

namespace pantiq {

// Extends the srcRoi at srcDst in place: topBorder rows above it and leftBorder columns left of it, and what dstRoi has
// left below and to the right, become copies of the nearest pixel. dstRoi is the whole size, borders included.
// Errors: null -8; a side of either region below 1, a negative border or a dstRoi that srcRoi and the borders do not
// fit -6; a step below 1 -14.
PQ_EXPORT IppStatus ippiCopyReplicateBorder_8u_C3IR(std::uint8_t* srcDst, int step, IppiSize srcRoi, IppiSize dstRoi,
                                                    int topBorder, int leftBorder);

// The least and the greatest of the window, each channel by itself.
PQ_EXPORT IppStatus ippiFilterMinBorderReplicate_8u_C3R PQ_PARAMS_Window;
PQ_EXPORT IppStatus ippiFilterMaxBorderReplicate_8u_C3R PQ_PARAMS_Window;

// The same over the ellipse inside the mask: pixel (i, j) of a w x h mask belongs to it if
// ((2 * i + 1 - w) / w)^2 + ((2 * j + 1 - h) / h)^2 is at most 1. Sides above 16384 count as errors -33.
PQ_EXPORT IppStatus ownErodeEllipseBorderReplicate_8u_C3R PQ_PARAMS_Window;
PQ_EXPORT IppStatus ownDilateEllipseBorderReplicate_8u_C3R PQ_PARAMS_Window;

}  // namespace pantiq
