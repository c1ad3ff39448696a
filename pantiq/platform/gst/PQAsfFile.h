// Corrections to an ASF file after its muxer has closed it. Layout after the published Advanced Systems Format
// specification, revision 01.20.
#pragma once
#include <cstdint>
#include <string>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq::gst {

struct PQAsfCorrections {
  bool drop_index = false;              // cuts the index objects behind the data object
  int video_stream = 0;                 // stream number of the video, 0 if there is none
  std::int64_t average_frame_time = 0;  // 100 ns, written for the video stream if above 0
};

// Changes the file in place; the header keeps its size, so no data moves. A file that is no complete ASF file is
// refused and stays as it is.
PQPlatformResult CorrectAsfFile(const std::string& path, const PQAsfCorrections& corrections);

// The first bytes of every ASF file.
bool IsAsfFile(const std::string& path);

}  // namespace pantiq::gst
