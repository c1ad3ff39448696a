#include "pantiq/kernels/PQBase.h"

namespace pantiq {

IppStatus PQ_VARIANT(ippsSet_8u)(std::uint8_t value, std::uint8_t* dst, int length) {
  if (const IppStatus status = PQCheckFill(dst, length)) return status;
  __builtin_memset(dst, value, static_cast<std::size_t>(length));
  return ippStsNoErr;
}

}  // namespace pantiq
