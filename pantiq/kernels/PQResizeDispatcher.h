// The slots of the resize kernels. What a slot is and how it is called: PQDispatcher.h.
#pragma once

#include "pantiq/PQExport.h"
#include "pantiq/kernels/PQDispatcher.h"
#include "pantiq/kernels/PQSignatures.h"

namespace pantiq {

#define PQ_IN_PQDispatcher(name, signature)
#define PQ_IN_PQConvDispatcher(name, signature)
#define PQ_IN_PQResizeDispatcher(name, signature)          \
  extern PQ_EXPORT IppStatus(*name) PQ_PARAMS_##signature; \
  PQ_EXPORT IppStatus SetUp_##name PQ_PARAMS_##signature;
#define PQ_SLOT_ROW(unit, family, pattern, name, signature) PQ_IN_##unit(name, signature)
#include "pantiq/kernels/slots.def"
#undef PQ_IN_PQDispatcher
#undef PQ_IN_PQConvDispatcher
#undef PQ_IN_PQResizeDispatcher

}  // namespace pantiq
