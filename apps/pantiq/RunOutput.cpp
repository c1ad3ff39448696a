#include "RunOutput.h"

#include <cmath>
#include <cstdio>
#include <mutex>
#include <nlohmann/json.hpp>

#include "Console.h"

namespace pantiq::app {
namespace {

using Json = nlohmann::ordered_json;

std::string Number(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

std::string Frames(std::int64_t count) { return std::to_string(count) + (count == 1 ? " frame" : " frames"); }

const char* SeverityText(PQSeverity severity) {
  return severity == PQSeverity::Error ? "error" : severity == PQSeverity::Warning ? "warning" : "note";
}

// What is left in seconds by the figures so far; below 0 if unknown.
double TimeLeft(const RunPlan& plan, const PQRunProgress& progress) {
  if (progress.elapsed <= 0) return -1;
  double done = -1;  // part of the way
  if (plan.frames > 0) done = static_cast<double>(progress.frames) / static_cast<double>(plan.frames);
  if (plan.seconds > 0) done = std::max(done, progress.position / plan.seconds);
  if (progress.duration > 0) done = std::max(done, progress.position / progress.duration);
  if (done <= 0) return -1;
  return done >= 1 ? 0 : progress.elapsed * (1 - done) / done;
}

std::string EndText(const PQRunResult& result, int signal) {
  std::string text = signal != 0 ? "stopped after " : result.status.Ok() ? "done: " : "ended after ";
  text += Frames(result.frames) + " in " + Number(result.elapsed, 2) + " s";
  if (result.elapsed > 0 && result.frames > 0) {
    text += " (" + Number(static_cast<double>(result.frames) / result.elapsed, 1) + " frames per second)";
  }
  return text;
}

class QuietOutput final : public RunOutput {
 public:
  void OnReport(const PQReportEntry&) override {}
  void OnEnded(const PQRunResult& result, int) override {
    if (!result.status.Ok()) PrintError("pantiq: " + result.status.Text());
  }
};

class PersonOutput final : public RunOutput {
 public:
  explicit PersonOutput(const RunPlan& plan) : plan_(plan), live_(IsTerminal(stderr) && !plan.shares_terminal) {}

  void OnNote(const std::string& text) override { Line("note: " + text); }

  void OnReport(const PQReportEntry& entry) override {
    // An error ends the run and is said at the end.
    if (entry.severity != PQSeverity::Error) Line(ReportText(entry));
  }

  void OnProgress(const PQRunProgress& progress) override {
    if (!live_) return;
    std::string text = Frames(progress.frames);
    if (plan_.frames > 0) text = std::to_string(progress.frames) + "/" + Frames(plan_.frames);
    text += "  " + Number(progress.frames_per_second, 1) + " fps  " + TimeText(progress.position);
    if (progress.duration > 0) text += "/" + TimeText(progress.duration);
    if (const double left = TimeLeft(plan_, progress); left >= 0)
      text += "  " + TimeText(std::ceil(left), false) + " left";
    for (const PQGauge& gauge : progress.gauges) {
      text += "  " + gauge.component + "." + gauge.name + " " + std::to_string(gauge.value);
    }
    if (const auto columns = static_cast<std::size_t>(TerminalColumns()); text.size() >= columns)
      text.resize(columns - 1);
    const std::lock_guard lock(mutex_);
    std::string line = "\r" + text + "\x1b[K";  // clears the rest of the line
    std::fwrite(line.data(), 1, line.size(), stderr);
    drawn_ = true;
  }

  void OnEnded(const PQRunResult& result, int signal) override {
    if (!result.status.Ok()) Line("pantiq: " + result.status.Text());
    Line(EndText(result, signal));
  }

 private:
  void Line(const std::string& text) {
    const std::lock_guard lock(mutex_);
    PrintError((drawn_ ? "\r\x1b[K" : "") + text);
    drawn_ = false;
  }
  const RunPlan plan_;
  const bool live_;
  std::mutex mutex_;
  bool drawn_ = false;  // a line of progress stands on the terminal
};

class JsonOutput final : public RunOutput {
 public:
  explicit JsonOutput(const RunPlan& plan) : plan_(plan), file_(plan.json_to_stderr ? stderr : stdout) {}

  void OnStarted() override {
    Json event = {{"event", "started"}, {"graph", plan_.graph}};
    if (plan_.frames > 0) event["frames"] = plan_.frames;
    if (plan_.seconds > 0) event["seconds"] = plan_.seconds;
    Write(event);
  }
  void OnNote(const std::string& text) override { Write({{"event", "note"}, {"text", text}}); }
  void OnReport(const PQReportEntry& entry) override {
    Json event = {{"event", "report"}, {"severity", SeverityText(entry.severity)}};
    if (entry.component != nullptr) {
      event["component"] = entry.component->GetName();
      event["class"] = entry.component->ClassInfo().Name();
    }
    event["text"] = entry.text;
    event["code"] = entry.code;
    event["detail"] = entry.detail;
    Write(event);
  }
  void OnProgress(const PQRunProgress& progress) override {
    Json gauges = Json::array();
    for (const PQGauge& gauge : progress.gauges) {
      gauges.push_back({{"component", gauge.component}, {"name", gauge.name}, {"value", gauge.value}});
    }
    Json event = {{"event", "progress"},
                  {"frames", progress.frames},
                  {"elapsed", progress.elapsed},
                  {"frames_per_second", progress.frames_per_second},
                  {"position", progress.position}};
    if (progress.duration > 0) event["duration"] = progress.duration;
    if (const double left = TimeLeft(plan_, progress); left >= 0) event["left"] = left;
    event["gauges"] = std::move(gauges);
    Write(event);
  }
  void OnEnded(const PQRunResult& result, int signal) override {
    Json sinks = Json::array();
    for (const PQSinkCount& sink : result.sinks) {
      sinks.push_back({{"component", sink.component}, {"frames", sink.frames}, {"buffers", sink.buffers}});
    }
    Json event = {{"event", "ended"},        {"ok", result.status.Ok()},  {"stopped", result.stopped},
                  {"frames", result.frames}, {"elapsed", result.elapsed}, {"sinks", std::move(sinks)}};
    if (!result.status.Ok()) event["error"] = result.status.Text();
    if (signal != 0) event["signal"] = signal;
    Write(event);
  }

 private:
  // Text of a file may be no UTF-8; it is shown all the same.
  void Write(const Json& event) {
    const std::string line = event.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    const std::lock_guard lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), file_);
    std::fflush(file_);
  }
  const RunPlan plan_;
  std::FILE* const file_;
  std::mutex mutex_;
};

}  // namespace

