// An effect in a graph of components beside the same element between appsrc and fakesink, which are fed with buffers
// over memory that nobody may write to, as a graph's frames are. Both sides run in turn, in blocks; the table has the
// medians.
//
//   bench_effects [WIDTH HEIGHT [FRAMES [ROUNDS]]]
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/support/Ends.h"
#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/plugins/PQDMOEffect.h"

namespace {

using namespace pantiq;
using namespace pantiq::bench;

int g_width = 1920, g_height = 1080, g_frames = 60, g_rounds = 9;

// What one block of frames took.
struct Block {
  double frames_a_second, cpu_a_frame;
};
template <class Work>
Block Timed(Work work) {
  const double cpu = CpuSeconds();
  const auto start = Clock::now();
  work();
  return {g_frames / Seconds(start), (CpuSeconds() - cpu) / g_frames};
}

// Frames through the component.
class Graph {
 public:
  Graph(const std::string& name, const std::string& settings) : frame_(Picture(g_width, g_height)) {
    effect_.SetDmoName(name);
    effect_.SetSettings(settings);
    source_.OutputPin.Connect(effect_.InputPin).IgnoreError();
    effect_.OutputPin.Connect(sink_.InputPin).IgnoreError();
    source_.OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(g_width, g_height, 400000, vfRGB24));
  }
  Block Run() {
    return Timed([this] {
      for (int i = 0; i < g_frames; ++i) source_.OutputPin.SubmitBuffer(PQMakeRef<TPQImageBuffer>(*frame_));
    });
  }

 private:
  Source source_;
  TPQDMOEffect effect_;
  Sink sink_;
  PQRef<TPQImageBuffer> frame_;
};

// Frames through the element.
class Pipeline {
 public:
  explicit Pipeline(const std::string& elements) : frame_(Picture(g_width, g_height)) {
    const std::string caps = "video/x-raw,format=BGR,width=" + std::to_string(g_width) +
                             ",height=" + std::to_string(g_height) + ",framerate=25/1";
    pipeline_ =
        gst_parse_launch(("appsrc name=a format=time block=true max-buffers=4 max-bytes=0 caps=" + caps + " ! " +
                          elements + " ! " + caps + " ! fakesink name=s sync=false signal-handoffs=true")
                             .c_str(),
                         nullptr);
    source_ = gst_bin_get_by_name(GST_BIN(pipeline_), "a");
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline_), "s");
    g_signal_connect(sink, "handoff", G_CALLBACK(+[](GstElement*, GstBuffer*, GstPad*, gpointer self) {
                       static_cast<Pipeline*>(self)->Came();
                     }),
                     this);
    gst_object_unref(sink);
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  }
  ~Pipeline() {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(source_), gst_object_unref(pipeline_);
  }
  Block Run() {
    return Timed([this] { Push(); });
  }

 private:
  void Push() {
    came_ = 0;
    for (int i = 0; i < g_frames; ++i) {
      GstBuffer* buffer = gst_buffer_new_wrapped_full(
          GST_MEMORY_FLAG_READONLY, const_cast<std::uint8_t*>(frame_->Read()),
          static_cast<gsize>(frame_->GetByteSize()), 0, static_cast<gsize>(frame_->GetByteSize()), nullptr, nullptr);
      GST_BUFFER_PTS(buffer) = 0;
      gst_app_src_push_buffer(GST_APP_SRC(source_), buffer);
    }
    g_mutex_lock(&mutex_);
    while (came_ < g_frames) g_cond_wait(&cond_, &mutex_);
    g_mutex_unlock(&mutex_);
  }
  void Came() {
    g_mutex_lock(&mutex_);
    if (++came_ == g_frames) g_cond_signal(&cond_);
    g_mutex_unlock(&mutex_);
  }
  GstElement *pipeline_ = nullptr, *source_ = nullptr;
  GMutex mutex_{};
  GCond cond_{};
  int came_ = 0;
  PQRef<TPQImageBuffer> frame_;
};

struct Row {
  const char *name, *element, *settings;
  bool converted;
};

void Measure(const Row& row) {
  Graph ours(row.name, row.settings);
  const std::string element = std::string(row.element) + " " + row.settings;
  Pipeline theirs(row.converted ? "videoconvert ! " + element + " ! videoconvert" : element);
  ours.Run(), theirs.Run();
  std::vector<double> a, b, ratios, cpu;
  for (int i = 0; i < g_rounds; ++i) {  // who goes first changes
    Block us{}, them{};
    if (i % 2 == 0) us = ours.Run();
    them = theirs.Run();
    if (i % 2 != 0) us = ours.Run();
    a.push_back(us.frames_a_second), b.push_back(them.frames_a_second);
    ratios.push_back(us.frames_a_second / them.frames_a_second), cpu.push_back(them.cpu_a_frame / us.cpu_a_frame);
  }
  std::printf("%-14s %-28s %9.1f %9.1f %7.3f %11.3f\n", row.element, row.settings, Median(a), Median(b), Median(ratios),
              Median(cpu));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) g_width = std::atoi(argv[1]), g_height = std::atoi(argv[2]);
  if (argc > 3) g_frames = std::atoi(argv[3]);
  if (argc > 4) g_rounds = std::atoi(argv[4]);
  if (g_width < 1 || g_height < 1 || g_frames < 1 || g_rounds < 1) {
    std::fprintf(stderr, "bench_effects: expected WIDTH HEIGHT FRAMES ROUNDS, each at least 1\n");
    return 2;
  }
  SetReportListener([](const PQReportEntry& entry) {
    std::fprintf(stderr, "bench_effects: %s: %s\n", entry.text.c_str(), entry.detail.c_str());
  });
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  gst_init(nullptr, nullptr);
  const Row rows[] = {
      {"Video gamma correction", "gamma", "gamma=2", false},
      {"Video balance", "videobalance", "hue=0.2 contrast=1.3", false},
      {"Video flipper", "videoflip", "video-direction=horiz", false},
      {"Median effect", "videomedian", "", true},
      {"WarpTV effect", "warptv", "", true},
  };
  std::printf("%dx%d, blocks of %d frames, %d rounds: frames a second\n%-14s %-28s %9s %9s %7s %11s\n", g_width,
              g_height, g_frames, g_rounds, "element", "settings", "pantiq", "pipeline", "ratio", "by CPU time");
  for (const Row& row : rows) Measure(row);
}
