// A program outside Pantiq's own tree: runs a graph that blurs a zone plate, and says whether the media module is found.
#include <cstdio>
#include <vector>

#include "pantiq/core/PQGraph.h"
#include "pantiq/core/PQGraphRun.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/platform/PQModules.h"

using namespace pantiq;

int main() {
  RegisterAll();
  PQGraph graph;
  std::vector<PQFault> faults;
  if (!graph.ParseLaunch("TPQJaehneGen ImageSize.Width=320 ImageSize.Height=240 ! TPQBoxFilter", faults)) return 1;
  PQRunOptions options;
  options.frames = 3;
  const PQRunResult result = PQGraphRun(graph, options).Run();
  if (!result.status.Ok()) return 1;
  std::printf("%d frames\n", static_cast<int>(result.frames));

  PQPlatformResult media;
  std::printf("media: %s\n", LoadMediaModule(media) != nullptr ? "there" : media.detail.c_str());
}
