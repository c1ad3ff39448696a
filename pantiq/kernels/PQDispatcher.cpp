#include "pantiq/kernels/PQDispatcher.h"

#include "pantiq/kernels/PQBinding.h"

namespace pantiq {

#define PQ_IN_PQDispatcher(pattern, name, signature) PQ_DEFINE_SLOT(pattern, name, signature)
#define PQ_IN_PQConvDispatcher(pattern, name, signature)
#define PQ_IN_PQResizeDispatcher(pattern, name, signature)
#define PQ_SLOT_ROW(unit, family, pattern, name, signature) PQ_IN_##unit(pattern, name, signature)
#include "pantiq/kernels/slots.def"

}  // namespace pantiq
