// The palette's pictures: what a host shows for each class where people pick components.
//
// For each class there are two bitmaps, named by the class in capitals: the large form, "TPQBOXFILTER", 24 by 24
// pixels, and the small form, "_TPQBOXFILTER", 16 by 16. They are device-independent bitmaps without a file header: a
// header of 40 bytes, 16 colours of 4 bytes (blue, green, red, 0), then 4 bits a pixel, first pixel high, rows from the
// bottom up without gaps; 392 and 232 bytes. The lower left pixel's colour means "nothing here" and is used only so.
// All calls: any thread.
#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQPicture.h"

namespace pantiq {

enum class PQPaletteForm { Large, Small };

// The name of a class's bitmap: "TPQCrop" has "TPQCROP" and "_TPQCROP".
PQ_EXPORT std::string PQPaletteName(std::string_view class_name, PQPaletteForm form);

// The names of all bitmaps, large before small for each class, in the palette's order.
PQ_EXPORT std::vector<std::string_view> PQPaletteNames();

// A bitmap by its name; no bytes if there is none. The bytes live as long as the library.
PQ_EXPORT std::span<const std::uint8_t> PQPaletteBitmap(std::string_view name);

// The same as pixels, 24 by 24 or 16 by 16; an empty bitmap for a class without a picture.
PQ_EXPORT TBitmap PQPalettePicture(std::string_view class_name, PQPaletteForm form = PQPaletteForm::Large);

}  // namespace pantiq
