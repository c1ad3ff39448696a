// Free lists for the small objects that are made for every frame: operations and buffer objects.
//
// Each thread keeps up to 64 free blocks of each size in multiples of 16 bytes up to 512; what is larger, or more, goes to
// the heap. Under sanitizers everything goes to the heap, so that a use after free is seen.
#pragma once
#include <cstddef>

#include "pantiq/PQExport.h"

namespace pantiq {

PQ_EXPORT void* PQPoolAllocate(std::size_t bytes);
PQ_EXPORT void PQPoolFree(void* block, std::size_t bytes) noexcept;

// Give a class these allocation functions by inheriting from it. The class needs a virtual destructor if it is deleted
// through a base.
struct PQPooled {
  static void* operator new(std::size_t bytes) { return PQPoolAllocate(bytes); }
  static void operator delete(void* block, std::size_t bytes) noexcept { PQPoolFree(block, bytes); }
};

}  // namespace pantiq
