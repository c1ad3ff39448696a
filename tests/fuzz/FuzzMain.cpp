// One target as a program of its own: what a fuzzer calls.
#include "tests/fuzz/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  pantiq::fuzz::PQ_FUZZ_TARGET({data, size});
  return 0;
}
