#include "pantiq/compose/PQColors.h"

#include <cstdio>
#include <iterator>

namespace pantiq {

namespace {

constexpr TColor kSystemColors[] = {
    0xc8c8c8,  // scroll bar
    0x000000,  // desktop
    0xd1b499,  // caption of the active window
    0xdbcdbf,  // caption of other windows
    0xf0f0f0,  // menu
    0xffffff,  // window
    0x646464,  // window frame
    0x000000,  // menu text
    0x000000,  // window text
    0x000000,  // caption text
    0xb4b4b4,  // border of the active window
    0xfcf7f4,  // border of other windows
    0xababab,  // application workspace
    0xff9933,  // selection
    0xffffff,  // selected text
    0xf0f0f0,  // button face
    0xa0a0a0,  // button shadow
    0x6d6d6d,  // text that is off
    0x000000,  // button text
    0x544e43,  // caption text of other windows
    0xffffff,  // button highlight
    0x696969,  // dark shadow
    0xe3e3e3,  // light edge
    0x000000,  // hint text
    0xe1ffff,  // hint
};

constexpr struct {
  TColor color;
  const char* name;
} kNames[] = {{0x000000, "clBlack"},  {0x000080, "clMaroon"},  {0x008000, "clGreen"}, {0x008080, "clOlive"},
              {0x800000, "clNavy"},   {0x800080, "clPurple"},  {0x808000, "clTeal"},  {0x808080, "clGray"},
              {0xc0c0c0, "clSilver"}, {0x0000ff, "clRed"},     {0x00ff00, "clLime"},  {0x00ffff, "clYellow"},
              {0xff0000, "clBlue"},   {0xff00ff, "clFuchsia"}, {0xffff00, "clAqua"},  {0xffffff, "clWhite"}};

}  // namespace

TColor PQColorToRGB(TColor color) noexcept {
  if ((color & 0x80000000u) == 0) return color & 0xffffffu;
  const TColor index = color & 0xffu;
  return index < std::size(kSystemColors) ? kSystemColors[index] : 0;
}

std::string ColorToString(TColor color) {
  for (const auto& entry : kNames) {
    if (entry.color == color) return entry.name;
  }
  char text[16];
  std::snprintf(text, sizeof text, "$%08X", static_cast<unsigned>(color));
  return text;
}

}  // namespace pantiq
