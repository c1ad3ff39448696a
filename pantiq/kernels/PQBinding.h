// How a stub picks its kernel's variant. For the sources of the dispatcher units only.
#pragma once

#include "pantiq/kernels/PQCpu.h"
#include "pantiq/kernels/PQDispatcher.h"
#include "pantiq/kernels/PQVariants.h"

// The four entries of a kernel in the order px, a6, w7, t7; what the pattern or the build lacks is null.
#if PQ_TUNED
#define PQ_ENTRIES_A(name) \
  { &_px_##name, &_a6_##name, &_w7_##name, &_t7_##name }
#define PQ_ENTRIES_B(name) \
  { &_px_##name, &_a6_##name, nullptr, &_t7_##name }
#define PQ_ENTRIES_C(name) \
  { &_px_##name, &_a6_##name, &_w7_##name, nullptr }
#else
#define PQ_ENTRIES_A(name) \
  { &_px_##name, nullptr, nullptr, nullptr }
#define PQ_ENTRIES_B(name) PQ_ENTRIES_A(name)
#define PQ_ENTRIES_C(name) PQ_ENTRIES_A(name)
#endif

namespace pantiq {

// The entry for this processor. Reads Global_CPU once.
template <class Function>
Function* PQChoose(PQPattern pattern, Function* const (&entries)[kPQVariantCount]) {
  Function* chosen = entries[static_cast<int>(PQVariantFor(pattern, Global_CPU()))];
  return chosen ? chosen : entries[0];
}

}  // namespace pantiq

// A slot and its stub. The callee's status goes back through a signed byte.
#define PQ_DEFINE_SLOT(pattern, name, signature)                                                  \
  IppStatus SetUp_##name PQ_PARAMS_##signature {                                                  \
    static constexpr decltype(&_px_##name) entries[kPQVariantCount] = PQ_ENTRIES_##pattern(name); \
    __atomic_store_n(&name, PQChoose(PQPattern::pattern, entries), __ATOMIC_RELAXED);             \
    return static_cast<signed char>(PQ_SLOT(name) PQ_ARGS_##signature);                           \
  }                                                                                               \
  constinit decltype(&SetUp_##name) name = &SetUp_##name;

// A public function, and the pointer that it jumps through in namespace bound: same mechanism, status unchanged.
#define PQ_DEFINE_PLAIN(name, signature)                                                  \
  namespace bound {                                                                       \
  IppStatus SetUp_##name PQ_PARAMS_##signature {                                          \
    static constexpr decltype(&_px_##name) entries[kPQVariantCount] = PQ_ENTRIES_A(name); \
    __atomic_store_n(&name, PQChoose(PQPattern::A, entries), __ATOMIC_RELAXED);           \
    return PQ_SLOT(name) PQ_ARGS_##signature;                                             \
  }                                                                                       \
  constinit decltype(&SetUp_##name) name = &SetUp_##name;                                 \
  }                                                                                       \
  IppStatus name PQ_PARAMS_##signature { return PQ_SLOT(bound::name) PQ_ARGS_##signature; }

// The pointers behind the public functions.
namespace pantiq::bound {
#define PQ_PLAIN_ROW(unit, family, name, signature) \
  extern IppStatus(*name) PQ_PARAMS_##signature;    \
  IppStatus SetUp_##name PQ_PARAMS_##signature;
#include "pantiq/kernels/slots.def"
}  // namespace pantiq::bound
