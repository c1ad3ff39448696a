// Plays a file, mirrors it and records it.
#include <iostream>

#include "pantiq/core/PQGraphRun.h"
#include "pantiq/design/PQRegister.h"

int main() {
  pantiq::RegisterAll();
  pantiq::PQGraph graph;
  std::vector<pantiq::PQFault> faults;
  const char* line = "TPQASFPlayer FileName=rings.asf ! TPQMirror Name=m ! TPQASFLogger FileName=mirrored.asf";
  if (!graph.ParseLaunch(line, faults) || !graph.Set("m.MirrorType", "mtVertical").Ok()) {
    for (const auto& fault : faults) std::cerr << pantiq::PQFaultText(fault, line) << '\n';
    return 2;
  }
  const pantiq::PQRunResult result = pantiq::PQGraphRun(graph, {}).Run();
  if (!result.status.Ok()) std::cerr << result.status.Text() << '\n';
  std::cout << result.frames << " frames\n";
  return result.status.Ok() ? 0 : 1;
}
