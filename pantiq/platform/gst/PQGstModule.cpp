// The one exported function of the module.
#include "pantiq/platform/PQMediaModule.h"
#include "pantiq/platform/gst/PQGstCodecGraph.h"
#include "pantiq/platform/gst/PQGstCommon.h"
#include "pantiq/platform/gst/PQGstCompressors.h"
#include "pantiq/platform/gst/PQGstDevices.h"
#include "pantiq/platform/gst/PQGstEffects.h"
#include "pantiq/platform/gst/PQGstGraph.h"
#include "pantiq/platform/gst/PQGstOutput.h"
#include "pantiq/platform/gst/PQGstProfiles.h"
#include "pantiq/platform/gst/PQGstReader.h"

namespace pantiq::gst {
namespace {

class Module final : public PQMediaModule {
 public:
  std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult& result) override {
    result = Initialise();
    return result.Ok() ? MakeReader() : nullptr;
  }
  std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult& result) override {
    result = Initialise();
    return result.Ok() ? MakeGraph() : nullptr;
  }
  std::unique_ptr<PQCodecGraph> CreateCodecGraph(PQPlatformResult& result) override {
    result = Initialise();
    return result.Ok() ? MakeCodecGraph() : nullptr;
  }
  PQPlatformResult EnumFilters(PQFilterCategory, std::vector<PQFilterInfo>& filters) override {
    return ListCompressors(filters);
  }
  PQPlatformResult TryCompressor(const std::string& moniker, const std::string& settings,
                                 PQCompressorTrial& trial) override {
    return gst::TryCompressor(moniker, settings, trial);
  }
  std::unique_ptr<PQEffects> CreateEffects(PQPlatformResult& result) override {
    result = Initialise();
    return result.Ok() ? MakeEffects() : nullptr;
  }
  std::unique_ptr<PQMediaOutput> CreateOutput(PQPlatformResult& result) override {
    result = Initialise();
    return result.Ok() ? MakeOutput() : nullptr;
  }
  std::unique_ptr<PQOutputDevices> CreateOutputDevices(PQPlatformResult& result) override {
    result = Initialise();
    return result.Ok() ? MakeOutputDevices() : nullptr;
  }
  PQPlatformResult ResolveProfile(const PQRecordingRequest& request, PQRecordingProfile& profile) override {
    if (auto result = Initialise(); !result.Ok()) return result;
    return gst::ResolveProfile(request, profile);
  }
};

}  // namespace
}  // namespace pantiq::gst

extern "C" PQ_EXPORT pantiq::PQMediaModule* pantiq_media_module(int abi) {
  if (abi != pantiq::kMediaModuleAbi) return nullptr;
  static auto* module = new pantiq::gst::Module;  // lives as long as the process
  return module;
}
