// A graph engine: filters that are made, added, configured and wired step by step, and then run. One call for each
// step, each with an answer of its own, so that a caller can say which step failed. A step that cannot fail on a
// platform succeeds there.
//
// Threads. Building, running and stopping belong to one thread at a time. SendVideo and SendAudio may be called from
// two threads at once and wait while the graph has enough to do. Interrupt may be called from any thread at any time.
#pragma once
#include <cstdint>
#include <string>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

// The last three are for graphs of codecs, PQCodecGraph.h.
enum class PQFilterKind { VideoSource, AudioSource, AsfWriter, BinarySource, SampleGrabber, NullRenderer };

// A filter of a graph; 0 is none. Valid until the graph is destroyed or the filter removed.
using PQFilterId = int;

// Pixel layouts that a video source takes: Rgb24 is blue, green, red, top row first; Yuy2 is Y0 U Y1 V.
enum class PQVideoSubtype { Rgb24, Yuy2 };

// Interleaved signed 16-bit little-endian sound.
struct PQAudioFormat {
  int sample_rate = 0;
  int channels = 0;         // 1 to 8
  int bits_per_sample = 0;  // 16
};

// What is asked of a recording. Texts that are empty or "auto" are chosen by the platform.
struct PQRecordingRequest {
  std::string file_name;        // its ending chooses the container when that is open
  std::string container;        // asf, wmv, mkv, mp4, avi
  std::string video_codec;      // WMV2, WMV1, MP43, MPEG4, H264
  int quality = 85;             // 1 to 100
  int key_frame_interval = 12;  // frames
  std::string audio_codec;      // WMA2, WMA1, MP3, AAC, PCM
  int audio_bit_rate = 128000;  // bits a second
  int width = 0, height = 0;    // of the video, 0 if not known
};

// What the platform has chosen, in its own terms; opaque to the caller but for the names.
struct PQRecordingProfile {
  std::string container, video_codec, audio_codec;  // as in the request, resolved
  std::string muxer, video_encoder, audio_encoder;  // the platform's elements with their settings
};

// What a kind of graph has no use for fails in it.
class PQ_EXPORT PQMediaGraph {
 public:
  virtual ~PQMediaGraph() = default;

  // Building, in this order.
  virtual PQPlatformResult CreateGraph() = 0;
  virtual PQPlatformResult RegisterAdditionalFilters() = 0;
  virtual PQPlatformResult CreateCaptureBuilder() = 0;
  virtual PQPlatformResult QueryMediaControl() = 0;
  virtual PQPlatformResult SetFiltergraph() = 0;
  // `subtype` is looked at for video sources only.
  virtual PQPlatformResult CreateFilter(PQFilterKind kind, PQVideoSubtype subtype, PQFilterId& filter) = 0;
  virtual PQPlatformResult AddFilter(PQFilterId filter, const std::string& name) = 0;
  virtual PQPlatformResult RemoveFilter(PQFilterId filter) = 0;
  virtual void DestroyDownstream(PQFilterId filter) = 0;

  // Writer. SetFileName proves that the path can be written and leaves what stands there as it is; the file is replaced
  // when the running graph gets its first sample.
  virtual PQPlatformResult QueryFileSink(PQFilterId) { return NoUse(); }
  virtual PQPlatformResult SetFileName(PQFilterId, const std::string&) { return NoUse(); }
  virtual PQPlatformResult QueryAsfConfig(PQFilterId) { return NoUse(); }
  virtual PQPlatformResult ConfigureUsingProfile(PQFilterId, const PQRecordingProfile&) { return NoUse(); }
  virtual PQPlatformResult SetIndexMode(PQFilterId, bool) { return NoUse(); }

  // Sources. `period` in 100 ns, 0 if not known. `buffer_milliseconds` guides the size of the source's buffers.
  virtual PQPlatformResult SetAudioFormat(PQFilterId source, const PQAudioFormat& format, bool flag,
                                          int buffer_milliseconds) {
    (void)source, (void)format, (void)flag, (void)buffer_milliseconds;
    return NoUse();
  }
  virtual PQPlatformResult SetVideoSize(PQFilterId source, int width, int height, std::int64_t period) = 0;

  // Wires `from` through `via` (0: nothing) into `to`, with whatever is needed between. Where a codec is involved, one
  // frame of the size is pushed through it first, once for each codec and size.
  virtual PQPlatformResult Render(PQFilterId from, PQFilterId via, PQFilterId to) = 0;

  virtual PQPlatformResult Run() = 0;
  // Ends at once; what has not been written is lost. Harmless at any time.
  virtual PQPlatformResult Stop() = 0;

  // Samples. A call waits while the graph has enough to do, and answers an error once the graph has failed.
  virtual PQPlatformResult SendVideo(PQFilterId source, const PQPlatformBlock& frame) = 0;
  virtual PQPlatformResult SendAudio(PQFilterId, const PQPlatformBlock&) { return NoUse(); }

  // No more samples come from this source. After the last source's end, Drain waits until everything is written; it
  // gives up when nothing has left the encoders for `limit_milliseconds`.
  virtual PQPlatformResult EndOfStream(PQFilterId source) = 0;
  virtual PQPlatformResult Drain(int limit_milliseconds) = 0;

  // Ends every wait inside SendVideo and SendAudio, now and until the next Run, and a Drain that is under way.
  virtual void Interrupt() = 0;

 protected:
  static PQPlatformResult NoUse() { return {kPlatformState, "this kind of graph does not do that"}; }
};

}  // namespace pantiq
