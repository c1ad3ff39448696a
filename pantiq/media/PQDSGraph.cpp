#include "pantiq/media/PQDSGraph.h"

#include <utility>

#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {

constinit const PQClassTag TDSGraph::kTag{"TDSGraph", &TPersistent::kTag};

const PQClassInfo& TDSGraph::Class() {
  static const PQClassInfo& info = PQDescribe<TDSGraph>("TDSGraph", "PQDSGraph", "The graph of a media engine.").Done();
  return info;
}

TDSGraph::TDSGraph(TComponent& owner, const TJCObject& lock, std::function<void(long event)> on_event, Maker maker)
    : owner_(owner), lock_(lock), on_event_(std::move(on_event)), maker_(std::move(maker)) {}

TDSGraph::~TDSGraph() { ReleaseGraph(); }

bool TDSGraph::CreateGraph() {
  if (GetInterface() != nullptr) return true;
  PQPlatformResult result;
  PQMediaModule* module = LoadMediaModule(result);
  if (module == nullptr) {
    Error("The media engine is not installed.", result);
    return false;
  }
  std::shared_ptr<PQMediaGraph> graph = maker_ ? maker_(*module, result) : module->CreateGraph(result);
  if (graph == nullptr || !result.Ok()) {
    Error("The media engine does not start.", result);
    return false;
  }
  if (!graph->CreateGraph().Ok()) return false;
  const std::lock_guard lock(mutex_);
  graph_ = std::move(graph);
  return true;
}

bool TDSGraph::RegisterAdditionalFilters() {
  const auto graph = GetInterface();
  return graph != nullptr && graph->RegisterAdditionalFilters().Ok();
}

void TDSGraph::SetMediaEvent() { events_ = true; }

void TDSGraph::MediaEvent(long event) {
  if (events_ && on_event_) on_event_(event);
}

void TDSGraph::DestroyDownstream(PQFilterId filter) {
  if (const auto graph = GetInterface()) graph->DestroyDownstream(filter);
}

void TDSGraph::ReleaseGraph() {
  std::shared_ptr<PQMediaGraph> graph;  // dies outside the mutex
  const std::lock_guard lock(mutex_);
  graph.swap(graph_);
  registered_ = events_ = false;
}

bool TDSGraph::Failed(const PQPlatformResult& result, const std::string& text) {
  if (result.Ok()) return false;
  if (result.code != kPlatformInterrupted) Error(text, result);
  return true;
}

void TDSGraph::Error(const std::string& text, const PQPlatformResult& result) {
  Report(&owner_, PQSeverity::Error, text, result.code, result.detail);
}

void TDSGraph::Warning(const std::string& text, const PQPlatformResult& result) {
  Report(&owner_, PQSeverity::Warning, text, result.code, result.detail);
}

void TDSGraph::BeforeRun() {
  if (before_run_) before_run_(owner_);
}

std::shared_ptr<PQMediaGraph> TDSGraph::GetInterface() const {
  const std::lock_guard lock(mutex_);
  return graph_;
}

}  // namespace pantiq
