// Playing to devices with GStreamer.
#pragma once
#include <memory>

#include "pantiq/platform/PQMediaOutput.h"

namespace pantiq::gst {

std::unique_ptr<PQMediaOutput> MakeOutput();

}  // namespace pantiq::gst
