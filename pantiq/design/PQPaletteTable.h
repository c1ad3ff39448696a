// Internal: the bitmaps of palette/, which CMake puts into a source of their own.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace pantiq::detail {

struct PaletteBitmap {
  std::string_view name;
  const std::uint8_t* bytes;
  std::size_t size;
};

extern const PaletteBitmap kPaletteBitmaps[];
extern const std::size_t kPaletteBitmapCount;

}  // namespace pantiq::detail
