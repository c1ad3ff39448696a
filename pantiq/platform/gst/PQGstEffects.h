// Video effects on GStreamer: one element between two pads of ours, run by a push on the caller's thread. No pipeline,
// no clock, no thread.
//
// An effect is an element whose class names both Effect and Video, with one pad for frames in and one out that are
// always there, and which is a GstBaseTransform: those give one frame for each that they take. Its identifier is the
// RFC 4122 version 5 UUID of the factory's name.
#pragma once
#include <memory>

#include "pantiq/platform/PQEffects.h"

namespace pantiq::gst {

std::unique_ptr<PQEffects> MakeEffects();

}  // namespace pantiq::gst
