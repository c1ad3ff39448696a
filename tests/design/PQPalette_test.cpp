#include "pantiq/design/PQPalette.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQRegistry.h"

namespace pantiq {
namespace {

std::uint32_t Word(std::span<const std::uint8_t> bytes, std::size_t at) {
  std::uint32_t word;
  std::memcpy(&word, bytes.data() + at, sizeof word);
  return word;
}

constexpr PQPaletteForm kForms[] = {PQPaletteForm::Large, PQPaletteForm::Small};
int Side(PQPaletteForm form) { return form == PQPaletteForm::Large ? 24 : 16; }

TEST(Palette, HoldsTwoBitmapsForEachClassAndNoOther) {
  RegisterAll();
  std::vector<std::string> expected;
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
    for (const PQPaletteForm form : kForms) expected.push_back(PQPaletteName(info->Name(), form));
  }
  EXPECT_EQ(expected.size(), 88u);
  EXPECT_EQ(expected[0], "TPQDSVIDEODECOMPRESSOR");
  EXPECT_EQ(expected[1], "_TPQDSVIDEODECOMPRESSOR");
  const std::vector<std::string_view> names = PQPaletteNames();
  EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()), expected);

  for (const char* unknown : {"", "_", "TPQCrop", "TPQCOMMONFILTER", "__TPQCROP"}) {
    EXPECT_TRUE(PQPaletteBitmap(unknown).empty()) << unknown;
  }
  EXPECT_TRUE(PQPalettePicture("TPQCommonFilter").IsEmpty());
}

TEST(Palette, GivesBitmapsOfSixteenColoursThatReadersOfBmpUnderstand) {
  RegisterAll();
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
    for (const PQPaletteForm form : kForms) {
      const std::string name = PQPaletteName(info->Name(), form);
      SCOPED_TRACE(name);
      const std::span<const std::uint8_t> bytes = PQPaletteBitmap(name);
      ASSERT_EQ(bytes.size(), form == PQPaletteForm::Large ? 392u : 232u);
      EXPECT_EQ(Word(bytes, 0), 40u);
      EXPECT_EQ(Word(bytes, 12), 4u << 16 | 1);  // bits a pixel, planes
      PQBytes file = {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 14 + 40 + 64, 0, 0, 0};
      file.insert(file.end(), bytes.begin(), bytes.end());
      TBitmap decoded;
      ASSERT_TRUE(PQDecodePicture(file, decoded).Ok());
      EXPECT_EQ(decoded.GetWidth(), Side(form));
      EXPECT_EQ(decoded.GetHeight(), Side(form));
      EXPECT_EQ(PQPalettePicture(info->Name(), form), decoded);
    }
  }
}

// Where the tile's round corners leave nothing, the lower left pixel's colour stands, and nowhere inside.
TEST(Palette, ShowsATileWithFreeCornersAndADrawingUnlikeAllOthers) {
  RegisterAll();
  for (const PQPaletteForm form : kForms) {
    std::vector<std::pair<std::string, TBitmap>> drawn;
    const int side = Side(form);
    for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
      SCOPED_TRACE(info->Name());
      const TBitmap picture = PQPalettePicture(info->Name(), form);
      const auto same = [&](int x, int y, int u, int v) {
        return std::equal(picture.Row(y) + 3 * x, picture.Row(y) + 3 * x + 3, picture.Row(v) + 3 * u);
      };
      std::map<std::vector<std::uint8_t>, int> inside;  // colours and how often
      int free = 0;
      for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
          const int from_corner = std::min(x, side - 1 - x) + std::min(y, side - 1 - y);
          const std::uint8_t* const pixel = picture.Row(y) + 3 * x;
          if (from_corner >= side / 6) ++inside[{pixel, pixel + 3}];
          EXPECT_TRUE(from_corner > 0 || same(x, y, 0, side - 1)) << x << ", " << y;
          free += same(x, y, 0, side - 1) ? 1 : 0;
        }
      }
      EXPECT_GE(free, 4);
      EXPECT_FALSE(inside.contains({picture.Row(side - 1), picture.Row(side - 1) + 3}));
      EXPECT_GE(inside.size(), 2u);
      for (const auto& [colour, count] : inside) EXPECT_LT(count, side * side * 9 / 10);
      for (const auto& [other, bitmap] : drawn) {
        int different = 0;
        for (int i = 0; i < side * side; ++i) {
          different += std::equal(picture.Data() + 3 * i, picture.Data() + 3 * i + 3, bitmap.Data() + 3 * i) ? 0 : 1;
        }
        EXPECT_GT(different, side * side / 10) << "looks like " << other;
      }
      drawn.emplace_back(info->Name(), picture);
    }
  }
}

}  // namespace
}  // namespace pantiq
