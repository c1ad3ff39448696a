// Compressors of video: which there are, one at work, and the frame that proves it.
#pragma once
#include <gst/gst.h>

#include <functional>
#include <string>
#include <vector>

#include "pantiq/platform/PQCodecGraph.h"
#include "pantiq/platform/gst/PQGstCommon.h"

namespace pantiq::gst {

// An encoder, set up so that it gives a block for each frame as soon as it can.
struct Compressor {
  std::string factory;
  std::string own_settings;  // what it is made with
  std::string settings;      // what it is set to, all of it
  std::string pixels;        // the format of frames that it gets, once it is proved; empty is what suits it
  ElementPtr element;
  std::vector<std::string> set;
};

// "gst:element=jpegenc".
std::string MonikerOf(const std::string& factory);

PQPlatformResult MakeCompressor(const std::string& moniker, Compressor& compressor);
PQPlatformResult SetCompressor(Compressor& compressor, const std::string& settings);

// What stands between a source of raw frames and the encoder. With `queue` the two work at the same time, and a refusal
// comes one frame later.
ElementPtr MakeConverter(const Compressor& compressor, int width, int height, bool queue, PQPlatformResult& result);
// Undoes what a compressor made: blocks in, frames of blue, green, red out.
ElementPtr MakeDecoder(PQPlatformResult& result);

// True ends a trial early.
using TrialEnd = std::function<bool()>;

// One frame of the form through a copy of the compressor: what its blocks are. With `decode` the block must become a
// frame of the size again. Blocks are the same whatever the form: the compressor gets the pixels that it would get of
// Rgb24. What has been proved is remembered.
PQPlatformResult ProveCompressor(Compressor& compressor, PQVideoSubtype subtype, int width, int height,
                                 std::int64_t period, bool decode, const TrialEnd& ended, std::string& form);

PQPlatformResult ListCompressors(std::vector<PQFilterInfo>& filters);
PQPlatformResult TryCompressor(const std::string& moniker, const std::string& settings, PQCompressorTrial& trial);

}  // namespace pantiq::gst
