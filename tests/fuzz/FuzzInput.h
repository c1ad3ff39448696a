// Bytes that stand for decisions: what a fuzzer mutates and a seeded test draws. Past the end every answer is 0.
#pragma once
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace pantiq::fuzz {

class FuzzInput {
 public:
  explicit FuzzInput(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  std::size_t Left() const { return bytes_.size(); }

  std::uint64_t Number(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = value << 8 | Byte();
    return value;
  }
  std::uint8_t Byte() {
    if (bytes_.empty()) return 0;
    const std::uint8_t byte = bytes_.front();
    bytes_ = bytes_.subspan(1);
    return byte;
  }
  // 0 to n - 1; n is 1 to 65536.
  int Below(int n) { return static_cast<int>(Number(n > 256 ? 2 : 1) % static_cast<unsigned>(n)); }
  bool OneIn(int n) { return Below(n) == 0; }
  template <class List>
  decltype(auto) Pick(List&& list) {
    return list[static_cast<std::size_t>(Below(static_cast<int>(std::min<std::size_t>(std::size(list), 65536))))];
  }

  // Mostly small, sometimes at the bounds of a type, sometimes anything.
  std::int64_t Integer() {
    static constexpr std::int64_t kEdges[] = {-1,
                                              127,
                                              255,
                                              256,
                                              32767,
                                              65535,
                                              65536,
                                              0x7fffffff,
                                              -0x80000000LL,
                                              0xffffffffLL,
                                              std::numeric_limits<std::int64_t>::max(),
                                              std::numeric_limits<std::int64_t>::min()};
    switch (Below(8)) {
      case 0:
        return Pick(kEdges);
      case 1:
        return static_cast<std::int64_t>(Number(8));
      case 2:
        return static_cast<std::int16_t>(Number(2));
      default:
        return Below(24);
    }
  }
  double Float() {
    using Limits = std::numeric_limits<double>;
    static constexpr double kEdges[] = {-0.0,
                                        -1,
                                        0.5,
                                        255,
                                        360,
                                        1e9,
                                        1e-9,
                                        1e300,
                                        -1e300,
                                        Limits::quiet_NaN(),
                                        Limits::infinity(),
                                        -Limits::infinity(),
                                        Limits::denorm_min(),
                                        4294967296.0};
    switch (Below(4)) {
      case 0:
        return Pick(kEdges);
      case 1:
        return std::bit_cast<double>(Number(8));
      case 2:
        return static_cast<std::int16_t>(Number(2)) / 64.0;
      default:
        return Below(64);
    }
  }
  std::string Text(int most) {
    std::string text(static_cast<std::size_t>(Below(most + 1)), ' ');
    for (char& c : text) c = static_cast<char>(Byte());
    return text;
  }
  std::vector<std::uint8_t> Bytes(int most) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(Below(most + 1)));
    for (std::uint8_t& b : bytes) b = Byte();
    return bytes;
  }

 private:
  std::span<const std::uint8_t> bytes_;
};

// Ends the process with a message: what has to hold whatever the input is.
[[noreturn]] inline void Broken(const std::string& what) {
  std::fprintf(stderr, "fuzz: %s\n", what.c_str());
  std::abort();
}
inline void Hold(bool condition, const std::string& what) {
  if (!condition) Broken(what);
}

}  // namespace pantiq::fuzz
