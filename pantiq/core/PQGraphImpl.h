// Inside a graph. Not installed.
#pragma once
#include <map>
#include <string>
#include <vector>

#include "pantiq/core/PQGraph.h"
#include "pantiq/core/PQGraphPlan.h"

namespace pantiq {

struct PQGraph::Impl {
  // Owns the components.
  class Root final : public TComponent {
   public:
    ~Root() override { BeforeDestructionOnce(); }
  };

  std::string source;
  PQTextNode document;  // of a graph that was loaded from a file's text
  std::map<const TComponent*, detail::GraphPlace> places;
  std::map<const TComponent*, std::vector<PQTextSetting>> untold;
  bool whole = true;  // all components and connections of the text are there
  Root root;

  void ReadLaunch(bool designing, std::vector<PQFault>& faults);
  void ReadText(bool designing, std::vector<PQFault>& faults);
  void Build(const detail::GraphPlan& plan, bool designing, std::vector<PQFault>& faults);
  void Check(std::vector<PQFault>& faults) const;
};

}  // namespace pantiq
