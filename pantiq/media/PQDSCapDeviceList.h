// TPQDSCapDeviceList: the filters of a category that the platform has, by name and by the string that settings store.
#pragma once
#include <string>
#include <vector>

#include "pantiq/platform/PQMediaModule.h"

namespace pantiq {

// Not shared between threads.
class PQ_EXPORT TPQDSCapDeviceList {
 public:
  // Loads the media engine if this is its first use, and lists what it has; the list is empty after a failure. Being
  // listed does not mean that a filter works here: PQTryCompressor finds out.
  PQPlatformResult EnumFilters(PQFilterCategory category);

  int GetCount() const { return static_cast<int>(filters_.size()); }
  const PQFilterInfo& GetItem(int index) const { return filters_.at(static_cast<std::size_t>(index)); }

  // Of a listed filter; empty if there is none. A moniker's string form is "gst:element=NAME".
  std::string GetMonikerByDeviceName(const std::string& name) const;
  std::string GetMonikerByString(const std::string& text) const;
  std::string GetDeviceNameByString(const std::string& text) const;
  std::string GetStringByDeviceName(const std::string& name) const { return GetMonikerByDeviceName(name); }

 private:
  std::vector<PQFilterInfo> filters_;
};

// Five frames of 320 by 240 through a compressor and back, with its settings; `trial` tells what came of it. A failure
// says why nothing came. Takes up to seconds for one that does not work. Any thread.
PQ_EXPORT PQPlatformResult PQTryCompressor(const std::string& moniker, const std::string& settings,
                                           PQCompressorTrial& trial);

}  // namespace pantiq
