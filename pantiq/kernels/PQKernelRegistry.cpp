#include "pantiq/kernels/PQKernelRegistry.h"

#include <cstring>

#include "pantiq/kernels/PQBinding.h"
#include "pantiq/kernels/PQConvDispatcher.h"
#include "pantiq/kernels/PQDispatcher.h"
#include "pantiq/kernels/PQResizeDispatcher.h"

namespace pantiq {
namespace {

template <class Function>
PQKernelInfo Describe(const char* name, const char* unit, const char* family, PQPattern pattern, bool has_slot,
                      Function* const (&entries)[kPQVariantCount], PQAnyKernel (*target)(), void (*reset)()) {
  PQKernelInfo info{name, unit, family, pattern, has_slot, {}, target, reset};
  for (int v = 0; v < kPQVariantCount; ++v) info.entries[v] = reinterpret_cast<PQAnyKernel>(entries[v]);
  return info;
}

#define PQ_DESCRIBE(unit, family, pattern, name, has_slot, pointer, stub)                         \
  [] {                                                                                            \
    static constexpr decltype(&_px_##name) entries[kPQVariantCount] = PQ_ENTRIES_##pattern(name); \
    return Describe(                                                                              \
        #name, #unit, #family, PQPattern::pattern, has_slot, entries,                             \
        []() -> PQAnyKernel { return reinterpret_cast<PQAnyKernel>(PQ_SLOT(pointer)); },          \
        [] { __atomic_store_n(&(pointer), &stub, __ATOMIC_RELAXED); });                           \
  }(),

}  // namespace

bool PQKernelInfo::Bound(PQVariant* variant) const {
  const PQAnyKernel now = target();
  for (int v = 0; v < kPQVariantCount; ++v) {
    if (entries[v] == now) {
      *variant = static_cast<PQVariant>(v);
      return true;
    }
  }
  return false;
}

std::span<const PQKernelInfo> PQKernels() {
  static const PQKernelInfo kernels[] = {
#define PQ_SLOT_ROW(unit, family, pattern, name, signature) \
  PQ_DESCRIBE(unit, family, pattern, name, true, name, SetUp_##name)
#define PQ_PLAIN_ROW(unit, family, name, signature) \
  PQ_DESCRIBE(unit, family, A, name, false, bound::name, bound::SetUp_##name)
#include "pantiq/kernels/slots.def"
  };
  return kernels;
}

const PQKernelInfo* PQFindKernel(const char* name) {
  for (const PQKernelInfo& kernel : PQKernels()) {
    if (std::strcmp(kernel.name, name) == 0) return &kernel;
  }
  return nullptr;
}

void PQResetSlotsForTest() {
  for (const PQKernelInfo& kernel : PQKernels()) kernel.reset();
}

}  // namespace pantiq
