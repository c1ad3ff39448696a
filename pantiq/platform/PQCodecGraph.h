// A graph of codecs: a source, a compressor or what undoes it, and a grabber that hands out what arrives. Built step by
// step like every graph.
//
// Filters. BindToObject makes compressors; video sources, binary sources, sample grabbers and null renderers come from
// CreateFilter. Render wires a compressor into a grabber of Rgb24 through the filter that undoes the compressor; that
// filter is then found with DisconnectGetNextFilter and can stand behind a binary source. A compressor proves itself
// there: one frame goes through a copy of it, once for each compressor, settings and form of frames. A filter that has
// been removed is parted from its neighbours and may be added again.
//
// Threads. As PQMediaGraph; SendBlock is like SendVideo. A grabber's events come on a thread of the graph, one at a
// time, from Run until Stop has returned; Stop waits for one that is under way.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pantiq/platform/PQCodecManager.h"
#include "pantiq/platform/PQMediaGraph.h"

namespace pantiq {

// What a grabber takes: anything, any video, or frames of blue, green, red.
enum class PQGrabberType { Any, Video, Rgb24 };

// What a stream of blocks consists of.
struct PQStreamForm {
  enum class Kind {
    None,
    Coded,  // `text` says it in the platform's terms
    Rgb24,  // frames of `header`, not compressed
  };
  Kind kind = Kind::None;
  std::string text;
  BITMAPINFOHEADER header;
  bool temporal_compression = true;
  std::int64_t sample_size = 0;  // bytes, 0 if they differ
};

class PQ_EXPORT PQGrabberEvents {
 public:
  virtual ~PQGrabberEvents() = default;
  // A sample has arrived; its stamps are stream time. It is good during the call only.
  virtual void SampleCB(const PQPlatformBlock& sample) = 0;
};

class PQ_EXPORT PQCodecGraph : public PQMediaGraph {
 public:
  virtual PQPlatformResult QueryMediaFilter() = 0;  // after QueryMediaControl
  // Makes the filter that a moniker names.
  virtual PQPlatformResult BindToObject(const std::string& moniker, PQFilterId& filter) = 0;
  // Sets a compressor's own properties: "quality=90 qmin=2". What is not named keeps the value it was made with. A
  // fault changes nothing; the detail names what is accepted.
  virtual PQPlatformResult ApplySettings(PQFilterId compressor, const std::string& settings) = 0;

  // Grabbers.
  virtual PQPlatformResult SetMediaType(PQFilterId grabber, PQGrabberType type) = 0;
  virtual PQPlatformResult SetBufferSamples(PQFilterId grabber, bool on) = 0;
  virtual PQPlatformResult SetOneShot(PQFilterId grabber, bool on) = 0;
  // `events` outlive the graph's run; null takes no samples.
  virtual PQPlatformResult SetCallback(PQFilterId grabber, PQGrabberEvents* events) = 0;

  // Binary sources: what they say that their blocks are. Before they are wired.
  virtual PQPlatformResult SetStreamForm(PQFilterId source, const PQStreamForm& form) = 0;

  // What leaves a filter that is wired.
  virtual PQPlatformResult GetConnectionMediaType(PQFilterId filter, PQStreamForm& form) = 0;
  // Parts a filter from the one behind it, which is told.
  virtual PQPlatformResult DisconnectGetNextFilter(PQFilterId filter, PQFilterId& next) = 0;

  // One block. With `wait` the call waits while the source holds enough.
  virtual PQPlatformResult SendBlock(PQFilterId source, const PQPlatformBlock& block, bool wait) = 0;
};

// Kinds of filters that a platform can list.
enum class PQFilterCategory { VideoCompressors };

struct PQFilterInfo {
  std::string moniker;  // names the filter in stored settings: "gst:element=jpegenc"
  std::string name;     // what a person reads; no two filters of a list share it
};

// What became of a few frames in a compressor.
struct PQCompressorTrial {
  int blocks = 0, frames = 0;  // blocks made of kFrames frames, frames made of the blocks again
  bool at_once = false;        // each block came before the next frame was needed
  bool lossless = false;       // every byte came back
  double decibel = 0;          // least peak signal to noise ratio of a frame, if it is not lossless
  std::int64_t bytes = 0;      // of all blocks
  static constexpr int kFrames = 5;
  // Fit for the pair of components: a block for each frame, a frame of each block, and the picture recognisable.
  bool Usable() const { return blocks == kFrames && frames == kFrames && (lossless || decibel >= 20); }
};

}  // namespace pantiq
