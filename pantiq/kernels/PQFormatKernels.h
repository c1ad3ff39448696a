// Conversions between the pixel formats of frames: RGB24 (bytes blue, green, red), 8-bit gray and YUY2 (bytes Y0 U Y1 V
// for two pixels, so width * 2 bytes a row).
//
// They bind to a processor variant like the kernels of PQBaseKernels.h. Null pointers: -8; width or height below 1: -6;
// steps are not checked. Source and destination are apart. Any thread.
#pragma once

#include <cstdint>

#include "pantiq/PQExport.h"
#include "pantiq/kernels/PQImageDefs.h"
#include "pantiq/kernels/PQSignatures.h"

namespace pantiq {

// Y = (19595 R + 38470 G + 7471 B + 32768) >> 16, the luma weights 0.299, 0.587 and 0.114 of ITU-R BT.601 times 2^16;
// they add up to 2^16, so gray pixels keep their value.
PQ_EXPORT IppStatus PQRGB24ToGray PQ_PARAMS_Image;

// Blue, green and red become the gray value.
PQ_EXPORT IppStatus PQGrayToRGB24 PQ_PARAMS_Image;

// ITU-R BT.601 with luma of 16..235, in integers of 2^-16: with y = 76284 (Y - 16), u = U - 128, v = V - 128
//   R = (y + 104595 v) >> 16, G = (y - 25690 u - 53281 v) >> 16, B = (y + 132186 u) >> 16, each limited to 0..255.
// The two pixels of a pair share U and V. The last pixel of an odd row has no V of its own and takes that of the pair
// before, 128 if there is none.
PQ_EXPORT IppStatus PQYUY2ToRGB24 PQ_PARAMS_Image;

// The same standard back: Y = (16843 R + 33030 G + 6423 B + 1081344) >> 16 and, from both pixels of a pair,
// U and V = (c0 + c1 + 1) >> 1 with U: c = (-9699 R - 19071 G + 28770 B + 8421376) >> 16 and
// V: c = (28770 R - 24117 G - 4653 B + 8421376) >> 16. The last pixel of an odd row stores its own Y and U.
PQ_EXPORT IppStatus PQRGB24ToYUY2 PQ_PARAMS_Image;

}  // namespace pantiq
