// What a person or a script hears of a run. Reports come on any thread; everything else on the thread that runs.
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "pantiq/core/PQGraphRun.h"
#include "pantiq/host/PQReport.h"

namespace pantiq::app {

enum class OutputKind { Person, Json, Quiet };

struct RunPlan {
  std::string graph;        // what is run, as it was given
  std::int64_t frames = 0;  // limits; 0: none
  double seconds = 0;
  bool json_to_stderr = false;   // a sink of the graph owns standard output
  bool shares_terminal = false;  // a sink writes to the terminal that progress would be drawn on
};

class RunOutput : public IPQRunObserver {
 public:
  virtual void OnReport(const PQReportEntry& entry) = 0;
  // `signal`: the number of the signal that ended the run, 0 if none did.
  virtual void OnEnded(const PQRunResult& result, int signal) = 0;
};

std::unique_ptr<RunOutput> MakeRunOutput(OutputKind kind, const RunPlan& plan);

// "warning: sob: 3 frames were dropped (the queue is full)"
std::string ReportText(const PQReportEntry& entry);

// One JSON object on one line: a fault of a graph.
std::string FaultJson(const PQFault& fault);

// "1:05.3", "1:00:05.3"
std::string TimeText(double seconds, bool tenths = true);

}  // namespace pantiq::app
