// XXH64, the 64-bit hash of the public xxHash description, version 0.1.1: fast, and other tools give the same figures
// (`xxhsum -H64`).
#pragma once
#include <cstddef>
#include <cstdint>

namespace pantiq::app {

std::uint64_t Xxh64(const void* data, std::size_t bytes, std::uint64_t seed = 0);

}  // namespace pantiq::app
