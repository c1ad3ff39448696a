// Commands that show what there is: classes, one class, kernels, and what the platform brings. Only the last makes a module
// of the platform load.
#pragma once
#include <string>

namespace pantiq::app {

int ListClasses(bool json);
// The codecs that work here; they are tried first.
int ListCodecs(bool json);
int InspectClass(const std::string& name, bool json);
int ListKernels(bool json);

}  // namespace pantiq::app
