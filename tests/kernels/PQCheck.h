// Check harness of the kernels: the plain variant against every variant that this processor can run, on random sizes,
// steps, placements and pixels. Images end or begin at a page that may not be touched, so that a read or write outside
// the rows stops the test on the spot.
//
//   CheckVariants<decltype(&_px_ippiNot_8u_C3IR)>("ippiNot_8u_C3IR", {.dst_channels = 3, .in_place = true},
//       [](auto kernel, CheckCase& c) { return kernel(c.dst.data, c.dst.step, c.roi); });
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pantiq/kernels/PQImageDefs.h"
#include "pantiq/kernels/PQKernelRegistry.h"

namespace pantiq::check {

// Number of random cases a kernel: 500, a tenth of it under a sanitizer, 10000 with PANTIQ_TEST_LONG=1.
int CaseCount();

// A small, fast generator (SplitMix64, Steele, Lea and Flood 2014); the same numbers on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t Next();
  int Below(int bound) { return static_cast<int>(Next() % static_cast<std::uint64_t>(bound)); }  // 0 .. bound - 1
  int Between(int low, int high) { return low + Below(high - low + 1); }                         // both included
  bool OneIn(int n) { return Below(n) == 0; }
  std::uint8_t Byte() { return static_cast<std::uint8_t>(Next() >> 56); }
  // Bytes of one of several kinds: random, 0 and 255 only, one value, ramps, neighbours of one value.
  void Fill(std::uint8_t* data, std::size_t count);

 private:
  std::uint64_t state_;
};

// Memory between two pages that may not be touched. `at_end`: the last byte is the last before the upper page,
// otherwise the first byte is the first behind the lower page.
class GuardedBlock {
 public:
  GuardedBlock(std::size_t size, bool at_end);
  ~GuardedBlock();
  GuardedBlock(const GuardedBlock&) = delete;
  GuardedBlock& operator=(const GuardedBlock&) = delete;
  std::uint8_t* data() { return data_; }
  const std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }

 private:
  std::uint8_t* map_;
  std::size_t map_size_;
  std::uint8_t* data_;
  std::size_t size_;
};

// `height` rows of `row_bytes` at `step` (any sign, also 0) in guarded memory; data() is the start of row 0.
class GuardedImage {
 public:
  GuardedImage(int row_bytes, int height, int step, bool at_end);
  std::uint8_t* data() { return block_.data() + first_; }
  int step() const { return step_; }
  int row_bytes() const { return row_bytes_; }
  int height() const { return height_; }
  GuardedBlock& block() { return block_; }
  // True for bytes of the block that lie in no row.
  bool IsPadding(std::size_t offset) const;
  // "byte 7 of row 2", or "padding behind row 2".
  std::string Where(std::size_t offset) const;

 private:
  int row_bytes_, height_, step_;
  std::size_t first_;
  GuardedBlock block_;
};

struct View {
  std::uint8_t* data = nullptr;
  int step = 0;
};

// One random case, as the call sees it. What the call draws from `random` is the same for every variant.
struct CheckCase {
  IppiSize roi{};
  View src[2];
  View dst;
  Random random{0};
  std::vector<std::uint8_t> extra;  // results besides the pixels (a seed, a table): appended by the call, compared
};

struct CheckShape {
  int sources = 0;          // 0 to 2 source images
  int src_channels = 3;     // bytes a pixel
  int dst_channels = 3;     // bytes a pixel; 0: no destination
  bool in_place = false;    // says only that dst is filled with pixels (it always is)
  bool free_steps = false;  // also zero, negative and overlapping steps
  int margin = 0;           // readable pixels around the sources' region on every side
  int max_width = 300;      // of the occasional wide case
  int max_height = 40;
  int even_width = 0;  // 1: widths are even
  // Bytes of a row for a width, where it isn't width * channels; sources first, then the destination.
  std::function<int(int)> src_row{}, dst_row{};
  double cases = 1.0;  // factor on CaseCount()
};

// Calls `run(variant, case)` for px and the others on equal images and compares status, pixels, padding and extra.
// On a difference: kernel, variant, size, steps, first differing position, seed. At most three reports a kernel.
void CheckAgainstPlain(const char* name, const CheckShape& shape,
                       const std::function<IppStatus(PQVariant, CheckCase&)>& run);

// The same with the entry's type: call(entry, case).
template <class Entry, class Call>
void CheckVariants(const char* name, const CheckShape& shape, Call call) {
  const PQKernelInfo* kernel = PQFindKernel(name);
  ASSERT_NE(kernel, nullptr) << name << " is not in the registry";
  CheckAgainstPlain(name, shape, [&](PQVariant variant, CheckCase& c) {
    return call(reinterpret_cast<Entry>(kernel->entries[static_cast<int>(variant)]), c);
  });
}

// Variants of the kernel that exist and that this processor can run, px first.
std::vector<PQVariant> RunnableVariants(const PQKernelInfo& kernel);

// For hand-worked cases: calls body(entry, "a6") for every runnable variant.
template <class Entry, class Body>
void ForEachVariant(const char* name, Body body) {
  const PQKernelInfo* kernel = PQFindKernel(name);
  ASSERT_NE(kernel, nullptr) << name << " is not in the registry";
  for (const PQVariant variant : RunnableVariants(*kernel)) {
    SCOPED_TRACE(std::string(name) + " " + PQVariantName(variant));
    body(reinterpret_cast<Entry>(kernel->entries[static_cast<int>(variant)]));
  }
}

}  // namespace pantiq::check

// Short forms that take the kernel's bare name.
#define PQ_CHECK_VARIANTS(name, shape, ...) \
  pantiq::check::CheckVariants<decltype(&pantiq::_px_##name)>(#name, shape, __VA_ARGS__)
#define PQ_FOR_EACH_VARIANT(name, ...) pantiq::check::ForEachVariant<decltype(&pantiq::_px_##name)>(#name, __VA_ARGS__)
