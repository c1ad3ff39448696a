// The slots of all image kernels but the colour conversions back to RGB (PQConvDispatcher.h) and resize
// (PQResizeDispatcher.h).
//
// A slot is a global function pointer with the kernel's name. It starts at the stub SetUp_<name>; the first call
// through it asks Global_CPU, stores the variant for this processor and forwards the call; later calls go straight to
// the variant. Call it as PQ_SLOT(ippsSet_8u)(value, dst, length), or plainly: the status of the first call comes
// through a signed byte (-201 arrives as 55), so judge a status only as zero, negative or positive. Any thread; two
// threads may race through a first call.
//
// What a kernel computes and which arguments it refuses stands in its family's header (PQBase.h, PQNoise.h, ...; the
// table of families is slots.def, argument lists are in PQSignatures.h).
#pragma once

#include "pantiq/PQExport.h"
#include "pantiq/kernels/PQSignatures.h"

// The slot's current target, read so that a racing first call is no data race.
#define PQ_SLOT(name) (__atomic_load_n(&(name), __ATOMIC_RELAXED))

namespace pantiq {

#define PQ_IN_PQDispatcher(name, signature)                \
  extern PQ_EXPORT IppStatus(*name) PQ_PARAMS_##signature; \
  PQ_EXPORT IppStatus SetUp_##name PQ_PARAMS_##signature;
#define PQ_IN_PQConvDispatcher(name, signature)
#define PQ_IN_PQResizeDispatcher(name, signature)
#define PQ_SLOT_ROW(unit, family, pattern, name, signature) PQ_IN_##unit(name, signature)
#include "pantiq/kernels/slots.def"
#undef PQ_IN_PQDispatcher
#undef PQ_IN_PQConvDispatcher
#undef PQ_IN_PQResizeDispatcher

}  // namespace pantiq
