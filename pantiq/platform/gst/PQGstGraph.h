// The graph engine on GStreamer: sources of the library, encoders, one muxer, one file.
//
// Threads of a running graph: each source converts on its own thread, the video encoder has one, the muxer one for each
// input. Frames wait in two places only: at most kRawFrames uncompressed frames between the caller and the encoder, and
// compressed ones before the muxer, which waits for every input that has not ended.
#pragma once
#include <memory>

#include "pantiq/platform/PQMediaGraph.h"

namespace pantiq::gst {

std::unique_ptr<PQMediaGraph> MakeGraph();

}  // namespace pantiq::gst
