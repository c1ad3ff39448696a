// The tools of PQBaseKernels.h that are no kernels: memory, rounding modes, cache query, reciprocals.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "pantiq/kernels/PQBaseKernels.h"

#if defined(__x86_64__)
#include <cpuid.h>
#include <xmmintrin.h>
#endif

namespace pantiq {
namespace {

constexpr std::size_t kAlign = 32;

// The block's start is kept in the pointer-wide word before the result.
void* Allocate(int length, std::size_t size) {
  if (length < 1) return nullptr;
  const std::size_t room = kAlign + sizeof(void*);
  void* raw = std::malloc(static_cast<std::size_t>(length) * size + room);
  if (raw == nullptr) return nullptr;
  const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(raw);
  char* result = static_cast<char*>(raw) + (((start + room - 1) & ~(kAlign - 1)) - start);
  std::memcpy(result - sizeof(void*), &raw, sizeof(void*));
  return result;
}

// Largest caches by descriptor, walked from the top.
struct Descriptors {
  std::uint8_t codes[6];
  int count;
  int size;
};
constexpr Descriptors kCaches[] = {
    {{0x47}, 1, 8388608},
    {{0x49, 0x29, 0x46}, 3, 4194304},
    {{0x25, 0x7D, 0x85, 0x45}, 4, 2097152},
    {{0x23, 0x87, 0x7C, 0x78, 0x84, 0x44}, 6, 1048576},
    {{0x22, 0x7B, 0x86, 0x7F, 0x83, 0x43}, 6, 524288},
    {{0x7A, 0x82, 0x3C, 0x42}, 4, 262144},
    {{0x79, 0x39, 0x3B, 0x41}, 4, 131072},
};

// Figure and status in one word, so that a second thread never sees half of them; 1 in bit 0 says known.
std::atomic<std::int64_t> cache_known{0};

IppStatus QueryCache(int* size) {
  *size = 0;
#if defined(__x86_64__)
  std::uint32_t leaf[4] = {};
  if (!__get_cpuid(0, &leaf[0], &leaf[1], &leaf[2], &leaf[3])) return ippStsCpuNotSupported;
  char vendor[12];
  std::memcpy(vendor, &leaf[1], 4);
  std::memcpy(vendor + 4, &leaf[3], 4);
  std::memcpy(vendor + 8, &leaf[2], 4);
  const unsigned highest = leaf[0];
  std::uint32_t registers[4] = {};
  if (highest >= 2) __cpuid(2, registers[0], registers[1], registers[2], registers[3]);
  return PQDecodeCacheSize(highest, vendor, registers, size);
#else
  return ippStsCpuNotSupported;
#endif
}

}  // namespace

std::uint8_t* ippsMalloc_8u(int length) { return static_cast<std::uint8_t*>(Allocate(length, 1)); }
std::int32_t* ippsMalloc_32s(int length) { return static_cast<std::int32_t*>(Allocate(length, 4)); }
float* ippsMalloc_32f(int length) { return static_cast<float*>(Allocate(length, 4)); }

void ippsFree(void* pointer) {
  if (pointer == nullptr) return;
  void* raw;
  std::memcpy(&raw, static_cast<char*>(pointer) - sizeof(void*), sizeof(void*));
  std::free(raw);
}

void ownsCopy_8u(const std::uint8_t* src, std::uint8_t* dst, std::size_t bytes) {
  if (bytes > 0) std::memmove(dst, src, bytes);
}

void ownsZero_8u(std::uint8_t* dst, std::size_t bytes) {
  if (bytes > 0) std::memset(dst, 0, bytes);
}

void ownsSet_32s(std::int32_t value, std::int32_t* dst, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) dst[i] = value;
}

IppStatus ippsZero_8u(std::uint8_t* dst, int length) {
  if (dst == nullptr) return ippStsNullPtrErr;
  if (length < 1) return ippStsSizeErr;
  ownsZero_8u(dst, static_cast<std::size_t>(length));
  return ippStsNoErr;
}

