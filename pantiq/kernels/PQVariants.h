// Declarations of the variant entries (_px_<name>, _a6_<name>, _w7_<name>, _t7_<name>) of every landed kernel, and
// PQ_VARIANT(name), the entry's name for the target that a source is compiled for. For the room itself, its tests and
// benchmarks; everybody else calls through a slot or a public function.
#pragma once

#include "pantiq/PQExport.h"
#include "pantiq/kernels/PQSignatures.h"

// PQ_TARGET comes from the build: px, a6, w7 or t7.
#define PQ_VARIANT_JOIN(target, name) _##target##_##name
#define PQ_VARIANT_OF(target, name) PQ_VARIANT_JOIN(target, name)
#define PQ_VARIANT(name) PQ_VARIANT_OF(PQ_TARGET, name)

namespace pantiq {

// Patterns name the entries that a kernel lacks: B has no w7, C has no t7.
#define PQ_DECLARE_ENTRY(target, name, signature) PQ_EXPORT IppStatus _##target##_##name PQ_PARAMS_##signature;
#define PQ_DECLARE_A(name, signature)   \
  PQ_DECLARE_ENTRY(px, name, signature) \
  PQ_DECLARE_ENTRY(a6, name, signature) \
  PQ_DECLARE_ENTRY(w7, name, signature) \
  PQ_DECLARE_ENTRY(t7, name, signature)
#define PQ_DECLARE_B(name, signature)   \
  PQ_DECLARE_ENTRY(px, name, signature) \
  PQ_DECLARE_ENTRY(a6, name, signature) \
  PQ_DECLARE_ENTRY(t7, name, signature)
#define PQ_DECLARE_C(name, signature)   \
  PQ_DECLARE_ENTRY(px, name, signature) \
  PQ_DECLARE_ENTRY(a6, name, signature) \
  PQ_DECLARE_ENTRY(w7, name, signature)
#define PQ_SLOT_ROW(unit, family, pattern, name, signature) PQ_DECLARE_##pattern(name, signature)
#define PQ_PLAIN_ROW(unit, family, name, signature) PQ_DECLARE_A(name, signature)
#include "pantiq/kernels/slots.def"
#undef PQ_DECLARE_A
#undef PQ_DECLARE_B
#undef PQ_DECLARE_C
#undef PQ_DECLARE_ENTRY

}  // namespace pantiq
