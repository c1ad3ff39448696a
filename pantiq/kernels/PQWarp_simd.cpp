// gcc 12 takes the undefined vectors inside its own AVX-512 headers for a mistake of the caller.
#pragma GCC diagnostic ignored "-Wuninitialized"
#include "pantiq/kernels/PQSampling_simd.h"
#include "pantiq/kernels/PQWarp.h"

namespace pantiq {

PQ_DEFINE_WARPS(&PQ_TARGET::DrawVectors<3>, &PQ_TARGET::DrawVectors<1>)

}  // namespace pantiq
