// The media reader on GStreamer: whatever decodes the file, then blue, green, red frames and 16-bit sound, each taken
// by a thread of its own.
#pragma once
#include <memory>

#include "pantiq/platform/PQMediaReader.h"

namespace pantiq::gst {

std::unique_ptr<PQMediaReader> MakeReader();

}  // namespace pantiq::gst
