// The graph of codecs.
#pragma once
#include <memory>

#include "pantiq/platform/PQCodecGraph.h"

namespace pantiq::gst {

std::unique_ptr<PQCodecGraph> MakeCodecGraph();

}  // namespace pantiq::gst
