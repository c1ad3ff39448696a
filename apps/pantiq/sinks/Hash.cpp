#include "Hash.h"

#include <bit>
#include <cstring>

namespace pantiq::app {
namespace {

constexpr std::uint64_t kPrime1 = 0x9E3779B185EBCA87, kPrime2 = 0xC2B2AE3D27D4EB4F, kPrime3 = 0x165667B19E3779F9,
                        kPrime4 = 0x85EBCA77C2B2AE63, kPrime5 = 0x27D4EB2F165667C5;

template <class T>
T Load(const std::uint8_t* p) {
  static_assert(std::endian::native == std::endian::little);
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

std::uint64_t Round(std::uint64_t lane, std::uint64_t input) { return std::rotl(lane + input * kPrime2, 31) * kPrime1; }

}  // namespace

std::uint64_t Xxh64(const void* data, std::size_t bytes, std::uint64_t seed) {
  const auto* p = static_cast<const std::uint8_t*>(data);
  const std::uint8_t* const end = p + bytes;
  std::uint64_t hash;
  if (bytes >= 32) {
    std::uint64_t lanes[4] = {seed + kPrime1 + kPrime2, seed + kPrime2, seed, seed - kPrime1};
    for (; end - p >= 32; p += 32) {
      for (int i = 0; i < 4; ++i) lanes[i] = Round(lanes[i], Load<std::uint64_t>(p + 8 * i));
    }
    hash = std::rotl(lanes[0], 1) + std::rotl(lanes[1], 7) + std::rotl(lanes[2], 12) + std::rotl(lanes[3], 18);
    for (const std::uint64_t lane : lanes) hash = (hash ^ Round(0, lane)) * kPrime1 + kPrime4;
  } else {
    hash = seed + kPrime5;
  }
  hash += bytes;
  for (; end - p >= 8; p += 8) hash = std::rotl(hash ^ Round(0, Load<std::uint64_t>(p)), 27) * kPrime1 + kPrime4;
  if (end - p >= 4) {
    hash = std::rotl(hash ^ (Load<std::uint32_t>(p) * kPrime1), 23) * kPrime2 + kPrime3;
    p += 4;
  }
  for (; p != end; ++p) hash = std::rotl(hash ^ (*p * kPrime5), 11) * kPrime1;
  hash = (hash ^ (hash >> 33)) * kPrime2;
  hash = (hash ^ (hash >> 29)) * kPrime3;
  return hash ^ (hash >> 32);
}

}  // namespace pantiq::app
