// Sinks of GStreamer as devices.
#pragma once
#include <memory>

#include "pantiq/platform/PQMediaOutput.h"
#include "pantiq/platform/gst/PQGstCommon.h"

namespace pantiq::gst {

inline constexpr const char* kDigitalVideoPrefix = "dv:";

std::unique_ptr<PQOutputDevices> MakeOutputDevices();

// The device of a stored text as an element that is open (in the state READY); empty with what it said if it does not
// open. `silent` as in PQDeviceTrial.
ElementPtr OpenDevice(PQDeviceCategory category, const std::string& id, PQPlatformResult& result, bool& silent);

}  // namespace pantiq::gst
