#include "pantiq/media/PQDSCapDeviceList.h"

#include "pantiq/platform/PQModules.h"

namespace pantiq {

PQPlatformResult TPQDSCapDeviceList::EnumFilters(PQFilterCategory category) {
  filters_.clear();
  PQPlatformResult result;
  PQMediaModule* const module = LoadMediaModule(result);
  if (module != nullptr) result = module->EnumFilters(category, filters_);
  if (!result.Ok()) filters_.clear();
  return result;
}

std::string TPQDSCapDeviceList::GetMonikerByDeviceName(const std::string& name) const {
  for (const PQFilterInfo& filter : filters_) {
    if (filter.name == name) return filter.moniker;
  }
  return {};
}

std::string TPQDSCapDeviceList::GetMonikerByString(const std::string& text) const {
  for (const PQFilterInfo& filter : filters_) {
    if (filter.moniker == text) return filter.moniker;
  }
  return {};
}

std::string TPQDSCapDeviceList::GetDeviceNameByString(const std::string& text) const {
  for (const PQFilterInfo& filter : filters_) {
    if (filter.moniker == text) return filter.name;
  }
  return {};
}

PQPlatformResult PQTryCompressor(const std::string& moniker, const std::string& settings, PQCompressorTrial& trial) {
  trial = {};
  PQPlatformResult result;
  PQMediaModule* const module = LoadMediaModule(result);
  return module != nullptr ? module->TryCompressor(moniker, settings, trial) : result;
}

}  // namespace pantiq
