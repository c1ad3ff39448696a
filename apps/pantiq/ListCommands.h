// Commands that show what there is: classes, one class, kernels, and what the platform brings: codecs, encoders, effects,
// devices. Only the last four make a module of the platform load.
#pragma once
#include <string>

namespace pantiq::app {

int ListClasses(bool json);
// The codecs that work here; they are tried first.
int ListCodecs(bool json);
int InspectClass(const std::string& name, bool json);
// What a plug-in for TPQFreeFrame has; it is loaded in a process of its own.
int InspectPlugin(const std::string& file, bool json);
int ListKernels(bool json);
// Without a name all effects of the platform, each tried; with a name (or an element's, or an identifier) that one.
int ListEffects(const std::string& name, bool json);
// The devices that video and sound can be played to, each opened in a process of its own.
int ListDevices(bool json);
// The encoders of the media engine, each tried in a process of its own.
int ListEncoders(bool json);

}  // namespace pantiq::app
