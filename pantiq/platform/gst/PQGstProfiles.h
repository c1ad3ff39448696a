// Which elements make which recording.
#pragma once
#include "pantiq/platform/PQMediaGraph.h"

namespace pantiq::gst {

PQPlatformResult ResolveProfile(const PQRecordingRequest& request, PQRecordingProfile& profile);

}  // namespace pantiq::gst
