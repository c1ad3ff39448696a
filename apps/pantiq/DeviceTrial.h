// Trying a device or an encoder in a process of its own: a toolkit may end the process that asks for a display which is
// not there.
#pragma once
#include <string>

#include "pantiq/media/PQDSCapDeviceList.h"
#include "pantiq/platform/PQMediaOutput.h"

namespace pantiq::app {

// Opens the device in a child of this program. A child that crashes or does not answer within five seconds is a device
// that does not work.
PQDeviceTrial TryDevice(PQDeviceCategory category, const std::string& id);

// The same with an encoder of the media engine, its settings as they are, on five frames; within 20 seconds.
PQPlatformResult TryEncoder(const std::string& moniker, PQCompressorTrial& trial);

// The child's side: `category` is "video", "audio" or "encoder".
int AnswerDeviceTrial(const std::string& category, const std::string& id);

}  // namespace pantiq::app
