// The face of a media module: one object that makes readers, graphs and effects. A module is a shared library with the
// one function below; nothing else of it is looked up by name.
#pragma once
#include <memory>

#include "pantiq/platform/PQCodecGraph.h"
#include "pantiq/platform/PQEffects.h"
#include "pantiq/platform/PQMediaGraph.h"
#include "pantiq/platform/PQMediaOutput.h"
#include "pantiq/platform/PQMediaReader.h"

namespace pantiq {

class PQ_EXPORT PQMediaModule {
 public:
  virtual ~PQMediaModule() = default;
  // Null with a result if the engine cannot be started.
  virtual std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult& result) = 0;
  virtual std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult& result) = 0;
  // Graphs of codecs, and what they are built of. A module that has none need not say so.
  virtual std::unique_ptr<PQCodecGraph> CreateCodecGraph(PQPlatformResult& result) {
    result = {kPlatformMissing, "this media module has no graphs of codecs"};
    return nullptr;
  }
  virtual PQPlatformResult EnumFilters(PQFilterCategory, std::vector<PQFilterInfo>& filters) {
    filters.clear();
    return {kPlatformMissing, "this media module has no lists of filters"};
  }
  // Tries a compressor on a few frames of 320 by 240 and makes frames of its blocks again. Takes seconds at worst.
  virtual PQPlatformResult TryCompressor(const std::string&, const std::string&, PQCompressorTrial&) {
    return {kPlatformMissing, "this media module has no compressors"};
  }
  // A module that has none need not say so.
  virtual std::unique_ptr<PQEffects> CreateEffects(PQPlatformResult& result) {
    result = {kPlatformMissing, "this media module has no effects"};
    return nullptr;
  }
  virtual std::unique_ptr<PQMediaOutput> CreateOutput(PQPlatformResult& result) {
    result = {kPlatformMissing, "this media module plays to no devices"};
    return nullptr;
  }
  virtual std::unique_ptr<PQOutputDevices> CreateOutputDevices(PQPlatformResult& result) {
    result = {kPlatformMissing, "this media module knows no devices"};
    return nullptr;
  }
  // Chooses encoders and muxer; fails with the missing element and its package.
  virtual PQPlatformResult ResolveProfile(const PQRecordingRequest& request, PQRecordingProfile& profile) = 0;
};

// Goes up with every change of the headers of this room.
inline constexpr int kMediaModuleAbi = 5;
// The module's function: `PQMediaModule* pantiq_media_module(int abi)`; null if the numbers differ. The object lives as
// long as the process.
using PQMediaModuleEntry = PQMediaModule* (*)(int abi);
inline constexpr const char* kMediaModuleEntry = "pantiq_media_module";

}  // namespace pantiq
