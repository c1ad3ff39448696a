// Running and measuring graphs.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Console.h"
#include "FileCheck.h"
#include "GraphText.h"
#include "RunOutput.h"
#include "pantiq/core/PQGraphRun.h"
#include "pantiq/media/PQDSVideoOut.h"

namespace pantiq::app {
namespace {

std::atomic<PQGraphRun*> g_run{nullptr};
std::atomic<int> g_signal{0};

// The first signal ends the run properly, the second one the process.
extern "C" void OnSignal(int number) {
  int none = 0;
  PQGraphRun* run = g_run.load();
  if (run == nullptr || !g_signal.compare_exchange_strong(none, number)) {
    std::signal(number, SIG_DFL);
    std::raise(number);
    return;
  }
  run->RequestStop();
}

// While it lives, signals end this run.
class SignalScope {
 public:
  explicit SignalScope(PQGraphRun& run) {
    g_signal.store(0);
    g_run.store(&run);
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction present {};
      if (number == SIGHUP && sigaction(number, nullptr, &present) == 0 && present.sa_handler == SIG_IGN) continue;
      sigaction(number, &action, nullptr);
    }
  }
  ~SignalScope() { g_run.store(nullptr); }
  SignalScope(const SignalScope&) = delete;
  SignalScope& operator=(const SignalScope&) = delete;
};

// Reports go to the output while it lives; an error ends the run.
class ReportScope {
 public:
  ReportScope(PQGraphRun& run, RunOutput& output) {
    SetReportListener([this, &run, &output](const PQReportEntry& entry) {
      output.OnReport(entry);
      // Whoever closes the window has seen enough.
      if (entry.component != nullptr && entry.component->Tag().Is(TPQDSVideoOut::kTag) &&
          entry.code == kOutputUserAbort) {
        run.RequestStop();
      }
      if (entry.severity != PQSeverity::Error) return;
      const std::string text = ReportText(entry);
      const PQStatus status(PQCode::Failed, text.substr(text.find(' ') + 1));  // without the word "error: "
      if (first_.Ok()) first_ = status;
      run.Fail(status);
    });
  }
  ~ReportScope() { SetReportListener({}); }
  ReportScope(const ReportScope&) = delete;
  ReportScope& operator=(const ReportScope&) = delete;

  // Ends the listening. The first error, also one that was told when the run was over.
  PQStatus End() {
    SetReportListener({});
    return first_;
  }

 private:
  PQStatus first_;  // written by the listener, one call at a time
};

PQRunOptions OptionsOf(const RunArguments& arguments) {
  PQRunOptions options;
  options.frames = arguments.frames;
  options.seconds = arguments.seconds;
  options.from = arguments.from;
  options.realtime = arguments.realtime;
  return options;
}

// False, and everything is said, if one of the changes in the middle of the stream cannot be.
bool AddMoments(PQGraphRun& run, const RunArguments& arguments) {
  bool good = true;
  for (const RunMoment& moment : arguments.moments) {
    if (const PQStatus status = run.At(moment.seconds, moment.what); !status.Ok()) {
      PrintError("error: " + status.Text());
      good = false;
    }
  }
  return good;
}

// Reads and checks the graph and its files. False, and everything is said, if it cannot be run.
bool Prepare(const RunArguments& arguments, GivenGraph& given, OutputKind kind) {
  given = ReadGraph(arguments.words);
  const std::size_t of_graph = given.faults.size();
  if (given.graph != nullptr) {
    CheckFiles(given.graph->GetComponents(), arguments.overwrite, given.faults);
    FindPlaces(given.source, std::span(given.faults).subspan(of_graph));
  }
  if (kind == OutputKind::Json) {
    const bool taken = given.graph != nullptr && UsesStandardOutput(given.graph->GetComponents());
    for (const PQFault& fault : given.faults) {
      const std::string line = FaultJson(fault) + "\n";
      std::fwrite(line.data(), 1, line.size(), taken ? stderr : stdout);
    }
    std::fflush(stdout);
  } else if (kind != OutputKind::Quiet || !given.Faultless()) {
    PrintFaults(given);
  }
  return given.Faultless();
}

std::string Joined(const RunArguments& arguments, const GivenGraph& given) {
  return given.file.empty() ? JoinWords(arguments.words) : given.file;
}

int ExitOf(const PQRunResult& result) {
  if (!result.status.Ok()) return kExitFailed;
  return g_signal.load() != 0 ? kExitSignal + g_signal.load() : kExitOk;
}

}  // namespace

