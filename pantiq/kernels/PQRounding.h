// The rounding mode of kernels that compute with floats: to nearest, whatever the caller has set.
#pragma once

#if defined(__SSE__)
#include <xmmintrin.h>
#else
#include <cfenv>
#endif

namespace pantiq {

// Sets the processor to round to nearest and gives what PQRestoreRounding needs to put the caller's mode back. What is
// to be rounded stands in a function of its own that is not inlined, so that the compiler moves none of it out of the
// pair. (No scope object: its cleanup would bring exception tables into the vector sources.)
#if defined(__SSE__)
static inline __attribute__((always_inline)) int PQRoundToNearest() {
  const unsigned mode = _mm_getcsr() & _MM_ROUND_MASK;
  if (mode != _MM_ROUND_NEAREST) _MM_SET_ROUNDING_MODE(_MM_ROUND_NEAREST);
  return static_cast<int>(mode);
}
static inline __attribute__((always_inline)) void PQRestoreRounding(int mode) {
  if (mode != _MM_ROUND_NEAREST) _MM_SET_ROUNDING_MODE(static_cast<unsigned>(mode));
}
#else
static inline int PQRoundToNearest() {
  const int mode = fegetround();
  fesetround(FE_TONEAREST);
  return mode;
}
static inline void PQRestoreRounding(int mode) { fesetround(mode); }
#endif

}  // namespace pantiq
