// Which elements make which recording.
#pragma once
#include "pantiq/platform/PQMediaGraph.h"

namespace pantiq::gst {

PQPlatformResult ResolveProfile(const PQRecordingRequest& request, PQRecordingProfile& profile);

// How many samples of silence come back before the sound that such an encoder was given: half of its first window, which
// no container that is written here tells of. The encoder is the element "encoder" of the profile's description.
int SilenceAhead(const std::string& audio_codec, int sample_rate);

}  // namespace pantiq::gst
