// The base kernels: copies, fills, mirrors, channel order, arithmetic and logic of two images.
#pragma once

#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

// ippsSet_8u (value, dst, length): writes value to length bytes. dst null: -8; length below 1: -6.
static inline IppStatus PQCheckFill(const std::uint8_t* dst, int length) {
  if (dst == nullptr) return ippStsNullPtrErr;
  if (length < 1) return ippStsSizeErr;
  return ippStsNoErr;
}

}  // namespace pantiq
