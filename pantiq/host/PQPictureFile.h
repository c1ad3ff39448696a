// Codecs that PQPicture.cpp registers at first need.
#pragma once
#include "pantiq/host/PQPicture.h"

namespace pantiq::detail {

// Own code: uncompressed files of 1, 4, 8, 16, 24 and 32 bits.
extern const PQPictureCodec kBmpCodec;

// libpng and libjpeg; where the library was built without them, codecs that answer what is missing.
extern const PQPictureCodec kPngCodec;
extern const PQPictureCodec kJpegCodec;
extern const bool kHasPictureLibraries;

// Refuses empty sides and more than kPQMostPicturePixels. `bytes_needed` is the least number of bytes that a file with
// so many pixels can have; a shorter file is refused here, before memory is taken for its pixels.
PQStatus CheckPictureSize(std::int64_t width, std::int64_t height, std::int64_t bytes_needed, std::size_t size);

}  // namespace pantiq::detail
