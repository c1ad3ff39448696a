// Commands that show what there is: classes, one class, kernels. None of them makes a module of the platform load.
#pragma once
#include <string>

namespace pantiq::app {

int ListClasses(bool json);
int InspectClass(const std::string& name, bool json);
int ListKernels(bool json);

}  // namespace pantiq::app
