// Files of video and sound, through the player and a filter. Demuxers and decoders are the platform's: their own faults
// are theirs; what they make of a broken file, sizes, stamps, formats, ends, is what the player has to live with.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "pantiq/core/PQFramePool.h"
#include "pantiq/core/PQGraphRun.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQReport.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTargets.h"

namespace pantiq::fuzz {

void FuzzMedia(Input bytes) {
  static const std::string file = [] {
    RegisterAll();
    return (std::filesystem::temp_directory_path() / ("pantiq-fuzz-" + std::to_string(getpid()) + ".clip")).string();
  }();
  SetReportListener([](const PQReportEntry&) {});
  PQFramePool::SetMostBytes(4 << 20);
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  {
    std::vector<PQFault> faults;
    PQGraph graph;
    Hold(graph.ParseLaunch("TPQASFPlayer FileName='" + file + "' ! TPQMirror ! TPQGrayScale", faults),
         "the graph was refused");
    PQRunOptions options;
    options.frames = 8;
    PQGraphRun run(graph, options);
    const PQRunResult result = run.Run();
    Hold(result.frames <= options.frames, "more frames than were asked for");
  }
  std::filesystem::remove(file);
  PQFramePool::SetMostBytes(PQFrameBlock::kMostBytes);
  SetReportListener({});
}

}  // namespace pantiq::fuzz