std::unique_ptr<RunOutput> MakeRunOutput(OutputKind kind, const RunPlan& plan) {
  if (kind == OutputKind::Json) return std::make_unique<JsonOutput>(plan);
  if (kind == OutputKind::Quiet) return std::make_unique<QuietOutput>();
  return std::make_unique<PersonOutput>(plan);
}

std::string ReportText(const PQReportEntry& entry) {
  std::string text = std::string(SeverityText(entry.severity)) + ": ";
  if (entry.component != nullptr) {
    const std::string& name = entry.component->GetName();
    text += (name.empty() ? entry.component->ClassInfo().Name() : name) + ": ";
  }
  text += entry.text;
  if (!entry.detail.empty()) text += " (" + entry.detail + ")";
  return text;
}

std::string FaultJson(const PQFault& fault) {
  Json event = {{"event", "fault"}, {"severity", SeverityText(fault.severity)}, {"text", fault.text}};
  if (fault.line > 0) event["line"] = fault.line, event["column"] = fault.column, event["length"] = fault.length;
  const auto add = [&](const char* name, const std::string& value) {
    if (!value.empty()) event[name] = value;
  };
  add("component", fault.component);
  add("property", fault.property);
  add("value", fault.value);
  add("expected", fault.expected);
  add("nearest", fault.nearest);
  return event.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string TimeText(double seconds, bool tenths) {
  const auto whole = static_cast<long long>(seconds * 10 + 0.5);
  const long long hours = whole / 36000, minutes = whole / 600 % 60, rest = whole % 600;
  char text[64];
  if (hours > 0) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", hours, minutes, rest / 10);
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", minutes, rest / 10);
  }
  return tenths ? std::string(text) + "." + std::to_string(rest % 10) : text;
}

}  // namespace pantiq::app
