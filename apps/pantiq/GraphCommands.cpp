// Commands that look at a graph without running it. Its components load no plug-ins and open no devices.
#include "Commands.h"
#include "Console.h"
#include "FileCheck.h"
#include "GraphText.h"
#include "RunOutput.h"

namespace pantiq::app {

int CheckGraph(const std::vector<std::string>& words, bool json) {
  GivenGraph given = ReadGraph(words, true);
  const std::size_t of_graph = given.faults.size();
  if (given.graph != nullptr) {
    CheckFiles(given.graph->GetComponents(), true, given.faults);
    FindPlaces(given.source, std::span(given.faults).subspan(of_graph));
  }
  int printed = kExitOk;
  if (json) {
    std::string text;
    for (const PQFault& fault : given.faults) text += FaultJson(fault) + "\n";
    printed = PrintResult(text);
  } else {
    PrintFaults(given);
    if (given.Faultless()) {
      const std::size_t count = given.graph->GetComponents().size();
      printed = PrintResult("no errors: " + std::to_string(count) + (count == 1 ? " component\n" : " components\n"));
    }
  }
  return given.Faultless() ? printed : kExitRefused;
}

int SaveGraph(const std::vector<std::string>& words, const std::string& output, bool overwrite) {
  const GivenGraph given = ReadGraph(words, true);
  PrintFaults(given);
  // A graph without a source or a sink is a graph all the same, and can be stored.
  if (given.graph == nullptr) return kExitRefused;
  std::string text;
  if (const PQStatus status = given.graph->SaveText(text); !status.Ok()) {
    PrintError("pantiq: " + status.Text());
    return kExitRefused;
  }
  if (output == "-") return PrintResult(text);
  if (const std::string why = WhyNotWritable(output, overwrite); !why.empty()) {
    PrintError("pantiq: '" + output + "': " + why + "; expected a new file, or --overwrite");
    return kExitRefused;
  }
  if (const PQStatus status = given.graph->Save(output); !status.Ok()) {
    PrintError("pantiq: " + status.Text());
    return kExitFailed;
  }
  return kExitOk;
}

int DrawGraph(const std::vector<std::string>& words) {
  const GivenGraph given = ReadGraph(words, true);
  PrintFaults(given);
  return given.graph == nullptr ? kExitRefused : PrintResult(given.graph->ToDot());
}

}  // namespace pantiq::app
