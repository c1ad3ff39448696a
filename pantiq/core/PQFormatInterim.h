// Plain conversions between frame formats, until the kernels room brings tuned ones.
#pragma once
#include <cstdint>

#include "pantiq/kernels/PQImageDefs.h"

namespace pantiq {
namespace {

inline std::uint8_t Clamped(int v) { return static_cast<std::uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

inline void pqRGB24ToGray(const std::uint8_t* from, int from_step, std::uint8_t* to, int to_step, IppiSize size) {
  for (int y = 0; y < size.height; ++y, from += from_step, to += to_step) {
    for (int x = 0; x < size.width; ++x) {
      to[x] = static_cast<std::uint8_t>((19595 * from[3 * x + 2] + 38470 * from[3 * x + 1] + 7471 * from[3 * x] + 32768) >> 16);
    }
  }
}
inline void pqGrayToRGB24(const std::uint8_t* from, int from_step, std::uint8_t* to, int to_step, IppiSize size) {
  for (int y = 0; y < size.height; ++y, from += from_step, to += to_step) {
    for (int x = 0; x < size.width; ++x) to[3 * x] = to[3 * x + 1] = to[3 * x + 2] = from[x];
  }
}
inline void pqYUY2ToRGB24(const std::uint8_t* from, int from_step, std::uint8_t* to, int to_step, IppiSize size) {
  for (int y = 0; y < size.height; ++y, from += from_step, to += to_step) {
    int u = 0, v = 0;  // none: 128
    for (int x = 0; x < size.width; ++x) {
      const int luma = 0x129FC * (from[2 * x] - 16);
      if (x + 1 < size.width || x % 2 == 1) {
        const std::uint8_t* pair = from + x / 2 * 4;
        u = pair[1] - 128, v = pair[3] - 128;
      } else {
        u = from[2 * x + 1] - 128;
      }
      to[3 * x + 2] = Clamped((luma + 0x19893 * v) >> 16);
      to[3 * x + 1] = Clamped((luma - 0x645A * u - 0xD021 * v) >> 16);
      to[3 * x] = Clamped((luma + 0x2045A * u) >> 16);
    }
  }
}
inline void pqRGB24ToYUY2(const std::uint8_t* from, int from_step, std::uint8_t* to, int to_step, IppiSize size) {
  for (int y = 0; y < size.height; ++y, from += from_step, to += to_step) {
    const auto chroma = [&](int x, int& u, int& v) {
      const int r = from[3 * x + 2], g = from[3 * x + 1], b = from[3 * x];
      u = (-0x25E3 * r - 0x4A7F * g + 0x7062 * b + 0x808000) >> 16;
      v = (0x7062 * r - 0x5E35 * g - 0x122D * b + 0x808000) >> 16;
    };
    for (int x = 0; x < size.width; ++x) {
      to[2 * x] = static_cast<std::uint8_t>(
          (0x41CB * from[3 * x + 2] + 0x8106 * from[3 * x + 1] + 0x1917 * from[3 * x] + 0x108000) >> 16);
    }
    for (int x = 0; x < size.width; x += 2) {
      int u0, v0, u1, v1;
      chroma(x, u0, v0);
      u1 = u0, v1 = v0;
      if (x + 1 < size.width) chroma(x + 1, u1, v1);
      to[2 * x + 1] = static_cast<std::uint8_t>((u0 + u1 + 1) >> 1);
      if (x + 1 < size.width) to[2 * x + 3] = static_cast<std::uint8_t>((v0 + v1 + 1) >> 1);
    }
  }
}

}  // namespace
}  // namespace pantiq
