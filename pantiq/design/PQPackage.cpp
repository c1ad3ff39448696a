#include "pantiq/design/PQPackage.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <mutex>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQUnregister.h"

namespace pantiq {
namespace {

// tests/house/check_package.py holds it to the sources.
constexpr std::string_view kUnits[] = {"host/PQStatus",
                                       "host/PQValue",
                                       "host/PQClassInfo",
                                       "host/PQPersistent",
                                       "host/PQPath",
                                       "host/PQReport",
                                       "host/PQDialog",
                                       "host/PQCollection",
                                       "host/PQComponent",
                                       "host/PQRegistry",
                                       "host/PQPicture",
                                       "host/PQPictureFile",
                                       "host/PQBinaryStream",
                                       "host/PQTextDocument",
                                       "host/PQTextStream",
                                       "platform/PQDynamicLibrary",
                                       "platform/PQModules",
                                       "kernels/PQBaseKernels",
                                       "kernels/PQFormatKernels",
                                       "kernels/PQSampling",
                                       "kernels/PQBase",
                                       "kernels/PQFormat",
                                       "kernels/PQMix",
                                       "kernels/PQFixedMask",
                                       "kernels/PQBoxRank",
                                       "kernels/PQBorderRank",
                                       "kernels/PQMorphology",
                                       "kernels/PQNoise",
                                       "kernels/PQColor",
                                       "kernels/PQPoint",
                                       "kernels/PQWiener",
                                       "kernels/PQAffine",
                                       "kernels/PQWarp",
                                       "kernels/PQResize",
                                       "kernels/PQCpu",
                                       "kernels/PQKernelRegistry",
                                       "kernels/PQDispatcher",
                                       "kernels/PQConvDispatcher",
                                       "kernels/PQResizeDispatcher",
                                       "core/PQPool",
                                       "core/JCMultiReadLock",
                                       "core/JCStdTypes",
                                       "core/JCPins",
                                       "core/PQFramePool",
                                       "core/PQFrameLoan",
                                       "core/RWDataBuffer",
                                       "core/RWStreamTypes",
                                       "core/RWThreads",
                                       "core/PQSimpleImageBuffer",
                                       "core/PQStreamTypes",
                                       "core/PQRegion",
                                       "core/PQCommonFilter",
                                       "core/PQSinkFilter",
                                       "core/PQCommonGen",
                                       "core/PQMultiInput",
                                       "core/PQGraph",
                                       "core/PQGraphRun",
                                       "filters/PQColorPlanes",
                                       "filters/PQNoiseFilter",
                                       "filters/PQMoveFilter",
                                       "compose/PQColors",
                                       "compose/PQCombinePanes",
                                       "compose/PQCommonCombine",
                                       "plugins/PQPluginLibrary",
                                       "plugins/PQPluginProcess",
                                       "plugins/PQFreeFrameParameters",
                                       "plugins/PQDmoSelectForm",
                                       "media/PQVideoCompression",
                                       "media/PQDSGraph",
                                       "media/PQDSQueues",
                                       "media/PQDSDevices",
                                       "media/PQDSCapDeviceList",
                                       "media/PQDVFormat",
                                       "media/PQDSVideoCompression",
                                       "media/PQDSCodecStream",
                                       "media/PQDSBinarySource",
                                       "media/PQDSCommonLogger",
                                       "media/PQBXASFProfile",
                                       "media/PQBXASFBasicPlayer",
                                       "media/PQDSVideoDecompressor",
                                       "filters/PQRealToFrame",
                                       "flow/PQChangeRate",
                                       "filters/PQColorsToReal",
                                       "media/PQASFPlayer",
                                       "flow/PQSwitch",
                                       "filters/PQChangeFormat",
                                       "media/PQDSVideoCompressor",
                                       "flow/PQSnapshot",
                                       "filters/PQMorphFilter",
                                       "filters/PQColorTwist",
                                       "filters/PQImageAdjust",
                                       "plugins/PQFreeFrame",
                                       "filters/PQUniformNoise",
                                       "filters/PQBoxFilter",
                                       "filters/PQFixedFilter",
                                       "filters/PQGaussNoise",
                                       "filters/PQGrayScale",
                                       "filters/PQHistogram",
                                       "filters/PQJaehneGen",
                                       "filters/PQGammaFilter",
                                       "filters/PQMirror",
                                       "filters/PQRotate",
                                       "filters/PQShear",
                                       "filters/PQResize",
                                       "filters/PQWarp",
                                       "compose/PQCombine",
                                       "filters/PQImageGen",
                                       "compose/PQFrameChange",
                                       "filters/PQColorSplit",
                                       "compose/PQApplyMask",
                                       "compose/PQTransparentColor",
                                       "filters/PQWienerFilter",
                                       "plugins/PQDMOEffect",
                                       "media/PQDSVideoOut",
                                       "media/PQVideoDecompressor",
                                       "media/PQVideoCompressor",
                                       "filters/PQThreshold",
                                       "filters/PQCrop",
                                       "filters/PQHistogramEqualize",
                                       "media/PQASFLogger",
                                       "flow/PQDelay",
                                       "flow/PQQueuedSwitch",
                                       "filters/PQColorMerge",
                                       "design/PQMorphShapeFormUnit",
                                       "design/PQRegister",
                                       "design/PQPalette",
                                       "design/PQPackage"};

struct Package {
  std::mutex mutex;
  std::array<int, std::size(kUnits)> entries{};
  int loads = 0;
};

Package& ThePackage() {
  static Package& package = *new Package;  // never destroyed: a host may unload at the very end
  return package;
}

}  // namespace

std::span<const std::string_view> PQPackageUnits() { return kUnits; }

void PQLoadPackage(const PQUnitVisit& visit) {
  Package& package = ThePackage();
  const std::lock_guard lock(package.mutex);
  ++package.loads;
  for (std::size_t i = 0; i < std::size(kUnits); ++i) {
    ++package.entries[i];
    if (visit) visit(kUnits[i]);
  }
}

bool PQUnloadPackage(const PQUnitVisit& visit) {
  Package& package = ThePackage();
  const std::lock_guard lock(package.mutex);
  if (package.loads == 0) return false;
  if (--package.loads == 0) UnregisterPage(kPantiqPage);
  for (std::size_t i = std::size(kUnits); i-- > 0;) {
    --package.entries[i];
    if (visit) visit(kUnits[i]);
  }
  return true;
}

int PQUnitEntries(std::string_view unit) {
  const auto found = std::find(std::begin(kUnits), std::end(kUnits), unit);
  if (found == std::end(kUnits)) return -1;
  Package& package = ThePackage();
  const std::lock_guard lock(package.mutex);
  return package.entries[static_cast<std::size_t>(found - std::begin(kUnits))];
}

}  // namespace pantiq