int RunGraph(const RunArguments& arguments) {
  const OutputKind kind = arguments.json ? OutputKind::Json : arguments.quiet ? OutputKind::Quiet : OutputKind::Person;
  GivenGraph given;
  if (!Prepare(arguments, given, kind)) return kExitRefused;
  RunPlan plan;
  plan.graph = Joined(arguments, given);
  plan.frames = arguments.frames, plan.seconds = arguments.seconds;
  plan.json_to_stderr = UsesStandardOutput(given.graph->GetComponents());
  plan.shares_terminal = plan.json_to_stderr && IsTerminal(stdout);
  const std::unique_ptr<RunOutput> output = MakeRunOutput(kind, plan);
  PQRunResult result;
  {
    PQGraphRun run(*given.graph, OptionsOf(arguments), output.get());
    if (!AddMoments(run, arguments)) return kExitRefused;
    const SignalScope signals(run);
    ReportScope reports(run, *output);
    result = run.Run();
    given.graph.reset();  // closing can fail, too
    if (PQStatus late = reports.End(); result.status.Ok()) result.status = late;
  }
  output->OnEnded(result, result.status.Ok() ? g_signal.load() : 0);
  return ExitOf(result);
}

int BenchGraph(const RunArguments& arguments) {
  GivenGraph given;
  if (!Prepare(arguments, given, arguments.json ? OutputKind::Json : OutputKind::Person)) return kExitRefused;
  const bool taken = UsesStandardOutput(given.graph->GetComponents());
  PQRunOptions options = OptionsOf(arguments);
  options.measure = true;
  if (options.frames == 0 && options.seconds == 0) options.frames = kBenchFrames;
  RunPlan plan;
  const std::unique_ptr<RunOutput> output = MakeRunOutput(OutputKind::Quiet, plan);
  PQGraphRun run(*given.graph, options, output.get());
  PQRunResult result;
  {
    const SignalScope signals(run);
    const ReportScope reports(run, *output);
    result = run.Run();
  }
  output->OnEnded(result, 0);
  if (!result.status.Ok()) return kExitFailed;
  const double rate = result.elapsed > 0 ? static_cast<double>(result.frames) / result.elapsed : 0;
  std::string text;
  if (arguments.json) {
    nlohmann::ordered_json all = {{"graph", Joined(arguments, given)},
                                  {"frames", result.frames},
                                  {"elapsed", result.elapsed},
                                  {"frames_per_second", rate},
                                  {"components", nlohmann::ordered_json::array()}};
    for (const PQComponentTime& time : result.times) {
      all["components"].push_back({{"component", time.component},
                                   {"class", time.class_name},
                                   {"frames", time.frames},
                                   {"seconds", time.seconds}});
    }
    text = all.dump(2) + "\n";
  } else {
    char line[256];
    std::snprintf(line, sizeof line, "%lld frames in %.3f s: %.1f frames per second\n\n",
                  static_cast<long long>(result.frames), result.elapsed, rate);
    text = line;
    std::size_t name = 9, kind = 5;
    double sum = 0;
    for (const PQComponentTime& time : result.times) {
      name = std::max(name, time.component.size()), kind = std::max(kind, time.class_name.size());
      sum += time.seconds;
    }
    text += Padded("component", name + 2) + Padded("class", kind + 2) + "  frames   ms/frame    share\n";
    for (const PQComponentTime& time : result.times) {
      // A source receives nothing that could be counted: its time is spread over the frames of the run.
      const std::int64_t frames = time.frames > 0 ? time.frames : result.frames;
      std::snprintf(
          line, sizeof line, "%8s %10.3f %7.1f%%\n", time.frames > 0 ? std::to_string(time.frames).c_str() : "-",
          frames > 0 ? 1000 * time.seconds / static_cast<double>(frames) : 0, sum > 0 ? 100 * time.seconds / sum : 0);
      text += Padded(time.component, name + 2) + Padded(time.class_name, kind + 2) + line;
    }
  }
  if (taken) {
    text.pop_back();
    PrintError(text);
    return ExitOf(result);
  }
  const int printed = PrintResult(text);
  return printed != kExitOk ? printed : ExitOf(result);
}

}  // namespace pantiq::app
