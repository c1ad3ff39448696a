// Frame memory that comes from whoever takes the frames: an allocator that converters and decoders are offered, so that
// they write where the frame will stay.
#pragma once
#include <gst/gst.h>
#include <gst/video/video.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace pantiq::gst {

using FrameSource = std::function<std::shared_ptr<void>(std::int64_t step, std::int64_t rows, std::uint8_t*& data)>;

// An allocator for packed frames of this form; a new reference. Memory of another size comes from the system, and so
// does all of it where the source gives none. `source` is called on threads of GStreamer.
GstAllocator* MakeFrameAllocator(FrameSource source, const GstVideoInfo& info);

// Takes the memory out of a buffer that is not mapped and that nobody else looks at: what the source gave, or empty if
// the buffer lies elsewhere or somebody else has it. The buffer must not be read afterwards.
std::shared_ptr<void> TakeFrameMemory(GstBuffer* buffer, const std::uint8_t*& data);

}  // namespace pantiq::gst
