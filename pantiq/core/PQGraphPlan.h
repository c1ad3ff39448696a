// What a launch line, a graph file and a binary stream have in common on their way to a graph. Not installed.
#pragma once
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/core/JCPins.h"
#include "pantiq/host/PQBinaryStream.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq::detail {

struct GraphPlace {
  int line = 0, column = 0, length = 1;
};

struct PlannedComponent {
  std::string name, class_name;  // an empty name: the graph finds one
  GraphPlace name_place, class_place;
  std::vector<PQTextSetting> settings;
  std::vector<PQTextSetting> bare;  // values without a property
};

// One side of a `!`: a component of the plan, or the path of a pin.
struct PlannedEnd {
  int component = -1;
  std::string path;
  GraphPlace place;
};

struct PlannedLink {
  PlannedEnd source, sink;
};

struct GraphPlan {
  std::vector<PlannedComponent> components;
  std::vector<PlannedLink> links;
};

PQFault MakeFault(const GraphPlace& place, std::string text, std::string expected = {}, std::string nearest = {});

bool HasErrors(const std::vector<PQFault>& faults);

// Fills a plan from a launch line.
void ReadLaunch(std::string_view text, GraphPlan& plan, std::vector<PQFault>& faults);

inline constexpr std::string_view kGraphHeader = "pantiq graph 1";

// Fills a plan from the objects of a graph file; settings point into the tree.
void ReadGraphTree(const PQTextNode& root, GraphPlan& plan);

// "TPQMirror" gives "PQMirror".
std::string BaseName(std::string_view class_name);

// The default pin of a component: of a list its first free one. Null, and a fault without a place, if it has none.
TJCPin* DefaultPinOf(TComponent& component, PQPinRole role, PQFault& fault);

// The pin of a path below a component, of a list its first free one. A fault's column is relative to the path.
TJCPin* PinOfPath(TComponent& component, std::string_view path, PQFault& fault);

// The pin of "Name.Pin" or "Name" among the owner's components. A fault's column is relative to the path.
TJCPin* FindPinOf(const TComponent& owner, std::string_view path, PQPinRole role, PQFault& fault);

// A connection to be made.
struct GraphLink {
  TComponent* source = nullptr;  // its default pin, unless a path is given
  TComponent* sink = nullptr;    // what the sink's path begins at; null: the graph
  std::string source_path, sink_path;
  GraphPlace source_place, sink_place;  // of the paths
  GraphPlace place;                     // what a refusal points at
  std::size_t offset = 0;               // in a binary stream
};

// Makes components, sets their properties and connects them.
class GraphBuilder {
 public:
  GraphBuilder(TComponent& owner, bool designing, std::vector<PQFault>& faults)
      : owner_(owner), designing_(designing), faults_(faults) {}

  void Build(const GraphPlan& plan);

  // The steps of Build, for streams that bring properties in a form of their own.
  TComponent* Make(const PQClassInfo& info, const std::string& name, const GraphPlace& place);
  void Connect(TJCPin& source, TJCPin& sink, const GraphPlace& place);
  // Connects all of them, in order. What cannot be found is tried again when others are connected, for lists of pins
  // grow.
  void Connect(std::vector<GraphLink> links);
  void Finish();

  // Where each component was named.
  const std::map<const TComponent*, GraphPlace>& Places() const { return places_; }
  // Settings of properties that nobody can tell now, by their component: they are stored as they were given.
  const std::map<const TComponent*, std::vector<PQTextSetting>>& Untold() const { return untold_; }
  // False if a component or a connection is missing for a fault, so that nothing can be said about the graph as a
  // whole.
  bool IsWhole() const { return whole_; }

 private:
  void NameComponents(const GraphPlan& plan, std::vector<std::string>& names);
  TComponent* Create(const PlannedComponent& planned, const std::string& name);
  void Apply(TComponent& component, const PlannedComponent& planned, std::vector<GraphLink>& links);
  bool TryConnect(const GraphLink& link, PQFault& fault);
  void Add(PQFault fault);

  TComponent& owner_;
  bool designing_;
  std::vector<PQFault>& faults_;
  std::map<const TComponent*, GraphPlace> places_;
  std::map<const TJCPin*, GraphPlace> connected_;  // sinks
  std::map<const TComponent*, std::vector<PQTextSetting>> untold_;
  bool whole_ = true;
};

}  // namespace pantiq::detail
