#include "pantiq/kernels/PQFormatKernels.h"

#include "pantiq/kernels/PQBinding.h"

namespace pantiq {

#define PQ_IN_PQBaseKernels(name, signature)
#define PQ_IN_PQFormatKernels(name, signature) PQ_DEFINE_PLAIN(name, signature)
#define PQ_PLAIN_ROW(unit, family, name, signature) PQ_IN_##unit(name, signature)
#include "pantiq/kernels/slots.def"

}  // namespace pantiq
