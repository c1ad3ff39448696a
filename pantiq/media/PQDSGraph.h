// TDSGraph: a component's graph. Holds the engine that is built, run and dropped with each recording or conversion, and
// tells what goes wrong with it.
#pragma once
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "pantiq/core/JCStdTypes.h"
#include "pantiq/host/PQComponent.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQMediaModule.h"

namespace pantiq {

// What is said of the steps that several graphs have.
namespace PQGraphStep {
inline constexpr const char* kNoBuilder = "Can't build DirectShow graph builder.";
inline constexpr const char* kNoControl = "Can't obtain IMediaControl.";
inline constexpr const char* kNoVideoSource = "Can't set video source filter.";
inline constexpr const char* kNoAudioSource = "Can't set audio source filter.";
inline constexpr const char* kNoGrabber = "Can't set video sample grabber.";
inline constexpr const char* kNoGrabberFormat = "Can't set video sample grabber format.";
inline constexpr const char* kNoVideoOutput = "Can't render video output.";
inline constexpr const char* kNoAudioOutput = "Can't render audio output.";
inline constexpr const char* kNoLogger = "Can't start logger.";
}  // namespace PQGraphStep

// Published as a property without values of its own.
//
// Threads. Building and dropping belong to the owner's frame path; GetInterface may be called on any thread, and what
// it gives stays alive as long as it is held.
class PQ_EXPORT TDSGraph final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // Makes the kind of graph that the owner builds; null with a result if there is none.
  using Maker = std::function<std::shared_ptr<PQMediaGraph>(PQMediaModule& module, PQPlatformResult& result)>;
  // `lock` is the owner's and outlives the graph. `on_event` hears of what a running graph tells, with a platform code.
  // Without a maker the graph records.
  TDSGraph(TComponent& owner, const TJCObject& lock, std::function<void(long event)> on_event, Maker maker = {});
  ~TDSGraph() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TComponent& GetOwner() const { return owner_; }
  const TJCObject& GetLock() const { return lock_; }

  // Makes an empty graph, loading the media engine if this is the first use; false if there is none, which is reported
  // with what to install. True at once if a graph exists.
  bool CreateGraph();
  bool RegisterAdditionalFilters();
  // Makes a running graph known to whoever lists them; without effect on the graph.
  void RegisterGraph() { registered_ = true; }
  void UnregisterGraph() { registered_ = false; }
  bool IsRegistered() const { return registered_; }
  // From now on `on_event` is called.
  void SetMediaEvent();
  void MediaEvent(long event);
  // Removes what stands behind the filter.
  void DestroyDownstream(PQFilterId filter);
  // Drops the graph; whoever still holds the interface keeps the object alive. A running one is stopped before.
  void ReleaseGraph();

  // True if a step of a build failed, which is then reported with this text; not if the build is only interrupted.
  bool Failed(const PQPlatformResult& result, const std::string& text);
  // Report the text as it is, with the code and what the platform said.
  void Error(const std::string& text, const PQPlatformResult& result);
  void Warning(const std::string& text, const PQPlatformResult& result);

  // Runs a part of an end. What it throws is reported and keeps back nothing that comes after it.
  template <class Part>
  void Ending(Part part) noexcept {
    try {
      part();
    } catch (...) {
      ReportCaught(&owner_, "a graph does not end properly");
    }
  }

  // Called with the owner when a graph is fully wired, before it runs. Before-start.
  void SetBeforeRun(std::function<void(TComponent& owner)> closure) { before_run_ = std::move(closure); }
  void BeforeRun();

  // The graph; empty if there is none.
  std::shared_ptr<PQMediaGraph> GetInterface() const;

 private:
  TComponent& owner_;
  const TJCObject& lock_;
  std::function<void(long)> on_event_;
  const Maker maker_;
  std::function<void(TComponent&)> before_run_;
  mutable std::mutex mutex_;  // a leaf: the reference
  std::shared_ptr<PQMediaGraph> graph_;
  bool registered_ = false, events_ = false;
};

}  // namespace pantiq
