#include "pantiq/design/PQPalette.h"

#include "pantiq/design/PQPaletteTable.h"

namespace pantiq {
namespace {

std::span<const detail::PaletteBitmap> Bitmaps() { return {detail::kPaletteBitmaps, detail::kPaletteBitmapCount}; }

}  // namespace

std::string PQPaletteName(std::string_view class_name, PQPaletteForm form) {
  std::string name(form == PQPaletteForm::Small ? "_" : "");
  for (const char c : class_name) name += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return name;
}

std::vector<std::string_view> PQPaletteNames() {
  std::vector<std::string_view> names;
  for (const detail::PaletteBitmap& bitmap : Bitmaps()) names.push_back(bitmap.name);
  return names;
}

std::span<const std::uint8_t> PQPaletteBitmap(std::string_view name) {
  for (const detail::PaletteBitmap& bitmap : Bitmaps()) {
    if (bitmap.name == name) return {bitmap.bytes, bitmap.size};
  }
  return {};
}

TBitmap PQPalettePicture(std::string_view class_name, PQPaletteForm form) {
  constexpr std::size_t kHeader = 40, kColours = 64;
  const std::span<const std::uint8_t> bytes = PQPaletteBitmap(PQPaletteName(class_name, form));
  if (bytes.empty()) return {};
  const int side = bytes[4];
  TBitmap bitmap(side, side);
  const std::uint8_t* pair = bytes.data() + kHeader + kColours;
  for (int y = side - 1; y >= 0; --y) {
    for (int x = 0; x < side; ++x) {
      const int index = x % 2 == 0 ? *pair >> 4 : *pair++ & 15;
      const std::uint8_t* colour = bytes.data() + kHeader + 4 * index;
      for (int c = 0; c < 3; ++c) bitmap.Row(y)[3 * x + c] = colour[c];
    }
  }
  return bitmap;
}

}  // namespace pantiq
