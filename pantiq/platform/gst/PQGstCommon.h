// Shared by the parts of the media module: references, start-up, error texts, frames without a copy.
#pragma once
#include <gst/gst.h>
#include <gst/video/video.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "pantiq/platform/PQMediaGraph.h"

namespace pantiq::gst {

struct ObjectUnref {
  void operator()(void* object) const { gst_object_unref(object); }
};
struct MiniUnref {
  void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
  void operator()(GstSample* sample) const { gst_sample_unref(sample); }
  void operator()(GstMessage* message) const { gst_message_unref(message); }
  void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
};
using ElementPtr = std::unique_ptr<GstElement, ObjectUnref>;
using PadPtr = std::unique_ptr<GstPad, ObjectUnref>;
using CapsPtr = std::unique_ptr<GstCaps, MiniUnref>;
using SamplePtr = std::unique_ptr<GstSample, MiniUnref>;
using MessagePtr = std::unique_ptr<GstMessage, MiniUnref>;
using BufferPtr = std::unique_ptr<GstBuffer, MiniUnref>;

// GStreamer counts in nanoseconds, the library in units of 100 ns.
inline constexpr std::int64_t kNanosecondsPerUnit = 100;

// Initialises GStreamer once. Any thread.
PQPlatformResult Initialise();

// A new element with a full reference; empty with a result that names the package if it is not installed.
ElementPtr MakeElement(const char* factory, PQPlatformResult& result);
bool HasElement(const std::string& factory);
// Debian's package of an element that this module knows by name; empty for others.
std::string PackageOfElement(const std::string& factory);
// "x264enc is not installed (gstreamer1.0-plugins-ugly)".
PQPlatformResult MissingElement(const std::string& factory);

// What an ERROR or WARNING message says, with a code of ours.
PQPlatformResult FromMessage(GstMessage* message);
PQPlatformResult FromError(const GError& error, const std::string& source);

// A bin of the described elements with ghost pads for the free ends. Any error of the parser is a failure.
ElementPtr MakeBin(const std::string& description, PQPlatformResult& result);

// What a pipeline's threads tell and its callers wait for. Outlives the pipeline where GStreamer still holds something of
// it.
struct BusFlow {
  virtual ~BusFlow() = default;
  // A message of the pipeline, on its threads, with the mutex held. The base keeps the first error and the stream's end.
  virtual void OnMessage(GstMessage* message);
  std::mutex mutex;
  std::condition_variable changed;  // after every message, too
  bool interrupted = false, end_of_stream = false;
  PQPlatformResult failure;
};

// A new pipeline that tells `flow`.
ElementPtr MakePipeline(std::shared_ptr<BusFlow> flow);

// Between an encoder, linked by its one output, and a muxer that takes stamps as they are: turns them into running time,
// and the segment into a plain one from 0. Encoders shift their stamps by an hour figure of their own and say so in the
// segment only. For an encoder whose stamps are useless `by_order` gives them, called once for each block.
void RestampForMuxer(GstElement* encoder, std::function<GstClockTime()> by_order = {});

// Taken for a moment by everything of ours that touches what threads of GStreamer hand to one another: buffers, their
// memory, what hangs on them. GStreamer orders its threads well, but in ways that a thread sanitizer does not see.
// Nothing is called under it that may let go of a buffer.
std::mutex& SeamMutex();

// A buffer over the block's own memory, which lives as long as the buffer. `released` runs when GStreamer lets go. With
// `writable` whoever gets the buffer may change that memory; without it he makes a copy first.
GstBuffer* WrapBlock(const PQPlatformBlock& block, std::shared_ptr<const void> released, bool writable = false);

// Frames per second of a period in 100 ns: the usual fractions where they fit, 0/1 if there is none.
void FrameRate(std::int64_t period, int& numerator, int& denominator);

// Raw video of a source: the bytes of a row without padding, and the caps of square pixels. `period` in 100 ns, 0 if
// not known.
int RowBytes(PQVideoSubtype subtype, int width);
CapsPtr VideoCaps(PQVideoSubtype subtype, int width, int height, std::int64_t period);

}  // namespace pantiq::gst
