// What a plug-in costs beside its own work: frames through plug-ins that do nothing, in this process and in one of
// their own, each beside the work that there is no way around: one copy of the frame for 24 bits, two conversions
// for 32. All take turns in blocks of frames; the table has the medians.
//
//   bench_plugins [WIDTH HEIGHT [FRAMES [ROUNDS]]]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/support/Ends.h"
#include "pantiq/core/PQFramePool.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/plugins/PQFreeFrame.h"

namespace {

using namespace pantiq;
using namespace pantiq::bench;

int g_width = 1920, g_height = 1080, g_frames = 100, g_rounds = 15;

class Graph {
 public:
  Graph(const char* plugin, bool isolated) : frame_(Picture(g_width, g_height)) {
    effect_.SetIsolated(isolated);
    effect_.SetFilterFileName(std::string(PANTIQ_BENCH_PLUGINS "/") + plugin);
    source_.OutputPin.Connect(*effect_.InputPins.GetPin(0)).IgnoreError();
    effect_.OutputPin.Connect(sink_.InputPin).IgnoreError();
    source_.OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(g_width, g_height, 400000, vfRGB24));
  }
  void Frame() { source_.OutputPin.SubmitBuffer(PQMakeRef<TPQImageBuffer>(*frame_)); }
  long Came() const { return sink_.came; }

 private:
  Source source_;
  TPQFreeFrame effect_;
  Sink sink_;
  PQRef<TPQImageBuffer> frame_;
};

struct Row {
  const char* name;
  std::function<void()> frame;
  int floor;  // the row of the work that there is no way around; -1: this is one
  std::vector<double> times = {};
  double copied = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) g_width = std::atoi(argv[1]), g_height = std::atoi(argv[2]);
  if (argc > 3) g_frames = std::atoi(argv[3]);
  if (argc > 4) g_rounds = std::atoi(argv[4]);
  if (g_width < 1 || g_height < 1 || g_frames < 1 || g_rounds < 1) {
    std::fprintf(stderr, "bench_plugins: expected WIDTH HEIGHT FRAMES ROUNDS, each at least 1\n");
    return 2;
  }
  bool failed = false;
  SetReportListener([&failed](const PQReportEntry& entry) {
    std::fprintf(stderr, "bench_plugins: %s: %s\n", entry.text.c_str(), entry.detail.c_str());
    failed = true;
  });
  const PQRef<TPQImageBuffer> picture = Picture(g_width, g_height);
  std::vector<std::uint8_t> block(static_cast<std::size_t>(g_width) * static_cast<std::size_t>(g_height) * 4);
  Graph in_place("idle24.so", false), converted("idle32.so", false), isolated("idle24.so", true),
      isolated32("idle32.so", true);
  Row rows[] = {
      {"a copy of the frame", [&] { PQMakeRef<TPQImageBuffer>(*picture)->Modify(); }, -1},
      {"two conversions, 24 to 32 bits and back",
       [&] {
         const PQRef<TPQImageBuffer> frame = PQMakeRef<TPQImageBuffer>(*picture);
         ippiCopy_8u_C3AC4R(frame->Read(), frame->GetStep(), block.data(), g_width * 4, frame->GetSize());
         ippiCopy_8u_AC4C3R(block.data(), g_width * 4, frame->Write(), frame->GetStep(), frame->GetSize());
       },
       -1},
      {"plug-in of 24 bits, in place", [&] { in_place.Frame(); }, 0},
      {"plug-in of 32 bits, in place", [&] { converted.Frame(); }, 1},
      {"plug-in of 24 bits, isolated", [&] { isolated.Frame(); }, 0},
      {"plug-in of 32 bits, isolated", [&] { isolated32.Frame(); }, 1},
  };
  const double megabyte = 1024.0 * 1024.0;
  for (Row& row : rows) {  // warm
    const auto copied = PQFramePool::CopiedBytes();
    row.frame();
    row.copied = static_cast<double>(PQFramePool::CopiedBytes() - copied) / megabyte;
  }
  for (int round = 0; round < g_rounds; ++round) {
    for (std::size_t i = 0; i < std::size(rows); ++i) {
      Row& row = rows[(i + static_cast<std::size_t>(round)) % std::size(rows)];
      const auto start = Clock::now();
      for (int n = 0; n < g_frames; ++n) row.frame();
      row.times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count() / g_frames);
    }
  }
  if (failed || in_place.Came() != static_cast<long>(g_frames) * g_rounds + 1) return 1;
  std::printf("%dx%d, blocks of %d frames, %d rounds\n%-42s %10s %12s %10s\n", g_width, g_height, g_frames, g_rounds,
              "", "ms/frame", "MB detached", "to floor");
  for (const Row& row : rows) {
    std::printf("%-42s %10.3f %12.2f", row.name, Median(row.times), row.copied);
    if (row.floor >= 0) {
      std::vector<double> ratios;
      for (std::size_t i = 0; i < row.times.size(); ++i) ratios.push_back(row.times[i] / rows[row.floor].times[i]);
      std::printf(" %10.3f", Median(ratios));
    }
    std::printf("\n");
  }
}