IppStatus ippsCopy_32f(const float* src, float* dst, int length) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (length < 1) return ippStsSizeErr;
  ownsCopy_8u(reinterpret_cast<const std::uint8_t*>(src), reinterpret_cast<std::uint8_t*>(dst),
              static_cast<std::size_t>(length) * sizeof(float));
  return ippStsNoErr;
}

#if defined(__x86_64__)
unsigned _ipp_set_rcpc_fpu(unsigned value, unsigned mask) {
  unsigned short word;
  __asm__ volatile("fnstcw %0" : "=m"(word));
  const unsigned short changed = static_cast<unsigned short>((word & ~mask) | (value & mask));
  __asm__ volatile("fldcw %0" : : "m"(changed));
  return word;
}

void _ipp_set_cw_fpu(unsigned word) {
  const unsigned short control = static_cast<unsigned short>(word);
  __asm__ volatile("fldcw %0" : : "m"(control));
}

unsigned _ipp_set_rc_ssx(unsigned value) {
  const unsigned old = _mm_getcsr();
  _mm_setcsr((old & ~0x6000u) | ((value & 3u) << 13));
  return old;
}

void _ipp_set_cw_ssx(unsigned word) { _mm_setcsr(word); }

int ipp_has_cpuid() { return 1; }  // every 64-bit processor of this make has it
#else
unsigned _ipp_set_rcpc_fpu(unsigned, unsigned) { return 0; }
void _ipp_set_cw_fpu(unsigned) {}
unsigned _ipp_set_rc_ssx(unsigned) { return 0; }
void _ipp_set_cw_ssx(unsigned) {}
int ipp_has_cpuid() { return 0; }
#endif

IppStatus PQDecodeCacheSize(unsigned highest_leaf, const char vendor[12], const std::uint32_t registers[4], int* size) {
  if (size == nullptr) return ippStsNullPtrErr;
  *size = 0;
  if (highest_leaf < 2 || std::memcmp(vendor, "GenuineIntel", 12) != 0) return ippStsCpuNotSupported;
  if ((registers[0] & 0xFF) != 1) return ippStsCacheNotFound;
  bool present[256] = {};
  for (int r = 0; r < 4; ++r) {
    if (registers[r] & 0x80000000u) continue;
    for (int b = r == 0 ? 1 : 0; b < 4; ++b) present[(registers[r] >> (8 * b)) & 0xFF] = true;
  }
  for (const Descriptors& row : kCaches) {
    for (int i = 0; i < row.count; ++i) {
      if (present[row.codes[i]]) {
        *size = row.size;
        return ippStsNoErr;
      }
    }
  }
  return ippStsCacheNotFound;
}

IppStatus ippGetMaxCacheSizeB(int* size) {
  if (size == nullptr) return ippStsNullPtrErr;
  std::int64_t known = cache_known.load(std::memory_order_relaxed);
  if (known == 0) {
    int figure;
    const IppStatus status = QueryCache(&figure);
    known = static_cast<std::int64_t>(figure) << 16 | static_cast<std::int64_t>(status) << 1 | 1;
    cache_known.store(known, std::memory_order_relaxed);
  }
  *size = static_cast<int>(known >> 16);
  return static_cast<IppStatus>((known & 0xFFFF) >> 1);
}

int owncvGetCacheSize() {
  int size;
  return ippGetMaxCacheSizeB(&size) == ippStsNoErr ? size : 0;
}

void get_shift_int(float value, unsigned* shift, unsigned* multiplier, int count) {
  if (value == 1.0f) {
    *multiplier = count == 1 ? 4096 : 65536;
    *shift = count == 1 ? 12 : 24;
    return;
  }
  const double scaled = static_cast<double>(value) * (4294967296.0 - static_cast<double>(0.49998998641967773f));
  std::uint32_t v = 0;  // also for not-a-number
  if (scaled >= 4294967295.0) {
    v = 0xFFFFFFFFu;
  } else if (scaled > 0) {
    v = static_cast<std::uint32_t>(scaled);
  }
  unsigned n = 0;
  while (n < 24 && !(v & 0x80000000u)) {
    v <<= 1;
    ++n;
  }
  *multiplier = count == 1 ? (v >> 20) + 1 : v >> 8;
  *shift = n + (count == 1 ? 12 : 24);
}

}  // namespace pantiq
