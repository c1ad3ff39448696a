// Memory helpers, rounding helpers, cache query, reciprocals.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "kernels/PQCheck.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {
namespace {

TEST(PQMemory, AllocationsAreAlignedAndWhole) {
  EXPECT_EQ(ippsMalloc_8u(0), nullptr);
  EXPECT_EQ(ippsMalloc_8u(-1), nullptr);
  EXPECT_EQ(ippsMalloc_32s(0), nullptr);
  EXPECT_EQ(ippsMalloc_32f(-7), nullptr);
  ippsFree(nullptr);
  std::vector<void*> held;
  for (int length = 1; length < 200; ++length) {
    std::uint8_t* bytes = ippsMalloc_8u(length);
    std::int32_t* words = ippsMalloc_32s(length);
    float* reals = ippsMalloc_32f(length);
    for (void* p : {static_cast<void*>(bytes), static_cast<void*>(words), static_cast<void*>(reals)}) {
      ASSERT_NE(p, nullptr);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 32, 0u);
      held.push_back(p);
    }
    std::memset(bytes, length, length);  // the address sanitizer watches the ends
    std::memset(words, length, 4 * length);
    std::memset(reals, length, 4 * length);
  }
  for (void* p : held) ippsFree(p);
}

TEST(PQMemory, FillsAndCopies) {
  for (const int length : {1, 3, 4, 31, 32, 33, 100}) {
    check::GuardedBlock block(length, true);
    std::memset(block.data(), 9, length);
    EXPECT_EQ(ippsZero_8u(block.data(), length), 0);
    for (int i = 0; i < length; ++i) ASSERT_EQ(block.data()[i], 0);
  }
  float from[3] = {1.5f, -2, 3}, to[3] = {};
  EXPECT_EQ(ippsCopy_32f(from, to, 2), 0);
  EXPECT_EQ(to[0], 1.5f);
  EXPECT_EQ(to[1], -2.f);
  EXPECT_EQ(to[2], 0.f);
  EXPECT_EQ(ippsCopy_32f(nullptr, to, 0), -8);
  EXPECT_EQ(ippsCopy_32f(from, nullptr, 0), -8);
  EXPECT_EQ(ippsCopy_32f(from, to, 0), -6);
  EXPECT_EQ(ippsZero_8u(nullptr, 0), -8);
  std::uint8_t byte = 5;
  EXPECT_EQ(ippsZero_8u(&byte, 0), -6);
  ownsZero_8u(&byte, 0);
  EXPECT_EQ(byte, 5);
  std::int32_t words[4] = {1, 1, 1, 1};
  ownsSet_32s(-70000, words, 3);
  EXPECT_EQ(words[0], -70000);
  EXPECT_EQ(words[2], -70000);
  EXPECT_EQ(words[3], 1);
}

#if defined(__x86_64__)
TEST(PQMemory, RoundingHelpersSetAndRestore) {
  volatile float one = 1, three = 3;
  const unsigned old = _ipp_set_rc_ssx(2);  // up
  const float up = one / three;
  const unsigned raised = _ipp_set_rc_ssx(1);  // down
  const float down = one / three;
  _ipp_set_cw_ssx(old);
  EXPECT_EQ(raised & 0x6000u, 0x4000u);
  EXPECT_GT(up, down);
  volatile long double real = 2.5L;
  const unsigned word = _ipp_set_rcpc_fpu(0x800, 0xC00);  // up
  const long above = lrintl(real);
  const unsigned before = _ipp_set_rcpc_fpu(0, 0xC00);
  const long even = lrintl(real);
  _ipp_set_cw_fpu(word);
  EXPECT_EQ(before & 0xC00u, 0x800u);
  EXPECT_EQ(above, 3);
  EXPECT_EQ(even, 2);
  EXPECT_EQ(std::fegetround(), FE_TONEAREST);
}
#endif

TEST(PQMemory, CacheDescriptors) {
  const char intel[] = "GenuineIntel", other[] = "AuthenticAMD";
  struct Case {
    unsigned leaf;
    const char* vendor;
    std::uint32_t registers[4];
    int status, size;
  };
  const Case cases[] = {
      {2, other, {0x00000001, 0x47, 0, 0}, 36, 0},
      {1, intel, {0x00000001, 0x47, 0, 0}, 36, 0},
      {2, intel, {0x00000001, 0x47, 0, 0}, 0, 8388608},
      {2, intel, {0x00000001, 0, 0x00004100, 0}, 0, 131072},
      {2, intel, {0x00007A01, 0, 0, 0x45000000}, 0, 2097152},  // rows of the table are walked, not the bytes
      {2, intel, {0x00003C01, 0x80000047, 0, 0}, 0, 262144},   // a register with its top bit set is empty
      {2, intel, {0x00000047, 0, 0, 0}, 37, 0},                // low byte of the first register isn't 1
      {2, intel, {0x00000001, 0, 0, 0x30}, 37, 0},
      {2, intel, {0x80004701, 0, 0, 0}, 37, 0},
  };
  for (const Case& c : cases) {
    int size = -1;
    EXPECT_EQ(PQDecodeCacheSize(c.leaf, c.vendor, c.registers, &size), c.status) << &c - cases;
    EXPECT_EQ(size, c.size) << &c - cases;
  }
  int size = -1;
  EXPECT_EQ(ippGetMaxCacheSizeB(nullptr), -8);
  const IppStatus status = ippGetMaxCacheSizeB(&size);
  EXPECT_TRUE(status == 0 || status == 36 || status == 37) << status;
  EXPECT_EQ(owncvGetCacheSize(), size);
  EXPECT_EQ(status == 0, size > 0);
  EXPECT_EQ(ippGetMaxCacheSizeB(&size), status);
}

TEST(PQMemory, ReciprocalsBecomeShifts) {
  struct Case {
    float value;
    int count;
    unsigned multiplier, shift;
  };
  const Case cases[] = {
      {1.0f, 1, 4096, 12},
      {1.0f, 3, 65536, 24},
      {1.0f / 9, 1, 3641, 15},
      {0.5f, 1, 4096, 13},
      {0.25f, 2, 0xFFFFFF, 26},
      {0.0f, 1, 1, 36},
      {0.0f, 2, 0, 48},
      {-3.0f, 2, 0, 48},
      {4.0f, 2, 0xFFFFFF, 24},
      {std::nanf(""), 1, 1, 36},
      {std::numeric_limits<float>::infinity(), 1, 4096, 12},
  };
  for (const Case& c : cases) {
    unsigned shift = 0, multiplier = 0;
    get_shift_int(c.value, &shift, &multiplier, c.count);
    EXPECT_EQ(multiplier, c.multiplier) << c.value << ", count " << c.count;
    EXPECT_EQ(shift, c.shift) << c.value << ", count " << c.count;
  }
  // Its use: the mean of a white area of up to 8100 samples is white, within 32 bits.
  unsigned shift = 0, multiplier = 0;
  for (unsigned area = 1; area <= 8100; ++area) {
    get_shift_int(1.0f / static_cast<float>(area), &shift, &multiplier, 1);
    const std::uint64_t product = std::uint64_t{multiplier} * 255 * area;
    ASSERT_LT(product, std::uint64_t{1} << 32) << area;
    ASSERT_EQ(product >> shift, 255u) << area;
  }
  EXPECT_EQ(multiplier, 2072u);
  EXPECT_EQ(shift, 24u);
}

}  // namespace
}  // namespace pantiq
