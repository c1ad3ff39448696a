// Every landed kernel, listed: its name, its variants and the one that is bound now. The program's list of kernels,
// the checks and the benchmarks walk it.
#pragma once

#include <span>

#include "pantiq/PQExport.h"
#include "pantiq/kernels/PQCpu.h"

namespace pantiq {

// A kernel entry of unknown type; cast it back to the type of the kernel's slot or public function.
using PQAnyKernel = void (*)();

struct PQKernelInfo {
  const char* name;    // "ippsSet_8u"
  const char* unit;    // header that declares it: "PQDispatcher"
  const char* family;  // sources: "PQBase"
  PQPattern pattern;
  bool has_slot;                         // false: a public function that binds the same way
  PQAnyKernel entries[kPQVariantCount];  // by PQVariant; null where the kernel has no such entry
  PQAnyKernel (*target)();               // where a call goes now: the stub or an entry
  void (*reset)();                       // back to the stub; for tests, while no other thread calls the kernel

  // True if a call has bound the kernel; then *variant is the variant.
  PQ_EXPORT bool Bound(PQVariant* variant) const;
};

// All landed kernels in the order of the table. Any thread; the list never changes.
PQ_EXPORT std::span<const PQKernelInfo> PQKernels();

// The kernel of that name, or null.
PQ_EXPORT const PQKernelInfo* PQFindKernel(const char* name);

// For tests: puts every slot and pointer back to its stub, as when the process started. While no kernel runs.
PQ_EXPORT void PQResetSlotsForTest();

}  // namespace pantiq
