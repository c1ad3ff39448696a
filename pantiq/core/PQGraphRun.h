// Running a graph: starts its streams, watches its sinks, ends it properly.
//
// A run sends a start up each sink and ends when every source has ended, when each sink has had `frames` frames or
// `seconds` of stream time, or when it is told to. Then sources are stopped and the sinks are closed, so that files are
// complete. The graph stays as it was and can be run again.
//
// Generators that feed only sinks are asked for frames as fast as the sinks take them, unless `realtime` says that they
// keep their own rate. Other sources pace themselves. Where a component keeps frames (IPQPacer) every source is asked,
// unless `realtime`, and a source's stop reaches that component only when it has passed on what it has.
//
// Threads. Run blocks its caller. RequestStop and Fail may be called on any thread, also from a report listener; the
// observer is called on the thread that called Run.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/core/PQGraph.h"

namespace pantiq {

struct PQRunOptions {
  std::int64_t frames = 0;      // per sink; 0: no limit
  double seconds = 0;           // of stream time; 0: no limit
  double from = 0;              // seconds of stream time to leave out at the start
  bool realtime = false;        // generators keep their own rate
  bool measure = false;         // time spent in each component
  double progress_every = 0.2;  // seconds between two calls of OnProgress
};

struct PQGauge {
  std::string component, name;
  std::int64_t value = 0;
};

struct PQRunProgress {
  std::int64_t frames = 0;       // at the sink that has had most
  double elapsed = 0;            // seconds since the start
  double frames_per_second = 0;  // over the last interval
  double position = 0;           // seconds of stream time
  double duration = 0;           // seconds in all; 0 if unknown
  std::vector<PQGauge> gauges;   // depths of queues, drops
};

class PQ_EXPORT IPQRunObserver {
 public:
  virtual ~IPQRunObserver() = default;
  virtual void OnStarted() {}
  // Something a person should know: a generator without an end, a sound that goes nowhere.
  virtual void OnNote(const std::string& text) { (void)text; }
  virtual void OnProgress(const PQRunProgress& progress) { (void)progress; }
};

struct PQSinkCount {
  std::string component;
  std::int64_t frames = 0;   // image frames that reached it
  std::int64_t buffers = 0;  // other buffers: audio, reals, blocks
};
struct PQComponentTime {
  std::string component, class_name;
  std::int64_t frames = 0;
  double seconds = 0;  // in the component itself, without what it called downstream
};

struct PQRunResult {
  PQStatus status;          // why it failed; Ok if it ended as it should
  bool stopped = false;     // RequestStop ended it
  std::int64_t frames = 0;  // at the sink that had most
  double elapsed = 0;       // seconds
  std::vector<PQSinkCount> sinks;
  std::vector<PQComponentTime> times;  // with PQRunOptions::measure, in the graph's order
};

class PQ_EXPORT PQGraphRun {
 public:
  PQGraphRun(PQGraph& graph, PQRunOptions options, IPQRunObserver* observer = nullptr);
  ~PQGraphRun();
  PQGraphRun(const PQGraphRun&) = delete;
  PQGraphRun& operator=(const PQGraphRun&) = delete;

  // Changes the graph in the middle of its stream: sets "switch.Enabled=false" or sends "switch.EnabledPin=false" to a
  // pin; a clock pin takes no value ("snap.SnapshotPin"). It is done before the first frame at or after `seconds` of
  // stream time arrives at that component, or for a source leaves it; moments of one frame in the order of their calls.
  // A fault names the component, the property, the value and what was expected. Before Run.
  PQStatus At(double seconds, std::string_view what);

  // Once per object.
  PQRunResult Run();
  // Ends the run properly. May be called before Run, which then ends at once. Async-signal-safe: it only sets a flag.
  void RequestStop() noexcept;
  // Ends the run with this status; the first one counts.
  void Fail(PQStatus status);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace pantiq
